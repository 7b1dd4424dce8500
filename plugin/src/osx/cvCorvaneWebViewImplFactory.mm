#include "cvCorvaneWebViewImplFactory.h"

#import "cvMacCorvaneWebViewImpl.h"

namespace Kestrix {
namespace Web {

std::unique_ptr<cvICorvaneWebViewImpl> createPlatformViewImpl() {
    return std::make_unique<cvMacCorvaneWebViewImpl>();
}

}  // namespace Web
}  // namespace Kestrix
