#include "kappar/kapModelHierarchyElementPar.h"

#include "kappar/kapEntity.h"
#include "kappar/kapSchemaNotation.h"

namespace {
using namespace kap_decl;

constexpr std::string_view kGroup = "Model Hierarchy";

// clang-format off
KAP_TABLE(kElementRows)
//            Path             Label              Default(s)       Active  Description
KAP_STRING   ("Parent",        "Parent",          "",              "",
              "Path of the parent element in the model hierarchy; empty for the top element.")
KAP_STRING   ("Name",          "Name",            "",              "",     "Name of this element of the model hierarchy.")
KAP_STRING   ("Path",          "Path",            "",              "",
              "Location of this element in the model hierarchy, from the top element down.")
KAP_OPEN_ARRAY("Children",     "Children",                         "",     "Elements nested below this one.")
KAP_OPEN_MAP ("Parameters",    "Parameters",                       "",     "Parameters attached to this element.")
KAP_OPEN_MAP ("ModelMetadata", "",                                 "",
              "Information about the model, as recorded by the application.")
KAP_OPEN_ARRAY("Workplanes",   "Workplanes",                       "",     "Workplanes that belong to this element.")
KAP_DATA     ("Components",    "Components",      "ModelCompList", "",     "Model components that belong to this element.")
KAP_FLAG     ("SelectedInGUI", "Selected in GUI", "0",             "",
              "Whether this element is selected in the model tree.")
KAP_END_TABLE

// One entry of "Workplanes".
KAP_TABLE(kWorkplaneRows)
//            Path             Label              Default(s)       Active  Description
KAP_STRING   ("Name",          "Name",            "",              "",     "Name of the workplane.")
KAP_REF      ("Workplane",     "Workplane",       "workplane",     "",     "The workplane entity this entry refers to.")
KAP_END_TABLE
// clang-format on

// The element node's own declaration travels with the prototype, whose declaration every element
// shares (with its child index): its type name, and children may be added beyond the declared
// ones (add_property).
void declare_element(kapParameterRoot& proto) {
    proto.set_typename(utString(kapModelHierarchyElementPar::kTypeName));
    proto.not_fixed();
    kap_declare(&proto, kElementRows, kGroup);
}
void declare_workplane(kapParameterRoot& proto) {
    kap_declare(&proto, kWorkplaneRows, kGroup);
}

// Prototypes are kept per unit system by a kind name of their own.
const kapParameterRoot& element_prototype() {
    return kap_prototype("ModelHierarchyElement", 0, &declare_element);
}
const kapParameterRoot& workplane_prototype() {
    return kap_prototype("ModelHierarchyWorkplane", 0, &declare_workplane);
}

// The declaration of the element node itself, shared by every element: its type name, and
// children may be added beyond the declared ones (add_property).
kapParameterImplPtr element_impl() {
    static kapParameterImpl* impl = [] {
        auto* p = new kapParameterImpl();
        p->type_name = utString(kapModelHierarchyElementPar::kTypeName);
        p->fixed = false;
        p->pinned = true;
        return p;
    }();
    return kapParameterImplPtr(impl);
}

kapParameterMap* array_of(const kapParameterMap& element, std::string_view name) {
    return kapParameterArray::ut_dynamic_cast(element.find_child(name));
}

}  // namespace

kapModelHierarchyElementPar::kapModelHierarchyElementPar(const utString& name,
                                                         kapParameterPtr parent)
    : parent_element_(std::move(parent)) {
    set_impl(element_impl());
    copy_children_from(element_prototype());
    utString parent_path;
    if (parent_element_) {
        if (const kapParameter* p = parent_element_->find_node("Path")) {
            parent_path = p->get_string();
        }
    }
    find_child("Parent")->set_string(parent_path);
    find_child("Name")->set_string(name);
    find_child("Path")->set_string(parent_path.empty() ? name : parent_path + "/" + name);
}

