#pragma once
// Parameters for building small test trees.

#include <initializer_list>

#include "kapparameter/kapParameter.h"

inline kapParameterPtr number(double v, kapDimStandard dims = kapDimNone) {
    return kapParameterPtr(new kapParameterNumeric(kapSubTypeReal, kapDimensions(dims), v));
}

inline kapParameterPtr length(double v) {
    return number(v, kapDimLength);
}

inline kapParameterPtr text(const char* v) {
    return kapParameterPtr(new kapParameterString(v));
}

// An enumeration whose keys are also its labels and descriptions, set to `value` when given.
inline kapParameterPtr choice(std::initializer_list<const char*> states,
                              const char* value = nullptr) {
    auto* e = new kapParameterEnum();
    kapParameterPtr p(e);
    for (const char* s : states)
        e->add_state(s, s, s);
    if (value != nullptr) e->set_string(value);
    return p;
}

inline kapParameterPtr vec3(const char* v) {
    const kapParameterNumeric component(kapSubTypeReal, kapDimensions(kapDimLength), 0.0);
    kapParameterPtr p(new kapParameterVector(3, component));
    p->set_string(v);
    return p;
}

inline kapParameterPtr map() {
    return kapParameterPtr(new kapParameterMap());
}
