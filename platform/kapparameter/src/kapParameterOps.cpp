// Operators applied to parameter values, printing, and the XML names of the kinds of node.

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "kapparameter/kapExpr.h"
#include "kapparameter/kapParameter.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Operators

// The operators a caller may apply, as the expression language writes them.
enum class OpClass { arithmetic, logical };
struct OpRow {
    std::string_view name;  // as the caller gives it (words in any letter case)
    std::string_view text;  // as the language writes it
    OpClass cls;
};
// clang-format off
constexpr std::array kBinaryOps{
    OpRow{"+",   "+",  OpClass::arithmetic}, OpRow{"-",  "-",  OpClass::arithmetic},
    OpRow{"*",   "*",  OpClass::arithmetic}, OpRow{"/",  "/",  OpClass::arithmetic},
    OpRow{"==",  "==", OpClass::logical},    OpRow{"!=", "!=", OpClass::logical},
    OpRow{"<",   "<",  OpClass::logical},    OpRow{"<=", "<=", OpClass::logical},
    OpRow{">",   ">",  OpClass::logical},    OpRow{">=", ">=", OpClass::logical},
    OpRow{"&&",  "&&", OpClass::logical},    OpRow{"||", "||", OpClass::logical},
    OpRow{"and", "&&", OpClass::logical},    OpRow{"or", "||", OpClass::logical},
};
constexpr std::array kPrefixOps{
    OpRow{"-", "-", OpClass::arithmetic}, OpRow{"+", "+", OpClass::arithmetic},
    OpRow{"!", "!", OpClass::logical},
};
// clang-format on

template <std::size_t N>
const OpRow* find_op(const std::array<OpRow, N>& rows, const utString& op) {
    for (const OpRow& r : rows) {
        if (ut_iequal(r.name, op)) return &r;
    }
    return nullptr;
}

// An operand as it enters an expression text.
struct Operand {
    enum Kind { number, literal, expr, error, bad } kind = bad;
    utString text;  // the operand written in the language, ready to stand next to an operator
    int code = kapErrNone;
    utString message;
};

bool is_text_kind(kapParameterType t) {
    return t == kapParameterType::string || t == kapParameterType::path ||
           t == kapParameterType::data;
}

Operand operand_of(const kapParameter& p) {
    Operand o;
    if (const auto* e = kapParameterError::ut_dynamic_cast(&p)) {
        o.kind = Operand::error;
        o.code = e->code();
        o.message = e->message();
        return o;
    }
    if (p.is_expr()) {
        o.kind = Operand::expr;
        const utString held = p.get_expr();
        const std::string_view inside = kapExpr::unwrap(held);
        const auto compiled = kapExpr::compile_uncached(inside);
        // A lone name or constant stands as it is; anything else keeps its own parentheses.
        if (compiled->ok() && compiled->depth() <= 1) {
            o.text = utString(inside);
        } else {
            o.text = "(" + utString(inside) + ")";
        }
        return o;
    }
    const kapParameterType t = p.type();
    if (t == kapParameterType::numeric) {
        const double v = p.get_double();
        if (!std::isfinite(v)) {
            o.kind = Operand::error;
            o.code = kapErrDomain;
            o.message = "not a finite number";
            return o;
        }
        o.kind = Operand::number;
        o.text = kapExpr::format_number(v);
        if (o.text.front() == '-') o.text = "(" + o.text + ")";
        return o;
    }
    if (t == kapParameterType::enumeration || is_text_kind(t)) {
        const utString s = p.get_string();
        const char quote = s.find('\'') == utString::npos  ? '\''
                           : s.find('"') == utString::npos ? '"'
                                                           : '\0';
        if (quote == '\0') {
            o.code = kapErrType;
            o.message = "a text holding both quotes cannot be an operand";
            return o;
        }
        o.kind = Operand::literal;
        o.text = quote + s + quote;
        return o;
    }
    o.code = kapErrType;
    o.message = utString("a ") + kap_type_name(t) + " cannot be an operand";
    return o;
}

// Answers nothing: the texts evaluated here hold no names.
class NoScope final : public kapExprScope {
  public:
    kapExprValue resolve(const kapExprPath& path) const override {
        return kapExprValue::from_error(kapErrNoItem,
                                        "unknown name '" + std::string(path.text) + "'");
    }
    kapExprValue call(const kapExprPath& fn, std::span<const kapExprValue>) const override {
        return kapExprValue::from_error(kapErrNoItem,
                                        "unknown function '" + std::string(fn.text) + "'");
    }
    kapExprValue value_of(const void*) const override { return {}; }
    bool is_active(const void*) const override { return true; }
};

kapDimStandard dims_of(const kapParameter& a, const kapParameter* b) {
    if (a.type() == kapParameterType::numeric) return a.impl().dims;
    if (b != nullptr && b->type() == kapParameterType::numeric) return b->impl().dims;
    return kapDimNone;
}

