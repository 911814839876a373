#include "kappar/kapTurningToolAxis.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string_view>
#include <utility>

#include "kappar/kapToolpathParUtils.h"
#include "kapparameter/kapEvaluator.h"

#include "kapToolpathRead.h"

namespace {
using kap_toolpath::text_of;

constexpr kapTurningToolOrientation kStandard = kapTurningToolOrientation_Standard;
constexpr kapTurningToolOrientation kReversed = kapTurningToolOrientation_Reversed;

const giUnitVec3 kXAxis(gi_X);
const giUnitVec3 kZAxis(gi_Z);

const kapParameter* top_of(const kapParameter* p) noexcept {
    if (p == nullptr) return nullptr;
    while (p->parent() != nullptr) {
        p = p->parent();
    }
    return p;
}

bool strategy_has(const kapParameter& toolpath, std::string_view part) {
    return text_of(toolpath, "Strategy").find(part) != utString::npos;
}

}  // namespace

// -- the axis value ---------------------------------------------------------------------------

kapTurningToolAxis kapTurningToolAxis::at_angle(double degrees,
                                                kapTurningToolOrientation orientation) noexcept {
    if (std::fmod(degrees, 90.0) == 0.0) {
        const double quarters = std::fmod(degrees / 90.0, 4.0);
        switch (static_cast<int>(quarters < 0.0 ? quarters + 4.0 : quarters)) {
            case 1:
                return {kXAxis, orientation};
            case 2:
                return {-kZAxis, orientation};
            case 3:
                return {-kXAxis, orientation};
            default:
                return {kZAxis, orientation};
        }
    }
    const double r = degrees * (std::numbers::pi / 180.0);
    return {giUnitVec3(std::sin(r), 0.0, std::cos(r)), orientation};
}

double kapTurningToolAxis::axis_angle_from_z() const noexcept {
    // Adding 0 turns a negative zero into a positive one: (-0, 0, -1) lies at 180, not -180.
    const double x = direction_.x() + 0.0;
    const double z = direction_.z() + 0.0;
    if (x == 0.0 && z != 0.0) return z > 0.0 ? 0.0 : 180.0;
    if (z == 0.0 && x != 0.0) return x > 0.0 ? 90.0 : -90.0;
    return std::atan2(x, z) * (180.0 / std::numbers::pi);
}

// -- strategy classification --------------------------------------------------------------------

bool kapTurnStrategyParUtils::is_turning(const kapParameter& toolpath) {
    return kapToolpathParUtils::is_turning(toolpath);
}

bool kapTurnStrategyParUtils::is_profiling(const kapParameter& toolpath) {
    const utString s = text_of(toolpath, "Strategy");
    return s == "turn_roughing" || s == "turn_finishing";
}

bool kapTurnStrategyParUtils::is_pattern_turning(const kapParameter& toolpath) {
    return text_of(toolpath, "Strategy") == "turn_pattern";
}

bool kapTurnStrategyParUtils::is_boring(const kapParameter& toolpath) {
    return strategy_has(toolpath, "bore");
}

bool kapTurnStrategyParUtils::is_facing(const kapParameter& toolpath) {
    return strategy_has(toolpath, "face");
}

bool kapTurnStrategyParUtils::is_grooving(const kapParameter& toolpath) {
    return strategy_has(toolpath, "groove");
}

bool kapTurnStrategyParUtils::is_roughing(const kapParameter& toolpath) {
    return strategy_has(toolpath, "roughing");
}

bool kapTurnStrategyParUtils::is_finishing(const kapParameter& toolpath) {
    return strategy_has(toolpath, "finishing");
}

// -- the calculator: construction and reading ---------------------------------------------------

kapTurningToolAxisParCalc::kapTurningToolAxisParCalc(const kapParameterPtr& toolpath)
    : kapTurningToolAxisParCalc(toolpath, [&toolpath]() -> kapParameterPtr {
          // The reference itself is held: it is counted by the toolpath, the tool's root may not
          // be counted by anything.
          const kapParameter* top = top_of(toolpath.pointer());
          if (top == nullptr) return {};
          const kapParameter* ref = top->find_node("Tool");
          return ref != nullptr ? kapParameterPtr(ref) : kapParameterPtr();
      }()) {}

kapTurningToolAxisParCalc::kapTurningToolAxisParCalc(kapParameterPtr toolpath, kapParameterPtr tool)
    : toolpath_(std::move(toolpath)), tool_(std::move(tool)) {}

