// Turning GLib's default main context from a test, as the browser's main
// loop does.
#pragma once

#include <glib.h>

#include <chrono>
#include <functional>
#include <thread>

namespace CorvaneTest {

// Iterates the default main context until `done` holds or `timeoutMs` pass;
// false on time-out.
inline bool pumpUntil(const std::function<bool()>& done, int timeoutMs = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        if (!g_main_context_iteration(nullptr, FALSE))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Runs whatever is ready, so that no test leaves sources to the next one.
inline void drainMainContext() {
    for (int i = 0; i < 10000 && g_main_context_iteration(nullptr, FALSE); ++i) {
    }
}

}  // namespace CorvaneTest
