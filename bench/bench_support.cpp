#include "bench_support.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <set>
#include <sstream>

namespace {
std::atomic<std::size_t> g_live{0};
}

// Counting allocation: each block carries its size in a 16-byte header.
void* operator new(std::size_t n) {
    auto* p = static_cast<std::size_t*>(std::malloc(n + 16));
    if (!p) throw std::bad_alloc();
    *p = n;
    g_live.fetch_add(n, std::memory_order_relaxed);
    return reinterpret_cast<char*>(p) + 16;
}
void operator delete(void* p) noexcept {
    if (!p) return;
    auto* h = reinterpret_cast<std::size_t*>(static_cast<char*>(p) - 16);
    g_live.fetch_sub(*h, std::memory_order_relaxed);
    std::free(h);
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}
void* operator new[](std::size_t n) {
    return operator new(n);
}
void operator delete[](void* p) noexcept {
    operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    operator delete(p);
}

std::size_t bench_live_bytes() noexcept {
    return g_live.load(std::memory_order_relaxed);
}

namespace {

struct Workload {
    bool tried = false;
    bool ok = false;
    std::string message;
    std::vector<BenchParam> params;
};

Workload& workload() {
    static Workload w;
    return w;
}

}  // namespace

std::string bench_workload_path() {
    const char* env = std::getenv("KAPPAR_BENCH_WORKLOAD");
    return env != nullptr && *env != '\0' ? env : KAPPAR_BENCH_CONFIGURED_WORKLOAD;
}

bool bench_load_workload(std::string& message) {
    Workload& w = workload();
    if (!w.tried) {
        w.tried = true;
        const std::string path = bench_workload_path();
        const char* env = std::getenv("KAPPAR_BENCH_WORKLOAD");
        const std::string where =
            env != nullptr && *env != '\0'
                ? "$KAPPAR_BENCH_WORKLOAD names " + path
                : "$KAPPAR_BENCH_WORKLOAD is not set; the path configured in the build is " + path;
        const std::string remedy =
            "set KAPPAR_BENCH_WORKLOAD to the workload file (shared/bench/paths.txt), or "
            "configure the build with the shared directory beside the source tree";
        std::ifstream in(path);
        if (!in) {
            w.message = "no benchmark workload: cannot read it (" + where + ");\n  " + remedy;
            message = w.message;
            return false;
        }
        std::string line;
        std::size_t number = 0;
        while (std::getline(in, line)) {
            ++number;
            if (line.empty()) continue;
            std::istringstream fields(line);
            BenchParam p;
            if (!std::getline(fields, p.key, '\t') || !std::getline(fields, p.value, '\t') ||
                !std::getline(fields, p.kind, '\t') || p.key.empty() || p.kind.empty()) {
                w.message = "benchmark workload " + path + ", line " + std::to_string(number) +
                            ": expected key, value and kind separated by tabs";
                w.params.clear();
                message = w.message;
                return false;
            }
            w.params.push_back(std::move(p));
        }
        if (w.params.empty()) {
            w.message = "benchmark workload holds no parameter (" + where + ");\n  " + remedy;
            message = w.message;
            return false;
        }
        w.ok = true;
    }
    message = w.message;
    return w.ok;
}

const std::vector<BenchParam>& bench_params() {
    return workload().params;
}

const BenchSchema& bench_schema(bool with_active) {
    static BenchSchema schemas[2];
    BenchSchema& s = schemas[with_active ? 1 : 0];
    if (!s.rows.empty()) return s;
    const auto& params = bench_params();
    std::set<std::string> maps;
    s.states.reserve(params.size() * 3);
    auto keep = [&](std::string text) -> std::string_view {
        s.texts.push_back(std::move(text));
        return s.texts.back();
    };
    std::size_t n = 0;
    for (const auto& p : params) {
        // Enclosing maps first.
        for (std::size_t dot = p.key.find('.'); dot != std::string::npos;
             dot = p.key.find('.', dot + 1)) {
            std::string prefix = p.key.substr(0, dot);
            if (maps.insert(prefix).second) {
                kapDeclRow r;
                r.path = keep(prefix);
                r.kind = kapDeclKind::map;
                r.label = r.path;
                s.rows.push_back(r);
            }
        }
        kapDeclRow r;
        r.path = keep(p.key);
        r.label = r.path;
        r.desc = "Benchmark parameter.";
        r.def = keep(p.value);
        if (p.kind == "double") {
            r.kind = kapDeclKind::real;
            r.dim = kapDimLength;
            r.def_inch = r.def;  // a length declares both defaults
            r.range = kapDeclNonNegative;
        } else if (p.kind == "int") {
            r.kind = kapDeclKind::integer;
        } else if (p.kind == "bool") {
            r.kind = kapDeclKind::flag;
        } else if (p.kind == "vec3") {
            r.kind = kapDeclKind::vector;
            r.dim = kapDimLength;
        } else if (p.kind == "string") {
            r.kind = kapDeclKind::string;
        } else if (p.kind == "ref") {
            r.kind = kapDeclKind::ref;
        } else {
            r.kind = kapDeclKind::enumeration;
            const std::size_t first = s.states.size();
            s.states.push_back({keep(p.value), "Value", "The saved value."});
            s.states.push_back({"raster", "Raster", "Raster."});
            s.states.push_back({"offset", "Offset", "Offset."});
            r.states = std::span<const kapDeclState>(s.states.data() + first, 3);
        }
        if (with_active) {
            // Three comparisons joined by OR/AND, on top-level scalars every parameter can see.
            static const char* const kConditions[] = {
                "Strategy=='raster' OR Strategy=='offset' AND Tolerance>0.01",
                "ProjectionStyle!='spherical' AND (Tolerance<1 OR Strategy=='raster')",
                "Tolerance>0 AND Strategy!='pencil' AND ProjectionStyle=='linear'",
            };
            if (p.key.find('.') != std::string::npos) r.active = kConditions[n % 3];
        }
        ++n;
        s.rows.push_back(r);
    }
    return s;
}

void bench_declare(kapParameterRoot* root, std::span<const kapDeclRow> rows) {
    utString failed, reason;
    if (!kap_declare(root, rows, "Bench", &failed, &reason)) {
        std::fprintf(stderr, "kappar_bench: row %s not declared: %s\n", failed.c_str(),
                     reason.c_str());
        std::abort();
    }
}
