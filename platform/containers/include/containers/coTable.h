#pragma once
// Tables (key -> value) and sets of the co* names.
//
// Every table and set here is ORDERED (a std::map / std::set), not hashed: walking one gives
// its keys in ascending order, so whatever is written from a table (unrecognised keys, dependency
// lists) comes out the same on every run. Sizing parameters that a hashed table would take
// (initial size, growth) have no counterpart and are simply not passed.
//
// String keys are ordered by `coiutStringLess`: plain byte-wise order, each byte compared as an
// unsigned char ("B" < "a" < "b" < "\xC3..."), no case folding, no locale. It is transparent, so
// find / count / contains / lower_bound take a std::string_view or a string literal without
// building a utString.

#include <map>
#include <set>
#include <string_view>

#include "utils/utString.h"

struct coiutStringLess {
    using is_transparent = void;
    // std::string_view compares through char_traits<char>, which orders bytes as unsigned char.
    bool operator()(std::string_view a, std::string_view b) const noexcept { return a < b; }
};

template <class K, class V, class Less = std::less<K>>
using coTable = std::map<K, V, Less>;

template <class T, class Less = std::less<T>>
using coSet = std::set<T, Less>;

// String -> string: the synonym tables, the table of unrecognised saved keys.
using utStringutStringcoTable = coTable<utString, utString, coiutStringLess>;
// A set of strings.
using utStringcoSet = coSet<utString, coiutStringLess>;
// String -> set of strings: the parameter dependency table (a path -> the paths that read it).
using utStringutStringSetcoTable = coTable<utString, utStringcoSet, coiutStringLess>;
