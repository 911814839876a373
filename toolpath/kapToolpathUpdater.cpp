// The toolpath's version steps, 0 to 29.
//
// A step converts what an older version saved into what the current tree holds. Where a setting
// that the step introduces was not in the saved data, the step gives it the value that reproduces
// what the older version calculated, rather than today's default. Values that only older files
// held are read back from the unrecognised keys, the legacy lower-case key first.

#include <initializer_list>
#include <iterator>

#include "kappar/kapToolpathPar.h"

namespace {

// Declared paths that the steps read or write.
constexpr std::string_view kStepPaths[] = {
    "Strategy",
    "AreaClearance.Slicer.Type",
    "AllowToolOutsideBlock",
    "Overlap",
    "BoundaryLimit.Tool",
    "BoundaryLimit.Keep",
    "UseToolpathAsPattern",
    "ReferenceToolpath",
    "Pattern",
    "UsePattern",
    "AreaClearance.Rest.StockModelState.Entity",
    "StockModelState.StockModel",
    "StockModelState.Entity",
    "Block.Diameter",
    "CNCCutterCompensation.Active",
    "AreaClearance.Slicer.CutterCompensation.Type",
    "GeometryPosition",
    "Thickness",
    "UseAxialThickness",
    "AxialThickness",
    "ThicknessSets",
    "Verification.UseVerificationThickness",
    "Verification.Thickness",
    "Verification.UseAxialThickness",
    "Verification.AxialThickness",
    "Verification.ThicknessSets",
    "CollisionAvoidance.Active",
    "CollisionAvoidance.Type",
    "CollisionAvoidance.Method",
    "UpperLimit.Active",
    "UpperLimit.Value",
    "Rapid.SafeArea",
    "Connections.Resolve",
    "ToolAxis.Type",
    "CutDirection",
    "Computed",
    "StartPoint.Type",
    "StartPoint.ManualToolAxis",
    "StartPoint.ToolAxis",
    "EndPoint.Type",
    "EndPoint.ManualToolAxis",
    "EndPoint.ToolAxis",
    "MaxAngleBetweenPoints.Active",
    "Drill.Thickness",
    "Drill.AxialThickness",
    "ToolAxis.LeadLeanMode",
    "ToolAxis.PositionMode",
    "Drill.FeedReduction",
    "Drill.StartFeedReduction",
    "Drill.ReduceFeedDistance",
    "Drill.StartFeedDistance",
    "MultipleCuts",
    "Rib.MultipleCuts",
    "UserParameters",
    "Drill.TopIndex",
    "Drill.HoleIndex",
    "Rapid.Workplane",
    "Rapid.CoordinateSystem",
    "Rapid.IncrementalSafeZ",
    "Rapid.IncrementalStartZ",
    "Rapid.CalculateDimensions.RapidClearance",
    "Rapid.CalculateDimensions.PlungeClearance",
    "Rapid.Box.IncludedFaces",
    "ToolAxis.Limits.UseMachineTool",
    "Connections.Link[0].ApplyConstraints",
    "Connections.Link[0].Constraint[0].Type",
    "Connections.Link[0].Constraint[0].Distance.Function",
    "Connections.Link[0].Constraint[0].Distance.Value",
    "Connections.LeadIn[0].ApplyConstraints",
    "Connections.LeadIn[0].Constraint[0].Type",
    "Connections.LeadIn[0].Constraint[0].Distance.Function",
    "Connections.LeadIn[0].Constraint[0].Distance.Value",
    "Connections.LeadOut[0].ApplyConstraints",
    "Connections.LeadOut[0].Constraint[0].Type",
    "Connections.LeadOut[0].Constraint[0].Distance.Function",
    "Connections.LeadOut[0].Constraint[0].Distance.Value",
    "Connections.DefaultLink[0].Type",
    "StartPoint.IncrementalPlunge",
    "Drill.Type",
    "Drill.Leads.Distance",
    "Drill.Leads.ArcAngle",
    "Connections.LeadIn[0].Distance",
    "Connections.LeadIn[0].Angle",
    "Turning.FirstPointClearance",
    "Turning.LeadsAndLinks.LeadIn.ArcRadius",
    "Turning.LeadsAndLinks.LeadOut.ArcRadius",
    "Turning.LeadsAndLinks.LeadInExtension.Distance",
    "Turning.LeadsAndLinks.LeadOutExtension.Distance",
    "Turning.LeadsAndLinks.LeadIn.Angle",
    "Turning.LeadsAndLinks.LeadOut.Angle",
    "AxisAlignment",
    "ApplySimOVs",
    "OrientationVector.Active",
    "OrientationVector.Type",
    "Connections.StaggerStartPoints",
    "ShallowStrategy",
    "OptimiseOpenPockets",
    "MachineUndercuts",
    "Flowline.Method",
    "UseParentConnections",
};

kapParameterPtr at(kapParameterRoot& root, std::string_view path) {
    return root.find(path);
}

utString text(kapParameterRoot& root, std::string_view path) {
    return at(root, path)->get_string();
}

bool strategy_is(kapParameterRoot& root, std::initializer_list<std::string_view> strategies) {
    const utString s = text(root, "Strategy");
    for (std::string_view x : strategies) {
        if (s == x) return true;
    }
    return false;
}

// The saved data held `path` (the loader records current paths; letter case is not binding).
bool saved(const utStringcoSList& keys, std::string_view path) {
    for (const utString& k : keys) {
        if (ut_iequal(k, path)) return true;
    }
    return false;
}

// A value that only older files held: the legacy key, then the mixed-case key, then the legacy
// key in any letter case (the loader brings keys under "connections" under "Connections"); null
// when none is there or the value is empty.
const utString* legacy(std::string_view lower, std::string_view mixed) {
    const auto& unrecognised = kapParameterUpdater::get_unrecognised_pars();
    for (std::string_view key : {lower, mixed}) {
        auto it = unrecognised.find(key);
        if (it != unrecognised.end() && !it->second.empty()) return &it->second;
    }
    for (const auto& [key, value] : unrecognised) {
        if (!value.empty() && ut_iequal(key, lower)) return &value;  // `lower` has no capitals
    }
    return nullptr;
}

bool legacy_number(std::string_view lower, std::string_view mixed, double& out) {
    const utString* v = legacy(lower, mixed);
    return v != nullptr && kapParameterNumeric::parse(*v, out);
}

// Sets `path` to `value` unless the saved data held it.
void set_unless_saved(kapParameterRoot& root, const utStringcoSList& keys, std::string_view path,
                      const utString& value) {
    if (!saved(keys, path)) at(root, path)->set_string(value);
}

// Copies `from` to `to` unless the saved data held `to`.
void copy_unless_saved(kapParameterRoot& root, const utStringcoSList& keys, std::string_view from,
                       std::string_view to) {
    if (!saved(keys, to)) at(root, to)->copy_value_from(*at(root, from));
}

}  // namespace

