// Tests of kestrix-sim, the stand-in local client, run as a real process and
// spoken to over real sockets on 127.0.0.1. The plug-in suites use it all the
// time, so only what they could not notice going wrong is pinned here: the
// files it announces itself with, the key rule, the exact record of what was
// sent, the ways it misbehaves on purpose, scripted answers, the filler body
// and a transfer that really copies.
#include "KestrixSim.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <yajl/yajl_tree.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "TempDir.h"

namespace fs = std::filesystem;
using CorvaneTest::KestrixSim;
using CorvaneTest::readFile;
using CorvaneTest::TempDir;
using Clock = std::chrono::steady_clock;

namespace {

const char kJsonType[] = "application/vnd.corvane.xferreq+json";
const std::string kVersion = "/v4/kestrix/version";

// One field of a JSON document, a string or an integer as text ("" when
// absent); a number in the path indexes an array.
std::string field(const std::string& json, std::initializer_list<std::string> path) {
    char error[256] = "";
    yajl_val root = yajl_tree_parse(json.c_str(), error, sizeof(error));
    yajl_val v = root;
    for (const std::string& key : path) {
        const char* keys[] = {key.c_str(), nullptr};
        if (YAJL_IS_ARRAY(v))
            v = std::stoul(key) < v->u.array.len ? v->u.array.values[std::stoul(key)] : nullptr;
        else
            v = v ? yajl_tree_get(v, keys, yajl_t_any) : nullptr;
    }
    std::string text = YAJL_IS_STRING(v)    ? YAJL_GET_STRING(v)
                       : YAJL_IS_INTEGER(v) ? std::to_string(YAJL_GET_INTEGER(v))
                                            : "";
    yajl_tree_free(root);
    return text;
}

std::string headerBlock(const std::string& response) {
    return response.substr(0, response.find("\r\n\r\n") + 2);
}

std::string keyedGet(const KestrixSim& sim, const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nAuthorization-key: " + sim.key() +
           "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
}

// Sends `bytes` on a fresh connection and collects what comes back within
// `waitMs`, noting whether the simulator closed the connection.
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
        const auto msLeft = [&] {
            return static_cast<int>(std::max<int64_t>(
                0, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count()));
        };
        char buffer[4096];
        pollfd p = {fd, POLLIN, 0};
        ssize_t n = 1;
        while (n > 0 && ::poll(&p, 1, msLeft()) > 0) {
            n = ::recv(fd, buffer, sizeof(buffer), 0);
            result.received.append(buffer, static_cast<size_t>(std::max<ssize_t>(n, 0)));
        }
        result.closed = n <= 0;
    }
    ::close(fd);
    return result;
}

std::string activity(const KestrixSim& sim, const std::string& body = "{\"iteration_token\":\"\"}") {
    return sim.request("POST", "/v4/transfers/activity", body, kJsonType);
}

}  // namespace

TEST(KestrixSimFiles, AnnouncesItselfAndRemovesItsFilesUnlessKept) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    ASSERT_EQ(sim.key().size(), 36u);
    EXPECT_EQ(readFile(sim.uriFile()),
              "http://127.0.0.1:" + std::to_string(sim.port()) + "\n" + sim.key() + "\n");
    EXPECT_EQ(readFile(sim.pidFile()), std::to_string(sim.pid()) + "\n");
    EXPECT_EQ(sim.uriFile(), sim.home() + "/.local/share/Corvane/Corvane Kestrix/var/run/http.uri");
    EXPECT_TRUE(sim.stop());  // SIGTERM
    EXPECT_FALSE(fs::exists(sim.uriFile()));
    EXPECT_FALSE(fs::exists(sim.pidFile()));

    // The exit call: 200, then gone with its files.
    ASSERT_TRUE(sim.start({"--quiet", "--key", "fixed-key", "--no-key-newline"})) << sim.error();
    EXPECT_EQ(readFile(sim.uriFile()), sim.url() + "\nfixed-key");
    EXPECT_EQ(KestrixSim::statusOf(sim.request("POST", "/v4/kestrix/exit", "{'not':'json'}", kJsonType)),
              200);
    ASSERT_TRUE(sim.waitForExit(5000));
    EXPECT_EQ(sim.exitStatus(), 0);
    EXPECT_FALSE(fs::exists(sim.uriFile()));
    EXPECT_FALSE(fs::exists(sim.pidFile()));

    // A client that crashed leaves a stale URL nobody answers on.
    ASSERT_TRUE(sim.start({"--quiet", "--exit-after-ms", "100", "--keep-files"})) << sim.error();
    ASSERT_TRUE(sim.waitForExit(5000));
    EXPECT_EQ(readFile(sim.uriFile()), sim.url() + "\n" + sim.key() + "\n");
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", kVersion)), 0);
}

