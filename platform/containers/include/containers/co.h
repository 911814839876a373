#pragma once
// The co* container names in one include: thin, documented wrappers and aliases over the standard
// library. See each header for its contract.
//
//   coSList.h   coSList<T>, utStringcoSList            insertion-ordered list
//   coTable.h   coiutStringLess, coTable, coSet,       ordered tables and sets, byte-wise strings
//               utStringutStringcoTable, utStringcoSet, utStringutStringSetcoTable
//   coPrf.h     coPrf<T>, coPrfExtern, coPrfExternalDeleter   owning or external counted reference
//   coDList.h   coDList<T>, coDListCursor<T>           doubly linked list with cursors
//   coArr.h     coFixedArr<T, N>, coDynArr<T>          fixed and growable arrays

#include "containers/coArr.h"
#include "containers/coDList.h"
#include "containers/coPrf.h"
#include "containers/coSList.h"
#include "containers/coTable.h"
