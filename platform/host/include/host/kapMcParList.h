#pragma once
// The host's legacy toolpath parameter list: the form in which older parts of the host keep a
// toolpath's settings. A list is a sequence of items; each item holds (path, value) pairs and
// copies them into a parameter root. Strategy items also carry the strategy type they were made
// for; boundary items hold the boundary a toolpath was calculated in.

#include <memory>
#include <utility>
#include <vector>

#include "kapparameter/kapParameter.h"
#include "utils/utString.h"
#include "utils/utTypeID.h"

// A plain item: (path, value) pairs written into a root in their order.
class kapMcParItem {
    UT_TYPE_ROOT(kapMcParItem)

    kapMcParItem() = default;
    virtual ~kapMcParItem() = default;
    kapMcParItem(const kapMcParItem&) = default;
    kapMcParItem& operator=(const kapMcParItem&) = default;

    void add(const utString& path, const utString& value) { pairs_.emplace_back(path, value); }
    const std::vector<std::pair<utString, utString>>& pairs() const noexcept { return pairs_; }

    // Writes every pair into `root` (a path the root does not hold is passed over). Answers the
    // number of values written.
    virtual int copy_to_kappar(kapParameter& root) const;

  private:
    std::vector<std::pair<utString, utString>> pairs_;
};

// The strategy type of a legacy list: a strategy key ("raster", "constantz" ...), "unknown" when
// the list does not say.
class kapToolpathStrategyType {
  public:
    kapToolpathStrategyType() = default;
    explicit kapToolpathStrategyType(utString type) : type_(std::move(type)) {}
    const utString& str() const noexcept { return type_; }
    bool is_unknown() const noexcept { return type_ == "unknown"; }
    bool operator==(const kapToolpathStrategyType&) const = default;

    // The first strategy item of `list`, or null when it holds none.
    static const class kapMcParStrategy* strat_pars(const class kapMcParList& list) noexcept;

  private:
    utString type_ = "unknown";
};

// An item of strategy settings, made for one strategy type.
class kapMcParStrategy : public kapMcParItem {
    UT_TYPE(kapMcParStrategy, kapMcParItem)

    explicit kapMcParStrategy(kapToolpathStrategyType type = {}) : type_(std::move(type)) {}
    const kapToolpathStrategyType& get_strategy_type() const noexcept { return type_; }

  private:
    kapToolpathStrategyType type_;
};

// An item holding the boundary settings of a toolpath.
class kapMcParBoundary : public kapMcParItem {
    UT_TYPE(kapMcParBoundary, kapMcParItem)
};

class kapMcParList {
  public:
    kapMcParList() = default;
    kapMcParList(const kapMcParList&) = delete;
    kapMcParList& operator=(const kapMcParList&) = delete;

    // Adds an item at the end and answers it.
    template <class Item>
    Item& add(std::unique_ptr<Item> item) {
        Item& ref = *item;
        items_.push_back(std::move(item));
        return ref;
    }
    std::size_t size() const noexcept { return items_.size(); }
    const kapMcParItem& item(std::size_t i) const { return *items_[i]; }
    void clear() noexcept { items_.clear(); }

    // Replaces the list's contents by one plain item holding every value of `root`: the value
    // text of each parameter that is not a map, under its dotted path.
    void copy_from_kappar(const kapParameter& root);

  private:
    std::vector<std::unique_ptr<kapMcParItem>> items_;
};

// Walks the items of a list in order.
class kapMcParListIter {
  public:
    explicit kapMcParListIter(const kapMcParList& list) noexcept : list_(&list) {}
    bool done() const noexcept { return i_ >= list_->size(); }
    explicit operator bool() const noexcept { return !done(); }
    kapMcParListIter& operator++() noexcept {
        ++i_;
        return *this;
    }
    const kapMcParItem* operator()() const { return done() ? nullptr : &list_->item(i_); }

  private:
    const kapMcParList* list_;
    std::size_t i_ = 0;
};

// Area clearance by adaptive (Maelstrom) slicing, as far as the parameter model needs it.
class kapMcParAreaClearAdaptive {
  public:
    // The longest non-cutting move kept inside the stock, for the toolpath `root`: four
    // stepovers (the "Stepover" value), and never less than 10 mm (0.4 in).
    static double get_optimum_max_noncutting_length(const kapParameter& root);
};
