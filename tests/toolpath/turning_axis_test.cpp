// The turning tool axis: the angle helpers, the strategy classification, the axis of every
// turning strategy against rules written out here, and the toolpath expressions with every tool.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kappar/kapEntity.h"
#include "kappar/kapToolPar.h"
#include "kappar/kapToolpathPar.h"
#include "kappar/kapTurningToolAxis.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"

namespace {

using Calc = kapTurningToolAxisParCalc;

bool same_direction(const giUnitVec3& d, double x, double z) {
    return std::abs(d.x() - x) < 1e-12 && d.y() == 0.0 && std::abs(d.z() - z) < 1e-12;
}

Calc calc_of(const kapParameter& toolpath) {
    return Calc(Calc::handle_in(toolpath));
}

void set(kapParameter& tree, const char* path, const std::string& text) {
    ASSERT_TRUE(tree.find(path)->set_string(text)) << path << " = " << text;
}

void use_tool(kapParameter& toolpath, const kapParameter* tool) {
    const kapObjectId id =
        tool != nullptr ? kapParameterRoot::get_root(tool)->get_id() : kapObjectId{};
    ASSERT_TRUE(toolpath.find("Tool")->set_ref_from_id(id));
}

// The state keys of the enumeration at `path`.
std::vector<std::string> states_of(const kapParameter& tree, const char* path) {
    const auto* e = kapParameterEnum::ut_dynamic_cast(tree.find(path).pointer());
    std::vector<std::string> keys;
    for (int i = 0; e != nullptr && i < e->num_states(); ++i)
        keys.push_back(e->state(i).key);
    return keys;
}

// ---------------------------------------------------------------------------------------------
// Angle helpers

TEST(TurningAxisHelpers, NormaliseFoldsOnlyAboveHalfTurn) {
    // Below -180 nothing is folded: the calculated angles never go there, and callers that pass
    // such an angle get it back.
    const struct {
        double in, out;
    } rows[] = {{540, 180},   {-270, -270},  {180, 180},   {181, -179},       {720, 0},
                {-180, -180}, {359.5, -0.5}, {-725, -725}, {3 * 360 + 90, 90}};
    for (const auto& r : rows) {
        EXPECT_DOUBLE_EQ(Calc::normalise_angle(r.in), r.out) << r.in;
    }
}

TEST(TurningAxisHelpers, RoundTiesUpwardsFlipAndRotationSense) {
    const struct {
        double in, out;
    } rows[] = {{45, 90},      {44.9, 0},      {-45, 0}, {-45.1, -90}, {135, 180}, {-135, -90},
                {-134.9, -90}, {-135.1, -180}, {0, 0},   {89, 90},     {270, 270}, {-225, -180}};
    for (const auto& r : rows) {
        EXPECT_EQ(Calc::round_to_nearest_90(r.in), r.out) << r.in;
        EXPECT_NEAR(Calc::round_to_nearest_90(giAngle(giAngleDegrees, r.in)).degrees(), r.out, 1e-9)
            << r.in;
    }
    // An axis is rounded by its angle from Z and keeps its orientation.
    const kapTurningToolAxis near_minus_z(giUnitVec3(-0.1, 0, -1),
                                          kapTurningToolOrientation_Reversed);
    const kapTurningToolAxis rounded = Calc::round_to_nearest_90(near_minus_z);
    EXPECT_TRUE(same_direction(rounded.direction(), 0, -1));
    EXPECT_EQ(rounded.axis_angle_from_z(), 180.0);
    EXPECT_EQ(rounded.orientation(), kapTurningToolOrientation_Reversed);

    // Any stored value other than reversed flips to reversed.
    EXPECT_EQ(Calc::flipped(static_cast<kapTurningToolOrientation>(7)),
              kapTurningToolOrientation_Reversed);
    // Z turns towards X.
    const giVector3 turned =
        Calc::anticlockwise_zx_rotation(giAngle(giAngleDegrees, 90)).apply(giVector3(0, 0, 1));
    EXPECT_TRUE(same_direction(giUnitVec3(turned), 1, 0));
}

// ---------------------------------------------------------------------------------------------
// Strategy classification

TEST(TurnStrategy, NamePartsAreTestedOnTheirOwn) {
    // Columns: profiling, pattern, boring, facing, grooving, roughing, finishing.
    const struct {
        const char* strategy;
        bool turning;
        const char* parts;
    } rows[] = {
        {"turn_roughing", true, "P....R."},        {"turn_finishing", true, "P.....F"},
        {"turn_face_roughing", true, "...f.R."},   {"turn_bore_finishing", true, "..b...F"},
        {"turn_groove_roughing", true, "....gR."}, {"turn_pattern", true, ".T....."},
        {"feature_face", false, "...f..."},        {"raster", false, "......."},
    };
    kapToolpathPar tp("TP");
    for (const auto& r : rows) {
        set(tp, "Strategy", r.strategy);
        using U = kapTurnStrategyParUtils;
        const std::string got = {
            U::is_profiling(tp) ? 'P' : '.', U::is_pattern_turning(tp) ? 'T' : '.',
            U::is_boring(tp) ? 'b' : '.',    U::is_facing(tp) ? 'f' : '.',
            U::is_grooving(tp) ? 'g' : '.',  U::is_roughing(tp) ? 'R' : '.',
            U::is_finishing(tp) ? 'F' : '.'};
        EXPECT_EQ(got, r.parts) << r.strategy;
        EXPECT_EQ(U::is_turning(tp), r.turning) << r.strategy;
    }
}

// ---------------------------------------------------------------------------------------------
// Every turning strategy, cycle, cut direction, side of the centre line and tool, against the
// rules written out in angles (degrees from Z) rather than vectors.

struct Expected {
    double angle;
    int orientation;
};

double wrap(double a) {
    a = std::fmod(a, 360);
    return a > 180 ? a - 360 : a <= -180 ? a + 360 : a;
}
Expected below_centre(Expected a) {
    return {wrap(-a.angle), 1 - a.orientation};
}
Expected beyond_face(Expected a) {
    return {wrap(180 - a.angle), 1 - a.orientation};
}

void expect_axis(const kapTurningToolAxis& axis, Expected want) {
    const double r = want.angle * std::acos(-1.0) / 180;
    EXPECT_TRUE(same_direction(axis.direction(), std::sin(r), std::cos(r))) << want.angle;
    EXPECT_EQ(axis.orientation(), want.orientation) << want.angle;
}

Expected basic_rule(const std::string& strategy, const std::string& cycle, const std::string& cut,
                    const std::string& groove) {
    const auto has = [&](const char* part) { return strategy.find(part) != std::string::npos; };
    if (strategy == "turn_roughing" || strategy == "turn_finishing") {
        // Reversed for a positive cut, except on the face cycle where it is the other way round.
        return {90, (cut == "positive") != (cycle == "face") ? 1 : 0};
    }
    if (has("bore")) {
        if (cycle == "turn" && cut == "positive") return {180, 0};
        return cycle == "backface" ? beyond_face({0, 1}) : Expected{0, 1};
    }
    if (has("face")) return {90, 1};
    if (has("groove")) {
        if (groove == "positive_x") return {90, 1};
        if (groove == "negative_x") return below_centre({90, 1});
        if (groove == "front_face") return {0, 1};
        if (groove == "back_face") return beyond_face({0, 1});
    }
    return {0, 0};
}

Expected final_rule(Expected a, double cut_angle, bool grooving_tool, bool below) {
    a.angle = wrap(a.angle + (a.orientation == 0 ? cut_angle : -cut_angle));
    if (grooving_tool) {
        Expected best = a;
        for (const Expected& e : {below_centre(a), beyond_face(a)}) {
            if (std::abs(e.angle) < std::abs(best.angle)) best = e;
        }
        a = best;
    }
    if (below) a = below_centre(a);
    return {wrap(std::floor(a.angle / 90 + 0.5) * 90), a.orientation};
}

template <int V>
kapParameterPtr answer(const kapParameter&, const kapParameterPtr&) {
    return kapParameterNumeric::create_bool(V);
}

// A tool that answers "IsGroove()" and names the direction it grooves in.
kapParameterPtr groove_tool(const std::string& type, double cut_angle, bool is_groove,
                            const std::string& direction) {
    auto* root = new kapParameterRoot("tool", 5, "G");
    kapParameterPtr hold(root);
    const auto add = [&](const char* key, kapParameter* p) {
        root->add(kapParameterKey(key), kapParameterPtr(p));
    };
    add("Type", new kapParameterString(type));
    add("TurningInsert", new kapParameterMap());
    add("TurningInsert.CutAngle",
        new kapParameterNumeric(kapSubTypeAngle, kapDimensions(), cut_angle));
    add("IsGroove", new kapParameterMemberFunction(is_groove ? &answer<1> : &answer<0>, nullptr));
    add("OrientationDirection", new kapParameterString(direction));
    return hold;
}

struct ToolCase {
    std::string name;
    const kapParameter* tool;  // null: no tool
    double cut_angle;
    bool grooving;
    std::string groove;  // the groove direction the tool allows
};

TEST(TurningAxis, EveryTurningCaseFollowsTheRules) {
    std::vector<std::unique_ptr<kapToolPar>> real_tools;
    std::vector<kapParameterPtr> fake_tools;
    std::vector<ToolCase> tools = {{"no tool", nullptr, 0, false, ""}};
    for (double angle : {0.0, 30.0, 60.0}) {
        for (const std::string type : {"turn_profiling", "turn_grooving"}) {
            const bool grooving = type == "turn_grooving";
            auto& t = real_tools.emplace_back(std::make_unique<kapToolPar>("T"));
            set(*t, "Type", type);
            set(*t, "TurningInsert.CutAngle", kapExpr::format_number(angle));
            tools.push_back({type, t.get(), angle, grooving, ""});
            // The last: a direction without "IsGroove()" holding names no groove.
            for (const std::string dir :
                 {"positive_x", "negative_x", "front_face", "back_face", ""}) {
                fake_tools.push_back(
                    groove_tool(type, angle, !dir.empty(), dir.empty() ? "positive_x" : dir));
                tools.push_back({type + " grooving '" + dir + "'", fake_tools.back().pointer(),
                                 angle, grooving, dir});
            }
        }
    }

    kapToolpathPar tp("TP");
    std::vector<std::string> strategies = states_of(tp, "Strategy");
    std::erase_if(strategies, [](const std::string& s) { return !s.starts_with("turn_"); });
    const std::vector<std::string> cycles = states_of(tp, "Turning.Cycle");
    const std::vector<std::string> cuts = states_of(tp, "Turning.CutDirection");
    ASSERT_EQ(strategies.size(), 9u);
    ASSERT_EQ(cycles.size() * cuts.size(), 6u);

    for (const ToolCase& tool : tools) {
        use_tool(tp, tool.tool);
        for (const std::string& s : strategies) {
            set(tp, "Strategy", s);
            for (const std::string& cycle : cycles) {
                set(tp, "Turning.Cycle", cycle);
                for (const std::string& cut : cuts) {
                    set(tp, "Turning.CutDirection", cut);
                    for (bool below : {false, true}) {
                        set(tp, "Turning.BelowCentreline", below ? "1" : "0");
                        std::ostringstream row;
                        row << tool.name << " cut angle " << tool.cut_angle << ", " << s << ", "
                            << cycle << ", " << cut << (below ? ", below" : "");
                        SCOPED_TRACE(row.str());
                        const Expected basic = basic_rule(s, cycle, cut, tool.groove);
                        const Expected want =
                            final_rule(basic, tool.cut_angle, tool.grooving, below);
                        // Through the toolpath's own expressions, as the host reads them.
                        EXPECT_EQ(tp.find("Turning.ToolAxis.HolderAngle")->get_double(),
                                  want.angle);
                        EXPECT_EQ(tp.find("Turning.ToolAxis.ToolOrientation")->get_string(),
                                  want.orientation == 1 ? "reversed" : "standard");
                        const Calc calc = calc_of(tp);
                        EXPECT_EQ(calc.groove_direction(), tool.groove);
                        expect_axis(calc.calculate_basic_axis(), basic);
                        expect_axis(calc.calculate_final_axis(), want);
                    }
                }
            }
        }
    }
}

// Without turning the axis is Z, and the flag below the centre line is not read.
TEST(TurningAxis, InactiveTurningIsTheZAxis) {
    kapToolpathPar tp("TP");
    set(tp, "Strategy", "raster");
    for (const char* below : {"0", "1"}) {
        set(tp, "Turning.BelowCentreline", below);
        expect_axis(calc_of(tp).calculate_basic_axis(), {0, 0});
        expect_axis(calc_of(tp).calculate_final_axis(), {0, 0});
    }
}

// ---------------------------------------------------------------------------------------------
// Every expression of the toolpath, those that read its tool among them, evaluates for every kind
// of tool, with toolpath and tool owned by their makers (no handle counts either root).

void each_parameter(const kapParameter& p, const std::function<void(const kapParameter&)>& fn) {
    fn(p);
    if (const auto* map = kapParameterMap::ut_dynamic_cast(&p)) {
        for (const kapParameterPtr& child : map->children()) {
            if (!child->is_ref_node()) each_parameter(*child, fn);
        }
    }
}

TEST(TurningAxis, ExpressionsEvaluateForEveryToolType) {
    std::vector<std::string> type_names = states_of(*kapEntityKinds::create("tool", "T"), "Type");
    ASSERT_GT(type_names.size(), 3u);
    type_names.push_back("");  // no tool referenced

    for (const std::string& type : type_names) {
        const std::unique_ptr<kapParameterRoot> tool = kapEntityKinds::create("tool", "T");
        const std::unique_ptr<kapParameterRoot> tp = kapEntityKinds::create("toolpath", "TP");
        if (!type.empty()) {
            set(*tool, "Type", type);
            set(*tool, "TurningInsert.CutAngle", "30");
            use_tool(*tp, tool.get());
        }
        for (const char* strategy :
             {"raster", "turn_finishing", "turn_groove_roughing", "turn_bore_roughing"}) {
            set(*tp, "Strategy", strategy);
            int found = 0;
            each_parameter(*tp, [&](const kapParameter& p) {
                for (const utString& text : {p.get_active(), p.get_expr()}) {
                    if (text.empty()) continue;
                    ++found;
                    const kapParameterPtr v =
                        kapEvaluator(&p).evaluate(utString(kapExpr::unwrap(text)));
                    ASSERT_TRUE(v && !v->is_error())
                        << type << ", " << strategy << ", " << kapParameter::get_name(p, 1) << ": "
                        << text << " -> " << (v ? v->get_string() : "null");
                }
            });
            EXPECT_GT(found, 100) << type << ", " << strategy;
        }
    }
}

}  // namespace
