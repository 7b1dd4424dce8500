#include "Recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Kestrix::Sim {

namespace {

bool writeAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

Recorder::~Recorder() {
    if (_fd >= 0) ::close(_fd);
}

bool Recorder::open(const std::string& path, std::string& error) {
    if (path.empty()) return true;
    _fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (_fd < 0) {
        error = "cannot open record file " + path + ": " + strerror(errno);
        return false;
    }
    return true;
}

void Recorder::record(const std::string& raw) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (_fd < 0) return;
    ++_count;
    std::string entry = "--- kestrix-sim request " + std::to_string(_count) + ": " +
                        std::to_string(raw.size()) + " bytes ---\n";
    entry += raw;
    entry += "\n";
    writeAll(_fd, entry);
}

}  // namespace Kestrix::Sim
