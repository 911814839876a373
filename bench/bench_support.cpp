#include "bench_support.h"

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

const std::vector<BenchParam>& bench_params() {
    static const std::vector<BenchParam> params = [] {
        std::vector<BenchParam> out;
        const char* env = std::getenv("KAPPAR_BENCH_PATHS");
        std::ifstream in(env ? env : KAPPAR_SOURCE_DIR "/../shared/bench/paths.txt");
        std::string line;
        while (std::getline(in, line)) {
            std::istringstream fields(line);
            BenchParam p;
            if (std::getline(fields, p.key, '\t') && std::getline(fields, p.value, '\t') &&
                std::getline(fields, p.kind, '\t')) {
                out.push_back(std::move(p));
            }
        }
        return out;
    }();
    return params;
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
