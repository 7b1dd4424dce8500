#import "CVTimer2.h"

#include "IDialogImpl.h"

@implementation CVTimer2

- (id)init {
    if ((self = [super init])) {
        _callerPtr = nullptr;
        _timeout = 0;
        _timer = nil;
    }
    return self;
}

- (void)dealloc {
    [_timer release];
    [super dealloc];
}

- (void)start:(Kestrix::Web::IDialogImpl*)caller runLoop:(NSRunLoop*)runLoop {
    _callerPtr = caller;
    _timer = [[NSTimer timerWithTimeInterval:static_cast<double>(_timeout)
                                      target:self
                                    selector:@selector(onTick:)
                                    userInfo:nil
                                     repeats:NO] retain];
    [runLoop addTimer:_timer forMode:NSDefaultRunLoopMode];
    [runLoop addTimer:_timer forMode:NSEventTrackingRunLoopMode];
    [runLoop addTimer:_timer forMode:NSModalPanelRunLoopMode];
}

- (void)onTick:(NSTimer*)timer {
    (void)timer;
    if (_callerPtr) _callerPtr->doOnTimeout();
}

- (void)setTimeout:(int)seconds {
    _timeout = seconds;
}

- (void)stop {
    _callerPtr = nullptr;
    [_timer invalidate];
}

- (int)timeout {
    return _timeout;
}

+ (void)alert {
    NSAlert* alert = [[[NSAlert alloc] init] autorelease];
    [alert addButtonWithTitle:@"OK"];
    [alert setMessageText:@"Timed out waiting for file selection"];
    [alert setAlertStyle:static_cast<NSAlertStyle>(0)];
    [alert beginSheetModalForWindow:[CVTimer2 getActiveWindowOSX]
                      modalDelegate:nil
                     didEndSelector:nullptr
                        contextInfo:nullptr];
}

+ (NSWindow*)getActiveWindowOSX {
    return [[NSApplication sharedApplication] mainWindow];
}

@end
