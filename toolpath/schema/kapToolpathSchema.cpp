// The toolpath's schema: the master list. Each large group has a table file of its own; this list
// includes them at their place, so the order below is the declaration order of the tree (the
// order the user interface lists parameters in, and the loader and updater visit them).
//
// Blocks (reusable shapes) and enumeration states come first: a table can only use what is
// defined before it.

#include "kappar/kapSchemaNotation.h"
#include "kappar/kapToolpathPar.h"
#include "../kapToolpathFuncs.h"

namespace {
using namespace kap_decl;

// Ranges shared by the group tables.
[[maybe_unused]] constexpr kapRange kPositive{0.0, kapDeclMaxDouble, 1, 1};      // above zero
[[maybe_unused]] constexpr kapRange kNonNegative = kapDeclNonNegative;           // zero or more
[[maybe_unused]] constexpr kapRange kPercent{0.0, 100.0, 0, 0};                  // 0 to 100
[[maybe_unused]] constexpr kapRange kQuarterTurn{0.0, 90.0, 0, 0};               // 0 to 90 degrees
[[maybe_unused]] constexpr kapRange kHalfTurn{-180.0, 180.0, 0, 0};              // -180 to 180 degrees
[[maybe_unused]] constexpr kapRange kFullTurn{0.0, 360.0, 0, 0};                 // 0 to 360 degrees
[[maybe_unused]] constexpr kapRange kFactor{0.0, kapDeclMaxDouble, 0, 1};        // a non-negative factor
[[maybe_unused]] constexpr kapRange kCount{1.0, kapDeclMaxDouble, 0, 1};         // one or more

// clang-format off
#include "BlocksGeneral.def"
#include "BlocksRoot.def"
#include "BlocksMoves.def"
#include "BlocksMachining.def"

KAP_TABLE(kRows)
#include "General.def"
#include "Options.def"
#include "ToolAxis.def"
#include "Feeds.def"
#include "Block.def"
#include "Connections.def"
#include "Rapid.def"
#include "AreaClearance.def"
#include "Drill.def"
#include "Turning.def"
#include "Verification.def"
#include "Additive.def"
#include "Statistics.def"
KAP_END_TABLE
// clang-format on

}  // namespace

std::span<const kapDeclRow> kapToolpathPar::schema() {
    return kRows;
}
