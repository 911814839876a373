#include "kappar/kapToolpathPar.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/McTPCompHead.h"
#include "host/kapMcParList.h"
#include "kappar/kapHistoryFactory.h"
#include "kapparameter/kapEvaluator.h"

#include "kapToolpathFuncs.h"
#include "kapToolpathKeyStrings.h"
#include "kapToolpathRead.h"

// ---------------------------------------------------------------------------------------------
// Process-wide state

namespace {

utStringutStringSetcoTable& dependency_table() {
    static utStringutStringSetcoTable table;
    return table;
}

kapToolpathPar::Hook& slot(kapToolpathPar::HookSlot s) {
    static kapToolpathPar::Hook slots[static_cast<int>(kapToolpathPar::HookSlot::Count)] = {};
    return slots[static_cast<int>(s)];
}

kapToolpathPar::ReadHook& statistics_read_slot() {
    static kapToolpathPar::ReadHook fn = nullptr;
    return fn;
}

// The table depends on the declarations alone, which every toolpath of the process shares:
// it is built by the first construction and stays the same for every later one.
void fill_dependency_table(kapToolpathPar& root) {
    static bool filled = false;
    if (filled) return;
    dependency_table().clear();
    kapParameterRoot::build_par_dependency_table(root, dependency_table());
    filled = true;
}

}  // namespace

namespace {

// The key strings as recorded by the loaders: appended in the order met to one run of text (a
// key may be there more than once) and merged into the set when someone asks for it, so that a
// load pays one copy per key into storage kept from load to load instead of a search of a set
// of a thousand strings.
struct RecordedKeys {
    utStringcoSet set;
    std::string text;                 // the keys recorded since the last merge, one after another
    std::vector<std::uint32_t> ends;  // where each of them ends in `text`

    void merge() {
        std::size_t begin = 0;
        for (const std::uint32_t end : ends) {
            set.emplace(std::string_view(text).substr(begin, end - begin));
            begin = end;
        }
        text.clear();
        ends.clear();
    }
};

RecordedKeys& recorded_keys() {
    static RecordedKeys keys;
    return keys;
}

// A process that loads into one toolpath over and over without constructing another keeps the
// run bounded: past this many bytes the keys go into the set.
constexpr std::size_t kMergeAt = std::size_t{1} << 20;

}  // namespace

utStringcoSet& kapToolpathParLoaderState::key_strings() {
    RecordedKeys& keys = recorded_keys();
    keys.merge();
    return keys.set;
}

void kap_toolpath::record_key_string(std::string_view key) {
    RecordedKeys& keys = recorded_keys();
    if (keys.text.size() + key.size() > kMergeAt) keys.merge();
    keys.text.append(key);
    keys.ends.push_back(static_cast<std::uint32_t>(keys.text.size()));
}

void kap_toolpath::clear_key_strings() {
    RecordedKeys& keys = recorded_keys();
    keys.set.clear();
    keys.text.clear();
    keys.ends.clear();
}

std::array<utString, 4>& kapToolpathParLoaderState::cached_strings() {
    static std::array<utString, 4> strings;
    return strings;
}

bool& kapToolpathParLoaderState::cached_flag() {
    static bool flag = false;
    return flag;
}

void kapToolpathParLoaderState::reset() {
    kap_toolpath::clear_key_strings();
    kap_toolpath::record_key_string("join_up");
    kap_toolpath::record_key_string("one_way");
    for (utString& s : cached_strings())
        s.clear();
    cached_flag() = false;
}

// ---------------------------------------------------------------------------------------------
// Construction

kapToolpathPar::kapToolpathPar(const utString& name) : kapEntityRoot(name) {
    reset();
    fill_dependency_table(*this);
    kapToolpathParLoaderState::reset();
}

kapToolpathPar::kapToolpathPar(const kapToolpathPar& o) : kapEntityRoot(o), toolpath_(o.toolpath_) {
    kapToolpathParLoaderState::reset();
}

const utStringutStringSetcoTable& kapToolpathPar::get_par_dependency_table() {
    return dependency_table();
}

const utString& kapToolpathPar::stepover_from_cusp_expr() {
    static const utString expr = "stepover_from_cusp(StepoverCusp;Tool)";
    return expr;
}

