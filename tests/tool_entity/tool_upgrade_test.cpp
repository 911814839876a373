// The saved tool examples, upgraded by `kappar upgrade`: the current version, the values the
// legacy rules and update steps give, and nothing changed by a second upgrade.

#ifdef KAPPAR_TOOL_PATH

#include <map>

#include "kapparameter/kapParameterFile.h"
#include "tool_process.h"

namespace tooltest {
namespace {

struct Example {
    const char* file;  // in examples/
    std::vector<std::pair<std::string, std::string>> expect;
    std::vector<std::string> absent;
};

void PrintTo(const Example& e, std::ostream* os) {
    *os << e.file;
}

class ToolExampleUpgrade : public ::testing::TestWithParam<Example> {};

TEST_P(ToolExampleUpgrade, CurrentVersionExpectedValuesAndIdempotent) {
    const Example& e = GetParam();
    TempDir dir;
    const std::string once = dir / "once.kap";
    const std::string twice = dir / "twice.kap";
    const ToolRun first = run_tool({"upgrade", std::string("examples/") + e.file, "-o", once});
    ASSERT_EQ(first.status, 0) << first.err;

    kapFileDocument doc;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_file(once, doc, err)) << kap_format_file_error(once, err);
    EXPECT_EQ(doc.version, 5);
    std::map<std::string, std::string> pairs;
    for (const auto& p : doc.pairs)
        pairs[p.key] = p.value;
    for (const auto& [key, value] : e.expect) {
        ASSERT_TRUE(pairs.contains(key)) << key;
        EXPECT_EQ(pairs.at(key), value) << key;
    }
    for (const auto& key : e.absent)
        EXPECT_FALSE(pairs.contains(key)) << key;

    const ToolRun second = run_tool({"upgrade", once, "-o", twice});
    ASSERT_EQ(second.status, 0) << second.err;
    EXPECT_EQ(read_file(twice), read_file(once));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Examples, ToolExampleUpgrade, ::testing::Values(
    // The point angle saved as a taper angle, the recommended speed moved into its table.
    Example{"tool_v0_drill.kap",
            {{"Type", "drill"}, {"DrillAngle", "118"}, {"TaperAngle", "0"}, {"Diameter", "8"},
             {"NumberOfFlutes", "2"}, {"Number.UserDefined", "1"}, {"Number.Value", "4"},
             {"CuttingSpeed.finishing.general", "30"}},
            {"taper_angle", "type", "flutes"}},
    // The radius doubled into the diameter; "tip" is the tip radius.
    Example{"tool_v2_ball_radius.kap",
            {{"Type", "ball_nosed"}, {"Diameter", "10"}, {"TipRadius", "5"}, {"Overhang", "60"},
             {"CuttingSpeed.finishing.general", "250"}, {"FeedPerTooth.finishing.general", "0.08"}},
            {"radius", "tip", "diameter"}},
    // The turning tables exist for the loaded type, so its cutting data is recognised.
    Example{"tool_v5_turning.kap",
            {{"Type", "turn_profiling"}, {"TurningInsert.InsertShape", "diamond_55"},
             {"TurningInsert.CutAngle", "3"}, {"TurningHolder.InsertPosition", "lefthand"},
             {"CuttingSpeed.turn_finishing.turn_profile", "180"},
             {"TurningDepthOfCut.turn_roughing.turn_profile", "2"}},
            {}}));
// clang-format on

}  // namespace
}  // namespace tooltest

#endif
