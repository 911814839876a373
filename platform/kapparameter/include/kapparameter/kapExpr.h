#pragma once
// The expression language of activity conditions, defaults and "${...}" string values.
//
// A text is compiled once into a kapExprCompiled (kapExpr::compile keeps a process-wide cache
// keyed by the text) and then evaluated any number of times against a kapExprScope, the object
// that knows the parameters. Evaluation parses nothing and builds no strings for names: every
// name path is split into components at compile time.
//
// Grammar (precedence from loosest to tightest; binary operators associate to the left):
//
//   expr     := or
//   or       := and   { ("OR" | "||") and }         connective words in any letter case
//   and      := cmp   { ("AND" | "&&") cmp }
//   cmp      := add   { ("==" | "!=" | "<" | ">" | "<=" | ">=") add }
//   add      := mul   { ("+" | "-") mul }
//   mul      := unary { ("*" | "/") unary }
//   unary    := ("-" | "+" | "!") unary | primary
//   primary  := number | string | "true" | "false" | path [ "(" [ expr { (";" | ",") expr } ] ")" ]
//             | "(" expr ")"
//   number   := 12 | 1.5 | .5 | 5. | 1e-3        always with '.', whatever the locale
//   string   := '...' | "..."                   no escapes; the other quote may appear inside
//   path     := [ "{" name "}" "." ] name { "." name | "[" digits "]" }     or "{" name "}" alone
//
// A path whose first component is "rootpar" (any letter case: "RootPar", "Rootpar") starts at
// the root of the owner's tree; a leading "{name}" names an entity of the global scope
// ("{toolpath}.AreaClearance.Type"); any other path starts at the owner of the expression.
// "true", "false", "and", "or" are words of the language in any letter case, not names.
//
// Values: numbers (double), booleans, texts, node references (a parameter handed out by the
// scope) and errors. Numbers serve as conditions (non-zero is true), booleans as numbers (0, 1).
// Comparisons compare numbers numerically and texts byte for byte; a text meets a number by
// reading it as a number ("5" == 5), and a text that does not read as one compares as a wrong
// type. A node reference is turned into a value by asking the scope (value_of) when an operator
// needs one; a bare name keeps its node reference as the answer, so that the caller can have
// the parameter itself ("select(UserDefined;A;B)" answers the parameter A or B).
//
// Built-in functions, recognised by their exact names, alone or after "stdlib."
// ("stdlib.active(X)"); any other call goes to the scope (entity functions such as
// "IsTurning()", calls on paths such as "Tool.IsTurning()"):
//
//   min(a;b;...), max(a;b;...)   two or more numbers
//   select(c;a;b)                a when c holds, else b; only the chosen one is evaluated
//   active(path)                 whether the parameter is active; false when it does not exist
//   abs sqrt floor ceil round exp log      one number; round halves away from zero, log is natural
//   pow(x;y)
//   sin cos tan (degrees in), asin acos atan (degrees out), atan2(y;x) (degrees out)
//   rad(deg), deg(rad)           conversions
//
// Angles are in degrees, as everywhere in the product. Multiples of 90 degrees give exact
// results (sin(180) is 0, cos(90) is 0); tan of an odd multiple of 90 is a domain error.
//
// Errors are values (kapExprError / an error kapExprValue): a code, the byte offset in the
// compiled text where the fault lies, and a message. Nothing here throws or prints. A text that
// does not parse compiles to an object that holds its syntax error (ok() is false); evaluating
// it answers that error.
//
// Nesting is bounded: a text nested deeper than kapExpr::max_depth compiles to a "too deep"
// error, and evaluations nested through the scope (a parameter's expression reading another's)
// share a per-thread budget, so neither a deep text nor a long chain overflows the stack.
//
// The library reads and writes numbers in the C locale only: '.' is the decimal point and ';'
// separates arguments, whatever the process locale.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kapparameter/kapTypes.h"

class kapExprScope;
struct kapExprNode;
struct kapExprStep;