std::span<const std::string_view> kapToolpathParUpdater::named_paths() {
    return kStepPaths;
}

void kapToolpathParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    for (kapParameterUpdateFn fn : {
             &update_from_0_to_1,   &update_from_1_to_2,   &update_from_2_to_3,
             &update_from_3_to_4,   &update_from_4_to_5,   &update_from_5_to_6,
             &update_from_6_to_7,   &update_from_7_to_8,   &update_from_8_to_9,
             &update_from_9_to_10,  &update_from_10_to_11, &update_from_11_to_12,
             &update_from_12_to_13, &update_from_13_to_14, &update_from_14_to_15,
             &update_from_15_to_16, &update_from_16_to_17, &update_from_17_to_18,
             &update_from_18_to_19, &update_from_19_to_20, &update_from_20_to_21,
             &update_from_21_to_22, &update_from_22_to_23, &update_from_23_to_24,
             &update_from_24_to_25, &update_from_25_to_26, &update_from_26_to_27,
             &update_from_27_to_28, &update_from_28_to_29,
         }) {
        list.insert_last(fn);
    }
}

// No change of representation in the first three versions.
void kapToolpathParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                               const utStringcoSList&) {
    version = 1;
}

void kapToolpathParUpdater::update_from_1_to_2(int& version, kapParameterRoot&,
                                               const utStringcoSList&) {
    version = 2;
}

