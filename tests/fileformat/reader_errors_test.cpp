// Every kind of bad input gives its own message at the right line and column.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "kapparameter/kapParameterFile.h"

namespace {

using namespace std::string_literals;

// Header used by most cases: four lines, so the first pair is on line 5.
const std::string H = "kappar-entity 1\nkind \"boundary\"\nversion 1\nname \"B\"\n";

struct BadCase {
    const char* label;
    std::string text;
    int line;
    int column;
    std::string message;
    kapFileLimits limits = {};
};

std::ostream& operator<<(std::ostream& os, const BadCase& c) {
    return os << c.label;
}

class ReaderError : public testing::TestWithParam<BadCase> {};

TEST_P(ReaderError, GivesMessageAndPosition) {
    const BadCase& c = GetParam();
    kapFileDocument doc;
    kapFileError err;
    ASSERT_FALSE(kap_read_entity_text(c.text, doc, err, c.limits));
    EXPECT_EQ(err.message, c.message);
    EXPECT_EQ(err.line, c.line);
    EXPECT_EQ(err.column, c.column);
}

// clang-format off
const BadCase kBadCases[] = {
    // Missing or truncated header.
    {"empty", "", 1, 1, "missing header 'kappar-entity 1'"},
    {"only_comments", "# nothing\n\n", 3, 1, "missing header 'kappar-entity 1'"},
    {"cut_after_magic", "kappar-entity 1\n", 2, 1, "missing header field 'kind'"},
    {"cut_after_kind_no_newline", "kappar-entity 1\nkind \"b\"", 2, 9, "missing header field 'version'"},
    {"cut_after_version", "kappar-entity 1\nkind \"b\"\nversion 1\n", 4, 1, "missing header field 'name'"},
    {"cut_in_kind_string", "kappar-entity 1\nkind \"boun", 2, 6, "unterminated string (no closing '\"' on this line)"},
    {"cut_in_magic", "kappar-ent", 1, 1, "not a kappar entity file: expected 'kappar-entity 1' first"},
    {"pair_before_name", "kappar-entity 1\nkind \"b\"\nversion 1\nType = \"x\"\n", 4, 1, "missing header field 'name'"},
    {"not_an_entity_file", "Type = \"x\"\n", 1, 1, "not a kappar entity file: expected 'kappar-entity 1' first"},
    {"binary_garbage", "\x7f" "ELF\x02\x01\x01\0\0\0", 1, 1, "not a kappar entity file: expected 'kappar-entity 1' first"},
    // Format version.
    {"newer_format", "kappar-entity 2\n", 1, 15, "format version 2 is newer than this reader (1)"},
    {"newer_format_leading_zero", "kappar-entity 010\n", 1, 15, "format version 10 is newer than this reader (1)"},
    {"huge_format", "kappar-entity 99999999999999999999999\n", 1, 15, "format version 99999999999999999999... is newer than this reader (1)"},
    {"format_zero", "kappar-entity 0\n", 1, 15, "invalid format version 0"},
    {"format_missing", "kappar-entity\n", 1, 14, "expected format version (a whole number)"},
    {"format_word", "kappar-entity one\n", 1, 15, "expected format version (a whole number)"},
    {"format_junk", "kappar-entity 1 x\n", 1, 17, "unexpected 'x' after the format version"},
    // Header fields.
    {"empty_kind", "kappar-entity 1\nkind \"\"\n", 2, 6, "empty entity kind"},
    {"unquoted_kind", "kappar-entity 1\nkind boundary\n", 2, 6, "expected a quoted entity kind after 'kind'"},
    {"negative_version", "kappar-entity 1\nkind \"b\"\nversion -1\n", 3, 9, "entity version must be a whole number without a sign"},
    {"version_too_big", "kappar-entity 1\nkind \"b\"\nversion 2147483648\n", 3, 9, "entity version 2147483648 is out of range (at most 2147483647)"},
    {"version_not_integer", "kappar-entity 1\nkind \"b\"\nversion 1.5\n", 3, 9, "entity version must be a whole number, not '1.5'"},
    {"version_quoted", "kappar-entity 1\nkind \"b\"\nversion \"1\"\n", 3, 9, "expected entity version (a whole number)"},
    {"version_before_kind", "kappar-entity 1\nversion 1\n", 2, 1, "header field 'version' out of order: expected 'kind' first"},
    {"kind_twice_in_header", "kappar-entity 1\nkind \"a\"\nkind \"b\"\n", 3, 1, "duplicate header field 'kind'"},
    {"name_unquoted", "kappar-entity 1\nkind \"b\"\nversion 1\nname B\n", 4, 6, "expected a quoted entity name after 'name'"},
    {"junk_after_name", "kappar-entity 1\nkind \"b\"\nversion 1\nname \"B\" x\n", 4, 10, "unexpected 'x' after the entity name"},
    {"kind_again_after_header", H + "kind \"x\"\n", 5, 1, "duplicate header field 'kind'"},
    {"magic_again_after_header", H + "kappar-entity 1\n", 5, 1, "duplicate header 'kappar-entity'"},
    // Pair syntax.
    {"missing_equals", H + "Type \"x\"\n", 5, 6, "expected '=' after key 'Type'"},
    {"missing_equals_eol", H + "Type\n", 5, 5, "expected '=' after key 'Type'"},
    {"missing_key", H + "= \"x\"\n", 5, 1, "missing key before '='"},
    {"key_starts_with_digit", H + "1st = \"x\"\n", 5, 1, "a key must start with a letter or '_', not '1'"},
    {"key_bad_char", H + "Ty$pe = \"x\"\n", 5, 3, "invalid character '$' in key 'Ty'"},
    {"key_non_ascii", H + "Tyé = \"x\"\n", 5, 3, "invalid character 'é' in key 'Ty'"},
    {"missing_value", H + "Type =\n", 5, 7, "expected a quoted value after '=' (values are written \"...\")"},
    {"unquoted_value", H + "Type = contact\n", 5, 8, "expected a quoted value after '=' (values are written \"...\")"},
    {"junk_after_value", H + "Type = \"x\" y\n", 5, 12, "unexpected 'y' after the value"},
    {"c1_after_value", H + "Type = \"x\" \xC2\x9B[2J\n", 5, 12, "unexpected U+009B after the value"},
    {"second_value", H + "Type = \"x\"\"y\"\n", 5, 11, "unexpected '\"' after the value"},
    {"duplicate_key", H + "Type = \"a\"\nX = \"b\"\nType = \"c\"\n", 7, 1, "duplicate key 'Type' (first at line 5)"},
    {"duplicate_key_indented", H + "  A.b = \"a\"\n\n  A.b = \"a\"\n", 7, 3, "duplicate key 'A.b' (first at line 5)"},
    // Strings.
    {"unterminated_value", H + "Type = \"abc\nNext = \"x\"\n", 5, 8, "unterminated string (no closing '\"' on this line)"},
    {"unterminated_at_eof", H + "Type = \"abc", 5, 8, "unterminated string (no closing '\"' on this line)"},
    {"backslash_at_eol", H + "Type = \"abc\\\n", 5, 12, "backslash at the end of the line (unterminated string)"},
    {"unknown_escape", H + "Type = \"a\\qb\"\n", 5, 10, "unknown escape '\\q'"},
    {"escape_of_tab", H + "Type = \"\\\t\"\n", 5, 9, "unknown escape: backslash followed by a tab"},
    {"u_bad_digit", H + "Type = \"\\u12G4\"\n", 5, 9, "invalid escape '\\u12G': expected 4 hex digits after '\\u'"},
    {"u_too_short", H + "Type = \"\\u12\"\n", 5, 9, "invalid escape '\\u12': expected 4 hex digits after '\\u'"},
    {"u_at_eol", H + "Type = \"\\u", 5, 9, "invalid escape '\\u': expected 4 hex digits after '\\u'"},
    {"U_too_short", H + "Type = \"\\U0001F60\"\n", 5, 9, "invalid escape '\\U0001F60': expected 8 hex digits after '\\U'"},
    {"u_surrogate", H + "Type = \"\\uD800\"\n", 5, 9, "invalid escape '\\uD800': U+D800 is a surrogate, not a character"},
    {"U_surrogate", H + "Type = \"\\U0000dfff\"\n", 5, 9, "invalid escape '\\U0000dfff': U+DFFF is a surrogate, not a character"},
    {"U_beyond_unicode", H + "Type = \"\\U00110000\"\n", 5, 9, "invalid escape '\\U00110000': beyond U+10FFFF"},
    {"raw_control_in_value", H + "Type = \"a\x01\"\n", 5, 10, "control character U+0001 inside a string (write \\u0001)"},
    {"raw_cr_in_value", H + "Type = \"a\rb\"\n", 5, 10, "carriage return inside a string (write \\r)"},
    // Bytes that are wrong anywhere.
    {"nul_in_value", H + "Type = \"a\0b\"\n"s, 5, 10, "NUL byte"},
    {"nul_in_comment", H + "# a\0b\n"s, 5, 4, "NUL byte"},
    {"nul_at_line_start", H + "\0"s, 5, 1, "NUL byte"},
    {"nul_in_header", "kappar-entity 1\0\n"s, 1, 16, "NUL byte"},
    {"bad_utf8_lead", H + "Type = \"\xff\"\n", 5, 9, "invalid UTF-8 (byte 0xFF)"},
    {"bad_utf8_continuation", H + "Type = \"\x80\"\n", 5, 9, "invalid UTF-8 (byte 0x80)"},
    {"bad_utf8_overlong", H + "Type = \"\xC0\xAF\"\n", 5, 9, "invalid UTF-8 (byte 0xC0)"},
    {"bad_utf8_surrogate", H + "Type = \"\xED\xA0\x80\"\n", 5, 9, "invalid UTF-8 (byte 0xED)"},
    {"bad_utf8_beyond", H + "Type = \"\xF4\x90\x80\x80\"\n", 5, 9, "invalid UTF-8 (byte 0xF4)"},
    {"bad_utf8_cut_by_quote", H + "Type = \"\xE2\x82\"\n", 5, 9, "invalid UTF-8 (byte 0xE2)"},
    {"bad_utf8_in_comment", H + "# caf\xE9\n", 5, 6, "invalid UTF-8 (byte 0xE9)"},
    {"bad_utf8_as_key", H + "\xC3\x28 = \"x\"\n", 5, 1, "invalid UTF-8 (byte 0xC3)"},
    {"bad_utf8_after_value", H + "A = \"x\" \xff\n", 5, 9, "invalid UTF-8 (byte 0xFF)"},
    {"column_counts_code_points", H + "Type = \"\xC3\xA9\xE2\x82\xAC\x01\"\n", 5, 11, "control character U+0001 inside a string (write \\u0001)"},
    {"control_in_comment", H + "# a\x1b[0m\n", 5, 4, "control character U+001B"},
    {"stray_cr", H + "A = \"x\"\rB = \"y\"\n", 5, 8, "carriage return not followed by a line feed"},
    {"cr_only_line_endings", "kappar-entity 1\rkind \"b\"\r", 1, 16, "carriage return not followed by a line feed"},
    {"cr_at_eof", H + "A = \"x\"\r", 5, 8, "carriage return not followed by a line feed"},
    // Limits.
    {"line_too_long", H + "Key = \"0123456789\"\n", 5, 1, "line longer than 16 bytes", {.max_line_bytes = 16}},
    {"too_many_pairs", H + "A = \"1\"\nB = \"2\"\nC = \"3\"\n", 7, 1, "more than 2 pairs", {.max_pairs = 2}},
    {"file_too_large", H, 0, 0, "file larger than 20 bytes", {.max_file_bytes = 20}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Table, ReaderError, testing::ValuesIn(kBadCases),
                         [](const testing::TestParamInfo<BadCase>& p) {
                             return std::string(p.param.label);
                         });

// A truncated copy of a good file either reads (when the cut falls between pairs) or fails with a
// position inside the text; it never reads a pair that the full file does not hold.
TEST(ReaderTruncation, EveryPrefixFailsCleanlyOrReadsAPrefixOfThePairs) {
    const std::string text = H + "Type = \"contact_conv\"\nOrigin = \"(0;0;0)\" # here\n";
    kapFileDocument full;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_text(text, full, err)) << err.message;
    for (std::size_t n = 0; n < text.size(); ++n) {
        kapFileDocument doc;
        const std::string_view cut(text.data(), n);
        if (kap_read_entity_text(cut, doc, err)) {
            ASSERT_GE(n, H.size() - 1) << "header incomplete but accepted at " << n;
            ASSERT_LE(doc.pairs.size(), full.pairs.size());
            for (std::size_t i = 0; i < doc.pairs.size(); ++i) {
                // A cut inside the value is an unterminated string, so a read pair is whole.
                EXPECT_EQ(doc.pairs[i].value, full.pairs[i].value) << "cut at " << n;
            }
        } else {
            EXPECT_GE(err.line, 1) << "cut at " << n;
            EXPECT_GE(err.column, 1) << "cut at " << n;
            EXPECT_FALSE(err.message.empty());
        }
    }
}

}  // namespace
