// The canonical text, quoting, document checks and the round trip read(write(doc)) == doc.

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "kapparameter/kapParameterFile.h"

namespace {

using namespace std::string_literals;

kapFileDocument boundary_example() {
    kapFileDocument doc;
    doc.kind = "boundary";
    doc.version = 1;
    doc.name = "Boundary 1";
    doc.pairs = {{"Type", "contact_conv", 0, 0},
                 {"Limit.Boundary", "12", 0, 0},
                 {"ThicknessSetValues[16].Mode", "collision_check", 0, 0},
                 {"Origin", "(0;0;0)", 0, 0},
                 {"Tolerance", "2*Rootpar.Tolerance", 0, 0},
                 {"Notes", "line 1\nline 2 \"quoted\" C:\\path\t\xC3\xA9", 0, 0},
                 {"Empty", "", 0, 0}};
    return doc;
}

// The reference text, byte for byte.
const char* const kBoundaryText =
    "kappar-entity 1\n"
    "kind \"boundary\"\n"
    "version 1\n"
    "name \"Boundary 1\"\n"
    "\n"
    "Type = \"contact_conv\"\n"
    "Limit.Boundary = \"12\"\n"
    "ThicknessSetValues[16].Mode = \"collision_check\"\n"
    "Origin = \"(0;0;0)\"\n"
    "Tolerance = \"2*Rootpar.Tolerance\"\n"
    "Notes = \"line 1\\nline 2 \\\"quoted\\\" C:\\\\path\\t\xC3\xA9\"\n"
    "Empty = \"\"\n";

TEST(Writer, WritesTheCanonicalText) {
    EXPECT_EQ(kap_write_entity_text(boundary_example()), kBoundaryText);
}

TEST(Writer, NoPairsMeansNoBlankLineAndFormatIsAlwaysOne) {
    kapFileDocument doc;
    doc.format_version = 7;
    doc.kind = "level";
    EXPECT_EQ(kap_write_entity_text(doc),
              "kappar-entity 1\nkind \"level\"\nversion 0\nname \"\"\n");
}

struct QuoteCase {
    std::string raw;
    std::string quoted;
};

class Quote : public testing::TestWithParam<QuoteCase> {};

TEST_P(Quote, EscapesWhatMustBeEscaped) {
    EXPECT_EQ(kap_quote(GetParam().raw), GetParam().quoted);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, Quote, testing::Values(
    QuoteCase{"", R"("")"},
    QuoteCase{"plain text (0;0;1) # = ' ", R"("plain text (0;0;1) # = ' ")"},
    QuoteCase{"a\"b\\c", R"("a\"b\\c")"},
    QuoteCase{"\n\t\r", R"("\n\t\r")"},
    QuoteCase{"\0\x01\x1f\x7f"s, R"("\u0000\u0001\u001f\u007f")"},
    QuoteCase{"\xC2\x80\xC2\x9F\xC2\xA0", "\"\\u0080\\u009f\xC2\xA0\""},  // C1 escaped, NBSP raw
    QuoteCase{"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\""},
    QuoteCase{"a\xff" "b\xC3", "\"a\xEF\xBF\xBD" "b\xEF\xBF\xBD\""},  // invalid bytes become U+FFFD
    QuoteCase{"\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""}));
// clang-format on

// Text echoed in messages: nothing reaches a terminal raw but whole, valid characters.
class MessageText : public testing::TestWithParam<QuoteCase> {};

TEST_P(MessageText, EscapesControlsAndStrayBytes) {
    EXPECT_EQ(kap_message_text(GetParam().raw), GetParam().quoted);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, MessageText, testing::Values(
    QuoteCase{"plain 'text' \"q\"", "plain 'text' \"q\""},
    QuoteCase{"\x1b[31mred\x07\0"s, R"(\x1b[31mred\x07\x00)"},
    QuoteCase{"a\\x1b", R"(a\\x1b)"},                           // a backslash cannot pose as an escape
    QuoteCase{"\xC3\xA9\xE2\x82\xAC \xC2\x9B", "\xC3\xA9\xE2\x82\xAC \\xc2\\x9b"},  // C1 control escaped
    QuoteCase{"\xC3x\xff\x7f", R"(\xc3x\xff\x7f)"}));
// clang-format on

TEST(Writer, InvalidUtf8IsRepairedSoTheTextAlwaysReads) {
    kapFileDocument doc;
    doc.kind = "k\xff";
    doc.name = "\xC0\xAF";
    doc.pairs = {{"A", "x\x80y", 0, 0}};
    kapFileError err;
    kapFileDocument back;
    ASSERT_TRUE(kap_read_entity_text(kap_write_entity_text(doc), back, err)) << err.message;
    EXPECT_EQ(back.kind, "k\xEF\xBF\xBD");
    EXPECT_EQ(back.pairs[0].value, "x\xEF\xBF\xBDy");
}

struct CheckCase {
    const char* label;
    void (*spoil)(kapFileDocument&);
    std::string message;
};

std::ostream& operator<<(std::ostream& os, const CheckCase& c) {
    return os << c.label;
}

class Check : public testing::TestWithParam<CheckCase> {};

TEST_P(Check, NamesTheFault) {
    kapFileDocument doc = boundary_example();
    kapFileError err;
    ASSERT_TRUE(kap_check_entity_document(doc, err)) << err.message;
    GetParam().spoil(doc);
    kapFileLimits limits;
    limits.max_line_bytes = 100;
    limits.max_pairs = 8;
    EXPECT_FALSE(kap_check_entity_document(doc, err, limits));
    EXPECT_EQ(err.message, GetParam().message);
    EXPECT_EQ(err.line, 0);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, Check, testing::Values(
    CheckCase{"empty_kind", [](kapFileDocument& d) { d.kind.clear(); }, "empty entity kind"},
    CheckCase{"negative_version", [](kapFileDocument& d) { d.version = -2; }, "negative entity version -2"},
    CheckCase{"bad_name", [](kapFileDocument& d) { d.name = "\xff"; }, "entity name is not valid UTF-8"},
    CheckCase{"key_with_space", [](kapFileDocument& d) { d.pairs[1].key = "Limit Boundary"; }, "pair 1 'Limit Boundary': invalid key"},
    CheckCase{"key_with_digit_first", [](kapFileDocument& d) { d.pairs[0].key = "1Type"; }, "pair 0 '1Type': invalid key"},
    CheckCase{"empty_key", [](kapFileDocument& d) { d.pairs[0].key.clear(); }, "pair 0 '': invalid key"},
    CheckCase{"duplicate", [](kapFileDocument& d) { d.pairs[4].key = "Origin"; }, "pair 4 'Origin': duplicate key (first at pair 3)"},
    CheckCase{"bad_value", [](kapFileDocument& d) { d.pairs[2].value = "\xC3"; }, "pair 2 'ThicknessSetValues[16].Mode': value is not valid UTF-8"},
    CheckCase{"long_line", [](kapFileDocument& d) { d.pairs[0].value = std::string(47, '\n'); }, "pair 0 'Type': line longer than 100 bytes"},
    CheckCase{"too_many", [](kapFileDocument& d) { d.pairs.push_back({"A", "", 0, 0}); d.pairs.push_back({"B", "", 0, 0}); }, "more than 8 pairs"}));
// clang-format on

TEST(Writer, CheckAcceptsALineExactlyAtTheLimit) {
    kapFileDocument doc = boundary_example();
    doc.pairs.resize(1);
    doc.pairs[0].value = std::string(46, '\n');  // Type = "..." is 4 + 3 + 2 + 92 = 101 bytes
    kapFileLimits limits;
    limits.max_line_bytes = 101;
    kapFileError err;
    EXPECT_TRUE(kap_check_entity_document(doc, err, limits)) << err.message;
}

// Random documents whose keys and values draw on everything the format must carry.
class DocumentGenerator {
  public:
    explicit DocumentGenerator(unsigned seed) : rng_(seed) {}

    kapFileDocument make() {
        kapFileDocument doc;
        doc.kind = pick(1, 12, kKindChars);
        doc.version = pick_int(0, 3) == 0 ? 2147483647 : pick_int(0, 40);
        doc.name = value();
        const int n = pick_int(0, 40);
        for (int i = 0; i < n; ++i) {
            // The index keeps keys unique; the rest of the key is random.
            std::string key =
                pick(1, 1, kKeyStart) + pick(0, 12, kKeyChars) + "." + std::to_string(i);
            doc.pairs.push_back({key, value(), 0, 0});
        }
        return doc;
    }

  private:
    static constexpr std::string_view kKindChars = "abcdefghijklmnopqrstuvwxyz_";
    static constexpr std::string_view kKeyStart = "abcXYZ_";
    static constexpr std::string_view kKeyChars = "abcXYZ019_.[]-:";

    int pick_int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

    std::string pick(int lo, int hi, std::string_view alphabet) {
        std::string s;
        for (int n = pick_int(lo, hi); n > 0; --n)
            s += alphabet[pick_int(0, alphabet.size() - 1)];
        return s;
    }

    std::string value() {
        // clang-format off
        static const std::string kPieces[] = {
            "a", "Z", "0", " ", "  ", "=", "#", "'", "\"", "\\", "\\u0041", "\\n", "\n", "\t",
            "\r", "\r\n", "\0"s, "\x01", "\x1b", "\x1f", "\x7f", "\xC2\x80", "\xC2\x9F",
            "\xC2\xA0", "\xC3\xA9", "\xE2\x82\xAC", "\xEF\xBF\xBD", "\xEF\xBB\xBF",
            "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "(0;0;1)", "2*Rootpar.Tolerance", "${x}",
            // the boundaries of each UTF-8 length and of the surrogate gap
            "~", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
            "\xF0\x90\x80\x80"};
        // clang-format on
        std::string s;
        for (int n = pick_int(0, 3) == 0 ? 0 : pick_int(1, 12); n > 0; --n) {
            s += kPieces[pick_int(0, std::size(kPieces) - 1)];
        }
        return s;
    }

    std::mt19937 rng_;
};

TEST(RoundTrip, GeneratedDocumentsReadBackExactlyAndWriteStably) {
    DocumentGenerator gen(20240601);
    for (int i = 0; i < 2000; ++i) {
        const kapFileDocument doc = gen.make();
        kapFileError err;
        ASSERT_TRUE(kap_check_entity_document(doc, err)) << err.message;
        const std::string text = kap_write_entity_text(doc);
        kapFileDocument back;
        ASSERT_TRUE(kap_read_entity_text(text, back, err))
            << "document " << i << ": " << err.line << ":" << err.column << ": " << err.message
            << "\n"
            << text;
        ASSERT_TRUE(kap_same_entity_content(doc, back)) << "document " << i << "\n" << text;
        ASSERT_EQ(kap_write_entity_text(back), text) << "document " << i;
        // Pair positions follow the canonical layout: header, blank line, one pair per line.
        for (std::size_t k = 0; k < back.pairs.size(); ++k) {
            ASSERT_EQ(back.pairs[k].line, static_cast<int>(k) + 6);
            ASSERT_EQ(back.pairs[k].column, 1);
        }
    }
}

TEST(RoundTrip, SameContentIgnoresPositionsButNotOrder) {
    kapFileDocument a = boundary_example();
    kapFileDocument b = a;
    b.pairs[0].line = 9;
    b.format_version = 3;
    EXPECT_TRUE(kap_same_entity_content(a, b));
    std::swap(b.pairs[0], b.pairs[1]);
    EXPECT_FALSE(kap_same_entity_content(a, b));
    b = a;
    b.pairs[6].value = " ";
    EXPECT_FALSE(kap_same_entity_content(a, b));
}

TEST(Keys, ValidKeyCharacters) {
    for (const char* key :
         {"a", "_", "Type", "ThicknessSetValues[16].Mode", "stockmodel.id", "a-b:c", "_0"}) {
        EXPECT_TRUE(kap_is_valid_file_key(key)) << key;
    }
    for (const char* key :
         {"", "0a", ".a", "[1]", "-a", "a b", "a=b", "a\"", "a#", "\xC3\xA9", "a\xC3\xA9", "a/b"}) {
        EXPECT_FALSE(kap_is_valid_file_key(key)) << key;
    }
}

}  // namespace