// A failure: a code of kapParameterErrorCode (kapErrNone when there is none), where, and why.
struct kapExprError {
    int code = kapErrNone;
    int offset = -1;  // byte offset in the compiled text; -1 when unknown
    std::string message;
};

// One component of a name path: a name, or an index written "[16]".
struct kapExprName {
    std::string_view text;    // the name as written; empty for an index
    std::int32_t index = -1;  // >= 0 for an index component
    bool is_index() const noexcept { return index >= 0; }
};

// Where a path starts.
enum class kapExprAnchor : std::uint8_t {
    owner,   // at the parameter that owns the expression
    root,    // "RootPar.X": at the root of the owner's tree (the alias is not a component)
    global,  // "{toolpath}.X": at the entity `entity` of the global scope
};

// A name path as compiled. Every view points into the compiled object and lives as long as it.
struct kapExprPath {
    kapExprAnchor anchor = kapExprAnchor::owner;
    kapExprName entity;                       // global: the entity's name; empty otherwise
    std::span<const kapExprName> components;  // after the anchor; empty for "RootPar" alone
    std::string_view text;                    // the path as written: "RootPar.Rapid.SafeArea"
    std::string_view relative;  // the components' text: "Rapid.SafeArea" (a key path as is)
};

// A value. Texts are either borrowed (the bytes must outlive the evaluation: literals of the
// compiled text, texts held by the parameters) or owned (computed texts).
class kapExprValue {
  public:
    enum class Type : std::uint8_t { none, number, boolean, text, node, error };

    kapExprValue() noexcept = default;
    static kapExprValue from_number(double v) noexcept {
        kapExprValue r;
        r.type_ = Type::number;
        r.num_ = v;
        return r;
    }
    static kapExprValue from_bool(bool v) noexcept {
        kapExprValue r;
        r.type_ = Type::boolean;
        r.num_ = v ? 1.0 : 0.0;
        return r;
    }
    static kapExprValue from_text(std::string_view borrowed) noexcept {
        kapExprValue r;
        r.type_ = Type::text;
        r.text_ = borrowed;
        return r;
    }
    static kapExprValue from_owned_text(std::string text);
    // A node of `scope`; the scope keeps it alive until the evaluation's answer is used.
    static kapExprValue from_node(const void* node, const kapExprScope* scope) noexcept {
        kapExprValue r;
        r.type_ = Type::node;
        r.ptr_ = node;
        r.scope_ = scope;
        return r;
    }
    static kapExprValue from_error(int code, std::string message, int offset = -1);
    static kapExprValue from_error(const kapExprError& e);

    Type type() const noexcept { return type_; }
    bool is_none() const noexcept { return type_ == Type::none; }
    bool is_number() const noexcept { return type_ == Type::number; }
    bool is_bool() const noexcept { return type_ == Type::boolean; }
    bool is_text() const noexcept { return type_ == Type::text; }
    bool is_node() const noexcept { return type_ == Type::node; }
    bool is_error() const noexcept { return type_ == Type::error; }

    // number: the number; boolean: 0 or 1; anything else 0.
    double number() const noexcept {
        return (type_ == Type::number || type_ == Type::boolean) ? num_ : 0.0;
    }
    // boolean: itself; number: non-zero; anything else false.
    bool boolean() const noexcept { return number() != 0.0; }
    // text: the text; error: the message; anything else empty.
    std::string_view text() const noexcept { return text_; }
    const void* node() const noexcept { return type_ == Type::node ? ptr_ : nullptr; }
    const kapExprScope* scope() const noexcept { return type_ == Type::node ? scope_ : nullptr; }
    int error_code() const noexcept { return type_ == Type::error ? code_ : kapErrNone; }
    int error_offset() const noexcept { return type_ == Type::error ? offset_ : -1; }
    kapExprError error() const;
    // Sets the offset of an error that has none (the evaluator marks where a scope's error arose).
    void set_error_offset_if_unknown(int offset) noexcept {
        if (type_ == Type::error && offset_ < 0) offset_ = offset;
    }

