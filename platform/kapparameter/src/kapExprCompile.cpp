// Compiling texts: the process-wide cache of compiled forms and wrapped texts.

#include <mutex>
#include <string>
#include <unordered_map>

#include "kapExprProgram.h"

// Builds the compiled form of [begin, end) of the text the object holds (kapExprParse.cpp).
void kap_expr_parse(kapExprCompiled& out, std::size_t begin, std::size_t end);

kapExprCompiled::~kapExprCompiled() = default;

bool kapExprCompiled::is_constant() const noexcept {
    return ok() && !nodes_.empty() && nodes_[root_].op == kapExprOp::constant;
}

std::shared_ptr<const kapExprCompiled> kapExpr::compile_uncached(std::string_view text) {
    std::shared_ptr<kapExprCompiled> c(new kapExprCompiled());
    c->text_.assign(text.data(), text.size());
    std::size_t begin = 0, end = c->text_.size();
    if (is_wrapped(text)) {
        begin = 2;
        end -= 1;
    }
    kap_expr_parse(*c, begin, end);
    return c;
}

namespace {
struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept {
        return std::hash<std::string_view>{}(s);
    }
};
struct Cache {
    std::mutex mutex;
    std::unordered_map<std::string, std::shared_ptr<const kapExprCompiled>, TextHash,
                       std::equal_to<>>
        map;
};
// Never destroyed: compiled forms may be held by objects that outlive static destruction.
Cache& cache() {
    static Cache* c = new Cache();
    return *c;
}
}  // namespace

std::shared_ptr<const kapExprCompiled> kapExpr::compile(std::string_view text) {
    Cache& c = cache();
    {
        std::lock_guard<std::mutex> lock(c.mutex);
        auto it = c.map.find(text);
        if (it != c.map.end()) return it->second;
    }
    std::shared_ptr<const kapExprCompiled> made = compile_uncached(text);
    std::lock_guard<std::mutex> lock(c.mutex);
    // Another thread may have compiled the same text meanwhile: keep the first.
    auto [it, inserted] = c.map.emplace(std::string(text), std::move(made));
    return it->second;
}

std::size_t kapExpr::cache_size() {
    Cache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.map.size();
}

void kapExpr::clear_cache() {
    Cache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.map.clear();
}

bool kapExpr::is_wrapped(std::string_view text) noexcept {
    return text.size() >= 3 && text[0] == '$' && text[1] == '{' && text.back() == '}';
}

std::string_view kapExpr::unwrap(std::string_view text) noexcept {
    return is_wrapped(text) ? text.substr(2, text.size() - 3) : text;
}
