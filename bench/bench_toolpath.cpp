// The toolpath, the largest entity, beside its references measured in the same run:
//
//   Toolpath_Construct        the name constructor (declarations copied from the prototype)
//   Toolpath_Copy             create_new on a constructed toolpath
//   Toolpath_Floor            allocating and freeing as many 64-byte blocks as it has nodes
//   Toolpath_PropertyTree     boost::property_tree putting the same paths (when built with boost)
//   Toolpath_Activity         is_active on every node, once under each of the 83 strategies;
//                             counter ns_per_param is the time per parameter and strategy
//
// Counters: nodes, bytes and copy_bytes (heap held by one constructed / copied instance beyond
// the shared declarations), bytes_per_param. The ratios are medians of the two operations run
// alternately after the benchmark's own loop, so that both see the same machine:
//   over_floor          our time / the floor's (Construct, Copy)
//   ptree_over_kappar   property_tree's time / ours (Construct)
//   muparser_ns         muparser evaluating a compiled condition of three comparisons joined by
//                       OR/AND, per evaluation, and over_muparser our time per parameter over it
//                       (Activity, when built with muparser)

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
#ifdef KAPPAR_HAVE_MUPARSER
#include <muParser.h>
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
    std::size_t bytes = 0;       // one constructed instance
    std::size_t copy_bytes = 0;  // one copy of it
};

const Shape& shape() {
    static const Shape s = [] {
        Shape out;
        std::make_unique<kapToolpathPar>(utString("Warm")).reset();
        std::size_t before = bench_live_bytes();
        auto* one = new kapToolpathPar(utString("Bench"));
        out.bytes = bench_live_bytes() - before;
        before = bench_live_bytes();
        std::unique_ptr<kapParameter> copy(one->create_new());
        out.copy_bytes = bench_live_bytes() - before;
        collect(*one, std::string(), out.nodes);
        // Kept for the node pointers; the process ends after the benchmarks.
        return out;
    }();
    return s;
}

void set_counters(benchmark::State& state) {
    const Shape& s = shape();
    state.counters["nodes"] = static_cast<double>(s.nodes.size() + 1);
    state.counters["bytes"] = static_cast<double>(s.bytes);
    state.counters["copy_bytes"] = static_cast<double>(s.copy_bytes);
    state.counters["bytes_per_param"] =
        static_cast<double>(s.bytes) / static_cast<double>(s.nodes.size());
}

void construct_once() {
    auto* tp = new kapToolpathPar(utString("Bench"));
    benchmark::DoNotOptimize(tp);
    delete tp;
}

const kapToolpathPar& copy_source() {
    static const kapToolpathPar source(utString("Bench"));
    return source;
}

void copy_once() {
    kapParameter* tp = copy_source().create_new();
    benchmark::DoNotOptimize(tp);
    delete tp;
}

// As many 64-byte blocks as the toolpath has nodes, allocated and freed.
void floor_once() {
    static std::vector<void*> blocks(shape().nodes.size() + 1);
    for (auto& b : blocks)
        b = ::operator new(64);
    benchmark::DoNotOptimize(blocks.data());
    for (void* b : blocks)
        ::operator delete(b);
}

#ifdef KAPPAR_HAVE_BOOST
// The same paths put into a property tree, then the tree destroyed.
void ptree_once() {
    boost::property_tree::ptree tree;
    for (const Node& n : shape().nodes)
        tree.put(n.path, "0");
    benchmark::DoNotOptimize(tree);
}
#endif

void BM_Toolpath_Construct(benchmark::State& state) {
    for (auto _ : state)
        construct_once();
    set_counters(state);
    const auto [ours, floor] = bench_paired_medians(construct_once, floor_once, 101);
    state.counters["over_floor"] = ours / floor;
#ifdef KAPPAR_HAVE_BOOST
    const auto [ours2, ptree] = bench_paired_medians(construct_once, ptree_once, 21);
    state.counters["ptree_over_kappar"] = ptree / ours2;
#endif
}
BENCHMARK(BM_Toolpath_Construct)->Unit(benchmark::kMicrosecond);

void BM_Toolpath_Copy(benchmark::State& state) {
    for (auto _ : state)
        copy_once();
    set_counters(state);
    const auto [ours, floor] = bench_paired_medians(copy_once, floor_once, 101);
    state.counters["over_floor"] = ours / floor;
}
BENCHMARK(BM_Toolpath_Copy)->Unit(benchmark::kMicrosecond);

void BM_Toolpath_Floor(benchmark::State& state) {
    for (auto _ : state)
        floor_once();
    set_counters(state);
}
BENCHMARK(BM_Toolpath_Floor)->Unit(benchmark::kMicrosecond);

#ifdef KAPPAR_HAVE_BOOST
void BM_Toolpath_PropertyTree(benchmark::State& state) {
    for (auto _ : state)
        ptree_once();
    set_counters(state);
}
BENCHMARK(BM_Toolpath_PropertyTree)->Unit(benchmark::kMicrosecond);
#endif

struct ActivityRun {
    kapToolpathPar tp{utString("Bench")};
    std::vector<Node> nodes;
    std::vector<utString> strategies;
    kapParameter* strategy = nullptr;

    ActivityRun() {
        collect(tp, std::string(), nodes);
        strategy = tp["Strategy"].pointer();
        if (const auto* e = kapParameterEnum::ut_dynamic_cast(strategy)) {
            for (int i = 0; i < e->num_states(); ++i)
                strategies.push_back(e->state(i).key);
        }
    }
    // Every parameter's activity under every strategy.
    void sweep() const {
        for (const utString& s : strategies) {
            strategy->set_string(s);
            for (const Node& n : nodes)
                benchmark::DoNotOptimize(n.par->is_active());
        }
    }
    double evaluations() const { return static_cast<double>(nodes.size() * strategies.size()); }
};

void BM_Toolpath_Activity(benchmark::State& state) {
    ActivityRun run;
    for (auto _ : state)
        run.sweep();
    state.counters["strategies"] = static_cast<double>(run.strategies.size());
    // Seconds per (parameter, strategy), shown in nanoseconds.
    state.counters["ns_per_param"] =
        benchmark::Counter(run.evaluations() * 1e-9, benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
#ifdef KAPPAR_HAVE_MUPARSER
    // The same number of evaluations of one compiled condition, enumerations coded as numbers.
    double strategy = 1;
    double projection = 5;
    double tolerance = 0.1;
    mu::Parser parser;
    parser.DefineVar("Strategy", &strategy);
    parser.DefineVar("ProjectionStyle", &projection);
    parser.DefineVar("Tolerance", &tolerance);
    parser.SetExpr("Strategy==1 || Strategy==2 && Tolerance>0.01");
    parser.Eval();
    const std::size_t count = run.nodes.size() * run.strategies.size();
    auto reference = [&] {
        for (std::size_t i = 0; i < count; ++i) {
            strategy = static_cast<double>(i % 83);
            benchmark::DoNotOptimize(parser.Eval());
        }
    };
    const auto [ours, mu] = bench_paired_medians([&] { run.sweep(); }, reference, 7);
    state.counters["muparser_ns"] = mu / run.evaluations();
    state.counters["over_muparser"] = ours / mu;
#endif
}
BENCHMARK(BM_Toolpath_Activity)->Unit(benchmark::kMillisecond);

}  // namespace
