#include "kappar/kapLevelPar.h"

#include "kappar/kapSchemaNotation.h"

namespace {
using namespace kap_decl;

// clang-format off
constexpr kapDeclState kTypeStates[] = {
    {"level", "Level", "Level."},
    {"set",   "Set",   "Set."},
};

KAP_TABLE(kRows)
//         Path       Label          States / Default      Active           Description
KAP_ENUM  ("Type",    "Type",        kTypeStates, "level", "",              "Type of level.")
KAP_FLAG  ("IsClamp", "Clamp Level", "0",                  "Type=='level'", "If true then level is used for clamps.")
KAP_END_TABLE
// clang-format on

}  // namespace

std::span<const kapDeclRow> kapLevelPar::schema() {
    return kRows;
}

void kapLevelParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    list.insert_last(&update_from_0_to_1);
}

void kapLevelParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                            const utStringcoSList&) {
    version = 1;
}

KAPPAR_REGISTER_ENTITY(kapLevelPar)
