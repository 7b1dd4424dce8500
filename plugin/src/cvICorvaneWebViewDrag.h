// The drag that is being dropped on the view, as the platform holds it
// (an X selection, a pasteboard). It belongs to the drop that opened it
// and may outlive the view: a page handler can destroy the view mid-drop.
#pragma once

#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class cvICorvaneWebViewDrag {
public:
    virtual ~cvICorvaneWebViewDrag() = default;

    // The dragged paths (folders only when `allowDirectories`); empty when
    // nothing usable is dragged.
    virtual std::vector<std::string> items(bool allowDirectories) = 0;
    // Lets the drag go, so that the same drag cannot be read again.
    virtual void clear() = 0;
};

}  // namespace Web
}  // namespace Kestrix
