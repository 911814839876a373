#pragma once
// Compiled expressions bound to the nodes their names resolve to.
//
// Names of an activity condition or of a value's expression are looked for from one map (the
// parent of the parameter that owns the expression, or the map that is itself the scope), so
// where they lead depends on that map and the compiled form alone. The map keeps, for each
// compiled form evaluated from it, the node each name path leads to, made by the walk that
// evaluation takes, and keeps it while the structure counter (kapEvalHooks.h) stands: a read of a
// bound name is then a load of the node's value. A name that leads nowhere, passes a reference
// or the global scope, or names a node whose value is not a plain number, state or text is not
// bound; an expression reading one takes the general way, through the scope. Copies of a tree
// start without bindings, so a copy reads its own nodes.
//
// The bindings of a tree are made and read by the thread using the tree (trees are used from one
// thread at a time); compiled forms bound are those that live for the process (a value's kept
// form, a declaration's condition, which goes only with a structural change).

#include <cstddef>
#include <cstdint>
#include <span>

#include "kapEvalHooks.h"
#include "kapExprRun.h"
#include "kapparameter/kapParameter.h"

// One step down a name path as evaluation takes it: an index or a child's name. A reference on
// the way is followed when `follow` is set; otherwise the step stops there (null), as a binding
// never passes one.
inline const kapParameter* kap_step(const kapParameter* node, const kapExprName& c, bool follow) {
    if (node->is_ref_node()) {
        if (!follow) return nullptr;
        node = node->follow();
        if (node == nullptr) return nullptr;
    }
    if (!node->is_map()) return nullptr;
    const auto* map = static_cast<const kapParameterMap*>(node);
    if (c.is_index()) {
        const auto i = static_cast<std::size_t>(c.index);
        return i < map->size() ? map->child(i).pointer() : nullptr;
    }
    return map->find_child(c.text);
}

inline const kapParameter* kap_walk(const kapParameter* node, std::span<const kapExprName> comps,
                                    bool follow) {
    for (const auto& c : comps) {
        node = kap_step(node, c, follow);
        if (node == nullptr) return nullptr;
    }
    return node;
}

// One compiled form bound from one map.
struct kapBoundExpr {
    struct Name {
        const kapParameter* node;  // null: not bound
        std::uint8_t kind;         // what the node holds when bound (kapParameterBinding)
    };
    const kapExprCompiled* compiled;
    std::uint64_t structure;  // the structure count the names were bound at
    std::uint64_t answer;     // activity: change count * 2 + answer; 0 when none is kept
    std::uint32_t size;       // names
    bool runs;                // the postfix program can run on the bound names
    bool numbers;             // ... on a stack of numbers: it takes numbers alone, and every
                              // name is bound to a number
    Name* names() noexcept { return reinterpret_cast<Name*>(this + 1); }
    const Name* names() const noexcept { return reinterpret_cast<const Name*>(this + 1); }
};

// The bindings kept by one map: an array of bound forms, most recently bound last.
struct kapBindingSet {
    kapBoundExpr* last = nullptr;  // the form asked for last
    std::uint32_t size = 0;
    std::uint32_t cap = 0;           // slots: a power of two, at most half of them used
    kapBoundExpr** items = nullptr;  // open addressing by the compiled form's address
};

// Reads nodes and maps for the bindings.
struct kapParameterBinding {
    // What a bound node holds, decided when it is bound (a node keeps its kind).
    static constexpr std::uint8_t kOther = 0, kNumber = 1, kState = 2, kText = 3;

    static std::uint8_t kind_of(const kapParameter& p) {
        switch (p.type()) {
            case kapParameterType::numeric:
                return kNumber;
            case kapParameterType::enumeration:
                return kState;
            case kapParameterType::string:
                return kText;
            default:
                return kOther;
        }
    }

