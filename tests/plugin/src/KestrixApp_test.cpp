#include "KestrixApp.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "ClientTestSupport.h"
#include "FileSystem.h"
#include "HttpRequest.h"
#include "KestrixSim.h"
#include "PlatformUtils.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "Utils.h"

extern char** environ;

using CorvaneTest::ClientProcessGuard;
using CorvaneTest::KestrixSim;
using CorvaneTest::LogFileCapture;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
using Kestrix::Web::FileSystem;
using Kestrix::Web::KestrixApp;
using Kestrix::Web::PlatformUtils::getKestrixPid;

namespace {

const char kExitBody[] = "{'agent':'Corvane.Kestrix', 'message' : 'Installing update!'}";

// Every case runs in a private home, with nothing cached.
class KestrixAppTest : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        resetCaches();
    }
    void TearDown() override {
        resetCaches();
        KestrixApp::setLaunchTimeoutMs(20000);
    }
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

// The stand-in client installed where binPath() looks: a script named
// corvanekestrix that becomes the simulator, under the same name.
class KestrixLaunchTest : public KestrixAppTest {
protected:
    // Writes the script into `folder` (made below the home) and names the
    // folder in the client's path file. `environment` is put before the exec.
    std::string installClient(const std::string& folder, const std::string& environment,
                              const std::string& simArgs) {
        // The simulator is run through a link named like the client, so the
        // process carries the client's name from its first instruction on:
        // the launcher's process check must never see it under another name.
        const std::string link = _home.mkdir(folder + "/.sim") + "/corvanekestrix";
        std::filesystem::create_symlink(KestrixSim::programPath(), link);
        const std::string script = _home.write(
            folder + "/corvanekestrix", "#!/bin/sh\n" + environment + " exec '" + link +
                                            "' --process-name corvanekestrix --quiet " + simArgs + "\n");
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        _home.write(".local/share/Corvane/Corvane Kestrix/etc/corvanekestrix.path",
                    _home.path() + "/" + folder + "\n");
        return script;
    }
    // A client that runs but publishes its URL in another home, so it never answers here.
    std::string installMuteClient(const std::string& simArgs = "") {
        return installClient("apps", "XDG_DATA_HOME='" + _elsewhere.path() + "'", simArgs);
    }
    // Kills whatever client a launch left running once the test ends.
    void killLaunchedClient() {
        const int pid = getKestrixPid();
        if (pid > 0) {
            kill(pid, SIGKILL);
            ClientProcessGuard::reap(pid);
        }
    }

    ClientProcessGuard _guard;  // constructed first, released last
    TempDir _elsewhere;
};

long long msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

}  // namespace

TEST_F(KestrixAppTest, UrlKeyAndPidComeFromTheClientFiles) {
    LogFileCapture log;
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim)) << sim.error();

    const Kestrix::Web::Url url = KestrixApp::url();
    EXPECT_EQ("127.0.0.1", url.host);
    EXPECT_EQ(sim.port(), url.port(0));
    EXPECT_EQ(sim.key() + "\n", KestrixApp::kestrixUUID()) << "the key keeps its trailing newline";
    EXPECT_EQ(sim.pid(), KestrixApp::pid());
    EXPECT_TRUE(KestrixApp::isRunning());

    EXPECT_TRUE(log.has("DBG Reading Corvane Kestrix URL from " + urlFile())) << log.text();
    EXPECT_NE(std::string::npos,
              log.text().find("DBG Read Corvane Kestrix URL: " + sim.url() + "\n" + sim.key() + "\n"))
        << "the whole file is the URL's text";
    EXPECT_TRUE(log.has("DBG Reading Corvane Kestrix UUID from " + urlFile()));
    EXPECT_TRUE(log.has("DBG Kestrix UUID: " + sim.key()));
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
    LogFileCapture log;
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

    LogFileCapture log;
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

    LogFileCapture log;
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

