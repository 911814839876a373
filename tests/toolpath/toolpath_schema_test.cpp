// The declared toolpath tree against its outline: the paths under each top-level name, the names
// below each group, enumeration defaults, ranges, and the activity conditions under every strategy.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kappar/kapToolpathPar.h"
#include "kapparameter/kapEvaluator.h"

namespace {

struct TopLevel {
    std::string_view name;
    int paths;
};
struct SecondLevel {
    std::string_view group;
    std::string_view names;  // comma separated
};

// clang-format off
// Top-level names with the number of declared paths at and below each.
constexpr TopLevel kTopLevel[] = {
    {"ActionOnCollision", 1}, {"AdditionalStock", 1}, {"Additive", 48}, {"AllowToolOutsideBlock", 1},
    {"AlternateCutDirection", 1}, {"AngularDirection", 1}, {"AngularLimits", 3}, {"AngularLimits2", 3},
    {"AngularSmoothing", 1}, {"AngularStepover", 1}, {"ApplySimOVs", 1}, {"ApproachType", 1},
    {"AreaClearance", 143}, {"AuditHistory", 5}, {"AutoReplay", 1}, {"AutomaticRasterAngle", 1},
    {"AxialDepthOfCut", 3}, {"AxialOffset", 1}, {"AxialSmoothingTolerance", 1}, {"AxialThickness", 1},
    {"AxisAlignment", 1}, {"AxisTolerance", 1}, {"Azimuth", 1}, {"BadSurfaces", 3},
    {"BaseLimitingWorkplane", 1}, {"Batch", 1}, {"BladeCurveDefinition", 1}, {"BladeRamp", 6},
    {"BladeStartPosition", 1}, {"BladeToolAxisSmoother", 7}, {"BliskAxisElevation", 3}, {"BliskMachiningType", 1},
    {"BliskOffsetMethod", 1}, {"BliskOperation", 1}, {"BliskTrochoidalOffsets", 5}, {"Block", 25},
    {"BlockLimiting", 1}, {"BottomWireframe", 1}, {"Boundary", 1}, {"BoundaryLimit", 3},
    {"CNCCutterCompensation", 4}, {"CalculationFeedRate", 1}, {"CalculationHistory", 1}, {"Chamfer", 11},
    {"CheckAgainstFeature", 1}, {"CheckAgainstModel", 1}, {"CheckAgainstStock", 1}, {"Clearance", 4},
    {"ClosedOffsets", 1}, {"CollisionAvoidance", 11}, {"CollisionCheck", 1}, {"CollisionCheckAgainst", 1},
    {"Computed", 1}, {"Connections", 218}, {"Coolant", 3}, {"CornerOutput", 1},
    {"CornerRadius", 4}, {"CurveThickness", 1}, {"Cusp", 4}, {"CutDirection", 1},
    {"CutDistances", 19}, {"DefectTolerance", 1}, {"DefineEntryPositions", 1}, {"Degouge", 5},
    {"DepthOfCut", 1}, {"Description", 1}, {"DiscAxis", 3}, {"DraftAngle", 4},
    {"Drill", 71}, {"EdgeBreakWidth", 1}, {"EdgeTolerance", 1}, {"EditHistory", 1},
    {"Elevation", 1}, {"EndPoint", 12}, {"Error", 1}, {"ExternalCalculation", 1},
    {"ExternalThreading", 6}, {"Face", 4}, {"FanAtEnd", 1}, {"FanningDistance", 1},
    {"FeatureChamfer", 9}, {"FeatureSet", 1}, {"Features", 4}, {"FeedRate", 30},
    {"Filter", 4}, {"FinishOption", 1}, {"FinishingAutomaticRasterAngle", 1}, {"FlatAngle", 1},
    {"FlatLimits", 4}, {"FloorOnly", 1}, {"Flowline", 5}, {"FlowlineCurveDefinition", 1},
    {"FollowSurfaceLaterals", 1}, {"GeometryPosition", 1}, {"GroupFloorPasses", 1}, {"GroupWallPasses", 1},
    {"Helix", 8}, {"History", 10}, {"HolderOverhangHeight", 1}, {"HoleMachining", 37},
    {"IgnoreChamfers", 1}, {"IgnoreRounds", 1}, {"InclinedWalls", 6}, {"IncludeInNCProgram", 1},
    {"Incomplete", 1}, {"IsAdditive", 1}, {"IsExternalStrategy", 1}, {"IsInspection", 1},
    {"IsMultiAxis", 1}, {"IsTurning", 1}, {"JoinRadius", 1}, {"JoinTolerance", 1},
    {"Layering", 11}, {"Levels", 16}, {"LimitMethod", 1}, {"LinearLimits", 3},
    {"LinearLimits2", 3}, {"MachineFlats", 1}, {"MachineShallowUphill", 1}, {"MachineSteepUphill", 1},
    {"MachineTool", 1}, {"MachineToolProperties", 4}, {"MachineTouchSurfaces", 1}, {"MachineUndercuts", 1},
    {"MachiningPockets", 1}, {"MaintainCutDirection", 1}, {"ManufacturingProcess", 1}, {"MaxAngleBetweenPoints", 3},
    {"MaxDistanceBetweenPoints", 3}, {"MaximiseCoverage", 1}, {"Mesh", 6}, {"Method", 4},
    {"MinimiseAxisMovement", 1}, {"Mirroring", 3}, {"ModelGougeCheck", 1}, {"ModelLocation", 1},
    {"MoveSegments", 1}, {"MultiPencilIndependantSegments", 1}, {"MultiPencilIndependantShallowSegments", 1}, {"MultipleCuts", 1},
    {"MultipleCutsStepdown", 3}, {"NonIgnoredModelState", 1}, {"Notes", 1}, {"NumberOfBlades", 1},
    {"OffsetCentreline", 2}, {"OffsetDirection", 1}, {"OffsetOrder", 1}, {"OffsetSmoothing", 1},
    {"Operation", 1}, {"OptimiseOpenPockets", 1}, {"OrderPreferences", 1}, {"OrderPriority", 1},
    {"Ordering", 1}, {"OrientationVector", 9}, {"OrientationVectorSmoother", 4}, {"Origin", 1},
    {"Overlap", 1}, {"OverrideBlockPasses", 1}, {"ParametricLimits", 4}, {"ParametricLimits2", 4},
    {"ParametricOffsetEndCurve", 1}, {"ParametricOffsetStartCurve", 1}, {"Pattern", 1}, {"PatternBasePosition", 1},
    {"PatternDecoration", 1}, {"PatternOrder", 1}, {"PatternProjectionDirection", 1}, {"PatternStyle", 1},
    {"PerpendicularPass", 1}, {"Plunge", 3}, {"PointParameterMethod", 62}, {"PolarMilling", 8},
    {"PortAreaClearanceMode", 1}, {"PortAreaClearancePartialSlices", 1}, {"PortAreaClearancePlaneLimits", 1}, {"PortAreaClearanceRampDiameter", 1},
    {"PortAreaClearanceRampSlope", 1}, {"PortOverlap", 5}, {"PortToolClearance", 1}, {"Probing", 11},
    {"ProfileBasePosition", 1}, {"ProfileGeometry", 3}, {"ProjectionDirection", 1}, {"ProjectionOrder", 1},
    {"ProjectionPatternDirection", 1}, {"ProjectionRange", 4}, {"ProjectionStyle", 1}, {"ProjectionSurfaceUnits", 1},
    {"RadialDepthOfCut", 3}, {"RadialDepthOfCutShallow", 3}, {"RadialOffset", 1}, {"Rapid", 51},
    {"RasterAngle", 1}, {"ReferenceCornerRadius", 1}, {"ReferenceModels", 1}, {"ReferenceTool", 1},
    {"ReferenceToolpath", 1}, {"ReferenceType", 1}, {"RemoveDeepCuts", 1}, {"RemoveShallowSlices", 1},
    {"RepeatCount", 1}, {"ResourceAllocation", 1}, {"ReverseAxis", 1}, {"Revision", 1},
    {"Rib", 8}, {"RotaryType", 1}, {"RulingsTolerance", 1}, {"Safety", 21},
    {"SaveContactNormals", 1}, {"ShallowAngle", 1}, {"ShallowCusp", 1}, {"ShallowCutDirection", 1},
    {"ShallowDepthOfCut", 1}, {"ShallowSegmentType", 1}, {"ShallowSpiral", 1}, {"ShallowStepover", 3},
    {"ShallowStrategy", 1}, {"SmoothingAngle", 1}, {"Sorting", 1}, {"SpindleSpeed", 3},
    {"Spiral", 1}, {"StartCorner", 1}, {"StartOnPattern", 1}, {"StartPoint", 15},
    {"Statistics", 27}, {"SteepSegmentType", 1}, {"SteepShallowOrderPriority", 1}, {"SteepStrategy", 1},
    {"Stepdown", 1}, {"StepdownLimit", 3}, {"Stepover", 1}, {"StepoverCusp", 1},
    {"StepoverLimit", 3}, {"StockEngagement", 8}, {"StockManagement", 5}, {"StockModelState", 3},
    {"Strategy", 1}, {"SupportsCoinFitting", 1}, {"SupportsCollisionCheck", 1}, {"SupportsContactNormals", 1},
    {"SupportsCornerFilleting", 1}, {"SupportsRoughCoinFitting", 1}, {"SupportsRoughCornerFilleting", 1}, {"SurfaceNormalSmoothingTolerance", 1},
    {"SurfaceSide", 1}, {"SwarfBasePosition", 1}, {"Thickness", 1}, {"ThicknessSetValues", 16},
    {"ThicknessSets", 1}, {"ThresholdAngle", 1}, {"TiltAtSteepWalls", 3}, {"Tolerance", 1},
    {"Tool", 1}, {"ToolAxis", 30}, {"ToolAxisSmoother", 10}, {"ToolHolderProfile", 5},
    {"ToolpathType", 1}, {"TopWireframe", 1}, {"TrimParallelPass", 1}, {"Turning", 121},
    {"UndercutAngles", 3}, {"UndercutTaper", 3}, {"Units", 1}, {"UnsafeSegmentRemoval", 4},
    {"UpperLimit", 4}, {"UpperLimitingWorkplane", 1}, {"UseAxialThickness", 1}, {"UseOldFeatureSet", 1},
    {"UseParentConnections", 1}, {"UseParentPointDistribution", 1}, {"UseParentStock", 1}, {"UsePattern", 1},
    {"UseReferenceToolpath", 1}, {"UseToolpathAsPattern", 1}, {"UserParameters", 1}, {"VariableFeedRate", 1},
    {"Verification", 71}, {"WallClearance", 1}, {"WireframeProfileBasePosition", 1}, {"WireframeSwarfSide", 1},
    {"WireframeUpperLimit", 3}, {"Workplane", 1}, {"YOffset", 1}, {"ZLimits", 2},
    {"ZRange", 7},
};

// Names directly below each top-level group that has children.
constexpr SecondLevel kSecondLevel[] = {
    {"Additive", "Base, BeadWidth, CoatedRegion, FocalLength, Imported, Offset, Profile, Raster, StartControl, StepoverAllowance, Style, ToolAxis"},
    {"AngularLimits", "End, Start"},
    {"AngularLimits2", "End, Start"},
    {"AreaClearance", "Adaptive, CalculationType, ConstantVolumeRemoval, LeadIn, MaxFeedRate, MinAxialEngagement, Offset, Profile, Raster, Rest, SliceData, Slicer, SlicerReference, StepCutting, Stepup, ToolpathType, Type, ZHeights"},
    {"AuditHistory", "Comment, Time, Type, User"},
    {"AxialDepthOfCut", "UserDefined, Value"},
    {"BadSurfaces", "List, Number"},
    {"BladeRamp", "Active, Angle, Height, RampStepType, Stepdown"},
    {"BladeToolAxisSmoother", "Active, Angle, AzimuthAngle, AzimuthSmoothing, Distance, ElevationSmoothing"},
    {"BliskAxisElevation", "Angle, Axis"},
    {"BliskTrochoidalOffsets", "ConnectionClearance, InitialCornerRadius, MinimumCornerRadius, OffsetOverlap"},
    {"Block", "AzimuthAngle, Boundary, BoundaryData, Centre, CoordinateSystem, CurveData, Diameter, FileName, InnerDiameter, Limits, NamedWorkplane, TriangleData, Type"},
    {"BoundaryLimit", "Keep, Tool"},
    {"CNCCutterCompensation", "Active, MinRadius, Type"},
    {"Chamfer", "Angle, Clearance, CurvePosition, Depth, Method, ToolPosition, Width"},
    {"Clearance", "Head, Holder, Shank"},
    {"CollisionAvoidance", "Active, Clearance, Curve, Direction, Method, Origin, PathPosition, Type"},
    {"Connections", "AlwaysRamp, ApproachDistance, ArcFittingRadius, AxisDiscontinuityThreshold, ClearanceCheck, DefaultLink, ExtendMove, FirstLeadIn, GougeCheck, GougingPoints, IncrementalMode, LastLeadOut, LeadIn, LeadInExtension, LeadOut, LeadOutExtension, LeadsAtAxisDiscontinuities, Link, MaxMoveExtension, MoveDirection, MoveStartPoints, OverlapDistance, PlungeDistance, PlungeProtection, PointDistribution, Polar, PolygonisationTolerance, RadialClearance, RapidSkim, Reorientate, Resolve, RetractDistance, SeparateFirstLeadIn, SeparateLastLeadOut, SkimDistance, SkimPlane, StaggerStartPoints, TrimSegmentsToFitLeads, TrimmingOptions, UsePlanarSkim"},
    {"Coolant", "UserDefined, Value"},
    {"CornerRadius", "Active, Style, Value"},
    {"Cusp", "Active, Height, MaxStepdown"},
    {"CutDistances", "Axial, CornerFinishing, FloorFinishing, Radial, WallFinishing"},
    {"Degouge", "Active, EmbeddedMode, Method, Tolerance"},
    {"DiscAxis", "Elevation, Orientation"},
    {"DraftAngle", "Active, From, Value"},
    {"Drill", "AxialThickness, ChamferDiameter, Clearance, Clockwise, CollisionCheck, ComponentDepth, Depth, DepthType, DraftAngle, DwellTime, FeedReduction, FromBottom, GougeCheck, HoleData, HoleIndex, HoleIntersection, IncrementalStart, InitialZ, Leads, MinPeck, NumberOfTurns, Overlap, PeckDecrement, PeckDepth, Pitch, RapidRetract, ReduceFeedDistance, ReduceFeedDistanceAbsolute, ReduceFeedSlowdownMargin, Retract, RetractDistanceFromTop, RetractFactor, RetractFeedFactor, SpindleReduction, Spiral, Split, StartFeedDistance, StartFeedReduction, StartSpindleReduction, StockModel, SubsidiaryPeck, Thickness, ThreadPitch, ThreadSense, TopIndex, TopType, Type, UseCycles, UserParameter"},
    {"EndPoint", "DirectMove, Distance, ExtraSafeDistance, ManualToolAxis, Mode, Motion, MoveDirection, Position, SeparateFinalRetract, ToolAxis, Type"},
    {"ExternalThreading", "DepthType, Leads"},
    {"Face", "EngagementFeedrate, XYExpansion, Z"},
    {"FeatureChamfer", "Axial, Radial"},
    {"Features", "FeatureData, FeatureGroup, NonIgnoredFeatureGroupState"},
    {"FeedRate", "Cutting, CuttingSpeed, Cycle, DepthOfCut, FeedPerTooth, LeadInFactor, LeadOutFactor, LinkFactor, MaintainRampFeedRate, PlungeFactor, Plunging, RampLeadInFactor, Rapid, SurfaceSlope, UseOverhang, UseWorkDiameter, UserDefinedLeadInFactor, UserDefinedLeadOutFactor, UserDefinedRampLeadInFactor"},
    {"Filter", "Active, Factor, Type"},
    {"FlatLimits", "Active, MaxInclinedAngle, Option"},
    {"Flowline", "EndPattern, Method, ReverseOrder, StartPattern"},
    {"Helix", "Depth, Handedness, Multiplicity, NumberOfTurns, Pitch, RadialNumber, TopExtension"},
    {"History", "Codebase, Cost, CurrentHash, Hash, HashVersion, Modified, NumberOfCores, TotalMemory, TriangulationRefinement"},
    {"HoleMachining", "AccumulatedPeckingDepth, BackBoringDistance, BoringShift, BreakThroughDist, BreakThroughFeedPerRevolution, BreakThroughFeedrate, BreakThroughSpindleSpeed, ChipBreakDistance, ChipBreaking, CycleType, Diameter, Dwell, DwellBeforeRetract, DwellDepth, Feedrate, HolesToMachine, IncrementalDepth, MinimumPeckingDepth, NumSteps, Ordering, OrderingReverse, Orientation, PeckingDepth, PeckingDepthReduction, Pitch, PlungeFeedrate, PosFeedPerRevolution, PosFeedrate, PosSpindleSpeed, PreOrdering, RepeatPass, RetractFeedrate, ShiftOrientation, StartingDepth, Stepover, StopSpindle"},
    {"InclinedWalls", "BottleneckRatio, MaximumTangentAngle, MaximumWallAngle, MinimumWallAngle, WallTolerance"},
    {"Layering", "DifferentInitialSteps, FeatureHeightType, HeightType, InitialSteps, LayeringMethod, NumberOfLayers, ReferenceCurve, StartDistance, Step, TotalHeight"},
    {"Levels", "Base, CheckSurfaces, CoatedSurfaces, ConstructedFeature, Fillets, Hub, LeftBlade, MachinedSurfaces, Rib, RightBlade, Shroud, Splitter, TopSurfaces, TouchSurfaces"},
    {"LinearLimits", "End, Start"},
    {"LinearLimits2", "End, Start"},
    {"MachineToolProperties", "UseMTD"},
    {"MaxAngleBetweenPoints", "Active, Value"},
    {"MaxDistanceBetweenPoints", "Active, Value"},
    {"Mesh", "DetailedFactor, Factor, MaxTriangleSize"},
    {"Method", "FileName, SplitTolerance, Xml"},
    {"Mirroring", "Optimized, Plunging"},
    {"MultipleCutsStepdown", "Active, Value"},
    {"OffsetCentreline", "Active"},
    {"OrientationVector", "Active, FixedDirectionAzimuth, FixedDirectionElevation, FixedDirectionI, FixedDirectionJ, FixedDirectionK, OffsetAngle, Type"},
    {"OrientationVectorSmoother", "Active, Angle, Distance"},
    {"ParametricLimits", "Active, End, Start"},
    {"ParametricLimits2", "Active, End, Start"},
    {"Plunge", "CoreRadius, PullBack"},
    {"PointParameterMethod", "BoundaryCrossing, ComponentId, ComponentType, Distance, Extent, LayerId, LayerInterval, Location, LocationLimits, MethodName, ParameterKey, ParameterRelativePosition, Position, Range, Reference, ReferenceParameter, UseLayerInterval, Value"},
    {"PolarMilling", "Active, LockedAxis, LockedAxisOffset, MinimiseRotations, RapidLinksOnly, ReverseSolution, RotationCentre"},
    {"PortOverlap", "DistanceToLiftStart, Length, LiftHeight, MidPoint"},
    {"Probing", "Approach, ApproachFeedRate, ConnectionFeedRate, LowerTolerance, MeasureFeedRate, Retract, Search, Stop, SurfaceOffset, UpperTolerance"},
    {"ProfileGeometry", "CutDepth, MinCurvatureRadius"},
    {"ProjectionRange", "Automatic, Max, Min"},
    {"RadialDepthOfCut", "UserDefined, Value"},
    {"RadialDepthOfCutShallow", "UserDefined, Value"},
    {"Rapid", "Box, CalculateDimensions, CoordinateSystem, Cylinder, IncrementalSafeZ, IncrementalStartZ, MinimiseOffSurface, Plane, SafeArea, Sphere, Workplane"},
    {"Rib", "AngularTolerance, CutDirection, MultipleCuts, Order, Style, TopSurfaceClearance, UseToolTaperAngle"},
    {"Safety", "Holder, Tool"},
    {"ShallowStepover", "Active, Value"},
    {"SpindleSpeed", "UserDefined, Value"},
    {"StartPoint", "DirectMove, Distance, ExtraSafeDistance, IncrementalMode, IncrementalPlunge, ManualToolAxis, Mode, Motion, MoveDirection, PlungeDistance, Position, SeparateFirstApproach, ToolAxis, Type"},
    {"Statistics", "CuttingMoves, Dwells, LeadsAndLinks, Lifts, PlungesIntoStock, TotalTime, Valid"},
    {"StepdownLimit", "Active, Value"},
    {"StepoverLimit", "Active, Value"},
    {"StockEngagement", "AxialDepthOfCut, DepthOfCut, MachineStockOnly, MinimumLengthRemoved, ThresholdThickness, UseAxialDepthOfCut, UseDepthOfCut"},
    {"StockManagement", "Active, ExcessAllowance, Offset, ThresholdThickness"},
    {"StockModelState", "Entity, StockModel"},
    {"ThicknessSetValues", "AxialThickness, Mode, Selection, Thickness, UseAxialThickness"},
    {"TiltAtSteepWalls", "Active, Angle"},
    {"ToolAxis", "Curve, Direction, FixedAngle, Lead, LeadLeanMode, Lean, Limits, Origin, PositionMode, Type"},
    {"ToolAxisSmoother", "Active, Angle, AzimuthAngle, AzimuthSmoothing, Distance, ElevationSmoothing, NamedWorkplane"},
    {"ToolHolderProfile", "Calculate, Consider, NumberOfCores, ProfileData"},
    {"Turning", "BelowCentreline, ConstantDepthOfCut, CutDirection, CutterCompensation, Cycle, Deburring, DepthOfCut, EndPoint, FeedReduction, FeedsAndSpeeds, FinishXThickness, FinishZThickness, FirstPointClearance, Grooving, HolderAngleF, LeadsAndLinks, Limit, NumberOfCuts, Operation, ProfilePass, ProfilePassesToSkip, RoughXThickness, RoughZThickness, RoundInsert, StartPoint, Style, ToolAxis, ToolOrientationF, TwoWay, Undercuts"},
    {"UndercutAngles", "FirstAngle, SecondAngle"},
    {"UndercutTaper", "Active, Angle"},
    {"UnsafeSegmentRemoval", "Active, EnclosedOnly, Threshold"},
    {"UpperLimit", "Active, Type, Value"},
    {"Verification", "AdjustOverhangOnly, AdjustTool, AlwaysCreateTool, AxialThickness, CalculateCollisionDepth, CheckAgainst, Clearance, CollisionChecked, GougeChecked, MinLength, OutputSafeMoves, OutputUnsafeMoves, OverlapDistance, Reorder, Result, Scope, SelectiveCheck, SplitMoves, SplitToolpath, StockModelState, Thickness, ThicknessSetValues, ThicknessSets, Type, UseAxialThickness, UseVerificationThickness"},
    {"WireframeUpperLimit", "Type, Value"},
    {"ZLimits", "Minimum"},
    {"ZRange", "Maximum, Minimum"},
};
// clang-format on

struct Node {
    const kapParameter* par;
    std::string path;
    std::string top;
};

void collect(const kapParameter& par, const std::string& path, const std::string& top,
             std::vector<Node>& out) {
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) return;
    const bool indexed = kapParameterList::ut_dynamic_cast(&par) != nullptr;
    for (std::size_t i = 0; i < map->size(); ++i) {
        const kapParameter& c = *map->child(i);
        const std::string step = indexed ? "[" + std::to_string(i) + "]" : c.get_name();
        const std::string where = path.empty() || indexed ? path + step : path + "." + step;
        const std::string first = top.empty() ? where : top;
        out.push_back({&c, where, first});
        collect(c, where, first, out);
    }
}

