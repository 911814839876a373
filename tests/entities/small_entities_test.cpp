// The small entities: activity, unit-dependent defaults, loading by name and legacy key, the update
// lists, and the members of their own that copies keep.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kappar/kapLevelPar.h"
#include "kappar/kapModelPar.h"
#include "kappar/kapPatternPar.h"
#include "kappar/kapStockModelPar.h"
#include "kappar/kapWorkplanePar.h"

namespace {

TEST(LevelSchema, ClampIsActiveOnlyForLevels) {
    kapLevelPar l("L");
    EXPECT_TRUE(l["IsClamp"]->is_active());
    ASSERT_TRUE(l["Type"]->set_string("set"));
    EXPECT_FALSE(l["IsClamp"]->is_active());
    ASSERT_TRUE(l["Type"]->set_string("level"));
    EXPECT_TRUE(l["IsClamp"]->is_active());
}

// An entity made in one unit system keeps its defaults when the system changes later.
TEST(StockModelSchema, DefaultsFollowTheUnitSystemAtConstruction) {
    std::unique_ptr<kapStockModelPar> metric;
    {
        kapUnitsScope scope(0);
        metric = std::make_unique<kapStockModelPar>("M");
    }
    kapUnitsScope inch(1);
    EXPECT_DOUBLE_EQ((*metric)["Tolerance"]->get_double(), 0.1);
    EXPECT_DOUBLE_EQ((*metric)["Stepover"]->get_double(), 2.0);
}

struct UpdaterCase {
    const char* name;
    const kapParameterSimpleUpdatercoSList* (*list)();
    void (*create)();
    kapParameterUpdateFn step;
    kapParameterRoot* (*make)();
};

template <class Entity, class Updater>
UpdaterCase updater_case(const char* name) {
    return {name, &Updater::update_list, &Updater::create_updater_list,
            &Updater::update_from_0_to_1, []() -> kapParameterRoot* { return new Entity("U"); }};
}

// The list that update builds on first use is the list create_updater_list builds; once built it
// is kept: create_updater_list neither replaces nor refills it.
TEST(SmallUpdaters, ListBuiltByUpdateEqualsCreatedList) {
    const UpdaterCase cases[] = {
        updater_case<kapWorkplanePar, kapWorkplaneParUpdater>("workplane"),
        updater_case<kapLevelPar, kapLevelParUpdater>("level"),
        updater_case<kapPatternPar, kapPatternParUpdater>("pattern"),
        updater_case<kapModelPar, kapModelParUpdater>("model"),
        updater_case<kapStockModelPar, kapStockModelParUpdater>("stockmodel"),
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<kapParameterRoot> root(c.make());
        root->get_updater()->update(0, *root, utStringcoSList());
        EXPECT_EQ(root->version(), 1);
        ASSERT_NE(c.list(), nullptr);
        const kapParameterSimpleUpdatercoSList lazy = *c.list();
        ASSERT_EQ(lazy.size(), 1u);
        EXPECT_EQ(lazy[0], c.step);
        const kapParameterSimpleUpdatercoSList* built = c.list();
        c.create();
        c.create();
        EXPECT_EQ(c.list(), built);
        EXPECT_EQ(*c.list(), lazy);
    }
}

TEST(SmallUpdaters, WorkplaneFromVersionZeroKeepsItsValues) {
    kapWorkplanePar w("W");
    ASSERT_TRUE(w["Origin"]->set_string("(10;-2.5;3)"));
    ASSERT_TRUE(w["Azimuth"]->set_string("30"));
    ASSERT_TRUE(w["VNAutoLock"]->set_int(1));
    w.set_version(0);
    const std::unique_ptr<kapParameter> before(w.create_new());
    w.get_updater()->update(0, w, utStringcoSList());
    EXPECT_EQ(w.version(), 1);
    EXPECT_TRUE(w.is_equal(*before));
}

// Loading finds a parameter by its name and by its legacy key, in any letter case.
TEST(SmallLoaders, KeysFoundByNameAndLegacyKey) {
    struct Case {
        const char* key;
        const char* value;
        const char* path;
    };
    // clang-format off
    const Case cases[] = {
        {"xaxis",     "(0;1;0)", "XAxis"},
        {"ZANGLE",    "45",      "ZAngle"},
        {"Elevation", "7",       "Elevation"},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        kapWorkplanePar w("W");
        std::unique_ptr<kapParameterLoader> loader(w.create_loader(kapPtrClaim{}, 1));
        EXPECT_EQ(loader->load_par(kapParameterKey(c.key), c.value), 1);
        const kapParameter* p = w.find_node(c.path);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->get_value_text(), c.value);
    }
}

// Own members: the pointers of workplanes and patterns start null and are copied.
TEST(SmallMembers, WorkplaneAndPatternPointersAreCopied) {
    const McWorkPlane host_wp(
        "Top", giWorkplane3(giPoint3(1, 2, 3), giVector3(1, 0, 0), giVector3(0, 1, 0)));
    kapPattern host_pattern("Holes");

    kapWorkplanePar w("W");
    EXPECT_EQ(w.get_workplane(), nullptr);
    w.set_workplane(&host_wp);
    std::unique_ptr<kapParameter> wc(w.create_new());
    auto* wcopy = kapWorkplanePar::ut_dynamic_cast(wc.get());
    ASSERT_NE(wcopy, nullptr);
    EXPECT_EQ(wcopy->get_workplane(), &host_wp);
    wcopy->set_workplane(nullptr);
    EXPECT_EQ(w.get_workplane(), &host_wp);

    kapPatternPar p("P");
    EXPECT_EQ(p.get_pattern(), nullptr);
    p.set_pattern(&host_pattern);
    std::unique_ptr<kapParameter> pc(p.create_new());
    auto* pcopy = kapPatternPar::ut_dynamic_cast(pc.get());
    ASSERT_NE(pcopy, nullptr);
    EXPECT_EQ(pcopy->get_pattern(), &host_pattern);
    // A copy is never re-declared: it keeps the values written before copying.
    w["Elevation"]->set_double(15);
    kapWorkplanePar w2(w);
    EXPECT_DOUBLE_EQ(w2["Elevation"]->get_double(), 15.0);
}

}  // namespace
