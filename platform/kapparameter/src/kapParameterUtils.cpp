#include "kapparameter/kapParameterUtils.h"

#include "kapparameter/kapExpr.h"

namespace {

kapParameterVector* vector3(const kapParameterPtr& par) {
    auto* v = kapParameterVector::ut_dynamic_cast(par.pointer());
    return (v != nullptr && v->num_components() == 3) ? v : nullptr;
}

bool write3(const kapParameterPtr& par, double x, double y, double z) {
    kapParameterVector* v = vector3(par);
    if (v == nullptr) return false;
    // The shortest texts that read back exactly: a round trip keeps every bit.
    return v->set_string("(" + kapExpr::format_number(x) + ";" + kapExpr::format_number(y) + ";" +
                         kapExpr::format_number(z) + ")");
}

}  // namespace

bool kapParameterUtils::from_givector3(const kapParameterPtr& par, const giVector3& v) {
    return write3(par, v.x, v.y, v.z);
}

bool kapParameterUtils::from_gipoint3(const kapParameterPtr& par, const giPoint3& p) {
    return write3(par, p.x, p.y, p.z);
}

bool kapParameterUtils::from_giworkplane3(const kapParameterPtr& par, const giWorkplane3& wp) {
    const auto* map = kapParameterMap::ut_dynamic_cast(par.pointer());
    if (map == nullptr) return false;
    const giVector3 axes[] = {wp.x_axis(), wp.y_axis(), wp.z_axis()};
    const char* const names[] = {"XAxis", "YAxis", "ZAxis"};
    bool any = false;
    if (kapParameter* origin = map->find_child("Origin")) {
        if (!from_gipoint3(kapParameterPtr(origin), wp.origin())) return false;
        any = true;
    }
    for (int i = 0; i < 3; ++i) {
        if (kapParameter* axis = map->find_child(names[i])) {
            if (!from_givector3(kapParameterPtr(axis), axes[i])) return false;
            any = true;
        }
    }
    return any;
}

bool kapParameterUtils::to_givector3(const kapParameterPtr& par, giVector3& out) {
    const kapParameterVector* v = vector3(par);
    if (v == nullptr) return false;
    out = giVector3(v->get_component(0), v->get_component(1), v->get_component(2));
    return true;
}
