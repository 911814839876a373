// The toolpath's callbacks: change callbacks that tell the host about edits, the pairs of
// parameters kept consistent inside the tree (stepover and cusp), the statistics read callback,
// the mirror callbacks, and the cusp functions of the expression language. Everything is
// registered by name once, when the library is loaded; the schema rows attach the names.

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <string>

#include "kappar/kapToolpathPar.h"
#include "kapparameter/kapEvaluator.h"

using Slot = kapToolpathPar::HookSlot;

// ---------------------------------------------------------------------------------------------
// Expression texts of the stepover and cusp pairs

namespace {

const utString& cusp_from_stepover_expr() {
    static const utString text = "cusp_from_stepover(Stepover;Tool)";
    return text;
}
const utString& shallow_stepover_from_cusp_expr() {
    static const utString text = "stepover_from_cusp(ShallowCusp;Tool)";
    return text;
}
const utString& shallow_cusp_from_stepover_expr() {
    static const utString text = "cusp_from_stepover(ShallowStepover.Value;Tool)";
    return text;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

// The text of the changed parameter's value as the user wrote it, in the current locale.
utString written_text(const kapParameter& par) {
    return kapEvaluator::localize(par.get_value_text());
}

void set_partner(kapParameterRoot& root, std::string_view partner, const utString& expr) {
    const kapParameterPtr p = root.find(partner);
    if (p && !p->is_error()) p->set_string(expr);
}

// Main pair: blanks and letter case carry no meaning, and any text that mentions the stepover
// already ties the two together.
void follow_main_pair(kapParameter* par, std::string_view partner, const utString& own_expr,
                      const utString& partner_expr) {
    kapParameterRoot* root = par != nullptr ? par->get_root() : nullptr;
    if (root == nullptr) return;
    std::string text;
    for (const char c : written_text(*par)) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0) {
            text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    if (text.empty()) return;
    if (equals_ignoring_case(text, own_expr)) return;  // the partner drives this one already
    if (text.find("stepover") != std::string::npos ||
        text.find("stepovercusp") != std::string::npos) {
        return;
    }
    set_partner(*root, partner, partner_expr);
}

// Shallow pair: the text is compared as written (no blank removal, no word test), on purpose.
void follow_shallow_pair(kapParameter* par, std::string_view partner, const utString& own_expr,
                         const utString& partner_expr) {
    kapParameterRoot* root = par != nullptr ? par->get_root() : nullptr;
    if (root == nullptr) return;
    const utString text = written_text(*par);
    if (text.empty() || equals_ignoring_case(text, own_expr)) return;
    set_partner(*root, partner, partner_expr);
}

void forward(Slot slot, kapParameter* par) {
    if (kapToolpathPar::Hook fn = kapToolpathPar::hook(slot)) fn(par);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Change callbacks

// clang-format off
#define KAP_FORWARD(Name, Slot_) \
    void onmodify_toolpath_##Name(kapParameter* par) { forward(Slot::Slot_, par); }

KAP_FORWARD(Tolerance,                                     BoundarySynced)
KAP_FORWARD(Thickness,                                     BoundarySynced)
KAP_FORWARD(AxialThickness,                                BoundarySynced)
KAP_FORWARD(UseAxialThickness,                             BoundarySynced)
KAP_FORWARD(Tool,                                          BoundarySynced)
KAP_FORWARD(MachineTool,                                   MachineTool)
KAP_FORWARD(ModelLocation,                                 ModelLocation)
KAP_FORWARD(OrientationVector_FixedDirectionAzimuth,       OVFixedDirectionAzimuth)
KAP_FORWARD(OrientationVector_FixedDirectionElevation,     OVFixedDirectionElevation)
KAP_FORWARD(OrientationVector_FixedDirectionI,             OVFixedDirectionI)
KAP_FORWARD(OrientationVector_FixedDirectionJ,             OVFixedDirectionJ)
KAP_FORWARD(OrientationVector_FixedDirectionK,             OVFixedDirectionK)
KAP_FORWARD(Statistics_Valid,                              StatisticsValid)
KAP_FORWARD(ToolAxis_Limits_CoordinateSystem,              LimitsCoordinateSystem)
KAP_FORWARD(ToolAxis_Limits_MaxAzimuth,                    LimitsAzimuthMax)
KAP_FORWARD(ToolAxis_Limits_MaxElevation,                  LimitsElevationMax)
KAP_FORWARD(ToolAxis_Limits_MaxMachineAzimuth,             LimitsMachineAzimuthMax)
KAP_FORWARD(ToolAxis_Limits_MaxMachineElevation,           LimitsMachineElevationMax)
KAP_FORWARD(ToolAxis_Limits_MinAzimuth,                    LimitsAzimuthMin)
KAP_FORWARD(ToolAxis_Limits_MinElevation,                  LimitsElevationMin)
KAP_FORWARD(ToolAxis_Limits_MinMachineAzimuth,             LimitsMachineAzimuthMin)
KAP_FORWARD(ToolAxis_Limits_MinMachineElevation,           LimitsMachineElevationMin)
KAP_FORWARD(ToolAxis_Limits_UseMachineAzimuth,             UseMachineAzimuth)
KAP_FORWARD(ToolAxis_Limits_UseMachineElevation,           UseMachineElevation)
KAP_FORWARD(ToolAxis_Limits_UseMachineTool,                LimitsUseMachineTool)
KAP_FORWARD(MachineToolProperties_UseMTD_Active,           MachineToolPropertiesUseMTD)
KAP_FORWARD(Rapid_CoordinateSystem,                        RapidCoordinateSystem)
KAP_FORWARD(Turning_BelowCentreline,                       TurningToolOrientation)
KAP_FORWARD(Turning_CutDirection,                          TurningToolOrientation)
KAP_FORWARD(Turning_Cycle,                                 TurningToolOrientation)
KAP_FORWARD(Turning_ToolAxis_UserDefined,                  TurningToolOrientation)
KAP_FORWARD(Turning_ToolAxis_UserDefinedHolderAngle,       TurningToolOrientation)
KAP_FORWARD(Turning_ToolAxis_UserToolOrientation,          TurningToolOrientation)
#undef KAP_FORWARD
// clang-format on

void onmodify_toolpath_Features_FeatureGroup(kapParameter* par) {
    forward(Slot::FeatureGroup, par);
    forward(Slot::TurningToolOrientation, par);
}

// Only switching automatic heights off tells the host: it then has heights to fill in.
void onmodify_toolpath_AreaClearance_ZHeights_Automatic(kapParameter* par) {
    const kapParameterRoot* root = par != nullptr ? par->get_root() : nullptr;
    if (root == nullptr) return;
    const kapParameter* automatic = root->find_node("AreaClearance.ZHeights.Automatic");
    if (automatic == nullptr || automatic->get_int() != 0) return;
    forward(Slot::ZHeightsAutomatic, par);
}

// Calculating the holder profile implies using it; clearing "Calculate" leaves "Consider" be.
void onmodify_toolpath_ToolHolderProfile_Calculate(kapParameter* par) {
    kapParameterRoot* root = par != nullptr ? par->get_root() : nullptr;
    if (root == nullptr) return;
    const kapParameter* calculate = root->find_node("ToolHolderProfile.Calculate");
    if (calculate == nullptr || calculate->get_int() != 1) return;
    const kapParameterPtr consider = root->find("ToolHolderProfile.Consider");
    if (consider && !consider->is_error()) consider->set_int(1);
}

// Setting one of a pair makes the other follow it. Setting the partner runs the partner's own
// callback, which stops at once: the partner's new text is the canonical one.
void onmodify_toolpath_Stepover(kapParameter* par) {
    follow_main_pair(par, "StepoverCusp", kapToolpathPar::stepover_from_cusp_expr(),
                     cusp_from_stepover_expr());
}
void onmodify_toolpath_StepoverCusp(kapParameter* par) {
    follow_main_pair(par, "Stepover", cusp_from_stepover_expr(),
                     kapToolpathPar::stepover_from_cusp_expr());
}
void onmodify_toolpath_ShallowCusp(kapParameter* par) {
    follow_shallow_pair(par, "ShallowStepover.Value", shallow_cusp_from_stepover_expr(),
                        shallow_stepover_from_cusp_expr());
}
void onmodify_toolpath_ShallowStepover_Value(kapParameter* par) {
    follow_shallow_pair(par, "ShallowCusp", shallow_stepover_from_cusp_expr(),
                        shallow_cusp_from_stepover_expr());
}

void onread_toolpath_Statistics(const kapParameter* par) {
    if (kapToolpathPar::ReadHook fn = kapToolpathPar::statistics_read_hook()) fn(par);
}

// ---------------------------------------------------------------------------------------------
// Mirror callbacks

namespace {

// clang-format off
constexpr std::array<std::string_view, 24> kNonLean = {
    "offset_3d", "constantz", "pencil_corner", "stitch_corner", "automatic_corner", "along_corner",
    "multi_pencil_corner", "rest_finishing", "opti_constz", "inter_constz", "parametric_spiral",
    "wireframe_profile", "offset_flat", "swarf", "profile", "turn_roughing", "turn_finishing",
    "turn_face_roughing", "turn_face_finishing", "turn_groove_roughing", "turn_groove_finishing",
    "turn_bore_roughing", "turn_bore_finishing", "turn_pattern",
};
constexpr std::array<std::string_view, 59> kLean = {
    "unknown", "debug", "raster", "radial", "spiral", "pattern", "com_pattern", "com_boundary",
    "rotary", "point_projection", "line_projection", "plane_projection", "curve_projection",
    "surface_proj", "embedded", "raster_area_clear", "offset_area_clear", "profile_area_clear",
    "inclined_flats", "drill", "wireframe_swarf", "raster_flat", "plunge", "parametric_offset",
    "surface_machine", "port_area_clear", "port_plunge", "port_spiral", "method", "blisk",
    "blisk_hub", "blisk_blade", "disc_profile", "curve_profile", "curve_area_clear", "face",
    "chamfer", "corner_clear", "edge_break", "flowline", "adaptive_area_clear", "rib", "blade",
    "feature_face", "feature_chamfer", "pocket_area_clear", "pocket_profile",
    "feature_external_thread", "slot", "feature_finishing", "feature_top_fillet",
    "surface_coating", "feature_construction", "surface_inspection", "hole_inspection",
    "surface_driven_construction", "hsm_finishing", "hole_machining", "inclined_walls",
};
// clang-format on

utString strategy_of(const kapParameterRoot& root) {
    const kapParameter* s = root.find_node("Strategy");
    return s != nullptr ? s->get_string() : utString();
}

// Whether a condition holds when evaluated on the root; a failing condition does not.
bool holds(const kapParameterRoot& root, const char* condition) {
    const kapParameterPtr v = kapEvaluator(&root).evaluate(condition);
    return v && !v->is_error() && v->get_double() != 0.0;
}

kapParameterMirrorMode angular_limit_mode(const kapParameter* par) {
    const kapParameterRoot* root = par != nullptr ? par->get_root() : nullptr;
    if (root == nullptr) return 0;
    if (holds(*root, "active(AngularLimits2)")) return 0;
    const utString s = strategy_of(*root);
    if (s == "curve_projection") return 1;
    if (s == "radial") return 4;
    if (s == "rotary") return 0;
    return 3;
}

kapParameterMirrorMode linear_limit_mode(const kapParameter* par) {
    const kapParameterRoot* root = par != nullptr ? par->get_root() : nullptr;
    return root != nullptr && holds(*root, "Strategy == 'rotary'") ? 1 : 0;
}

}  // namespace

std::span<const std::string_view> kapToolpathParCallbacks::lean_strategies() {
    return kLean;
}
std::span<const std::string_view> kapToolpathParCallbacks::non_lean_strategies() {
    return kNonLean;
}

kapParameterMirrorMode kapToolpathParCallbacks::onmirror_toolpath_AngularLimits_Start(
    const kapParameter* par) {
    return angular_limit_mode(par);
}
kapParameterMirrorMode kapToolpathParCallbacks::onmirror_toolpath_AngularLimits_End(
    const kapParameter* par) {
    return angular_limit_mode(par);
}
kapParameterMirrorMode kapToolpathParCallbacks::onmirror_toolpath_LinearLimits_Start(
    const kapParameter* par) {
    return linear_limit_mode(par);
}
kapParameterMirrorMode kapToolpathParCallbacks::onmirror_toolpath_LinearLimits_End(
    const kapParameter* par) {
    return linear_limit_mode(par);
}

kapParameterMirrorMode kapToolpathParCallbacks::onmirror_toolpath_ToolAxis_FixedAngle_Value(
    const kapParameter* par) {
    const kapParameterMap* parent = par != nullptr ? par->parent() : nullptr;
    const kapParameter* mode = parent != nullptr ? parent->find_child("Mode") : nullptr;
    return mode != nullptr && mode->get_string() == "azimuth" ? 2 : 0;
}

kapParameterMirrorMode kapToolpathParCallbacks::onmirror_toolpath_ToolAxis_Lean(
    const kapParameter* par) {
    const kapParameterRoot* root = par != nullptr ? par->get_root() : nullptr;
    if (root == nullptr) return 0;
    const utString s = strategy_of(*root);
    return std::find(kLean.begin(), kLean.end(), s) != kLean.end() ? 1 : 0;
}

bool kapToolpathParCallbacks::test_mirror_sanity() {
    const auto* strategy =
        kapParameterEnum::ut_dynamic_cast(kapToolpathPar::prototype().find_node("Strategy"));
    if (strategy == nullptr) return false;
    const int n = strategy->num_states();
    if (static_cast<std::size_t>(n) != kLean.size() + kNonLean.size()) return false;
    for (int i = 0; i < n; ++i) {
        const std::string_view key = strategy->state(i).key;
        const auto lean = std::count(kLean.begin(), kLean.end(), key);
        const auto non_lean = std::count(kNonLean.begin(), kNonLean.end(), key);
        if (lean + non_lean != 1) return false;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Cusp height and stepover, as functions of the expression language
//
// The cusp left between two passes a stepover apart is that of the tool's rounded end: for a
// ball-nosed tool of radius R, h = R - sqrt(R^2 - (s/2)^2); a tool with a tip radius r uses r
// while the stepover stays within the radiused part (s <= 2r); beyond it the flat part leaves no
// further cusp, so the cusp stays at r, and a cusp of r or more allows the tool's whole diameter
// as stepover. A flat end mill leaves no cusp: its cusp is 0 and its stepover from any cusp is
// the diameter. The formulas are written to keep their precision for small stepovers.

namespace {

// The geometry of the referenced tool that decides the cusp: its diameter and the radius of its
// rounded end (0 for a flat end).
struct CuspTool {
    double diameter = 0.0;
    double radius = 0.0;
};

// Reads (value; tool) from the argument list; answers an error parameter when it cannot.
kapParameterPtr read_arguments(const char* fn, const kapParameterPtr& args, double& value,
                               CuspTool& tool) {
    const auto* list = args ? kapParameterMap::ut_dynamic_cast(args.pointer()) : nullptr;
    if (list == nullptr || list->size() != 2) {
        return kapParameterError::create(kapErrBadCall, utString(fn) + " takes a value and a tool");
    }
    const kapParameter& arg = *list->child(0);
    if (arg.is_error()) return list->child(0);
    if (arg.type() == kapParameterType::numeric) {
        value = arg.get_double();
    } else if (!kapParameterNumeric::parse(arg.get_string(), value)) {
        return kapParameterError::create(kapErrType, utString(fn) + ": the value is not a number");
    }
    if (!std::isfinite(value) || value < 0.0) {
        return kapParameterError::create(kapErrDomain, utString(fn) + ": a negative value");
    }
    const kapParameter* t = list->child(1).pointer();
    if (t->is_ref_node()) t = t->follow();
    if (t == nullptr || !t->is_map()) {
        return kapParameterError::create(kapErrNoItem, utString(fn) + ": no tool");
    }
    const kapParameter* type = t->find_node("Type");
    const kapParameter* diameter = t->find_node("Diameter");
    if (type == nullptr || diameter == nullptr) {
        return kapParameterError::create(kapErrNoItem, utString(fn) + ": the tool has no geometry");
    }
    tool.diameter = diameter->get_double();
    if (!std::isfinite(tool.diameter) || tool.diameter <= 0.0) {
        return kapParameterError::create(kapErrDomain, utString(fn) + ": a tool without diameter");
    }
    const utString kind = type->get_string();
    if (kind == "ball_nosed") {
        tool.radius = tool.diameter / 2;
    } else if (kind == "end_mill") {
        tool.radius = 0.0;
    } else {
        const kapParameter* tip = t->find_node("TipRadius");
        if (tip == nullptr) {
            return kapParameterError::create(kapErrNoItem,
                                             utString(fn) + ": the tool has no tip radius");
        }
        tool.radius = std::clamp(tip->get_double(), 0.0, tool.diameter / 2);
        if (!std::isfinite(tool.radius)) tool.radius = 0.0;
    }
    return {};
}

kapParameterPtr length(double v) {
    return kapParameterPtr(new kapParameterNumeric(kapSubTypeReal, kapDimensions(kapDimLength), v));
}

kapParameterPtr exprfunc_cusp_from_stepover(const kapParameter& /*owner*/,
                                            const kapParameterPtr& args) {
    double s = 0.0;
    CuspTool tool;
    if (kapParameterPtr e = read_arguments("cusp_from_stepover", args, s, tool)) return e;
    const double r = tool.radius;
    if (r <= 0.0) return length(0.0);
    const double w = std::min(s, 2 * r) / 2;            // half the stepover, within the radius
    const double depth = std::sqrt((r - w) * (r + w));  // sqrt(r^2 - w^2)
    return length(w * w / (r + depth));                 // r - depth, without the cancellation
}

kapParameterPtr exprfunc_stepover_from_cusp(const kapParameter& /*owner*/,
                                            const kapParameterPtr& args) {
    double h = 0.0;
    CuspTool tool;
    if (kapParameterPtr e = read_arguments("stepover_from_cusp", args, h, tool)) return e;
    const double r = tool.radius;
    if (r <= 0.0 || h >= r) return length(tool.diameter);
    return length(2 * std::sqrt(h * (2 * r - h)));
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Registration, once, when the library is loaded

namespace {

struct OnModifyRow {
    const char* name;
    kapOnModifyFn fn;
};

// clang-format off
#define KAP_ROW(Name) {"onmodify_toolpath_" #Name, &onmodify_toolpath_##Name}
constexpr OnModifyRow kOnModify[] = {
    KAP_ROW(Tolerance), KAP_ROW(Thickness), KAP_ROW(AxialThickness), KAP_ROW(UseAxialThickness),
    KAP_ROW(Tool), KAP_ROW(MachineTool), KAP_ROW(ModelLocation),
    KAP_ROW(OrientationVector_FixedDirectionAzimuth), KAP_ROW(OrientationVector_FixedDirectionElevation),
    KAP_ROW(OrientationVector_FixedDirectionI), KAP_ROW(OrientationVector_FixedDirectionJ),
    KAP_ROW(OrientationVector_FixedDirectionK),
    KAP_ROW(Statistics_Valid),
    KAP_ROW(ToolAxis_Limits_CoordinateSystem),
    KAP_ROW(ToolAxis_Limits_MaxAzimuth), KAP_ROW(ToolAxis_Limits_MaxElevation),
    KAP_ROW(ToolAxis_Limits_MaxMachineAzimuth), KAP_ROW(ToolAxis_Limits_MaxMachineElevation),
    KAP_ROW(ToolAxis_Limits_MinAzimuth), KAP_ROW(ToolAxis_Limits_MinElevation),
    KAP_ROW(ToolAxis_Limits_MinMachineAzimuth), KAP_ROW(ToolAxis_Limits_MinMachineElevation),
    KAP_ROW(ToolAxis_Limits_UseMachineAzimuth), KAP_ROW(ToolAxis_Limits_UseMachineElevation),
    KAP_ROW(ToolAxis_Limits_UseMachineTool),
    KAP_ROW(MachineToolProperties_UseMTD_Active),
    KAP_ROW(Rapid_CoordinateSystem),
    KAP_ROW(Turning_BelowCentreline), KAP_ROW(Turning_CutDirection), KAP_ROW(Turning_Cycle),
    KAP_ROW(Turning_ToolAxis_UserDefined), KAP_ROW(Turning_ToolAxis_UserDefinedHolderAngle),
    KAP_ROW(Turning_ToolAxis_UserToolOrientation),
    KAP_ROW(Features_FeatureGroup),
    KAP_ROW(AreaClearance_ZHeights_Automatic),
    KAP_ROW(ToolHolderProfile_Calculate),
    KAP_ROW(Stepover), KAP_ROW(StepoverCusp), KAP_ROW(ShallowCusp), KAP_ROW(ShallowStepover_Value),
};
#undef KAP_ROW
// clang-format on

struct OnMirrorRow {
    const char* name;
    kapOnMirrorFn fn;
};
using C = kapToolpathParCallbacks;
constexpr OnMirrorRow kOnMirror[] = {
    {"onmirror_toolpath_AngularLimits_Start", &C::onmirror_toolpath_AngularLimits_Start},
    {"onmirror_toolpath_AngularLimits_End", &C::onmirror_toolpath_AngularLimits_End},
    {"onmirror_toolpath_LinearLimits_Start", &C::onmirror_toolpath_LinearLimits_Start},
    {"onmirror_toolpath_LinearLimits_End", &C::onmirror_toolpath_LinearLimits_End},
    {"onmirror_toolpath_ToolAxis_FixedAngle_Value",
     &C::onmirror_toolpath_ToolAxis_FixedAngle_Value},
    {"onmirror_toolpath_ToolAxis_Lean", &C::onmirror_toolpath_ToolAxis_Lean},
};

bool register_callbacks() {
    for (const OnModifyRow& row : kOnModify)
        kapParameterCallbacks::register_onmodify(row.name, row.fn);
    for (const OnMirrorRow& row : kOnMirror)
        kapParameterCallbacks::register_onmirror(row.name, row.fn);
    kapParameterCallbacks::register_onread("onread_toolpath_Statistics",
                                           &onread_toolpath_Statistics);
    kapEvaluator::register_function("cusp_from_stepover", &exprfunc_cusp_from_stepover);
    kapEvaluator::register_function("stepover_from_cusp", &exprfunc_stepover_from_cusp);
    // The texts live from load time on.
    kapToolpathPar::stepover_from_cusp_expr();
    cusp_from_stepover_expr();
    shallow_stepover_from_cusp_expr();
    shallow_cusp_from_stepover_expr();
    return true;
}

// The read callback is looked up when the schema is declared, so the names must be there before
// the first toolpath is built.
[[maybe_unused]] const bool registered = register_callbacks();

}  // namespace