void kapToolpathParUpdater::update_from_2_to_3(int& version, kapParameterRoot&,
                                               const utStringcoSList&) {
    version = 3;
}

// Model and feature slicing kept the tool inside the block before the choice existed.
void kapToolpathParUpdater::update_from_3_to_4(int& version, kapParameterRoot& root,
                                               const utStringcoSList& keys) {
    if (strategy_is(root, {"raster_area_clear", "offset_area_clear", "profile_area_clear",
                           "raster_flat", "offset_flat"})) {
        const utString slicer = text(root, "AreaClearance.Slicer.Type");
        if (slicer == "model" || slicer == "feature") {
            set_unless_saved(root, keys, "AllowToolOutsideBlock", "0");
        }
    }
    version = 4;
}

// The overlap of the offset passes of interleaved constant Z became "Overlap".
void kapToolpathParUpdater::update_from_4_to_5(int& version, kapParameterRoot& root,
                                               const utStringcoSList& keys) {
    double overlap = 0.0;
    if (strategy_is(root, {"inter_constz"}) && !saved(keys, "Overlap") &&
        legacy_number("offset_overlap", "OffsetOverlap", overlap)) {
        at(root, "Overlap")->set_double(overlap);
    }
    version = 5;
}

// A boundary offset by the tool radius limited the tool's periphery; the side to keep became
// "BoundaryLimit.Keep". A pattern toolpath that names a toolpath and no pattern used the toolpath.
void kapToolpathParUpdater::update_from_5_to_6(int& version, kapParameterRoot& root,
                                               const utStringcoSList& keys) {
    double offset = 0.0;
    if (legacy_number("offset_boundary", "OffsetBoundary", offset)) {
        set_unless_saved(root, keys, "BoundaryLimit.Tool", offset != 0.0 ? "periphery" : "centre");
    }
    if (const utString* side = legacy("boundary_side", "BoundarySide")) {
        set_unless_saved(root, keys, "BoundaryLimit.Keep", *side);
    }
    if (strategy_is(root, {"pattern"}) &&
        !at(root, "ReferenceToolpath")->get_value_text().empty() &&
        at(root, "Pattern")->get_value_text().empty()) {
        set_unless_saved(root, keys, "UseToolpathAsPattern", "1");
    }
    version = 6;
}

// The stock model references moved from ".StockModel" to ".Entity". The plunge milling's stock
// model is the toolpath's own "StockModelState" (the tree has no "Plunge.StockModelState"), so a
// plunge stock model saved under its own name moves to "StockModelState.Entity".
void kapToolpathParUpdater::update_from_6_to_7(int& version, kapParameterRoot& root,
                                               const utStringcoSList& keys) {
    struct Move {
        std::string_view from;
        std::string_view to;
    };
    for (const Move& m : {Move{"AreaClearance.Rest.StockModelState.StockModel",
                               "AreaClearance.Rest.StockModelState.Entity"},
                          Move{"Plunge.StockModelState.StockModel", "StockModelState.Entity"},
                          Move{"StockModelState.StockModel", "StockModelState.Entity"}}) {
        kapParameterPtr to = at(root, m.to);
        if (to->is_error() || saved(keys, m.to)) continue;
        kapParameterPtr from = at(root, m.from);
        if (!from->is_error()) {
            if (from->get_value_text().empty()) continue;
            to->copy_value_from(*from);
            from->set_ref_from_id(kapObjectId{});
        } else if (const utString* v = legacy(kapdowncase(m.from), m.from)) {
            to->set_string(*v);
        }
    }
    version = 7;
}

// A toolpath that named a pattern used it.
void kapToolpathParUpdater::update_from_7_to_8(int& version, kapParameterRoot& root,
                                               const utStringcoSList& keys) {
    if (!strategy_is(root, {"pattern"}) && !at(root, "Pattern")->get_value_text().empty()) {
        set_unless_saved(root, keys, "UsePattern", "1");
    }
    version = 8;
}

// The block's radius became its diameter.
void kapToolpathParUpdater::update_from_8_to_9(int& version, kapParameterRoot& root,
                                               const utStringcoSList& keys) {
    double r = 0.0;
    if (!saved(keys, "Block.Diameter") && legacy_number("block.radius", "Block.Radius", r)) {
        at(root, "Block.Diameter")->set_double(2.0 * r);
    }
    version = 9;
}

