#pragma once
// Saved-entity text files: one entity per file, a four-line header and then one key/value pair
// per line.
//
//     kappar-entity 1
//     kind "boundary"
//     version 1
//     name "Boundary 1"
//
//     Type = "contact_conv"
//     Limit.Boundary = "12"
//
// This layer only turns text into a document of (key, value) pairs and back; it knows nothing of
// parameter trees. Deciding whether a kind is known, whether a version is newer than the entity's
// own, and what a key means is left to whoever feeds the pairs to an entity loader. The grammar,
// escapes, limits and error messages are described in docs/file-format.md.
//
// Positions: lines and columns count from 1; a column counts Unicode code points from the start
// of the line (a tab is one column, a byte-order mark at the start of the file is not counted).
// Line 0 means "no position" (I/O failures, a file over the size limit).

#include <cstddef>
#include <string_view>
#include <vector>

#include "utils/utString.h"

// The only format version this code reads and writes.
inline constexpr int kap_file_format_version = 1;

// One saved pair, with the position of its key in the file it was read from (0 when the pair was
// made in memory). The writer ignores positions.
struct kapFilePair {
    utString key;
    utString value;
    int line = 0;
    int column = 0;
};

// The content of one saved entity. `pairs` keeps the order of the file; keys are unique.
struct kapFileDocument {
    int format_version = kap_file_format_version;
    utString kind;    // entity kind name, never empty in a file ("boundary")
    int version = 0;  // the entity's schema version, >= 0
    utString name;    // entity name, may be empty
    std::vector<kapFilePair> pairs;
    // Where the kind's and the version's values stand in the file read (0: made in memory).
    int kind_line = 0;
    int kind_column = 0;
    int version_line = 0;
    int version_column = 0;
};

struct kapFileError {
    int line = 0;
    int column = 0;
    utString message;
};

// Bounds on what the reader accepts; exceeding one is an ordinary error.
struct kapFileLimits {
    std::size_t max_file_bytes = std::size_t{64} << 20;  // 64 MiB
    std::size_t max_line_bytes = std::size_t{1} << 20;   // 1 MiB, line ending not counted
    std::size_t max_pairs = std::size_t{1} << 20;        // 1,048,576
};

// Parses the text of a saved entity. On success fills `doc` (replacing what it held) and returns
// true; on failure returns false, fills `err` with the first error of the text and leaves `doc`
// in an unspecified but valid state. Never throws for any input (memory exhaustion aside).
bool kap_read_entity_text(std::string_view text, kapFileDocument& doc, kapFileError& err,
                          const kapFileLimits& limits = {});

// Reads the file at `path` and parses it as kap_read_entity_text does. Failures to open or read
// the file, and a file larger than the limit, are reported at line 0.
bool kap_read_entity_file(const utString& path, kapFileDocument& doc, kapFileError& err,
                          const kapFileLimits& limits = {});

// The canonical text of a document: the header, a blank line when there are pairs, then one
// "key = "value"" line per pair in the document's order, LF line endings, no comments. Always
// writes format version 1, whatever doc.format_version says.
// For a document that kap_check_entity_document accepts, reading the result gives back the same
// kind, version, name and pairs, and writing that again gives the same text. Bytes of kind, name
// or values that are not valid UTF-8 are written as U+FFFD each, so the text is always valid
// UTF-8; keys are written as they are.
utString kap_write_entity_text(const kapFileDocument& doc);

// Writes the canonical text to `path` through a temporary file in the same folder that is then
// renamed over `path`, so a failed write leaves an existing file untouched. I/O errors at line 0.
bool kap_write_entity_file(const utString& path, const kapFileDocument& doc, kapFileError& err);

// Whether the writer's text of `doc` will read back as `doc`: a non-empty kind, a version >= 0,
// valid keys, no key twice, valid UTF-8 in kind, name and values, no line over the line limit and
// no more pairs than the limit. On failure `err` names the first fault (line 0; the message names
// the pair by its index and key).
bool kap_check_entity_document(const kapFileDocument& doc, kapFileError& err,
                               const kapFileLimits& limits = {});

// A value as the file writes it: between double quotes, with backslash, double quote and control
// characters (U+0000-U+001F, U+007F-U+009F) escaped; other text, UTF-8 included, as it is.
// \n \t \r \" \\ are used where they apply, \u00XX (lower-case hex) for the other controls.
utString kap_quote(std::string_view value);
// The same, appended to `out`.
void kap_append_quoted(utString& out, std::string_view value);

// Text read from a file or given by a user, made safe to print inside a message: valid UTF-8
// characters stand as they are; control characters (U+0000-U+001F, U+007F-U+009F) and bytes that
// are not part of valid UTF-8 are written as "\x1b" (two lower-case hex digits per byte), and a
// backslash as "\\", so no byte of the input reaches a terminal raw.
utString kap_message_text(std::string_view text);

// Whether `key` can be written bare: a letter or '_' followed by letters, digits and the
// characters _ . [ ] - :
bool kap_is_valid_file_key(std::string_view key) noexcept;

// Same kind, version, name and pairs (keys and values in the same order); positions and the
// format version are not compared.
bool kap_same_entity_content(const kapFileDocument& a, const kapFileDocument& b) noexcept;

// "file:line:column: message", or "file: message" for an error without a position.
utString kap_format_file_error(std::string_view file, const kapFileError& err);
