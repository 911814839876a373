// The toolpath's callbacks: host hooks, the stepover and cusp pairs, mirror modes, and the cusp
// functions of the expression language.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "../kapparameter/par_builders.h"
#include "kappar/kapToolpathPar.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"

namespace {

// A tool root with the tool entity's geometry names, enough for the cusp functions.
kapParameterPtr make_tool(const char* type, double diameter, double tip_radius) {
    kapParameterPtr root(new kapParameterRoot("tool", 5, "T1"));
    auto& r = static_cast<kapParameterMap&>(*root);
    r.add("Type", text(type));
    r.add("Diameter", length(diameter));
    r.add("TipRadius", length(tip_radius));
    return root;
}

void use_tool(kapToolpathPar& tp, const kapParameterPtr& tool) {
    ASSERT_TRUE(
        tp.find("Tool")->set_ref_from_id(kapParameterRoot::get_root(tool.pointer())->get_id()));
}

kapParameterPtr eval(const kapToolpathPar& tp, const std::string& text) {
    return kapEvaluator(&tp).evaluate(text);
}

double eval_number(const kapToolpathPar& tp, const std::string& text) {
    const kapParameterPtr v = eval(tp, text);
    EXPECT_TRUE(v && !v->is_error()) << text << ": " << (v ? v->get_string() : "null");
    return v ? v->get_double() : -1.0;
}

// ---------------------------------------------------------------------------------------------
// Stepover and cusp pairs, with every run of the pair's callbacks counted

std::map<std::string, int> g_runs;
std::map<std::string, kapOnModifyFn> g_original;

void counting(kapParameter* par) {
    const utString path = kapParameter::get_name(*par, 1);
    ++g_runs[path];
    g_original.at(path)(par);
}

void count_runs(kapToolpathPar& tp, const char* path, const char* expected_name) {
    const kapParameterPtr p = tp.find(path);
    ASSERT_EQ(p->impl().onmodify_name, expected_name);
    g_original[path] = kapParameterCallbacks::find_onmodify(expected_name);
    ASSERT_NE(g_original[path], nullptr) << expected_name;
    p->set_onmodify_callback(&counting);
}

struct PairCase {
    const char* name;
    const char* path;     // the parameter set
    const char* text;     // its new text
    const char* partner;  // the other one of the pair
    const char* partner_after;
};

class StepoverCuspPair : public ::testing::TestWithParam<PairCase> {};

TEST_P(StepoverCuspPair, PartnerFollowsOnlyPlainTexts) {
    const PairCase& c = GetParam();
    kapToolpathPar tp("T");
    count_runs(tp, "Stepover", "onmodify_toolpath_Stepover");
    count_runs(tp, "StepoverCusp", "onmodify_toolpath_StepoverCusp");
    count_runs(tp, "ShallowCusp", "onmodify_toolpath_ShallowCusp");
    count_runs(tp, "ShallowStepover.Value", "onmodify_toolpath_ShallowStepover_Value");
    {
        // Equal values are no change: start from another one.
        const kapBlockParUpdateCallbacks quiet;
        ASSERT_TRUE(tp.find(c.path)->set_string("0.5"));
    }
    g_runs.clear();

    ASSERT_TRUE(tp.find(c.path)->set_string(c.text));
    const std::string after = tp.find(c.partner)->get_value_text();
    EXPECT_EQ(after, c.partner_after);
    // One run for the edit, one for the partner when it was rewritten; never a loop.
    const bool rewritten = after != tp.prototype().find_node(c.partner)->get_value_text();
    EXPECT_EQ(g_runs[c.path], 1);
    EXPECT_EQ(g_runs[c.partner], rewritten ? 1 : 0);
    int total = 0;
    for (const auto& [path, n] : g_runs)
        total += n;
    EXPECT_EQ(total, rewritten ? 2 : 1);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Texts, StepoverCuspPair, ::testing::Values(
    PairCase{"PlainStepover",         "Stepover",     "5",                                          "StepoverCusp", "cusp_from_stepover(Stepover;Tool)"},
    PairCase{"CanonicalStepover",     "Stepover",     "stepover_from_cusp(StepoverCusp;Tool)",      "StepoverCusp", "0.01"},
    PairCase{"CanonicalOtherCase",    "Stepover",     "Stepover_From_CUSP ( StepoverCusp ; Tool )", "StepoverCusp", "0.01"},
    PairCase{"StepoverNamesStepover", "Stepover",     "2*ShallowStepover.Value",                    "StepoverCusp", "0.01"},
    PairCase{"StepoverWordAnyCase",   "Stepover",     "2*SHALLOWSTEPOVER.VALUE",                    "StepoverCusp", "0.01"},
    PairCase{"PlainCusp",             "StepoverCusp", "0.02",                                       "Stepover",     "stepover_from_cusp(StepoverCusp;Tool)"},
    PairCase{"CuspExpression",        "StepoverCusp", "2*Tolerance",                                "Stepover",     "stepover_from_cusp(StepoverCusp;Tool)"},
    PairCase{"CanonicalCusp",         "StepoverCusp", "CUSP_FROM_STEPOVER(Stepover;Tool)",          "Stepover",     "1"},
    PairCase{"ShallowPlainCusp",      "ShallowCusp",  "0.01",                                       "ShallowStepover.Value", "stepover_from_cusp(ShallowCusp;Tool)"},
    PairCase{"ShallowCanonicalCase",  "ShallowCusp",  "CUSP_FROM_STEPOVER(ShallowStepover.Value;Tool)", "ShallowStepover.Value", "1"},
    // The shallow pair keeps blanks and has no word test.
    PairCase{"ShallowBlanksCount",    "ShallowCusp",  "cusp_from_stepover( ShallowStepover.Value ; Tool )", "ShallowStepover.Value", "stepover_from_cusp(ShallowCusp;Tool)"},
    PairCase{"ShallowNoWordTest",     "ShallowStepover.Value", "2*Stepover",                        "ShallowCusp",  "cusp_from_stepover(ShallowStepover.Value;Tool)"}),
    [](const auto& p) { return std::string(p.param.name); });
// clang-format on

TEST(ToolpathCallbacks, HolderProfileAndZHeights) {
    kapToolpathPar tp("T");
    ASSERT_TRUE(tp.find("ToolHolderProfile.Calculate")->set_int(1));
    EXPECT_EQ(tp.find("ToolHolderProfile.Consider")->get_int(), 1);
    ASSERT_TRUE(tp.find("ToolHolderProfile.Calculate")->set_int(0));
    EXPECT_EQ(tp.find("ToolHolderProfile.Consider")->get_int(), 1);
}

// ---------------------------------------------------------------------------------------------
// Host hooks: one test over every setter

std::vector<std::pair<int, const kapParameter*>> g_events;

template <int N>
void record(kapParameter* par) {
    g_events.emplace_back(N, par);
}
void record_read(const kapParameter* par) {
    g_events.emplace_back(-1, par);
}

template <std::size_t... I>
constexpr std::array<kapToolpathPar::Hook, sizeof...(I)> recorders(std::index_sequence<I...>) {
    return {&record<static_cast<int>(I)>...};
}

struct HookCase {
    void (*set)(kapToolpathPar::Hook);  // null: the statistics read hook
    std::vector<const char*> paths;
};

using TP = kapToolpathPar;
// clang-format off
const std::vector<HookCase> kHookCases = {
    {&TP::set_onmodify_ZHeights_Automatic_callback,                {"AreaClearance.ZHeights.Automatic"}},
    {&TP::set_onmodify_boundary_synced_parameter_callback,         {"Tolerance", "Thickness", "AxialThickness", "UseAxialThickness", "Tool"}},
    {&TP::set_onmodify_toolpath_MachineTool_parameter_callback,    {"MachineTool"}},
    {&TP::set_onmodify_toolpath_ModelLocation_parameter_callback,  {"ModelLocation"}},
    {&TP::set_onmodify_toolpath_OV_FixedDirectionAzimuth_callback, {"OrientationVector.FixedDirectionAzimuth"}},
    {&TP::set_onmodify_toolpath_OV_FixedDirectionElevation_callback, {"OrientationVector.FixedDirectionElevation"}},
    {&TP::set_onmodify_toolpath_OV_FixedDirectionI_callback,       {"OrientationVector.FixedDirectionI"}},
    {&TP::set_onmodify_toolpath_OV_FixedDirectionJ_callback,       {"OrientationVector.FixedDirectionJ"}},
    {&TP::set_onmodify_toolpath_OV_FixedDirectionK_callback,       {"OrientationVector.FixedDirectionK"}},
    {&TP::set_onmodify_toolpath_statistics_valid_callback,         {"Statistics.Valid"}},
    {&TP::set_onmodify_toolaxis_limits_machine_elevation_min,      {"ToolAxis.Limits.MinMachineElevation"}},
    {&TP::set_onmodify_toolaxis_limits_machine_elevation_max,      {"ToolAxis.Limits.MaxMachineElevation"}},
    {&TP::set_onmodify_toolaxis_limits_machine_azimuth_min,        {"ToolAxis.Limits.MinMachineAzimuth"}},
    {&TP::set_onmodify_toolaxis_limits_machine_azimuth_max,        {"ToolAxis.Limits.MaxMachineAzimuth"}},
    {&TP::set_onmodify_toolaxis_limits_elevation_min,              {"ToolAxis.Limits.MinElevation"}},
    {&TP::set_onmodify_toolaxis_limits_elevation_max,              {"ToolAxis.Limits.MaxElevation"}},
    {&TP::set_onmodify_toolaxis_limits_azimuth_min,                {"ToolAxis.Limits.MinAzimuth"}},
    {&TP::set_onmodify_toolaxis_limits_azimuth_max,                {"ToolAxis.Limits.MaxAzimuth"}},
    {&TP::set_onmodify_toolaxis_limits_coordinate_system,          {"ToolAxis.Limits.CoordinateSystem"}},
    {&TP::set_onmodify_toolaxis_limits_use_machine_tool,           {"ToolAxis.Limits.UseMachineTool"}},
    {&TP::set_onmodify_machine_tool_properties_use_mtd,            {"MachineToolProperties.UseMTD.Active"}},
    {&TP::set_onmodify_use_machine_elevation,                      {"ToolAxis.Limits.UseMachineElevation"}},
    {&TP::set_onmodify_use_machine_azimuth,                        {"ToolAxis.Limits.UseMachineAzimuth"}},
    {&TP::set_onmodify_rapid_coordinate_system,                    {"Rapid.CoordinateSystem"}},
    {&TP::set_onmodify_turning_tool_orientation,                   {"Turning.BelowCentreline", "Turning.CutDirection", "Turning.Cycle",
                                                                    "Turning.ToolAxis.UserDefined", "Turning.ToolAxis.UserDefinedHolderAngle",
                                                                    "Turning.ToolAxis.UserToolOrientation"}},
    {&TP::set_onmodify_feature_group,                              {"Features.FeatureGroup"}},
    {nullptr,                                                      {"Statistics"}},
};
// clang-format on
constexpr int kTurningCase = 24;
constexpr int kFeatureGroupCase = 25;

// Writes a value other than the current one: a flag flips, a number moves, an enumeration takes
// its next state, a text grows, a reference names another root.
bool change(kapParameter& p, const kapParameterRoot& other_root) {
    switch (p.type()) {
        case kapParameterType::numeric:
            if (p.subtype() == kapSubTypeFlag) return p.set_int(1 - p.get_int());
            return p.set_double(p.get_double() > 0 ? p.get_double() / 2 : p.get_double() + 1);
        case kapParameterType::enumeration: {
            const auto& e = static_cast<kapParameterEnum&>(p);
            return p.set_int((e.get_state() + 1) % e.num_states());
        }
        case kapParameterType::ref:
            return p.set_ref_from_id(p.get_ref_id().empty() ? other_root.get_id() : kapObjectId{});
        default:
            return p.set_string(p.get_string() + "x");
    }
}

TEST(ToolpathCallbacks, EveryHookFiresOncePerChangeAndNeverWhenBlocked) {
    const auto& cases = kHookCases;
    ASSERT_EQ(cases.size(), 27u);
    constexpr auto hooks = recorders(std::make_index_sequence<26>());
    for (std::size_t i = 0; i + 1 < cases.size(); ++i)
        cases[i].set(hooks[i]);
    TP::set_onread_toolpath_statistics_callback(&record_read);

    kapToolpathPar tp("T");
    const kapParameterRoot other("tool", 5, "Other");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        for (const char* path : cases[i].paths) {
            SCOPED_TRACE(path);
            const kapParameterPtr p = tp.find(path);
            ASSERT_TRUE(p && !p->is_error());
            const int id = cases[i].set != nullptr ? static_cast<int>(i) : -1;
            std::vector<std::pair<int, const kapParameter*>> expected = {{id, p.pointer()}};
            if (static_cast<int>(i) == kFeatureGroupCase)
                expected.emplace_back(kTurningCase, p.pointer());

            g_events.clear();
            if (cases[i].set == nullptr) {
                // Read hooks run when the statistics are read, not when they change.
                ASSERT_NE(p->impl().onread, nullptr);
                p->impl().onread(p.pointer());
            } else {
                ASSERT_TRUE(change(*p, other));
            }
            EXPECT_EQ(g_events, expected);

            if (cases[i].set == nullptr) continue;
            g_events.clear();
            {
                const kapBlockParUpdateCallbacks quiet;
                const kapBlockParUpdateCallbacks nested;
                ASSERT_TRUE(change(*p, other));
                ASSERT_TRUE(change(*p, other));
            }
            EXPECT_TRUE(g_events.empty());
        }
    }
    // Switching automatic heights back on tells no one; without hooks nothing happens at all.
    g_events.clear();
    ASSERT_TRUE(tp.find("AreaClearance.ZHeights.Automatic")->set_int(1));
    EXPECT_TRUE(g_events.empty());
    for (std::size_t i = 0; i + 1 < cases.size(); ++i)
        cases[i].set(nullptr);
    TP::set_onread_toolpath_statistics_callback(nullptr);
    ASSERT_TRUE(tp.find("AreaClearance.ZHeights.Automatic")->set_int(0));
    ASSERT_TRUE(tp.find("Features.FeatureGroup")->set_string("G"));
    EXPECT_TRUE(g_events.empty());
}

