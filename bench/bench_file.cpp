// Reading and writing a saved entity of toolpath size (the 1,570 pairs of the shared workload),
// side by side with boost::property_tree's read_json / write_json of the same pairs.
//
// Each benchmark also reports `ptree_over_kappar`: the median time of the property_tree
// operation divided by the median time of ours, both measured back to back at the end of the
// benchmark (31 runs each), so the ratio does not depend on how the machine drifts between
// benchmarks. Above 1 means we are faster.
//
// The pairs are the shared workload's (bench_support.h), read before the suite starts.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "bench_support.h"
#include "kappar/kapEntityFile.h"
#include "kapparameter/kapParameterFile.h"

#if KAPPAR_HAVE_BOOST
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#endif

namespace {

struct Workload {
    kapFileDocument doc;
    std::string text;  // our canonical text of doc
#if KAPPAR_HAVE_BOOST
    boost::property_tree::ptree tree;
    std::string json;
#endif
};

const Workload& workload() {
    static const Workload w = [] {
        Workload r;
        r.doc.kind = "toolpath";
        r.doc.version = 29;
        r.doc.name = "Raster 1";
        for (const BenchParam& p : bench_params()) {
            r.doc.pairs.push_back({p.key, p.value, 0, 0});
        }
        r.text = kap_write_entity_text(r.doc);
#if KAPPAR_HAVE_BOOST
        for (const kapFilePair& p : r.doc.pairs) {
            r.tree.put(boost::property_tree::ptree::path_type(p.key, '.'), p.value);
        }
        std::ostringstream os;
        boost::property_tree::write_json(os, r.tree);
        r.json = os.str();
#endif
        return r;
    }();
    return w;
}

template <class F>
double median_ns(F&& f, int runs = 31) {
    std::vector<double> t(runs);
    for (double& x : t) {
        const auto a = std::chrono::steady_clock::now();
        f();
        const auto b = std::chrono::steady_clock::now();
        x = std::chrono::duration<double, std::nano>(b - a).count();
    }
    std::nth_element(t.begin(), t.begin() + runs / 2, t.end());
    return t[runs / 2];
}

void read_ours() {
    kapFileDocument doc;
    kapFileError err;
    const bool ok = kap_read_entity_text(workload().text, doc, err);
    benchmark::DoNotOptimize(ok);
    benchmark::DoNotOptimize(doc.pairs.data());
}

void write_ours() {
    utString text = kap_write_entity_text(workload().doc);
    benchmark::DoNotOptimize(text.data());
}

// A toolpath-sized root declared from the workload's own rows, as an entity of that kind would
// be, and the workload loaded into it once (the writer's input).
const kapParameterRoot& declared() {
    static const kapParameterRoot* proto = [] {
        auto* root = new kapParameterRoot("toolpath", 29, "Raster 1");
        bench_declare(root, bench_schema(false).rows);
        root->seal();
        return root;
    }();
    return *proto;
}

const kapParameterRoot& loaded_root() {
    static const kapParameterRoot* root = [] {
        auto* r = new kapParameterRoot("toolpath", 29, "Raster 1");
        r->copy_children_from(declared());
        kapEntityLoadReport report;
        kapFileError err;
        kap_load_entity_into(*r, workload().doc, report, err);
        return r;
    }();
    return *root;
}

// Text -> pairs -> the entity's loader and updater, into a root built from the declarations.
kapParameterRoot& target_root() {
    static kapParameterRoot* root = [] {
        auto* r = new kapParameterRoot("toolpath", 29, "Raster 1");
        r->copy_children_from(declared());
        return r;
    }();
    return *root;
}

void read_and_load_ours() {
    kapParameterRoot& root = target_root();
    kapFileDocument doc;
    kapFileError err;
    kapEntityLoadReport report;
    bool ok = kap_read_entity_text(workload().text, doc, err);
    ok = ok && kap_load_entity_into(root, doc, report, err);
    benchmark::DoNotOptimize(ok);
}

// Tree -> pairs -> text.
void save_ours() {
    utString text = kap_write_entity_text(kap_entity_document(loaded_root()));
    benchmark::DoNotOptimize(text.data());
}

#if KAPPAR_HAVE_BOOST
void read_ptree() {
    std::istringstream is(workload().json);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(is, tree);
    benchmark::DoNotOptimize(&tree);
}

void write_ptree() {
    std::ostringstream os;
    boost::property_tree::write_json(os, workload().tree);
    benchmark::DoNotOptimize(os.str().data());
}
#endif

template <void (*Ours)(), void (*Reference)()>
void report_ratio(benchmark::State& state) {
#if KAPPAR_HAVE_BOOST
    const double ours = median_ns(Ours);
    const double reference = median_ns(Reference);
    state.counters["ptree_over_kappar"] = reference / ours;
    state.counters["kappar_us"] = ours / 1000.0;
    state.counters["ptree_us"] = reference / 1000.0;
#else
    (void)state;
#endif
}

void BM_EntityFile_Read(benchmark::State& state) {
    for (auto _ : state)
        read_ours();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * workload().text.size()));
    state.counters["pairs"] = static_cast<double>(workload().doc.pairs.size());
#if KAPPAR_HAVE_BOOST
    report_ratio<read_ours, read_ptree>(state);
#endif
}

void BM_EntityFile_Write(benchmark::State& state) {
    for (auto _ : state)
        write_ours();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * workload().text.size()));
#if KAPPAR_HAVE_BOOST
    report_ratio<write_ours, write_ptree>(state);
#endif
}

void BM_EntityFile_ReadAndLoad(benchmark::State& state) {
    for (auto _ : state)
        read_and_load_ours();
    kapFileError err;
    kapEntityLoadReport report;
    kapParameterRoot root("toolpath", 29, "Raster 1");
    root.copy_children_from(declared());
    kap_load_entity_into(root, workload().doc, report, err);
    state.counters["loaded"] = report.loaded;
    state.counters["unrecognised"] = static_cast<double>(report.unrecognised.size());
#if KAPPAR_HAVE_BOOST
    report_ratio<read_and_load_ours, read_ptree>(state);
#endif
}

void BM_EntityFile_Save(benchmark::State& state) {
    for (auto _ : state)
        save_ours();
#if KAPPAR_HAVE_BOOST
    report_ratio<save_ours, write_ptree>(state);
#endif
}

#if KAPPAR_HAVE_BOOST
void BM_EntityFile_PtreeReadJson(benchmark::State& state) {
    for (auto _ : state)
        read_ptree();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * workload().json.size()));
}

void BM_EntityFile_PtreeWriteJson(benchmark::State& state) {
    for (auto _ : state)
        write_ptree();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * workload().json.size()));
}
#endif

}  // namespace

BENCHMARK(BM_EntityFile_Read)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
BENCHMARK(BM_EntityFile_Write)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
BENCHMARK(BM_EntityFile_ReadAndLoad)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
BENCHMARK(BM_EntityFile_Save)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
#if KAPPAR_HAVE_BOOST
BENCHMARK(BM_EntityFile_PtreeReadJson)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
BENCHMARK(BM_EntityFile_PtreeWriteJson)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
#endif
