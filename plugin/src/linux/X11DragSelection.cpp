#include "X11DragSelection.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <errno.h>
#include <glib.h>
#include <poll.h>
#include <sys/stat.h>
#include <time.h>

#include <cstring>

namespace Kestrix {
namespace Web {

namespace {

// The property of our own window that the drag source writes its answer to.
const char kPropertyName[] = "CORVANE_WEB_DROP";
// How much of the property one request reads, in 32-bit units (256 KiB).
const long kReadLength = 65536;

long nowMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool isLocalHost(const char* host) {
    return !host || !*host || strcmp(host, "localhost") == 0 || strcmp(host, g_get_host_name()) == 0;
}

}  // namespace

X11DragSelection::X11DragSelection(const char* displayName, int timeoutMs) : _timeoutMs(timeoutMs) {
    _display = XOpenDisplay(displayName && *displayName ? displayName : nullptr);
    if (!_display) return;
    _selection = XInternAtom(_display, "XdndSelection", False);
    _property = XInternAtom(_display, kPropertyName, False);
    // Never mapped: it only receives the answers.
    _window = XCreateSimpleWindow(_display, DefaultRootWindow(_display), 0, 0, 1, 1, 0, 0, 0);
    XSelectInput(_display, _window, PropertyChangeMask);
}

X11DragSelection::~X11DragSelection() {
    if (!_display) return;
    XDestroyWindow(_display, _window);
    XCloseDisplay(_display);
}

std::vector<std::string> X11DragSelection::items(bool allowDirectories) {
    if (!_display || XGetSelectionOwner(_display, _selection) == None) return {};
    _deadlineMs = nowMs() + _timeoutMs;

    std::string data;
    Answer answer = convert("text/uri-list", &data);
    if (answer == Answer::Data) return pathsFromUriList(data, allowDirectories);
    if (answer == Answer::TimedOut) return {};

    if (convert("UTF8_STRING", &data) == Answer::Data && !data.empty()) return {data};
    return {};
}

void X11DragSelection::clear() {
    if (!_display) return;
    XSetSelectionOwner(_display, _selection, None, CurrentTime);
    XSync(_display, False);
}

X11DragSelection::Answer X11DragSelection::convert(const char* target, std::string* data) {
    const Atom targetAtom = XInternAtom(_display, target, False);
    XDeleteProperty(_display, _window, _property);
    XConvertSelection(_display, _selection, targetAtom, _property, _window, CurrentTime);

    XEvent event;
    auto answered = [&](const void* e) {
        const XEvent* x = static_cast<const XEvent*>(e);
        return x->type == SelectionNotify && x->xselection.requestor == _window &&
               x->xselection.selection == _selection && x->xselection.target == targetAtom;
    };
    if (!waitFor(answered, &event)) return Answer::TimedOut;
    if (event.xselection.property == None) return Answer::Refused;

    unsigned long type = None;
    if (!readProperty(data, &type)) return Answer::Refused;
    if (type == XInternAtom(_display, "INCR", False)) return readIncrementally(data);
    return Answer::Data;
}

// A large answer comes in pieces: each time we delete the property the
// source writes the next piece, and an empty piece ends it.
X11DragSelection::Answer X11DragSelection::readIncrementally(std::string* data) {
    data->clear();
    XEvent event;
    auto newPiece = [&](const void* e) {
        const XEvent* x = static_cast<const XEvent*>(e);
        return x->type == PropertyNotify && x->xproperty.window == _window &&
               x->xproperty.atom == _property && x->xproperty.state == PropertyNewValue;
    };
    for (;;) {
        if (!waitFor(newPiece, &event)) return Answer::TimedOut;
        std::string piece;
        unsigned long type = None;
        if (!readProperty(&piece, &type)) continue;
        if (piece.empty()) return Answer::Data;
        data->append(piece);
    }
}

// Reads the whole property (8-bit data, or the INCR marker) and deletes it.
bool X11DragSelection::readProperty(std::string* data, unsigned long* type) {
    data->clear();
    const Atom incr = XInternAtom(_display, "INCR", False);
    long offset = 0;
    for (;;) {
        Atom actualType = None;
        int format = 0;
        unsigned long count = 0;
        unsigned long remaining = 0;
        unsigned char* bytes = nullptr;
        if (XGetWindowProperty(_display, _window, _property, offset, kReadLength, False, AnyPropertyType,
                               &actualType, &format, &count, &remaining, &bytes) != Success)
            return false;
        const bool usable = actualType != None && (format == 8 || actualType == incr);
        if (usable && format == 8) data->append(reinterpret_cast<const char*>(bytes), count);
        if (bytes) XFree(bytes);
        if (!usable) return false;
        *type = actualType;
        if (remaining == 0 || actualType == incr) break;
        offset += static_cast<long>(count / 4);
    }
    XDeleteProperty(_display, _window, _property);
    XFlush(_display);
    return true;
}

bool X11DragSelection::waitFor(const std::function<bool(const void* event)>& wanted, void* event) {
    XEvent* out = static_cast<XEvent*>(event);
    for (;;) {
        while (XPending(_display) > 0) {
            XNextEvent(_display, out);
            if (wanted(out)) return true;
        }
        const long left = _deadlineMs - nowMs();
        if (left <= 0) return false;
        pollfd fd = {ConnectionNumber(_display), POLLIN, 0};
        if (poll(&fd, 1, static_cast<int>(left)) < 0 && errno != EINTR) return false;
    }
}

std::vector<std::string> X11DragSelection::pathsFromUriList(const std::string& text, bool allowDirectories) {
    std::vector<std::string> paths;
    gchar** uris = g_uri_list_extract_uris(text.c_str());
    for (gchar** uri = uris; uri && *uri; ++uri) {
        gchar* host = nullptr;
        gchar* path = g_filename_from_uri(*uri, &host, nullptr);
        // Only files of this machine: other schemes and other hosts' files
        // are nothing the page could read.
        if (path && isLocalHost(host)) {
            struct stat info;
            const bool folder = stat(path, &info) == 0 && S_ISDIR(info.st_mode);
            if (!folder || allowDirectories) paths.emplace_back(path);
        }
        g_free(host);
        g_free(path);
    }
    g_strfreev(uris);
    return paths;
}

}  // namespace Web
}  // namespace Kestrix
