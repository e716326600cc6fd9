#include <insolate/geometry/geometry.h>

#include <insolate/geometry/arc_cosine.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/vector_math.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace {

using insolate::crossProduct;
using insolate::difference;
using insolate::dotProduct;
using insolate::scaled;
using insolate::sum;
using insolate::vectorLength;
using insolate::skyGrid::halfPi;
using insolate::skyGrid::pi;

/// Angles up to this are no rotation.
constexpr float smallestRotation = 1e-9f;

/// Truncation toward zero; the smallest integer where the result does not fit, NaN included.
float truncated(float value) {
    constexpr float limit = 2147483648.0f;
    const std::int32_t integer = value >= -limit && value < limit
                                     ? static_cast<std::int32_t>(value)
                                     : std::numeric_limits<std::int32_t>::min();
    return static_cast<float>(integer);
}

bool isBetween(float p, float a, float b, float tolerance) {
    return !(p > a + tolerance && p > b + tolerance) && !(p < a - tolerance && p < b - tolerance);
}

} // namespace

bool EGeometry::VeryClose(float a, float b) {
    return VeryClose(a, b, 1e-9f);
}

bool EGeometry::VeryClose(float a, float b, float tolerance) {
    return !(a > b + tolerance) && !(b - tolerance > a);
}

float EGeometry::Distance(XYZf a, XYZf b) {
    return vectorLength(difference(b, a));
}

float EGeometry::DistanceToLine(XYZf p, XYZf a, XYZf b) {
    const float d1 = Distance(a, p);
    const float d2 = Distance(b, p);
    const float d3 = Distance(a, b);
    float theta = halfPi;
    if (d3 * d1 != 0.0f) {
        const float cosine = dotProduct(difference(b, a), difference(p, a)) / (d3 * d1);
        if (cosine <= -1.0f) {
            return d1;
        }
        theta = cosine >= 1.0f ? 0.0f : insolate::roundedArcCosine(cosine);
    }
    if (theta > halfPi) {
        return d1;
    }
    if (d1 > d3) {
        return d2;
    }
    return std::sin(theta) * d1;
}

float EGeometry::Altitude(XYZf from, XYZf to) {
    const XYZf d = difference(to, from);
    const float horizontal = std::sqrt(d.x * d.x + d.y * d.y);
    if (horizontal == 0.0f) {
        return d.z == 0.0f ? 0.0f : d.z < 0.0f ? -halfPi : halfPi;
    }
    return d.z == 0.0f ? 0.0f : std::atan2(d.z, horizontal);
}

float EGeometry::Azimuth(XYZf from, XYZf to) {
    const XYZf d = difference(to, from);
    if (d.x == 0.0f) {
        return d.y == 0.0f ? 0.0f : d.y < 0.0f ? -halfPi : halfPi;
    }
    return std::atan2(d.y, d.x);
}

float EGeometry::Angle(XYZf a, XYZf b, XYZf c, XYZf* out) {
    const XYZf u = difference(b, a);
    const XYZf v = difference(c, a);
    const float product = vectorLength(u) * vectorLength(v);
    const float cosine = product < 1e38f && product != 0.0f ? dotProduct(u, v) / product : 0.0f;
    if (out != nullptr) {
        *out = sum(a, crossProduct(u, v));
    }
    if (cosine >= 1.0f) {
        return 0.0f;
    }
    return cosine <= -1.0f ? pi : insolate::roundedArcCosine(cosine);
}

float EGeometry::DivideSafely(float a, float b) {
    return b == 0.0f ? 0.0f : a / b;
}

XYZf EGeometry::ExtendLine(XYZf a, XYZf b, float distance) {
    XYZf u = difference(b, a);
    if (!Unify(&u.x, &u.y, &u.z)) {
        return b;
    }
    return sum(b, scaled(u, distance));
}

