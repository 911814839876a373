// Reader of saved-entity text files.
//
// The reader works line by line: memchr finds the end of the line (which bounds every scan and
// gives the line-length check for free), then a small hand-written scanner reads the line. Only
// strings and comments may hold bytes outside printable ASCII, so UTF-8 is validated where such
// a byte is met, and errors come out in the order of the text. Keys are stored as views into the
// text while reading so duplicates are found with one open-addressing hash table and no extra
// copies.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "kapParameterFileText.h"
#include "kapparameter/kapParameterFile.h"

using namespace kap_file_detail;

namespace {

// ---------------------------------------------------------------------------------------------
// The reader

constexpr std::string_view kMagic = "kappar-entity";

class Reader {
  public:
    Reader(std::string_view text, kapFileDocument& doc, kapFileError& err,
           const kapFileLimits& limits)
        : begin_(text.data()),
          end_(text.data() + text.size()),
          doc_(doc),
          err_(err),
          limits_(limits),
          keys_(doc.pairs, estimate_pairs(text.size(), limits)) {}

    bool run();

  private:
    enum class Stage { magic, kind, version, name, pairs };

    static std::size_t estimate_pairs(std::size_t bytes, const kapFileLimits& limits) {
        std::size_t n = bytes / 28 + 16;  // a pair line is rarely shorter than this on average
        if (n > limits.max_pairs) n = limits.max_pairs;
        if (n > (std::size_t{1} << 16)) n = std::size_t{1} << 16;  // the vectors grow past this
        return n;
    }

    bool line_content(const char* s, const char* e);
    bool header_line(const char* q, const char* e);
    bool pair_line(const char* q, const char* e);
    // Reads a quoted string at q (which is at the opening quote) and leaves q after the closing
    // one. `value` views the text itself when there is no escape, else the decoded copy in
    // scratch_, valid until the next call.
    bool string_literal(const char*& q, const char* e, std::string_view& value);
    bool escape(const char*& q, const char* e, utString& out);
    bool unsigned_number(const char*& q, const char* e, std::string_view what, int max, int& value);
    bool end_of_line(const char* q, const char* e, std::string_view after);
    bool comment(const char* q, const char* e);

    // Column of `at` on the current line: 1 + code points before it. Everything before an error
    // position has been read and validated, so counting lead bytes is exact.
    int column(const char* at) const {
        int col = 1;
        for (const char* p = line_start_; p < at; ++p) {
            col += (uc(*p) & 0xc0) != 0x80;
        }
        return col;
    }

    bool fail(const char* at, utString message) {
        err_.line = line_;
        err_.column = column(at);
        err_.message = std::move(message);
        return false;
    }

    // Reports what is wrong with the byte at q when it is wrong on its own (NUL, invalid UTF-8,
    // a stray carriage return, a control character); returns false then, true otherwise.
    bool check_byte(const char* q, const char* e) {
        const unsigned char c = uc(*q);
        if (c == 0) return fail(q, "NUL byte");
        if (c >= 0x80 && utf8_length(q, e) == 0) {
            return fail(q, "invalid UTF-8 (byte 0x" + hex_code(c, 2) + ")");
        }
        if (c == '\r') return fail(q, "carriage return not followed by a line feed");
        if (c < 0x20 && c != '\t') return fail(q, "control character U+" + hex_code(c, 4));
        return true;
    }

    // Fails at q with `message`, unless the byte at q is wrong on its own; then that is said.
    bool fail_expected(const char* q, const char* e, utString message) {
        if (q < e && !check_byte(q, e)) return false;
        return fail(q, std::move(message));
    }

    // How a message names the character at q (valid by check_byte).
    static utString describe(const char* q, const char* e) {
        const unsigned char c = uc(*q);
        if (c == 0xc2 && uc(q[1]) < 0xa0) return "U+" + hex_code(uc(q[1]), 4);  // C1 control
        if (c >= 0x80) {
            return "'" + utString(q, utf8_length(q, e)) + "'";
        }
        if (c == '\t') return "a tab";
        if (c < 0x20 || c == 0x7f) return "U+" + hex_code(c, 4);
        return "'" + utString(1, static_cast<char>(c)) + "'";
    }

