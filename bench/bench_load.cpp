// Reading and loading saved toolpaths as the tool does (the text read into pairs, then
// kap_load_entity: a new toolpath, its loader fed every pair, its update chain from the saved
// version):
//
//   Toolpath_ReadLoad_Version29   a fresh toolpath with a few dozen edited values, saved at the
//                                 current version
//   Toolpath_ReadLoad_Version0    the same toolpath written as version 0 saved it: the old key of
//                                 the synonym table where one renames the path, else the legacy
//                                 key of every step of the path; loaded and upgraded by all 29
//                                 steps
//   Toolpath_PtreeReadJson        boost::property_tree's read_json of the version-29 pairs
//
// Counters: pairs, edits, old_keys (pairs whose key version 0 wrote otherwise), loaded and
// unrecognised (what the load made of the pairs), version (after the update), and the
// ratios, medians of the two operations run alternately after the benchmark's own loop:
//   over_read_json    the version-29 load over read_json
//   over_version29    the version-0 load and upgrade over the version-29 load

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench_support.h"
#include "kappar/kapEntityFile.h"
#include "kappar/kapToolpathPar.h"
#include "kapparameter/kapParameterFile.h"

#ifdef KAPPAR_HAVE_BOOST
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#endif

namespace {

constexpr int kEdits = 36;

// Every node's saved key and the key version 0 gave it: the legacy key (the lower-case name
// where none is declared) of each step, an element of a sequence as "[i]".
void legacy_keys(const kapParameterMap& map, const utString& key, const utString& old,
                 std::unordered_map<utString, utString>& out) {
    const bool sequence = kapParameterList::ut_dynamic_cast(&map) != nullptr;
    for (std::size_t i = 0; i < map.size(); ++i) {
        const kapParameter& child = *map.child(i);
        utString k = key;
        utString o = old;
        if (sequence) {
            const utString index = "[" + std::to_string(i) + "]";
            k += index;
            o += index;
        } else {
            const utString& legacy = child.get_legacy_key();
            if (!k.empty()) k += '.';
            if (!o.empty()) o += '.';
            k += child.get_name();
            o += legacy.empty() ? kapdowncase(child.get_name()) : legacy;
        }
        out.emplace(k, o);
        if (const auto* sub = kapParameterMap::ut_dynamic_cast(&child))
            legacy_keys(*sub, k, o, out);
    }
}

// Numeric parameters spread over the tree, each given another value through the setter.
int edit_values(kapToolpathPar& tp) {
    std::vector<kapParameter*> numbers;
    std::vector<const kapParameterMap*> todo{&tp};
    while (!todo.empty()) {
        const kapParameterMap* map = todo.back();
        todo.pop_back();
        for (const kapParameterPtr& c : map->children()) {
            if (const auto* sub = kapParameterMap::ut_dynamic_cast(c.pointer())) {
                todo.push_back(sub);
            } else if (c->type() == kapParameterType::numeric && !c->is_expr()) {
                numbers.push_back(c.pointer());
            }
        }
    }
    int edits = 0;
    const std::size_t step = numbers.size() / (2 * kEdits) + 1;
    for (std::size_t i = 0; i < numbers.size() && edits < kEdits; i += step) {
        const double v = numbers[i]->get_double();
        if (numbers[i]->set_double(v + 1.0)) ++edits;
    }
    return edits;
}

struct Saved {
    std::string current;  // version 29
    std::string old;      // version 0
    std::size_t pairs = 0;
    std::size_t old_keys = 0;  // pairs whose key version 0 wrote differently
    int edits = 0;
#ifdef KAPPAR_HAVE_BOOST
    std::string json;
#endif
};

const Saved& saved() {
    static const Saved s = [] {
        Saved out;
        kapToolpathPar tp(utString("Raster 1"));
        out.edits = edit_values(tp);
        const kapFileDocument doc = kap_entity_document(tp);
        out.current = kap_write_entity_text(doc);
        out.pairs = doc.pairs.size();

        std::unordered_map<utString, utString> old_of;
        legacy_keys(tp, utString(), utString(), old_of);
        std::unordered_map<std::string_view, std::string_view> renamed;
        std::set<std::string_view> renamed_from;
        for (const auto& row : kapToolpathPar::key_synonyms()) {
            renamed.emplace(row.current, row.legacy);  // the first row of a path wins
            renamed_from.insert(row.legacy);
        }
        kapFileDocument v0 = doc;
        v0.version = 0;
        std::set<utString> used;
        for (kapFilePair& p : v0.pairs) {
            utString key = p.key;
            if (auto r = renamed.find(p.key); r != renamed.end()) {
                key = utString(r->second);
            } else if (auto o = old_of.find(p.key);
                       o != old_of.end() && !renamed_from.contains(o->second)) {
                key = o->second;
            }
            // Two paths with one old key: the second keeps its current key.
            if (key != p.key && used.insert(key).second) {
                p.key = key;
                ++out.old_keys;
            }
            used.insert(p.key);
        }
        out.old = kap_write_entity_text(v0);

#ifdef KAPPAR_HAVE_BOOST
        boost::property_tree::ptree tree;
        for (const kapFilePair& p : doc.pairs) {
            tree.put(boost::property_tree::ptree::path_type(p.key, '.'), p.value);
        }
        std::ostringstream os;
        boost::property_tree::write_json(os, tree);
        out.json = os.str();
#endif
        return out;
    }();
    return s;
}

std::unique_ptr<kapParameterRoot> read_and_load(const std::string& text,
                                                kapEntityLoadReport& report) {
    kapFileDocument doc;
    kapFileError err;
    if (!kap_read_entity_text(text, doc, err)) return nullptr;
    return kap_load_entity(doc, report, err);
}

void load_current() {
    kapEntityLoadReport report;
    benchmark::DoNotOptimize(read_and_load(saved().current, report));
}

void load_old() {
    kapEntityLoadReport report;
    benchmark::DoNotOptimize(read_and_load(saved().old, report));
}

#ifdef KAPPAR_HAVE_BOOST
void read_json() {
    std::istringstream is(saved().json);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(is, tree);
    benchmark::DoNotOptimize(&tree);
}
#endif

void report_load(benchmark::State& state, const std::string& text) {
    kapEntityLoadReport report;
    const auto root = read_and_load(text, report);
    if (!root) {
        state.SkipWithError("the saved toolpath does not load");
        return;
    }
    state.counters["pairs"] = static_cast<double>(saved().pairs);
    state.counters["edits"] = saved().edits;
    state.counters["loaded"] = report.loaded;
    state.counters["unrecognised"] = static_cast<double>(report.unrecognised.size());
    state.counters["version"] = root->version();
}

void BM_Toolpath_ReadLoad_Version29(benchmark::State& state) {
    for (auto _ : state)
        load_current();
    report_load(state, saved().current);
#ifdef KAPPAR_HAVE_BOOST
    const auto [ours, reference] = bench_paired_medians(load_current, read_json);
    state.counters["over_read_json"] = ours / reference;
#endif
}
BENCHMARK(BM_Toolpath_ReadLoad_Version29)->Unit(benchmark::kMicrosecond);

void BM_Toolpath_ReadLoad_Version0(benchmark::State& state) {
    for (auto _ : state)
        load_old();
    report_load(state, saved().old);
    state.counters["old_keys"] = static_cast<double>(saved().old_keys);
    const auto [ours, reference] = bench_paired_medians(load_old, load_current);
    state.counters["over_version29"] = ours / reference;
}
BENCHMARK(BM_Toolpath_ReadLoad_Version0)->Unit(benchmark::kMicrosecond);

#ifdef KAPPAR_HAVE_BOOST
void BM_Toolpath_PtreeReadJson(benchmark::State& state) {
    for (auto _ : state)
        read_json();
    state.counters["pairs"] = static_cast<double>(saved().pairs);
}
BENCHMARK(BM_Toolpath_PtreeReadJson)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
