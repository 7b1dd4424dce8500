// The time-out guard of a modal panel: a one-shot timer that tells its
// dialog implementation when the time is up. It is scheduled in the modes
// a modal panel and event tracking run the loop in, so it fires while the
// panel is up.
#pragma once

#import <AppKit/AppKit.h>

namespace Kestrix {
namespace Web {
class IDialogImpl;
}  // namespace Web
}  // namespace Kestrix

@interface CVTimer2 : NSObject {
    Kestrix::Web::IDialogImpl* _callerPtr;
    int _timeout;
    NSTimer* _timer;
}
- (id)init;
// Arms the timer for `timeout` seconds on `runLoop`; `caller` hears of it.
- (void)start:(Kestrix::Web::IDialogImpl*)caller runLoop:(NSRunLoop*)runLoop;
- (void)onTick:(NSTimer*)timer;
- (void)setTimeout:(int)seconds;
// Forgets the caller and cancels the timer.
- (void)stop;
- (int)timeout;
// The non-blocking "timed out" sheet on the browser's main window.
+ (void)alert;
+ (NSWindow*)getActiveWindowOSX;
@end