std::vector<Node> nodes_of(const kapParameter& root) {
    std::vector<Node> out;
    collect(root, "", "", out);
    return out;
}

// Names below a group; for an array, the names inside its elements.
std::set<std::string> names_below(const kapParameter& group) {
    std::set<std::string> names;
    const auto* map = kapParameterMap::ut_dynamic_cast(&group);
    if (map == nullptr) return names;
    const bool indexed = kapParameterList::ut_dynamic_cast(&group) != nullptr;
    for (const kapParameterPtr& c : map->children()) {
        if (!indexed) {
            names.insert(c->get_name());
        } else if (const auto* element = kapParameterMap::ut_dynamic_cast(c.pointer())) {
            for (const kapParameterPtr& e : element->children())
                names.insert(e->get_name());
        }
    }
    return names;
}

// A map's condition reads from the map's parent (an evaluator on a map looks among its own
// children first).
kapParameterPtr evaluate_active(const kapParameter& par) {
    const kapParameter* scope = &par;
    if (kapParameterMap::ut_dynamic_cast(&par) != nullptr && par.parent() != nullptr) {
        scope = par.parent();
    }
    return kapEvaluator(scope).evaluate(par.get_active());
}

class ToolpathSchema : public ::testing::TestWithParam<int> {};

// Reports every top-level name whose count is off, and every name that is declared but not listed.
TEST_P(ToolpathSchema, PathsUnderEachTopLevelName) {
    kapUnitsScope units(GetParam());
    kapToolpathPar tp("T");
    std::map<std::string, int> counts;
    for (const Node& n : nodes_of(tp))
        ++counts[n.top];
    std::ostringstream off;
    std::set<std::string> listed;
    int total = 0;
    for (const TopLevel& t : kTopLevel) {
        listed.insert(std::string(t.name));
        total += t.paths;
        const int got = counts[std::string(t.name)];
        if (got != t.paths) off << "\n  " << t.name << ": " << got << " of " << t.paths;
    }
    for (const auto& [name, n] : counts) {
        if (!listed.contains(name)) off << "\n  " << name << ": " << n << " not listed";
    }
    EXPECT_EQ(total, 1568);
    EXPECT_TRUE(off.str().empty()) << "paths per top-level name:" << off.str();
}

