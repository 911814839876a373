#include "kappar/kapDrillingHolePar.h"

namespace {

void declare_nothing(kapParameterRoot& proto) {
    kap_declare(&proto, {}, {});
}

}  // namespace

kapDrillingHolePar::kapDrillingHolePar(const utString& name)
    : kapParameterRoot(utString(kKind), kVersion, name) {
    reset();
}

void kapDrillingHolePar::build_tree(kapParameter* parent) {
    kapDeclarationScope scope(this);
    auto* map = kapParameterMap::ut_dynamic_cast(parent);
    if (map == nullptr) return;
    map->copy_children_from(kap_prototype(kKind, kVersion, &declare_nothing));
}

KAPPAR_REGISTER_ENTITY(kapDrillingHolePar)
