// What the view needs from the browser it lives in: repaints, and reading
// the page's own list of dropped names. The browser-facing layer
// implements it for an instance; the view never calls the browser itself.
#pragma once

#include <stdint.h>

#include "npapi.h"
#include "npruntime.h"

namespace Kestrix {
namespace Web {

class cvICorvaneWebViewBrowser {
public:
    virtual ~cvICorvaneWebViewBrowser() = default;

    // Asks for the rectangle to be painted again.
    virtual void invalidateRect(NPRect* rect) = 0;
    // Reads a property of a page object; `result` is ours to release.
    virtual bool getProperty(NPObject* object, NPIdentifier name, NPVariant* result) = 0;
    virtual NPIdentifier getStringIdentifier(const char* name) = 0;
    virtual NPIdentifier getIntIdentifier(int32_t index) = 0;
    virtual void releaseVariantValue(NPVariant* value) = 0;
    // Memory of the browser's; null when it has none left.
    virtual void* memAlloc(uint32_t size) = 0;
    virtual void memFree(void* block) = 0;

    // Asks for the plug-in's window to be painted again. The rectangle's
    // bottom and right are the window's height and width, not its far
    // edges: pages have always been repainted with exactly this one.
    void invalidateWindow(const NPWindow& window) {
        NPRect rect;
        rect.top = static_cast<uint16_t>(window.y);
        rect.left = static_cast<uint16_t>(window.x);
        rect.bottom = static_cast<uint16_t>(window.height);
        rect.right = static_cast<uint16_t>(window.width);
        invalidateRect(&rect);
    }
};

}  // namespace Web
}  // namespace Kestrix