TEST_P(ToolpathSchema, NamesBelowEachGroup) {
    kapUnitsScope units(GetParam());
    kapToolpathPar tp("T");
    for (const SecondLevel& s : kSecondLevel) {
        SCOPED_TRACE(std::string(s.group));
        std::set<std::string> want;
        std::stringstream list{std::string(s.names)};
        for (std::string name; std::getline(list, name, ',');) {
            want.insert(name.substr(name.find_first_not_of(' ')));
        }
        const kapParameter* group = tp.find_node(s.group);
        if (group == nullptr) {
            ADD_FAILURE() << "missing";
            continue;
        }
        EXPECT_EQ(names_below(*group), want);
    }
}

TEST_P(ToolpathSchema, DefaultsAreStatesAndInRange) {
    kapUnitsScope units(GetParam());
    kapToolpathPar tp("T");
    for (const Node& n : nodes_of(tp)) {
        SCOPED_TRACE(n.path);
        EXPECT_TRUE(n.par->check_range()) << "default " << n.par->get_value_text();
        if (n.path.back() != ']') {  // array elements carry their array's texts
            EXPECT_FALSE(n.par->get_desc().empty());
            EXPECT_FALSE(n.par->get_group_name().empty());
        }
        if (const auto* en = kapParameterEnum::ut_dynamic_cast(n.par)) {
            EXPECT_TRUE(en->is_valid()) << "default '" << en->get_string() << "' is no state";
        }
        // A length with a metric default has an inch default of its own.
        const kapParameterImpl& d = n.par->impl();
        if (d.dims == kapDimLength && !d.default_metric.empty() && d.default_metric != "0" &&
            d.default_metric != "(0;0;0)") {
            EXPECT_FALSE(d.default_inch.empty());
            EXPECT_NE(d.default_inch, d.default_metric);
        }
    }
}

