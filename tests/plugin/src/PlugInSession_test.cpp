// Sessions, versions and requests forwarded to a real local client
// (kestrix-sim on loopback).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "Callback.h"
#include "FileSystem.h"
#include "HttpResponse.h"
#include "KestrixApp.h"
#include "KestrixSim.h"
#include "PlugIn.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "Transfer.h"

using Kestrix::Web::Callback;
using Kestrix::Web::FileSystem;
using Kestrix::Web::HttpResponse;
using Kestrix::Web::KestrixApp;
using Kestrix::Web::PlugIn;

namespace {

std::string errorDoc(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}

const std::string kContactError = errorDoc(
    "Error contacting Corvane Kestrix. Ensure that it is running, and not blocked by your firewall or "
    "security policies.");

std::string bodyOfRequest(const std::string& raw) {
    size_t end = raw.find("\r\n\r\n");
    return end == std::string::npos ? "" : raw.substr(end + 4);
}

std::string requestLine(const std::string& raw) {
    return raw.substr(0, raw.find("\r\n"));
}

class Session : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(_sim.start()) << _sim.error();
        usePrivateHome(_sim.home());
    }
    void TearDown() override {
        KestrixApp::resetCache();
        FileSystem::resetCache();
    }
    void usePrivateHome(const std::string& home) {
        _env.privateHome(home);
        KestrixApp::resetCache();
        FileSystem::resetCache();
        KestrixApp::setLaunchTimeoutMs(2000);
    }
    // What reached the client, without the "are you there" probes that
    // every launch check sends first (a version request with no body).
    std::vector<std::string> requests() const {
        std::vector<std::string> out;
        for (const std::string& raw : _sim.recordedRequests())
            if (!isProbe(raw)) out.push_back(raw);
        return out;
    }
    static bool isProbe(const std::string& raw) {
        return requestLine(raw) == "GET /v4/kestrix/version HTTP/1.1" && bodyOfRequest(raw).empty();
    }

    CorvaneTest::KestrixSim _sim;
    CorvaneTest::ScopedEnv _env;
};

TEST_F(Session, VersionsAndBrowserEngines) {
    PlugIn plugin;
    EXPECT_EQ("3.5", plugin.queryVersion());
    EXPECT_EQ("3.5.2.94907", plugin.queryBuildVersion());
    EXPECT_EQ("3.5.2.94907", plugin.queryPluginVersion());
    EXPECT_EQ("Gecko", plugin.queryBrowserEngine(Kestrix::Web::kPlugInHostGecko));
    EXPECT_EQ("MSHTML", plugin.queryBrowserEngine(Kestrix::Web::kPlugInHostMSHTML));
    EXPECT_EQ("WebKit", plugin.queryBrowserEngine(Kestrix::Web::kPlugInHostWebKit));
    EXPECT_EQ("Unknown", plugin.queryBrowserEngine(static_cast<Kestrix::Web::PlugInHostApi_e>(7)));
}

TEST_F(Session, HostBrowserFamilyFollowsTheUserAgentInOrder) {
    PlugIn plugin;
    plugin.setHostBrowser("Mozilla/5.0 (X11) AppleWebKit/537.36 Chrome/90.0 Safari/537.36");
    EXPECT_EQ("chrome", plugin.hostBrowser());
    plugin.setHostBrowser("Mozilla/5.0 (X11; rv:109.0) Gecko/20100101 Firefox/115.0 Chrome Safari");
    EXPECT_EQ("firefox", plugin.hostBrowser());
    plugin.setHostBrowser(
        "Mozilla/5.0 (X11) AppleWebKit/602.1 (KHTML, like Gecko) Version/10.0 Safari/602.1");
    EXPECT_EQ("safari", plugin.hostBrowser());
    plugin.setHostBrowser("Some Odd Browser/1.0");
    EXPECT_EQ("some odd browser/1.0", plugin.hostBrowser());
}

TEST_F(Session, ConfigureReadsItsThreeParametersAndAddsMissingKeys) {
    PlugIn plugin;
    std::map<std::string, std::string> params{{"link-capacity", "abc"}, {"other", "x"}};
    EXPECT_TRUE(plugin.configure(params));
    EXPECT_EQ(0, plugin.linkCapacity());
    EXPECT_EQ(1u, params.count("transfer-icon"));
    EXPECT_EQ(1u, params.count("drop-upload-url"));

    std::map<std::string, std::string> numbers{{"link-capacity", "250"},
                                               {"transfer-icon", "icon.png"},
                                               {"drop-upload-url", "https://example.test/up"}};
    plugin.configure(numbers);
    EXPECT_EQ(250, plugin.linkCapacity());
    EXPECT_EQ("icon.png", plugin.transferIcon());
    EXPECT_EQ("https://example.test/up", plugin.dropUploadUrl());
    std::map<std::string, std::string> empty{{"link-capacity", ""}};
    plugin.configure(empty);
    EXPECT_EQ(250, plugin.linkCapacity());  // an empty value leaves it
}