// ---------------------------------------------------------------------------------------------
// Strategy classifications

bool kapToolpathPar::is_probing() const {
    utString keep;
    const std::string_view s = kap_toolpath::text_view_of(*this, "Strategy", keep);
    return s == "surface_inspection" || s == "hole_inspection";
}

int kapToolpathPar::is_turning() const {
    static constexpr std::string_view kTurning[] = {
        "turn_roughing",       "turn_finishing",       "turn_face_roughing",
        "turn_face_finishing", "turn_groove_roughing", "turn_groove_finishing",
        "turn_bore_roughing",  "turn_bore_finishing",  "turn_pattern",
    };
    utString keep;
    const std::string_view s = kap_toolpath::text_view_of(*this, "Strategy", keep);
    return std::find(std::begin(kTurning), std::end(kTurning), s) != std::end(kTurning) ? 1 : 0;
}

// ---------------------------------------------------------------------------------------------
// The host's legacy list

void kapToolpathPar::copy_to_parlist(kapMcParList& list) const {
    list.copy_from_kappar(*this);
}

void kapToolpathPar::copy_from_parlist(const kapMcParList& list) {
    kapToolpathStrategyType type;
    if (const kapMcParStrategy* first = kapToolpathStrategyType::strat_pars(list)) {
        type = first->get_strategy_type();
    }
    for (kapMcParListIter it(list); it; ++it) {
        const kapMcParItem* item = it();
        // A toolpath's boundary is never taken from the list.
        if (kapMcParBoundary::ut_dynamic_cast(item) != nullptr) continue;
        item->copy_to_kappar(*this);
        if (const auto* strategy = kapMcParStrategy::ut_dynamic_cast(item)) {
            type = strategy->get_strategy_type();
        }
    }
    if (!type.is_unknown()) {
        if (kapParameterPtr s = find("strategy"); s && !s->is_error()) s->set_string(type.str());
    }
}

// ---------------------------------------------------------------------------------------------
// Computed values

namespace {

// clang-format off
constexpr std::string_view kPlungeWarningExpr =
    "( Connections.GougeCheck AND (((Strategy == 'curve_area_clear' OR Strategy == 'pocket_area_clear')"
    "   AND AreaClearance.Type != 'adaptive') OR Strategy == 'raster_area_clear'"
    "   OR Strategy == 'offset_area_clear' OR Strategy == 'feature_face')"
    " AND ((active(AreaClearance.LeadIn.ApproachOutside) AND AreaClearance.LeadIn.ApproachOutside)"
    "   OR Connections.LeadIn[0].Type != 'none'"
    "   OR (Connections.SeparateFirstLeadIn AND Connections.FirstLeadIn.Type != 'none') ) )";
constexpr std::string_view kProjectionExpr =
    "(Strategy == 'point_projection' OR Strategy == 'line_projection' OR Strategy == 'plane_projection'"
    " OR Strategy == 'curve_projection' OR Strategy == 'surface_proj')";
constexpr std::string_view kTangentNormalExpr =
    "(Strategy == 'pattern' AND PatternBasePosition=='drive_curve')"
    " OR (Strategy == 'wireframe_profile' AND WireframeProfileBasePosition == 'drive_curve')";
constexpr std::string_view kReferenceToolAxisExpr =
    "(Strategy == 'pattern' AND UseToolpathAsPattern"
    " AND (PatternBasePosition=='automatic' OR PatternBasePosition=='drive_curve'))";
// clang-format on

kapParameterPtr length(double v) {
    return kapParameterPtr(new kapParameterNumeric(kapSubTypeReal, kapDimensions(kapDimLength), v));
}

kapParameterPtr integer(double v) {
    return kapParameterPtr(
        new kapParameterNumeric(kapSubTypeInteger, kapDimensions(kapDimNone), v));
}

double value_at(const kapParameter& root, std::string_view path) {
    const kapParameter* p = root.find_node(path);
    return p != nullptr ? p->get_double() : 0.0;
}

// The cutting feed rate, or the adaptive non-cutting feed rate when that is in use and higher.
double feed_rate(const kapParameter& root) {
    double f = value_at(root, "FeedRate.Cutting.Value");
    if (value_at(root, "AreaClearance.Adaptive.NonCuttingFeedrate.Active") != 0.0) {
        f = std::max(f, value_at(root, "AreaClearance.Adaptive.NonCuttingFeedrate.Value"));
    }
    return f;
}

// The smallest arc radius the machine follows at the feed rate: the largest of the radii that
// its acceleration, its jerk and its servo response allow, never below a floor.
double default_minimum_radius(const kapParameter& root) {
    const double v = feed_rate(root) / 60.0;
    const double r1 = v * v / kapUnitsUtils::select(1500.0, 60.0);
    const double r2 = std::sqrt(v * v * v / kapUnitsUtils::select(75000.0, 3000.0));
    const double r3 = v / 31.41592653589793;
    const double floor = kapUnitsUtils::select(1.0, 0.04);
    const double r = std::max({r1, r2, r3});
    return r > floor ? r : floor;
}

// The distance travelled in 3 milliseconds. The same in either unit system, unlike the radius:
// saved toolpaths were calculated with it as it is.
double default_minimum_point_spacing(const kapParameter& root) {
    return feed_rate(root) / 60000.0 * 3.0;
}

}  // namespace

