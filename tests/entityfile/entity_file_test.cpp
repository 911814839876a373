// Saved entities end to end: text -> document -> loader -> updater -> tree -> document -> text.
#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <string>
#include <vector>

#include "kappar/kapBoundaryPar.h"
#include "kappar/kapEntityFile.h"
#include "kappar/kapLevelPar.h"
#include "kappar/kapSchema.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Generated trees: random declarations, random values, random pairs the schema does not hold.

class GeneratedSchema {
  public:
    explicit GeneratedSchema(unsigned seed) : rng_(seed) {
        add_maps("", 0);
        // A sequence whose elements are addressed "Seq[i]".
        rows_.push_back(kapDeclRow{.path = keep("Seq"),
                                   .legacy = {},
                                   .label = "Seq",
                                   .kind = kapDeclKind::array,
                                   .size = 3});
        rows_.push_back(kapDeclRow{.path = keep("Seq[].Depth"), .legacy = {}, .label = "Depth"});
        rows_.push_back(kapDeclRow{.path = keep("Seq[].Mode"),
                                   .legacy = {},
                                   .label = "Mode",
                                   .kind = kapDeclKind::enumeration,
                                   .states = states(),
                                   .def = "s0"});
    }

    std::unique_ptr<kapParameterRoot> make() const {
        auto root = std::make_unique<kapParameterRoot>("generated", 3, "Generated");
        utString failed;
        EXPECT_TRUE(kap_declare(root.get(), rows_, "General", &failed)) << failed;
        return root;
    }

    // Gives every value parameter of the tree a random value of its kind.
    void randomise(kapParameterMap& map) {
        for (std::size_t i = 0; i < map.size(); ++i) {
            kapParameter& p = *map.child(i);
            if (p.is_map()) {
                randomise(static_cast<kapParameterMap&>(p));
                continue;
            }
            switch (p.type()) {
                case kapParameterType::numeric:
                    set_number(p);
                    break;
                case kapParameterType::enumeration:
                    // Now and then a legacy text that is no longer a state: it must survive.
                    p.set_string(pick(4) == 0 ? "legacy_" + std::to_string(pick(100))
                                              : "s" + std::to_string(pick(3)));
                    break;
                case kapParameterType::string:
                    p.set_string(random_text());
                    break;
                case kapParameterType::vector:
                    p.set_string("(" + number_text() + ";" + number_text() + ";" + number_text() +
                                 ")");
                    break;
                default:
                    break;
            }
        }
    }

    std::vector<kapFilePair> unknown_pairs() {
        std::vector<kapFilePair> pairs;
        const int n = pick(4);
        for (int i = 0; i < n; ++i) {
            pairs.push_back({"old_setting_" + std::to_string(i) + ".value", random_text(), 0, 0});
        }
        return pairs;
    }

  private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

    std::string_view keep(std::string text) { return texts_.emplace_back(std::move(text)); }

    std::span<const kapDeclState> states() {
        static const kapDeclState kStates[] = {
            {"s0", "S0", ""}, {"s1", "S1", ""}, {"s2", "S2", ""}};
        return kStates;
    }

    void add_maps(const std::string& prefix, int depth) {
        const int leaves = 2 + pick(5);
        for (int i = 0; i < leaves; ++i) {
            const std::string path = prefix + "P" + std::to_string(counter_++);
            kapDeclRow row{.path = keep(path), .legacy = {}, .label = keep("Label " + path)};
            static constexpr kapDeclKind kKinds[] = {kapDeclKind::real,        kapDeclKind::integer,
                                                     kapDeclKind::flag,        kapDeclKind::angle,
                                                     kapDeclKind::string,      kapDeclKind::vector,
                                                     kapDeclKind::enumeration, kapDeclKind::real};
            const int k = pick(8);
            row.kind = kKinds[k];
            if (row.kind == kapDeclKind::enumeration) {
                row.states = states();
                row.def = "s1";
            }
            if (k == 7) row.dim = kapDimLength;
            rows_.push_back(row);
        }
        if (depth < 3) {
            const int maps = pick(3);
            for (int i = 0; i < maps; ++i) {
                const std::string path = prefix + "M" + std::to_string(counter_++);
                rows_.push_back(kapDeclRow{.path = keep(path),
                                           .legacy = {},
                                           .label = keep(path),
                                           .kind = kapDeclKind::map});
                add_maps(path + ".", depth + 1);
            }
        }
    }

