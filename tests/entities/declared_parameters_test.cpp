// Properties every declared parameter of the small entities and the boundary must have, checked
// over whole trees rather than restated: a default inside its range, an enumeration with unique
// states holding one of them, and an activity condition that compiles and evaluates to a flag on
// a fresh entity, in either unit system and whichever state any enumeration is switched to.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kappar/kapBoundaryPar.h"
#include "kappar/kapDrillingHolePar.h"
#include "kappar/kapLevelPar.h"
#include "kappar/kapModelPar.h"
#include "kappar/kapPatternPar.h"
#include "kappar/kapStockModelPar.h"
#include "kappar/kapWorkplanePar.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"

namespace {

struct Entity {
    const char* name;
    std::function<kapParameter*()> make;
};

const std::vector<Entity>& entities() {
    static const std::vector<Entity> all = {
        {"workplane", [] { return new kapWorkplanePar("W"); }},
        {"level", [] { return new kapLevelPar("L"); }},
        {"pattern", [] { return new kapPatternPar("P"); }},
        {"model", [] { return new kapModelPar("M"); }},
        {"stockmodel", [] { return new kapStockModelPar("S"); }},
        {"DrillingHole", [] { return new kapDrillingHolePar("H"); }},
        {"hierarchy", [] { return new kapModelHierarchyElementPar("E", kapParameterPtr()); }},
        {"boundary", [] { return new kapBoundaryPar("B"); }},
    };
    return all;
}

struct Node {
    const kapParameter* par;
    std::string path;
};

// Every node below `par`, depth first; array elements by index.
void collect(const kapParameter& par, const std::string& path, std::vector<Node>& out) {
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) return;
    const bool indexed = kapParameterArray::ut_dynamic_cast(&par) != nullptr ||
                         kapParameterList::ut_dynamic_cast(&par) != nullptr;
    for (std::size_t i = 0; i < map->size(); ++i) {
        const kapParameter& c = *map->child(i);
        const std::string step = indexed ? "[" + std::to_string(i) + "]" : c.get_name();
        const std::string where = path.empty() || indexed ? path + step : path + "." + step;
        out.push_back({&c, where});
        collect(c, where, out);
    }
}

std::vector<Node> nodes_of(const kapParameter& root) {
    std::vector<Node> out;
    collect(root, "", out);
    return out;
}

// The condition as activity reads it: names are looked up among the owner's siblings first,
// then outward. An evaluator scoped on a map looks among that map's own children first, so the
// condition of a map is evaluated from the map's parent.
kapParameterPtr evaluate_active(const kapParameter& par) {
    const kapParameter* scope = &par;
    if (kapParameterMap::ut_dynamic_cast(&par) != nullptr && par.parent() != nullptr) {
        scope = par.parent();
    }
    return kapEvaluator(scope).evaluate(par.get_active());
}

// Faults of the activity conditions of `root` as it stands, prefixed by `when`.
void check_actives(const kapParameter& root, const std::string& when, int& evaluated,
                   std::vector<std::string>& faults) {
    for (const Node& n : nodes_of(root)) {
        const utString& text = n.par->get_active();
        if (text.empty()) continue;
        ++evaluated;
        const auto compiled = kapExpr::compile(text);
        if (!compiled->ok()) {
            faults.push_back(when + n.path + ": '" + text +
                             "' does not compile: " + compiled->error().message);
            continue;
        }
        const kapParameterPtr v = evaluate_active(*n.par);
        if (!v) {
            faults.push_back(when + n.path + ": '" + text + "' gives nothing");
        } else if (v->is_error()) {
            faults.push_back(when + n.path + ": '" + text + "' fails: " + v->get_string());
        } else if (v->type() != kapParameterType::numeric) {
            faults.push_back(when + n.path + ": '" + text + "' is not a condition (a " +
                             kap_type_name(v->type()) + ")");
        }
    }
}

class DeclaredParameters : public ::testing::TestWithParam<int> {};

