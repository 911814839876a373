#pragma once
// Schemas as data: one row per declared parameter, in declaration order, read by one routine
// that performs the steps of a declaration.
//
// A row names the parameter by its dotted path ("Block.Limits.XMin"); the parent must have been
// declared by an earlier row. The elements of an array are declared once, under the array's
// path followed by "[]" ("ThicknessSetValues[].Mode"); the array row's `size` says how many
// elements every instance holds. Strings in rows are views of static texts.
//
// Steps of one declaration (kap_declare):
//   1. the key from name, legacy key and parent key (the legacy key defaults to the name in
//      lower case);
//   2. the value node of the row's kind (numerics with dimension, units and measure mode;
//      enumerations with their states in order; vectors from a numeric component);
//   3. a fresh declaration object, attached with set_impl;
//   4. description, active expression, group, label;
//   5. the default: the metric or imperial text as kapUnitsUtils::get_units() selects, passed
//      through kapEvaluator::localize and stored with set_string;
//   6. the range;
//   7. added under its name.
//
// A length (a real of dimension length) whose metric default is a number other than 0 must give
// its inch default as well: kap_declare refuses the row otherwise.

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "kappar/kappar_export.h"
#include "kapparameter/kapParameter.h"

enum class kapDeclKind : std::uint8_t {
    real,         // subtype 21
    integer,      // subtype 22
    flag,         // subtype 23
    angle,        // subtype 24, measure mode 7
    enumeration,  // states
    string,
    vector,  // `size` components (3 when 0), each a real of dimension `dim`
    map,
    open_map,  // a map that takes undeclared children ("User defined parameters")
    list,
    array,  // `size` elements declared by the rows under "<path>[]"
    ref,    // reference to a root of kind `type`
    data,   // opaque data of type `type`
    path,
    function,  // member function `func`, called from expressions as "Name()"
};

struct kapDeclState {
    std::string_view key;
    std::string_view label;
    std::string_view desc;
};

struct kapDeclRow {
    std::string_view path;
    std::string_view legacy;  // empty: the name in lower case
    std::string_view label;
    kapDeclKind kind = kapDeclKind::real;
    int dim = kapDimNone;  // kapDimStandard
    int units = -1;        // kapUnitsStandard; reals default to 0
    int measure = -1;      // kapParameterMeasureMode; angles default to 7
    int mirror = -1;       // kapParameterMirrorMode
    int size = 0;          // vector components, array elements
    std::optional<kapRange> range = std::nullopt;
    std::span<const kapDeclState> states = {};
    std::string_view type = {};      // ref root kind, data type name
    std::string_view def = {};       // default text (metric, or the only one)
    std::string_view def_inch = {};  // imperial default when it differs
    std::string_view active = {};
    std::string_view group = {};  // empty: the table's group
    std::string_view desc = {};
    std::string_view onmodify = {};  // name of a registered change callback
    // Rows declared under this parameter: the contents of a map, or the element of an array.
    // Their paths are relative to this parameter's path.
    const kapDeclRow* rows = nullptr;
    std::uint32_t row_count = 0;
    std::string_view onread = {};    // name of a registered read callback
    std::string_view onmirror = {};  // name of a registered mirror callback
    kapMemberFn func = nullptr;      // the function of a member-function parameter
    int access = -1;                 // kapParameterVectorAccessType; vectors default to 1
};

// A callback name written as kapDeclAutoName stands for "<prefix>_<kind>_<Path_with_underscores>"
// of the declared parameter ("onmodify_toolpath_ToolAxis_Limits_MinElevation").
inline constexpr std::string_view kapDeclAutoName = "@";

// The largest finite double, the upper bound of open-ended lengths.
inline constexpr double kapDeclMaxDouble = 1.7976931348623157e308;
inline constexpr kapRange kapDeclNonNegative{0.0, kapDeclMaxDouble, 0, 1};

// Declares every row under `parent`, giving rows without a group `default_group`.
// Answers false (and stops) at a row it refuses: one whose parent is not declared, a length with
// a metric default other than 0 and no inch default. The row's path is reported in
// `failed_path`, why it was refused in `reason`.
KAPPAR_API bool kap_declare(kapParameter* parent, std::span<const kapDeclRow> rows,
                            std::string_view default_group, utString* failed_path = nullptr,
                            utString* reason = nullptr);

// Checks a declared tree, appending one line per fault to `problems`:
//   - every activity expression and every value held as an expression compiles, and every name
//     it reads or calls resolves from the parameter that holds it, as evaluation finds names:
//     among the siblings, then outward through the enclosing maps to the root ("RootPar.X" from
//     the root), then through the root's lookup_method, then in the global evaluation scope.
//     A path that passes through a reference reads another entity and is taken as it stands, and
//     so is a path into a named entity of the global scope ("{toolpath}.X");
//   - every path of `named_paths` (synonym targets, paths that loader rules, update steps and
//     resets name) leads to a node of the tree.
KAPPAR_API void kap_check_schema(const kapParameterRoot& root, std::vector<utString>& problems,
                                 std::span<const std::string_view> named_paths = {});

// Runs kap_check_schema on `entity`, a fresh entity of its kind, the first time it is called for
// the kind in the current unit system, and records what it finds. Debug builds assert that a
// kind's schema has no problems.
KAPPAR_API void kap_check_declared(const kapParameterRoot& entity,
                                   std::span<const std::string_view> named_paths = {});
// Records problems of a kind's schema (kap_check_declared and the entity protocol use it).
KAPPAR_API void kap_schema_report(std::string_view kind, const std::vector<utString>& problems);
// The problems recorded for `kind` so far, in either unit system; empty when none.
KAPPAR_API std::vector<utString> kap_schema_problems(std::string_view kind);

// Bookkeeping that surrounds the declarations of an entity's build_tree: the root being
// declared, the root's list of strings cleared, the declaration counter.
class KAPPAR_API kapDeclarationScope {
  public:
    explicit kapDeclarationScope(kapParameterRoot* root);
    ~kapDeclarationScope();
    kapDeclarationScope(const kapDeclarationScope&) = delete;
    kapDeclarationScope& operator=(const kapDeclarationScope&) = delete;
    static kapParameterRoot* current_root() noexcept;
    static int counter() noexcept;
    static void count() noexcept;
};
