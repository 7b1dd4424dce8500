#include "cvCorvaneWebView.h"

#include <utility>

#include "cvCorvaneWebViewImplFactory.h"

namespace Kestrix {
namespace Web {

cvCorvaneWebView::cvCorvaneWebView() : _impl(createPlatformViewImpl()) {}

cvCorvaneWebView::cvCorvaneWebView(std::unique_ptr<cvICorvaneWebViewImpl> impl) : _impl(std::move(impl)) {}

cvCorvaneWebView::~cvCorvaneWebView() {
    if (_impl) _impl->fini();
}

bool cvCorvaneWebView::init(NPWindow* window, NPP npp, bool transparent, bool dropAllowDirectories,
                            bool dropAllowMultiple) {
    if (!window || !_impl) return false;
    _impl->init(window, npp, transparent, dropAllowDirectories, dropAllowMultiple);
    return true;
}

bool cvCorvaneWebView::resize(NPWindow*) {
    return true;
}

void cvCorvaneWebView::handleDrop(const NPVariant* files) {
    if (_impl) _impl->handleDrop(files);
}

void cvCorvaneWebView::setImage(const char* data, unsigned int length) {
    if (_impl) _impl->setImage(data, length);
}

void cvCorvaneWebView::setDelegate(cvICorvaneWebViewDelegate* delegate) {
    if (_impl) _impl->setDelegate(delegate);
}

int16_t cvCorvaneWebView::handleEvent(void* event) {
    return _impl ? _impl->handleEvent(event) : 0;
}

}  // namespace Web
}  // namespace Kestrix
