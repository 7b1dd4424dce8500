// Tests of kestrix-sim, the stand-in local client, run as a real process and
// spoken to over real sockets on 127.0.0.1.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <yajl/yajl_tree.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KestrixSim.h"
#include "TempDir.h"

extern char** environ;

namespace fs = std::filesystem;
using CorvaneTest::KestrixSim;
using CorvaneTest::readFile;
using CorvaneTest::TempDir;
using Clock = std::chrono::steady_clock;

namespace {

const char kXmlType[] = "application/vnd.corvane.xferreq+xml";
const char kJsonType[] = "application/vnd.corvane.xferreq+json";
const std::vector<std::string> kFastCopy = {"--chunk-bytes", "4096", "--chunk-delay-ms", "1",
                                            "--quiet"};

// A parsed JSON document, freed with it.
class Doc {
public:
    explicit Doc(const std::string& text) {
        char error[256] = "";
        _root = yajl_tree_parse(text.c_str(), error, sizeof(error));
    }
    ~Doc() { yajl_tree_free(_root); }
    Doc(const Doc&) = delete;
    Doc& operator=(const Doc&) = delete;

    bool ok() const { return _root != nullptr; }
    yajl_val get(std::initializer_list<const char*> keys, yajl_val from = nullptr) const {
        std::vector<const char*> path(keys);
        path.push_back(nullptr);
        return yajl_tree_get(from ? from : _root, path.data(), yajl_t_any);
    }
    std::string str(std::initializer_list<const char*> keys, yajl_val from = nullptr) const {
        yajl_val v = get(keys, from);
        return YAJL_IS_STRING(v) ? YAJL_GET_STRING(v) : "";
    }
    long long num(std::initializer_list<const char*> keys, yajl_val from = nullptr) const {
        yajl_val v = get(keys, from);
        return YAJL_IS_INTEGER(v) ? YAJL_GET_INTEGER(v) : -1;
    }
    size_t count(std::initializer_list<const char*> keys) const {
        yajl_val v = get(keys);
        return YAJL_IS_ARRAY(v) ? v->u.array.len : 0;
    }
    yajl_val item(std::initializer_list<const char*> keys, size_t i) const {
        yajl_val v = get(keys);
        return YAJL_IS_ARRAY(v) && i < v->u.array.len ? v->u.array.values[i] : nullptr;
    }

private:
    yajl_val _root = nullptr;
};

std::string activityBody(const std::string& token) {
    return "{\n    \"iteration_token\": \"" + token +
           "\",\n    \"corvane_kestrix_settings\" : {\n        \"app_id\": \"\"\n    }\n}\n";
}

std::string poll(const KestrixSim& sim, const std::string& token) {
    return KestrixSim::bodyOf(sim.request("POST", "/v4/transfers/activity", activityBody(token),
                                          kJsonType));
}

std::string xferreq(const std::vector<std::string>& sources, const std::string& dest) {
    std::string xml = "<xferreq xmlns=\"urn:corvane:xferreq\">";
    for (const auto& s : sources)
        xml += "<src>" + s + "</src>";
    return xml + "<dest>" + dest + "</dest></xferreq>";
}

// Bytes that differ from offset to offset, so a misplaced chunk shows.
std::string patterned(size_t size) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i)
        data[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
    return data;
}

// Polls the activity feed until the transfer `id` reaches a final status.
// Returns the last description seen as a document text ("" on time-out).
std::string waitForTransfer(const KestrixSim& sim, const std::string& id, std::string& status,
                            bool* sawPartialProgress = nullptr) {
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (Clock::now() < deadline) {
        const std::string body = poll(sim, "");
        Doc doc(body);
        for (size_t i = 0; i < doc.count({"transfers"}); ++i) {
            yajl_val t = doc.item({"transfers"}, i);
            if (doc.str({"id"}, t) != id)
                continue;
            status = doc.str({"status"}, t);
            long long written = doc.num({"bytes_written"}, t);
            long long expected = doc.num({"bytes_expected"}, t);
            if (sawPartialProgress && status == "running" && written > 0 && written < expected)
                *sawPartialProgress = true;
            if (status == "completed" || status == "failed")
                return body;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return "";
}

// Opens a connection, sends `bytes`, and reports whether anything came back
// within `waitMs`, and whether the simulator closed the connection.
struct Probe {
    std::string received;
    bool closed = false;
};

Probe probe(unsigned short port, const std::string& bytes, int waitMs) {
    Probe result;
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
        ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        const auto deadline = Clock::now() + std::chrono::milliseconds(waitMs);
        char buffer[4096];
        for (;;) {
            int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                            deadline - Clock::now())
                                            .count());
            pollfd p = {fd, POLLIN, 0};
            if (left <= 0 || ::poll(&p, 1, left) <= 0)
                break;
            ssize_t n = ::recv(fd, buffer, sizeof(buffer), 0);
            if (n <= 0) {
                result.closed = true;
                break;
            }
            result.received.append(buffer, static_cast<size_t>(n));
        }
    }
    ::close(fd);
    return result;
}

std::string keyedGet(const KestrixSim& sim, const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nAuthorization-key: " + sim.key() +
           "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
}

std::string headerBlock(const std::string& response) {
    return response.substr(0, response.find("\r\n\r\n") + 2);
}

