// Links: nodes that name a map as their parent without being one of its children. The map side
// of every link lives in one process-wide table, consulted only while links exist.

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
    std::unordered_map<const kapParameter*, kapParameterMap*> parent_of;  // linked node -> map
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
    static void set_parent(kapParameter& node, kapParameterMap* parent) noexcept {
        node.parent_ = parent;
    }
};

bool kapParameter::is_linked() const noexcept {
    if (parent_ == nullptr || !any_links()) return false;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    return t.parent_of.contains(this);
}

bool kapParameter::link_par(const kapParameterPtr& parent) {
    return link_par(parent.pointer());
}

bool kapParameter::link_par(kapParameter* parent) {
    if (parent == nullptr || !parent->is_map() || within(parent, this)) return false;
    auto* map = static_cast<kapParameterMap*>(parent);
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto it = t.parent_of.find(this);
    if (it == t.parent_of.end()) {
        if (parent_ != nullptr) return false;  // a child of a map
        t.parent_of.emplace(this, map);
        g_link_count.fetch_add(1, std::memory_order_relaxed);
    } else {
        it->second = map;
    }
    kap_activity_changed();
    parent_ = map;
    return true;
}

bool kapParameter::unlink_par() {
    if (parent_ == nullptr || !any_links()) return false;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (t.parent_of.erase(this) == 0) return false;
    g_link_count.fetch_sub(1, std::memory_order_relaxed);
    kap_activity_changed();
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
        t.parent_of.erase(node);
        kapParameterLinkAccess::set_parent(const_cast<kapParameter&>(*node), nullptr);
    }
    g_link_count.fetch_sub(gone.size(), std::memory_order_relaxed);
    if (!gone.empty()) kap_activity_changed();
    return static_cast<int>(gone.size());
}

void kapParameter::drop_link() noexcept {
    if (!any_links()) return;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (t.parent_of.erase(this) != 0) g_link_count.fetch_sub(1, std::memory_order_relaxed);
    parent_ = nullptr;
}

// A map going away leaves the nodes linked under it without a parent.
void kap_drop_links_to(const kapParameterMap* map) noexcept {
    if (!any_links()) return;
    auto& t = links();
    std::lock_guard<std::mutex> lock(t.mutex);
    for (auto it = t.parent_of.begin(); it != t.parent_of.end();) {
        if (it->second == map) {
            kapParameterLinkAccess::set_parent(const_cast<kapParameter&>(*it->first), nullptr);
            it = t.parent_of.erase(it);
            g_link_count.fetch_sub(1, std::memory_order_relaxed);
        } else {
            ++it;
        }
    }
}
