// Evaluation of compiled expressions as a tree.

#include <array>
#include <cmath>
#include <vector>

#include "kapExprProgram.h"
#include "utils/utString.h"

namespace {

// Sum of the tree depths of the evaluations running on this thread (an expression's scope may
// evaluate other expressions). Each level of a tree costs one frame of the recursive evaluator,
// so this bounds the stack that nested evaluations can take.
// The library is loaded with the host, so the static TLS model applies (and keeps these cheap).
constexpr int eval_budget = 2048;
__attribute__((tls_model("initial-exec"))) thread_local int t_eval_depth = 0;

kapExprValue type_error(std::string message, std::uint32_t offset) {
    return kapExprValue::from_error(kapErrType, std::move(message), static_cast<int>(offset));
}

// A plain value as a number / as a condition, by the language's rules; false when it is not one.
bool scalar_number(const kapExprScalar& v, double& out) noexcept {
    if (!v.is_text) {
        out = v.number;
        return true;
    }
    return kap_expr_read_number(v.text, out);
}

bool scalar_truth(const kapExprScalar& v, bool& out) noexcept {
    if (!v.is_text) {
        out = v.number != 0.0;
        return true;
    }
    if (v.text.empty()) {
        out = false;
        return true;
    }
    double x;
    if (!kap_expr_read_number(v.text, x)) return false;
    out = x != 0.0;
    return true;
}

// The order of two plain values (-1, 0, 1; for `equality` only whether it is 0): texts byte for
// byte, else as numbers. False when they cannot be compared.
bool order(const kapExprScalar& l, const kapExprScalar& r, bool equality, int& c) noexcept {
    if (l.is_text && r.is_text) {
        if (equality && l.text.size() != r.text.size()) {
            c = 1;
            return true;
        }
        const int k = l.text.compare(r.text);
        c = k < 0 ? -1 : k > 0 ? 1 : 0;
        return true;
    }
    double x = l.number, y = r.number;
    if ((l.is_text && !kap_expr_read_number(l.text, x)) ||
        (r.is_text && !kap_expr_read_number(r.text, y))) {
        return false;
    }
    c = x < y ? -1 : x > y ? 1 : 0;
    return true;
}

}  // namespace

// The evaluator works in two ways over the same tree. number() and truth() compute a node as a
// double or a bool, recursing directly into the children that are numbers or conditions, so that
// arithmetic, comparisons and connectives build no values; eval() answers a value (a node
// reference, a text, an error ...) for the few places that need one. Both give the same answers
// and the same errors.
class kapExprEvaluator {
  public:
    using Op = kapExprOp;
    using Node = kapExprNode;

    kapExprEvaluator(const kapExprCompiled& c, const kapExprScope& s) noexcept : c_(c), s_(s) {}

    kapExprValue eval(std::uint32_t i) const {
        const Node& nd = c_.nodes_[i];
        switch (nd.op) {
            case Op::constant:
                return c_.consts_[nd.a];
            case Op::name:
                return name(nd);
            case Op::neg:
            case Op::pos:
            case Op::mul:
            case Op::div:
            case Op::add:
            case Op::sub: {
                double x;
                kapExprValue e;
                if (!number(i, nd.offset, x, e)) return e;
                return kapExprValue::from_number(x);
            }
            case Op::lnot:
            case Op::eq:
            case Op::ne:
            case Op::lt:
            case Op::gt:
            case Op::le:
            case Op::ge:
            case Op::land:
            case Op::lor: {
                bool x;
                kapExprValue e;
                if (!truth(i, x, e)) return e;
                return kapExprValue::from_bool(x);
            }
            case Op::builtin:
                return builtin(nd);
            case Op::call:
                return call(nd);
        }
        return {};
    }

    // Node i as a number; `at` is the offset reported when its value is not one.
    bool number(std::uint32_t i, std::uint32_t at, double& out, kapExprValue& err) const {
        const Node& nd = c_.nodes_[i];
        switch (nd.op) {
            case Op::constant: {
                const kapExprValue& v = c_.consts_[nd.a];
                if (kap_expr_number_of(v, out)) return true;
                err = type_error(kap_expr_describe(v) + " is not a number", at);
                return false;
            }
            case Op::neg:
            case Op::pos: {
                double x;
                if (!number(nd.a, nd.offset, x, err)) return false;
                out = nd.op == Op::neg ? -x : x;
                return true;
            }
            case Op::mul:
            case Op::div:
            case Op::add:
            case Op::sub:
                return arithmetic(nd, out, err);
            case Op::lnot:
            case Op::eq:
            case Op::ne:
            case Op::lt:
            case Op::gt:
            case Op::le:
            case Op::ge:
            case Op::land:
            case Op::lor: {
                bool x;
                if (!truth(i, x, err)) return false;
                out = x ? 1.0 : 0.0;
                return true;
            }
            case Op::builtin:
                if (nd.a != fn_select && nd.a != fn_active) return builtin_number(nd, out, err);
                break;
            case Op::name: {
                kapExprScalar v;
                if (s_.read(c_.names_[nd.a], v) && scalar_number(v, out)) return true;
                break;
            }
            default:
                break;
        }
        kapExprValue v = plain(i);
        if (v.is_error()) {
            err = std::move(v);
            return false;
        }
        if (kap_expr_number_of(v, out)) return true;
        err = type_error(kap_expr_describe(v) + " is not a number", at);
        return false;
    }