kapParameterPtr kapTurningToolAxisParCalc::handle_in(const kapParameter& node) {
    // A node in a tree is counted by its map for as long as it is there.
    if (node.parent() != nullptr) return kapParameterPtr(&node);
    const auto* map = kapParameterMap::ut_dynamic_cast(&node);
    if (map != nullptr && map->size() > 0) return map->child(0);
    // A lone node: safe only when handles own it already.
    return node.use_count() > 0 ? kapParameterPtr(&node) : kapParameterPtr();
}

const kapParameter* kapTurningToolAxisParCalc::toolpath() const noexcept {
    return top_of(toolpath_.pointer());
}

const kapParameter* kapTurningToolAxisParCalc::tool() const noexcept {
    const kapParameter* p = tool_.pointer();
    if (p != nullptr && p->is_ref_node()) return p->follow();
    return top_of(p);
}

utString kapTurningToolAxisParCalc::turning_cycle() const {
    const kapParameter* tp = toolpath();
    return tp != nullptr ? text_of(*tp, "Turning.Cycle") : utString();
}

utString kapTurningToolAxisParCalc::cut_direction() const {
    const kapParameter* tp = toolpath();
    return tp != nullptr ? text_of(*tp, "Turning.CutDirection") : utString();
}

bool kapTurningToolAxisParCalc::below_centreline() const {
    const kapParameter* tp = toolpath();
    if (tp == nullptr) return false;
    const kapParameter* below = tp->find_node("Turning.BelowCentreLine");
    return below != nullptr && below->is_active() && below->get_double() != 0.0;
}

double kapTurningToolAxisParCalc::insert_angle() const {
    const kapParameter* t = tool();
    const kapParameter* angle = t != nullptr ? t->find_node("TurningInsert.CutAngle") : nullptr;
    return angle != nullptr ? angle->get_double() : 0.0;
}

bool kapTurningToolAxisParCalc::tool_is_grooving() const {
    const kapParameter* t = tool();
    return t != nullptr && text_of(*t, "Type") == "turn_grooving";
}

utString kapTurningToolAxisParCalc::groove_direction() const {
    const kapParameter* t = tool();
    if (t == nullptr) return {};
    // A tool that has no such function answers an error: no groove.
    const kapParameterPtr groove = kapEvaluator(t).evaluate("IsGroove()");
    if (!groove || groove->is_error() || groove->get_double() == 0.0) return {};
    return text_of(*t, "OrientationDirection");
}

// -- the calculator: axes -------------------------------------------------------------------------

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_basic_axis() const {
    const kapParameter* tp = toolpath();
    if (tp == nullptr || !kapTurnStrategyParUtils::is_turning(*tp)) return {kZAxis, kStandard};
    if (kapTurnStrategyParUtils::is_profiling(*tp)) return calculate_turn_axis();
    if (kapTurnStrategyParUtils::is_boring(*tp)) return calculate_bore_axis();
    if (kapTurnStrategyParUtils::is_facing(*tp)) return calculate_face_axis();
    if (kapTurnStrategyParUtils::is_grooving(*tp)) return calculate_groove_axis();
    return {kZAxis, kStandard};
}

