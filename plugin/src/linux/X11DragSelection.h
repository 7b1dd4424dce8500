// What is being dragged onto the plug-in, read from the X selection
// "XdndSelection" that the drag source owns while the drag lasts.
//
// It works on a connection of its own to the browser's X server, never on
// the browser's: the events it waits for there must not reach the
// browser, and the browser's must not reach it. Every wait is bounded: a
// source that does not answer in time counts as having nothing to offer.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cvICorvaneWebViewDrag.h"

typedef struct _XDisplay Display;

namespace Kestrix {
namespace Web {

class X11DragSelection : public cvICorvaneWebViewDrag {
public:
    static const int kDefaultTimeoutMs = 2000;

    // `displayName` as XOpenDisplay takes it ("" or null: $DISPLAY).
    explicit X11DragSelection(const char* displayName, int timeoutMs = kDefaultTimeoutMs);
    ~X11DragSelection() override;
    X11DragSelection(const X11DragSelection&) = delete;
    X11DragSelection& operator=(const X11DragSelection&) = delete;

    bool connected() const { return _display != nullptr; }

    // The dragged files as local paths when the source offers a
    // "text/uri-list" (other URIs left out, folders too unless
    // `allowDirectories`; paths that do not exist are kept), else its
    // "UTF8_STRING" text as the one entry. Empty when nothing is owned,
    // offered or answered in time.
    std::vector<std::string> items(bool allowDirectories) override;
    // Gives up the selection, so the same drag cannot be read again.
    void clear() override;

    // The local paths in a "text/uri-list" text, filtered as items() does.
    static std::vector<std::string> pathsFromUriList(const std::string& text, bool allowDirectories);

private:
    enum class Answer { Data, Refused, TimedOut };

    Answer convert(const char* target, std::string* data);
    Answer readIncrementally(std::string* data);
    bool readProperty(std::string* data, unsigned long* type);
    // Takes events off the connection until `wanted` accepts one (an
    // XEvent, given as void* to keep Xlib out of this header) or the
    // deadline passes.
    bool waitFor(const std::function<bool(const void* event)>& wanted, void* event);

    Display* _display = nullptr;
    unsigned long _window = 0;
    unsigned long _selection = 0;
    unsigned long _property = 0;
    int _timeoutMs;
    long _deadlineMs = 0;
};

}  // namespace Web
}  // namespace Kestrix