    // Node i as a condition.
    bool truth(std::uint32_t i, bool& out, kapExprValue& err) const {
        const Node& nd = c_.nodes_[i];
        switch (nd.op) {
            case Op::constant: {
                const kapExprValue& v = c_.consts_[nd.a];
                if (truth_of(v, out)) return true;
                err = type_error(kap_expr_describe(v) + " is not a condition", nd.offset);
                return false;
            }
            case Op::lnot: {
                bool x;
                if (!truth(nd.a, x, err)) return false;
                out = !x;
                return true;
            }
            case Op::land:
            case Op::lor: {
                bool x;
                if (!truth(nd.a, x, err)) return false;
                // Short circuit: the right side is not evaluated when the left decides.
                if (nd.op == Op::land ? !x : x) {
                    out = x;
                    return true;
                }
                return truth(nd.b, out, err);
            }
            case Op::eq:
            case Op::ne:
            case Op::lt:
            case Op::gt:
            case Op::le:
            case Op::ge:
                return compare(nd, out, err);
            case Op::neg:
            case Op::pos:
            case Op::mul:
            case Op::div:
            case Op::add:
            case Op::sub: {
                double x;
                if (!number(i, nd.offset, x, err)) return false;
                out = x != 0.0;
                return true;
            }
            case Op::name: {
                kapExprScalar v;
                if (s_.read(c_.names_[nd.a], v) && scalar_truth(v, out)) return true;
                break;
            }
            default:
                break;
        }
        kapExprValue v = plain(i);
        if (v.is_error()) {
            err = std::move(v);
            return false;
        }
        if (truth_of(v, out)) return true;
        err = type_error(kap_expr_describe(v) + " is not a condition", nd.offset);
        return false;
    }

    // The plain value of node i: a node reference is asked of its scope.
    kapExprValue plain(std::uint32_t i) const {
        const Node& nd = c_.nodes_[i];
        kapExprValue v = nd.op == Op::name ? name(nd) : eval(i);
        if (!v.is_node()) return v;
        kapExprValue p = v.scope()->value_of(v.node());
        if (p.is_node() || p.is_none()) return type_error("parameter has no value", nd.offset);
        p.set_error_offset_if_unknown(static_cast<int>(nd.offset));
        return p;
    }

  private:
    // The plain value of node i, as a reference to the constant itself or to `tmp`.
    const kapExprValue& operand(std::uint32_t i, kapExprValue& tmp) const {
        const Node& nd = c_.nodes_[i];
        if (nd.op == Op::constant) return c_.consts_[nd.a];
        tmp = plain(i);
        return tmp;
    }

    // A plain value as a condition: numbers and booleans, texts that read as numbers or
    // "true"/"false"; an empty text is false.
    static bool truth_of(const kapExprValue& v, bool& out) noexcept {
        if (v.is_text() && v.text().empty()) {
            out = false;
            return true;
        }
        double x;
        if (!kap_expr_number_of(v, x)) return false;
        out = x != 0.0;
        return true;
    }

    static bool finite(double r, std::uint32_t at, double& out, kapExprValue& err) {
        if (std::isfinite(r)) {
            out = r;
            return true;
        }
        err = kapExprValue::from_error(kapErrDomain, "result is not a finite number",
                                       static_cast<int>(at));
        return false;
    }

    kapExprValue name(const Node& nd) const {
        const kapExprPath& path = c_.names_[nd.a];
        kapExprValue v = s_.resolve(path);
        if (v.is_none()) {
            return kapExprValue::from_error(kapErrNoItem,
                                            "unknown name '" + std::string(path.text) + "'",
                                            static_cast<int>(nd.offset));
        }
        v.set_error_offset_if_unknown(static_cast<int>(nd.offset));
        return v;
    }

