// The view on X11, for a windowless plug-in: the browser hands us its
// events as XEvents and asks for paint with GraphicsExpose on a pixmap of
// the plug-in's size; we draw there with cairo. Drops are read from the
// XdndSelection of the drag (X11DragSelection).
//
// Main thread only, like everything the browser calls.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

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
    bool init(NPWindow* window, NPP npp, bool transparent, bool dropAllowDirectories,
              bool dropAllowMultiple) override;
    bool fini() override;
    void setImage(const char* data, unsigned int length) override;
    void setDelegate(cvICorvaneWebViewDelegate* delegate) override;
    void handleDrop(const NPVariant* files) override;
    int16_t handleEvent(void* event) override;

    // Pointer activity turns the frame on and repaints.
    void handleMouseEvent();
    // Keys are taken but change nothing.
    void handleKeyboardEvent();

    bool highlight() const { return _highlight; }

private:
    void paint(const NPEvent* expose);
    void invalidate();
    // The page's own list of the names it saw dropped; false when the
    // browser ran out of memory while it was copied, or when reading it
    // (the page's getters) destroyed the view.
    bool readPageFiles(const NPVariant* files, std::vector<std::string>* names);
    static bool sameNames(std::vector<std::string> pageNames, const std::vector<std::string>& dropped);

    bool _allowDirectories = false;
    // Kept from the parameters; a drop of several files is never refused.
    bool _allowMultiple = false;
    bool _highlight = false;
    cvICorvaneWebViewDelegate* _delegate = nullptr;
    NPWindow* _window = nullptr;
    NPP _npp = nullptr;
    cairo_surface_t* _image = nullptr;
    // False once the view has gone. Page code runs in the middle of a drop
    // (the getters of its list, its drop handlers) and may remove the
    // plug-in's element, which destroys the instance and this view with it;
    // the drop checks this after each call out.
    std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
};

}  // namespace Web
}  // namespace Kestrix