// ---------------------------------------------------------------------------------------------
// Mirror modes

struct MirrorCase {
    const char* strategy;
    int angular;
    int linear;
    int lean;
};

TEST(ToolpathCallbacks, MirrorModesByStrategy) {
    // clang-format off
    const MirrorCase cases[] = {
        {"point_projection", 0, 0, 1},  // "AngularLimits2" is active for it
        {"curve_projection", 1, 0, 1},
        {"radial",           4, 0, 1},
        {"rotary",           0, 1, 1},
        {"raster",           3, 0, 1},
        {"swarf",            3, 0, 0},
        {"turn_pattern",     3, 0, 0},
    };
    // clang-format on
    kapToolpathPar tp("T");
    for (const MirrorCase& c : cases) {
        SCOPED_TRACE(c.strategy);
        ASSERT_TRUE(tp.find("Strategy")->set_string(c.strategy));
        EXPECT_EQ(tp.find("AngularLimits.Start")->get_mirror_mode(), c.angular);
        EXPECT_EQ(tp.find("AngularLimits.End")->get_mirror_mode(), c.angular);
        EXPECT_EQ(tp.find("LinearLimits.Start")->get_mirror_mode(), c.linear);
        EXPECT_EQ(tp.find("LinearLimits.End")->get_mirror_mode(), c.linear);
        EXPECT_EQ(tp.find("ToolAxis.Lean")->get_mirror_mode(), c.lean);
    }
    // Every strategy: with "AngularLimits2" active the angular limits stay as they are.
    const auto& strategy = static_cast<const kapParameterEnum&>(*tp.find("Strategy"));
    for (int i = 0; i < strategy.num_states(); ++i) {
        ASSERT_TRUE(tp.find("Strategy")->set_int(i));
        if (!tp.find("AngularLimits2")->is_active()) continue;
        EXPECT_EQ(tp.find("AngularLimits.Start")->get_mirror_mode(), 0) << strategy.state(i).key;
    }
    const std::pair<const char*, int> fixed_angle[] = {
        {"azimuth", 2}, {"elevation", 0}, {"none", 0}};
    for (const auto& [mode, answer] : fixed_angle) {
        ASSERT_TRUE(tp.find("ToolAxis.FixedAngle.Mode")->set_string(mode));
        EXPECT_EQ(tp.find("ToolAxis.FixedAngle.Value")->get_mirror_mode(), answer) << mode;
    }
}

