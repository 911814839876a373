// Construction and copy of the small entities and the boundary, each beside the floor for its
// size: allocating and freeing as many 64-byte blocks as the entity has parameter nodes.
//
//   Entity_Construct/<kind>  the name constructor (declarations copied from the kind's prototype)
//   Entity_Copy/<kind>       create_new on a constructed entity
//   Entity_Floor/<kind>      the allocator alone, for the same number of nodes
//
// Counters: nodes (parameters in the tree, maps included) and bytes (heap held by one instance).

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "kappar/kapBoundaryPar.h"
#include "kappar/kapDrillingHolePar.h"
#include "kappar/kapLevelPar.h"
#include "kappar/kapModelPar.h"
#include "kappar/kapPatternPar.h"
#include "kappar/kapStockModelPar.h"
#include "kappar/kapWorkplanePar.h"

namespace {

std::size_t count_nodes(const kapParameter& par) {
    std::size_t n = 1;
    if (const auto* map = kapParameterMap::ut_dynamic_cast(&par)) {
        for (std::size_t i = 0; i < map->size(); ++i)
            n += count_nodes(*map->child(i));
    }
    return n;
}

using MakeFn = kapParameter* (*)();

struct EntityCase {
    const char* kind;
    MakeFn make;
};

template <class E>
kapParameter* make_entity() {
    return new E(utString("Bench"));
}
kapParameter* make_element() {
    return new kapModelHierarchyElementPar(utString("Bench"), kapParameterPtr());
}

// clang-format off
const EntityCase kEntities[] = {
    {"workplane",    &make_entity<kapWorkplanePar>},
    {"level",        &make_entity<kapLevelPar>},
    {"pattern",      &make_entity<kapPatternPar>},
    {"model",        &make_entity<kapModelPar>},
    {"stockmodel",   &make_entity<kapStockModelPar>},
    {"DrillingHole", &make_entity<kapDrillingHolePar>},
    {"hierarchy",    &make_element},
    {"boundary",     &make_entity<kapBoundaryPar>},
};
// clang-format on

// Nodes of one instance and the heap it holds; made once, after the kind's prototype exists.
struct Size {
    std::size_t nodes = 0;
    std::size_t bytes = 0;
};
Size size_of(MakeFn make) {
    std::unique_ptr<kapParameter>(make()).reset();  // the prototype is made on first use
    const std::size_t before = bench_live_bytes();
    std::unique_ptr<kapParameter> one(make());
    const std::size_t bytes = bench_live_bytes() - before;
    return {count_nodes(*one), bytes};
}

void set_counters(benchmark::State& state, const Size& size) {
    state.counters["nodes"] = static_cast<double>(size.nodes);
    state.counters["bytes"] = static_cast<double>(size.bytes);
}

void construct(benchmark::State& state, MakeFn make) {
    const Size size = size_of(make);
    for (auto _ : state) {
        kapParameter* e = make();
        benchmark::DoNotOptimize(e);
        delete e;
    }
    set_counters(state, size);
}

void copy(benchmark::State& state, MakeFn make) {
    const Size size = size_of(make);
    const std::unique_ptr<kapParameter> source(make());
    for (auto _ : state) {
        kapParameter* e = source->create_new();
        benchmark::DoNotOptimize(e);
        delete e;
    }
    set_counters(state, size);
}

void allocator_floor(benchmark::State& state, MakeFn make) {
    const Size size = size_of(make);
    std::vector<void*> blocks(size.nodes);
    for (auto _ : state) {
        for (auto& b : blocks)
            b = ::operator new(64);
        benchmark::DoNotOptimize(blocks.data());
        for (void* b : blocks)
            ::operator delete(b);
    }
    set_counters(state, Size{size.nodes, size.nodes * 64});
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const EntityCase& e : kEntities) {
        const std::string kind(e.kind);
        benchmark::RegisterBenchmark(("Entity_Construct/" + kind).c_str(), construct, e.make);
        benchmark::RegisterBenchmark(("Entity_Copy/" + kind).c_str(), copy, e.make);
        benchmark::RegisterBenchmark(("Entity_Floor/" + kind).c_str(), allocator_floor, e.make);
    }
    return true;
}();

}  // namespace
