#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace CorvaneTest {

namespace {

long nowMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

}  // namespace

bool programInPath(const std::string& program) {
    const char* path = getenv("PATH");
    std::string folders = path ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= folders.size()) {
        size_t end = folders.find(':', start);
        if (end == std::string::npos) end = folders.size();
        const std::string folder = folders.substr(start, end - start);
        if (!folder.empty() && access((folder + "/" + program).c_str(), X_OK) == 0) return true;
        start = end + 1;
    }
    return false;
}

ChildProcess::~ChildProcess() {
    stop();
}

bool ChildProcess::start(const std::vector<std::string>& argv, const Environment& environment,
                         bool keepStderr) {
    if (argv.empty() || _pid > 0) return false;

    // Everything the child needs is prepared here: between fork and exec
    // only async-signal-safe calls are allowed.
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        bool replaced = false;
        for (const auto& pair : environment)
            replaced = replaced || entry.compare(0, pair.first.size() + 1, pair.first + "=") == 0;
        if (!replaced) env.push_back(entry);
    }
    for (const auto& pair : environment) env.push_back(pair.first + "=" + pair.second);
    std::vector<char*> envp;
    for (std::string& entry : env) envp.push_back(&entry[0]);
    envp.push_back(nullptr);
    std::vector<std::string> args = argv;
    std::vector<char*> argp;
    for (std::string& arg : args) argp.push_back(&arg[0]);
    argp.push_back(nullptr);

    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return false;
    const int devNull = keepStderr ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t parent = getpid();

    const pid_t pid = fork();
    if (pid < 0) {
        close(pipeFds[0]);
        close(pipeFds[1]);
        if (devNull >= 0) close(devNull);
        return false;
    }
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        dup2(pipeFds[1], STDOUT_FILENO);
        if (devNull >= 0) dup2(devNull, STDERR_FILENO);
        execvpe(argp[0], argp.data(), envp.data());
        _exit(127);
    }
    close(pipeFds[1]);
    if (devNull >= 0) close(devNull);
    _pid = pid;
    _stdout = pipeFds[0];
    _buffer.clear();
    _exitStatus = -1;
    return true;
}

bool ChildProcess::readLine(std::string* line, int timeoutMs) {
    const long deadline = nowMs() + timeoutMs;
    for (;;) {
        const size_t newline = _buffer.find('\n');
        if (newline != std::string::npos) {
            *line = _buffer.substr(0, newline);
            _buffer.erase(0, newline + 1);
            return true;
        }
        if (_stdout < 0) return false;
        const long left = deadline - nowMs();
        if (left <= 0) return false;
        pollfd fd = {_stdout, POLLIN, 0};
        const int ready = poll(&fd, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        char chunk[4096];
        const ssize_t got = read(_stdout, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            close(_stdout);
            _stdout = -1;
            continue;
        }
        _buffer.append(chunk, static_cast<size_t>(got));
    }
}

bool ChildProcess::reap(bool wait) {
    if (_pid <= 0) return true;
    int status = 0;
    pid_t done;
    do {
        done = waitpid(_pid, &status, wait ? 0 : WNOHANG);
    } while (done < 0 && errno == EINTR);
    if (done == 0) return false;
    if (done == _pid && WIFEXITED(status)) _exitStatus = WEXITSTATUS(status);
    _pid = -1;
    if (_stdout >= 0) {
        close(_stdout);
        _stdout = -1;
    }
    return true;
}

bool ChildProcess::running() {
    return !reap(false);
}

bool ChildProcess::waitForExit(int timeoutMs) {
    const long deadline = nowMs() + timeoutMs;
    while (!reap(false)) {
        if (nowMs() >= deadline) return false;
        usleep(10000);
    }
    return true;
}

void ChildProcess::stop(int timeoutMs) {
    if (_pid <= 0) return;
    kill(_pid, SIGTERM);
    if (!waitForExit(timeoutMs)) {
        kill(_pid, SIGKILL);
        reap(true);
    }
}

}  // namespace CorvaneTest
