// What the Mac view does with each Cocoa event. Plain C++ on the event's
// C structure, so that any build can check it.
#pragma once

#include "npapi.h"

namespace Kestrix {
namespace Web {

struct CocoaEventAction {
    enum Kind_e {
        kNotHandled,  // the browser handles it
        kPaint,       // paint the dirty rectangle
        kHighlight,   // frame on, repaint
        kFocus,       // frame = hasFocus, repaint
        kConsume,     // handled, nothing to do
    };
    Kind_e kind;
    bool hasFocus;  // for kFocus

    // The answer NPP_HandleEvent gives the browser.
    int16_t handled() const { return kind == kNotHandled ? 0 : 1; }
};

CocoaEventAction cocoaEventAction(const NPCocoaEvent& event);

}  // namespace Web
}  // namespace Kestrix
