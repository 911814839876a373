// Parameter trees on the 1,570-parameter workload, side by side with the floor (allocating and
// freeing as many 64-byte nodes) and boost::property_tree doing the same work.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "bench_support.h"
#include "kapparameter/kapParameter.h"

#ifdef KAPPAR_HAVE_BOOST
#include <boost/property_tree/ptree.hpp>
#endif

namespace {

const kapParameterRoot& prototype() {
    static const kapParameterRoot* proto = [] {
        auto* root = new kapParameterRoot("bench", 1, "");
        bench_declare(root, bench_schema(false).rows);
        root->seal();
        return root;
    }();
    return *proto;
}

// One round of each measured operation.
void floor_once(std::vector<void*>& blocks) {
    for (auto& b : blocks)
        b = ::operator new(64);
    benchmark::DoNotOptimize(blocks.data());
    for (auto* b : blocks)
        ::operator delete(b);
}

void construct_once(const kapParameterRoot& proto) {
    auto* root = new kapParameterRoot("bench", 1, "");
    root->copy_children_from(proto);
    benchmark::DoNotOptimize(root);
    delete root;
}

void copy_once(const kapParameterRoot& source) {
    auto* copy = new kapParameterRoot(source);
    benchmark::DoNotOptimize(copy);
    delete copy;
}

void BM_Floor_AllocFree64(benchmark::State& state) {
    const std::size_t n = bench_params().size();
    std::vector<void*> blocks(n);
    for (auto _ : state)
        floor_once(blocks);
    state.counters["params"] = static_cast<double>(n);
}
BENCHMARK(BM_Floor_AllocFree64);

void BM_Tree_ConstructFromDeclarations(benchmark::State& state) {
    const auto& proto = prototype();
    for (auto _ : state)
        construct_once(proto);
    const std::size_t before = bench_live_bytes();
    auto* root = new kapParameterRoot("bench", 1, "");
    root->copy_children_from(proto);
    const std::size_t bytes = bench_live_bytes() - before;
    delete root;
    state.counters["bytes_per_param"] =
        static_cast<double>(bytes) / static_cast<double>(bench_params().size());
}
BENCHMARK(BM_Tree_ConstructFromDeclarations);

void BM_Tree_Copy(benchmark::State& state) {
    kapParameterRoot source("bench", 1, "");
    source.copy_children_from(prototype());
    for (auto _ : state)
        copy_once(source);
}
BENCHMARK(BM_Tree_Copy);

void BM_Tree_LookupAllPaths(benchmark::State& state) {
    kapParameterRoot root("bench", 1, "");
    root.copy_children_from(prototype());
    const auto& params = bench_params();
    for (auto _ : state) {
        for (const auto& p : params)
            benchmark::DoNotOptimize(root.find_node(p.key));
    }
    state.counters["ns_per_lookup"] = benchmark::Counter(
        static_cast<double>(params.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Tree_LookupAllPaths);

void BM_Tree_LookupAllKeys(benchmark::State& state) {
    kapParameterRoot root("bench", 1, "");
    root.copy_children_from(prototype());
    const auto& params = bench_params();
    std::vector<kapParameterKey> keys;
    for (const auto& p : params)
        keys.emplace_back(p.key);
    for (auto _ : state) {
        for (const auto& k : keys)
            benchmark::DoNotOptimize(root[k]);
    }
    state.counters["ns_per_lookup"] = benchmark::Counter(
        static_cast<double>(params.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Tree_LookupAllKeys);

#ifdef KAPPAR_HAVE_BOOST
using boost::property_tree::ptree;

ptree build_ptree() {
    ptree t;
    for (const auto& p : bench_params())
        t.put(p.key, p.value);
    return t;
}

void BM_Boost_Build(benchmark::State& state) {
    for (auto _ : state) {
        auto* t = new ptree(build_ptree());
        benchmark::DoNotOptimize(t);
        delete t;
    }
    const std::size_t before = bench_live_bytes();
    auto* t = new ptree(build_ptree());
    const std::size_t bytes = bench_live_bytes() - before;
    delete t;
    state.counters["bytes_per_param"] =
        static_cast<double>(bytes) / static_cast<double>(bench_params().size());
}
BENCHMARK(BM_Boost_Build);

void BM_Boost_Copy(benchmark::State& state) {
    const ptree source = build_ptree();
    for (auto _ : state) {
        auto* t = new ptree(source);
        benchmark::DoNotOptimize(t);
        delete t;
    }
}
BENCHMARK(BM_Boost_Copy);

void BM_Boost_LookupAllPaths(benchmark::State& state) {
    const ptree t = build_ptree();
    const auto& params = bench_params();
    for (auto _ : state) {
        for (const auto& p : params)
            benchmark::DoNotOptimize(t.get_child_optional(p.key));
    }
    state.counters["ns_per_lookup"] = benchmark::Counter(
        static_cast<double>(params.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Boost_LookupAllPaths);
#endif

// The targets are ratios, and the machines are shared: a load that comes and goes between two
// benchmarks moves their ratio. Here every round times a few runs of each operation in turn
// (a few milliseconds in all, so that the operations share the load of the moment and each runs
// warm, as in the benchmarks above), and the ratios are those of the medians over all rounds.
double median_of(std::vector<double>& v) {
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

template <class Fn>
double seconds_of(Fn&& fn) {
    const auto t0 = std::chrono::steady_clock::now();
    fn();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

void BM_Tree_Ratios(benchmark::State& state) {
    const auto& proto = prototype();
    kapParameterRoot source("bench", 1, "");
    source.copy_children_from(proto);
    std::vector<void*> blocks(bench_params().size());
    std::vector<double> floor_s, construct_s, copy_s, boost_s;
    for (auto _ : state) {
        for (int i = 0; i < 8; ++i)
            floor_s.push_back(seconds_of([&] { floor_once(blocks); }));
        for (int i = 0; i < 8; ++i) {
            construct_s.push_back(seconds_of([&] { construct_once(proto); }));
        }
        for (int i = 0; i < 8; ++i)
            copy_s.push_back(seconds_of([&] { copy_once(source); }));
#ifdef KAPPAR_HAVE_BOOST
        for (int i = 0; i < 2; ++i) {
            boost_s.push_back(seconds_of([&] { benchmark::DoNotOptimize(build_ptree()); }));
        }
#endif
    }
    const double floor = median_of(floor_s);
    const double construct = median_of(construct_s);
    state.counters["floor_us"] = floor * 1e6;
    state.counters["construct_us"] = construct * 1e6;
    state.counters["construct_x_floor"] = construct / floor;
    state.counters["copy_x_floor"] = median_of(copy_s) / floor;
    if (!boost_s.empty())
        state.counters["boost_build_x_construct"] = median_of(boost_s) / construct;
}
BENCHMARK(BM_Tree_Ratios)->MinTime(2.0);

}  // namespace
