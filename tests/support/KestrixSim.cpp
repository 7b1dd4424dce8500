#include "KestrixSim.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "TempDir.h"

extern char** environ;

namespace CorvaneTest {

namespace {

const char kReadyPrefix[] = "kestrix-sim: listening on ";
const char kRecordPrefix[] = "--- kestrix-sim request ";

}  // namespace

bool KestrixSim::start(const Options& options) {
    if (options.home.empty() && !_ownHome) _ownHome = std::make_unique<TempDir>();
    _home = options.home.empty() ? _ownHome->path() : options.home;
    _recordFile = _home + "/kestrix-sim-record.txt";
    std::vector<std::string> argv = {KESTRIX_SIM_PATH, "--exit-with-parent", "--record", _recordFile};
    argv.insert(argv.end(), options.args.begin(), options.args.end());
    std::vector<std::string> env;
    for (char** entry = environ; *entry; ++entry) {
        if (strncmp(*entry, "HOME=", 5) != 0 && strncmp(*entry, "XDG_DATA_HOME=", 14) != 0)
            env.push_back(*entry);
    }
    env.push_back("HOME=" + _home);
    env.push_back("XDG_DATA_HOME=" + _home + "/.local/share");
    std::vector<char*> argvPointers, envPointers;
    for (auto& arg : argv) argvPointers.push_back(arg.data());
    argvPointers.push_back(nullptr);
    for (auto& entry : env) envPointers.push_back(entry.data());
    envPointers.push_back(nullptr);

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    const int code =
        posix_spawn(&_pid, argv[0].c_str(), &actions, nullptr, argvPointers.data(), envPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (code != 0) {
        ::close(out[0]);
        _pid = -1;
        _error = std::string("cannot start kestrix-sim: ") + strerror(code);
        return false;
    }
    // The ready line, within 10 s; nothing else comes on stdout.
    std::string line;
    for (char c; line.compare(0, sizeof kReadyPrefix - 1, kReadyPrefix) != 0 || line.back() != '\n';) {
        pollfd fd = {out[0], POLLIN, 0};
        if (::poll(&fd, 1, 10000) <= 0 || ::read(out[0], &c, 1) != 1) break;
        line = (!line.empty() && line.back() == '\n' ? "" : line) + c;
    }
    ::close(out[0]);
    if (line.empty() || line.back() != '\n' || line.compare(0, sizeof kReadyPrefix - 1, kReadyPrefix) != 0) {
        stop();
        _error = "kestrix-sim did not get ready (last output: \"" + line + "\")";
        return false;
    }
    _port = static_cast<unsigned short>(std::stoi(line.substr(line.rfind(':') + 1)));
    const std::string uri = readFile(_home + "/.local/share/Corvane/Corvane Kestrix/var/run/http.uri");
    const size_t newline = uri.find('\n');
    _key = newline == std::string::npos ? "" : uri.substr(newline + 1);
    if (!_key.empty() && _key.back() == '\n') _key.pop_back();
    return true;
}

bool KestrixSim::stop() {
    if (_pid <= 0) return true;
    kill(_pid, SIGTERM);
    int status = 0;
    pid_t got = 0;
    for (int i = 0; i < 500 && (got = waitpid(_pid, &status, WNOHANG)) == 0; ++i) usleep(10000);
    if (got == 0) {
        kill(_pid, SIGKILL);
        waitpid(_pid, &status, 0);
    }
    _pid = -1;
    return got > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> KestrixSim::recordedRequests() const {
    std::vector<std::string> requests;
    const std::string text = readFile(_recordFile);
    size_t pos = 0;
    while (text.compare(pos, sizeof kRecordPrefix - 1, kRecordPrefix) == 0) {
        const size_t lineEnd = text.find('\n', pos);
        const size_t colon = text.find(": ", pos);
        if (lineEnd == std::string::npos || colon == std::string::npos || colon > lineEnd) break;
        const size_t length = std::stoul(text.substr(colon + 2, lineEnd - colon - 2));
        if (lineEnd + 1 + length > text.size()) break;
        std::string raw = text.substr(lineEnd + 1, length);
        if (raw.find(" /sim/") != raw.find(' ')) requests.push_back(raw);
        pos = lineEnd + 1 + length + 1;
    }
    return requests;
}

std::string KestrixSim::request(const std::string& method, const std::string& target,
                                const std::string& body) const {
    const std::string text = method + " " + target + " HTTP/1.1\r\nAuthorization-key: " + _key +
                             "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
                             "\r\n\r\n" + body;
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(_port);
    std::string answer;
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size())) {
        char buffer[65536];
        pollfd p = {fd, POLLIN, 0};
        for (ssize_t n; ::poll(&p, 1, 10000) > 0 && (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;)
            answer.append(buffer, static_cast<size_t>(n));
    }
    if (fd >= 0) ::close(fd);
    return answer;
}

bool KestrixSim::control(const std::string& query) const {
    return request("POST", "/sim/control?" + query).compare(0, 13, "HTTP/1.1 200 ") == 0;
}

}  // namespace CorvaneTest
