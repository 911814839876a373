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

inline bool flag_of(const kapParameter& tree, std::string_view path) {
    const kapParameter* p = tree.find_node(path);
    return p != nullptr && p->get_int() != 0;
}

}  // namespace kap_toolpath