kapParameterPtr kapToolpathPar::lookup_method(const kapParameterKey& key) const {
    if (key.size() == 0) return kapParameterRoot::lookup_method(key);
    const utString name = kapdowncase(key.first());
    if (name == "num_comp") {
        return integer(toolpath_ != nullptr ? toolpath_->num_components() : 0);
    }
    if (name == "hash") {
        const int version = static_cast<int>(value_at(*this, "history.hash_version"));
        return integer(toolpath_ != nullptr ? toolpath_->geometrical_id(version) : 0);
    }
    if (name == "edits" || name == "previousedits") {
        kapParameterPtr list = kapHistoryFactory::get_history_list(get_ref_to_id(), get_root_type(),
                                                                   name == "edits" ? 0 : 1);
        if (list && !list->is_error() && key.size() > 1) return list[key.remainder()];
        return list;
    }
    if (name == "defaultplungewarning")
        return kapEvaluator(this).evaluate(utString(kPlungeWarningExpr));
    if (name == "projectionstrategy") return kapEvaluator(this).evaluate(utString(kProjectionExpr));
    if (name == "tangentnormalavailable")
        return kapEvaluator(this).evaluate(utString(kTangentNormalExpr));
    if (name == "referencetoolaxisavailable") {
        return kapEvaluator(this).evaluate(utString(kReferenceToolAxisExpr));
    }
    if (name == "defaultminimumradius") return length(default_minimum_radius(*this));
    if (name == "defaultminimumpointspacing") return length(default_minimum_point_spacing(*this));
    if (name == "defaultnoncuttingmaxlength") {
        return length(kapMcParAreaClearAdaptive::get_optimum_max_noncutting_length(*this));
    }
    return kapParameterRoot::lookup_method(key);
}

// Functions that read nothing but parameter values and the shape of this tree and of the tool it
// references (followed through the "Tool" reference):
//   IsExternalStrategy, IsTurning, IsInspection, IsAdditive, SupportsContactNormals,
//   SupportsCornerFilleting, SupportsCoinFitting, SupportsRoughCornerFilleting,
//   SupportsRoughCoinFitting, SupportsCollisionCheck: the strategy and settings of the tree;
//   IsMultiAxis: the same, and the activity of "CollisionAvoidance" (asked afresh; a condition
//   there that is unsure makes the call unsure);
//   Turning.HolderAngleF, Turning.ToolOrientationF: the turning settings and the tool's insert.
// Not so: UseOldFeatureSet (the version manager's levels).
// Methods of lookup_method that read values only: projectionstrategy, tangentnormalavailable,
// referencetoolaxisavailable and defaultplungewarning (expressions on this tree; the last one's
// active() uses count as unsure all the same), defaultminimumpointspacing (the feed rates).
// Not so: num_comp and hash (the host's toolpath), edits and previousedits (the history lists),
// defaultminimumradius (the unit system), defaultnoncuttingmaxlength (the host's calculation).
// None of the parameters they read has a callback on reading.
bool kapToolpathPar::answers_from_values(kapMemberFn fn) const {
    static constexpr kapMemberFn kFromValues[] = {
        &parfunc_toolpath_IsExternalStrategy,
        &parfunc_toolpath_IsTurning,
        &parfunc_toolpath_IsInspection,
        &parfunc_toolpath_IsAdditive,
        &parfunc_toolpath_IsMultiAxis,
        &parfunc_toolpath_SupportsContactNormals,
        &parfunc_toolpath_SupportsCornerFilleting,
        &parfunc_toolpath_SupportsCoinFitting,
        &parfunc_toolpath_SupportsRoughCornerFilleting,
        &parfunc_toolpath_SupportsRoughCoinFitting,
        &parfunc_toolpath_SupportsCollisionCheck,
        &parfunc_toolpath_Turning_HolderAngleF,
        &parfunc_toolpath_Turning_ToolOrientationF,
    };
    return fn != nullptr &&
           std::find(std::begin(kFromValues), std::end(kFromValues), fn) != std::end(kFromValues);
}

