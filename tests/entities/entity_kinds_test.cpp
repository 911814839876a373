// Every registered entity kind follows the protocol: construction at its version, shared
// declarations, copies, the locked loader, the small entities' loading rule, updating at the
// current version, run-time types, and the properties every declared parameter must have.

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "kappar/kapEntity.h"
#include "kappar/kapWorkplanePar.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"

namespace {

struct Node {
    const kapParameter* par;
    std::string path;
    bool element;  // an element of an array or list: it carries its container's texts
};

void collect(const kapParameter& par, const std::string& path, std::vector<Node>& out) {
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) return;
    const bool indexed = kapParameterArray::ut_dynamic_cast(&par) != nullptr ||
                         kapParameterList::ut_dynamic_cast(&par) != nullptr;
    for (std::size_t i = 0; i < map->size(); ++i) {
        const kapParameter& c = *map->child(i);
        const std::string step = indexed ? "[" + std::to_string(i) + "]" : c.get_name();
        const std::string where = path.empty() || indexed ? path + step : path + "." + step;
        out.push_back({&c, where, indexed});
        collect(c, where, out);
    }
}

std::vector<Node> nodes_of(const kapParameter& root) {
    std::vector<Node> out;
    collect(root, "", out);
    return out;
}

std::vector<std::pair<std::string, std::string>> values_of(const kapParameter& root) {
    std::vector<std::pair<std::string, std::string>> out;
    for (const Node& n : nodes_of(root)) {
        if (!n.par->is_map()) out.emplace_back(n.path, n.par->get_value_text());
    }
    return out;
}

std::unique_ptr<kapParameterRoot> make(const kapEntityKindInfo& k) {
    return kapEntityKinds::create(k.kind, "E1");
}

bool has_small_loader(std::string_view kind) {
    return kind == "workplane" || kind == "level" || kind == "pattern" || kind == "model" ||
           kind == "stockmodel";
}

class EntityKinds : public ::testing::TestWithParam<kapEntityKindInfo> {};

TEST_P(EntityKinds, ConstructsAtItsVersionAndSharesDeclarations) {
    const kapEntityKindInfo& k = GetParam();
    auto a = make(k);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->get_root_type(), k.kind);
    EXPECT_EQ(a->get_root_name(), "E1");
    EXPECT_EQ(a->version(), k.version);
    EXPECT_TRUE(kap_schema_declared(k.kind));
    ASSERT_NE(kapEntityKinds::find(k.kind), nullptr);
    // The kind name is matched exactly: another letter case names no kind.
    const std::string other = kapdowncase(std::string(k.kind)) == k.kind
                                  ? std::string(k.kind) + "X"
                                  : kapdowncase(std::string(k.kind));
    EXPECT_EQ(kapEntityKinds::find(other), nullptr);
    // Instances share the declarations, not the values.
    auto b = make(k);
    const auto na = nodes_of(*a), nb = nodes_of(*b);
    ASSERT_EQ(na.size(), nb.size());
    for (std::size_t i = 0; i < na.size(); ++i) {
        if (na[i].path == "Hierarchy") continue;  // the model's top element is its own
        EXPECT_EQ(&na[i].par->impl(), &nb[i].par->impl()) << na[i].path;
    }
}

TEST_P(EntityKinds, CreateNewGivesAnEqualIndependentTree) {
    auto root = make(GetParam());
    std::unique_ptr<kapParameter> copy(root->create_new());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->ut_dynamic_type(), root->ut_dynamic_type());
    EXPECT_TRUE(copy->is_equal(*root));
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

