// kappar upgrade writes files at the current version with the upgraded values, keeps what it did
// not know, and is idempotent: upgrading an upgraded file changes nothing.

#include <map>

#include "kappar/kapEntityFile.h"
#include "kapparameter/kapParameterFile.h"
#include "tool_process.h"

namespace tooltest {
namespace {

namespace fs = std::filesystem;

struct UpgradeCase {
    const char* file;  // in examples/
    int saved_version;
    int version;
    // Pairs the upgraded file must hold (key, value).
    std::vector<std::pair<std::string, std::string>> expect;
    // Keys it must not hold.
    std::vector<std::string> absent;
    // The reference output of `kappar upgrade FILE` in golden/ (NAME.kap and NAME.err), if any.
    const char* golden = nullptr;
};

void PrintTo(const UpgradeCase& c, std::ostream* os) {
    *os << c.file;
}

std::map<std::string, std::string> pairs_of(const kapFileDocument& doc) {
    std::map<std::string, std::string> pairs;
    for (const auto& p : doc.pairs)
        pairs[p.key] = p.value;
    return pairs;
}

class ToolUpgrade : public ::testing::TestWithParam<UpgradeCase> {};

TEST_P(ToolUpgrade, WritesCurrentVersionAndIsIdempotent) {
    const UpgradeCase& c = GetParam();
    const std::string source = std::string("examples/") + c.file;
    TempDir dir;
    const std::string once = dir / "once.kap";
    const std::string twice = dir / "twice.kap";

    const ToolRun first = run_tool({"upgrade", source, "-o", once});
    ASSERT_EQ(first.status, 0) << first.err;
    kapFileDocument doc;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_file(once, doc, err)) << kap_format_file_error(once, err);
    EXPECT_EQ(doc.version, c.version);
    const auto pairs = pairs_of(doc);
    for (const auto& [key, value] : c.expect) {
        ASSERT_TRUE(pairs.contains(key)) << key;
        EXPECT_EQ(pairs.at(key), value) << key;
    }
    for (const auto& key : c.absent)
        EXPECT_FALSE(pairs.contains(key)) << key;

    // Every pair of the file is accounted for: loaded, or reported at its line (kept as
    // unrecognised, and then written back as read, or dropped by the kind's loader).
    const std::string source_path = (fs::path(KAPPAR_SOURCE_DIR) / source).string();
    kapEntityLoadReport report;
    kapFileError load_err;
    ASSERT_TRUE(kap_read_entity(source_path, report, load_err) != nullptr) << load_err.message;
    kapFileDocument original;
    ASSERT_TRUE(kap_read_entity_file(source_path, original, err));
    EXPECT_EQ(static_cast<std::size_t>(report.loaded) + report.unrecognised.size() +
                  report.dropped.size(),
              original.pairs.size());
    for (const auto* reported : {&report.unrecognised, &report.dropped}) {
        for (const kapFilePair& p : *reported) {
            const std::string at = source + ":" + std::to_string(p.line) + ":1: ";
            EXPECT_NE(first.err.find(at), std::string::npos) << p.key << " is not reported";
        }
    }
    for (const kapFilePair& p : report.unrecognised) {
        ASSERT_TRUE(pairs.contains(p.key)) << p.key << " is not written back";
        EXPECT_EQ(pairs.at(p.key), p.value) << p.key;
    }
    if (c.golden != nullptr) {
        const ToolRun to_stdout = run_tool({"upgrade", source});
        EXPECT_EQ(to_stdout.status, 0);
        expect_golden(std::string(c.golden) + ".kap", to_stdout.out);
        expect_golden(std::string(c.golden) + ".err", to_stdout.err);
    }

