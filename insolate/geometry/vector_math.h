/// Vector arithmetic in single and in double precision, private to the library.
#pragma once

#include <insolate/geometry/xyzf.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace insolate {

constexpr XYZf difference(XYZf a, XYZf b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

constexpr XYZf sum(XYZf a, XYZf b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

constexpr XYZf scaled(XYZf v, float factor) {
    return {v.x * factor, v.y * factor, v.z * factor};
}

constexpr float dotProduct(XYZf a, XYZf b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

constexpr XYZf crossProduct(XYZf a, XYZf b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

/// 0 when the sum of squares is not above 0, NaN included.
inline float vectorLength(XYZf v) {
    const float squares = dotProduct(v, v);
    return squares > 0.0f ? std::sqrt(squares) : 0.0f;
}

/// A point or vector in double precision. The operations take pointers to three components, since
/// the ray caster keeps its triangles in long arrays.
using Vector3d = std::array<double, 3>;

constexpr Vector3d difference(const Vector3d& a, const Vector3d& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

constexpr double dotProduct(const double* a, const double* b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

constexpr Vector3d crossProduct(const double* a, const double* b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

} // namespace insolate
