#pragma once
// What the nodes ask of the expression evaluator: activity, and the value of a node whose value
// is an expression, each evaluated in the node's own scope.

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