TEST(KestrixSimKey, EveryPathWantsTheKeyAndOnlyStrictModeMindsItsNewline) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    for (const std::string& path : {kVersion, std::string("/windows/about/"),
                                    std::string("/sim/body?bytes=5"), std::string("/no/such/path")}) {
        const std::string noKey = sim.exchangeRaw("GET " + path + " HTTP/1.1\r\nContent-Length: 0\r\n\r\n");
        EXPECT_EQ(KestrixSim::statusOf(noKey), 403) << path;
        EXPECT_EQ(field(KestrixSim::bodyOf(noKey), {"error", "code"}), "403") << path;
        EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw(
                      "GET " + path + " HTTP/1.1\r\nAuthorization-key: " + sim.key() + "x\r\n\r\n")),
                  403)
            << path;
    }
    EXPECT_EQ(field(sim.state(), {"windows", "about"}), "");  // refused, so never opened

    // The plug-in sends the key file's text as it is: the header line then
    // ends in "\n\r\n".
    const auto quirky = [](const KestrixSim& s) {
        return "GET /v4/kestrix/version HTTP/1.1\r\nAuthorization-key: " + s.key() +
               "\n\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
    };
    EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw(quirky(sim))), 200);
    KestrixSim strict;
    ASSERT_TRUE(strict.start({"--quiet", "--strict-key"})) << strict.error();
    EXPECT_EQ(KestrixSim::statusOf(strict.exchangeRaw(quirky(strict))), 403);
    EXPECT_EQ(KestrixSim::statusOf(strict.request("GET", kVersion)), 200);
}

TEST(KestrixSimRecord, HoldsEveryRequestByteForByte) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    // Header order and case as sent, the key's stray newline, a body holding
    // the record's own separator text, and bytes beyond Content-Length.
    const std::string body = "line1\n--- kestrix-sim request 9: 3 bytes ---\nEND";
    const std::string first = "POST /v4/transfers/activity HTTP/1.1\r\nauthorization-KEY: " + sim.key() +
                              "\n\r\nZeta: 1\r\nalpha:2\r\nContent-Length: " + std::to_string(body.size()) +
                              "\r\n\r\n" + body;
    const std::string second = keyedGet(sim, kVersion);
    const std::string withExtra = second + "TRAILING";
    sim.exchangeRaw(first);
    sim.control("mode=normal");
    sim.exchangeRaw(second);
    sim.exchangeRaw(withExtra);
    probe(sim.port(), "GET /x HTTP/1.1\r\n", 50);  // cut short: still recorded

    std::vector<std::string> recorded;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while ((recorded = sim.recordedRequests()).size() < 4 && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(recorded, (std::vector<std::string>{first, second, withExtra, "GET /x HTTP/1.1\r\n"}));
    const std::vector<std::string> all = sim.recordedRequests(true);
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[1].compare(0, 18, "POST /sim/control?"), 0);
}

