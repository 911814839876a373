#pragma once
// What the parts of the parameter framework share about nodes and do not show to users.

#include "kapparameter/kapParameterImpl.h"
#include "kapparameter/kapTypes.h"

// The blank declaration of one kind of node (0 base, 1 numeric, 2 enumeration, 3 string, 4 data,
// 5 reference, 6 member function, 7 error, 8 map) for a subtype and dimension: pinned, shared by
// every node made without a declaration of its own, and never freed.
kapParameterImpl* kap_blank_impl(int kind, kapParameterSubType subtype, kapDimStandard dims);

class kapParameterMap;
// Leaves the nodes linked under `map` (kapParameter::link_par) without a parent.
void kap_drop_links_to(const kapParameterMap* map) noexcept;
