#pragma once
// Evaluation of expression texts on a parameter tree.

#include <string_view>

#include "kapparameter/kapParameter.h"

// Evaluates expressions relative to a scope parameter: names resolve among the scope's siblings
// first, then outward through the enclosing maps to the root, then through the root's
// lookup_method, then in the global evaluation scope (kapParameterLib::get_eval_scope()).
// The answer is a parameter: a number, a text, a flag, the parameter a name denotes, or an
// error parameter carrying the failure (never an exception).
class kapEvaluator {
  public:
    explicit kapEvaluator(const kapParameter* scope) noexcept : scope_(scope) {}
    explicit kapEvaluator(const kapParameterPtr& scope) noexcept : scope_(scope.pointer()) {}
    kapParameterPtr evaluate(const utString& text) const;
    // The text in the current locale's number form. Value texts always use the C locale ('.' as
    // the decimal separator), so the text is returned as it is.
    static utString localize(const utString& text) { return text; }

    // Functions of the language that no entity owns ("cusp_from_stepover(Stepover;Tool)"),
    // registered once by name (exact letter case, like the built-ins). A call of a lone name that
    // nothing in the tree, the root's lookup_method or the global scope answers is answered by
    // the function registered under it, called with the parameter that owns the expression and
    // the list of arguments. Registering a name again replaces the function; null removes it.
    static void register_function(std::string_view name, kapMemberFn fn);
    static kapMemberFn find_function(std::string_view name);

  private:
    const kapParameter* scope_;
};
