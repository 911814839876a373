#include "geometry/gi.h"

#include <algorithm>
#include <cmath>

namespace {

// Entries of L and t closer than this to their target values count as equal when a kind is found.
constexpr double kKindTolerance = 1e-10;
// L is singular when |det L| is below this fraction of the product of its column lengths.
constexpr double kSingularRatio = 1e-12;

using Rows = double[3][4];

void set_identity(Rows& m) noexcept {
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 4; ++c) {
            m[r][c] = (r == c) ? 1.0 : 0.0;
        }
    }
}

double det3(const Rows& m) noexcept {
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

double column_length(const Rows& m, int c) noexcept {
    return std::sqrt(m[0][c] * m[0][c] + m[1][c] * m[1][c] + m[2][c] * m[2][c]);
}

bool close_to(double a, double b) noexcept {
    return std::abs(a - b) <= kKindTolerance;
}

int classify(const Rows& m) noexcept {
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 4; ++c) {
            if (!std::isfinite(m[r][c])) return giXformKindInvalid;
        }
    }
    const double det = det3(m);
    const double scale = column_length(m, 0) * column_length(m, 1) * column_length(m, 2);
    if (!(scale > 0.0) || !std::isfinite(det) || std::abs(det) <= kSingularRatio * scale) {
        return giXformKindInvalid;
    }

    bool linear_identity = true;
    bool diagonal = true;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            if (!close_to(m[r][c], r == c ? 1.0 : 0.0)) linear_identity = false;
            if (r != c && !close_to(m[r][c], 0.0)) diagonal = false;
        }
    }
    if (linear_identity) {
        const bool moves =
            !close_to(m[0][3], 0.0) || !close_to(m[1][3], 0.0) || !close_to(m[2][3], 0.0);
        return moves ? giXformKindTranslate : giXformKindIdentity;
    }

    bool orthonormal = true;  // L^T L = I
    for (int a = 0; a < 3 && orthonormal; ++a) {
        for (int b = a; b < 3; ++b) {
            const double d = m[0][a] * m[0][b] + m[1][a] * m[1][b] + m[2][a] * m[2][b];
            if (!close_to(d, a == b ? 1.0 : 0.0)) {
                orthonormal = false;
                break;
            }
        }
    }
    if (orthonormal) return det > 0.0 ? giXformKindRotate : giXformKindMirror;
    return diagonal ? giXformKindScale : giXformKindGeneral;
}

void multiply(const Rows& a, const Rows& b, Rows& out) noexcept {
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 4; ++c) {
            double v = a[r][0] * b[0][c] + a[r][1] * b[1][c] + a[r][2] * b[2][c];
            if (c == 3) v += a[r][3];
            out[r][c] = v;
        }
    }
}

// Cosine and sine of an angle, exact for whole quarter turns.
void cos_sin(double rad, double& c, double& s) noexcept {
    const double quarters = rad / (std::numbers::pi / 2.0);
    const double whole = std::nearbyint(quarters);
    if (std::abs(quarters - whole) < 1e-12 && std::abs(whole) < 1e15) {
        static constexpr double kCos[4] = {1.0, 0.0, -1.0, 0.0};
        static constexpr double kSin[4] = {0.0, 1.0, 0.0, -1.0};
        const auto k = static_cast<int>(std::fmod(std::fmod(whole, 4.0) + 4.0, 4.0));
        c = kCos[k];
        s = kSin[k];
        return;
    }
    c = std::cos(rad);
    s = std::sin(rad);
}

}  // namespace

// ---------------------------------------------------------------------------------------------

giUnitVec3::giUnitVec3(const giVector3& v) noexcept {
    const double len = v.length();
    if (std::isfinite(len) && len > 0.0) v_ = v / len;
}

// ---------------------------------------------------------------------------------------------

giXform3::giXform3() noexcept {
    set_identity(m_);
}

giXform3::giXform3(giXformIdentityTag) noexcept : kind_(giXformKindIdentity) {
    set_identity(m_);
}

