// The library's exports as Unix hosts look them up: the MIME description
// in the Unix form, the name and description through NP_GetValue, and the
// two-table NP_Initialize.
#include "BrowserFuncs.h"
#include "EntryPoints.h"
#include "cv_log.h"

const char* const CW_MimeDescription = "application/x-corvane-web::Corvane Web";

namespace {

const char* const kPluginName = "Corvane Web";
const char* const kPluginDescription = "Corvane Web 3.5.2.94907";

void traceEntry(const char* name) {
    if (cv_dbg_get_all() >= 2) cv_dbg("%s", name);
}

}  // namespace

const char* NP_GetMIMEDescription(void) {
    traceEntry("NP_GetMIMEDescription()");
    return CW_MimeDescription;
}

NPError NP_GetValue(void*, NPPVariable variable, void* value) {
    traceEntry("NP_GetValue()");
    if (!value) return NPERR_INVALID_PARAM;
    switch (variable) {
        case NPPVpluginNameString:
            *static_cast<const char**>(value) = kPluginName;
            return NPERR_NO_ERROR;
        case NPPVpluginDescriptionString:
            *static_cast<const char**>(value) = kPluginDescription;
            return NPERR_NO_ERROR;
        default:
            return NPERR_INVALID_PARAM;
    }
}

NPError NP_Initialize(NPNetscapeFuncs* browserFuncs, NPPluginFuncs* pluginFuncs) {
    CW_Initialize(browserFuncs);
    // The Unix hosts hand over their plug-in table here and never ask for
    // the entry points separately.
    return CW_PopulatePluginFunctionTable(pluginFuncs);
}

NPError NP_GetEntryPoints(NPPluginFuncs* pluginFuncs) {
    traceEntry("NP_GetEntryPoints()");
    return CW_PopulatePluginFunctionTable(pluginFuncs);
}

NPError NP_Shutdown(void) {
    // The Linux host never calls this: nothing may depend on it. The log
    // loses nothing without it, since every line is written at once.
    CW_Shutdown();
    return NPERR_NO_ERROR;
}

NPError CW_PlatformModelCheck(NPP npp) {
    return CW_WindowlessSupportedCheck(npp);
}
