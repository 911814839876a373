#pragma once
// Toolpaths: every setting that defines how a toolpath is calculated (strategy, tool,
// tolerances, stepovers, heights, leads and links, tool axis, turning ...).

#include "kappar/kapEntity.h"

class McTPCompHead;  // the host's calculated toolpath

class KAPPAR_API kapToolpathParLoader : public kapParameterLoader {
  public:
    using kapParameterLoader::kapParameterLoader;
};

class KAPPAR_API kapToolpathParUpdater : public kapEntityUpdater<kapToolpathParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
};

class KAPPAR_API kapToolpathPar : public kapEntityRoot<kapToolpathPar> {
    UT_TYPE(kapToolpathPar, kapParameterRoot)

    static constexpr std::string_view kKind = "toolpath";
    static constexpr int kVersion = 29;
    static constexpr std::string_view kGroup = "Strategy";
    using Loader = kapToolpathParLoader;
    using Updater = kapToolpathParUpdater;
    static std::span<const kapDeclRow> schema();

    explicit kapToolpathPar(const utString& name) : kapEntityRoot(name) { reset(); }
    kapToolpathPar(const kapToolpathPar& o) = default;

    int get_precedence() const override { return 9; }

    const McTPCompHead* get_toolpath() const noexcept { return toolpath_; }
    void set_toolpath(const McTPCompHead* toolpath) noexcept { toolpath_ = toolpath; }

  private:
    const McTPCompHead* toolpath_ = nullptr;
};
