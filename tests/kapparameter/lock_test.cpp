// A locked entity refuses every change: one row per mutator of the parameter classes and the model.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "kappar/kapModelPar.h"
#include "kapparameter/kapParameter.h"
#include "par_builders.h"

namespace {

// A locked root with one parameter of each kind, and a locked model.
struct Locked {
    kapParameterRoot root{"level", 1, "L"};
    kapModelPar model{"M"};
    kapParameterRoot other{"level", 1, "O"};
    Locked() {
        root.add("Num", length(1));
        root.add("Kind", choice({"a", "b"}));
        root.add("Text", text(""));
        root.add("Vec", vec(3, "(0;0;0)"));
        root.add("Ref", kapParameterPtr(new kapParameterRef()));
        root.add("Map", ::map());
        root.add("Map.Inner", length(2));
        other.add("Num", length(7));
        other.add("Map", ::map());
        model.hierarchy()->add_child("Part");
        root.set_locked(true);
        model.set_locked(true);
    }
    kapParameterMap& map() { return *kapParameterMap::ut_dynamic_cast(root["Map"].pointer()); }
    kapModelHierarchyElementPar& top() { return *model.hierarchy(); }
};

// Each action tries one change on the locked fixture and answers whether it reported success.
using Action = std::function<bool(Locked&)>;

// clang-format off
const std::pair<const char*, Action> kRefused[] = {
    {"kapParameter::set_int",                         [](Locked& f) { return f.root["Num"]->set_int(5); }},
    {"kapParameter::set_double",                      [](Locked& f) { return f.root["Num"]->set_double(5); }},
    {"kapParameter::set_string",                      [](Locked& f) { return f.root["Num"]->set_string("a+1"); }},
    {"kapParameter::set_double_in_units",             [](Locked& f) { return f.root["Num"]->set_double_in_units(5, kapUnitsType{}); }},
    {"kapParameter::set_defaults",                    [](Locked& f) { return f.root["Num"]->set_defaults("4", "5"); }},
    {"kapParameter::copy_value_from",                 [](Locked& f) { return f.root["Num"]->copy_value_from(*f.other["Num"]); }},
    {"kapParameterNumeric::set_int",                  [](Locked& f) { return f.root["Vec[1]"]->set_int(3); }},
    {"kapParameterNumeric::set_double",               [](Locked& f) { return f.root["Vec[0]"]->set_double(3); }},
    {"kapParameterNumeric::set_string",               [](Locked& f) { return f.root["Vec[2]"]->set_string("3"); }},
    {"kapParameterNumeric::set_double_in_units",      [](Locked& f) { return f.root["Vec[0]"]->set_double_in_units(3, kapUnitsType{}); }},
    {"kapParameterEnum::set_int",                     [](Locked& f) { return f.root["Kind"]->set_int(1); }},
    {"kapParameterEnum::set_double",                  [](Locked& f) { return f.root["Kind"]->set_double(1); }},
    {"kapParameterEnum::set_string",                  [](Locked& f) { return f.root["Kind"]->set_string("b"); }},
    {"kapParameterEnum::copy_value_from",             [](Locked& f) { kapParameterPtr c(f.root["Kind"]->create_new()); c->set_string("b"); return f.root["Kind"]->copy_value_from(*c); }},
    {"kapParameterString::set_int",                   [](Locked& f) { return f.root["Text"]->set_int(1); }},
    {"kapParameterString::set_double",                [](Locked& f) { return f.root["Text"]->set_double(1); }},
    {"kapParameterString::set_string",                [](Locked& f) { return f.root["Text"]->set_string("x"); }},
    {"kapParameterString::copy_value_from",           [](Locked& f) { return f.root["Text"]->copy_value_from(*f.other["Num"]); }},
    {"kapParameterVector::set_component",             [](Locked& f) { return kapParameterVector::ut_dynamic_cast(f.root["Vec"].pointer())->set_component(0, 4); }},
    {"kapParameterVector::set_string",                [](Locked& f) { return f.root["Vec"]->set_string("(1;2;3)"); }},
    {"kapParameterVector::set_double",                [](Locked& f) { return f.root["Vec"]->set_double(2); }},
    {"kapParameterVector::copy_value_from",           [](Locked& f) { return f.root["Vec"]->copy_value_from(*f.other["Num"]); }},
    {"kapParameterRef::set_string",                   [](Locked& f) { return f.root["Ref"]->set_string(std::to_string(f.other.get_id().value)); }},
    {"kapParameterRef::set_ref_from_id",              [](Locked& f) { return f.root["Ref"]->set_ref_from_id(f.other.get_id()); }},
    {"kapParameterRef::set_int",                      [](Locked& f) { return f.root["Ref"]->set_int(static_cast<int>(f.other.get_id().value)); }},
    {"kapParameterRef::copy_value_from",              [](Locked& f) { kapParameterPtr c(f.root["Ref"]->create_new()); c->set_ref_from_id(f.other.get_id()); return f.root["Ref"]->copy_value_from(*c); }},
    {"kapParameterMap::add",                          [](Locked& f) { return !f.root.add("New", length(1))->is_error(); }},
    {"kapParameterMap::append",                       [](Locked& f) { return !f.map().append(length(1))->is_error(); }},
    {"kapParameterMap::remove",                       [](Locked& f) { return f.root.remove("Map.Inner"); }},
    {"kapParameterMap::remove_all",                   [](Locked& f) { f.map().remove_all(); return f.map().size() == 0; }},
    {"kapParameterMap::copy_value_from",              [](Locked& f) { return f.root.copy_value_from(f.other) && f.root["Num"]->get_double() == 7; }},
    {"kapParameterMap::copy_children_from",           [](Locked& f) { f.root.copy_children_from(f.other); return f.root.size() != 6; }},
    {"kapParameterRoot::operator=",                   [](Locked& f) { f.root = f.other; return f.root.size() != 6; }},
    {"kapParameterRoot::reset",                       [](Locked& f) { f.root.reset(); return f.root.size() != 6; }},
    {"kapModelPar::reset",                            [](Locked& f) { f.model.reset(); return f.model.hierarchy() == nullptr || f.top()["Children"]->size() != 1; }},
    {"kapModelPar::remove_all",                       [](Locked& f) { f.model.remove_all(); return f.model.size() == 0; }},
    {"kapModelHierarchyElementPar::add_property",     [](Locked& f) { return !f.top().add_property("P", length(1))->is_error(); }},
    {"kapModelHierarchyElementPar::set_parameters",   [](Locked& f) { auto* m = new kapParameterMap(); m->add("X", length(1)); f.top().set_parameters(kapParameterPtr(m)); return f.top()["Parameters.X"]->get_double() == 1.0; }},
    {"kapModelHierarchyElementPar::add_child",        [](Locked& f) { return !f.top().add_child("Body")->is_error(); }},
    {"kapModelHierarchyElementPar::add_component",    [](Locked& f) { return f.top().add_component({kapObjectId{1}, kapObjectId{2}}); }},
    {"kapModelHierarchyElementPar::remove_component", [](Locked& f) { return f.top().remove_component({kapObjectId{1}, kapObjectId{2}}); }},
    {"kapModelHierarchyElementPar::add_workplane",    [](Locked& f) { return !f.top().add_workplane({"W", f.other.get_id()})->is_error(); }},
    {"kapModelHierarchyElementPar::remove_all",       [](Locked& f) { f.top().remove_all(); return f.top().size() == 0; }},
    {"kapModelPar::remove",                           [](Locked& f) { return f.model.remove("Hierarchy"); }},
};
// clang-format on

TEST(Locking, EveryMutatorIsRefusedAndChangesNothing) {
    for (const auto& [name, act] : kRefused) {
        Locked f;
        kapParameterRoot before(f.root);
        kapModelPar model_before(f.model);
        const std::size_t components = f.top().components().size();
        const int refused = f.root.refused_writes() + f.model.refused_writes();
        EXPECT_FALSE(act(f)) << name << " answered a change";
        EXPECT_TRUE(f.root.is_equal(before)) << name << " changed the root";
        EXPECT_TRUE(f.model.is_equal(model_before)) << name << " changed the model";
        EXPECT_EQ(f.top().components().size(), components) << name;
        EXPECT_TRUE(f.root.root_locked() && f.model.root_locked()) << name << " dropped the lock";
        EXPECT_GT(f.root.refused_writes() + f.model.refused_writes(), refused)
            << name << " was not counted as refused";
    }
}

TEST(Locking, VectorComponentsWriteThroughWhenUnlocked) {
    Locked f;
    f.root.set_locked(false);
    kapParameterPtr x = f.root["Vec[1]"];
    EXPECT_TRUE(x->set_double(4));
    EXPECT_TRUE(f.root["Vec[2]"]->set_string("-2.5"));
    EXPECT_FALSE(f.root["Vec[0]"]->set_string("Num*2"));  // components hold plain numbers
    EXPECT_EQ(f.root["Vec"]->get_string(), "(0;4;-2.5)");
    EXPECT_DOUBLE_EQ(x->get_double(), 4.0);
    // The vector is gone: the component refuses instead of writing nowhere.
    ASSERT_TRUE(f.root.remove("Vec"));
    EXPECT_FALSE(x->set_double(1));
}

TEST(Locking, AssignmentKeepsTheTargetsLock) {
    Locked f;
    kapParameterRoot target{"level", 1, "T"};
    target = f.root;  // an unlocked target takes the tree, not the lock
    EXPECT_FALSE(target.root_locked());
    EXPECT_TRUE(target.is_equal(f.root));
    EXPECT_TRUE(target["Num"]->set_double(3));
}

}  // namespace
