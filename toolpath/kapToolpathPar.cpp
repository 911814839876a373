#include "kappar/kapToolpathPar.h"

void kapToolpathParUpdater::fill(kapParameterSimpleUpdatercoSList&) {}

KAPPAR_REGISTER_ENTITY(kapToolpathPar)
