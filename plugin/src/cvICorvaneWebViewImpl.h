// The platform half of the plug-in's view: paints the plug-in's area,
// answers the browser's events and turns a drop on the page into
// approved files. cvCorvaneWebView owns one and forwards to it.
#pragma once

#include <stdint.h>

#include "npapi.h"
#include "npruntime.h"

namespace Kestrix {
namespace Web {

class cvICorvaneWebViewDelegate;

class cvICorvaneWebViewImpl {
public:
    virtual ~cvICorvaneWebViewImpl() = default;

    // `window` and `npp` stay the browser's; they must outlive the view.
    virtual bool init(NPWindow* window, NPP npp, bool transparent, bool dropAllowDirectories,
                      bool dropAllowMultiple) = 0;
    virtual bool fini() = 0;
    // JPEG bytes (copied); anything else is logged and leaves the view as it was.
    virtual void setImage(const char* data, unsigned int length) = 0;
    // Not owned; null stops drops from reaching anyone.
    virtual void setDelegate(cvICorvaneWebViewDelegate* delegate) = 0;
    // `files` is the page's list of the names it saw dropped (an object
    // with "length" and indexed names), or null.
    virtual void handleDrop(const NPVariant* files) = 0;
    // The browser's native event; answers whether it was handled (0 or 1).
    virtual int16_t handleEvent(void* event) = 0;
};

}  // namespace Web
}  // namespace Kestrix