// The area clearance's cutter compensation moved under the slicer and switched the NC output's
// compensation on; the slicers of the time all worked on the part.
void kapToolpathParUpdater::update_from_9_to_10(int& version, kapParameterRoot& root,
                                                const utStringcoSList& keys) {
    if (const utString* type =
            legacy("areaclear.cutter_compensation.type", "AreaClearance.CutterCompensation.Type")) {
        if (*type == "automatic" || *type == "off" || *type == "protected") {
            set_unless_saved(root, keys, "AreaClearance.Slicer.CutterCompensation.Type", *type);
            set_unless_saved(root, keys, "CNCCutterCompensation.Active",
                             *type == "off" ? "0" : "1");
        }
    }
    const utString slicer = text(root, "AreaClearance.Slicer.Type");
    for (std::string_view s : {"model", "feature", "pattern", "boundary", "file", "toolpath"}) {
        if (slicer == s) set_unless_saved(root, keys, "GeometryPosition", "part");
    }
    version = 10;
}

// Verification used the toolpath's thickness: it is copied into the verification's own.
void kapToolpathParUpdater::update_from_10_to_11(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (!saved(keys, "Verification.UseVerificationThickness")) {
        copy_unless_saved(root, keys, "Thickness", "Verification.Thickness");
        copy_unless_saved(root, keys, "UseAxialThickness", "Verification.UseAxialThickness");
        copy_unless_saved(root, keys, "AxialThickness", "Verification.AxialThickness");
        copy_unless_saved(root, keys, "ThicknessSets", "Verification.ThicknessSets");
        at(root, "Verification.UseVerificationThickness")->set_string("1");
    }
    version = 11;
}

// The collision avoidance type split into a method and a direction type.
void kapToolpathParUpdater::update_from_11_to_12(int& version, kapParameterRoot& root,
                                                 const utStringcoSList&) {
    const utString old = at(root, "CollisionAvoidance.Type")->get_string();
    utString method = "lean";
    utString type = "to_point";
    if (old == "lead" || old == "lean" || old == "lead_then_lean" || old == "lean_then_lead") {
        method = old;
    } else if (old == "to_point" || old == "from_point" || old == "to_line" || old == "from_line" ||
               old == "to_curve" || old == "from_curve" || old == "fixed" ||
               old == "surface_normal") {
        type = old;
        if (at(root, "CollisionAvoidance.Active")->get_int() != 0) method = "specify_direction";
    }
    at(root, "CollisionAvoidance.Method")->set_string(method);
    at(root, "CollisionAvoidance.Type")->set_string(type);
    version = 12;
}

// Disc profiles had no upper limit.
void kapToolpathParUpdater::update_from_12_to_13(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (strategy_is(root, {"disc_profile"}) && !saved(keys, "UpperLimit.Value")) {
        set_unless_saved(root, keys, "UpperLimit.Active", "0");
    }
    version = 13;
}

// Links inside a cylindrical safe area were resolved against it.
void kapToolpathParUpdater::update_from_13_to_14(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (text(root, "Rapid.SafeArea") == "cylinder") {
        set_unless_saved(root, keys, "Connections.Resolve", "1");
    }
    version = 14;
}

// Lead/lean profiles cut in either direction; an absolute start or end point with a saved tool
// axis used it.
void kapToolpathParUpdater::update_from_14_to_15(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (strategy_is(root, {"profile"}) && text(root, "ToolAxis.Type") == "lead_lean") {
        set_unless_saved(root, keys, "CutDirection", "any");
        at(root, "Computed")->set_string("0");
    }
    for (std::string_view point : {"StartPoint", "EndPoint"}) {
        const utString p(point);
        if (text(root, p + ".Type") == "absolute" && saved(keys, p + ".ToolAxis")) {
            set_unless_saved(root, keys, p + ".ManualToolAxis", "1");
        }
    }
    version = 15;
}

// There was no limit on the angle between points.
void kapToolpathParUpdater::update_from_15_to_16(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    set_unless_saved(root, keys, "MaxAngleBetweenPoints.Active", "0");
    version = 16;
}

