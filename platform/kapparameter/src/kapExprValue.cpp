// Values, conversions, the cycle guard, number texts and the built-in number functions of the
// expression language.

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "kapExprProgram.h"
#include "utils/utString.h"

namespace {

constexpr double deg_to_rad = std::numbers::pi / 180.0;
constexpr double rad_to_deg = 180.0 / std::numbers::pi;

// Nodes being evaluated on this thread, innermost last (kapExprGuard).
__attribute__((tls_model("initial-exec"))) thread_local std::array<const void*, kapExpr::max_depth>
    t_guard_nodes{};
__attribute__((tls_model("initial-exec"))) thread_local int t_guard_count = 0;

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
}  // namespace

// A text as a number: a number, or "true" / "false".
bool kap_expr_read_number(std::string_view t, double& out) noexcept {
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
bool kap_expr_number_of(const kapExprValue& v, double& out) noexcept {
    switch (v.type()) {
        case kapExprValue::Type::number:
        case kapExprValue::Type::boolean:
            out = v.number();
            return true;
        case kapExprValue::Type::text:
            return kap_expr_read_number(v.text(), out);
        default:
            return false;
    }
}

// Short description of a plain value for messages.
std::string kap_expr_describe(const kapExprValue& v) {
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

// The built-in number function `fn` (one of abs .. log) of x (and y). False when it is not one
// (`fault` null) or the result is not defined (`fault` says why).
bool kap_expr_math(std::uint32_t fn, double x, double y, double& out, const char*& fault) noexcept {
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
    switch (static_cast<kapExprFn>(fn)) {
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

// ---------------------------------------------------------------------------------------------
// kapExprGuard

bool kapExprScope::read(const kapExprPath&, kapExprScalar&) const {
    return false;
}

kapExprGuard::kapExprGuard(const void* node) noexcept {
    for (int i = 0; i < t_guard_count; ++i) {
        if (t_guard_nodes[i] == node) {
            code_ = kapErrCycle;
            return;
        }
    }
    if (t_guard_count >= kapExpr::max_depth) {
        code_ = kapErrTooDeep;
        return;
    }
    t_guard_nodes[t_guard_count++] = node;
}

kapExprGuard::~kapExprGuard() {
    if (code_ == kapErrNone) --t_guard_count;
}

kapExprValue kapExprGuard::error() const {
    if (code_ == kapErrCycle) {
        return kapExprValue::from_error(kapErrCycle, "expression reads its own value");
    }
    if (code_ == kapErrTooDeep) {
        return kapExprValue::from_error(kapErrTooDeep, "expressions nested too deeply");
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
        return kapExprValue::from_error(kapErrType, "parameter has no value");
    }
    kapExprValue p = v.scope()->value_of(v.node());
    if (p.is_node() || p.is_none()) {
        return kapExprValue::from_error(kapErrType, "parameter has no value");
    }
    return p;
}

kapExprValue kapExpr::to_number(const kapExprValue& v0) {
    const kapExprValue v = to_plain(v0);
    if (v.is_error()) return v;
    double x;
    if (kap_expr_number_of(v, x)) return kapExprValue::from_number(x);
    return kapExprValue::from_error(kapErrType, kap_expr_describe(v) + " is not a number");
}

kapExprValue kapExpr::to_bool(const kapExprValue& v0) {
    const kapExprValue v = to_plain(v0);
    if (v.is_error()) return v;
    if (v.is_text() && v.text().empty()) return kapExprValue::from_bool(false);
    double x;
    if (kap_expr_number_of(v, x)) return kapExprValue::from_bool(x != 0.0);
    return kapExprValue::from_error(kapErrType, kap_expr_describe(v) + " is not a condition");
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
    if (t.size() <= 9) {
        // A whole number of up to nine digits, the most common value of all, read directly
        // (exact, as the general reader gives it).
        std::uint32_t n = 0;
        std::size_t i = 0;
        for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i)
            n = n * 10 + static_cast<std::uint32_t>(t[i] - '0');
        if (i == t.size()) {
            out = negative ? -static_cast<double>(n) : static_cast<double>(n);
            return true;
        }
    }
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
