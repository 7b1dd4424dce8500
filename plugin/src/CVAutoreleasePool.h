// Scoped guard for the platform's autorelease pool. Platform objects made on
// a background thread are released when the guard goes; where the platform
// has no such pools the guard does nothing.
#pragma once

namespace Kestrix {
namespace Web {

class CVAutoreleasePool {
public:
    CVAutoreleasePool();
    ~CVAutoreleasePool();
    CVAutoreleasePool(const CVAutoreleasePool&) = delete;
    CVAutoreleasePool& operator=(const CVAutoreleasePool&) = delete;

private:
    [[maybe_unused]] void* _pool;  // the platform's pool, null where there is none
};

}  // namespace Web
}  // namespace Kestrix
