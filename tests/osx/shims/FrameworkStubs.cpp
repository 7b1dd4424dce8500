// Link stand-ins for the Mac framework calls GNUstep lacks, so that the
// macOS classes link into the GNUstep test programs. Each answers as the
// framework does when it has nothing to say: the callers' failure paths
// are what runs here.
#include <Carbon/Carbon.h>

std::map<OSType, std::pair<OSErr, SInt32>> corvaneGestaltAnswers;

namespace {
const OSErr kUndefinedSelector = -5551, kProcessNotFound = -600;
}

extern "C" {
OSErr Gestalt(OSType selector, SInt32* response) {
    const auto answer = corvaneGestaltAnswers.find(selector);
    if (answer == corvaneGestaltAnswers.end()) return kUndefinedSelector;
    if (answer->second.first == noErr) *response = answer->second.second;
    return answer->second.first;
}

const CFStringRef kUTTagClassFilenameExtension = nullptr, kUTTagClassMIMEType = nullptr;
CFStringRef UTTypeCreatePreferredIdentifierForTag(CFStringRef, CFStringRef, CFStringRef) {
    return nullptr;
}
CFStringRef UTTypeCopyPreferredTagWithClass(CFStringRef, CFStringRef) {
    return nullptr;
}
void CFRelease(CFTypeRef) {}
OSErr GetNextProcess(ProcessSerialNumber*) {
    return kProcessNotFound;
}
OSErr GetProcessInformation(const ProcessSerialNumber*, ProcessInfoRec*) {
    return kProcessNotFound;
}
OSErr KillProcess(const ProcessSerialNumber*) {
    return kProcessNotFound;
}
}
