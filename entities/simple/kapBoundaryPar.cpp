#include "kappar/kapBoundaryPar.h"

#include "kappar/kapHistoryFactory.h"

namespace {

// clang-format off
constexpr kapBoundaryPar::Synonym kSynonyms[] = {
    {"angle",                   "Angle"},
    {"axial_thickness",         "AxialThickness"},
    {"clearance",               "Clearance"},
    {"clearance.holder",        "Clearance.Holder"},
    {"clearance.shank",         "Clearance.Shank"},
    {"edge_tolerance",          "EdgeTolerance"},
    {"holder_check",            "CollisionCheck"},
    {"limit",                   "Limit"},
    {"limit.boundary",          "Limit.Boundary"},
    {"limit.limiting",          "Limit.Limiting"},
    {"limit.mode",              "Limit.Mode"},
    {"max_possible_error",      "MaxDeviation"},
    {"min_angle",               "MinAngle"},
    {"offset",                  "Offset"},
    {"ref_tool",                "ReferenceTool"},
    {"rollover",                "Rollover"},
    {"stockmodel",              "StockModelState"},
    {"stockmodel.id",           "StockModelState.StockModel"},
    {"stockmodel.state",        "StockModelState.Entity"},
    {"stockmodel_thicker_than", "StockModelThickerThan"},
    {"thicker_than",            "ThresholdThickness"},
    {"thickness",               "Thickness"},
    {"tolerance",               "Tolerance"},
    {"tool",                    "Tool"},
    {"type",                    "Type"},
    {"use_axial_thickness",     "UseAxialThickness"},
    {"userpars",                "UserParameters"},
    {"vertical_up",             "VerticalUp"},
};
// clang-format on

// Paths that reset, the update steps and the lock rule name.
constexpr std::string_view kSet15Mode = "ThicknessSetValues[15].Mode";
constexpr std::string_view kSet16Mode = "ThicknessSetValues[16].Mode";
constexpr std::string_view kSet17Mode = "ThicknessSetValues[17].Mode";
constexpr std::string_view kSet16Thickness = "ThicknessSetValues[16].Thickness";
constexpr std::string_view kType = "Type";
constexpr std::string_view kLimitBoundary = "Limit.Boundary";
constexpr std::string_view kContactPointBoundary = "ContactPointBoundary";
constexpr std::string_view kBlockDiameter = "Block.Diameter";
constexpr std::string_view kExclusive = "Exclusive";
constexpr std::string_view kTolerance = "Tolerance";
constexpr std::string_view kThickness = "Thickness";
constexpr std::string_view kTool = "Tool";
constexpr std::string_view kRulePaths[] = {
    kSet15Mode,
    kSet16Mode,
    kSet17Mode,
    kSet16Thickness,
    kType,
    kLimitBoundary,
    kContactPointBoundary,
    kBlockDiameter,
    kExclusive,
    kTolerance,
    kThickness,
    kTool,
};

const utStringutStringcoTable& synonym_table() {
    static utStringutStringcoTable table;
    static bool filled = false;
    if (!filled) {
        for (const auto& row : kSynonyms) {
            table.emplace(row.legacy, row.current);
        }
        filled = true;
    }
    return table;
}

// Set while a reset runs; boundaries are built from one thread at a time.
bool g_resetting = false;

}  // namespace

std::span<const kapBoundaryPar::Synonym> kapBoundaryPar::key_synonyms() {
    return kSynonyms;
}

std::span<const std::string_view> kapBoundaryPar::named_paths() {
    static const std::vector<std::string_view> paths = [] {
        std::vector<std::string_view> all;
        for (const Synonym& s : kSynonyms) {
            all.push_back(s.current);
        }
        all.insert(all.end(), std::begin(kRulePaths), std::end(kRulePaths));
        return all;
    }();
    return paths;
}

void kapBoundaryPar::reset() {
    if (g_resetting) {
        // Re-entered while a reset runs: only clear the flag.
        g_resetting = false;
        return;
    }
    g_resetting = true;
    kapParameterRoot::reset();
    find(kSet15Mode)->set_string("ignore");
    find(kSet16Mode)->set_string("collision_check");
    find(kSet17Mode)->set_string("ignore");
    find(kSet16Thickness)->set_double(kapUnitsUtils::get_units() == 0 ? 5.0 : 0.2);
    g_resetting = false;
}

bool kapBoundaryPar::is_resetting() noexcept {
    return g_resetting;
}

utString kapBoundaryPar::lookup_key_synonym(const utString& key) const {
    const auto& table = synonym_table();
    auto it = table.find(key);
    if (it != table.end()) return it->second;
    return kapParameterRoot::lookup_key_synonym(key);
}

kapParameterPtr kapBoundaryPar::lookup_method(const kapParameterKey& key) const {
    if (kapdowncase(key.first()) == "edits") {
        kapParameterPtr list =
            kapHistoryFactory::get_history_list(get_ref_to_id(), get_root_type(), 0);
        if (list && !list->is_error() && key.size() > 1) return list[key.remainder()];
        return list;
    }
    return kapParameterRoot::lookup_method(key);
}

kapObjectId kapBoundaryPar::get_lock_id_imp(const kapParameter& par) const {
    const utString& name = par.get_name();
    if (name == kTolerance || name == kThickness || name == kTool) {
        const auto* exclusive = kapParameterRef::ut_dynamic_cast(find_node(kExclusive));
        if (exclusive != nullptr && exclusive->is_valid_ref()) return {};
    }
    return get_id();
}

// ---------------------------------------------------------------------------------------------
// Loading and updating

int kapBoundaryParLoader::load_par(const kapParameterKey& key, const utString& value) {
    if (key.str() == "use_min_angle") return 0;
    if (key.str() == "stockmodel" && !value.empty()) {
        return kapParameterLoader::load_par(kapParameterKey("stockmodel.id"), value);
    }
    return kapParameterLoader::load_par(key, value);
}

void kapBoundaryParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    list.insert_last(&update_from_0_to_1);
    list.insert_last(&update_from_1_to_2);
    list.insert_last(&update_from_2_to_3);
}

void kapBoundaryParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                               const utStringcoSList&) {
    version = 1;
}

void kapBoundaryParUpdater::update_from_1_to_2(int& version, kapParameterRoot& root,
                                               const utStringcoSList&) {
    if (root.find(kType)->get_string() == "contact_conv") {
        kapParameterPtr limit = root.find(kLimitBoundary);
        root.find(kContactPointBoundary)->copy_value_from(*limit);
        limit->set_ref_from_id(kapObjectId{});
    }
    version = 2;
}

void kapBoundaryParUpdater::update_from_2_to_3(int& version, kapParameterRoot& root,
                                               const utStringcoSList&) {
    const auto& unrecognised = kapParameterUpdater::get_unrecognised_pars();
    const utString* radius = nullptr;
    for (const char* key : {"block.radius", "Block.Radius"}) {
        auto it = unrecognised.find(key);
        if (it != unrecognised.end() && !it->second.empty()) {
            radius = &it->second;
            break;
        }
    }
    // A text that is not a number leaves the default diameter; the text stays in the table.
    double r = 0.0;
    if (radius != nullptr && kapParameterNumeric::parse(*radius, r)) {
        root.find(kBlockDiameter)->set_double(2.0 * r);
    }
    version = 3;
}

KAPPAR_REGISTER_ENTITY(kapBoundaryPar)
