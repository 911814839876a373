#include "kappar/kapToolPar.h"

#include <array>

#include "host/kapTool.h"
#include "host/kapToolpathTypeName.h"

namespace {

// clang-format off
constexpr kapToolPar::Synonym kSynonyms[] = {
    {"description",              "Description"},
    {"diameter",                 "Diameter"},
    {"drill_angle",              "DrillAngle"},
    {"flutes",                   "NumberOfFlutes"},
    {"identifier",               "Identifier"},
    {"length",                   "Length"},
    {"has_number",               "Number.UserDefined"},
    {"number",                   "Number.Value"},
    {"routing_endmill_diameter", "RoutingEndMillDiameter"},
    {"taper_angle",              "TaperAngle"},
    {"taper_height",             "TaperHeight"},
    {"tip",                      "TipRadius"},
    {"tip_radius",               "TipRadius"},
    {"tip_radius_centre",        "TipRadiusCentre"},
    {"tip_radius_centre.x",      "TipRadiusCentre.X"},
    {"tip_radius_centre.y",      "TipRadiusCentre.Y"},
    {"type",                     "Type"},
    {"userpars",                 "UserParameters"},
};
static_assert(std::size(kSynonyms) == 18);

// The types of each kind, in the order they are tried.
constexpr std::string_view kTurningTypes[] = {"turn_profiling", "turn_grooving"};
constexpr std::string_view kMillingTypes[] = {
    "end_mill", "tip_radiused", "ball_nosed", "taper_spherical", "taper_tipped",
    "off_centre_tip_rad", "tipped_disc", "drill", "tap", "form", "routing", "thread_mill",
    "barrel", "dovetail",
};
static_assert(std::size(kMillingTypes) == 14);
// clang-format on

const utStringutStringcoTable& synonym_table() {
    static const utStringutStringcoTable table = [] {
        utStringutStringcoTable t;
        for (const auto& row : kSynonyms)
            t.emplace(row.legacy, row.current);
        return t;
    }();
    return table;
}

// The cutting-data tables, built once.
std::span<const kapToolParUtils::CuttingData> cutting_data() {
    static const std::array<kapToolParUtils::CuttingData, 6> table = {{
        {"AxialDepthOfCut", 1, false},
        {"RadialDepthOfCut", 1, false},
        {"FeedPerTooth", 1, false},
        {"CuttingSpeed", 7, true},
        {"FeedPerRevolution", 3, true},
        {"TurningDepthOfCut", 3, true},
    }};
    return table;
}

// ASCII letter case ignored; type names are plain ASCII.
bool equal_ignoring_case(std::string_view a, std::string_view b) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// The child map `name` of `map`, made when missing.
kapParameterMap* child_map(kapParameterMap& map, std::string_view name) {
    if (auto* m = kapParameterMap::ut_dynamic_cast(map.find_child(name))) return m;
    kapParameterPtr added =
        map.add(kapParameterKey(utString(name)), kapParameterPtr(new kapParameterMap()));
    return kapParameterMap::ut_dynamic_cast(added.pointer());
}

// Adds under the table `table` of `root` one real value per operation type and toolpath type,
// "<table>.<op>.<tp>", where the tree has none; values already there are left alone.
void add_entries(kapParameter& root, const kapToolParUtils::CuttingData& table,
                 std::span<const std::string_view> ops, std::span<const std::string_view> tps) {
    const auto* tool = kapParameterMap::ut_dynamic_cast(&root);
    if (tool == nullptr) return;
    auto* map = kapParameterMap::ut_dynamic_cast(tool->find_child(table.name));
    if (map == nullptr) return;
    for (std::string_view op : ops) {
        for (std::string_view tp : tps) {
            const utString path = utString(op) + "." + utString(tp);
            if (kapParameterError::ut_dynamic_cast((*map)[kapParameterKey(path)].pointer()) ==
                nullptr) {
                continue;
            }
            kapParameterMap* op_map = child_map(*map, op);
            if (op_map == nullptr) continue;
            auto* value = new kapParameterNumeric(kapSubTypeReal, kapDimensions(table.dims), 0.0);
            kapParameterPtr held(value);
            value->set_units(kapUnits(0));
            op_map->add(kapParameterKey(utString(tp)), held);
        }
    }
}

// Milling tools and probes: every table over the milling operation types and the milling
// toolpath types.
void build_milling(kapParameter& root) {
    std::array<std::string_view, kapToolpathTypeName::kMillingOpTypes> ops{};
    for (int i = 0; i < kapToolpathTypeName::kMillingOpTypes; ++i) {
        ops[static_cast<std::size_t>(i)] = kapToolpathTypeName::get_op_type_string(i);
    }
    std::array<std::string_view, kapToolpathTypeName::kMillingTpTypes> tps{};
    for (int i = 0; i < kapToolpathTypeName::kMillingTpTypes; ++i) {
        tps[static_cast<std::size_t>(i)] = kapToolpathTypeName::get_tp_type_string(i);
    }
    for (const auto& table : cutting_data())
        add_entries(root, table, ops, tps);
}

// Turning tools: the three tables turning uses, over the turning operation types and every
// toolpath type. A milling tool turned into a turning tool keeps what its milling tables held:
// nothing is removed, so the values come back if it is turned back into a milling tool, and
// "AxialDepthOfCut" is hidden by its activity while the tool turns. "RadialDepthOfCut" and
// "FeedPerTooth" stay shown, as their activity says.
void build_turning(kapParameter& root) {
    for (const auto& table : cutting_data()) {
        if (!table.turning) continue;
        add_entries(root, table, kapToolpathTypeName::get_turning_op_type_strings(),
                    kapToolpathTypeName::get_tp_type_strings());
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Kinds

kapToolKind kapToolParUtils::tool_kind_from_tool_type(const utString& type) {
    for (std::string_view t : kTurningTypes) {
        if (equal_ignoring_case(type, t)) return kapToolKind::turning;
    }
    for (std::string_view t : kMillingTypes) {
        if (equal_ignoring_case(type, t)) return kapToolKind::milling;
    }
    if (equal_ignoring_case(type, "probe")) return kapToolKind::probe;
    return kapToolKind::unknown;
}

kapToolKind kapToolParUtils::tool_kind_from_parameter(const kapParameter& root) {
    const kapParameter* type = root.find_node("Type");
    if (type == nullptr) return kapToolKind::unknown;
    return tool_kind_from_tool_type(type->get_string());
}

std::span<const kapToolParUtils::CuttingData> kapToolParUtils::cutting_data_maps() {
    return cutting_data();
}

// ---------------------------------------------------------------------------------------------
// The root

kapToolPar::kapToolPar(const utString& name) : kapEntityRoot(name) {
    const kapBlockParUpdateCallbacks blocker;
    reset();
}

void kapToolPar::declare_more(kapParameter* root) {
    build_milling(*root);
}

void kapToolPar::reset() {
    kapParameterRoot::reset();
    reset_cutting_data_maps(kapToolKind::unknown);
}

void kapToolPar::reset_cutting_data_maps(kapToolKind kind) {
    if (kind == kapToolKind::unknown) kind = kapToolParUtils::tool_kind_from_parameter(*this);
    switch (kind) {
        case kapToolKind::milling:
        case kapToolKind::probe:
            build_milling(*this);
            break;
        case kapToolKind::turning:
            build_turning(*this);
            break;
        case kapToolKind::unknown:
            break;
    }
}

void kapToolPar::set_tool(const kapAbsTool* tool) {
    abs_tool_ = tool;
    const auto* rotating = kapTool::ut_dynamic_cast(tool);
    if (rotating == nullptr) return;
    const kapBlockParUpdateCallbacks blocker;
    (*this)["Overhang"]->set_double(rotating->get_tool_overhang());
}

utString kapToolPar::lookup_key_synonym(const utString& key) const {
    const auto& table = synonym_table();
    auto it = table.find(key);
    if (it != table.end()) return it->second;
    return kapParameterRoot::lookup_key_synonym(key);
}

std::span<const kapToolPar::Synonym> kapToolPar::key_synonyms() {
    return kSynonyms;
}
