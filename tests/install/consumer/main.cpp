// Uses a few things from the installed library; exits 0 when they work.
#include <cmath>
#include <cstdio>

#include "containers/co.h"
#include "geometry/gi.h"
#include "kappar/kappar_export.h"
#include "utils/utString.h"

int main() {
    const giXform3 turn(giXformRotate, giPoint3(1, 1, 0), giUnitVec3(gi_Z),
                        giAngle(giAngleDegrees, 90));
    const giPoint3 p = turn.apply(giPoint3(2, 1, 0));
    if (turn.kind() != giXformKindRotate || std::abs(p.x - 1.0) > 1e-12 ||
        std::abs(p.y - 2.0) > 1e-12) {
        std::puts("transform: wrong result");
        return 1;
    }
    utStringcoSList names;
    names.insert_last(kapdowncase("BelowCentreLine"));
    if (names.size() != 1 || names[0] != "belowcentreline") {
        std::puts("downcase: wrong result");
        return 2;
    }
    std::puts("kappar consumer: ok");
    return 0;
}
