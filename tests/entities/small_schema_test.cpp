// Schemas of the small entities: fresh values, unit-dependent defaults, the texts kept as they
// stand, and properties every declared parameter must have.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "kappar/kapDrillingHolePar.h"
#include "kappar/kapLevelPar.h"
#include "kappar/kapModelPar.h"
#include "kappar/kapPatternPar.h"
#include "kappar/kapStockModelPar.h"
#include "kappar/kapWorkplanePar.h"

namespace {

TEST(WorkplaneSchema, FreshWorkplaneIsTheWorldFrame) {
    kapWorkplanePar w("W");
    struct Case {
        const char* path;
        const char* text;
    };
    // clang-format off
    const Case cases[] = {
        {"Origin", "(0;0;0)"}, {"XAxis", "(1;0;0)"}, {"YAxis", "(0;1;0)"}, {"ZAxis", "(0;0;1)"},
        {"XAngle", "0"}, {"YAngle", "0"}, {"ZAngle", "0"}, {"Elevation", "0"}, {"Azimuth", "0"},
        {"VNAutoLock", "0"},
    };
    // clang-format on
    ASSERT_EQ(w.size(), std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].path);
        EXPECT_EQ(w.child(i)->get_name(), cases[i].path);  // declaration order
        EXPECT_EQ(w[cases[i].path]->get_value_text(), cases[i].text);
        EXPECT_TRUE(w[cases[i].path]->is_valid());
    }
    EXPECT_FALSE(w["VNAutoLock"]->get_int());
    EXPECT_DOUBLE_EQ(w["ZAxis[2]"]->get_double(), 1.0);
}

TEST(WorkplaneSchema, DeclarationsByKind) {
    kapWorkplanePar w("W");
    for (const char* name : {"XAngle", "YAngle", "ZAngle", "Elevation", "Azimuth"}) {
        SCOPED_TRACE(name);
        const kapParameter& p = *w[name];
        EXPECT_EQ(p.subtype(), kapSubTypeAngle);
        EXPECT_EQ(p.get_measure_mode(), 7);
        EXPECT_EQ(p.impl().dims, kapDimNone);
        EXPECT_EQ(p.get_group_name(), "Workplane");
    }
    for (const char* name : {"Origin", "XAxis", "YAxis", "ZAxis"}) {
        SCOPED_TRACE(name);
        const auto* v = kapParameterVector::ut_dynamic_cast(w[name].pointer());
        ASSERT_NE(v, nullptr);
        EXPECT_EQ(v->num_components(), 3);
        EXPECT_EQ(v->impl().access_type, 1);
        EXPECT_EQ(v->get_group_name(), "Workplane");
        ASSERT_NE(v->impl().component, nullptr);
        EXPECT_EQ(v->impl().component->subtype, kapSubTypeReal);
        EXPECT_EQ(v->impl().component->dims,
                  std::string(name) == "Origin" ? kapDimLength : kapDimNone);
    }
    const kapParameter& lock = *w["VNAutoLock"];
    EXPECT_EQ(lock.subtype(), kapSubTypeFlag);
    EXPECT_EQ(lock.get_group_name(), "Debug");
    EXPECT_EQ(lock.get_label(), "Internal Workplane");
    // Kept without its full stop.
    EXPECT_EQ(lock.get_desc(), "Internal workplane originally a mirror of the world transform");
    EXPECT_EQ(w["Azimuth"]->get_label(), "Azimuth Angle");
}

struct DefaultCase {
    const char* path;
    double metric;
    double inch;
    const char* metric_text;
    const char* inch_text;
};
// clang-format off
const DefaultCase kStockDefaults[] = {
    {"Tolerance",          0.1, 0.002, "0.1", "0.002"},
    {"Stepover",           2.0, 0.06,  "2.0", "0.06"},
    {"ThresholdThickness", 0.2, 0.01,  "0.2", "0.01"},
    {"NumberOfCores",      0.0, 0.0,   "0",   "0"},
    {"DetectOverhang",     0.0, 0.0,   "0",   "0"},
};
// clang-format on

TEST(StockModelSchema, DefaultsFollowTheUnitSystemAtConstruction) {
    for (int units : {0, 1, 0}) {
        kapUnitsScope scope(units);
        kapStockModelPar s("S");
        for (const auto& d : kStockDefaults) {
            SCOPED_TRACE(testing::Message() << d.path << " units " << units);
            const kapParameter& p = *s[d.path];
            EXPECT_DOUBLE_EQ(p.get_double(), units == 0 ? d.metric : d.inch);
            EXPECT_EQ(p.impl().default_metric, d.metric_text);
            EXPECT_EQ(p.impl().default_inch, d.inch_text);
        }
        EXPECT_EQ(s["Origin"]->get_value_text(), "(0;0;0)");
        EXPECT_EQ(s["Error"]->get_string(), "");
    }
    // An entity made in one system keeps its defaults when the system changes later.
    std::unique_ptr<kapStockModelPar> metric;
    {
        kapUnitsScope scope(0);
        metric = std::make_unique<kapStockModelPar>("M");
    }
    kapUnitsScope inch(1);
    EXPECT_DOUBLE_EQ((*metric)["Tolerance"]->get_double(), 0.1);
    EXPECT_DOUBLE_EQ(kapStockModelPar("I")["Tolerance"]->get_double(), 0.002);
}

