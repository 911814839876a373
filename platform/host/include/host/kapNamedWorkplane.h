#pragma once
// A workplane as a model hierarchy element lists it: the name shown to the user and the object
// id of the workplane entity.

#include "kapparameter/kapTypes.h"
#include "utils/utString.h"

struct kapNamedWorkplane {
    utString name;
    kapObjectId workplane;
    bool operator==(const kapNamedWorkplane&) const = default;
};