float EGeometry::Interpolate(float x, float x1, float x2, float y1, float y2) {
    return x2 == x1 ? (y1 + y2) * 0.5f : (x - x1) / (x2 - x1) * (y2 - y1) + y1;
}

float EGeometry::InterpolateBetween(float t, float a, float b) {
    return (b - a) * t + a;
}

XYZf EGeometry::InterpolateLine(XYZf a, XYZf b, float t) {
    return sum(a, scaled(difference(b, a), t));
}

void EGeometry::IntersectPlane3D(XYZf p1, XYZf p2, float A, float B, float C, float D, XYZf& out) {
    const float denominator = (A * p2.x - A * p1.x) + (B * p2.y - B * p1.y) + (C * p2.z - C * p1.z);
    const float t =
        denominator == 0.0f ? 0.0f : (-A * p1.x - B * p1.y - C * p1.z - D) / denominator;
    out = InterpolateLine(p1, p2, t);
}

bool EGeometry::IsBetween(XYZf p, XYZf a, XYZf b, float tolerance) {
    return isBetween(p.x, a.x, b.x, tolerance) && isBetween(p.y, a.y, b.y, tolerance) &&
           isBetween(p.z, a.z, b.z, tolerance);
}

float EGeometry::RandomNumber() {
    return static_cast<float>(std::rand()) / 32767.0f;
}

void EGeometry::SeedRandomiser(int seed) {
    std::srand(
        static_cast<unsigned>(seed >= 1 ? static_cast<std::time_t>(seed) : std::time(nullptr)));
}

float EGeometry::SnapTo(float value, float step) {
    if (static_cast<double>(step) < 1e-12) {
        return value;
    }
    const float half = value < -0.5f * step ? -0.5f * step : 0.5f * step;
    return truncated((value + half) / step) * step;
}

bool EGeometry::Unify(float* x, float* y, float* z) {
    const float length = vectorLength({*x, *y, *z});
    if (!(length > 0.0f)) {
        return false;
    }
    *x /= length;
    *y /= length;
    *z /= length;
    return true;
}

void EGeometry::RotateByAzimuth(XYZf p, XYZf origin, float angle, XYZf& out) {
    const float dx = p.x - origin.x;
    const float dy = p.y - origin.y;
    const float cosine = std::cos(angle);
    const float sine = std::sin(angle);
    out.x = dx * cosine - dy * sine + origin.x;
    out.y = dx * sine + dy * cosine + origin.y;
    out.z = p.z;
}

void EGeometry::RotateByAltitude(XYZf p, XYZf origin, float angle, XYZf& out) {
    const XYZf d = difference(p, origin);
    const float cosine = std::cos(angle);
    const float sine = std::sin(angle);
    if (std::fabs(static_cast<double>(d.x)) >= std::fabs(static_cast<double>(d.y))) {
        out.x = d.x * cosine - d.z * sine + origin.x;
        out.z = d.z * cosine + d.x * sine + origin.z;
        out.y = p.y;
    } else {
        out.y = d.y * cosine - d.z * sine + origin.y;
        out.z = d.z * cosine + d.y * sine + origin.z;
        out.x = p.x;
    }
}

void EGeometry::RotateByPolar(XYZf p, XYZf origin, float azimuth, float altitude, XYZf& out) {
    if (std::fabs(altitude) > smallestRotation) {
        RotateByAltitude(p, origin, altitude, out);
    } else {
        out = p;
    }
    if (std::fabs(azimuth) > smallestRotation) {
        RotateByAzimuth(out, origin, azimuth, out);
    }
}

void EGeometry::RotateByPolarReverse(XYZf p, XYZf origin, float azimuth, float altitude,
                                     XYZf& out) {
    if (std::fabs(azimuth) > smallestRotation) {
        RotateByAzimuth(p, origin, azimuth, out);
    } else {
        out = p;
    }
    if (std::fabs(altitude) > smallestRotation) {
        RotateByAltitude(out, origin, altitude, out);
    }
}
