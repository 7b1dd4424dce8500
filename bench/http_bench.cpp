// The HTTP exchange with the local client, measured against libcurl doing
// the same request to the same kestrix-sim in the same run, and the cost of
// reading large answers with and without a Content-Length header.
//
// Counters:
//   RoundTrip: ours_us, curl_us per exchange and ratio = ours / curl.
//   Body/<0|1>: us_per_MiB for 1 MiB and 8 MiB answers from kestrix-sim
//   (Content-Length absent/present) and ratio = per-MiB time at 8 MiB /
//   per-MiB time at 1 MiB.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "FileSystem.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "KestrixApp.h"

extern char** environ;

using Kestrix::Web::HttpRequest;
using Kestrix::Web::HttpResponse;

namespace {

using Clock = std::chrono::steady_clock;

double microsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

std::string readWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// kestrix-sim in a private home folder, for the whole program run. The
// plug-in code finds it the way it finds the real client: through the URL
// file under XDG_DATA_HOME.
class Sim {
public:
    Sim() {
        char dir[] = "/tmp/http_bench.XXXXXX";
        if (!mkdtemp(dir)) return;
        _home = dir;
        setenv("HOME", _home.c_str(), 1);
        setenv("XDG_DATA_HOME", (_home + "/.local/share").c_str(), 1);
        setenv("XDG_STATE_HOME", (_home + "/.local/state").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (_home + "/.config").c_str(), 1);
        setenv("XDG_CACHE_HOME", (_home + "/.cache").c_str(), 1);
        Kestrix::Web::FileSystem::resetCache();
        Kestrix::Web::KestrixApp::resetCache();

        _pid = fork();
        if (_pid == 0) {
            const char* argv[] = {KESTRIX_SIM_PATH, "--quiet", nullptr};
            execve(KESTRIX_SIM_PATH, const_cast<char**>(argv), environ);
            _exit(127);
        }
        const std::string uriFile = _home + "/.local/share/Corvane/Corvane Kestrix/var/run/http.uri";
        for (int i = 0; i < 500; ++i) {
            const std::string text = readWhole(uriFile);
            const std::string::size_type newline = text.find('\n');
            if (newline != std::string::npos && text.size() > newline + 1) {
                _key = text.substr(newline + 1);
                const Kestrix::Web::Url url = Kestrix::Web::KestrixApp::url();
                _host = url.host;
                _port = url.port(0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        while (!_key.empty() && (_key.back() == '\n' || _key.back() == '\r')) _key.pop_back();
    }
    ~Sim() {
        if (_pid > 0) {
            kill(_pid, SIGTERM);
            waitpid(_pid, nullptr, 0);
        }
        if (!_home.empty()) std::system(("rm -rf '" + _home + "'").c_str());
    }

    bool ready() const { return _port != 0; }
    const std::string& host() const { return _host; }
    unsigned short port() const { return _port; }
    const std::string& key() const { return _key; }

private:
    pid_t _pid = -1;
    std::string _home;
    std::string _host;
    unsigned short _port = 0;
    std::string _key;
};

Sim& sim() {
    static Sim instance;
    return instance;
}

size_t collect(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

// One exchange the way the plug-in makes it.
bool oursGet(const std::string& host, unsigned short port, const std::string& path, size_t& bodySize) {
    HttpRequest request(host, port);
    request.path = path;
    request.addHeader("Content-Type", "application/vnd.corvane.xferreq+json");
    std::unique_ptr<HttpResponse> response(request.invoke());
    if (!response || response->statusCode() != 200) return false;
    bodySize = response->data().size();
    return true;
}

// The same exchange through libcurl: the same headers, a fresh connection.
bool curlGet(CURL* curl, const std::string& url, const std::string& key, size_t& bodySize) {
    std::string body;
    curl_easy_reset(curl);
    curl_slist* headers = nullptr;
    headers = curl_slist_append(headers, ("Authorization-key: " + key).c_str());
    headers = curl_slist_append(headers, "Connection: close");
    headers = curl_slist_append(headers, "Content-Length: 0");
    headers = curl_slist_append(headers, "Content-Type: application/vnd.corvane.xferreq+json");
    headers = curl_slist_append(headers, "Accept:");
    headers = curl_slist_append(headers, "Host:");
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "Corvane Kestrix");
    curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_slist_free_all(headers);
    bodySize = body.size();
    return code == CURLE_OK && status == 200;
}

void BM_RoundTrip(benchmark::State& state) {
    if (!sim().ready()) {
        state.SkipWithError("kestrix-sim did not start");
        return;
    }
    const std::string path = "/v4/kestrix/version";
    const std::string url = "http://" + sim().host() + ":" + std::to_string(sim().port()) + path;
    CURL* curl = curl_easy_init();
    double ours = 0;
    double theirs = 0;
    size_t size = 0;
    // Alternating the two keeps drift in machine load from favouring either.
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        if (!oursGet(sim().host(), sim().port(), path, size)) {
            state.SkipWithError("HttpRequest::invoke failed");
            break;
        }
        ours += microsSince(start);
        start = Clock::now();
        if (!curlGet(curl, url, sim().key(), size)) {
            state.SkipWithError("curl request failed");
            break;
        }
        theirs += microsSince(start);
    }
    curl_easy_cleanup(curl);
    const double n = static_cast<double>(state.iterations());
    if (n > 0 && theirs > 0) {
        state.counters["ours_us"] = ours / n;
        state.counters["curl_us"] = theirs / n;
        state.counters["ratio"] = ours / theirs;
    }
}
BENCHMARK(BM_RoundTrip)->Unit(benchmark::kMicrosecond)->MinTime(2.0);

// The body call: that many filler bytes, with (1) or without (0) a
// Content-Length header, then the connection closes.
std::string bodyPath(size_t bytes, bool withLength) {
    return "/sim/body?bytes=" + std::to_string(bytes) + "&length=" + (withLength ? "1" : "0");
}

void BM_Body(benchmark::State& state) {
    const bool withLength = state.range(0) != 0;
    if (!sim().ready()) {
        state.SkipWithError("kestrix-sim did not start");
        return;
    }
    const size_t mib = 1 << 20;
    double small = 0;
    double large = 0;
    for (auto _ : state) {
        for (const size_t size : {mib, 8 * mib}) {
            const std::string path = bodyPath(size, withLength);
            size_t got = 0;
            const Clock::time_point start = Clock::now();
            if (!oursGet(sim().host(), sim().port(), path, got) || got != size) {
                state.SkipWithError("body request failed");
                return;
            }
            (size == mib ? small : large) += microsSince(start);
        }
    }
    const double n = static_cast<double>(state.iterations());
    if (n > 0 && small > 0) {
        state.counters["us_per_MiB_1MiB"] = small / n;
        state.counters["us_per_MiB_8MiB"] = large / n / 8;
        state.counters["ratio"] = (large / 8) / small;
    }
}
BENCHMARK(BM_Body)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace
