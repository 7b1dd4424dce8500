// Runs the kestrix-sim program (the stand-in local client) for one test,
// in the test's HOME, until destruction, and reads what it received.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace CorvaneTest {

class KestrixSim {
public:
    KestrixSim() = default;
    ~KestrixSim() { stop(); }
    KestrixSim(const KestrixSim&) = delete;
    KestrixSim& operator=(const KestrixSim&) = delete;

    // Starts the program with extra options (e.g. {"--mode", "hang"}) and
    // waits (bounded) for its ready line; false, with error() set, when it
    // does not get ready.
    bool start(const std::vector<std::string>& args = {});
    // True when it exited with 0.
    bool stop();

    unsigned short port() const { return _port; }
    pid_t pid() const { return _pid; }
    const std::string& error() const { return _error; }

    // The request line of each request received, in order.
    std::vector<std::string> requestLines() const;

private:
    std::string _recordFile, _error;
    unsigned short _port = 0;
    pid_t _pid = -1;
};

}  // namespace CorvaneTest
