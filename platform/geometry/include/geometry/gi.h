#pragma once
// gi: geometry value types. Points, vectors, unit vectors, angles, workplanes and affine
// transforms in 3D, and points and vectors in 2D. All values are plain doubles in whatever length
// unit the caller works in; angles carry their unit in the type (giAngle).
//
// Composition order, stated once for the whole library. A giXform3 acts on column vectors,
// p' = L p + t, and a product reads like the matrix product:
//
//     giXform3(giXformProduct, A, B)  applies B first, then A        (A * B)
//     T.premultiply(A)                T becomes A * T: A acts after T
//     T.postmultiply(A)               T becomes T * A: A acts before T
//
// so M * S * M' (scale S along a workplane whose transform to world is M, M' its inverse) is
// S.premultiply(M).postmultiply(M').

#include <cmath>
#include <numbers>

#include "utils/utCopy.h"

// ---------------------------------------------------------------------------------------------
// Axes and angles

// A coordinate axis. Other values may be stored (they come from saved data); they name no axis.
enum gi_Axis : int { gi_X = 0, gi_Y = 1, gi_Z = 2 };

struct giAngleDegreesTag {
    explicit constexpr giAngleDegreesTag() = default;
};
struct giAngleRadiansTag {
    explicit constexpr giAngleRadiansTag() = default;
};
inline constexpr giAngleDegreesTag giAngleDegrees{};
inline constexpr giAngleRadiansTag giAngleRadians{};

// An angle, made in degrees or in radians and read in either: giAngle(giAngleDegrees, 90).
class giAngle {
  public:
    constexpr giAngle() noexcept = default;
    constexpr giAngle(giAngleDegreesTag, double degrees) noexcept
        : rad_(degrees * (std::numbers::pi / 180.0)) {}
    constexpr giAngle(giAngleRadiansTag, double radians) noexcept : rad_(radians) {}

    constexpr double radians() const noexcept { return rad_; }
    constexpr double degrees() const noexcept { return rad_ * (180.0 / std::numbers::pi); }

    constexpr giAngle operator-() const noexcept { return giAngle(giAngleRadians, -rad_); }
    constexpr giAngle operator+(giAngle o) const noexcept {
        return giAngle(giAngleRadians, rad_ + o.rad_);
    }
    constexpr giAngle operator-(giAngle o) const noexcept {
        return giAngle(giAngleRadians, rad_ - o.rad_);
    }
    constexpr giAngle operator*(double k) const noexcept {
        return giAngle(giAngleRadians, rad_ * k);
    }
    constexpr bool operator==(const giAngle&) const = default;

  private:
    double rad_ = 0.0;
};

// ---------------------------------------------------------------------------------------------
// 3D points and vectors. Exact == compares coordinates bit for bit; callers that need a tolerance
// compare lengths of differences.

struct giPoint3;

struct giVector3 {
    double x = 0.0, y = 0.0, z = 0.0;

    constexpr giVector3() noexcept = default;
    constexpr giVector3(double vx, double vy, double vz) noexcept : x(vx), y(vy), z(vz) {}
    // The unit vector along an axis; the zero vector for a value that names no axis.
    explicit constexpr giVector3(gi_Axis axis) noexcept
        : x(axis == gi_X ? 1.0 : 0.0), y(axis == gi_Y ? 1.0 : 0.0), z(axis == gi_Z ? 1.0 : 0.0) {}
    // The position vector of a point (from the world origin).
    explicit constexpr giVector3(const giPoint3& p) noexcept;

