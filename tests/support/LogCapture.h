// Collects the process's log lines ("LABEL message") from any thread while
// it lives, at all-modules debug level `debugAll`. One at a time.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "cv_log.h"

namespace CorvaneTest {

class LogCapture {
public:
    explicit LogCapture(unsigned debugAll = 0) {
        cv_log_cleanup();
        {
            std::lock_guard<std::mutex> lock(s_mutex);
            s_lines.clear();
        }
        cv_log_set_function([](const char* text) {
            std::lock_guard<std::mutex> lock(s_mutex);
            s_lines.emplace_back(text);
        });
        cv_dbg_set(1);
        cv_dbg_set_all(debugAll);
    }
    ~LogCapture() {
        cv_log_cleanup();
        cv_dbg_set_all(0);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // How many lines begin with prefix ("ERR ").
    size_t countPrefix(const std::string& prefix) const {
        std::lock_guard<std::mutex> lock(s_mutex);
        return std::count_if(s_lines.begin(), s_lines.end(),
                             [&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
    }
    bool has(const std::string& line) const {
        std::lock_guard<std::mutex> lock(s_mutex);
        return std::find(s_lines.begin(), s_lines.end(), line) != s_lines.end();
    }

private:
    static inline std::mutex s_mutex;
    static inline std::vector<std::string> s_lines;
};

}  // namespace CorvaneTest