    std::string number_text() {
        static const char* const kTexts[] = {
            "0", "-1.5", "1e-9", "123456.789012345678", "0.1", "3.141592653589793", "-0"};
        if (pick(2) == 0) return kTexts[pick(7)];
        return std::to_string(std::uniform_real_distribution<double>(-1e6, 1e6)(rng_));
    }

    void set_number(kapParameter& p) {
        if (p.subtype() == kapSubTypeFlag) {
            p.set_int(pick(2));
        } else if (p.subtype() == kapSubTypeInteger) {
            p.set_int(pick(2000) - 1000);
        } else if (pick(5) == 0) {
            p.set_string("max(0.3;2*" + std::to_string(pick(9)) + ")");  // kept as written
        } else {
            p.set_double(std::uniform_real_distribution<double>(-1e6, 1e6)(rng_));
        }
    }

    std::string random_text() {
        static const char* const kPieces[] = {
            "plain", " ",      "\"quoted\"", "back\\slash",    "new\nline", "tab\there", "é",
            "漢字",  "${2*3}", "=",          "#not a comment", "\r",        "\x01",      ""};
        std::string s;
        const int n = pick(5);
        for (int i = 0; i < n; ++i)
            s += kPieces[pick(14)];
        return s;
    }

    std::mt19937 rng_;
    std::deque<std::string> texts_;
    std::vector<kapDeclRow> rows_;
    int counter_ = 0;
};

class GeneratedRoundTrip : public ::testing::TestWithParam<unsigned> {};

TEST_P(GeneratedRoundTrip, SaveAndLoadGivesAnEqualTreeAndKeepsUnrecognisedPairs) {
    GeneratedSchema schema(GetParam());
    auto saved = schema.make();
    schema.randomise(*saved);
    const std::vector<kapFilePair> unknown = schema.unknown_pairs();

    const kapFileDocument doc = kap_entity_document(*saved, unknown);
    kapFileError err;
    ASSERT_TRUE(kap_check_entity_document(doc, err)) << err.message;
    kapFileDocument read;
    ASSERT_TRUE(kap_read_entity_text(kap_write_entity_text(doc), read, err)) << err.message;

    auto loaded = schema.make();
    kapEntityLoadReport report;
    ASSERT_TRUE(kap_load_entity_into(*loaded, read, report, err)) << err.message;
    EXPECT_TRUE(loaded->is_equal(*saved));
    EXPECT_EQ(report.loaded + static_cast<int>(unknown.size()),
              static_cast<int>(read.pairs.size()));
    ASSERT_EQ(report.unrecognised.size(), unknown.size());
    for (std::size_t i = 0; i < unknown.size(); ++i) {
        EXPECT_EQ(report.unrecognised[i].key, unknown[i].key);
        EXPECT_EQ(report.unrecognised[i].value, unknown[i].value);
        EXPECT_GT(report.unrecognised[i].line, 0);
    }
    EXPECT_TRUE(report.dropped.empty());
    EXPECT_FALSE(loaded->get_modified());

    // Saved again with what the load reported, the document is the same.
    EXPECT_TRUE(kap_same_entity_content(kap_entity_document(*loaded, report.unrecognised), doc));
}

INSTANTIATE_TEST_SUITE_P(Seeds, GeneratedRoundTrip, ::testing::Range(0u, 24u));

TEST(EntityDocument, WritesEveryValueInDeclarationOrderWithSequenceIndices) {
    GeneratedSchema schema(7);
    auto root = schema.make();
    const kapFileDocument doc = kap_entity_document(*root);
    EXPECT_EQ(doc.kind, "generated");
    EXPECT_EQ(doc.version, 3);
    EXPECT_EQ(doc.name, "Generated");
    ASSERT_GE(doc.pairs.size(), 6u);
    const auto n = doc.pairs.size();
    EXPECT_EQ(doc.pairs[n - 6].key, "Seq[0].Depth");
    EXPECT_EQ(doc.pairs[n - 1].key, "Seq[2].Mode");
    EXPECT_EQ(doc.pairs[n - 1].value, "s0");
    for (const auto& p : doc.pairs) {
        const kapParameter* node = root->find_node(p.key);
        ASSERT_NE(node, nullptr) << p.key;
        EXPECT_EQ(kap_entity_key(*node), p.key);
    }
}

