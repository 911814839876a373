#pragma once
// Entity roots, the process-wide registry of roots and tables of callbacks, scoped guards,
// iteration over children and the global evaluation scope.

#include <cstddef>

#include "containers/co.h"
#include "kapparameter/kapParameterMap.h"
#include "kapparameter/kapParameterValues.h"

class kapParameterLoader;
class kapParameterUpdater;

// ---------------------------------------------------------------------------------------------
// Roots

// The root of one entity's tree: kind, version, name, object id (registered process-wide so that
// references can be followed), modified flag and lock state.
class kapParameterRoot : public kapParameterMap {
    UT_TYPE(kapParameterRoot, kapParameterMap)

    kapParameterRoot(const utString& kind, int version, const utString& name);
    // A deep copy with its own object id.
    kapParameterRoot(const kapParameterRoot& o);
    kapParameterRoot& operator=(const kapParameterRoot& o);
    ~kapParameterRoot() override;
    kapParameter* create_new() const override { return new kapParameterRoot(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::root; }

    // Empties the tree and declares it again with build_tree.
    virtual void reset();
    virtual void build_tree(kapParameter*) {}
    virtual int get_precedence() const { return 0; }
    // A loader bound to this root and a file's version, owned by the caller; null when locked.
    virtual kapParameterLoader* create_loader(kapPtrClaim claim, int version);
    virtual kapParameterUpdater* get_updater();
    // The current key of a legacy key; this base answers the key unchanged.
    virtual utString lookup_key_synonym(const utString& key) const { return key; }
    // lookup_key_synonym's answer written into `out`, whose storage is reused (a loader resolves
    // every saved key through it). A class overriding lookup_key_synonym from a table overrides
    // this too, to answer without building a string; by default it calls lookup_key_synonym.
    virtual void lookup_key_synonym_into(const utString& key, utString& out) const;
    // A member-function parameter for a function name used in expressions; empty when unknown.
    virtual kapParameterPtr lookup_method(const kapParameterKey& key) const;
    // Whether the member function `fn` called on a parameter of this tree, or the answer of
    // lookup_method for the function `name` (letter case ignored), depends on nothing but the
    // values of parameter trees and their shape: no host state, hooks, version levels, clocks or
    // globals. Activity conditions calling such functions have their answers remembered until
    // a value or the structure of any tree changes. This base says so of none.
    virtual bool answers_from_values(kapMemberFn) const { return false; }
    virtual bool method_answers_from_values(std::string_view) const { return false; }
    // The id that locks `par`; an empty id leaves it unlocked even while the root is locked.
    virtual kapObjectId get_lock_id_imp(const kapParameter&) const { return id_; }

    static kapParameterRoot* get_root(const kapParameter* p) noexcept { return get_root_of(p); }
    const utString& get_root_type() const noexcept { return kind_; }
    const utString& get_root_name() const noexcept { return name_; }
    void set_root_name(const utString& name) { name_ = name; }
    int version() const noexcept { return version_; }
    void set_version(int v) noexcept { version_ = v; }
    kapObjectId get_id() const noexcept { return id_; }
    kapRefToObjectId get_ref_to_id() const noexcept { return kapRefToObjectId(id_); }
    bool get_modified() const noexcept { return modified_; }
    void set_modified(bool m) noexcept { modified_ = m; }
    // The parameter the last write in this tree reported (the written one, or the one its
    // declaration names with set_onmodify_param_name); empty before the first write and when
    // the name led to the root itself. A change
    // callback attached to the root itself runs after every write with that parameter (not
    // while a kapBlockParUpdateCallbacks guard lives).
    kapParameterPtr get_modified_param() const;
    // Its path from the root ("" for the root, or when there was no write).
    utString get_modified_param_name() const;

    // -- lock --
    // A root is locked while it holds the id of the entity that locked it: its own id when it
    // locked itself (set_locked(true)), another entity's when that one holds it (a toolpath
    // that uses a boundary exclusively). An empty id unlocks.
    bool root_locked() const noexcept { return !locking_id_.empty(); }
    void set_locked(bool locked) noexcept { locking_id_ = locked ? id_ : kapObjectId{}; }
    void set_locking_id(kapObjectId holder) noexcept { locking_id_ = holder; }
    kapObjectId get_locking_id() const noexcept { return locking_id_; }
    // Brings the lock in line with the live roots: a lock whose holder no longer exists is
    // released. (A copy holds the lock of its source: itself where the source held its own, the
    // source's holder otherwise.)
    virtual void fixup_locking_id();
    // Writes refused because of the lock since construction.
    int refused_writes() const noexcept { return refused_; }
    void note_refused_write() const noexcept { ++refused_; }
    utStringcoSList& strings() noexcept { return strings_; }

    // The live root with this id, or null.
    static kapParameterRoot* find_root(kapObjectId id) noexcept;

    // Dependency table: for every parameter that an activity or value expression of the tree
    // reads, the set of paths of the parameters holding those expressions ("Type" -> {"IsClamp"}
    // when IsClamp's activity reads Type). Names resolve as evaluation resolves them (siblings
    // first, then outward); names that are not parameters of this tree make no row.
    static void build_par_dependency_table(kapParameterRoot& root,
                                           utStringutStringSetcoTable& table);

  private:
    void register_self();
    utString kind_;
    utString name_;
    utStringcoSList strings_;
    friend class kapParameter;
    // Records the write of `par` and runs the root's own change callback.
    void note_write(kapParameter& par);

    int version_;
    kapObjectId id_;
    kapObjectId locking_id_;
    kapParameterPtr modified_par_;  // never the root itself (it would own itself)
    mutable int refused_ = 0;
    bool modified_ = false;
};

// ---------------------------------------------------------------------------------------------
// Scoped guards and process-wide tables

// While one lives, change callbacks are not run. Guards nest by counting.
class kapBlockParUpdateCallbacks {
  public:
    kapBlockParUpdateCallbacks() noexcept;
    ~kapBlockParUpdateCallbacks();
    kapBlockParUpdateCallbacks(const kapBlockParUpdateCallbacks&) = delete;
    kapBlockParUpdateCallbacks& operator=(const kapBlockParUpdateCallbacks&) = delete;
    static bool block_parameter_update_callbacks() noexcept;
};

// While one lives, locked roots accept writes. Guards nest by counting.
class kapParameterNoLock {
  public:
    kapParameterNoLock() noexcept;
    ~kapParameterNoLock();
    kapParameterNoLock(const kapParameterNoLock&) = delete;
    kapParameterNoLock& operator=(const kapParameterNoLock&) = delete;
    static bool active() noexcept;
};

// Process-wide tables from callback name to function, ordered by coiutStringLess. Entity classes
// register their rows once ("onmodify_<kind>_<Path_with_underscores>"); parameters attach them by
// name.
class kapParameterCallbacks {
  public:
    static void register_onmodify(const utString& name, kapOnModifyFn fn);
    static void register_onread(const utString& name, kapOnReadFn fn);
    static void register_onmirror(const utString& name, kapOnMirrorFn fn);
    static kapOnModifyFn find_onmodify(const utString& name);
    static kapOnReadFn find_onread(const utString& name);
    static kapOnMirrorFn find_onmirror(const utString& name);
};

// Iterates over a node's children; with follow_refs set, a reference child yields the root it
// refers to (when it can be followed).
class kapParameterIter {
  public:
    explicit kapParameterIter(const kapParameterPtr& par);
    void set_follow_refs(int follow) noexcept { follow_ = follow != 0; }
    bool done() const noexcept { return i_ >= size_; }
    explicit operator bool() const noexcept { return !done(); }
    kapParameterIter& operator++() noexcept {
        ++i_;
        return *this;
    }
    kapParameterPtr operator()() const;
    kapParameterKey index() const;

  private:
    kapParameterPtr par_;
    std::size_t i_ = 0;
    std::size_t size_ = 0;
    bool follow_ = false;
};

// The global evaluation scope: named entities the host registers ("toolpath" ...), found by
// expressions after a name failed to resolve in the tree and through the root's lookup_method.
class kapParameterLib {
  public:
    static kapParameterMap& get_eval_scope();
};
