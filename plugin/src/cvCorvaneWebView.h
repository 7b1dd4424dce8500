// The plug-in's view: what an instance draws in its area of the page and
// where drops on it arrive. A thin owner of the platform implementation,
// so that the instance never names a platform class.
#pragma once

#include <stdint.h>

#include <memory>

#include "cvICorvaneWebViewImpl.h"
#include "npapi.h"
#include "npruntime.h"

namespace Kestrix {
namespace Web {

class cvICorvaneWebViewDelegate;

class cvCorvaneWebView {
public:
    // With the platform's implementation.
    cvCorvaneWebView();
    // With the given one; null gives a view that does nothing.
    explicit cvCorvaneWebView(std::unique_ptr<cvICorvaneWebViewImpl> impl);
    // fini(), then the implementation goes.
    ~cvCorvaneWebView();
    cvCorvaneWebView(const cvCorvaneWebView&) = delete;
    cvCorvaneWebView& operator=(const cvCorvaneWebView&) = delete;

    // False without a window or an implementation.
    bool init(NPWindow* window, NPP npp, bool transparent, bool dropAllowDirectories, bool dropAllowMultiple);
    // The implementation reads the window's rectangle when it needs it.
    bool resize(NPWindow* window);
    void handleDrop(const NPVariant* files);
    void setImage(const char* data, unsigned int length);
    void setDelegate(cvICorvaneWebViewDelegate* delegate);
    // 0 (not handled) without an implementation.
    int16_t handleEvent(void* event);

private:
    std::unique_ptr<cvICorvaneWebViewImpl> _impl;
};

}  // namespace Web
}  // namespace Kestrix
