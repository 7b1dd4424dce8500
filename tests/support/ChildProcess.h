// A helper program run by a test: started with extra environment
// variables, its stdout read line by line with a time limit, and stopped
// (SIGTERM, then SIGKILL) when the test is done. It is killed as well if
// the test process dies first, so nothing outlives a crashed test.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace CorvaneTest {

class ChildProcess {
public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    ChildProcess() = default;
    ~ChildProcess();  // stop()
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // argv[0] is the program (searched in PATH when it has no "/"). Its
    // stderr goes to /dev/null unless `keepStderr`. False when it cannot start.
    bool start(const std::vector<std::string>& argv, const Environment& environment = {},
               bool keepStderr = false);
    // The next line of its stdout, without the newline. False when none
    // came within `timeoutMs` or the program closed its stdout.
    bool readLine(std::string* line, int timeoutMs);
    // Waits up to `timeoutMs` for it to exit on its own.
    bool waitForExit(int timeoutMs);
    // SIGTERM, up to `timeoutMs` to go, then SIGKILL. Harmless when not running.
    void stop(int timeoutMs = 5000);
    bool running();
    // The exit status once it exited normally; -1 while running or after a signal.
    int exitStatus() const { return _exitStatus; }
    pid_t pid() const { return _pid; }

private:
    bool reap(bool wait);

    pid_t _pid = -1;
    int _stdout = -1;
    std::string _buffer;
    int _exitStatus = -1;
};

// Whether `program` can be found in PATH.
bool programInPath(const std::string& program);

}  // namespace CorvaneTest
