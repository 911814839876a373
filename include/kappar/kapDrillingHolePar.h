#pragma once
// Drilling holes: an entity kind with no parameters of its own. It has no loader or updater of
// its own either: it loads and updates through the framework's base loader and updater. Its kind
// name is the one written with capitals, kept as saved projects have it.

#include "kappar/kapEntity.h"

class KAPPAR_API kapDrillingHolePar : public kapEntityRoot<kapDrillingHolePar> {
    UT_TYPE(kapDrillingHolePar, kapParameterRoot)

    static constexpr std::string_view kKind = "DrillingHole";
    static constexpr int kVersion = 0;

    explicit kapDrillingHolePar(const utString& name) : kapEntityRoot(name) { reset(); }
    kapDrillingHolePar(const kapDrillingHolePar& o) = default;

    kapParameterPtr lookup_method(const kapParameterKey& key) const override {
        return kapParameterRoot::lookup_method(key);
    }
};