bool kapToolpathPar::method_answers_from_values(std::string_view name) const {
    static constexpr std::string_view kFromValues[] = {
        "projectionstrategy",   "tangentnormalavailable",     "referencetoolaxisavailable",
        "defaultplungewarning", "defaultminimumpointspacing",
    };
    for (std::string_view m : kFromValues) {
        if (m.size() == name.size() &&
            std::equal(m.begin(), m.end(), name.begin(), [](char a, char b) {
                return a == std::tolower(static_cast<unsigned char>(b));
            })) {
            return true;
        }
    }
    return false;
}

// ---------------------------------------------------------------------------------------------
// Host hooks

kapToolpathPar::Hook kapToolpathPar::hook(HookSlot s) noexcept {
    return s == HookSlot::Count ? nullptr : slot(s);
}

kapToolpathPar::ReadHook kapToolpathPar::statistics_read_hook() noexcept {
    return statistics_read_slot();
}

// clang-format off
#define KAP_TOOLPATH_HOOK_SETTER(Setter, Slot) \
    void kapToolpathPar::Setter(Hook fn) { slot(HookSlot::Slot) = fn; }
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_ZHeights_Automatic_callback,                ZHeightsAutomatic)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_boundary_synced_parameter_callback,         BoundarySynced)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_MachineTool_parameter_callback,    MachineTool)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_ModelLocation_parameter_callback,  ModelLocation)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_OV_FixedDirectionAzimuth_callback, OVFixedDirectionAzimuth)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_OV_FixedDirectionElevation_callback, OVFixedDirectionElevation)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_OV_FixedDirectionI_callback,       OVFixedDirectionI)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_OV_FixedDirectionJ_callback,       OVFixedDirectionJ)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_OV_FixedDirectionK_callback,       OVFixedDirectionK)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolpath_statistics_valid_callback,         StatisticsValid)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_machine_elevation_min,      LimitsMachineElevationMin)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_machine_elevation_max,      LimitsMachineElevationMax)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_machine_azimuth_min,        LimitsMachineAzimuthMin)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_machine_azimuth_max,        LimitsMachineAzimuthMax)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_elevation_min,              LimitsElevationMin)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_elevation_max,              LimitsElevationMax)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_azimuth_min,                LimitsAzimuthMin)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_azimuth_max,                LimitsAzimuthMax)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_coordinate_system,          LimitsCoordinateSystem)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_toolaxis_limits_use_machine_tool,           LimitsUseMachineTool)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_machine_tool_properties_use_mtd,            MachineToolPropertiesUseMTD)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_use_machine_elevation,                      UseMachineElevation)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_use_machine_azimuth,                        UseMachineAzimuth)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_rapid_coordinate_system,                    RapidCoordinateSystem)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_turning_tool_orientation,                   TurningToolOrientation)
KAP_TOOLPATH_HOOK_SETTER(set_onmodify_feature_group,                              FeatureGroup)
#undef KAP_TOOLPATH_HOOK_SETTER
// clang-format on

void kapToolpathPar::set_onread_toolpath_statistics_callback(ReadHook fn) {
    statistics_read_slot() = fn;
}

KAPPAR_REGISTER_ENTITY(kapToolpathPar)
