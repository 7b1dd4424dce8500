// The neutral platform questions answered on macOS.
#include "PlatformUtils.h"

#import <Foundation/Foundation.h>
#include <sys/wait.h>

#include <cerrno>

#include "CVAutoreleasePool.h"
#import "MacUtils.h"
#include "OsxUtils.h"

namespace Kestrix {
namespace Web {
namespace PlatformUtils {

namespace {

// What the folder look-up reports for a folder it does not know (fnfErr).
const int kFolderNotFound = -43;

// The first folder the system's look-up gives for this user, plus `sub`.
int userFolder(NSSearchPathDirectory directory, const char* sub, std::string& folder) {
    CVAutoreleasePool pool;
    NSArray* found = NSSearchPathForDirectoriesInDomains(directory, NSUserDomainMask, YES);
    if ([found count] == 0) return kFolderNotFound;
    const char* path = [[found objectAtIndex:0] fileSystemRepresentation];
    if (!path || !*path) return kFolderNotFound;
    folder = std::string(path) + sub;
    return 0;
}

std::string homeFolder() {
    CVAutoreleasePool pool;
    const char* home = [NSHomeDirectory() fileSystemRepresentation];
    return home ? home : "";
}

}  // namespace

int getKestrixPid() {
    return OsxUtils::getKestrixPid();
}

void killProcessesByName(const std::string& name) {
    OsxUtils::killProcesses(name);
}

std::string mimeTypeForFileAtPath(const std::string& path) {
    return OsxUtils::mimeTypeForFileAtPath(path);
}

void getSystemVersion(unsigned short* major, unsigned short* minor) {
    MacUtils::getSystemVersion(major, minor);
}

std::vector<std::string> createFileTypes(const std::vector<FileType>& types) {
    CVAutoreleasePool pool;
    NSMutableArray* array = MacUtils::createFileTypes(types);
    std::vector<std::string> result;
    for (NSUInteger i = 0; i < [array count]; ++i) result.push_back([[array objectAtIndex:i] UTF8String]);
    [array release];
    return result;
}

bool isSaveDialogOpen(void* panel) {
    return OsxUtils::isSaveDialogOpen(panel);
}

void closeSaveDialog(void* panel) {
    OsxUtils::closeSaveDialog(panel);
}

std::string launchCommand(const std::string& path) {
    // open returns once the application runs, which lives on by itself.
    return "open \"" + path + "\"";
}

void launchCommandStarted(int pid) {
    // The shell running open ends once the client has started; collect it
    // so that no launch leaves a zombie behind.
    if (pid <= 0) return;
    while (waitpid(static_cast<pid_t>(pid), nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::vector<std::string> applicationSearchFolders(const std::string& firstFolder) {
    std::vector<std::string> folders;
    folders.push_back(firstFolder.empty() ? homeFolder() + "/Applications" : firstFolder);
    folders.push_back("/Applications");
    return folders;
}

std::string applicationFileName() {
    return "Corvane Kestrix.app";
}

int userAppDataFolder(std::string& folder) {
    return userFolder(NSApplicationSupportDirectory, "", folder);
}

int userLogsFolder(std::string& folder) {
    return userFolder(NSLibraryDirectory, "/Logs", folder);
}

int userPluginFolder(std::string& folder) {
    return userFolder(NSLibraryDirectory, "/Internet Plug-Ins", folder);
}

}  // namespace PlatformUtils
}  // namespace Web
}  // namespace Kestrix
