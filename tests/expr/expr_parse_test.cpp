// Compiling expressions: every form the schemas declare, the names a text reads, syntax errors
// with their offsets, nesting bounds, the cache and the text helpers.

#include <gtest/gtest.h>

#include <locale>
#include <string>
#include <thread>
#include <vector>

#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"
#include "utils/utString.h"

namespace {

// Activity conditions, defaults and functions as the entity schemas write them.
// clang-format off
const char* const declared_texts[] = {
    // schema declaration rules
    "Type=='level'",
    "max(0.3;2*Rootpar.Tolerance)",
    "2*Rootpar.Tolerance",
    "Type=='boundary'",
    "Type!='block'",
    "RootPar.Rapid.SafeArea == 'plane'",
    "Type=='rest' OR Type=='stockmodel_rest' OR Type=='penciled_in_rest'",
    "!IsTurning()",
    "!Connections.Polar",
    "(RootPar.Rapid.SafeArea == 'plane' AND !Connections.Polar) OR RootPar.Rapid.SafeArea == 'box'",
    "CollisionCheck OR Type=='collision'",
    "RootPar.Rapid.SafeArea",
    "Toolpath.Tolerance",
    "${select(UserDefined;UserToolOrientation;ToolOrientationF())}",
    "active(UsePlanarSkim)",
    "stdlib.active(SeparateFirstLeadIn)",
    "IsTurning()",
    "IsInspection()",
    // boundary
    "Type!='block' AND Type!='user' AND Type!='boolean_operation' AND Type!='contact_point'",
    // toolpath root and schema
    "( Connections.GougeCheck AND (((Strategy == 'curve_area_clear' OR Strategy == 'pocket_area_clear') AND AreaClearance.Type != 'adaptive') OR Strategy == 'raster_area_clear' OR Strategy == 'offset_area_clear' OR Strategy == 'feature_face') AND ((active(AreaClearance.LeadIn.ApproachOutside) AND AreaClearance.LeadIn.ApproachOutside) OR Connections.LeadIn[0].Type != 'none' OR (Connections.SeparateFirstLeadIn AND Connections.FirstLeadIn.Type != 'none') ) )",
    "(Strategy == 'point_projection' OR Strategy == 'line_projection' OR Strategy == 'plane_projection' OR Strategy == 'curve_projection' OR Strategy == 'surface_proj')",
    "(Strategy == 'pattern' AND PatternBasePosition=='drive_curve') OR (Strategy == 'wireframe_profile' AND WireframeProfileBasePosition == 'drive_curve')",
    "(Strategy == 'pattern' AND UseToolpathAsPattern AND (PatternBasePosition=='automatic' OR PatternBasePosition=='drive_curve'))",
    "select(UserDefined;UserDefinedHolderAngle;HolderAngleF())",
    "{toolpath}.AreaClearance.Type",
    "ThicknessSetValues[16].Mode",
    "(Drill.GougeCheck OR Strategy!='drill' OR Drill.Type=='helical' OR Drill.Type=='profile' OR Drill.Type=='heli_2' OR Drill.Type=='thread_mill' OR Drill.Type=='external_thread')",
    "Strategy=='inclined_flats' OR ((Strategy!='raster_area_clear' AND Strategy!='offset_area_clear' AND Strategy!='profile_area_clear' AND Strategy!='adaptive_area_clear') OR AreaClearance.Slicer.Type=='model' OR AreaClearance.Slicer.Type=='flat' OR AreaClearance.Slicer.Type=='feature' OR AreaClearance.Slicer.Type=='pattern') AND !IsTurning() AND !IsAdditive()",
    "Strategy!='blisk' AND Strategy!='blisk_hub' AND Strategy!='blisk_blade' AND Strategy!='port_area_clear' AND Strategy!='port_plunge' AND Strategy!='port_spiral' AND ((Strategy!='raster_area_clear' AND Strategy!='offset_area_clear' AND Strategy!='profile_area_clear' AND Strategy!='adaptive_area_clear') OR AreaClearance.Slicer.Type=='model' OR AreaClearance.Slicer.Type=='flat' OR AreaClearance.Slicer.Type=='feature' OR AreaClearance.Slicer.Type=='pattern') AND !IsTurning() AND !IsAdditive()",
    "Strategy=='raster' OR Strategy=='radial' OR Strategy=='spiral' OR Strategy=='offset_3d' OR Strategy=='opti_constz' OR Strategy=='inter_constz' OR Strategy=='rotary' OR (Strategy=='curve_projection' AND ProjectionStyle!='linear') OR (Strategy=='plane_projection') OR (Strategy=='line_projection' AND ProjectionStyle!='linear') OR Strategy=='surface_proj' OR Strategy=='raster_flat' OR Strategy=='offset_flat' OR (Strategy=='surface_machine' AND ProjectionSurfaceUnits=='distance') OR Strategy=='parametric_offset' OR Strategy=='parametric_spiral'",
    "stepover_from_cusp(StepoverCusp;Tool)",
    "cusp_from_stepover(Stepover;Tool)",
    "stepover_from_cusp(ShallowCusp;Tool)",
    "cusp_from_stepover(ShallowStepover.Value;Tool)",
    "stdlib.active(ShallowStepover.Active) AND ShallowStepover.Active",
    "SplitToolpath AND !IsTurning() AND !IsInspection() AND (Strategy != 'drill')",
    // toolpath callbacks and loader
    "active(AngularLimits2)",
    "Strategy == 'rotary'",
    "5*Tolerance- 0.5",
    // tool
    "!IsTurningType()",
    "IsTurningType()",
    "Type=='barrel' OR Type=='dovetail' OR Type=='tipped_disc'",
    "Type=='barrel'",
    "Type=='thread_mill'",
    "Type=='tip_radiused' OR Type=='taper_spherical' OR Type=='taper_tipped' OR Type=='off_centre_tip_rad' OR Type=='tipped_disc' OR (Type=='barrel' AND FlatBottom) OR Type=='dovetail' OR Type=='end_mill' OR Type=='ball_nosed'",
    "Type=='off_centre_tip_rad' OR Type=='barrel'",
    "Type=='drill'",
    "Type=='taper_spherical' OR Type=='taper_tipped' OR Type=='dovetail'",
    "Type=='taper_tipped'",
    "Type=='routing'",
    "Type=='turn_profiling'",
    "(Type=='turn_profiling' AND InsertShape=='custom') OR Type=='turn_grooving'",
    "(Type=='turn_profiling' AND InsertShape!='round') OR Type=='turn_grooving'",
    "Type=='turn_grooving'",
    "!IsHolderFromModel()",
    "Type!='turn_grooving' AND !IsHolderFromModel()",
    "(Shape=='rectangular') AND !IsHolderFromModel()",
    "Tool.Type",
    "Tool.TurningInsert.CutAngle",
    "IsGroove()",
    // machine tool
    "OptionFile.Type == 'cloud'",
    "OptionFile.Type == 'local'",
    "(false)",
    "false",
    "(HasModelFiles OR HasGeometry)",
    "HasModelFiles",
    "HasGeometry",
    "(Axis.Type == 'simple_linear' OR Axis.Type == 'simple_rotary' )",
    "(Axis.Type == 'simple_rotary')",
    // setup and simulation state
    "ToolPosition.WorkplaneType=='named'",
    "(CheckCollisions == 1)",
    "(CheckCollisions == 1) AND (CheckToolAndHolder==1)",
    "(Avoidance.On == 0)",
    "(On == 0)",
    "(Mode == 'fixed_vector') OR (Mode == 'toward_point')",
    "(Mode == 'fixed_vector')",
    "(Mode == 'toward_point')",
    "(Mode == 'follow_toolpath')",
    "(Mode == 'direction') OR (Mode == 'plane')",
    "IsMultiAxis()",
    "toolpath",
    // features
    "(Defined)",
    "(Is2DFeature())",
    "(!IsTurningFeature() Or Type=='turning_parametric_groove')",
    "(IsTurningFeature())",
    "(Is2DFeatureWithDepth())",
    "(TopEdgeType=='filleted')",
    "(TopEdgeType=='chamfered')",
    "(BottomEdgeType=='filleted')",
    "(Type=='side' OR Type=='freeform_pocket' OR Type=='rectangular_pocket' OR Type=='freeform_boss')",
    "(Type=='side' OR Type=='freeform_pocket' OR Type=='freeform_boss' OR Type=='rectangular_boss')",
    "(Type=='rectangular_pocket' OR Type=='rectangular_boss')",
    "(Type=='circular_pocket' OR Type=='circular_boss' OR IsTurningFeature())",
    "(Type=='turning_face')",
    "IsPocket()",
    "(Type=='slot')",
    "(IsCavity())",
    "(Type=='turning_parametric_groove')",
    "TopLeftEdgeType=='chamfered'",
    // connectives in the other spellings the declarations use
    "Type=='a' and Type=='b'",
    "Type=='a' or Type=='b'",
    "Type=='a' && Type=='b'",
    "Type=='a' || Type=='b'",
    "A and B or C && D || E",
};
// clang-format on

TEST(ExprCompile, EveryDeclaredTextCompiles) {
    for (const char* text : declared_texts) {
        const auto c = kapExpr::compile(text);
        ASSERT_NE(c, nullptr);
        EXPECT_TRUE(c->ok()) << text << "\n  " << c->error().message << " at " << c->error().offset;
        EXPECT_EQ(c->text(), text);
        // Connectives and constants are words of the language, never names.
        for (const auto& list : {c->names(), c->calls()}) {
            for (const kapExprPath& p : list) {
                for (const char* word : {"and", "or", "true", "false"}) {
                    EXPECT_FALSE(p.components.size() == 1 &&
                                 kapdowncase(p.components[0].text) == word)
                        << text << " reads '" << p.text << "' as a name";
                }
            }
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
    };
    // clang-format on
    for (const Case& c : cases) {
        const auto e = kapExpr::compile(c.text);
        ASSERT_TRUE(e->ok()) << c.text;
        EXPECT_EQ(texts_of(e->names()), c.names) << c.text;
        EXPECT_EQ(texts_of(e->calls()), c.calls) << c.text;
    }
}

// How paths are split: anchor, entity, components with hashes and indices, relative text.
TEST(ExprCompile, PathShapes) {
    struct Case {
        const char* text;
        kapExprAnchor anchor;
        const char* entity;
        const char* relative;
        std::vector<std::string> components;  // "[n]" for an index
    };
    // clang-format off
    const Case cases[] = {
        {"ThicknessSetValues[16].Mode", kapExprAnchor::owner, "", "ThicknessSetValues[16].Mode",
         {"ThicknessSetValues", "[16]", "Mode"}},
        {"RootPar.Rapid.SafeArea", kapExprAnchor::root, "", "Rapid.SafeArea", {"Rapid", "SafeArea"}},
        {"ROOTPAR.Tolerance", kapExprAnchor::root, "", "Tolerance", {"Tolerance"}},
        {"Rootpar", kapExprAnchor::root, "", "", {}},
        {"rootpar[2].X", kapExprAnchor::root, "", "[2].X", {"[2]", "X"}},
        {"RootParameters.X", kapExprAnchor::owner, "", "RootParameters.X", {"RootParameters", "X"}},
        {"{toolpath}.AreaClearance.Type", kapExprAnchor::global, "toolpath", "AreaClearance.Type",
         {"AreaClearance", "Type"}},
        {"{toolpath}", kapExprAnchor::global, "toolpath", "", {}},
        {"Connections.LeadIn[0].Type", kapExprAnchor::owner, "", "Connections.LeadIn[0].Type",
         {"Connections", "LeadIn", "[0]", "Type"}},
        {"Android", kapExprAnchor::owner, "", "Android", {"Android"}},  // not the word "and"
    };
    // clang-format on
    for (const Case& c : cases) {
        const auto e = kapExpr::compile(c.text);
        ASSERT_TRUE(e->ok()) << c.text << ": " << e->error().message;
        ASSERT_EQ(e->names().size(), 1u) << c.text;
        const kapExprPath& p = e->names()[0];
        EXPECT_EQ(p.anchor, c.anchor) << c.text;
        EXPECT_EQ(p.entity.text, c.entity) << c.text;
        EXPECT_EQ(p.text, c.text);
        EXPECT_EQ(p.relative, c.relative) << c.text;
        std::vector<std::string> comps;
        for (const kapExprName& n : p.components) {
            if (n.is_index()) {
                comps.push_back("[" + std::to_string(n.index) + "]");
            } else {
                comps.emplace_back(n.text);
            }
        }
        EXPECT_EQ(comps, c.components) << c.text;
    }
}

// Syntax errors: the code and the offset of the fault, in the text as given.
TEST(ExprCompile, ErrorsCarryCodeAndOffset) {
    struct Case {
        const char* text;
        int code;
        int offset;
    };
    // clang-format off
    const Case cases[] = {
        {"",                 kapErrSyntax, 0},
        {"   ",              kapErrSyntax, 3},
        {"Type==",           kapErrSyntax, 6},
        {"Type = 'level'",   kapErrSyntax, 5},
        {"(1+2",             kapErrSyntax, 4},
        {"1+2)",             kapErrSyntax, 3},
        {"'level",           kapErrSyntax, 0},
        {"Type=='level",     kapErrSyntax, 6},
        {"a..b",             kapErrSyntax, 2},
        {"a.",               kapErrSyntax, 2},
        {"a[x]",             kapErrSyntax, 1},
        {"a[]",              kapErrSyntax, 1},
        {"a[99999999999]",   kapErrSyntax, 1},
        {"{toolpath",        kapErrSyntax, 9},
        {"{}.A",             kapErrSyntax, 1},
        {"1 # 2",            kapErrSyntax, 2},
        {"A & B",            kapErrSyntax, 2},
        {"A | B",            kapErrSyntax, 2},
        {"1 2",              kapErrSyntax, 2},
        {"Type 'a'",         kapErrSyntax, 5},
        {"f(1;;2)",          kapErrSyntax, 4},
        {"f(1 2)",           kapErrSyntax, 4},
        {"f(1;2",            kapErrSyntax, 5},
        {"AND B",            kapErrSyntax, 0},
        {"A OR",             kapErrSyntax, 4},
        {"1e999",            kapErrSyntax, 0},
        {"2e",               kapErrSyntax, 1},
        {"max(1)",           kapErrBadCall, 0},
        {"1 + stdlib.min(1)", kapErrBadCall, 4},
        {"select(1;2)",      kapErrBadCall, 0},
        {"abs(1;2)",         kapErrBadCall, 0},
        {"sqrt()",           kapErrBadCall, 0},
        {"active(1+2)",      kapErrBadCall, 8},
        {"${1 +}",           kapErrSyntax, 5},
        {"${)}",             kapErrSyntax, 2},
    };
    // clang-format on
    for (const Case& c : cases) {
        const auto e = kapExpr::compile(c.text);
        EXPECT_FALSE(e->ok()) << c.text;
        EXPECT_EQ(e->error().code, c.code) << c.text << ": " << e->error().message;
        EXPECT_EQ(e->error().offset, c.offset) << c.text << ": " << e->error().message;
        EXPECT_FALSE(e->error().message.empty()) << c.text;
        // A broken text answers its error when evaluated, and reads no names.
        EXPECT_EQ(e->names().size(), 0u) << c.text;
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
    const std::size_t before = kapExpr::cache_size();
    EXPECT_GE(before, 3u);
    kapExpr::clear_cache();
    EXPECT_EQ(kapExpr::cache_size(), 0u);
    EXPECT_EQ(a->text(), "Type=='cache_test'");
    EXPECT_NE(kapExpr::compile("Type=='cache_test'").get(), a.get());
}

TEST(ExprCache, ThreadsShareOneObjectPerText) {
    kapExpr::clear_cache();
    constexpr int n_threads = 4, n_texts = 64;
    std::vector<std::vector<const kapExprCompiled*>> seen(n_threads);
    std::vector<std::thread> threads;
    for (int t = 0; t < n_threads; ++t) {
        threads.emplace_back([t, &seen] {
            for (int i = 0; i < n_texts; ++i)
                seen[t].push_back(kapExpr::compile("X==" + std::to_string(i)).get());
        });
    }
    for (auto& th : threads)
        th.join();
    for (int t = 1; t < n_threads; ++t)
        EXPECT_EQ(seen[t], seen[0]);
    EXPECT_EQ(kapExpr::cache_size(), static_cast<std::size_t>(n_texts));
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

TEST(ExprText, NumbersAreReadAndWrittenInTheCLocale) {
    // A process locale with a decimal comma changes nothing.
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale saved = std::locale::global(std::locale(std::locale::classic(), new Comma));
    for (const char* t : {"max(0.3;2*Rootpar.Tolerance)", "(0;0;0)", "1.5e-3", "0.002", ""})
        EXPECT_EQ(kapEvaluator::localize(t), t);
    EXPECT_EQ(kapExpr::format_number(0.5), "0.5");
    EXPECT_EQ(kapExpr::format_number(1234567.25), "1234567.25");
    double v = 0;
    EXPECT_TRUE(kapExpr::parse_number("2.5", v));
    EXPECT_EQ(v, 2.5);
    EXPECT_FALSE(kapExpr::parse_number("2,5", v));
    std::locale::global(saved);
}

TEST(ExprText, ParseAndFormatNumbers) {
    struct Read {
        const char* text;
        bool ok;
        double value;
    };
    const Read reads[] = {
        {"0", true, 0},
        {"-1.5", true, -1.5},
        {"+2", true, 2},
        {" 3 ", true, 3},
        {".5", true, 0.5},
        {"1e-3", true, 0.001},
        {"5.", true, 5},
        {"", false, 0},
        {"abc", false, 0},
        {"1x", false, 0},
        {"inf", false, 0},
        {"nan", false, 0},
        {"--1", false, 0},
        {"1,5", false, 0},
        {"-", false, 0},
        {"0x10", false, 0},
        // strict: one sign, and only spaces and tabs around
        {"+-5", false, 0},
        {"\n5", false, 0},
        {"5\r", false, 0},
        {"\t-4 ", true, -4},
        {"1e999", false, 0},
        {".", false, 0},
    };
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
        ASSERT_TRUE(kapExpr::parse_number(t, back)) << t;
        EXPECT_EQ(back, v) << t;
    }
    EXPECT_EQ(kapExpr::format_number(-0.0), "0");
    EXPECT_EQ(kapExpr::format_number(3), "3");
}

}  // namespace
