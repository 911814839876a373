// Loading saved toolpaths: the renamed keys, the legacy rewrites and the corner-filleting
// conversion.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kappar/kapEntityFile.h"
#include "kappar/kapToolpathPar.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// A toolpath loaded from `pairs` saved at `version`, loading finished and, if asked, updated; the
// unrecognised table is cleared first.
std::unique_ptr<kapToolpathPar> load(int version, const Pairs& pairs, bool update = false) {
    kapParameterUpdater::get_unrecognised_pars().clear();
    auto t = std::make_unique<kapToolpathPar>("T");
    std::unique_ptr<kapParameterLoader> loader(t->create_loader(kapPtrClaim{}, version));
    if (!loader) return nullptr;
    for (const auto& [k, v] : pairs) {
        loader->load_par(kapParameterKey(k), v);
    }
    loader->finalise_loading();
    if (update) t->get_updater()->update(version, *t, loader->loaded_keys());
    return t;
}

std::string text(const kapParameter& root, const char* path) {
    const kapParameter* p = root.find_node(path);
    return p != nullptr ? p->get_value_text() : "<none>";
}

// Whether `path` names a declared parameter, spelt as declared (lookups fold letter case).
bool declared(const kapParameter& root, std::string_view path) {
    const kapParameter* p = root.find_node(utString(path));
    return p != nullptr && kap_entity_key(*p) == path;
}

// -----------------------------------------------------------------------------------------------
// Synonyms

TEST(ToolpathSynonyms, TableShapeAndTargets) {
    kapToolpathPar t("T");
    std::set<std::string_view> legacy;
    std::set<std::string> undeclared;
    for (const auto& r : kapToolpathPar::key_synonyms()) {
        EXPECT_TRUE(legacy.insert(r.legacy).second) << "repeated: " << r.legacy;
        EXPECT_EQ(t.lookup_key_synonym(utString(r.legacy)), r.current);
        if (!declared(t, r.current)) undeclared.insert(std::string(r.current));
    }
    // Exactly these targets are not declared: their names are not among the tree's top-level
    // names, or not among the names below their map, so a value saved under them stays with the
    // unrecognised keys (where the update steps read it back).
    EXPECT_EQ(undeclared, (std::set<std::string>{"AdjustAxis", "Block.Radius", "MinimumStepover",
                                                 "Connections.LeadsOnShortLinks"}));
    for (const std::string_view p : kapToolpathPar::named_paths()) {
        EXPECT_TRUE(declared(t, p)) << p;
    }
}

TEST(ToolpathSynonyms, Lookup) {
    kapToolpathPar t("T");
    const kapParameterRoot& base = t;
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"adjust_axis",        "AdjustAxis"},
        {"KeepCollidingMoves", "ActionOnCollision"},
        // Matched exactly: any upper-case letter falls through to the framework.
        {"Adjust_axis",        nullptr},
        {"adjust_Axis",        nullptr},
        {"keepcollidingmoves", nullptr},
        {"Tolerance",          nullptr},
    };
    // clang-format on
    for (const auto& [key, want] : cases) {
        SCOPED_TRACE(key);
        const utString expected =
            want != nullptr ? utString(want) : base.kapParameterRoot::lookup_key_synonym(key);
        EXPECT_EQ(t.lookup_key_synonym(key), expected);
    }
}

// -----------------------------------------------------------------------------------------------
// Loader rules

TEST(ToolpathLoader, KeyRewrites) {
    struct Case {
        Pairs pairs;
        const char* path;
        const char* value;
    };
    // clang-format off
    const Case cases[] = {
        {{{"start.type", "absolute"}},                         "StartPoint.Type",                   "absolute"},
        {{{"Coolant", "mist"}},                                "Coolant.Value",                     "mist"},
        {{{"SpindleSpeed", "2500"}},                           "SpindleSpeed.Value",                "2500"},
        {{{"FeedRate.Cutting", "1200"}},                       "FeedRate.Cutting.Value",            "1200"},
        {{{"tiltdirection.holder_clearance", "3"}},            "CollisionAvoidance.Clearance.Holder", "3"},
        {{{"tiltdirection.tool_clearance", "4"}},              "CollisionAvoidance.Clearance.Shank", "4"},
        {{{"connections.short_link[0].type", "on_surface"}},   "Connections.Link[0].Type",          "on_surface"},
        {{{"connections.longlink[0].type", "skim"}},           "Connections.Link[1].Type",          "skim"},
        {{{"connections.safe[0].axial_move", "rotation_point"}}, "Connections.DefaultLink[0].AxialMove", "rotation_point"},
        {{{"UserParameters.Setter", "J. Smith"}},              "UserParameters.Setter",             "J. Smith"},
        {{{"strategy", "offset_3d"}},                          "Strategy",                          "offset_3d"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pairs.front().first);
        auto t = load(28, c.pairs);
        ASSERT_TRUE(t);
        EXPECT_EQ(text(*t, c.path), c.value);
        EXPECT_TRUE(kapParameterUpdater::get_unrecognised_pars().empty());
    }
    // Each key is recorded as it was passed on, after the seeds of the toolpath's construction.
    ASSERT_TRUE(load(28, {{"Coolant", "mist"}, {"strategy", "raster"}, {"Coolant", "flood"}}));
    EXPECT_EQ(kapToolpathParLoaderState::key_strings(),
              (utStringcoSet{"Coolant.Value", "join_up", "one_way", "strategy"}));
}

