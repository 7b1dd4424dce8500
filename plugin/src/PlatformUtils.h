// Questions the neutral code asks the platform. Each platform folder
// implements these functions.
#pragma once

#include <string>
#include <vector>

#include "FileType.h"

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
// Falls back to 10.0 (and logs why) when the system does not say.
void getSystemVersion(unsigned short* major, unsigned short* minor);

// The extensions a panel allows for a file-type filter, in order: each
// extension once, followed by its upper-case form; "*" (any file) is left
// out. jpg, JPG, png gives jpg, JPG, png, PNG. May be empty.
std::vector<std::string> createFileTypes(const std::vector<FileType>& types);

// Whether `panel` (or, for null or a panel we do not know, any panel of
// ours) is showing.
bool isSaveDialogOpen(void* panel);
// Ends `panel` if it is showing, else whichever panel of ours is showing.
void closeSaveDialog(void* panel);

// The command that starts the client application at `path` without
// waiting for it to finish.
std::string launchCommand(const std::string& path);
// Called once the launch command has been started as process `pid`:
// collects the command's exit where the platform leaves that to us.
void launchCommandStarted(int pid);
// The folders searched for the client application, in order. An empty
// `firstFolder` means the platform's default first folder.
std::vector<std::string> applicationSearchFolders(const std::string& firstFolder);
// The file name of the client application searched for.
std::string applicationFileName();

// Folders of this user, without a trailing "/". Each returns 0 and sets
// `folder`, or the platform's status code when the folder is unknown.
int userAppDataFolder(std::string& folder);
int userLogsFolder(std::string& folder);
int userPluginFolder(std::string& folder);

}  // namespace PlatformUtils
}  // namespace Web
}  // namespace Kestrix