// The simulator run by hand, with stdout and stderr going to files of its
// home, to see everything it prints (the shared helper reads stdout itself
// and leaves stderr to the test's own).
class Printing {
public:
    explicit Printing(std::vector<std::string> args) {
        args.insert(args.begin(), KestrixSim::programPath());
        std::vector<std::string> env = {"HOME=" + _home.path(),
                                        "XDG_DATA_HOME=" + _home.path() + "/data"};
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string text = *entry;
            if (text.compare(0, 5, "HOME=") != 0 && text.compare(0, 14, "XDG_DATA_HOME=") != 0)
                env.push_back(text);
        }
        std::vector<char*> argv, envp;
        for (auto& arg : args)
            argv.push_back(arg.data());
        argv.push_back(nullptr);
        for (auto& entry : env)
            envp.push_back(entry.data());
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outFile().c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errFile().c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (posix_spawn(&_pid, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0)
            _pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        // Ready once the line is complete: the port is on it, the key in the URL file.
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (_pid > 0 && readFile(outFile()).find('\n') == std::string::npos &&
               Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::string line = readFile(outFile());
        const size_t colon = line.rfind(':');
        if (colon != std::string::npos && line.find('\n') != std::string::npos)
            _port = static_cast<unsigned short>(std::atoi(line.c_str() + colon + 1));
        const std::string uri =
            readFile(_home.path() + "/data/Corvane/Corvane Kestrix/var/run/http.uri");
        _key = uri.substr(uri.find('\n') + 1);
        while (!_key.empty() && _key.back() == '\n')
            _key.pop_back();
    }
    ~Printing() {
        if (_pid > 0) {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
    }

    unsigned short port() const { return _port; }
    std::string out() const { return readFile(outFile()); }
    std::string err() const { return readFile(errFile()); }
    const std::string& home() const { return _home.path(); }

    Probe request(const std::string& method, const std::string& path, const std::string& body = "",
                  const std::string& type = "") const {
        return probe(_port,
                     method + " " + path + " HTTP/1.1\r\nAuthorization-key: " + _key +
                         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
                         (type.empty() ? "" : "Content-Type: " + type + "\r\n") + "\r\n" + body,
                     5000);
    }
    // True when it exited by itself with status 0 in time.
    bool waitForExit(int timeoutMs) {
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        int status = 0;
        while (Clock::now() < deadline) {
            if (waitpid(_pid, &status, WNOHANG) == _pid) {
                _pid = -1;
                return WIFEXITED(status) && WEXITSTATUS(status) == 0;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

private:
    std::string outFile() const { return _home.path() + "/stdout.txt"; }
    std::string errFile() const { return _home.path() + "/stderr.txt"; }

    TempDir _home;
    pid_t _pid = -1;
    unsigned short _port = 0;
    std::string _key;
};

}  // namespace

// --- announcing itself ------------------------------------------------------

TEST(KestrixSimFiles, WritesUrlKeyAndPidAndRemovesThemOnSigterm) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start()) << sim.error();
    EXPECT_EQ(sim.url(), "http://127.0.0.1:" + std::to_string(sim.port()));
    EXPECT_NE(sim.port(), 0);
    ASSERT_EQ(sim.key().size(), 36u);
    for (size_t dash : {8, 13, 18, 23})
        EXPECT_EQ(sim.key()[dash], '-');
    EXPECT_EQ(readFile(sim.uriFile()), sim.url() + "\n" + sim.key() + "\n");
    EXPECT_EQ(readFile(sim.pidFile()), std::to_string(sim.pid()) + "\n");
    EXPECT_EQ(sim.dataDir(), sim.home() + "/.local/share/Corvane/Corvane Kestrix");

    EXPECT_TRUE(sim.stop());
    EXPECT_FALSE(fs::exists(sim.uriFile()));
    EXPECT_FALSE(fs::exists(sim.pidFile()));
}

TEST(KestrixSimFiles, FixedKeyWithoutNewlineAndFixedPort) {
    // A port that was free a moment ago.
    KestrixSim probeSim;
    ASSERT_TRUE(probeSim.start()) << probeSim.error();
    const unsigned short port = probeSim.port();
    ASSERT_TRUE(probeSim.stop());

    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--key", "fixed-key", "--no-key-newline", "--port",
                           std::to_string(port)}))
        << sim.error();
    EXPECT_EQ(sim.port(), port);
    EXPECT_EQ(sim.key(), "fixed-key");
    EXPECT_EQ(readFile(sim.uriFile()), "http://127.0.0.1:" + std::to_string(port) + "\nfixed-key");
}

TEST(KestrixSimFiles, FollowsXdgDataHomeAndFallsBackToHome) {
    TempDir elsewhere;
    KestrixSim sim;
    KestrixSim::Options options;
    options.xdgDataHome = elsewhere.path();
    ASSERT_TRUE(sim.start(options)) << sim.error();
    EXPECT_TRUE(fs::exists(elsewhere.path() + "/Corvane/Corvane Kestrix/var/run/http.uri"));
    EXPECT_FALSE(fs::exists(sim.home() + "/.local/share/Corvane"));
    ASSERT_TRUE(sim.stop());

    KestrixSim::Options noXdg;
    noXdg.unsetXdgDataHome = true;
    ASSERT_TRUE(sim.start(noXdg)) << sim.error();
    EXPECT_TRUE(fs::exists(sim.home() + "/.local/share/Corvane/Corvane Kestrix/var/run/http.uri"));
}

TEST(KestrixSimFiles, LeavesAnotherInstancesFilesAlone) {
    TempDir home;
    KestrixSim first, second;
    KestrixSim::Options options;
    options.home = home.path();
    ASSERT_TRUE(first.start(options)) << first.error();
    ASSERT_TRUE(second.start(options)) << second.error();
    ASSERT_TRUE(first.stop());
    EXPECT_EQ(readFile(second.uriFile()), second.url() + "\n" + second.key() + "\n");
}

