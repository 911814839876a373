#include "kappar/kapModelPar.h"

#include "kappar/kapSchemaNotation.h"

namespace {
using namespace kap_decl;

// The blanks around several descriptions are part of the schema as saved projects know it.
// clang-format off
constexpr kapDeclState kTypeStates[] = {
    {"surfwire", "Surf Wire", " Model made of surfaces / wireframes. "},
    {"triangle", "Triangle",  " Model made of triangles. "},
    {"hybrid",   "Hybrid",    " Model made of surfaces and triangles. "},
    {"unknown",  "Unknown",   " Unknown model type. "},
};

constexpr kapDeclState kOriginStates[] = {
    {"archive",  "Archive",  " A model which has been imported and has not been changed since. "},
    {"modified", "Modified", " A model which has been imported and has since been modified. "},
    {"internal", "Internal", " A model which has been created in Vantor. "},
    {"external", "External", " A model from OLE. "},
    {"unknown",  "Unknown",  " A model whose origin we do not yet know. "},
};

KAP_TABLE(kRows)
//        Path                  Label                   Default(s)                Active
//          Description, extras
KAP_ENUM ("Type",               "Type",                 kTypeStates, "unknown",   "", "The type of model.")
KAP_ENUM ("Origin",             "Origin",               kOriginStates, "unknown", "",
          "The origin of the model - where it came from.")
KAP_PATH ("Path",               "Path",                 "",                       "",
          "The location of the file the model was loaded from.")
KAP_INT  ("ImportTime",         "Import Time",          "0",                      "",
          "The time when the model was imported.")
KAP_INT  ("ModificationTime",   "Modification Time",    "0",                      "",
          "The time the model was last modified.")
KAP_FLAG ("IsBroken",           "Broken",               "0",                      "",
          " Whether or not the file the model was imported from contained errors. Broken models cannot be machined. ")
KAP_FLAG ("HasBadSurface",      "Bad Surface",          "0",                      "",
          " Whether or not any of the components of the model failed to triangulate. Such models will not be "
          "machined. ")
KAP_INT  ("Translucency",       "Translucency",         "0",                      "",
          "The percentage translucency at which the model should be shaded.")
KAP_FLAG ("IsReferenceModel",   "Is Reference Model",   "0",                      "",
          " Whether or not the model is a reference model. Reference models are not considered for machining. ")
KAP_INT  ("NumberOfComponents", "Number of Components", "0",                      "",
          "The number of components in the model.")
KAP_DATA ("Components",         "Model::Components",    "ModelCompList",          "",
          "A list of the model's components")
KAP_END_TABLE
// clang-format on

constexpr std::string_view kHierarchy = "Hierarchy";

}  // namespace

std::span<const kapDeclRow> kapModelPar::schema() {
    return kRows;
}

kapModelPar::~kapModelPar() {
    // Destruction is not an edit: the hierarchy's back-links are broken even on a locked model.
    kapParameterNoLock unlocked;
    if (auto* top = kapParameterMap::ut_dynamic_cast(find_child(kHierarchy))) top->remove_all();
}

void kapModelPar::reset() {
    if (!begin_write()) return;
    kapParameterRoot::reset();
    kapParameterPtr top(new kapModelHierarchyElementPar(get_root_name(), kapParameterPtr()));
    top->set_group_name("Model");
    top->set_label("Model Hierarchy Root");
    top->set_desc("The top of the model's hierarchy of assemblies, parts and bodies.");
    add(kapParameterKey(utString(kHierarchy)), top);
}

void kapModelPar::remove_all() {
    if (!begin_write()) return;
    if (auto* top = kapParameterMap::ut_dynamic_cast(find_child(kHierarchy))) top->remove_all();
    kapParameterMap::remove_all();
}

kapModelHierarchyElementPar* kapModelPar::hierarchy() const noexcept {
    return kapModelHierarchyElementPar::ut_dynamic_cast(find_child(kHierarchy));
}

void kapModelParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    list.insert_last(&update_from_0_to_1);
}

void kapModelParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                            const utStringcoSList&) {
    version = 1;
}

KAPPAR_REGISTER_ENTITY(kapModelPar)
