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

#include <cstdint>

#include "kapExprProgram.h"
#include "kapparameter/kapParameter.h"

struct kapBindingSet;

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
    Name* names() noexcept { return reinterpret_cast<Name*>(this + 1); }
    const Name* names() const noexcept { return reinterpret_cast<const Name*>(this + 1); }
};

// The binding of `compiled` from `level`, bound again when the structure changed since.
kapBoundExpr& kap_bind(const kapParameterMap& level, const kapExprCompiled& compiled);

// Runs the postfix program of `b` on the bound nodes: kap_fast_done with the answer,
// kap_fast_error when the full evaluation answers an error, kap_fast_general when only the
// general way can answer.
int kap_run_bound(const kapBoundExpr& b, bool as_bool, double& number, bool& truth);

// Frees the bindings of a map that goes.
void kap_drop_bindings(kapBindingSet* set) noexcept;
