#pragma once
// The compiled form of an expression as the engine's parts share it: the tree, the postfix
// program, the numbers of the built-in functions, and the helpers that the tree evaluation and
// the program both use, so that the two give the same answers.

#include <cstdint>
#include <string>
#include <string_view>

#include "kapparameter/kapExpr.h"

// clang-format off
enum class kapExprOp : std::uint8_t {
    constant,  // value: consts_[a]
    name,      // names_[a]
    neg, pos, lnot,
    mul, div, add, sub,
    eq, ne, lt, gt, le, ge,
    land, lor,
    builtin,   // function a; arguments args_[b .. b+n)
    call,      // calls_[a]; arguments args_[b .. b+n)
};
// clang-format on

// A node of the tree.
struct kapExprNode {
    kapExprOp op;
    std::uint8_t n = 0;  // unary/binary: children a, b; calls: argument count
    std::uint32_t offset = 0;
    std::uint32_t a = 0, b = 0;
};

// The postfix program. It reads names with kapExprScope::read and gives up (the tree is then
// evaluated) at anything other than a plain answer: an error, a name it cannot read. A text has
// none when it has a part the program does not cover (calls, a stack deeper than
// kap_expr_fast_stack).
// clang-format off
enum class kapExprStepOp : std::uint8_t {
    constant, name,            // push consts_[a] / the value of names_[a]
    number,                    // push the double whose bits are a (low) and b (high); n: 1
                               // for a boolean
    compare,                   // push names_[a] compared with consts_[b] (n: how, below)
    neg, pos, lnot, to_bool,
    mul, div, add, sub,
    eq, ne, lt, gt, le, ge,
    and_jump, or_jump,         // the condition on top decides: jump to a keeping it, or pop
    select_jump, jump,         // pop a condition and jump to a when false / jump to a
    min, max,                  // over the top n
    math,                      // built-in number function a over the top n (1 or 2)
    active,                    // push whether names_[a] is active
};
// clang-format on
struct kapExprStep {
    kapExprStepOp op;
    std::uint8_t n = 0;
    std::uint32_t a = 0;
    std::uint32_t b = 0;
};
// compare: n is the comparison (0 ==, 1 !=, 2 <, 3 >, 4 <=, 5 >=), plus this when the constant
// is on the left.
inline constexpr std::uint8_t kap_expr_fast_swapped = 8;
// Values the program holds at once.
inline constexpr int kap_expr_fast_stack = 16;

// What the program came to: an answer, an error (the tree evaluation errs at the same step), or
// a part that only the tree evaluation answers.
enum kapExprFastEnd : int { kap_fast_done, kap_fast_error, kap_fast_general };

// Built-in functions, by number: the order of the table of built-ins (kapExprParse.cpp).
// clang-format off
enum kapExprFn : std::uint32_t {
    fn_min, fn_max, fn_select, fn_active, fn_abs, fn_sqrt, fn_sin, fn_cos, fn_tan, fn_asin,
    fn_acos, fn_atan, fn_atan2, fn_rad, fn_deg, fn_floor, fn_ceil, fn_round, fn_pow, fn_exp,
    fn_log,
};
// clang-format on

// A text as a number: a number, or "true" / "false" in any letter case.
bool kap_expr_read_number(std::string_view t, double& out) noexcept;
// A plain value (not a node) as a number.
bool kap_expr_number_of(const kapExprValue& v, double& out) noexcept;
// Short description of a plain value for messages.
std::string kap_expr_describe(const kapExprValue& v);
// The built-in number function `fn` (one of abs .. log) of x (and y). False when it is not one
// (`fault` null) or the result is not defined (`fault` says why).
bool kap_expr_math(std::uint32_t fn, double x, double y, double& out, const char*& fault) noexcept;
// Writes the postfix program of a compiled tree (none when the tree has a part it does not cover).
void kap_expr_emit_program(kapExprCompiled& c);
// Node `node` of `c` evaluated as a value (the parser folds constant subtrees with it).
kapExprValue kap_expr_eval_node(const kapExprCompiled& c, std::uint32_t node,
                                const kapExprScope& scope);

// Counts the depth of an evaluation against the budget of the evaluations running on this
// thread; ok() is false when the budget is spent.
class kapExprEvalDepth {
  public:
    explicit kapExprEvalDepth(int depth) noexcept;
    ~kapExprEvalDepth();
    kapExprEvalDepth(const kapExprEvalDepth&) = delete;
    kapExprEvalDepth& operator=(const kapExprEvalDepth&) = delete;
    bool ok() const noexcept { return ok_; }

  private:
    int depth_;
    bool ok_;
};
