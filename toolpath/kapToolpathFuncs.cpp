#include "kapToolpathFuncs.h"

#include "host/kapVersionManager.h"
#include "kappar/kapToolpathPar.h"
#include "kappar/kapToolpathParUtils.h"
#include "kappar/kapTurningToolAxis.h"

#include "kapToolpathRead.h"

namespace {
using kap_toolpath::flag_of;
using kap_toolpath::text_of;

const kapToolpathPar* toolpath_of(const kapParameter& self) {
    return kapToolpathPar::ut_dynamic_cast(kapParameterRoot::get_root(&self));
}

kapParameterPtr answer(bool v) {
    return kapParameterNumeric::create_bool(v ? 1 : 0);
}

// Calls `rule` on the toolpath the parameter lives in; false outside a toolpath.
template <class Rule>
kapParameterPtr on_toolpath(const kapParameter& self, Rule rule) {
    const kapToolpathPar* tp = toolpath_of(self);
    return answer(tp != nullptr && rule(*tp));
}

}  // namespace

kapParameterPtr parfunc_toolpath_IsExternalStrategy(const kapParameter& s, const kapParameterPtr&) {
    return on_toolpath(
        s, [](const kapToolpathPar& tp) { return kapToolpathParUtils::is_external(tp); });
}

kapParameterPtr parfunc_toolpath_UseOldFeatureSet(const kapParameter&, const kapParameterPtr&) {
    return answer(kapVersionManager::get_level("feature_groups") < 1);
}

kapParameterPtr parfunc_toolpath_IsMultiAxis(const kapParameter& s, const kapParameterPtr&) {
    return on_toolpath(
        s, [](const kapToolpathPar& tp) { return kapToolpathParUtils::is_multi_axis(tp) != 0; });
}

kapParameterPtr parfunc_toolpath_SupportsCollisionCheck(const kapParameter& s,
                                                        const kapParameterPtr&) {
    return on_toolpath(s, [](const kapToolpathPar& tp) {
        return kapToolpathParUtils::toolpath_supports_collision_check(tp);
    });
}

kapParameterPtr parfunc_toolpath_SupportsContactNormals(const kapParameter& s,
                                                        const kapParameterPtr&) {
    const kapParameterRoot* root = kapParameterRoot::get_root(&s);
    if (root == nullptr || root->is_error()) return answer(false);
    const utString strategy = text_of(*root, "Strategy");
    static constexpr std::string_view kWithout[] = {
        "raster_area_clear",
        "offset_area_clear",
        "profile_area_clear",
        "adaptive_area_clear",
        "offset_flat",
        "inclined_flats",
        "raster_flat",
        "drill",
        "plunge",
        "curve_area_clear",
        "curve_profile",
        "chamfer",
        "face",
        "feature_face",
        "feature_chamfer",
        "feature_finishing",
        "pocket_area_clear",
        "pocket_profile",
        "slot",
        "feature_top_fillet",
    };
    for (std::string_view w : kWithout) {
        if (strategy == w) return answer(false);
    }
    return answer(true);
}

// Undercuts are reached by tilting the tool: filleting the corners of such passes is left off.
kapParameterPtr parfunc_toolpath_SupportsCornerFilleting(const kapParameter& s,
                                                         const kapParameterPtr&) {
    return on_toolpath(s, [](const kapToolpathPar& tp) {
        if (!kapToolpathParUtils::support_corner_filleting(tp)) return false;
        return !(flag_of(tp, "MachineUndercuts") && kapToolpathParUtils::is_multi_axis(tp) != 0);
    });
}

// Constant Z fits only its spiral form. Radial and raster passes fit with a vertical tool axis
// and no collision avoidance, and raster passes only when joined two ways.
kapParameterPtr parfunc_toolpath_SupportsCoinFitting(const kapParameter& s,
                                                     const kapParameterPtr&) {
    return on_toolpath(s, [](const kapToolpathPar& tp) {
        if (!kapToolpathParUtils::support_coin_fitting(tp)) return false;
        const utString strategy = text_of(tp, "Strategy");
        if (strategy == "constantz") return flag_of(tp, "Spiral");
        if (strategy == "radial" || strategy == "raster") {
            if (text_of(tp, "ToolAxis.Type") != "vertical") return false;
            if (flag_of(tp, "CollisionAvoidance.Active")) return false;
            return strategy == "radial" || text_of(tp, "PatternStyle") == "two_way_joined";
        }
        return true;
    });
}

kapParameterPtr parfunc_toolpath_SupportsRoughCornerFilleting(const kapParameter& s,
                                                              const kapParameterPtr&) {
    return on_toolpath(s, [](const kapToolpathPar& tp) {
        return kapToolpathParUtils::support_roughing_corner_filleting(tp) &&
               kapToolpathParUtils::is_multi_axis(tp) == 0;
    });
}

// Feature face passes always fit; the other strategies only with offset clearance.
kapParameterPtr parfunc_toolpath_SupportsRoughCoinFitting(const kapParameter& s,
                                                          const kapParameterPtr&) {
    return on_toolpath(s, [](const kapToolpathPar& tp) {
        if (!kapToolpathParUtils::support_roughing_coin_fitting(tp)) return false;
        return text_of(tp, "Strategy") == "feature_face" ||
               text_of(tp, "AreaClearance.Type") == "offset";
    });
}

kapParameterPtr parfunc_toolpath_IsTurning(const kapParameter& s, const kapParameterPtr&) {
    return on_toolpath(s, [](const kapToolpathPar& tp) { return tp.is_turning() != 0; });
}

kapParameterPtr parfunc_toolpath_IsInspection(const kapParameter& s, const kapParameterPtr&) {
    return on_toolpath(s, [](const kapToolpathPar& tp) { return tp.is_probing(); });
}

kapParameterPtr parfunc_toolpath_IsAdditive(const kapParameter& s, const kapParameterPtr&) {
    return on_toolpath(
        s, [](const kapToolpathPar& tp) { return kapToolpathParUtils::is_additive(tp); });
}

namespace {

// The calculator on the toolpath the function is called in; one that reads no toolpath (the
// Z axis, standard) outside a toolpath.
kapTurningToolAxisParCalc turning_axis_of(const kapParameter& self) {
    const kapToolpathPar* tp = toolpath_of(self);
    return kapTurningToolAxisParCalc(tp != nullptr ? kapTurningToolAxisParCalc::handle_in(self)
                                                   : kapParameterPtr());
}

}  // namespace

kapParameterPtr parfunc_toolpath_Turning_HolderAngleF(const kapParameter& s,
                                                      const kapParameterPtr&) {
    return kapParameterPtr(new kapParameterNumeric(kapSubTypeAngle, kapDimensions(kapDimNone),
                                                   turning_axis_of(s).calculate_holder_angle()));
}

kapParameterPtr parfunc_toolpath_Turning_ToolOrientationF(const kapParameter& s,
                                                          const kapParameterPtr&) {
    return kapParameterPtr(new kapParameterString(turning_axis_of(s).calculate_tool_orientation()));
}
