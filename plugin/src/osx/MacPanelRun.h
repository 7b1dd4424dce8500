// What the two Mac panels share around their modal run: the guard timer
// and the run itself, with its Objective-C exceptions turned into a result.
#pragma once

#import <AppKit/AppKit.h>

#include <string>

#import "CVTimer2.h"

namespace Kestrix {
namespace Web {

class IDialogImpl;

namespace MacPanelRun {

// The result a run that raised ends with: none of OK, Cancel, stopped or
// aborted, so that it is logged as unhandled.
const NSInteger kRunRaised = -1;

// The guard for `dialog`, armed only with a time-out and for the browsers
// whose panels can hang the page; nil otherwise.
CVTimer2* armGuard(IDialogImpl* dialog, int timeoutSeconds, const std::string& browserName);
// Stops and releases the guard, then tells the user when it had fired.
void disarmGuard(CVTimer2* guard, bool timedOut);
// runModal, or the older runModalForDirectory:file: when `useOldRun`.
NSInteger run(NSSavePanel* panel, bool useOldRun, NSString* name);

}  // namespace MacPanelRun
}  // namespace Web
}  // namespace Kestrix