// Drilling left the toolpath's thickness.
void kapToolpathParUpdater::update_from_16_to_17(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (strategy_is(root, {"drill"})) {
        copy_unless_saved(root, keys, "Thickness", "Drill.Thickness");
        copy_unless_saved(root, keys, "AxialThickness", "Drill.AxialThickness");
    }
    version = 17;
}

// "VN2012R2" marks lead and lean measured at the tool tip.
void kapToolpathParUpdater::update_from_17_to_18(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (text(root, "ToolAxis.LeadLeanMode") == "VN2012R2") {
        set_unless_saved(root, keys, "ToolAxis.PositionMode", "tool_tip");
    }
    version = 18;
}

// The feed reduction applied at the start of the hole.
void kapToolpathParUpdater::update_from_18_to_19(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    copy_unless_saved(root, keys, "Drill.FeedReduction", "Drill.StartFeedReduction");
    copy_unless_saved(root, keys, "Drill.ReduceFeedDistance", "Drill.StartFeedDistance");
    version = 19;
}

// Rib machining has multiple cuts of its own.
void kapToolpathParUpdater::update_from_19_to_20(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    const utString cuts = text(root, "MultipleCuts");
    if (strategy_is(root, {"rib"}) && (cuts == "offset_up" || cuts == "merge" || cuts == "off")) {
        set_unless_saved(root, keys, "Rib.MultipleCuts", cuts);
    }
    version = 20;
}

// The parametric offset's minimum stepover is no longer a setting; it is kept for reference.
void kapToolpathParUpdater::update_from_20_to_21(int& version, kapParameterRoot& root,
                                                 const utStringcoSList&) {
    if (strategy_is(root, {"parametric_offset"})) {
        if (const utString* v = legacy("minimum_stepover", "MinimumStepover")) {
            root.add(kapParameterKey("UserParameters._OldMinimumStepover"),
                     kapParameterPtr(new kapParameterString(*v)));
        }
    }
    version = 21;
}

// Drilling took the first top and the first hole.
void kapToolpathParUpdater::update_from_21_to_22(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (strategy_is(root, {"drill"})) {
        set_unless_saved(root, keys, "Drill.TopIndex", "0");
        set_unless_saved(root, keys, "Drill.HoleIndex", "0");
    }
    version = 22;
}

// Rapid moves: a named rapid workplane, the incremental heights as clearances, the excluded
// faces of a box as the faces it includes.
void kapToolpathParUpdater::update_from_22_to_23(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (!at(root, "Rapid.Workplane")->get_value_text().empty()) {
        set_unless_saved(root, keys, "Rapid.CoordinateSystem", "named_workplane");
    }
    copy_unless_saved(root, keys, "Rapid.IncrementalSafeZ",
                      "Rapid.CalculateDimensions.RapidClearance");
    copy_unless_saved(root, keys, "Rapid.IncrementalStartZ",
                      "Rapid.CalculateDimensions.PlungeClearance");
    if (text(root, "Rapid.SafeArea") == "box") {
        for (std::string_view face : {"XMin", "XMax", "YMin", "YMax", "ZMin", "ZMax"}) {
            const utString mixed = "Rapid.Box.ExcludedSurfaces." + utString(face);
            double excluded = 0.0;
            if (legacy_number(kapdowncase(mixed), mixed, excluded)) {
                set_unless_saved(root, keys, "Rapid.Box.IncludedFaces." + utString(face),
                                 excluded != 0.0 ? "0" : "1");
            }
        }
    }
    version = 23;
}

// Tool axis limits did not come from the machine tool.
void kapToolpathParUpdater::update_from_23_to_24(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    set_unless_saved(root, keys, "ToolAxis.Limits.UseMachineTool", "0");
    version = 24;
}