    const char* begin_;
    const char* end_;
    kapFileDocument& doc_;
    kapFileError& err_;
    const kapFileLimits& limits_;
    KeyIndex keys_;
    utString scratch_;
    const char* line_start_ = nullptr;
    int line_ = 1;
    Stage stage_ = Stage::magic;
};

bool Reader::run() {
    doc_.format_version = 0;
    doc_.kind.clear();
    doc_.version = 0;
    doc_.name.clear();
    doc_.pairs.clear();
    doc_.pairs.reserve(estimate_pairs(static_cast<std::size_t>(end_ - begin_), limits_));

    const char* p = begin_;
    line_start_ = p;
    if (static_cast<std::size_t>(end_ - begin_) > limits_.max_file_bytes) {
        err_ = kapFileError{
            0, 0, "file larger than " + std::to_string(limits_.max_file_bytes) + " bytes"};
        return false;
    }
    if (end_ - p >= 3 && std::memcmp(p, "\xEF\xBB\xBF", 3) == 0) {
        p += 3;  // a byte-order mark some editors put first
        line_start_ = p;
    }

    while (p < end_) {
        line_start_ = p;
        const char* nl = static_cast<const char*>(std::memchr(p, '\n', end_ - p));
        const char* e = nl ? nl : end_;
        if (nl && e > p && e[-1] == '\r') --e;
        if (static_cast<std::size_t>(e - p) > limits_.max_line_bytes) {
            return fail(p, "line longer than " + std::to_string(limits_.max_line_bytes) + " bytes");
        }
        if (!line_content(p, e)) return false;
        if (!nl) {
            p = end_;
            break;
        }
        p = nl + 1;
        ++line_;
        line_start_ = p;
    }

    // End of text: the header must be complete.
    switch (stage_) {
        case Stage::magic:
            return fail(p, "missing header 'kappar-entity 1'");
        case Stage::kind:
            return fail(p, "missing header field 'kind'");
        case Stage::version:
            return fail(p, "missing header field 'version'");
        case Stage::name:
            return fail(p, "missing header field 'name'");
        case Stage::pairs:
            break;
    }
    return true;
}

bool Reader::line_content(const char* s, const char* e) {
    const char* q = s;
    while (q < e && is_space(*q)) {
        ++q;
    }
    if (q == e) return true;
    if (*q == '#') return comment(q + 1, e);
    if (stage_ == Stage::pairs) return pair_line(q, e);
    return header_line(q, e);
}

bool Reader::comment(const char* q, const char* e) {
    while (q < e) {
        if (cls(*q) & kPlain) {
            ++q;
            continue;
        }
        const unsigned char c = uc(*q);
        if (c == '"' || c == '\\' || c == '\t') {
            ++q;
            continue;
        }
        if (!check_byte(q, e)) return false;
        q += utf8_length(q, e);
    }
    return true;
}

bool Reader::end_of_line(const char* q, const char* e, std::string_view after) {
    while (q < e && is_space(*q)) {
        ++q;
    }
    if (q == e) return true;
    if (*q == '#') return comment(q + 1, e);
    if (!check_byte(q, e)) return false;
    return fail(q, "unexpected " + describe(q, e) + " after " + utString(after));
}

bool Reader::unsigned_number(const char*& q, const char* e, std::string_view what, int max,
                             int& value) {
    const char* s = q;
    if (q < e && (*q == '-' || *q == '+')) ++q;
    const char* digits = q;
    while (q < e && *q >= '0' && *q <= '9') {
        ++q;
    }
    if (q == digits) {
        return fail_expected(s, e, "expected " + utString(what) + " (a whole number)");
    }
    if (q < e && (cls(*q) & kKeyChar)) {
        while (q < e && (cls(*q) & kKeyChar)) {
            ++q;
        }
        return fail(s, utString(what) + " must be a whole number, not '" +
                           excerpt(std::string_view(s, q - s), 20) + "'");
    }
    if (*s == '-' || *s == '+') {
        return fail(s, utString(what) + " must be a whole number without a sign");
    }
    long long v = 0;
    for (const char* d = digits; d < q; ++d) {
        v = v * 10 + (*d - '0');
        if (v > max) {
            return fail(s, utString(what) + " " + excerpt(std::string_view(s, q - s), 20) +
                               " is out of range (at most " + std::to_string(max) + ")");
        }
    }
    value = static_cast<int>(v);
    return true;
}

bool Reader::header_line(const char* q, const char* e) {
    const char* ws = q;
    while (q < e && (cls(*q) & kKeyChar)) {
        ++q;
    }
    const std::string_view word(ws, q - ws);

    if (stage_ == Stage::magic) {
        if (word != kMagic) {
            return fail_expected(ws, e,
                                 "not a kappar entity file: expected 'kappar-entity 1' first");
        }
        while (q < e && is_space(*q)) {
            ++q;
        }
        const char* vs = q;
        int v = 0;
        const char* d = q;
        while (d < e && *d >= '0' && *d <= '9') {
            ++d;
        }
        if (d > q && (d == e || !(cls(*d) & kKeyChar))) {
            // Any run of digits: a huge number is still a version newer than ours.
            std::string_view digits(q, d - q);
            while (digits.size() > 1 && digits.front() == '0') {
                digits.remove_prefix(1);
            }
            const bool newer = digits.size() > 1 ||
                               (digits.size() == 1 && digits[0] > '0' + kap_file_format_version);
            if (newer) {
                return fail(vs, "format version " + excerpt(digits, 20) +
                                    " is newer than this reader (" +
                                    std::to_string(kap_file_format_version) + ")");
            }
            if (digits == "0") return fail(vs, "invalid format version 0");
        }
        if (!unsigned_number(q, e, "format version", kap_file_format_version, v)) return false;
        doc_.format_version = v;
        stage_ = Stage::kind;
        return end_of_line(q, e, "the format version");
    }

    static constexpr std::string_view kFields[] = {"kind", "version", "name"};
    const int expected = static_cast<int>(stage_) - static_cast<int>(Stage::kind);
    const std::string_view want = kFields[expected];
    if (word != want) {
        for (int i = 0; i < 3; ++i) {
            if (word != kFields[i]) continue;
            if (i < expected) return fail(ws, "duplicate header field '" + utString(word) + "'");
            return fail(ws, "header field '" + utString(word) + "' out of order: expected '" +
                                utString(want) + "' first");
        }
        if (word == kMagic) return fail(ws, "duplicate header 'kappar-entity'");
        return fail_expected(ws, e, "missing header field '" + utString(want) + "'");
    }
    while (q < e && is_space(*q)) {
        ++q;
    }
    switch (stage_) {
        case Stage::kind: {
            if (q == e || *q != '"') {
                return fail_expected(q, e, "expected a quoted entity kind after 'kind'");
            }
            const char* open = q;
            std::string_view kind;
            if (!string_literal(q, e, kind)) return false;
            if (kind.empty()) return fail(open, "empty entity kind");
            doc_.kind.assign(kind);
            doc_.kind_line = line_;
            doc_.kind_column = column(open);
            stage_ = Stage::version;
            return end_of_line(q, e, "the entity kind");
        }
        case Stage::version: {
            doc_.version_line = line_;
            doc_.version_column = column(q);
            if (!unsigned_number(q, e, "entity version", 0x7fffffff, doc_.version)) return false;
            stage_ = Stage::name;
            return end_of_line(q, e, "the entity version");
        }
        case Stage::name: {
            if (q == e || *q != '"') {
                return fail_expected(q, e, "expected a quoted entity name after 'name'");
            }
            std::string_view name;
            if (!string_literal(q, e, name)) return false;
            doc_.name.assign(name);
            stage_ = Stage::pairs;
            return end_of_line(q, e, "the entity name");
        }
        default:
            return true;
    }
}

bool Reader::pair_line(const char* q, const char* e) {
    const char* ks = q;
    if (!(cls(*q) & kKeyStart)) {
        if (!check_byte(q, e)) return false;
        if (*q == '=') return fail(q, "missing key before '='");
        return fail(q, "a key must start with a letter or '_', not " + describe(q, e));
    }
    q = skip_key_chars(q + 1, e, end_);
    const std::string_view key(ks, q - ks);

    if (q < e && !is_space(*q) && *q != '=' && *q != '"' && *q != '#') {
        if (!check_byte(q, e)) return false;
        return fail(q, "invalid character " + describe(q, e) + " in key '" + excerpt(key) + "'");
    }
    while (q < e && is_space(*q)) {
        ++q;
    }
    if (q == e || *q != '=') {
        if (q < e && (*q == '"' || (*q >= '0' && *q <= '9')) &&
            (key == "kind" || key == "version" || key == "name")) {
            return fail(ks, "duplicate header field '" + utString(key) + "'");
        }
        if (key == kMagic) return fail(ks, "duplicate header 'kappar-entity'");
        return fail_expected(q, e, "expected '=' after key '" + excerpt(key) + "'");
    }
    ++q;
    while (q < e && is_space(*q)) {
        ++q;
    }
    if (q == e || *q != '"') {
        return fail_expected(q, e,
                             "expected a quoted value after '=' (values are written \"...\")");
    }

    std::string_view value;
    if (!string_literal(q, e, value)) return false;
    if (!end_of_line(q, e, "the value")) return false;

    const std::size_t index = doc_.pairs.size();
    const long first = keys_.find_or_insert(key, static_cast<std::uint32_t>(index));
    if (first >= 0) {
        return fail(ks, "duplicate key '" + excerpt(key) + "' (first at line " +
                            std::to_string(doc_.pairs[first].line) + ")");
    }
    if (index >= limits_.max_pairs) {
        return fail(ks, "more than " + std::to_string(limits_.max_pairs) + " pairs");
    }
    kapFilePair& pair = doc_.pairs.emplace_back();
    pair.key = utString(key);  // constructing then moving is cheaper than assign()
    pair.value = utString(value);
    pair.line = line_;
    pair.column = column(ks);
    return true;
}

bool Reader::string_literal(const char*& q, const char* e, std::string_view& value) {
    const char* open = q++;
    const char* run = q;
    bool escaped = false;
    for (;;) {
        q = skip_class<kPlain>(q, e, e == end_);
        if (q == e) return fail(open, "unterminated string (no closing '\"' on this line)");
        const unsigned char c = uc(*q);
        if (c == '"') {
            if (!escaped) {
                value = std::string_view(run, q - run);
            } else {
                scratch_.append(run, q);
                value = scratch_;
            }
            ++q;
            return true;
        }
        if (c == '\\') {
            if (!escaped) {
                scratch_.clear();
                escaped = true;
            }
            scratch_.append(run, q);
            if (!escape(q, e, scratch_)) return false;
            run = q;
            continue;
        }
        if (c == '\t') {
            ++q;
            continue;
        }
        if (c >= 0x80) {
            const std::size_t n = utf8_length(q, e);
            if (n == 0) return fail(q, "invalid UTF-8 (byte 0x" + hex_code(c, 2) + ")");
            q += n;
            continue;
        }
        if (c == 0) return fail(q, "NUL byte");
        if (c == '\r') return fail(q, "carriage return inside a string (write \\r)");
        return fail(q, "control character U+" + hex_code(c, 4) + " inside a string (write \\u00" +
                           utString{kHex[c >> 4], kHex[c & 0xf]} + ")");
    }
}

bool Reader::escape(const char*& q, const char* e, utString& out) {
    const char* bs = q;
    if (q + 1 == e) return fail(bs, "backslash at the end of the line (unterminated string)");
    const char c = q[1];
    switch (c) {
        case '\\':
            out += '\\';
            q += 2;
            return true;
        case '"':
            out += '"';
            q += 2;
            return true;
        case 'n':
            out += '\n';
            q += 2;
            return true;
        case 't':
            out += '\t';
            q += 2;
            return true;
        case 'r':
            out += '\r';
            q += 2;
            return true;
        case 'u':
        case 'U': {
            const int digits = c == 'u' ? 4 : 8;
            std::uint32_t cp = 0;
            const char* d = q + 2;
            for (int i = 0; i < digits; ++i, ++d) {
                int v = -1;
                if (d < e) {
                    if (*d >= '0' && *d <= '9') {
                        v = *d - '0';
                    } else if (*d >= 'a' && *d <= 'f') {
                        v = *d - 'a' + 10;
                    } else if (*d >= 'A' && *d <= 'F') {
                        v = *d - 'A' + 10;
                    }
                }
                if (v < 0) {
                    // Show the escape as far as it goes, plus the offending character when it
                    // is printable.
                    const char* x = d;
                    if (x < e && (cls(*x) & kPlain) && *x != '\'') ++x;
                    return fail(bs, "invalid escape '" + utString(bs, x) + "': expected " +
                                        std::to_string(digits) + " hex digits after '\\" +
                                        utString(1, c) + "'");
                }
                cp = cp << 4 | static_cast<std::uint32_t>(v);
            }
            const utString text(bs, d);
            if (cp >= 0xd800 && cp <= 0xdfff) {
                return fail(bs, "invalid escape '" + text + "': U+" + hex_code(cp, 4) +
                                    " is a surrogate, not a character");
            }
            if (cp > 0x10ffff) {
                return fail(bs, "invalid escape '" + text + "': beyond U+10FFFF");
            }
            append_utf8(out, cp);
            q = d;
            return true;
        }
        default:
            if (!check_byte(q + 1, e)) return false;
            if (uc(c) >= 0x20 && uc(c) < 0x7f) {
                return fail(bs, "unknown escape '\\" + utString(1, c) + "'");
            }
            return fail(bs, "unknown escape: backslash followed by " + describe(q + 1, e));
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------

bool kap_read_entity_text(std::string_view text, kapFileDocument& doc, kapFileError& err,
                          const kapFileLimits& limits) {
    err = kapFileError{};
    Reader reader(text, doc, err, limits);
    return reader.run();
}

bool kap_read_entity_file(const utString& path, kapFileDocument& doc, kapFileError& err,
                          const kapFileLimits& limits) {
    err = kapFileError{};
    // Opening a FIFO for reading waits for a writer, and a device may never end: only regular
    // files (and folders, which fail to read below) are opened.
    std::error_code status_error;
    const auto type = std::filesystem::status(path.c_str(), status_error).type();
    if (type != std::filesystem::file_type::regular &&
        type != std::filesystem::file_type::directory &&
        type != std::filesystem::file_type::not_found && !status_error) {
        err.message = "cannot read '" + path + "': not a regular file";
        return false;
    }
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        err.message = "cannot open '" + path + "': " + std::strerror(errno);
        return false;
    }
    utString text;
    if (std::fseek(f, 0, SEEK_END) == 0) {
        const long size = std::ftell(f);
        if (size > 0 && static_cast<unsigned long>(size) <= limits.max_file_bytes) {
            text.reserve(static_cast<std::size_t>(size));
        }
        std::rewind(f);
    }
    char buffer[1 << 16];
    bool too_large = false;
    for (;;) {
        const std::size_t n = std::fread(buffer, 1, sizeof buffer, f);
        if (n == 0) break;
        if (text.size() + n > limits.max_file_bytes) {
            too_large = true;
            break;
        }
        text.append(buffer, n);
    }
    const bool failed = std::ferror(f) != 0;
    const int saved_errno = errno;
    std::fclose(f);
    if (failed) {
        err.message = "cannot read '" + path + "': " + std::strerror(saved_errno);
        return false;
    }
    if (too_large) {
        err.message = "file larger than " + std::to_string(limits.max_file_bytes) + " bytes";
        return false;
    }
    return kap_read_entity_text(text, doc, err, limits);
}
