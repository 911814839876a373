#pragma once
// coDList<T>: a doubly linked list, walked with standard iterators or with a cursor.
//
// A cursor (coDListCursor<T>, also coDList<T>::Cursor) is either ON an element or OFF. The off
// position sits between the last and the first element, so stepping goes round: next() from the
// last element goes off, next() from off goes to the first; prev() mirrors that. Positions count
// from 0; an off cursor has index -1.
//
// Inserting and removing through a cursor never disturbs other elements; as with std::list, a
// cursor or iterator on an element removed by someone else is invalid.

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <list>
#include <utility>

template <class T>
class coDListCursor;

template <class T>
class coDList {
  public:
    using value_type = T;
    using iterator = typename std::list<T>::iterator;
    using const_iterator = typename std::list<T>::const_iterator;
    using Cursor = coDListCursor<T>;

    coDList() = default;
    coDList(std::initializer_list<T> items) : items_(items) {}

    void insert_first(T v) { items_.push_front(std::move(v)); }
    void insert_last(T v) { items_.push_back(std::move(v)); }
    // Remove the first / last element; false when the list is empty.
    bool remove_first() { return items_.empty() ? false : (items_.pop_front(), true); }
    bool remove_last() { return items_.empty() ? false : (items_.pop_back(), true); }
    void clear() noexcept { items_.clear(); }

    std::size_t size() const noexcept { return items_.size(); }
    bool empty() const noexcept { return items_.empty(); }
    // First and last elements of a non-empty list.
    T& first() noexcept { return items_.front(); }
    T& last() noexcept { return items_.back(); }
    const T& first() const noexcept { return items_.front(); }
    const T& last() const noexcept { return items_.back(); }

    iterator begin() noexcept { return items_.begin(); }
    iterator end() noexcept { return items_.end(); }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }
    // Iterator on element i, or end() when i is out of range (walks from the nearer end).
    iterator at_index(std::ptrdiff_t i) noexcept {
        const auto n = static_cast<std::ptrdiff_t>(items_.size());
        if (i < 0 || i >= n) return items_.end();
        return i <= n / 2 ? std::next(items_.begin(), i) : std::prev(items_.end(), n - i);
    }

    bool operator==(const coDList&) const = default;

  private:
    friend class coDListCursor<T>;
    std::list<T> items_;
};

template <class T>
class coDListCursor {
  public:
    // A cursor on the first element of `list` (off when the list is empty).
    explicit coDListCursor(coDList<T>& list) noexcept
        : list_(&list), it_(list.items_.begin()), index_(list.empty() ? -1 : 0) {}

    bool is_on() const noexcept { return it_ != list_->items_.end(); }
    std::ptrdiff_t index() const noexcept { return index_; }
    // The element under the cursor; the cursor must be on.
    T& get() const noexcept { return *it_; }
    T& operator*() const noexcept { return *it_; }
    T* operator->() const noexcept { return &*it_; }

    void to_first() noexcept { set(list_->items_.begin(), list_->empty() ? -1 : 0); }
    void to_last() noexcept {
        if (list_->empty()) return to_off();
        set(std::prev(list_->items_.end()), size() - 1);
    }
    void to_off() noexcept { set(list_->items_.end(), -1); }
    // Moves to element i; off (and false) when i is out of range.
    bool to_index(std::ptrdiff_t i) noexcept {
        auto it = list_->at_index(i);
        set(it, it == list_->items_.end() ? -1 : i);
        return is_on();
    }
    void next() noexcept {
        if (!is_on()) return to_first();
        ++it_;
        index_ = is_on() ? index_ + 1 : -1;
    }
    void prev() noexcept {
        if (!is_on()) return to_last();
        if (it_ == list_->items_.begin()) return to_off();
        --it_;
        --index_;
    }

    // Inserts v before the element under the cursor (at the end when off); the cursor moves onto
    // the new element.
    void insert_before(T v) {
        const std::ptrdiff_t at = is_on() ? index_ : size();
        set(list_->items_.insert(it_, std::move(v)), at);
    }
    // Inserts v after the element under the cursor (at the front when off); the cursor moves onto
    // the new element.
    void insert_after(T v) {
        if (!is_on()) return set(list_->items_.insert(list_->items_.begin(), std::move(v)), 0);
        set(list_->items_.insert(std::next(it_), std::move(v)), index_ + 1);
    }
    // Removes the element under the cursor and moves forward onto the one that followed it (off
    // when it was the last). False when the cursor is off.
    bool remove_forward() {
        if (!is_on()) return false;
        const std::ptrdiff_t at = index_;
        it_ = list_->items_.erase(it_);
        index_ = is_on() ? at : -1;
        return true;
    }
    // Removes the element under the cursor and moves back onto the one before it (off when it was
    // the first). False when the cursor is off.
    bool remove_backward() {
        if (!is_on()) return false;
        const bool first = it_ == list_->items_.begin();
        const std::ptrdiff_t at = index_;
        it_ = list_->items_.erase(it_);
        if (first) {
            to_off();
        } else {
            --it_;
            index_ = at - 1;
        }
        return true;
    }

  private:
    using It = typename std::list<T>::iterator;
    std::ptrdiff_t size() const noexcept { return static_cast<std::ptrdiff_t>(list_->size()); }
    void set(It it, std::ptrdiff_t index) noexcept {
        it_ = it;
        index_ = index;
    }

    coDList<T>* list_;
    It it_;
    std::ptrdiff_t index_;
};