// Links and leads: the threshold distance between short and long links became a distance
// constraint on the first link (links shorter than it) and, unless leads were made on short
// links too, on the leads (links longer than it). -10 marks a threshold that was never set.
void kapToolpathParUpdater::update_from_24_to_25(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    double threshold = -10.0;
    legacy_number("connections.threshold_distance", "Connections.ThresholdDistance", threshold);
    if (threshold != -10.0) {
        const utString d = kapParameterNumeric::format(threshold);
        auto constrain = [&](const utString& move, const char* function) {
            at(root, move + ".ApplyConstraints")->set_string("1");
            at(root, move + ".Constraint[0].Type")->set_string("distance");
            at(root, move + ".Constraint[0].Distance.Function")->set_string(function);
            at(root, move + ".Constraint[0].Distance.Value")->set_string(d);
        };
        constrain("Connections.Link[0]", "less_than");
        double on_short = 1.0;
        legacy_number("connections.leads_on_short_links", "Connections.LeadsOnShortLinks",
                      on_short);
        if (on_short == 0.0) {
            constrain("Connections.LeadIn[0]", "greater_than");
            constrain("Connections.LeadOut[0]", "greater_than");
        }
    }
    // Incremental default links plunged incrementally from the start point.
    if (text(root, "Connections.DefaultLink[0].Type") == "incremental") {
        set_unless_saved(root, keys, "StartPoint.IncrementalPlunge", "1");
    }
    if (strategy_is(root, {"drill"})) {
        const utString type = text(root, "Drill.Type");
        if (type == "profile" || type == "thread_mill" || type == "external_thread") {
            copy_unless_saved(root, keys, "Drill.Leads.Distance", "Connections.LeadIn[0].Distance");
            copy_unless_saved(root, keys, "Drill.Leads.ArcAngle", "Connections.LeadIn[0].Angle");
        }
    }
    version = 25;
}

// Turning leads: one arc radius and one extension for both leads; the lead out mirrored the lead
// in; no axis alignment.
void kapToolpathParUpdater::update_from_25_to_26(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    auto from_legacy = [&](std::string_view mixed, std::initializer_list<std::string_view> to) {
        const utString* v = legacy(kapdowncase(mixed), mixed);
        if (v == nullptr) return;
        for (std::string_view path : to)
            set_unless_saved(root, keys, path, *v);
    };
    from_legacy("Turning.LeadsAndLinks.Roughing.Clearance", {"Turning.FirstPointClearance"});
    from_legacy("Turning.LeadsAndLinks.ArcRadius", {"Turning.LeadsAndLinks.LeadIn.ArcRadius",
                                                    "Turning.LeadsAndLinks.LeadOut.ArcRadius"});
    from_legacy("Turning.LeadsAndLinks.ExtensionDistance",
                {"Turning.LeadsAndLinks.LeadInExtension.Distance",
                 "Turning.LeadsAndLinks.LeadOutExtension.Distance"});
    copy_unless_saved(root, keys, "Turning.LeadsAndLinks.LeadIn.Angle",
                      "Turning.LeadsAndLinks.LeadOut.Angle");
    set_unless_saved(root, keys, "AxisAlignment", "0");
    version = 26;
}

// Simulation orientation vectors were applied freely.
void kapToolpathParUpdater::update_from_26_to_27(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (at(root, "ApplySimOVs")->get_int() != 0 && !saved(keys, "OrientationVector.Active")) {
        at(root, "OrientationVector.Active")->set_string("1");
        set_unless_saved(root, keys, "OrientationVector.Type", "free");
    }
    version = 27;
}

// Start points were not staggered.
void kapToolpathParUpdater::update_from_27_to_28(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    set_unless_saved(root, keys, "Connections.StaggerStartPoints", "0");
    version = 28;
}

// "offset_steep" is now "offset"; open pockets were not optimised; flowline undercuts moved to
// "MachineUndercuts"; flowline measured from the tool tip; toolpaths kept their own connections.
void kapToolpathParUpdater::update_from_28_to_29(int& version, kapParameterRoot& root,
                                                 const utStringcoSList& keys) {
    if (text(root, "ShallowStrategy") == "offset_steep") {
        at(root, "ShallowStrategy")->set_string("offset");
    }
    set_unless_saved(root, keys, "OptimiseOpenPockets", "0");
    if (const utString* v = legacy("flowline.machine_undercuts", "Flowline.MachineUndercuts")) {
        set_unless_saved(root, keys, "MachineUndercuts", *v);
    }
    set_unless_saved(root, keys, "Flowline.Method", "tool_tip");
    set_unless_saved(root, keys, "UseParentConnections", "0");
    version = 29;
}
