#import "MacOpenFileDialogImpl.h"

#include "DialogUtils.h"
#import "MacPanelRun.h"
#import "MacUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

MacOpenFileDialogImpl::MacOpenFileDialogImpl(const std::string& title, bool allowDirectories,
                                             bool allowMultiple, const std::string& fileTypes,
                                             bool foldersOnly, const std::string& browserName)
    : _allowDirectories(allowDirectories),
      _allowMultiple(allowMultiple),
      _browserName(browserName),
      _fileTypes(fileTypes),
      _panel([[NSOpenPanel openPanel] retain]),
      _foldersOnly(foldersOnly),
      _timedOut(false),
      _title(title) {}

MacOpenFileDialogImpl::~MacOpenFileDialogImpl() {
    [_panel release];
}

std::vector<std::string> MacOpenFileDialogImpl::doShow() {
    cv_dbg("MacOpenFileDialogImpl::doShow()");
    if (!_title.empty()) [_panel setTitle:[NSString stringWithUTF8String:_title.c_str()]];
    [_panel setAllowsMultipleSelection:_allowMultiple ? YES : NO];
    [_panel setCanChooseFiles:_foldersOnly ? NO : YES];
    [_panel setCanChooseDirectories:(_foldersOnly || _allowDirectories) ? YES : NO];

    NSMutableArray* allowedTypes = nil;
    if (!_fileTypes.empty()) {
        // Throws on a bad filter, before anything shows.
        const std::vector<FileType> types = DialogUtils::parseFileTypesJson(_fileTypes);
        allowedTypes = MacUtils::createFileTypes(types);
        [_panel setAllowedFileTypes:allowedTypes];
    }

    CVTimer2* guard = MacPanelRun::armGuard(this, _timeout, _browserName);
    _state = kStateShowing;
    const NSInteger result = MacPanelRun::run(_panel, false, nil);
    MacPanelRun::disarmGuard(guard, _timedOut);

    std::vector<std::string> paths;
    if (result == NSOKButton) {
        _state = kStateAccepted;
        NSArray* names = [_panel filenames];
        for (NSUInteger i = 0; i < [names count]; ++i) paths.push_back([[names objectAtIndex:i] UTF8String]);
    } else if (result == NSCancelButton) {
        _state = kStateCancelled;
    } else {
        if (result != NSRunStoppedResponse && result != NSRunAbortedResponse)
            cv_log("Unhandled dialog result: %i", static_cast<int>(result));
        _state = kStateAborted;
    }
    [allowedTypes release];
    return paths;
}

void MacOpenFileDialogImpl::doClose() {
    cv_dbg("MacOpenFileDialogImpl::doClose()");
    if ([_panel isVisible]) {
        cv_log("Closing open dialog");
        [_panel close];
        MacUtils::abortModal();
    }
}

void MacOpenFileDialogImpl::doOnTimeout() {
    cv_dbg("MacOpenFileDialogImpl::doOnTimeout()");
    _timedOut = true;
    doClose();
}

}  // namespace Web
}  // namespace Kestrix
