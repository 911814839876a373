// The model root and its hierarchy of elements.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "kappar/kapModelPar.h"
#include "kappar/kapWorkplanePar.h"

namespace {

std::vector<std::string> child_names(const kapParameter& par) {
    std::vector<std::string> out;
    if (const auto* map = kapParameterMap::ut_dynamic_cast(&par)) {
        for (std::size_t i = 0; i < map->size(); ++i) {
            out.push_back(map->child(i)->get_name());
        }
    }
    return out;
}

kapModelHierarchyElementPar* element(const kapParameterPtr& p) {
    return kapModelHierarchyElementPar::ut_dynamic_cast(p.pointer());
}

TEST(Model, HierarchyRootIsItsOwnTopElement) {
    kapModelPar m("Bracket");
    kapModelHierarchyElementPar* top = m.hierarchy();
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(element(m["hierarchy"]), top);
    EXPECT_EQ(top->get_typename(), "ModelHierarchyElement");
    EXPECT_EQ(top->get_root(), &m);
    EXPECT_EQ((*top)["Name"]->get_string(), "Bracket");
    // Every model has its own top element; declarations of its children are shared.
    kapModelPar other("Other");
    EXPECT_NE(other.hierarchy(), top);
    EXPECT_EQ(&(*other.hierarchy())["SelectedInGUI"]->impl(), &(*top)["SelectedInGUI"]->impl());
}

// Locked, neither remove_all nor reset touches anything; unlocked, reset declares everything
// again with one empty hierarchy.
TEST(Model, RemoveAllAndResetHonourTheLock) {
    kapModelPar m("M");
    m["Translucency"]->set_int(40);
    m.hierarchy()->add_child("Part");
    const std::size_t size = m.size();
    m.set_locked(true);
    m.remove_all();
    m.reset();
    EXPECT_EQ(m.size(), size);
    ASSERT_NE(m.hierarchy(), nullptr);
    EXPECT_EQ((*m.hierarchy())["Children[0].Name"]->get_string(), "Part");
    {
        kapParameterNoLock unlocked;
        m.remove_all();
    }
    EXPECT_EQ(m.size(), 0u);
    EXPECT_EQ(m.hierarchy(), nullptr);
    m.set_locked(false);
    m.reset();
    EXPECT_EQ(m.size(), size);
    EXPECT_EQ(m["Translucency"]->get_int(), 0);
    ASSERT_NE(m.hierarchy(), nullptr);
    EXPECT_EQ((*m.hierarchy())["Children"]->size(), 0u);
}

// Copies climb to their own elements; an element copied alone keeps the parent it had.
TEST(Model, CopiesCarryTheHierarchy) {
    kapModelPar m("M");
    kapParameterPtr a = m.hierarchy()->add_child("A");
    element(a)->add_child("B");
    element(a)->add_component({kapObjectId{1}, kapObjectId{2}});
    std::unique_ptr<kapParameter> c(m.create_new());
    auto* copy = kapModelPar::ut_dynamic_cast(c.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(copy->is_equal(m));
    kapModelHierarchyElementPar* top = copy->hierarchy();
    ASSERT_NE(top, nullptr);
    EXPECT_NE(top, m.hierarchy());
    EXPECT_TRUE(top->get_parent().empty());
    auto* a2 = element((*top)["Children[0]"]);
    ASSERT_NE(a2, nullptr);
    EXPECT_NE(a2, element(a));
    EXPECT_EQ(a2->get_parent().pointer(), top);
    EXPECT_EQ(element((*a2)["Children[0]"])->get_parent().pointer(), a2);
    EXPECT_EQ(a2->components(), element(a)->components());
    EXPECT_EQ(a2->get_root(), copy);
    kapModelHierarchyElementPar alone(*element(a));
    EXPECT_EQ(alone.get_parent().pointer(), m.hierarchy());
    EXPECT_EQ(alone["parent.Name"]->get_string(), "M");
    EXPECT_EQ(element(a)->get_parent().pointer(), m.hierarchy());
}

TEST(HierarchyElement, ParentClimbsTheTree) {
    kapModelPar m("Top");
    kapModelHierarchyElementPar* top = m.hierarchy();
    kapParameterPtr a = top->add_child("A");
    kapParameterPtr b = element(a)->add_child("B");
    ASSERT_NE(element(b), nullptr);

    EXPECT_TRUE((*top)["parent"].empty());
    // "Parent" always climbs: the declared child of that name is reached by its position only.
    EXPECT_EQ(top->find_child("Parent")->get_string(), "");
    EXPECT_TRUE((*top)["parent.Name"]->is_error());

    EXPECT_EQ(b["parent"].pointer(), a.pointer());
    EXPECT_EQ(b["PARENT.parent"].pointer(), top);
    EXPECT_EQ(b["parent.parent.Name"]->get_string(), "Top");
    EXPECT_TRUE(b["parent.parent.parent.Name"]->is_error());
    EXPECT_EQ(b["parent.Children[0]"].pointer(), b.pointer());
    // Paths are built from the parent's path.
    EXPECT_EQ(b["Path"]->get_string(), "Top/A/B");
    EXPECT_EQ(element(b)->find_child("Parent")->get_string(), "Top/A");
}

TEST(HierarchyElement, PropertiesAndParameters) {
    kapModelHierarchyElementPar e("E", kapParameterPtr());
    kapParameterPtr added =
        e.add_property("Material", kapParameterPtr(new kapParameterString("Al")));
    ASSERT_FALSE(added->is_error());
    EXPECT_EQ(added->get_group_name(), "Model Hierarchy");
    EXPECT_EQ(e["material"]->get_string(), "Al");
    EXPECT_TRUE(e.add_property("Nothing", kapParameterPtr())->is_error());

    kapParameterPtr first(new kapParameterMap());
    kapParameterPtr second(new kapParameterMap());
    kapParameterMap::ut_dynamic_cast(second.pointer())
        ->add("Density", kapParameterPtr(new kapParameterString("2.7")));
    e.set_parameters(first);
    e.set_parameters(second);
    const std::vector<std::string> names = child_names(e);
    EXPECT_EQ(std::count(names.begin(), names.end(), "Parameters"), 1);
    EXPECT_EQ(e["Parameters"].pointer(), second.pointer());
    EXPECT_EQ(e["Parameters.Density"]->get_string(), "2.7");
    EXPECT_EQ(first->parent(), nullptr);
}

TEST(HierarchyElement, ComponentsAndWorkplanes) {
    kapModelHierarchyElementPar e("E", kapParameterPtr());
    const kapUniqueIdPair c1{kapObjectId{1}, kapObjectId{10}};
    const kapUniqueIdPair c2{kapObjectId{2}, kapObjectId{20}};
    EXPECT_TRUE(e.add_component(c1));
    EXPECT_TRUE(e.add_component(c2));
    EXPECT_FALSE(e.add_component(c1));
    EXPECT_TRUE(e.remove_component(c1));
    EXPECT_FALSE(e.remove_component(c1));
    ASSERT_EQ(e.components().size(), 1u);
    EXPECT_EQ(e.components()[0], c2);

    kapWorkplanePar wp("Front");
    kapParameterPtr entry = e.add_workplane({"Front", wp.get_id()});
    ASSERT_FALSE(entry->is_error());
    kapParameterPtr second = e.add_workplane({"Gone", kapObjectId{}});
    ASSERT_EQ(e["Workplanes"]->size(), 2u);
    EXPECT_EQ(e["Workplanes[0].Name"]->get_string(), "Front");
    EXPECT_EQ(e["Workplanes[0].Workplane"]->follow(), &wp);
    EXPECT_EQ(e["Workplanes[1].Name"]->get_string(), "Gone");
    EXPECT_TRUE(e["Workplanes[1].Workplane"]->get_ref_id().empty());
}

TEST(HierarchyElement, RemoveAllEmptiesChildrenThenItself) {
    kapModelPar m("M");
    kapModelHierarchyElementPar* top = m.hierarchy();
    kapParameterPtr a = top->add_child("A");
    kapParameterPtr b = top->add_child("B");
    element(a)->add_child("A1");

    // Locked through the model: nothing changes.
    m.set_locked(true);
    top->remove_all();
    EXPECT_EQ(top->size(), 9u);
    EXPECT_EQ(a->size(), 9u);
    m.set_locked(false);

    top->remove_all();
    EXPECT_EQ(top->size(), 0u);
    EXPECT_EQ(a->size(), 0u);
    EXPECT_EQ(b->size(), 0u);
    EXPECT_TRUE(top->add_child("C")->is_error());
    EXPECT_TRUE(top->add_workplane({"W", kapObjectId{}})->is_error());

    // An element without children clears only its own parameters.
    kapModelHierarchyElementPar lone("L", kapParameterPtr());
    lone.add_property("Extra", kapParameterPtr(new kapParameterString("x")));
    lone.remove_all();
    EXPECT_EQ(lone.size(), 0u);
}

}  // namespace
