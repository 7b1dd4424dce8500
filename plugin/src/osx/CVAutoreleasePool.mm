#include "CVAutoreleasePool.h"

#import <Foundation/Foundation.h>

namespace Kestrix {
namespace Web {

CVAutoreleasePool::CVAutoreleasePool() : _pool([[NSAutoreleasePool alloc] init]) {}

CVAutoreleasePool::~CVAutoreleasePool() {
    [static_cast<NSAutoreleasePool*>(_pool) release];
}

}  // namespace Web
}  // namespace Kestrix