// ---------------------------------------------------------------------------------------------
// A real entity saved by an older version.

utString example(const char* name) {
    return utString(KAPPAR_SOURCE_DIR "/examples/") + name;
}

std::vector<std::string> keys_of(const std::vector<kapFilePair>& pairs) {
    std::vector<std::string> keys;
    for (const auto& p : pairs)
        keys.push_back(p.key);
    return keys;
}

TEST(BoundaryFile, VersionOneContactConversionIsUpgradedAndKeepsWhatItDoesNotKnow) {
    kapUnitsScope metric(0);
    kapEntityLoadReport report;
    kapFileError err;
    auto root = kap_read_entity(example("boundary_v1_contact_conv.kap"), report, err);
    ASSERT_NE(root, nullptr) << err.message;
    auto* b = kapBoundaryPar::ut_dynamic_cast(root.get());
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(report.saved_version, 1);
    EXPECT_EQ(report.version, kapBoundaryPar::kVersion);
    EXPECT_EQ(b->version(), kapBoundaryPar::kVersion);
    EXPECT_EQ(b->get_root_name(), "Contact Conversion 1");
    EXPECT_EQ((*b)["Block.Diameter"]->get_double(), 20.0);
    EXPECT_EQ((*b)["ContactPointBoundary"]->get_ref_id().value, 12u);
    EXPECT_TRUE((*b)["Limit.Boundary"]->get_ref_id().empty());
    EXPECT_DOUBLE_EQ((*b)["Tolerance"]->get_double(), 0.05);
    EXPECT_EQ((*b)["CollisionCheck"]->get_int(), 1);
    EXPECT_DOUBLE_EQ((*b)["ThresholdThickness"]->get_double(), 0.3);
    EXPECT_EQ(keys_of(report.unrecognised),
              (std::vector<std::string>{"block.radius", "surface_finish"}));
    EXPECT_EQ(keys_of(report.dropped), (std::vector<std::string>{"use_min_angle"}));
    EXPECT_FALSE(b->get_modified());

    // Upgrading the upgraded file changes nothing.
    const kapFileDocument once = kap_entity_document(*b, report.unrecognised);
    kapFileDocument read;
    ASSERT_TRUE(kap_read_entity_text(kap_write_entity_text(once), read, err)) << err.message;
    kapEntityLoadReport again;
    auto second = kap_load_entity(read, again, err);
    ASSERT_NE(second, nullptr) << err.message;
    EXPECT_TRUE(kap_same_entity_content(kap_entity_document(*second, again.unrecognised), once));
    EXPECT_EQ((*second)["Block.Diameter"]->get_double(), 20.0);
}

// The steps that run depend on the saved version only.
struct StepCase {
    int version;
    double diameter;
    bool moved;  // the contact point boundary taken out of the limit
};

void PrintTo(const StepCase& c, std::ostream* os) {
    *os << "version " << c.version;
}

class BoundarySteps : public ::testing::TestWithParam<StepCase> {};

TEST_P(BoundarySteps, RunFromTheSavedVersion) {
    kapUnitsScope metric(0);
    const StepCase c = GetParam();
    const std::string text = "kappar-entity 1\nkind \"boundary\"\nversion " +
                             std::to_string(c.version) +
                             "\nname \"B\"\n\nType = \"contact_conv\"\nLimit.Boundary = \"7\"\n"
                             "block.radius = \"10\"\n";
    kapFileDocument doc;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_text(text, doc, err)) << err.message;
    kapEntityLoadReport report;
    auto b = kap_load_entity(doc, report, err);
    ASSERT_NE(b, nullptr) << err.message;
    EXPECT_EQ((*b)["Block.Diameter"]->get_double(), c.diameter);
    EXPECT_EQ((*b)["ContactPointBoundary"]->get_ref_id().value, c.moved ? 7u : 0u);
    EXPECT_EQ((*b)["Limit.Boundary"]->get_ref_id().value, c.moved ? 0u : 7u);
    EXPECT_EQ(b->version(), kapBoundaryPar::kVersion);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, BoundarySteps,
    ::testing::Values(StepCase{0, 20.0, true}, StepCase{1, 20.0, true}, StepCase{2, 20.0, false},
                      StepCase{kapBoundaryPar::kVersion,
                               kapBoundaryPar("D")["Block.Diameter"]->get_double(), false}));

