// AppKit questions of the panels: allowed-type lists, which panel shows,
// ending a modal run, and the system version.
#pragma once

#import <AppKit/AppKit.h>

#include <vector>

#include "FileType.h"

namespace Kestrix {
namespace Web {
namespace MacUtils {

// The extensions of `types` in order, each once followed by its upper-case
// form; "*" is left out. A new array the caller releases; may be empty.
NSMutableArray* createFileTypes(const std::vector<FileType>& types);
// The first visible save panel (open panels included) among the
// application's windows, or nil.
NSSavePanel* getFirstOpenedSaveDialog();
// Whether `panel` is one of the application's windows and visible.
bool isSaveDialogOpen(NSSavePanel* panel);
// Ends the application's modal run as aborted.
void abortModal();
// Either pointer may be null; 10.0 (logged) when the system does not say.
void getSystemVersion(unsigned short* major, unsigned short* minor);

}  // namespace MacUtils
}  // namespace Web
}  // namespace Kestrix
