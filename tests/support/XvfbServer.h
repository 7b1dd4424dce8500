// A private X server (Xvfb) for one test: it picks a free display number
// itself, and goes away with the object (or with the test process).
//
//   CorvaneTest::XvfbServer xvfb;
//   if (!CorvaneTest::XvfbServer::available()) GTEST_SKIP() << "Xvfb is not installed";
//   ASSERT_TRUE(xvfb.start()) << xvfb.error();
//   Display* display = XOpenDisplay(xvfb.displayName().c_str());
#pragma once

#include <string>

#include "ChildProcess.h"

namespace CorvaneTest {

class XvfbServer {
public:
    // Whether the Xvfb program is installed (Debian: xvfb).
    static bool available();

    XvfbServer() = default;
    ~XvfbServer() { stop(); }
    XvfbServer(const XvfbServer&) = delete;
    XvfbServer& operator=(const XvfbServer&) = delete;

    // One screen of width x height at 24 bits. Waits (bounded) until the
    // server accepts connections. False, with error() set, when it does not.
    bool start(int width = 640, int height = 480, int timeoutMs = 10000);
    void stop();

    // ":N"
    const std::string& displayName() const { return _displayName; }
    const std::string& error() const { return _error; }

private:
    ChildProcess _process;
    std::string _displayName;
    std::string _error;
};

}  // namespace CorvaneTest
