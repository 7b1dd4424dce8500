// The view on X11, for a windowless plug-in: the browser hands us its
// events as XEvents and asks for paint with GraphicsExpose on a pixmap of
// the plug-in's size; we draw there with cairo. The drag of a drop is the
// XdndSelection (X11DragSelection).
//
// Main thread only, like everything the browser calls.
#pragma once

#include <stdint.h>

#include <memory>

#include "cvICorvaneWebViewImpl.h"

typedef struct _cairo_surface cairo_surface_t;

namespace Kestrix {
namespace Web {

class cvX11CorvaneWebViewImpl : public cvICorvaneWebViewImpl {
public:
    cvX11CorvaneWebViewImpl() = default;
    ~cvX11CorvaneWebViewImpl() override;
    cvX11CorvaneWebViewImpl(const cvX11CorvaneWebViewImpl&) = delete;
    cvX11CorvaneWebViewImpl& operator=(const cvX11CorvaneWebViewImpl&) = delete;

    // The transparency flag is not used: the ground is always painted.
    bool init(NPWindow* window, cvICorvaneWebViewBrowser* browser, bool transparent) override;
    bool fini() override;
    void setImage(const char* data, unsigned int length) override;
    int16_t handleEvent(void* event) override;
    std::unique_ptr<cvICorvaneWebViewDrag> openDrag() override;

    // Pointer activity turns the frame on and repaints.
    void handleMouseEvent();
    // Keys are taken but change nothing.
    void handleKeyboardEvent();

    bool highlight() const { return _highlight; }

private:
    void paint(const NPEvent* expose);
    void invalidate();
    bool _highlight = false;
    NPWindow* _window = nullptr;
    cvICorvaneWebViewBrowser* _browser = nullptr;
    cairo_surface_t* _image = nullptr;
};

}  // namespace Web
}  // namespace Kestrix
