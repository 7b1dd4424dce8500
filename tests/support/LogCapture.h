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

    // The lines that begin with prefix ("ERR "), in order.
    std::vector<std::string> withPrefix(const std::string& prefix) const {
        std::lock_guard<std::mutex> lock(s_mutex);
        std::vector<std::string> out;
        for (const std::string& line : s_lines)
            if (line.compare(0, prefix.size(), prefix) == 0) out.push_back(line);
        return out;
    }
    size_t countPrefix(const std::string& prefix) const { return withPrefix(prefix).size(); }
    bool has(const std::string& line) const {
        const std::vector<std::string> found = withPrefix(line);
        return std::find(found.begin(), found.end(), line) != found.end();
    }

private:
    static inline std::mutex s_mutex;
    static inline std::vector<std::string> s_lines;
};

}  // namespace CorvaneTest
