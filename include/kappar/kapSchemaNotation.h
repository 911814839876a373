// The schema notation: tables of parameters written one row per declaration, in declaration
// order, in `.def` files that read like the outline of the entity.
//
// A table file holds rows of the form
//
//   //          Path            Label            Metric  Inch     Active            Description
//   KAP_LENGTH ("Tolerance",    "Tolerance",     "0.1",  "0.004", "",              "How closely ...",
//               Range(kPositive))
//   KAP_ENUM   ("Type",         "Type",          kTypes, "block", "",              "Type of boundary.")
//
// The macro names the kind; the columns come in the order a reader checks them: path, label,
// default(s), active expression, description. Rare fields follow as named extras (see
// `kap_decl` below): Legacy("key") where the legacy key is not the lower-cased name,
// Group("...") where the group is not the parent map's, Range(r), Dim(n), Units(n), Measure(n),
// Mirror(n), Inch("...") for a unit-free parameter with an imperial default of its own,
// OnModify{} / OnRead{} / OnMirror{} to attach the callback registered under the parameter's
// own name ("onmodify_<kind>_<Path_with_underscores>"), or OnModify{"name"} for another one.
//
// Reusable blocks are declared once and placed at several paths:
//
//   KAP_BLOCK(LeadMove)
//   KAP_ENUM   ("Type",     "Type",     kLeadMoves, "none", "",           "Shape of the move.")
//   KAP_LENGTH ("Distance", "Distance", "0", "0",   "Type!='none'",       "Length of the move.")
//   KAP_END_BLOCK
//
//   KAP_MAP_OF ("Connections.FirstLeadIn", LeadMove, "First Lead In", "", "Move onto the first pass.")
//   KAP_ARRAY  ("Connections.LeadIn", 2, LeadMove, "Lead In", "", "Moves onto a pass.")
//
// Paths inside a block are relative to the place it is used at; its expressions are resolved
// from there. Blocks must be defined (at namespace scope) before the table that uses them:
// keep them in their own file, included first. A table is opened with KAP_TABLE(name) and
// closed with KAP_END_TABLE; large entities include one file per large group between the two.
//
// Every kind macro falls back to the one general row macro
//   KAP_PAR(kind, path, label, metric, inch, active, description, extras...)
// so a consumer that wants to read the same files differently (a checker, a generator) defines
// KAP_PAR, KAP_BLOCK, KAP_END_BLOCK, KAP_TABLE and KAP_END_TABLE before including this header.
// Without them the rows become `kapDeclRow` initialisers.
//
// Include this header in the .cpp that declares the tables; write the tables inside an unnamed
// namespace with `using namespace kap_decl;`.
#pragma once

#include "kappar/kapSchema.h"

