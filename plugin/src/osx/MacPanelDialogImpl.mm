#import "MacPanelDialogImpl.h"

#import "CVTimer2.h"
#import "MacUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

// The result a run that raised ends with: none of OK, Cancel, stopped or
// aborted, so that it is logged as unhandled.
const NSInteger kRunRaised = -1;

const char* utf8(NSString* text) {
    const char* bytes = text ? [text UTF8String] : nullptr;
    return bytes ? bytes : "";
}

}  // namespace

MacPanelDialogImpl::MacPanelDialogImpl(NSSavePanel* panel, const char* className, const char* kind,
                                       const std::string& title, const std::string& fileTypes,
                                       const std::string& browserName)
    : _browserName(browserName),
      _fileTypes(fileTypes),
      _panel([panel retain]),
      _timedOut(false),
      _title(title),
      _className(className),
      _kind(kind) {}

MacPanelDialogImpl::~MacPanelDialogImpl() {
    [_panel release];
}

void MacPanelDialogImpl::doClose() {
    // Both panels log under the open panel's name, as the log has always read.
    cv_dbg("MacOpenFileDialogImpl::doClose()");
    if ([_panel isVisible]) {
        cv_log("Closing %s dialog", _kind);
        [_panel close];
        MacUtils::abortModal();
    }
}

void MacPanelDialogImpl::doOnTimeout() {
    cv_dbg("%s::doOnTimeout()", _className);
    _timedOut = true;
    doClose();
}

bool MacPanelDialogImpl::runModal(bool useOldRun, NSString* name) {
    CVTimer2* guard = nil;
    if (_timeout != 0 && (_browserName == "safari" || _browserName == "firefox")) {
        guard = [[CVTimer2 alloc] init];
        [guard setTimeout:_timeout];
        [guard start:this runLoop:[NSRunLoop currentRunLoop]];
    }
    _state = kStateShowing;
    NSInteger result = kRunRaised;
    @try {
        result = useOldRun ? [_panel runModalForDirectory:nil file:name] : [_panel runModal];
    } @catch (NSException* exception) {
        // The save panel logs under the same text, as it always has.
        cv_err("NSOpenPanel error: name=%s reason=%s", utf8([exception name]), utf8([exception reason]));
        result = kRunRaised;
    }
    if (guard != nil) {
        [guard stop];
        [guard release];
        if (_timedOut) [CVTimer2 alert];
    }

    if (result == NSOKButton) {
        _state = kStateAccepted;
    } else if (result == NSCancelButton) {
        _state = kStateCancelled;
    } else {
        if (result != NSRunStoppedResponse && result != NSRunAbortedResponse)
            cv_log("Unhandled dialog result: %i", static_cast<int>(result));
        _state = kStateAborted;
    }
    return result == NSOKButton;
}

}  // namespace Web
}  // namespace Kestrix
