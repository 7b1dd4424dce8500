// Makes the view implementation of the platform the plug-in is built for.
// Each platform folder defines it.
#pragma once

#include <memory>

#include "cvICorvaneWebViewImpl.h"

namespace Kestrix {
namespace Web {

std::unique_ptr<cvICorvaneWebViewImpl> createPlatformViewImpl();

}  // namespace Web
}  // namespace Kestrix
