#pragma once
// The host's workplane object: a named local frame (origin and three axes in world coordinates).
// Workplane entities describe one of these; they keep a pointer to it and never own it.

#include "geometry/gi.h"
#include "utils/utString.h"

class McWorkPlane {
  public:
    // The world frame, unnamed.
    McWorkPlane() = default;
    McWorkPlane(const utString& name, const giWorkplane3& frame) : name_(name), frame_(frame) {}

    const utString& name() const noexcept { return name_; }
    void set_name(const utString& name) { name_ = name; }

    // The frame; a frame that is not defined is the world frame.
    const giWorkplane3& frame() const noexcept { return frame_; }
    void set_frame(const giWorkplane3& frame) { frame_ = frame; }

    const giPoint3& origin() const noexcept { return frame_.origin(); }
    const giUnitVec3& x_axis() const noexcept { return frame_.x_axis(); }
    const giUnitVec3& y_axis() const noexcept { return frame_.y_axis(); }
    const giUnitVec3& z_axis() const noexcept { return frame_.z_axis(); }

  private:
    utString name_;
    giWorkplane3 frame_;
};