TEST(KestrixSimModes, EachModeBreaksTheAnswerItsOwnWay) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "close"})) << sim.error();
    const auto raw = [&] { return probe(sim.port(), keyedGet(sim, kVersion), 5000); };

    Probe closed = raw();
    EXPECT_TRUE(closed.closed);
    EXPECT_EQ(closed.received, "");

    ASSERT_TRUE(sim.control("mode=hang"));  // control calls themselves are never held
    Probe held = probe(sim.port(), keyedGet(sim, kVersion), 300);
    EXPECT_FALSE(held.closed);
    EXPECT_EQ(held.received, "");

    ASSERT_TRUE(sim.control("mode=no-length"));
    Probe noLength = raw();
    EXPECT_TRUE(noLength.closed);
    EXPECT_EQ(noLength.received.compare(0, 17, "HTTP/1.1 200 OK\r\n"), 0);
    EXPECT_EQ(headerBlock(noLength.received).find("Content-Length"), std::string::npos);
    EXPECT_EQ(field(KestrixSim::bodyOf(noLength.received), {"name"}), "Corvane Kestrix");

    ASSERT_TRUE(sim.control("mode=garbage"));
    const std::string garbage = raw().received;
    EXPECT_FALSE(garbage.empty());
    EXPECT_NE(garbage.compare(0, 5, "HTTP/"), 0);
    EXPECT_EQ(garbage.find("\r\n"), std::string::npos);

    ASSERT_TRUE(sim.control("mode=empty-body"));
    const std::string empty = raw().received;
    EXPECT_EQ(empty.compare(0, 17, "HTTP/1.1 200 OK\r\n"), 0) << empty;
    EXPECT_NE(empty.find("\r\nContent-Length: 0\r\n"), std::string::npos) << empty;
    EXPECT_EQ(empty.find("\r\n\r\n") + 4, empty.size()) << empty;
    EXPECT_EQ(KestrixSim::bodyOf(sim.request("GET", "/windows/about/")), "");
    EXPECT_EQ(field(sim.state(), {"windows", "about"}), "1");  // the endpoint still acted

    ASSERT_TRUE(sim.control("mode=zero-length"));
    const std::string zero = sim.request("GET", kVersion);
    EXPECT_NE(headerBlock(zero).find("\r\nContent-Length: 0\r\n"), std::string::npos);
    EXPECT_EQ(field(KestrixSim::bodyOf(zero), {"name"}), "Corvane Kestrix");

    ASSERT_TRUE(sim.control("mode=extra-bytes"));
    const std::string extra = sim.request("GET", kVersion);
    const size_t at = headerBlock(extra).find("Content-Length: ");
    ASSERT_NE(at, std::string::npos);
    const size_t announced = std::stoul(extra.substr(at + 16));
    ASSERT_GT(KestrixSim::bodyOf(extra).size(), announced);
    EXPECT_EQ(field(KestrixSim::bodyOf(extra).substr(0, announced), {"name"}), "Corvane Kestrix");

    ASSERT_TRUE(sim.control("mode=bad-header"));
    const std::string head = headerBlock(sim.request("GET", kVersion));
    // A header line with a colon but no space after it.
    EXPECT_TRUE(std::regex_search(head, std::regex("\r\n[^:\r\n]+:[^ \r]"))) << head;

    // A bad switch changes nothing; a limited one wears off; slow delays.
    EXPECT_FALSE(sim.control("mode=sideways"));
    EXPECT_FALSE(sim.control("mode=hang&delay_ms=x"));
    EXPECT_EQ(field(sim.state(), {"mode"}), "bad-header");
    ASSERT_TRUE(sim.control("mode=close&path=/v4/kestrix/version&times=1"));
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", "/windows/about/")), 200);
    EXPECT_EQ(sim.request("GET", kVersion), "");
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", kVersion)), 200);
    ASSERT_TRUE(sim.control("mode=slow&delay_ms=300"));
    const auto started = Clock::now();
    EXPECT_EQ(KestrixSim::statusOf(sim.request("GET", kVersion)), 200);
    EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(300));

    // Connections held in hang mode do not hold up the exit.
    ASSERT_TRUE(sim.control("mode=hang&delay_ms=0"));
    std::thread client([&] { held = probe(sim.port(), keyedGet(sim, kVersion), 10000); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const auto stopping = Clock::now();
    EXPECT_TRUE(sim.stop(5000));
    client.join();
    EXPECT_LT(Clock::now() - stopping, std::chrono::seconds(3));
    EXPECT_TRUE(held.closed);
    EXPECT_EQ(held.received, "");
}

TEST(KestrixSimActivity, ScriptedAnswersComeFirstExactlyAndInOrder) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet"})) << sim.error();
    const std::string noToken = "{\"transfers\":[1]}";
    const std::string broken = "{\"iteration_token\":\"t2\"";
    ASSERT_EQ(KestrixSim::statusOf(sim.request("POST", "/sim/activity?times=2", noToken)), 200);
    ASSERT_EQ(KestrixSim::statusOf(sim.request("POST", "/sim/activity", "")), 200);
    EXPECT_EQ(field(KestrixSim::bodyOf(sim.request("POST", "/sim/activity", broken)), {"scripted_activity"}),
              "4");

    // Whatever the request body, with a Content-Length.
    for (const std::string& expected : {noToken, noToken, std::string(), broken}) {
        const std::string answer = activity(sim, "{not json");
        EXPECT_EQ(KestrixSim::statusOf(answer), 200);
        EXPECT_NE(headerBlock(answer).find("\r\nContent-Length: " + std::to_string(expected.size()) + "\r\n"),
                  std::string::npos);
        EXPECT_EQ(KestrixSim::bodyOf(answer), expected);
    }
    // Used up: the feed answers for itself again.
    EXPECT_NE(field(KestrixSim::bodyOf(activity(sim)), {"iteration_token"}), "");
    EXPECT_EQ(KestrixSim::statusOf(activity(sim, "{not json")), 400);
}

