#pragma once
// Conversions between parameters and the geometry value types.

#include "geometry/gi.h"
#include "kapparameter/kapParameter.h"

// Vectors and points are written to and read from three-component vector parameters, "(x;y;z)",
// in the caller's length unit (no conversion). A write is one change of the parameter: one
// change callback, refused as a whole when the parameter is locked.
class kapParameterUtils {
  public:
    kapParameterUtils() = delete;

    // Writes `v` into a vector parameter of three components; false when `par` is not one or
    // refuses the write.
    static bool from_givector3(const kapParameterPtr& par, const giVector3& v);
    static bool from_gipoint3(const kapParameterPtr& par, const giPoint3& p);
    // Fills a map describing a workplane: its children "Origin", "XAxis", "YAxis" and "ZAxis"
    // (those it has; "XAxis" is often left out, being YAxis x ZAxis) take the workplane's
    // origin and unit axes. A workplane that is not defined writes the world frame. False when
    // `par` is not a map, has no "Origin" and no axis, or a write is refused (the writes made
    // before it stay).
    static bool from_giworkplane3(const kapParameterPtr& par, const giWorkplane3& wp);
    // Reads a vector parameter of three components (an expression's value when it holds one);
    // false, and `out` unchanged, when `par` is not one.
    static bool to_givector3(const kapParameterPtr& par, giVector3& out);
};
