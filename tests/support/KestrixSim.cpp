#include "KestrixSim.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "TempDir.h"

extern char** environ;

namespace CorvaneTest {

namespace {

const char kReadyPrefix[] = "kestrix-sim: listening on ";
const char kRecordPrefix[] = "--- kestrix-sim request ";

}  // namespace

bool KestrixSim::start(const std::vector<std::string>& args) {
    const char* home = getenv("HOME");
    _recordFile = std::string(home ? home : "/nonexistent") + "/kestrix-sim-record.txt";
    std::vector<std::string> argv = {KESTRIX_SIM_PATH, "--exit-with-parent", "--record", _recordFile};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> argvPointers;
    for (auto& arg : argv) argvPointers.push_back(arg.data());
    argvPointers.push_back(nullptr);

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    const int code = posix_spawn(&_pid, argv[0].c_str(), &actions, nullptr, argvPointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (code != 0) _pid = -1;
    // The ready line, within 10 s; nothing else comes on stdout.
    std::string line;
    char buffer[256];
    pollfd fd = {out[0], POLLIN, 0};
    for (ssize_t n; code == 0 && line.find('\n') == std::string::npos && ::poll(&fd, 1, 10000) > 0 &&
                    (n = ::read(out[0], buffer, sizeof buffer)) > 0;)
        line.append(buffer, static_cast<size_t>(n));
    ::close(out[0]);
    if (line.find('\n') == std::string::npos || line.rfind(kReadyPrefix, 0) != 0) {
        stop();
        _error =
            "kestrix-sim did not get ready (" + (code ? strerror(code) : "output: \"" + line + "\"") + ")";
        return false;
    }
    _port = static_cast<unsigned short>(std::stoi(line.substr(line.rfind(':') + 1)));
    return true;
}

// SIGTERM ends it cleanly; --exit-with-parent covers a test that dies.
bool KestrixSim::stop() {
    if (_pid <= 0) return true;
    kill(_pid, SIGTERM);
    int status = 0;
    const bool exited = waitpid(_pid, &status, 0) == _pid;
    _pid = -1;
    return exited && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> KestrixSim::requestLines() const {
    std::vector<std::string> lines;
    std::istringstream in(readFile(_recordFile));
    for (std::string line; std::getline(in, line);)
        if (line.rfind(kRecordPrefix, 0) == 0 && std::getline(in, line))
            lines.push_back(line.substr(0, line.find('\r')));
    return lines;
}

}  // namespace CorvaneTest
