#include "kappar/kapWorkplanePar.h"

#include "kappar/kapSchemaNotation.h"

namespace {
using namespace kap_decl;

// clang-format off
KAP_TABLE(kRows)
//          Path          Label                 Default(s)            Active  Description
KAP_POINT  ("Origin",     "Origin",             "(0;0;0)", "(0;0;0)", "",     "Origin point.")
KAP_VECTOR ("XAxis",      "X Direction",        "(1;0;0)",            "",     "X axis vector.")
KAP_VECTOR ("YAxis",      "Y Direction",        "(0;1;0)",            "",     "Y axis vector.")
KAP_VECTOR ("ZAxis",      "Z Direction",        "(0;0;1)",            "",     "Z axis vector.")
KAP_ANGLE  ("XAngle",     "X Angle",            "0",                  "",     "X Axis Euler Angle.")
KAP_ANGLE  ("YAngle",     "Y Angle",            "0",                  "",     "Y Axis Euler Angle.")
KAP_ANGLE  ("ZAngle",     "Z Angle",            "0",                  "",     "Z Axis Euler Angle.")
KAP_ANGLE  ("Elevation",  "Elevation",          "0",                  "",     "Elevation Angle.")
KAP_ANGLE  ("Azimuth",    "Azimuth Angle",      "0",                  "",     "Azimuth Angle.")
KAP_FLAG   ("VNAutoLock", "Internal Workplane", "0",                  "",
            "Internal workplane originally a mirror of the world transform", Group("Debug"))
KAP_END_TABLE
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
