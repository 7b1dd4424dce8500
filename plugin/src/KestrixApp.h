// Static access to the local client: where it publishes its URL and key,
// whether it answers, how to start it and how to ask it to quit.
#pragma once

#include <string>

#include "Url.h"

namespace Kestrix {
namespace Web {

class KestrixApp {
public:
    // The cached base URL, read from the client's URL file when nothing is cached.
    static Url url();
    // The key, read from the URL file on every call.
    static std::string kestrixUUID();
    static int pid();
    static std::string binPath();
    static bool isRunning();
    static bool launch();
    static bool terminate();

    static int launchTimeoutMs();
    static void setLaunchTimeoutMs(int ms);

    // Drops the cached URL and application path (tests start from scratch).
    static void resetCache();
};

// Kills every process of this user named exactly `name`; returns 0.
int KillProcesses(const std::string& name);

}  // namespace Web
}  // namespace Kestrix