TEST(StockModelSchema, LengthsAreNonNegativeWithoutMeasureMode) {
    kapStockModelPar s("S");
    for (const char* name : {"Tolerance", "Stepover", "ThresholdThickness"}) {
        SCOPED_TRACE(name);
        const kapParameter& p = *s[name];
        EXPECT_EQ(p.subtype(), kapSubTypeReal);
        EXPECT_EQ(p.impl().dims, kapDimLength);
        EXPECT_EQ(p.impl().units, 0);
        EXPECT_EQ(p.get_measure_mode(), -1);
        ASSERT_TRUE(p.impl().has_range);
        EXPECT_EQ(p.impl().range, kapRange(0.0, std::numeric_limits<double>::max(), 0, 1));
        EXPECT_TRUE(p.impl().range.contains(0.0));
        EXPECT_FALSE(p.impl().range.contains(-1e-9));
        EXPECT_FALSE(p.impl().range.contains(std::numeric_limits<double>::max()));
    }
    const auto* ref = kapParameterRef::ut_dynamic_cast(s["Workplane"].pointer());
    ASSERT_NE(ref, nullptr);
    EXPECT_EQ(ref->get_ref_root_type(), "workplane");
    EXPECT_EQ(s["Error"]->get_group_name(), "General");
    EXPECT_EQ(s["NumberOfCores"]->get_group_name(), "Debug");
    EXPECT_EQ(s["Origin"]->get_group_name(), "Stock Model");
    EXPECT_EQ(s["Origin"]->get_label(), "Stock Model Origin");
}

// The model's texts are kept exactly, blanks and the odd label included.
TEST(ModelSchema, TextsKeptAsTheyStand) {
    kapModelPar m("M");
    EXPECT_EQ(m["IsBroken"]->get_desc(),
              " Whether or not the file the model was imported from contained errors. Broken "
              "models cannot be machined. ");
    EXPECT_EQ(m["HasBadSurface"]->get_desc().front(), ' ');
    EXPECT_EQ(m["IsReferenceModel"]->get_desc().back(), ' ');
    EXPECT_EQ(m["Components"]->get_label(), "Model::Components");
    EXPECT_EQ(m["Components"]->get_desc(), "A list of the model's components");
    EXPECT_EQ(m["Components"]->get_typename(), "ModelCompList");
    const auto* type = kapParameterEnum::ut_dynamic_cast(m["Type"].pointer());
    ASSERT_NE(type, nullptr);
    ASSERT_EQ(type->num_states(), 4);
    EXPECT_EQ(type->state(0).desc, " Model made of surfaces / wireframes. ");
    EXPECT_EQ(type->get_string(), "unknown");
    const auto* origin = kapParameterEnum::ut_dynamic_cast(m["Origin"].pointer());
    ASSERT_NE(origin, nullptr);
    EXPECT_EQ(origin->get_string(), "unknown");
    EXPECT_EQ(origin->state(origin->find_state("internal")).desc,
              " A model which has been created in Vantor. ");
    EXPECT_EQ(m["Path"]->type(), kapParameterType::path);
    // Enumeration texts match exactly.
    EXPECT_EQ(type->find_state("Triangle"), -1);
}

// ---------------------------------------------------------------------------------------------
// Every declared parameter is named, labelled and described (defaults, ranges and activity are
// checked over these trees and the boundary's in declared_parameters_test.cpp).

void check_tree(const kapParameter& par, const std::string& where, int& checked) {
    ++checked;
    SCOPED_TRACE(where);
    EXPECT_FALSE(par.get_name().empty() && par.parent() != nullptr &&
                 !ut_is_kind_of<kapParameterList>(par.parent()));
    if (const auto* e = kapParameterEnum::ut_dynamic_cast(&par)) {
        for (int i = 0; i < e->num_states(); ++i) {
            EXPECT_FALSE(e->state(i).label.empty());
        }
    }
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) {
        EXPECT_FALSE(par.get_label().empty()) << "a leaf without a label";
        EXPECT_FALSE(par.get_desc().empty()) << "a leaf without a description";
        return;
    }
    std::set<std::string> names;
    for (std::size_t i = 0; i < map->size(); ++i) {
        const kapParameter& c = *map->child(i);
        if (!c.get_name().empty()) {
            EXPECT_TRUE(names.insert(kapdowncase(c.get_name())).second)
                << "repeated name " << c.get_name();
        }
        check_tree(c, where + "." + c.get_name(), checked);
    }
}

TEST(SmallSchemas, EveryDeclaredParameterIsConsistent) {
    const std::function<kapParameter*()> makers[] = {
        [] { return new kapWorkplanePar("W"); },
        [] { return new kapLevelPar("L"); },
        [] { return new kapPatternPar("P"); },
        [] { return new kapModelPar("M"); },
        [] { return new kapStockModelPar("S"); },
        [] { return new kapDrillingHolePar("H"); },
        [] { return new kapModelHierarchyElementPar("E", kapParameterPtr()); },
    };
    for (int units : {0, 1}) {
        kapUnitsScope scope(units);
        int checked = 0;
        for (const auto& make : makers) {
            std::unique_ptr<kapParameter> root(make());
            check_tree(*root, std::to_string(units) + ":" + root->get_name(), checked);
        }
        // Workplane 11, level 3, pattern 1, model 12 + hierarchy 10, stock model 9, hole 1,
        // element 10.
        EXPECT_EQ(checked, 57);
    }
}

// Activity expressions are evaluated by the framework's evaluator binding.
TEST(SmallSchemas, LevelClampIsActiveOnlyForLevels) {
    kapLevelPar l("L");
    EXPECT_TRUE(l["IsClamp"]->is_active());
    ASSERT_TRUE(l["Type"]->set_string("set"));
    EXPECT_FALSE(l["IsClamp"]->is_active());
    EXPECT_TRUE(l["Type"]->is_active());
    ASSERT_TRUE(l["Type"]->set_string("level"));
    EXPECT_TRUE(l["IsClamp"]->is_active());
}

}  // namespace
