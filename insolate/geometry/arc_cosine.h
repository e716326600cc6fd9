/// Arc cosine and cosine in single precision: the same on every machine.
///
/// Platforms round their single-precision acos and cos differently, by up to a unit in the last
/// place, and vector code cannot call them. These are evaluated in double precision without fused
/// operations and rounded once, so that scalar and vector code agree to the last bit. Arc cosines
/// are off by less than 0.50001 units in the last place, cosines too.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace insolate::arcCosine {

/// (asin(s) - s) / s^3 as a polynomial of s^2 up to 1/4, lowest power first: Chebyshev
/// interpolation, relative error of asin(s) below 2.4e-13.
inline constexpr std::array<double, 9> arcSineTerms = {
    0.16666666666738633,  0.07499999953429712,  0.044642906474584965,
    0.030379945210024933, 0.022412417726695433, 0.016902683886393575,
    0.01686409027396012,  0.001067506315036312, 0.02834674523183333};

/// (sin(r) - r) / r^3 as a polynomial of r^2 up to (pi/2)^2: Chebyshev interpolation, error of
/// sin(r) below 5e-16.
inline constexpr std::array<double, 7> sineTerms = {
    -0.1666666666666665,    0.008333333333325933,   -0.00019841269836469024, 2.7557318055685783e-06,
    -2.505197292154555e-08, 1.6050972244135636e-10, -7.40805488954261e-13};

inline constexpr double pi = 3.141592653589793;
inline constexpr double halfPi = 1.5707963267948966;
inline constexpr double halfPiRest = 6.123233995736766e-17; ///< pi/2 - halfPi

/// Two terms at a time, then two pairs and so on (Estrin 1960): a short chain of operations, which
/// vector code walks in the same order.
template <std::size_t count>
constexpr double polynomial(const std::array<double, count>& terms, double x) {
    const double x2 = x * x;
    const double x4 = x2 * x2;
    const double low = (terms[0] + terms[1] * x) + (terms[2] + terms[3] * x) * x2;
    if constexpr (count == 7) {
        return low + ((terms[4] + terms[5] * x) + terms[6] * x2) * x4;
    } else {
        static_assert(count == 9);
        const double high = (terms[4] + terms[5] * x) + (terms[6] + terms[7] * x) * x2;
        return low + (high + terms[8] * x4) * x4;
    }
}

} // namespace insolate::arcCosine

namespace insolate {

/// Arc cosine of a number in [-1, 1], 0..pi.
inline float roundedArcCosine(float cosine) {
    using namespace arcCosine;
    // asin directly up to 1/2; above, acos(x) = 2 asin(sqrt((1 - x) / 2)).
    const auto x = static_cast<double>(std::fabs(cosine));
    const bool isLow = x <= 0.5;
    const double square = isLow ? x * x : (1.0 - x) * 0.5;
    const double s = isLow ? x : std::sqrt(square);
    const double arcSine = s + s * square * polynomial(arcSineTerms, square);
    const double angle = isLow ? halfPi - arcSine : arcSine + arcSine;
    return static_cast<float>(cosine < 0.0f ? pi - angle : angle);
}

/// Cosine of an angle in [0, pi].
inline float roundedCosine(float angle) {
    using namespace arcCosine;
    const double r = (halfPi - static_cast<double>(angle)) + halfPiRest;
    const double square = r * r;
    return static_cast<float>(r + r * square * polynomial(sineTerms, square));
}

} // namespace insolate
