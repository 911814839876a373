// What the reader accepts and what it makes of it.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "kapparameter/kapParameterFile.h"

namespace {

using namespace std::string_literals;
using Pairs = std::vector<std::pair<std::string, std::string>>;

const std::string H = "kappar-entity 1\nkind \"boundary\"\nversion 1\nname \"B\"\n";

Pairs pairs_of(const kapFileDocument& doc) {
    Pairs out;
    for (const kapFilePair& p : doc.pairs)
        out.emplace_back(p.key, p.value);
    return out;
}

kapFileDocument read_ok(std::string_view text) {
    kapFileDocument doc;
    kapFileError err;
    EXPECT_TRUE(kap_read_entity_text(text, doc, err))
        << err.line << ":" << err.column << ": " << err.message;
    return doc;
}

struct GoodCase {
    const char* label;
    std::string body;  // after the header
    Pairs pairs;
};

std::ostream& operator<<(std::ostream& os, const GoodCase& c) {
    return os << c.label;
}

class ReaderAccepts : public testing::TestWithParam<GoodCase> {};

TEST_P(ReaderAccepts, Pairs) {
    const GoodCase& c = GetParam();
    EXPECT_EQ(pairs_of(read_ok(H + c.body)), c.pairs);
}

// clang-format off
const GoodCase kGoodCases[] = {
    {"no_pairs", "", {}},
    {"no_final_newline", "A = \"1\"", {{"A", "1"}}},
    {"blank_lines_and_comments", "\n# c\n   \n\t# indented comment\nA = \"1\"\n\n", {{"A", "1"}}},
    {"trailing_comment", "A = \"1\" # why\nB = \"2\"# tight\n", {{"A", "1"}, {"B", "2"}}},
    {"hash_and_equals_inside_value", "A = \"x # y = z\"\n", {{"A", "x # y = z"}}},
    {"spacing_around_equals", "A=\"1\"\nB \t=\t \"2\"  \n  C = \"3\"\n", {{"A", "1"}, {"B", "2"}, {"C", "3"}}},
    {"every_key_character", "_a-b:c[16].D_9 = \"\"\n", {{"_a-b:c[16].D_9", ""}}},
    {"keys_differing_in_case", "Type = \"a\"\ntype = \"b\"\n", {{"Type", "a"}, {"type", "b"}}},
    {"header_words_as_keys", "kind = \"k\"\nversion = \"v\"\nname = \"n\"\n", {{"kind", "k"}, {"version", "v"}, {"name", "n"}}},
    {"short_escapes", R"(A = "\\ \" \n \t \r")" "\n", {{"A", "\\ \" \n \t \r"}}},
    {"unicode_escapes", R"(A = "\u00e9\u00C9\u20AC\U0001F600\u0000")" "\n", {{"A", "\xC3\xA9\xC3\x89\xE2\x82\xAC\xF0\x9F\x98\x80\0"s}}},
    {"raw_utf8", "A = \"Fräskopf \xE2\x82\xAC \xF0\x9F\x98\x80 \xE4\xB8\xAD\"\n", {{"A", "Fräskopf \xE2\x82\xAC \xF0\x9F\x98\x80 \xE4\xB8\xAD"}}},
    {"raw_tab_and_del", "A = \"a\tb\x7f\"\n", {{"A", "a\tb\x7f"}}},
    {"raw_c1_control", "A = \"\xC2\x85\"\n", {{"A", "\xC2\x85"}}},
    {"utf8_in_comment", "# Werkstück \xF0\x9F\x94\xA7\nA = \"1\"\n", {{"A", "1"}}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Table, ReaderAccepts, testing::ValuesIn(kGoodCases),
                         [](const testing::TestParamInfo<GoodCase>& p) {
                             return std::string(p.param.label);
                         });

TEST(Reader, AcceptsCrlfThroughoutAndAByteOrderMark) {
    std::string crlf;
    for (char c : H + "A = \"1\"\n") {
        if (c == '\n') crlf += '\r';
        crlf += c;
    }
    const kapFileDocument doc = read_ok("\xEF\xBB\xBF" + crlf);
    EXPECT_EQ(doc.kind, "boundary");
    EXPECT_EQ(pairs_of(doc), (Pairs{{"A", "1"}}));

    // The mark is not counted in columns.
    kapFileDocument bad;
    kapFileError err;
    EXPECT_FALSE(kap_read_entity_text("\xEF\xBB\xBFkappar-entity 2\n", bad, err));
    EXPECT_EQ(err.column, 15);
}

TEST(Reader, HeaderFieldsTakeCommentsAndSpacing) {
    const kapFileDocument doc = read_ok(
        "  kappar-entity   1   # format\n"
        "kind\t\"tool\"  # kind\n"
        "version 007\n"
        "name \"\" # unnamed\n");
    EXPECT_EQ(doc.kind, "tool");
    EXPECT_EQ(doc.version, 7);
    EXPECT_EQ(doc.name, "");
    EXPECT_TRUE(doc.pairs.empty());
}

TEST(Reader, RecordsPositionsOfKeys) {
    const kapFileDocument doc = read_ok(H + "\n  A = \"1\"\n\tB = \"2\"\r\nC = \"3\"");
    std::vector<std::pair<int, int>> positions;
    for (const kapFilePair& p : doc.pairs)
        positions.emplace_back(p.line, p.column);
    EXPECT_EQ(positions, (std::vector<std::pair<int, int>>{{6, 3}, {7, 2}, {8, 1}}));
}

