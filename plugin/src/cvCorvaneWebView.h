// The plug-in's view: what an instance draws in its area of the page and
// where drops on it arrive. The platform implementation paints, answers
// events and holds the drag; this class does what a drop means on every
// platform (the page's names, their cross-check, approval, the delegate),
// so that the instance never names a platform class.
//
// Main thread only, like everything the browser calls.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "cvICorvaneWebViewImpl.h"
#include "npapi.h"
#include "npruntime.h"

namespace Kestrix {
namespace Web {

class cvICorvaneWebViewBrowser;
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

    // False without a window or an implementation. `window` and `browser`
    // must outlive the view.
    bool init(NPWindow* window, cvICorvaneWebViewBrowser* browser, bool transparent,
              bool dropAllowDirectories, bool dropAllowMultiple);
    // The implementation reads the window's rectangle when it needs it.
    bool resize(NPWindow* window);
    // `files` is the page's list of the names it saw dropped (an object
    // with "length" and indexed names), or null. Matching drops are
    // approved and told to the delegate.
    void handleDrop(const NPVariant* files);
    void setImage(const char* data, unsigned int length);
    // Not owned; null stops drops from reaching anyone.
    void setDelegate(cvICorvaneWebViewDelegate* delegate);
    // 0 (not handled) without an implementation.
    int16_t handleEvent(void* event);

private:
    // The page's own list of the names it saw dropped; false when the
    // browser ran out of memory while it was copied, or when reading it
    // (the page's getters) destroyed the view.
    bool readPageFiles(const NPVariant* files, std::vector<std::string>* names);
    static bool sameNames(std::vector<std::string> pageNames, const std::vector<std::string>& dropped);

    std::unique_ptr<cvICorvaneWebViewImpl> _impl;
    cvICorvaneWebViewBrowser* _browser = nullptr;
    cvICorvaneWebViewDelegate* _delegate = nullptr;
    bool _allowDirectories = false;
    // Kept from the parameters; a drop of several files is never refused.
    [[maybe_unused]] bool _allowMultiple = false;
    // False once the view has gone. Page code runs in the middle of a drop
    // (the getters of its list, its drop handlers) and may remove the
    // plug-in's element, which destroys the instance and this view with it;
    // the drop checks this after each call out.
    std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
};

}  // namespace Web
}  // namespace Kestrix
