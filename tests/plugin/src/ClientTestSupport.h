// Helpers for the suites that touch the local client's files, folders and
// processes: a lock that keeps the suites that start or kill processes
// named "corvanekestrix" from running at the same time, a reaper for the
// clients they leave behind, and bounded waits.
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

namespace CorvaneTest {

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
