// Compiled expressions bound to the nodes of a tree (see kapEvalBind.h).
#include "kapEvalBind.h"

#include <cstring>
#include <new>

#include "kapEvalHooks.h"

namespace {

using B = kapParameterBinding;

// One step down, as evaluation takes it, but never through a reference: null when the step
// leads nowhere or passes one.
const kapParameter* step(const kapParameter* node, const kapExprName& c) {
    if (node->is_ref_node() || !node->is_map()) return nullptr;
    const auto* map = static_cast<const kapParameterMap*>(node);
    if (c.is_index()) {
        const auto i = static_cast<std::size_t>(c.index);
        return i < map->size() ? map->child(i).pointer() : nullptr;
    }
    return map->find_child(c.text);
}

const kapParameter* walk(const kapParameter* node, std::span<const kapExprName> comps) {
    for (const auto& c : comps) {
        node = step(node, c);
        if (node == nullptr) return nullptr;
    }
    return node;
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
    for (std::uint32_t i = 0; i < b.size; ++i) {
        const kapParameter* node = b.runs ? resolve(&level, names[i]) : nullptr;
        b.names()[i] = {node, node != nullptr ? B::kind_of(*node) : B::kOther};
    }
    b.structure = now;
    b.answer = 0;
}

}  // namespace

kapBoundExpr& kap_bind_slow(const kapParameterMap& level, const kapExprCompiled& compiled) {
    const std::uint64_t now = g_kap_structure_epoch.load(std::memory_order_relaxed);
    kapBindingSet*& set = B::set_of(level);
    if (set == nullptr) set = new kapBindingSet();
    for (std::uint32_t i = set->size; i-- > 0;) {
        kapBoundExpr* b = set->items[i];
        if (b->compiled != &compiled) continue;
        if (b->structure != now) {
            if (b->size != compiled.names().size()) {
                ::operator delete(b);
                b = set->items[i] = make_bound(compiled);
            }
            bind_names(level, *b, now);
        }
        return *b;
    }
    if (set->size == set->cap) {
        const std::uint32_t cap = set->cap < 4 ? 4 : set->cap * 2;
        auto** items = new kapBoundExpr*[cap];
        if (set->size != 0) std::memcpy(items, set->items, set->size * sizeof(kapBoundExpr*));
        delete[] set->items;
        set->items = items;
        set->cap = cap;
    }
    kapBoundExpr* b = make_bound(compiled);
    bind_names(level, *b, now);
    set->items[set->size++] = b;
    return *b;
}

void kap_drop_bindings(kapBindingSet* set) noexcept {
    if (set == nullptr) return;
    for (std::uint32_t i = 0; i < set->size; ++i) {
        ::operator delete(set->items[i]);
    }
    delete[] set->items;
    delete set;
}
