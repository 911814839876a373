#include "host/kapToolpathTypeName.h"

#include <array>

namespace {

constexpr std::array<std::string_view, 4> kOpTypes = {"roughing", "finishing", "turn_roughing",
                                                      "turn_finishing"};
constexpr std::array<std::string_view, 10> kTpTypes = {
    "general",  "slotting", "profiling", "facing",       "drilling",
    "plunging", "swarf",    "turn_face", "turn_profile", "turn_groove"};

}  // namespace

std::string_view kapToolpathTypeName::get_op_type_string(int index) {
    if (index < 0 || index >= static_cast<int>(kOpTypes.size())) return {};
    return kOpTypes[static_cast<std::size_t>(index)];
}

std::string_view kapToolpathTypeName::get_tp_type_string(int index) {
    if (index < 0 || index >= static_cast<int>(kTpTypes.size())) return {};
    return kTpTypes[static_cast<std::size_t>(index)];
}

std::span<const std::string_view> kapToolpathTypeName::get_tp_type_strings() {
    return kTpTypes;
}

std::span<const std::string_view> kapToolpathTypeName::get_turning_op_type_strings() {
    return std::span<const std::string_view>(kOpTypes).subspan(kMillingOpTypes);
}
