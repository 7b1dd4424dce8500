#include "CocoaEventAction.h"

namespace Kestrix {
namespace Web {

CocoaEventAction cocoaEventAction(const NPCocoaEvent& event) {
    switch (event.type) {
        case NPCocoaEventDrawRect:
            return {CocoaEventAction::kPaint, false};
        // Mouse-exited turns the frame on too; only a focus change turns it
        // off again.
        case NPCocoaEventMouseDown:
        case NPCocoaEventMouseUp:
        case NPCocoaEventMouseEntered:
        case NPCocoaEventMouseExited:
        case NPCocoaEventMouseDragged:
        case NPCocoaEventScrollWheel:
            return {CocoaEventAction::kHighlight, false};
        case NPCocoaEventKeyDown:
        case NPCocoaEventKeyUp:
        case NPCocoaEventFlagsChanged:
            return {CocoaEventAction::kConsume, false};
        case NPCocoaEventFocusChanged:
            return {CocoaEventAction::kFocus, event.data.focus.hasFocus != 0};
        default:  // mouse-moved, window focus, text input, anything new
            return {CocoaEventAction::kNotHandled, false};
    }
}

}  // namespace Web
}  // namespace Kestrix
