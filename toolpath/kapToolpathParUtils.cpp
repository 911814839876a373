#include "kappar/kapToolpathParUtils.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "kapToolpathFuncs.h"
#include "kappar/kapToolpathPar.h"

#include "kapToolpathRead.h"

namespace {
using kap_toolpath::flag_of;
using kap_toolpath::text_of;
using kap_toolpath::text_view_of;

using Names = std::initializer_list<std::string_view>;

bool active(const kapParameter& tree, std::string_view path) {
    const kapParameter* p = tree.find_node(path);
    return p != nullptr && p->is_active();
}

bool one_of(std::string_view s, Names names) {
    return std::find(names.begin(), names.end(), s) != names.end();
}

// The strategy, read in place; `keep` holds it when it had to be copied.
std::string_view strategy(const kapParameter& tree, utString& keep) {
    return text_view_of(tree, "Strategy", keep);
}

bool strategy_is(const kapParameter& tree, std::string_view name) {
    utString keep;
    return strategy(tree, keep) == name;
}

bool strategy_in(const kapParameter& tree, Names names) {
    utString keep;
    return one_of(strategy(tree, keep), names);
}

bool text_is(const kapParameter& tree, std::string_view path, std::string_view text) {
    utString keep;
    return text_view_of(tree, path, keep) == text;
}

kapObjectId active_ref(const kapParameter& tree, std::string_view path) {
    const kapParameter* p = tree.find_node(path);
    return p != nullptr && p->is_active() ? p->get_ref_id() : kapObjectId{};
}

constexpr std::string_view kOutputHoles = "AreaClearance.LeadIn.Drill.OutputHoles";
constexpr std::string_view kOutputPattern = "AreaClearance.LeadIn.Drill.OutputPattern";
constexpr std::string_view kInputPattern = "AreaClearance.LeadIn.Drill.Pattern";

}  // namespace

// -- strategy classifications -----------------------------------------------------------------

bool kapToolpathParUtils::is_debug_toolpath(const kapParameter& tree) {
    return strategy_is(tree, "debug");
}

bool kapToolpathParUtils::is_external(const kapParameter& tree) {
    return strategy_is(tree, "hsm_finishing");
}

bool kapToolpathParUtils::is_additive(const kapParameter& tree) {
    return strategy_in(
               tree, {"surface_coating", "feature_construction", "surface_driven_construction"}) ||
           text_is(tree, "ManufacturingProcess", "additive");
}

bool kapToolpathParUtils::is_maelstrom(const kapParameter& tree) {
    utString keep;
    const std::string_view s = strategy(tree, keep);
    return s == "adaptive_area_clear" ||
           (s == "curve_area_clear" && text_is(tree, "AreaClearance.Type", "adaptive"));
}

bool kapToolpathParUtils::slice_based_area_clear(const kapParameter& tree) {
    return strategy_in(tree, {"raster_area_clear", "offset_area_clear", "profile_area_clear",
                              "inclined_flats", "adaptive_area_clear", "curve_area_clear",
                              "curve_profile", "pocket_area_clear", "pocket_profile"});
}

bool kapToolpathParUtils::is_model_area_clearance(const kapParameter& tree) {
    return strategy_in(tree, {"raster_area_clear", "offset_area_clear", "adaptive_area_clear"}) &&
           text_of(tree, "AreaClearance.Slicer.Type") == "model";
}

bool kapToolpathParUtils::is_feature_area_clearance(const kapParameter& tree) {
    return strategy_in(tree, {"raster_area_clear", "offset_area_clear", "adaptive_area_clear",
                              "pocket_area_clear"}) &&
           text_of(tree, "AreaClearance.Slicer.Type") == "feature";
}

bool kapToolpathParUtils::is_turning(const kapParameter& tree) {
    return active(tree, "Turning");
}

bool kapToolpathParUtils::is_inspection(const kapParameter& tree) {
    return active(tree, "Probing");
}

bool kapToolpathParUtils::require_to_keep_colliding_moves(const kapParameter& tree) {
    return active(tree, "ActionOnCollision") && text_of(tree, "ActionOnCollision") != "discard";
}

// -- drilling references ------------------------------------------------------------------------

kapObjectId kapToolpathParUtils::get_output_holes(const kapParameter& tree) {
    return active_ref(tree, kOutputHoles);
}
kapObjectId kapToolpathParUtils::get_output_pattern(const kapParameter& tree) {
    return active_ref(tree, kOutputPattern);
}
kapObjectId kapToolpathParUtils::get_input_pattern(const kapParameter& tree) {
    return active_ref(tree, kInputPattern);
}
bool kapToolpathParUtils::is_output_holes(const kapParameter& tree, const kapObjectId& id) {
    return !id.empty() && get_output_holes(tree) == id;
}
bool kapToolpathParUtils::is_output_pattern(const kapParameter& tree, const kapObjectId& id) {
    return !id.empty() && get_output_pattern(tree) == id;
}
bool kapToolpathParUtils::is_input_pattern(const kapParameter& tree, const kapObjectId& id) {
    return !id.empty() && get_input_pattern(tree) == id;
}

// -- capabilities -------------------------------------------------------------------------------

