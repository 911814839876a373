#include "kappar/kapPatternPar.h"

std::span<const kapDeclRow> kapPatternPar::schema() {
    return {};
}

void kapPatternParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    list.insert_last(&update_from_0_to_1);
}

void kapPatternParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                              const utStringcoSList&) {
    version = 1;
}

KAPPAR_REGISTER_ENTITY(kapPatternPar)
