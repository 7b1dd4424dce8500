// Helpers for the suites that touch the local client's files, folders and
// processes: a log captured into a temporary file, a lock that keeps the
// suites that start or kill processes named "corvanekestrix" from running
// at the same time, and a reaper for the clients they leave behind.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "TempDir.h"
#include "cv_log.h"

namespace CorvaneTest {

// Every log line written while it lives, read back from a real log file.
class LogFileCapture {
public:
    explicit LogFileCapture(unsigned debugAll = 3) : _path(_dir.file("capture.log")) {
        cv_log_cleanup();
        cv_log_init(CV_LOG_FILE, _path.c_str());
        cv_dbg_set(1);
        cv_dbg_set_all(debugAll);
    }
    ~LogFileCapture() {
        cv_log_cleanup();
        cv_dbg_set(0);
        cv_dbg_set_all(0);
    }
    LogFileCapture(const LogFileCapture&) = delete;
    LogFileCapture& operator=(const LogFileCapture&) = delete;

    // "LABEL message" for each line, without date, time and ids.
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        std::ifstream in(_path);
        std::string line;
        while (std::getline(in, line)) {
            const size_t ids = line.find("] ");
            result.push_back(ids == std::string::npos ? line : line.substr(ids + 2));
        }
        return result;
    }
    size_t count(const std::string& line) const {
        size_t n = 0;
        for (const std::string& l : lines()) n += l == line ? 1 : 0;
        return n;
    }
    bool has(const std::string& line) const { return count(line) > 0; }
    size_t countPrefix(const std::string& prefix) const {
        size_t n = 0;
        for (const std::string& l : lines()) n += l.compare(0, prefix.size(), prefix) == 0 ? 1 : 0;
        return n;
    }
    std::string text() const {
        std::string all;
        for (const std::string& l : lines()) all += l + "\n";
        return all;
    }

private:
    TempDir _dir;
    std::string _path;
};

// Held by every test that starts, looks for or kills processes named
// "corvanekestrix": they see all such processes of the machine, so they
// must not overlap. Also makes this process the reaper of the clients its
// launches orphan, and reaps them when released.
class ClientProcessGuard {
public:
    ClientProcessGuard() {
        _lock = open("/tmp/corvane-test-corvanekestrix.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (_lock >= 0) flock(_lock, LOCK_EX);
        prctl(PR_SET_CHILD_SUBREAPER, 1);
    }
    ~ClientProcessGuard() {
        for (pid_t pid : _killOnExit) {
            kill(pid, SIGKILL);
            reap(pid);
        }
        // Orphaned clients were re-parented to us; collect the ones that
        // have ended (a client still running was started by a test that
        // killed it above or is reaped by the kernel at our exit).
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        prctl(PR_SET_CHILD_SUBREAPER, 0);
        if (_lock >= 0) close(_lock);
    }
    ClientProcessGuard(const ClientProcessGuard&) = delete;
    ClientProcessGuard& operator=(const ClientProcessGuard&) = delete;

    void killOnExit(pid_t pid) {
        if (pid > 0) _killOnExit.push_back(pid);
    }
    // Waits up to 5 s for pid (a child of ours) to end.
    static bool reap(pid_t pid) {
        for (int i = 0; i < 500; ++i) {
            pid_t got = waitpid(pid, nullptr, WNOHANG);
            if (got == pid || (got < 0 && errno == ECHILD)) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

private:
    int _lock = -1;
    std::vector<pid_t> _killOnExit;
};

// Polls `condition` every 10 ms for up to `ms`.
inline bool waitFor(const std::function<bool()>& condition, int ms = 5000) {
    for (int waited = 0; waited < ms; waited += 10) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

// The name of a process as /proc shows it, "" when it is gone.
inline std::string processName(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(in, name);
    return name;
}

// Whether pid exists and is not a zombie.
inline bool processAlive(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    std::getline(in, stat);
    const size_t close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() && stat[close + 2] != 'Z' &&
           stat[close + 2] != 'X';
}

}  // namespace CorvaneTest
