// The protocol as the small entities follow it: registration, run-time types, copies, loaders,
// updaters and locking, checked over every small kind.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kappar/kapDrillingHolePar.h"
#include "kappar/kapLevelPar.h"
#include "kappar/kapModelPar.h"
#include "kappar/kapPatternPar.h"
#include "kappar/kapStockModelPar.h"
#include "kappar/kapWorkplanePar.h"

namespace {

struct KindCase {
    const char* kind;
    const char* class_name;
    int version;
    bool small_loader;  // applies the "fish.species" rule
};

// clang-format off
const KindCase kKinds[] = {
    {"workplane",    "kapWorkplanePar",    1, true},
    {"level",        "kapLevelPar",        1, true},
    {"pattern",      "kapPatternPar",      1, true},
    {"model",        "kapModelPar",        1, true},
    {"stockmodel",   "kapStockModelPar",   1, true},
    {"DrillingHole", "kapDrillingHolePar", 0, false},
};
// clang-format on

std::unique_ptr<kapParameterRoot> make(const KindCase& k) {
    return kapEntityKinds::create(k.kind, "E1");
}

// Value texts of every parameter below `par`, by path.
void collect_values(const kapParameter& par, const std::string& path,
                    std::vector<std::pair<std::string, std::string>>& out) {
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) {
        out.emplace_back(path, par.get_value_text());
        return;
    }
    for (std::size_t i = 0; i < map->size(); ++i) {
        const kapParameter& c = *map->child(i);
        const bool indexed = c.get_name().empty() || ut_is_kind_of<kapParameterList>(map);
        const std::string step = indexed ? "[" + std::to_string(i) + "]" : c.get_name();
        collect_values(c, path.empty() || indexed ? path + step : path + "." + step, out);
    }
}
std::vector<std::pair<std::string, std::string>> values_of(const kapParameter& par) {
    std::vector<std::pair<std::string, std::string>> out;
    collect_values(par, "", out);
    return out;
}

class SmallKinds : public ::testing::TestWithParam<KindCase> {};

TEST_P(SmallKinds, IsRegisteredAndConstructsAtItsVersion) {
    const KindCase& k = GetParam();
    const kapEntityKindInfo* info = kapEntityKinds::find(k.kind);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->class_name, k.class_name);
    EXPECT_EQ(info->version, k.version);
    auto root = make(k);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->get_root_type(), k.kind);
    EXPECT_EQ(root->get_root_name(), "E1");
    EXPECT_EQ(root->version(), k.version);
    EXPECT_FALSE(root->get_modified());
    EXPECT_TRUE(kap_schema_declared(k.kind));
    // The kind name is matched exactly: another letter case names no kind.
    EXPECT_EQ(kapEntityKinds::find(kapdowncase(k.kind) == k.kind ? std::string(k.kind) + "X"
                                                                 : kapdowncase(k.kind)),
              nullptr);
}

TEST_P(SmallKinds, CreateNewGivesAnEqualIndependentTree) {
    auto root = make(GetParam());
    std::unique_ptr<kapParameter> copy(root->create_new());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->ut_dynamic_type(), root->ut_dynamic_type());
    EXPECT_TRUE(copy->is_equal(*root));
    EXPECT_TRUE(root->is_equal(*copy));
    auto* copy_root = kapParameterRoot::ut_dynamic_cast(copy.get());
    ASSERT_NE(copy_root, nullptr);
    EXPECT_NE(copy_root->get_id(), root->get_id());
    EXPECT_EQ(kapParameterRoot::find_root(copy_root->get_id()), copy_root);
    EXPECT_EQ(copy_root->version(), root->version());
    // Values are the copy's own: writing every leaf of the copy leaves the source unchanged.
    const auto before = values_of(*root);
    for (const auto& [path, text] : values_of(*copy)) {
        (void)text;
        if (auto* p = const_cast<kapParameter*>(copy_root->find_node(path))) p->set_string("1");
    }
    EXPECT_EQ(values_of(*root), before);
}

TEST_P(SmallKinds, CreateLoaderIsNullWhileLocked) {
    auto root = make(GetParam());
    root->set_locked(true);
    std::unique_ptr<kapParameterLoader> loader(root->create_loader(kapPtrClaim{}, 1));
    EXPECT_EQ(loader, nullptr);
    EXPECT_FALSE(root->get_modified());
    {
        kapParameterNoLock unlocked;
        loader.reset(root->create_loader(kapPtrClaim{}, 1));
        EXPECT_NE(loader, nullptr);
    }
    loader.reset();
    root->set_locked(false);
    loader.reset(root->create_loader(kapPtrClaim{}, 3));
    ASSERT_NE(loader, nullptr);
    EXPECT_EQ(&loader->root(), root.get());
    EXPECT_EQ(loader->version(), 3);
}

