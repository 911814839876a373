// Links: nodes that name a map as their parent without being one of its children. Both sides of
// every link live in one process-wide table, consulted only while links exist.

#include "kapparameter/kapParameter.h"

#include <atomic>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "kapEvalHooks.h"
#include "kapParameterInternal.h"

namespace {

struct LinkTable {
    std::mutex mutex;
    std::unordered_map<const kapParameter*, const kapParameterMap*> parent_of;
    std::unordered_multimap<const kapParameterMap*, const kapParameter*> linked_under;

    bool contains(const kapParameter* node) const { return parent_of.contains(node); }
    void insert(const kapParameter* node, const kapParameterMap* map) {
        parent_of.emplace(node, map);
        linked_under.emplace(map, node);
    }
    bool erase(const kapParameter* node) {
        auto it = parent_of.find(node);
        if (it == parent_of.end()) return false;
        auto [first, last] = linked_under.equal_range(it->second);
        for (; first != last; ++first) {
            if (first->second == node) {
                linked_under.erase(first);
                break;
            }
        }
        parent_of.erase(it);
        return true;
    }
};
LinkTable& links() {
    static auto& t = *new LinkTable();  // outlives every node destroyed at exit
    return t;
}
std::atomic<std::size_t> g_link_count{0};

bool any_links() noexcept {
    return g_link_count.load(std::memory_order_relaxed) != 0;
}

// True when `node` is `top` or lies below it, through parents and links alike.
bool within(const kapParameter* node, const kapParameter* top) noexcept {
    for (const kapParameter* p = node; p != nullptr; p = p->parent()) {
        if (p == top) return true;
    }
    return false;
}

}  // namespace

// Reaches the parent link of nodes for the table above.
struct kapParameterLinkAccess {
    static void clear_parent(const kapParameter& node) noexcept {
        const_cast<kapParameter&>(node).parent_ = nullptr;
    }
};

bool kapParameter::is_linked() const noexcept {
    if (parent_ == nullptr || !any_links()) return false;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    return t.contains(this);
}

bool kapParameter::link_par(const kapParameterPtr& parent) {
    return link_par(parent.pointer());
}

bool kapParameter::link_par(kapParameter* parent) {
    if (parent == nullptr || !parent->is_map() || within(parent, this)) return false;
    auto* map = static_cast<kapParameterMap*>(parent);
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (t.erase(this)) {
        g_link_count.fetch_sub(1, std::memory_order_relaxed);
    } else if (parent_ != nullptr) {
        return false;  // a child of a map
    }
    t.insert(this, map);
    g_link_count.fetch_add(1, std::memory_order_relaxed);
    kap_structure_changed();
    parent_ = map;
    return true;
}

bool kapParameter::unlink_par() {
    if (parent_ == nullptr || !any_links()) return false;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (!t.erase(this)) return false;
    g_link_count.fetch_sub(1, std::memory_order_relaxed);
    kap_structure_changed();
    parent_ = nullptr;
    return true;
}

int kapParameter::unlink_all() {
    if (!any_links()) return 0;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    std::vector<const kapParameter*> gone;
    for (const auto& [node, parent] : t.parent_of) {
        if (node == this || within(parent, this)) gone.push_back(node);
    }
    for (const kapParameter* node : gone) {
        t.erase(node);
        kapParameterLinkAccess::clear_parent(*node);
    }
    g_link_count.fetch_sub(gone.size(), std::memory_order_relaxed);
    if (!gone.empty()) kap_structure_changed();
    return static_cast<int>(gone.size());
}

void kapParameter::drop_link() noexcept {
    if (!any_links()) return;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (t.erase(this)) g_link_count.fetch_sub(1, std::memory_order_relaxed);
    parent_ = nullptr;
}

// A map going away leaves the nodes linked under it without a parent.
void kap_drop_links_to(const kapParameterMap* map) noexcept {
    if (!any_links()) return;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto [first, last] = t.linked_under.equal_range(map);
    for (auto it = first; it != last; ++it) {
        kapParameterLinkAccess::clear_parent(*it->second);
        t.parent_of.erase(it->second);
        g_link_count.fetch_sub(1, std::memory_order_relaxed);
    }
    t.linked_under.erase(first, last);
}
