// Evaluation of compiled expressions, the built-in functions, values and conversions.

#include <array>
#include <charconv>
#include <cmath>
#include <numbers>

#include "kapparameter/kapExpr.h"

namespace {

constexpr double deg_to_rad = std::numbers::pi / 180.0;
constexpr double rad_to_deg = 180.0 / std::numbers::pi;

// Sum of the tree depths of the evaluations running on this thread (an expression's scope may
// evaluate other expressions). Each level of a tree costs one frame of the recursive evaluator,
// so this bounds the stack that nested evaluations can take.
constexpr int eval_budget = 2048;
thread_local int t_eval_depth = 0;

// Nodes being evaluated on this thread, innermost last (kapExprGuard).
thread_local std::array<const void*, kapExpr::max_depth> t_guard_nodes{};
thread_local int t_guard_count = 0;

bool iequal(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

// A text as a number: a number, or "true" / "false".
bool read_number(std::string_view t, double& out) noexcept {
    if (kapExpr::parse_number(t, out)) return true;
    while (!t.empty() && (t.front() == ' ' || t.front() == '\t'))
        t.remove_prefix(1);
    while (!t.empty() && (t.back() == ' ' || t.back() == '\t'))
        t.remove_suffix(1);
    if (iequal(t, "true")) {
        out = 1.0;
        return true;
    }
    if (iequal(t, "false")) {
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

}  // namespace

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
            case Op::pos: {
                double x;
                kapExprValue e;
                if (!number(nd.a, nd.offset, x, e)) return e;
                return kapExprValue::from_number(nd.op == Op::neg ? -x : x);
            }
            case Op::lnot: {
                bool x;
                kapExprValue e;
                if (!truth(nd.a, x, e)) return e;
                return kapExprValue::from_bool(!x);
            }
            case Op::mul:
            case Op::div:
            case Op::add:
            case Op::sub:
                return arithmetic(nd);
            case Op::eq:
            case Op::ne:
            case Op::lt:
            case Op::gt:
            case Op::le:
            case Op::ge:
                return compare(nd);
            case Op::land:
            case Op::lor: {
                bool x;
                kapExprValue e;
                if (!truth(nd.a, x, e)) return e;
                // Short circuit: the right side is not evaluated when the left decides.
                if (nd.op == Op::land ? !x : x) return kapExprValue::from_bool(x);
                if (!truth(nd.b, x, e)) return e;
                return kapExprValue::from_bool(x);
            }
            case Op::builtin:
                return builtin(nd);
            case Op::call:
                return call(nd);
        }
        return {};
    }

  private:
    // The plain value of node i: a node reference is asked of its scope.
    kapExprValue plain(std::uint32_t i) const {
        kapExprValue v = eval(i);
        if (!v.is_node()) return v;
        kapExprValue p = v.scope()->value_of(v.node());
        if (p.is_node() || p.is_none())
            return type_error("parameter has no value", c_.nodes_[i].offset);
        p.set_error_offset_if_unknown(static_cast<int>(c_.nodes_[i].offset));
        return p;
    }

    bool number(std::uint32_t i, std::uint32_t at, double& out, kapExprValue& err) const {
        kapExprValue v = plain(i);
        if (v.is_error()) {
            err = std::move(v);
            return false;
        }
        if (number_of(v, out)) return true;
        err = type_error(describe(v) + " is not a number", at);
        return false;
    }

    bool truth(std::uint32_t i, bool& out, kapExprValue& err) const {
        kapExprValue v = plain(i);
        if (v.is_error()) {
            err = std::move(v);
            return false;
        }
        kapExprValue b = kapExpr::to_bool(v);
        if (b.is_error()) {
            err = type_error(describe(v) + " is not a condition", c_.nodes_[i].offset);
            return false;
        }
        out = b.boolean();
        return true;
    }

