#import "MacUtils.h"

#include <Carbon/Carbon.h>

#include "cv_log.h"

namespace Kestrix {
namespace Web {
namespace MacUtils {

namespace {

const OSType kSelectorSystemVersion = 0x73797376;  // 'sysv'
const OSType kSelectorMajor = 0x73797331;          // 'sys1'
const OSType kSelectorMinor = 0x73797332;          // 'sys2'
const OSType kSelectorBugFix = 0x73797333;         // 'sys3'
// From 10.4.10 on, 'sysv' cannot say the minor version in one digit.
const SInt32 kFirstSplitVersion = 0x1040;

}  // namespace

NSMutableArray* createFileTypes(const std::vector<FileType>& types) {
    NSMutableArray* result = [NSMutableArray new];
    for (const FileType& type : types) {
        for (const std::string& extension : type.extensions) {
            if (extension == "*") continue;
            NSString* text = [NSString stringWithUTF8String:extension.c_str()];
            if (!text || [result containsObject:text]) continue;
            [result addObject:text];
            [result addObject:[text uppercaseString]];
        }
    }
    return result;
}

NSSavePanel* getFirstOpenedSaveDialog() {
    NSArray* windows = [[NSApplication sharedApplication] windows];
    for (NSUInteger i = 0; i < [windows count]; ++i) {
        NSWindow* window = [windows objectAtIndex:i];
        if ([window isKindOfClass:[NSSavePanel class]] && [window isVisible]) return (NSSavePanel*)window;
    }
    return nil;
}

bool isSaveDialogOpen(NSSavePanel* panel) {
    if (panel == nil) return false;
    NSArray* windows = [[NSApplication sharedApplication] windows];
    for (NSUInteger i = 0; i < [windows count]; ++i) {
        if ([windows objectAtIndex:i] == panel) return [panel isVisible];
    }
    return false;
}

void abortModal() {
    NSApplication* app = [NSApplication sharedApplication];
    [app abortModal];
    // A modal loop notices the abort only when its next event arrives; an
    // empty application event makes that happen now (AppKit ignores it).
    NSEvent* wake = [NSEvent otherEventWithType:NSApplicationDefined
                                       location:NSMakePoint(0, 0)
                                  modifierFlags:0
                                      timestamp:0
                                   windowNumber:0
                                        context:nil
                                        subtype:0
                                          data1:0
                                          data2:0];
    [app postEvent:wake atStart:NO];
}

void getSystemVersion(unsigned short* major, unsigned short* minor) {
    unsigned short sysMajor = 10, sysMinor = 0;
    SInt32 version = 0;
    OSErr status = Gestalt(kSelectorSystemVersion, &version);
    if (status == noErr && version < kFirstSplitVersion) {
        sysMajor = static_cast<unsigned short>(((version >> 12) & 15) * 10 + ((version >> 8) & 15));
        sysMinor = static_cast<unsigned short>((version >> 4) & 15);
    } else if (status == noErr) {
        SInt32 first = 0, second = 0, third = 0;
        status = Gestalt(kSelectorMajor, &first);
        if (status == noErr) status = Gestalt(kSelectorMinor, &second);
        if (status == noErr) status = Gestalt(kSelectorBugFix, &third);
        if (status == noErr) {
            sysMajor = static_cast<unsigned short>(first);
            sysMinor = static_cast<unsigned short>(second);
        }
    }
    if (status != noErr) {
        cv_err("Unable to obtain system version: %ld", static_cast<long>(status));
        sysMajor = 10;
        sysMinor = 0;
    }
    if (major) *major = sysMajor;
    if (minor) *minor = sysMinor;
}

}  // namespace MacUtils
}  // namespace Web
}  // namespace Kestrix
