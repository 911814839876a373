#include "host/kapTool.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string_view>

double kapTool::tip_radius() const noexcept {
    switch (shape_) {
        case Shape::end_mill:
            return 0.0;
        case Shape::ball_nosed:
            return 0.5 * diameter_;
        default:
            return std::clamp(tip_radius_, 0.0, 0.5 * diameter_);
    }
}

void kapTool::set_tool_overhang(double overhang) noexcept {
    if (!(overhang >= 0.0)) return;
    overhang_ = std::max(overhang, cutting_length_);
}

double kapToolMaker::get_taper_diameter(double tip_radius, double taper_angle,
                                        double taper_height) {
    const double slope = std::tan(taper_angle * std::numbers::pi / 180.0);
    return 2.0 * (tip_radius + taper_height * slope);
}

kapInsertShape kapFMKToolUtils::insert_shape_from_par(const kapParameter& par) {
    static constexpr std::string_view kKeys[] = {"diamond_35", "diamond_55", "diamond_80",
                                                 "trigon_80",  "triangle",   "square",
                                                 "round",      "custom"};
    const utString text = par.get_string();
    for (std::size_t i = 0; i < std::size(kKeys); ++i) {
        if (text == kKeys[i]) return static_cast<kapInsertShape>(i);
    }
    return kapInsertShape::unknown;
}

double kapFMKToolUtils::insert_shape_to_tip_angle(kapInsertShape shape) {
    switch (shape) {
        case kapInsertShape::diamond_35:
            return 35.0;
        case kapInsertShape::diamond_55:
            return 55.0;
        case kapInsertShape::diamond_80:
        case kapInsertShape::trigon_80:
            return 80.0;
        case kapInsertShape::triangle:
            return 60.0;
        case kapInsertShape::square:
            return 90.0;
        default:
            return 0.0;
    }
}
