#pragma once
// Patterns: the entity of a host pattern. It declares no parameters of its own.

#include "host/kapPattern.h"
#include "kappar/kapEntity.h"

class KAPPAR_API kapPatternParLoader : public kapSmallEntityParLoader {
  public:
    using kapSmallEntityParLoader::kapSmallEntityParLoader;
};

class KAPPAR_API kapPatternParUpdater : public kapEntityUpdater<kapPatternParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // The schema has not changed since version 0: the step carries the version forward.
    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
};

class KAPPAR_API kapPatternPar : public kapEntityRoot<kapPatternPar> {
    UT_TYPE(kapPatternPar, kapParameterRoot)

    static constexpr std::string_view kKind = "pattern";
    static constexpr int kVersion = 1;
    using Loader = kapPatternParLoader;
    using Updater = kapPatternParUpdater;
    static std::span<const kapDeclRow> schema();  // empty

    explicit kapPatternPar(const utString& name) : kapEntityRoot(name) {
        pattern_ = nullptr;
        reset();
    }
    kapPatternPar(const kapPatternPar& o) = default;

    // The host pattern this entity describes (not owned); null until set.
    const kapPattern* get_pattern() const noexcept { return pattern_; }
    void set_pattern(const kapPattern* pattern) noexcept { pattern_ = pattern; }

  private:
    const kapPattern* pattern_ = nullptr;
};
