// Evaluation of compiled expressions, the built-in functions, values and conversions.

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <numbers>

#include "kapparameter/kapExpr.h"
#include "utils/utString.h"

namespace {

constexpr double deg_to_rad = std::numbers::pi / 180.0;
constexpr double rad_to_deg = 180.0 / std::numbers::pi;

// Sum of the tree depths of the evaluations running on this thread (an expression's scope may
// evaluate other expressions). Each level of a tree costs one frame of the recursive evaluator,
// so this bounds the stack that nested evaluations can take.
// The library is loaded with the host, so the static TLS model applies (and keeps these cheap).
constexpr int eval_budget = 2048;
__attribute__((tls_model("initial-exec"))) thread_local int t_eval_depth = 0;

// Nodes being evaluated on this thread, innermost last (kapExprGuard).
__attribute__((tls_model("initial-exec"))) thread_local std::array<const void*, kapExpr::max_depth>
    t_guard_nodes{};
__attribute__((tls_model("initial-exec"))) thread_local int t_guard_count = 0;

// A text as a number: a number, or "true" / "false".
bool read_number(std::string_view t, double& out) noexcept {
    if (kapExpr::parse_number(t, out)) return true;
    while (!t.empty() && (t.front() == ' ' || t.front() == '\t')) {
        t.remove_prefix(1);
    }
    while (!t.empty() && (t.back() == ' ' || t.back() == '\t')) {
        t.remove_suffix(1);
    }
    if (ut_iequal(t, "true")) {
        out = 1.0;
        return true;
    }
    if (ut_iequal(t, "false")) {
        out = 0.0;
        return true;
    }
    return false;
}

// A plain value (not a node) as a number.
bool number_of(const kapExprValue& v, double& out) noexcept {
    switch (v.type()) {
        case kapExprValue::Type::number:
        case kapExprValue::Type::boolean:
            out = v.number();
            return true;
        case kapExprValue::Type::text:
            return read_number(v.text(), out);
        default:
            return false;
    }
}

// Short description of a plain value for messages.
std::string describe(const kapExprValue& v) {
    switch (v.type()) {
        case kapExprValue::Type::text: {
            std::string_view t = v.text();
            if (t.size() > 40) t = t.substr(0, 40);
            return "'" + std::string(t) + "'";
        }
        case kapExprValue::Type::number:
            return kapExpr::format_number(v.number());
        case kapExprValue::Type::boolean:
            return v.boolean() ? "true" : "false";
        case kapExprValue::Type::node:
            return "a parameter";
        case kapExprValue::Type::none:
            return "nothing";
        case kapExprValue::Type::error:
            return "an error";
    }
    return "a value";
}

kapExprValue type_error(std::string message, std::uint32_t offset) {
    return kapExprValue::from_error(kapExprErrType, std::move(message), static_cast<int>(offset));
}

// Sine and cosine of an angle in degrees, exact at multiples of 90.
double sin_deg(double x) noexcept {
    const double r = std::remainder(x, 360.0);  // [-180, 180]
    if (r == 0.0 || r == 180.0 || r == -180.0) return 0.0;
    if (r == 90.0) return 1.0;
    if (r == -90.0) return -1.0;
    return std::sin(r * deg_to_rad);
}
double cos_deg(double x) noexcept {
    const double r = std::remainder(x, 360.0);
    if (r == 90.0 || r == -90.0) return 0.0;
    if (r == 0.0) return 1.0;
    if (r == 180.0 || r == -180.0) return -1.0;
    return std::cos(r * deg_to_rad);
}

// Function numbers: the order of the table of built-ins in kapExprParse.cpp.
// clang-format off
enum Fn : std::uint32_t {
    fn_min, fn_max, fn_select, fn_active, fn_abs, fn_sqrt, fn_sin, fn_cos, fn_tan, fn_asin,
    fn_acos, fn_atan, fn_atan2, fn_rad, fn_deg, fn_floor, fn_ceil, fn_round, fn_pow, fn_exp,
    fn_log,
};
// clang-format on

// The built-in number function `fn` (one of abs .. log) of x (and y). False when it is not one
// (`fault` null) or the result is not defined (`fault` says why).
bool math(std::uint32_t fn, double x, double y, double& out, const char*& fault) noexcept {
    constexpr const char* not_finite = "result is not a finite number";
    auto finite = [&](double r) {
        if (!std::isfinite(r)) {
            fault = not_finite;
            return false;
        }
        out = r;
        return true;
    };
    auto domain = [&](const char* what) {
        fault = what;
        return false;
    };
    switch (static_cast<Fn>(fn)) {
        case fn_abs:
            return finite(std::fabs(x));
        case fn_sqrt:
            if (x < 0.0) return domain("sqrt() of a negative number");
            return finite(std::sqrt(x));
        case fn_sin:
            return finite(sin_deg(x));
        case fn_cos:
            return finite(cos_deg(x));
        case fn_tan: {
            const double r = std::remainder(x, 180.0);  // [-90, 90]
            if (r == 90.0 || r == -90.0) return domain("tan() of an odd multiple of 90");
            if (r == 0.0) return finite(0.0);
            if (r == 45.0) return finite(1.0);
            if (r == -45.0) return finite(-1.0);
            return finite(std::tan(r * deg_to_rad));
        }
        case fn_asin:
            if (x < -1.0 || x > 1.0) return domain("asin() outside -1 to 1");
            return finite(std::asin(x) * rad_to_deg);
        case fn_acos:
            if (x < -1.0 || x > 1.0) return domain("acos() outside -1 to 1");
            return finite(std::acos(x) * rad_to_deg);
        case fn_atan:
            return finite(std::atan(x) * rad_to_deg);
        case fn_atan2:
            return finite(std::atan2(x, y) * rad_to_deg);
        case fn_rad:
            return finite(x * deg_to_rad);
        case fn_deg:
            return finite(x * rad_to_deg);
        case fn_floor:
            return finite(std::floor(x));
        case fn_ceil:
            return finite(std::ceil(x));
        case fn_round:
            return finite(std::round(x));
        case fn_pow:
            return finite(std::pow(x, y));
        case fn_exp:
            return finite(std::exp(x));
        case fn_log:
            if (x <= 0.0) return domain("log() of a number that is not positive");
            return finite(std::log(x));
        default:
            return false;
    }
}

// A plain value as a number / as a condition, by the language's rules; false when it is not one.
bool scalar_number(const kapExprScalar& v, double& out) noexcept {
    if (!v.is_text) {
        out = v.number;
        return true;
    }
    return read_number(v.text, out);
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
    if (!read_number(v.text, x)) return false;
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
    if ((l.is_text && !read_number(l.text, x)) || (r.is_text && !read_number(r.text, y))) {
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
    using Op = kapExprCompiled::Op;
    using Node = kapExprCompiled::Node;

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
                if (number_of(v, out)) return true;
                err = type_error(describe(v) + " is not a number", at);
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
        if (number_of(v, out)) return true;
        err = type_error(describe(v) + " is not a number", at);
        return false;
    }

    // Node i as a condition.
    bool truth(std::uint32_t i, bool& out, kapExprValue& err) const {
        const Node& nd = c_.nodes_[i];
        switch (nd.op) {
            case Op::constant: {
                const kapExprValue& v = c_.consts_[nd.a];
                if (truth_of(v, out)) return true;
                err = type_error(describe(v) + " is not a condition", nd.offset);
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
        err = type_error(describe(v) + " is not a condition", nd.offset);
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
        if (!number_of(v, x)) return false;
        out = x != 0.0;
        return true;
    }

    static bool finite(double r, std::uint32_t at, double& out, kapExprValue& err) {
        if (std::isfinite(r)) {
            out = r;
            return true;
        }
        err = kapExprValue::from_error(kapExprErrDomain, "result is not a finite number",
                                       static_cast<int>(at));
        return false;
    }

    kapExprValue name(const Node& nd) const {
        const kapExprPath& path = c_.names_[nd.a];
        kapExprValue v = s_.resolve(path);
        if (v.is_none()) {
            return kapExprValue::from_error(kapExprErrUnknownName,
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
            err = kapExprValue::from_error(kapExprErrDivideByZero, "division by zero",
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
                if (!number_of(l, x) || !number_of(r, y)) {
                    err = type_error("cannot compare " + describe(l) + " with " + describe(r),
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
        switch (static_cast<Fn>(nd.a)) {
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
        if (math(nd.a, x, y, out, fault)) return true;
        const int code = fault == nullptr ? kapExprErrBadCall : kapExprErrDomain;
        err = kapExprValue::from_error(code, fault == nullptr ? "unknown function" : fault,
                                       static_cast<int>(at));
        return false;
    }

    // active(X): whether X is active. A name that nothing answers is not active; a plain value
    // (a name the scope answers without a parameter) counts as active.
    kapExprValue active(const Node& name_node) const {
        kapExprValue v = s_.resolve(c_.names_[name_node.a]);
        if (v.is_none() || v.error_code() == kapExprErrUnknownName) {
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
            return kapExprValue::from_error(kapExprErrUnknownName,
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

namespace {
class EvalDepth {
  public:
    explicit EvalDepth(int depth) noexcept : depth_(depth) {
        ok_ = t_eval_depth + depth <= eval_budget;
        if (ok_) t_eval_depth += depth;
    }
    ~EvalDepth() {
        if (ok_) t_eval_depth -= depth_;
    }
    EvalDepth(const EvalDepth&) = delete;
    EvalDepth& operator=(const EvalDepth&) = delete;
    bool ok() const noexcept { return ok_; }

  private:
    int depth_;
    bool ok_;
};
}  // namespace

kapExprValue kapExprCompiled::evaluate(const kapExprScope& scope) const {
    if (!ok()) return kapExprValue::from_error(error_);
    EvalDepth guard(depth_);
    if (!guard.ok()) {
        return kapExprValue::from_error(kapExprErrTooDeep, "expressions nested too deeply",
                                        static_cast<int>(nodes_[root_].offset));
    }
    return kapExprEvaluator(*this, scope).eval(root_);
}

namespace {

// A value on the stack of the postfix program. Left uninitialised: the program writes a slot
// before it reads it.
struct FastSlot {
    double number;
    const char* data;
    std::uint32_t size;
    std::uint8_t kind;  // 0 number, 1 boolean, 2 text
};

constexpr std::uint8_t kNumber = 0, kBool = 1, kText = 2;

[[gnu::always_inline]] inline bool slot_number(const FastSlot& s, double& x) noexcept {
    if (s.kind != kText) {
        x = s.number;
        return true;
    }
    return read_number(std::string_view(s.data, s.size), x);
}

[[gnu::always_inline]] inline bool slot_truth(const FastSlot& s, bool& b) noexcept {
    if (s.kind != kText) {
        b = s.number != 0.0;
        return true;
    }
    if (s.size == 0) {
        b = false;
        return true;
    }
    double x;
    if (!read_number(std::string_view(s.data, s.size), x)) return false;
    b = x != 0.0;
    return true;
}

// As order() over two slots.
[[gnu::always_inline]] inline bool slot_order(const FastSlot& l, const FastSlot& r, bool equality,
                                              int& c) noexcept {
    if (l.kind == kText && r.kind == kText) {
        if (l.size != r.size && equality) {
            c = 1;
            return true;
        }
        const int k = std::string_view(l.data, l.size).compare(std::string_view(r.data, r.size));
        c = k < 0 ? -1 : k > 0 ? 1 : 0;
        return true;
    }
    double x, y;
    if (!slot_number(l, x) || !slot_number(r, y)) return false;
    c = x < y ? -1 : x > y ? 1 : 0;
    return true;
}

inline void set_number(FastSlot& s, double x) noexcept {
    s.number = x;
    s.kind = kNumber;
}
inline void set_bool(FastSlot& s, bool b) noexcept {
    s.number = b ? 1.0 : 0.0;
    s.kind = kBool;
}

}  // namespace

// The postfix program. Every step is one the tree evaluation takes as well, in the same order, so
// giving up half way and evaluating the tree gives the same answer; the program only saves the
// values, the recursion and the messages.
kapExprCompiled::FastEnd kapExprCompiled::run_fast(const kapExprScope& scope, bool as_bool,
                                                   double& number, bool& truth) const {
    FastSlot st[fast_stack];
    FastSlot* top = st - 1;  // the slot on top
    const Fast* code = fast_.data();
    const Fast* const end = code + fast_.size();
    for (const Fast* f = code; f < end; ++f) {
        switch (f->op) {
            case FastOp::constant: {
                const kapExprValue& v = consts_[f->a];
                ++top;
                if (v.is_text()) {
                    top->kind = kText;
                    top->data = v.text().data();
                    top->size = static_cast<std::uint32_t>(v.text().size());
                } else {
                    top->kind = v.is_bool() ? kBool : kNumber;
                    top->number = v.number();
                }
                break;
            }
            case FastOp::number: {
                const std::uint64_t bits = (static_cast<std::uint64_t>(f->b) << 32) | f->a;
                ++top;
                std::memcpy(&top->number, &bits, sizeof bits);
                top->kind = f->n != 0 ? kBool : kNumber;
                break;
            }
            case FastOp::name: {
                kapExprScalar v;
                if (!scope.read(names_[f->a], v)) return fast_general;
                ++top;
                if (v.is_text) {
                    if (v.text.size() > 0xffffffffu) return fast_general;
                    top->kind = kText;
                    top->data = v.text.data();
                    top->size = static_cast<std::uint32_t>(v.text.size());
                } else {
                    set_number(*top, v.number);
                }
                break;
            }
            case FastOp::compare: {
                kapExprScalar v;
                if (!scope.read(names_[f->a], v)) return fast_general;
                FastSlot n, k;
                if (v.is_text) {
                    if (v.text.size() > 0xffffffffu) return fast_general;
                    n.kind = kText;
                    n.data = v.text.data();
                    n.size = static_cast<std::uint32_t>(v.text.size());
                } else {
                    set_number(n, v.number);
                }
                const kapExprValue& c = consts_[f->b];
                if (c.is_text()) {
                    k.kind = kText;
                    k.data = c.text().data();
                    k.size = static_cast<std::uint32_t>(c.text().size());
                } else {
                    set_number(k, c.number());
                }
                const int how = f->n & 7;
                const bool swapped = (f->n & fast_swapped) != 0;
                int o;
                if (!slot_order(swapped ? k : n, swapped ? n : k, how < 2, o)) return fast_error;
                bool r;
                switch (how) {
                    case 0:
                        r = o == 0;
                        break;
                    case 1:
                        r = o != 0;
                        break;
                    case 2:
                        r = o < 0;
                        break;
                    case 3:
                        r = o > 0;
                        break;
                    case 4:
                        r = o <= 0;
                        break;
                    default:
                        r = o >= 0;
                        break;
                }
                ++top;
                set_bool(*top, r);
                break;
            }
            case FastOp::neg:
            case FastOp::pos: {
                double x;
                if (!slot_number(*top, x)) return fast_error;
                set_number(*top, f->op == FastOp::neg ? -x : x);
                break;
            }
            case FastOp::lnot:
            case FastOp::to_bool: {
                bool b;
                if (!slot_truth(*top, b)) return fast_error;
                set_bool(*top, f->op == FastOp::lnot ? !b : b);
                break;
            }
            case FastOp::mul:
            case FastOp::div:
            case FastOp::add:
            case FastOp::sub: {
                double x, y;
                if (!slot_number(top[-1], x) || !slot_number(top[0], y)) return fast_error;
                double r;
                switch (f->op) {
                    case FastOp::mul:
                        r = x * y;
                        break;
                    case FastOp::add:
                        r = x + y;
                        break;
                    case FastOp::sub:
                        r = x - y;
                        break;
                    default:
                        if (y == 0.0) return fast_error;
                        r = x / y;
                        break;
                }
                if (!std::isfinite(r)) return fast_error;
                --top;
                set_number(*top, r);
                break;
            }
            case FastOp::eq:
            case FastOp::ne: {
                int c;
                if (!slot_order(top[-1], top[0], true, c)) return fast_error;
                --top;
                set_bool(*top, (c == 0) == (f->op == FastOp::eq));
                break;
            }
            case FastOp::lt:
            case FastOp::gt:
            case FastOp::le:
            case FastOp::ge: {
                int c;
                if (!slot_order(top[-1], top[0], false, c)) return fast_error;
                bool b;
                switch (f->op) {
                    case FastOp::lt:
                        b = c < 0;
                        break;
                    case FastOp::gt:
                        b = c > 0;
                        break;
                    case FastOp::le:
                        b = c <= 0;
                        break;
                    default:
                        b = c >= 0;
                        break;
                }
                --top;
                set_bool(*top, b);
                break;
            }
            case FastOp::and_jump:
            case FastOp::or_jump: {
                bool b;
                if (!slot_truth(*top, b)) return fast_error;
                if (b == (f->op == FastOp::or_jump)) {
                    set_bool(*top, b);
                    f = code + f->a - 1;  // the loop steps on to f->a
                } else {
                    --top;
                }
                break;
            }
            case FastOp::select_jump: {
                bool b;
                if (!slot_truth(*top, b)) return fast_error;
                --top;
                if (!b) f = code + f->a - 1;
                break;
            }
            case FastOp::jump:
                f = code + f->a - 1;
                break;
            case FastOp::min:
            case FastOp::max: {
                FastSlot* first = top - (f->n - 1);
                if (f->n == 2) {
                    double x, y;
                    if (!slot_number(first[0], x) || !slot_number(first[1], y)) return fast_error;
                    top = first;
                    set_number(*top, f->op == FastOp::min ? (y < x ? y : x) : (y > x ? y : x));
                    break;
                }
                double best = 0.0;
                for (int k = 0; k < f->n; ++k) {
                    double x;
                    if (!slot_number(first[k], x)) return fast_error;
                    if (k == 0 || (f->op == FastOp::min ? x < best : x > best)) best = x;
                }
                top = first;
                set_number(*top, best);
                break;
            }
            case FastOp::math: {
                FastSlot* first = top - (f->n - 1);
                double x, y = 0.0, r;
                const char* fault = nullptr;
                if (!slot_number(first[0], x)) return fast_error;
                if (f->n > 1 && !slot_number(first[1], y)) return fast_error;
                if (!math(f->a, x, y, r, fault)) return fast_error;
                top = first;
                set_number(*top, r);
                break;
            }
            case FastOp::active: {
                const kapExprValue v = scope.resolve(names_[f->a]);
                bool b = true;
                if (v.is_none() || v.error_code() == kapExprErrUnknownName) {
                    b = false;
                } else if (v.is_error()) {
                    return fast_error;
                } else if (v.is_node()) {
                    b = v.scope()->is_active(v.node());
                }
                ++top;
                set_bool(*top, b);
                break;
            }
            default:
                __builtin_unreachable();
        }
    }
    if (top != st) return fast_general;
    const bool ok = as_bool ? slot_truth(st[0], truth) : slot_number(st[0], number);
    return ok ? fast_done : fast_error;
}

kapExprValue kapExprCompiled::evaluate_number(const kapExprScope& scope) const {
    if (!ok()) return kapExprValue::from_error(error_);
    const int at = static_cast<int>(nodes_[root_].offset);
    EvalDepth guard(depth_);
    if (!guard.ok()) {
        return kapExprValue::from_error(kapExprErrTooDeep, "expressions nested too deeply", at);
    }
    double x;
    bool unused;
    if (!fast_.empty() && run_fast(scope, false, x, unused) == fast_done) {
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
    EvalDepth guard(depth_);
    if (!guard.ok()) {
        return kapExprValue::from_error(kapExprErrTooDeep, "expressions nested too deeply", at);
    }
    bool x;
    double unused;
    if (!fast_.empty() && run_fast(scope, true, unused, x) == fast_done) {
        return kapExprValue::from_bool(x);
    }
    kapExprValue e;
    if (kapExprEvaluator(*this, scope).truth(root_, x, e)) return kapExprValue::from_bool(x);
    e.set_error_offset_if_unknown(at);
    return e;
}

int kapExprCompiled::evaluate_quick(const kapExprScope& scope, bool as_bool, double& number,
                                    bool& truth) const {
    if (!ok()) return 0;
    if (fast_.empty()) return -1;
    switch (run_fast(scope, as_bool, number, truth)) {
        case fast_done:
            return 1;
        case fast_error:
            return 0;
        case fast_general:
            break;
    }
    return -1;
}

int kapExprCompiled::evaluate_condition(const kapExprScope& scope) const {
    if (!ok()) return -1;
    bool x;
    double unused;
    if (!fast_.empty() && !uses_active_) {
        // The program alone cannot nest evaluations: no depth to count.
        const FastEnd end = run_fast(scope, true, unused, x);
        if (end == fast_done) return x ? 1 : 0;
        if (end == fast_error) return -1;
    }
    EvalDepth guard(depth_);
    if (!guard.ok()) return -1;
    if (!fast_.empty() && uses_active_) {
        const FastEnd end = run_fast(scope, true, unused, x);
        if (end == fast_done) return x ? 1 : 0;
        if (end == fast_error) return -1;
    }
    kapExprValue e;
    if (kapExprEvaluator(*this, scope).truth(root_, x, e)) return x ? 1 : 0;
    return -1;
}

// ---------------------------------------------------------------------------------------------
// kapExprGuard

bool kapExprScope::read(const kapExprPath&, kapExprScalar&) const {
    return false;
}

kapExprGuard::kapExprGuard(const void* node) noexcept {
    for (int i = 0; i < t_guard_count; ++i) {
        if (t_guard_nodes[i] == node) {
            code_ = kapExprErrCycle;
            return;
        }
    }
    if (t_guard_count >= kapExpr::max_depth) {
        code_ = kapExprErrTooDeep;
        return;
    }
    t_guard_nodes[t_guard_count++] = node;
}

kapExprGuard::~kapExprGuard() {
    if (code_ == kapExprOk) --t_guard_count;
}

kapExprValue kapExprGuard::error() const {
    if (code_ == kapExprErrCycle) {
        return kapExprValue::from_error(kapExprErrCycle, "expression reads its own value");
    }
    if (code_ == kapExprErrTooDeep) {
        return kapExprValue::from_error(kapExprErrTooDeep, "expressions nested too deeply");
    }
    return {};
}

// ---------------------------------------------------------------------------------------------
// kapExprValue

kapExprValue kapExprValue::from_owned_text(std::string text) {
    kapExprValue r;
    r.type_ = Type::text;
    r.own_ = std::make_shared<const std::string>(std::move(text));
    r.text_ = *r.own_;
    return r;
}

kapExprValue kapExprValue::from_error(int code, std::string message, int offset) {
    kapExprValue r;
    r.type_ = Type::error;
    r.code_ = code;
    r.offset_ = offset;
    r.own_ = std::make_shared<const std::string>(std::move(message));
    r.text_ = *r.own_;
    return r;
}

kapExprValue kapExprValue::from_error(const kapExprError& e) {
    return from_error(e.code, e.message, e.offset);
}

kapExprError kapExprValue::error() const {
    kapExprError e;
    if (type_ != Type::error) return e;
    e.code = code_;
    e.offset = offset_;
    e.message.assign(text_.data(), text_.size());
    return e;
}

// ---------------------------------------------------------------------------------------------
// Conversions

kapExprValue kapExpr::to_plain(const kapExprValue& v) {
    if (!v.is_node()) return v;
    if (v.scope() == nullptr) {
        return kapExprValue::from_error(kapExprErrType, "parameter has no value");
    }
    kapExprValue p = v.scope()->value_of(v.node());
    if (p.is_node() || p.is_none()) {
        return kapExprValue::from_error(kapExprErrType, "parameter has no value");
    }
    return p;
}

kapExprValue kapExpr::to_number(const kapExprValue& v0) {
    const kapExprValue v = to_plain(v0);
    if (v.is_error()) return v;
    double x;
    if (number_of(v, x)) return kapExprValue::from_number(x);
    return kapExprValue::from_error(kapExprErrType, describe(v) + " is not a number");
}

kapExprValue kapExpr::to_bool(const kapExprValue& v0) {
    const kapExprValue v = to_plain(v0);
    if (v.is_error()) return v;
    if (v.is_text() && v.text().empty()) return kapExprValue::from_bool(false);
    double x;
    if (number_of(v, x)) return kapExprValue::from_bool(x != 0.0);
    return kapExprValue::from_error(kapExprErrType, describe(v) + " is not a condition");
}

bool kapExpr::parse_number(std::string_view t, double& out) noexcept {
    while (!t.empty() && (t.front() == ' ' || t.front() == '\t')) {
        t.remove_prefix(1);
    }
    while (!t.empty() && (t.back() == ' ' || t.back() == '\t')) {
        t.remove_suffix(1);
    }
    bool negative = false;
    if (!t.empty() && (t.front() == '+' || t.front() == '-')) {
        negative = t.front() == '-';
        t.remove_prefix(1);
    }
    // Digits or a point first: no "inf", "nan", no second sign.
    if (t.empty() || !((t.front() >= '0' && t.front() <= '9') || t.front() == '.')) return false;
    double v = 0.0;
    const auto [ptr, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    if (ec != std::errc() || ptr != t.data() + t.size()) return false;
    out = negative ? -v : v;
    return true;
}

std::string kapExpr::format_number(double v) {
    if (v == 0.0) v = 0.0;  // no "-0"
    char buf[32];
    const auto [ptr, ec] = std::to_chars(buf, buf + sizeof(buf), v);
    if (ec != std::errc()) return std::string();
    return std::string(buf, ptr);
}