  private:
    Type type_ = Type::none;
    int code_ = 0;
    int offset_ = -1;
    double num_ = 0.0;
    const void* ptr_ = nullptr;
    const kapExprScope* scope_ = nullptr;
    std::string_view text_;
    std::shared_ptr<const std::string> own_;  // owned texts and error messages
};

// A plain value read in one step (kapExprScope::read): a number (booleans as 0 and 1) or a text
// borrowed for the evaluation.
struct kapExprScalar {
    bool is_text = false;
    double number = 0.0;
    std::string_view text;
};

// What an expression is evaluated against; the parameter framework implements it for the
// parameter that owns the expression.
class kapExprScope {
  public:
    virtual ~kapExprScope() = default;
    // The plain value of a name path in one step, for comparisons, arithmetic and conditions:
    // true with a number or a text (which must stay valid while the evaluation runs) when the
    // path names a parameter whose value is simply that; false to let the evaluator take the
    // general way (resolve, then value_of), which must give the same value. Answering false is
    // always right; this base does.
    virtual bool read(const kapExprPath& path, kapExprScalar& out) const;
    // The value of a name path: a node reference (usual), a plain value, or an error value
    // (kapErrNoItem when nothing answers). Offsets may be left -1: the evaluator sets
    // them.
    virtual kapExprValue resolve(const kapExprPath& path) const = 0;
    // A call that is not a built-in: "IsTurning()", "Tool.IsTurning()",
    // "stepover_from_cusp(StepoverCusp;Tool)". Arguments are evaluated, node references kept.
    virtual kapExprValue call(const kapExprPath& fn, std::span<const kapExprValue> args) const = 0;
    // The plain value (number, boolean, text or error) of a node this scope handed out.
    virtual kapExprValue value_of(const void* node) const = 0;
    // Whether a node this scope handed out is active.
    virtual bool is_active(const void* node) const = 0;
};

// A compiled expression: immutable, shared, evaluated from any number of threads at once.
struct kapExprCompiled {
  public:
    kapExprCompiled(const kapExprCompiled&) = delete;
    kapExprCompiled& operator=(const kapExprCompiled&) = delete;
    ~kapExprCompiled();

    bool ok() const noexcept { return error_.code == kapErrNone; }
    // The compile error; code kapErrNone when the text compiled.
    const kapExprError& error() const noexcept { return error_; }
    // The text as given to compile (with its "${" "}" when wrapped).
    const std::string& text() const noexcept { return text_; }
    // The name paths read (through resolve, including the argument of active()), each once, in
    // order of first appearance; and the functions called through the scope.
    std::span<const kapExprPath> names() const noexcept { return names_; }
    std::span<const kapExprPath> calls() const noexcept { return calls_; }

    // Depth of the compiled tree (1 for a lone constant or name).
    int depth() const noexcept { return depth_; }
    // True when the text is a constant (its value needs no scope).
    bool is_constant() const noexcept;

    // The answer as it stands: a node reference for a bare name or a select() of names, else a
    // plain value or an error.
    kapExprValue evaluate(const kapExprScope& scope) const;
    // The answer as a number (error when it is not one) / as a condition (error when it cannot
    // serve as one). Node references are turned into values through their scope.
    kapExprValue evaluate_number(const kapExprScope& scope) const;
    kapExprValue evaluate_bool(const kapExprScope& scope) const;
    // evaluate_bool without building an error value: 1 true, 0 false, -1 an error of any kind.
    int evaluate_condition(const kapExprScope& scope) const;
    // A quick evaluation that nests no other evaluation (unless the text calls active()) and
    // builds no value: 1 with the answer (a number, or a condition when `as_bool`), 0 when the
    // full evaluation would answer an error, -1 when only the full evaluation can answer (a name
    // the scope does not read in one step, a call).
    int evaluate_quick(const kapExprScope& scope, bool as_bool, double& number, bool& truth) const;
    // Whether the text calls active(): its answer may depend on the activity of parameters.
    bool uses_active() const noexcept { return uses_active_; }

