// The GNUstep test programs' main: the application object exists and
// this thread is the main thread whose run loop the tests turn.
#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    [NSApplication sharedApplication];
    testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    [pool release];
    return result;
}