    static kapExprValue finite(double r, std::uint32_t at) {
        if (std::isfinite(r)) return kapExprValue::from_number(r);
        return kapExprValue::from_error(kapExprErrDomain, "result is not a finite number",
                                        static_cast<int>(at));
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

    kapExprValue arithmetic(const Node& nd) const {
        double x, y;
        kapExprValue e;
        if (!number(nd.a, nd.offset, x, e) || !number(nd.b, nd.offset, y, e)) return e;
        switch (nd.op) {
            case Op::mul:
                return finite(x * y, nd.offset);
            case Op::add:
                return finite(x + y, nd.offset);
            case Op::sub:
                return finite(x - y, nd.offset);
            default:
                break;
        }
        if (y == 0.0) {
            return kapExprValue::from_error(kapExprErrDivideByZero, "division by zero",
                                            static_cast<int>(nd.offset));
        }
        return finite(x / y, nd.offset);
    }

    kapExprValue compare(const Node& nd) const {
        const kapExprValue l = plain(nd.a);
        if (l.is_error()) return l;
        const kapExprValue r = plain(nd.b);
        if (r.is_error()) return r;
        int c = 0;
        if (l.is_text() && r.is_text()) {
            const int k = l.text().compare(r.text());
            c = k < 0 ? -1 : k > 0 ? 1 : 0;
        } else {
            double x, y;
            if (!number_of(l, x) || !number_of(r, y))
                return type_error("cannot compare " + describe(l) + " with " + describe(r),
                                  nd.offset);
            c = x < y ? -1 : x > y ? 1 : 0;
        }
        bool res = false;
        switch (nd.op) {
            case Op::eq:
                res = c == 0;
                break;
            case Op::ne:
                res = c != 0;
                break;
            case Op::lt:
                res = c < 0;
                break;
            case Op::gt:
                res = c > 0;
                break;
            case Op::le:
                res = c <= 0;
                break;
            case Op::ge:
                res = c >= 0;
                break;
            default:
                break;
        }
        return kapExprValue::from_bool(res);
    }

    std::uint32_t arg(const Node& nd, std::uint32_t k) const { return c_.args_[nd.b + k]; }

    kapExprValue builtin(const Node& nd) const {
        const std::uint32_t at = nd.offset;
        switch (static_cast<Fn>(nd.a)) {
            case fn_select: {
                bool x;
                kapExprValue e;
                if (!truth(arg(nd, 0), x, e)) return e;
                return eval(arg(nd, x ? 1 : 2));
            }
            case fn_active:
                return active(c_.nodes_[arg(nd, 0)]);
            case fn_min:
            case fn_max: {
                double best = 0.0;
                for (std::uint32_t k = 0; k < nd.n; ++k) {
                    double x;
                    kapExprValue e;
                    if (!number(arg(nd, k), at, x, e)) return e;
                    if (k == 0 || (nd.a == fn_min ? x < best : x > best)) best = x;
                }
                return kapExprValue::from_number(best);
            }
            default:
                break;
        }
        double x, y = 0.0;
        kapExprValue e;
        if (!number(arg(nd, 0), at, x, e)) return e;
        if (nd.n > 1 && !number(arg(nd, 1), at, y, e)) return e;
        auto domain = [&](const char* what) {
            return kapExprValue::from_error(kapExprErrDomain, what, static_cast<int>(at));
        };
        switch (static_cast<Fn>(nd.a)) {
            case fn_abs:
                return kapExprValue::from_number(std::fabs(x));
            case fn_sqrt:
                if (x < 0.0) return domain("sqrt() of a negative number");
                return kapExprValue::from_number(std::sqrt(x));
            case fn_sin:
                return finite(sin_deg(x), at);
            case fn_cos:
                return finite(cos_deg(x), at);
            case fn_tan: {
                const double r = std::remainder(x, 180.0);  // [-90, 90]
                if (r == 90.0 || r == -90.0) return domain("tan() of an odd multiple of 90");
                if (r == 0.0) return kapExprValue::from_number(0.0);
                if (r == 45.0) return kapExprValue::from_number(1.0);
                if (r == -45.0) return kapExprValue::from_number(-1.0);
                return finite(std::tan(r * deg_to_rad), at);
            }
            case fn_asin:
                if (x < -1.0 || x > 1.0) return domain("asin() outside -1 to 1");
                return kapExprValue::from_number(std::asin(x) * rad_to_deg);
            case fn_acos:
                if (x < -1.0 || x > 1.0) return domain("acos() outside -1 to 1");
                return kapExprValue::from_number(std::acos(x) * rad_to_deg);
            case fn_atan:
                return kapExprValue::from_number(std::atan(x) * rad_to_deg);
            case fn_atan2:
                return kapExprValue::from_number(std::atan2(x, y) * rad_to_deg);
            case fn_rad:
                return finite(x * deg_to_rad, at);
            case fn_deg:
                return finite(x * rad_to_deg, at);
            case fn_floor:
                return kapExprValue::from_number(std::floor(x));
            case fn_ceil:
                return kapExprValue::from_number(std::ceil(x));
            case fn_round:
                return kapExprValue::from_number(std::round(x));
            case fn_pow:
                return finite(std::pow(x, y), at);
            case fn_exp:
                return finite(std::exp(x), at);
            case fn_log:
                if (x <= 0.0) return domain("log() of a number that is not positive");
                return kapExprValue::from_number(std::log(x));
            default:
                break;
        }
        return kapExprValue::from_error(kapExprErrBadCall, "unknown function",
                                        static_cast<int>(at));
    }

    // active(X): whether X is active. A name that nothing answers is not active; a plain value
    // (a name the scope answers without a parameter) counts as active.
    kapExprValue active(const Node& name_node) const {
        kapExprValue v = s_.resolve(c_.names_[name_node.a]);
        if (v.is_none() || v.error_code() == kapExprErrUnknownName)
            return kapExprValue::from_bool(false);
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

kapExprValue kapExprCompiled::evaluate_number(const kapExprScope& scope) const {
    kapExprValue v = kapExpr::to_number(evaluate(scope));
    if (ok()) v.set_error_offset_if_unknown(static_cast<int>(nodes_[root_].offset));
    return v;
}

kapExprValue kapExprCompiled::evaluate_bool(const kapExprScope& scope) const {
    kapExprValue v = kapExpr::to_bool(evaluate(scope));
    if (ok()) v.set_error_offset_if_unknown(static_cast<int>(nodes_[root_].offset));
    return v;
}

// ---------------------------------------------------------------------------------------------
// kapExprGuard

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
    if (code_ == kapExprErrCycle)
        return kapExprValue::from_error(kapExprErrCycle, "expression reads its own value");
    if (code_ == kapExprErrTooDeep)
        return kapExprValue::from_error(kapExprErrTooDeep, "expressions nested too deeply");
    return {};
}

// ---------------------------------------------------------------------------------------------
// kapExprValue

kapExprValue kapExprValue::from_number(double v) noexcept {
    kapExprValue r;
    r.type_ = Type::number;
    r.num_ = v;
    return r;
}

kapExprValue kapExprValue::from_bool(bool v) noexcept {
    kapExprValue r;
    r.type_ = Type::boolean;
    r.num_ = v ? 1.0 : 0.0;
    return r;
}

kapExprValue kapExprValue::from_text(std::string_view borrowed) noexcept {
    kapExprValue r;
    r.type_ = Type::text;
    r.text_ = borrowed;
    return r;
}

kapExprValue kapExprValue::from_owned_text(std::string text) {
    kapExprValue r;
    r.type_ = Type::text;
    r.own_ = std::make_shared<const std::string>(std::move(text));
    r.text_ = *r.own_;
    return r;
}

kapExprValue kapExprValue::from_node(const void* node, const kapExprScope* scope) noexcept {
    kapExprValue r;
    r.type_ = Type::node;
    r.ptr_ = node;
    r.scope_ = scope;
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

double kapExprValue::number() const noexcept {
    return (type_ == Type::number || type_ == Type::boolean) ? num_ : 0.0;
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
    if (v.scope() == nullptr)
        return kapExprValue::from_error(kapExprErrType, "parameter has no value");
    kapExprValue p = v.scope()->value_of(v.node());
    if (p.is_node() || p.is_none())
        return kapExprValue::from_error(kapExprErrType, "parameter has no value");
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
    while (!t.empty() && (t.front() == ' ' || t.front() == '\t'))
        t.remove_prefix(1);
    while (!t.empty() && (t.back() == ' ' || t.back() == '\t'))
        t.remove_suffix(1);
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
