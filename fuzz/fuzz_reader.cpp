// Fuzzes the saved-entity reader and writer.
//
// Any input: reading never crashes; a failure carries a message and a position inside the text.
// When it reads, the document passes the writer's check, and write -> read gives the same
// document and write -> read -> write the same text. Separately, the raw input used as a value
// must survive write -> read (exactly when it is valid UTF-8).

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kapparameter/kapParameterFile.h"

namespace {

[[noreturn]] void fail(const char* what, std::string_view text) {
    std::fprintf(stderr, "fuzz_reader: %s\n--- text (%zu bytes) ---\n%.*s\n---\n", what,
                 text.size(), static_cast<int>(text.size()), text.data());
    std::abort();
}

// An oracle independent of the reader's own validation: decode, then reject overlong forms,
// surrogates and code points beyond U+10FFFF.
bool valid_utf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        const int n = c < 0x80             ? 1
                      : (c & 0xe0) == 0xc0 ? 2
                      : (c & 0xf0) == 0xe0 ? 3
                      : (c & 0xf8) == 0xf0 ? 4
                                           : 0;
        if (n == 0) return false;
        std::uint32_t cp = n == 1 ? c : c & (0x7f >> n);
        if (i + n > s.size()) return false;
        for (int k = 1; k < n; ++k) {
            const auto d = static_cast<unsigned char>(s[i + k]);
            if ((d & 0xc0) != 0x80) return false;
            cp = cp << 6 | (d & 0x3f);
        }
        static constexpr std::uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
        if (cp < kMin[n] || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return false;
        i += n;
    }
    return true;
}

void reader_round_trip(std::string_view text) {
    kapFileLimits limits;
    // Every limit within reach of inputs up to fuzz.sh's -max_len (33,000 bytes).
    limits.max_file_bytes = std::size_t{1} << 15;
    limits.max_line_bytes = std::size_t{1} << 12;
    limits.max_pairs = std::size_t{1} << 8;
    kapFileDocument doc;
    kapFileError err;
    if (!kap_read_entity_text(text, doc, err, limits)) {
        if (err.message.empty()) fail("error without a message", text);
        std::size_t lines = 1;
        for (char c : text)
            lines += c == '\n';
        if (err.line < 1 || static_cast<std::size_t>(err.line) > lines || err.column < 1) {
            fail("error position outside the text", text);
        }
        return;
    }
    if (doc.format_version != kap_file_format_version) fail("wrong format version", text);
    kapFileError check;
    if (!kap_check_entity_document(doc, check)) fail("read a document the writer rejects", text);

    const utString written = kap_write_entity_text(doc);
    kapFileDocument back;
    if (!kap_read_entity_text(written, back, err)) fail("canonical text does not read", written);
    if (!kap_same_entity_content(doc, back)) fail("round trip changed the document", text);
    if (kap_write_entity_text(back) != written) fail("canonical text not stable", text);
}

void value_round_trip(std::string_view bytes) {
    kapFileDocument doc;
    doc.kind = "k";
    doc.pairs.push_back({"V", utString(bytes), 0, 0});
    const utString written = kap_write_entity_text(doc);
    kapFileDocument back;
    kapFileError err;
    if (!kap_read_entity_text(written, back, err)) fail("quoted value does not read", written);
    const bool same = back.pairs.size() == 1 && back.pairs[0].value == bytes;
    kapFileError check;
    if (kap_check_entity_document(doc, check) != same) {
        fail("value round trip disagrees with the document check", bytes);
    }
    if (same != valid_utf8(bytes)) fail("value round trip disagrees with validity", bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    reader_round_trip(text);
    value_round_trip(text);
    return 0;
}
