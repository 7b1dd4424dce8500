#import "MacOpenFileDialogImpl.h"

#include "DialogUtils.h"
#import "MacUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

MacOpenFileDialogImpl::MacOpenFileDialogImpl(const std::string& title, bool allowDirectories,
                                             bool allowMultiple, const std::string& fileTypes,
                                             bool foldersOnly, const std::string& browserName)
    : MacPanelDialogImpl([NSOpenPanel openPanel], "MacOpenFileDialogImpl", "open", title, fileTypes,
                         browserName),
      _allowDirectories(allowDirectories),
      _allowMultiple(allowMultiple),
      _foldersOnly(foldersOnly) {}

std::vector<std::string> MacOpenFileDialogImpl::doShow() {
    cv_dbg("MacOpenFileDialogImpl::doShow()");
    NSOpenPanel* panel = (NSOpenPanel*)_panel;
    if (!_title.empty()) [panel setTitle:[NSString stringWithUTF8String:_title.c_str()]];
    [panel setAllowsMultipleSelection:_allowMultiple ? YES : NO];
    [panel setCanChooseFiles:_foldersOnly ? NO : YES];
    [panel setCanChooseDirectories:(_foldersOnly || _allowDirectories) ? YES : NO];

    NSMutableArray* allowedTypes = nil;
    if (!_fileTypes.empty()) {
        // Throws on a bad filter, before anything shows.
        const std::vector<FileType> types = DialogUtils::parseFileTypesJson(_fileTypes);
        allowedTypes = MacUtils::createFileTypes(types);
        [panel setAllowedFileTypes:allowedTypes];
    }

    std::vector<std::string> paths;
    if (runModal(false, nil)) {
        NSArray* names = [panel filenames];
        for (NSUInteger i = 0; i < [names count]; ++i) paths.push_back([[names objectAtIndex:i] UTF8String]);
    }
    [allowedTypes release];
    return paths;
}

}  // namespace Web
}  // namespace Kestrix
