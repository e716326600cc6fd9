/// Distances, angles, rotations and the other small geometric functions that all subsystems share.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>

/// A class without state that gathers the geometric and numeric functions.
///
/// Angles are in radians; a horizontal angle runs counter-clockwise from +X (no compass bearing),
/// an altitude upwards from the horizontal. Everything is computed in single precision, allocates
/// nothing and fails nowhere. A vector's length is 0 when the sum of its squares is not above 0.
class INSOLATE_EXPORT EGeometry {
public:
    EGeometry() = default;
    EGeometry(const EGeometry&) = default;
    /// Copies nothing: the class has no data.
    EGeometry& operator=(const EGeometry&) { return *this; }

    /// Whether a and b differ by at most 1e-9, the sums being rounded to single precision: near 1
    /// the tolerance vanishes. True when either is NaN.
    static bool VeryClose(float a, float b);
    /// The same with a tolerance of one's own.
    static bool VeryClose(float a, float b, float tolerance);

    /// Length of b - a.
    static float Distance(XYZf a, XYZf b);

    /// Distance from p to the segment a b by a simple rule: the perpendicular distance, but the
    /// distance to a when p lies behind a, and the distance to b when p is farther from a than b
    /// is, wherever its foot falls.
    static float DistanceToLine(XYZf p, XYZf a, XYZf b);

    /// Altitude of the view from one point to another, -pi/2..pi/2; 0 for equal points.
    static float Altitude(XYZf from, XYZf to);

    /// Horizontal angle of the view from one point to another, counter-clockwise from +X, in
    /// (-pi, pi]; 0 when the points lie on one vertical line.
    static float Azimuth(XYZf from, XYZf to);

    /// Angle at a between b and c, 0..pi; pi/2 when b or c coincides with a. When out is not null
    /// it receives a + (b - a) x (c - a): the tip of the normal of the triangle a, b, c, placed at
    /// a.
    static float Angle(XYZf a, XYZf b, XYZf c, XYZf* out);

    /// a / b, or 0 when b is 0.
    static float DivideSafely(float a, float b);

    /// The point that lies the distance beyond b on the line from a; b itself when a equals b.
    static XYZf ExtendLine(XYZf a, XYZf b, float distance);

    /// Value at x of the line through (x1, y1) and (x2, y2); the mean of y1 and y2 when x1 equals
    /// x2.
    static float Interpolate(float x, float x1, float x2, float y1, float y2);

    /// a at t = 0, b at t = 1; not limited to that range.
    static float InterpolateBetween(float t, float a, float b);

    /// The same for points.
    static XYZf InterpolateLine(XYZf a, XYZf b, float t);

    /// Where the line through p1 and p2 meets the plane A x + B y + C z + D = 0; p1 when the line
    /// is parallel to it. The meeting point may lie outside the segment.
    static void IntersectPlane3D(XYZf p1, XYZf p2, float A, float B, float C, float D, XYZf& out);

    /// Whether p lies in the axis-aligned box spanned by a and b, widened by the tolerance.
    static bool IsBetween(XYZf p, XYZf a, XYZf b, float tolerance);

    /// rand() / 32767, whatever the platform's RAND_MAX: 0..1 only where the generator's largest
    /// value is 32767, up to 65538 where it is 2^31 - 1.
    static float RandomNumber();

    /// Seeds rand() with the given number, or with the time of day when it is below 1.
    static void SeedRandomiser(int seed);

    /// The multiple of step nearest to the value, halves away from zero; the value itself when step
    /// is below 1e-12. A quotient beyond 32-bit integers snaps to -2^31 steps.
    static float SnapTo(float value, float step);

    /// Brings the vector to length 1 in place; false, changing nothing, for a vector without
    /// length.
    static bool Unify(float* x, float* y, float* z);

    /// Turns p about the vertical through origin, counter-clockwise seen from above.
    static void RotateByAzimuth(XYZf p, XYZf origin, float angle, XYZf& out);

    /// Tilts p about origin in the vertical plane of X or Y, whichever p is farther along (X when
    /// equal): a positive angle lifts a point on the positive side. This is no rotation about the
    /// horizontal axis across p's own bearing.
    static void RotateByAltitude(XYZf p, XYZf origin, float angle, XYZf& out);

    /// Tilts by altitude, then turns by azimuth; angles within 1e-9 of 0 are skipped.
    static void RotateByPolar(XYZf p, XYZf origin, float azimuth, float altitude, XYZf& out);

    /// Turns by azimuth, then tilts by altitude. The angles keep their signs: this is the other
    /// order, not the inverse of RotateByPolar.
    static void RotateByPolarReverse(XYZf p, XYZf origin, float azimuth, float altitude, XYZf& out);
};
