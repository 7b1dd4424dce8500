// Appends every request, exactly as it came off the socket, to a file.
//
// Each entry is a separator line that carries the byte count, the raw bytes,
// and one "\n":
//   "--- kestrix-sim request N: LEN bytes ---\n" RAW "\n"
// The count makes the file readable without guessing, whatever the bytes hold.
#pragma once

#include <mutex>
#include <string>

namespace Kestrix::Sim {

class Recorder {
public:
    Recorder() = default;
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Opens (creates, appends to) the file. An empty path records nothing.
    bool open(const std::string& path, std::string& error);
    void record(const std::string& raw);

private:
    std::mutex _mutex;
    int _fd = -1;
    unsigned long _count = 0;
};

}  // namespace Kestrix::Sim
