#pragma once
// Toolpaths: every setting that defines how a toolpath is calculated (strategy, tool,
// tolerances, stepovers, heights, leads and links, tool axis, turning ...).

#include <array>
#include <span>
#include <string_view>

#include "kappar/kapEntity.h"

class McTPCompHead;  // the host's calculated toolpath
class kapMcParList;  // the host's legacy toolpath parameter list

// Rewrites legacy keys and values while a toolpath is read, and converts the legacy corner
// filleting into "CornerRadius" when loading ends.
class KAPPAR_API kapToolpathParLoader : public kapParameterLoader {
  public:
    kapToolpathParLoader(kapParameterRoot& root, int version);

    int load_par(const kapParameterKey& key, const utString& value) override;
    // Writes "CornerRadius.Active", ".Style" and ".Value" from what the legacy keys left, then
    // ends loading as the framework does.
    void finalise_loading() override;

    // The strategy ("strategy") is "inter_constz", "opti_constz" or "constantz".
    bool support_cornerfilleting_20200() const;
    // Forgets every corner-filleting setting read so far.
    void init_support_cornerfilleting_20200();

  private:
    // 1 once a legacy corner-filleting value was read; -1 once a "CornerRadius" key of a newer
    // file showed that there is nothing to convert.
    int cornerfilleting_seen_ = 0;
    utString cornerfilleting_;
    bool write_active_ = false;
    bool active_value_ = false;
    bool write_style_ = false;
    bool style_filleting_ = false;  // "cornerfilleting" when set, "coinfitting" when clear
    utString corner_radius_;
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

// Brings a toolpath saved at an older version to version 29, one step per version. Each step
// receives the keys that the saved data held, so that it can tell a saved value from a default.
class KAPPAR_API kapToolpathParUpdater : public kapEntityUpdater<kapToolpathParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // The declared paths that the steps read or write.
    static std::span<const std::string_view> named_paths();

    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_1_to_2(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_2_to_3(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_3_to_4(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_4_to_5(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_5_to_6(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_6_to_7(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_7_to_8(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_8_to_9(int& version, kapParameterRoot& root,
                                   const utStringcoSList& loaded_keys);
    static void update_from_9_to_10(int& version, kapParameterRoot& root,
                                    const utStringcoSList& loaded_keys);
    static void update_from_10_to_11(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_11_to_12(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_12_to_13(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_13_to_14(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_14_to_15(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_15_to_16(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_16_to_17(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_17_to_18(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_18_to_19(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_19_to_20(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_20_to_21(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_21_to_22(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_22_to_23(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_23_to_24(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_24_to_25(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_25_to_26(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_26_to_27(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_27_to_28(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
    static void update_from_28_to_29(int& version, kapParameterRoot& root,
                                     const utStringcoSList& loaded_keys);
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
    bool answers_from_values(kapMemberFn fn) const override;
    bool method_answers_from_values(std::string_view name) const override;

    // The strategy is a probing one ("surface_inspection", "hole_inspection").
    bool is_probing() const;
    // 1 for the nine turning strategies, else 0.
    int is_turning() const;

    // Hands the whole toolpath to the host's legacy list.
    void copy_to_parlist(kapMcParList& list) const;
    // Takes the values of every item of the list except boundary items, then the strategy type
    // of the last strategy item unless it is "unknown".
    void copy_from_parlist(const kapMcParList& list);

    // Legacy key to current path, by the exact (case-sensitive) table of renamed keys; any other
    // key goes to the framework.
    utString lookup_key_synonym(const utString& key) const override;
    void lookup_key_synonym_into(const utString& key, utString& out) const override;

    // The rows of the synonym table, in the table's order.
    struct Synonym {
        std::string_view legacy;
        std::string_view current;
    };
    static std::span<const Synonym> key_synonyms();
    // Every declared path that the toolpath's loading and updating name: the synonym targets
    // that the tree declares, then the paths of the loader rules and the update steps.
    static std::span<const std::string_view> named_paths();

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
