#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kappar/kapBoundaryPar.h"
#include "kappar/kapEntityFile.h"
#include "kappar/kapHistoryFactory.h"
#include "kapparameter/kapExpr.h"
#include "kapparameter/kapParameterFile.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// A boundary loaded from `pairs` saved at `version`, then updated; the unrecognised table is
// cleared first and holds what the loader left in it.
std::unique_ptr<kapBoundaryPar> load(int version, const Pairs& pairs) {
    kapParameterUpdater::get_unrecognised_pars().clear();
    auto b = std::make_unique<kapBoundaryPar>("B");
    std::unique_ptr<kapParameterLoader> loader(b->create_loader(kapPtrClaim{}, version));
    if (!loader) return nullptr;
    for (const auto& [k, v] : pairs) {
        loader->load_par(kapParameterKey(k), v);
    }
    b->get_updater()->update(version, *b, loader->loaded_keys());
    return b;
}

// -----------------------------------------------------------------------------------------------
// Protocol and the stated declarations

TEST(Boundary, OwnMemberIsCopied) {
    kapBoundaryPar b("B1");
    EXPECT_EQ(b.get_precedence(), 6);
    EXPECT_EQ(b.get_boundary(), nullptr);
    const auto* geometry = reinterpret_cast<const kapPattern*>(&b);  // any address will do
    b.set_boundary(geometry);
    std::unique_ptr<kapParameter> copy(b.create_new());
    const auto* c = kapBoundaryPar::ut_dynamic_cast(copy.get());
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->get_boundary(), geometry);
}

// Element 16 gets its collision thickness in the unit system of construction; 15 and 17 are
// ignored; the others keep the declared defaults. A later reset restores them.
class ThicknessSetDefaults : public ::testing::TestWithParam<std::pair<int, double>> {};

TEST_P(ThicknessSetDefaults, LastThreeSetsAfterConstructionAndReset) {
    kapUnitsScope scope(GetParam().first);
    kapBoundaryPar b("B");
    ASSERT_EQ(b["ThicknessSetValues"]->size(), 18u);
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(b["ThicknessSetValues[15].Mode"]->get_string(), "ignore");
        EXPECT_EQ(b["ThicknessSetValues[16].Mode"]->get_string(), "collision_check");
        EXPECT_EQ(b["ThicknessSetValues[17].Mode"]->get_string(), "ignore");
        EXPECT_DOUBLE_EQ(b["ThicknessSetValues[16].Thickness"]->get_double(), GetParam().second);
        b["ThicknessSetValues[16].Mode"]->set_string("machine");
        b["ThicknessSetValues[16].Thickness"]->set_double(1.0);
        b.reset();
    }
    // The shared prototype was not touched by the writes.
    kapBoundaryPar fresh("C");
    EXPECT_EQ(fresh["ThicknessSetValues[16].Mode"]->get_string(), "collision_check");
}

INSTANTIATE_TEST_SUITE_P(Units, ThicknessSetDefaults,
                         ::testing::Values(std::make_pair(0, 5.0), std::make_pair(1, 0.2)));

// A reset that runs while another reset is declaring the tree only clears the flag: it neither
// empties nor declares the tree, and the outer reset still finishes its work.
class ReenteringBoundary : public kapBoundaryPar {
  public:
    using kapBoundaryPar::kapBoundaryPar;
    void build_tree(kapParameter* parent) override {
        ++builds;
        if (reenter) {
            reenter = false;
            flag_on_entry = is_resetting();
            reset();
            flag_after_inner = is_resetting();
        }
        kapBoundaryPar::build_tree(parent);
    }
    bool reenter = false;
    bool flag_on_entry = false;
    bool flag_after_inner = true;
    int builds = 0;
};

TEST(Boundary, ResetReentryOnlyClearsTheFlag) {
    ReenteringBoundary b("B");  // built as a kapBoundaryPar: the override is not yet in place
    EXPECT_EQ(b.builds, 0);
    b["ThicknessSetValues[17].Mode"]->set_string("machine");
    b.reenter = true;
    b.reset();
    EXPECT_EQ(b.builds, 1);
    EXPECT_TRUE(b.flag_on_entry);
    EXPECT_FALSE(b.flag_after_inner);
    EXPECT_FALSE(kapBoundaryPar::is_resetting());
    EXPECT_EQ(b["ThicknessSetValues[17].Mode"]->get_string(), "ignore");
    // The flag is clear again: the next reset runs in full.
    b["ThicknessSetValues[17].Mode"]->set_string("machine");
    b.reset();
    EXPECT_EQ(b.builds, 2);
    EXPECT_EQ(b["ThicknessSetValues[17].Mode"]->get_string(), "ignore");
}

