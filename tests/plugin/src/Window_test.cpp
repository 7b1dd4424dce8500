#include "Window.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "AboutWindow.h"
#include "LogCapture.h"
#include "Messages.h"
#include "PreferencesWindow.h"
#include "SimClientFixture.h"
#include "TransferManagerWindow.h"

using CorvaneTest::LogCapture;
using CorvaneTest::RecordedRequest;
using Kestrix::Web::AboutWindow;
using Kestrix::Web::kErrorKestrixRequest;
using Kestrix::Web::PreferencesWindow;
using Kestrix::Web::TransferManagerWindow;
using Kestrix::Web::Window;

namespace {

class WindowTest : public CorvaneTest::SimClientTest {};

TEST_F(WindowTest, EachWindowIsRequestedWithoutVersionPrefix) {
    ASSERT_TRUE(startSim()) << _sim.error();
    std::unique_ptr<Window> windows[] = {std::make_unique<AboutWindow>(),
                                         std::make_unique<PreferencesWindow>(),
                                         std::make_unique<TransferManagerWindow>()};
    for (const auto& window : windows) EXPECT_TRUE(window->show("")) << window->name();

    std::vector<std::string> lines;
    for (const RecordedRequest& request : allRequests()) {
        if (request.target.compare(0, 9, "/windows/") == 0) {
            lines.push_back(request.line);
            EXPECT_EQ("application/vnd.corvane.xferreq+xml", request.header("Content-Type"));
            EXPECT_EQ("", request.body);
        }
    }
    EXPECT_EQ((std::vector<std::string>{"GET /windows/about/ HTTP/1.1", "GET /windows/preferences/ HTTP/1.1",
                                        "GET /windows/transfer-manager/ HTTP/1.1"}),
              lines);
    const std::string state = _sim.state();
    EXPECT_NE(std::string::npos, state.find("\"about\":1")) << state;
    EXPECT_NE(std::string::npos, state.find("\"transfer-manager\":1")) << state;
}

TEST_F(WindowTest, NotFoundStillCountsAsShown) {
    ASSERT_TRUE(startSim()) << _sim.error();
    AboutWindow about;

    // The argument goes after the name's slash; the client knows no such window.
    EXPECT_TRUE(about.show("extra"));
    ASSERT_EQ(1u, requestsTo("/windows/about/extra").size());
    EXPECT_EQ(std::string::npos, _sim.state().find("\"about\""));
}

TEST_F(WindowTest, NoClientFailsWithoutRequest) {
    LogCapture log;
    PreferencesWindow preferences;

    EXPECT_FALSE(preferences.show(""));
    EXPECT_EQ(1u, log.count("ERR " + kErrorKestrixRequest));
    EXPECT_EQ(0u, log.countPrefix("ERR Error displaying window"));
}

TEST_F(WindowTest, NoAnswerFailsWithWindowError) {
    ASSERT_TRUE(startSim({"--mode", "close", "--mode-path", "/windows/transfer-manager/"})) << _sim.error();
    LogCapture log;
    TransferManagerWindow manager;

    EXPECT_FALSE(manager.show(""));
    EXPECT_EQ(1u, requestsTo("/windows/transfer-manager/").size());
    EXPECT_EQ(1u, log.count("ERR Error displaying window: " + kErrorKestrixRequest));
}

}  // namespace
