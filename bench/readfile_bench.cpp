// readFileAsArrayBuffer of a 50 MiB approved file (the largest a page may
// read at once), against `base64 -w0` of the same file measured in the
// same run.
//
// Counters: plugin_ms and base64_cli_ms, the median read of 9 each (a busy
// machine's spikes count less), run in turns; ratio = plugin / base64
// (goal: at most 1.2); peak_MiB is how far the process's resident peak rose
// during one read, counting every copy up to the string the browser
// receives (goal: at most 2.0 times the file).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "PlugIn.h"

extern char** environ;

namespace {

constexpr size_t kFileSize = size_t(50) << 20;

struct Fixture {
    std::string dir;
    std::string path;
    Fixture() {
        char pattern[] = "/tmp/corvane-readfile-bench-XXXXXX";
        dir = mkdtemp(pattern);
        path = dir + "/payload.bin";
        std::string bytes(kFileSize, '\0');
        std::mt19937_64 rng(11);
        for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
            uint64_t v = rng();
            memcpy(&bytes[i], &v, 8);
        }
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        Kestrix::Web::PlugIn::addToApprovedFileList({path});
    }
    ~Fixture() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

// VmHWM of this process in KiB; writing 5 to clear_refs resets it.
long peakKiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

long residentKiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

void resetPeak() {
    int fd = open("/proc/self/clear_refs", O_WRONLY);
    if (fd >= 0) {
        (void)!write(fd, "5", 1);
        close(fd);
    }
}

double base64CliSeconds(const std::string& path) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    char* argv[] = {const_cast<char*>("base64"), const_cast<char*>("-w0"), const_cast<char*>(path.c_str()),
                    nullptr};
    auto start = std::chrono::steady_clock::now();
    pid_t pid = -1;
    if (posix_spawnp(&pid, "base64", &actions, nullptr, argv, environ) != 0) return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    auto end = std::chrono::steady_clock::now();
    posix_spawn_file_actions_destroy(&actions);
    return std::chrono::duration<double>(end - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void BM_ReadFileAsArrayBuffer50MiB(benchmark::State& state) {
    Fixture& f = fixture();
    Kestrix::Web::PlugIn plugin;
    std::vector<double> pluginTimes, cliTimes;
    long peakRise = 0;
    for (auto _ : state) {
        long before = residentKiB();
        resetPeak();
        auto start = std::chrono::steady_clock::now();
        // As the script layer reads for a page: the answer is built in one
        // block of the browser's allocator (malloc here, as in QtWebKit).
        Kestrix::Web::PlugIn::AllocatedText url =
            plugin.readFileAsArrayBuffer(f.path, Kestrix::Web::PlugIn::kMallocText);
        auto end = std::chrono::steady_clock::now();
        peakRise = std::max(peakRise, peakKiB() - before);
        if (!url.data || strncmp(url.data, "data:", 5) != 0) {
            state.SkipWithError(url.data ? url.data : "no memory");
            free(url.data);
            return;
        }
        benchmark::DoNotOptimize(url.data);
        free(url.data);
        double seconds = std::chrono::duration<double>(end - start).count();
        state.SetIterationTime(seconds);
        pluginTimes.push_back(seconds);
        cliTimes.push_back(base64CliSeconds(f.path));
    }
    const double pluginMedian = median(pluginTimes), cliMedian = median(cliTimes);
    state.counters["plugin_ms"] = 1000 * pluginMedian;
    state.counters["base64_cli_ms"] = 1000 * cliMedian;
    state.counters["ratio"] = pluginMedian / cliMedian;
    state.counters["peak_MiB"] = static_cast<double>(peakRise) / 1024.0;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_ReadFileAsArrayBuffer50MiB)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(9);

}  // namespace
