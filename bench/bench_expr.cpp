// Expressions on parameter trees, side by side with muparser doing the same work:
//   - a numeric default whose value is "max(0.3;2*Rootpar.Tolerance)", read with get_double (the
//     compiled form is kept with the value) against muparser's compiled "max(0.3,2*Tolerance)",
//     on an entity-like tree (declared, sealed, instantiated) and on a tree made node by node;
//   - compiling a text: distinct texts, so that our compile cache never answers (it is emptied
//     each time the set of texts wraps round, inside the timing), and without the cache at all,
//     against muparser's parse (SetExpr, then the first Eval, which is where muparser parses);
//   - the activity of every parameter of the 1,570-parameter workload with activity conditions of
//     three comparisons joined by OR/AND, against muparser evaluating the same conditions with
//     the enumerations coded as numbers, and against the same tree without conditions (the cost
//     of asking at all).

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench_support.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"
#include "kapparameter/kapParameter.h"

#ifdef KAPPAR_HAVE_MUPARSER
#include <muParser.h>
#endif

namespace {

constexpr int kDistinctTexts = 4096;

// A root holding "Tolerance" and, inside two levels of maps, "Thickness" whose value is the
// expression; the default reads the root's tolerance from wherever it is declared.
struct DefaultTree {
    kapParameterRoot root{"benchexpr", 1, ""};
    kapParameter* thickness = nullptr;

