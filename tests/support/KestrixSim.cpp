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

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "TempDir.h"

extern char** environ;

namespace CorvaneTest {

namespace {

const char kReadyPrefix[] = "kestrix-sim: listening on ";
const char kRecordPrefix[] = "--- kestrix-sim request ";

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// The target of a raw request ("GET /x HTTP/1.1..." gives "/x").
std::string targetOf(const std::string& raw) {
    size_t first = raw.find(' ');
    if (first == std::string::npos) return "";
    size_t second = raw.find_first_of(" \r\n", first + 1);
    return raw.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
}

}  // namespace

KestrixSim::KestrixSim() = default;

KestrixSim::~KestrixSim() {
    stop();
}

std::string KestrixSim::programPath() {
#ifdef KESTRIX_SIM_PATH
    return KESTRIX_SIM_PATH;
#else
    return "";
#endif
}

bool KestrixSim::fail(const std::string& message) {
    _error = message;
    return false;
}

bool KestrixSim::start(const std::vector<std::string>& args) {
    Options options;
    options.args = args;
    return start(options);
}

bool KestrixSim::start(const Options& options) {
    if (_alive) return fail("kestrix-sim is already running");
    const std::string program = programPath();
    if (program.empty()) return fail("kestrix-sim was not built (KESTRIX_SIM_PATH is not defined)");
    _error.clear();
    _exitStatus = -1;
    if (options.home.empty()) {
        if (!_ownHome) _ownHome = std::make_unique<TempDir>();
        _home = _ownHome->path();
    } else {
        _home = options.home;
    }
    const std::string dataHome = _home + "/.local/share";
    _dataDir = dataHome + "/Corvane/Corvane Kestrix";

    std::vector<std::string> argv = {program, "--exit-with-parent"};
    _recordFile.clear();
    if (options.record) {
        _recordFile = _home + "/kestrix-sim-record.txt";
        argv.insert(argv.end(), {"--record", _recordFile});
    }
    for (size_t i = 0; i < options.args.size(); ++i) {
        argv.push_back(options.args[i]);
        if (options.args[i] == "--record" && i + 1 < options.args.size()) _recordFile = options.args[i + 1];
    }

    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text = *entry;
        if (text.compare(0, 5, "HOME=") != 0 && text.compare(0, 14, "XDG_DATA_HOME=") != 0)
            env.push_back(text);
    }
    env.push_back("HOME=" + _home);
    env.push_back("XDG_DATA_HOME=" + dataHome);

