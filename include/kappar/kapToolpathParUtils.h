#pragma once
// Questions about a toolpath's parameter tree, for calculation, simulation, collision checking
// and output, and for the toolpath's member-function parameters. Each reads parameters by path
// and changes nothing. A parameter a function reads that the tree does not hold counts as unset.

#include "kappar/kappar_export.h"
#include "kapparameter/kapParameter.h"

class kapToolpathPar;

class KAPPAR_API kapToolpathParUtils {
  public:
    // -- strategy classifications --
    static bool is_debug_toolpath(const kapParameter& tree);
    // The one strategy calculated outside the system ("hsm_finishing").
    static bool is_external(const kapParameter& tree);
    // An additive strategy, or "ManufacturingProcess" is "additive".
    static bool is_additive(const kapParameter& tree);
    // Adaptive area clearance, or curve area clearance of adaptive type.
    static bool is_maelstrom(const kapParameter& tree);
    static bool slice_based_area_clear(const kapParameter& tree);
    static bool is_model_area_clearance(const kapParameter& tree);
    static bool is_feature_area_clearance(const kapParameter& tree);
    // "Turning" exists and is active.
    static bool is_turning(const kapParameter& tree);
    // "Probing" is active.
    static bool is_inspection(const kapParameter& tree);

    // "ActionOnCollision" is active and not "discard".
    static bool require_to_keep_colliding_moves(const kapParameter& tree);

    // Whether the parameter is active and holds a reference to `id`, and the references held.
    static bool is_output_holes(const kapParameter& tree, const kapObjectId& id);
    static bool is_output_pattern(const kapParameter& tree, const kapObjectId& id);
    static bool is_input_pattern(const kapParameter& tree, const kapObjectId& id);
    static kapObjectId get_output_holes(const kapParameter& tree);
    static kapObjectId get_output_pattern(const kapParameter& tree);
    static kapObjectId get_input_pattern(const kapParameter& tree);

    // -- capabilities --
    // The toolpath's own "SupportsContactNormals()".
    static bool strategy_supports_contact_normals(const kapParameter& tree);
    // Arc fitting of the output points rules out contact normals (not for setups).
    static bool point_distribution_pars_prevent_contact_normals(const kapParameter& tree);
    static bool support_corner_filleting(const kapParameter& tree);
    static bool support_coin_fitting(const kapParameter& tree);
    static bool support_roughing_coin_fitting(const kapParameter& tree);
    static bool support_roughing_corner_filleting(const kapParameter& tree);
    // Non-zero when the toolpath moves the tool axis (or may, to avoid collisions).
    static int is_multi_axis(const kapParameter& tree);
    static bool is_2d_machining(const kapParameter& tree);
    // The "ToolAxis" subtrees of the two toolpaths hold equal values.
    static bool tool_axis_parameters_equal(const kapParameter& a, const kapParameter& b);
    static bool toolpath_supports_collision_check(const kapToolpathPar& tree);
};
