#pragma once
// The parameter framework: typed parameter trees.
//
// A tree is made of kapParameter nodes. Each node holds only what is its own: its value, its link
// to its parent, its count of handles, and a pointer to its declaration (kapParameterImpl: name,
// legacy key, label, description, group, active expression, units, range, enumeration states,
// callbacks). Declarations are shared: every instance of an entity kind points at the same
// immutable declaration objects, and a setter that changes a declaration on one instance gives
// that instance its own copy first (copy on write).
//
// Handles (kapParameterPtr) count references intrusively; a node is deleted when its last handle
// goes. A map owns its children through handles; the link to the parent is a plain pointer.
// Never make a handle from a root that lives on the stack: it would be deleted with the handle.
//
// A deep copy (a copy constructor, create_new, copy_children_from) places all the nodes it makes
// in one block of memory. Every node of a block holds a share of it: a node whose last handle
// goes is destroyed at once, and the block is freed with its last node, so a handle kept past the
// death of its root stays valid. Nodes added to a tree later are made one by one.
//
// Child lookup by name ignores ASCII letter case ("BelowCentreline" finds "BelowCentreLine"),
// for names and legacy keys alike; enumeration texts and the tables of entity classes match
// exactly. A path that names nothing answers an error parameter (code 3), never null.
//
// Failures are values: setters answer false when they refuse (a locked parameter, a text that the
// kind cannot hold), lookups answer error parameters. Nothing throws.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <vector>

#include "containers/co.h"
#include "kapparameter/kapParameterImpl.h"
#include "kapparameter/kapParameterKey.h"
#include "kapparameter/kapParameterMap.h"
#include "kapparameter/kapParameterNode.h"
#include "kapparameter/kapParameterRoot.h"
#include "kapparameter/kapParameterValues.h"
#include "kapparameter/kapTypes.h"
#include "utils/utString.h"
#include "utils/utTypeID.h"