TEST(BoundaryFile, LegacyKeysAndSynonymsFindTheirParameters) {
    const char* text =
        "kappar-entity 1\nkind \"boundary\"\nversion 3\nname \"B\"\n\n"
        "stockmodel.id = \"41\"\n"         // synonym table
        "block.limits.xmin = \"-12.5\"\n"  // legacy keys along the path
        "THICKNESS = \"0.25\"\n"           // names ignore letter case
        "ThicknessSetValues[16].Mode = \"ignore\"\n";
    kapFileDocument doc;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_text(text, doc, err)) << err.message;
    kapEntityLoadReport report;
    auto b = kap_load_entity(doc, report, err);
    ASSERT_NE(b, nullptr) << err.message;
    EXPECT_EQ(report.loaded, 4);
    EXPECT_EQ((*b)["StockModelState.StockModel"]->get_ref_id().value, 41u);
    EXPECT_DOUBLE_EQ((*b)["Block.Limits.XMin"]->get_double(), -12.5);
    EXPECT_DOUBLE_EQ((*b)["Thickness"]->get_double(), 0.25);
    EXPECT_EQ((*b)["ThicknessSetValues[16].Mode"]->get_string(), "ignore");
}

// Two pairs that set one parameter: the first value is loaded, the second is reported with both
// positions and kept as unrecognised, so saving writes it back and loading that changes nothing.
struct DuplicateCase {
    const char* name;
    const char* first;   // a pair line
    const char* second;  // a pair line setting the same parameter
    const char* path;
    const char* kept;  // the value the parameter holds
};

class DuplicateKeys : public ::testing::TestWithParam<DuplicateCase> {};

TEST_P(DuplicateKeys, FirstIsLoadedSecondIsReportedAndKept) {
    const DuplicateCase& c = GetParam();
    const std::string text =
        std::string("kappar-entity 1\nkind \"boundary\"\nversion 3\nname \"B\"\n\n") + c.first +
        "\nType = \"rest\"\n" + c.second + "\n";
    kapFileDocument doc;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_text(text, doc, err)) << err.message;
    kapEntityLoadReport report;
    auto b = kap_load_entity(doc, report, err);
    ASSERT_NE(b, nullptr) << err.message;
    EXPECT_EQ((*b)[c.path]->get_value_text(), c.kept);
    ASSERT_EQ(report.duplicates.size(), 1u);
    EXPECT_EQ(report.duplicates[0].first.line, 6);
    EXPECT_EQ(report.duplicates[0].second.line, 8);
    EXPECT_EQ(report.duplicates[0].second.key, doc.pairs[2].key);
    ASSERT_EQ(report.unrecognised.size(), 1u);
    EXPECT_EQ(report.unrecognised[0].key, doc.pairs[2].key);
    EXPECT_EQ(report.loaded, 2);

    const kapFileDocument saved = kap_entity_document(*b, report.unrecognised);
    EXPECT_EQ(saved.pairs.back().key, doc.pairs[2].key);
    EXPECT_EQ(saved.pairs.back().value, doc.pairs[2].value);
    kapEntityLoadReport again;
    auto b2 = kap_load_entity(saved, again, err);
    ASSERT_NE(b2, nullptr) << err.message;
    EXPECT_TRUE(kap_same_entity_content(kap_entity_document(*b2, again.unrecognised), saved));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, DuplicateKeys, ::testing::Values(
    DuplicateCase{"LetterCase", "Thickness = \"0.25\"", "thickness = \"0.5\"", "Thickness", "0.25"},
    DuplicateCase{"LegacyPath", "Block.Limits.XMin = \"1\"", "block.limits.xmin = \"2\"", "Block.Limits.XMin", "1"},
    DuplicateCase{"Synonym", "StockModelState.StockModel = \"41\"", "stockmodel.id = \"42\"", "StockModelState.StockModel", "41"},
    DuplicateCase{"LoaderRename", "StockModelState.StockModel = \"41\"", "stockmodel = \"43\"", "StockModelState.StockModel", "41"}),
    [](const auto& p) { return std::string(p.param.name); });
