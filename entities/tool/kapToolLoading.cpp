// Loading tools saved by earlier versions, and bringing them to the current version.

#include "host/kapTool.h"
#include "kappar/kapToolPar.h"

namespace {

// What the loader has met, kept across loaders on purpose: a tool's pairs may reach several
// loaders, and only the next "type" starts again.
utString g_last_type = "end_mill";
bool g_drill_angle_seen = false;

// The value of a saved key that the schema no longer holds, or null.
const utString* unrecognised(std::string_view key) {
    const auto& table = kapParameterUpdater::get_unrecognised_pars();
    auto it = table.find(utString(key));
    return it == table.end() ? nullptr : &it->second;
}

}  // namespace

int kapToolParLoader::load_par(const kapParameterKey& key, const utString& value) {
    const std::string_view first = key.first_view();
    if (first == "type") {
        g_last_type = value;
        g_drill_angle_seen = false;
    } else if (first == "drill_angle") {
        g_drill_angle_seen = true;
    } else if (first == "taper_angle" && g_last_type == "drill" && !g_drill_angle_seen) {
        // Old drills kept their point angle as a taper angle.
        return kapParameterLoader::load_par(kapParameterKey("drill_angle"), value);
    } else if (first == "radius") {
        // A radius that is not a number is kept as read, under its own key.
        double radius = 0.0;
        if (kapParameterNumeric::parse(value, radius)) {
            return kapParameterLoader::load_par(kapParameterKey("diameter"),
                                                kapParameterNumeric::format(2.0 * radius));
        }
    }
    const int loaded = kapParameterLoader::load_par(key, value);
    // The saved cutting data that follows finds the entries of the loaded type.
    if (first.size() == 4 && kapdowncase(first) == "type") {
        if (auto* tool = kapToolPar::ut_dynamic_cast(&root_)) tool->reset_cutting_data_maps();
    }
    return loaded;
}

void kapToolParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    list.insert_last(&update_from_0_to_1);
    list.insert_last(&update_from_1_to_2);
    list.insert_last(&update_from_2_to_3);
    list.insert_last(&update_from_3_to_4);
    list.insert_last(&update_from_4_to_5);
}

void kapToolParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                           const utStringcoSList&) {
    version = 1;
}

void kapToolParUpdater::update_from_1_to_2(int& version, kapParameterRoot& root,
                                           const utStringcoSList&) {
    if (version == 1) {
        // clang-format off
        static constexpr std::pair<std::string_view, std::string_view> kMoves[] = {
            {"axial_depth_of_cut_recommended",  "AxialDepthOfCut.finishing.general"},
            {"cutting_speed_recommended",       "CuttingSpeed.finishing.general"},
            {"feed_per_tooth_recommended",      "FeedPerTooth.finishing.general"},
            {"radial_depth_of_cut_recommended", "RadialDepthOfCut.finishing.general"},
        };
        // clang-format on
        for (const auto& [saved, target] : kMoves) {
            if (const utString* value = unrecognised(saved)) {
                root[kapParameterKey(utString(target))]->set_string(*value);
            }
        }
    }
    version = 2;
}

void kapToolParUpdater::update_from_2_to_3(int& version, kapParameterRoot& root,
                                           const utStringcoSList&) {
    if (version == 2 && root["Type"]->get_string() == "taper_tipped") {
        const double diameter = kapToolMaker::get_taper_diameter(
            root["Diameter"]->get_double() * 0.5, root["TaperAngle"]->get_double(),
            root["TaperHeight"]->get_double());
        root["TaperDiameter"]->set_double(diameter);
    }
    version = 3;
}

void kapToolParUpdater::update_from_3_to_4(int& version, kapParameterRoot& root,
                                           const utStringcoSList&) {
    const utString* cut_type = version == 3 ? unrecognised("TurningInsert.CutType") : nullptr;
    if (cut_type != nullptr) {
        const utString type = root["Type"]->get_string();
        const bool grooving = type == "turn_outer_grooving" || type == "turn_inner_grooving";
        const bool profiling = type == "turn_outer_profiling" || type == "turn_inner_profiling";
        if ((grooving && *cut_type == "side") || (profiling && *cut_type == "end")) {
            const double tip_angle = profiling ? kapFMKToolUtils::insert_shape_to_tip_angle(
                                                     kapFMKToolUtils::insert_shape_from_par(
                                                         *root["TurningInsert.InsertShape"]))
                                               : 0.0;
            kapParameterPtr cut_angle = root["TurningInsert.CutAngle"];
            cut_angle->set_double(90.0 - tip_angle - cut_angle->get_double());
        }
    }
    version = 4;
}

void kapToolParUpdater::update_from_4_to_5(int& version, kapParameterRoot& root,
                                           const utStringcoSList&) {
    if (version == 4) {
        kapParameterPtr type = root["Type"];
        const utString text = type->get_string();
        if (text == "turn_outer_profiling" || text == "turn_inner_profiling") {
            type->set_string("turn_profiling");
        } else if (text == "turn_outer_grooving" || text == "turn_inner_grooving") {
            type->set_string("turn_grooving");
        }
    }
    version = 5;
}

KAPPAR_REGISTER_ENTITY(kapToolPar)
