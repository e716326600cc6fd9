/// Single-precision vector arithmetic, private to the library.
#pragma once

#include <insolate/geometry/xyzf.h>

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

} // namespace insolate