TEST_F(Session, InitSessionBindsCaretIdsToThePageHostOnce) {
    PlugIn plugin;
    plugin.setPageHostname("portal");
    EXPECT_EQ(errorDoc("Invalid application ID hostname: portal"), plugin.initSession("^portal2", "d"));
    EXPECT_EQ(errorDoc("Invalid application ID hostname: portal"), plugin.initSession("^PORTAL", "d"));
    EXPECT_FALSE(plugin.sessionInitialized());
    EXPECT_EQ("{\"app_id\":\"^portal\"}", plugin.initSession("^portal", "d"));
    EXPECT_TRUE(plugin.sessionInitialized());
    EXPECT_EQ(errorDoc("Session was already initialized"), plugin.initSession("^portal", "d"));
    EXPECT_EQ(errorDoc("Session was already initialized"), plugin.initSession("other", "d"));
    EXPECT_EQ("^portal", plugin.appId());
}

TEST_F(Session, InitSessionInsertsTheIdUnescapedAndStartsPolling) {
    PlugIn plugin;
    plugin.setPageHostname("portal");
    EXPECT_EQ("{\"app_id\":\"a\"b\"}", plugin.initSession("a\"b", "x"));
    // The poller's first request goes out one interval after the start.
    for (int i = 0; i < 40 && requests().empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_FALSE(requests().empty());
    EXPECT_EQ("POST /v4/transfers/activity HTTP/1.1", requestLine(requests()[0]));
    EXPECT_NE(std::string::npos, bodyOfRequest(requests()[0]).find("\"app_id\": \"a\"b\""));
}

TEST_F(Session, SynchronousRequestsSendTheBodyAsGivenOrAnEmptyObject) {
    PlugIn plugin;
    HttpResponse* response = nullptr;
    EXPECT_EQ("", plugin.kestrixHttpRequest("POST", "/v4/custom/thing", "", &response));
    ASSERT_NE(nullptr, response);
    EXPECT_EQ(404, response->statusCode());
    delete response;

    EXPECT_EQ("", plugin.kestrixHttpRequest("GET", "/v4/kestrix/version", "{ \"a\" : 1 }", &response));
    ASSERT_NE(nullptr, response);
    EXPECT_EQ(200, response->statusCode());
    delete response;

    // Each synchronous request first checks that the client answers.
    std::vector<std::string> all = _sim.recordedRequests();
    ASSERT_EQ(4u, all.size());
    EXPECT_TRUE(isProbe(all[0]));
    EXPECT_TRUE(isProbe(all[2]));
    std::vector<std::string> sent = requests();
    ASSERT_EQ(2u, sent.size());
    EXPECT_EQ("POST /v4/custom/thing HTTP/1.1", requestLine(sent[0]));
    EXPECT_EQ("{}", bodyOfRequest(sent[0]));
    EXPECT_NE(std::string::npos, sent[0].find("\r\nContent-Type: application/vnd.corvane.xferreq+json\r\n"));
    EXPECT_EQ("{ \"a\" : 1 }", bodyOfRequest(sent[1]));
}

TEST_F(Session, InvalidBodiesAreNeverSent) {
    PlugIn plugin;
    HttpResponse* response = reinterpret_cast<HttpResponse*>(1);
    std::string result = plugin.kestrixHttpRequest("POST", "/x", "{bad", &response);
    EXPECT_EQ(nullptr, response);
    EXPECT_EQ(0u, result.find("{\"error\":{\"code\":-1,\"user_message\":\"Error parsing JSON: "));
    EXPECT_EQ(
        errorDoc("Invalid argument: paths"),
        plugin.kestrixHttpRequest(
            "POST", "/x", "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\"}}]}", &response));
    EXPECT_TRUE(requests().empty());
}

TEST_F(Session, KestrixVersionIsTheClientsAnswer) {
    PlugIn plugin;
    std::string version = plugin.queryKestrixVersion();
    EXPECT_NE(std::string::npos, version.find("\"version\":\"4.0.0.1\"")) << version;
    ASSERT_EQ(1u, requests().size());
    EXPECT_EQ("GET /v4/kestrix/version HTTP/1.1", requestLine(requests()[0]));
    EXPECT_EQ("{\"corvane_kestrix_settings\":{\"app_id\":\"version request\"}}",
              bodyOfRequest(requests()[0]));
}

TEST_F(Session, KestrixVersionWithAnEmptyAnswerIsAnError) {
    // The launch check's probe and the query itself both get a well-formed
    // 200 with "Content-Length: 0" and no body: the client is there, but
    // says nothing.
    ASSERT_TRUE(_sim.control("mode=empty-body&path=/v4/kestrix/version&times=2"));
    PlugIn plugin;
    EXPECT_EQ("{\"error\":{\"code\":-1,\"user_message\":\"Error retrieving the Corvane Kestrix version\"}}",
              plugin.queryKestrixVersion());
    std::vector<std::string> all = _sim.recordedRequests();
    ASSERT_EQ(2u, all.size());
    EXPECT_TRUE(isProbe(all[0]));
    EXPECT_EQ("{\"corvane_kestrix_settings\":{\"app_id\":\"version request\"}}", bodyOfRequest(all[1]));
    // Both empty answers were used up; the next query gets the real one.
    EXPECT_NE(std::string::npos, plugin.queryKestrixVersion().find("\"version\":\"4.0.0.1\""));
}

TEST_F(Session, WithoutAClientRequestsFailWithTheContactError) {
    _sim.stop();
    CorvaneTest::TempDir emptyHome;
    usePrivateHome(emptyHome.path());
    PlugIn plugin;
    HttpResponse* response = nullptr;
    EXPECT_EQ(kContactError, plugin.kestrixHttpRequest("GET", "/v4/kestrix/version", "", &response));
    EXPECT_EQ(kContactError, plugin.queryKestrixVersion());
    EXPECT_FALSE(plugin.displayAboutWindow());
    // No client URL is known at all: the asynchronous form cannot even build its request.
    EXPECT_EQ(errorDoc("Error creating HTTP request"),
              plugin.kestrixHttpRequestAsync("GET", "/x", "", nullptr));
}

TEST_F(Session, TheAsynchronousFormQueuesWithoutContactingTheClient) {
    // A client that has gone away but left its URL file behind.
    _sim.stop();
    CorvaneTest::KestrixSim gone;
    ASSERT_TRUE(gone.start({"--keep-files"})) << gone.error();
    usePrivateHome(gone.home());
    gone.stop();
    PlugIn plugin;  // init() is not called: the worker never runs
    HttpResponse* response = nullptr;
    EXPECT_EQ("", plugin.kestrixHttpRequestAsync("GET", "/v4/kestrix/version", "", nullptr));
    EXPECT_EQ(kContactError, plugin.kestrixHttpRequest("GET", "/v4/kestrix/version", "", &response));
}

class RecordingCallback : public Callback {
public:
    struct Shared {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> bodies;
        std::vector<std::thread::id> threads;
    };
    explicit RecordingCallback(Shared& shared) : _shared(shared) {}
    void handleCallback(void* subject) override {
        auto* response = static_cast<HttpResponse*>(subject);
        std::lock_guard<std::mutex> lock(_shared.mutex);
        _shared.bodies.push_back(response ? response->data() : "<null>");
        _shared.threads.push_back(std::this_thread::get_id());
        _shared.changed.notify_all();
    }

private:
    Shared& _shared;
};

TEST_F(Session, AsynchronousRequestsAnswerOnTheWorkerInOrder) {
    RecordingCallback::Shared shared;
    {
        PlugIn plugin;
        ASSERT_EQ(0, plugin.init(2000));
        EXPECT_EQ("", plugin.kestrixHttpRequestAsync("GET", "/v4/kestrix/version", "",
                                                     new RecordingCallback(shared)));
        EXPECT_EQ("",
                  plugin.kestrixHttpRequestAsync("POST", "/nowhere", "{}", new RecordingCallback(shared)));
        EXPECT_EQ(errorDoc("Invalid application ID hostname: h"), [&] {
            plugin.setPageHostname("h");
            return plugin.kestrixHttpRequestAsync("POST", "/x",
                                                  "{\"corvane_kestrix_settings\":{\"app_id\":\"^evil\"}}",
                                                  new RecordingCallback(shared));
        }());
        std::unique_lock<std::mutex> lock(shared.mutex);
        ASSERT_TRUE(shared.changed.wait_for(lock, std::chrono::seconds(20),
                                            [&] { return shared.bodies.size() == 2; }));
    }
    EXPECT_NE(std::string::npos, shared.bodies[0].find("\"version\""));
    EXPECT_NE(std::string::npos, shared.bodies[1].find("Not found: /nowhere"));
    EXPECT_NE(std::this_thread::get_id(), shared.threads[0]);
    EXPECT_EQ(2u, shared.bodies.size());  // the refused one never ran
}

std::string xferreqOf(const std::string& raw) {
    return bodyOfRequest(raw);
}

TEST_F(Session, DownloadsNeedTheChosenFolderAndConsumeIt) {
    CorvaneTest::TempDir files;
    std::string source = files.write("remote/a b.txt", "payload");
    std::string chosen = files.mkdir("chosen");
    PlugIn plugin;

    EXPECT_FALSE(plugin.startDownloadToPath(source, chosen));  // nothing chosen yet
    EXPECT_TRUE(requests().empty());

    plugin.setLastSelectedPath(chosen);
    EXPECT_FALSE(plugin.startDownloadToPath(source, chosen + "X"));
    EXPECT_EQ(chosen, plugin.lastSelectedPath());  // a refusal does not consume it
    EXPECT_TRUE(plugin.startDownloadToPath(source, chosen));
    EXPECT_EQ("", plugin.lastSelectedPath());
    EXPECT_FALSE(plugin.startDownloadToPath(source, chosen));  // consumed

    ASSERT_EQ(1u, requests().size());
    EXPECT_EQ("POST /transfers/ HTTP/1.1", requestLine(requests()[0]));
    EXPECT_NE(std::string::npos,
              requests()[0].find("\r\nContent-Type: application/vnd.corvane.xferreq+xml\r\n"));
    EXPECT_EQ("<xferreq xmlns=\"" + Kestrix::Web::Transfer::kXmlNamespace + "\"><src>" + source +
                  "</src><dest>file://" + chosen + "</dest></xferreq>",
              xferreqOf(requests()[0]));

    // Without a destination nothing is checked and no <dest> is sent.
    EXPECT_TRUE(plugin.startDownload("/remote/x&y.txt"));
    ASSERT_EQ(2u, requests().size());
    EXPECT_EQ("<xferreq xmlns=\"" + Kestrix::Web::Transfer::kXmlNamespace +
                  "\"><src>/remote/x&amp;y.txt</src></xferreq>",
              xferreqOf(requests()[1]));
}

TEST_F(Session, UploadsSendFileUrlsAndListsStayUntilCleared) {
    PlugIn plugin;
    plugin.setLastSelectedPath("/somewhere");
    plugin.addToUploadList("C:\\up\\one.txt");
    plugin.addToUploadList("/up/two.txt");
    // One path nobody chose refuses the whole list, and nothing is sent.
    PlugIn::addToApprovedFileList({"C:/up/one.txt"});
    EXPECT_FALSE(plugin.startListUploadToURL("https://server.test/in"));
    EXPECT_TRUE(requests().empty());
    PlugIn::addToApprovedFileList({"/up/two.txt"});
    EXPECT_TRUE(plugin.startListUploadToURL("https://server.test/in"));
    EXPECT_EQ("", plugin.lastSelectedPath());  // every upload clears it
    EXPECT_EQ(2u, plugin.uploadList().size());
    plugin.clearUploadList();
    EXPECT_TRUE(plugin.uploadList().empty());
    ASSERT_EQ(1u, requests().size());
    EXPECT_EQ("<xferreq xmlns=\"" + Kestrix::Web::Transfer::kXmlNamespace +
                  "\"><src>file://C:/up/one.txt</src><src>file:///up/two.txt</src>"
                  "<dest>https://server.test/in</dest></xferreq>",
              xferreqOf(requests()[0]));
}

TEST_F(Session, WindowsAreOpenedWithoutTheVersionPrefix) {
    PlugIn plugin;
    EXPECT_TRUE(plugin.displayAboutWindow());
    EXPECT_TRUE(plugin.displayPreferencesWindow());
    EXPECT_TRUE(plugin.displayTransferManager());
    std::vector<std::string> sent = requests();
    ASSERT_EQ(3u, sent.size());
    EXPECT_EQ("GET /windows/about/ HTTP/1.1", requestLine(sent[0]));
    EXPECT_EQ("GET /windows/preferences/ HTTP/1.1", requestLine(sent[1]));
    EXPECT_EQ("GET /windows/transfer-manager/ HTTP/1.1", requestLine(sent[2]));
}

TEST_F(Session, DestructionStopsAndJoinsBothThreads) {
    for (int i = 0; i < 3; ++i) {
        PlugIn plugin;
        ASSERT_EQ(0, plugin.init(2000));
        EXPECT_EQ("{\"app_id\":\"x\"}", plugin.initSession("x", "d"));
    }
    // Nothing to check beyond getting here: a thread left running or a
    // failed join would hang or be reported by the sanitizers.
    SUCCEED();
}

}  // namespace
