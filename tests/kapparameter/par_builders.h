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

// A vector of `n` lengths, set to `v` when given.
inline kapParameterPtr vec(int n, const char* v = nullptr) {
    const kapParameterNumeric component(kapSubTypeReal, kapDimensions(kapDimLength), 0.0);
    kapParameterPtr p(new kapParameterVector(n, component));
    if (v != nullptr) p->set_string(v);
    return p;
}

inline kapParameterPtr map() {
    return kapParameterPtr(new kapParameterMap());
}

inline kapParameterPtr list() {
    return kapParameterPtr(new kapParameterList());
}

inline kapParameterPtr flag(int v) {
    return kapParameterNumeric::create_bool(v);
}

// A number whose value is an expression.
inline kapParameterPtr formula(const char* expression) {
    kapParameterPtr p = number(0);
    p->set_string(expression);
    return p;
}

inline kapParameterPtr function(kapMemberFn fn) {
    return kapParameterPtr(new kapParameterMemberFunction(fn, nullptr));
}

// A reference; with `type`, only to a root of that type.
inline kapParameterPtr ref(const char* type = nullptr) {
    auto* r = new kapParameterRef();
    kapParameterPtr p(r);
    if (type != nullptr) r->set_ref_root_type(type);
    return p;
}

// A reference to `root`; with `type`, only to a root of that type.
inline kapParameterPtr ref_to(const kapParameter& root, const char* type = nullptr) {
    kapParameterPtr p = ref(type);
    p->set_ref_from_id(static_cast<const kapParameterRoot&>(root).get_id());
    return p;
}
