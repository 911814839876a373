#include "kapparameter/kapParameter.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "kapEvalHooks.h"

// ---------------------------------------------------------------------------------------------
// Root

namespace {

// The live roots by object id: open addressing over ids (never 0), deletion by shifting back,
// so that registering a root allocates only when the table grows.
// A lock held for a few instructions: taken by every construction and destruction of a root.
class SpinLock {
  public:
    void lock() noexcept {
        while (flag_.test_and_set(std::memory_order_acquire)) {
            while (flag_.test(std::memory_order_relaxed)) {
            }
        }
    }
    void unlock() noexcept { flag_.clear(std::memory_order_release); }

  private:
    std::atomic_flag flag_;
};

struct Registry {
    SpinLock mutex;
    struct Slot {
        std::uint64_t id = 0;
        kapParameterRoot* root = nullptr;
    };
    std::vector<Slot> slots = std::vector<Slot>(64);
    std::size_t used = 0;
    std::uint64_t next = 1;

    std::size_t home(std::uint64_t id) const noexcept {
        return static_cast<std::size_t>((id * 0x9E3779B97F4A7C15ull) >> 20) & (slots.size() - 1);
    }
    void put(std::uint64_t id, kapParameterRoot* root) {
        if ((used + 1) * 2 > slots.size()) {
            std::vector<Slot> old(slots.size() * 2);
            old.swap(slots);
            for (const Slot& s : old) {
                if (s.id != 0) place(s);
            }
        }
        place(Slot{id, root});
        ++used;
    }
    void place(const Slot& s) noexcept {
        const std::size_t mask = slots.size() - 1;
        std::size_t i = home(s.id);
        while (slots[i].id != 0) {
            i = (i + 1) & mask;
        }
        slots[i] = s;
    }
    kapParameterRoot* find(std::uint64_t id) const noexcept {
        const std::size_t mask = slots.size() - 1;
        for (std::size_t i = home(id);; i = (i + 1) & mask) {
            if (slots[i].id == id) return slots[i].root;
            if (slots[i].id == 0) return nullptr;
        }
    }
    void erase(std::uint64_t id) noexcept {
        const std::size_t mask = slots.size() - 1;
        std::size_t i = home(id);
        while (slots[i].id != id) {
            if (slots[i].id == 0) return;
            i = (i + 1) & mask;
        }
        // Moves back every later slot of the run that may sit at i.
        for (std::size_t j = (i + 1) & mask; slots[j].id != 0; j = (j + 1) & mask) {
            const std::size_t h = home(slots[j].id);
            const bool between = i <= j ? (i < h && h <= j) : (i < h || h <= j);
            if (!between) {
                slots[i] = slots[j];
                i = j;
            }
        }
        slots[i] = Slot{};
        --used;
    }
};
Registry& registry() {
    static Registry r;
    return r;
}

}  // namespace

kapParameterRoot::kapParameterRoot(const utString& kind, int version, const utString& name)
    : kind_(kind), name_(name), version_(version) {
    register_self();
}

kapParameterRoot::kapParameterRoot(const kapParameterRoot& o)
    : kapParameterMap(o),
      kind_(o.kind_),
      name_(o.name_),
      strings_(o.strings_),
      version_(o.version_),
      modified_(o.modified_) {
    register_self();
    locking_id_ = o.locking_id_ == o.id_ ? id_ : o.locking_id_;
}

kapParameterRoot& kapParameterRoot::operator=(const kapParameterRoot& o) {
    // A locked target refuses; an unlocked one stays unlocked (the lock is not a value).
    if (this == &o || !begin_write()) return *this;
    remove_all();
    if (o.impl_ != impl_) {
        release_impl();
        attach_impl(o.impl_);
    }
    copy_children_from(o);
    kind_ = o.kind_;
    name_ = o.name_;
    strings_ = o.strings_;
    version_ = o.version_;
    modified_ = o.modified_;
    return *this;
}

void kapParameterRoot::register_self() {
    kap_activity_changed();
    auto& r = registry();
    std::lock_guard<SpinLock> lock(r.mutex);
    id_ = kapObjectId{r.next++};
    r.put(id_.value, this);
}

kapParameterRoot::~kapParameterRoot() {
    kap_activity_changed();
    auto& r = registry();
    std::lock_guard<SpinLock> lock(r.mutex);
    r.erase(id_.value);
}

kapParameterRoot* kapParameterRoot::find_root(kapObjectId id) noexcept {
    if (id.empty()) return nullptr;
    auto& r = registry();
    std::lock_guard<SpinLock> lock(r.mutex);
    return r.find(id.value);
}

void kapParameterRoot::reset() {
    if (!begin_write()) return;
    remove_all();
    build_tree(this);
}

void kapParameterRoot::fixup_locking_id() {
    if (!locking_id_.empty() && locking_id_ != id_ && find_root(locking_id_) == nullptr) {
        locking_id_ = kapObjectId{};
    }
}

