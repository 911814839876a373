// The postfix program of a compiled expression: a quick evaluation over plain values.

#include "kapExprRun.h"

namespace {

// Names read through the scope.
struct ScopeReader {
    const kapExprScope& scope;
    const std::span<const kapExprPath> names;
    bool name(std::uint32_t i, kapExprScalar& out) const { return scope.read(names[i], out); }
    int active(std::uint32_t i) const {
        const kapExprValue v = scope.resolve(names[i]);
        if (v.is_none() || v.error_code() == kapErrNoItem) return 0;
        if (v.is_error()) return kap_run_error;
        if (v.is_node()) return v.scope()->is_active(v.node()) ? 1 : 0;
        return 1;
    }
};

}  // namespace

// The postfix program. Every step is one the tree evaluation takes as well, in the same order, so
// giving up half way and evaluating the tree gives the same answer; the program only saves the
// values, the recursion and the messages.
int kapExprCompiled::run_fast(const kapExprScope& scope, bool as_bool, double& number,
                              bool& truth) const {
    return kapExprRunner::run(*this, ScopeReader{scope, names()}, as_bool, number, truth);
}

int kapExprCompiled::evaluate_quick(const kapExprScope& scope, bool as_bool, double& number,
                                    bool& truth) const {
    if (!ok()) return 0;
    if (fast_.empty()) return -1;
    switch (run_fast(scope, as_bool, number, truth)) {
        case kap_fast_done:
            return 1;
        case kap_fast_error:
            return 0;
        case kap_fast_general:
            break;
    }
    return -1;
}