TEST(KestrixSimFiles, RefusesBadOptions) {
    KestrixSim sim;
    EXPECT_FALSE(sim.start({"--mode", "sideways"}));
    EXPECT_FALSE(sim.running());
    EXPECT_EQ(sim.exitStatus(), 2);
}

// --- the key -----------------------------------------------------------------

TEST(KestrixSimKey, RequestsWithoutTheRightKeyAre403Everywhere) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    for (const std::string path : {"/v4/kestrix/version", "/windows/about/", "/no/such/path"}) {
        std::string noKey = sim.exchangeRaw("GET " + path + " HTTP/1.1\r\nContent-Length: 0\r\n\r\n");
        EXPECT_EQ(KestrixSim::statusOf(noKey), 403) << path;
        Doc doc(KestrixSim::bodyOf(noKey));
        EXPECT_EQ(doc.num({"error", "code"}), 403);
        std::string wrong = sim.exchangeRaw("GET " + path + " HTTP/1.1\r\nAuthorization-key: " +
                                            sim.key() + "x\r\n\r\n");
        EXPECT_EQ(KestrixSim::statusOf(wrong), 403) << path;
    }
    // A window asked for without the key was not opened.
    Doc state(sim.state());
    EXPECT_EQ(state.num({"windows", "about"}), -1);
}

TEST(KestrixSimKey, KeyWithTheFilesTrailingNewlineIsAcceptedUnlessStrict) {
    // The plug-in sends the key file's text after the URL line as it is, so
    // with a trailing newline the header line ends in "\n\r\n".
    const auto quirky = [](const KestrixSim& sim) {
        return "GET /v4/kestrix/version HTTP/1.1\r\nAuthorization-key: " + sim.key() +
               "\n\r\nConnection: close\r\nContent-Length: 0\r\nUser-Agent: Corvane Kestrix\r\n\r\n";
    };
    KestrixSim lenient;
    ASSERT_TRUE(lenient.start({"--quiet"})) << lenient.error();
    EXPECT_EQ(KestrixSim::statusOf(lenient.exchangeRaw(quirky(lenient))), 200);

    KestrixSim strict;
    ASSERT_TRUE(strict.start({"--quiet", "--strict-key"})) << strict.error();
    EXPECT_EQ(KestrixSim::statusOf(strict.exchangeRaw(quirky(strict))), 403);
    EXPECT_EQ(KestrixSim::statusOf(strict.request("GET", "/v4/kestrix/version")), 200);
}

// --- version, exit, windows, unknown paths ----------------------------------

TEST(KestrixSimEndpoints, VersionDocumentAndItsText) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--version-text", "4.9.1.77"})) << sim.error();
    std::string response = sim.request("GET", "/v4/kestrix/version",
                                       "{\"corvane_kestrix_settings\":{\"app_id\":\"version request\"}}",
                                       kJsonType);
    EXPECT_EQ(KestrixSim::statusOf(response), 200);
    EXPECT_NE(headerBlock(response).find("Content-Type: application/json\r\n"), std::string::npos);
    Doc doc(KestrixSim::bodyOf(response));
    ASSERT_TRUE(doc.ok());
    EXPECT_EQ(doc.str({"version"}), "4.9.1.77");
    EXPECT_EQ(doc.str({"api_version"}), "4");
    EXPECT_EQ(doc.str({"name"}), "Corvane Kestrix");

    ASSERT_TRUE(sim.control("version_text=5.0"));
    EXPECT_EQ(Doc(KestrixSim::bodyOf(sim.request("GET", "/v4/kestrix/version"))).str({"version"}),
              "5.0");
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/v4/kestrix/version")), 405);
}

TEST(KestrixSimEndpoints, ExitAnswers200ThenExitsAndRemovesItsFiles) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    std::string response = sim.request("POST", "/v4/kestrix/exit",
                                       "{'agent':'Corvane.Kestrix', 'message' : 'Installing update!'}",
                                       kJsonType);
    EXPECT_EQ(KestrixSim::statusOf(response), 200);
    ASSERT_TRUE(sim.waitForExit(5000));
    EXPECT_EQ(sim.exitStatus(), 0);
    EXPECT_FALSE(fs::exists(sim.uriFile()));
    EXPECT_FALSE(fs::exists(sim.pidFile()));
}

TEST(KestrixSimEndpoints, ExitCanBeRefusedWith404Or403AndTheSimStaysUp) {
    for (const std::string status : {"404", "403"}) {
        KestrixSim sim;
        ASSERT_TRUE(sim.start({"--quiet", "--exit-reply", status})) << sim.error();
        EXPECT_EQ(std::to_string(KestrixSim::statusOf(sim.request("POST", "/v4/kestrix/exit"))),
                  status);
        EXPECT_FALSE(sim.waitForExit(300));
        EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/v4/kestrix/version")), 200);
        EXPECT_TRUE(fs::exists(sim.uriFile()));
    }
    // And switched at run time.
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    ASSERT_TRUE(sim.control("exit_reply=404"));
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/v4/kestrix/exit")), 404);
    ASSERT_TRUE(sim.control("exit_reply=200"));
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/v4/kestrix/exit")), 200);
    EXPECT_TRUE(sim.waitForExit(5000));
}

