#include "kappar/kapLevelPar.h"

namespace {

// clang-format off
constexpr kapDeclState kTypeStates[] = {
    {"level", "Level", "Level."},
    {"set",   "Set",   "Set."},
};

constexpr kapDeclRow kRows[] = {
    {.path = "Type",    .legacy = "type",    .label = "Type",        .kind = kapDeclKind::enumeration, .states = kTypeStates, .def = "level",                                .desc = "Type of level."},
    {.path = "IsClamp", .legacy = "isclamp", .label = "Clamp Level", .kind = kapDeclKind::flag,                               .def = "0", .active = "Type=='level'",    .desc = "If true then level is used for clamps."},
};
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
