#include "kapparameter/kapParameterLoader.h"

#include <utility>
#include <vector>

namespace {

// Lists of loaded keys given back by finished loaders, their strings kept for the next loads of
// the thread (a few, for loaders that nest).
std::vector<utStringcoSList>& spare_key_lists() {
    thread_local std::vector<utStringcoSList> lists;
    return lists;
}
constexpr std::size_t kSpareKeyLists = 4;

}  // namespace

kapParameterLoader::kapParameterLoader(kapParameterRoot& root, int version)
    : root_(root), version_(version) {
    auto& spare = spare_key_lists();
    if (!spare.empty()) {
        loaded_ = std::move(spare.back());
        spare.pop_back();
    }
}

kapParameterLoader::~kapParameterLoader() {
    auto& spare = spare_key_lists();
    if (spare.size() < kSpareKeyLists) {
        loaded_.recycle();
        spare.push_back(std::move(loaded_));
    }
}

const kapParameter* kapParameterLoader::resolve(const utString& key, const utString** current) {
    if (!resolved_valid_ || resolved_key_ != key) {
        resolved_key_ = key;
        root_.lookup_key_synonym_into(key, resolved_current_);
        resolved_node_ = root_.find_node(resolved_current_);
        resolved_valid_ = true;
    }
    if (current != nullptr) *current = &resolved_current_;
    return resolved_node_;
}

int kapParameterLoader::load_par(const kapParameterKey& key, const utString& value) {
    const utString* current = nullptr;
    const kapParameter* found = resolve(key.str(), &current);
    // Storing a value may move what a path resolves to (a reference followed on the way, a map
    // rebuilt for the value): the next pair resolves afresh.
    resolved_valid_ = false;
    auto& unrecognised = kapParameterUpdater::get_unrecognised_pars();
    if (found == nullptr || found == &root_ || found->is_map()) {
        unrecognised[key.str()] = value;
        return 0;
    }
    auto* par = const_cast<kapParameter*>(found);
    kapBlockParUpdateCallbacks quiet;
    if (!par->set_string(value)) {
        unrecognised[key.str()] = value;
        return -1;
    }
    // Copied into a kept slot (whose storage was last touched a load ago), so that the key
    // written next is written into storage still in the cache.
    loaded_.next_slot().assign(resolved_current_);
    last_stored_ = par;
    return 1;
}

void kapParameterLoader::define_par(const kapParameterKey& key, kapParameterPtr par) {
    resolved_valid_ = false;
    root_.add(key, par);
}

void kapParameterLoader::associate(const kapParameterKey& key, const kapUniqueIdPtr& id) {
    if (!id) return;
    const kapParameter* found = root_.find_node(key.str());
    if (found && found->is_ref()) {
        kapBlockParUpdateCallbacks quiet;
        const_cast<kapParameter*>(found)->set_ref_from_id(id->first);
    }
}

void kapParameterLoader::finalise_loading() {
    resolved_valid_ = false;
    root_.set_modified(false);
}

kapParameterUpdater::~kapParameterUpdater() = default;

void kapParameterUpdater::update(int version, kapParameterRoot& root, const utStringcoSList& list) {
    apply_update(version, root, nullptr, list);
}

utStringutStringcoTable& kapParameterUpdater::get_unrecognised_pars() {
    static utStringutStringcoTable table;
    return table;
}

void kapParameterUpdater::apply_update(int version, kapParameterRoot& root,
                                       const kapParameterSimpleUpdatercoSList* list,
                                       const utStringcoSList& keys) {
    if (list == nullptr) return;
    int running = version;
    bool ran = false;
    for (std::size_t n = 0; n < list->size(); ++n) {
        if (static_cast<long long>(n) < static_cast<long long>(version)) continue;
        if ((*list)[n] == nullptr) continue;
        (*list)[n](running, root, keys);
        ran = true;
    }
    if (ran) root.set_version(running);
}

namespace {
class kapBaseUpdater final : public kapParameterUpdater {};
}  // namespace

kapParameterLoader* kapParameterRoot::create_loader(kapPtrClaim, int version) {
    if (is_locked()) return nullptr;
    return new kapParameterLoader(*this, version);
}

kapParameterUpdater* kapParameterRoot::get_updater() {
    static kapBaseUpdater updater;
    return &updater;
}
