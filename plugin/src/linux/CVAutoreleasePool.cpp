// Nothing here is reference-counted by an enclosing pool, so the guard is empty.
#include "CVAutoreleasePool.h"

namespace Kestrix {
namespace Web {

CVAutoreleasePool::CVAutoreleasePool() : _pool(nullptr) {}

CVAutoreleasePool::~CVAutoreleasePool() = default;

}  // namespace Web
}  // namespace Kestrix
