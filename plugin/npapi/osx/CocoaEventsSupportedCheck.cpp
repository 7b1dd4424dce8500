// The drawing and event models a Mac browser must offer: CoreGraphics and
// Cocoa. Plain NPAPI calls, so that any build can check the negotiation.
#include "BrowserFuncs.h"
#include "EntryPoints.h"
#include "cv_log.h"

namespace {

// Values travel in the pointer itself.
void* asValue(int value) {
    return reinterpret_cast<void*>(static_cast<intptr_t>(value));
}

}  // namespace

// A plain "no" leaves the call's result 0: logged, yet the instance is
// made. Browsers without these models have always been treated so.
NPError CW_CocoaEventsSupportedCheck(NPP npp) {
    NPBool supported = false;
    NPError error = NPN_GetValue(npp, NPNVsupportsCoreGraphicsBool, &supported);
    if (error != NPERR_NO_ERROR || !supported) {
        cv_err("CoreGraphics drawing model not supported (%d)", error);
        return error;
    }
    error = NPN_SetValue(npp, NPPVpluginDrawingModel, asValue(NPDrawingModelCoreGraphics));
    if (error != NPERR_NO_ERROR) {
        cv_err("Error setting CoreGraphics drawing model (%d)", error);
        return error;
    }
    supported = false;
    error = NPN_GetValue(npp, NPNVsupportsCocoaBool, &supported);
    if (error != NPERR_NO_ERROR || !supported) {
        cv_err("Cocoa event model not supported (%d)", error);
        return error;
    }
    error = NPN_SetValue(npp, NPPVpluginEventModel, asValue(NPEventModelCocoa));
    if (error != NPERR_NO_ERROR) {
        cv_err("Error setting Cocoa event model (%d)", error);
        return error;
    }
    return NPERR_NO_ERROR;
}
