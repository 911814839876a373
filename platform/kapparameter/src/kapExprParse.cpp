// Lexer, parser and cache of the expression language (grammar in kapExpr.h).
//
// The parser is a precedence-climbing one over a hand-written lexer. It writes a flat tree into
// the compiled object: nodes refer to their children by index, name paths are split into
// components once, literal texts are views into the compiled object's copy of the source, and
// subtrees made only of constants are folded into one constant.

#include <algorithm>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "kapExprProgram.h"
#include "utils/utString.h"

namespace {

bool is_name_start(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool is_name_char(char c) noexcept {
    return is_name_start(c) || (c >= '0' && c <= '9');
}
bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}
bool is_blank(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Built-in functions: exact name, smallest and largest argument count (-1: no limit).
struct Builtin {
    std::string_view name;
    int min_args;
    int max_args;
};

// clang-format off
// The order is the function number the evaluator switches on (kapExprFn in kapExprEval.cpp).
constexpr Builtin builtins[] = {
    {"min",    2, -1}, {"max",   2, -1}, {"select", 3, 3}, {"active", 1, 1},
    {"abs",    1,  1}, {"sqrt",  1,  1}, {"sin",    1, 1}, {"cos",    1, 1},
    {"tan",    1,  1}, {"asin",  1,  1}, {"acos",   1, 1}, {"atan",   1, 1},
    {"atan2",  2,  2}, {"rad",   1,  1}, {"deg",    1, 1}, {"floor",  1, 1},
    {"ceil",   1,  1}, {"round", 1,  1}, {"pow",    2, 2}, {"exp",    1, 1},
    {"log",    1,  1},
};
// clang-format on

int find_builtin(std::string_view name) noexcept {
    for (std::size_t i = 0; i < std::size(builtins); ++i) {
        if (builtins[i].name == name) return static_cast<int>(i);
    }
    return -1;
}

// clang-format off
enum class Tok : std::uint8_t {
    end, number, text, path, lparen, rparen, sep,
    plus, minus, star, slash, bang,
    eq, ne, lt, gt, le, ge, land, lor, kw_true, kw_false,
    bad,
};
// clang-format on

// Binding power of a binary operator; 0 for anything else.
int binding(Tok t) noexcept {
    switch (t) {
        case Tok::lor:
            return 1;
        case Tok::land:
            return 2;
        case Tok::eq:
        case Tok::ne:
        case Tok::lt:
        case Tok::gt:
        case Tok::le:
        case Tok::ge:
            return 3;
        case Tok::plus:
        case Tok::minus:
            return 4;
        case Tok::star:
        case Tok::slash:
            return 5;
        default:
            return 0;
    }
}

}  // namespace

// Builds a kapExprCompiled from its text. One instance per compilation.
class kapExprParser {
  public:
    kapExprParser(kapExprCompiled& out, std::size_t begin, std::size_t end)
        : c_(out), src_(out.text_), pos_(begin), end_(end) {}

    void run() {
        next();
        if (tok_ == Tok::end) {
            fail(kapErrSyntax, tok_off_, "empty expression");
        } else {
            const std::uint32_t root = parse_expr(1);
            if (!failed() && tok_ != Tok::end) fail_unexpected("an operator or the end");
            if (!failed()) {
                c_.root_ = root;
                c_.depth_ = depth_of_[root];
            }
        }
        finish();
        if (!failed()) kap_expr_emit_program(c_);
    }

  private:
    struct PendingPath {
        kapExprAnchor anchor;
        kapExprName entity;
        std::uint32_t first, count;  // into comps_
        std::string_view text, relative;
    };

    bool failed() const noexcept { return c_.error_.code != kapErrNone; }

    void fail(int code, std::size_t offset, std::string message) {
        if (failed()) return;
        c_.error_.code = code;
        c_.error_.offset = static_cast<int>(offset);
        c_.error_.message = std::move(message);
        tok_ = Tok::end;  // stops every loop
        pos_ = end_;
    }

    std::string_view tok_text() const { return std::string_view(src_).substr(tok_off_, tok_len_); }

