// Compiled expressions bound to the nodes of a tree (see kapEvalBind.h).
#include "kapEvalBind.h"

#include <new>

#include "kapEvalHooks.h"

namespace {

using B = kapParameterBinding;

const kapParameter* step(const kapParameter* node, const kapExprName& c) {
    return kap_step(node, c, /*follow=*/false);
}

const kapParameter* walk(const kapParameter* node, std::span<const kapExprName> comps) {
    return kap_walk(node, comps, /*follow=*/false);
}

// The node `path` names from `level` as evaluation finds it (siblings first, then outward;
// "RootPar" from the top), or null when the general way must look.
const kapParameter* resolve(const kapParameter* level, const kapExprPath& path) {
    switch (path.anchor) {
        case kapExprAnchor::root: {
            const kapParameter* top = level;
            while (top->parent() != nullptr) {
                top = top->parent();
            }
            return walk(top, path.components);
        }
        case kapExprAnchor::global:
            return nullptr;
        case kapExprAnchor::owner:
            break;
    }
    if (path.components.empty()) return nullptr;
    const kapExprName& first = path.components.front();
    for (const kapParameter* l = level; l != nullptr; l = l->parent()) {
        if (const kapParameter* hit = step(l, first)) return walk(hit, path.components.subspan(1));
    }
    return nullptr;
}

kapBoundExpr* make_bound(const kapExprCompiled& c) {
    const std::size_t n = c.names().size();
    void* mem = ::operator new(sizeof(kapBoundExpr) + n * sizeof(kapBoundExpr::Name));
    auto* b = new (mem) kapBoundExpr{};
    b->compiled = &c;
    b->size = static_cast<std::uint32_t>(n);
    return b;
}

void bind_names(const kapParameterMap& level, kapBoundExpr& b, std::uint64_t now) {
    const kapExprCompiled& c = *b.compiled;
    // The program reads names only in one step: one that needs the scope (active(), calls)
    // leaves the names unbound.
    b.runs = c.ok() && !c.uses_active() && c.calls().empty() && kapExprRunner::has_program(c);
    const auto names = c.names();
    bool numbers = b.runs && kapExprRunner::numbers_only(c);
    for (std::uint32_t i = 0; i < b.size; ++i) {
        const kapParameter* node = b.runs ? resolve(&level, names[i]) : nullptr;
        b.names()[i] = {node, node != nullptr ? B::kind_of(*node) : B::kOther};
        numbers = numbers && b.names()[i].kind == B::kNumber;
    }
    b.numbers = numbers;
    b.structure = now;
    b.answer = 0;
}

}  // namespace

namespace {

std::size_t slot_of(const kapExprCompiled* c, std::uint32_t cap) noexcept {
    const auto at = reinterpret_cast<std::uintptr_t>(c);
    return static_cast<std::size_t>(((at >> 4) * 0x9E3779B97F4A7C15ull) >> 40) & (cap - 1);
}

void place(kapBindingSet& set, kapBoundExpr* b) noexcept {
    std::size_t i = slot_of(b->compiled, set.cap);
    while (set.items[i] != nullptr) {
        i = (i + 1) & (set.cap - 1);
    }
    set.items[i] = b;
}

}  // namespace

kapBoundExpr& kap_bind_slow(const kapParameterMap& level, const kapExprCompiled& compiled) {
    const std::uint64_t now = g_kap_structure_epoch.load(std::memory_order_relaxed);
    kapBindingSet*& set = B::set_of(level);
    if (set == nullptr) set = new kapBindingSet();
    if (set->cap != 0) {
        for (std::size_t i = slot_of(&compiled, set->cap); set->items[i] != nullptr;
             i = (i + 1) & (set->cap - 1)) {
            kapBoundExpr* b = set->items[i];
            if (b->compiled != &compiled) continue;
            if (b->structure != now) {
                if (b->size != compiled.names().size()) {
                    ::operator delete(b);
                    b = set->items[i] = make_bound(compiled);
                }
                bind_names(level, *b, now);
            }
            set->last = b;
            return *b;
        }
    }
    if ((set->size + 1) * 2 > set->cap) {
        const std::uint32_t old_cap = set->cap;
        kapBoundExpr** old = set->items;
        set->cap = old_cap < 8 ? 8 : old_cap * 2;
        set->items = new kapBoundExpr*[set->cap]();
        for (std::uint32_t i = 0; i < old_cap; ++i) {
            if (old[i] != nullptr) place(*set, old[i]);
        }
        delete[] old;
    }
    kapBoundExpr* b = make_bound(compiled);
    bind_names(level, *b, now);
    place(*set, b);
    ++set->size;
    set->last = b;
    return *b;
}

void kap_drop_bindings(kapBindingSet* set) noexcept {
    if (set == nullptr) return;
    for (std::uint32_t i = 0; i < set->cap; ++i) {
        ::operator delete(set->items[i]);
    }
    delete[] set->items;
    delete set;
}