TEST(KestrixSimEndpoints, ExitAfterMsAndKeepFiles) {
    KestrixSim sim;
    const auto started = Clock::now();
    ASSERT_TRUE(sim.start({"--quiet", "--exit-after-ms", "300"})) << sim.error();
    ASSERT_TRUE(sim.waitForExit(5000));
    EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(300));
    EXPECT_FALSE(fs::exists(sim.uriFile()));

    // A client that vanishes without cleaning up leaves a stale URL behind.
    ASSERT_TRUE(sim.start({"--quiet", "--exit-after-ms", "100", "--keep-files"})) << sim.error();
    ASSERT_TRUE(sim.waitForExit(5000));
    EXPECT_EQ(readFile(sim.uriFile()), sim.url() + "\n" + sim.key() + "\n");
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/v4/kestrix/version")), 0);
}

TEST(KestrixSimEndpoints, WindowsAreOpenedAndCounted) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    for (const std::string name : {"about", "preferences", "transfer-manager", "about"}) {
        std::string response = sim.request("GET", "/windows/" + name + "/", "", kXmlType);
        EXPECT_EQ(KestrixSim::statusOf(response), 200) << name;
        EXPECT_EQ(Doc(KestrixSim::bodyOf(response)).str({"window"}), name);
    }
    // Only the exact targets, with their trailing slash, are windows.
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/windows/about")), 404);
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/v4/windows/about/")), 404);
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/windows/about/")), 405);
    Doc state(sim.state());
    EXPECT_EQ(state.num({"windows", "about"}), 2);
    EXPECT_EQ(state.num({"windows", "preferences"}), 1);
    EXPECT_EQ(state.num({"windows", "transfer-manager"}), 1);
}

TEST(KestrixSimEndpoints, UnknownPathsAre404WithAJsonError) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    std::string response = sim.request("POST", "/page/supplied?x=\"1\"", "{}", kJsonType);
    EXPECT_EQ(KestrixSim::statusOf(response), 404);
    Doc doc(KestrixSim::bodyOf(response));
    ASSERT_TRUE(doc.ok());
    EXPECT_EQ(doc.num({"error", "code"}), 404);
    EXPECT_EQ(doc.str({"error", "user_message"}), "Not found: /page/supplied");
}

TEST(KestrixSimEndpoints, MalformedRequestsAre400) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw("NONSENSE\r\n\r\n")), 400);
    EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw("GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n")),
              400);
    EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw("GET / HTTP/1.1\r\nNoColonHere\r\n\r\n")), 400);
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/v4/transfers/activity", "{oops", kJsonType)),
              400);
}

TEST(KestrixSimEndpoints, BodyServesFillerWithOrWithoutLengthAndNeverMisbehaves) {
    KestrixSim sim;
    // Every other answer would be garbage: the body call must not be.
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "garbage"})) << sim.error();
    const size_t size = 300 * 1000 + 7;
    const std::string bytes = "/sim/body?bytes=" + std::to_string(size);
    Probe sized = probe(sim.port(), keyedGet(sim, bytes + "&length=1"), 5000);
    EXPECT_TRUE(sized.closed);
    EXPECT_EQ(KestrixSim::statusOf(sized.received), 200);
    const std::string head = headerBlock(sized.received);
    EXPECT_NE(head.find("\r\nContent-Length: " + std::to_string(size) + "\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nContent-Type: application/octet-stream\r\n"), std::string::npos) << head;
    const std::string body = KestrixSim::bodyOf(sized.received);
    ASSERT_EQ(body.size(), size);
    EXPECT_EQ(body.find('\0'), std::string::npos);
    EXPECT_EQ(body.compare(0, 8, "abcdefgh"), 0);
    EXPECT_NE(body.substr(0, 36), body.substr(1, 36));  // not one byte repeated

    Probe unsized = probe(sim.port(), keyedGet(sim, bytes + "&length=0"), 5000);
    EXPECT_TRUE(unsized.closed);
    EXPECT_EQ(KestrixSim::statusOf(unsized.received), 200);
    EXPECT_EQ(headerBlock(unsized.received).find("Content-Length"), std::string::npos);
    EXPECT_EQ(KestrixSim::bodyOf(unsized.received), body);

    const std::string none = sim.exchangeRaw(keyedGet(sim, "/sim/body?bytes=0"));
    EXPECT_NE(headerBlock(none).find("\r\nContent-Length: 0\r\n"), std::string::npos) << none;
    EXPECT_EQ(KestrixSim::bodyOf(none), "");

    for (const std::string query : {"", "?bytes=", "?bytes=-1", "?bytes=1x", "?bytes=67108865",
                                    "?bytes=5&length=2", "?length=1"})
        EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw(keyedGet(sim, "/sim/body" + query))), 400) << query;
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/sim/body?bytes=5")), 405);
    // The key is needed here as everywhere.
    EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw("GET /sim/body?bytes=5 HTTP/1.1\r\n\r\n")), 403);
}

// --- transfers and the activity feed ------------------------------------------

