#pragma once
// The host's pattern: a named, ordered set of points (hole positions, probing points ...).
// Pattern entities describe one of these; they keep a pointer to it and never own it.

#include <cstddef>
#include <vector>

#include "geometry/gi.h"
#include "utils/utString.h"

class kapPattern {
  public:
    kapPattern() = default;
    explicit kapPattern(const utString& name) : name_(name) {}

    const utString& name() const noexcept { return name_; }
    void set_name(const utString& name) { name_ = name; }

    // Points in the order they were added.
    const std::vector<giPoint3>& points() const noexcept { return points_; }
    void add_point(const giPoint3& p) { points_.push_back(p); }
    void clear() noexcept { points_.clear(); }
    std::size_t size() const noexcept { return points_.size(); }
    bool empty() const noexcept { return points_.empty(); }

  private:
    utString name_;
    std::vector<giPoint3> points_;
};
