#pragma once
// Levels and sets: named groups of model components.

#include "kappar/kapEntity.h"

class KAPPAR_API kapLevelParLoader : public kapSmallEntityParLoader {
  public:
    using kapSmallEntityParLoader::kapSmallEntityParLoader;
};

class KAPPAR_API kapLevelParUpdater : public kapEntityUpdater<kapLevelParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // The schema has not changed since version 0: the step carries the version forward.
    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
};

class KAPPAR_API kapLevelPar : public kapEntityRoot<kapLevelPar> {
    UT_TYPE(kapLevelPar, kapParameterRoot)

    static constexpr std::string_view kKind = "level";
    static constexpr int kVersion = 1;
    static constexpr std::string_view kGroup = "Level";
    using Loader = kapLevelParLoader;
    using Updater = kapLevelParUpdater;
    static std::span<const kapDeclRow> schema();

    explicit kapLevelPar(const utString& name) : kapEntityRoot(name) { reset(); }
    kapLevelPar(const kapLevelPar& o) = default;
};
