// bench.h: how rows are named and run.
//
// A row is "work/size/library", for instance "md5/1024/qel": bench/compare pairs rows by what stands
// before the last slash. Every row of one piece of work does the same work from the same inputs.
#ifndef BENCH_BENCH_H
#define BENCH_BENCH_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using Bytes = std::vector<uint8_t>;

inline void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "bench: %s\n", what);
        std::abort();
    }
}

// Registers a row that calls work() over and over; bytes is what one call processes, 0 for calls that
// are counted and not weighed.
template <class Work> void row(const std::string &name, std::size_t bytes, Work work) {
    benchmark::RegisterBenchmark(name.c_str(), [bytes, work](benchmark::State &state) mutable {
        for (auto _ : state)
            work();
        if (bytes != 0)
            state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                                    static_cast<int64_t>(bytes));
    });
}

// Data of a size, the same in every row.
inline Bytes sample(std::size_t size) {
    Bytes data(size);
    uint32_t state = 12345;
    for (uint8_t &byte : data) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return data;
}

constexpr std::size_t message_sizes[] = {16, 1024, 65536};

#endif
