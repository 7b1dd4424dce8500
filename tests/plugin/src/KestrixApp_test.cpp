#include "KestrixApp.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "ClientTestSupport.h"
#include "FileSystem.h"
#include "HttpRequest.h"
#include "KestrixSim.h"
#include "LogCapture.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "Utils.h"

using CorvaneTest::KestrixSim;
using CorvaneTest::LogCapture;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
using Kestrix::Web::FileSystem;
using Kestrix::Web::KestrixApp;

namespace {

// Every case runs in a private home, with nothing cached.
class KestrixAppTest : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        resetCaches();
    }
    void TearDown() override { resetCaches(); }
    static void resetCaches() {
        FileSystem::resetCache();
        KestrixApp::resetCache();
    }
    std::string dataDir() const { return _home.path() + "/.local/share/Corvane/Corvane Kestrix"; }
    std::string urlFile() const { return dataDir() + "/var/run/http.uri"; }
    // A simulator that publishes its files in this test's home.
    bool startSim(KestrixSim& sim, const std::vector<std::string>& args = {}) {
        KestrixSim::Options options;
        options.args = args;
        options.home = _home.path();
        return sim.start(options);
    }

    TempDir _home;
    ScopedEnv _env;
};

}  // namespace

TEST_F(KestrixAppTest, UrlKeyAndPidComeFromTheClientFiles) {
    LogCapture log(3);
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim)) << sim.error();

    const Kestrix::Web::Url url = KestrixApp::url();
    EXPECT_EQ("127.0.0.1", url.host);
    EXPECT_EQ(sim.port(), url.port(0));
    EXPECT_EQ(sim.key() + "\n", KestrixApp::kestrixUUID()) << "the key keeps its trailing newline";
    EXPECT_EQ(sim.pid(), KestrixApp::pid());
    EXPECT_TRUE(KestrixApp::isRunning());

    EXPECT_TRUE(log.has("DBG Reading Corvane Kestrix URL from " + urlFile())) << log.text();
    EXPECT_TRUE(log.has("DBG Reading Corvane Kestrix UUID from " + urlFile()));
    EXPECT_TRUE(log.has("DBG Kestrix UUID: " + sim.key() + "\n")) << log.text();
}

TEST_F(KestrixAppTest, UrlIsCachedUntilARequestFails) {
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim)) << sim.error();
    ASSERT_EQ(sim.port(), KestrixApp::url().port(0));

    _home.write(".local/share/Corvane/Corvane Kestrix/var/run/http.uri", "http://127.0.0.1:1\nother\n");
    EXPECT_EQ(sim.port(), KestrixApp::url().port(0)) << "no re-read while cached";
    EXPECT_EQ("other\n", KestrixApp::kestrixUUID()) << "the key is read on every call";
}

TEST_F(KestrixAppTest, KeyFileVariants) {
    LogCapture log(3);
    EXPECT_EQ("", KestrixApp::kestrixUUID());
    EXPECT_TRUE(log.has("DBG Failed to read Corvane UUID from " + urlFile())) << log.text();
    EXPECT_EQ("", KestrixApp::url().url);
    EXPECT_TRUE(log.has("DBG Failed to read Corvane Kestrix URL from " + urlFile()));
    EXPECT_EQ(0, KestrixApp::pid());

    _home.write(".local/share/Corvane/Corvane Kestrix/var/run/http.uri", "4a7d0c3e-key-without-newline");
    EXPECT_EQ("4a7d0c3e-key-without-newline", KestrixApp::kestrixUUID()) << "no newline: the whole file";

    _home.write(".local/share/Corvane/Corvane Kestrix/var/run/http.uri", "http://127.0.0.1:9\nk1\nk2");
    EXPECT_EQ("k1\nk2", KestrixApp::kestrixUUID()) << "everything after the first line";
}

TEST_F(KestrixAppTest, IsRunningFindsARestartedClientOnItsNewPortInOneCall) {
    KestrixSim first;
    ASSERT_TRUE(startSim(first)) << first.error();
    ASSERT_EQ(first.port(), KestrixApp::url().port(0));
    ASSERT_TRUE(first.stop());

    KestrixSim second;
    ASSERT_TRUE(startSim(second)) << second.error();
    ASSERT_NE(first.port(), second.port());

    LogCapture log(3);
    EXPECT_TRUE(KestrixApp::isRunning());
    EXPECT_EQ(second.port(), KestrixApp::url().port(0));
    EXPECT_EQ(1u, log.count("DBG Reading Corvane Kestrix URL from " + urlFile())) << log.text();
    EXPECT_EQ(1u, second.recordedRequests().size()) << "one version request reached the new client";
}

TEST_F(KestrixAppTest, StaleUrlFileEndsIsRunningWithoutLooping) {
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim, {"--keep-files"})) << sim.error();
    ASSERT_EQ(sim.port(), KestrixApp::url().port(0));
    sim.stop();

    LogCapture log(3);
    EXPECT_FALSE(KestrixApp::isRunning());
    EXPECT_EQ(1u, log.count("DBG Reading Corvane Kestrix URL from " + urlFile()))
        << "one re-read, then the unchanged port ends it\n"
        << log.text();
    EXPECT_EQ(sim.port(), KestrixApp::url().port(0)) << "the re-read URL is cached again";
}

TEST_F(KestrixAppTest, IsRunningIsFalseWithoutAUrlAndWhenTheFileGoes) {
    EXPECT_FALSE(KestrixApp::isRunning());

    KestrixSim sim;
    ASSERT_TRUE(startSim(sim)) << sim.error();
    ASSERT_TRUE(KestrixApp::isRunning());
    sim.stop();  // a clean exit takes the URL file away
    EXPECT_FALSE(KestrixApp::isRunning());
    EXPECT_EQ("", KestrixApp::url().url);
}

TEST_F(KestrixAppTest, ThreadsShareTheCachedUrlSafely) {
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim, {"--quiet"})) << sim.error();

    std::atomic<bool> stop{false};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i) {
                // A thread may see the URL cleared by another and fail once.
                if (KestrixApp::isRunning()) ++answered;
                std::unique_ptr<Kestrix::Web::HttpRequest> request(
                    Kestrix::Web::Utils::createHttpRequest(Kestrix::Web::kContentTypeJson));
                KestrixApp::url();
            }
        });
    }
    std::thread resetter([&] {
        while (!stop) {
            KestrixApp::resetCache();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (std::thread& t : threads) t.join();
    stop = true;
    resetter.join();

    EXPECT_GT(answered.load(), 0);
    EXPECT_EQ(sim.port(), KestrixApp::url().port(0));
}