// Combines the operands into `text` and answers its value, or the expression itself when an
// operand is one.
kapParameterPtr operate(const kapParameter& self, const kapParameter* rhs, const OpRow* op,
                        const utString& op_name, const utString& text_or_empty,
                        std::span<const Operand> operands) {
    for (const Operand& o : operands) {
        if (o.kind == Operand::error || o.kind == Operand::bad) {
            return kapParameterError::create(o.code, o.message);
        }
    }
    if (op == nullptr) {
        return kapParameterError::create(kapErrSyntax, "unknown operator: " + op_name);
    }
    const utString& text = text_or_empty;
    const auto compiled = kapExpr::compile_uncached(text);
    if (!compiled->ok()) {
        return kapParameterError::create(compiled->error().code, compiled->error().message);
    }
    const bool has_expr = std::any_of(operands.begin(), operands.end(),
                                      [](const Operand& o) { return o.kind == Operand::expr; });
    const kapDimStandard dims = dims_of(self, rhs);
    if (has_expr) {
        kapParameterPtr out;
        if (op->cls == OpClass::logical) {
            out = kapParameterNumeric::create_bool(0);
            out->set_string(text);
        } else if (is_text_kind(self.type())) {
            out = kapParameterPtr(new kapParameterString("${" + text + "}"));
        } else {
            out =
                kapParameterPtr(new kapParameterNumeric(kapSubTypeReal, kapDimensions(dims), 0.0));
            out->set_string(text);
        }
        return out;
    }
    const kapExprValue v = compiled->evaluate(NoScope());
    if (v.is_error()) return kapParameterError::create(v.error_code(), utString(v.text()));
    if (v.is_bool()) return kapParameterNumeric::create_bool(v.boolean() ? 1 : 0);
    if (v.is_number()) {
        return kapParameterPtr(
            new kapParameterNumeric(kapSubTypeReal, kapDimensions(dims), v.number()));
    }
    if (v.is_text()) {
        auto* s = new kapParameterString();
        kapParameterPtr out(s);
        s->set_string(utString(v.text()));
        return out;
    }
    return kapParameterError::create(kapErrType, "no value");
}

}  // namespace

kapParameterPtr kapParameter::operate_binary(const utString& op, const kapParameter& rhs) const {
    const OpRow* row = find_op(kBinaryOps, op);
    const std::array operands{operand_of(*this), operand_of(rhs)};
    utString text;
    if (row != nullptr) text = operands[0].text + utString(row->text) + operands[1].text;
    return operate(*this, &rhs, row, op, text, operands);
}

kapParameterPtr kapParameter::operate_prefix(const utString& op) const {
    const OpRow* row = find_op(kPrefixOps, op);
    const std::array operands{operand_of(*this)};
    utString text;
    if (row != nullptr) text = utString(row->text) + operands[0].text;
    return operate(*this, nullptr, row, op, text, operands);
}

kapParameterPtr kapParameter::operate_postfix(const utString& op) const {
    // Hundredths: the language has no postfix operator, so "x%" is written "x/100".
    static constexpr OpRow kPercent{"%", "/100", OpClass::arithmetic};
    const OpRow* row = op == "%" ? &kPercent : nullptr;
    const std::array operands{operand_of(*this)};
    utString text;
    if (row != nullptr) text = operands[0].text + utString(row->text);
    return operate(*this, nullptr, row, op, text, operands);
}

// ---------------------------------------------------------------------------------------------
// Printing

namespace {

void print_into(const kapParameter& p, std::size_t depth, utString& out) {
    out.append(2 * depth, ' ');
    const kapParameterMap* parent = p.parent();
    if (const auto* root = kapParameterRoot::ut_dynamic_cast(&p)) {
        out += root->get_root_type() + " \"" + root->get_root_name() + '"';
    } else if (p.get_name().empty() || ut_is_kind_of<kapParameterList>(parent)) {
        out += '[' + std::to_string(p.index_in_parent()) + ']';
    } else {
        out += p.get_name();
    }
    if (!p.is_map()) {
        out += " = ";
        out += p.get_value_text();
        out += '\n';
        return;
    }
    const auto& map = static_cast<const kapParameterMap&>(p);
    if (map.size() == 0) {
        out += " {}\n";
        return;
    }
    out += " {\n";
    for (const kapParameterPtr& c : map.children()) {
        print_into(*c, depth + 1, out);
    }
    out.append(2 * depth, ' ');
    out += "}\n";
}

}  // namespace

utString kapParameter::print(int depth) const {
    utString out;
    print_into(*this, depth < 0 ? 0 : static_cast<std::size_t>(depth), out);
    return out;
}

utString kapParameter::get_xml_typename() const {
    switch (type()) {
        case kapParameterType::numeric:
            switch (subtype()) {
                case kapSubTypeReal:
                    return "real";
                case kapSubTypeInteger:
                    return "integer";
                case kapSubTypeFlag:
                    return "bool";
                case kapSubTypeAngle:
                    return "angle";
                default:
                    return "numeric";
            }
        case kapParameterType::root:
            return static_cast<const kapParameterRoot&>(*this).get_root_type();
        default:
            return kap_type_name(type());
    }
}
