// The bundle's exports as macOS browsers look them up: the one-table
// NP_Initialize, the plug-in table through NP_GetEntryPoints, and the MIME
// description in the Mac form (the bundle's Info.plist declares it too).
#include "BrowserFuncs.h"
#include "EntryPoints.h"
#include "cv_log.h"

const char* const CW_MimeDescription = "application/x-corvane-web;;Corvane Web";

NPError NP_Initialize(NPNetscapeFuncs* browserFuncs) {
    CW_Initialize(browserFuncs);
    return NPERR_NO_ERROR;
}

NPError NP_GetEntryPoints(NPPluginFuncs* pluginFuncs) {
    if (cv_dbg_get_all() >= 2) cv_dbg("NP_GetEntryPoints()");
    return CW_PopulatePluginFunctionTable(pluginFuncs);
}

const char* NP_GetMIMEDescription(void) {
    if (cv_dbg_get_all() >= 2) cv_dbg("NP_GetMIMEDescription()");
    return CW_MimeDescription;
}

NPError NP_Shutdown(void) {
    CW_Shutdown();
    return NPERR_NO_ERROR;
}

NPError CW_PlatformModelCheck(NPP npp) {
    return CW_CocoaEventsSupportedCheck(npp);
}