TEST(KestrixSimTransfers, DownloadCopiesTheFileAndShowsProgressInTheFeed) {
    TempDir files;
    const std::string content = patterned(256 * 1024 + 123);
    const std::string source = files.write("remote/big file.bin", content);
    const std::string dest = files.path() + "/downloads/sub";  // not there yet
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--chunk-bytes", "8192", "--chunk-delay-ms", "10"}))
        << sim.error();

    std::string response =
        sim.request("POST", "/transfers/", xferreq({source}, "file://" + dest), kXmlType);
    ASSERT_EQ(KestrixSim::statusOf(response), 200) << response;
    Doc created(KestrixSim::bodyOf(response));
    ASSERT_EQ(created.count({"transfers"}), 1u);
    yajl_val t = created.item({"transfers"}, 0);
    const std::string id = created.str({"id"}, t);
    EXPECT_EQ(created.str({"direction"}, t), "receive");
    EXPECT_EQ(created.str({"destination"}, t), "file://" + dest);

    std::string status;
    bool sawPartial = false;
    std::string last = waitForTransfer(sim, id, status, &sawPartial);
    ASSERT_EQ(status, "completed") << last;
    EXPECT_TRUE(sawPartial) << "no poll saw the copy half done";
    EXPECT_EQ(readFile(dest + "/big file.bin"), content);
    Doc done(last);
    ASSERT_EQ(done.count({"transfers"}), 1u);
    yajl_val d = done.item({"transfers"}, 0);
    EXPECT_EQ(done.num({"bytes_expected"}, d), static_cast<long long>(content.size()));
    EXPECT_EQ(done.num({"bytes_written"}, d), static_cast<long long>(content.size()));
    EXPECT_EQ(done.num({"percentage"}, d), 100);
    EXPECT_EQ(done.num({"files_completed"}, d), 1);
}

TEST(KestrixSimTransfers, TheTokenListsOnlyWhatChangedSince) {
    TempDir files;
    const std::string a = files.write("a.txt", "first");
    const std::string b = files.write("b.txt", "second");
    KestrixSim sim;
    ASSERT_TRUE(sim.start(kFastCopy)) << sim.error();

    Doc before(poll(sim, ""));
    EXPECT_EQ(before.count({"transfers"}), 0u);
    EXPECT_FALSE(before.str({"iteration_token"}).empty());

    Doc first(KestrixSim::bodyOf(sim.request(
        "POST", "/transfers/", xferreq({a}, "file://" + files.path() + "/out"), kXmlType)));
    std::string status;
    waitForTransfer(sim, first.str({"id"}, first.item({"transfers"}, 0)), status);
    ASSERT_EQ(status, "completed");

    // Everything has settled: the token of this answer lists nothing new.
    const std::string token = Doc(poll(sim, "")).str({"iteration_token"});
    Doc unchanged(poll(sim, token));
    EXPECT_EQ(unchanged.count({"transfers"}), 0u);
    EXPECT_EQ(unchanged.str({"iteration_token"}), token);

    // A second transfer: only it shows up against the old token.
    Doc second(KestrixSim::bodyOf(sim.request(
        "POST", "/transfers/", xferreq({b}, "file://" + files.path() + "/out"), kXmlType)));
    const std::string secondId = second.str({"id"}, second.item({"transfers"}, 0));
    waitForTransfer(sim, secondId, status);
    ASSERT_EQ(status, "completed");
    Doc since(poll(sim, token));
    ASSERT_EQ(since.count({"transfers"}), 1u);
    EXPECT_EQ(since.str({"id"}, since.item({"transfers"}, 0)), secondId);
    EXPECT_NE(since.str({"iteration_token"}), token);

    // Empty, foreign and malformed tokens list every transfer.
    for (const std::string& other : std::vector<std::string>{"", "deadbeef-1", "not a token", token + "0"})
        EXPECT_EQ(Doc(poll(sim, other)).count({"transfers"}), 2u) << other;
    EXPECT_EQ(readFile(files.path() + "/out/a.txt"), "first");
    EXPECT_EQ(readFile(files.path() + "/out/b.txt"), "second");
}

TEST(KestrixSimTransfers, UploadOfFileUrlsAndFolders) {
    TempDir files;
    files.write("docs/one.txt", "1");
    files.write("docs/deep/two.txt", "22");
    const std::string single = files.write("single.txt", "333");
    KestrixSim sim;
    ASSERT_TRUE(sim.start(kFastCopy)) << sim.error();
    Doc created(KestrixSim::bodyOf(sim.request(
        "POST", "/transfers/",
        xferreq({"file://" + files.path() + "/docs", "file://" + single},
                "file://" + files.path() + "/server"),
        kXmlType)));
    yajl_val t = created.item({"transfers"}, 0);
    EXPECT_EQ(created.str({"direction"}, t), "send");
    std::string status;
    Doc done(waitForTransfer(sim, created.str({"id"}, t), status));
    ASSERT_EQ(status, "completed");
    EXPECT_EQ(readFile(files.path() + "/server/docs/one.txt"), "1");
    EXPECT_EQ(readFile(files.path() + "/server/docs/deep/two.txt"), "22");
    EXPECT_EQ(readFile(files.path() + "/server/single.txt"), "333");
    yajl_val d = done.item({"transfers"}, 0);
    EXPECT_EQ(done.num({"files_expected"}, d), 3);
    EXPECT_EQ(done.num({"bytes_expected"}, d), 6);
}

TEST(KestrixSimTransfers, JsonFormWithRootsAndTargetNames) {
    TempDir files;
    files.write("src/in.txt", "json form");
    KestrixSim sim;
    ASSERT_TRUE(sim.start(kFastCopy)) << sim.error();
    const std::string body =
        "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\",\"source_root\":\"" +
        files.path() + "/src/\",\"destination_root\":\"" + files.path() +
        "/dst\",\"paths\":[{\"source\":\"/in.txt\",\"destination\":\"renamed.txt\"}]},"
        "\"corvane_kestrix_settings\":{\"app_id\":\"x\"}}]}";
    Doc created(KestrixSim::bodyOf(sim.request("POST", "/transfers/", body, kJsonType)));
    ASSERT_EQ(created.count({"transfers"}), 1u);
    yajl_val t = created.item({"transfers"}, 0);
    EXPECT_EQ(created.str({"direction"}, t), "send");
    std::string status;
    waitForTransfer(sim, created.str({"id"}, t), status);
    EXPECT_EQ(status, "completed");
    EXPECT_EQ(readFile(files.path() + "/dst/renamed.txt"), "json form");
}

