// Links, operators, printing, the reported parameter, the lock holder and the geometry
// conversions of the parameter framework.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "kapparameter/kapParameter.h"
#include "kapparameter/kapParameterUtils.h"
#include "par_builders.h"

namespace {

kapParameterMap* as_map(const kapParameterPtr& p) {
    return kapParameterMap::ut_dynamic_cast(p.pointer());
}

int g_changes = 0;
void count_change(kapParameter*) {
    ++g_changes;
}
const kapParameter* g_reported = nullptr;
void note_reported(kapParameter* p) {
    g_reported = p;
}

// A level with "A" = 2, "B" = 4 and a map "Map" holding "C" = 1 (counted change callback).
struct Tree {
    kapParameterRoot root{"level", 1, "L"};
    Tree() {
        root.add("A", length(2));
        root.add("B", length(4));
        root.add("Map", map());
        root.add("Map.C", length(1))->set_onmodify_callback(count_change);
        root.set_modified(false);
        g_changes = 0;
    }
};

// ---------------------------------------------------------------------------------------------
// Links

TEST(Links, LinkThenUnlinkLeavesNoTrace) {
    Tree t;
    kapParameterRoot before(t.root);
    kapParameterPtr node = formula("C+A");
    node->set_onmodify_callback(count_change);
    kapParameterPtr map = t.root["Map"];

    ASSERT_TRUE(node->link_par(map));
    EXPECT_TRUE(node->is_linked());
    EXPECT_EQ(node->get_root(), &t.root);
    EXPECT_DOUBLE_EQ(node->get_double(), 3.0);  // a sibling of the map, then outward
    EXPECT_EQ(map->size(), 1u);
    t.root.set_locked(true);
    EXPECT_FALSE(node->set_double(1));  // locks through the link
    t.root.set_locked(false);

    ASSERT_TRUE(node->unlink_par());
    EXPECT_FALSE(node->is_linked());
    EXPECT_FALSE(node->unlink_par());
    EXPECT_EQ(node->parent(), nullptr);
    EXPECT_EQ(node->get_root(), nullptr);
    EXPECT_TRUE(t.root.is_equal(before));
    EXPECT_FALSE(t.root.get_modified());
    EXPECT_FALSE(t.root.get_modified_param());
    EXPECT_EQ(g_changes, 0);
    EXPECT_EQ(node->get_expr(), "C+A");
}

TEST(Links, RefusedLinksChangeNothing) {
    Tree t;
    kapParameterPtr map(new kapParameterMap());
    map->link_par(t.root["Map"]);
    const struct {
        const char* what;
        std::function<bool()> link;
    } rows[] = {
        {"under a value", [&] { return length(1)->link_par(t.root["A"]); }},
        {"under nothing", [&] { return length(1)->link_par(nullptr); }},
        {"a child of a map", [&] { return t.root["A"]->link_par(t.root["Map"]); }},
        {"under itself", [&] { return map->link_par(map); }},
        {"under a node linked below it",
         [&] {
             kapParameterPtr inner(new kapParameterMap());
             inner->link_par(map);
             return map->link_par(inner);
         }},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(row.link()) << row.what;
        EXPECT_EQ(t.root["A"]->parent(), &t.root) << row.what;
        EXPECT_EQ(map->parent(), t.root["Map"].pointer()) << row.what;
    }
}

TEST(Links, EitherSideGoingFirstDropsTheLink) {
    kapParameterPtr left = length(1);
    kapParameterPtr deep = length(2);
    {
        Tree t;
        kapParameterPtr inner(new kapParameterMap());
        ASSERT_TRUE(inner->link_par(t.root["Map"]));
        ASSERT_TRUE(deep->link_par(inner));
        ASSERT_TRUE(left->link_par(t.root["Map"]));
        {
            kapParameterPtr gone = length(3);
            ASSERT_TRUE(gone->link_par(t.root["Map"]));
        }  // a linked node that goes leaves nothing behind
        EXPECT_EQ(deep->get_root(), &t.root);
        EXPECT_EQ(inner->unlink_all(), 2);  // its own link and the one under it
        EXPECT_EQ(deep->parent(), nullptr);
        EXPECT_EQ(inner->parent(), nullptr);
        EXPECT_TRUE(left->is_linked());
    }  // the map goes first
    EXPECT_EQ(left->parent(), nullptr);
    EXPECT_FALSE(left->is_linked());
    EXPECT_TRUE(left->set_double(5));
}

// ---------------------------------------------------------------------------------------------
// Operators

// An operand: "6" a length, "=A + B" an expression, "'abc'" a text, "{}" a map, "?" an error.
kapParameterPtr make(std::string_view s) {
    if (s == "{}") return map();
    if (s == "?") return kapParameterError::create(kapErrNoItem, "no such item: X");
    if (s.front() == '\'') return text(std::string(s.substr(1, s.size() - 2)).c_str());
    if (s.front() == '=') return formula(std::string(s.substr(1)).c_str());
    return length(std::stod(std::string(s)));
}

enum class Form { binary, prefix, postfix };
struct OpRow {
    Form form;
    const char* lhs;
    const char* op;
    const char* rhs;
    // Exactly one of: a number, a flag, an expression text, an error code.
    std::optional<double> number;
    std::optional<int> flag;
    const char* text;
    int error;
};
constexpr int kNo = kapErrNone;

// clang-format off
const OpRow kOps[] = {
    {Form::binary,  "6",         "+",   "-3",        3.0,  {}, nullptr,              kNo},
    {Form::binary,  "6",         "/",   "-3",        -2.0, {}, nullptr,              kNo},
    {Form::binary,  "6",         "/",   "0",         {},   {}, nullptr,              kapErrDivideByZero},
    {Form::binary,  "6",         "<",   "-3",        {},   0,  nullptr,              kNo},
    {Form::binary,  "6",         "AND", "0",         {},   0,  nullptr,              kNo},
    {Form::binary,  "6",         "^",   "-3",        {},   {}, nullptr,              kapErrSyntax},
    {Form::binary,  "'abc'",     "==",  "'abc'",     {},   1,  nullptr,              kNo},
    {Form::binary,  "'it's'",    "!=",  "'abc'",     {},   1,  nullptr,              kNo},
    {Form::binary,  "'abc'",     "+",   "6",         {},   {}, nullptr,              kapErrType},
    {Form::binary,  "6",         "+",   "'5'",       11.0, {}, nullptr,              kNo},
    {Form::binary,  "{}",        "+",   "6",         {},   {}, nullptr,              kapErrType},
    {Form::binary,  "6",         "*",   "?",         {},   {}, nullptr,              kapErrNoItem},
    {Form::binary,  "=Stepover", "*",   "6",         {},   {}, "Stepover*6",         kNo},
    {Form::binary,  "-3",        "-",   "=Stepover", {},   {}, "(-3)-Stepover",      kNo},
    {Form::binary,  "=A + B",    "/",   "6",         {},   {}, "(A + B)/6",          kNo},
    {Form::binary,  "=Stepover", "==",  "'it's'",    {},   {}, "Stepover==\"it's\"", kNo},
    {Form::binary,  "=A + B",    "^",   "6",         {},   {}, nullptr,              kapErrSyntax},
    {Form::binary,  "=Stepover", "+",   "{}",        {},   {}, nullptr,              kapErrType},
    {Form::prefix,  "-3",        "-",   "0",         3.0,  {}, nullptr,              kNo},
    {Form::prefix,  "0",         "!",   "0",         {},   1,  nullptr,              kNo},
    {Form::prefix,  "=A + B",    "-",   "0",         {},   {}, "-(A + B)",           kNo},
    {Form::prefix,  "6",         "~",   "0",         {},   {}, nullptr,              kapErrSyntax},
    {Form::postfix, "50",        "%",   "0",         0.5,  {}, nullptr,              kNo},
    {Form::postfix, "=Stepover", "%",   "0",         {},   {}, "Stepover/100",       kNo},
    {Form::postfix, "6",         "!",   "0",         {},   {}, nullptr,              kapErrSyntax},
};
// clang-format on

TEST(Operators, NumbersTextsAndExpressions) {
    for (const OpRow& row : kOps) {
        kapParameterPtr lhs = make(row.lhs);
        kapParameterPtr rhs = make(row.rhs);
        const kapParameterPtr r = row.form == Form::binary   ? lhs->operate_binary(row.op, *rhs)
                                  : row.form == Form::prefix ? lhs->operate_prefix(row.op)
                                                             : lhs->operate_postfix(row.op);
        const std::string where =
            std::string(row.op) + " on row " + std::to_string(&row - kOps) + ": " + r->get_string();
        ASSERT_TRUE(r) << where;
        if (row.error != kNo) {
            const auto* e = kapParameterError::ut_dynamic_cast(r.pointer());
            ASSERT_NE(e, nullptr) << where;
            EXPECT_EQ(e->code(), row.error) << where;
            continue;
        }
        ASSERT_FALSE(r->is_error()) << where;
        if (row.text != nullptr) {
            EXPECT_EQ(r->get_expr(), row.text) << where;
        } else if (row.flag) {
            EXPECT_EQ(r->subtype(), kapSubTypeFlag) << where;
            EXPECT_EQ(r->get_int(), *row.flag) << where;
        } else {
            EXPECT_FALSE(r->is_expr()) << where;
            EXPECT_DOUBLE_EQ(r->get_double(), *row.number) << where;
            EXPECT_EQ(r->impl().dims, kapDimLength) << where;  // keeps the operand's dimension
        }
    }
    // Operands are left as they were.
    kapParameterPtr six = length(6);
    six->operate_binary("+", *length(1));
    EXPECT_EQ(six->get_double(), 6.0);
}

TEST(Operators, AnExpressionAnswerEvaluatesWhereItIsPlaced) {
    Tree t;
    const kapParameterPtr half = make("=A + B")->operate_binary("/", *length(2));
    ASSERT_TRUE(half->link_par(t.root["Map"]));
    EXPECT_DOUBLE_EQ(half->get_double(), 3.0);
    const kapParameterPtr text =
        kapParameterPtr(new kapParameterString("${A}"))->operate_binary("+", *length(1));
    EXPECT_EQ(text->get_value_text(), "${A+1}");
}

// ---------------------------------------------------------------------------------------------
// Printing and XML names

TEST(Print, NestedMapAtEachDepth) {
    Tree t;
    t.root.add("Map.Inner", map());
    t.root.add("Map.Inner.Text", text("a b"));
    t.root.add("Map.Empty", map());
    t.root.add("List", list());
    as_map(t.root["List"])->append(formula("A*2"));
    as_map(t.root["List"])->append(length(0.5));
    const struct {
        const char* path;
        int depth;
        const char* text;
    } rows[] = {
        {"", 0,
         "level \"L\" {\n"
         "  A = 2\n"
         "  B = 4\n"
         "  Map {\n"
         "    C = 1\n"
         "    Inner {\n"
         "      Text = a b\n"
         "    }\n"
         "    Empty {}\n"
         "  }\n"
         "  List {\n"
         "    [0] = A*2\n"
         "    [1] = 0.5\n"
         "  }\n"
         "}\n"},
        {"Map.Inner", 1, "  Inner {\n    Text = a b\n  }\n"},
        {"Map.Inner", -4, "Inner {\n  Text = a b\n}\n"},
        {"Map.Empty", 3, "      Empty {}\n"},
        {"List[1]", 2, "    [1] = 0.5\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(t.root[row.path]->print(row.depth), row.text) << row.path << " at " << row.depth;
    }
}

TEST(Print, XmlTypenames) {
    Tree t;
    EXPECT_EQ(t.root.get_xml_typename(), "level");
    EXPECT_EQ(t.root["Map"]->get_xml_typename(), "map");
    EXPECT_EQ(t.root["A"]->get_xml_typename(), "real");
    EXPECT_EQ(kapParameterNumeric(kapSubTypeAngle, kapDimensions(), 0).get_xml_typename(), "angle");
    EXPECT_EQ(kapParameterNumeric::create_bool(1)->get_xml_typename(), "bool");
    EXPECT_EQ(kapParameterError::create(3)->get_xml_typename(), "error");
}

// ---------------------------------------------------------------------------------------------
// The reported parameter

TEST(ModifyReport, TheRootReportsTheNamedParameter) {
    const struct {
        const char* written;
        const char* names;  // set_onmodify_param_name
        const char* reported;
    } rows[] = {
        {"Map.C", "", "Map.C"},
        {"Map.C", "Inner", "Map.Inner"},  // a sibling first
        {"Map.C", "B", "B"},              // then from the root
        {"A", "Map.Inner", "Map.Inner"},
        {"Map.C", "Nowhere", "Map.C"},  // a name that leads nowhere reports the written one
    };
    for (const auto& row : rows) {
        Tree t;
        t.root.add("Map.Inner", length(0));
        t.root.set_onmodify_callback(note_reported);
        t.root[row.written]->set_onmodify_param_name(row.names);
        g_reported = nullptr;
        {
            kapBlockParUpdateCallbacks blocked;
            ASSERT_TRUE(t.root[row.written]->set_double(7));
        }
        EXPECT_EQ(g_reported, nullptr) << row.written;
        EXPECT_EQ(t.root.get_modified_param_name(), row.reported) << row.written;
        ASSERT_TRUE(t.root[row.written]->set_double(8));
        EXPECT_EQ(g_reported, t.root[row.reported].pointer()) << row.written << " " << row.names;
    }
}

// ---------------------------------------------------------------------------------------------
// The lock holder

TEST(LockHolder, CopiesAndFixup) {
    auto holder = std::make_unique<kapParameterRoot>("toolpath", 29, "T");
    const kapObjectId holder_id = holder->get_id();
    Tree self_locked, held;
    self_locked.root.set_locked(true);
    held.root.set_locking_id(holder_id);

    kapParameterRoot self_copy(self_locked.root), held_copy(held.root);
    EXPECT_EQ(self_copy.get_locking_id(), self_copy.get_id());
    EXPECT_EQ(held_copy.get_locking_id(), holder_id);

    for (kapParameterRoot* r : {&self_locked.root, &held.root, &self_copy, &held_copy}) {
        r->fixup_locking_id();  // every holder is alive: nothing changes
    }
    EXPECT_TRUE(self_locked.root.root_locked() && held.root.root_locked() &&
                held_copy.root_locked());
    EXPECT_FALSE(held.root["A"]->set_double(1));

    holder.reset();
    held.root.fixup_locking_id();
    self_copy.fixup_locking_id();
    EXPECT_FALSE(held.root.root_locked());
    EXPECT_TRUE(held.root["A"]->set_double(1));
    EXPECT_TRUE(self_copy.root_locked());
    EXPECT_TRUE(held_copy.root_locked());  // until it is fixed up itself
}

// ---------------------------------------------------------------------------------------------
// Geometry conversions

bool same_bits(double a, double b) {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

TEST(GeometryConversions, VectorsRoundTripExactly) {
    const giVector3 values[] = {
        {0.1, -2.5, 1.0 / 3.0}, {1e-300, 1e300, -7}, {0, 0, 0}, {123456.789, -0.000001, 42}};
    for (const giVector3& v : values) {
        kapParameterPtr par = vec(3);
        giVector3 back(9, 9, 9);
        ASSERT_TRUE(kapParameterUtils::from_givector3(par, v));
        ASSERT_TRUE(kapParameterUtils::to_givector3(par, back));
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(same_bits(back[i], v[i])) << back[i] << " != " << v[i];
        }
        ASSERT_TRUE(kapParameterUtils::from_gipoint3(par, giPoint3(v)));
        ASSERT_TRUE(kapParameterUtils::to_givector3(par, back));
        EXPECT_EQ(back, v);
    }
    giVector3 untouched(1, 2, 3);
    EXPECT_FALSE(kapParameterUtils::from_givector3(vec(2), untouched));
    EXPECT_FALSE(kapParameterUtils::to_givector3(vec(4), untouched));
    EXPECT_FALSE(kapParameterUtils::to_givector3(length(1), untouched));
    EXPECT_EQ(untouched, giVector3(1, 2, 3));
}

TEST(GeometryConversions, WorkplaneFillsTheAxesAMapHas) {
    Tree t;
    t.root.add("WPlane", map());
    for (const char* name : {"Origin", "YAxis", "ZAxis"}) {
        t.root.add(std::string("WPlane.") + name, vec(3));
    }
    const giWorkplane3 wp(giPoint3(1, 2, 3), giVector3(0, 1, 0), giVector3(-1, 0, 0),
                          giVector3(0, 0, 1));
    ASSERT_TRUE(kapParameterUtils::from_giworkplane3(t.root["WPlane"], wp));
    EXPECT_EQ(t.root["WPlane.Origin"]->get_string(), "(1;2;3)");
    EXPECT_EQ(t.root["WPlane.YAxis"]->get_string(), "(-1;0;0)");
    ASSERT_TRUE(kapParameterUtils::from_giworkplane3(t.root["WPlane"], giWorkplane3()));
    EXPECT_EQ(t.root["WPlane.Origin"]->get_string(), "(0;0;0)");
    EXPECT_EQ(t.root["WPlane.YAxis"]->get_string(), "(0;1;0)");

    t.root.set_locked(true);
    EXPECT_FALSE(kapParameterUtils::from_giworkplane3(t.root["WPlane"], wp));
    EXPECT_EQ(t.root["WPlane.YAxis"]->get_string(), "(0;1;0)");
    EXPECT_FALSE(kapParameterUtils::from_giworkplane3(t.root["A"], wp));
}

}  // namespace
