// Turning GLib's default main context from a test, as the browser's main
// loop does.
#pragma once

#include <functional>

namespace CorvaneTest {

// Iterates the default main context until `done` holds or `timeoutMs` pass;
// false on time-out.
bool pumpUntil(const std::function<bool()>& done, int timeoutMs = 5000);
// Runs whatever is ready, so that no test leaves sources to the next one.
void drainMainContext();

}  // namespace CorvaneTest
