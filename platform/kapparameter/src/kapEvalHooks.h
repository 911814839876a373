#pragma once
// What the nodes ask of the expression evaluator: activity, and the value of a node whose value
// is an expression, each evaluated in the node's own scope.

#include <atomic>
#include <cstdint>

#include "containers/co.h"
#include "utils/utString.h"

class kapParameter;
class kapParameterRoot;
struct kapParameterImpl;

bool kap_eval_active(const kapParameter& par);
double kap_eval_number(const kapParameter& par);
utString kap_eval_string(const kapParameter& par);
// Compiles a declaration's activity expression ahead of use (prototypes, when sealed).
void kap_compile_active(const kapParameterImpl& impl);
void kap_collect_dependencies(const kapParameterRoot& root, utStringutStringSetcoTable& table);

// Activity answers are remembered on each thread until anything that an answer could read
// changes: a value, a declaration, the children of a map, the set of roots. Every such
// change moves this counter on; a remembered answer holds the count it was made at.
// The step is a plain load and store (no locked instruction): trees are written by one thread
// at a time, and the writes sit on paths that build whole trees.
inline std::atomic<std::uint64_t> g_kap_activity_epoch{1};
inline void kap_activity_changed() noexcept {
    g_kap_activity_epoch.store(g_kap_activity_epoch.load(std::memory_order_relaxed) + 1,
                               std::memory_order_relaxed);
}

// Compiled expressions bind their names to the nodes they resolve to (kapEvalBind.h) and keep
// the binding while this counter stands. It moves on whatever could make a name resolve to
// another node: a map gaining, losing or replacing a child, a map going, a node taking another
// declaration, a name or legacy key changing, an activity condition replaced (its compiled form
// may go). Each step moves the activity counter as well.
inline std::atomic<std::uint64_t> g_kap_structure_epoch{1};
inline void kap_structure_changed() noexcept {
    g_kap_structure_epoch.store(g_kap_structure_epoch.load(std::memory_order_relaxed) + 1,
                                std::memory_order_relaxed);
    kap_activity_changed();
}

// What an evaluation on this thread did that a remembered answer cannot stand for.
// `depth`: evaluations under way (an activity asked from inside one is answered afresh, as it
// may meet the nodes being evaluated). `unsure`: counts every step whose result reads more than
// the tree's values and shape (callbacks, functions, activity, expressions held as values, the
// global scope); an answer is remembered only when it did not move during the evaluation.
struct kapEvalTrace {
    std::uint32_t depth = 0;
    std::uint32_t unsure = 0;
};
extern __attribute__((tls_model("initial-exec"))) thread_local kapEvalTrace t_kap_eval_trace;
