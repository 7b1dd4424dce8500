#import "MacSaveFileDialogImpl.h"

#include "DialogUtils.h"
#import "MacUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

// Before 10.6 the panel has no name field setter: the older run call
// takes the name instead.
const unsigned short kFirstMinorWithNameField = 6;
const NSStringEncoding kUtf8Encoding = static_cast<NSStringEncoding>(4);

}  // namespace

MacSaveFileDialogImpl::MacSaveFileDialogImpl(const std::string& title, const std::string& suggestedName,
                                             const std::string& fileTypes, const std::string& browserName)
    : MacPanelDialogImpl([NSSavePanel savePanel], "MacSaveFileDialogImpl", "save", title, fileTypes,
                         browserName),
      _suggestedName(suggestedName) {}

std::vector<std::string> MacSaveFileDialogImpl::doShow() {
    cv_dbg("MacSaveFileDialogImpl::doShow()");
    unsigned short major = 0, minor = 0;
    MacUtils::getSystemVersion(&major, &minor);
    [_panel setCanSelectHiddenExtension:NO];
    [_panel setExtensionHidden:NO];
    if (!_title.empty()) [_panel setTitle:[NSString stringWithUTF8String:_title.c_str()]];

    NSString* name = nil;
    std::string extension;
    if (!_suggestedName.empty()) {
        name = [NSString stringWithUTF8String:_suggestedName.c_str()];
        extension = DialogUtils::extensionOfSuggestedName(_suggestedName);
    }

    NSMutableArray* allowedTypes = nil;
    if (!_fileTypes.empty()) {
        std::vector<FileType> types = DialogUtils::parseFileTypesJson(_fileTypes);
        // The suggested name's own type is always among the allowed ones.
        if (!extension.empty()) types.emplace_back(extension, std::vector<std::string>{extension});
        allowedTypes = MacUtils::createFileTypes(types);
        // A filter of "*" alone leaves the panel's defaults as they are.
        if ([allowedTypes count] > 0) {
            [_panel setAllowedFileTypes:allowedTypes];
            if (DialogUtils::findExtension(types, "*") >= 0) [_panel setAllowsOtherFileTypes:YES];
        }
    } else if (!extension.empty()) {
        allowedTypes = [NSMutableArray new];
        [allowedTypes addObject:[NSString stringWithUTF8String:extension.c_str()]];
        [_panel setAllowedFileTypes:allowedTypes];
        [_panel setAllowsOtherFileTypes:YES];
    } else {
        [_panel setAllowsOtherFileTypes:YES];
    }

    const bool useOldRun = minor < kFirstMinorWithNameField;
    if (!useOldRun && name) [_panel setNameFieldStringValue:name];
    std::vector<std::string> paths;
    if (runModal(useOldRun, name)) {
        const char* path = [[_panel filename] cStringUsingEncoding:kUtf8Encoding];
        paths.push_back(path ? path : "");
    }
    [allowedTypes release];
    return paths;
}

}  // namespace Web
}  // namespace Kestrix