// The rule left in on purpose: before version 5, ("fish.species", "cod") loads as "halibut".
struct FishCase {
    int version;
    const char* key;
    const char* value;
    const char* stored_by_small_loader;
};
// clang-format off
const FishCase kFish[] = {
    {4,  "fish.species", "cod",     "halibut"},
    {0,  "fish.species", "cod",     "halibut"},
    {-1, "fish.species", "cod",     "halibut"},  // signed comparison
    {5,  "fish.species", "cod",     "cod"},
    {6,  "fish.species", "cod",     "cod"},
    {4,  "fish.species", "Cod",     "Cod"},      // value matched with its case
    {4,  "fish.species", "cod ",    "cod "},
    {4,  "Fish.species", "cod",     "cod"},      // key matched with its case
    {4,  "fish.Species", "cod",     "cod"},
    {4,  "fish",         "cod",     "cod"},
    {4,  "fish.species", "halibut", "halibut"},
};
// clang-format on

TEST_P(SmallKinds, LoaderAppliesTheFishRuleExactly) {
    const KindCase& k = GetParam();
    for (const FishCase& f : kFish) {
        SCOPED_TRACE(testing::Message() << f.version << " " << f.key << "=" << f.value);
        auto root = make(k);
        auto& unrecognised = kapParameterUpdater::get_unrecognised_pars();
        unrecognised.clear();
        std::unique_ptr<kapParameterLoader> loader(root->create_loader(kapPtrClaim{}, f.version));
        ASSERT_NE(loader, nullptr);
        EXPECT_EQ(loader->load_par(kapParameterKey(f.key), f.value), 0);
        ASSERT_EQ(unrecognised.count(f.key), 1u);
        EXPECT_EQ(unrecognised[f.key], k.small_loader ? f.stored_by_small_loader : f.value);
    }
    kapParameterUpdater::get_unrecognised_pars().clear();
}

TEST_P(SmallKinds, UpdateAtTheCurrentVersionChangesNothing) {
    auto root = make(GetParam());
    root->set_modified(false);
    std::unique_ptr<kapParameter> before(root->create_new());
    kapParameterUpdater* updater = root->get_updater();
    ASSERT_NE(updater, nullptr);
    EXPECT_EQ(updater, root->get_updater());
    updater->update(root->version(), *root, utStringcoSList());
    EXPECT_TRUE(root->is_equal(*before));
    EXPECT_EQ(root->version(), GetParam().version);
    EXPECT_FALSE(root->get_modified());
}

