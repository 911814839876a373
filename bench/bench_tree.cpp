// Parameter trees on the 1,570-parameter workload, side by side with the floor (allocating and
// freeing as many 64-byte nodes) and boost::property_tree doing the same work.

#include <benchmark/benchmark.h>

#include <memory>

#include "bench_support.h"
#include "kapparameter/kapParameter.h"

#ifdef KAPPAR_HAVE_BOOST
#include <boost/property_tree/ptree.hpp>
#endif

namespace {

const kapParameterRoot& prototype() {
    static const kapParameterRoot* proto = [] {
        auto* root = new kapParameterRoot("bench", 1, "");
        kap_declare(root, bench_schema(false).rows, "Bench");
        root->seal();
        return root;
    }();
    return *proto;
}

void BM_Floor_AllocFree64(benchmark::State& state) {
    const std::size_t n = bench_params().size();
    std::vector<void*> blocks(n);
    for (auto _ : state) {
        for (auto& b : blocks) b = ::operator new(64);
        benchmark::DoNotOptimize(blocks.data());
        for (auto* b : blocks) ::operator delete(b);
    }
    state.counters["params"] = static_cast<double>(n);
}
BENCHMARK(BM_Floor_AllocFree64);

void BM_Tree_ConstructFromDeclarations(benchmark::State& state) {
    const auto& proto = prototype();
    for (auto _ : state) {
        auto* root = new kapParameterRoot("bench", 1, "");
        root->copy_children_from(proto);
        benchmark::DoNotOptimize(root);
        delete root;
    }
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
    for (auto _ : state) {
        auto* copy = new kapParameterRoot(source);
        benchmark::DoNotOptimize(copy);
        delete copy;
    }
}
BENCHMARK(BM_Tree_Copy);

void BM_Tree_LookupAllPaths(benchmark::State& state) {
    kapParameterRoot root("bench", 1, "");
    root.copy_children_from(prototype());
    const auto& params = bench_params();
    for (auto _ : state) {
        for (const auto& p : params) benchmark::DoNotOptimize(root.find_node(p.key));
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
    for (const auto& p : params) keys.emplace_back(p.key);
    for (auto _ : state) {
        for (const auto& k : keys) benchmark::DoNotOptimize(root[k]);
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
    for (const auto& p : bench_params()) t.put(p.key, p.value);
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
        for (const auto& p : params) benchmark::DoNotOptimize(t.get_child_optional(p.key));
    }
    state.counters["ns_per_lookup"] = benchmark::Counter(
        static_cast<double>(params.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Boost_LookupAllPaths);
#endif

}  // namespace