TEST_P(EntityKinds, CreateLoaderIsNullWhileLocked) {
    auto root = make(GetParam());
    root->set_modified(false);
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
TEST_P(EntityKinds, LoaderAppliesTheFishRuleExactly) {
    struct Case {
        int version;
        const char* key;
        const char* value;
        const char* stored_by_small_loader;
    };
    // clang-format off
    const Case cases[] = {
        {4,  "fish.species", "cod",     "halibut"},
        {0,  "fish.species", "cod",     "halibut"},
        {-1, "fish.species", "cod",     "halibut"},  // signed comparison
        {5,  "fish.species", "cod",     "cod"},
        {4,  "fish.species", "Cod",     "Cod"},      // value matched with its case
        {4,  "fish.species", "cod ",    "cod "},
        {4,  "Fish.species", "cod",     "cod"},      // key matched with its case
        {4,  "fish.Species", "cod",     "cod"},
        {4,  "fish",         "cod",     "cod"},
    };
    // clang-format on
    const bool small = has_small_loader(GetParam().kind);
    auto& unrecognised = kapParameterUpdater::get_unrecognised_pars();
    for (const Case& f : cases) {
        SCOPED_TRACE(testing::Message() << f.version << " " << f.key << "=" << f.value);
        auto root = make(GetParam());
        unrecognised.clear();
        std::unique_ptr<kapParameterLoader> loader(root->create_loader(kapPtrClaim{}, f.version));
        ASSERT_NE(loader, nullptr);
        EXPECT_EQ(loader->load_par(kapParameterKey(f.key), f.value), 0);
        ASSERT_EQ(unrecognised.count(f.key), 1u);
        EXPECT_EQ(unrecognised[f.key], small ? f.stored_by_small_loader : f.value);
    }
    unrecognised.clear();
}

TEST_P(EntityKinds, UpdateAtTheCurrentVersionChangesNothing) {
    auto root = make(GetParam());
    auto other = make(GetParam());
    root->set_modified(false);
    std::unique_ptr<kapParameter> before(root->create_new());
    kapParameterUpdater* updater = root->get_updater();
    ASSERT_NE(updater, nullptr);
    EXPECT_EQ(updater, other->get_updater());  // one per class
    updater->update(root->version(), *root, utStringcoSList());
    EXPECT_TRUE(root->is_equal(*before));
    EXPECT_EQ(root->version(), GetParam().version);
    EXPECT_FALSE(root->get_modified());
}

// Literals compared with an enumeration must be states of it ("Type=='set'").
void check_compared_states(const kapParameter& p, const std::string& where,
                           std::vector<std::string>& faults) {
    static const std::regex cmp(R"(([A-Za-z_][A-Za-z0-9_.\[\]]*)\s*[!=]=\s*'([^']*)')");
    const std::string text = p.get_active();
    for (std::sregex_iterator it(text.begin(), text.end(), cmp), end; it != end; ++it) {
        const kapParameter* named = nullptr;
        for (const kapParameter* m = p.parent(); m != nullptr && named == nullptr; m = m->parent())
            named = m->find_node((*it)[1].str());
        const auto* e = kapParameterEnum::ut_dynamic_cast(named);
        if (e != nullptr && e->find_state((*it)[2].str()) < 0) {
            faults.push_back(where + ": no state '" + (*it)[2].str() + "' in " + (*it)[1].str());
        }
    }
}

// The condition as activity reads it: an evaluator scoped on a map looks among that map's own
// children first, so the condition of a map is evaluated from the map's parent.
void check_actives(const std::vector<Node>& nodes, const std::string& when,
                   std::vector<std::string>& faults) {
    for (const Node& n : nodes) {
        const utString& text = n.par->get_active();
        if (text.empty()) continue;
        const kapParameter* scope = n.par->is_map() && n.par->parent() ? n.par->parent() : n.par;
        const kapParameterPtr v = kapEvaluator(scope).evaluate(text);
        if (!v || v->is_error() || v->type() != kapParameterType::numeric) {
            faults.push_back(when + n.path + ": '" + text + "' gives " +
                             (v ? v->get_string() : std::string("nothing")));
        }
    }
}

// Checked on a fresh entity in either unit system; activity also with enumerations switched to
// each of their states in turn, so that a condition that only works for the default shows.
TEST_P(EntityKinds, EveryDeclaredParameterIsWellFormed) {
    const kapEntityKindInfo& k = GetParam();
    for (const int units : {0, 1}) {
        kapUnitsScope scope(units);
        SCOPED_TRACE(units != 0 ? "inch" : "metric");
        auto root = make(k);
        std::vector<std::string> faults;
        kap_check_schema(*root, faults);
        const std::vector<utString> recorded = kap_schema_problems(k.kind);
        faults.insert(faults.end(), recorded.begin(), recorded.end());

        const std::vector<Node> nodes = nodes_of(*root);
        for (const Node& n : nodes) {
            const kapParameter& p = *n.par;
            if (!p.check_range()) faults.push_back(n.path + ": default out of range");
            if (const auto* e = kapParameterEnum::ut_dynamic_cast(&p)) {
                std::set<std::string> states;
                for (int s = 0; s < e->num_states(); ++s) {
                    if (!states.insert(e->state(s).key).second)
                        faults.push_back(n.path + ": state '" + e->state(s).key + "' twice");
                }
                if (!e->is_valid()) faults.push_back(n.path + ": default is not a state");
            }
            if (n.element) continue;
            check_compared_states(p, n.path, faults);
            if (const auto* m = kapParameterMap::ut_dynamic_cast(&p);
                m != nullptr && kapParameterArray::ut_dynamic_cast(&p) == nullptr &&
                kapParameterList::ut_dynamic_cast(&p) == nullptr) {
                std::set<std::string> keys;  // names and legacy keys, as lookups fold them
                for (const kapParameterPtr& c : m->children()) {
                    for (const std::string& key :
                         std::set<std::string>{kapdowncase(c->get_name()), c->get_legacy_key()}) {
                        if (!key.empty() && !keys.insert(key).second)
                            faults.push_back(n.path + ": '" + key + "' names two children");
                    }
                }
            }
        }
        check_actives(nodes, "", faults);
        // Every enumeration of a small tree; of the toolpath's, the strategy.
        std::vector<std::string> enumerations;
        for (const Node& n : nodes) {
            if (kapParameterEnum::ut_dynamic_cast(n.par) == nullptr) continue;
            if (nodes.size() < 1000 || n.path == "Strategy") enumerations.push_back(n.path);
        }
        for (const std::string& path : enumerations) {
            // Found afresh: switching a state may rebuild parts of the tree.
            auto* e =
                kapParameterEnum::ut_dynamic_cast(const_cast<kapParameter*>(root->find_node(path)));
            if (e == nullptr) continue;
            const utString saved = e->get_value_text();
            for (int s = 0; s < e->num_states(); ++s) {
                const utString state = e->state(s).key;
                ASSERT_TRUE(e->set_string(state)) << path;
                check_actives(nodes_of(*root), path + "=" + state + ": ", faults);
                e = kapParameterEnum::ut_dynamic_cast(
                    const_cast<kapParameter*>(root->find_node(path)));
                if (e == nullptr) break;
            }
            if (e != nullptr) e->set_string(saved);
        }
        for (const std::string& f : faults)
            ADD_FAILURE() << f;
    }
}

INSTANTIATE_TEST_SUITE_P(All, EntityKinds, ::testing::ValuesIn(kapEntityKinds::all()),
                         [](const auto& kind_info) { return std::string(kind_info.param.kind); });

// A root answers to its own class and to its bases only.
TEST(EntityKindsRunTimeTypes, RejectOtherKinds) {
    EXPECT_EQ(kapWorkplanePar::ut_dynamic_cast(nullptr), nullptr);
    kapParameterMap plain;
    EXPECT_EQ(kapWorkplanePar::ut_dynamic_cast(&plain), nullptr);
    kapParameterRoot bare("anything", 0, "P");
    for (const kapEntityKindInfo& a : kapEntityKinds::all()) {
        auto root = make(a);
        EXPECT_TRUE(root->ut_is_kind_of(kapParameterRoot::ut_static_type())) << a.kind;
        EXPECT_EQ(kapWorkplanePar::ut_dynamic_cast(root.get()) != nullptr, a.kind == "workplane");
        for (const kapEntityKindInfo& b : kapEntityKinds::all()) {
            if (a.kind == b.kind) continue;
            auto other = make(b);
            EXPECT_FALSE(root->ut_is_kind_of(other->ut_dynamic_type())) << a.kind << " " << b.kind;
            // Updaters are one per class; only kinds without their own share the framework's.
            if (root->get_updater() == other->get_updater()) {
                EXPECT_EQ(root->get_updater(), bare.get_updater()) << a.kind << " " << b.kind;
            }
        }
    }
}

}  // namespace
