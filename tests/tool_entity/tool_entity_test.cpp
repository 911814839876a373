// The tool entity: kinds from type texts, cutting-data tables, the callbacks against a real
// geometric tool, the legacy loader rules and synonyms, and the update steps.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/kapTool.h"
#include "kappar/kapEntityFile.h"
#include "kappar/kapToolPar.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapParameterFile.h"

namespace {

// A tool loaded from the pairs of a saved file at `version`, brought to the current version.
std::unique_ptr<kapParameterRoot> load(int version, const std::string& pairs) {
    const std::string text = "kappar-entity 1\nkind \"tool\"\nversion " + std::to_string(version) +
                             "\nname \"T\"\n\n" + pairs;
    kapFileDocument doc;
    kapFileError err;
    if (!kap_read_entity_text(text, doc, err)) {
        ADD_FAILURE() << kap_format_file_error("<text>", err);
        return nullptr;
    }
    kapEntityLoadReport report;
    auto root = kap_load_entity(doc, report, err);
    EXPECT_TRUE(root) << kap_format_file_error("<text>", err);
    return root;
}

double value(const kapParameterRoot& root, const char* path) {
    return root[kapParameterKey(path)]->get_double();
}

TEST(ToolKind, TypeTextsIgnoreLetterCase) {
    struct Case {
        const char* type;
        kapToolKind kind;
    };
    for (const Case& c : {Case{"end_mill", kapToolKind::milling},
                          {"END_MILL", kapToolKind::milling},
                          {"Ball_Nosed", kapToolKind::milling},
                          {"dovetail", kapToolKind::milling},
                          {"drill", kapToolKind::milling},
                          {"Turn_Grooving", kapToolKind::turning},
                          {"turn_profiling", kapToolKind::turning},
                          {"PROBE", kapToolKind::probe},
                          {"turn_outer_profiling", kapToolKind::unknown},
                          {"end_mill ", kapToolKind::unknown},
                          {"", kapToolKind::unknown}}) {
        EXPECT_EQ(kapToolParUtils::tool_kind_from_tool_type(c.type), c.kind) << c.type;
    }
    kapToolPar tool("T");
    tool["Type"]->set_string("turn_grooving");
    EXPECT_EQ(kapToolParUtils::tool_kind_from_parameter(tool), kapToolKind::turning);
    const kapParameterMap no_type;
    EXPECT_EQ(kapToolParUtils::tool_kind_from_parameter(no_type), kapToolKind::unknown);
}

// The tip radius read for each type: zeroed for "end_mill", half the diameter for "ball_nosed",
// as stored otherwise; types are matched exactly, unlike the tool's kind.
TEST(ToolCallbacks, TipRadiusFollowsTheExactType) {
    struct Case {
        const char* type;
        double read;
    };
    for (const Case& c : {Case{"end_mill", 0.0},
                          {"ball_nosed", 6.0},
                          {"End_Mill", 2.0},
                          {"BALL_NOSED", 2.0},
                          {"tip_radiused", 2.0}}) {
        kapToolPar tool("T");
        tool.set_locked(true);  // the reads write through the lock
        {
            const kapParameterNoLock unlocked;
            tool["Type"]->set_string(c.type);
            tool["Diameter"]->set_double(12.0);
            tool["TipRadius"]->set_double(2.0);
        }
        tool.set_modified(false);
        EXPECT_DOUBLE_EQ(tool["TipRadius"]->get_double(), c.read) << c.type;
        EXPECT_FALSE(tool.get_modified()) << c.type << ": a read is no edit";
    }
}

// Overhang against a rotating tool that keeps at least its cutting length out of the holder.
TEST(ToolCallbacks, OverhangFollowsTheAttachedTool) {
    struct Case {
        const char* type;
        const char* name;
        bool pushed;     // an edit reaches the geometric tool
        bool refreshed;  // a read takes the geometric tool's overhang
    };
    for (const Case& c : {Case{"end_mill", "T", true, true},
                          {"drill", "T", true, true},
                          {"probe", "T", true, false},
                          {"turn_profiling", "T", false, false},
                          {"nonsense", "T", false, false},
                          {"end_mill", "", false, false}}) {
        SCOPED_TRACE(std::string(c.type) + " named '" + c.name + "'");
        kapTool geometric(kapTool::Shape::end_mill, 10.0, 20.0);
        geometric.set_tool_overhang(50.0);
        kapToolPar tool(c.name);
        tool["Type"]->set_string(c.type);
        tool.set_tool(&geometric);
        EXPECT_DOUBLE_EQ(value(tool, "Overhang"), 50.0) << "attaching copies the overhang";

        // Shorter than the cutting length: the geometric tool keeps its cutting length out.
        tool["Overhang"]->set_double(12.0);
        EXPECT_DOUBLE_EQ(geometric.get_tool_overhang(), c.pushed ? 20.0 : 50.0);
        geometric.set_tool_overhang(70.0);
        EXPECT_DOUBLE_EQ(value(tool, "Overhang"), c.refreshed ? 70.0 : 12.0);
    }
    kapToolPar detached("T");
    detached["Overhang"]->set_double(30.0);
    const kapAbsTool not_rotating;
    detached.set_tool(&not_rotating);
    EXPECT_DOUBLE_EQ(value(detached, "Overhang"), 30.0);
}

TEST(ToolFunctions, TurningTypeAndModelHolderDecideActivity) {
    kapToolPar tool("T");
    EXPECT_TRUE(tool["Length"]->is_active());
    EXPECT_FALSE(tool["TurningInsert"]->is_active());
    tool["Type"]->set_string("turn_profiling");
    EXPECT_FALSE(tool["Length"]->is_active());
    EXPECT_TRUE(tool["TurningInsert.InsertShape"]->is_active());
    EXPECT_TRUE(tool["TurningHolder.ShaftWidth"]->is_active()) << "no geometric tool";

    kapToolTurningAssembly assembly;
    kapAbsTool geometric;
    geometric.set_abs_tool_assembly(&assembly);
    tool.set_tool(&geometric);
    EXPECT_TRUE(tool["TurningHolder.ShaftWidth"]->is_active()) << "holder from parameters";
    assembly.set_complex_holder_component_index(0);
    EXPECT_FALSE(tool["TurningHolder.ShaftWidth"]->is_active());
    EXPECT_FALSE(tool["TurningHolder.TipToBack"]->is_active());
}

// The tables each kind gets; a rebuild keeps what the tool holds.
TEST(ToolCuttingData, TablesPerKind) {
    const char* milling = "AxialDepthOfCut.finishing.general";
    const char* milling_speed = "CuttingSpeed.roughing.swarf";
    const char* turning = "CuttingSpeed.turn_finishing.turn_profile";
    const char* turning_cut = "TurningDepthOfCut.turn_roughing.general";
    struct Case {
        const char* type;
        bool milling;
        bool turning;
    };
    for (const Case& c : {Case{"end_mill", true, false},
                          {"probe", true, false},
                          {"turn_grooving", true, true},
                          {"nonsense", true, false}}) {
        SCOPED_TRACE(c.type);
        kapToolPar tool("T");
        tool[milling]->set_double(1.5);
        tool["Type"]->set_string(c.type);
        tool.reset_cutting_data_maps();
        // Every tool starts as an end mill: the milling tables are there, values kept.
        EXPECT_DOUBLE_EQ(value(tool, milling), 1.5);
        EXPECT_NE(tool.find_node(milling_speed), nullptr);
        EXPECT_EQ(tool.find_node(turning) != nullptr, c.turning);
        EXPECT_EQ(tool.find_node(turning_cut) != nullptr, c.turning);
        EXPECT_EQ(tool.find_node("AxialDepthOfCut.turn_finishing"), nullptr);
    }
}

using Values = std::vector<std::pair<const char*, double>>;

// Legacy pairs, file by file.
TEST(ToolLoader, LegacyRules) {
    const std::vector<std::pair<const char*, Values>> cases = {
        // A drill's point angle saved as its taper angle, unless the drill angle came first.
        {"type = \"drill\"\ntaper_angle = \"118\"\n", {{"DrillAngle", 118}, {"TaperAngle", 0}}},
        {"type = \"drill\"\ndrill_angle = \"120\"\ntaper_angle = \"5\"\n",
         {{"DrillAngle", 120}, {"TaperAngle", 5}}},
        // The taper of a tool that is no drill; the type is matched exactly.
        {"type = \"taper_tipped\"\ntaper_angle = \"7\"\n", {{"DrillAngle", 0}, {"TaperAngle", 7}}},
        {"type = \"Drill\"\ntaper_angle = \"9\"\n", {{"DrillAngle", 0}, {"TaperAngle", 9}}},
        {"type = \"end_mill\"\nradius = \"5\"\n", {{"Diameter", 10}}},
        {"type = \"tip_radiused\"\ntip = \"1.5\"\n", {{"TipRadius", 1.5}}},
        {"type = \"tip_radiused\"\ntip_radius = \"2.5\"\n", {{"TipRadius", 2.5}}},
        {"flutes = \"3\"\nnumber = \"7\"\ntip_radius_centre.x = \"1\"\n",
         {{"NumberOfFlutes", 3}, {"Number.Value", 7}, {"TipRadiusCentre.X", 1}}},
    };
    for (const auto& [pairs, expect] : cases) {
        auto root = load(0, pairs);
        ASSERT_TRUE(root) << pairs;
        for (const auto& [path, v] : expect)
            EXPECT_DOUBLE_EQ(value(*root, path), v) << pairs;
    }
    // A radius that is no number is kept as read.
    kapToolPar tool("T");
    std::unique_ptr<kapParameterLoader> loader(tool.create_loader(kapPtrClaim{}, 0));
    kapParameterUpdater::get_unrecognised_pars().clear();
    EXPECT_EQ(loader->load_par(kapParameterKey("radius"), "wide"), 0);
    EXPECT_EQ(kapParameterUpdater::get_unrecognised_pars().at("radius"), "wide");
    // Synonyms are matched exactly: another letter case goes to the base, which answers it as is.
    EXPECT_EQ(tool.lookup_key_synonym("Tip"), "Tip");
}

// The last type met outlives its loader: a drill's taper angle read by the next loader is still
// its point angle, until another "type" comes.
TEST(ToolLoader, LastTypeOutlivesTheLoader) {
    kapToolPar tool("T");
    std::unique_ptr<kapParameterLoader> first(tool.create_loader(kapPtrClaim{}, 0));
    first->load_par(kapParameterKey("type"), "drill");
    first.reset();
    std::unique_ptr<kapParameterLoader> second(tool.create_loader(kapPtrClaim{}, 0));
    second->load_par(kapParameterKey("taper_angle"), "135");
    EXPECT_DOUBLE_EQ(value(tool, "DrillAngle"), 135.0);
    second->load_par(kapParameterKey("type"), "drill");
    second->load_par(kapParameterKey("drill_angle"), "118");
    second->load_par(kapParameterKey("taper_angle"), "3");
    EXPECT_DOUBLE_EQ(value(tool, "TaperAngle"), 3.0);
    second->load_par(kapParameterKey("type"), "end_mill");  // leave the rule as it started
}

TEST(ToolUpdater, Steps) {
    const std::string taper = "Diameter = \"6\"\nTaperAngle = \"45\"\nTaperHeight = \"10\"\n";
    struct Case {
        int version;
        std::string pairs;
        const char* type;  // after the update
        Values expect;
    };
    const std::vector<Case> cases = {
        // Recommended cutting data, not read from version 2 on.
        {1,
         "axial_depth_of_cut_recommended = \"2\"\ncutting_speed_recommended = \"150\"\n"
         "feed_per_tooth_recommended = \"0.1\"\nradial_depth_of_cut_recommended = \"4\"\n",
         "end_mill",
         {{"AxialDepthOfCut.finishing.general", 2},
          {"CuttingSpeed.finishing.general", 150},
          {"FeedPerTooth.finishing.general", 0.1},
          {"RadialDepthOfCut.finishing.general", 4}}},
        {2,
         "cutting_speed_recommended = \"150\"\n",
         "end_mill",
         {{"CuttingSpeed.finishing.general", 0}}},
        // The taper diameter, only for tapered tipped tools and not at the current version.
        {2, "Type = \"taper_tipped\"\n" + taper, "taper_tipped", {{"TaperDiameter", 26}}},
        {2, "Type = \"end_mill\"\n" + taper, "end_mill", {{"TaperDiameter", 0}}},
        {5, "Type = \"taper_tipped\"\n" + taper, "taper_tipped", {{"TaperDiameter", 0}}},
        // Turning types merged; the cut angle of a profiling end cut and a grooving side cut.
        {4, "Type = \"turn_inner_profiling\"\n", "turn_profiling", {}},
        {3,
         "Type = \"turn_outer_profiling\"\nTurningInsert.InsertShape = \"diamond_55\"\n"
         "TurningInsert.CutAngle = \"5\"\nTurningInsert.CutType = \"end\"\n",
         "turn_profiling",
         {{"TurningInsert.CutAngle", 30}}},
        {3,
         "Type = \"turn_inner_grooving\"\nTurningInsert.CutAngle = \"5\"\n"
         "TurningInsert.CutType = \"side\"\n",
         "turn_grooving",
         {{"TurningInsert.CutAngle", 85}}},
        {3,
         "Type = \"turn_outer_grooving\"\nTurningInsert.CutAngle = \"5\"\n"
         "TurningInsert.CutType = \"end\"\n",
         "turn_grooving",
         {{"TurningInsert.CutAngle", 5}}},
    };
    for (const Case& c : cases) {
        auto root = load(c.version, c.pairs);
        ASSERT_TRUE(root) << c.pairs;
        EXPECT_EQ(root->version(), 5) << c.pairs;
        EXPECT_EQ((*root)["Type"]->get_string(), c.type) << c.pairs;
        for (const auto& [path, v] : c.expect)
            EXPECT_NEAR(value(*root, path), v, 1e-9) << c.pairs;
    }
}

}  // namespace