// -----------------------------------------------------------------------------------------------
// Synonyms (the paths the code names are checked when the schema is declared)

TEST(Boundary, SynonymTableResolves) {
    kapBoundaryPar b("B");
    const auto rows = kapBoundaryPar::key_synonyms();
    std::set<std::string_view> legacy;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.legacy));
        EXPECT_TRUE(legacy.insert(row.legacy).second);
        EXPECT_EQ(b.lookup_key_synonym(utString(row.legacy)), row.current);
        // Spelt as declared: lookups fold letter case, so another spelling would still be found.
        const kapParameter* target = b.find_node(row.current);
        ASSERT_NE(target, nullptr);
        EXPECT_EQ(kap_entity_key(*target), row.current);
        // Exact and case-sensitive: another spelling is passed on unchanged.
        utString upper(row.legacy);
        upper[0] = static_cast<char>(upper[0] - 'a' + 'A');
        EXPECT_EQ(b.lookup_key_synonym(upper), upper);
    }

    // The state the updater compares with is one the enumeration declares.
    EXPECT_GE(kapParameterEnum::ut_dynamic_cast(b.find_node("Type"))->find_state("contact_conv"),
              0);
    // The old radius must not resolve, so that it lands in the unrecognised table.
    for (const char* key : {"block.radius", "Block.Radius"}) {
        EXPECT_EQ(b.find_node(b.lookup_key_synonym(key)), nullptr) << key;
    }
}

// -----------------------------------------------------------------------------------------------
// Loader

struct LoadCase {
    const char* key;
    const char* value;
    int result;                 // what load_par answers
    const char* stored_at;      // where the value lands, or null
    const char* stored;         // the value text read back there
    bool kept_as_unrecognised;  // under the key as given
};

class BoundaryLoader : public ::testing::TestWithParam<LoadCase> {};

TEST_P(BoundaryLoader, LegacyRules) {
    const LoadCase& c = GetParam();
    kapParameterUpdater::get_unrecognised_pars().clear();
    kapBoundaryPar b("B");
    kapBoundaryPar untouched("U");
    std::unique_ptr<kapParameterLoader> loader(b.create_loader(kapPtrClaim{}, 1));
    ASSERT_NE(loader, nullptr);
    EXPECT_EQ(loader->load_par(kapParameterKey(c.key), c.value), c.result);
    if (c.stored_at != nullptr) {
        EXPECT_EQ(b[c.stored_at]->get_value_text(), c.stored);
        ASSERT_EQ(loader->loaded_keys().size(), 1u);
        EXPECT_EQ(loader->loaded_keys()[0], c.stored_at);
    } else {
        EXPECT_TRUE(loader->loaded_keys().empty());
        EXPECT_TRUE(b.is_equal(untouched));
    }
    EXPECT_EQ(kapParameterUpdater::get_unrecognised_pars().contains(c.key), c.kept_as_unrecognised);
    EXPECT_EQ(kapParameterUpdater::get_unrecognised_pars().size(), c.kept_as_unrecognised ? 1 : 0);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, BoundaryLoader, ::testing::Values(
    LoadCase{"use_min_angle", "1",     0, nullptr, nullptr, false},
    LoadCase{"use_min_angle", "",      0, nullptr, nullptr, false},
    LoadCase{"Use_Min_Angle", "1",     0, nullptr, nullptr, true},    // only the exact key is dropped
    LoadCase{"stockmodel",    "",      0, nullptr, nullptr, true},    // kept under its own key
    LoadCase{"stockmodel",    "42",    1, "StockModelState.StockModel", "42", false},
    LoadCase{"stockmodel.id", "43",    1, "StockModelState.StockModel", "43", false},
    LoadCase{"StockModel",    "42",    0, nullptr, nullptr, true},    // the rename is exact too
    LoadCase{"fish.species",  "cod",   0, nullptr, nullptr, true},    // no small-entity rule here
    LoadCase{"tolerance",     "0.05",  1, "Tolerance", "0.05", false},
    LoadCase{"holder_check",  "1",     1, "CollisionCheck", "1", false},
    LoadCase{"limit.mode",    "outside", 1, "Limit.Mode", "outside", false},
    LoadCase{"stockmodel.state", "After Roughing", 1, "StockModelState.Entity", "After Roughing", false},
    LoadCase{"ThicknessSetValues[3].Mode", "avoid", 1, "ThicknessSetValues[3].Mode", "avoid", false}));
// clang-format on

// -----------------------------------------------------------------------------------------------
// Updater

// What a boundary saved at `version` with `pairs` holds once updated, as value texts.
struct UpdateCase {
    int version;
    Pairs pairs;
    Pairs after;
};