TEST(KestrixSimTransfers, FailuresAreReportedNotCopied) {
    TempDir files;
    const std::string real = files.write("real.txt", "x");
    KestrixSim sim;
    ASSERT_TRUE(sim.start(kFastCopy)) << sim.error();
    const auto failWith = [&](const std::string& xml, const std::string& message) {
        Doc created(KestrixSim::bodyOf(sim.request("POST", "/transfers/", xml, kXmlType)));
        std::string status;
        Doc done(waitForTransfer(sim, created.str({"id"}, created.item({"transfers"}, 0)), status));
        EXPECT_EQ(status, "failed") << xml;
        for (size_t i = 0; i < done.count({"transfers"}); ++i) {
            yajl_val d = done.item({"transfers"}, i);
            if (done.str({"id"}, d) == created.str({"id"}, created.item({"transfers"}, 0))) {
                EXPECT_EQ(done.str({"error_message"}, d), message);
            }
        }
    };
    failWith(xferreq({files.path() + "/missing.txt"}, "file://" + files.path() + "/o"),
             "No such file or folder: " + files.path() + "/missing.txt");
    failWith(xferreq({"file://" + real}, "https://example.invalid/upload"),
             "Destination is not a local folder: https://example.invalid/upload");
    failWith(xferreq({"relative/path"}, "file://" + files.path() + "/o"),
             "Source is not a local path: relative/path");
    EXPECT_FALSE(fs::exists(files.path() + "/o/missing.txt"));

    // Copying a file onto itself must not truncate it.
    Doc same(KestrixSim::bodyOf(
        sim.request("POST", "/transfers/", xferreq({real}, "file://" + files.path()), kXmlType)));
    std::string status;
    waitForTransfer(sim, same.str({"id"}, same.item({"transfers"}, 0)), status);
    EXPECT_EQ(status, "completed");
    EXPECT_EQ(readFile(real), "x");
}

TEST(KestrixSimTransfers, BadTransferRequestsAreRefused) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    // The malformed parameter form, an empty document, no sources, no XML at all.
    for (const std::string& xml :
         {std::string("<xferreq xmlns=\"u\"><src>/a</src><dest>file:///b</dest>"
                      "<param name=\"k value=\"v\"></xferreq>"),
          std::string("<xferreq xmlns=\"u\"></xferreq>"), std::string("<other><src>/a</src></other>"),
          std::string("")}) {
        std::string response = sim.request("POST", "/transfers/", xml, kXmlType);
        EXPECT_EQ(KestrixSim::statusOf(response), 400) << xml;
        EXPECT_EQ(Doc(KestrixSim::bodyOf(response)).num({"error", "code"}), 400);
    }
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/transfers/", "{\"transfer_specs\":[]}",
                                               kJsonType)),
              400);
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/transfers/", "<xferreq/>", "text/plain")),
              415);
    EXPECT_EQ(Doc(sim.state()).count({"transfers"}), 0u);
}

TEST(KestrixSimTransfers, ScriptedActivityAnswersComeFirstInOrder) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    const std::string noToken = "{\"transfers\":[1]}";
    const std::string error = "{\"error\":{\"code\":-1,\"user_message\":\"busy\"}}";
    const std::string broken = "{\"iteration_token\":\"t2\"";
    ASSERT_EQ(KestrixSim::statusOf(sim.request("POST", "/sim/activity?times=2", noToken)), 200);
    ASSERT_EQ(KestrixSim::statusOf(sim.request("POST", "/sim/activity", error)), 200);
    ASSERT_EQ(KestrixSim::statusOf(sim.request("POST", "/sim/activity?times=1", "")), 200);
    const std::string state = KestrixSim::bodyOf(sim.request("POST", "/sim/activity", broken));
    EXPECT_EQ(Doc(state).num({"scripted_activity"}), 5) << state;
    for (const std::string query : {"times=0", "times=-2", "times=x"})
        EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/sim/activity?" + query, "{}")), 400) << query;
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/sim/activity")), 405);

    // Exactly as scripted, with a Content-Length, whatever the request body.
    const std::vector<std::string> expected = {noToken, noToken, error, "", broken};
    for (size_t i = 0; i < expected.size(); ++i) {
        const std::string answer =
            i == 0 ? sim.request("POST", "/v4/transfers/activity", "{not json", kJsonType)
                   : sim.request("POST", "/v4/transfers/activity", activityBody("x"), kJsonType);
        EXPECT_EQ(KestrixSim::statusOf(answer), 200) << i;
        const std::string length = "\r\nContent-Length: " + std::to_string(expected[i].size()) + "\r\n";
        EXPECT_NE(headerBlock(answer).find(length), std::string::npos) << i;
        EXPECT_EQ(KestrixSim::bodyOf(answer), expected[i]) << i;
    }
    // Used up: the feed answers for itself again.
    EXPECT_EQ(Doc(sim.state()).num({"scripted_activity"}), 0);
    EXPECT_FALSE(Doc(poll(sim, "")).str({"iteration_token"}).empty());
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/v4/transfers/activity", "{not json", kJsonType)),
              400);
}

