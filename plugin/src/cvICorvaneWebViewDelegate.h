// What the view tells the object that owns it (the plug-in instance) when
// files are dropped on it or dragged over it.
#pragma once

#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class cvICorvaneWebViewDelegate {
public:
    // The dropped paths, already on the approved list.
    virtual void doDrop(std::vector<std::string> paths) = 0;
    // The same drop as the page's "dataTransfer" description.
    virtual void doDropex(std::string json) = 0;
    // Drag movement, for views that see it.
    virtual void doDragOver() = 0;
    virtual void doDragLeave() = 0;
    virtual ~cvICorvaneWebViewDelegate() = default;
};

}  // namespace Web
}  // namespace Kestrix
