// Linux answers to the platform questions: processes from /proc, MIME
// types from the shared MIME database through GIO, folders from the XDG
// variables, the system version from uname().
#include <dirent.h>
#include <errno.h>
#include <gio/gio.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "LinuxPanelList.h"
#include "PlatformUtils.h"
#include "cv_file.h"
#include "cv_log.h"
#include "cv_path.h"

namespace Kestrix {
namespace Web {
namespace PlatformUtils {

namespace {

const char kKestrixProcessName[] = "corvanekestrix";
const char kSystemKestrixFolder[] = "/opt/corvane/kestrix/bin";
// What a folder look-up reports when the environment names no folder.
const int kFolderUnknown = -1;

bool isPidName(const char* name) {
    if (!*name) return false;
    for (const char* p = name; *p; ++p) {
        if (*p < '0' || *p > '9') return false;
    }
    return true;
}

// The name and state of a process from /proc/<pid>/stat. The name sits in
// parentheses and may itself hold ") ", so the last ')' ends it.
bool readProcessStat(const std::string& pidDir, std::string& comm, char& state) {
    FILE* f = fopen((pidDir + "/stat").c_str(), "re");
    if (!f) return false;
    char buf[512];
    size_t got = fread(buf, 1, sizeof(buf) - 1, f);
    fclose(f);
    buf[got] = '\0';
    const char* open = strchr(buf, '(');
    const char* close = strrchr(buf, ')');
    if (!open || !close || close < open || close[1] != ' ' || !close[2]) return false;
    comm.assign(open + 1, close);
    state = close[2];
    return true;
}

// Calls `visit(pid, pidDir, comm)` for every live process named exactly
// `name`, in /proc order, until it answers false. Zombies are skipped: a
// killed client nobody has reaped yet is not running.
void forEachProcessNamed(const std::string& name,
                         const std::function<bool(pid_t, const std::string&)>& visit) {
    DIR* proc = opendir("/proc");
    if (!proc) return;
    while (struct dirent* entry = readdir(proc)) {
        if (!isPidName(entry->d_name)) continue;
        std::string pidDir = std::string("/proc/") + entry->d_name;
        std::string comm;
        char state = 0;
        if (!readProcessStat(pidDir, comm, state) || comm != name || state == 'Z' || state == 'X') continue;
        if (!visit(static_cast<pid_t>(atoi(entry->d_name)), pidDir)) break;
    }
    closedir(proc);
}

std::string homeFolder() {
    char home[CV_MAX_PATH];
    if (cv_path_home_dir(home, sizeof(home)) <= 0) return "";
    return home;
}

std::string withoutTrailingSlashes(std::string folder) {
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder;
}

// $variable when it names an absolute folder, else $HOME + homeRelative.
int xdgFolder(const char* variable, const char* homeRelative, std::string& folder) {
    const char* value = getenv(variable);
    if (value && value[0] == '/') {
        folder = withoutTrailingSlashes(value);
        return 0;
    }
    std::string home = homeFolder();
    if (home.empty()) return kFolderUnknown;
    folder = withoutTrailingSlashes(home) + homeRelative;
    return 0;
}

}  // namespace

int getKestrixPid() {
    int found = -1;
    forEachProcessNamed(kKestrixProcessName, [&found](pid_t pid, const std::string&) {
        found = static_cast<int>(pid);
        return false;
    });
    return found;
}

void killProcessesByName(const std::string& name) {
    const uid_t me = geteuid();
    forEachProcessNamed(name, [me](pid_t pid, const std::string& pidDir) {
        struct stat owner;
        if (stat(pidDir.c_str(), &owner) == 0 && owner.st_uid == me) kill(pid, SIGKILL);
        return true;
    });
}

std::string mimeTypeForFileAtPath(const std::string& path) {
    if (path.empty()) return "";
    gboolean uncertain = FALSE;
    gchar* contentType = g_content_type_guess(path.c_str(), nullptr, 0, &uncertain);
    if (!contentType) return "";
    gchar* mime = g_content_type_get_mime_type(contentType);
    g_free(contentType);
    std::string result = mime ? mime : "";
    g_free(mime);
    // The database's answer for a name it knows nothing about.
    if (uncertain && result == "application/octet-stream") return "";
    return result;
}

void getSystemVersion(unsigned short* major, unsigned short* minor) {
    unsigned short sysMajor = 10, sysMinor = 0;
    struct utsname names;
    long status = 0;
    if (uname(&names) != 0)
        status = errno;
    else if (sscanf(names.release, "%hu.%hu", &sysMajor, &sysMinor) != 2)
        status = -1;
    if (status != 0) {
        cv_err("Unable to obtain system version: %ld", status);
        sysMajor = 10;
        sysMinor = 0;
    }
    if (major) *major = sysMajor;
    if (minor) *minor = sysMinor;
}

std::vector<std::string> createFileTypes(const std::vector<FileType>& types) {
    std::vector<std::string> allowed;
    for (const FileType& type : types) {
        for (const std::string& ext : type.extensions) {
            if (ext == "*" || std::find(allowed.begin(), allowed.end(), ext) != allowed.end()) continue;
            allowed.push_back(ext);
            gchar* upper = g_utf8_strup(ext.c_str(), static_cast<gssize>(ext.size()));
            allowed.emplace_back(upper ? upper : ext.c_str());
            g_free(upper);
        }
    }
    return allowed;
}

bool isSaveDialogOpen(void* panel) {
    if (LinuxPanelList::contains(panel)) return true;
    return LinuxPanelList::any();
}

void closeSaveDialog(void* panel) {
    if (LinuxPanelList::contains(panel)) {
        cv_log("Closing file dialog");
        LinuxPanelList::abort(panel);
        return;
    }
    if (LinuxPanelList::any()) {
        cv_log("Closing file dialog");
        LinuxPanelList::abort(nullptr);
    }
}

std::string launchCommand(const std::string& path) {
    // The shell returns at once and leaves the client running on its own.
    return "\"" + path + "\" >/dev/null 2>&1 &";
}

void launchCommandStarted(int pid) {
    // The shell only puts the client in the background and exits, so this
    // wait is short; without it every launch would leave a zombie behind.
    if (pid <= 0) return;
    while (waitpid(static_cast<pid_t>(pid), nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::vector<std::string> applicationSearchFolders(const std::string& firstFolder) {
    std::vector<std::string> folders;
    if (!firstFolder.empty()) {
        folders.push_back(firstFolder);
    } else {
        std::string home = homeFolder();
        if (!home.empty()) folders.push_back(withoutTrailingSlashes(home) + "/.local/bin");
    }
    folders.push_back(kSystemKestrixFolder);
    return folders;
}

std::string applicationFileName() {
    return kKestrixProcessName;
}

int userAppDataFolder(std::string& folder) {
    return xdgFolder("XDG_DATA_HOME", "/.local/share", folder);
}

int userLogsFolder(std::string& folder) {
    return xdgFolder("XDG_STATE_HOME", "/.local/state", folder);
}

int userPluginFolder(std::string& folder) {
    std::string home = homeFolder();
    if (home.empty()) return kFolderUnknown;
    folder = withoutTrailingSlashes(home) + "/.mozilla/plugins";
    return 0;
}

}  // namespace PlatformUtils
}  // namespace Web
}  // namespace Kestrix