    bool arithmetic(const Node& nd, double& out, kapExprValue& err) const {
        double x, y;
        if (!number(nd.a, nd.offset, x, err) || !number(nd.b, nd.offset, y, err)) return false;
        switch (nd.op) {
            case Op::mul:
                return finite(x * y, nd.offset, out, err);
            case Op::add:
                return finite(x + y, nd.offset, out, err);
            case Op::sub:
                return finite(x - y, nd.offset, out, err);
            default:
                break;
        }
        if (y == 0.0) {
            err = kapExprValue::from_error(kapErrDivideByZero, "division by zero",
                                           static_cast<int>(nd.offset));
            return false;
        }
        return finite(x / y, nd.offset, out, err);
    }

    // Node i as a scalar in one step: a constant, or a name the scope reads directly.
    bool scalar(std::uint32_t i, kapExprScalar& out) const {
        const Node& nd = c_.nodes_[i];
        if (nd.op == Op::name) return s_.read(c_.names_[nd.a], out);
        if (nd.op != Op::constant) return false;
        const kapExprValue& v = c_.consts_[nd.a];
        out.is_text = v.is_text();
        if (out.is_text) {
            out.text = v.text();
        } else {
            out.number = v.number();
        }
        return v.is_text() || v.is_number() || v.is_bool();
    }

    bool compare(const Node& nd, bool& out, kapExprValue& err) const {
        int c = 0;
        kapExprScalar ls, rs;
        const bool equality = nd.op == Op::eq || nd.op == Op::ne;
        if (!(scalar(nd.a, ls) && scalar(nd.b, rs) && order(ls, rs, equality, c))) {
            // The general way, which also says what went wrong.
            kapExprValue lt, rt;
            const kapExprValue& l = operand(nd.a, lt);
            if (l.is_error()) {
                err = l;
                return false;
            }
            const kapExprValue& r = operand(nd.b, rt);
            if (r.is_error()) {
                err = r;
                return false;
            }
            if (l.is_text() && r.is_text()) {
                const int k = l.text().compare(r.text());
                c = k < 0 ? -1 : k > 0 ? 1 : 0;
            } else {
                double x, y;
                if (!kap_expr_number_of(l, x) || !kap_expr_number_of(r, y)) {
                    err = type_error(
                        "cannot compare " + kap_expr_describe(l) + " with " + kap_expr_describe(r),
                        nd.offset);
                    return false;
                }
                c = x < y ? -1 : x > y ? 1 : 0;
            }
        }
        switch (nd.op) {
            case Op::eq:
                out = c == 0;
                break;
            case Op::ne:
                out = c != 0;
                break;
            case Op::lt:
                out = c < 0;
                break;
            case Op::gt:
                out = c > 0;
                break;
            case Op::le:
                out = c <= 0;
                break;
            default:
                out = c >= 0;
                break;
        }
        return true;
    }

    std::uint32_t arg(const Node& nd, std::uint32_t k) const { return c_.args_[nd.b + k]; }

    kapExprValue builtin(const Node& nd) const {
        switch (static_cast<kapExprFn>(nd.a)) {
            case fn_select: {
                bool x;
                kapExprValue e;
                if (!truth(arg(nd, 0), x, e)) return e;
                return eval(arg(nd, x ? 1 : 2));
            }
            case fn_active:
                return active(c_.nodes_[arg(nd, 0)]);
            default:
                break;
        }
        double x;
        kapExprValue e;
        if (!builtin_number(nd, x, e)) return e;
        return kapExprValue::from_number(x);
    }

    // The built-ins that answer numbers: all but select() and active().
    bool builtin_number(const Node& nd, double& out, kapExprValue& err) const {
        const std::uint32_t at = nd.offset;
        if (nd.a == fn_min || nd.a == fn_max) {
            double best = 0.0;
            for (std::uint32_t k = 0; k < nd.n; ++k) {
                double x;
                if (!number(arg(nd, k), at, x, err)) return false;
                if (k == 0 || (nd.a == fn_min ? x < best : x > best)) best = x;
            }
            out = best;
            return true;
        }
        double x, y = 0.0;
        if (!number(arg(nd, 0), at, x, err)) return false;
        if (nd.n > 1 && !number(arg(nd, 1), at, y, err)) return false;
        const char* fault = nullptr;
        if (kap_expr_math(nd.a, x, y, out, fault)) return true;
        const int code = fault == nullptr ? kapErrBadCall : kapErrDomain;
        err = kapExprValue::from_error(code, fault == nullptr ? "unknown function" : fault,
                                       static_cast<int>(at));
        return false;
    }

    // active(X): whether X is active. A name that nothing answers is not active; a plain value
    // (a name the scope answers without a parameter) counts as active.
    kapExprValue active(const Node& name_node) const {
        kapExprValue v = s_.resolve(c_.names_[name_node.a]);
        if (v.is_none() || v.error_code() == kapErrNoItem) {
            return kapExprValue::from_bool(false);
        }
        if (v.is_error()) {
            v.set_error_offset_if_unknown(static_cast<int>(name_node.offset));
            return v;
        }
        if (!v.is_node()) return kapExprValue::from_bool(true);
        return kapExprValue::from_bool(v.scope()->is_active(v.node()));
    }

