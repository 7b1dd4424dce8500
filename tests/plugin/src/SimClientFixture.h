// A test case that talks to the stand-in local client: a private home with
// nothing cached, the simulator publishing its URL file there on demand,
// and the requests it received, split into request line, headers and body.
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
    std::string line;  // "POST /transfers/ HTTP/1.1"
    std::string target;
    std::vector<std::string> headers;  // "Name: value", in the order sent
    std::string body;

    explicit RecordedRequest(const std::string& raw) {
        const size_t headEnd = raw.find("\r\n\r\n");
        const std::string head = raw.substr(0, headEnd);
        body = headEnd == std::string::npos ? "" : raw.substr(headEnd + 4);
        size_t pos = 0;
        for (;;) {
            const size_t end = head.find("\r\n", pos);
            const std::string l = head.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
            if (pos == 0)
                line = l;
            else
                headers.push_back(l);
            if (end == std::string::npos) break;
            pos = end + 2;
        }
        const size_t first = line.find(' ');
        const size_t second = line.find(' ', first + 1);
        if (first != std::string::npos)
            target =
                line.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
    }

    // The value of the first header with this name, "" when there is none.
    std::string header(const std::string& name) const {
        for (const std::string& h : headers) {
            if (h.compare(0, name.size() + 2, name + ": ") == 0) return h.substr(name.size() + 2);
        }
        return "";
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
    std::vector<RecordedRequest> allRequests() const {
        std::vector<RecordedRequest> found;
        for (const std::string& raw : _sim.recordedRequests()) found.emplace_back(raw);
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
