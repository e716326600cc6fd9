#include <insolate/sky/all_weather_cells_vector.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/sky/all_weather_cells_vector.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#ifndef INSOLATE_SKY_ALL_WEATHER_CELLS_VECTOR_SHARED
#define INSOLATE_SKY_ALL_WEATHER_CELLS_VECTOR_SHARED

namespace insolate {

/// What depends on the band or the sector alone.
struct CellConstants {
    std::array<double, skyGrid::altitudeCount> sine{};   ///< of the mid-altitude, at least 0.001
    std::array<double, skyGrid::altitudeCount> cosine{}; ///< of the mid-altitude
    std::array<float, skyGrid::altitudeCount> weight{};  ///< solid angle of a cell over 2 pi
    std::array<double, skyGrid::azimuthCount> sectorCosine{}; ///< of the sector's angle from +X
    std::array<double, skyGrid::azimuthCount> sectorSine{};
};

} // namespace insolate

#endif

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using D64 = hn::CappedTag<double, 8>;
using D32 = hn::Rebind<float, D64>;
using V64 = hn::Vec<D64>;

constexpr std::size_t laneCount = 8;

/// Angle whose cosine is given, by 2 asin(sqrt((1 - c) / 2)) on the nearer side of a right angle;
/// asin by a Chebyshev interpolation of asin(sqrt(w)) / sqrt(w) over [0, 0.5], error 9e-12.
HWY_INLINE V64 arcCosine(D64 d, V64 cosine) {
    constexpr double coefficients[] = {
        0.9999999997624095,   0.16666676148908066,  0.07499381286160728,  0.04479786890839819,
        0.02843379874871061,  0.036208190808793006, -0.04106813835387582, 0.1608318831422366,
        -0.19554638136178254, 0.1431511104106903};
    const V64 one = hn::Set(d, 1.0);
    const V64 w = hn::Mul(hn::Sub(one, hn::Abs(cosine)), hn::Set(d, 0.5));
    V64 sum = hn::Set(d, coefficients[9]);
    for (int i = 8; i >= 0; --i) {
        sum = hn::Add(hn::Mul(sum, w), hn::Set(d, coefficients[i]));
    }
    const V64 angle = hn::Mul(hn::Add(sum, sum), hn::Sqrt(w));
    return hn::IfThenElse(hn::Lt(cosine, hn::Zero(d)),
                          hn::Sub(hn::Set(d, 3.141592653589793), angle), angle);
}

/// Exponential, by 2^n times a Chebyshev interpolation over [-0.35, 0.35], error 1e-12; arguments
/// are held within +-700.
HWY_INLINE V64 exponential(D64 d, V64 x) {
    constexpr double coefficients[] = {
        0.9999999999595376,  0.9999999999955129,   0.5000000107778043,    0.16666666786332504,
        0.04166621818329121, 0.008333283527216814, 0.0013948587394803718, 0.00019907578161419503};
    const hn::RebindToUnsigned<D64> bits;
    x = hn::Min(hn::Max(x, hn::Set(d, -700.0)), hn::Set(d, 700.0));
    // Adding 1.5 x 2^52 leaves the nearest whole number in the low bits of the sum.
    const V64 magic = hn::Set(d, 6755399441055744.0);
    const V64 shifted = hn::Add(hn::Mul(x, hn::Set(d, 1.4426950408889634)), magic);
    const V64 n = hn::Sub(shifted, magic);
    const V64 r = hn::Sub(hn::Sub(x, hn::Mul(n, hn::Set(d, 0.693147180369123816490))),
                          hn::Mul(n, hn::Set(d, 1.90821492927058770002e-10)));
    V64 sum = hn::Set(d, coefficients[7]);
    for (int i = 6; i >= 0; --i) {
        sum = hn::Add(hn::Mul(sum, r), hn::Set(d, coefficients[i]));
    }
    const auto exponent = hn::ShiftLeft<52>(hn::BitCast(bits, shifted));
    const auto power = hn::Add(exponent, hn::BitCast(bits, hn::Set(d, 1.0)));
    return hn::Mul(sum, hn::BitCast(d, power));
}