giXform3::giXform3(giXformTranslateTag, const giVector3& t) noexcept {
    set_identity(m_);
    m_[0][3] = t.x;
    m_[1][3] = t.y;
    m_[2][3] = t.z;
    set_kind_from_matrix();
}

giXform3::giXform3(giXformRotateTag, const giPoint3& about, const giUnitVec3& axis,
                   const giAngle& angle) noexcept {
    set_identity(m_);
    if (!axis.is_valid() || !std::isfinite(angle.radians())) return;
    double c = 1.0, s = 0.0;
    cos_sin(angle.radians(), c, s);
    const double n[3] = {axis.x(), axis.y(), axis.z()};
    // Rodrigues: L = c I + s [n]x + (1 - c) n n^T.
    const double cross[3][3] = {{0.0, -n[2], n[1]}, {n[2], 0.0, -n[0]}, {-n[1], n[0], 0.0}};
    for (int r = 0; r < 3; ++r) {
        for (int k = 0; k < 3; ++k) {
            m_[r][k] = (r == k ? c : 0.0) + s * cross[r][k] + (1.0 - c) * n[r] * n[k];
        }
    }
    // t = about - L about, so `about` stays where it is.
    const giVector3 p(about);
    for (int r = 0; r < 3; ++r) {
        m_[r][3] = p[r] - (m_[r][0] * p.x + m_[r][1] * p.y + m_[r][2] * p.z);
    }
    set_kind_from_matrix();
}

giXform3::giXform3(giXformMirrorTag, const giPoint3& through, const giUnitVec3& normal) noexcept {
    set_identity(m_);
    if (!normal.is_valid()) return;
    const giVector3& n = normal;
    // L = I - 2 n n^T, t = 2 (p . n) n.
    const double d = 2.0 * giVector3(through).dot(n);
    for (int r = 0; r < 3; ++r) {
        for (int k = 0; k < 3; ++k) {
            m_[r][k] = (r == k ? 1.0 : 0.0) - 2.0 * n[r] * n[k];
        }
        m_[r][3] = d * n[r];
    }
    set_kind_from_matrix();
}

giXform3::giXform3(giXformScaleTag, double sx, double sy, double sz) noexcept {
    set_identity(m_);
    m_[0][0] = sx;
    m_[1][1] = sy;
    m_[2][2] = sz;
    set_kind_from_matrix();
}

giXform3::giXform3(giXformScaleTag, const giVector3& factors) noexcept
    : giXform3(giXformScale, factors.x, factors.y, factors.z) {}

giXform3::giXform3(giXformProductTag, const giXform3& a, const giXform3& b) noexcept {
    if (!a.is_valid() || !b.is_valid()) {
        set_identity(m_);
        return;
    }
    multiply(a.m_, b.m_, m_);
    if (a.kind_ == giXformKindIdentity) {
        kind_ = b.kind_;
    } else if (b.kind_ == giXformKindIdentity) {
        kind_ = a.kind_;
    } else {
        set_kind_from_matrix();
    }
}

giXform3::giXform3(giXformInverseTag, const giXform3& m, bool& status) noexcept {
    set_identity(m_);
    status = false;
    if (!m.is_valid()) return;
    const Rows& a = m.m_;
    const double det = det3(a);
    if (!std::isfinite(det) || det == 0.0) return;
    const double inv = 1.0 / det;
    // Adjugate over the determinant.
    m_[0][0] = (a[1][1] * a[2][2] - a[1][2] * a[2][1]) * inv;
    m_[0][1] = (a[0][2] * a[2][1] - a[0][1] * a[2][2]) * inv;
    m_[0][2] = (a[0][1] * a[1][2] - a[0][2] * a[1][1]) * inv;
    m_[1][0] = (a[1][2] * a[2][0] - a[1][0] * a[2][2]) * inv;
    m_[1][1] = (a[0][0] * a[2][2] - a[0][2] * a[2][0]) * inv;
    m_[1][2] = (a[0][2] * a[1][0] - a[0][0] * a[1][2]) * inv;
    m_[2][0] = (a[1][0] * a[2][1] - a[1][1] * a[2][0]) * inv;
    m_[2][1] = (a[0][1] * a[2][0] - a[0][0] * a[2][1]) * inv;
    m_[2][2] = (a[0][0] * a[1][1] - a[0][1] * a[1][0]) * inv;
    // t' = -L^-1 t.
    for (int r = 0; r < 3; ++r) {
        m_[r][3] = -(m_[r][0] * a[0][3] + m_[r][1] * a[1][3] + m_[r][2] * a[2][3]);
    }
    set_kind_from_matrix();
    if (kind_ == giXformKindInvalid) {
        set_identity(m_);
        return;
    }
    if (m.kind_ == giXformKindWorkplane && kind_ != giXformKindIdentity) {
        kind_ = giXformKindWorkplane;
    }
    status = true;
}

