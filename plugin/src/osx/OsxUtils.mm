#include "OsxUtils.h"

#import <AppKit/AppKit.h>
#include <Carbon/Carbon.h>
#include <CoreServices/CoreServices.h>

#include <cstring>

#include "CVAutoreleasePool.h"
#import "MacUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {
namespace OsxUtils {

const char* const kKestrixBundleIdentifier = "com.corvane.kestrix";

namespace {

NSSavePanel* asSavePanel(void* panel) {
    id object = static_cast<id>(panel);
    if (object && [object isKindOfClass:[NSSavePanel class]]) return (NSSavePanel*)object;
    return nil;
}

}  // namespace

bool isSaveDialogOpen(void* panel) {
    NSSavePanel* savePanel = asSavePanel(panel);
    if (savePanel) return MacUtils::isSaveDialogOpen(savePanel);
    return MacUtils::getFirstOpenedSaveDialog() != nil;
}

void closeSaveDialog(void* panel) {
    NSSavePanel* savePanel = asSavePanel(panel);
    if (savePanel) {
        if (MacUtils::isSaveDialogOpen(savePanel)) {
            cv_log("Closing file dialog");
            [savePanel close];
            MacUtils::abortModal();
        }
        return;
    }
    // The panel found is not sent close: only the modal run is ended.
    if (MacUtils::getFirstOpenedSaveDialog() != nil) {
        cv_log("Closing file dialog");
        MacUtils::abortModal();
    }
}

int getKestrixPid() {
    CVAutoreleasePool pool;
    NSArray* applications = [[NSWorkspace sharedWorkspace] launchedApplications];
    NSString* wanted = [NSString stringWithUTF8String:kKestrixBundleIdentifier];
    for (NSUInteger i = 0; i < [applications count]; ++i) {
        NSDictionary* application = [applications objectAtIndex:i];
        id identifier = [application objectForKey:@"NSApplicationBundleIdentifier"];
        if (identifier && [identifier isEqual:wanted])
            return [[application objectForKey:@"NSApplicationProcessIdentifier"] intValue];
    }
    return -1;
}

std::string mimeTypeForFileAtPath(const std::string& path) {
    CVAutoreleasePool pool;
    NSString* text = [NSString stringWithUTF8String:path.c_str()];
    if (!text) return "";
    NSString* extension = [text pathExtension];
    CFStringRef uti =
        UTTypeCreatePreferredIdentifierForTag(kUTTagClassFilenameExtension, (CFStringRef)extension, nullptr);
    if (!uti) return "";
    CFStringRef mime = UTTypeCopyPreferredTagWithClass(uti, kUTTagClassMIMEType);
    CFRelease(uti);
    if (!mime) return "";
    const char* utf8 = [(NSString*)mime UTF8String];
    std::string result = utf8 ? utf8 : "";
    CFRelease(mime);
    return result;
}

void killProcesses(const std::string& name) {
    ProcessSerialNumber process = {0, kNoProcess};
    while (GetNextProcess(&process) == noErr) {
        unsigned char processName[256];
        ProcessInfoRec info;
        memset(&info, 0, sizeof(info));
        info.processInfoLength = sizeof(info);
        info.processName = processName;
        if (GetProcessInformation(&process, &info) != noErr) continue;
        // A Pascal string: the length byte, then the characters.
        if (std::string(reinterpret_cast<const char*>(processName + 1), processName[0]) == name)
            KillProcess(&process);
    }
}

}  // namespace OsxUtils
}  // namespace Web
}  // namespace Kestrix