// The insert of an outside turning tool cutting towards the chuck ("turn", "negative") faces the
// standard way; cutting away from it, the insert is turned over. A face cycle works across the
// front face with the face axis of the facing strategy: reversed towards the centre
// ("negative"), standard away from it. The back face is the front face seen in a mirror: each
// orientation of the face cycle flips. Cycles other than these read as a face cycle.
//
//     cycle      cut direction   orientation
//     turn       negative        standard
//     turn       positive        reversed
//     face       negative        reversed
//     face       positive        standard
//     backface   negative        standard
//     backface   positive        reversed
kapTurningToolAxis kapTurningToolAxisParCalc::calculate_turn_axis() const {
    const bool turn = turning_cycle() == "turn";
    const bool positive = cut_direction() == "positive";
    kapTurningToolOrientation orientation = turn == positive ? kReversed : kStandard;
    if (turning_cycle() == "backface") orientation = flipped(orientation);
    return {kXAxis, orientation};
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_bore_axis() const {
    const utString cycle = turning_cycle();
    const kapTurningToolAxis axis = cycle == "turn" && cut_direction() == "positive"
                                        ? kapTurningToolAxis(-kZAxis, kStandard)
                                        : kapTurningToolAxis(kZAxis, kReversed);
    return cycle == "backface" ? mirrored_through_face(axis) : axis;
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_face_axis() {
    return {kXAxis, kReversed};
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_groove_axis() const {
    const utString direction = groove_direction();
    if (direction == "positive_x") return calculate_outer_groove_axis();
    if (direction == "negative_x") return calculate_inner_groove_axis();
    if (direction == "front_face") return calculate_face_groove_axis();
    if (direction == "back_face") return calculate_back_face_groove_axis();
    return {kZAxis, kStandard};
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_outer_groove_axis() {
    return {kXAxis, kReversed};
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_inner_groove_axis() {
    return mirrored_through_centreline(calculate_outer_groove_axis());
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_face_groove_axis() {
    return {kZAxis, kReversed};
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_back_face_groove_axis() {
    return mirrored_through_face(calculate_face_groove_axis());
}

kapTurningToolAxis kapTurningToolAxisParCalc::calculate_axis_with_insert_rotation() const {
    const kapTurningToolAxis axis = apply_insert_angle(calculate_basic_axis(), insert_angle());
    return tool_is_grooving() ? best_equivalent_grooving_axis(axis) : axis;
}

// The holder sits on the turret at quarter turns, so the axis is rounded for every tool, not only
// for grooving tools.
kapTurningToolAxis kapTurningToolAxisParCalc::calculate_final_axis() const {
    kapTurningToolAxis axis = calculate_axis_with_insert_rotation();
    if (below_centreline()) axis = mirrored_through_centreline(axis);
    return round_to_nearest_90(axis);
}

double kapTurningToolAxisParCalc::calculate_holder_angle() const {
    return normalise_angle(calculate_final_axis().axis_angle_from_z());
}

utString kapTurningToolAxisParCalc::calculate_tool_orientation() const {
    return calculate_final_axis().orientation() == kReversed ? "reversed" : "standard";
}

// -- helpers
// ----------------------------------------------------------------------------------------

kapTurningToolOrientation kapTurningToolAxisParCalc::flipped(
    kapTurningToolOrientation orientation) {
    return orientation == kReversed ? kStandard : kReversed;
}

kapTurningToolAxis kapTurningToolAxisParCalc::mirrored_through_centreline(
    const kapTurningToolAxis& axis) {
    const giUnitVec3& d = axis.direction();
    return {giUnitVec3(-d.x(), d.y(), d.z()), flipped(axis.orientation())};
}

kapTurningToolAxis kapTurningToolAxisParCalc::mirrored_through_face(
    const kapTurningToolAxis& axis) {
    const giUnitVec3& d = axis.direction();
    return {giUnitVec3(d.x(), d.y(), -d.z()), flipped(axis.orientation())};
}

giXform3 kapTurningToolAxisParCalc::anticlockwise_zx_rotation(const giAngle& angle) {
    return giXform3(giXformRotate, giPoint3(), giUnitVec3(gi_Y), angle);
}

// A reversed insert is turned over: its cut angle turns the axis the other way.
kapTurningToolAxis kapTurningToolAxisParCalc::apply_insert_angle(const kapTurningToolAxis& axis,
                                                                 double degrees) {
    const double sense = axis.orientation() == kReversed ? -1.0 : 1.0;
    const giXform3 turn = anticlockwise_zx_rotation(giAngle(giAngleDegrees, sense * degrees));
    return {giUnitVec3(turn.apply(axis.direction().vector())), axis.orientation()};
}

kapTurningToolAxis kapTurningToolAxisParCalc::best_equivalent_grooving_axis(
    const kapTurningToolAxis& axis) {
    const kapTurningToolAxis candidates[] = {axis, mirrored_through_centreline(axis),
                                             mirrored_through_face(axis)};
    const auto angle_to_z = [](const kapTurningToolAxis& a) {
        return std::acos(std::clamp(a.direction().z(), -1.0, 1.0));
    };
    const kapTurningToolAxis* best = &candidates[0];
    for (const kapTurningToolAxis& c : candidates) {
        if (angle_to_z(c) < angle_to_z(*best)) best = &c;
    }
    return *best;
}

// Only the upper side is folded: the angles this calculates lie in (-180, 180] before, and a
// caller's angle below -180 is its own to keep.
double kapTurningToolAxisParCalc::normalise_angle(double degrees) {
    if (!(degrees > 180.0) || !std::isfinite(degrees)) return degrees;
    // What subtracting 360 until the angle is no longer above 180 leaves, in one step.
    const double past = std::fmod(degrees - 180.0, 360.0);
    return past == 0.0 ? 180.0 : past - 180.0;
}

double kapTurningToolAxisParCalc::round_to_nearest_90(double degrees) {
    return std::floor(degrees / 90.0 + 0.5) * 90.0;
}

giAngle kapTurningToolAxisParCalc::round_to_nearest_90(const giAngle& angle) {
    return giAngle(giAngleDegrees, round_to_nearest_90(angle.degrees()));
}

kapTurningToolAxis kapTurningToolAxisParCalc::round_to_nearest_90(const kapTurningToolAxis& axis) {
    return kapTurningToolAxis::at_angle(round_to_nearest_90(axis.axis_angle_from_z()),
                                        axis.orientation());
}