namespace kap_decl {

struct Legacy {
    std::string_view v;
    constexpr explicit Legacy(std::string_view s) : v(s) {}
    constexpr void apply(kapDeclRow& r) const { r.legacy = v; }
};
struct Group {
    std::string_view v;
    constexpr explicit Group(std::string_view s) : v(s) {}
    constexpr void apply(kapDeclRow& r) const { r.group = v; }
};
struct Range {
    kapRange v;
    constexpr explicit Range(kapRange range) : v(range) {}
    constexpr void apply(kapDeclRow& r) const { r.range = v; }
};
struct Dim {
    int v;
    constexpr explicit Dim(int n) : v(n) {}
    constexpr void apply(kapDeclRow& r) const { r.dim = v; }
};
struct Units {
    int v;
    constexpr explicit Units(int n) : v(n) {}
    constexpr void apply(kapDeclRow& r) const { r.units = v; }
};
struct Measure {
    int v;
    constexpr explicit Measure(int n) : v(n) {}
    constexpr void apply(kapDeclRow& r) const { r.measure = v; }
};
struct Mirror {
    int v;
    constexpr explicit Mirror(int n) : v(n) {}
    constexpr void apply(kapDeclRow& r) const { r.mirror = v; }
};
struct Size {
    int v;
    constexpr explicit Size(int n) : v(n) {}
    constexpr void apply(kapDeclRow& r) const { r.size = v; }
};
struct Access {
    int v;
    constexpr explicit Access(int n) : v(n) {}
    constexpr void apply(kapDeclRow& r) const { r.access = v; }
};
struct Inch {
    std::string_view v;
    constexpr explicit Inch(std::string_view s) : v(s) {}
    constexpr void apply(kapDeclRow& r) const { r.def_inch = v; }
};
struct Type {
    std::string_view v;
    constexpr explicit Type(std::string_view s) : v(s) {}
    constexpr void apply(kapDeclRow& r) const { r.type = v; }
};
struct States {
    std::span<const kapDeclState> v;
    template <std::size_t N>
    constexpr explicit States(const kapDeclState (&states)[N]) : v(states) {}
    constexpr void apply(kapDeclRow& r) const { r.states = v; }
};
struct Rows {
    const kapDeclRow* v;
    std::uint32_t n;
    template <std::size_t N>
    constexpr explicit Rows(const kapDeclRow (&rows)[N]) : v(rows), n(static_cast<std::uint32_t>(N)) {}
    constexpr void apply(kapDeclRow& r) const {
        r.rows = v;
        r.row_count = n;
    }
};
struct Func {
    kapMemberFn v;
    constexpr explicit Func(kapMemberFn fn) : v(fn) {}
    constexpr void apply(kapDeclRow& r) const { r.func = v; }
};
struct OnModify {
    std::string_view v = kapDeclAutoName;
    constexpr void apply(kapDeclRow& r) const { r.onmodify = v; }
};
struct OnRead {
    std::string_view v = kapDeclAutoName;
    constexpr void apply(kapDeclRow& r) const { r.onread = v; }
};
struct OnMirror {
    std::string_view v = kapDeclAutoName;
    constexpr void apply(kapDeclRow& r) const { r.onmirror = v; }
};

// One row: the general form every kind macro comes down to.
template <class... Extras>
constexpr kapDeclRow row(kapDeclKind kind, std::string_view path, std::string_view label,
                         std::string_view metric, std::string_view inch, std::string_view active,
                         std::string_view desc, const Extras&... extras) {
    kapDeclRow r{};
    r.path = path;
    r.label = label;
    r.kind = kind;
    r.def = metric;
    r.def_inch = inch;
    r.active = active;
    r.desc = desc;
    (extras.apply(r), ...);
    return r;
}

}  // namespace kap_decl

// clang-format off
#ifndef KAP_PAR
#define KAP_PAR(KIND, PATH, LABEL, METRIC, INCH, ACTIVE, DESC, ...) \
    kap_decl::row(kapDeclKind::KIND, PATH, LABEL, METRIC, INCH, ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__),
#endif
#ifndef KAP_BLOCK
#define KAP_BLOCK(NAME) constexpr kapDeclRow kapBlock_##NAME[] = {
#endif
#ifndef KAP_END_BLOCK
#define KAP_END_BLOCK };
#endif
#ifndef KAP_TABLE
#define KAP_TABLE(NAME) constexpr kapDeclRow NAME[] = {
#endif
#ifndef KAP_END_TABLE
#define KAP_END_TABLE };
#endif

// Lengths: real, length dimension, units of the current system, measure mode 1; a metric and an
// imperial default.
#define KAP_LENGTH(PATH, LABEL, METRIC, INCH, ACTIVE, DESC, ...) \
    KAP_PAR(real, PATH, LABEL, METRIC, INCH, ACTIVE, DESC, kap_decl::Dim(kapDimLength), kap_decl::Measure(1) __VA_OPT__(,) __VA_ARGS__)
// A point or offset: three lengths.
#define KAP_POINT(PATH, LABEL, METRIC, INCH, ACTIVE, DESC, ...) \
    KAP_PAR(vector, PATH, LABEL, METRIC, INCH, ACTIVE, DESC, kap_decl::Dim(kapDimLength) __VA_OPT__(,) __VA_ARGS__)
