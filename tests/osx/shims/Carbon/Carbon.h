// The part of Carbon the plug-in uses (the Process Manager), declared for
// the GNUstep check build only. Never shipped.
#pragma once

#include <CoreServices/CoreServices.h>

extern "C" {
typedef struct ProcessSerialNumber {
    UInt32 highLongOfPSN;
    UInt32 lowLongOfPSN;
} ProcessSerialNumber;

enum { kNoProcess = 0 };

// Only the members the plug-in sets.
typedef struct ProcessInfoRec {
    UInt32 processInfoLength;
    StringPtr processName;
} ProcessInfoRec;

OSErr GetNextProcess(ProcessSerialNumber* process);
OSErr GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info);
OSErr KillProcess(const ProcessSerialNumber* process);
}
