// Given to every Objective-C++ source of the GNUstep check: the few AppKit
// calls a Mac has that GNUstep does not declare. Declarations only; the
// sources that use them are compiled here, not run.
#pragma once

#ifdef __OBJC__
#import <AppKit/NSPasteboard.h>

@interface NSPasteboard (CorvaneGNUstepMissing)
- (NSInteger)clearContents;
@end
#endif