    std::vector<char*> argvPointers, envPointers;
    for (auto& arg : argv) argvPointers.push_back(arg.data());
    argvPointers.push_back(nullptr);
    for (auto& entry : env) envPointers.push_back(entry.data());
    envPointers.push_back(nullptr);

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) return fail(std::string("pipe: ") + strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    pid_t pid = -1;
    int code = posix_spawn(&pid, program.c_str(), &actions, nullptr, argvPointers.data(), envPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (code != 0) {
        ::close(out[0]);
        return fail("cannot start " + program + ": " + strerror(code));
    }
    _pid = pid;
    _alive = true;

    // Wait for the ready line, bounded.
    const auto deadline = Clock::now() + std::chrono::milliseconds(options.readyTimeoutMs);
    std::string line;
    bool ready = false;
    while (!ready) {
        pollfd fd = {out[0], POLLIN, 0};
        int n = ::poll(&fd, 1, msLeft(deadline));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        char c;
        ssize_t got = ::read(out[0], &c, 1);
        if (got <= 0) break;
        if (c == '\n') ready = line.compare(0, sizeof(kReadyPrefix) - 1, kReadyPrefix) == 0;
        if (!ready) line = c == '\n' ? "" : line + c;
    }
    // Nothing else comes on stdout; the simulator ignores SIGPIPE.
    ::close(out[0]);
    if (!ready) {
        stop(2000);
        return fail("kestrix-sim did not get ready (last output: \"" + line + "\")");
    }
    _url = line.substr(sizeof(kReadyPrefix) - 1);
    _port = static_cast<unsigned short>(std::stoi(_url.substr(_url.rfind(':') + 1)));
    const std::string uri = readFile(_dataDir + "/var/run/http.uri");
    size_t newline = uri.find('\n');
    _key = newline == std::string::npos ? "" : uri.substr(newline + 1);
    if (!_key.empty() && _key.back() == '\n') _key.pop_back();
    return true;
}

bool KestrixSim::reap(bool block) {
    if (!_alive) return true;
    int status = 0;
    pid_t got;
    do {
        got = waitpid(_pid, &status, block ? 0 : WNOHANG);
    } while (got < 0 && errno == EINTR);
    if (got == 0) return false;
    _alive = false;
    _exitStatus = got == _pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return true;
}

bool KestrixSim::waitForExit(int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!reap(false)) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool KestrixSim::stop(int timeoutMs) {
    if (!_alive) return true;
    kill(_pid, SIGTERM);
    if (waitForExit(timeoutMs)) return _exitStatus == 0;
    kill(_pid, SIGKILL);
    reap(true);
    return false;
}

std::vector<std::string> KestrixSim::recordedRequests(bool includeControl) const {
    std::vector<std::string> requests;
    if (_recordFile.empty()) return requests;
    const std::string text = readFile(_recordFile);
    size_t pos = 0;
    while (text.compare(pos, sizeof(kRecordPrefix) - 1, kRecordPrefix) == 0) {
        size_t lineEnd = text.find('\n', pos);
        size_t colon = text.find(": ", pos);
        if (lineEnd == std::string::npos || colon == std::string::npos || colon > lineEnd) break;
        size_t length = std::stoul(text.substr(colon + 2, lineEnd - colon - 2));
        if (lineEnd + 1 + length > text.size()) break;
        std::string raw = text.substr(lineEnd + 1, length);
        if (includeControl || targetOf(raw).compare(0, 5, "/sim/") != 0) requests.push_back(raw);
        pos = lineEnd + 1 + length + 1;
    }
    return requests;
}

std::string KestrixSim::exchangeRaw(const std::string& bytes, int timeoutMs) const {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return "";
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(_port);
    std::string answer;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
        size_t sent = 0;
        while (sent < bytes.size()) {
            ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) break;
            sent += static_cast<size_t>(n);
        }
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        char buffer[4096];
        for (;;) {
            pollfd p = {fd, POLLIN, 0};
            if (::poll(&p, 1, msLeft(deadline)) <= 0) break;
            ssize_t n = ::recv(fd, buffer, sizeof(buffer), 0);
            if (n <= 0) break;
            answer.append(buffer, static_cast<size_t>(n));
        }
    }
    ::close(fd);
    return answer;
}

std::string KestrixSim::request(const std::string& method, const std::string& target, const std::string& body,
                                const std::string& contentType) const {
    std::string text = method + " " + target + " HTTP/1.1\r\n";
    text += "Authorization-key: " + _key + "\r\n";
    text += "Connection: close\r\n";
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    if (!contentType.empty()) text += "Content-Type: " + contentType + "\r\n";
    text += "\r\n" + body;
    return exchangeRaw(text);
}

int KestrixSim::statusOf(const std::string& response) {
    if (response.compare(0, 9, "HTTP/1.1 ") != 0 || response.size() < 12) return 0;
    return std::atoi(response.substr(9, 3).c_str());
}

std::string KestrixSim::bodyOf(const std::string& response) {
    size_t end = response.find("\r\n\r\n");
    return end == std::string::npos ? "" : response.substr(end + 4);
}

bool KestrixSim::control(const std::string& query) const {
    return statusOf(request("POST", "/sim/control?" + query)) == 200;
}

}  // namespace CorvaneTest
