// Runs the kestrix-sim program (the stand-in local client) for one test in
// a private HOME, until destruction; controls it and reads what it received.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace CorvaneTest {

class TempDir;

class KestrixSim {
public:
    struct Options {
        std::vector<std::string> args;  // extra command-line options, e.g. {"--mode", "hang"}
        std::string home;               // HOME of the simulator; "": a fresh temporary folder
    };

    KestrixSim() = default;
    ~KestrixSim() { stop(); }
    KestrixSim(const KestrixSim&) = delete;
    KestrixSim& operator=(const KestrixSim&) = delete;

    // Starts the program and waits (bounded) for its ready line; false, with
    // error() set, when it does not get ready.
    bool start(const Options& options = {});
    // SIGTERM, then SIGKILL after 5 s. True when it exited by itself with 0.
    bool stop();

    unsigned short port() const { return _port; }
    const std::string& key() const { return _key; }  // without the trailing newline
    pid_t pid() const { return _pid; }
    const std::string& home() const { return _home; }
    const std::string& error() const { return _error; }

    // The recorded requests but its own /sim/ calls, exactly as received.
    std::vector<std::string> recordedRequests() const;
    // One request with the key on a fresh connection; the whole raw answer.
    std::string request(const std::string& method, const std::string& target,
                        const std::string& body = "") const;
    // POST /sim/control?QUERY, e.g. "mode=hang&path=/x&times=1". True on 200.
    bool control(const std::string& query) const;

private:
    std::unique_ptr<TempDir> _ownHome;
    std::string _home, _recordFile, _key, _error;
    unsigned short _port = 0;
    pid_t _pid = -1;
};

}  // namespace CorvaneTest
