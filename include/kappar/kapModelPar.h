#pragma once
// Models: an imported or created model, its origin in the project and its hierarchy of elements.

#include "kappar/kapEntity.h"
#include "kappar/kapModelHierarchyElementPar.h"

class KAPPAR_API kapModelParLoader : public kapSmallEntityParLoader {
  public:
    using kapSmallEntityParLoader::kapSmallEntityParLoader;
};

class KAPPAR_API kapModelParUpdater : public kapEntityUpdater<kapModelParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // The schema has not changed since version 0: the step carries the version forward.
    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
};

class KAPPAR_API kapModelPar : public kapEntityRoot<kapModelPar> {
    UT_TYPE(kapModelPar, kapParameterRoot)

    static constexpr std::string_view kKind = "model";
    static constexpr int kVersion = 1;
    static constexpr std::string_view kGroup = "Model";
    using Loader = kapModelParLoader;
    using Updater = kapModelParUpdater;
    static std::span<const kapDeclRow> schema();

    explicit kapModelPar(const utString& name) : kapEntityRoot(name) { reset(); }
    kapModelPar(const kapModelPar& o) = default;
    // Empties the hierarchy (locked or not) before the tree goes.
    ~kapModelPar() override;

    // Declares the schema, then adds the top hierarchy element under "Hierarchy" (group "Model",
    // label "Model Hierarchy Root"). Nothing happens while the model is locked.
    void reset() override;
    // Nothing while the model is locked; otherwise empties the hierarchy, then the root.
    void remove_all() override;

    // The top element of the hierarchy (the child "Hierarchy"), or null after remove_all.
    kapModelHierarchyElementPar* hierarchy() const noexcept;
};