    void fail_unexpected(const char* wanted) {
        if (tok_ == Tok::end) {
            fail(kapErrSyntax, tok_off_,
                 std::string("expected ") + wanted + " but the expression ends");
        } else {
            fail(kapErrSyntax, tok_off_,
                 std::string("expected ") + wanted + " at '" + std::string(tok_text()) + "'");
        }
    }

    // ---- lexer ----

    void next() {
        if (failed()) return;
        while (pos_ < end_ && is_blank(src_[pos_])) {
            ++pos_;
        }
        tok_off_ = pos_;
        tok_len_ = 1;
        if (pos_ >= end_) {
            tok_ = Tok::end;
            tok_len_ = 0;
            return;
        }
        const char ch = src_[pos_];
        const char nx = pos_ + 1 < end_ ? src_[pos_ + 1] : '\0';
        auto two = [&](Tok t) {
            tok_ = t;
            tok_len_ = 2;
            pos_ += 2;
        };
        auto one = [&](Tok t) {
            tok_ = t;
            pos_ += 1;
        };
        switch (ch) {
            case '(':
                return one(Tok::lparen);
            case ')':
                return one(Tok::rparen);
            case ';':
            case ',':
                return one(Tok::sep);
            case '+':
                return one(Tok::plus);
            case '-':
                return one(Tok::minus);
            case '*':
                return one(Tok::star);
            case '/':
                return one(Tok::slash);
            case '!':
                return nx == '=' ? two(Tok::ne) : one(Tok::bang);
            case '<':
                return nx == '=' ? two(Tok::le) : one(Tok::lt);
            case '>':
                return nx == '=' ? two(Tok::ge) : one(Tok::gt);
            case '=':
                if (nx == '=') return two(Tok::eq);
                return fail(kapErrSyntax, pos_, "'=' is not an operator; compare with '=='");
            case '&':
                if (nx == '&') return two(Tok::land);
                return fail(kapErrSyntax, pos_, "'&' is not an operator; use '&&' or AND");
            case '|':
                if (nx == '|') return two(Tok::lor);
                return fail(kapErrSyntax, pos_, "'|' is not an operator; use '||' or OR");
            case '\'':
            case '"':
                return lex_text(ch);
            default:
                break;
        }
        if (is_digit(ch) || (ch == '.' && is_digit(nx))) return lex_number();
        if (is_name_start(ch) || ch == '{') return lex_path();
        fail(kapErrSyntax, pos_, std::string("unexpected character '") + std::string(1, ch) + "'");
    }

    void lex_text(char quote) {
        const std::size_t start = pos_ + 1;
        std::size_t p = start;
        while (p < end_ && src_[p] != quote) {
            ++p;
        }
        if (p >= end_) return fail(kapErrSyntax, pos_, "unterminated text");
        tok_ = Tok::text;
        text_ = std::string_view(src_).substr(start, p - start);
        tok_len_ = p + 1 - pos_;
        pos_ = p + 1;
    }

    void lex_number() {
        std::size_t p = pos_;
        while (p < end_ && is_digit(src_[p])) {
            ++p;
        }
        if (p < end_ && src_[p] == '.') {
            ++p;
            while (p < end_ && is_digit(src_[p])) {
                ++p;
            }
        }
        if (p < end_ && (src_[p] == 'e' || src_[p] == 'E')) {
            std::size_t q = p + 1;
            if (q < end_ && (src_[q] == '+' || src_[q] == '-')) ++q;
            if (q < end_ && is_digit(src_[q])) {
                while (q < end_ && is_digit(src_[q])) {
                    ++q;
                }
                p = q;
            }
        }
        double v = 0.0;
        if (!kapExpr::parse_number(std::string_view(src_).substr(pos_, p - pos_), v)) {
            // A magnitude too large (or too small) for a double.
            return fail(kapErrSyntax, pos_, "number out of range");
        }
        tok_ = Tok::number;
        num_ = v;
        tok_len_ = p - pos_;
        pos_ = p;
    }