class BoundaryUpdate : public ::testing::TestWithParam<UpdateCase> {};

TEST_P(BoundaryUpdate, StepsToTheCurrentVersion) {
    kapUnitsScope metric(0);
    const UpdateCase& c = GetParam();
    auto b = load(c.version, c.pairs);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->version(), 3);
    for (const auto& [path, text] : c.after)
        EXPECT_EQ(b->find_node(path)->get_value_text(), text) << path;
}

// The contact conversion moves its limit boundary; the old radius becomes a diameter.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, BoundaryUpdate, ::testing::Values(
    UpdateCase{1, {{"Type", "contact_conv"}, {"Limit.Boundary", "12"}}, {{"ContactPointBoundary", "12"}, {"Limit.Boundary", ""}}},
    UpdateCase{0, {{"type", "contact_conv"}, {"limit.boundary", "12"}}, {{"ContactPointBoundary", "12"}, {"Limit.Boundary", ""}}},
    UpdateCase{1, {{"Type", "rest"}, {"Limit.Boundary", "12"}}, {{"ContactPointBoundary", ""}, {"Limit.Boundary", "12"}}},
    UpdateCase{1, {{"Type", "contact_point"}, {"Limit.Boundary", "12"}}, {{"ContactPointBoundary", ""}, {"Limit.Boundary", "12"}}},
    UpdateCase{1, {{"Type", "Contact_Conv"}, {"Limit.Boundary", "12"}}, {{"ContactPointBoundary", ""}, {"Limit.Boundary", "12"}}},
    UpdateCase{2, {{"Type", "contact_conv"}, {"Limit.Boundary", "12"}}, {{"ContactPointBoundary", ""}, {"Limit.Boundary", "12"}}},
    UpdateCase{1, {{"Type", "contact_conv"}}, {{"ContactPointBoundary", ""}, {"Limit.Boundary", ""}}},
    UpdateCase{2, {{"block.radius", "10"}}, {{"Block.Diameter", "20"}}},
    UpdateCase{2, {{"Block.Radius", "7.5"}}, {{"Block.Diameter", "15"}}},
    UpdateCase{2, {{"block.radius", "10"}, {"Block.Radius", "4"}}, {{"Block.Diameter", "20"}}},  // the legacy key first
    UpdateCase{2, {{"block.radius", ""}, {"Block.Radius", "4"}}, {{"Block.Diameter", "8"}}},
    UpdateCase{0, {{"block.radius", "3"}}, {{"Block.Diameter", "6"}}},
    UpdateCase{2, {}, {{"Block.Diameter", "100"}}},
    UpdateCase{2, {{"BLOCK.RADIUS", "10"}}, {{"Block.Diameter", "100"}}},
    UpdateCase{2, {{"block.radius", "wide"}}, {{"Block.Diameter", "100"}}},
    UpdateCase{3, {{"block.radius", "10"}}, {{"Block.Diameter", "100"}}}));  // saved at the current version: no step runs
// clang-format on

// -----------------------------------------------------------------------------------------------
// Locking

TEST(Boundary, ExclusiveUnlocksToleranceThicknessAndTool) {
    kapBoundaryPar b("B");
    kapParameterRoot toolpath("toolpath", 29, "T1");
    kapParameterRoot tool("tool", 0, "D10");
    kapObjectId gone;
    {
        kapParameterRoot temporary("toolpath", 29, "T2");
        gone = temporary.get_id();
    }
    // What Tolerance, Thickness and Tool are locked by with Exclusive naming `exclusive`: a root
    // of another kind, or one that no longer lives, is not a valid reference.
    struct Case {
        kapObjectId exclusive;
        bool unlocked;
    };
    for (const Case& c : {Case{kapObjectId{}, false}, Case{toolpath.get_id(), true},
                          Case{tool.get_id(), false}, Case{gone, false}}) {
        b["Exclusive"]->set_ref_from_id(c.exclusive);
        for (const char* p : {"Tolerance", "Thickness", "Tool"}) {
            EXPECT_EQ(b.get_lock_id_imp(*b[p]), c.unlocked ? kapObjectId{} : b.get_id()) << p;
        }
        for (const char* p : {"Type", "AxialThickness", "EdgeTolerance", "Block.Diameter",
                              "ReferenceTool", "Exclusive"}) {
            EXPECT_EQ(b.get_lock_id_imp(*b[p]), b.get_id()) << p;
        }
        b.set_locked(true);
        EXPECT_EQ(b["Tolerance"]->set_double(c.unlocked ? 0.25 : 0.5), c.unlocked);
        EXPECT_FALSE(b["Type"]->set_string("rest"));
        b.set_locked(false);
    }
}

// -----------------------------------------------------------------------------------------------
// "edits"

