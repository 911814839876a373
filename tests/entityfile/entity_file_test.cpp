// Saved entities end to end: text -> document -> loader -> updater -> tree -> document -> text.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kappar/kapEntityFile.h"
#include "kappar/kapLevelPar.h"
#include "kappar/kapSchema.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Every registered kind, with every value changed and pairs its schema does not hold.

// Gives every value below `par` another value of its kind; texts take quotes, escapes, line
// breaks and bytes beyond ASCII, numbers now and then an expression.
void change_every_value(kapParameter& par, int& n) {
    if (auto* map = kapParameterMap::ut_dynamic_cast(&par)) {
        for (const kapParameterPtr& c : map->children())
            change_every_value(*c, n);
        return;
    }
    ++n;
    switch (par.type()) {
        case kapParameterType::numeric:
            if (par.subtype() == kapSubTypeFlag) {
                par.set_int(1 - par.get_int());
            } else if (n % 7 == 0) {
                par.set_string("max(0.3;2*" + std::to_string(n % 9) + ")");  // kept as written
            } else {
                par.set_double(par.get_double() + 1.5);
            }
            break;
        case kapParameterType::enumeration: {
            const auto& e = static_cast<const kapParameterEnum&>(par);
            // Now and then a legacy text that is no longer a state: it must survive.
            if (n % 5 == 0) {
                par.set_string("legacy_" + std::to_string(n));
            } else if (e.num_states() > 0) {
                par.set_string(e.state((n + 1) % e.num_states()).key);
            }
            break;
        }
        case kapParameterType::string:
            par.set_string(par.get_string() + "\"q\" back\\slash\nline\t\xC3\xA9 ${2*3} = #" +
                           std::to_string(n));
            break;
        case kapParameterType::vector:
            par.set_string("(1.5;-2;" + std::to_string(n) + ")");
            break;
        default:
            break;
    }
}

class EveryKind : public ::testing::TestWithParam<kapEntityKindInfo> {};

TEST_P(EveryKind, SaveAndLoadGivesAnEqualTreeAndKeepsUnrecognisedPairs) {
    std::unique_ptr<kapParameterRoot> saved = kapEntityKinds::create(GetParam().kind, "Saved");
    int n = 0;
    {
        const kapBlockParUpdateCallbacks quiet;
        change_every_value(*saved, n);
    }
    const std::vector<kapFilePair> unknown = {{"old_setting_0.value", "\"x\"\n", 0, 0},
                                              {"old_setting_1.value", "", 0, 0}};
    const kapFileDocument doc = kap_entity_document(*saved, unknown);
    EXPECT_EQ(doc.kind, GetParam().kind);
    EXPECT_EQ(doc.version, GetParam().version);
    EXPECT_EQ(doc.name, "Saved");
    // Every pair names its parameter, array elements by their index ("ThicknessSetValues[3]").
    for (std::size_t i = 0; i + unknown.size() < doc.pairs.size(); ++i) {
        const kapParameter* node = saved->find_node(doc.pairs[i].key);
        ASSERT_NE(node, nullptr) << doc.pairs[i].key;
        EXPECT_EQ(kap_entity_key(*node), doc.pairs[i].key);
    }
    kapFileError err;
    ASSERT_TRUE(kap_check_entity_document(doc, err)) << err.message;
    kapFileDocument read;
    ASSERT_TRUE(kap_read_entity_text(kap_write_entity_text(doc), read, err)) << err.message;

    std::unique_ptr<kapParameterRoot> loaded = kapEntityKinds::create(GetParam().kind, "Saved");
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

INSTANTIATE_TEST_SUITE_P(All, EveryKind, ::testing::ValuesIn(kapEntityKinds::all()),
                         [](const auto& kind_info) { return std::string(kind_info.param.kind); });

// Two pairs that set one parameter: the first value is loaded, the second is reported with both
// positions and kept as unrecognised, so saving writes it back.
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
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, DuplicateKeys, ::testing::Values(
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

const BadCase kBadCases[] = {
    {"UnknownKind", header("spaceship", 0), 2, 6, "entity kind 'spaceship'"},
    {"OtherKind", header("boundary", 0), 2, 6, "where 'level' was expected"},
    {"NewerVersion", header("level", 99), 3, 9, "newer than"},
};

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
    ASSERT_TRUE(kap_read_entity_text(c.text, doc, err)) << err.message;
    EXPECT_FALSE(kap_load_entity_into(level, doc, report, err));
    EXPECT_EQ(err.line, c.line) << err.message;
    EXPECT_EQ(err.column, c.column) << err.message;
    EXPECT_NE(err.message.find(c.message_part), std::string::npos) << err.message;
    EXPECT_TRUE(level.is_equal(*before));
    EXPECT_EQ(level.version(), version);
    EXPECT_EQ(level.get_root_name(), "Kept");
}

INSTANTIATE_TEST_SUITE_P(Cases, BadInput, ::testing::ValuesIn(kBadCases),
                         [](const auto& bad) { return std::string(bad.param.name); });

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

}  // namespace