    std::size_t lex_name(std::size_t p) const {
        while (p < end_ && is_name_char(src_[p])) {
            ++p;
        }
        return p;
    }

    void push_name(std::size_t from, std::size_t to) {
        kapExprName n;
        n.text = std::string_view(src_).substr(from, to - from);
        scratch_.push_back(n);
    }

    // A path: [ "{" name "}" ] then names joined by '.', with "[digits]" indices.
    void lex_path() {
        scratch_.clear();
        const std::size_t start = pos_;
        std::size_t p = pos_;
        anchor_ = kapExprAnchor::owner;
        entity_ = {};
        bool need_name = true;
        if (src_[p] == '{') {
            const std::size_t q = lex_name(p + 1);
            if (q == p + 1 || !is_name_start(src_[p + 1])) {
                return fail(kapErrSyntax, p + 1, "expected an entity name after '{'");
            }
            if (q >= end_ || src_[q] != '}') {
                return fail(kapErrSyntax, q, "expected '}' after the entity name");
            }
            anchor_ = kapExprAnchor::global;
            entity_.text = std::string_view(src_).substr(p + 1, q - p - 1);
            p = q + 1;
            if (p < end_ && src_[p] == '.') {
                ++p;
            } else {
                need_name = false;  // the entity itself
            }
        }
        rel_start_ = p;
        if (need_name) {
            if (p >= end_ || !is_name_start(src_[p])) {
                return fail(kapErrSyntax, p, "expected a name");
            }
            const std::size_t q = lex_name(p);
            push_name(p, q);
            p = q;
            for (;;) {
                if (p < end_ && src_[p] == '.') {
                    if (p + 1 >= end_ || !is_name_start(src_[p + 1])) {
                        return fail(kapErrSyntax, p + 1, "expected a name after '.'");
                    }
                    const std::size_t r = lex_name(p + 1);
                    push_name(p + 1, r);
                    p = r;
                } else if (p < end_ && src_[p] == '[') {
                    std::size_t r = p + 1;
                    std::int64_t index = 0;
                    while (r < end_ && is_digit(src_[r]) && index <= 0x7fffffff) {
                        index = index * 10 + (src_[r++] - '0');
                    }
                    if (r == p + 1 || index > 0x7fffffff || r >= end_ || src_[r] != ']') {
                        return fail(kapErrSyntax, p, "expected an index: '[' digits ']'");
                    }
                    kapExprName n;
                    n.index = static_cast<std::int32_t>(index);
                    n.text = {};
                    scratch_.push_back(n);
                    p = r + 1;
                } else {
                    break;
                }
            }
        }
        tok_len_ = p - start;
        pos_ = p;
        tok_ = Tok::path;
        // Words of the language.
        if (anchor_ == kapExprAnchor::owner && scratch_.size() == 1) {
            const std::string_view w = scratch_[0].text;
            if (ut_iequal(w, "and")) {
                tok_ = Tok::land;
            } else if (ut_iequal(w, "or")) {
                tok_ = Tok::lor;
            } else if (ut_iequal(w, "true")) {
                tok_ = Tok::kw_true;
            } else if (ut_iequal(w, "false")) {
                tok_ = Tok::kw_false;
            }
        }
        // The root alias.
        if (tok_ == Tok::path && anchor_ == kapExprAnchor::owner && !scratch_.empty() &&
            ut_iequal(scratch_[0].text, "rootpar")) {
            anchor_ = kapExprAnchor::root;
            scratch_.erase(scratch_.begin());
            // The relative text starts after "rootpar." ("rootpar" before an index).
            if (scratch_.empty()) {
                rel_start_ = p;
            } else {
                rel_start_ += src_[rel_start_ + 7] == '.' ? 8 : 7;
            }
        }
    }

    // ---- tree ----

