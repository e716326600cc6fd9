#include <insolate/sky/sky_on_mask.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/sky/sky_on_mask.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <insolate/geometry/sky_grid.h>
#include <insolate/shading/shading_mask.h>
#include <insolate/sky/cumulative_sky.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using F32 = hn::CappedTag<float, 16>;
using Floats = hn::Vec<F32>;

constexpr std::size_t laneCount = 16;

/// byte / 255, correctly rounded. With fused operations a division's worth of accuracy comes from
/// one correction of the product with the reciprocal; a test compares all 256 values.
HWY_INLINE Floats fraction(F32 d, const std::uint8_t* bytes) {
    const hn::Rebind<std::uint8_t, F32> d8;
    const hn::Rebind<std::int32_t, F32> d32;
    const Floats value = hn::ConvertTo(d, hn::PromoteTo(d32, hn::LoadU(d8, bytes)));
#if HWY_NATIVE_FMA
    const Floats reciprocal = hn::Set(d, 1.0f / 255.0f);
    const Floats quotient = hn::Mul(value, reciprocal);
    const Floats rest = hn::NegMulAdd(quotient, hn::Set(d, 255.0f), value);
    return hn::MulAdd(rest, reciprocal, quotient);
#else
    return hn::Div(value, hn::Set(d, 255.0f));
#endif
}

SkyOnMask integrate(const float* direct, const float* diffuse, const float* peak,
                    const float* sines, const std::uint8_t* exposure,
                    const std::uint8_t* incidence) {
    const F32 d;
    const hn::Rebind<std::uint8_t, F32> d8;
    const std::size_t step = hn::Lanes(d);
    alignas(64) float lanes[4][laneCount];
    for (std::size_t lane = 0; lane < laneCount; lane += step) {
        Floats diffuseSum = hn::Zero(d);
        Floats directSum = hn::Zero(d);
        Floats horizontalSum = hn::Zero(d);
        Floats highest = hn::Zero(d);
        for (std::size_t i = lane; i < skyGrid::cellCount; i += laneCount) {
            // Most cells are open or blocked as a whole, with their neighbours.
            const auto bytes = hn::LoadU(d8, exposure + i);
            Floats factor = hn::Zero(d);
            if (hn::AllTrue(d8, hn::Eq(bytes, hn::Set(d8, 255)))) {
                factor = fraction(d, incidence + i);
            } else if (!hn::AllTrue(d8, hn::Eq(bytes, hn::Zero(d8)))) {
                factor = hn::Mul(fraction(d, exposure + i), fraction(d, incidence + i));
            }
            const Floats cellDiffuse = hn::LoadU(d, diffuse + i);
            const Floats cellDirect = hn::LoadU(d, direct + i);
            diffuseSum = hn::Add(diffuseSum, hn::Mul(cellDiffuse, factor));
            directSum = hn::Add(directSum, hn::Mul(cellDirect, factor));
            horizontalSum = hn::Add(
                horizontalSum, hn::Mul(hn::Add(cellDiffuse, cellDirect), hn::LoadU(d, sines + i)));
            highest = hn::Max(highest, hn::Mul(hn::LoadU(d, peak + i), factor));
        }
        hn::Store(diffuseSum, d, lanes[0] + lane);
        hn::Store(directSum, d, lanes[1] + lane);
        hn::Store(horizontalSum, d, lanes[2] + lane);
        hn::Store(highest, d, lanes[3] + lane);
    }
    SkyOnMask sums{};
    for (std::size_t lane = 0; lane < laneCount; ++lane) {
        sums.diffuse += lanes[0][lane];
        sums.direct += lanes[1][lane];
        sums.horizontal += lanes[2][lane];
        sums.peak = sums.peak < lanes[3][lane] ? lanes[3][lane] : sums.peak;
    }
    return sums;
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {
namespace {

HWY_EXPORT(integrate);

/// Sine of each cell's mid-altitude.
std::array<float, skyGrid::cellCount> cellSines() {
    std::array<float, skyGrid::cellCount> sines{};
    for (std::size_t cell = 0; cell < sines.size(); ++cell) {
        const std::size_t band = cell / skyGrid::azimuthCount;
        sines[cell] = std::sin((static_cast<float>(band) + 0.5f) * skyGrid::cellAngle);
    }
    return sines;
}

} // namespace

SkyOnMask integrateSky(const ECumulativeSky& sky, const EShadingMask& mask) {
    static const std::array<float, skyGrid::cellCount> sines = cellSines();
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(integrate)(sky.direct, sky.diffuse, sky.peak, sines.data(),
                                           ShadingMaskAccess::exposure(mask),
                                           ShadingMaskAccess::incidence(mask));
}

} // namespace insolate

#endif
