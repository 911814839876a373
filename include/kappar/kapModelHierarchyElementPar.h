#pragma once
// One element of a model's hierarchy (assemblies, parts, bodies ...): its name and path, its
// child elements, free parameters, workplanes and model components.
//
// Elements form a tree: an element's "Children" array holds its child elements, and each child
// keeps a counted handle to its parent element. The back-links make a cycle that remove_all()
// breaks: call it on the top element before letting the last handle of a tree with children go
// (the model does so when it is destroyed). Deleting an element directly is always safe.
//
// Lookups climb the tree: any key whose first component is "parent" (in any letter case) is
// answered from the parent element, so "parent.parent.Name" reads the grandparent's name. The
// top element has no parent: "parent" gives an empty handle there.

#include "host/kapMcParModelCompList.h"
#include "host/kapNamedWorkplane.h"
#include "kappar/kappar_export.h"
#include "kapparameter/kapParameterLoader.h"

class KAPPAR_API kapModelHierarchyElementPar : public kapParameterMap {
    UT_TYPE(kapModelHierarchyElementPar, kapParameterMap)

    // Type name of every element.
    static constexpr std::string_view kTypeName = "ModelHierarchyElement";

    // An element named `name` below `parent` (empty for the top element). "Parent" holds the
    // parent's path and "Path" this element's path: the parent's path, "/" and the name.
    kapModelHierarchyElementPar(const utString& name, kapParameterPtr parent);
    // Copies the tree, the parent handle and the component list. Child elements of the copy have
    // the copy as their parent.
    kapModelHierarchyElementPar(const kapModelHierarchyElementPar& o);
    ~kapModelHierarchyElementPar() override;
    kapParameter* create_new() const override { return new kapModelHierarchyElementPar(*this); }

    // Adds `par` under `name`, in group "Model Hierarchy"; answers what add answers (the added
    // parameter, or an error parameter).
    kapParameterPtr add_property(const utString& name, kapParameterPtr par);
    // Replaces the map of free parameters ("Parameters") by `map`.
    void set_parameters(kapParameterPtr map);
    // A new child element named `name`, appended to "Children"; an error parameter when this
    // element has no "Children" array (after remove_all) or is locked.
    kapParameterPtr add_child(const utString& name);

    // Model components of this element. add answers false when the component is already listed,
    // remove when it is not; both answer false while the element is locked.
    bool add_component(const kapUniqueIdPair& id);
    bool remove_component(const kapUniqueIdPair& id);
    const kapMcParModelCompList& components() const noexcept { return components_; }

    // Appends an entry {"Name", "Workplane" (reference to the workplane entity)} to "Workplanes";
    // answers the entry, or an error parameter when there is no "Workplanes" array.
    kapParameterPtr add_workplane(const kapNamedWorkplane& workplane);

    // The parent element (empty for the top element).
    const kapParameterPtr& get_parent() const noexcept { return parent_element_; }

    // Keys starting with "parent" climb to the parent element; others are looked up here.
    kapParameterPtr operator[](const kapParameterKey& key) const override;
    kapParameterPtr operator[](const kapParameterKey& key) {
        return static_cast<const kapModelHierarchyElementPar&>(*this)[key];
    }

    // Nothing while the element is locked. Otherwise empties every child element (first to last,
    // re-reading the count after each), then removes every parameter of this element.
    void remove_all() override;

  private:
    kapParameterPtr parent_element_;
    kapMcParModelCompList components_;
};
