#pragma once
// The host's stock block: the shape of the raw material a stock model starts from, as its block
// dialog defines it. A box is given by two opposite corners; a cylinder by the centre of its base,
// its diameter and its height (along Z of the block's workplane).

#include "geometry/gi.h"
#include "kapparameter/kapTypes.h"

enum class kapMcParBlockKind : int { undefined = 0, box = 1, cylinder = 2 };

struct kapMcParBlock {
    kapMcParBlockKind kind = kapMcParBlockKind::undefined;
    giPoint3 min;  // box: lower corner; cylinder: centre of the base
    giPoint3 max;  // box: upper corner
    double diameter = 0.0;
    double height = 0.0;
    kapObjectId workplane;  // the workplane entity the block is given in; empty: world

    bool is_defined() const noexcept { return kind != kapMcParBlockKind::undefined; }
    // Extent along Z (box: corner difference; cylinder: height).
    double z_extent() const noexcept {
        return kind == kapMcParBlockKind::box ? max.z - min.z : height;
    }
    bool operator==(const kapMcParBlock&) const = default;
};
