// The browser as an instance's view sees it: each call goes to the
// browser's function table for that instance.
#pragma once

#include "cvICorvaneWebViewBrowser.h"
#include "npapi.h"

namespace Kestrix {
namespace Web {

class ViewBrowser : public cvICorvaneWebViewBrowser {
public:
    explicit ViewBrowser(NPP npp) : _npp(npp) {}

    void invalidateRect(NPRect* rect) override;
    bool getProperty(NPObject* object, NPIdentifier name, NPVariant* result) override;
    NPIdentifier getStringIdentifier(const char* name) override;
    NPIdentifier getIntIdentifier(int32_t index) override;
    void releaseVariantValue(NPVariant* value) override;
    void* memAlloc(uint32_t size) override;
    void memFree(void* block) override;

private:
    NPP _npp;
};

}  // namespace Web
}  // namespace Kestrix
