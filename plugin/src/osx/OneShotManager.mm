// The main-thread hand-off through Foundation: the browser runs the main
// thread's run loop, and performSelectorOnMainThread: from any thread puts
// one call into one of its next turns.
#include "OneShotManager.h"

#include "CVAutoreleasePool.h"
#import "OneShotManagerHelper.h"

// A call tied to no instance, carried to the main thread by itself.
@interface CVMainThreadCall : NSObject {
    Kestrix::Web::OneShotManager::Function _function;
    void* _data;
}
- (id)initWithFunction:(Kestrix::Web::OneShotManager::Function)function data:(void*)data;
- (void)run:(id)unused;
@end

@implementation CVMainThreadCall
- (id)initWithFunction:(Kestrix::Web::OneShotManager::Function)function data:(void*)data {
    if ((self = [super init])) {
        _function = function;
        _data = data;
    }
    return self;
}
- (void)run:(id)unused {
    (void)unused;
    _function(_data);
}
@end

namespace Kestrix {
namespace Web {

namespace {

// The header names the helper through an opaque pointer so that neutral
// code never sees an Objective-C type; here it is the Foundation object.
::OneShotManagerHelper* helperObject(OneShotManagerHelper* opaque) {
    return reinterpret_cast<::OneShotManagerHelper*>(opaque);
}

}  // namespace

const char* const OneShotManager::kSourceFile = "plugin/src/osx/OneShotManager";

OneShotManagerHelper* OneShotManager::createHelper(OneShotManager* manager) {
    ::OneShotManagerHelper* helper = [[::OneShotManagerHelper alloc] init];
    [helper setManager:manager];
    return reinterpret_cast<OneShotManagerHelper*>(helper);
}

void OneShotManager::requestTurn(OneShotManagerHelper* opaque) {
    // Worker threads have no pool of their own.
    CVAutoreleasePool pool;
    // shoot: gives the retain back.
    ::OneShotManagerHelper* helper = helperObject(opaque);
    [helper retain];
    [helper performSelectorOnMainThread:@selector(shoot:) withObject:nil waitUntilDone:NO];
}

void OneShotManager::releaseHelper(OneShotManagerHelper* opaque) {
    [helperObject(opaque) setManager:nullptr];
    [helperObject(opaque) release];
}

void OneShotManager::postToMainThread(Function function, void* data) {
    CVAutoreleasePool pool;
    CVMainThreadCall* call = [[CVMainThreadCall alloc] initWithFunction:function data:data];
    // The run loop retains the target until the call has run.
    [call performSelectorOnMainThread:@selector(run:) withObject:nil waitUntilDone:NO];
    [call release];
}

}  // namespace Web
}  // namespace Kestrix