    explicit DefaultTree(const char* text) {
        root.add("Tolerance", kapParameterPtr(new kapParameterNumeric(
                                  kapSubTypeReal, kapDimensions(kapDimLength), 0.1)));
        root.add("Stock", kapParameterPtr(new kapParameterMap()));
        root.add("Stock.Allowance", kapParameterPtr(new kapParameterMap()));
        kapParameterPtr t = root.add("Stock.Allowance.Thickness",
                                     kapParameterPtr(new kapParameterNumeric(
                                         kapSubTypeReal, kapDimensions(kapDimLength), 0)));
        t->set_string(text);
        thickness = t.pointer();
    }
};

// The same parameters declared as an entity's are: rows, a sealed prototype, an instance.
const kapParameterRoot& default_prototype() {
    static const kapParameterRoot* proto = [] {
        static constexpr kapDeclRow rows[] = {
            {.path = "Tolerance",
             .label = "Tolerance",
             .dim = kapDimLength,
             .def = "0.1",
             .def_inch = "0.1"},
            {.path = "Stock", .label = "Stock", .kind = kapDeclKind::map},
            {.path = "Stock.Allowance", .label = "Allowance", .kind = kapDeclKind::map},
            {.path = "Stock.Allowance.Thickness",
             .label = "Thickness",
             .dim = kapDimLength,
             .def = "max(0.3;2*Rootpar.Tolerance)"},
        };
        auto* root = new kapParameterRoot("benchexpr", 1, "");
        bench_declare(root, rows);
        root->seal();
        return root;
    }();
    return *proto;
}

void BM_Expr_EvalDefault_Kappar(benchmark::State& state) {
    kapParameterRoot root("benchexpr", 1, "");
    root.copy_children_from(default_prototype());
    const kapParameter* thickness = root.find_node("Stock.Allowance.Thickness");
    if (thickness->get_double() != 0.3) state.SkipWithError("wrong value");
    for (auto _ : state)
        benchmark::DoNotOptimize(thickness->get_double());
}
BENCHMARK(BM_Expr_EvalDefault_Kappar);

// On a tree made node by node (declarations neither shared nor sealed).
void BM_Expr_EvalDefault_Unsealed_Kappar(benchmark::State& state) {
    DefaultTree tree("max(0.3;2*Rootpar.Tolerance)");
    if (tree.thickness->get_double() != 0.3) state.SkipWithError("wrong value");
    for (auto _ : state)
        benchmark::DoNotOptimize(tree.thickness->get_double());
}
BENCHMARK(BM_Expr_EvalDefault_Unsealed_Kappar);

// The same text through kapEvaluator: compile cache lookup, evaluation, and a fresh parameter for
// the answer.
void BM_Expr_EvaluatorText_Kappar(benchmark::State& state) {
    DefaultTree tree("0");
    const kapEvaluator ev(tree.thickness);
    const utString text = "max(0.3;2*Rootpar.Tolerance)";
    for (auto _ : state)
        benchmark::DoNotOptimize(ev.evaluate(text));
}
BENCHMARK(BM_Expr_EvaluatorText_Kappar);

std::vector<std::string> distinct_texts(const char* format) {
    std::vector<std::string> out;
    out.reserve(kDistinctTexts);
    char buf[96];
    for (int i = 0; i < kDistinctTexts; ++i) {
        std::snprintf(buf, sizeof buf, format, i + 1);
        out.emplace_back(buf);
    }
    return out;
}

// kapExpr::compile on texts it has not seen: a cache miss, the compilation and the insertion.
void BM_Expr_Compile_Kappar(benchmark::State& state) {
    const auto texts = distinct_texts("max(0.%07d;2*Rootpar.Tolerance)");
    kapExpr::clear_cache();
    std::size_t i = 0;
    for (auto _ : state) {
        if (i == texts.size()) {
            kapExpr::clear_cache();
            i = 0;
        }
        benchmark::DoNotOptimize(kapExpr::compile(texts[i++]));
    }
    kapExpr::clear_cache();
}
BENCHMARK(BM_Expr_Compile_Kappar);

void BM_Expr_CompileUncached_Kappar(benchmark::State& state) {
    const auto texts = distinct_texts("max(0.%07d;2*Rootpar.Tolerance)");
    std::size_t i = 0;
    for (auto _ : state) {
        if (i == texts.size()) i = 0;
        benchmark::DoNotOptimize(kapExpr::compile_uncached(texts[i++]));
    }
}
BENCHMARK(BM_Expr_CompileUncached_Kappar);

// A longer text: one of the workload's activity conditions.
void BM_Expr_CompileCondition_Kappar(benchmark::State& state) {
    const auto texts =
        distinct_texts("Strategy=='raster' OR Strategy=='offset' AND Tolerance>0.%07d");
    std::size_t i = 0;
    for (auto _ : state) {
        if (i == texts.size()) i = 0;
        benchmark::DoNotOptimize(kapExpr::compile_uncached(texts[i++]));
    }
}
BENCHMARK(BM_Expr_CompileCondition_Kappar);

// ---------------------------------------------------------------------------------------------
// Activity of every parameter of the workload

const kapParameterRoot& workload_prototype(bool with_active) {
    static const kapParameterRoot* protos[2] = {nullptr, nullptr};
    const kapParameterRoot*& proto = protos[with_active ? 1 : 0];
    if (proto == nullptr) {
        auto* root = new kapParameterRoot(with_active ? "benchactive" : "benchplain", 1, "");
        bench_declare(root, bench_schema(with_active).rows);
        root->seal();
        proto = root;
    }
    return *proto;
}

void activity_of_all(benchmark::State& state, bool with_active) {
    kapParameterRoot root("bench", 1, "");
    root.copy_children_from(workload_prototype(with_active));
    std::vector<const kapParameter*> nodes;
    for (const auto& p : bench_params()) {
        const kapParameter* n = root.find_node(p.key);
        if (n == nullptr) {
            state.SkipWithError(("missing " + p.key).c_str());
            return;
        }
        nodes.push_back(n);
    }
    int active = 0;
    for (const kapParameter* n : nodes)
        active += n->is_active() ? 1 : 0;
    for (auto _ : state) {
        for (const kapParameter* n : nodes)
            benchmark::DoNotOptimize(n->is_active());
    }
    state.counters["active"] = active;
    state.counters["ns_per_param"] = benchmark::Counter(
        static_cast<double>(nodes.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Expr_ActivityAll_Kappar(benchmark::State& state) {
    activity_of_all(state, true);
}
BENCHMARK(BM_Expr_ActivityAll_Kappar);

void BM_Expr_ActivityAll_NoConditions(benchmark::State& state) {
    activity_of_all(state, false);
}
BENCHMARK(BM_Expr_ActivityAll_NoConditions);

#ifdef KAPPAR_HAVE_MUPARSER

void BM_Expr_EvalDefault_MuParser(benchmark::State& state) {
    double tolerance = 0.1;
    mu::Parser p;
    p.DefineVar("Tolerance", &tolerance);
    p.SetExpr("max(0.3,2*Tolerance)");
    if (p.Eval() != 0.3) state.SkipWithError("wrong value");
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Eval());
}
BENCHMARK(BM_Expr_EvalDefault_MuParser);

void BM_Expr_Parse_MuParser(benchmark::State& state) {
    const auto texts = distinct_texts("max(0.%07d,2*Tolerance)");
    double tolerance = 0.1;
    mu::Parser p;
    p.DefineVar("Tolerance", &tolerance);
    std::size_t i = 0;
    for (auto _ : state) {
        if (i == texts.size()) i = 0;
        p.SetExpr(texts[i++]);
        benchmark::DoNotOptimize(p.Eval());
    }
}
BENCHMARK(BM_Expr_Parse_MuParser);

void BM_Expr_ParseCondition_MuParser(benchmark::State& state) {
    const auto texts = distinct_texts("Strategy==1 || Strategy==2 && Tolerance>0.%07d");
    double strategy = 1, tolerance = 0.1;
    mu::Parser p;
    p.DefineVar("Strategy", &strategy);
    p.DefineVar("Tolerance", &tolerance);
    std::size_t i = 0;
    for (auto _ : state) {
        if (i == texts.size()) i = 0;
        p.SetExpr(texts[i++]);
        benchmark::DoNotOptimize(p.Eval());
    }
}
BENCHMARK(BM_Expr_ParseCondition_MuParser);

// The workload's three conditions with the enumerations coded as numbers (raster 1, offset 2,
// spherical 3, pencil 4, linear 5), one compiled parser each, evaluated once per parameter that
// has a condition.
void BM_Expr_ActivityAll_MuParser(benchmark::State& state) {
    double strategy = 1, projection = 5, tolerance = 0.1;
    static const char* const kConditions[] = {
        "Strategy==1 || Strategy==2 && Tolerance>0.01",
        "ProjectionStyle!=3 && (Tolerance<1 || Strategy==1)",
        "Tolerance>0 && Strategy!=4 && ProjectionStyle==5",
    };
    mu::Parser parsers[3];
    for (int k = 0; k < 3; ++k) {
        parsers[k].DefineVar("Strategy", &strategy);
        parsers[k].DefineVar("ProjectionStyle", &projection);
        parsers[k].DefineVar("Tolerance", &tolerance);
        parsers[k].SetExpr(kConditions[k]);
        parsers[k].Eval();
    }
    std::vector<int> which;  // condition of each parameter, -1 for none
    int n = 0;
    for (const auto& p : bench_params()) {
        which.push_back(p.key.find('.') != std::string::npos ? n % 3 : -1);
        ++n;
    }
    for (auto _ : state) {
        for (int k : which) {
            bool active = true;
            if (k >= 0) active = parsers[k].Eval() != 0.0;
            benchmark::DoNotOptimize(active);
        }
    }
    state.counters["ns_per_param"] = benchmark::Counter(
        static_cast<double>(which.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Expr_ActivityAll_MuParser);

#endif

}  // namespace