// Unit-free values: one default (Inch("...") where the imperial one differs).
#define KAP_REAL(PATH, LABEL, DEF, ACTIVE, DESC, ...)   KAP_PAR(real, PATH, LABEL, DEF, "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_INT(PATH, LABEL, DEF, ACTIVE, DESC, ...)    KAP_PAR(integer, PATH, LABEL, DEF, "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_FLAG(PATH, LABEL, DEF, ACTIVE, DESC, ...)   KAP_PAR(flag, PATH, LABEL, DEF, "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_ANGLE(PATH, LABEL, DEF, ACTIVE, DESC, ...)  KAP_PAR(angle, PATH, LABEL, DEF, "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_STRING(PATH, LABEL, DEF, ACTIVE, DESC, ...) KAP_PAR(string, PATH, LABEL, DEF, "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_PATH(PATH, LABEL, DEF, ACTIVE, DESC, ...)   KAP_PAR(path, PATH, LABEL, DEF, "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
// A direction: three unit-free components.
#define KAP_VECTOR(PATH, LABEL, DEF, ACTIVE, DESC, ...) KAP_PAR(vector, PATH, LABEL, DEF, "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_ENUM(PATH, LABEL, STATES, DEF, ACTIVE, DESC, ...) \
    KAP_PAR(enumeration, PATH, LABEL, DEF, "", ACTIVE, DESC, kap_decl::States(STATES) __VA_OPT__(,) __VA_ARGS__)
// Structure.
#define KAP_MAP(PATH, LABEL, ACTIVE, DESC, ...)      KAP_PAR(map, PATH, LABEL, "", "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_OPEN_MAP(PATH, LABEL, ACTIVE, DESC, ...) KAP_PAR(open_map, PATH, LABEL, "", "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
#define KAP_LIST(PATH, LABEL, ACTIVE, DESC, ...)     KAP_PAR(list, PATH, LABEL, "", "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
// A map holding the rows of a block.
#define KAP_MAP_OF(PATH, BLOCK, LABEL, ACTIVE, DESC, ...) \
    KAP_PAR(map, PATH, LABEL, "", "", ACTIVE, DESC, kap_decl::Rows(kapBlock_##BLOCK) __VA_OPT__(,) __VA_ARGS__)
// An array of SIZE elements, each a map holding the rows of a block.
#define KAP_ARRAY(PATH, SIZE, BLOCK, LABEL, ACTIVE, DESC, ...) \
    KAP_PAR(array, PATH, LABEL, "", "", ACTIVE, DESC, kap_decl::Size(SIZE), kap_decl::Rows(kapBlock_##BLOCK) __VA_OPT__(,) __VA_ARGS__)
// An array whose elements are appended at run time: none are declared.
#define KAP_OPEN_ARRAY(PATH, LABEL, ACTIVE, DESC, ...) KAP_PAR(array, PATH, LABEL, "", "", ACTIVE, DESC __VA_OPT__(,) __VA_ARGS__)
// References to other entities and opaque data.
#define KAP_REF(PATH, LABEL, KIND, ACTIVE, DESC, ...)  KAP_PAR(ref, PATH, LABEL, "", "", ACTIVE, DESC, kap_decl::Type(KIND) __VA_OPT__(,) __VA_ARGS__)
#define KAP_DATA(PATH, LABEL, TYPE, ACTIVE, DESC, ...) KAP_PAR(data, PATH, LABEL, "", "", ACTIVE, DESC, kap_decl::Type(TYPE) __VA_OPT__(,) __VA_ARGS__)
// A member function that expressions call as "Name()".
#define KAP_FUNC(PATH, LABEL, FN, DESC, ...) KAP_PAR(function, PATH, LABEL, "", "", "", DESC, kap_decl::Func(FN) __VA_OPT__(,) __VA_ARGS__)
// clang-format on