TEST(ToolpathLoader, PairsNoParameterTakesAreKeptAsRead) {
    struct Case {
        std::pair<const char*, const char*> pair;
        int result;
        // Keys the unrecognised table holds afterwards: the key as read, and where the rules
        // sent it ("datum" goes where "start" goes).
        std::set<std::string> kept;
    };
    // clang-format off
    const Case cases[] = {
        {{"datum", "x"},                          0, {"datum", "start"}},
        {{"start", "x"},                          0, {"start"}},
        {{"connections.threshold_distance", "7"}, 0, {"connections.threshold_distance", "Connections.ThresholdDistance"}},
        {{"block.centre.x", "5"},                -1, {"block.centre.x"}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pair.first);
        kapParameterUpdater::get_unrecognised_pars().clear();
        kapToolpathPar t("T");
        std::unique_ptr<kapParameterLoader> loader(t.create_loader(kapPtrClaim{}, 0));
        EXPECT_EQ(loader->load_par(kapParameterKey(c.pair.first), c.pair.second), c.result);
        std::set<std::string> kept;
        for (const auto& [key, value] : kapParameterUpdater::get_unrecognised_pars()) {
            EXPECT_EQ(value, c.pair.second);
            kept.insert(key);
        }
        EXPECT_EQ(kept, c.kept);
        EXPECT_EQ(text(t, "Block.Centre"), "(0;0;0)");
    }
}

