// The platform answers the neutral layer asks for on macOS: open panels,
// the local client's process and a file's MIME type.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {
namespace OsxUtils {

// The local client's bundle identifier, under which the workspace lists it.
extern const char* const kKestrixBundleIdentifier;

// `panel` (an NSSavePanel*) when given and showing; for null or anything
// else, whether any panel shows.
bool isSaveDialogOpen(void* panel);
void closeSaveDialog(void* panel);
// The local client's process id, or -1.
int getKestrixPid();
// From the extension alone; "" when unknown.
std::string mimeTypeForFileAtPath(const std::string& path);
// Every process of this session named exactly `name` is killed.
void killProcesses(const std::string& name);

}  // namespace OsxUtils
}  // namespace Web
}  // namespace Kestrix
