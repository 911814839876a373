#include <gtest/gtest.h>

#include <random>
#include <type_traits>

#include "geometry/gi.h"

namespace {

template <class T>
void expect_near(const T& got, const std::type_identity_t<T>& want, double tol = 1e-12) {
    EXPECT_NEAR(got.x, want.x, tol);
    EXPECT_NEAR(got.y, want.y, tol);
    EXPECT_NEAR(got.z, want.z, tol);
}

TEST(Workplane, KnownPlaneConvertsPointsWithItsOriginAndVectorsWithout) {
    // Origin (10,0,0), turned a quarter about Z: its X is world Y, its Y world -X.
    const giWorkplane3 wp({10, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1});
    ASSERT_TRUE(wp.is_defined());
    expect_near(wp.to_world(giPoint3(1, 0, 0)), {10, 1, 0});
    expect_near(wp.to_world(giPoint3(0, 2, 3)), {8, 0, 3});
    expect_near(wp.to_world(giVector3(1, 0, 0)), {0, 1, 0});
    expect_near(wp.to_work(giPoint3(10, 0, 0)), {0, 0, 0});
    expect_near(wp.to_work(giPoint3(10, 5, 1)), {5, 0, 1});
    expect_near(wp.to_work(giVector3(0, 5, 0)), {5, 0, 0});
    // The two-axis form completes a right-handed frame.
    const giWorkplane3 two({10, 0, 0}, {0, 1, 0}, {-1, 0, 0});
    expect_near(giVector3(two.z_axis()), {0, 0, 1});
    // Axes are normalised.
    const giWorkplane3 long_axes({0, 0, 0}, {0, 5, 0}, {-2, 0, 0}, {0, 0, 9});
    expect_near(long_axes.to_world(giVector3(1, 0, 0)), {0, 1, 0});
}

TEST(Workplane, RandomPlanesRoundTrip) {
    std::mt19937 rng(31337);
    std::uniform_real_distribution<double> u(-100.0, 100.0);
    std::uniform_real_distribution<double> deg(-180.0, 180.0);
    for (int i = 0; i < 100; ++i) {
        // An orthonormal frame: the world axes turned about a random axis.
        const giXform3 turn(giXformRotate, giPoint3(), giUnitVec3(u(rng), u(rng), u(rng)),
                            giAngle(giAngleDegrees, deg(rng)));
        const giWorkplane3 wp({u(rng), u(rng), u(rng)}, turn.apply(giVector3(gi_X)),
                              turn.apply(giVector3(gi_Y)), turn.apply(giVector3(gi_Z)));
        ASSERT_TRUE(wp.is_defined());
        const giPoint3 p(u(rng), u(rng), u(rng));
        const giVector3 v(u(rng), u(rng), u(rng));
        expect_near(wp.to_world(wp.to_work(p)), p, 1e-10);
        expect_near(wp.to_work(wp.to_world(p)), p, 1e-10);
        expect_near(wp.to_world(wp.to_work(v)), v, 1e-10);
        // The transforms agree with the conversions, and with each other.
        expect_near(wp.get_transform_to_world().apply(p), wp.to_world(p));
        const giXform3 both(giXformProduct, wp.get_transform_to_work(),
                            wp.get_transform_to_world());
        EXPECT_TRUE(both.is_equal(giXform3(giXformIdentity), 1e-12));
        // The origin of the workplane is its point (0,0,0); lengths are kept.
        expect_near(wp.to_world(giPoint3()), wp.origin());
        EXPECT_NEAR(wp.to_world(v).length(), v.length(), 1e-10);
    }
}

TEST(Workplane, PlaneChangesAreKindSixUnlessTheyAreTheIdentity) {
    const giWorkplane3 turned({5, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1});
    EXPECT_EQ(turned.get_transform_to_world().kind(), giXformKindWorkplane);
    EXPECT_EQ(turned.get_transform_to_work().kind(), giXformKindWorkplane);
    // Even a plane that is only moved is a plane change.
    const giWorkplane3 moved({0, 0, 3}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    EXPECT_EQ(moved.get_transform_to_world().kind(), giXformKindWorkplane);
    // The world frame itself, defined or not, gives the identity.
    const giWorkplane3 world({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    EXPECT_TRUE(world.is_defined());
    EXPECT_EQ(world.get_transform_to_world().kind(), giXformKindIdentity);
    const giWorkplane3 none;
    EXPECT_FALSE(none.is_defined());
    EXPECT_EQ(none.get_transform_to_work().kind(), giXformKindIdentity);
    expect_near(none.to_world(giPoint3(1, 2, 3)), {1, 2, 3});

    // Kind 6 survives inversion and a product with the identity; a product that undoes it is the
    // identity again, and one with a move is found from the matrix.
    const giXform3& m = turned.get_transform_to_world();
    bool ok = false;
    EXPECT_EQ(giXform3(giXformInverse, m, ok).kind(), giXformKindWorkplane);
    EXPECT_TRUE(ok);
    EXPECT_EQ(giXform3(giXformProduct, giXform3(giXformIdentity), m).kind(), giXformKindWorkplane);
    EXPECT_EQ(giXform3(giXformProduct, m, turned.get_transform_to_work()).kind(),
              giXformKindIdentity);
    giXform3 about_origin(utCopy, m);
    about_origin.premultiply(giXform3(giXformTranslate, giVector3(5, 0, 0)))
        .postmultiply(giXform3(giXformTranslate, giVector3(-5, 0, 0)));
    EXPECT_EQ(about_origin.kind(), giXformKindRotate);
}

TEST(Workplane, DegenerateAxesLeaveItUndefined) {
    const giWorkplane3 zero_axis({1, 2, 3}, {0, 0, 0}, {0, 1, 0}, {0, 0, 1});
    EXPECT_FALSE(zero_axis.is_defined());
    const giWorkplane3 parallel({1, 2, 3}, {1, 0, 0}, {2, 0, 0});
    EXPECT_FALSE(parallel.is_defined());
    expect_near(parallel.to_world(giPoint3(1, 1, 1)), {1, 1, 1});
    expect_near(parallel.origin(), {0, 0, 0});
}

}  // namespace