  private:
    friend class kapExprParser;
    friend class kapExprEmitter;
    friend class kapExprEvaluator;
    friend class kapExpr;
    friend struct kapExprRunner;
    kapExprCompiled() = default;

    // The tree (nodes refer to their children by index) and the postfix program; their forms are
    // the engine's own (kapExprProgram.h).
    std::string text_;
    kapExprError error_;
    std::vector<kapExprNode> nodes_;
    std::vector<std::uint32_t> args_;
    std::vector<kapExprValue> consts_;
    std::vector<kapExprName> comps_;
    std::vector<kapExprPath> names_;
    std::vector<kapExprPath> calls_;

    std::uint32_t root_ = 0;
    int depth_ = 0;
    bool uses_active_ = false;

    // The same expression as a postfix program over plain values, for evaluate_number and
    // evaluate_bool; empty when the expression has a part it does not cover.
    std::vector<kapExprStep> fast_;
    // Runs the program: a kapExprFastEnd.
    int run_fast(const kapExprScope& scope, bool as_bool, double& number, bool& truth) const;
};

// Marks a node as being evaluated on this thread while the guard lives, so that an expression
// reading itself through the scope is caught: value_of takes a guard on the node before
// evaluating the node's own expression and answers error() instead when ok() is false.
// Guards nest up to kapExpr::max_depth on a thread; beyond that they answer "too deep".
class kapExprGuard {
  public:
    explicit kapExprGuard(const void* node) noexcept;
    ~kapExprGuard();
    kapExprGuard(const kapExprGuard&) = delete;
    kapExprGuard& operator=(const kapExprGuard&) = delete;
    bool ok() const noexcept { return code_ == kapErrNone; }
    // kapErrCycle when the node was already being evaluated, kapErrTooDeep when the
    // nesting is too deep.
    int code() const noexcept { return code_; }
    kapExprValue error() const;

  private:
    int code_ = kapErrNone;
};

class kapExpr {
  public:
    kapExpr() = delete;

    // Deepest nesting a text may have.
    static constexpr int max_depth = 256;

    // The compiled form of `text`, from the process-wide cache (compiled on first use; the same
    // object for the same text). Always an object: a text that does not parse holds its error.
    // A "${...}" text compiles its inside. Thread-safe.
    static std::shared_ptr<const kapExprCompiled> compile(std::string_view text);
    // The same without the cache: a fresh object each call.
    static std::shared_ptr<const kapExprCompiled> compile_uncached(std::string_view text);
    // Number of texts in the cache / empties it (objects in use stay valid).
    static std::size_t cache_size();
    static void clear_cache();

    // "${...}": a text wrapped so, found in a string value, is an expression.
    static bool is_wrapped(std::string_view text) noexcept;
    // The inside of a wrapped text; any other text unchanged.
    static std::string_view unwrap(std::string_view text) noexcept;

    // Conversions with the language's rules; node references are asked of their scope.
    // to_number: numbers, booleans (0, 1), texts that read as numbers or "true"/"false".
    // to_bool: the same, non-zero being true; an empty text is false.
    static kapExprValue to_number(const kapExprValue& v);
    static kapExprValue to_bool(const kapExprValue& v);
    // A node reference's plain value; any other value as it is.
    static kapExprValue to_plain(const kapExprValue& v);
    // The one reader of number texts, for expressions and value texts alike (C locale, whatever
    // the process locale): blanks (spaces and tabs) around, then at most one sign, then digits
    // with an optional fraction and exponent ("12", "-1.5", ".5", "5.", "1e-3"), and nothing
    // else; the number must fit a double. False for anything else ("+-5", "\n5", "5\r", "1,5",
    // "inf", "0x10").
    static bool parse_number(std::string_view text, double& out) noexcept;
    // The one writer of number texts: the shortest text that reads back as `v` exactly ("0.5",
    // "3", "1e-07"); zero, also -0, is "0".
    static std::string format_number(double v);
};
