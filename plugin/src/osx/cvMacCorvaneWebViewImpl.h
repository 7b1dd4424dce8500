// The plug-in's view on macOS: paints through CoreGraphics and AppKit into
// the context of the browser's draw events, answers Cocoa events, and takes
// drops from the drag pasteboard.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <memory>

#include "cvICorvaneWebViewImpl.h"

namespace Kestrix {
namespace Web {

class cvMacCorvaneWebViewImpl : public cvICorvaneWebViewImpl {
public:
    cvMacCorvaneWebViewImpl() = default;
    ~cvMacCorvaneWebViewImpl() override;

    bool init(NPWindow* window, cvICorvaneWebViewBrowser* browser, bool transparent) override;
    bool fini() override { return true; }
    void setImage(const char* data, unsigned int length) override;
    int16_t handleEvent(void* event) override;
    // The drag pasteboard.
    std::unique_ptr<cvICorvaneWebViewDrag> openDrag() override;

    void handleMouseEvent();
    void handleKeyboardEvent() {}

private:
    void paint(const NPCocoaEvent& event);
    void invalidate();

    bool _highlight = false;
    NPWindow* _window = nullptr;
    cvICorvaneWebViewBrowser* _browser = nullptr;
    CGImageRef _image = nullptr;
    CGDataProviderRef _dataProvider = nullptr;
    char* _imageBytes = nullptr;
};

}  // namespace Web
}  // namespace Kestrix
