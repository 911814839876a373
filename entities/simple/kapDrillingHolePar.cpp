#include "kappar/kapDrillingHolePar.h"

KAPPAR_REGISTER_ENTITY(kapDrillingHolePar)