kapModelHierarchyElementPar::kapModelHierarchyElementPar(const kapModelHierarchyElementPar& o)
    : kapParameterMap(o), parent_element_(o.parent_element_), components_(o.components_) {
    // The copied child elements still name the source as their parent.
    if (kapParameterMap* children = array_of(*this, "Children")) {
        for (std::size_t i = 0; i < children->size(); ++i) {
            auto* child =
                kapModelHierarchyElementPar::ut_dynamic_cast(children->child(i).pointer());
            if (child != nullptr && child->parent_element_.pointer() == &o) {
                child->parent_element_ = kapParameterPtr(this);
            }
        }
    }
}

kapModelHierarchyElementPar::~kapModelHierarchyElementPar() {
    // Deleted while child elements still link back (a copy deleted by its owner, an element that
    // lived on the stack): cut the back-links first. The count is raised around it so that the
    // links' release cannot delete this element a second time.
    ++refs_;
    if (kapParameterMap* children = array_of(*this, "Children")) {
        for (std::size_t i = 0; i < children->size(); ++i) {
            auto* child =
                kapModelHierarchyElementPar::ut_dynamic_cast(children->child(i).pointer());
            if (child != nullptr && child->parent_element_.pointer() == this) {
                child->parent_element_ = kapParameterPtr();
            }
        }
    }
    --refs_;
}

kapParameterPtr kapModelHierarchyElementPar::add_property(const utString& name,
                                                          kapParameterPtr par) {
    if (par) par->set_group_name(utString(kGroup));
    return add(kapParameterKey(name), par);
}

void kapModelHierarchyElementPar::set_parameters(kapParameterPtr map) {
    remove(kapParameterKey("Parameters"));
    add(kapParameterKey("Parameters"), map);
}

kapParameterPtr kapModelHierarchyElementPar::add_child(const utString& name) {
    if (!begin_write()) return kapParameterError::create(kapErrLocked, "locked: " + name);
    kapParameterMap* children = array_of(*this, "Children");
    if (children == nullptr) {
        return kapParameterError::create(kapErrNoItem, "no such item: Children");
    }
    kapParameterPtr child(new kapModelHierarchyElementPar(name, kapParameterPtr(this)));
    return children->append(child);
}

bool kapModelHierarchyElementPar::add_component(const kapUniqueIdPair& id) {
    if (!begin_write()) return false;
    return components_.add(id);
}

bool kapModelHierarchyElementPar::remove_component(const kapUniqueIdPair& id) {
    if (!begin_write()) return false;
    return components_.remove(id);
}

kapParameterPtr kapModelHierarchyElementPar::add_workplane(const kapNamedWorkplane& workplane) {
    kapParameterMap* workplanes = array_of(*this, "Workplanes");
    if (workplanes == nullptr) {
        return kapParameterError::create(kapErrNoItem, "no such item: Workplanes");
    }
    auto* entry = new kapParameterMap();
    kapParameterPtr handle(entry);
    entry->copy_children_from(workplane_prototype());
    entry->find_child("Name")->set_string(workplane.name);
    entry->find_child("Workplane")->set_ref_from_id(workplane.workplane);
    return workplanes->append(handle);
}

kapParameterPtr kapModelHierarchyElementPar::operator[](const kapParameterKey& key) const {
    if (key.valid() && !key.empty() && kapdowncase(key.first_view()) == "parent") {
        const kapParameterKey rest = key.remainder();
        if (rest.empty()) return parent_element_;
        return parent_element_[rest];
    }
    return kapParameterMap::operator[](key);
}

void kapModelHierarchyElementPar::remove_all() {
    if (!begin_write()) return;
    if (kapParameterMap* children = array_of(*this, "Children")) {
        for (std::size_t i = 0; i < children->size(); ++i) {
            kapParameterPtr entry = children->child(i);
            if (auto* map = kapParameterMap::ut_dynamic_cast(entry.pointer())) map->remove_all();
        }
    }
    kapParameterMap::remove_all();
}
