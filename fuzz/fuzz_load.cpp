// Fuzzes reading and loading a saved entity.
//
// Any input: reading and loading never crash or hang. When a document loads, every pair is
// accounted for (stored, kept as unrecognised, or dropped by the entity's own rule), and saving
// the loaded entity with what it did not know, then loading that again, gives the same document.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "kappar/kapEntityFile.h"

namespace {

[[noreturn]] void fail(const char* what, std::string_view text) {
    std::fprintf(stderr, "fuzz_load: %s\n--- text (%zu bytes) ---\n%.*s\n---\n", what, text.size(),
                 static_cast<int>(text.size()), text.data());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    kapFileLimits limits;
    // Every limit within reach of inputs up to fuzz.sh's -max_len (33,000 bytes).
    limits.max_file_bytes = std::size_t{1} << 15;
    limits.max_line_bytes = std::size_t{1} << 12;
    limits.max_pairs = std::size_t{1} << 8;
    kapFileDocument doc;
    kapFileError err;
    if (!kap_read_entity_text(text, doc, err, limits)) return 0;

    kapEntityLoadReport report;
    auto root = kap_load_entity(doc, report, err);
    if (!root) {
        if (err.message.empty()) fail("load error without a message", text);
        return 0;
    }
    const std::size_t accounted = static_cast<std::size_t>(report.loaded) +
                                  report.unrecognised.size() + report.dropped.size();
    if (accounted != doc.pairs.size()) fail("a pair was lost", text);

    const kapFileDocument saved = kap_entity_document(*root, report.unrecognised);
    kapFileDocument again;
    if (!kap_check_entity_document(saved, err)) return 0;  // a key the writer cannot write bare
    if (!kap_read_entity_text(kap_write_entity_text(saved), again, err)) {
        fail("saved entity does not read", text);
    }
    kapEntityLoadReport second;
    auto reloaded = kap_load_entity(again, second, err);
    if (!reloaded) fail("saved entity does not load", text);
    if (!kap_same_entity_content(kap_entity_document(*reloaded, second.unrecognised), saved)) {
        fail("saving the loaded entity again changed it", text);
    }
    return 0;
}
