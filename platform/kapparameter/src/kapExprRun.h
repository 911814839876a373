#pragma once
// The loop of the postfix program, written once for every way its names are read: through a
// kapExprScope (kapExprFast.cpp), or through the nodes a tree bound them to (the evaluator).
//
// A reader answers name(i, out): the plain value of names_[i] in one step, false to give up;
// and active(i): 1 or 0, or kap_run_error / kap_run_general.

#include <cmath>
#include <cstring>

#include "kapExprProgram.h"

inline constexpr int kap_run_error = -1;
inline constexpr int kap_run_general = -2;

namespace kapexprrun {

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
    return kap_expr_read_number(std::string_view(s.data, s.size), x);
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
    if (!kap_expr_read_number(std::string_view(s.data, s.size), x)) return false;
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

// x and y through one of the four arithmetic steps; false for a division by zero or a result
// that is not finite (errors of the full evaluation as well).
[[gnu::always_inline]] inline bool arithmetic(kapExprStepOp op, double x, double y,
                                              double& r) noexcept {
    switch (op) {
        case kapExprStepOp::mul:
            r = x * y;
            break;
        case kapExprStepOp::add:
            r = x + y;
            break;
        case kapExprStepOp::sub:
            r = x - y;
            break;
        default:
            if (y == 0.0) return false;
            r = x / y;
            break;
    }
    return std::isfinite(r);
}

inline void set_number(FastSlot& s, double x) noexcept {
    s.number = x;
    s.kind = kNumber;
}
inline void set_bool(FastSlot& s, bool b) noexcept {
    s.number = b ? 1.0 : 0.0;
    s.kind = kBool;
}

}  // namespace kapexprrun

struct kapExprRunner {
    static bool has_program(const kapExprCompiled& c) noexcept { return !c.fast_.empty(); }

    // Whether the program works on numbers alone: number constants, names, arithmetic, min, max
    // and the number functions; no texts, comparisons, logic, jumps or activity. Run on names
    // that all hold plain numbers, run_numbers answers as run does.
    static bool numbers_only(const kapExprCompiled& e) noexcept {
        for (const kapExprStep& f : e.fast_) {
            switch (f.op) {
                case kapExprStepOp::constant:
                    if (e.consts_[f.a].is_text()) return false;
                    break;
                case kapExprStepOp::number:
                case kapExprStepOp::name:
                case kapExprStepOp::neg:
                case kapExprStepOp::pos:
                case kapExprStepOp::mul:
                case kapExprStepOp::div:
                case kapExprStepOp::add:
                case kapExprStepOp::sub:
                case kapExprStepOp::min:
                case kapExprStepOp::max:
                case kapExprStepOp::math:
                    break;
                default:
                    return false;
            }
        }
        return !e.fast_.empty();
    }

    // run for a program that numbers_only accepts, on a stack of plain numbers; the reader
    // answers number(i, out): the number names_[i] holds, false to give up.
    template <class Reader>
    [[gnu::always_inline]] static inline int run_numbers(const kapExprCompiled& e,
                                                         const Reader& reader, bool as_bool,
                                                         double& number, bool& truth) {
        double st[kap_expr_fast_stack + 1];
        double* top = st;
        const kapExprStep* const end = e.fast_.data() + e.fast_.size();
        for (const kapExprStep* f = e.fast_.data(); f < end; ++f) {
            switch (f->op) {
                case kapExprStepOp::constant:
                    *++top = e.consts_[f->a].number();
                    break;
                case kapExprStepOp::number: {
                    const std::uint64_t bits = (static_cast<std::uint64_t>(f->b) << 32) | f->a;
                    std::memcpy(++top, &bits, sizeof bits);
                    break;
                }
                case kapExprStepOp::name:
                    if (!reader.number(f->a, *++top)) return kap_fast_general;
                    break;
                case kapExprStepOp::neg:
                    *top = -*top;
                    break;
                case kapExprStepOp::pos:
                    break;
                case kapExprStepOp::mul:
                case kapExprStepOp::div:
                case kapExprStepOp::add:
                case kapExprStepOp::sub: {
                    const double y = *top--;
                    const double x = *top;
                    double r;
                    if (!kapexprrun::arithmetic(f->op, x, y, r)) return kap_fast_error;
                    *top = r;
                    break;
                }
                case kapExprStepOp::min:
                case kapExprStepOp::max: {
                    double* first = top - (f->n - 1);
                    double best = first[0];
                    for (int k = 1; k < f->n; ++k) {
                        const double x = first[k];
                        if (f->op == kapExprStepOp::min ? x < best : x > best) best = x;
                    }
                    top = first;
                    *top = best;
                    break;
                }
                case kapExprStepOp::math: {
                    double* first = top - (f->n - 1);
                    double r;
                    const char* fault = nullptr;
                    if (!kap_expr_math(f->a, first[0], f->n > 1 ? first[1] : 0.0, r, fault)) {
                        return kap_fast_error;
                    }
                    top = first;
                    *top = r;
                    break;
                }
                default:
                    return kap_fast_general;
            }
        }
        if (top != st + 1) return kap_fast_general;
        if (as_bool) {
            truth = st[1] != 0.0;
        } else {
            number = st[1];
        }
        return kap_fast_done;
    }

