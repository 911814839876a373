#include "kappar/kapWorkplanePar.h"

namespace {

constexpr std::string_view kDebug = "Debug";

// clang-format off
constexpr kapDeclRow kRows[] = {
    {.path = "Origin",     .legacy = "origin",     .label = "Origin",            .kind = kapDeclKind::vector, .dim = kapDimLength, .units = 0, .def = "(0;0;0)",                 .desc = "Origin point."},
    {.path = "XAxis",      .legacy = "xaxis",      .label = "X Direction",       .kind = kapDeclKind::vector, .dim = kapDimNone,   .units = 0, .def = "(1;0;0)",                 .desc = "X axis vector."},
    {.path = "YAxis",      .legacy = "yaxis",      .label = "Y Direction",       .kind = kapDeclKind::vector, .dim = kapDimNone,   .units = 0, .def = "(0;1;0)",                 .desc = "Y axis vector."},
    {.path = "ZAxis",      .legacy = "zaxis",      .label = "Z Direction",       .kind = kapDeclKind::vector, .dim = kapDimNone,   .units = 0, .def = "(0;0;1)",                 .desc = "Z axis vector."},
    {.path = "XAngle",     .legacy = "xangle",     .label = "X Angle",           .kind = kapDeclKind::angle,  .dim = kapDimNone, .measure = 7, .def = "0",                       .desc = "X Axis Euler Angle."},
    {.path = "YAngle",     .legacy = "yangle",     .label = "Y Angle",           .kind = kapDeclKind::angle,  .dim = kapDimNone, .measure = 7, .def = "0",                       .desc = "Y Axis Euler Angle."},
    {.path = "ZAngle",     .legacy = "zangle",     .label = "Z Angle",           .kind = kapDeclKind::angle,  .dim = kapDimNone, .measure = 7, .def = "0",                       .desc = "Z Axis Euler Angle."},
    {.path = "Elevation",  .legacy = "elevation",  .label = "Elevation",         .kind = kapDeclKind::angle,  .dim = kapDimNone, .measure = 7, .def = "0",                       .desc = "Elevation Angle."},
    {.path = "Azimuth",    .legacy = "azimuth",    .label = "Azimuth Angle",     .kind = kapDeclKind::angle,  .dim = kapDimNone, .measure = 7, .def = "0",                       .desc = "Azimuth Angle."},
    {.path = "VNAutoLock", .legacy = "vnautolock", .label = "Internal Workplane", .kind = kapDeclKind::flag,  .dim = kapDimNone,               .def = "0", .group = kDebug,    .desc = "Internal workplane originally a mirror of the world transform"},
};
// clang-format on

}  // namespace

std::span<const kapDeclRow> kapWorkplanePar::schema() {
    return kRows;
}

void kapWorkplaneParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    list.insert_last(&update_from_0_to_1);
}

void kapWorkplaneParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                                const utStringcoSList&) {
    version = 1;
}

KAPPAR_REGISTER_ENTITY(kapWorkplanePar)
