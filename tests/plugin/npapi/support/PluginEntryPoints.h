// The exported functions of a Unix plug-in, however they were found:
// linked in directly (`&NP_Initialize` from the static test library) or
// looked up in a loaded library (PluginLibrary).
#pragma once

#include "npfunctions.h"

namespace CorvaneTest {

struct PluginEntryPoints {
    NP_GetMIMEDescriptionFunc getMIMEDescription = nullptr;
    NP_GetValueFunc getValue = nullptr;
    NP_InitializeFunc initialize = nullptr;  // the Unix two-table form; required
    NP_GetEntryPointsFunc getEntryPoints = nullptr;
    NP_ShutdownFunc shutdown = nullptr;
};

}  // namespace CorvaneTest
