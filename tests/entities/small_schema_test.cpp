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
