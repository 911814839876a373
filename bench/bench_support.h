#pragma once
// Shared workload of the benchmarks: the 1,570 parameters of a synthetic toolpath-sized tree,
// and a counter of the bytes the process holds on the heap.

#include <atomic>
#include <cstddef>
#include <deque>
#include <string>
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
