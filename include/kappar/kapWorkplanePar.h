#pragma once
// Workplanes: a local frame given by origin, axes and Euler angles.

#include "host/McWorkPlane.h"
#include "kappar/kapEntity.h"

class KAPPAR_API kapWorkplaneParLoader : public kapSmallEntityParLoader {
  public:
    using kapSmallEntityParLoader::kapSmallEntityParLoader;
};

class KAPPAR_API kapWorkplaneParUpdater : public kapEntityUpdater<kapWorkplaneParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // The schema has not changed since version 0: the step carries the version forward.
    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
};

class KAPPAR_API kapWorkplanePar : public kapEntityRoot<kapWorkplanePar> {
    UT_TYPE(kapWorkplanePar, kapParameterRoot)

    static constexpr std::string_view kKind = "workplane";
    static constexpr int kVersion = 1;
    static constexpr std::string_view kGroup = "Workplane";
    using Loader = kapWorkplaneParLoader;
    using Updater = kapWorkplaneParUpdater;
    static std::span<const kapDeclRow> schema();

    explicit kapWorkplanePar(const utString& name) : kapEntityRoot(name) {
        workplane_ = nullptr;
        reset();
    }
    kapWorkplanePar(const kapWorkplanePar& o) = default;

    // The host workplane this entity describes (not owned); null until set.
    const McWorkPlane* get_workplane() const noexcept { return workplane_; }
    void set_workplane(const McWorkPlane* workplane) noexcept { workplane_ = workplane; }

  private:
    const McWorkPlane* workplane_ = nullptr;
};
