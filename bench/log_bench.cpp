// One cv_log line against one bare write(2) of a line of the same length to
// a file opened with O_APPEND: what formatting, repeat checking and the
// timestamp add to the system call every line costs anyway. Target: a
// ratio of at most 1.5.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "cv_log.h"

namespace {

namespace fs = std::filesystem;

// The calling thread's CPU time, kernel time included: the machine may be
// busy with other work, and waiting for a core is neither side's cost.
int64_t threadNs() {
    struct timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// Both files are kept to a few MiB so that a long run does not fill the disk:
// the log rotates at its 4 MiB limit, the baseline file is emptied (outside
// the timed part) when it reaches the same size.
constexpr off_t kBaselineLimit = 4 << 20;
constexpr int kBatch = 256;

struct BenchFolder {
    BenchFolder() {
        std::string pattern = (fs::temp_directory_path() / "corvane-logbench-XXXXXX").string();
        if (mkdtemp(pattern.data())) path = pattern;
    }
    ~BenchFolder() {
        std::error_code ec;
        if (!path.empty()) fs::remove_all(path, ec);
    }
    std::string path;
};

// The message part; each line differs, or it would only count as a repeat.
const char kMessage[] = "startDownload(): argCount=%u source=https://example.test/path/file-%08d.bin";

size_t lineLength() {
    // "YYYY-MM-DD HH:MM:SS [pid-0x...] " + "LOG " + message + "\n"
    char thread[32], pid[16], message[256];
    snprintf(thread, sizeof thread, "%p", reinterpret_cast<void*>(pthread_self()));
    snprintf(pid, sizeof pid, "%x", static_cast<unsigned>(getpid()));
    int n = snprintf(message, sizeof message, kMessage, 2u, 0);
    return 20 + 1 + strlen(pid) + 1 + strlen(thread) + 2 + 4 + static_cast<size_t>(n) + 1;
}

void BM_LogLineVsBareWrite(benchmark::State& state) {
    BenchFolder folder;
    if (folder.path.empty()) {
        state.SkipWithError("no temporary folder");
        return;
    }
    cv_log_cleanup();
    if (cv_log_init(CV_LOG_FILE, (folder.path + "/bench.log:4").c_str()) != 0) {
        state.SkipWithError("cv_log_init failed");
        return;
    }
    int fd = open((folder.path + "/baseline.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    std::string line(lineLength() - 1, 'x');
    line += '\n';

    int64_t logTime = 0, writeTime = 0;
    int64_t lines = 0;
    int counter = 0;
    for (auto _ : state) {
        // Alternate batches so that both sides see the same machine state.
        int64_t t0 = threadNs();
        for (int i = 0; i < kBatch; ++i) cv_log(kMessage, 2u, counter++);
        int64_t t1 = threadNs();
        for (int i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
        int64_t t2 = threadNs();
        logTime += t1 - t0;
        writeTime += t2 - t1;
        lines += kBatch;
        state.PauseTiming();
        if (lseek(fd, 0, SEEK_END) >= kBaselineLimit) benchmark::DoNotOptimize(ftruncate(fd, 0));
        state.ResumeTiming();
    }
    close(fd);
    cv_log_cleanup();

    double logNs = static_cast<double>(logTime) / static_cast<double>(lines);
    double writeNs = static_cast<double>(writeTime) / static_cast<double>(lines);
    state.counters["cv_log_ns"] = logNs;
    state.counters["write_ns"] = writeNs;
    state.counters["ratio"] = writeNs > 0 ? logNs / writeNs : 0;
    state.counters["line_bytes"] = static_cast<double>(line.size());
    state.SetItemsProcessed(lines * 2);
}
BENCHMARK(BM_LogLineVsBareWrite)->Unit(benchmark::kMicrosecond);

}  // namespace
