#pragma once
// utString: the string type of every name, label, description, expression and value text.
//
// It is an alias of std::string, not a wrapper: texts are UTF-8 byte strings, compared byte for
// byte, and every standard algorithm applies. Code that only reads a text takes
// std::string_view.

#include <string>
#include <string_view>

using utString = std::string;

// ASCII lower-case copy of a text; other bytes (UTF-8 sequences included) are kept as they are.
utString kapdowncase(std::string_view text);

// ASCII case-insensitive equality.
bool ut_iequal(std::string_view a, std::string_view b) noexcept;

inline constexpr char ut_lower(char c) noexcept {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}
