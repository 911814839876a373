#pragma once
// coSList<T>: a list kept in insertion order, walked from first to last.
//
// The lists the library builds are appended to and walked, never spliced, so the storage is
// contiguous (a std::vector) rather than linked. `utStringcoSList` is the list of strings.

#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

#include "utils/utString.h"

template <class T>
class coSList {
  public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    coSList() = default;
    coSList(std::initializer_list<T> items) : items_(items) {}

    void insert_last(const T& v) { items_.push_back(v); }
    void insert_last(T&& v) { items_.push_back(std::move(v)); }
    void insert_first(const T& v) { items_.insert(items_.begin(), v); }
    void clear() noexcept { items_.clear(); }

    std::size_t size() const noexcept { return items_.size(); }
    bool empty() const noexcept { return items_.empty(); }
    // Element i, 0 <= i < size().
    const T& operator[](std::size_t i) const noexcept { return items_[i]; }
    T& operator[](std::size_t i) noexcept { return items_[i]; }
    // First and last elements of a non-empty list.
    const T& first() const noexcept { return items_.front(); }
    const T& last() const noexcept { return items_.back(); }
    // Whether an element equal to v is in the list (a linear search).
    bool contains(const T& v) const {
        for (const T& x : items_) {
            if (x == v) return true;
        }
        return false;
    }

    iterator begin() noexcept { return items_.begin(); }
    iterator end() noexcept { return items_.end(); }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }

    bool operator==(const coSList&) const = default;

  private:
    std::vector<T> items_;
};

using utStringcoSList = coSList<utString>;
