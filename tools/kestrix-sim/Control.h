// The simulator's run-time switches: how answers are delivered (misbehaviour
// modes), what the exit call answers, the version text, and the record of
// windows the plug-in asked to open. Shared by every connection thread.
#pragma once

#include <map>
#include <mutex>
#include <string>

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

private:
    mutable std::mutex _mutex;
    Behaviour _behaviour;
    int _exitReply;
    std::string _versionText;
    std::map<std::string, int> _windows;
};

}  // namespace Kestrix::Sim
