// The boundary's schema: every parameter of a boundary, in declaration order.

#include "kappar/kapBoundaryPar.h"
#include "kappar/kapSchemaNotation.h"

namespace {
using namespace kap_decl;

// Tolerances: above zero.
constexpr kapRange kPositive{0.0, kapDeclMaxDouble, 1, 1};
// Slopes and angles measured from the horizontal.
constexpr kapRange kQuarter{0.0, 90.0, 0, 0};
constexpr kapRange kTaper{0.0, 90.0, 0, 1};
constexpr kapRange kTurn{0.0, 360.0, 0, 0};
// A red, green and blue value, or -1 when the set is not chosen by colour.
constexpr kapRange kColour{-1.0, 16777215.0, 0, 0};

// Groups of rows whose parent map is in another group.
constexpr Group kActive("Active");
constexpr Group kBlock("Block");
constexpr Group kDebug("Debug");
constexpr Group kGeneral("General");
constexpr Group kMachining("Machining");
constexpr Group kTolerance("Tolerance and Thickness");

// clang-format off
constexpr kapDeclState kTypeStates[] = {
    {"user",              "User",                      "Boundary defined by points input by the user."},
    {"block",             "Block",                     "Boundary from the current block."},
    {"silhouette",        "Silhouette",                "Silhouette of the model projected in the Z axis."},
    {"shallow",           "Shallow",
     "Boundary at the junction between horizontal and vertical regions."},
    {"rest",              "Rest",
     "Boundary of regions where the new tool can machine further into a corner than the reference tool."},
    {"selected",          "Selected",                  "Boundary around selected surfaces."},
    {"collision",         "Collision",                 "Boundary of regions which are collision safe."},
    {"contact_conv",      "Contact Conversion",
     "Converts a contact point boundary into a boundary that can be used for a specific tool."},
    {"contact_point",     "Contact Point",
     "A boundary that limits the tool contact point rather than the tip position."},
    {"stockmodel_rest",   "Stockmodel Rest",           "Rest boundary using stockmodel."},
    {"boolean_operation", "Boolean Operation",
     "Boundary resulting of boolean operation between two reference boundaries."},
    {"halden",            "Halden Boundary",           "Boundary created from halden parameters."},
    {"penciled_in_rest",  "Penciled In Rest Boundary", "Boundary combining rest regions with a pencil trace."},
};

constexpr kapDeclState kModelStates[] = {
    {"unchanged", "Unchanged", "Model remains unchanged since calculation."},
    {"changed",   "Changed",   "Model has changed since calculation."},
    {"approved",  "Approved",  "Model changes since calculation have been approved."},
};

constexpr kapDeclState kCoordinateStates[] = {
    {"world",            "World",            "Block defined in the world coordinate system."},
    {"active_workplane", "Active Workplane", "Block defined in the active workplane."},
    {"named_workplane",  "Named Workplane",  "Block defined in a named workplane."},
};

constexpr kapDeclState kBlockTypeStates[] = {
    {"box",        "Box",                 "Rectangular box."},
    {"cylinder",   "Cylinder",            "Cylinder about the Z axis."},
    {"boundary",   "Defined by Boundary", "Boundary extruded along the Z axis."},
    {"triangles",  "Triangles",           "Block defined by a triangle model."},
    {"revolution", "Revolved Curve",      "Curve revolved about the Z axis."},
};

constexpr kapDeclState kSetModeStates[] = {
    {"machine",         "Machine",         "The components of the set are machined, leaving its thickness."},
    {"avoid",           "Avoid",
     "The tool keeps its thickness away from the components of the set without machining them."},
    {"collision_check", "Collision Check",
     "The components of the set are only checked for collisions with the shank and holder."},
    {"ignore",          "Ignore",          "The components of the set are ignored."},
};

constexpr kapDeclState kLimitModeStates[] = {
    {"inside",  "Inside",  "Keep the parts inside the limiting boundary."},
    {"outside", "Outside", "Keep the parts outside the limiting boundary."},
};

constexpr kapDeclState kBooleanStates[] = {
    {"union",        "Union",        "Regions inside either boundary."},
    {"intersection", "Intersection", "Regions inside both boundaries."},
    {"difference",   "Difference",   "Regions inside boundary A and outside boundary B."},
};

constexpr kapDeclState kHaldenTypeStates[] = {
    {"slope",      "Slope",          "Regions whose slope lies between the minimum and maximum angles."},
    {"rest",       "Rest",           "Regions that the rest tool can machine."},
    {"slope_rest", "Slope and Rest", "Rest regions whose slope lies between the minimum and maximum angles."},
};

constexpr kapDeclState kContainmentStates[] = {
    {"centre",  "Centre",        "The tool centre stays inside the boundary."},
    {"inside",  "Inside",        "The whole tool stays inside the boundary."},
    {"contact", "Contact Point", "The tool contact point stays inside the boundary."},
};

// One element of "ThicknessSetValues": the thickness of a set of components and how the set is
// chosen.
KAP_BLOCK(ThicknessSet)
//          Path                   Label                  Default(s)                 Active
//            Description, extras
KAP_LENGTH ("Thickness",           "Thickness",           "0", "0",                  "",
            "Thickness left on the components of the set.")
KAP_FLAG   ("UseAxialThickness",   "Use Axial Thickness", "0",                       "",
            "If true then the set has a separate thickness along the tool axis.")
KAP_LENGTH ("AxialThickness",      "Axial Thickness",     "0", "0",                  "UseAxialThickness",
            "Thickness of the set along the tool axis.")
KAP_ENUM   ("Mode",                "Mode",                kSetModeStates, "machine", "",
            "How the components of the set are treated.")
KAP_MAP    ("Selection",           "Selection",                                      "",
            "Components that belong to the set.")
KAP_INT    ("Selection.Colour",    "Colour",              "-1",                      "",
            "Colour of the components of the set as a red, green and blue value; -1 when the set is not chosen by "
            "colour.", Range(kColour))
KAP_STRING ("Selection.LevelName", "Level",               "",                        "",
            "Level or set whose components belong to the set; empty when the set is not chosen by level.")
KAP_STRING ("Selection.ModelName", "Model",               "",                        "",
            "Model whose components belong to the set; empty when the set is not chosen by model.")
KAP_FLAG   ("Approximate",         "Approximate",         "0",                       "",
            "If true then the thickness of the set is applied approximately, which is faster.")
KAP_STRING ("Value",               "Components",          "",                        "",
            "Identifiers of the components in the set.", kDebug)
KAP_END_BLOCK

// "Exclusive" is declared last, at the top level beside the boundary's other links, so that the
// lock rule reads it as the root's own child; it refers to the toolpath that uses the boundary
// exclusively.
KAP_TABLE(kRows)
//        Path          Label           Default(s)            Active
//          Description, extras
KAP_FLAG ("AutoReplay", "Replay Edits", "1",                  "",
          "If true then the edits are replayed when the boundary is recalculated.", kGeneral)
KAP_ENUM ("Type",       "Type",         kTypeStates, "block", "", "Type of boundary.")

// The block
KAP_MAP    ("Block",                    "Block",
            "Type=='block' OR (BlockLimiting AND Type!='user')",
            "Block from which the boundary is calculated or to which it is limited.", kBlock)
KAP_ENUM   ("Block.CoordinateSystem",   "Coordinate System", kCoordinateStates, "active_workplane", "",
            "Coordinate system in which the block is defined.")
KAP_REF    ("Block.NamedWorkplane",     "Workplane",         "workplane",
            "Block.CoordinateSystem=='named_workplane'", "Workplane in which the block is defined.")
KAP_ENUM   ("Block.Type",               "Type",              kBlockTypeStates, "box",               "",
            "Shape of the block.")
KAP_MAP    ("Block.Limits",             "Limits",                                                   "",
            "Extents of the block.")
KAP_LENGTH ("Block.Limits.XMin",        "X Minimum",         "0", "0",                              "Block.Type=='box'",
            "Smallest X coordinate of the block.")
KAP_LENGTH ("Block.Limits.XMax",        "X Maximum",         "0", "0",                              "Block.Type=='box'",
            "Largest X coordinate of the block.")
KAP_LENGTH ("Block.Limits.YMin",        "Y Minimum",         "0", "0",                              "Block.Type=='box'",
            "Smallest Y coordinate of the block.")
KAP_LENGTH ("Block.Limits.YMax",        "Y Maximum",         "0", "0",                              "Block.Type=='box'",
            "Largest Y coordinate of the block.")
KAP_LENGTH ("Block.Limits.ZMin",        "Z Minimum",         "0", "0",                              "",
            "Smallest Z coordinate of the block.")
KAP_LENGTH ("Block.Limits.ZMax",        "Z Maximum",         "0", "0",                              "",
            "Largest Z coordinate of the block.")
KAP_MAP    ("Block.AzimuthAngle",       "Azimuth Angle",
            "Block.Type=='revolution'", "Range of azimuth angles over which the curve is revolved.")
KAP_ANGLE  ("Block.AzimuthAngle.Start", "Start",             "0",                                   "",
            "Azimuth angle at which the revolution starts.", Range(kTurn))
KAP_ANGLE  ("Block.AzimuthAngle.End",   "End",               "360",                                 "",
            "Azimuth angle at which the revolution ends.", Range(kTurn))
KAP_REF    ("Block.Boundary",           "Boundary",          "boundary",
            "Block.Type=='boundary'", "Boundary that defines the block.")
KAP_DATA   ("Block.BoundaryData",       "Boundary Data",     "boundary",
            "Block.Type=='boundary'", "Copy of the boundary that defines the block.", kDebug)
KAP_DATA   ("Block.TriangleData",       "Triangle Data",     "triangles",
            "Block.Type=='triangles'", "Triangles that define the block.", kDebug)
KAP_DATA   ("Block.CurveData",          "Curve Data",        "curve",
            "Block.Type=='revolution'", "Curve that is revolved to make the block.", kDebug)
KAP_PATH   ("Block.FileName",           "File Name",         "",
            "Block.Type=='triangles'", "File from which the block triangles were read.")
KAP_LENGTH ("Block.Diameter",           "Diameter",          "100", "4",
            "Block.Type=='cylinder'", "Diameter of the cylinder.", Range(kapDeclNonNegative))
KAP_LENGTH ("Block.InnerDiameter",      "Inner Diameter",    "0", "0",
            "Block.Type=='cylinder'", "Diameter of the hole through the cylinder; 0 for a solid cylinder.",
            Range(kapDeclNonNegative))
KAP_MAP    ("Block.Centre",             "Centre",
            "Block.Type=='cylinder'", "Centre of the base of the cylinder.")
KAP_LENGTH ("Block.Centre.X",           "X",                 "0", "0",                              "",
            "X coordinate of the centre.")
KAP_LENGTH ("Block.Centre.Y",           "Y",                 "0", "0",                              "",
            "Y coordinate of the centre.")
KAP_LENGTH ("Block.Centre.Z",           "Z",                 "0", "0",                              "",
            "Z coordinate of the centre.")

// Workplane, model state, user parameters
KAP_REF      ("Workplane",            "Workplane",       "workplane",               "",
              "Workplane in which the boundary is defined.", kGeneral)
KAP_ENUM     ("NonIgnoredModelState", "Model Changed",   kModelStates, "unchanged", "",
              "The non-ignored model state change since calculation.", kDebug)
KAP_OPEN_MAP ("UserParameters",       "User Parameters",                            "",
              "User defined parameters", Legacy("userpars"), kGeneral)

// Tolerance and thickness
KAP_LENGTH ("Tolerance",                   "Tolerance",             "0.1", "0.002",
            "Type!='block'", "Determines how accurately the boundary is calculated.", kTolerance, Range(kPositive))
KAP_LENGTH ("Thickness",                   "Thickness",             "0", "0",
            "Type!='block' AND Type!='user' AND Type!='boolean_operation' AND Type!='contact_point'", "Thickness.",
            kTolerance)
KAP_FLAG   ("UseAxialThickness",           "Use Axial Thickness",   "0",
            "Type!='block' AND Type!='user' AND Type!='boolean_operation' AND Type!='contact_point'",
            "If true then a separate thickness is used along the tool axis.", Legacy("use_axial_thickness"), kTolerance)
KAP_LENGTH ("AxialThickness",              "Axial Thickness",       "0", "0",
            "UseAxialThickness AND Type!='block' AND Type!='user' AND Type!='boolean_operation' AND "
            "Type!='contact_point'", "Thickness along the tool axis.", Legacy("axial_thickness"), kTolerance)
KAP_LENGTH ("VerticalTolerance",           "Vertical Tolerance",    "0.1", "0.004",
            "Type=='shallow'", "Distance within which a wall counts as vertical.", kTolerance, Range(kPositive))
KAP_ANGLE  ("VerticalAngle",               "Vertical Angle",        "89",
            "Type=='shallow'", "Surfaces steeper than this angle from the horizontal count as vertical.", kTolerance,
            Range(kQuarter))
KAP_LENGTH ("MaxDeviation",                "Maximum Deviation",     "0", "0",
            "Type!='block' AND Type!='user'",
            "Largest distance by which the calculated boundary may differ from the exact one.",
            Legacy("max_possible_error"), kTolerance, Range(kapDeclNonNegative))
KAP_MAP    ("Mesh",                        "Mesh",
            "Type!='block' AND Type!='user' AND Type!='boolean_operation'",
            "Triangle mesh on which the boundary is calculated.", kTolerance)
KAP_MAP    ("Mesh.MaxTriangleSize",        "Maximum Triangle Size",                                        "",
            "Limit on the size of the mesh triangles.")
KAP_REAL   ("Mesh.MaxTriangleSize.Factor", "Factor",                "10",
            "Mesh.MaxTriangleSize.Active", "Longest triangle edge as a multiple of the tolerance.", Range(kPositive))
KAP_FLAG   ("Mesh.MaxTriangleSize.Active", "Limit Triangle Size",   "0",                                   "",
            "If true then the size of the mesh triangles is limited.")
KAP_LENGTH ("Mesh.MaxTriangleSize.Value",  "Size",                  "1", "0.04",
            "Mesh.MaxTriangleSize.Active",
            "Longest triangle edge; the smaller of this and the factor times the tolerance is used.", Range(kPositive))
KAP_FLAG   ("ThicknessSets",               "Use Thickness Sets",    "0",
            "Type!='block' AND Type!='user' AND Type!='boolean_operation' AND Type!='contact_point'",
            "If true then the thickness is given separately for sets of components.", kTolerance)
KAP_ARRAY  ("ThicknessSetValues",          kapBoundaryPar::kThicknessSets, ThicknessSet, "Thickness Sets",
            "ThicknessSets", "Thicknesses of the sets of components.", kTolerance)

// Tool, rest material, collisions, stock model
KAP_ANGLE  ("Angle",                      "Upper Angle",                  "30",             "Type=='shallow'",
            "Surfaces steeper than this angle from the horizontal are left out of the shallow region.", kMachining,
            Range(kQuarter))
KAP_ANGLE  ("MinAngle",                   "Lower Angle",                  "0",              "Type=='shallow'",
            "Surfaces shallower than this angle from the horizontal are left out of the shallow region.",
            Legacy("min_angle"), kMachining, Range(kQuarter))
KAP_REF    ("Tool",                       "Tool",                         "tool",
            "Type!='block' AND Type!='user' AND Type!='boolean_operation'",
            "Tool for which the boundary is calculated.", kMachining)
KAP_REF    ("ReferenceTool",              "Reference Tool",               "tool",
            "Type=='rest' OR Type=='penciled_in_rest'",
            "Tool that machined before; the boundary encloses the material it left.", Legacy("ref_tool"), kMachining)
KAP_LENGTH ("ThresholdThickness",         "Detect Material Thicker Than", "0", "0",
            "Type=='rest' OR Type=='penciled_in_rest'", "Rest material thinner than this is ignored.",
            Legacy("thicker_than"), kMachining, Range(kapDeclNonNegative))
KAP_LENGTH ("Offset",                     "Expand Area By",               "0", "0",
            "Type=='rest' OR Type=='stockmodel_rest' OR Type=='penciled_in_rest'",
            "Distance by which the rest regions are enlarged.", kMachining, Range(kapDeclNonNegative))
KAP_FLAG   ("Rollover",                   "Allow Tool Rollover",          "0",              "Type=='selected'",
            "If true then the tool may roll over the edges of the selected surfaces.", kMachining)
KAP_FLAG   ("VerticalUp",                 "Include Vertical Walls",       "0",              "Type=='shallow'",
            "If true then vertical walls are included in the shallow region.", Legacy("vertical_up"), kMachining)
KAP_STRING ("SelectedSurfacesList",       "Selected Surfaces",            "",               "Type=='selected'",
            "Surfaces around which the boundary is calculated.")
KAP_FLAG   ("CollisionCheck",             "Collision Check",              "0",
            "Type!='block' AND Type!='user' AND Type!='boolean_operation' AND Type!='collision'",
            "If true then the shank and holder are checked for collisions with the model.", Legacy("holder_check"),
            kMachining)
KAP_MAP    ("Clearance",                  "Clearance",
            "CollisionCheck OR Type=='collision'", "Clearances kept between the model and the parts of the tool.",
            kMachining)
KAP_LENGTH ("Clearance.Shank",            "Shank Clearance",              "2", "0.08",      "",
            "Clearance between the model and the tool shank.", Range(kapDeclNonNegative))
KAP_LENGTH ("Clearance.Holder",           "Holder Clearance",             "5", "0.2",       "",
            "Clearance between the model and the tool holder.", Range(kapDeclNonNegative))
KAP_LENGTH ("Clearance.Head",             "Head Clearance",               "5", "0.2",       "",
            "Clearance between the model and the machine head.", Range(kapDeclNonNegative))
KAP_MAP    ("StockModelState",            "Stock Model",                                    "Type=='stockmodel_rest'",
            "Stock model state from which the rest material is taken.", Legacy("stockmodel"), kMachining)
KAP_REF    ("StockModelState.StockModel", "Stock Model",                  "stockmodel",     "",
            "Stock model from which the rest material is taken.", Legacy("id"))
KAP_STRING ("StockModelState.Entity",     "State",                        "",               "",
            "State of the stock model to use, named by the entity applied in it; empty for its latest state.",
            Legacy("state"))
KAP_LENGTH ("StockModelThickerThan",      "Detect Material Thicker Than", "0", "0",         "Type=='stockmodel_rest'",
            "Stock model material thinner than this is ignored.", Legacy("stockmodel_thicker_than"), kMachining,
            Range(kapDeclNonNegative))
KAP_LENGTH ("EdgeTolerance",              "Edge Tolerance",               "0.01", "0.0004", "Type=='selected'",
            "Distance within which the edges of the selected surfaces are joined.", Legacy("edge_tolerance"),
            kTolerance, Range(kPositive))

// Limits
KAP_MAP  ("Limit",          "Limit",                                         "Type!='block' AND Type!='user'",
          "Limits the boundary by another boundary.", kMachining)
KAP_FLAG ("Limit.Limiting", "Limit to Boundary", "0",                        "",
          "If true then the boundary is limited by the limiting boundary.")
KAP_ENUM ("Limit.Mode",     "Keep",              kLimitModeStates, "inside", "Limit.Limiting",
          "Which side of the limiting boundary is kept.")
KAP_REF  ("Limit.Boundary", "Limiting Boundary", "boundary",                 "Limit.Limiting",
          "Boundary by which this boundary is limited.")
KAP_FLAG ("BlockLimiting",  "Limit to Block",    "1",                        "Type!='block' AND Type!='user'",
          "If true then the boundary is limited to the block.", kBlock)

// Contact conversion, boolean operation, Halden boundary
KAP_REF    ("ContactPointBoundary",                  "Contact Point Boundary", "boundary",
            "Type=='contact_conv'", "Contact point boundary that is converted for the tool.")
KAP_MAP    ("BooleanOperation",                      "Boolean Operation",
            "Type=='boolean_operation'", "Boolean operation between two reference boundaries.")
KAP_ENUM   ("BooleanOperation.Type",                 "Operation",              kBooleanStates, "union",      "",
            "Boolean operation applied to the two boundaries.")
KAP_REF    ("BooleanOperation.BoundaryA",            "Boundary A",             "boundary",                   "",
            "First boundary of the operation.")
KAP_REF    ("BooleanOperation.BoundaryB",            "Boundary B",             "boundary",                   "",
            "Second boundary of the operation.")
KAP_MAP    ("Halden",                                "Halden",
            "Type=='halden'", "Parameters of a Halden boundary.")
KAP_ENUM   ("Halden.Type",                           "Type",                   kHaldenTypeStates, "slope",   "",
            "Regions from which the Halden boundary is built.")
KAP_REF    ("Halden.ContactPointBoundary",           "Contact Point Boundary", "boundary",                   "",
            "Contact point boundary to which the Halden boundary is limited.")
KAP_LENGTH ("Halden.Offset",                         "Offset",                 "0", "0",                     "",
            "Distance by which the Halden boundary is offset.")
KAP_ENUM   ("Halden.ToolContainment",                "Tool Containment",       kContainmentStates, "centre", "",
            "Which part of the tool the boundary contains.")
KAP_MAP    ("Halden.Slope",                          "Slope",
            "Halden.Type=='slope' OR Halden.Type=='slope_rest'", "Range of surface slopes that the boundary includes.")
KAP_ANGLE  ("Halden.Slope.Minimum",                  "Minimum Angle",          "0",                          "",
            "Smallest slope from the horizontal that is included.", Range(kQuarter))
KAP_ANGLE  ("Halden.Slope.Maximum",                  "Maximum Angle",          "90",                         "",
            "Largest slope from the horizontal that is included.", Range(kQuarter))
KAP_MAP    ("Halden.RestMachining",                  "Rest Machining",
            "Halden.Type=='rest' OR Halden.Type=='slope_rest'", "Rest machining options of the Halden boundary.")
KAP_FLAG   ("Halden.RestMachining.RestSurfaces",     "Rest Surfaces Only",     "0",                          "",
            "If true then only surfaces that hold rest material are used.")
KAP_FLAG   ("Halden.RestMachining.Adjustment",       "Adjust Rest Regions",    "0",                          "",
            "If true then the rest regions are enlarged by the adjustment offset.")
KAP_LENGTH ("Halden.RestMachining.AdjustmentOffset", "Adjustment Offset",      "0", "0",
            "Halden.RestMachining.Adjustment", "Distance by which the rest regions are enlarged.",
            Range(kapDeclNonNegative))
KAP_FLAG   ("Halden.RestMachining.UsingRestTool",    "Use Rest Tool",          "0",                          "",
            "If true then the rest regions are calculated for the rest tool described below.")
KAP_LENGTH ("Halden.RestMachining.CornerRadius",     "Corner Radius",          "0", "0",
            "Halden.RestMachining.UsingRestTool", "Corner radius of the rest tool.", Range(kapDeclNonNegative))
KAP_LENGTH ("Halden.RestMachining.CutterRadius",     "Cutter Radius",          "5", "0.2",
            "Halden.RestMachining.UsingRestTool", "Radius of the rest tool.", Range(kPositive))
KAP_LENGTH ("Halden.RestMachining.ShoulderLength",   "Shoulder Length",        "20", "0.8",
            "Halden.RestMachining.UsingRestTool", "Length of the cutting part of the rest tool.",
            Range(kapDeclNonNegative))
KAP_ANGLE  ("Halden.RestMachining.TaperAngle",       "Taper Angle",            "0",
            "Halden.RestMachining.UsingRestTool", "Taper angle of the rest tool.", Range(kTaper))

// State of the calculation, links
KAP_FLAG   ("Edited",                "Edited",             "0",        "",
            "If true then the boundary has been edited since it was calculated.", kActive)
KAP_FLAG   ("Computed",              "Calculated",         "0",        "",
            "If true then the boundary has been calculated.", kActive)
KAP_MAP    ("BadSurfaces",           "Bad Surfaces",                   "",
            "Surfaces that could not be used when the boundary was calculated.", Group("Bad Surfaces"))
KAP_INT    ("BadSurfaces.Number",    "Number",             "0",        "",
            "Number of bad surfaces.", Range(kapDeclNonNegative))
KAP_STRING ("BadSurfaces.List",      "Surfaces",           "",         "", "Names of the bad surfaces.")
KAP_STRING ("Error",                 "Error",              "",         "",
            "Message of the last failed calculation; empty when it succeeded.", kActive)
KAP_FLAG   ("Private",               "Private",            "0",        "",
            "If true then the boundary belongs to one toolpath and is not listed in the project.", kGeneral)
KAP_FLAG   ("AvailablePrivate",      "Can Be Private",     "0",        "",
            "If true then the boundary can be made private to a toolpath.", kDebug)
KAP_MAP    ("History",               "History",                        "",
            "Resources used by the last calculation.", kDebug)
KAP_INT    ("History.TotalMemory",   "Total Memory",       "0",        "",
            "Memory used by the last calculation, in megabytes.", Range(kapDeclNonNegative))
KAP_INT    ("History.NumberOfCores", "Number of Cores",    "0",        "",
            "Number of processor cores used by the last calculation.", Range(kapDeclNonNegative))
KAP_REF    ("Exclusive",             "Exclusive Toolpath", "toolpath", "",
            "Toolpath that uses the boundary exclusively; the boundary's tolerance, thickness and tool then follow "
            "that toolpath.", kGeneral)
KAP_END_TABLE
// clang-format on

}  // namespace

std::span<const kapDeclRow> kapBoundaryPar::schema() {
    return kRows;
}