TEST_F(KestrixAppTest, BinPathSearchesTheConfiguredFolderThenTheDefaults) {
    LogFileCapture log;
    EXPECT_EQ("", KestrixApp::binPath());
    EXPECT_TRUE(log.has("ERR Failed to determine Corvane Kestrix executable path")) << log.text();

    const std::string local = _home.write(".local/bin/corvanekestrix", "#!/bin/sh\n");
    EXPECT_EQ(local, KestrixApp::binPath()) << "no path file: ~/.local/bin";
    EXPECT_TRUE(log.has("LOG Corvane Kestrix executable path: " + local));

    const std::string configured = _home.write("Corvane Apps/corvanekestrix", "#!/bin/sh\n");
    _home.write(".local/share/Corvane/Corvane Kestrix/etc/corvanekestrix.path",
                _home.path() + "/Corvane Apps\nrest\n");
    EXPECT_EQ(local, KestrixApp::binPath()) << "cached after the first success";
    KestrixApp::resetCache();
    EXPECT_EQ(configured, KestrixApp::binPath());
    EXPECT_TRUE(log.has("DBG Kestrix path in corvanekestrix.path: " + _home.path() + "/Corvane Apps"));

    // The configured folder replaces ~/.local/bin in the search.
    std::filesystem::remove(configured);
    KestrixApp::resetCache();
    EXPECT_EQ("", KestrixApp::binPath());
}

TEST_F(KestrixLaunchTest, LaunchReturnsAtOnceWhenTheClientAnswers) {
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim)) << sim.error();
    LogFileCapture log;
    EXPECT_TRUE(KestrixApp::launch());
    EXPECT_EQ(0u, log.countPrefix("LOG Launching")) << log.text();
}

TEST_F(KestrixLaunchTest, LaunchWithoutAClientToStartFails) {
    LogFileCapture log;
    EXPECT_FALSE(KestrixApp::launch());
    EXPECT_TRUE(log.has("ERR Failed to determine Corvane Kestrix executable path"));
    EXPECT_EQ(0u, log.countPrefix("LOG Launching")) << log.text();
}

TEST_F(KestrixLaunchTest, LaunchStartsTheClientAndWaitsForIt) {
    // The announcement is used as a format: "%%" in the path shows as "%".
    // The client takes a moment before it answers, as a real one does, so
    // the launcher's process check sees it start (an instant answer would
    // end the wait before any check).
    const std::string script = installClient("Corvane Apps 100%%", "sleep 0.3;", "");
    const std::string shownScript = _home.path() + "/Corvane Apps 100%/corvanekestrix";
    KestrixApp::setLaunchTimeoutMs(5000);

    LogFileCapture log;
    const auto start = std::chrono::steady_clock::now();
    const bool launched = KestrixApp::launch();
    const long long took = msSince(start);
    const int clientPid = KestrixApp::pid();
    killLaunchedClient();

    EXPECT_TRUE(launched) << log.text();
    EXPECT_LT(took, 5000);
    EXPECT_TRUE(log.has("LOG Launching Corvane Kestrix - Command: \"" + shownScript + "\" >/dev/null 2>&1 &"))
        << log.text();
    EXPECT_TRUE(log.has("LOG Waiting 5000ms for Corvane Kestrix to launch"));
    EXPECT_TRUE(log.has("LOG Corvane Kestrix process started (pid: " + std::to_string(clientPid) + ")"));
    EXPECT_EQ(1u, log.countPrefix("DBG Waited "));
    EXPECT_EQ(0u, log.countPrefix("LOG Warning"));
}

TEST_F(KestrixLaunchTest, LaunchGivesUpAtTheTimeOut) {
    installMuteClient();
    KestrixApp::setLaunchTimeoutMs(300);

    LogFileCapture log;
    const auto start = std::chrono::steady_clock::now();
    const bool launched = KestrixApp::launch();
    const long long took = msSince(start);
    const int clientPid = getKestrixPid();
    killLaunchedClient();

    EXPECT_FALSE(launched);
    EXPECT_GE(took, 300) << "three sleeps of 100 ms";
    EXPECT_LT(took, 3000);
    EXPECT_GT(clientPid, 0) << "the client was left running";
    EXPECT_TRUE(log.has("LOG Waiting 300ms for Corvane Kestrix to launch"));
    EXPECT_EQ(1u, log.countPrefix("LOG Corvane Kestrix process started (pid: ")) << log.text();
    EXPECT_TRUE(log.has("LOG Warning: Timed out waiting for Corvane Kestrix to launch"));
}