// Every activity condition compiles and evaluates to a condition, for every strategy.
TEST_P(ToolpathSchema, ActivityConditionsUnderEveryStrategy) {
    kapUnitsScope units(GetParam());
    kapToolpathPar tp("T");
    const auto* strategy = kapParameterEnum::ut_dynamic_cast(tp.find_node("Strategy"));
    ASSERT_NE(strategy, nullptr);
    ASSERT_EQ(strategy->num_states(), 83);
    const std::vector<Node> nodes = nodes_of(tp);
    std::map<std::string, std::string> faults;  // first failure of each path
    for (int s = 0; s < strategy->num_states(); ++s) {
        const std::string key = strategy->state(s).key;
        ASSERT_TRUE(tp.find("Strategy")->set_string(key));
        for (const Node& n : nodes) {
            if (n.par->get_active().empty()) continue;
            const kapParameterPtr v = evaluate_active(*n.par);
            if (!v || v->is_error() || v->type() != kapParameterType::numeric) {
                faults.emplace(n.path, "'" + n.par->get_active() + "' " +
                                           (v ? v->get_string() : std::string("gives nothing")) +
                                           " (" + key + ")");
            }
        }
    }
    for (const auto& [path, f] : faults)
        ADD_FAILURE() << path << ": " << f;
}

INSTANTIATE_TEST_SUITE_P(Units, ToolpathSchema, ::testing::Values(0, 1),
                         [](const auto& p) { return p.param == 0 ? "Metric" : "Inch"; });

}  // namespace
