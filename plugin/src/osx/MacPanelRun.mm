#import "MacPanelRun.h"

#include "IDialogImpl.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {
namespace MacPanelRun {

namespace {

const char* utf8(NSString* text) {
    const char* bytes = text ? [text UTF8String] : nullptr;
    return bytes ? bytes : "";
}

}  // namespace

CVTimer2* armGuard(IDialogImpl* dialog, int timeoutSeconds, const std::string& browserName) {
    if (timeoutSeconds == 0 || (browserName != "safari" && browserName != "firefox")) return nil;
    CVTimer2* guard = [[CVTimer2 alloc] init];
    [guard setTimeout:timeoutSeconds];
    [guard start:dialog runLoop:[NSRunLoop currentRunLoop]];
    return guard;
}

void disarmGuard(CVTimer2* guard, bool timedOut) {
    if (guard == nil) return;
    [guard stop];
    [guard release];
    if (timedOut) [CVTimer2 alert];
}

NSInteger run(NSSavePanel* panel, bool useOldRun, NSString* name) {
    NSInteger result = kRunRaised;
    @try {
        result = useOldRun ? [panel runModalForDirectory:nil file:name] : [panel runModal];
    } @catch (NSException* exception) {
        // The save panel logs under the same text, as it always has.
        cv_err("NSOpenPanel error: name=%s reason=%s", utf8([exception name]), utf8([exception reason]));
        result = kRunRaised;
    }
    return result;
}

}  // namespace MacPanelRun
}  // namespace Web
}  // namespace Kestrix