    kapExprValue call(const Node& nd) const {
        const kapExprPath& fn = c_.calls_[nd.a];
        std::array<kapExprValue, 8> small;
        std::vector<kapExprValue> large;
        kapExprValue* args = small.data();
        if (nd.n > small.size()) {
            large.resize(nd.n);
            args = large.data();
        }
        for (std::uint32_t k = 0; k < nd.n; ++k) {
            args[k] = eval(arg(nd, k));
            if (args[k].is_error()) return std::move(args[k]);
        }
        kapExprValue v = s_.call(fn, std::span<const kapExprValue>(args, nd.n));
        if (v.is_none()) {
            return kapExprValue::from_error(kapErrNoItem,
                                            "unknown function '" + std::string(fn.text) + "'",
                                            static_cast<int>(nd.offset));
        }
        v.set_error_offset_if_unknown(static_cast<int>(nd.offset));
        return v;
    }

    const kapExprCompiled& c_;
    const kapExprScope& s_;
};

// Used by the parser to fold constant subtrees.
kapExprValue kap_expr_eval_node(const kapExprCompiled& c, std::uint32_t node,
                                const kapExprScope& scope) {
    return kapExprEvaluator(c, scope).eval(node);
}

// ---------------------------------------------------------------------------------------------
// kapExprCompiled

kapExprEvalDepth::kapExprEvalDepth(int depth) noexcept : depth_(depth) {
    ok_ = t_eval_depth + depth <= eval_budget;
    if (ok_) t_eval_depth += depth;
}
kapExprEvalDepth::~kapExprEvalDepth() {
    if (ok_) t_eval_depth -= depth_;
}

kapExprValue kapExprCompiled::evaluate(const kapExprScope& scope) const {
    if (!ok()) return kapExprValue::from_error(error_);
    kapExprEvalDepth guard(depth_);
    if (!guard.ok()) {
        return kapExprValue::from_error(kapErrTooDeep, "expressions nested too deeply",
                                        static_cast<int>(nodes_[root_].offset));
    }
    return kapExprEvaluator(*this, scope).eval(root_);
}

kapExprValue kapExprCompiled::evaluate_number(const kapExprScope& scope) const {
    if (!ok()) return kapExprValue::from_error(error_);
    const int at = static_cast<int>(nodes_[root_].offset);
    kapExprEvalDepth guard(depth_);
    if (!guard.ok()) {
        return kapExprValue::from_error(kapErrTooDeep, "expressions nested too deeply", at);
    }
    double x;
    bool unused;
    if (!fast_.empty() && run_fast(scope, false, x, unused) == kap_fast_done) {
        return kapExprValue::from_number(x);
    }
    kapExprValue e;
    if (kapExprEvaluator(*this, scope).number(root_, nodes_[root_].offset, x, e)) {
        return kapExprValue::from_number(x);
    }
    e.set_error_offset_if_unknown(at);
    return e;
}

kapExprValue kapExprCompiled::evaluate_bool(const kapExprScope& scope) const {
    if (!ok()) return kapExprValue::from_error(error_);
    const int at = static_cast<int>(nodes_[root_].offset);
    kapExprEvalDepth guard(depth_);
    if (!guard.ok()) {
        return kapExprValue::from_error(kapErrTooDeep, "expressions nested too deeply", at);
    }
    bool x;
    double unused;
    if (!fast_.empty() && run_fast(scope, true, unused, x) == kap_fast_done) {
        return kapExprValue::from_bool(x);
    }
    kapExprValue e;
    if (kapExprEvaluator(*this, scope).truth(root_, x, e)) return kapExprValue::from_bool(x);
    e.set_error_offset_if_unknown(at);
    return e;
}

int kapExprCompiled::evaluate_condition(const kapExprScope& scope) const {
    if (!ok()) return -1;
    bool x;
    double unused;
    if (!fast_.empty() && !uses_active_) {
        // The program alone cannot nest evaluations: no depth to count.
        const int end = run_fast(scope, true, unused, x);
        if (end == kap_fast_done) return x ? 1 : 0;
        if (end == kap_fast_error) return -1;
    }
    kapExprEvalDepth guard(depth_);
    if (!guard.ok()) return -1;
    if (!fast_.empty() && uses_active_) {
        const int end = run_fast(scope, true, unused, x);
        if (end == kap_fast_done) return x ? 1 : 0;
        if (end == kap_fast_error) return -1;
    }
    kapExprValue e;
    if (kapExprEvaluator(*this, scope).truth(root_, x, e)) return x ? 1 : 0;
    return -1;
}
