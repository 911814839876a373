#pragma once
// Reading a toolpath tree by path, for the queries and member functions: a missing parameter
// reads as an empty text or a clear flag.

#include <string_view>

#include "kapparameter/kapParameter.h"

namespace kap_toolpath {

inline utString text_of(const kapParameter& tree, std::string_view path) {
    const kapParameter* p = tree.find_node(path);
    return p != nullptr ? p->get_string() : utString();
}

// The same text, read where the parameter keeps it when it is an enumeration without a read
// callback (its state key, or the text it was loaded with); any other parameter's text is
// copied into `keep`. The member functions behind activity conditions run for every parameter
// that such a condition hides, so the strategy is compared without copying it.
inline std::string_view text_view_of(const kapParameter& tree, std::string_view path,
                                     utString& keep) {
    const kapParameter* p = tree.find_node(path);
    if (p == nullptr) return {};
    if (const auto* e = kapParameterEnum::ut_dynamic_cast(p);
        e != nullptr && e->impl().onread == nullptr) {
        const int st = e->get_state();
        if (st >= 0 && st < e->num_states()) return e->state(st).key;
        return e->extra() != nullptr ? std::string_view(e->extra()->text) : std::string_view();
    }
    keep = p->get_string();
    return keep;
}

inline bool flag_of(const kapParameter& tree, std::string_view path) {
    const kapParameter* p = tree.find_node(path);
    return p != nullptr && p->get_int() != 0;
}

}  // namespace kap_toolpath
