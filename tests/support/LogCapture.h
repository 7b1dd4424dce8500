// Collects every log line ("LABEL message", no timestamp) of the process
// while it lives, through the runtime's function sink. Lines can come from
// any thread. One at a time: the sink and the debug levels are process-wide.
// `debugAll` is the all-modules debug level while it lives.
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
            std::lock_guard<std::mutex> lock(mutex());
            lines().clear();
        }
        cv_log_set_function(&LogCapture::collect);
        cv_dbg_set(1);
        cv_dbg_set_all(debugAll);
    }
    ~LogCapture() {
        cv_log_cleanup();
        cv_dbg_set_all(0);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> all() const {
        std::lock_guard<std::mutex> lock(mutex());
        return lines();
    }
    // How many lines are exactly `line` ("ERR Invalid URL: x").
    size_t count(const std::string& line) const {
        const std::vector<std::string> copy = all();
        return static_cast<size_t>(std::count(copy.begin(), copy.end(), line));
    }
    bool has(const std::string& line) const { return count(line) > 0; }
    // The lines that begin with prefix ("ERR "), in order.
    std::vector<std::string> withPrefix(const std::string& prefix) const {
        std::vector<std::string> out;
        for (const std::string& line : all()) {
            if (line.compare(0, prefix.size(), prefix) == 0) out.push_back(line);
        }
        return out;
    }
    size_t countPrefix(const std::string& prefix) const { return withPrefix(prefix).size(); }

private:
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    static std::vector<std::string>& lines() {
        static std::vector<std::string> v;
        return v;
    }
    static void collect(const char* text) {
        std::lock_guard<std::mutex> lock(mutex());
        lines().emplace_back(text);
    }
};

}  // namespace CorvaneTest
