#include "host/kapMcParModelCompList.h"

#include <algorithm>

bool kapMcParModelCompList::add(const kapUniqueIdPair& id) {
    if (contains(id)) return false;
    items_.push_back(id);
    return true;
}

bool kapMcParModelCompList::remove(const kapUniqueIdPair& id) {
    auto it = std::find(items_.begin(), items_.end(), id);
    if (it == items_.end()) return false;
    items_.erase(it);
    return true;
}

bool kapMcParModelCompList::contains(const kapUniqueIdPair& id) const noexcept {
    return std::find(items_.begin(), items_.end(), id) != items_.end();
}
