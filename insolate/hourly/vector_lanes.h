/// What the vector code of the hourly method shares: sums over lanes in a fixed order. Included
/// once per instruction set, after <hwy/foreach_target.h>.
#include <hwy/highway.h>

#include <insolate/hourly/sensor_kernels.h>

#include <array>
#include <cstddef>

// Highway compiles the including file several times over; each time this header takes part once.
#if defined(INSOLATE_HOURLY_VECTOR_LANES_H) == defined(HWY_TARGET_TOGGLE)
#ifdef INSOLATE_HOURLY_VECTOR_LANES_H
#undef INSOLATE_HOURLY_VECTOR_LANES_H
#else
#define INSOLATE_HOURLY_VECTOR_LANES_H
#endif

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using sensorKernels::lanes;

using F = hn::CappedTag<float, lanes>;
using V = hn::Vec<F>;

/// Adds the upper half of some numbers to the lower one.
template <std::size_t half>
HWY_INLINE void fold(float* numbers) {
    const hn::CappedTag<float, half> d;
    for (std::size_t i = 0; i < half; i += hn::Lanes(d)) {
        hn::StoreU(hn::Add(hn::LoadU(d, numbers + i), hn::LoadU(d, numbers + half + i)), d,
                   numbers + i);
    }
}

/// The sum of 16 lanes, in the same order at every instruction level.
HWY_INLINE float sumOf(std::array<float, lanes>& sums) {
    fold<8>(sums.data());
    fold<4>(sums.data());
    return (sums[0] + sums[2]) + (sums[1] + sums[3]);
}

} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
