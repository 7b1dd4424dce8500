// The simulator's run-time switches: how answers are delivered (misbehaviour
// modes), what the exit call answers, the version text, and the record of
// windows the plug-in asked to open, and the activity answers a test has
// scripted. Shared by every connection thread.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace Kestrix::Sim {

enum class Mode_e {
    Normal,      // a well-formed answer
    Slow,        // a well-formed answer after the delay
    Hang,        // read the request, never answer, hold the connection
    Close,       // read the request, close without answering
    NoLength,    // answer without Content-Length, then close
    Garbage,     // bytes that are not HTTP, then close
    ZeroLength,  // "Content-Length: 0" but the body still follows
    ExtraBytes,  // bytes beyond the announced Content-Length, in the same write
    BadHeader,   // a header line without ": "
    EmptyBody,   // "Content-Length: 0" and the blank line, and no body at all
};

bool parseMode(const std::string& text, Mode_e& mode);
const char* modeName(Mode_e mode);

// What one request gets: the delivery mode and the delay before it.
struct Delivery {
    Mode_e mode = Mode_e::Normal;
    int delayMs = 0;
};

struct Behaviour {
    Mode_e mode = Mode_e::Normal;
    int delayMs = 0;
    std::string path;  // only requests to exactly this path misbehave; "" for all
    int times = -1;    // misbehave this many more times, then back to normal; -1: always
};

class Control {
public:
    Control(const Behaviour& behaviour, int exitReply, const std::string& versionText);

    // The delivery for a request to `path`; counts down `times`.
    Delivery deliveryFor(const std::string& path);

    Behaviour behaviour() const;
    void setBehaviour(const Behaviour& behaviour);
    int exitReply() const;
    void setExitReply(int status);
    std::string versionText() const;
    void setVersionText(const std::string& text);

    void windowOpened(const std::string& name);
    std::map<std::string, int> windowsOpened() const;

    // Queues `body` as the exact answer of the next `times` activity calls,
    // after any answers queued before it.
    void scriptActivity(const std::string& body, int times);
    // Takes the next scripted activity answer; false when none is queued.
    bool nextScriptedActivity(std::string& body);
    // How many activity calls are still to get a scripted answer.
    long long scriptedActivityCount() const;

private:
    mutable std::mutex _mutex;
    Behaviour _behaviour;
    int _exitReply;
    std::string _versionText;
    std::map<std::string, int> _windows;
    std::deque<std::pair<std::string, int>> _scriptedActivity;  // body, calls left
};

}  // namespace Kestrix::Sim
