#pragma once
// Toolpaths: every setting that defines how a toolpath is calculated (strategy, tool,
// tolerances, stepovers, heights, leads and links, tool axis, turning ...).

#include <array>
#include <span>
#include <string_view>

#include "kappar/kapEntity.h"

class McTPCompHead;  // the host's calculated toolpath
class kapMcParList;  // the host's legacy toolpath parameter list

class KAPPAR_API kapToolpathParLoader : public kapParameterLoader {
  public:
    using kapParameterLoader::kapParameterLoader;
};

// Process-wide state of the toolpath loaders: the set of key strings they consult, and the
// strings and the flag they cache between pairs. Every toolpath construction and copy resets it.
struct KAPPAR_API kapToolpathParLoaderState {
    static utStringcoSet& key_strings();
    static std::array<utString, 4>& cached_strings();
    static bool& cached_flag();
    // Empties the key strings and seeds them with "join_up" and "one_way"; clears the cached
    // strings and the flag.
    static void reset();
};

class KAPPAR_API kapToolpathParUpdater : public kapEntityUpdater<kapToolpathParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
};

class KAPPAR_API kapToolpathPar : public kapEntityRoot<kapToolpathPar> {
    UT_TYPE(kapToolpathPar, kapParameterRoot)

    static constexpr std::string_view kKind = "toolpath";
    static constexpr int kVersion = 29;
    static constexpr std::string_view kGroup = "Strategy";
    using Loader = kapToolpathParLoader;
    using Updater = kapToolpathParUpdater;
    static std::span<const kapDeclRow> schema();

    // Declares the tree, fills the dependency table and resets the loaders' state.
    explicit kapToolpathPar(const utString& name);
    // Copies the tree and the toolpath link, and resets the loaders' state.
    kapToolpathPar(const kapToolpathPar& o);

    int get_precedence() const override { return 9; }

    // The host's calculated toolpath; not owned, null until the host sets it.
    const McTPCompHead* get_toolpath() const noexcept { return toolpath_; }
    void set_toolpath(const McTPCompHead* toolpath) noexcept { toolpath_ = toolpath; }

    // For every parameter path, the paths whose activity reads it.
    static const utStringutStringSetcoTable& get_par_dependency_table();

    // Computed values that expressions read by name (the first key component, in any letter
    // case): "num_comp", "hash", "edits" and "previousedits" (with an optional rest of path),
    // "defaultplungewarning", "projectionstrategy", "tangentnormalavailable",
    // "referencetoolaxisavailable", "defaultminimumradius", "defaultminimumpointspacing",
    // "defaultnoncuttingmaxlength". Anything else goes to the framework.
    kapParameterPtr lookup_method(const kapParameterKey& key) const override;

    // The strategy is a probing one ("surface_inspection", "hole_inspection").
    bool is_probing() const;
    // 1 for the nine turning strategies, else 0.
    int is_turning() const;

    // Hands the whole toolpath to the host's legacy list.
    void copy_to_parlist(kapMcParList& list) const;
    // Takes the values of every item of the list except boundary items, then the strategy type
    // of the last strategy item unless it is "unknown".
    void copy_from_parlist(const kapMcParList& list);

    // The expression that ties the stepover to the cusp height.
    static const utString& stepover_from_cusp_expr();

