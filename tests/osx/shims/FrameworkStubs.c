/* Link stand-ins for the Mac framework calls GNUstep lacks, so that the
 * macOS classes link into the GNUstep test programs. Each answers as the
 * framework does when it has nothing to say: the callers' failure paths
 * are what runs here. */
#include "FrameworkStubs.h"

#include <Carbon/Carbon.h>

enum { kUndefinedSelector = -5551, kProcessNotFound = -600, kMaxGestaltAnswers = 8 };

static CorvaneGestaltAnswer gestaltAnswers[kMaxGestaltAnswers];
static int gestaltAnswerCount;

void corvaneSetGestaltAnswers(const CorvaneGestaltAnswer* answers, int count) {
    gestaltAnswerCount = 0;
    for (int i = 0; i < count && i < kMaxGestaltAnswers; ++i)
        gestaltAnswers[gestaltAnswerCount++] = answers[i];
}

OSErr Gestalt(OSType selector, SInt32* response) {
    for (int i = 0; i < gestaltAnswerCount; ++i) {
        if (gestaltAnswers[i].selector != selector) continue;
        if (gestaltAnswers[i].status == noErr) *response = gestaltAnswers[i].value;
        return gestaltAnswers[i].status;
    }
    return kUndefinedSelector;
}

const CFStringRef kUTTagClassFilenameExtension = 0;
const CFStringRef kUTTagClassMIMEType = 0;

CFStringRef UTTypeCreatePreferredIdentifierForTag(CFStringRef tagClass, CFStringRef tag,
                                                  CFStringRef conformingToUTI) {
    (void)tagClass;
    (void)tag;
    (void)conformingToUTI;
    return 0;
}

CFStringRef UTTypeCopyPreferredTagWithClass(CFStringRef uti, CFStringRef tagClass) {
    (void)uti;
    (void)tagClass;
    return 0;
}

void CFRelease(CFTypeRef object) {
    (void)object;
}

OSErr GetNextProcess(ProcessSerialNumber* process) {
    (void)process;
    return kProcessNotFound;
}

OSErr GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info) {
    (void)process;
    (void)info;
    return kProcessNotFound;
}

OSErr KillProcess(const ProcessSerialNumber* process) {
    (void)process;
    return kProcessNotFound;
}
