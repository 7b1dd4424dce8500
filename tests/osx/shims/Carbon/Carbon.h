// The part of Carbon the plug-in uses (the Process Manager), declared for
// the GNUstep check build only. Never shipped.
#pragma once

#include <CoreServices/CoreServices.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ProcessSerialNumber {
    UInt32 highLongOfPSN;
    UInt32 lowLongOfPSN;
} ProcessSerialNumber;

enum { kNoProcess = 0 };

// Only the members the plug-in sets or reads.
typedef struct ProcessInfoRec {
    UInt32 processInfoLength;
    StringPtr processName;
    ProcessSerialNumber processNumber;
    void* processAppRef;
} ProcessInfoRec;

OSErr GetNextProcess(ProcessSerialNumber* process);
OSErr GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info);
OSErr KillProcess(const ProcessSerialNumber* process);

#ifdef __cplusplus
}
#endif
