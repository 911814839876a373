#pragma once
// Loading saved pairs into a root, and bringing a loaded root to the current version.

#include <memory>
#include <vector>

#include "containers/co.h"
#include "kapparameter/kapParameter.h"

// Opaque pair of unique ids that a file associates with a parameter.
struct kapUniqueIdPair {
    kapObjectId first;
    kapObjectId second;
    bool operator==(const kapUniqueIdPair&) const = default;
};
using kapUniqueIdPtr = std::shared_ptr<const kapUniqueIdPair>;

// Loads (key, value) pairs into a root. load_par maps the key through the root's
// lookup_key_synonym, finds the parameter by name or legacy key along the path (letter case
// ignored, indices included) and assigns the value text in the parameter's own form. A pair that
// the schema does not hold is kept in kapParameterUpdater::get_unrecognised_pars(), and so is a
// value that the parameter refuses, so nothing read is lost. Change callbacks do not run while a
// pair is loaded.
class kapParameterLoader {
  public:
    kapParameterLoader(kapParameterRoot& root, int version);
    virtual ~kapParameterLoader();
    kapParameterLoader(const kapParameterLoader&) = delete;
    kapParameterLoader& operator=(const kapParameterLoader&) = delete;

    // 1: stored in a declared parameter; 0: not stored (kept as unrecognised, or dropped by an
    // entity's rule); -1: the parameter refused the value (it is kept as unrecognised).
    virtual int load_par(const kapParameterKey& key, const utString& value);
    // Adds a parameter that the file itself defines.
    virtual void define_par(const kapParameterKey& key, kapParameterPtr par);
    // Points the reference at `key` to the first id of the pair.
    virtual void associate(const kapParameterKey& key, const kapUniqueIdPtr& id);
    // Ends loading: the root is left unmodified.
    virtual void finalise_loading();

    int version() const noexcept { return version_; }
    kapParameterRoot& root() noexcept { return root_; }
    // The current keys of the pairs stored so far, in the order met.
    const utStringcoSList& loaded_keys() const noexcept { return loaded_; }
    // The parameter the last pair stored (the last of loaded_keys()), or null before the first.
    const kapParameter* last_stored() const noexcept { return last_stored_; }

    // The parameter that `load_par` of the base would store `key` in, before any rewrite: the
    // node (or null) at the root's synonym of `key`, that current key in `current`. The last
    // key resolved is remembered until the next pair is stored or the tree changes shape
    // through the loader, so that a reader asking first and the load that follows find the
    // parameter once.
    const kapParameter* resolve(const utString& key, const utString** current = nullptr);
    // Forgets the remembered key (call it after adding or removing parameters of the root).
    void forget_resolved() noexcept { resolved_valid_ = false; }

  protected:
    kapParameterRoot& root_;
    int version_;
    utStringcoSList loaded_;

  private:
    utString resolved_key_;
    utString resolved_current_;
    const kapParameter* resolved_node_ = nullptr;
    bool resolved_valid_ = false;
    const kapParameter* last_stored_ = nullptr;
};

// One step of a version chain: migrates the root from version N to N + 1 and sets `version`.
using kapParameterUpdateFn = void (*)(int& version, kapParameterRoot& root,
                                      const utStringcoSList& list);

// The steps of a class in ascending order of N starting at 0: entry N is update_from_N_to_N+1.
class kapParameterSimpleUpdatercoSList {
  public:
    void insert_last(kapParameterUpdateFn fn) { steps_.push_back(fn); }
    std::size_t size() const noexcept { return steps_.size(); }
    kapParameterUpdateFn operator[](std::size_t i) const noexcept { return steps_[i]; }
    auto begin() const noexcept { return steps_.begin(); }
    auto end() const noexcept { return steps_.end(); }
    bool operator==(const kapParameterSimpleUpdatercoSList&) const = default;

  private:
    std::vector<kapParameterUpdateFn> steps_;
};

class kapParameterUpdater {
  public:
    // Brings `root`, saved at `version`, to the current version. This base has no steps.
    virtual void update(int version, kapParameterRoot& root, const utStringcoSList& list);
    virtual ~kapParameterUpdater();
    kapParameterUpdater(const kapParameterUpdater&) = delete;
    kapParameterUpdater& operator=(const kapParameterUpdater&) = delete;

    // The pairs met while loading that the schema does not hold, key to value text. Shared by
    // every loader: clear it before loading an entity and read it after updating.
    static utStringutStringcoTable& get_unrecognised_pars();

  protected:
    kapParameterUpdater() = default;
    // Runs, in order, the steps whose starting version is not below `version`, each receiving
    // the running version; the root ends at the version the last step set. Runs none for a root
    // saved at (or after) the last step's target.
    static void apply_update(int version, kapParameterRoot& root,
                             const kapParameterSimpleUpdatercoSList* list,
                             const utStringcoSList& keys);
};
