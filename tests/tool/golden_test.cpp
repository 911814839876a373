// Every command of the tool on the bundled examples, compared byte for byte with the reference
// output in golden/: standard output in <name>.<ext>, standard error in <name>.err (absent when
// empty), and the exit status from the table.

#include "tool_process.h"

namespace tooltest {
namespace {

struct GoldenCase {
    const char* name;
    std::vector<std::string> args;
    int status;
    const char* ext = "txt";  // of the standard output's reference file
};

void PrintTo(const GoldenCase& c, std::ostream* os) {
    *os << c.name;
}

class ToolGolden : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(ToolGolden, MatchesReference) {
    const GoldenCase& c = GetParam();
    const ToolRun run = run_tool(c.args);
    EXPECT_EQ(run.status, c.status) << "stderr: " << run.err;
    expect_golden(std::string(c.name) + "." + c.ext, run.out);
    expect_golden(std::string(c.name) + ".err", run.err);
}

const std::string kBoundary = "examples/boundary_v1_contact_conv.kap";
const std::string kWorkplane = "examples/workplane_v0.kap";
const std::string kLevel = "examples/level_v0_set.kap";
const std::string kStock = "examples/stockmodel_v0.kap";
const std::string kModel = "examples/model_v0_unrecognised.kap";
const std::string kProblems = "examples/stockmodel_v1_problems.kap";
const std::string kBroken = "examples/broken.kap";
const std::string kMissing = "examples/no_such_file.kap";
const std::string kNewer = "tests/tool/data/newer_version.kap";
const std::string kUnknownKind = "tests/tool/data/unknown_kind.kap";
const std::string kCycles = "tests/tool/data/cycles.kap";
const std::string kDivision = "tests/tool/data/division.kap";
const std::string kDuplicates = "tests/tool/data/duplicates.kap";
const std::string kControlKind = "tests/tool/data/control_kind.kap";

// clang-format off
const GoldenCase kCases[] = {
    // The tool itself and its usage errors.
    {"help",                 {"--help"}, 0},
    {"help_upgrade",         {"upgrade", "--help"}, 0},
    {"help_check",           {"help", "check"}, 0},
    {"no_command",           {}, 2},
    {"unknown_command",      {"frobnicate"}, 2},
    {"unknown_option",       {"show", "--colour", kLevel}, 2},
    {"option_needs_value",   {"show", kLevel, "--format"}, 2},
    {"bad_units",            {"--units", "furlong", "kinds"}, 2},
    {"bad_format",           {"show", kLevel, "--format=xml"}, 2},
    {"show_two_files",       {"show", kLevel, kStock}, 2},
    {"upgrade_many_no_out",  {"upgrade", kLevel, kStock}, 2},
    {"upgrade_out_in_place", {"upgrade", kLevel, "-o", "x.kap", "--in-place"}, 2},
    {"eval_no_expr",         {"eval", kLevel}, 2},

    // kinds and schema.
    {"kinds",                {"kinds"}, 0},
    {"kinds_json",           {"kinds", "--format", "json"}, 0, "json"},
    {"schema_level",         {"schema", "level"}, 0},
    {"schema_workplane_json", {"schema", "workplane", "--format", "json"}, 0, "json"},
    {"schema_stockmodel_inch_md", {"schema", "stockmodel", "--inch", "--format", "markdown"}, 0, "md"},
    {"schema_stockmodel_units_inch", {"--units", "inch", "schema", "stockmodel"}, 0},
    {"schema_model_any_case", {"schema", "MODEL"}, 0},
    {"schema_unknown_kind",  {"schema", "spaceship"}, 2},

    // show: every example, both formats, activity, units.
    {"show_boundary",        {"show", kBoundary}, 0},
    {"show_boundary_json",   {"show", kBoundary, "--format", "json"}, 0, "json"},
    {"show_boundary_active", {"show", kBoundary, "--active-only"}, 0},
    {"show_workplane",       {"show", kWorkplane}, 0},
    {"show_level",           {"show", kLevel}, 0},
    {"show_after_dashes",    {"show", "--format=text", "--", kLevel}, 0},
    {"show_level_active_json", {"show", "--active-only", "--format", "json", kLevel}, 0, "json"},
    {"show_stockmodel",      {"show", kStock}, 0},
    {"show_model",           {"show", kModel}, 0},
    {"show_model_json",      {"show", kModel, "--format", "json"}, 0, "json"},
    {"show_problems_inch",   {"show", kProblems, "--units", "inch"}, 0},
    {"show_broken",          {"show", kBroken}, 3},
    {"show_missing",         {"show", kMissing}, 3},
    {"show_newer_version",   {"show", kNewer}, 3},
    {"show_unknown_kind",    {"show", kUnknownKind}, 3},
    {"show_control_kind",    {"show", kControlKind}, 3},
    {"show_duplicates",      {"show", kDuplicates}, 0},

    // eval.
    {"eval_diameter",        {"eval", kBoundary, "Block.Diameter"}, 0},
    {"eval_condition",       {"eval", kBoundary, "Type=='contact_conv' AND Tolerance < 0.1"}, 0},
    {"eval_map",             {"eval", kBoundary, "Clearance"}, 0},
    {"eval_arithmetic",      {"eval", kStock, "max(Tolerance;0.2) * 2 + NumberOfCores"}, 0},
    {"eval_activity",        {"eval", kLevel, "active(IsClamp)"}, 0},
    {"eval_unknown_name",    {"eval", kLevel, "Type == 'set' AND Height > 2"}, 1},
    {"eval_syntax_error",    {"eval", kLevel, "1 +* 2"}, 1},
    {"eval_broken",          {"eval", kBroken, "Type"}, 3},
    {"eval_cycle",           {"eval", kCycles, "Tolerance"}, 1},
    {"eval_self_cycle",      {"eval", kCycles, "ThresholdThickness"}, 1},
    {"eval_division_value",  {"eval", kDivision, "Tolerance"}, 1},
    {"eval_division",        {"eval", kLevel, "2 + 1/0"}, 1},
    {"eval_unexpected_utf8", {"eval", kLevel, "Type == \xC3\xA9"}, 1},

    // check.
    {"check_clean",          {"check", kWorkplane, kLevel, kStock}, 0},
    {"check_problems",       {"check", kProblems}, 1},
    {"check_unrecognised",   {"check", kModel}, 1},
    {"check_cycles",         {"check", kCycles, kDivision}, 1},
    {"check_duplicates",     {"check", kDuplicates}, 1},
    {"check_all",            {"check", kBoundary, kBroken, kLevel, kMissing, kModel, kProblems, kStock, kWorkplane}, 3},

    // upgrade to standard output.
    {"upgrade_boundary",     {"upgrade", kBoundary}, 0, "kap"},
    {"upgrade_workplane",    {"upgrade", kWorkplane}, 0, "kap"},
    {"upgrade_model",        {"upgrade", kModel}, 0, "kap"},
    {"upgrade_broken",       {"upgrade", kBroken}, 3, "kap"},
    {"upgrade_duplicates",   {"upgrade", kDuplicates}, 0, "kap"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Commands, ToolGolden, ::testing::ValuesIn(kCases),
                         [](const auto& p) { return std::string(p.param.name); });

TEST(ToolVersion, PrintsTheProjectVersion) {
    const ToolRun run = run_tool({"--version"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "kappar " KAPPAR_VERSION_TEXT "\n");
    EXPECT_EQ(run.err, "");
}

// Every command answers --help on standard output with its own usage line.
TEST(ToolHelp, EveryCommandHasHelp) {
    for (const char* command : {"kinds", "schema", "show", "upgrade", "eval", "check", "help"}) {
        const ToolRun run = run_tool({command, "--help"});
        EXPECT_EQ(run.status, 0) << command;
        EXPECT_EQ(run.out.rfind(std::string("usage: kappar ") + command, 0), 0u) << run.out;
        EXPECT_EQ(run.err, "") << command;
    }
}

}  // namespace
}  // namespace tooltest
