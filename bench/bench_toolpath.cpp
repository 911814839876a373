// The toolpath, the largest entity, beside its references measured in the same run:
//
//   Toolpath_Construct        the name constructor (declarations copied from the prototype)
//   Toolpath_Copy             create_new on a constructed toolpath
//   Toolpath_Floor            allocating and freeing as many 64-byte blocks as it has nodes
//   Toolpath_PropertyTree     boost::property_tree putting the same paths (when built with boost)
//   Toolpath_Activity         is_active on every node, once under each of the 83 strategies;
//                             counter ns_per_param is the time per parameter and strategy
//
// Counters: nodes and bytes (heap held by one instance beyond the shared declarations).

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "kappar/kapToolpathPar.h"

#ifdef KAPPAR_HAVE_BOOST
#include <boost/property_tree/ptree.hpp>
#endif

namespace {

struct Node {
    const kapParameter* par;
    std::string path;
};

void collect(const kapParameter& par, const std::string& path, std::vector<Node>& out) {
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) return;
    const bool indexed = kapParameterArray::ut_dynamic_cast(&par) != nullptr ||
                         kapParameterList::ut_dynamic_cast(&par) != nullptr;
    for (std::size_t i = 0; i < map->size(); ++i) {
        const kapParameter& c = *map->child(i);
        const std::string step = indexed ? std::to_string(i) : c.get_name();
        const std::string where = path.empty() ? step : path + "." + step;
        out.push_back({&c, where});
        collect(c, where, out);
    }
}

struct Shape {
    std::vector<Node> nodes;
    std::size_t bytes = 0;
};

const Shape& shape() {
    static const Shape s = [] {
        Shape out;
        std::make_unique<kapToolpathPar>(utString("Warm")).reset();
        const std::size_t before = bench_live_bytes();
        auto* one = new kapToolpathPar(utString("Bench"));
        out.bytes = bench_live_bytes() - before;
        collect(*one, std::string(), out.nodes);
        // Kept for the node pointers; the process ends after the benchmarks.
        return out;
    }();
    return s;
}

void set_counters(benchmark::State& state) {
    state.counters["nodes"] = static_cast<double>(shape().nodes.size() + 1);
    state.counters["bytes"] = static_cast<double>(shape().bytes);
    state.counters["bytes_per_param"] =
        static_cast<double>(shape().bytes) / static_cast<double>(shape().nodes.size());
}

void BM_Toolpath_Construct(benchmark::State& state) {
    for (auto _ : state) {
        auto* tp = new kapToolpathPar(utString("Bench"));
        benchmark::DoNotOptimize(tp);
        delete tp;
    }
    set_counters(state);
}
BENCHMARK(BM_Toolpath_Construct);

void BM_Toolpath_Copy(benchmark::State& state) {
    const kapToolpathPar source(utString("Bench"));
    for (auto _ : state) {
        kapParameter* tp = source.create_new();
        benchmark::DoNotOptimize(tp);
        delete tp;
    }
    set_counters(state);
}
BENCHMARK(BM_Toolpath_Copy);

void BM_Toolpath_Floor(benchmark::State& state) {
    std::vector<void*> blocks(shape().nodes.size() + 1);
    for (auto _ : state) {
        for (auto& b : blocks) b = ::operator new(64);
        benchmark::DoNotOptimize(blocks.data());
        for (void* b : blocks) ::operator delete(b);
    }
    set_counters(state);
}
BENCHMARK(BM_Toolpath_Floor);

#ifdef KAPPAR_HAVE_BOOST
void BM_Toolpath_PropertyTree(benchmark::State& state) {
    const auto& nodes = shape().nodes;
    for (auto _ : state) {
        boost::property_tree::ptree tree;
        for (const Node& n : nodes) tree.put(n.path, "0");
        benchmark::DoNotOptimize(tree);
    }
    set_counters(state);
}
BENCHMARK(BM_Toolpath_PropertyTree);
#endif

void BM_Toolpath_Activity(benchmark::State& state) {
    kapToolpathPar tp(utString("Bench"));
    std::vector<Node> nodes;
    collect(tp, std::string(), nodes);
    const auto* strategy = kapParameterEnum::ut_dynamic_cast(tp["Strategy"].pointer());
    std::vector<utString> states;
    for (int i = 0; strategy != nullptr && i < strategy->num_states(); ++i) {
        states.push_back(strategy->state(i).key);
    }
    kapParameter* writable = tp["Strategy"].pointer();
    for (auto _ : state) {
        for (const utString& s : states) {
            writable->set_string(s);
            for (const Node& n : nodes) benchmark::DoNotOptimize(n.par->is_active());
        }
    }
    // Seconds per (parameter, strategy), shown in nanoseconds.
    state.counters["ns_per_param"] = benchmark::Counter(
        static_cast<double>(nodes.size() * states.size()) * 1e-9,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Toolpath_Activity)->Unit(benchmark::kMillisecond);

}  // namespace