    // The postfix program. Every step is one the tree evaluation takes as well, in the same order,
    // so giving up half way and evaluating the tree gives the same answer; the program only saves
    // the values, the recursion and the messages.
    template <class Reader>
    [[gnu::always_inline]] static inline int run(const kapExprCompiled& e, const Reader& reader,
                                                 bool as_bool, double& number, bool& truth) {
        using namespace kapexprrun;  // NOLINT(google-build-using-namespace)
        // The slot on top is `top`; slot 0 lies below the first value and is never read, so that an
        // empty stack still points into the array.
        FastSlot st[kap_expr_fast_stack + 1];
        FastSlot* top = st;
        const kapExprStep* code = e.fast_.data();
        const kapExprStep* const end = code + e.fast_.size();
        for (const kapExprStep* f = code; f < end; ++f) {
            switch (f->op) {
                case kapExprStepOp::constant: {
                    const kapExprValue& v = e.consts_[f->a];
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
                case kapExprStepOp::number: {
                    const std::uint64_t bits = (static_cast<std::uint64_t>(f->b) << 32) | f->a;
                    ++top;
                    std::memcpy(&top->number, &bits, sizeof bits);
                    top->kind = f->n != 0 ? kBool : kNumber;
                    break;
                }
                case kapExprStepOp::name: {
                    kapExprScalar v;
                    if (!reader.name(f->a, v)) return kap_fast_general;
                    ++top;
                    if (v.is_text) {
                        if (v.text.size() > 0xffffffffu) return kap_fast_general;
                        top->kind = kText;
                        top->data = v.text.data();
                        top->size = static_cast<std::uint32_t>(v.text.size());
                    } else {
                        set_number(*top, v.number);
                    }
                    break;
                }
                case kapExprStepOp::compare: {
                    kapExprScalar v;
                    if (!reader.name(f->a, v)) return kap_fast_general;
                    FastSlot n, k;
                    if (v.is_text) {
                        if (v.text.size() > 0xffffffffu) return kap_fast_general;
                        n.kind = kText;
                        n.data = v.text.data();
                        n.size = static_cast<std::uint32_t>(v.text.size());
                    } else {
                        set_number(n, v.number);
                    }
                    const kapExprValue& c = e.consts_[f->b];
                    if (c.is_text()) {
                        k.kind = kText;
                        k.data = c.text().data();
                        k.size = static_cast<std::uint32_t>(c.text().size());
                    } else {
                        set_number(k, c.number());
                    }
                    const int how = f->n & 7;
                    const bool swapped = (f->n & kap_expr_fast_swapped) != 0;
                    int o;
                    if (!slot_order(swapped ? k : n, swapped ? n : k, how < 2, o))
                        return kap_fast_error;
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
                case kapExprStepOp::neg:
                case kapExprStepOp::pos: {
                    double x;
                    if (!slot_number(*top, x)) return kap_fast_error;
                    set_number(*top, f->op == kapExprStepOp::neg ? -x : x);
                    break;
                }
                case kapExprStepOp::lnot:
                case kapExprStepOp::to_bool: {
                    bool b;
                    if (!slot_truth(*top, b)) return kap_fast_error;
                    set_bool(*top, f->op == kapExprStepOp::lnot ? !b : b);
                    break;
                }
                case kapExprStepOp::mul:
                case kapExprStepOp::div:
                case kapExprStepOp::add:
                case kapExprStepOp::sub: {
                    double x, y;
                    if (!slot_number(top[-1], x) || !slot_number(top[0], y)) return kap_fast_error;
                    double r;
                    if (!arithmetic(f->op, x, y, r)) return kap_fast_error;
                    --top;
                    set_number(*top, r);
                    break;
                }
                case kapExprStepOp::eq:
                case kapExprStepOp::ne: {
                    int c;
                    if (!slot_order(top[-1], top[0], true, c)) return kap_fast_error;
                    --top;
                    set_bool(*top, (c == 0) == (f->op == kapExprStepOp::eq));
                    break;
                }
                case kapExprStepOp::lt:
                case kapExprStepOp::gt:
                case kapExprStepOp::le:
                case kapExprStepOp::ge: {
                    int c;
                    if (!slot_order(top[-1], top[0], false, c)) return kap_fast_error;
                    bool b;
                    switch (f->op) {
                        case kapExprStepOp::lt:
                            b = c < 0;
                            break;
                        case kapExprStepOp::gt:
                            b = c > 0;
                            break;
                        case kapExprStepOp::le:
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
                case kapExprStepOp::and_jump:
                case kapExprStepOp::or_jump: {
                    bool b;
                    if (!slot_truth(*top, b)) return kap_fast_error;
                    if (b == (f->op == kapExprStepOp::or_jump)) {
                        set_bool(*top, b);
                        f = code + f->a - 1;  // the loop steps on to f->a
                    } else {
                        --top;
                    }
                    break;
                }
                case kapExprStepOp::select_jump: {
                    bool b;
                    if (!slot_truth(*top, b)) return kap_fast_error;
                    --top;
                    if (!b) f = code + f->a - 1;
                    break;
                }
                case kapExprStepOp::jump:
                    f = code + f->a - 1;
                    break;
                case kapExprStepOp::min:
                case kapExprStepOp::max: {
                    FastSlot* first = top - (f->n - 1);
                    if (f->n == 2) {
                        double x, y;
                        if (!slot_number(first[0], x) || !slot_number(first[1], y))
                            return kap_fast_error;
                        top = first;
                        set_number(*top,
                                   f->op == kapExprStepOp::min ? (y < x ? y : x) : (y > x ? y : x));
                        break;
                    }
                    double best = 0.0;
                    for (int k = 0; k < f->n; ++k) {
                        double x;
                        if (!slot_number(first[k], x)) return kap_fast_error;
                        if (k == 0 || (f->op == kapExprStepOp::min ? x < best : x > best)) best = x;
                    }
                    top = first;
                    set_number(*top, best);
                    break;
                }
                case kapExprStepOp::math: {
                    FastSlot* first = top - (f->n - 1);
                    double x, y = 0.0, r;
                    const char* fault = nullptr;
                    if (!slot_number(first[0], x)) return kap_fast_error;
                    if (f->n > 1 && !slot_number(first[1], y)) return kap_fast_error;
                    if (!kap_expr_math(f->a, x, y, r, fault)) return kap_fast_error;
                    top = first;
                    set_number(*top, r);
                    break;
                }
                case kapExprStepOp::active: {
                    const int b = reader.active(f->a);
                    if (b == kap_run_error) return kap_fast_error;
                    if (b == kap_run_general) return kap_fast_general;
                    ++top;
                    set_bool(*top, b != 0);
                    break;
                }
                default:
                    __builtin_unreachable();
            }
        }
        if (top != st + 1) return kap_fast_general;
        const bool ok = as_bool ? slot_truth(st[1], truth) : slot_number(st[1], number);
        return ok ? kap_fast_done : kap_fast_error;
    }
};
