// Questions the neutral code asks the platform. Each platform folder
// implements these functions.
#pragma once

#include <string>
#include <vector>

namespace Kestrix {
namespace Web {
namespace PlatformUtils {

// The local client's process id, or -1 when it is not running.
int getKestrixPid();
// Kills every process of this user whose name is exactly `name`.
void killProcessesByName(const std::string& name);
// The MIME type guessed from the file name, "" when unknown or none.
std::string mimeTypeForFileAtPath(const std::string& path);
// The first two numbers of the system version; either pointer may be null.
void getSystemVersion(unsigned short* major, unsigned short* minor);
// The command that starts the client application at `path` without waiting for it.
std::string launchCommand(const std::string& path);
// The folders searched for the client application, and its executable name.
std::vector<std::string> applicationSearchFolders(const std::string& firstFolder);
std::string applicationFileName();
// Folders of this user; "" when unknown.
std::string userAppDataFolder();
std::string userLogsFolder();
std::string userPluginFolder();

}  // namespace PlatformUtils
}  // namespace Web
}  // namespace Kestrix