TEST(ToolpathCallbacks, LeanListsHoldEveryStrategyOnce) {
    const auto lean = kapToolpathParCallbacks::lean_strategies();
    const auto non_lean = kapToolpathParCallbacks::non_lean_strategies();
    const auto* strategy =
        kapParameterEnum::ut_dynamic_cast(kapToolpathPar::prototype().find_node("Strategy"));
    ASSERT_NE(strategy, nullptr);
    for (int i = 0; i < strategy->num_states(); ++i) {
        const std::string_view key = strategy->state(i).key;
        EXPECT_EQ(std::count(lean.begin(), lean.end(), key) +
                      std::count(non_lean.begin(), non_lean.end(), key),
                  1)
            << key;
    }
    EXPECT_TRUE(kapToolpathParCallbacks::test_mirror_sanity());
}

// ---------------------------------------------------------------------------------------------
// Cusp functions

struct CuspTool {
    const char* type;
    double diameter;
    double tip_radius;
    double radius;  // of the rounded end that leaves the cusp; 0 for a flat end
};

class CuspFunctions : public ::testing::TestWithParam<CuspTool> {};

TEST_P(CuspFunctions, InverseAgreesWithForward) {
    const CuspTool& t = GetParam();
    kapToolpathPar tp("T");
    const kapParameterPtr tool = make_tool(t.type, t.diameter, t.tip_radius);
    use_tool(tp, tool);
    const auto cusp = [&](double s) {
        return eval_number(tp, "cusp_from_stepover(" + kapExpr::format_number(s) + ";Tool)");
    };
    const auto stepover = [&](double h) {
        return eval_number(tp, "stepover_from_cusp(" + kapExpr::format_number(h) + ";Tool)");
    };
    if (t.radius == 0) {
        for (double s : {0.1, 1.0, t.diameter})
            EXPECT_EQ(cusp(s), 0.0);
        for (double h : {0.0, 0.01, 1.0})
            EXPECT_EQ(stepover(h), t.diameter);
        return;
    }
    for (int i = 1; i < 100; ++i) {
        const double s = 2 * t.radius * i / 100;
        EXPECT_NEAR(stepover(cusp(s)), s, 1e-9) << s;
        const double h = t.radius * i / 100;
        EXPECT_NEAR(cusp(stepover(h)), h, 1e-9) << h;
    }
    // Small stepovers keep their precision: h = s^2 / 8r to within (s / 2r)^2.
    EXPECT_NEAR(cusp(1e-4) * 8 * t.radius / 1e-8, 1.0, 1e-9);
    // Past the rounded end the cusp stays at its radius; such a cusp allows the whole diameter.
    EXPECT_DOUBLE_EQ(cusp(2 * t.radius + 1), t.radius);
    EXPECT_DOUBLE_EQ(stepover(t.radius), t.diameter);
}