    // Upgrading again, to a new file or in place, changes nothing.
    const ToolRun second = run_tool({"upgrade", once, "-o", twice});
    ASSERT_EQ(second.status, 0) << second.err;
    EXPECT_EQ(read_file(twice), read_file(once));
    const fs::file_time_type before = fs::last_write_time(once);
    const ToolRun in_place = run_tool({"upgrade", "--in-place", once});
    ASSERT_EQ(in_place.status, 0) << in_place.err;
    EXPECT_EQ(read_file(once), read_file(twice));
    EXPECT_EQ(fs::last_write_time(once), before) << "an unchanged file is not rewritten";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Examples, ToolUpgrade, ::testing::Values(
    // The upgraded text of these is compared whole with golden/upgrade_*.kap.
    UpgradeCase{"boundary_v1_contact_conv.kap", 1, 3, {}, {}},
    UpgradeCase{"workplane_v0.kap", 0, 1, {}, {}},
    UpgradeCase{"level_v0_set.kap", 0, 1, {{"Type", "set"}, {"IsClamp", "1"}}, {"type"}},
    UpgradeCase{"stockmodel_v0.kap", 0, 1,
                {{"Tolerance", "0.05"}, {"Workplane", "7"}, {"ThresholdThickness", "2*Tolerance"},
                 {"Origin", "(0;0;-25)"}, {"NumberOfCores", "4"}},
                {"tolerance"}},
    UpgradeCase{"model_v0_unrecognised.kap", 0, 1, {}, {}},
    UpgradeCase{"stockmodel_v1_problems.kap", 1, 1,
                {{"Tolerance", "-0.5"}, {"Stepover", "2*Tolerance + StepoverOffset"}}, {}},
    // Toolpaths: each golden file is the whole tree at the current version.
    UpgradeCase{"toolpath_v0_area_clear.kap", 0, 29, {}, {"strategy"}, "upgrade_toolpath_v0"},
    UpgradeCase{"toolpath_v3_pattern.kap", 3, 29, {}, {"toolpath"}, "upgrade_toolpath_v3"},
    UpgradeCase{"toolpath_v4_constz_fillet.kap", 4, 29, {}, {"cornerfilleting", "arcfit"},
                "upgrade_toolpath_v4_fillet"},
    UpgradeCase{"toolpath_v9_parametric_offset.kap", 9, 29, {}, {}, "upgrade_toolpath_v9"},
    UpgradeCase{"toolpath_v11_drill.kap", 11, 29, {}, {"Coolant", "SpindleSpeed"},
                "upgrade_toolpath_v11"},
    UpgradeCase{"toolpath_v16_constz_fillet_expr.kap", 16, 29, {},
                {"CornerFilleting.Value", "InterConstzOrder"}, "upgrade_toolpath_v16_fillet"},
    UpgradeCase{"toolpath_v22_turning.kap", 22, 29, {}, {"OutputWorkplane"}, "upgrade_toolpath_v22"},
    UpgradeCase{"toolpath_v24_offset_3d.kap", 24, 29, {}, {"FeedRate.Cutting"},
                "upgrade_toolpath_v24"},
    UpgradeCase{"toolpath_v28_flowline.kap", 28, 29, {}, {}, "upgrade_toolpath_v28"},
    UpgradeCase{"toolpath_raster.kap", 29, 29, {{"Strategy", "raster"}}, {}},
    // Tools: the point angle saved as a taper angle, the recommended speed moved into its table.
    UpgradeCase{"tool_v0_drill.kap", 0, 5,
                {{"Type", "drill"}, {"DrillAngle", "118"}, {"TaperAngle", "0"}, {"Diameter", "8"},
                 {"NumberOfFlutes", "2"}, {"Number.UserDefined", "1"}, {"Number.Value", "4"},
                 {"CuttingSpeed.finishing.general", "30"}},
                {"taper_angle", "type", "flutes"}},
    // The radius doubled into the diameter; "tip" is the tip radius.
    UpgradeCase{"tool_v2_ball_radius.kap", 2, 5,
                {{"Type", "ball_nosed"}, {"Diameter", "10"}, {"TipRadius", "5"}, {"Overhang", "60"},
                 {"CuttingSpeed.finishing.general", "250"}, {"FeedPerTooth.finishing.general", "0.08"}},
                {"radius", "tip", "diameter"}},
    // The turning tables exist for the loaded type, so its cutting data is recognised.
    UpgradeCase{"tool_v5_turning.kap", 5, 5,
                {{"Type", "turn_profiling"}, {"TurningInsert.InsertShape", "diamond_55"},
                 {"TurningInsert.CutAngle", "3"}, {"TurningHolder.InsertPosition", "lefthand"},
                 {"CuttingSpeed.turn_finishing.turn_profile", "180"},
                 {"TurningDepthOfCut.turn_roughing.turn_profile", "2"}},
                {}}));
// clang-format on

// Several files into a folder: one output per readable input, the notes of every file and a
// summary on standard error, and status 3 for the broken one.
TEST(ToolUpgradeMany, WritesAFolderAndSummarises) {
    TempDir dir;
    const std::string out = dir / "upgraded";
    const ToolRun run =
        run_tool({"upgrade", "examples/boundary_v1_contact_conv.kap", "examples/broken.kap",
                  "examples/level_v0_set.kap", "examples/model_v0_unrecognised.kap",
                  "examples/stockmodel_v1_problems.kap", "-o", out});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.out, "");
    expect_golden("upgrade_many.err", run.err);
    for (const char* name : {"boundary_v1_contact_conv.kap", "level_v0_set.kap",
                             "model_v0_unrecognised.kap", "stockmodel_v1_problems.kap"}) {
        EXPECT_TRUE(fs::exists(fs::path(out) / name)) << name;
    }
    EXPECT_FALSE(fs::exists(fs::path(out) / "broken.kap"));
}

// An output that cannot be written is status 4; the input is left alone.
TEST(ToolUpgradeOutput, UnwritableOutputIsReported) {
    TempDir dir;
    const std::string blocked = dir / "file";
    write_file(blocked, "not a folder");
    const std::string target = blocked + "/level.kap";
    const ToolRun run = run_tool({"upgrade", "examples/level_v0_set.kap", "-o", target});
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.err.rfind(target + ": ", 0), 0u) << run.err;
    EXPECT_EQ(read_file(blocked), "not a folder");
}

}  // namespace
}  // namespace tooltest
