// The tool's schema: every parameter of a tool, in declaration order.

#include "kapToolCallbacks.h"
#include "kappar/kapSchemaNotation.h"
#include "kappar/kapToolPar.h"

namespace {
using namespace kap_decl;

constexpr std::string_view kNotTurning = "!IsTurningType()";
constexpr std::string_view kTurning = "IsTurningType()";
// The grooving insert's length is given from this size up.
constexpr kapRange kInsertLength{0.08, kapDeclMaxDouble, 0, 1};

// clang-format off
constexpr kapDeclState kTypeStates[] = {
    {"end_mill",           "End Mill",                "End Mill tool."},
    {"tip_radiused",       "Tip Radiused",            "Tip Radiused tool."},
    {"ball_nosed",         "Ball Nosed",              "Ball Nosed tool."},
    {"taper_spherical",    "Tapered Spherical",       "Tapered Spherical tool."},
    {"taper_tipped",       "Tapered Tipped",          "Tapered Tipped tool."},
    {"off_centre_tip_rad", "Off Centre Tip Radiused", "Off Centre Tip Radiused tool."},
    {"tipped_disc",        "Tipped Disc",             "Tipped Disc tool."},
    {"drill",              "Drill",                   "Drill tool."},
    {"tap",                "ToolType::Tap",           "Tap tool."},
    {"form",               "Form",                    "Form tool."},
    {"routing",            "Routing",                 "Routing tool."},
    {"thread_mill",        "Thread Mill",             "Thread Mill tool."},
    {"barrel",             "Barrel Cutter",           "Barrel Cutter."},
    {"dovetail",           "Dovetail",                "Dovetail tool."},
    {"turn_profiling",     "Turning Profiling",       "Turning Profiling tool."},
    {"turn_grooving",      "Turning Grooving",        "Turning Grooving tool."},
    {"probe",              "Probe",                   "Probe."},
};

constexpr kapDeclState kCoolantStates[] = {
    {"none",     "None",     "No coolant."},
    {"standard", "Standard", "Standard coolant."},
    {"flood",    "Flood",    "Flood coolant."},
    {"mist",     "Mist",     "Mist coolant."},
    {"tap",      "Tap",      "Tapping coolant."},
    {"air",      "Air",      "Air blast."},
    {"thru",     "Thru",     "Coolant through the tool."},
    {"both",     "Both",     "Flood coolant and coolant through the tool."},
};

constexpr kapDeclState kInsertShapeStates[] = {
    {"diamond_35", "Diamond 35", "Diamond insert with a 35 degree tip."},
    {"diamond_55", "Diamond 55", "Diamond insert with a 55 degree tip."},
    {"diamond_80", "Diamond 80", "Diamond insert with an 80 degree tip."},
    {"trigon_80",  "Trigon 80",  "Trigon insert with an 80 degree tip."},
    {"triangle",   "Triangle",   "Triangular insert."},
    {"square",     "Square",     "Square insert."},
    {"round",      "Round",      "Round insert."},
    {"custom",     "Custom",     "Insert with a tip angle of its own."},
};

constexpr kapDeclState kHolderShapeStates[] = {
    {"rectangular", "Rectangular", "Rectangular shank holder."},
    {"boring",      "Boring",      "Boring bar holder."},
};

constexpr kapDeclState kInsertPositionStates[] = {
    {"righthand", "Right Hand", "Insert mounted for right-hand cutting."},
    {"lefthand",  "Left Hand",  "Insert mounted for left-hand cutting."},
};

// Shank and holder: a cone from the upper to the lower diameter.
KAP_BLOCK(Cone)
//           Path             Label             Metric Inch Active Description
KAP_LENGTH  ("UpperDiameter", "Upper Diameter", "0",   "0", "",    "Diameter at the top.")
KAP_LENGTH  ("LowerDiameter", "Lower Diameter", "0",   "0", "",    "Diameter at the bottom.")
KAP_LENGTH  ("Length",        "Length",         "0",   "0", "",    "Length along the tool axis.")
KAP_END_BLOCK

// Program and gauge points of turning tools.
KAP_BLOCK(TurningPoint)
KAP_FLAG    ("Manual", "Manual", "0",        "", "Position given by the user.")
KAP_LENGTH  ("X",      "X",      "0",   "0", "", "Position along X.")
KAP_LENGTH  ("Z",      "Z",      "0",   "0", "", "Position along Z.")
KAP_END_BLOCK

KAP_TABLE(kRows)
//           Path                        Label                        Metric / States     Inch  Active        Description
KAP_OPEN_MAP("UserParameters",           "User Parameters",                                     "",           "User defined parameters")
KAP_MAP     ("Number",                   "",                                                    "",           "Tool number.")
KAP_FLAG    ("Number.UserDefined",       "User Defined Number",       "0",                      "",           "Number given by the user.", Group("Active"))
KAP_INT     ("Number.Value",             "Number",                    "0",                      "",           "Tool number.")
KAP_ENUM    ("Type",                     "Type",                      kTypeStates, "end_mill",  "",           "Type of tool to use.")
KAP_FUNC    ("IsTurningType",            "IsTurning",                 &parfunc_tool_IsTurningType,            " Return whether this is a turning tool or not. Takes no arguments. Returns a boolean. ")
KAP_LENGTH  ("Length",                   "Cutting Length",            "0",                "0",  kNotTurning,  "Length of the cutting part of the tool.")
KAP_STRING  ("Identifier",               "ID",                        "",                       "",           "Tool identifier.")
KAP_LENGTH  ("Diameter",                 "Diameter",                  "0",                "0",  kNotTurning,  "Tool diameter.")
KAP_LENGTH  ("UpperTipRadius",           "Tip Radius",                "0",                "0",  "Type=='barrel' OR Type=='dovetail' OR Type=='tipped_disc'", "Upper tool tip radius.")
KAP_LENGTH  ("BarrelRadius",             "Barrel Radius",             "0",                "0",  "Type=='barrel'", "Radius of the barrel.")
KAP_FLAG    ("FlatBottom",               "Flat Bottom",               "0",                      "Type=='barrel'", "Barrel with a flat bottom.")
KAP_STRING  ("Status",                   "Status",                    "",                       "",           "Status of the tool.")
KAP_LENGTH  ("Overhang",                 "Overhang",                  "0",                "0",  kNotTurning,  "Length of the tool out of its holder.", OnModify{}, OnRead{})
KAP_LENGTH  ("Pitch",                    "Pitch",                     "0",                "0",  "Type=='thread_mill'", "Pitch of the thread.")
KAP_LENGTH  ("TipRadius",                "Tip Radius",                "0",                "0",  "Type=='tip_radiused' OR Type=='taper_spherical' OR Type=='taper_tipped' OR Type=='off_centre_tip_rad' OR Type=='tipped_disc' OR (Type=='barrel' AND FlatBottom) OR Type=='dovetail' OR Type=='end_mill' OR Type=='ball_nosed'", "Tool tip radius.", OnRead{})
KAP_MAP     ("TipRadiusCentre",          "Tip Radius Centre",                                   "Type=='off_centre_tip_rad' OR Type=='barrel'", "Centre of the tip radius.")
KAP_LENGTH  ("TipRadiusCentre.X",        "X",                         "0",                "0",  "",           "Radial position of the centre.")
KAP_LENGTH  ("TipRadiusCentre.Y",        "Y",                         "0",                "0",  "",           "Axial position of the centre.")
KAP_ANGLE   ("DrillAngle",               "Drill Angle",               "0",                      "Type=='drill'", "Point angle of the drill.")
KAP_ANGLE   ("TaperAngle",               "Taper Angle",               "0",                      "Type=='taper_spherical' OR Type=='taper_tipped' OR Type=='dovetail'", "Angle of the taper.")
KAP_FLAG    ("UserDefinedTaperAngle",    "User Defined Taper Angle",  "0",                      "Type=='taper_tipped'", "Taper angle given by the user.", Group("Active"))
KAP_FLAG    ("UserDefinedTaperHeight",   "User Defined Taper Height", "0",                      "Type=='taper_tipped'", "Taper height given by the user.", Group("Active"))
KAP_FLAG    ("UserDefinedTaperDiameter", "User Defined Taper Diameter", "0",                    "Type=='taper_tipped'", "Taper diameter given by the user.", Group("Active"))
KAP_LENGTH  ("TaperHeight",              "Taper Height",              "0",                "0",  "Type=='taper_tipped'", "Height of the taper.")
KAP_LENGTH  ("TaperDiameter",            "Taper Diameter",            "0",                "0",  "Type=='taper_tipped'", "Diameter at the top of the taper.")
KAP_INT     ("NumberOfFlutes",           "Number of Flutes",          "0",                      kNotTurning,  "Number of cutting edges.")
KAP_STRING  ("Description",              "Description",               "",                       "",           "Description of the tool.")
KAP_LENGTH  ("RoutingEndMillDiameter",   "End Mill Diameter",         "0",                "0",  "Type=='routing'", "Diameter of the end mill of a routing tool.")
// Cutting data: entries per operation type and toolpath type are added at run time.
KAP_MAP     ("AxialDepthOfCut",          "Axial Depth of Cut",                                  kNotTurning,  "Axial depth of cut.")
KAP_MAP     ("TurningDepthOfCut",        "Turning Depth of Cut",                                kTurning,     "Turning depth of cut.")
KAP_MAP     ("RadialDepthOfCut",         "Radial Depth of Cut",                                 "",           "Radial depth of cut.")
KAP_MAP     ("FeedPerTooth",             "Feed/Tooth",                                          "",           "Feed per tooth.")
KAP_MAP     ("FeedPerRevolution",        "Feed/Revolution",                                     kTurning,     "Feed per revolution.")
KAP_MAP     ("CuttingSpeed",             "Surface Speed",                                       "",           "Surface speed.")
KAP_STRING  ("ToolFamily",               "Tool Family",               "",                       "",           "Family of the tool.")
KAP_STRING  ("StockMaterial",            "Stock Material",            "",                       "",           "Material the cutting data is for.")
KAP_ENUM    ("Coolant",                  "Coolant",                   kCoolantStates, "none",   "",           "Coolant to use.")
KAP_FLAG    ("IDTracksName",             "Tool ID Tracks Tool Name",  "0",                      "",           "The identifier follows the name of the tool.")
KAP_STRING  ("HolderName",               "Holder name",               "",                       kNotTurning,  "Name of the holder.")
KAP_MAP_OF  ("ShankSetValues", Cone,     "",                                                    kNotTurning,  "Shank of the tool.", Group("Shank"))
KAP_MAP_OF  ("HolderSetValues", Cone,    "",                                                    kNotTurning,  "Holder of the tool.", Group("Holder"))
KAP_FLAG    ("HolderSetValues.Ignore",   "Ignore Holder",             "0",                      "",           "The holder is not checked.")
KAP_MAP     ("HolderProfile",            "",                                                    kNotTurning,  "Profile of the holder.", Group("Holder Profile"))
KAP_LENGTH  ("HolderProfile.MaximumDiameter", "Maximum Profile Diameter", "0",            "0",  "",           "Largest diameter of the holder profile.")
KAP_LENGTH  ("HolderProfile.Clearance",  "Clearance",                 "0",                "0",  "",           "Clearance around the holder.")
KAP_LENGTH  ("HolderProfile.ShankClearance", "Shank Clearance",       "0",                "0",  "",           "Clearance around the shank.")
KAP_LENGTH  ("HolderProfile.Tolerance",  "Tolerance",                 "0",                "0",  "",           "Tolerance of the holder profile.")
KAP_STRING  ("ConnectionType",           "Connection Name",           "",                       kNotTurning,  "Connection of the tool to its holder.")
KAP_STRING  ("HolderConnectionType",     "Holder Connection Type",    "",                       kNotTurning,  "Connection of the holder to the spindle.", Group("Holder"))
KAP_STRING  ("Tags",                     "Tags",                      "",                       "",           "Tags of the tool.")
KAP_STRING  ("Error",                    "Error",                     "",                       "",           "Error found in the tool.", Group("General"))
KAP_FUNC    ("IsHolderFromModel",        "",                          &parfunc_tool_IsHolderFromModel,        "Whether the turning holder comes from a model.", Group("Holder"))
KAP_MAP     ("TurningInsert",            "",                                                    kTurning,     "Insert of a turning tool.", Group("Turning Insert"))
KAP_ENUM    ("TurningInsert.InsertShape", "Insert Shape",             kInsertShapeStates, "diamond_35", "Type=='turn_profiling'", "Shape of the insert.")
KAP_ANGLE   ("TurningInsert.TipAngle",   "Insert Shape",              "0",                      "(Type=='turn_profiling' AND InsertShape=='custom') OR Type=='turn_grooving'", "Turning tool insert tip angle.")
KAP_LENGTH  ("TurningInsert.TipRadius",  "Tip Radius",                "0",                "0",  "(Type=='turn_profiling' AND InsertShape!='round') OR Type=='turn_grooving'", "Radius of the insert's tip.", Group("Tool"))
KAP_LENGTH  ("TurningInsert.InscribedDiameter", "Inscribed Diameter", "0",                "0",  "Type=='turn_profiling'", "Diameter of the circle inscribed in the insert.")
KAP_LENGTH  ("TurningInsert.InsertWidth", "Insert Width",             "0",                "0",  "Type=='turn_grooving'", "Width of the insert.")
KAP_LENGTH  ("TurningInsert.InsertLength", "Insert Width",            "0.08",          "0.08",  "Type=='turn_grooving'", "Width of the insert.", Range(kInsertLength))
KAP_FLAG    ("TurningInsert.isTwoWay",   "Allow two-way cutting",     "0",                      "Type=='turn_grooving'", "The insert cuts in both directions.")
KAP_ANGLE   ("TurningInsert.CutAngle",   "Cut Angle",                 "0",                      "",           "Angle of the insert's cut.")
KAP_MAP     ("TurningHolder",            "",                                                    kTurning,     "Holder of a turning tool.", Group("Turning Holder"))
KAP_ENUM    ("TurningHolder.Shape",      "Shape",                     kHolderShapeStates, "rectangular", "",  "Shape of the holder.")
KAP_LENGTH  ("TurningHolder.ShaftWidth", "Shaft Width",               "0",                "0",  "!IsHolderFromModel()", "Width of the shaft.")
KAP_LENGTH  ("TurningHolder.ShaftLength", "Shaft Length",             "0",                "0",  "!IsHolderFromModel()", "Length of the shaft.")
KAP_LENGTH  ("TurningHolder.TipToBack",  "Tip to Back",               "0",                "0",  "Type!='turn_grooving' AND !IsHolderFromModel()", "Distance from the insert's tip to the back of the holder.")
KAP_ENUM    ("TurningHolder.InsertPosition", "Insert Position",       kInsertPositionStates, "righthand", "", "Side the insert is mounted on.")
KAP_LENGTH  ("TurningHolder.Thickness",  "Thickness",                 "0",                "0",  "(Shape=='rectangular') AND !IsHolderFromModel()", "Thickness of the holder.")
KAP_MAP_OF  ("ProgramPoint", TurningPoint, "",                                                  kTurning,     "Point of the tool that the program drives.", Group("Program Point"))
KAP_MAP_OF  ("GaugePoint", TurningPoint, "",                                                    kTurning,     "Gauge point of the tool.", Group("Gauge Point"))
KAP_END_TABLE
// clang-format on

}  // namespace

std::span<const kapDeclRow> kapToolPar::schema() {
    // Read callbacks are attached as the rows are declared: they must be known by then.
    kap_tool_register_callbacks();
    return kRows;
}