double distribute(const AllWeatherStep& step, const CellConstants& grid, const double* cosineDelta,
                  const double* gradation, float* cells) {
    const D64 d;
    const D32 d32;
    const std::size_t lanes = hn::Lanes(d);
    const AllWeatherSky& sky = step.luminance;
    const double cosineAltitude = std::cos(step.altitude);
    const double sineAltitude = std::sin(step.altitude);
    const V64 c = hn::Set(d, sky.c);
    const V64 width = hn::Set(d, sky.d);
    const V64 e = hn::Set(d, sky.e);
    const V64 one = hn::Set(d, 1.0);
    const auto highest = hn::Set(d32, highestLuminance);
    alignas(64) double sums[laneCount] = {};
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        const V64 sine = hn::Set(d, grid.sine[band]);
        const V64 cosine = hn::Set(d, grid.cosine[band]);
        const V64 sunCosine = hn::Set(d, cosineAltitude);
        const V64 sineTerm = hn::Set(d, grid.sine[band] * sineAltitude);
        const V64 bandGradation = hn::Set(d, gradation[band]);
        const auto weight = hn::Set(d32, grid.weight[band]);
        float* bandCells = cells + band * skyGrid::azimuthCount;
        for (std::size_t lane = 0; lane < laneCount; lane += lanes) {
            V64 sum = hn::Load(d, sums + lane);
            for (std::size_t sector = lane; sector < skyGrid::azimuthCount; sector += laneCount) {
                const V64 product =
                    hn::Mul(hn::Mul(hn::LoadU(d, cosineDelta + sector), cosine), sunCosine);
                const V64 cosineGamma =
                    hn::Min(hn::Max(hn::Add(product, sineTerm), hn::Neg(one)), one);
                const V64 circumsolar =
                    hn::Mul(c, exponential(d, hn::Mul(width, arcCosine(d, cosineGamma))));
                const V64 backscatter = hn::Mul(hn::Mul(e, cosineGamma), cosineGamma);
                const auto luminance = hn::DemoteTo(
                    d32, hn::Mul(bandGradation, hn::Add(hn::Add(one, circumsolar), backscatter)));
                const auto positive = hn::IfThenElseZero(hn::Gt(luminance, hn::Zero(d32)),
                                                         hn::Min(luminance, highest));
                const auto cell = hn::Mul(weight, positive);
                hn::StoreU(cell, d32, bandCells + sector);
                sum = hn::Add(sum, hn::Mul(hn::PromoteTo(d, cell), sine));
            }
            hn::Store(sum, d, sums + lane);
        }
    }
    double total = 0.0;
    for (const double sum : sums) {
        total += sum;
    }
    return total;
}

void book(const float* cells, float scale, float hours, float* diffuse, float* peak) {
    const hn::CappedTag<float, 16> d; // 1,296 cells are 81 times 16
    const auto scaleLanes = hn::Set(d, scale);
    const auto hourLanes = hn::Set(d, hours);
    for (std::size_t i = 0; i < skyGrid::cellCount; i += hn::Lanes(d)) {
        const auto value = hn::Mul(scaleLanes, hn::LoadU(d, cells + i));
        hn::StoreU(hn::Add(hn::LoadU(d, diffuse + i), hn::Mul(value, hourLanes)), d, diffuse + i);
        hn::StoreU(hn::Max(hn::LoadU(d, peak + i), value), d, peak + i);
    }
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {
namespace {

HWY_EXPORT(distribute);
HWY_EXPORT(book);

using std::numbers::pi;

CellConstants makeCellConstants() {
    CellConstants grid;
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        const double lower = static_cast<double>(band) * skyGrid::cellWidth;
        const double upper = std::min(lower + skyGrid::cellWidth, pi / 2.0);
        const double middle = (lower + upper) / 2.0;
        grid.sine[band] = std::max(std::sin(middle), 0.001);
        grid.cosine[band] = std::cos(middle);
        grid.weight[band] =
            static_cast<float>((std::sin(upper) - std::sin(lower)) / skyGrid::azimuthCount);
    }
    for (std::size_t sector = 0; sector < skyGrid::azimuthCount; ++sector) {
        const double angle = pi / 2.0 - (static_cast<double>(sector) + 0.5) * skyGrid::cellWidth;
        grid.sectorCosine[sector] = std::cos(angle);
        grid.sectorSine[sector] = std::sin(angle);
    }
    return grid;
}

} // namespace

float distributeAllWeatherVector(const AllWeatherStep& step, double northOffset,
                                 float (&cells)[skyGrid::cellCount]) {
    if (step.altitude <= lowestDistributedAltitude) {
        std::fill(std::begin(cells), std::end(cells), 0.0f);
        return 0.0f;
    }
    static const CellConstants grid = makeCellConstants();
    // Angle between the sun's and each sector's plan direction, by the cosine of a difference.
    const double sunCosine = std::cos(northOffset + step.trigAngle);
    const double sunSine = std::sin(northOffset + step.trigAngle);
    alignas(64) double cosineDelta[skyGrid::azimuthCount];
    for (std::size_t sector = 0; sector < skyGrid::azimuthCount; ++sector) {
        cosineDelta[sector] =
            grid.sectorCosine[sector] * sunCosine + grid.sectorSine[sector] * sunSine;
    }
    double gradation[skyGrid::altitudeCount];
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        gradation[band] = allWeatherGradation(step, grid.sine[band]);
    }
    applySimdChoice();
    const double sum = HWY_DYNAMIC_DISPATCH(distribute)(step, grid, cosineDelta, gradation, cells);
    return static_cast<float>(step.diffuse) / std::max(static_cast<float>(sum), 0.001f);
}

void bookDistribution(const float (&cells)[skyGrid::cellCount], float scale, float hours,
                      float (&diffuse)[skyGrid::cellCount], float (&peak)[skyGrid::cellCount]) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(book)(cells, scale, hours, diffuse, peak);
}

} // namespace insolate

#endif