// --- the record file -------------------------------------------------------------

TEST(KestrixSimRecord, HoldsEveryRequestByteForByte) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    // Header order and case as sent, the key's stray newline, a body holding
    // the record's own separator text, and bytes beyond Content-Length.
    const std::string body = "line1\n--- kestrix-sim request 9: 3 bytes ---\nEND";
    const std::string first = "POST /v4/transfers/activity HTTP/1.1\r\nauthorization-KEY: " +
                              sim.key() + "\n\r\nZeta: 1\r\nalpha:2\r\nContent-Length: " +
                              std::to_string(body.size()) + "\r\n\r\n" + body;
    const std::string second = "GET /v4/kestrix/version HTTP/1.1\r\nAuthorization-key: " +
                               sim.key() + "\r\nContent-Length: 0\r\n\r\n";
    const std::string withExtra = second + "TRAILING";
    sim.exchangeRaw(first);
    sim.control("mode=normal");
    sim.exchangeRaw(second);
    sim.exchangeRaw(withExtra);
    // Cut short: the client gives up and closes; what came is still recorded.
    probe(sim.port(), "GET /x HTTP/1.1\r\n", 50);

    std::vector<std::string> recorded;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while ((recorded = sim.recordedRequests()).size() < 4 && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(recorded.size(), 4u);
    EXPECT_EQ(recorded[0], first);
    EXPECT_EQ(recorded[1], second);
    EXPECT_EQ(recorded[2], withExtra);
    EXPECT_EQ(recorded[3], "GET /x HTTP/1.1\r\n");
    ASSERT_EQ(sim.recordedRequests(true).size(), 5u);
    EXPECT_EQ(sim.recordedRequests(true)[1].compare(0, 18, "POST /sim/control?"), 0);
}

// --- misbehaviour ---------------------------------------------------------------

TEST(KestrixSimModes, SlowAnswersAfterTheDelay) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "slow", "--delay-ms", "400"})) << sim.error();
    auto started = Clock::now();
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/v4/kestrix/version")), 200);
    EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(400));
    // The control endpoint itself is never delayed.
    started = Clock::now();
    ASSERT_TRUE(sim.control("mode=normal"));
    EXPECT_LT(Clock::now() - started, std::chrono::milliseconds(400));
}

TEST(KestrixSimModes, HangHoldsTheConnectionUntilTheClientCloses) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "hang"})) << sim.error();
    Probe held = probe(sim.port(), keyedGet(sim, "/v4/kestrix/version"), 500);
    EXPECT_TRUE(held.received.empty());
    EXPECT_FALSE(held.closed);
    // Still serving others meanwhile, and the control call is not held.
    ASSERT_TRUE(sim.control("mode=normal"));
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/v4/kestrix/version")), 200);
}

TEST(KestrixSimModes, HeldConnectionsDoNotDelayExit) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "hang"})) << sim.error();
    Probe result;
    std::thread client([&] { result = probe(sim.port(), keyedGet(sim, "/v4/kestrix/version"), 10000); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const auto started = Clock::now();
    EXPECT_TRUE(sim.stop(5000));
    client.join();
    EXPECT_LT(Clock::now() - started, std::chrono::seconds(3));
    EXPECT_TRUE(result.closed);
    EXPECT_TRUE(result.received.empty());
}

TEST(KestrixSimModes, CloseEndsWithoutAnAnswer) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "close"})) << sim.error();
    Probe closed = probe(sim.port(), keyedGet(sim, "/v4/kestrix/version"), 5000);
    EXPECT_TRUE(closed.closed);
    EXPECT_TRUE(closed.received.empty());
    EXPECT_EQ(sim.recordedRequests().size(), 1u);  // it was read before the close
}

TEST(KestrixSimModes, NoLengthSendsTheBodyAndCloses) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "no-length"})) << sim.error();
    Probe answer = probe(sim.port(), keyedGet(sim, "/v4/kestrix/version"), 5000);
    EXPECT_TRUE(answer.closed);
    EXPECT_EQ(answer.received.compare(0, 17, "HTTP/1.1 200 OK\r\n"), 0);
    EXPECT_EQ(headerBlock(answer.received).find("Content-Length"), std::string::npos);
    EXPECT_TRUE(Doc(KestrixSim::bodyOf(answer.received)).ok());
}

TEST(KestrixSimModes, GarbageIsNotHttp) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "garbage"})) << sim.error();
    Probe answer = probe(sim.port(), keyedGet(sim, "/v4/kestrix/version"), 5000);
    EXPECT_TRUE(answer.closed);
    EXPECT_FALSE(answer.received.empty());
    EXPECT_NE(answer.received.compare(0, 5, "HTTP/"), 0);
    EXPECT_EQ(answer.received.find("\r\n"), std::string::npos);
    EXPECT_EQ(answer.received.find('\0'), std::string::npos);
}

TEST(KestrixSimModes, ZeroLengthStillSendsTheBody) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "zero-length"})) << sim.error();
    std::string answer = sim.request("GET", "/v4/kestrix/version");
    EXPECT_NE(headerBlock(answer).find("\r\nContent-Length: 0\r\n"), std::string::npos);
    EXPECT_TRUE(Doc(KestrixSim::bodyOf(answer)).ok());
}