    // Host hooks: told when the named parameters change (the statistics hook when they are read).
    using Hook = void (*)(kapParameter*);
    using ReadHook = void (*)(const kapParameter*);
    // clang-format off
    static void set_onmodify_ZHeights_Automatic_callback(Hook fn);                 // AreaClearance.ZHeights.Automatic
    static void set_onmodify_boundary_synced_parameter_callback(Hook fn);          // Tolerance, Thickness, AxialThickness, UseAxialThickness, Tool
    static void set_onmodify_toolpath_MachineTool_parameter_callback(Hook fn);     // MachineTool
    static void set_onmodify_toolpath_ModelLocation_parameter_callback(Hook fn);   // ModelLocation
    static void set_onmodify_toolpath_OV_FixedDirectionAzimuth_callback(Hook fn);  // OrientationVector.FixedDirectionAzimuth
    static void set_onmodify_toolpath_OV_FixedDirectionElevation_callback(Hook fn);// OrientationVector.FixedDirectionElevation
    static void set_onmodify_toolpath_OV_FixedDirectionI_callback(Hook fn);        // OrientationVector.FixedDirectionI
    static void set_onmodify_toolpath_OV_FixedDirectionJ_callback(Hook fn);        // OrientationVector.FixedDirectionJ
    static void set_onmodify_toolpath_OV_FixedDirectionK_callback(Hook fn);        // OrientationVector.FixedDirectionK
    static void set_onmodify_toolpath_statistics_valid_callback(Hook fn);          // Statistics.Valid
    static void set_onread_toolpath_statistics_callback(ReadHook fn);              // Statistics (on read)
    static void set_onmodify_toolaxis_limits_machine_elevation_min(Hook fn);       // ToolAxis.Limits.MinMachineElevation
    static void set_onmodify_toolaxis_limits_machine_elevation_max(Hook fn);       // ToolAxis.Limits.MaxMachineElevation
    static void set_onmodify_toolaxis_limits_machine_azimuth_min(Hook fn);         // ToolAxis.Limits.MinMachineAzimuth
    static void set_onmodify_toolaxis_limits_machine_azimuth_max(Hook fn);         // ToolAxis.Limits.MaxMachineAzimuth
    static void set_onmodify_toolaxis_limits_elevation_min(Hook fn);               // ToolAxis.Limits.MinElevation
    static void set_onmodify_toolaxis_limits_elevation_max(Hook fn);               // ToolAxis.Limits.MaxElevation
    static void set_onmodify_toolaxis_limits_azimuth_min(Hook fn);                 // ToolAxis.Limits.MinAzimuth
    static void set_onmodify_toolaxis_limits_azimuth_max(Hook fn);                 // ToolAxis.Limits.MaxAzimuth
    static void set_onmodify_toolaxis_limits_coordinate_system(Hook fn);           // ToolAxis.Limits.CoordinateSystem
    static void set_onmodify_toolaxis_limits_use_machine_tool(Hook fn);            // ToolAxis.Limits.UseMachineTool
    static void set_onmodify_machine_tool_properties_use_mtd(Hook fn);             // MachineToolProperties.UseMTD.Active
    static void set_onmodify_use_machine_elevation(Hook fn);                       // ToolAxis.Limits.UseMachineElevation
    static void set_onmodify_use_machine_azimuth(Hook fn);                         // ToolAxis.Limits.UseMachineAzimuth
    static void set_onmodify_rapid_coordinate_system(Hook fn);                     // Rapid.CoordinateSystem
    static void set_onmodify_turning_tool_orientation(Hook fn);                    // Turning.* orientation inputs, Features.FeatureGroup
    static void set_onmodify_feature_group(Hook fn);                               // Features.FeatureGroup (before the orientation hook)
    // clang-format on

    // The slots behind the setters, in the order above, for the callbacks that forward to them.
    enum class HookSlot {
        ZHeightsAutomatic,
        BoundarySynced,
        MachineTool,
        ModelLocation,
        OVFixedDirectionAzimuth,
        OVFixedDirectionElevation,
        OVFixedDirectionI,
        OVFixedDirectionJ,
        OVFixedDirectionK,
        StatisticsValid,
        LimitsMachineElevationMin,
        LimitsMachineElevationMax,
        LimitsMachineAzimuthMin,
        LimitsMachineAzimuthMax,
        LimitsElevationMin,
        LimitsElevationMax,
        LimitsAzimuthMin,
        LimitsAzimuthMax,
        LimitsCoordinateSystem,
        LimitsUseMachineTool,
        MachineToolPropertiesUseMTD,
        UseMachineElevation,
        UseMachineAzimuth,
        RapidCoordinateSystem,
        TurningToolOrientation,
        FeatureGroup,
        Count
    };
    static Hook hook(HookSlot slot) noexcept;
    static ReadHook statistics_read_hook() noexcept;

  private:
    const McTPCompHead* toolpath_ = nullptr;
};

// The mirror callbacks of the toolpath tree: each answers how a value changes when the toolpath
// is mirrored (0 leaves it as it is).
class KAPPAR_API kapToolpathParCallbacks {
  public:
    kapToolpathParCallbacks() = default;
    ~kapToolpathParCallbacks() = default;

    // 0 while "AngularLimits2" is active; else by strategy: "curve_projection" 1, "radial" 4,
    // "rotary" 0, any other 3.
    static kapParameterMirrorMode onmirror_toolpath_AngularLimits_Start(const kapParameter* par);
    static kapParameterMirrorMode onmirror_toolpath_AngularLimits_End(const kapParameter* par);
    // 1 for the "rotary" strategy, else 0.
    static kapParameterMirrorMode onmirror_toolpath_LinearLimits_Start(const kapParameter* par);
    static kapParameterMirrorMode onmirror_toolpath_LinearLimits_End(const kapParameter* par);
    // 2 when the sibling "Mode" is "azimuth", else 0.
    static kapParameterMirrorMode onmirror_toolpath_ToolAxis_FixedAngle_Value(
        const kapParameter* par);
    // 1 for the strategies of the lean list, else 0.
    static kapParameterMirrorMode onmirror_toolpath_ToolAxis_Lean(const kapParameter* par);

    // The strategies whose lean is mirrored (59) and those whose lean is not (24).
    static std::span<const std::string_view> lean_strategies();
    static std::span<const std::string_view> non_lean_strategies();

    // True when every state of "Strategy" is in exactly one of the two lists and the lists name
    // nothing else: a strategy added without a mirroring rule makes it false.
    static bool test_mirror_sanity();
};