TEST(KestrixSimBody, FillerWithOrWithoutLengthEvenWhenOtherAnswersMisbehave) {
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--mode", "garbage"})) << sim.error();
    const size_t size = 300 * 1000 + 7;
    const std::string path = "/sim/body?bytes=" + std::to_string(size);
    Probe sized = probe(sim.port(), keyedGet(sim, path + "&length=1"), 5000);
    EXPECT_TRUE(sized.closed);
    EXPECT_EQ(KestrixSim::statusOf(sized.received), 200);
    const std::string head = headerBlock(sized.received);
    EXPECT_NE(head.find("\r\nContent-Length: " + std::to_string(size) + "\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nContent-Type: application/octet-stream\r\n"), std::string::npos) << head;
    const std::string body = KestrixSim::bodyOf(sized.received);
    ASSERT_EQ(body.size(), size);
    EXPECT_EQ(body.find('\0'), std::string::npos);
    EXPECT_NE(body.substr(0, 36), body.substr(1, 36));  // not one byte repeated

    Probe unsized = probe(sim.port(), keyedGet(sim, path + "&length=0"), 5000);
    EXPECT_TRUE(unsized.closed);
    EXPECT_EQ(headerBlock(unsized.received).find("Content-Length"), std::string::npos);
    EXPECT_EQ(KestrixSim::bodyOf(unsized.received), body);
    for (const std::string query : {"", "?bytes=-1", "?bytes=1x", "?bytes=67108865", "?bytes=5&length=2"})
        EXPECT_EQ(KestrixSim::statusOf(sim.exchangeRaw(keyedGet(sim, "/sim/body" + query))), 400) << query;
}

TEST(KestrixSimTransfers, CopiesTheFileInChunksWithProgressInTheFeed) {
    TempDir files;
    std::string content(256 * 1024 + 123, '\0');
    for (size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>((i * 7 + i / 251) & 0xff);  // a misplaced chunk shows
    const std::string source = files.write("remote/big file.bin", content);
    const std::string dest = files.path() + "/downloads/sub";  // not there yet
    KestrixSim sim;
    ASSERT_TRUE(sim.start({"--quiet", "--chunk-bytes", "8192", "--chunk-delay-ms", "10"})) << sim.error();
    const std::string xml = "<xferreq xmlns=\"urn:corvane:xferreq\"><src>" + source + "</src><dest>file://" +
                            dest + "</dest></xferreq>";
    const std::string created =
        sim.request("POST", "/transfers/", xml, "application/vnd.corvane.xferreq+xml");
    ASSERT_EQ(KestrixSim::statusOf(created), 200) << created;

    // Polls the feed until the one transfer is final, noting a poll that saw it half done.
    const std::string size = std::to_string(content.size());
    std::string status, written, last;
    bool sawPartial = false;
    for (const auto deadline = Clock::now() + std::chrono::seconds(20);
         status != "completed" && status != "failed" && Clock::now() < deadline;
         std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        last = KestrixSim::bodyOf(activity(sim));
        status = field(last, {"transfers", "0", "status"});
        written = field(last, {"transfers", "0", "bytes_written"});
        sawPartial |= status == "running" && written != "0" && written != size;
    }
    ASSERT_EQ(status, "completed") << last;
    EXPECT_EQ(written, size);
    EXPECT_TRUE(sawPartial) << "no poll saw the copy half done";
    EXPECT_TRUE(readFile(dest + "/big file.bin") == content);
}
