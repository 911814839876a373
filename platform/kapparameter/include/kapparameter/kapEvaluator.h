#pragma once
// Evaluation of expression texts on a parameter tree.

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

  private:
    const kapParameter* scope_;
};