struct Seen {
    int calls = 0;
    kapRefToObjectId ref;
    utString name;
    int flag = -1;
    kapParameterPtr answer;
};

kapParameterPtr history(const kapRefToObjectId& ref, const utString& name, int flag, void* data) {
    auto* seen = static_cast<Seen*>(data);
    ++seen->calls;
    seen->ref = ref;
    seen->name = name;
    seen->flag = flag;
    return seen->answer;
}

class BoundaryEdits : public ::testing::Test {
  protected:
    void TearDown() override { kapHistoryFactory::reset_callback_function(); }
};

TEST_F(BoundaryEdits, FetchTheListAndItsChildren) {
    kapBoundaryPar b("B");
    // Without a callback there is nothing to fetch.
    EXPECT_TRUE(b.lookup_method("edits").empty());
    EXPECT_TRUE(b.lookup_method("edits.List").empty());
    Seen seen;
    auto* list = new kapParameterMap();
    seen.answer = kapParameterPtr(list);
    kapParameterPtr edits = list->add("List", kapParameterPtr(new kapParameterList()));
    kapHistoryFactory::set_callback_function(&history, &seen);

    EXPECT_EQ(b.lookup_method("edits"), seen.answer);
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.ref, b.get_ref_to_id());
    EXPECT_EQ(seen.name, "boundary");
    EXPECT_EQ(seen.flag, 0);

    EXPECT_EQ(b.lookup_method("Edits"), seen.answer);  // the name ignores letter case
    EXPECT_EQ(b.lookup_method("edits.List"), edits);
    kapParameterPtr missing = b.lookup_method("edits.Nothing");
    ASSERT_TRUE(missing);
    EXPECT_TRUE(missing->is_error());
    EXPECT_EQ(seen.calls, 4);

    // An error answer is handed back as it stands, remainder or not.
    seen.answer = kapParameterError::create(kapErrGeneric, "no list");
    EXPECT_EQ(b.lookup_method("edits.List"), seen.answer);
    // Other names go to the base.
    const int calls = seen.calls;
    EXPECT_TRUE(b.lookup_method("editsx").empty());
    EXPECT_EQ(seen.calls, calls);
}

// -----------------------------------------------------------------------------------------------
// Activity (needs the evaluator binding)

bool active(kapBoundaryPar& b, const char* path) {
    return b[path]->is_active();
}

TEST(BoundaryActivity, FollowsTypeAndFlags) {
    kapBoundaryPar b("B");
    EXPECT_FALSE(active(b, "Tolerance"));  // a block boundary has no tolerance to show
    EXPECT_TRUE(active(b, "Block.Limits.XMin"));
    EXPECT_FALSE(active(b, "Block.Diameter"));
    EXPECT_FALSE(active(b, "Halden.Type"));
    b["Block.Type"]->set_string("cylinder");
    EXPECT_TRUE(active(b, "Block.Diameter"));
    EXPECT_FALSE(active(b, "Block.Limits.XMin"));

    b["Type"]->set_string("rest");
    EXPECT_TRUE(active(b, "Tolerance"));
    EXPECT_TRUE(active(b, "ReferenceTool"));
    EXPECT_FALSE(active(b, "StockModelState.StockModel"));
    EXPECT_FALSE(active(b, "Clearance.Holder"));
    b["CollisionCheck"]->set_int(1);
    EXPECT_TRUE(active(b, "Clearance.Holder"));

    b["Type"]->set_string("halden");
    EXPECT_TRUE(active(b, "Halden.Slope.Minimum"));
    EXPECT_FALSE(active(b, "Halden.RestMachining.CutterRadius"));
    b["Halden.Type"]->set_string("slope_rest");
    b["Halden.RestMachining.UsingRestTool"]->set_int(1);
    EXPECT_TRUE(active(b, "Halden.RestMachining.CutterRadius"));
    EXPECT_FALSE(active(b, "ReferenceTool"));

    b["Type"]->set_string("stockmodel_rest");
    EXPECT_TRUE(active(b, "StockModelState.StockModel"));
    b["Type"]->set_string("boolean_operation");
    EXPECT_TRUE(active(b, "BooleanOperation.BoundaryA"));
    EXPECT_FALSE(active(b, "Thickness"));

    b["Type"]->set_string("shallow");
    b["ThicknessSets"]->set_int(1);
    EXPECT_FALSE(active(b, "ThicknessSetValues[4].AxialThickness"));
    b["ThicknessSetValues[4].UseAxialThickness"]->set_int(1);
    EXPECT_TRUE(active(b, "ThicknessSetValues[4].AxialThickness"));
    EXPECT_FALSE(active(b, "ThicknessSetValues[5].AxialThickness"));
}

}  // namespace