giXform3::giXform3(giXformMatrixTag, const double (&rows)[3][4]) noexcept {
    std::copy(&rows[0][0], &rows[0][0] + 12, &m_[0][0]);
    set_kind_from_matrix();
    if (kind_ == giXformKindInvalid) set_identity(m_);
}

void giXform3::set_kind_from_matrix() noexcept {
    kind_ = classify(m_);
    if (kind_ == giXformKindInvalid) set_identity(m_);
}

giXform3& giXform3::premultiply(const giXform3& a) noexcept {
    *this = giXform3(giXformProduct, a, *this);
    return *this;
}

giXform3& giXform3::postmultiply(const giXform3& a) noexcept {
    *this = giXform3(giXformProduct, *this, a);
    return *this;
}

giPoint3 giXform3::apply(const giPoint3& p) const noexcept {
    return {m_[0][0] * p.x + m_[0][1] * p.y + m_[0][2] * p.z + m_[0][3],
            m_[1][0] * p.x + m_[1][1] * p.y + m_[1][2] * p.z + m_[1][3],
            m_[2][0] * p.x + m_[2][1] * p.y + m_[2][2] * p.z + m_[2][3]};
}

giVector3 giXform3::apply(const giVector3& v) const noexcept {
    return {m_[0][0] * v.x + m_[0][1] * v.y + m_[0][2] * v.z,
            m_[1][0] * v.x + m_[1][1] * v.y + m_[1][2] * v.z,
            m_[2][0] * v.x + m_[2][1] * v.y + m_[2][2] * v.z};
}

bool giXform3::is_equal(const giXform3& o, double tol) const noexcept {
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 4; ++c) {
            if (!(std::abs(m_[r][c] - o.m_[r][c]) <= tol)) return false;
        }
    }
    return true;
}

// ---------------------------------------------------------------------------------------------

giWorkplane3::giWorkplane3() noexcept = default;

giWorkplane3::giWorkplane3(const giPoint3& origin, const giVector3& x_dir, const giVector3& y_dir,
                           const giVector3& z_dir) noexcept
    : origin_(origin), x_(x_dir), y_(y_dir), z_(z_dir) {
    build();
}

giWorkplane3::giWorkplane3(const giPoint3& origin, const giVector3& x_dir,
                           const giVector3& y_dir) noexcept
    : giWorkplane3(origin, x_dir, y_dir, x_dir.cross(y_dir)) {}

void giWorkplane3::build() noexcept {
    const double rows[3][4] = {
        {x_.x(), y_.x(), z_.x(), origin_.x},
        {x_.y(), y_.y(), z_.y(), origin_.y},
        {x_.z(), y_.z(), z_.z(), origin_.z},
    };
    giXform3 world(giXformMatrix, rows);
    bool inverted = false;
    giXform3 work(giXformInverse, world, inverted);
    if (!x_.is_valid() || !y_.is_valid() || !z_.is_valid() || !inverted) {
        *this = giWorkplane3();
        return;
    }
    defined_ = true;
    if (!world.is_identity()) world.kind_ = giXformKindWorkplane;
    if (!work.is_identity()) work.kind_ = giXformKindWorkplane;
    to_world_ = world;
    to_work_ = work;
}