bool kapToolpathParUtils::strategy_supports_contact_normals(const kapParameter& tree) {
    const kapParameterPtr v = parfunc_toolpath_SupportsContactNormals(tree, kapParameterPtr());
    return v && !v->is_error() && v->get_int() != 0;
}

// Arc fitting ("arcfit") replaces points by arcs and drops their normals; "arcfit_and_normals"
// keeps them. A setup holds the filter settings its toolpaths share and has no activity of its
// own for them: there the filter type alone decides.
bool kapToolpathParUtils::point_distribution_pars_prevent_contact_normals(
    const kapParameter& tree) {
    const kapParameterRoot* root = kapParameterRoot::get_root(&tree);
    const bool setup = root != nullptr && root->get_root_type() == "setup";
    if (!setup && !(active(tree, "Filter.Active") && flag_of(tree, "Filter.Active"))) return false;
    return text_of(tree, "Filter.Type") == "arcfit";
}

// Corner filleting rounds the sharp changes of direction of finishing passes that follow the
// model: every strategy whose passes run along the surface, not the area clearance, drilling,
// turning, probing and feature strategies.
bool kapToolpathParUtils::support_corner_filleting(const kapParameter& tree) {
    return strategy_in(
        tree, {"automatic_corner", "multi_pencil_corner", "disc_profile", "point_projection",
               "line_projection", "plane_projection", "curve_projection", "profile", "opti_constz",
               "inter_constz", "swarf", "surface_proj", "embedded", "wireframe_swarf",
               "parametric_offset", "surface_machine", "wireframe_profile", "flowline",
               "parametric_spiral", "rib",
               // further finishing strategies with continuous passes
               "raster", "radial", "spiral", "pattern", "constantz", "offset_3d", "rest_finishing",
               "inclined_walls"});
}

// Constant-engagement fitting of the passes: the 3-axis finishing strategies whose passes are
// continuous curves over the model. The member function narrows it by strategy settings.
bool kapToolpathParUtils::support_coin_fitting(const kapParameter& tree) {
    return strategy_in(tree, {"constantz", "raster", "radial", "spiral", "offset_3d", "pattern",
                              "opti_constz", "inter_constz"});
}

// Roughing coin fitting: the offset-style clearance strategies (the member function further
// requires the offset type unless the strategy is "feature_face").
bool kapToolpathParUtils::support_roughing_coin_fitting(const kapParameter& tree) {
    return strategy_in(tree, {"offset_area_clear", "profile_area_clear", "pocket_area_clear",
                              "feature_finishing", "feature_face"});
}

// Roughing corner filleting: area clearance sliced from the model, a pattern or flats. Feature
// slicing keeps the feature's own corners, so filleting is left off there; pocket clearance is
// always sliced from its feature and always filleted.
bool kapToolpathParUtils::support_roughing_corner_filleting(const kapParameter& tree) {
    if (strategy_is(tree, "pocket_area_clear")) return true;
    return strategy_in(tree, {"raster_area_clear", "offset_area_clear", "profile_area_clear",
                              "adaptive_area_clear"}) &&
           text_of(tree, "AreaClearance.Slicer.Type") != "feature";
}

// 1: the strategy moves the tool axis ("rotary"); 2: the tool axis is not vertical and not held
// at a fixed angle; 3: collision avoidance may tilt the tool. 0: a 3-axis (or 3+2) toolpath.
int kapToolpathParUtils::is_multi_axis(const kapParameter& tree) {
    if (strategy_is(tree, "rotary")) return 1;
    utString keep_type, keep_fixed;
    const std::string_view type = text_view_of(tree, "ToolAxis.Type", keep_type);
    const std::string_view fixed = text_view_of(tree, "ToolAxis.FixedAngle.Mode", keep_fixed);
    if (!type.empty() && type != "vertical" && (fixed.empty() || fixed == "none")) return 2;
    // The flag first: the activity of the map evaluates a condition of its own.
    if (flag_of(tree, "CollisionAvoidance.Active") && active(tree, "CollisionAvoidance")) return 3;
    return 0;
}

// 2D machining: a toolpath made from features ("Features" in use) that is not a turning one.
bool kapToolpathParUtils::is_2d_machining(const kapParameter& tree) {
    return active(tree, "Features") && !active(tree, "Turning");
}

bool kapToolpathParUtils::tool_axis_parameters_equal(const kapParameter& a, const kapParameter& b) {
    const kapParameter* x = a.find_node("ToolAxis");
    const kapParameter* y = b.find_node("ToolAxis");
    if (x == nullptr || y == nullptr) return x == y;
    return x->is_equal(*y);
}

// Collision checking needs a milling toolpath calculated here with moves to check: not drilling
// cycles, turning, probing, additive, committed or external toolpaths.
bool kapToolpathParUtils::toolpath_supports_collision_check(const kapToolpathPar& tree) {
    if (tree.is_turning() != 0 || tree.is_probing() || is_additive(tree)) return false;
    return !strategy_in(tree, {"unknown", "debug", "com_pattern", "com_boundary", "drill",
                               "hole_machining", "method", "hsm_finishing"});
}
