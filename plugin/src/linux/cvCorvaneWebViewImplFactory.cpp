#include "cvCorvaneWebViewImplFactory.h"

#include "cvX11CorvaneWebViewImpl.h"

namespace Kestrix {
namespace Web {

std::unique_ptr<cvICorvaneWebViewImpl> createPlatformViewImpl() {
    return std::make_unique<cvX11CorvaneWebViewImpl>();
}

}  // namespace Web
}  // namespace Kestrix
