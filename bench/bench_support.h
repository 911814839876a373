#pragma once
// Shared workload of the benchmarks: the 1,570 parameters of a synthetic toolpath-sized tree,
// and a counter of the bytes the process holds on the heap.

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "kappar/kapSchema.h"

struct BenchParam {
    std::string key;
    std::string value;
    std::string kind;  // double enum bool int vec3 string ref
};

// The workload file: $KAPPAR_BENCH_WORKLOAD when set, else the file named when the suite was
// configured (../shared/bench/paths.txt beside the source tree, unless the cache variable
// KAPPAR_BENCH_WORKLOAD names another).
std::string bench_workload_path();

// Reads the workload once. False, with a message naming the file and the variable to set, when
// the file is missing, unreadable, holds a malformed line or no parameter at all; the suite then
// refuses to run.
bool bench_load_workload(std::string& message);

// The workload's parameters, in file order (loaded by bench_load_workload before any benchmark).
const std::vector<BenchParam>& bench_params();

// Declaration rows for the workload (maps first, then leaves, in declaration order), with
// activity expressions attached when `with_active` is set.
struct BenchSchema {
    std::deque<std::string> texts;
    std::vector<kapDeclState> states;
    std::vector<kapDeclRow> rows;
};
const BenchSchema& bench_schema(bool with_active);

// Declares `rows` under `root` (group "Bench"); a row refused stops the suite with its reason,
// so that no figure is measured on a tree cut short.
void bench_declare(kapParameterRoot* root, std::span<const kapDeclRow> rows);

// Live heap bytes, counted by the replaced global operator new / delete of the benchmark binary.
std::size_t bench_live_bytes() noexcept;

// Median times in nanoseconds of `a` and of `b`, run alternately `runs` times each so that both
// see the same moments of a noisy machine: the ratio of the two is what a benchmark reports.
// Times are the thread's CPU time, as the benchmarks' own figures are: on a shared machine the
// wall clock also counts the time other processes hold the core. Each timed run follows an
// untimed one of the same operation, so that neither pays for what the other left behind (cold
// caches, freed blocks that the allocator consolidates on the next large request).
template <class A, class B>
std::pair<double, double> bench_paired_medians(A&& a, B&& b, int runs = 31) {
    std::vector<double> ta(static_cast<std::size_t>(runs)), tb(ta.size());
    auto now = [] {
        timespec t{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
    };
    auto time = [&](auto& f) {
        const double start = now();
        f();
        return now() - start;
    };
    for (std::size_t i = 0; i < ta.size(); ++i) {
        a();
        ta[i] = time(a);
        b();
        tb[i] = time(b);
    }
    const auto median = [](std::vector<double>& t) {
        std::nth_element(t.begin(), t.begin() + static_cast<std::ptrdiff_t>(t.size() / 2), t.end());
        return t[t.size() / 2];
    };
    return {median(ta), median(tb)};
}
