// Base64 of a whole 50 MiB file (the largest a page may read at once),
// against memcpy of the same 50 MiB measured in the same run.
//
// Counters: base64_MiBps and memcpy_MiBps are input bytes per second;
// ratio = base64 throughput / memcpy throughput (target: at least 0.5 for
// the encoder cv_str_buf_to_base64 selects).
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <string.h>

#include <chrono>
#include <random>
#include <vector>

#include "cv_str.h"
#include "cv_str_internal.h"

namespace {

constexpr size_t kInputSize = size_t(50) << 20;

struct Buffers {
    std::vector<uint8_t> input;
    std::vector<uint8_t> copy;
    std::vector<char> encoded;
};

Buffers& buffers() {
    static Buffers b = [] {
        Buffers n;
        n.input.resize(kInputSize);
        std::mt19937_64 rng(7);
        for (size_t i = 0; i + 8 <= kInputSize; i += 8) {
            uint64_t v = rng();
            memcpy(&n.input[i], &v, 8);
        }
        // Both destinations are written once here, so that no run pays for
        // first-touch page faults.
        n.copy.assign(kInputSize, 0);
        n.encoded.assign(4 * ((kInputSize + 2) / 3) + 1, 0);
        return n;
    }();
    return b;
}

const char* implName(int impl) {
    switch (impl) {
        case CV_BASE64_SCALAR:
            return "scalar";
        case CV_BASE64_SSSE3:
            return "ssse3";
        case CV_BASE64_AVX2:
            return "avx2";
        default:
            return "?";
    }
}

template <typename F>
double seconds(F&& f) {
    auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// impl < 0: the public entry point with the encoder it selects.
void Base64VsMemcpy(benchmark::State& state, int impl) {
    if (impl >= 0 && !cv_base64_impl_supported(impl)) {
        state.SkipWithError("encoder not supported on this CPU");
        return;
    }
    Buffers& b = buffers();
    double copyTime = 0, encodeTime = 0;
    for (auto _ : state) {
        copyTime += seconds([&] {
            memcpy(b.copy.data(), b.input.data(), kInputSize);
            benchmark::ClobberMemory();
        });
        int rc = 0;
        double t = seconds([&] {
            rc = impl < 0
                     ? cv_str_buf_to_base64(b.input.data(), kInputSize, b.encoded.data(), b.encoded.size())
                     : cv_str_buf_to_base64_impl(impl, b.input.data(), kInputSize, b.encoded.data(),
                                                 b.encoded.size());
            benchmark::ClobberMemory();
        });
        if (rc != 0) {
            state.SkipWithError("encoding failed");
            return;
        }
        encodeTime += t;
        state.SetIterationTime(t);
    }
    const double mib = double(kInputSize) * double(state.iterations()) / double(1 << 20);
    state.SetBytesProcessed(int64_t(kInputSize) * int64_t(state.iterations()));
    state.counters["base64_MiBps"] = mib / encodeTime;
    state.counters["memcpy_MiBps"] = mib / copyTime;
    state.counters["ratio"] = copyTime / encodeTime;
    state.SetLabel(implName(impl < 0 ? cv_base64_impl_selected() : impl));
}

}  // namespace

BENCHMARK_CAPTURE(Base64VsMemcpy, selected, -1)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK_CAPTURE(Base64VsMemcpy, scalar, int(CV_BASE64_SCALAR))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);
BENCHMARK_CAPTURE(Base64VsMemcpy, ssse3, int(CV_BASE64_SSSE3))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);
