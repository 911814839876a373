#pragma once
// coSList<T>: a list kept in insertion order, walked from first to last.
//
// The lists the library builds are appended to and walked, never spliced, so the storage is
// contiguous (a std::vector) rather than linked. `utStringcoSList` is the list of strings.
//
// A list filled again and again (the keys of each load) can be emptied with recycle(), which
// keeps its elements, storage and all, as spare slots: next_slot() and insert_last() then reuse
// them, and a list of strings refilled with texts no longer than before allocates nothing.

#include <algorithm>
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
    coSList(std::initializer_list<T> items) : items_(items), size_(items_.size()) {}

    void insert_last(const T& v) { next_slot() = v; }
    void insert_last(T&& v) { next_slot() = std::move(v); }
    void insert_first(const T& v) {
        items_.insert(items_.begin(), v);
        ++size_;
    }
    // Appends an element and answers it: a spare slot kept by recycle(), still holding its old
    // value, when there is one; else a new default element.
    T& next_slot() {
        if (size_ == items_.size()) items_.emplace_back();
        return items_[size_++];
    }
    void clear() noexcept {
        items_.clear();
        size_ = 0;
    }
    // Empties the list, keeping its elements as spare slots for next_slot() and insert_last().
    void recycle() noexcept { size_ = 0; }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    // Element i, 0 <= i < size().
    const T& operator[](std::size_t i) const noexcept { return items_[i]; }
    T& operator[](std::size_t i) noexcept { return items_[i]; }
    // First and last elements of a non-empty list.
    const T& first() const noexcept { return items_.front(); }
    const T& last() const noexcept { return items_[size_ - 1]; }
    // Whether an element equal to v is in the list (a linear search).
    bool contains(const T& v) const { return std::find(begin(), end(), v) != end(); }

    iterator begin() noexcept { return items_.begin(); }
    iterator end() noexcept { return items_.begin() + static_cast<std::ptrdiff_t>(size_); }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept {
        return items_.begin() + static_cast<std::ptrdiff_t>(size_);
    }

    bool operator==(const coSList& o) const {
        return std::equal(begin(), end(), o.begin(), o.end());
    }

  private:
    std::vector<T> items_;  // [0, size_) the list, the rest spare slots
    std::size_t size_ = 0;
};

using utStringcoSList = coSList<utString>;
