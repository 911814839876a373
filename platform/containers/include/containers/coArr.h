#pragma once
// Arrays of the co* names.
//
// coFixedArr<T, N>: N elements in place (std::array).
// coDynArr<T>: a growable contiguous array. It can be made with an initial capacity and a growth
// step; when full it grows by the step or by its current capacity, whichever is more, so
// appending stays amortised constant time. Elements are addressed 0 .. size()-1.

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

template <class T, std::size_t N>
using coFixedArr = std::array<T, N>;

template <class T>
class coDynArr {
  public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    coDynArr() = default;
    // Room for `initial` elements before the first growth; grows by at least `step`.
    coDynArr(int initial, int step) : step_(step > 0 ? static_cast<std::size_t>(step) : 1) {
        if (initial > 0) items_.reserve(static_cast<std::size_t>(initial));
    }
    coDynArr(std::initializer_list<T> items) : items_(items) {}

    void insert_last(const T& v) {
        grow();
        items_.push_back(v);
    }
    void insert_last(T&& v) {
        grow();
        items_.push_back(std::move(v));
    }
    // Removes the last element; false when empty.
    bool remove_last() { return items_.empty() ? false : (items_.pop_back(), true); }
    // New elements are value-initialised.
    void resize(std::size_t n) { items_.resize(n); }
    void clear() noexcept { items_.clear(); }

    std::size_t size() const noexcept { return items_.size(); }
    std::size_t capacity() const noexcept { return items_.capacity(); }
    std::size_t step() const noexcept { return step_; }
    bool empty() const noexcept { return items_.empty(); }
    T& operator[](std::size_t i) noexcept { return items_[i]; }
    const T& operator[](std::size_t i) const noexcept { return items_[i]; }
    T& last() noexcept { return items_.back(); }
    const T& last() const noexcept { return items_.back(); }
    T* data() noexcept { return items_.data(); }
    const T* data() const noexcept { return items_.data(); }

    iterator begin() noexcept { return items_.begin(); }
    iterator end() noexcept { return items_.end(); }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }

    bool operator==(const coDynArr& o) const { return items_ == o.items_; }

  private:
    void grow() {
        if (items_.size() == items_.capacity()) {
            items_.reserve(items_.capacity() + std::max(step_, items_.capacity()));
        }
    }

    std::vector<T> items_;
    std::size_t step_ = 16;
};
