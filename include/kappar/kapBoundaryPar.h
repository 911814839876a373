#pragma once
// Boundaries: closed curves that limit where toolpaths machine, computed from the block, a
// silhouette, rest material, a stock model, a boolean operation of two boundaries ...

#include "kappar/kapEntity.h"

class kapPattern;  // the host's boundary geometry

// Legacy rules: "use_min_angle" is no longer read; a non-empty "stockmodel" names the stock
// model itself and loads as "stockmodel.id".
class KAPPAR_API kapBoundaryParLoader : public kapParameterLoader {
  public:
    using kapParameterLoader::kapParameterLoader;
    int load_par(const kapParameterKey& key, const utString& value) override;
};

class KAPPAR_API kapBoundaryParUpdater : public kapEntityUpdater<kapBoundaryParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // Carries the version forward.
    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
    // Contact conversion boundaries kept their contact point boundary in "Limit.Boundary".
    static void update_from_1_to_2(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
    // The block's radius became its diameter.
    static void update_from_2_to_3(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
};

class KAPPAR_API kapBoundaryPar : public kapEntityRoot<kapBoundaryPar> {
    UT_TYPE(kapBoundaryPar, kapParameterRoot)

    static constexpr std::string_view kKind = "boundary";
    static constexpr int kVersion = 3;
    static constexpr std::string_view kGroup = "Boundary";
    // Elements of "ThicknessSetValues" every boundary holds.
    static constexpr int kThicknessSets = 18;
    using Loader = kapBoundaryParLoader;
    using Updater = kapBoundaryParUpdater;
    static std::span<const kapDeclRow> schema();

    explicit kapBoundaryPar(const utString& name) : kapEntityRoot(name) { reset(); }
    kapBoundaryPar(const kapBoundaryPar& o) = default;

    // The boundary's geometry; not owned, null until the host sets it.
    const kapPattern* get_boundary() const noexcept { return boundary_; }
    void set_boundary(const kapPattern* boundary) noexcept { boundary_ = boundary; }

    int get_precedence() const override { return 6; }

    // Declares the schema, then gives the last three thickness sets their own modes and set 16
    // its collision thickness. A call made while another runs (the process-wide flag is set)
    // only clears the flag.
    void reset() override;
    // True while a reset runs.
    static bool is_resetting() noexcept;

    // Legacy key to current key, by the exact (case-sensitive) table of renamed keys.
    utString lookup_key_synonym(const utString& key) const override;
    // "edits" (any letter case): the boundary's edit-history list from the host, or its child at
    // the rest of the key ("edits.List[0]").
    kapParameterPtr lookup_method(const kapParameterKey& key) const override;
    // While "Exclusive" refers to a live toolpath, "Tolerance", "Thickness" and "Tool" follow
    // that toolpath and are not locked through this boundary.
    kapObjectId get_lock_id_imp(const kapParameter& par) const override;

    // The rows of the synonym table, in the table's order (for tests and the tool).
    struct Synonym {
        std::string_view legacy;
        std::string_view current;
    };
    static std::span<const Synonym> key_synonyms();
    // Every path the boundary's code names: the synonym targets, then the paths of reset, the
    // update steps and the lock rule.
    static std::span<const std::string_view> named_paths();

  private:
    const kapPattern* boundary_ = nullptr;
};
