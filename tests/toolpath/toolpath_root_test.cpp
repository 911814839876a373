// The toolpath root: the host's legacy list, computed values, strategy classifications and queries.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/McTPCompHead.h"
#include "host/kapMcParList.h"
#include "kappar/kapToolpathPar.h"
#include "kappar/kapToolpathParUtils.h"
#include "kapparameter/kapEvaluator.h"

namespace {

double computed(const kapToolpathPar& tp, const char* name) {
    const kapParameterPtr v = tp.lookup_method(kapParameterKey(name));
    EXPECT_TRUE(v && !v->is_error()) << name;
    return v ? v->get_double() : -1.0;
}

struct ListItem {
    char kind;  // 'p' plain, 's' strategy, 'b' boundary
    std::string strategy;
    std::vector<std::pair<std::string, std::string>> pairs;
};
struct ListCase {
    const char* name;
    std::vector<ListItem> items;
    std::string strategy;
    std::string diameter;  // "Block.Diameter" afterwards
};

class LegacyList : public ::testing::TestWithParam<ListCase> {};

TEST_P(LegacyList, CopiesIntoTheRoot) {
    kapMcParList list;
    for (const ListItem& i : GetParam().items) {
        kapMcParItem* item = nullptr;
        if (i.kind == 's') {
            item =
                &list.add(std::make_unique<kapMcParStrategy>(kapToolpathStrategyType(i.strategy)));
        } else if (i.kind == 'b') {
            item = &list.add(std::make_unique<kapMcParBoundary>());
        } else {
            item = &list.add(std::make_unique<kapMcParItem>());
        }
        for (const auto& [k, v] : i.pairs)
            item->add(k, v);
    }
    kapToolpathPar tp("T");
    tp.copy_from_parlist(list);
    EXPECT_EQ(tp.find("Strategy")->get_string(), GetParam().strategy);
    EXPECT_EQ(tp.find("Block.Diameter")->get_value_text(), GetParam().diameter);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Items, LegacyList, ::testing::Values(
    ListCase{"UnknownKeepsWhatItemsSet",       {{'s', "unknown", {{"Strategy", "constantz"}}}},                 "constantz", "100"},
    ListCase{"LaterStrategyItemWins",          {{'s', "raster", {}}, {'p', "", {{"Block.Diameter", "80"}}},
                                                {'s', "offset_3d", {}}},                                        "offset_3d", "80"},
    ListCase{"StrategyTypeOverridesItemValue", {{'s', "spiral", {{"Strategy", "radial"}}}},                     "spiral",    "100"},
    ListCase{"BoundaryItemsSkipped",           {{'b', "", {{"Block.Diameter", "55"}, {"Strategy", "drill"}}}},  "raster",    "100"}),
    [](const auto& p) { return std::string(p.param.name); });
// clang-format on

TEST(ToolpathRoot, ListRoundTripKeepsValues) {
    kapToolpathPar a("A");
    ASSERT_TRUE(a.find("Strategy")->set_string("constantz"));
    ASSERT_TRUE(a.find("FeedRate.Cutting.Value")->set_double(1234));
    kapMcParList list;
    a.copy_to_parlist(list);
    kapToolpathPar b("B");
    b.copy_from_parlist(list);
    EXPECT_EQ(b.find("Strategy")->get_string(), "constantz");
    EXPECT_DOUBLE_EQ(b.find("FeedRate.Cutting.Value")->get_double(), 1234);
}

// The radius has a floor in each unit system; the spacing ignores the unit system.
TEST(ToolpathRoot, FeedRateDefaults) {
    struct Case {
        int units;
        double feed, radius, spacing;
    };
    const double v = 20000.0 / 60.0;
    for (const Case& c :
         {Case{0, 0, 1.0, 0.0}, Case{1, 0, 0.04, 0.0}, Case{0, 1000, 1.0, 0.05},
          Case{1, 1000, 1000.0 / 60 * 1000.0 / 60 / 60, 0.05}, Case{0, 20000, v * v / 1500, 1.0}}) {
        SCOPED_TRACE(std::to_string(c.units) + " " + std::to_string(c.feed));
        kapUnitsScope units(c.units);
        kapToolpathPar tp("T");
        ASSERT_TRUE(tp.find("FeedRate.Cutting.Value")->set_double(c.feed));
        EXPECT_NEAR(computed(tp, "DefaultMinimumRadius"), c.radius, 1e-12);
        EXPECT_NEAR(computed(tp, "defaultminimumpointspacing"), c.spacing, 1e-12);
    }
}

TEST(ToolpathRoot, LinkedToolpathAndCopies) {
    kapToolpathPar tp("T");
    EXPECT_EQ(computed(tp, "num_comp"), 0);
    const McTPCompHead head({7, 8, 9});
    tp.set_toolpath(&head);
    EXPECT_EQ(computed(tp, "NUM_COMP"), 3);
    EXPECT_EQ(computed(tp, "hash"), head.geometrical_id(1));
    kapToolpathParLoaderState::key_strings().insert("other");
    kapToolpathParLoaderState::cached_strings()[2] = "x";
    kapToolpathParLoaderState::cached_flag() = true;
    std::unique_ptr<kapParameter> copy(tp.create_new());
    EXPECT_EQ(static_cast<kapToolpathPar&>(*copy).get_toolpath(), &head);
    EXPECT_EQ(kapToolpathParLoaderState::key_strings(), (utStringcoSet{"join_up", "one_way"}));
    EXPECT_EQ(kapToolpathParLoaderState::cached_strings()[2], "");
    EXPECT_FALSE(kapToolpathParLoaderState::cached_flag());
}

// Strategy classifications of the root and the queries decided by strategy alone.
TEST(ToolpathRoot, ClassificationsByStrategy) {
    struct Case {
        const char* strategy;
        bool probing;
        int turning;
        bool contact_normals;
        bool external;
    };
    kapToolpathPar tp("T");
    for (const Case& c :
         {Case{"hole_inspection", true, 0, true, false},
          Case{"surface_inspection", true, 0, true, false},
          Case{"turn_pattern", false, 1, true, false}, Case{"turn_roughing", false, 1, true, false},
          Case{"slot", false, 0, false, false}, Case{"raster", false, 0, true, false},
          Case{"hsm_finishing", false, 0, true, true}}) {
        SCOPED_TRACE(c.strategy);
        ASSERT_TRUE(tp.find("Strategy")->set_string(c.strategy));
        EXPECT_EQ(tp.is_probing(), c.probing);
        EXPECT_EQ(tp.is_turning(), c.turning);
        EXPECT_EQ(kapToolpathParUtils::strategy_supports_contact_normals(tp), c.contact_normals);
        EXPECT_EQ(kapToolpathParUtils::is_external(tp), c.external);
        EXPECT_EQ(kapToolpathParUtils::toolpath_supports_collision_check(tp),
                  !c.probing && c.turning == 0 && !c.external);
    }
}

// These read parameters of the area clearance and general groups as well.
TEST(ToolpathRoot, QueriesOverOtherGroups) {
    kapToolpathPar tp("T");
    struct Maelstrom {
        const char* strategy;
        const char* type;
        bool is;
    };
    for (const Maelstrom& m : {Maelstrom{"curve_area_clear", "adaptive", true},
                               Maelstrom{"curve_area_clear", "offset", false},
                               Maelstrom{"adaptive_area_clear", "offset", true}}) {
        ASSERT_TRUE(tp.find("Strategy")->set_string(m.strategy));
        ASSERT_TRUE(tp.find("AreaClearance.Type")->set_string(m.type)) << m.type;
        EXPECT_EQ(kapToolpathParUtils::is_maelstrom(tp), m.is) << m.strategy << " " << m.type;
    }
    ASSERT_TRUE(tp.find("Strategy")->set_string("raster"));
    EXPECT_FALSE(kapToolpathParUtils::is_additive(tp));
    ASSERT_TRUE(tp.find("ManufacturingProcess")->set_string("additive"));
    EXPECT_TRUE(kapToolpathParUtils::is_additive(tp));
    for (const char* action : {"discard", "keep", "abort"}) {
        ASSERT_TRUE(tp.find("ActionOnCollision")->set_string(action));
        const bool active = tp.find("ActionOnCollision")->is_active();
        EXPECT_EQ(kapToolpathParUtils::require_to_keep_colliding_moves(tp),
                  active && std::string(action) != "discard");
    }
}

// Multi-axis by strategy, by the tool axis texts (states, or texts a file left that are no
// states: "tilted", "adjusted"), and by collision avoidance where its map is active.
TEST(ToolpathRoot, MultiAxis) {
    struct Case {
        const char* strategy;
        const char* type;
        const char* fixed;
        const char* avoid;
        int multi_axis;
    };
    kapToolpathPar tp("T");
    for (const Case& c :
         {Case{"raster", "vertical", "none", "0", 0}, Case{"raster", "lead_lean", "none", "0", 2},
          Case{"raster", "lead_lean", "azimuth", "0", 0}, Case{"raster", "tilted", "none", "0", 2},
          Case{"raster", "lead_lean", "adjusted", "0", 0},
          Case{"raster", "vertical", "none", "1", 3}, Case{"drill", "vertical", "none", "1", 0},
          Case{"rotary", "vertical", "none", "0", 1}}) {
        SCOPED_TRACE(std::string(c.strategy) + " " + c.type + " " + c.fixed + " " + c.avoid);
        ASSERT_TRUE(tp.find("Strategy")->set_string(c.strategy));
        ASSERT_TRUE(tp.find("ToolAxis.Type")->set_string(c.type));
        ASSERT_TRUE(tp.find("ToolAxis.FixedAngle.Mode")->set_string(c.fixed));
        ASSERT_TRUE(tp.find("CollisionAvoidance.Active")->set_string(c.avoid));
        EXPECT_EQ(kapToolpathParUtils::is_multi_axis(tp), c.multi_axis);
    }
}

}  // namespace
