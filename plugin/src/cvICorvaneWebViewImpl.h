// The platform half of the plug-in's view: paints the plug-in's area,
// answers the browser's events and opens the platform's drag when a drop
// arrives. cvCorvaneWebView owns one and does the rest of a drop itself.
#pragma once

#include <stdint.h>

#include <memory>

#include "npapi.h"

namespace Kestrix {
namespace Web {

class cvICorvaneWebViewBrowser;
class cvICorvaneWebViewDrag;

class cvICorvaneWebViewImpl {
public:
    virtual ~cvICorvaneWebViewImpl() = default;

    // `window` and `browser` stay the caller's; they must outlive the view.
    virtual bool init(NPWindow* window, cvICorvaneWebViewBrowser* browser, bool transparent) = 0;
    virtual bool fini() = 0;
    // JPEG bytes (copied); anything else is logged and leaves the view as it was.
    virtual void setImage(const char* data, unsigned int length) = 0;
    // The browser's native event; answers whether it was handled (0 or 1).
    virtual int16_t handleEvent(void* event) = 0;
    // The drag being dropped now; never null.
    virtual std::unique_ptr<cvICorvaneWebViewDrag> openDrag() = 0;
};

}  // namespace Web
}  // namespace Kestrix
