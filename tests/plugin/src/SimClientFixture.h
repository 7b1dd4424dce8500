// A test case that talks to the stand-in local client: a private home with
// nothing cached, the simulator publishing its URL file there, and the
// requests it received (target and body).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "FileSystem.h"
#include "KestrixApp.h"
#include "KestrixSim.h"
#include "ScopedEnv.h"
#include "TempDir.h"

namespace CorvaneTest {

struct RecordedRequest {
    std::string target;  // of the request line
    std::string body;

    explicit RecordedRequest(const std::string& raw) {
        const size_t headEnd = raw.find("\r\n\r\n");
        body = headEnd == std::string::npos ? "" : raw.substr(headEnd + 4);
        const size_t first = raw.find(' ');
        target = raw.substr(first + 1, raw.find(' ', first + 1) - first - 1);
    }
};

class SimClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        resetCaches();
    }
    void TearDown() override {
        _sim.stop();
        resetCaches();
    }
    static void resetCaches() {
        Kestrix::Web::FileSystem::resetCache();
        Kestrix::Web::KestrixApp::resetCache();
    }

    // Starts the simulator with its files in this test's home.
    bool startSim(const std::vector<std::string>& args = {}) {
        KestrixSim::Options options;
        options.args = args;
        options.args.push_back("--quiet");
        options.home = _home.path();
        return _sim.start(options);
    }

    // The requests the simulator received for `target`, oldest first.
    std::vector<RecordedRequest> requestsTo(const std::string& target) const {
        std::vector<RecordedRequest> found;
        for (const std::string& raw : _sim.recordedRequests()) {
            RecordedRequest request(raw);
            if (request.target == target) found.push_back(request);
        }
        return found;
    }
    // The simulator runs in another process: its record file is the only
    // way to see that a request has arrived, so this polls it (bounded).
    bool waitForRequests(const std::string& target, size_t count, int timeoutMs = 10000) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (requestsTo(target).size() < count) {
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

    TempDir _home;
    ScopedEnv _env;
    KestrixSim _sim;
};

}  // namespace CorvaneTest
