// Compiling and evaluating expressions against a scope: one table of texts and their answers
// (a value, or an error code at an offset in the text), the names a text reads, paths, nesting
// bounds, the cache, calls through the scope, node references, cycles and the text helpers.

#include <gtest/gtest.h>

#include <cmath>
#include <locale>
#include <string>
#include <variant>
#include <vector>

#include "expr_test_scope.h"
#include "kapparameter/kapEvaluator.h"
#include "utils/utString.h"

namespace {

// A tree that looks like a toolpath's, with a tool and a global toolpath entity.
class ExprEval : public ::testing::Test {
  protected:
    void SetUp() override {
        s.set("Type", "level");
        s.set("Strategy", "raster");
        s.set("CollisionCheck", 0.0);
        s.set("CheckCollisions", 1.0);
        s.set("Connections.Polar", 1.0);
        s.set("Connections.LeadIn[0].Type", "none");
        s.set("RootPar.Rapid.SafeArea", "plane");
        s.set("RootPar.Tolerance", 0.1);
        s.set("Tolerance", 0.02);
        s.set("ThicknessSetValues[16].Mode", "off");
        s.set("{toolpath}.AreaClearance.Type", "adaptive");
        s.set("UsePlanarSkim", 1.0).active = false;
        s.set("ShallowStepover.Active", 1.0);
        s.set("Flag", kapExprValue::from_bool(true));
        s.set("Empty", "");
        s.set("Five", "5");
        s.set("UserDefined", 0.0);
        s.set("UserToolOrientation", "reversed");
        s.set("StepoverCusp", 0.25);
        s.set("Tool", "tool-ref");
        s.define("IsTurning", [](auto) { return kapExprValue::from_bool(false); });
        s.define("Tool.IsTurning", [](auto) { return kapExprValue::from_bool(true); });
        s.define("ToolOrientationF", [](auto) { return kapExprValue::from_text("standard"); });
        s.define("Failing", [](auto) {
            return kapExprValue::from_error(kapErrType, "no tool");  // no offset: set later
        });
        // Receives node references and reads them through the scope.
        s.define("stepover_from_cusp", [this](std::span<const kapExprValue> args) {
            if (args.size() != 2 || !args[0].is_node() || !args[1].is_node())
                return kapExprValue::from_error(kapErrBadCall, "two parameters expected");
            const kapExprValue cusp = kapExpr::to_number(args[0]);
            ++stepover_calls;
            return kapExprValue::from_number(cusp.number() * 4);
        });
    }

    kapExprValue eval(const std::string& text) { return kapExpr::compile(text)->evaluate(s); }

