#pragma once
// Runs the built kappar tool as a process from the source folder (so that the paths it prints are
// the relative paths given to it) and compares what it prints with reference files.
//
// Reference files live in tests/tool/golden/. To regenerate them after an intended change:
//     KAPPAR_UPDATE_GOLDEN=1 ctest --test-dir <build> -R Tool
// then read `git diff tests/tool/golden` before committing.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tooltest {

struct ToolRun {
    int status = -1;  // exit status; -1 when the tool did not exit normally
    std::string out;
    std::string err;
};

inline std::string read_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void write_file(const std::filesystem::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

// A fresh folder removed with the object.
class TempDir {
  public:
    TempDir() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kappar_tool_XXXXXX").string();
        if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

// Starts `kappar args...` in the source folder with standard input empty and standard output and
// error sent to the files named; answers the process id, or -1.
inline pid_t spawn_tool(const std::vector<std::string>& args, const std::string& out_path,
                        const std::string& err_path) {
    std::vector<std::string> argv_text{KAPPAR_TOOL_PATH};
    argv_text.insert(argv_text.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argv_text)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    const pid_t pid = ::fork();
    if (pid == 0) {
        const int in = ::open("/dev/null", O_RDONLY);
        const int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (in < 0 || out < 0 || err < 0 || ::chdir(KAPPAR_SOURCE_DIR) != 0) ::_exit(126);
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(err, 2);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    return pid;
}

// The exit status of a process started by spawn_tool; -1 when it did not exit normally.
inline int wait_tool(pid_t pid) {
    int status = 0;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs `kappar args...` in the source folder with standard input empty. Standard output goes to
// `out_path` when one is given (then `out` stays empty).
inline ToolRun run_tool(const std::vector<std::string>& args, const std::string& out_path = {}) {
    ToolRun run;
    TempDir dir;
    const std::string captured = dir / "stdout";
    const std::string err_path = dir / "stderr";
    run.status = wait_tool(spawn_tool(args, out_path.empty() ? captured : out_path, err_path));
    if (out_path.empty()) run.out = read_file(captured);
    run.err = read_file(err_path);
    return run;
}

// Compares `actual` with the reference file `name` byte for byte; a missing file stands for
// empty output. With KAPPAR_UPDATE_GOLDEN set, writes the file instead (removes it when empty).
inline void expect_golden(const std::string& name, const std::string& actual) {
    const auto path = std::filesystem::path(KAPPAR_SOURCE_DIR) / "tests" / "tool" / "golden" / name;
    const char* update = std::getenv("KAPPAR_UPDATE_GOLDEN");
    if (update != nullptr && *update != '\0' && std::string(update) != "0") {
        std::error_code ec;
        if (actual.empty()) {
            std::filesystem::remove(path, ec);
        } else {
            write_file(path, actual);
        }
        return;
    }
    const std::string expected = std::filesystem::exists(path) ? read_file(path) : std::string();
    EXPECT_EQ(expected, actual) << "output differs from tests/tool/golden/" << name
                                << " (set KAPPAR_UPDATE_GOLDEN=1 to regenerate, then review the "
                                   "diff)";
}

}  // namespace tooltest
