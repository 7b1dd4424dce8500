#include "cvCorvaneWebView.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "PlugIn.h"
#include "Utils.h"
#include "cvCorvaneWebViewImplFactory.h"
#include "cvICorvaneWebViewBrowser.h"
#include "cvICorvaneWebViewDelegate.h"
#include "cvICorvaneWebViewDrag.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

cvCorvaneWebView::cvCorvaneWebView() : _impl(createPlatformViewImpl()) {}

cvCorvaneWebView::cvCorvaneWebView(std::unique_ptr<cvICorvaneWebViewImpl> impl) : _impl(std::move(impl)) {}

cvCorvaneWebView::~cvCorvaneWebView() {
    *_alive = false;
    _delegate = nullptr;
    if (_impl) _impl->fini();
}

bool cvCorvaneWebView::init(NPWindow* window, cvICorvaneWebViewBrowser* browser, bool transparent,
                            bool dropAllowDirectories, bool dropAllowMultiple) {
    if (!window || !_impl) return false;
    _browser = browser;
    _allowDirectories = dropAllowDirectories;
    _allowMultiple = dropAllowMultiple;
    _impl->init(window, browser, transparent);
    return true;
}

bool cvCorvaneWebView::resize(NPWindow*) {
    return true;
}

void cvCorvaneWebView::setImage(const char* data, unsigned int length) {
    if (_impl) _impl->setImage(data, length);
}

void cvCorvaneWebView::setDelegate(cvICorvaneWebViewDelegate* delegate) {
    if (!_impl) return;
    cv_log("setDelegate: %p", static_cast<void*>(delegate));
    _delegate = delegate;
}

int16_t cvCorvaneWebView::handleEvent(void* event) {
    return _impl ? _impl->handleEvent(event) : 0;
}

void cvCorvaneWebView::handleDrop(const NPVariant* files) {
    if (!_impl) return;
    const std::shared_ptr<bool> alive = _alive;
    std::vector<std::string> pageNames;
    if (!readPageFiles(files, &pageNames)) return;

    // Ours, not the view's: it is finished even when the page destroys
    // the view while hearing of the drop.
    const std::unique_ptr<cvICorvaneWebViewDrag> drag = _impl->openDrag();
    const std::vector<std::string> dropped = drag->items(_allowDirectories);
    if (dropped.empty() || !_delegate) {
        drag->clear();
        return;
    }

    const std::string json = Utils::createExtendedObject(dropped);

    // The page names what it saw dropped. When it names as many files as
    // the drag holds, they must be the same names, or the drag is not the
    // one the page is talking about.
    if (!pageNames.empty() && pageNames.size() == dropped.size() && !sameNames(pageNames, dropped)) {
        cv_dbg("handleDrop(): Mac -> File(s) dropped and file(s) in the clipboard don't match");
        return;
    }

    PlugIn::addToApprovedFileList(dropped);
    _delegate->doDrop(dropped);
    if (*alive) _delegate->doDropex(json);
    drag->clear();
}

bool cvCorvaneWebView::readPageFiles(const NPVariant* files, std::vector<std::string>* names) {
    if (!files || !NPVARIANT_IS_OBJECT(*files)) {
        cv_dbg("handleDrop(): Mac -> No list of files provided");
        return true;
    }
    cv_dbg("handleDrop(): Mac -> files provided");
    // Before init there is no page to ask.
    if (!_browser) return true;
    NPObject* list = NPVARIANT_TO_OBJECT(*files);
    const std::shared_ptr<bool> alive = _alive;
    cvICorvaneWebViewBrowser* browser = _browser;

    NPVariant lengthValue;
    VOID_TO_NPVARIANT(lengthValue);
    browser->getProperty(list, browser->getStringIdentifier("length"), &lengthValue);
    int32_t length = 0;
    if (NPVARIANT_IS_INT32(lengthValue)) {
        length = NPVARIANT_TO_INT32(lengthValue);
    } else if (NPVARIANT_IS_DOUBLE(lengthValue)) {
        length = static_cast<int32_t>(NPVARIANT_TO_DOUBLE(lengthValue));
    } else {
        cv_dbg("length property is not of expetected type");
    }
    browser->releaseVariantValue(&lengthValue);

    for (int32_t i = 0; i < length; ++i) {
        if (!*alive) return false;
        NPVariant item;
        VOID_TO_NPVARIANT(item);
        browser->getProperty(list, browser->getIntIdentifier(i), &item);
        // An entry that is not a string counts as an empty name.
        const char* text = NPVARIANT_IS_STRING(item) ? NPVARIANT_TO_STRING(item).UTF8Characters : nullptr;
        const uint32_t size = text ? NPVARIANT_TO_STRING(item).UTF8Length : 0;
        // The copy is made in browser memory: a browser that is out of it
        // abandons the whole drop.
        char* copy = static_cast<char*>(browser->memAlloc(size + 1));
        if (!copy) {
            browser->releaseVariantValue(&item);
            return false;
        }
        if (size) memcpy(copy, text, size);
        copy[size] = '\0';
        names->emplace_back(copy, size);
        browser->memFree(copy);
        browser->releaseVariantValue(&item);
    }
    return *alive;
}

// The page knows only the names: compare them with the last part of each
// dropped path, in any order.
bool cvCorvaneWebView::sameNames(std::vector<std::string> pageNames,
                                 const std::vector<std::string>& dropped) {
    std::vector<std::string> droppedNames;
    droppedNames.reserve(dropped.size());
    for (const std::string& path : dropped) {
        const size_t slash = path.find_last_of("/\\");
        droppedNames.push_back(slash == std::string::npos ? path : path.substr(slash + 1));
    }
    std::sort(pageNames.begin(), pageNames.end());
    std::sort(droppedNames.begin(), droppedNames.end());
    return pageNames == droppedNames;
}

}  // namespace Web
}  // namespace Kestrix
