// Evaluating expressions against a scope: comparisons, connectives, precedence, arithmetic,
// built-ins, calls through the scope, node references, errors with offsets, cycles and depth.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <variant>

#include "expr_test_scope.h"

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

using Expected = std::variant<bool, double, const char*>;

void expect_value(const kapExprValue& v, const Expected& want, const std::string& text) {
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

TEST_F(ExprEval, ComparisonsAndConnectives) {
    struct Case {
        const char* text;
        bool want;
    };
    // clang-format off
    const Case cases[] = {
        {"Type=='level'", true},            {"Type == 'set'", false},
        {"Type!='level'", false},           {"'level'==Type", true},
        {"Type==\"level\"", true},          {"type=='level'", true},   // names ignore case
        {"Type=='Level'", false},                                       // texts do not
        {"Type=='level' AND Strategy=='raster'", true},
        {"Type=='level' and Strategy=='x'", false},
        {"Type=='level' And Strategy=='raster'", true},
        {"Type=='level' && Strategy=='raster'", true},
        {"Type=='x' OR Strategy=='raster'", true},
        {"Type=='x' or Strategy=='x'", false},
        {"Type=='x' Or Strategy=='raster'", true},
        {"Type=='x' || Strategy=='raster'", true},
        {"Type=='rest' OR Type=='stockmodel_rest' OR Type=='penciled_in_rest'", false},
        {"RootPar.Rapid.SafeArea == 'plane'", true},
        {"(RootPar.Rapid.SafeArea == 'plane' AND !Connections.Polar) OR RootPar.Rapid.SafeArea == 'box'", false},
        {"(Rootpar.Rapid.SafeArea == 'plane' AND Connections.Polar) OR RootPar.Rapid.SafeArea == 'box'", true},
        {"CollisionCheck OR Type=='collision'", false},
        {"CollisionCheck OR Type=='level'", true},
        {"!Connections.Polar", false},
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
    };
    // clang-format on
    for (const Case& c : cases)
        expect_value(eval(c.text), c.want, c.text);
}

TEST_F(ExprEval, Arithmetic) {
    struct Case {
        const char* text;
        double want;
    };
    // clang-format off
    const Case cases[] = {
        {"1+2*3", 7},          {"(1+2)*3", 9},        {"10-4-3", 3},         {"8/4/2", 1},
        {"2*3-4/2", 4},        {"-2*3", -6},          {"-(2+3)", -5},        {"+4", 4},
        {"--4", 4},            {"2*-3", -6},          {"1e-3", 0.001},       {".5", 0.5},
        {"5.", 5},             {"1.5E+2", 150},       {"2e2*1", 200},        {"Tolerance*100", 2},
        {"2*Rootpar.Tolerance", 0.2},                 {"max(0.3;2*Rootpar.Tolerance)", 0.3},
        {"max(0.3,2*RootPar.Tolerance)", 0.3},        {"max(0.01;2*ROOTPAR.TOLERANCE)", 0.2},
        {"5*Tolerance- 0.5", -0.4},                   {"Five * 2", 10},
        {"Flag + 1", 2},       {"min(3;1;2)", 1},     {"max(3;1;2;7)", 7},   {"min(-1;-2)", -2},
        {"stdlib.max(1;2)", 2},
        {"select(1;10;20)", 10},                      {"select(0;10;20)", 20},
        {"select(Type=='level';1;1/0)", 1},           // the other branch is not evaluated
        {"abs(-2.5)", 2.5},    {"sqrt(16)", 4},       {"floor(-1.5)", -2},   {"ceil(1.2)", 2},
        {"round(2.5)", 3},     {"round(-2.5)", -3},   {"pow(2;10)", 1024},   {"exp(0)", 1},
        {"log(exp(2))", 2},
        // angles in degrees, exact at multiples of 90
        {"sin(90)", 1},        {"sin(180)", 0},       {"sin(-90)", -1},      {"sin(720)", 0},
        {"cos(90)", 0},        {"cos(180)", -1},      {"cos(0)", 1},         {"cos(-270)", 0},
        {"tan(45)", 1},        {"tan(-135)", 1},      {"tan(180)", 0},
        {"sin(30)", 0.5},      {"cos(60)", 0.5},      {"asin(1)", 90},       {"acos(-1)", 180},
        {"atan(1)", 45},       {"atan2(1;1)", 45},    {"atan2(1;-1)", 135},  {"atan2(0;-1)", 180},
        {"7", 7},              // one byte
        {"deg(rad(30))", 30},  {"rad(180)", 3.141592653589793},              {"deg(1)", 57.29577951308232},
    };
    // clang-format on
    for (const Case& c : cases) {
        expect_value(eval(c.text), c.want, c.text);
        // The postfix program, where the text has one, gives the same number.
        const kapExprValue n = kapExpr::compile(c.text)->evaluate_number(s);
        ASSERT_TRUE(n.is_number()) << c.text;
        EXPECT_NEAR(n.number(), c.want, 1e-12) << c.text;
    }
}

// Errors: the code, and the offset in the text where the fault lies.
TEST_F(ExprEval, ErrorsCarryCodeAndOffset) {
    struct Case {
        const char* text;
        int code;
        int offset;
    };
    // clang-format off
    const Case cases[] = {
        {"1/0",                      kapErrDivideByZero, 1},
        {"Tolerance / (Type=='set')", kapErrDivideByZero, 10},
        {"2 * (1/(Five-5))",         kapErrDivideByZero, 6},
        {"Missing + 1",              kapErrNoItem, 0},
        {"2 * Missing.Child[3]",     kapErrNoItem, 4},
        {"Missing OR 1",             kapErrNoItem, 0},
        {"RootPar.Type == 'level'",  kapErrNoItem, 0},  // RootPar.Type is not Type
        {"{tool}.Type",              kapErrNoItem, 0},
        {"Unknown()",                kapErrNoItem, 0},
        {"Max(1;2)",                 kapErrNoItem, 0},  // built-ins are case-sensitive
        {"1 + Failing()",            kapErrType, 4},
        {"Type * 2",                 kapErrType, 5},
        {"-Type",                    kapErrType, 0},
        {"Type AND 1",               kapErrType, 0},
        {"1 AND Type",               kapErrType, 6},
        {"!Strategy",                kapErrType, 1},
        {"Type < 1",                 kapErrType, 5},
        {"'abc' == 1",               kapErrType, 6},
        {"max(1;Type)",              kapErrType, 0},
        {"select(Type;1;2)",         kapErrType, 7},
        {"sqrt(-1)",                 kapErrDomain, 0},
        {"1 + log(0)",               kapErrDomain, 4},
        {"asin(2)",                  kapErrDomain, 0},
        {"acos(-1.5)",               kapErrDomain, 0},
        {"tan(90)",                  kapErrDomain, 0},
        {"tan(-270)",                kapErrDomain, 0},
        {"pow(10;400)",              kapErrDomain, 0},
        {"1e300*1e300",              kapErrDomain, 5},
        {"exp(1000)",                kapErrDomain, 0},
        {"${1/0}",                   kapErrDivideByZero, 3},  // offsets count the "${"
        {"stepover_from_cusp(1;2)",  kapErrBadCall, 0},
        {"f(Missing)",               kapErrNoItem, 2},   // arguments fail before the call
    };
    // clang-format on
    for (const Case& c : cases) {
        const kapExprValue v = eval(c.text);
        ASSERT_TRUE(v.is_error()) << c.text;
        EXPECT_EQ(v.error_code(), c.code) << c.text << ": " << v.text();
        EXPECT_EQ(v.error_offset(), c.offset) << c.text << ": " << v.text();
        EXPECT_FALSE(v.error().message.empty()) << c.text;
    }
    // A text that does not compile answers its compile error.
    const kapExprValue v = eval("Type ==");
    EXPECT_EQ(v.error_code(), kapErrSyntax);
    EXPECT_EQ(v.error_offset(), 7);
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
    const kapExprValue n = kapExpr::compile("RootPar.Tolerance")->evaluate_number(s);
    ASSERT_TRUE(n.is_number());
    EXPECT_EQ(n.number(), 0.1);
    EXPECT_EQ(kapExpr::compile("Type")->evaluate_number(s).error_code(), kapErrType);
    EXPECT_EQ(kapExpr::compile("Type")->evaluate_bool(s).error_code(), kapErrType);
    EXPECT_TRUE(kapExpr::compile("Connections.Polar")->evaluate_bool(s).boolean());
    EXPECT_FALSE(kapExpr::compile("Empty")->evaluate_bool(s).boolean());
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

// Texts are borrowed from the compiled form and the scope: evaluation copies no text.
TEST_F(ExprEval, LiteralTextsAreViewsIntoTheCompiledText) {
    const auto c = kapExpr::compile("select(0;1;'standard')");
    const kapExprValue v = c->evaluate(s);
    ASSERT_TRUE(v.is_text());
    EXPECT_GE(v.text().data(), c->text().data());
    EXPECT_LT(v.text().data(), c->text().data() + c->text().size());
}

// Expressions reading each other through the scope: a cycle is an error, not a hang.
TEST_F(ExprEval, CyclesAreErrors) {
    s.set_expr("A", "B + 1");
    s.set_expr("B", "C * 2");
    s.set_expr("C", "A");
    s.set_expr("D", "C");
    s.set_expr("Self", "Self OR 1");
    s.set_expr("Ok", "Tolerance * 10");
    s.set_expr("UsesOk", "Ok + Ok");
    for (const char* t : {"A", "B + 0", "D == 1", "Self", "1 + A"}) {
        const kapExprValue v = kapExpr::compile(t)->evaluate_number(s);
        ASSERT_TRUE(v.is_error()) << t;
        EXPECT_EQ(v.error_code(), kapErrCycle) << t << ": " << v.text();
    }
    // Reading one value twice is no cycle.
    expect_value(kapExpr::compile("UsesOk")->evaluate_number(s), 0.4, "UsesOk");
}

// A long chain of expressions through the scope ends in an error, not a stack overflow.
TEST_F(ExprEval, LongChainsAreBounded) {
    const int n = 5000;
    for (int i = 0; i < n; ++i)
        s.set_expr("P" + std::to_string(i), "P" + std::to_string(i + 1) + " + 1");
    s.set("P" + std::to_string(n), 0.0);
    const kapExprValue v = kapExpr::compile("P0")->evaluate_number(s);
    ASSERT_TRUE(v.is_error());
    EXPECT_EQ(v.error_code(), kapErrTooDeep) << v.text();
    // A short chain is fine, and the per-thread budget is given back afterwards.
    s.set("P10", 0.0);
    expect_value(kapExpr::compile("P0")->evaluate_number(s), 10.0, "P0");
    expect_value(kapExpr::compile("P5")->evaluate_number(s), 5.0, "P5");
}

// The same compiled text gives each scope its own answer.
TEST_F(ExprEval, OneCompiledFormManyScopes) {
    const auto c = kapExpr::compile("Type=='level'");
    ExprTestScope other;
    other.set("Type", "set");
    expect_value(c->evaluate(s), true, "s");
    expect_value(c->evaluate(other), false, "other");
    EXPECT_EQ(c->evaluate(ExprTestScope()).error_code(), kapErrNoItem);
}

TEST(ExprValue, KindsAndConversions) {
    const kapExprValue n = kapExprValue::from_number(2.5);
    EXPECT_TRUE(n.is_number());
    EXPECT_EQ(n.number(), 2.5);
    EXPECT_TRUE(n.boolean());
    EXPECT_EQ(kapExprValue::from_bool(true).number(), 1.0);
    EXPECT_TRUE(kapExprValue().is_none());

    std::string owned = "computed";
    const kapExprValue t = kapExprValue::from_owned_text(owned);
    owned = "changed";
    const kapExprValue copy = t;  // copies share the owned text
    EXPECT_EQ(copy.text(), "computed");

    const kapExprValue e = kapExprValue::from_error(kapErrCycle, "loop", 4);
    EXPECT_EQ(e.error_code(), kapErrCycle);
    EXPECT_EQ(e.error().offset, 4);
    EXPECT_EQ(e.error().message, "loop");
    EXPECT_EQ(n.error_code(), kapErrNone);

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

TEST(ExprGuard, NestsAndDetectsReentry) {
    int a = 0, b = 0;
    {
        kapExprGuard ga(&a);
        EXPECT_TRUE(ga.ok());
        {
            kapExprGuard gb(&b);
            EXPECT_TRUE(gb.ok());
            kapExprGuard again(&a);
            EXPECT_FALSE(again.ok());
            EXPECT_EQ(again.error().error_code(), kapErrCycle);
        }
        kapExprGuard b2(&b);  // b was released
        EXPECT_TRUE(b2.ok());
    }
    kapExprGuard a2(&a);
    EXPECT_TRUE(a2.ok());
}

}  // namespace