    // The plain value of a bound node in one step, as kapExprScope::read gives it for the tree;
    // false for anything else (an expression, a callback on reading, a text its kind cannot
    // hold), which the general way answers.
    [[gnu::always_inline]] static bool read(const kapBoundExpr::Name& n, kapExprScalar& out) {
        const kapParameter* p = n.node;
        switch (n.kind) {
            case kNumber:
                if ((p->flags_ & kapParameter::kTextFlag) || p->impl_->onread != nullptr) {
                    return false;
                }
                out.is_text = false;
                out.number = p->slot_.number;
                return true;
            case kState: {
                if ((p->flags_ & kapParameter::kTextFlag) || p->impl_->onread != nullptr) {
                    return false;
                }
                const auto s = static_cast<std::size_t>(p->slot_.integer);
                out.is_text = true;
                out.text = p->impl_->states[s].key;
                return true;
            }
            case kText: {
                if (p->impl_->onread != nullptr) return false;
                const kapValueText* t = p->extra();
                if (t != nullptr && t->is_expr) return false;
                out.is_text = true;
                out.text = t != nullptr ? std::string_view(t->text) : std::string_view();
                return true;
            }
            default:
                return false;
        }
    }

    // The plain number of a node bound as kNumber; false when it holds more (an expression, a
    // callback on reading), which the general way answers.
    [[gnu::always_inline]] static bool read_number(const kapParameter* p, double& out) {
        if ((p->flags_ & kapParameter::kTextFlag) || p->impl_->onread != nullptr) return false;
        out = p->slot_.number;
        return true;
    }

    static kapBindingSet*& set_of(const kapParameterMap& m) noexcept { return m.bindings_; }
};

// The binding of `compiled` from `level`, bound again when the structure changed since.
kapBoundExpr& kap_bind_slow(const kapParameterMap& level, const kapExprCompiled& compiled);
inline kapBoundExpr& kap_bind(const kapParameterMap& level, const kapExprCompiled& compiled) {
    // The form asked for last from a map is the one most often asked again.
    const kapBindingSet* set = kapParameterBinding::set_of(level);
    if (set != nullptr && set->last != nullptr) {
        kapBoundExpr* b = set->last;
        if (b->compiled == &compiled &&
            b->structure == g_kap_structure_epoch.load(std::memory_order_relaxed)) {
            return *b;
        }
    }
    return kap_bind_slow(level, compiled);
}

struct kapBoundReader {
    const kapBoundExpr::Name* names;
    [[gnu::always_inline]] bool name(std::uint32_t i, kapExprScalar& out) const {
        return kapParameterBinding::read(names[i], out);
    }
    [[gnu::always_inline]] bool number(std::uint32_t i, double& out) const {
        return kapParameterBinding::read_number(names[i].node, out);
    }
    static int active(std::uint32_t) { return kap_run_general; }
};

// Runs the postfix program of `b` on the bound nodes: kap_fast_done with the answer,
// kap_fast_error when the full evaluation answers an error, kap_fast_general when only the
// general way can answer.
[[gnu::always_inline]] inline int kap_run_bound(const kapBoundExpr& b, bool as_bool, double& number,
                                                bool& truth) {
    if (b.numbers) {
        return kapExprRunner::run_numbers(*b.compiled, kapBoundReader{b.names()}, as_bool, number,
                                          truth);
    }
    if (!b.runs) return kap_fast_general;
    return kapExprRunner::run(*b.compiled, kapBoundReader{b.names()}, as_bool, number, truth);
}

// The value of a number whose value is an expression, read through the binding of its kept
// compiled form: true with the answer (0 for an error), false when the general way must answer.
[[gnu::always_inline]] inline bool kap_bound_number(const kapParameter& par, double& x) {
    const kapValueText* t = par.extra();
    if (t == nullptr || !t->is_expr) return false;
    const kapExprCompiled* kept = t->compiled.load(std::memory_order_acquire);
    const kapParameterMap* level = par.parent();
    if (level == nullptr && par.is_map()) level = static_cast<const kapParameterMap*>(&par);
    if (kept == nullptr || level == nullptr) return false;
    ++t_kap_eval_trace.unsure;  // the value is an expression's
    bool unused;
    const int end = kap_run_bound(kap_bind(*level, *kept), false, x, unused);
    if (end == kap_fast_general) return false;
    if (end != kap_fast_done) x = 0.0;
    return true;
}

// Frees the bindings of a map that goes.
void kap_drop_bindings(kapBindingSet* set) noexcept;
