// xdnd-owner: plays the source of a drag for the drop pages. It owns the
// selection "XdndSelection" as a drag source does while a drag lasts, and
// answers requests for its content as a file manager does.
//
//   DISPLAY=:N xdnd-owner [--uri-list TEXT] [--text TEXT] [--silent]
//                         [--incr-chunk N] [--lifetime-ms N]
//
// --uri-list offers TEXT as "text/uri-list" (file:///... lines ended by CR
// LF), --text as "UTF8_STRING"; "TARGETS" is always answered, other targets
// refused. --silent takes the selection but never answers; --incr-chunk
// answers anything longer than N bytes incrementally (INCR). It prints
// "ready" once it owns the selection, "request TARGET" for each request and
// "cleared" when someone else takes the selection, then exits 0. SIGTERM:
// status 0; the lifetime (default 30000 ms): 3; bad options: 2; no display
// or no ownership: 1.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <poll.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

volatile sig_atomic_t stopRequested = 0;

void onTerminate(int) {
    stopRequested = 1;
}

long nowMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

struct Options {
    bool hasUriList = false;
    std::string uriList;
    bool hasText = false;
    std::string text;
    bool silent = false;
    size_t incrChunk = 0;
    long lifetimeMs = 30000;
};

bool parse(int argc, char** argv, Options* options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--uri-list" && hasValue) {
            options->hasUriList = true;
            options->uriList = argv[++i];
        } else if (arg == "--text" && hasValue) {
            options->hasText = true;
            options->text = argv[++i];
        } else if (arg == "--silent") {
            options->silent = true;
        } else if (arg == "--incr-chunk" && hasValue) {
            options->incrChunk = std::strtoul(argv[++i], nullptr, 10);
        } else if (arg == "--lifetime-ms" && hasValue) {
            options->lifetimeMs = std::strtol(argv[++i], nullptr, 10);
        } else {
            std::fprintf(stderr, "xdnd-owner: unknown option or missing value: %s\n", arg.c_str());
            return false;
        }
    }
    return true;
}

// One incremental answer under way: the rest of the data goes out a piece
// at a time, each after the requestor deleted the previous one.
struct Transfer {
    bool active = false;
    Window requestor = None;
    Atom property = None;
    Atom type = None;
    std::string data;
    size_t sent = 0;
};

class Owner {
public:
    Owner(Display* display, const Options& options) : _display(display), _options(options) {
        _selection = XInternAtom(display, "XdndSelection", False);
        _targets = XInternAtom(display, "TARGETS", False);
        _uriList = XInternAtom(display, "text/uri-list", False);
        _utf8 = XInternAtom(display, "UTF8_STRING", False);
        _incr = XInternAtom(display, "INCR", False);
        _window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
    }

    bool own() {
        XSetSelectionOwner(_display, _selection, _window, CurrentTime);
        return XGetSelectionOwner(_display, _selection) == _window;
    }

    // 0 when the selection was taken from us or we were told to stop, 3
    // when the lifetime ran out.
    int run() {
        const long deadline = nowMs() + _options.lifetimeMs;
        for (;;) {
            while (XPending(_display) > 0) {
                XEvent event;
                XNextEvent(_display, &event);
                if (event.type == SelectionClear && event.xselectionclear.selection == _selection) {
                    say("cleared");
                    return 0;
                }
                if (event.type == SelectionRequest) answer(event.xselectionrequest);
                if (event.type == PropertyNotify) continueTransfer(event.xproperty);
            }
            if (stopRequested) return 0;
            const long left = deadline - nowMs();
            if (left <= 0) return 3;
            pollfd fd = {ConnectionNumber(_display), POLLIN, 0};
            if (poll(&fd, 1, static_cast<int>(left < 200 ? left : 200)) < 0 && errno != EINTR) return 1;
        }
    }

private:
    void answer(const XSelectionRequestEvent& request) {
        char* name = XGetAtomName(_display, request.target);
        say(std::string("request ") + (name ? name : "?"));
        if (name) XFree(name);
        if (_options.silent) return;

        // Old requestors name no property: the target is used.
        const Atom property = request.property != None ? request.property : request.target;
        bool given = true;
        if (request.target == _targets) {
            std::vector<Atom> offered = {_targets};
            if (_options.hasUriList) offered.push_back(_uriList);
            if (_options.hasText) offered.push_back(_utf8);
            XChangeProperty(_display, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(offered.data()),
                            static_cast<int>(offered.size()));
        } else if (request.target == _uriList && _options.hasUriList) {
            give(request.requestor, property, _uriList, _options.uriList);
        } else if (request.target == _utf8 && _options.hasText) {
            give(request.requestor, property, _utf8, _options.text);
        } else {
            given = false;
        }

        XEvent reply = {};
        reply.xselection.type = SelectionNotify;
        reply.xselection.display = _display;
        reply.xselection.requestor = request.requestor;
        reply.xselection.selection = request.selection;
        reply.xselection.target = request.target;
        reply.xselection.property = given ? property : None;
        reply.xselection.time = request.time;
        XSendEvent(_display, request.requestor, False, NoEventMask, &reply);
        XFlush(_display);
    }

    void give(Window requestor, Atom property, Atom type, const std::string& data) {
        if (_options.incrChunk == 0 || data.size() <= _options.incrChunk) {
            XChangeProperty(_display, requestor, property, type, 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(data.data()),
                            static_cast<int>(data.size()));
            return;
        }
        // The requestor deleting the INCR property asks for the first piece.
        XSelectInput(_display, requestor, PropertyChangeMask);
        long size = static_cast<long>(data.size());
        XChangeProperty(_display, requestor, property, _incr, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(&size), 1);
        _transfer = Transfer{true, requestor, property, type, data, 0};
    }

    void continueTransfer(const XPropertyEvent& event) {
        if (!_transfer.active || event.state != PropertyDelete || event.window != _transfer.requestor ||
            event.atom != _transfer.property)
            return;
        const size_t length = std::min(_options.incrChunk, _transfer.data.size() - _transfer.sent);
        XChangeProperty(_display, _transfer.requestor, _transfer.property, _transfer.type, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(_transfer.data.data() + _transfer.sent),
                        static_cast<int>(length));
        _transfer.sent += length;
        // The empty piece that ends the answer has just gone out.
        if (length == 0) {
            XSelectInput(_display, _transfer.requestor, NoEventMask);
            _transfer.active = false;
        }
        XFlush(_display);
    }

    Display* _display;
    const Options& _options;
    Window _window;
    Atom _selection, _targets, _uriList, _utf8, _incr;
    Transfer _transfer;
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, &options)) return 2;

    struct sigaction action = {};
    action.sa_handler = onTerminate;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);

    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "xdnd-owner: cannot open display\n");
        return 1;
    }
    Owner owner(display, options);
    if (!owner.own()) {
        std::fprintf(stderr, "xdnd-owner: could not take XdndSelection\n");
        XCloseDisplay(display);
        return 1;
    }
    say("ready");
    const int status = owner.run();
    XCloseDisplay(display);
    return status;
}