    ExprTestScope s;
    int stepover_calls = 0;
};

struct Err {
    int code;
    int offset;
};
using Want = std::variant<bool, double, const char*, Err>;

void expect_value(const kapExprValue& v, const Want& want, const std::string& text) {
    if (std::holds_alternative<Err>(want)) {
        ASSERT_TRUE(v.is_error()) << text;
        EXPECT_EQ(v.error_code(), std::get<Err>(want).code) << text << ": " << v.text();
        EXPECT_EQ(v.error_offset(), std::get<Err>(want).offset) << text << ": " << v.text();
        EXPECT_FALSE(v.error().message.empty()) << text;
        return;
    }
    ASSERT_FALSE(v.is_error()) << text << ": " << v.text() << " at " << v.error_offset();
    const kapExprValue p = kapExpr::to_plain(v);
    if (std::holds_alternative<bool>(want)) {
        const kapExprValue b = kapExpr::to_bool(p);
        ASSERT_TRUE(b.is_bool()) << text << ": " << b.text();
        EXPECT_EQ(b.boolean(), std::get<bool>(want)) << text;
    } else if (std::holds_alternative<double>(want)) {
        ASSERT_TRUE(p.is_number()) << text;
        EXPECT_NEAR(p.number(), std::get<double>(want), 1e-12) << text;
    } else {
        ASSERT_TRUE(p.is_text()) << text;
        EXPECT_EQ(p.text(), std::get<const char*>(want)) << text;
    }
}

// Every way of evaluating a text agrees with the full evaluation: as a number, as a condition,
// and the quick evaluation wherever it answers.
void expect_same_by_every_road(const kapExprCompiled& c, const ExprTestScope& s, const Want& want) {
    const std::string& text = c.text();
    double number = -99;
    bool truth = false;
    const int quick_num = c.evaluate_quick(s, false, number, truth);
    const int quick_bool = c.evaluate_quick(s, true, number, truth);
    const int condition = c.evaluate_condition(s);
    if (std::holds_alternative<Err>(want)) {
        EXPECT_NE(quick_num, 1) << text;
        EXPECT_NE(quick_bool, 1) << text;
        EXPECT_EQ(condition, -1) << text;
        return;
    }
    if (std::holds_alternative<double>(want)) {
        const double w = std::get<double>(want);
        const kapExprValue n = c.evaluate_number(s);
        ASSERT_TRUE(n.is_number()) << text << ": " << n.text();
        EXPECT_NEAR(n.number(), w, 1e-12) << text;
        EXPECT_NE(quick_num, 0) << text;
        if (c.evaluate_quick(s, false, number, truth) == 1) {
            EXPECT_NEAR(number, w, 1e-12) << text;
        }
        EXPECT_EQ(condition, w != 0 ? 1 : 0) << text;
    }
    if (std::holds_alternative<bool>(want)) {
        const bool w = std::get<bool>(want);
        const kapExprValue b = c.evaluate_bool(s);
        ASSERT_TRUE(b.is_bool()) << text << ": " << b.text();
        EXPECT_EQ(b.boolean(), w) << text;
        EXPECT_EQ(condition, w ? 1 : 0) << text;
        EXPECT_NE(quick_bool, 0) << text;
        if (c.evaluate_quick(s, true, number, truth) == 1) {
            EXPECT_EQ(truth, w) << text;
        }
    }
}

// Texts and their answers. Offsets are in the text as given.
TEST_F(ExprEval, TextsAndTheirAnswers) {
    struct Case {
        const char* text;
        Want want;
    };
    // clang-format off
    const Case cases[] = {
        // comparisons and connectives
        {"Type=='level'", true},            {"Type == 'set'", false},
        {"Type!='level'", false},           {"'level'==Type", true},
        {"Type==\"level\"", true},          {"type=='level'", true},   // names ignore case
        {"Type=='Level'", false},                                       // texts do not
        {"Type=='level' AND Strategy=='raster'", true},
        {"Type=='level' and Strategy=='x'", false},
        {"Type=='level' && Strategy=='raster'", true},
        {"Type=='x' OR Strategy=='raster'", true},
        {"Type=='x' or Strategy=='x'", false},
        {"Type=='x' || Strategy=='raster'", true},
        {"Type=='rest' OR Type=='stockmodel_rest' OR Type=='penciled_in_rest'", false},
        {"RootPar.Rapid.SafeArea == 'plane'", true},
        {"(RootPar.Rapid.SafeArea == 'plane' AND !Connections.Polar) OR RootPar.Rapid.SafeArea == 'box'", false},
        {"(Rootpar.Rapid.SafeArea == 'plane' AND Connections.Polar) OR RootPar.Rapid.SafeArea == 'box'", true},
        {"CollisionCheck OR Type=='collision'", false},
        {"CollisionCheck OR Type=='level'", true},
        {"!Connections.Polar", false},     {"Connections.Polar", true},
        {"!IsTurning()", true},
        {"Tool.IsTurning()", true},
        {"!Tool.IsTurning() OR IsTurning()", false},
        {"(CheckCollisions == 1)", true},
        {"(CheckCollisions == 1) AND (CheckCollisions==0)", false},
        {"Connections.LeadIn[0].Type != 'none'", false},
        {"ThicknessSetValues[16].Mode=='off'", true},
        {"{toolpath}.AreaClearance.Type == 'adaptive'", true},
        {"Flag", true},                     {"!Flag", false},
        {"Flag == 1", true},                {"Flag == 'true'", true},
        {"Five == 5", true},                {"Five < 10", true},      // a text that reads as a number
        {"Five == '5.0'", false},                                     // texts compare byte for byte
        {"'abc' < 'abd'", true},            {"'B' < 'a'", true},       {"'ab' < 'a'", false},
        {"'a' <= 'a'", true},               {"'b' >= 'a'", true},      {"'b' > 'a'", true},
        {"1 < 2", true},                    {"2 <= 2", true},          {"3 > 2", true},
        {"2 >= 3", false},                  {"0.1 + 0.2 == 0.3", false},  // exact comparison
        // the same comparisons on a parameter, where they are not folded
        {"Tolerance > 0.02", false},  {"Tolerance >= 0.02", true},  {"Tolerance < 0.02", false},
        {"Tolerance <= 0.02", true},  {"Tolerance != 0.02", false}, {"Tolerance > 0.01", true},
        {"Empty", false},                   {"!Empty", true},
        {"true", true},                     {"FALSE", false},          {"(false)", false},
        {"TRUE AND True", true},
        // precedence: unary > * / > + - > comparison > AND > OR
        {"1 OR 0 AND 0", true},             {"(1 OR 0) AND 0", false},
        {"0 AND 0 OR 1", true},             {"!0 AND 0", false},
        {"!(0 AND 0)", true},               {"1 + 1 == 2", true},
        {"2 * 3 == 6 AND 1 < 2", true},     {"1 < 2 == 1", true},
        {"-1 < 0", true},                   {"!1 == 0", true},
        // short circuit: the side not needed is not evaluated (Missing would be an error)
        {"1 OR Missing", true},             {"0 AND Missing", false},
        {"Type=='level' OR 1/0", true},
        // active()
        {"active(UsePlanarSkim)", false},   {"active(Type)", true},
        {"stdlib.active(Missing)", false},
        {"stdlib.active(ShallowStepover.Active) AND ShallowStepover.Active", true},
        {"active(Missing) AND Missing", false},
        // arithmetic and built-ins
        {"1+2*3", 7.0},          {"(1+2)*3", 9.0},        {"10-4-3", 3.0},         {"8/4/2", 1.0},
        {"2*3-4/2", 4.0},        {"-2*3", -6.0},          {"-(2+3)", -5.0},        {"+4", 4.0},
        {"--4", 4.0},            {"2*-3", -6.0},          {"1e-3", 0.001},         {".5", 0.5},
        {"-.5", -0.5},           {"2-.5", 1.5},
        {"5.", 5.0},             {"1.5E+2", 150.0},       {"2e2*1", 200.0},        {"Tolerance*100", 2.0},
        {"Tolerance/4", 0.005},  // not folded: the division is run
        {"RootPar.Tolerance", 0.1},
        {"2*Rootpar.Tolerance", 0.2},                 {"max(0.3;2*Rootpar.Tolerance)", 0.3},
        {"max(0.3,2*RootPar.Tolerance)", 0.3},        {"max(0.01;2*ROOTPAR.TOLERANCE)", 0.2},
        {"5*Tolerance- 0.5", -0.4},                   {"Five * 2", 10.0},
        {"Flag + 1", 2.0},       {"min(3;1;2)", 1.0},     {"max(3;1;2;7)", 7.0},   {"min(-1;-2)", -2.0},
        {"stdlib.max(1;2)", 2.0},
        {"select(1;10;20)", 10.0},                      {"select(0;10;20)", 20.0},
        {"select(Type=='level';1;1/0)", 1.0},           // the other branch is not evaluated
        {"abs(-2.5)", 2.5},    {"sqrt(16)", 4.0},       {"floor(-1.5)", -2.0},   {"ceil(1.2)", 2.0},
        {"round(2.5)", 3.0},     {"round(-2.5)", -3.0},   {"pow(2;10)", 1024.0},   {"exp(0)", 1.0},
        {"log(exp(2))", 2.0},
        // angles in degrees, exact at multiples of 90
        {"sin(90)", 1.0},        {"sin(180)", 0.0},       {"sin(-90)", -1.0},      {"sin(720)", 0.0},
        {"cos(90)", 0.0},        {"cos(180)", -1.0},      {"cos(0)", 1.0},         {"cos(-270)", 0.0},
        {"tan(45)", 1.0},        {"tan(-135)", 1.0},      {"tan(180)", 0.0},
        {"sin(30)", 0.5},      {"cos(60)", 0.5},      {"asin(1)", 90.0},       {"acos(-1)", 180.0},
        {"atan(1)", 45.0},       {"atan2(1;1)", 45.0},    {"atan2(1;-1)", 135.0},  {"atan2(0;-1)", 180.0},
        {"7", 7.0},              // one byte
        {"deg(rad(30))", 30.0},  {"rad(180)", 3.141592653589793},              {"deg(1)", 57.29577951308232},
        // errors found when evaluating
        {"1/0",                      Err{kapErrDivideByZero, 1}},
        {"Tolerance / (Type=='set')", Err{kapErrDivideByZero, 10}},
        {"2 * (1/(Five-5))",         Err{kapErrDivideByZero, 6}},
        {"Missing + 1",              Err{kapErrNoItem, 0}},
        {"2 * Missing.Child[3]",     Err{kapErrNoItem, 4}},
        {"Missing OR 1",             Err{kapErrNoItem, 0}},
        {"RootPar.Type == 'level'",  Err{kapErrNoItem, 0}},  // RootPar.Type is not Type
        {"{tool}.Type",              Err{kapErrNoItem, 0}},
        {"Unknown()",                Err{kapErrNoItem, 0}},
        {"Max(1;2)",                 Err{kapErrNoItem, 0}},  // built-ins are case-sensitive
        {"1 + Failing()",            Err{kapErrType, 4}},
        {"Type * 2",                 Err{kapErrType, 5}},
        {"-Type",                    Err{kapErrType, 0}},
        {"Type AND 1",               Err{kapErrType, 0}},
        {"1 AND Type",               Err{kapErrType, 6}},
        {"!Strategy",                Err{kapErrType, 1}},
        {"Type < 1",                 Err{kapErrType, 5}},
        {"'abc' == 1",               Err{kapErrType, 6}},
        {"max(1;Type)",              Err{kapErrType, 0}},
        {"select(Type;1;2)",         Err{kapErrType, 7}},
        {"sqrt(-1)",                 Err{kapErrDomain, 0}},
        {"1 + log(0)",               Err{kapErrDomain, 4}},
        {"asin(2)",                  Err{kapErrDomain, 0}},
        {"acos(-1.5)",               Err{kapErrDomain, 0}},
        {"tan(90)",                  Err{kapErrDomain, 0}},
        {"tan(-270)",                Err{kapErrDomain, 0}},
        {"pow(10;400)",              Err{kapErrDomain, 0}},
        {"1e300*1e300",              Err{kapErrDomain, 5}},
        {"exp(1000)",                Err{kapErrDomain, 0}},
        {"${1/0}",                   Err{kapErrDivideByZero, 3}},  // offsets count the "${"
        {"stepover_from_cusp(1;2)",  Err{kapErrBadCall, 0}},
        {"f(Missing)",               Err{kapErrNoItem, 2}},   // arguments fail before the call
        // errors found when compiling
        {"",                 Err{kapErrSyntax, 0}},
        {"   ",              Err{kapErrSyntax, 3}},
        {"Type==",           Err{kapErrSyntax, 6}},
        {"Type = 'level'",   Err{kapErrSyntax, 5}},
        {"(1+2",             Err{kapErrSyntax, 4}},
        {"1+2)",             Err{kapErrSyntax, 3}},
        {"'level",           Err{kapErrSyntax, 0}},
        {"Type=='level",     Err{kapErrSyntax, 6}},
        {"a..b",             Err{kapErrSyntax, 2}},
        {"a.",               Err{kapErrSyntax, 2}},
        {"a[x]",             Err{kapErrSyntax, 1}},
        {"a[]",              Err{kapErrSyntax, 1}},
        {"a[99999999999]",   Err{kapErrSyntax, 1}},
        {"{toolpath",        Err{kapErrSyntax, 9}},
        {"{}.A",             Err{kapErrSyntax, 1}},
        {"1 # 2",            Err{kapErrSyntax, 2}},
        {"A & B",            Err{kapErrSyntax, 2}},
        {"A | B",            Err{kapErrSyntax, 2}},
        {"1 2",              Err{kapErrSyntax, 2}},
        {"Type 'a'",         Err{kapErrSyntax, 5}},
        {"f(1;;2)",          Err{kapErrSyntax, 4}},
        {"f(1 2)",           Err{kapErrSyntax, 4}},
        {"f(1;2",            Err{kapErrSyntax, 5}},
        {"AND B",            Err{kapErrSyntax, 0}},
        {"A OR",             Err{kapErrSyntax, 4}},
        {"1e999",            Err{kapErrSyntax, 0}},
        {"2e",               Err{kapErrSyntax, 1}},
        {"max(1)",           Err{kapErrBadCall, 0}},
        {"1 + stdlib.min(1)", Err{kapErrBadCall, 4}},
        {"select(1;2)",      Err{kapErrBadCall, 0}},
        {"abs(1;2)",         Err{kapErrBadCall, 0}},
        {"sqrt()",           Err{kapErrBadCall, 0}},
        {"active(1+2)",      Err{kapErrBadCall, 8}},
        {"${1 +}",           Err{kapErrSyntax, 5}},
        {"${)}",             Err{kapErrSyntax, 2}},
    };
    // clang-format on
    for (const Case& c : cases) {
        const auto compiled = kapExpr::compile(c.text);
        ASSERT_NE(compiled, nullptr);
        EXPECT_EQ(compiled->text(), c.text);
        expect_value(compiled->evaluate(s), c.want, c.text);
        expect_same_by_every_road(*compiled, s, c.want);
        // A text that does not compile reads no names.
        if (!compiled->ok()) {
            EXPECT_EQ(compiled->names().size(), 0u) << c.text;
        }
    }
}

// A bare name answers the parameter itself; select() answers the chosen parameter.
TEST_F(ExprEval, NamesAnswerNodes) {
    const kapExprValue t = eval("Type");
    ASSERT_TRUE(t.is_node());
    EXPECT_EQ(t.node(), s.find("Type"));
    EXPECT_EQ(t.scope(), &s);

    const auto sel =
        kapExpr::compile("${select(UserDefined;UserToolOrientation;ToolOrientationF())}");
    ASSERT_TRUE(sel->ok());
    expect_value(sel->evaluate(s), "standard", "select, not user defined");
    s.set("UserDefined", 1.0);
    const kapExprValue chosen = sel->evaluate(s);
    ASSERT_TRUE(chosen.is_node());
    EXPECT_EQ(chosen.node(), s.find("UserToolOrientation"));
    expect_value(chosen, "reversed", "select, user defined");

    // evaluate_number / evaluate_bool read the node through the scope.
    EXPECT_EQ(kapExpr::compile("Type")->evaluate_number(s).error_code(), kapErrType);
    EXPECT_EQ(kapExpr::compile("Type")->evaluate_bool(s).error_code(), kapErrType);
}

// Scope functions get their arguments evaluated, parameters as node references.
TEST_F(ExprEval, CallsGoToTheScope) {
    expect_value(eval("stepover_from_cusp(StepoverCusp;Tool)"), 1.0, "stepover_from_cusp");
    EXPECT_EQ(stepover_calls, 1);
    expect_value(eval("stepover_from_cusp(StepoverCusp,Tool) * 2"), 2.0, "comma separator");
    // Built-ins never reach the scope.
    s.calls = 0;
    expect_value(eval("max(1;2) + stdlib.min(1;2) + abs(-1)"), 4.0, "built-ins");
    EXPECT_EQ(s.calls, 0);
    // A constant text needs no scope at all.
    s.resolves = 0;
    expect_value(eval("2*3 == 6 AND sin(90) == 1"), true, "constant");
    EXPECT_EQ(s.resolves, 0);
}

TEST(ExprValue, KindsAndConversions) {
    struct Case {
        kapExprValue v;
        int number_code;
        double number;
        int bool_code;
        bool truth;
    };
    const Case cases[] = {
        {kapExprValue::from_number(0), kapErrNone, 0, kapErrNone, false},
        {kapExprValue::from_number(-3), kapErrNone, -3, kapErrNone, true},
        {kapExprValue::from_bool(true), kapErrNone, 1, kapErrNone, true},
        {kapExprValue::from_text("2.5"), kapErrNone, 2.5, kapErrNone, true},
        {kapExprValue::from_text("0"), kapErrNone, 0, kapErrNone, false},
        {kapExprValue::from_text("True"), kapErrNone, 1, kapErrNone, true},
        {kapExprValue::from_text("false"), kapErrNone, 0, kapErrNone, false},
        {kapExprValue::from_text(""), kapErrType, 0, kapErrNone, false},
        {kapExprValue::from_text("level"), kapErrType, 0, kapErrType, false},
        {kapExprValue(), kapErrType, 0, kapErrType, false},
        {kapExprValue::from_error(kapErrCycle, "x"), kapErrCycle, 0, kapErrCycle, false},
    };
    for (const Case& c : cases) {
        const kapExprValue num = kapExpr::to_number(c.v);
        EXPECT_EQ(num.error_code(), c.number_code) << c.v.text();
        if (c.number_code == kapErrNone) {
            EXPECT_EQ(num.number(), c.number) << c.v.text();
        }
        const kapExprValue b = kapExpr::to_bool(c.v);
        EXPECT_EQ(b.error_code(), c.bool_code) << c.v.text();
        if (c.bool_code == kapErrNone) {
            EXPECT_EQ(b.boolean(), c.truth) << c.v.text();
        }
    }
}

std::vector<std::string> texts_of(std::span<const kapExprPath> paths) {
    std::vector<std::string> out;
    for (const kapExprPath& p : paths)
        out.emplace_back(p.text);
    return out;
}

// The names a text reads: each once (letter case ignored), in order, built-ins excluded.
TEST(ExprCompile, NamesAndCalls) {
    struct Case {
        const char* text;
        std::vector<std::string> names;
        std::vector<std::string> calls;
    };
    // clang-format off
    const Case cases[] = {
        {"(RootPar.Rapid.SafeArea == 'plane' AND !Connections.Polar) OR RootPar.Rapid.SafeArea == 'box'",
         {"RootPar.Rapid.SafeArea", "Connections.Polar"}, {}},
        {"Type=='a' OR type=='b' OR TYPE=='c'", {"Type"}, {}},
        {"stdlib.active(ShallowStepover.Active) AND ShallowStepover.Active",
         {"ShallowStepover.Active"}, {}},
        {"select(UserDefined;UserDefinedHolderAngle;HolderAngleF())",
         {"UserDefined", "UserDefinedHolderAngle"}, {"HolderAngleF"}},
        {"cusp_from_stepover(ShallowStepover.Value;Tool)", {"ShallowStepover.Value", "Tool"},
         {"cusp_from_stepover"}},
        {"Tool.IsTurning() AND !IsTurning() AND Max(1;2)", {}, {"Tool.IsTurning", "IsTurning", "Max"}},
        {"max(0.3;2*Rootpar.Tolerance)", {"Rootpar.Tolerance"}, {}},
        {"1 + 2", {}, {}},
        // connectives and constants are words of the language, never names
        {"A and B or C && D || E", {"A", "B", "C", "D", "E"}, {}},
        {"Android OR true AND !FALSE", {"Android"}, {}},
    };
    // clang-format on
    for (const Case& c : cases) {
        const auto e = kapExpr::compile(c.text);
        ASSERT_TRUE(e->ok()) << c.text;
        EXPECT_EQ(texts_of(e->names()), c.names) << c.text;
        EXPECT_EQ(texts_of(e->calls()), c.calls) << c.text;
    }
}

std::string repeat(std::string_view s, int n) {
    std::string r;
    for (int i = 0; i < n; ++i)
        r += s;
    return r;
}

// Deep texts answer an error instead of overflowing the stack; moderate ones compile.
TEST(ExprCompile, NestingIsBounded) {
    const int deep = 10000;
    const std::string texts[] = {
        repeat("(", deep) + "1" + repeat(")", deep),
        repeat("!", deep) + "1",
        repeat("-", deep) + "1",
        repeat("-(", deep) + "1" + repeat(")", deep),
        "A" + repeat("+1", deep),
        "A" + repeat(" OR A", deep),
        repeat("max(1;", deep) + "1" + repeat(")", deep),
        repeat("f(", deep) + repeat(")", deep),
        repeat("(", deep),  // unbalanced as well
    };
    for (const std::string& t : texts) {
        const auto e = kapExpr::compile_uncached(t);
        EXPECT_FALSE(e->ok()) << t.substr(0, 20);
        EXPECT_EQ(e->error().code, kapErrTooDeep) << t.substr(0, 20) << " " << e->error().message;
    }
    const int fine = 200;
    for (const std::string& t : {repeat("(", fine) + "1" + repeat(")", fine),
                                 "A" + repeat(" OR A", fine), repeat("!", fine) + "A"}) {
        const auto e = kapExpr::compile_uncached(t);
        EXPECT_TRUE(e->ok()) << t.substr(0, 20) << " " << e->error().message;
        EXPECT_LE(e->depth(), kapExpr::max_depth);
    }
}

TEST(ExprCompile, ConstantsAreFolded) {
    struct Case {
        const char* text;
        bool constant;
    };
    const Case cases[] = {
        {"1+2*3", true},
        {"-(4/2)", true},
        {"max(1;2;sin(90))", true},
        {"'a'=='a'", true},
        {"!false AND true", true},
        {"1/0", false},  // kept: fails when run
        {"sqrt(-1)", false},
        {"A+1", false},
        {"select(1;A;B)", false},
        {"active(A)", false},
    };
    for (const Case& c : cases) {
        const auto e = kapExpr::compile(c.text);
        ASSERT_TRUE(e->ok()) << c.text;
        EXPECT_EQ(e->is_constant(), c.constant) << c.text;
    }
    // select() on a constant condition is its chosen branch; both names stay listed.
    const auto sel = kapExpr::compile("select(1;A;B)");
    EXPECT_EQ(sel->depth(), 1);
    EXPECT_EQ(texts_of(sel->names()), (std::vector<std::string>{"A", "B"}));
    // A long sum of constants folds as it is read, so it never grows deep.
    EXPECT_TRUE(kapExpr::compile_uncached("1" + repeat("+1", 10000))->is_constant());
}

TEST(ExprCache, SameTextSameObject) {
    const auto a = kapExpr::compile("Type=='cache_test'");
    const auto b = kapExpr::compile(std::string("Type==") + "'cache_test'");
    EXPECT_EQ(a.get(), b.get());
    EXPECT_NE(kapExpr::compile("Type=='cache_test2'").get(), a.get());
    EXPECT_NE(kapExpr::compile_uncached("Type=='cache_test'").get(), a.get());
    // Broken texts are cached too.
    EXPECT_EQ(kapExpr::compile("1 +").get(), kapExpr::compile("1 +").get());
    // Clearing keeps objects in use alive; the next compile makes a new one.
    kapExpr::clear_cache();
    EXPECT_EQ(kapExpr::cache_size(), 0u);
    EXPECT_EQ(a->text(), "Type=='cache_test'");
    EXPECT_NE(kapExpr::compile("Type=='cache_test'").get(), a.get());
}

TEST(ExprText, WrappedTexts) {
    struct Case {
        const char* text;
        bool wrapped;
        const char* inside;
    };
    const Case cases[] = {
        {"${a}", true, "a"},       {"${select(A;B;C)}", true, "select(A;B;C)"},
        {"${}", true, ""},         {"${{toolpath}.X}", true, "{toolpath}.X"},
        {"$a}", false, "$a}"},     {"${a", false, "${a"},
        {" ${a}", false, " ${a}"}, {"", false, ""},
        {"plain", false, "plain"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(kapExpr::is_wrapped(c.text), c.wrapped) << c.text;
        EXPECT_EQ(kapExpr::unwrap(c.text), c.inside) << c.text;
    }
    EXPECT_FALSE(kapExpr::compile("${}")->ok());
}

// Numbers are read and written in the C locale, whatever the process locale says.
TEST(ExprText, ParseAndFormatNumbers) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale saved = std::locale::global(std::locale(std::locale::classic(), new Comma));
    for (const char* t : {"max(0.3;2*Rootpar.Tolerance)", "(0;0;0)", "1.5e-3", ""})
        EXPECT_EQ(kapEvaluator::localize(t), t);
    struct Read {
        const char* text;
        bool ok;
        double value;
    };
    // Strict: one sign, and only spaces and tabs around; no hex, no infinities, no comma.
    // clang-format off
    const Read reads[] = {
        {"0", true, 0}, {"-1.5", true, -1.5}, {"+2", true, 2}, {" 3 ", true, 3},
        {".5", true, 0.5}, {"1e-3", true, 0.001}, {"5.", true, 5}, {"", false, 0},
        {"abc", false, 0}, {"1x", false, 0}, {"inf", false, 0}, {"nan", false, 0},
        {"--1", false, 0}, {"1,5", false, 0}, {"-", false, 0}, {"0x10", false, 0},
        {"+-5", false, 0}, {"\n5", false, 0}, {"5\r", false, 0}, {"\t-4 ", true, -4},
        {"1e999", false, 0}, {".", false, 0}, {"-.5", true, -0.5}, {"-.", false, 0},
        {"+.5e1", true, 5},
    };
    // clang-format on
    for (const Read& r : reads) {
        double v = -99;
        EXPECT_EQ(kapExpr::parse_number(r.text, v), r.ok) << r.text;
        if (r.ok) {
            EXPECT_EQ(v, r.value) << r.text;
        }
    }
    for (double v : {0.0, -0.0, 1.0, 0.1, -2.5, 1e-7, 1e21, 123456789.0, 1.0 / 3.0}) {
        const std::string t = kapExpr::format_number(v);
        double back = -99;
        EXPECT_TRUE(kapExpr::parse_number(t, back)) << t;
        EXPECT_EQ(back, v) << t;
    }
    EXPECT_EQ(kapExpr::format_number(-0.0), "0");
    EXPECT_EQ(kapExpr::format_number(3), "3");
    EXPECT_EQ(kapExpr::format_number(1234567.25), "1234567.25");
    std::locale::global(saved);
}

}  // namespace