TEST(Reader, ReplacesWhatTheDocumentHeld) {
    kapFileDocument doc;
    doc.pairs.push_back({"Old", "1", 1, 1});
    doc.name = "old";
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_text(H + "A = \"1\"\n", doc, err));
    EXPECT_EQ(doc.name, "B");
    EXPECT_EQ(pairs_of(doc), (Pairs{{"A", "1"}}));
}

TEST(Reader, LimitsAreInclusive) {
    kapFileLimits limits;
    limits.max_line_bytes = 15;  // "kappar-entity 1" and `kind "boundary"` are 15 bytes
    limits.max_pairs = 1;
    const std::string text = H + "A = \"123456789\"\r\n";  // 15 bytes before the CRLF
    limits.max_file_bytes = text.size();
    kapFileDocument doc;
    kapFileError err;
    EXPECT_TRUE(kap_read_entity_text(text, doc, err, limits)) << err.message;
}

TEST(Reader, ManyPairsKeepOrderAndFindLateDuplicates) {
    std::string text = H;
    for (int i = 0; i < 5000; ++i)
        text += "Group" + std::to_string(i % 7) + ".Key" + std::to_string(i) + " = \"" +
                std::to_string(i) + "\"\n";
    kapFileDocument doc = read_ok(text);
    ASSERT_EQ(doc.pairs.size(), 5000u);
    EXPECT_EQ(doc.pairs[4999].key, "Group1.Key4999");
    EXPECT_EQ(doc.pairs[4999].line, 5004);

    text += "Group3.Key17 = \"again\"\n";
    kapFileError err;
    ASSERT_FALSE(kap_read_entity_text(text, doc, err));
    EXPECT_EQ(err.message, "duplicate key 'Group3.Key17' (first at line 22)");
    EXPECT_EQ(err.line, 5005);
}

// The key scanner takes several bytes at a time; every byte value at every position of a long key
// must be classified as the one-byte rule (kap_is_valid_file_key) says, on a final line too.
TEST(Reader, KeyCharactersAgreeWithTheKeyRuleAtEveryPosition) {
    for (int b = 0; b < 256; ++b) {
        const char c = static_cast<char>(b);
        const bool key_char = kap_is_valid_file_key(std::string("a") + c);
        for (std::size_t at = 1; at < 40; at += 3) {
            std::string key(40, 'k');
            key[at] = c;
            for (const char* ending : {"\n", ""}) {
                kapFileDocument doc;
                kapFileError err;
                const bool ok = kap_read_entity_text(H + key + " = \"v\"" + ending, doc, err);
                if (key_char) {
                    ASSERT_TRUE(ok) << "byte " << b << " at " << at << ": " << err.message;
                    ASSERT_EQ(doc.pairs.at(0).key, key);
                } else {
                    ASSERT_FALSE(ok) << "byte " << b << " at " << at;
                    ASSERT_EQ(err.line, 5);
                    if (c != ' ' && c != '\t' && c != '=') {  // those end the key well
                        ASSERT_EQ(err.column, static_cast<int>(at) + 1) << "byte " << b;
                    }
                }
            }
        }
    }
}

TEST(Reader, LongKeysAreShortenedInMessages) {
    const std::string key(200, 'k');
    kapFileDocument doc;
    kapFileError err;
    ASSERT_FALSE(kap_read_entity_text(H + key + " \"x\"\n", doc, err));
    EXPECT_EQ(err.message, "expected '=' after key '" + std::string(60, 'k') + "...'");
}

TEST(ReaderFile, ReadsAFileAndReportsIoErrorsWithoutPosition) {
    const std::string dir = testing::TempDir();
    const std::string path = dir + "kappar_reader_test.kpe";
    kapFileDocument doc;
    doc.kind = "workplane";
    doc.version = 1;
    doc.name = "Werkstück 1";
    doc.pairs = {{"Origin", "(0;0;0)", 0, 0}, {"fish.species", "cod", 0, 0}};
    kapFileError err;
    ASSERT_TRUE(kap_write_entity_file(path, doc, err)) << err.message;

    kapFileDocument back;
    ASSERT_TRUE(kap_read_entity_file(path, back, err)) << err.message;
    EXPECT_TRUE(kap_same_entity_content(doc, back));

    kapFileLimits small;
    small.max_file_bytes = 10;
    EXPECT_FALSE(kap_read_entity_file(path, back, err, small));
    EXPECT_EQ(err.line, 0);
    EXPECT_EQ(err.message, "file larger than 10 bytes");

    EXPECT_FALSE(kap_read_entity_file(dir + "no/such/file.kpe", back, err));
    EXPECT_EQ(err.line, 0);
    EXPECT_EQ(err.message.rfind("cannot open '" + dir + "no/such/file.kpe': ", 0), 0u)
        << err.message;

    EXPECT_FALSE(kap_read_entity_file(dir, back, err));  // a folder
    EXPECT_EQ(err.line, 0);
    EXPECT_FALSE(err.message.empty());

    EXPECT_FALSE(kap_write_entity_file(dir + "no/such/file.kpe", doc, err));
    EXPECT_EQ(err.message.rfind("cannot create '", 0), 0u) << err.message;
    std::remove(path.c_str());
}

}  // namespace
