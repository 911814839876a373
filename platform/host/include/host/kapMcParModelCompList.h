#pragma once
// The components of a model (or of one element of its hierarchy), each named by the pair of
// unique ids the model keeps for it. A component is listed at most once; order of adding is kept.

#include <cstddef>
#include <vector>

#include "kapparameter/kapParameterLoader.h"

class kapMcParModelCompList {
  public:
    using const_iterator = std::vector<kapUniqueIdPair>::const_iterator;

    // Adds `id` at the end; false (and nothing changes) when it is already listed.
    bool add(const kapUniqueIdPair& id);
    // Removes `id`; false when it is not listed.
    bool remove(const kapUniqueIdPair& id);
    bool contains(const kapUniqueIdPair& id) const noexcept;
    void clear() noexcept { items_.clear(); }

    std::size_t size() const noexcept { return items_.size(); }
    bool empty() const noexcept { return items_.empty(); }
    const kapUniqueIdPair& operator[](std::size_t i) const noexcept { return items_[i]; }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }
    bool operator==(const kapMcParModelCompList&) const = default;

  private:
    std::vector<kapUniqueIdPair> items_;
};