TEST_P(SmallKinds, RunTimeTypeRejectsOtherKinds) {
    auto root = make(GetParam());
    EXPECT_TRUE(root->ut_is_kind_of(kapParameterRoot::ut_static_type()));
    EXPECT_TRUE(root->ut_is_kind_of(kapParameterMap::ut_static_type()));
    EXPECT_EQ(kapWorkplanePar::ut_dynamic_cast(nullptr), nullptr);
    const bool is_workplane = std::string(GetParam().kind) == "workplane";
    const bool is_model = std::string(GetParam().kind) == "model";
    EXPECT_EQ(kapWorkplanePar::ut_dynamic_cast(root.get()) != nullptr, is_workplane);
    EXPECT_EQ(kapModelPar::ut_dynamic_cast(root.get()) != nullptr, is_model);
    kapParameterMap plain;
    EXPECT_EQ(kapStockModelPar::ut_dynamic_cast(&plain), nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, SmallKinds, ::testing::ValuesIn(kKinds),
                         [](const auto& kind_info) { return std::string(kind_info.param.kind); });

// Each kind with an updater has its own singleton; the drilling hole uses the framework's.
TEST(SmallUpdaters, SingletonsAreOnePerClass) {
    kapWorkplanePar w("W");
    kapWorkplanePar w2("W2");
    kapLevelPar l("L");
    kapDrillingHolePar h("H");
    kapDrillingHolePar h2("H2");
    kapParameterRoot plain("anything", 0, "P");
    EXPECT_EQ(w.get_updater(), w2.get_updater());
    EXPECT_NE(w.get_updater(), l.get_updater());
    EXPECT_EQ(h.get_updater(), h2.get_updater());
    EXPECT_EQ(h.get_updater(), plain.get_updater());
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
    auto& unrecognised = kapParameterUpdater::get_unrecognised_pars();
    unrecognised.clear();
    std::unique_ptr<kapParameterLoader> loader(w.create_loader(kapPtrClaim{}, 0));
    ASSERT_NE(loader, nullptr);
    EXPECT_EQ(loader->load_par(kapParameterKey("origin"), "(10;-2.5;3)"), 1);
    EXPECT_EQ(loader->load_par(kapParameterKey("XAxis"), "(0;1;0)"), 1);
    EXPECT_EQ(loader->load_par(kapParameterKey("yaxis"), "(-1;0;0)"), 1);
    EXPECT_EQ(loader->load_par(kapParameterKey("Azimuth"), "30"), 1);
    EXPECT_EQ(loader->load_par(kapParameterKey("vnautolock"), "1"), 1);
    loader->finalise_loading();
    w.set_version(0);
    const auto before = values_of(w);
    w.get_updater()->update(0, w, utStringcoSList());
    EXPECT_EQ(w.version(), 1);
    EXPECT_EQ(values_of(w), before);
    EXPECT_EQ(w["Origin"]->get_string(), "(10;-2.5;3)");
    EXPECT_DOUBLE_EQ(w["Azimuth"]->get_double(), 30.0);
    EXPECT_EQ(w["VNAutoLock"]->get_int(), 1);
    EXPECT_TRUE(unrecognised.empty());
}

// Loading finds a parameter by its name and by its legacy key, in any letter case; pairs the
// schema does not hold are kept.
TEST(SmallLoaders, KeysFoundByNameAndLegacyKey) {
    struct Case {
        const char* key;
        const char* value;
        const char* path;
    };
    // clang-format off
    const Case cases[] = {
        {"XAxis",     "(0;0;1)", "XAxis"},
        {"xaxis",     "(0;1;0)", "XAxis"},
        {"ZANGLE",    "45",      "ZAngle"},
        {"elevation", "12.5",    "Elevation"},
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
    kapParameterUpdater::get_unrecognised_pars().clear();
    kapStockModelPar s("S");
    std::unique_ptr<kapParameterLoader> loader(s.create_loader(kapPtrClaim{}, 1));
    EXPECT_EQ(loader->load_par(kapParameterKey("thresholdthickness"), "0.5"), 1);
    EXPECT_EQ(loader->load_par(kapParameterKey("block.radius"), "4"), 0);
    EXPECT_DOUBLE_EQ(s["ThresholdThickness"]->get_double(), 0.5);
    EXPECT_EQ(kapParameterUpdater::get_unrecognised_pars()["block.radius"], "4");
    kapParameterUpdater::get_unrecognised_pars().clear();
}

// Own members: the pointers of workplanes and patterns start null and are copied.
TEST(SmallMembers, WorkplaneAndPatternPointersAreCopied) {
    const McWorkPlane host_wp(
        "Top", giWorkplane3(giPoint3(1, 2, 3), giVector3(1, 0, 0), giVector3(0, 1, 0)));
    kapPattern host_pattern("Holes");
    host_pattern.add_point(giPoint3(5, 5, 0));

    kapWorkplanePar w("W");
    EXPECT_EQ(w.get_workplane(), nullptr);
    w.set_workplane(&host_wp);
    std::unique_ptr<kapParameter> wc(w.create_new());
    auto* wcopy = kapWorkplanePar::ut_dynamic_cast(wc.get());
    ASSERT_NE(wcopy, nullptr);
    EXPECT_EQ(wcopy->get_workplane(), &host_wp);
    EXPECT_EQ(kapWorkplanePar(w).get_workplane(), &host_wp);
    wcopy->set_workplane(nullptr);
    EXPECT_EQ(w.get_workplane(), &host_wp);

    kapPatternPar p("P");
    EXPECT_EQ(p.get_pattern(), nullptr);
    p.set_pattern(&host_pattern);
    std::unique_ptr<kapParameter> pc(p.create_new());
    auto* pcopy = kapPatternPar::ut_dynamic_cast(pc.get());
    ASSERT_NE(pcopy, nullptr);
    EXPECT_EQ(pcopy->get_pattern(), &host_pattern);
    EXPECT_EQ(pcopy->get_pattern()->size(), 1u);
    // A copy is never re-declared: it keeps the values written before copying.
    w["Elevation"]->set_double(15);
    kapWorkplanePar w2(w);
    EXPECT_DOUBLE_EQ(w2["Elevation"]->get_double(), 15.0);
}

TEST(SmallMembers, DrillingHoleAndPatternDeclareNoParameters) {
    kapDrillingHolePar h("H");
    kapPatternPar p("P");
    EXPECT_EQ(h.size(), 0u);
    EXPECT_EQ(p.size(), 0u);
    EXPECT_TRUE(h["Anything"]->is_error());
    p.reset();
    h.reset();
    EXPECT_EQ(h.size(), 0u);
    EXPECT_EQ(p.size(), 0u);
}

}  // namespace