    std::uint32_t add_node(kapExprOp op, std::size_t offset, std::uint32_t a = 0,
                           std::uint32_t b = 0, std::uint8_t n = 0, int depth = 1) {
        kapExprNode nd;
        nd.op = op;
        nd.offset = static_cast<std::uint32_t>(offset);
        nd.a = a;
        nd.b = b;
        nd.n = n;
        c_.nodes_.push_back(nd);
        depth_of_.push_back(depth);
        if (depth > kapExpr::max_depth) {
            fail(kapErrTooDeep, offset, "expression nested too deeply");
        }
        return static_cast<std::uint32_t>(c_.nodes_.size() - 1);
    }

    std::uint32_t add_constant(kapExprValue v, std::size_t offset) {
        c_.consts_.push_back(std::move(v));
        return add_node(kapExprOp::constant, offset,
                        static_cast<std::uint32_t>(c_.consts_.size() - 1));
    }

    bool is_const(std::uint32_t i) const { return c_.nodes_[i].op == kapExprOp::constant; }

    // Replaces node i, whose operands are all constants, by its value (kept as it is when the
    // value is an error, so that the error is met, with its offset, at evaluation).
    void fold(std::uint32_t i);

    std::uint32_t binary(Tok t, std::size_t offset, std::uint32_t l, std::uint32_t r) {
        using Op = kapExprOp;
        Op op = Op::add;
        switch (t) {
            case Tok::star:
                op = Op::mul;
                break;
            case Tok::slash:
                op = Op::div;
                break;
            case Tok::plus:
                op = Op::add;
                break;
            case Tok::minus:
                op = Op::sub;
                break;
            case Tok::eq:
                op = Op::eq;
                break;
            case Tok::ne:
                op = Op::ne;
                break;
            case Tok::lt:
                op = Op::lt;
                break;
            case Tok::gt:
                op = Op::gt;
                break;
            case Tok::le:
                op = Op::le;
                break;
            case Tok::ge:
                op = Op::ge;
                break;
            case Tok::land:
                op = Op::land;
                break;
            case Tok::lor:
                op = Op::lor;
                break;
            default:
                break;
        }
        const int d = 1 + std::max(depth_of_[l], depth_of_[r]);
        const std::uint32_t i = add_node(op, offset, l, r, 0, d);
        if (!failed() && is_const(l) && is_const(r)) fold(i);
        return i;
    }

    // Index of the path in `list`, added when new; paths that differ only in letter case are one.
    std::uint32_t intern(std::vector<PendingPath>& list) {
        const std::string_view rel = std::string_view(src_).substr(rel_start_, pos_ - rel_start_);
        for (std::size_t i = 0; i < list.size(); ++i) {
            const PendingPath& pp = list[i];
            if (pp.anchor == anchor_ && ut_iequal(pp.entity.text, entity_.text) &&
                ut_iequal(pp.relative, rel)) {
                return static_cast<std::uint32_t>(i);
            }
        }
        PendingPath pp;
        pp.anchor = anchor_;
        pp.entity = entity_;
        pp.first = static_cast<std::uint32_t>(c_.comps_.size());
        pp.count = static_cast<std::uint32_t>(scratch_.size());
        pp.text = tok_text();
        pp.relative = rel;
        c_.comps_.insert(c_.comps_.end(), scratch_.begin(), scratch_.end());
        list.push_back(pp);
        return static_cast<std::uint32_t>(list.size() - 1);
    }

    // ---- grammar ----

    bool enter(std::size_t offset) {
        if (++nesting_ > kapExpr::max_depth) {
            fail(kapErrTooDeep, offset, "expression nested too deeply");
            return false;
        }
        return true;
    }

    std::uint32_t parse_expr(int min_binding) {
        std::uint32_t lhs = parse_unary();
        for (;;) {
            const int b = binding(tok_);
            if (failed() || b == 0 || b < min_binding) return lhs;
            const Tok op = tok_;
            const std::size_t off = tok_off_;
            next();
            const std::uint32_t rhs = parse_expr(b + 1);
            if (failed()) return lhs;
            lhs = binary(op, off, lhs, rhs);
        }
    }