TEST(ToolpathLoader, CornerFilletingConversion) {
    struct Case {
        const char* name;
        Pairs pairs;
        const char* active;
        const char* style;
        const char* radius;
    };
    // clang-format off
    const Case cases[] = {
        {"legacy value",            {{"strategy", "constantz"}, {"cornerfilleting", "2"}},                                  "1", "cornerfilleting", "1.5"},
        {"arc fit larger, active",  {{"strategy", "opti_constz"}, {"cornerfilleting", "2"}, {"arcfit_prin_plane", "1"},
                                     {"arcfit", "3"}},                                                                      "1", "cornerfilleting", "3"},
        {"arc fit larger, off",     {{"strategy", "constantz"}, {"arcfit", "3"}, {"cornerfilleting", "2"},
                                     {"arcfit_prin_plane", "0"}},                                                           "1", "cornerfilleting", "1.5"},
        {"arc fit smaller",         {{"strategy", "inter_constz"}, {"arcfit_prin_plane", "1"}, {"arcfit", "1"},
                                     {"CornerFilleting.Value", "2"}},                                                       "1", "cornerfilleting", "1.5"},
        {"expression",              {{"strategy", "constantz"}, {"cornerfilleting", "Tolerance*2"}},                        "1", "cornerfilleting", "Tolerance*2- 0.5"},
        {"none read",               {{"strategy", "constantz"}},                                                            "0", "coinfitting",     "0.5"},
        {"already converted",       {{"strategy", "constantz"}, {"cornerfilleting", "2"}, {"CornerRadius.Value", "0.7"}},   "0", "cornerfilleting", "0.7"},
        {"not constant Z",          {{"strategy", "raster"}, {"cornerfilleting", "2"}},                                     "0", "cornerfilleting", "0.5"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto t = load(20, c.pairs);
        ASSERT_TRUE(t);
        EXPECT_EQ(text(*t, "CornerRadius.Active"), c.active);
        EXPECT_EQ(text(*t, "CornerRadius.Style"), c.style);
        EXPECT_EQ(text(*t, "CornerRadius.Value"), c.radius);
    }
}

// -----------------------------------------------------------------------------------------------
// Version steps

TEST(ToolpathUpdater, CurrentVersionIsUntouched) {
    // clang-format off
    const Pairs pairs = {{"Strategy", "inter_constz"}, {"ShallowStrategy", "offset_steep"},
                         {"CollisionAvoidance.Type", "lead"}, {"Rapid.SafeArea", "cylinder"}};
    // clang-format on
    auto loaded = load(29, pairs);
    auto updated = load(29, pairs, true);
    EXPECT_EQ(updated->version(), 29);
    EXPECT_TRUE(updated->is_equal(*loaded));
}

TEST(ToolpathUpdater, StepsRunInOrderFromTheSavedVersion) {
    // Entry n of the list is the step from n to n + 1.
    kapToolpathParUpdater::create_updater_list();
    const auto* list = kapToolpathParUpdater::update_list();
    ASSERT_EQ(list->size(), 29U);
    for (int n = 0; n < 29; ++n) {
        kapToolpathPar t("T");
        int version = n;
        (*list)[static_cast<std::size_t>(n)](version, t, utStringcoSList());
        EXPECT_EQ(version, n + 1) << "entry " << n;
    }
    // A version-0 file passes every step: each leaves its mark, and later steps see earlier ones.
    // clang-format off
    auto t = load(0, {{"strategy", "inter_constz"}, {"offset_overlap", "0.25"}, {"block.radius", "20"},
                      {"CollisionAvoidance.Type", "to_line"}, {"CollisionAvoidance.Active", "1"},
                      {"connections.threshold_distance", "7"}, {"connections.leads_on_short_links", "0"},
                      {"Plunge.StockModelState.StockModel", "19"}, {"ShallowStrategy", "offset_steep"}},
                  true);
    // clang-format on
    EXPECT_EQ(t->version(), 29);
    EXPECT_EQ(text(*t, "Overlap"), "0.25");                                        // 4 to 5
    EXPECT_EQ(text(*t, "StockModelState.Entity"), "19");                           // 6 to 7
    EXPECT_EQ(text(*t, "Block.Diameter"), "40");                                   // 8 to 9
    EXPECT_EQ(text(*t, "CollisionAvoidance.Method"), "specify_direction");         // 11 to 12
    EXPECT_EQ(text(*t, "Connections.Link[0].Constraint[0].Distance.Value"), "7");  // 24 to 25
    EXPECT_EQ(text(*t, "Connections.LeadIn[0].Constraint[0].Distance.Function"), "greater_than");
    EXPECT_EQ(text(*t, "ShallowStrategy"), "offset");  // 28 to 29
    EXPECT_EQ(text(*t, "UseParentConnections"), "0");

    // Saved at 25: the earlier steps do not run, the later ones do.
    // clang-format off
    auto late = load(25, {{"Strategy", "inter_constz"}, {"offset_overlap", "0.25"}, {"ShallowStrategy", "offset_steep"}},
                     true);
    // clang-format on
    EXPECT_EQ(text(*late, "Overlap"), "0");
    EXPECT_EQ(text(*late, "ShallowStrategy"), "offset");
}

TEST(ToolpathUpdater, CollisionAvoidanceSplitsIntoMethodAndType) {
    struct Case {
        const char* old;
        const char* active;
        const char* method;
        const char* type;
    };
    // clang-format off
    const Case cases[] = {
        {"lead",           "0", "lead",              "to_point"},
        {"lean",           "1", "lean",              "to_point"},
        {"lead_then_lean", "1", "lead_then_lean",    "to_point"},
        {"lean_then_lead", "0", "lean_then_lead",    "to_point"},
        {"to_point",       "1", "specify_direction", "to_point"},
        {"from_point",     "1", "specify_direction", "from_point"},
        {"to_line",        "1", "specify_direction", "to_line"},
        {"from_line",      "1", "specify_direction", "from_line"},
        {"to_curve",       "1", "specify_direction", "to_curve"},
        {"from_curve",     "1", "specify_direction", "from_curve"},
        {"fixed",          "1", "specify_direction", "fixed"},
        {"surface_normal", "1", "specify_direction", "surface_normal"},
        {"from_curve",     "0", "lean",              "from_curve"},
        {"surface_normal", "0", "lean",              "surface_normal"},
        {"Lead",           "1", "lean",              "to_point"},
        {"sideways",       "1", "lean",              "to_point"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.old) + " active " + c.active);
        kapToolpathPar t("T");
        ASSERT_TRUE(t.find("CollisionAvoidance.Type")->set_string(c.old));
        t.find("CollisionAvoidance.Active")->set_string(c.active);
        int version = 11;
        kapToolpathParUpdater::update_from_11_to_12(version, t, utStringcoSList());
        EXPECT_EQ(version, 12);
        EXPECT_EQ(text(t, "CollisionAvoidance.Method"), c.method);
        EXPECT_EQ(text(t, "CollisionAvoidance.Type"), c.type);
    }
}

}  // namespace
