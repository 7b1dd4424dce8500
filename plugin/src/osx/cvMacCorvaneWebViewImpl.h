// The plug-in's view on macOS: paints through CoreGraphics and AppKit into
// the context of the browser's draw events, answers Cocoa events, and takes
// drops from the drag pasteboard.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <string>
#include <vector>

#include "cvICorvaneWebViewImpl.h"

namespace Kestrix {
namespace Web {

class cvMacCorvaneWebViewImpl : public cvICorvaneWebViewImpl {
public:
    cvMacCorvaneWebViewImpl() = default;
    ~cvMacCorvaneWebViewImpl() override;

    bool init(NPWindow* window, NPP npp, bool transparent, bool dropAllowDirectories,
              bool dropAllowMultiple) override;
    bool fini() override { return true; }
    void setImage(const char* data, unsigned int length) override;
    void setDelegate(cvICorvaneWebViewDelegate* delegate) override;
    void handleDrop(const NPVariant* files) override;
    int16_t handleEvent(void* event) override;

    void handleMouseEvent();
    void handleKeyboardEvent() {}

private:
    void paint(const NPCocoaEvent& event);
    void invalidate();
    // The names the page saw dropped; false when the browser ran out of
    // memory while they were copied.
    bool readPageFiles(const NPVariant* files, std::vector<std::string>* names);
    // The dragged paths, from the drag pasteboard.
    std::vector<std::string> draggedPaths() const;
    static bool sameNames(std::vector<std::string> pageNames, const std::vector<std::string>& dropped);

    bool _allowDirectories = false;
    [[maybe_unused]] bool _allowMultiple = false;  // the drop takes what it is given
    bool _highlight = false;
    cvICorvaneWebViewDelegate* _delegate = nullptr;
    NPWindow* _window = nullptr;
    NPP _npp = nullptr;
    CGImageRef _image = nullptr;
    CGDataProviderRef _dataProvider = nullptr;
    char* _imageBytes = nullptr;
};

}  // namespace Web
}  // namespace Kestrix