TEST_P(DeclaredParameters, DefaultsRangesAndStates) {
    kapUnitsScope units(GetParam());
    int ranged = 0;
    int enumerations = 0;
    for (const Entity& e : entities()) {
        std::unique_ptr<kapParameter> root(e.make());
        for (const Node& n : nodes_of(*root)) {
            SCOPED_TRACE(std::string(e.name) + ":" + n.path);
            const kapParameter& p = *n.par;
            EXPECT_TRUE(p.check_range()) << "default " << p.get_value_text() << " out of range";
            if (p.impl().has_range) {
                ++ranged;
                EXPECT_TRUE(p.impl().range.contains(p.get_double())) << p.get_double();
            }
            if (const auto* en = kapParameterEnum::ut_dynamic_cast(&p)) {
                ++enumerations;
                ASSERT_GT(en->num_states(), 0);
                std::set<std::string> keys;
                for (int s = 0; s < en->num_states(); ++s) {
                    EXPECT_TRUE(keys.insert(en->state(s).key).second)
                        << "state '" << en->state(s).key << "' twice";
                }
                EXPECT_TRUE(en->is_valid()) << "default '" << en->get_string() << "' is no state";
                EXPECT_GE(en->find_state(en->get_string()), 0);
            }
        }
    }
    // Enough of the trees was seen: the stock model's three lengths and the boundary's ranged
    // numbers (with eighteen thickness sets); eight boundary enumerations, one per thickness set,
    // and those of the level and the model.
    EXPECT_GT(ranged, 3 + 30);
    EXPECT_EQ(enumerations, 8 + 18 + 1 + 2);
}

TEST_P(DeclaredParameters, ActivityConditionsEvaluateOnAFreshEntity) {
    kapUnitsScope units(GetParam());
    int evaluated = 0;
    std::vector<std::string> faults;
    for (const Entity& e : entities()) {
        std::unique_ptr<kapParameter> root(e.make());
        check_actives(*root, std::string(e.name) + ":", evaluated, faults);
    }
    for (const auto& f : faults) {
        ADD_FAILURE() << f;
    }
    EXPECT_GT(evaluated, 60);
}

// A condition that only works for the default type (a path that an enumeration's other state
// would make wrong, a comparison that fails on another text) shows up when every state of every
// enumeration is tried in turn, one enumeration at a time, on a fresh entity.
TEST_P(DeclaredParameters, ActivityConditionsEvaluateInEveryStateOfEveryEnumeration) {
    kapUnitsScope units(GetParam());
    int switched = 0;
    std::vector<std::string> faults;
    for (const Entity& e : entities()) {
        std::unique_ptr<kapParameter> probe(e.make());
        for (const Node& n : nodes_of(*probe)) {
            const auto* en = kapParameterEnum::ut_dynamic_cast(n.par);
            if (en == nullptr) continue;
            for (int s = 0; s < en->num_states(); ++s) {
                std::unique_ptr<kapParameter> root(e.make());
                auto* map = kapParameterMap::ut_dynamic_cast(root.get());
                ASSERT_NE(map, nullptr);
                kapParameter* target = const_cast<kapParameter*>(map->find_node(n.path));
                ASSERT_NE(target, nullptr) << n.path;
                ASSERT_TRUE(target->set_string(en->state(s).key)) << n.path;
                ++switched;
                int evaluated = 0;
                check_actives(*root,
                              std::string(e.name) + " " + n.path + "=" + en->state(s).key + ": ",
                              evaluated, faults);
            }
        }
    }
    for (const auto& f : faults) {
        ADD_FAILURE() << f;
    }
    EXPECT_GT(switched, 13 + 18 * 4);
}

INSTANTIATE_TEST_SUITE_P(Units, DeclaredParameters, ::testing::Values(0, 1),
                         [](const auto& units_info) {
                             return units_info.param == 0 ? "Metric" : "Inch";
                         });

}  // namespace