    std::uint32_t parse_unary() {
        using Op = kapExprOp;
        if (tok_ == Tok::minus || tok_ == Tok::plus || tok_ == Tok::bang) {
            const Op op = tok_ == Tok::minus ? Op::neg : tok_ == Tok::plus ? Op::pos : Op::lnot;
            const std::size_t off = tok_off_;
            if (!enter(off)) return 0;
            next();
            const std::uint32_t x = parse_unary();
            --nesting_;
            if (failed()) return 0;
            const std::uint32_t i = add_node(op, off, x, 0, 0, depth_of_[x] + 1);
            if (!failed() && is_const(x)) fold(i);
            return i;
        }
        return parse_primary();
    }

    std::uint32_t parse_primary() {
        const std::size_t off = tok_off_;
        switch (tok_) {
            case Tok::number: {
                const double v = num_;
                next();
                return add_constant(kapExprValue::from_number(v), off);
            }
            case Tok::text: {
                const std::string_view t = text_;
                next();
                return add_constant(kapExprValue::from_text(t), off);
            }
            case Tok::kw_true:
            case Tok::kw_false: {
                const bool v = tok_ == Tok::kw_true;
                next();
                return add_constant(kapExprValue::from_bool(v), off);
            }
            case Tok::lparen: {
                if (!enter(off)) return 0;
                next();
                const std::uint32_t x = parse_expr(1);
                --nesting_;
                if (failed()) return 0;
                if (tok_ != Tok::rparen) {
                    fail_unexpected("')'");
                    return 0;
                }
                next();
                return x;
            }
            case Tok::path:
                return parse_path();
            case Tok::bad:
            case Tok::end:
            default:
                fail_unexpected("a value");
                return 0;
        }
    }

    std::uint32_t parse_path() {
        using Op = kapExprOp;
        const std::size_t off = tok_off_;
        const kapExprAnchor anchor = anchor_;
        // Is it a call?
        std::size_t p = pos_;
        while (p < end_ && is_blank(src_[p])) {
            ++p;
        }
        if (p >= end_ || src_[p] != '(') {
            const std::uint32_t k = intern(names_);
            next();
            return add_node(Op::name, off, k);
        }
        // A built-in: "name" or "stdlib.name", exact letter case.
        int fn = -1;
        if (anchor == kapExprAnchor::owner) {
            if (scratch_.size() == 1 && !scratch_[0].is_index()) {
                fn = find_builtin(scratch_[0].text);
            } else if (scratch_.size() == 2 && scratch_[0].text == "stdlib" &&
                       !scratch_[1].is_index()) {
                fn = find_builtin(scratch_[1].text);
            }
        }
        std::uint32_t callee = 0;
        std::string_view fn_text = tok_text();
        if (fn < 0) callee = intern(calls_);
        next();  // the path
        if (!enter(off)) return 0;
        next();  // '('
        std::vector<std::uint32_t> args;
        int depth = 1;
        if (tok_ != Tok::rparen) {
            for (;;) {
                const std::uint32_t a = parse_expr(1);
                if (failed()) return 0;
                args.push_back(a);
                depth = std::max(depth, depth_of_[a] + 1);
                if (tok_ == Tok::sep) {
                    next();
                    continue;
                }
                if (tok_ == Tok::rparen) break;
                fail_unexpected("';' or ')'");
                return 0;
            }
        }
        --nesting_;
        next();  // ')'
        if (args.size() > 255) {
            fail(kapErrBadCall, off, "too many arguments");
            return 0;
        }
        const auto n = static_cast<std::uint8_t>(args.size());
        const auto first = static_cast<std::uint32_t>(c_.args_.size());
        c_.args_.insert(c_.args_.end(), args.begin(), args.end());
        if (fn < 0) return add_node(Op::call, off, callee, first, n, depth);

        const Builtin& b = builtins[fn];
        if (static_cast<int>(n) < b.min_args || (b.max_args >= 0 && n > b.max_args)) {
            std::string msg = std::string(fn_text) + "() takes ";
            if (b.max_args < 0) {
                msg += std::to_string(b.min_args) + " or more arguments";
            } else {
                msg += std::to_string(b.min_args) + (b.min_args == 1 ? " argument" : " arguments");
            }
            fail(kapErrBadCall, off, msg);
            return 0;
        }
        if (static_cast<std::uint32_t>(fn) == fn_active && c_.nodes_[args[0]].op != Op::name) {
            fail(kapErrBadCall, c_.nodes_[args[0]].offset,
                 "active() takes the name of a parameter");
            return 0;
        }
        if (static_cast<std::uint32_t>(fn) == fn_active) c_.uses_active_ = true;
        const std::uint32_t i =
            add_node(Op::builtin, off, static_cast<std::uint32_t>(fn), first, n, depth);
        if (failed() || static_cast<std::uint32_t>(fn) == fn_active) return i;
        bool all_const = true;
        for (std::uint32_t a : args) {
            all_const = all_const && is_const(a);
        }
        if (all_const) fold(i);
        // select() on a constant condition is its chosen branch.
        if (static_cast<std::uint32_t>(fn) == fn_select && !is_const(i) && is_const(args[0])) {
            const kapExprValue c = kapExpr::to_bool(c_.consts_[c_.nodes_[args[0]].a]);
            if (!c.is_error()) return c.boolean() ? args[1] : args[2];
        }
        return i;
    }

