// Fuzzes the expression compiler and evaluator: any input compiles to an object (ok or holding
// an error with a sane offset) and evaluates, against a toy scope that answers numbers, texts,
// parameters, errors and nothing, without crashing, hanging or breaking the invariants below.
// The same scope is asked once with and once without its one-step reads (read()), so that the
// quick postfix evaluation is held against the tree evaluation: they must give the same answers.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kapparameter/kapExpr.h"
#include "utils/utString.h"

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

// Names ignore letter case: so does the toy scope's choice of answer.
std::uint32_t text_hash(std::string_view s) {
    std::uint32_t h = 2166136261u;
    for (char ch : s) {
        h = (h ^ static_cast<unsigned char>(ut_lower(ch))) * 16777619u;
    }
    return h;
}

struct Entry {
    kapExprValue value;
    bool active = true;
    bool evaluates_input = false;  // its value is the input evaluated again: cycles
};

class ToyScope : public kapExprScope {
  public:
    ToyScope(const kapExprCompiled* input, bool quick) : input_(input), quick_(quick) {
        entries_[0].value = kapExprValue::from_number(0.5);
        entries_[1].value = kapExprValue::from_text("level");
        entries_[2].value = kapExprValue::from_bool(true);
        entries_[2].active = false;
        entries_[3].value = kapExprValue::from_text("");
        entries_[4].value = kapExprValue::from_number(0.0);
        entries_[5].value = kapExprValue::from_error(kapErrType, "broken");
        entries_[6].evaluates_input = true;
        entries_[7].value = kapExprValue::from_text("12.5");
    }

    // The one-step read: what value_of(resolve(path)) answers when that is a number, a boolean
    // or a text; nothing otherwise.
    bool read(const kapExprPath& path, kapExprScalar& out) const override {
        if (!quick_) return false;
        const kapExprValue v = resolve(path);
        if (!v.is_node()) {
            if (!v.is_number()) return false;
            out.is_text = false;
            out.number = v.number();
            return true;
        }
        const Entry* e = static_cast<const Entry*>(v.node());
        if (e->evaluates_input) return false;
        const kapExprValue& p = e->value;
        if (p.is_text()) {
            out.is_text = true;
            out.text = p.text();
            return true;
        }
        if (!p.is_number() && !p.is_bool()) return false;
        out.is_text = false;
        out.number = p.number();
        return true;
    }

    kapExprValue resolve(const kapExprPath& path) const override {
        std::uint32_t h = text_hash(path.entity.text);
        for (const kapExprName& n : path.components) {
            // Components are views into the compiled text: an index has no text.
            check(!n.is_index() || n.text.empty());
            h = h * 31u + text_hash(n.text) + static_cast<std::uint32_t>(n.index);
        }
        switch (h % 11u) {
            case 8:
                return {};  // unknown
            case 9:
                return kapExprValue::from_number(static_cast<double>(h % 100u));
            case 10:
                return kapExprValue::from_error(kapErrNoItem, "no");
            default:
                return kapExprValue::from_node(&entries_[h % 8u], this);
        }
    }

    kapExprValue call(const kapExprPath& fn, std::span<const kapExprValue> args) const override {
        std::uint32_t h = static_cast<std::uint32_t>(args.size());
        for (const kapExprName& n : fn.components)
            h = h * 31u + text_hash(n.text);
        switch (h % 5u) {
            case 0:
                return {};
            case 1:
                return kapExprValue::from_owned_text("computed");
            case 2:
                return args.empty() ? kapExprValue::from_bool(false) : args[0];
            case 3:
                return kapExprValue::from_node(&entries_[h % 8u], this);
            default:
                return kapExprValue::from_number(static_cast<double>(args.size()));
        }
    }

    kapExprValue value_of(const void* node) const override {
        const Entry* e = static_cast<const Entry*>(node);
        if (!e->evaluates_input) return e->value;
        kapExprGuard guard(e);
        if (!guard.ok()) return guard.error();
        return kapExpr::to_plain(input_->evaluate(*this));
    }

    bool is_active(const void* node) const override {
        return static_cast<const Entry*>(node)->active;
    }

  private:
    Entry entries_[8];
    const kapExprCompiled* input_;
    bool quick_;
};

// Two answers of the same evaluation: the same kind, the same number or condition, the same
// error code.
void check_same(const kapExprValue& a, const kapExprValue& b) {
    check(a.type() == b.type());
    if (a.is_number() || a.is_bool()) {
        check(a.number() == b.number() || (a.number() != a.number() && b.number() != b.number()));
    }
    if (a.is_error()) check(a.error_code() == b.error_code());
}

void check_value(const kapExprValue& v, std::size_t size) {
    if (v.is_error()) {
        check(v.error_code() != kapErrNone);
        check(v.error_offset() >= -1 && v.error_offset() <= static_cast<int>(size));
    }
    if (v.is_number()) {
        double back = 0;
        const std::string t = kapExpr::format_number(v.number());
        check(kapExpr::parse_number(t, back) && (back == v.number() || v.number() != v.number()));
    }
}

bool within(std::string_view part, const std::string& whole) {
    return part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto c = kapExpr::compile_uncached(text);
    check(c != nullptr && c->text() == text);
    if (!c->ok()) {
        check(c->error().code != kapErrNone);
        check(c->error().offset >= 0 && c->error().offset <= static_cast<int>(size));
        check(c->names().empty() && c->calls().empty());
    } else {
        check(c->depth() >= 1 && c->depth() <= kapExpr::max_depth);
        for (const std::span<const kapExprPath> list : {c->names(), c->calls()}) {
            for (const kapExprPath& p : list) {
                check(within(p.text, c->text()) && within(p.relative, c->text()));
                check(p.anchor == kapExprAnchor::global || p.entity.text.empty());
            }
        }
    }
    const ToyScope scope(c.get(), true);
    const ToyScope tree(c.get(), false);
    check_value(c->evaluate(scope), size);
    const kapExprValue number = c->evaluate_number(scope);
    const kapExprValue truth = c->evaluate_bool(scope);
    check_value(number, size);
    check_value(truth, size);
    check_same(number, c->evaluate_number(tree));
    check_same(truth, c->evaluate_bool(tree));
    const int condition = c->evaluate_condition(scope);
    check(condition == (truth.is_error() ? -1 : truth.boolean() ? 1 : 0));
    double x = 0.0;
    bool b = false;
    const int quick = c->evaluate_quick(scope, false, x, b);
    check(quick != 1 || (number.is_number() && (x == number.number() || x != x)));
    check(quick != 0 || number.is_error());

    // The cache answers the same object for the same text; keep it from growing without end.
    if (kapExpr::cache_size() > 4096) kapExpr::clear_cache();
    check(kapExpr::compile(text).get() == kapExpr::compile(text).get());
    return 0;
}
