// Nothing lost, nothing corrupted: what `kappar upgrade` writes over, and what it refuses to; a
// failed standard output; concurrent and interrupted writers.

#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <random>
#include <thread>

#include "tool_process.h"

namespace tooltest {
namespace {

namespace fs = std::filesystem;

const fs::path kLevel = fs::path(KAPPAR_SOURCE_DIR) / "examples/level_v0_set.kap";

std::string upgraded_level() {
    static const std::string text = run_tool({"upgrade", kLevel.string()}).out;
    return text;
}

unsigned mode_of(const std::string& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

// Whether a temporary file of the tool ("<name>.<16 hex digits>.tmp") is left in the folder.
bool leftover_temporaries(const TempDir& dir) {
    for (const auto& entry : fs::recursive_directory_iterator(dir.path())) {
        const fs::path& p = entry.path();
        if (p.extension() == ".tmp" && p.stem().extension().string().size() == 17) return true;
    }
    return false;
}

// The output of a standard output that cannot be written is status 4, with a message.
TEST(ToolStandardOutput, FailedWriteIsStatus4) {
    const std::vector<std::vector<std::string>> commands = {
        {"upgrade", kLevel.string()}, {"show", kLevel.string()}, {"kinds"}};
    for (const auto& args : commands) {
        const ToolRun run = run_tool(args, "/dev/full");
        EXPECT_EQ(run.status, 4) << args[0];
        EXPECT_NE(run.err.find("cannot write to standard output"), std::string::npos) << run.err;
    }
}

// One target shape each: how the tool is run on it, and what must hold afterwards.
struct TargetCase {
    const char* name;
    int status;
    std::function<std::vector<std::string>(const TempDir&)> setup;
    std::function<void(const TempDir&)> check;
};

void PrintTo(const TargetCase& c, std::ostream* os) {
    *os << c.name;
}

std::string copy_level(const TempDir& dir, const std::string& name) {
    const std::string path = dir / name;
    fs::create_directories(fs::path(path).parent_path());
    fs::copy_file(kLevel, path);
    return path;
}

// The level copied to "f.kap" with the given mode, upgraded in place.
std::vector<std::string> upgrade_copy(const TempDir& dir, unsigned mode = 0644) {
    const std::string f = copy_level(dir, "f.kap");
    ::chmod(f.c_str(), mode);
    return {"upgrade", "--in-place", f};
}

const TargetCase kTargetCases[] = {
    {"KeepsTheMode", 0, [](const TempDir& d) { return upgrade_copy(d, 0600); },
     [](const TempDir& d) {
         EXPECT_EQ(read_file(d / "f.kap"), upgraded_level());
         EXPECT_EQ(mode_of(d / "f.kap"), 0600u);
     }},
    {"RefusesAReadOnlyFile", 4, [](const TempDir& d) { return upgrade_copy(d, 0444); },
     [](const TempDir& d) { EXPECT_EQ(read_file(d / "f.kap"), read_file(kLevel)); }},
    {"UpgradesTheTargetOfALink", 0,
     [](const TempDir& d) {
         copy_level(d, "real.kap");
         fs::create_symlink("real.kap", d / "link.kap");
         return std::vector<std::string>{"upgrade", "--in-place", d / "link.kap"};
     },
     [](const TempDir& d) {
         EXPECT_TRUE(fs::is_symlink(d / "link.kap"));
         EXPECT_EQ(read_file(d / "real.kap"), upgraded_level());
     }},
    {"RefusesAHardLinkedFile", 4,
     [](const TempDir& d) {
         auto args = upgrade_copy(d);
         fs::create_hard_link(d / "f.kap", d / "g.kap");
         return args;
     },
     [](const TempDir& d) {
         EXPECT_EQ(fs::hard_link_count(d / "f.kap"), 2u);
         EXPECT_EQ(read_file(d / "g.kap"), read_file(kLevel));
     }},
    {"RefusesAFifoAsOutput", 4,
     [](const TempDir& d) {
         ::mkfifo((d / "out").c_str(), 0600);
         return std::vector<std::string>{"upgrade", kLevel.string(), "-o", d / "out"};
     },
     [](const TempDir& d) { EXPECT_TRUE(fs::is_fifo(d / "out")); }},
    {"LeavesAnExistingTemporaryNameAlone", 0,
     [](const TempDir& d) {
         write_file(d / "victim", "victim");
         fs::create_symlink(d / "victim", d / "f.kap.tmp");
         return upgrade_copy(d);
     },
     [](const TempDir& d) {
         EXPECT_EQ(read_file(d / "f.kap"), upgraded_level());
         EXPECT_EQ(read_file(d / "victim"), "victim");
         EXPECT_TRUE(fs::is_symlink(d / "f.kap.tmp"));
     }},
    {"RefusesTwoInputsOfOneName", 2,
     [](const TempDir& d) {
         return std::vector<std::string>{"upgrade", copy_level(d, "a/l.kap"),
                                         copy_level(d, "b/l.kap"), "-o", d / "out"};
     },
     [](const TempDir& d) { EXPECT_FALSE(fs::exists(d / "out")); }},
    {"RefusesAFifoAsInput", 3,
     [](const TempDir& d) {
         ::mkfifo((d / "in.kap").c_str(), 0600);
         return std::vector<std::string>{"show", d / "in.kap"};
     },
     [](const TempDir&) {}},
};

class ToolTarget : public ::testing::TestWithParam<TargetCase> {};

TEST_P(ToolTarget, IsKeptOrRefused) {
    const TargetCase& c = GetParam();
    TempDir dir;
    const ToolRun run = run_tool(c.setup(dir));
    EXPECT_EQ(run.status, c.status) << run.err;
    EXPECT_EQ(run.err.empty(), c.status == 0) << run.err;
    c.check(dir);
    EXPECT_FALSE(leftover_temporaries(dir));
}

INSTANTIATE_TEST_SUITE_P(Cases, ToolTarget, ::testing::ValuesIn(kTargetCases),
                         [](const auto& p) { return std::string(p.param.name); });

// A megabyte and more that upgrades differently in the two unit systems.
std::string large_entity() {
    std::string text = "kappar-entity 1\nkind \"stockmodel\"\nversion 0\nname \"Large\"\n\n";
    for (int i = 0; i < 12; ++i) {
        text += "extra.note_" + std::to_string(100 + i) + " = \"" +
                std::string(100000, static_cast<char>('a' + i)) + "\"\n";
    }
    return text;
}

// Two in-place upgrades of one file at once, many times: each run succeeds and the file ends as
// one writer's complete text.
TEST(ToolUpgradeConcurrent, EndsWithOneCompleteVersion) {
    TempDir dir;
    const std::string file = dir / "large.kap";
    const std::string original = large_entity();
    write_file(file, original);
    const std::string metric = run_tool({"upgrade", file}).out;
    const std::string inch = run_tool({"upgrade", "--units", "inch", file}).out;
    ASSERT_NE(metric, inch);
    for (int i = 0; i < 20; ++i) {
        write_file(file, original);
        const pid_t a = spawn_tool({"upgrade", "--in-place", file}, "/dev/null", "/dev/null");
        const pid_t b = spawn_tool({"upgrade", "--in-place", "--units", "inch", file}, "/dev/null",
                                   "/dev/null");
        EXPECT_EQ(wait_tool(a), 0);
        EXPECT_EQ(wait_tool(b), 0);
        const std::string result = read_file(file);
        ASSERT_TRUE(result == metric || result == inch)
            << "run " << i << ": a mix of " << result.size() << " bytes";
    }
    EXPECT_FALSE(leftover_temporaries(dir));
}

// A writer killed at any moment leaves the original text or the new one, byte for byte.
TEST(ToolUpgradeInterrupted, LeavesTheOldOrTheNewText) {
    TempDir dir;
    const std::string file = dir / "large.kap";
    const std::string original = large_entity();
    write_file(file, original);
    const std::string upgraded = run_tool({"upgrade", file}).out;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(run_tool({"upgrade", "--in-place", file}).status, 0);
    const auto took = std::chrono::steady_clock::now() - start;
    std::mt19937 random(12345);
    std::uniform_int_distribution<long long> when(
        0, std::chrono::duration_cast<std::chrono::microseconds>(took).count());
    for (int i = 0; i < 12; ++i) {
        write_file(file, original);
        const pid_t pid = spawn_tool({"upgrade", "--in-place", file}, "/dev/null", "/dev/null");
        std::this_thread::sleep_for(std::chrono::microseconds(when(random)));
        ::kill(pid, i % 2 == 0 ? SIGKILL : SIGTERM);
        wait_tool(pid);
        const std::string result = read_file(file);
        ASSERT_TRUE(result == original || result == upgraded)
            << "run " << i << ": " << result.size() << " bytes";
    }
}

}  // namespace
}  // namespace tooltest