TEST(KestrixSimModes, ExtraBytesFollowTheAnnouncedBody) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "extra-bytes"})) << sim.error();
    std::string answer = sim.request("GET", "/v4/kestrix/version");
    const std::string head = headerBlock(answer);
    size_t at = head.find("Content-Length: ");
    ASSERT_NE(at, std::string::npos);
    size_t announced = std::stoul(head.substr(at + 16));
    const std::string body = KestrixSim::bodyOf(answer);
    ASSERT_GT(body.size(), announced);
    EXPECT_TRUE(Doc(body.substr(0, announced)).ok());
    EXPECT_FALSE(Doc(body).ok());
}

TEST(KestrixSimModes, BadHeaderHasALineWithoutColonSpace) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "bad-header"})) << sim.error();
    std::string head = headerBlock(sim.request("GET", "/v4/kestrix/version"));
    bool found = false;
    for (size_t pos = head.find("\r\n") + 2; pos < head.size();) {
        size_t end = head.find("\r\n", pos);
        const std::string line = head.substr(pos, end - pos);
        if (line.find(": ") == std::string::npos && line.find(':') != std::string::npos)
            found = true;
        pos = end + 2;
    }
    EXPECT_TRUE(found) << head;
    EXPECT_NE(head.find("Content-Length: "), std::string::npos);
}

TEST(KestrixSimModes, EmptyBodyIsAWholeHeadAndNothingElse) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "empty-body"})) << sim.error();
    Probe answer = probe(sim.port(), keyedGet(sim, "/v4/kestrix/version"), 5000);
    EXPECT_TRUE(answer.closed);
    EXPECT_EQ(answer.received.compare(0, 17, "HTTP/1.1 200 OK\r\n"), 0) << answer.received;
    EXPECT_NE(answer.received.find("\r\nContent-Length: 0\r\n"), std::string::npos) << answer.received;
    ASSERT_GE(answer.received.size(), 4u);
    EXPECT_EQ(answer.received.find("\r\n\r\n"), answer.received.size() - 4) << answer.received;
    // The endpoint still acts: a window is counted though its answer is empty.
    EXPECT_EQ(KestrixSim::bodyOf(sim.request("GET", "/windows/about/")), "");
    EXPECT_EQ(Doc(sim.state()).num({"windows", "about"}), 1);
}

TEST(KestrixSimModes, PathFilterAndCountAtRunTime) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    ASSERT_TRUE(sim.control("mode=close&path=/v4/kestrix/version&times=2"));
    // Other paths are untouched.
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/windows/about/")), 200);
    EXPECT_EQ(sim.request("GET", "/v4/kestrix/version"), "");
    EXPECT_EQ(Doc(sim.state()).num({"times"}), 1);
    EXPECT_EQ(sim.request("GET", "/v4/kestrix/version"), "");
    // Used up: normal again.
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/v4/kestrix/version")), 200);
    Doc state(sim.state());
    EXPECT_EQ(state.str({"mode"}), "normal");

    // The same from the command line.
    KestrixSim once;
    ASSERT_TRUE(once.start({"--quiet", "--mode", "garbage", "--mode-times", "1"})) << once.error();
    EXPECT_NE(once.request("GET", "/v4/kestrix/version").compare(0, 5, "HTTP/"), 0);
    EXPECT_EQ(KestrixSim::statusOf(once.request("GET", "/v4/kestrix/version")), 200);
}

TEST(KestrixSimModes, ControlRejectsBadValuesAndChangesNothing) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "slow", "--delay-ms", "10"})) << sim.error();
    for (const std::string query : {"mode=sideways", "delay_ms=-1", "times=0", "exit_reply=500",
                                    "mode=hang&delay_ms=x"})
        EXPECT_FALSE(sim.control(query)) << query;
    Doc state(sim.state());
    EXPECT_EQ(state.str({"mode"}), "slow");
    EXPECT_EQ(state.num({"delay_ms"}), 10);
    EXPECT_EQ(state.num({"exit_reply"}), 200);
}

// --- what it prints ----------------------------------------------------------------

TEST(KestrixSimOutput, QuietLeavesNothingButTheReadyLine) {
    TempDir files;
    const std::string source = files.write("a.txt", "printed?");
    const std::string dest = "file://" + files.path() + "/out";
    for (const bool quiet : {false, true}) {
        std::vector<std::string> args = {"--chunk-delay-ms", "0"};
        if (quiet)
            args.push_back("--quiet");
        Printing sim(args);
        ASSERT_NE(sim.port(), 0) << sim.out() << sim.err();
        EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/windows/about/").received), 200);
        EXPECT_EQ(KestrixSim::statusOf(
                      sim.request("POST", "/transfers/", xferreq({source}, dest), kXmlType).received),
                  200);
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (readFile(files.path() + "/out/a.txt").empty() && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/v4/kestrix/exit").received), 200);
        ASSERT_TRUE(sim.waitForExit(5000));

        EXPECT_EQ(sim.out(),
                  "kestrix-sim: listening on http://127.0.0.1:" + std::to_string(sim.port()) + "\n");
        if (quiet) {
            EXPECT_EQ(sim.err(), "");
        } else {
            // What --quiet has to silence.
            EXPECT_NE(sim.err().find("kestrix-sim: window opened: about\n"), std::string::npos) << sim.err();
            EXPECT_NE(sim.err().find(" completed\n"), std::string::npos) << sim.err();
            EXPECT_NE(sim.err().find("kestrix-sim: exiting\n"), std::string::npos) << sim.err();
        }
        fs::remove_all(files.path() + "/out");
    }
}
