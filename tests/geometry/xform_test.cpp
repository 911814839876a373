// Transforms and their kinds, workplanes, angles and vectors.

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "geometry/gi.h"

namespace {

constexpr double kTol = 1e-12;

template <class T>
void expect_near(const T& got, const std::type_identity_t<T>& want, double tol = kTol) {
    EXPECT_NEAR(got.x, want.x, tol);
    EXPECT_NEAR(got.y, want.y, tol);
    EXPECT_NEAR(got.z, want.z, tol);
}

giXform3 rotate(const giPoint3& about, const giVector3& axis, double degrees) {
    return giXform3(giXformRotate, about, giUnitVec3(axis), giAngle(giAngleDegrees, degrees));
}
giXform3 translate(double x, double y, double z) {
    return giXform3(giXformTranslate, giVector3(x, y, z));
}
giXform3 product(const giXform3& a, const giXform3& b) {
    return giXform3(giXformProduct, a, b);
}

TEST(Xform, QuarterTurnAboutZThroughAPointMovesKnownPoints) {
    const giXform3 t = rotate({1, 1, 0}, {0, 0, 1}, 90);
    EXPECT_EQ(t.kind(), giXformKindRotate);
    struct Case {
        giPoint3 in, out;
    };
    const Case cases[] = {
        {{1, 1, 0}, {1, 1, 0}},  // the centre stays
        {{1, 1, 7}, {1, 1, 7}},  // so does the whole axis
        {{2, 1, 0}, {1, 2, 0}},  // +X of the centre turns to +Y
        {{1, 2, 5}, {0, 1, 5}},  // +Y turns to -X, height kept
        {{0, 0, 0}, {2, 0, 0}},  // the world origin
        {{3, -4, -2}, {6, 3, -2}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.in.x << "," << c.in.y << "," << c.in.z);
        expect_near(t.apply(c.in), c.out);
    }
    // Vectors turn but do not move.
    expect_near(t.apply(giVector3(1, 0, 0)), {0, 1, 0});
    expect_near(t.apply(giVector3(0, 0, 2)), {0, 0, 2});
    // Quarter turns are exact: four of them are the identity, not something close to it.
    giXform3 four(giXformIdentity);
    for (int i = 0; i < 4; ++i)
        four.premultiply(t);
    EXPECT_EQ(four.kind(), giXformKindIdentity);
    EXPECT_TRUE(four.is_equal(giXform3(giXformIdentity), 0.0));
}

TEST(Xform, RotationFollowsTheRightHandRuleAboutEveryAxis) {
    // 90 degrees about X takes Y to Z; about Y takes Z to X; about Z takes X to Y; and a negative
    // angle goes back.
    expect_near(rotate({}, {1, 0, 0}, 90).apply(giVector3(0, 1, 0)), {0, 0, 1});
    expect_near(rotate({}, {0, 1, 0}, 90).apply(giVector3(0, 0, 1)), {1, 0, 0});
    expect_near(rotate({}, {0, 0, 1}, -90).apply(giVector3(0, 1, 0)), {1, 0, 0});
    const double h = std::sqrt(0.5);
    expect_near(rotate({}, {0, 0, 5}, 45).apply(giVector3(1, 0, 0)), {h, h, 0});
    // A turn of 120 degrees about (1,1,1) cycles the axes.
    expect_near(rotate({}, {1, 1, 1}, 120).apply(giVector3(1, 0, 0)), {0, 1, 0});
}

TEST(Xform, MirrorFixesItsPlaneAndTwiceIsTheIdentity) {
    std::mt19937 rng(20240611);
    std::uniform_real_distribution<double> u(-50.0, 50.0);
    for (int i = 0; i < 50; ++i) {
        const giPoint3 through(u(rng), u(rng), u(rng));
        const giUnitVec3 n(giVector3(u(rng), u(rng), u(rng)));
        const giXform3 m(giXformMirror, through, n);
        ASSERT_EQ(m.kind(), giXformKindMirror);
        // Points on the plane stay; a point off it lands on the other side at the same distance.
        const giVector3 in_plane = n.vector().cross(giVector3(1, 2, 3));
        expect_near(m.apply(through + in_plane), through + in_plane, 1e-10);
        expect_near(m.apply(through + n.vector() * 3.0), through - n.vector() * 3.0, 1e-10);

        const giXform3 twice = product(m, m);
        EXPECT_EQ(twice.kind(), giXformKindIdentity);
        EXPECT_TRUE(twice.is_equal(giXform3(giXformIdentity), kTol));
    }
}

// Random transforms of the two families the operations build: rigid motions (a turn about any
// point followed by a move) and scalings (along the world axes or, conjugated by a turn, along
// any axes).
std::vector<giXform3> random_transforms(unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> pos(-10.0, 10.0);
    std::uniform_real_distribution<double> ang(-360.0, 360.0);
    std::uniform_real_distribution<double> fac(0.25, 4.0);
    std::vector<giXform3> out;
    for (int i = 0; i < 40; ++i) {
        giXform3 r =
            rotate({pos(rng), pos(rng), pos(rng)}, {pos(rng), pos(rng), pos(rng)}, ang(rng));
        r.premultiply(translate(pos(rng), pos(rng), pos(rng)));
        out.push_back(r);
        giXform3 s(giXformScale, fac(rng), fac(rng), -fac(rng));
        out.push_back(s);
        const giXform3 turn = rotate({}, {pos(rng), pos(rng), pos(rng)}, ang(rng));
        bool ok = false;
        s.premultiply(turn).postmultiply(giXform3(giXformInverse, turn, ok));
        out.push_back(s);
    }
    return out;
}

TEST(Xform, InverseUndoesRigidAndScalingTransforms) {
    const giXform3 identity(giXformIdentity);
    for (const giXform3& t : random_transforms(7)) {
        bool ok = false;
        const giXform3 inv(giXformInverse, t, ok);
        ASSERT_TRUE(ok);
        ASSERT_TRUE(inv.is_valid());
        EXPECT_TRUE(product(inv, t).is_equal(identity, kTol));
        EXPECT_TRUE(product(t, inv).is_equal(identity, kTol));
        // A rigid motion's inverse is rigid, a mirror's a mirror.
        if (t.kind() == giXformKindRotate || t.kind() == giXformKindMirror) {
            EXPECT_EQ(inv.kind(), t.kind());
        }
    }
}

TEST(Xform, InverseOfNothingFails) {
    bool ok = true;
    const giXform3 none(giXformInverse, giXform3(), ok);
    EXPECT_FALSE(ok);
    EXPECT_FALSE(none.is_valid());
    ok = true;
    const giXform3 flat(giXformInverse, giXform3(giXformScale, 1, 0, 1), ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(flat.kind(), giXformKindInvalid);
}

TEST(Xform, ProductAndMultiplicationOrder) {
    const giXform3 a = translate(1, 0, 0);
    const giXform3 b = rotate({}, {0, 0, 1}, 90);
    const giPoint3 p(1, 0, 0);
    // product(a, b): b acts first. (1,0,0) turns to (0,1,0), then moves to (1,1,0).
    expect_near(product(a, b).apply(p), {1, 1, 0});
    // product(b, a): a acts first. (1,0,0) moves to (2,0,0), then turns to (0,2,0).
    expect_near(product(b, a).apply(p), {0, 2, 0});

    giXform3 pre(utCopy, b);
    pre.premultiply(a);  // a * b
    EXPECT_TRUE(pre.is_equal(product(a, b), 0.0));
    giXform3 post(utCopy, b);
    post.postmultiply(a);  // b * a
    EXPECT_TRUE(post.is_equal(product(b, a), 0.0));
    // The entries of a * b by hand: L = Rz(90), t = (1, 0, 0).
    const double want[3][4] = {{0, -1, 0, 1}, {1, 0, 0, 0}, {0, 0, 1, 0}};
    EXPECT_TRUE(pre.is_equal(giXform3(giXformMatrix, want), kTol));

    // Scale along a workplane about its origin: S premultiplied by M (to world), postmultiplied
    // by M' (to work). Workplane at (1,1,0) with X along world Y; scaling 2 along its X doubles
    // distances from (1,1,0) along world Y and leaves world X alone.
    const giWorkplane3 wp({1, 1, 0}, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1});
    giXform3 s(giXformScale, 2, 1, 1);
    s.premultiply(wp.get_transform_to_world()).postmultiply(wp.get_transform_to_work());
    expect_near(s.apply(giPoint3(1, 2, 0)), {1, 3, 0});
    expect_near(s.apply(giPoint3(3, 1, 4)), {3, 1, 4});
    expect_near(s.apply(giPoint3(0, 0, 0)), {0, -1, 0});
}

TEST(Xform, KindsAreReportedAsDocumented) {
    const double shear[3][4] = {{1, 0.5, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    const double nan_rows[3][4] = {{NAN, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    const giXform3 scale2(giXformScale, 2, 2, 2);
    const giXform3 turn = rotate({}, {0, 0, 1}, 30);
    struct Case {
        const char* what;
        giXform3 xform;
        int kind;
    };
    const Case cases[] = {
        {"default", giXform3(), giXformKindInvalid},
        {"identity", giXform3(giXformIdentity), giXformKindIdentity},
        {"move", translate(1, 2, 3), giXformKindTranslate},
        {"move by nothing", translate(0, 0, 0), giXformKindIdentity},
        {"turn about a point", rotate({1, 2, 3}, {1, 0, 0}, 30), giXformKindRotate},
        {"full turn", rotate({1, 2, 3}, {1, 1, 0}, 360), giXformKindIdentity},
        {"turn about no axis", rotate({}, {0, 0, 0}, 30), giXformKindInvalid},
        {"mirror", giXform3(giXformMirror, giPoint3(1, 0, 0), giUnitVec3(0, 1, 1)),
         giXformKindMirror},
        {"mirror with no normal", giXform3(giXformMirror, giPoint3(), giUnitVec3(giVector3())),
         giXformKindInvalid},
        {"scale", giXform3(giXformScale, 2, 3, 4), giXformKindScale},
        {"scale by one", giXform3(giXformScale, 1, 1, 1), giXformKindIdentity},
        {"scale by -1 in x", giXform3(giXformScale, -1, 1, 1), giXformKindMirror},
        {"scale by zero", giXform3(giXformScale, 2, 0, 1), giXformKindInvalid},
        {"scaled turn", product(scale2, turn), giXformKindGeneral},
        {"scale then move", product(translate(1, 0, 0), scale2), giXformKindScale},
        {"two mirrors",
         product(giXform3(giXformMirror, giPoint3(), giUnitVec3(1, 0, 0)),
                 giXform3(giXformMirror, giPoint3(), giUnitVec3(0, 1, 0))),
         giXformKindRotate},
        {"move then turn", product(turn, translate(0, 0, 5)), giXformKindRotate},
        {"with nothing", product(turn, giXform3()), giXformKindInvalid},
        {"shear", giXform3(giXformMatrix, shear), giXformKindGeneral},
        {"not finite", giXform3(giXformMatrix, nan_rows), giXformKindInvalid},
        {"copy", giXform3(utCopy, turn), giXformKindRotate},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.xform.kind(), c.kind);
        EXPECT_EQ(c.xform.is_valid(), c.kind != giXformKindInvalid);
    }
    // An invalid transform moves nothing.
    giXform3 spoilt = translate(1, 1, 1);
    spoilt.premultiply(giXform3());
    EXPECT_FALSE(spoilt.is_valid());
    expect_near(spoilt.apply(giPoint3(4, 5, 6)), {4, 5, 6});
    // The operation names share the values.
    static_assert(kapXformType_Workplane == 6 && kapXformType_Identity == 1);
}

TEST(Angle, SignedAngleIsAnticlockwisePositiveWithinAHalfTurn) {
    struct Case {
        giVector2 from, to;
        double degrees;
    };
    const Case cases[] = {
        {{1, 0}, {0, 1}, 90},     {{1, 0}, {0, -1}, -90}, {{1, 0}, {-1, 0}, 180},
        {{1, 0}, {3, 0}, 0},      {{1, 1}, {-1, 1}, 90},  {{0, 1}, {1, 0}, -90},
        {{1, 0}, {-1, -1}, -135}, {{0, 0}, {1, 1}, 0},    {{1, 0}, {0, 0}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.to.x << "," << c.to.y);
        EXPECT_NEAR(c.from.signed_angle(c.to).degrees(), c.degrees, 1e-12);
    }
}

TEST(Vectors, AxesAndUnitVectors) {
    EXPECT_EQ(giVector3(gi_X), giVector3(1, 0, 0));
    EXPECT_EQ(giVector3(gi_Y), giVector3(0, 1, 0));
    EXPECT_EQ(giVector3(gi_Z), giVector3(0, 0, 1));
    EXPECT_EQ(giVector3(static_cast<gi_Axis>(3)), giVector3());  // names no axis
    const giUnitVec3 n(giVector3(0, 3, 4));
    EXPECT_TRUE(n.is_valid());
    expect_near(giVector3(n), {0, 0.6, 0.8});
    EXPECT_FALSE(giUnitVec3(giVector3()).is_valid());
    EXPECT_FALSE(giUnitVec3(giVector3(INFINITY, 0, 0)).is_valid());
    EXPECT_EQ(giVector3(1, 0, 0).cross(giVector3(0, 1, 0)), giVector3(0, 0, 1));
    EXPECT_EQ(giPoint3(1, 2, 3) - giPoint3(1, 1, 1), giVector3(0, 1, 2));
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
