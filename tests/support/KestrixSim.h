// Runs the kestrix-sim program (the stand-in local client) for one test:
// starts it with a private HOME and data folder, waits for it to listen,
// and stops it again. Also talks to it: raw exchanges, its /sim/ control
// calls, and the requests it recorded byte for byte.
//
//   CorvaneTest::KestrixSim sim;
//   ASSERT_TRUE(sim.start({"--mode", "hang"})) << sim.error();
//   CorvaneTest::ScopedEnv env;
//   env.privateHome(sim.home());   // the code under test now finds sim.url() and sim.key()
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
        std::vector<std::string> args;  // extra command-line options, e.g. {"--mode", "slow"}
        std::string home;               // HOME of the simulator; "" : a fresh temporary folder
        bool record = true;             // record requests for recordedRequests()
        int readyTimeoutMs = 10000;
    };

    KestrixSim();
    ~KestrixSim();  // stop()
    KestrixSim(const KestrixSim&) = delete;
    KestrixSim& operator=(const KestrixSim&) = delete;

    // Starts the program and waits (bounded) for its ready line. False, with
    // error() set, when it cannot start, exits or does not get ready in time.
    bool start(const Options& options);
    bool start(const std::vector<std::string>& args = {});

    // SIGTERM, then waits up to `timeoutMs` (SIGKILL after that). True when it
    // exited by itself in time with status 0. Harmless when not running.
    bool stop(int timeoutMs = 5000);
    // Waits up to `timeoutMs` for it to exit on its own. True when it has.
    bool waitForExit(int timeoutMs);
    // Exit status once it has exited normally; -1 while running or after a signal.
    int exitStatus() const { return _exitStatus; }

    const std::string& url() const { return _url; }  // "http://127.0.0.1:PORT"
    unsigned short port() const { return _port; }
    const std::string& key() const { return _key; }  // without the trailing newline
    pid_t pid() const { return _pid; }
    const std::string& home() const { return _home; }
    const std::string& dataDir() const { return _dataDir; }  // ".../Corvane/Corvane Kestrix"
    const std::string& error() const { return _error; }
    // The program, as built.
    static std::string programPath();

    // The recorded requests, each exactly as received, oldest first. The
    // simulator's own /sim/ calls are left out unless `includeControl`.
    std::vector<std::string> recordedRequests(bool includeControl = false) const;

    // Sends `bytes` on a fresh connection and returns everything that comes
    // back until the simulator closes (or `timeoutMs` passes).
    std::string exchangeRaw(const std::string& bytes, int timeoutMs = 10000) const;
    // One well-formed request with the key; returns the whole raw answer.
    std::string request(const std::string& method, const std::string& target, const std::string& body = "",
                        const std::string& contentType = "") const;
    // The status code and the body of a raw answer (0 and "" when it is not HTTP).
    static int statusOf(const std::string& response);
    static std::string bodyOf(const std::string& response);

    // POST /sim/control?QUERY, e.g. "mode=hang&path=/transfers/&times=1". True on 200.
    bool control(const std::string& query) const;

private:
    bool fail(const std::string& message);
    bool reap(bool block);

    std::unique_ptr<TempDir> _ownHome;
    std::string _home;
    std::string _dataDir;
    std::string _recordFile;
    std::string _url;
    std::string _key;
    unsigned short _port = 0;
    pid_t _pid = -1;
    bool _alive = false;
    int _exitStatus = -1;
    std::string _error;
};

}  // namespace CorvaneTest
