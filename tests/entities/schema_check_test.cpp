// Checks made when a schema is declared: each fires on a table that breaks it (every registered
// kind passing them is checked in entity_kinds_test.cpp).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kappar/kapEntity.h"
#include "kappar/kapSchemaNotation.h"

namespace {
using namespace kap_decl;

// A root whose lookup_method answers "Answer".
class AnsweringRoot : public kapParameterRoot {
  public:
    AnsweringRoot() : kapParameterRoot("checked", 0, "R") {}
    kapParameterPtr lookup_method(const kapParameterKey& key) const override {
        if (key.str() == "Answer") return kapParameterPtr(new kapParameterString());
        return {};
    }
};

// clang-format off
KAP_BLOCK(Move)
KAP_FLAG   ("On",       "On",       "0",               "",                  "")
KAP_REAL   ("Distance", "Distance", "0",               "On AND Depth > 0",  "")
KAP_END_BLOCK

KAP_TABLE(kRows)
KAP_MAP    ("First",         "First",                  "",                  "")
KAP_REAL   ("First.Depth",   "Depth",   "1",           "",                  "")
KAP_MAP_OF ("First.Move",    Move,      "Move",        "",                  "")
KAP_MAP_OF ("Second",        Move,      "Move",        "",                  "")
KAP_REF    ("Link",          "Link",    "tool",        "",                  "")
KAP_FLAG   ("ThroughLink",   "T",       "0",           "Link.Anything",     "")
KAP_FLAG   ("FromRoot",      "R",       "0",           "RootPar.First.Depth > 0 AND Rootpar.Depth > 0", "")
KAP_FLAG   ("Method",        "M",       "0",           "Answer == '' OR Question == ''", "")
KAP_FLAG   ("Broken",        "B",       "0",           "First.Depth ==",    "")
KAP_REAL   ("Twice",         "Twice",   "2*Nowhere",   "",                  "")
KAP_REAL   ("Global",        "Global",  "0",           "{toolpath}.Tolerance > 0", "")
KAP_END_TABLE

KAP_TABLE(kLengthRows)
KAP_LENGTH ("Fine",          "Fine",    "0", "",       "",                  "")
KAP_LENGTH ("Both",          "Both",    "1", "0.04",   "",                  "")
KAP_LENGTH ("MetricOnly",    "Metric",  "5", "",       "",                  "")
KAP_END_TABLE
// clang-format on

TEST(SchemaCheck, EachCheckFires) {
    AnsweringRoot root;
    ASSERT_TRUE(kap_declare(&root, kRows, "Test"));
    constexpr std::string_view named[] = {"First.Move.On", "Second.Distance", "First.Nothing"};
    std::vector<utString> problems;
    kap_check_schema(root, problems, named);

    // Each expected problem by the texts it names; nothing else is reported (a name read through
    // a reference, from the root, through lookup_method or the global scope is accepted).
    const std::vector<std::vector<std::string>> expected = {
        {"Second.Distance", "\"Depth\""},  // the block placed where no "Depth" is in reach
        {"FromRoot", "\"Rootpar.Depth\""},
        {"Method", "\"Question\""},
        {"Broken", "does not compile"},
        {"Twice", "value", "\"Nowhere\""},
        {"\"First.Nothing\"", "leads to no parameter"},
    };
    ASSERT_EQ(problems.size(), expected.size()) << ::testing::PrintToString(problems);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        for (const std::string& text : expected[i]) {
            EXPECT_NE(problems[i].find(text), std::string::npos) << problems[i] << " / " << text;
        }
    }
}

TEST(SchemaCheck, LengthWithoutInchDefaultIsRefused) {
    kapParameterRoot root("checked", 0, "R");
    utString failed, reason;
    EXPECT_FALSE(kap_declare(&root, kLengthRows, "Test", &failed, &reason));
    EXPECT_EQ(failed, "MetricOnly");
    EXPECT_NE(reason.find("inch"), std::string::npos);
    EXPECT_NE(root.find_node("Both"), nullptr);  // the rows before it are declared
}

}  // namespace