// clang-format on

// ---------------------------------------------------------------------------------------------
// Bad input: a message with a position, and the target entity left as it was.

struct BadCase {
    const char* name;
    std::string text;
    int line;
    int column;
    const char* message_part;
};

std::string header(const char* kind, int version) {
    return "kappar-entity 1\nkind \"" + std::string(kind) + "\"\nversion " +
           std::to_string(version) + "\nname \"L\"\n\n";
}

std::vector<BadCase> bad_cases() {
    return {
        {"UnknownKind", header("spaceship", 0), 2, 6, "entity kind 'spaceship'"},
        {"OtherKind", header("boundary", 0), 2, 6, "where 'level' was expected"},
        {"NewerVersion", header("level", 99), 3, 9, "newer than"},
        {"Truncated", "kappar-entity 1\nkind \"lev", 2, 0, ""},
        {"Binary",
         std::string("\x7f"
                     "ELF\x02\x01\x01\x00\x00",
                     9),
         1, 0, ""},
        {"BadEscape", header("level", 1) + "Type = \"a\\qb\"\n", 6, 0, ""},
        {"DuplicateKey", header("level", 1) + "Type = \"set\"\nType = \"level\"\n", 7, 0, ""},
        {"LongLine", header("level", 1) + "Type = \"" + std::string(2 << 20, 'x') + "\"\n", 6, 0,
         ""},
    };
}

void PrintTo(const BadCase& c, std::ostream* os) {
    *os << c.name;
}

class BadInput : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadInput, AnswersAnErrorWithItsPositionAndLeavesTheEntityAsItWas) {
    const BadCase& c = GetParam();
    kapLevelPar level("Kept");
    level["Type"]->set_string("set");
    const std::unique_ptr<kapParameter> before(level.create_new());
    const int version = level.version();

    kapFileDocument doc;
    kapFileError err;
    kapEntityLoadReport report;
    bool ok = kap_read_entity_text(c.text, doc, err);
    if (ok) ok = kap_load_entity_into(level, doc, report, err);
    EXPECT_FALSE(ok);
    EXPECT_EQ(err.line, c.line) << err.message;
    if (c.column > 0) {
        EXPECT_EQ(err.column, c.column) << err.message;
    }
    EXPECT_NE(err.message.find(c.message_part), std::string::npos) << err.message;
    EXPECT_FALSE(err.message.empty());
    EXPECT_TRUE(level.is_equal(*before));
    EXPECT_EQ(level.version(), version);
    EXPECT_EQ(level.get_root_name(), "Kept");
    EXPECT_EQ(level["Type"]->get_string(), "set");
}

INSTANTIATE_TEST_SUITE_P(Cases, BadInput, ::testing::ValuesIn(bad_cases()),
                         [](const auto& bad) { return std::string(bad.param.name); });

TEST(BadInput, UnknownKindThroughTheFactory) {
    kapFileDocument doc;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_text(header("spaceship", 0), doc, err));
    kapEntityLoadReport report;
    EXPECT_EQ(kap_load_entity(doc, report, err), nullptr);
    EXPECT_EQ(kap_format_file_error("a.kap", err), "a.kap:2:6: unknown entity kind 'spaceship'");
}

TEST(BadInput, LockedEntityIsNotLoaded) {
    kapLevelPar level("Locked");
    level.set_locked(true);
    const std::unique_ptr<kapParameter> before(level.create_new());
    kapFileDocument doc;
    kapFileError err;
    ASSERT_TRUE(kap_read_entity_text(header("level", 1) + "Type = \"set\"\n", doc, err));
    kapEntityLoadReport report;
    EXPECT_FALSE(kap_load_entity_into(level, doc, report, err));
    EXPECT_NE(err.message.find("locked"), std::string::npos);
    EXPECT_TRUE(level.is_equal(*before));
}

TEST(BadInput, MissingFileHasNoPosition) {
    kapEntityLoadReport report;
    kapFileError err;
    EXPECT_EQ(kap_read_entity("/nonexistent/dir/x.kap", report, err), nullptr);
    EXPECT_EQ(err.line, 0);
    EXPECT_FALSE(err.message.empty());
}

}  // namespace
