#include "ViewBrowser.h"

#include "BrowserFuncs.h"

namespace Kestrix {
namespace Web {

void ViewBrowser::invalidateRect(NPRect* rect) {
    NPN_InvalidateRect(_npp, rect);
}

bool ViewBrowser::getProperty(NPObject* object, NPIdentifier name, NPVariant* result) {
    return NPN_GetProperty(_npp, object, name, result);
}

NPIdentifier ViewBrowser::getStringIdentifier(const char* name) {
    return NPN_GetStringIdentifier(name);
}

NPIdentifier ViewBrowser::getIntIdentifier(int32_t index) {
    return NPN_GetIntIdentifier(index);
}

void ViewBrowser::releaseVariantValue(NPVariant* value) {
    NPN_ReleaseVariantValue(value);
}

void* ViewBrowser::memAlloc(uint32_t size) {
    return NPN_MemAlloc(size);
}

void ViewBrowser::memFree(void* block) {
    NPN_MemFree(block);
}

}  // namespace Web
}  // namespace Kestrix
