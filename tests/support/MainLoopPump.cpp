#include "MainLoopPump.h"

#include <glib.h>

#include <chrono>
#include <thread>

namespace CorvaneTest {

bool pumpUntil(const std::function<bool()>& done, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        if (!g_main_context_iteration(nullptr, FALSE))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void drainMainContext() {
    for (int i = 0; i < 10000 && g_main_context_iteration(nullptr, FALSE); ++i) {
    }
}

}  // namespace CorvaneTest