    // Component i (0 x, 1 y, 2 z).
    constexpr double operator[](int i) const noexcept { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr double& operator[](int i) noexcept { return i == 0 ? x : (i == 1 ? y : z); }

    constexpr double dot(const giVector3& o) const noexcept { return x * o.x + y * o.y + z * o.z; }
    constexpr giVector3 cross(const giVector3& o) const noexcept {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    constexpr double length_squared() const noexcept { return dot(*this); }
    double length() const noexcept { return std::sqrt(length_squared()); }

    constexpr giVector3 operator-() const noexcept { return {-x, -y, -z}; }
    constexpr giVector3 operator+(const giVector3& o) const noexcept {
        return {x + o.x, y + o.y, z + o.z};
    }
    constexpr giVector3 operator-(const giVector3& o) const noexcept {
        return {x - o.x, y - o.y, z - o.z};
    }
    constexpr giVector3 operator*(double k) const noexcept { return {x * k, y * k, z * k}; }
    constexpr giVector3 operator/(double k) const noexcept { return {x / k, y / k, z / k}; }
    constexpr giVector3& operator+=(const giVector3& o) noexcept { return *this = *this + o; }
    constexpr giVector3& operator-=(const giVector3& o) noexcept { return *this = *this - o; }
    constexpr giVector3& operator*=(double k) noexcept { return *this = *this * k; }
    constexpr bool operator==(const giVector3&) const = default;
};
constexpr giVector3 operator*(double k, const giVector3& v) noexcept {
    return v * k;
}

struct giPoint3 {
    double x = 0.0, y = 0.0, z = 0.0;

    constexpr giPoint3() noexcept = default;
    constexpr giPoint3(double px, double py, double pz) noexcept : x(px), y(py), z(pz) {}
    // The point at a position vector.
    explicit constexpr giPoint3(const giVector3& v) noexcept : x(v.x), y(v.y), z(v.z) {}

    constexpr double operator[](int i) const noexcept { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr double& operator[](int i) noexcept { return i == 0 ? x : (i == 1 ? y : z); }

    constexpr giPoint3 operator+(const giVector3& v) const noexcept {
        return {x + v.x, y + v.y, z + v.z};
    }
    constexpr giPoint3 operator-(const giVector3& v) const noexcept {
        return {x - v.x, y - v.y, z - v.z};
    }
    constexpr giVector3 operator-(const giPoint3& o) const noexcept {
        return {x - o.x, y - o.y, z - o.z};
    }
    constexpr giPoint3& operator+=(const giVector3& v) noexcept { return *this = *this + v; }
    constexpr bool operator==(const giPoint3&) const = default;
};

constexpr giVector3::giVector3(const giPoint3& p) noexcept : x(p.x), y(p.y), z(p.z) {}

// A direction of length 1. Made from a vector it is that vector normalised; made from the zero
// vector (or anything not finite) it holds the zero vector and is not valid. The default is +Z.
class giUnitVec3 {
  public:
    constexpr giUnitVec3() noexcept : v_(0.0, 0.0, 1.0) {}
    explicit giUnitVec3(const giVector3& v) noexcept;
    giUnitVec3(double ux, double uy, double uz) noexcept : giUnitVec3(giVector3(ux, uy, uz)) {}
    explicit constexpr giUnitVec3(gi_Axis axis) noexcept : v_(axis) {}

    constexpr bool is_valid() const noexcept { return v_.length_squared() > 0.0; }
    constexpr double x() const noexcept { return v_.x; }
    constexpr double y() const noexcept { return v_.y; }
    constexpr double z() const noexcept { return v_.z; }
    constexpr const giVector3& vector() const noexcept { return v_; }
    constexpr operator const giVector3&() const noexcept { return v_; }
    constexpr giUnitVec3 operator-() const noexcept {
        giUnitVec3 r;
        r.v_ = -v_;
        return r;
    }
    constexpr bool operator==(const giUnitVec3&) const = default;

  private:
    giVector3 v_;
};

// ---------------------------------------------------------------------------------------------
// 2D points and vectors

struct giVector2 {
    double x = 0.0, y = 0.0;

    constexpr giVector2() noexcept = default;
    constexpr giVector2(double vx, double vy) noexcept : x(vx), y(vy) {}

    constexpr double dot(const giVector2& o) const noexcept { return x * o.x + y * o.y; }
    // The z component of the 3D cross product: positive when o lies anticlockwise of this.
    constexpr double cross(const giVector2& o) const noexcept { return x * o.y - y * o.x; }
    double length() const noexcept { return std::sqrt(dot(*this)); }
    // The angle that turns this direction onto `to`: anticlockwise positive, in (-180, 180]
    // degrees. Zero when either vector is zero.
    giAngle signed_angle(const giVector2& to) const noexcept {
        return giAngle(giAngleRadians, std::atan2(cross(to), dot(to)));
    }

    constexpr giVector2 operator-() const noexcept { return {-x, -y}; }
    constexpr giVector2 operator+(const giVector2& o) const noexcept { return {x + o.x, y + o.y}; }
    constexpr giVector2 operator-(const giVector2& o) const noexcept { return {x - o.x, y - o.y}; }
    constexpr giVector2 operator*(double k) const noexcept { return {x * k, y * k}; }
    constexpr bool operator==(const giVector2&) const = default;
};

struct giPoint2 {
    double x = 0.0, y = 0.0;

    constexpr giPoint2() noexcept = default;
    constexpr giPoint2(double px, double py) noexcept : x(px), y(py) {}

    constexpr giPoint2 operator+(const giVector2& v) const noexcept { return {x + v.x, y + v.y}; }
    constexpr giVector2 operator-(const giPoint2& o) const noexcept { return {x - o.x, y - o.y}; }
    constexpr bool operator==(const giPoint2&) const = default;
};

// ---------------------------------------------------------------------------------------------
// Affine transforms

// What a transform does: its kind, recorded when it is made. 0 means "not a transform" (default
// constructed, a failed inversion, a degenerate input); every other value is a valid, invertible
// transform. Except for kind 6, the kind is found from the matrix (L the 3x3 part, t the
// translation; entries compared with a tolerance of 1e-10), not from the constructor that made
// it: giXformScale(1, 1, 1) is the identity, giXformScale(-1, 1, 1) a mirror, a rotation by 360
// degrees the identity.
//
// clang-format off
enum giXformKind : int {
    giXformKindInvalid   = 0,  // no transform: not finite, or L singular (|det L| below 1e-12 of
                               // the product of its column lengths), or made invalid
    giXformKindIdentity  = 1,  // L = I, t = 0
    giXformKindTranslate = 2,  // L = I, t != 0
    giXformKindRotate    = 3,  // L orthonormal, det L = +1, L != I: any rigid motion that turns
                               // (a rotation about any axis through any point, or a screw)
    giXformKindMirror    = 4,  // L orthonormal, det L = -1: a reflection, possibly moved
    giXformKindScale     = 5,  // L diagonal and not orthonormal: scaling along the world axes
    giXformKindWorkplane = 6,  // a change of frame: the transforms of a giWorkplane3 to world and
                               // to work that are not the identity. Kept by inversion and by a
                               // product with the identity; other products are found from the
                               // matrix again
    giXformKindGeneral   = 7,  // any other invertible affine map
};
// clang-format on

// The transform classes as the transform operations name them; the values are the kinds above.
// clang-format off
enum kapXformType : int {
    kapXformType_Invalid   = giXformKindInvalid,
    kapXformType_Identity  = giXformKindIdentity,
    kapXformType_Translate = giXformKindTranslate,
    kapXformType_Rotate    = giXformKindRotate,
    kapXformType_Mirror    = giXformKindMirror,
    kapXformType_Scale     = giXformKindScale,
    kapXformType_Workplane = giXformKindWorkplane,
    kapXformType_General   = giXformKindGeneral,
};
// clang-format on

#define GI_XFORM_TAG_(Name)                       \
    struct Name##Tag {                            \
        explicit constexpr Name##Tag() = default; \
    };                                            \
    inline constexpr Name##Tag Name {}
GI_XFORM_TAG_(giXformIdentity);
GI_XFORM_TAG_(giXformTranslate);
GI_XFORM_TAG_(giXformRotate);
GI_XFORM_TAG_(giXformMirror);
GI_XFORM_TAG_(giXformScale);
GI_XFORM_TAG_(giXformProduct);
GI_XFORM_TAG_(giXformInverse);
GI_XFORM_TAG_(giXformMatrix);
#undef GI_XFORM_TAG_

// An affine map of 3D space, p' = L p + t, stored as 3 rows of 4 (L | t), with its kind.
class giXform3 {
  public:
    // Not a transform (kind 0); holds the identity matrix, so applying it changes nothing.
    giXform3() noexcept;
    explicit giXform3(giXformIdentityTag) noexcept;
    // Moves every point by t.
    giXform3(giXformTranslateTag, const giVector3& t) noexcept;
    // Turns about the line through `about` along `axis` by `angle`, anticlockwise when seen
    // looking against the axis (right-hand rule). Quarter turns are exact. Invalid when the axis
    // is not valid.
    giXform3(giXformRotateTag, const giPoint3& about, const giUnitVec3& axis,
             const giAngle& angle) noexcept;
    // Reflects through the plane through `through` with normal `normal`. Invalid when the normal
    // is not valid.
    giXform3(giXformMirrorTag, const giPoint3& through, const giUnitVec3& normal) noexcept;
    // Scales about the world origin by sx, sy, sz along the world axes. Invalid when a factor is 0.
    giXform3(giXformScaleTag, double sx, double sy, double sz) noexcept;
    giXform3(giXformScaleTag, const giVector3& factors) noexcept;
    // a * b: b acts first, then a. Invalid when either is.
    giXform3(giXformProductTag, const giXform3& a, const giXform3& b) noexcept;
    // The inverse of m. `status` is true when m was valid and could be inverted; otherwise false,
    // and the result is invalid.
    giXform3(giXformInverseTag, const giXform3& m, bool& status) noexcept;
    // From the matrix rows (L | t); the kind is found from the matrix.
    giXform3(giXformMatrixTag, const double (&rows)[3][4]) noexcept;
    giXform3(utCopyTag, const giXform3& other) noexcept : giXform3(other) {}

    int kind() const noexcept { return kind_; }
    bool is_valid() const noexcept { return kind_ != giXformKindInvalid; }
    bool is_identity() const noexcept { return kind_ == giXformKindIdentity; }

    // Entry (row, col), row 0..2, col 0..3 (col 3 is the translation).
    double operator()(int row, int col) const noexcept { return m_[row][col]; }
    giVector3 translation() const noexcept { return {m_[0][3], m_[1][3], m_[2][3]}; }

    // This becomes a * this (a acts after this).
    giXform3& premultiply(const giXform3& a) noexcept;
    // This becomes this * a (a acts before this).
    giXform3& postmultiply(const giXform3& a) noexcept;

    giPoint3 apply(const giPoint3& p) const noexcept;
    // Vectors are moved by L only.
    giVector3 apply(const giVector3& v) const noexcept;

    // Whether every matrix entry is within tol of the other's (kinds are not compared).
    bool is_equal(const giXform3& o, double tol) const noexcept;

  private:
    friend class giWorkplane3;
    void set_kind_from_matrix() noexcept;

    double m_[3][4];
    int kind_ = giXformKindInvalid;
};

// ---------------------------------------------------------------------------------------------
// Workplanes

// A local frame: an origin and three axes, given in world coordinates. A workplane that is not
// defined is the world frame: every conversion is the identity. Axes are normalised when the
// workplane is made; they are meant to be perpendicular, and when they are not, to_work is still
// the exact inverse of to_world. Axes that are zero or dependent leave the workplane not defined.
class giWorkplane3 {
  public:
    // Not defined (the world frame).
    giWorkplane3() noexcept;
    giWorkplane3(const giPoint3& origin, const giVector3& x_dir, const giVector3& y_dir,
                 const giVector3& z_dir) noexcept;
    // Z is x_dir cross y_dir.
    giWorkplane3(const giPoint3& origin, const giVector3& x_dir, const giVector3& y_dir) noexcept;

    bool is_defined() const noexcept { return defined_; }
    const giPoint3& origin() const noexcept { return origin_; }
    const giUnitVec3& x_axis() const noexcept { return x_; }
    const giUnitVec3& y_axis() const noexcept { return y_; }
    const giUnitVec3& z_axis() const noexcept { return z_; }

    // Workplane coordinates to world: origin + x X + y Y + z Z (vectors without the origin).
    giPoint3 to_world(const giPoint3& p) const noexcept { return to_world_.apply(p); }
    giVector3 to_world(const giVector3& v) const noexcept { return to_world_.apply(v); }
    // World coordinates to workplane coordinates.
    giPoint3 to_work(const giPoint3& p) const noexcept { return to_work_.apply(p); }
    giVector3 to_work(const giVector3& v) const noexcept { return to_work_.apply(v); }

    // The transforms behind to_world and to_work: kind 1 when they are the identity (and always
    // when the workplane is not defined), kind 6 otherwise.
    const giXform3& get_transform_to_world() const noexcept { return to_world_; }
    const giXform3& get_transform_to_work() const noexcept { return to_work_; }

  private:
    void build() noexcept;

    giPoint3 origin_;
    giUnitVec3 x_{gi_X}, y_{gi_Y}, z_{gi_Z};
    bool defined_ = false;
    giXform3 to_world_{giXformIdentity};
    giXform3 to_work_{giXformIdentity};
};