void kapParameterRoot::note_write(kapParameter& par) {
    modified_ = true;
    kapParameter* reported = &par;
    if (const utString& name = par.get_onmodify_param_name(); !name.empty()) {
        const kapParameter* named = nullptr;
        if (par.parent() != nullptr) named = par.parent()->find_node(name);
        if (named == nullptr) named = find_node(name);
        if (named != nullptr) reported = const_cast<kapParameter*>(named);
    }
    if (reported == this) {
        modified_par_ = kapParameterPtr();
    } else {
        modified_par_ = kapParameterPtr(reported);
    }
    kapOnModifyFn fn = impl_->onmodify;
    if (fn == nullptr && !impl_->onmodify_name.empty()) {
        fn = kapParameterCallbacks::find_onmodify(impl_->onmodify_name);
    }
    if (fn != nullptr && !kapBlockParUpdateCallbacks::block_parameter_update_callbacks()) {
        fn(reported);
    }
}

kapParameterPtr kapParameterRoot::get_modified_param() const {
    return modified_par_;
}

utString kapParameterRoot::get_modified_param_name() const {
    return modified_par_ ? kapParameter::get_name(*modified_par_, 1) : utString();
}

kapParameterPtr kapParameterRoot::lookup_method(const kapParameterKey&) const {
    return {};
}

void kapParameterRoot::build_par_dependency_table(kapParameterRoot& root,
                                                  utStringutStringSetcoTable& table) {
    kap_collect_dependencies(root, table);
}

void kapParameterRoot::lookup_key_synonym_into(const utString& key, utString& out) const {
    // A root of this very class keeps every key as it is: copied into the storage kept.
    if (typeid(*this) == typeid(kapParameterRoot)) {
        out.assign(key);
        return;
    }
    out = lookup_key_synonym(key);
}

// ---------------------------------------------------------------------------------------------
// Guards and tables

namespace {
// The guards' counters are process-wide like the rest of the editing state, which one thread
// drives: a guard counts with a plain load and store (no locked read-modify-write, which a load
// of many pairs would pay twice per pair), atomic only so that a reader on another thread is
// not a data race.
std::atomic<int> g_block_callbacks{0};
std::atomic<int> g_nolock{0};

void count(std::atomic<int>& c, int by) noexcept {
    c.store(c.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

template <class Fn>
std::map<utString, Fn, coiutStringLess>& table_of() {
    static std::map<utString, Fn, coiutStringLess> table;
    return table;
}
std::mutex& table_mutex() {
    static std::mutex m;
    return m;
}
template <class Fn>
Fn find_in(const utString& name) {
    std::lock_guard<std::mutex> lock(table_mutex());
    auto& t = table_of<Fn>();
    auto it = t.find(name);
    return it == t.end() ? nullptr : it->second;
}
template <class Fn>
void register_in(const utString& name, Fn fn) {
    std::lock_guard<std::mutex> lock(table_mutex());
    table_of<Fn>()[name] = fn;
}
}  // namespace

kapBlockParUpdateCallbacks::kapBlockParUpdateCallbacks() noexcept {
    count(g_block_callbacks, 1);
}
kapBlockParUpdateCallbacks::~kapBlockParUpdateCallbacks() {
    count(g_block_callbacks, -1);
}
bool kapBlockParUpdateCallbacks::block_parameter_update_callbacks() noexcept {
    return g_block_callbacks.load(std::memory_order_relaxed) > 0;
}

kapParameterNoLock::kapParameterNoLock() noexcept {
    count(g_nolock, 1);
}
kapParameterNoLock::~kapParameterNoLock() {
    count(g_nolock, -1);
}
bool kapParameterNoLock::active() noexcept {
    return g_nolock.load(std::memory_order_relaxed) > 0;
}

void kapParameterCallbacks::register_onmodify(const utString& name, kapOnModifyFn fn) {
    register_in(name, fn);
}
void kapParameterCallbacks::register_onread(const utString& name, kapOnReadFn fn) {
    register_in(name, fn);
}
void kapParameterCallbacks::register_onmirror(const utString& name, kapOnMirrorFn fn) {
    register_in(name, fn);
}
kapOnModifyFn kapParameterCallbacks::find_onmodify(const utString& name) {
    return find_in<kapOnModifyFn>(name);
}
kapOnReadFn kapParameterCallbacks::find_onread(const utString& name) {
    return find_in<kapOnReadFn>(name);
}
kapOnMirrorFn kapParameterCallbacks::find_onmirror(const utString& name) {
    return find_in<kapOnMirrorFn>(name);
}

// ---------------------------------------------------------------------------------------------
// Iteration, global scope

kapParameterIter::kapParameterIter(const kapParameterPtr& par)
    : par_(par), size_(par ? par->size() : 0) {}

kapParameterPtr kapParameterIter::operator()() const {
    if (done()) return {};
    const auto* map = kapParameterMap::ut_dynamic_cast(par_.pointer());
    if (!map) return {};
    kapParameterPtr c = map->child(i_);
    if (follow_ && c->is_ref()) {
        if (kapParameter* target = c->follow()) return kapParameterPtr(target);
    }
    return c;
}

kapParameterKey kapParameterIter::index() const {
    if (done()) return {};
    const auto* map = kapParameterMap::ut_dynamic_cast(par_.pointer());
    const auto& c = map->child(i_);
    if (c->get_name().empty() || ut_is_kind_of<kapParameterList>(map)) {
        return kapParameterKey(static_cast<int>(i_), utString());
    }
    return kapParameterKey(c->get_name());
}

kapParameterMap& kapParameterLib::get_eval_scope() {
    static kapParameterMap* scope = new kapParameterMap();
    return *scope;
}
