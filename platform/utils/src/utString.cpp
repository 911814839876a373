#include "utils/utString.h"

utString kapdowncase(std::string_view text) {
    utString out(text);
    for (char& c : out) {
        c = ut_lower(c);
    }
    return out;
}

bool ut_iequal(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (ut_lower(a[i]) != ut_lower(b[i])) return false;
    }
    return true;
}
