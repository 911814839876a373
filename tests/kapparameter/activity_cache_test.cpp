// Activity answers are remembered between questions: every change that a condition can read must
// show in the very next answer.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kapparameter/kapParameter.h"
#include "kapparameter/kapParameterLoader.h"
#include "par_builders.h"

namespace {

kapParameter* mut(const kapParameter* p) {
    return const_cast<kapParameter*>(p);
}

// A value read through a callback is read again each time it is asked for.
double g_external = 0.0;
void read_external(const kapParameter* p) {
    const_cast<kapParameter*>(p)->set_double(g_external);
}

// part: Strategy, Tolerance 0.1, Name "a", Tool -> tool{Diameter 10}, Shield 5,
//       Block{Y, Shield 0.5, Inner{X, Z}}, Limit = Tolerance*10, External (read through a
//       callback), where Block.Inner and its leaves carry conditions.
struct Trees {
    kapParameterRoot tool{"tool", 1, "T1"};
    kapParameterRoot big_tool{"tool", 1, "T2"};
    kapParameterRoot part{"part", 1, "P1"};
    Trees() {
        tool.add("Diameter", number(10));
        big_tool.add("Diameter", number(30));
        part.add("Strategy", choice({"raster", "offset", "pencil"}, "raster"));
        part.add("Tolerance", number(0.1));
        part.add("Name", text("a"));
        part.add("Tool", ref_to(tool));
        part.add("Block", map());
        part.add("Block.Y", number(1));
        part.add("Shield", number(5));
        part.add("Block.Shield", number(0.5));  // answers for the root's Shield below Block
        part.add("Block.Inner", map());
        part.add("Block.Inner.X", number(2));
        part.add("Block.Inner.Z", number(3));
        part.add("Limit", formula("Tolerance*10"));
        g_external = 0.5;
        part.add("External", number(0))->set_onread_callback(&read_external);
    }
    kapParameter& at(const char* path) { return *mut(part.find_node(path)); }
};

struct StaleCase {
    const char* name;
    const char* map_condition;   // on Block.Inner ("" for none)
    const char* leaf_condition;  // on Block.Inner.X and Block.Inner.Z
    std::function<void(Trees&)> change;
};

class ActivityFollowsChanges : public ::testing::TestWithParam<StaleCase> {};

TEST_P(ActivityFollowsChanges, NextAnswerSeesTheChange) {
    const StaleCase& c = GetParam();
    Trees t;
    if (*c.map_condition) t.at("Block.Inner").set_active(c.map_condition);
    t.at("Block.Inner.X").set_active(c.leaf_condition);
    t.at("Block.Inner.Z").set_active(c.leaf_condition);
    for (int i = 0; i < 3; ++i) {  // asked again and again: answered from memory
        ASSERT_TRUE(t.at("Block.Inner.X").is_active());
        ASSERT_TRUE(t.at("Block.Inner.Z").is_active());
        ASSERT_TRUE(t.at("Block.Inner").is_active());
    }
    c.change(t);
    EXPECT_FALSE(t.at("Block.Inner.X").is_active()) << c.name;
    EXPECT_FALSE(t.at("Block.Inner.Z").is_active()) << c.name;
    EXPECT_TRUE(t.at("Block.Y").is_active()) << c.name;
}

const StaleCase kStaleCases[] = {
    {"enum set_int", "", "Strategy=='raster'", [](Trees& t) { t.at("Strategy").set_int(2); }},
    {"numeric set_string", "", "Tolerance<1", [](Trees& t) { t.at("Tolerance").set_string("5"); }},
    {"numeric set_int", "", "Tolerance<1", [](Trees& t) { t.at("Tolerance").set_int(7); }},
    {"string set_string", "", "Name=='a'", [](Trees& t) { t.at("Name").set_string("b"); }},
    {"loader", "", "Tolerance<1",
     [](Trees& t) {
         kapParameterLoader loader(t.part, 1);
         EXPECT_EQ(loader.load_par(kapParameterKey("Tolerance"), "5"), 1);
         loader.finalise_loading();
     }},
    {"copy_value_from", "", "Tolerance<1",
     [](Trees& t) { t.at("Tolerance").copy_value_from(*number(5)); }},
    {"set_ref_from_id", "", "Tool.Diameter<20",
     [](Trees& t) { t.at("Tool").set_ref_from_id(t.big_tool.get_id()); }},
    {"value in the referenced root", "", "Tool.Diameter<20",
     [](Trees& t) { mut(t.tool.find_node("Diameter"))->set_double(25); }},
    {"map condition, enum", "Strategy=='raster'", "Tolerance<1",
     [](Trees& t) { t.at("Strategy").set_string("pencil"); }},
    {"map condition, number", "Tolerance<1", "Strategy=='raster'",
     [](Trees& t) { t.at("Tolerance").set_double(2); }},
    {"map condition edited", "", "Tolerance<1",
     [](Trees& t) { t.at("Block.Inner").set_active("Tolerance>1"); }},
    {"the shadowing child removed", "", "Shield<1",
     [](Trees& t) { ASSERT_TRUE(t.part.remove(kapParameterKey("Block.Shield"))); }},
    {"the shadowing child renamed", "", "Shield<1",
     [](Trees& t) { t.at("Block.Shield").set_name("Guard"); }},
    {"a value an expression reads", "", "Limit<5",
     [](Trees& t) { t.at("Tolerance").set_double(1); }},
    {"a value read through a callback", "", "External<1", [](Trees&) { g_external = 3.0; }},
};

INSTANTIATE_TEST_SUITE_P(Writes, ActivityFollowsChanges, ::testing::ValuesIn(kStaleCases));

// Many trees asked in turn share the remembered answers' room; each keeps its own answer.
TEST(ActivityCache, ManyTreesInterleaved) {
    constexpr int kTrees = 400;
    std::vector<std::unique_ptr<kapParameterRoot>> roots;
    for (int i = 0; i < kTrees; ++i) {
        auto r = std::make_unique<kapParameterRoot>("part", 1, "P" + std::to_string(i));
        r->add("Level", number(1));
        r->add("Even", number(i % 2 == 0 ? 1 : 0));
        r->add("A", map());
        r->add("A.B", map())->set_active("Level>=0");
        for (const char* leaf : {"A.B.x", "A.B.y", "A.z"}) {
            r->add(leaf, number(0))->set_active("Even==1");
        }
        roots.push_back(std::move(r));
    }
    // Trees from `changed_from` on have Even flipped, and every third of them Level below 0.
    auto check = [&](int changed_from) {
        for (int pass = 0; pass < 2; ++pass) {
            for (int i = 0; i < kTrees; ++i) {
                const bool changed = i >= changed_from;
                const bool even = (i % 2 == 0) != changed;
                const bool map = !(changed && i % 3 == 0);
                ASSERT_EQ(mut(roots[i]->find_node("A.B"))->is_active(), map) << i;
                ASSERT_EQ(mut(roots[i]->find_node("A.B.x"))->is_active(), even && map) << i;
                ASSERT_EQ(mut(roots[i]->find_node("A.B.y"))->is_active(), even && map) << i;
                ASSERT_EQ(mut(roots[i]->find_node("A.z"))->is_active(), even) << i;
            }
        }
    };
    check(kTrees);
    for (int i = kTrees / 2; i < kTrees; ++i) {
        mut(roots[i]->find_node("Even"))->set_double(i % 2 == 0 ? 0 : 1);
        if (i % 3 == 0) mut(roots[i]->find_node("Level"))->set_double(-1);
    }
    check(kTrees / 2);
}

// A tree freed and another built in its place answer for themselves.
TEST(ActivityCache, RebuiltTreeAnswersAfresh) {
    for (int round = 0; round < 20; ++round) {
        kapParameterRoot r("part", 1, "P");
        r.add("Level", number(round));
        r.add("A", map());
        r.add("A.x", number(0))->set_active(round % 2 == 0 ? "Level>=0" : "Level<0");
        EXPECT_EQ(mut(r.find_node("A.x"))->is_active(), round % 2 == 0) << round;
    }
}

}  // namespace