TEST_F(KestrixLaunchTest, ZeroTimeOutWarnsAtOnceAfterStartingTheClient) {
    installMuteClient();
    KestrixApp::setLaunchTimeoutMs(0);

    LogFileCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(KestrixApp::launch());
    EXPECT_LT(msSince(start), 100) << "no polling at all";
    EXPECT_TRUE(log.has("LOG Waiting 0ms for Corvane Kestrix to launch"));
    EXPECT_TRUE(log.has("LOG Warning: Timed out waiting for Corvane Kestrix to launch")) << log.text();
    EXPECT_EQ(0u, log.countPrefix("LOG Corvane Kestrix process started"));

    EXPECT_TRUE(CorvaneTest::waitFor([] { return getKestrixPid() > 0; })) << "the client was started anyway";
    killLaunchedClient();
}

TEST_F(KestrixLaunchTest, LaunchNoticesTheClientExiting) {
    installMuteClient("--exit-after-ms 400");
    KestrixApp::setLaunchTimeoutMs(10000);

    LogFileCapture log;
    const auto start = std::chrono::steady_clock::now();
    const bool launched = KestrixApp::launch();
    const long long took = msSince(start);
    killLaunchedClient();

    EXPECT_FALSE(launched);
    EXPECT_LT(took, 5000) << "the wait ends with the process, not the time-out";
    EXPECT_EQ(1u, log.countPrefix("LOG Corvane Kestrix process started (pid: ")) << log.text();
    EXPECT_TRUE(log.has("LOG Warning: Corvane Kestrix process exited"));
    EXPECT_FALSE(log.has("LOG Warning: Timed out waiting for Corvane Kestrix to launch"));
}

TEST_F(KestrixAppTest, TerminateWithoutAClientIsTrue) {
    EXPECT_TRUE(KestrixApp::terminate()) << "no URL";
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim, {"--keep-files"})) << sim.error();
    sim.stop();
    EXPECT_TRUE(KestrixApp::terminate()) << "no answer";
}

TEST_F(KestrixAppTest, TerminateAsksTheClientToExit) {
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim)) << sim.error();
    EXPECT_TRUE(KestrixApp::terminate());
    EXPECT_TRUE(sim.waitForExit(5000));

    const std::vector<std::string> requests = sim.recordedRequests();
    ASSERT_EQ(1u, requests.size());
    const std::string& request = requests[0];
    EXPECT_EQ(0u, request.find("POST /v4/kestrix/exit HTTP/1.1\r\n")) << request;
    EXPECT_NE(std::string::npos, request.find("\r\nContent-Type: application/vnd.corvane.xferreq+json\r\n"));
    const std::string body = std::string("\r\n\r\n") + kExitBody;
    EXPECT_EQ(request.size() - body.size(), request.rfind(body)) << "the body, single quotes and all";
}

TEST_F(KestrixAppTest, TerminateRefusedWith403IsFalse) {
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim, {"--exit-reply", "403"})) << sim.error();
    EXPECT_FALSE(KestrixApp::terminate());
    EXPECT_TRUE(sim.running());
}

TEST_F(KestrixLaunchTest, TerminateWith404KillsEveryClientProcess) {
    KestrixSim sim;
    ASSERT_TRUE(startSim(sim, {"--exit-reply", "404", "--process-name", "corvanekestrix"})) << sim.error();

    // Another stray client, and a bystander under a different name.
    TempDir bin;
    const std::string stray = bin.file("corvanekestrix");
    const std::string bystander = bin.file("corvanekestrix2");
    std::filesystem::copy_file("/bin/sleep", stray);
    std::filesystem::copy_file("/bin/sleep", bystander);
    pid_t strayPid = -1, bystanderPid = -1;
    char* strayArgv[] = {const_cast<char*>(stray.c_str()), const_cast<char*>("30"), nullptr};
    char* bystanderArgv[] = {const_cast<char*>(bystander.c_str()), const_cast<char*>("30"), nullptr};
    ASSERT_EQ(0, posix_spawn(&strayPid, stray.c_str(), nullptr, nullptr, strayArgv, environ));
    ASSERT_EQ(0, posix_spawn(&bystanderPid, bystander.c_str(), nullptr, nullptr, bystanderArgv, environ));
    _guard.killOnExit(bystanderPid);
    ASSERT_TRUE(CorvaneTest::waitFor([&] { return CorvaneTest::processName(strayPid) == "corvanekestrix"; }));

    EXPECT_TRUE(KestrixApp::terminate());

    int status = 0;
    EXPECT_EQ(strayPid, waitpid(strayPid, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    EXPECT_TRUE(sim.waitForExit(5000));
    EXPECT_EQ(-1, sim.exitStatus()) << "killed, not exited";
    EXPECT_TRUE(CorvaneTest::processAlive(bystanderPid));
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