INSTANTIATE_TEST_SUITE_P(
    Tools, CuspFunctions,
    ::testing::Values(CuspTool{"ball_nosed", 10, 0, 5}, CuspTool{"tip_radiused", 10, 1, 1},
                      CuspTool{"tip_radiused", 6, 4, 3},  // radius capped
                      CuspTool{"end_mill", 10, 2, 0}, CuspTool{"tip_radiused", 10, 0, 0}),
    [](const auto& p) { return std::string(p.param.type) + "_" + std::to_string(p.index); });

TEST(CuspValues, ErrorsWithoutAUsableTool) {
    kapToolpathPar tp("T");
    const kapParameterPtr bare(new kapParameterRoot("tool", 5, "Bare"));  // no geometry
    const kapParameterPtr ball = make_tool("ball_nosed", 10, 0);
    struct Case {
        const kapParameterPtr* tool;  // set before the case, when given
        const char* text;
        int code;
    };
    // clang-format off
    const Case cases[] = {
        {nullptr, "cusp_from_stepover(1;Tool)",   kapErrNoItem},   // no tool set
        {nullptr, "stepover_from_cusp(0.1;Tool)", kapErrNoItem},
        {nullptr, "cusp_from_stepover(1)",        kapErrBadCall},
        {&bare,   "cusp_from_stepover(1;Tool)",   kapErrNoItem},
        {&ball,   "cusp_from_stepover(-1;Tool)",  kapErrDomain},
    };
    // clang-format on
    for (const Case& c : cases) {
        if (c.tool != nullptr) use_tool(tp, *c.tool);
        const kapParameterPtr v = eval(tp, c.text);
        ASSERT_TRUE(v && v->is_error()) << c.text;
        EXPECT_EQ(static_cast<const kapParameterError&>(*v).code(), c.code) << c.text;
    }
}

}  // namespace
