// Writer of saved-entity text files, and the check that a document reads back as written.

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "kapParameterFileText.h"
#include "kapparameter/kapParameterFile.h"

using namespace kap_file_detail;

utString kap_write_entity_text(const kapFileDocument& doc) {
    std::size_t size = 64 + doc.kind.size() + doc.name.size();
    for (const kapFilePair& p : doc.pairs) {
        size += p.key.size() + p.value.size() + 6;
    }
    utString out;
    out.reserve(size);
    out += "kappar-entity 1\nkind ";
    kap_append_quoted(out, doc.kind);
    out += "\nversion ";
    char digits[16];
    const auto r = std::to_chars(digits, digits + sizeof digits, doc.version);
    out.append(digits, r.ptr);
    out += "\nname ";
    kap_append_quoted(out, doc.name);
    out += '\n';
    if (!doc.pairs.empty()) out += '\n';
    for (const kapFilePair& p : doc.pairs) {
        out += p.key;
        out += " = ";
        kap_append_quoted(out, p.value);
        out += '\n';
    }
    return out;
}

namespace {

// A name for a temporary file beside `path` that no other writer is likely to pick:
// "<path>.<16 hex digits>.tmp". The file is created exclusively, so a clash only costs a retry.
utString temporary_name(const utString& path) {
    static std::atomic<std::uint64_t> counter{0};
    static const std::uint64_t seed = [] {
        std::random_device device;
        return (std::uint64_t{device()} << 32) ^ device() ^
               static_cast<std::uint64_t>(
                   std::chrono::steady_clock::now().time_since_epoch().count());
    }();
    std::uint64_t x = seed + 0x9e3779b97f4a7c15ull * ++counter;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
    x ^= x >> 31;
    utString name = path;
    name += '.';
    for (int i = 15; i >= 0; --i) {
        name += kHex[(x >> (4 * i)) & 0xf];
    }
    name += ".tmp";
    return name;
}

}  // namespace

bool kap_write_entity_file(const utString& path, const kapFileDocument& doc, kapFileError& err) {
    err = kapFileError{};
    const utString text = kap_write_entity_text(doc);
    // "x": created exclusively, never opening a file (or following a link) that already
    // stands under the name, so concurrent writers never share a temporary file.
    utString temp;
    std::FILE* f = nullptr;
    for (int attempt = 0; attempt < 16 && f == nullptr; ++attempt) {
        temp = temporary_name(path);
        f = std::fopen(temp.c_str(), "wbx");
        if (f == nullptr && errno != EEXIST) break;
    }
    if (!f) {
        err.message = "cannot create '" + temp + "': " + std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    int saved_errno = errno;
    const bool closed = std::fclose(f) == 0;
    if (!closed && written) saved_errno = errno;
    if (!written || !closed) {
        std::remove(temp.c_str());
        err.message = "cannot write '" + temp + "': " + std::strerror(saved_errno);
        return false;
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        saved_errno = errno;
        std::remove(temp.c_str());
        err.message = "cannot replace '" + path + "': " + std::strerror(saved_errno);
        return false;
    }
    return true;
}

bool kap_check_entity_document(const kapFileDocument& doc, kapFileError& err,
                               const kapFileLimits& limits) {
    err = kapFileError{};
    auto fault = [&err](utString message) {
        err.message = std::move(message);
        return false;
    };
    if (doc.kind.empty()) return fault("empty entity kind");
    if (!valid_utf8(doc.kind)) return fault("entity kind is not valid UTF-8");
    if (doc.version < 0) return fault("negative entity version " + std::to_string(doc.version));
    if (!valid_utf8(doc.name)) return fault("entity name is not valid UTF-8");
    if (doc.pairs.size() > limits.max_pairs) {
        return fault("more than " + std::to_string(limits.max_pairs) + " pairs");
    }
    const std::size_t header_line = 5 + kap_quote(doc.kind).size() + kap_quote(doc.name).size();
    if (header_line > limits.max_line_bytes) {
        return fault("entity kind or name longer than a line may be");
    }
    KeyIndex keys(doc.pairs, doc.pairs.size());
    utString quoted;
    for (std::size_t i = 0; i < doc.pairs.size(); ++i) {
        const kapFilePair& p = doc.pairs[i];
        const utString which = "pair " + std::to_string(i) + " '" + excerpt(p.key) + "'";
        if (!kap_is_valid_file_key(p.key)) return fault(which + ": invalid key");
        if (!valid_utf8(p.value)) return fault(which + ": value is not valid UTF-8");
        quoted.clear();
        kap_append_quoted(quoted, p.value);
        if (p.key.size() + 3 + quoted.size() > limits.max_line_bytes) {
            return fault(which + ": line longer than " + std::to_string(limits.max_line_bytes) +
                         " bytes");
        }
        const long first = keys.find_or_insert(p.key, static_cast<std::uint32_t>(i));
        if (first >= 0) {
            return fault(which + ": duplicate key (first at pair " + std::to_string(first) + ")");
        }
    }
    return true;
}

bool kap_same_entity_content(const kapFileDocument& a, const kapFileDocument& b) noexcept {
    if (a.kind != b.kind || a.version != b.version || a.name != b.name ||
        a.pairs.size() != b.pairs.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.pairs.size(); ++i) {
        if (a.pairs[i].key != b.pairs[i].key || a.pairs[i].value != b.pairs[i].value) return false;
    }
    return true;
}

utString kap_format_file_error(std::string_view file, const kapFileError& err) {
    utString out(file);
    if (err.line > 0) {
        out += ':';
        out += std::to_string(err.line);
        out += ':';
        out += std::to_string(err.column);
    }
    out += ": ";
    out += err.message;
    return out;
}
