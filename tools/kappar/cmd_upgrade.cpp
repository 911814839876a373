// kappar upgrade FILE... [-o OUT | --in-place]

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>

#include "cli.h"

namespace kcli {
namespace {

namespace fs = std::filesystem;

// The bytes of a file, or nothing when it cannot be read.
std::optional<std::string> read_bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return text.str();
}

// A progress line on a terminal, redrawn in place.
class Progress {
  public:
    explicit Progress(bool on) : on_(on) {}
    void show(std::size_t i, std::size_t n, const std::string& path) {
        if (!on_) return;
        err("\r\033[K[" + std::to_string(i) + "/" + std::to_string(n) + "] " + path);
    }
    void clear() {
        if (on_) err("\r\033[K");
    }

  private:
    bool on_;
};

std::string plural(std::size_t n, std::string_view word) {
    return std::to_string(n) + " " + std::string(word) + (n == 1 ? "" : "s");
}

}  // namespace

int run_upgrade(const ParsedArgs& args) {
    const std::vector<std::string>& files = args.positional;
    if (files.empty()) return usage_error("upgrade", "missing FILE");
    const std::optional<std::string> output = args.value("--output");
    const bool in_place = args.has("--in-place");
    if (output && in_place) {
        return usage_error("upgrade", "options '-o' and '--in-place' cannot be used together");
    }
    if (!output && !in_place && files.size() > 1) {
        return usage_error("upgrade", "several files need '-o OUT' or '--in-place'");
    }
    if (output && output->empty()) return usage_error("upgrade", "option '-o' needs a value");

    // With several files, or an existing folder, OUT is a folder.
    std::error_code ec;
    const bool to_folder = output && (files.size() > 1 || fs::is_directory(*output, ec));
    if (to_folder) {
        // Two inputs of one name (from different folders) would overwrite each other: refused
        // before anything is read or written.
        std::map<std::string, const std::string*> names;
        for (const std::string& path : files) {
            const std::string name = fs::path(path).filename().string();
            const auto [it, inserted] = names.emplace(name, &path);
            if (!inserted) {
                return usage_error("upgrade", "'" + *it->second + "' and '" + path +
                                                  "' would both be written to '" +
                                                  (fs::path(*output) / name).string() + "'");
            }
        }
    }
    if (to_folder && !fs::is_directory(*output, ec)) {
        fs::create_directories(*output, ec);
        if (ec) {
            err(*output + ": cannot create the folder: " + ec.message() + "\n");
            return kExitUnwritable;
        }
    }

    int status = kExitOk;
    std::size_t upgraded = 0, current = 0, failed = 0, kept = 0;
    Progress progress(files.size() > 1 && ::isatty(STDERR_FILENO) != 0);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string& path = files[i];
        progress.show(i + 1, files.size(), path);
        std::string messages;
        auto e = load_entity(path, &messages);
        if (!e) {
            ++failed;
            status = std::max<int>(status, kExitUnreadable);
            progress.clear();
            err(messages);
            continue;
        }
        // What happened to the pairs that were not loaded, in the order of the file.
        for (const auto& n : pair_notes(e->report, false)) {
            messages += diagnostic(path, n.line, n.column, n.message);
        }
        kept += e->report.unrecognised.size();

        const kapFileDocument doc = kap_entity_document(*e->root, e->report.unrecognised);
        std::string destination;
        if (in_place) {
            destination = path;
        } else if (to_folder) {
            destination = (fs::path(*output) / fs::path(path).filename()).string();
        } else if (output) {
            destination = *output;
        }
        bool written = true;
        const std::string text = kap_write_entity_text(doc);
        if (destination.empty()) {
            out(text);
        } else if (in_place && read_bytes(path) == text) {
            // Nothing would change: the file is left as it is.
        } else {
            OutputFile target;
            std::string why;
            if (!resolve_output(destination, target, why) || !write_output(target, text, why)) {
                messages += diagnostic(destination, 0, 0, why);
                status = std::max<int>(status, kExitUnwritable);
                written = false;
            }
        }
        if (!written) {
            ++failed;
        } else if (e->report.saved_version < e->root->version()) {
            ++upgraded;
        } else {
            ++current;
        }
        if (!messages.empty()) {
            progress.clear();
            err(messages);
        }
    }
    progress.clear();
    if (files.size() > 1) {
        err(plural(files.size(), "file") + ": " + std::to_string(upgraded) + " upgraded, " +
            std::to_string(current) + " already current, " + std::to_string(failed) + " failed; " +
            plural(kept, "unrecognised pair") + " kept\n");
    }
    return status;
}

}  // namespace kcli