    void finish() {
        if (!failed()) {
            // Before the spans into the component store are made: shrinking moves the store.
            c_.nodes_.shrink_to_fit();
            c_.consts_.shrink_to_fit();
            c_.comps_.shrink_to_fit();
        }
        // Spans into the component store, now that it has stopped growing.
        auto out = [&](const std::vector<PendingPath>& in, std::vector<kapExprPath>& to) {
            to.reserve(in.size());
            for (const PendingPath& pp : in) {
                kapExprPath path;
                path.anchor = pp.anchor;
                path.entity = pp.entity;
                path.components =
                    std::span<const kapExprName>(c_.comps_.data() + pp.first, pp.count);
                path.text = pp.text;
                path.relative = pp.relative;
                to.push_back(path);
            }
        };
        if (failed()) {
            c_.nodes_.clear();
            c_.args_.clear();
            c_.consts_.clear();
            c_.comps_.clear();
            c_.root_ = 0;
            c_.depth_ = 0;
            return;
        }
        out(names_, c_.names_);
        out(calls_, c_.calls_);
    }

    kapExprCompiled& c_;
    const std::string& src_;
    std::size_t pos_;
    std::size_t end_;
    int nesting_ = 0;
    std::vector<int> depth_of_;
    std::vector<PendingPath> names_, calls_;

    // Current token.
    Tok tok_ = Tok::end;
    std::size_t tok_off_ = 0, tok_len_ = 0;
    double num_ = 0.0;
    std::string_view text_;
    kapExprAnchor anchor_ = kapExprAnchor::owner;
    kapExprName entity_;
    std::size_t rel_start_ = 0;
    std::vector<kapExprName> scratch_;
};

// Folding runs the evaluator on the node with a scope that is never asked: constants need none.
namespace {
class kapNoScope final : public kapExprScope {
  public:
    kapExprValue resolve(const kapExprPath&) const override { return {}; }
    kapExprValue call(const kapExprPath&, std::span<const kapExprValue>) const override {
        return {};
    }
    kapExprValue value_of(const void*) const override { return {}; }
    bool is_active(const void*) const override { return false; }
};
}  // namespace

void kapExprParser::fold(std::uint32_t i) {
    static const kapNoScope none;
    kapExprValue v = kap_expr_eval_node(c_, i, none);
    if (v.is_error() || v.is_node() || v.is_none()) return;
    c_.consts_.push_back(std::move(v));
    kapExprNode& nd = c_.nodes_[i];
    nd.op = kapExprOp::constant;
    nd.a = static_cast<std::uint32_t>(c_.consts_.size() - 1);
    nd.b = 0;
    nd.n = 0;
    depth_of_[i] = 1;
}

// ---------------------------------------------------------------------------------------------

void kap_expr_parse(kapExprCompiled& out, std::size_t begin, std::size_t end) {
    kapExprParser(out, begin, end).run();
}
