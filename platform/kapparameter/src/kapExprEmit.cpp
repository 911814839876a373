// The postfix program of a compiled expression, written from its tree (kapExprProgram.h).

#include <algorithm>
#include <cstring>

#include "kapExprProgram.h"

// Writes the program of one compiled tree.
class kapExprEmitter {
  public:
    explicit kapExprEmitter(kapExprCompiled& c) noexcept : c_(c) {}

    void run() {
        int sp = 0, deepest = 0;
        if (!emit(c_.root_, sp, deepest) || deepest > kap_expr_fast_stack) c_.fast_.clear();
        c_.fast_.shrink_to_fit();
    }

  private:
    using FastOp = kapExprStepOp;

    std::uint32_t put(FastOp op, std::uint32_t a = 0, std::uint8_t n = 0, std::uint32_t b = 0) {
        c_.fast_.push_back(kapExprStep{op, n, a, b});
        return static_cast<std::uint32_t>(c_.fast_.size() - 1);
    }
    // A constant the program can hold: a number, a boolean or a text.
    bool fast_constant(const kapExprNode& nd) const {
        if (nd.op != kapExprOp::constant) return false;
        const kapExprValue& v = c_.consts_[nd.a];
        return v.is_number() || v.is_bool() || v.is_text();
    }
    // Whether node i always answers a boolean (or an error): then no conversion is needed.
    bool yields_bool(std::uint32_t i) const {
        using Op = kapExprOp;
        const kapExprNode& nd = c_.nodes_[i];
        switch (nd.op) {
            case Op::eq:
            case Op::ne:
            case Op::lt:
            case Op::gt:
            case Op::le:
            case Op::ge:
            case Op::lnot:
            case Op::land:
            case Op::lor:
                return true;
            case Op::constant:
                return c_.consts_[nd.a].is_bool();
            default:
                return false;
        }
    }
    void land_here(std::uint32_t jump) {
        c_.fast_[jump].a = static_cast<std::uint32_t>(c_.fast_.size());
    }
    static void grow(int& sp, int& deepest, int by) {
        sp += by;
        deepest = std::max(deepest, sp);
    }

    // Appends the program of the subtree under node i; `sp` follows the depth of the stack.
    // False when the subtree has a part the program does not cover.
    bool emit(std::uint32_t i, int& sp, int& deepest) {
        using Op = kapExprOp;
        const kapExprNode& nd = c_.nodes_[i];
        switch (nd.op) {
            case Op::constant: {
                const kapExprValue& v = c_.consts_[nd.a];
                if (v.is_number() || v.is_bool()) {
                    const double x = v.number();
                    std::uint64_t bits;
                    std::memcpy(&bits, &x, sizeof bits);
                    put(FastOp::number, static_cast<std::uint32_t>(bits), v.is_bool() ? 1 : 0,
                        static_cast<std::uint32_t>(bits >> 32));
                } else if (v.is_text()) {
                    put(FastOp::constant, nd.a);
                } else {
                    return false;
                }
                grow(sp, deepest, 1);
                return true;
            }
            case Op::name:
                put(FastOp::name, nd.a);
                grow(sp, deepest, 1);
                return true;
            case Op::neg:
            case Op::pos:
            case Op::lnot:
                if (!emit(nd.a, sp, deepest)) return false;
                put(nd.op == Op::neg ? FastOp::neg : nd.op == Op::pos ? FastOp::pos : FastOp::lnot);
                return true;
            case Op::land:
            case Op::lor: {
                if (!emit(nd.a, sp, deepest)) return false;
                const std::uint32_t j = put(nd.op == Op::land ? FastOp::and_jump : FastOp::or_jump);
                grow(sp, deepest, -1);
                if (!emit(nd.b, sp, deepest)) return false;
                if (!yields_bool(nd.b)) put(FastOp::to_bool);
                land_here(j);
                return true;
            }
            case Op::eq:
            case Op::ne:
            case Op::lt:
            case Op::gt:
            case Op::le:
            case Op::ge: {
                // A name compared with a constant: one step.
                const auto how =
                    static_cast<std::uint8_t>(static_cast<int>(nd.op) - static_cast<int>(Op::eq));
                const kapExprNode& l = c_.nodes_[nd.a];
                const kapExprNode& r = c_.nodes_[nd.b];
                if (l.op == Op::name && fast_constant(r)) {
                    put(FastOp::compare, l.a, how, r.a);
                    grow(sp, deepest, 1);
                    return true;
                }
                if (r.op == Op::name && fast_constant(l)) {
                    put(FastOp::compare, r.a,
                        static_cast<std::uint8_t>(how | kap_expr_fast_swapped), l.a);
                    grow(sp, deepest, 1);
                    return true;
                }
                break;
            }
            case Op::call:
                return false;
            case Op::builtin:
                break;
            default:
                break;
        }
        if (nd.op != Op::builtin) {
            // The binary operators, in the order of their codes.
            if (!emit(nd.a, sp, deepest) || !emit(nd.b, sp, deepest)) return false;
            static constexpr FastOp ops[] = {FastOp::mul, FastOp::div, FastOp::add, FastOp::sub,
                                             FastOp::eq,  FastOp::ne,  FastOp::lt,  FastOp::gt,
                                             FastOp::le,  FastOp::ge};
            put(ops[static_cast<int>(nd.op) - static_cast<int>(Op::mul)]);
            grow(sp, deepest, -1);
            return true;
        }
        const std::uint32_t* args = c_.args_.data() + nd.b;
        if (nd.a == fn_select) {
            if (!emit(args[0], sp, deepest)) return false;
            const std::uint32_t to_else = put(FastOp::select_jump);
            grow(sp, deepest, -1);
            if (!emit(args[1], sp, deepest)) return false;
            const std::uint32_t to_end = put(FastOp::jump);
            grow(sp, deepest, -1);
            land_here(to_else);
            if (!emit(args[2], sp, deepest)) return false;
            land_here(to_end);
            return true;
        }
        if (nd.a == fn_active) {
            put(FastOp::active, c_.nodes_[args[0]].a);
            grow(sp, deepest, 1);
            return true;
        }
        for (std::uint32_t k = 0; k < nd.n; ++k) {
            if (!emit(args[k], sp, deepest)) return false;
        }
        const FastOp op = nd.a == 0 ? FastOp::min : nd.a == 1 ? FastOp::max : FastOp::math;
        put(op, nd.a, nd.n);
        grow(sp, deepest, 1 - static_cast<int>(nd.n));
        return true;
    }

    kapExprCompiled& c_;
};

void kap_expr_emit_program(kapExprCompiled& c) {
    kapExprEmitter(c).run();
}
