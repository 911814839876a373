#pragma once
// The host's registry of operation-type and toolpath-type names: the keys under which cutting
// data is kept per kind of cut ("finishing", "general").

#include <span>
#include <string_view>

class kapToolpathTypeName {
  public:
    // Milling operation types come first (indices 0 and 1), then the turning ones.
    static std::string_view get_op_type_string(int index);
    static std::string_view get_tp_type_string(int index);
    // The whole table of toolpath types: the milling ones first (indices 0 to 6).
    static std::span<const std::string_view> get_tp_type_strings();
    static std::span<const std::string_view> get_turning_op_type_strings();
    static constexpr int kMillingOpTypes = 2;
    static constexpr int kMillingTpTypes = 7;
};
