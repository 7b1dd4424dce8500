// What the GNUstep test programs can tell the framework stand-ins of
// FrameworkStubs.c.
#pragma once

#include <CoreServices/CoreServices.h>

#ifdef __cplusplus
extern "C" {
#endif

// One Gestalt answer: `status`, and `value` when that is noErr.
typedef struct CorvaneGestaltAnswer {
    OSType selector;
    OSErr status;
    SInt32 value;
} CorvaneGestaltAnswer;

// Gestalt answers from these (copied) until the next call; a selector
// not among them is unknown, as it is to a system without Gestalt.
void corvaneSetGestaltAnswers(const CorvaneGestaltAnswer* answers, int count);

#ifdef __cplusplus
}
#endif
