#pragma once
// The host's stock model: the material left on the part after the items applied to it so far
// (the block, then toolpaths and boundaries, each one state). Stock model entities reach these
// through the callbacks the host registers; they never own them.

#include <cstddef>
#include <vector>

#include "kapparameter/kapTypes.h"
#include "utils/utString.h"

class kapStockModel {
  public:
    kapStockModel() = default;
    // A stock model that belongs to the stock model entity `owner`.
    explicit kapStockModel(const kapRefToObjectId& owner, const utString& name = utString())
        : owner_(owner), name_(name) {}

    const kapRefToObjectId& owner() const noexcept { return owner_; }
    const utString& name() const noexcept { return name_; }
    void set_name(const utString& name) { name_ = name; }

    // Names of the items applied, in order; one state each.
    const std::vector<utString>& states() const noexcept { return states_; }
    void add_state(const utString& item) { states_.push_back(item); }
    std::size_t num_states() const noexcept { return states_.size(); }

  private:
    kapRefToObjectId owner_;
    utString name_;
    std::vector<utString> states_;
};
