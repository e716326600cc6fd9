// Each loop below is written once and compiled for every instruction set. Sums run over 16 lanes
// that are added up in one fixed order at the end: instructions of 4, 8 or 16 lanes then round the
// same way. Products are not fused with sums where the result is kept, for the same reason.
#include <insolate/hourly/sensor_kernels.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/hourly/sensor_kernels.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <insolate/hourly/vector_lanes.h>

#include <array>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

using namespace sensorKernels;

float sumProducts(const float* a, const float* b, std::size_t count) {
    const F d;
    const std::size_t n = hn::Lanes(d);
    alignas(64) std::array<float, lanes> sums{};
    for (std::size_t part = 0; part < lanes; part += n) {
        V sum = hn::Zero(d);
        for (std::size_t i = part; i < count; i += lanes) {
            sum = hn::Add(sum, hn::Mul(hn::LoadU(d, a + i), hn::LoadU(d, b + i)));
        }
        hn::StoreU(sum, d, sums.data() + part);
    }
    return sumOf(sums);
}

void project(const XYZf& normal, const float* x, const float* y, const float* z, std::size_t count,
             float least, float* out, std::uint8_t* front, std::uint8_t* heavy) {
    const hn::CappedTag<float, 8> d;
    using V8 = hn::Vec<decltype(d)>;
    const std::size_t n = hn::Lanes(d);
    const V8 nx = hn::Set(d, normal.x);
    const V8 ny = hn::Set(d, normal.y);
    const V8 nz = hn::Set(d, normal.z);
    const V8 zero = hn::Zero(d);
    const auto bitsAbove = [&](V8 product, V8 limit) HWY_ATTR {
        std::uint8_t some[8] = {};
        hn::StoreMaskBits(d, hn::Gt(product, limit), some);
        return static_cast<unsigned>(some[0]);
    };
    for (std::size_t i = 0; i < count; i += 8) {
        unsigned inFront = 0;
        unsigned above = 0;
        for (std::size_t part = 0; part < 8; part += n) {
            const std::size_t k = i + part;
            const V8 product =
                hn::Add(hn::Add(hn::Mul(nx, hn::LoadU(d, x + k)), hn::Mul(ny, hn::LoadU(d, y + k))),
                        hn::Mul(nz, hn::LoadU(d, z + k)));
            inFront |= bitsAbove(product, zero) << part;
            above |= bitsAbove(product, hn::Set(d, least)) << part;
            hn::StoreU(hn::Max(product, zero), d, out + k);
        }
        front[i / 8] = static_cast<std::uint8_t>(inFront);
        heavy[i / 8] = static_cast<std::uint8_t>(above);
    }
}

/// A bit for each cell, in the order of the cells.
using CellBits = std::array<std::uint8_t, skyGrid::cellCount / 8 + 8>;

CellBits bitsOfCells(const SkyCellSet& set) {
    CellBits bits{};
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        for (unsigned byte = 0; byte < 8; ++byte) {
            bits[band * 9 + byte] = static_cast<std::uint8_t>(set.words[2 * band] >> (8 * byte));
        }
        bits[band * 9 + 8] = static_cast<std::uint8_t>(set.words[2 * band + 1]);
    }
    return bits;
}

void expand(const SkyCellSet& set, float* out) {
    const hn::CappedTag<float, 8> d;
    const std::size_t n = hn::Lanes(d);
    const CellBits bits = bitsOfCells(set);
    for (std::size_t i = 0; i < skyGrid::cellCount; i += n) {
        const std::uint8_t some[8] = {static_cast<std::uint8_t>(bits[i / 8] >> (i % 8))};
        hn::StoreU(hn::IfThenElseZero(hn::LoadMaskBits(d, some), hn::Set(d, 1.0f)), d, out + i);
    }
}

SkySums sumSky(const SkyCellView& cells) {
    const hn::CappedTag<float, 8> d;
    using V8 = hn::Vec<decltype(d)>;
    const std::size_t n = hn::Lanes(d);
    std::array<float, lanes> views{};
    std::array<float, lanes> skies{};
    const V8 half = hn::Set(d, 0.5f);
    for (std::size_t part = 0; part < 8; part += n) {
        V8 view = hn::Zero(d);
        V8 sky = hn::Zero(d);
        for (std::size_t i = part; i < skyGrid::cellCount; i += 8) {
            const V8 free = hn::Mul(half, hn::Add(hn::LoadU(d, cells.visible[0] + i),
                                                  hn::LoadU(d, cells.visible[1] + i)));
            const V8 seen = hn::Mul(hn::LoadU(d, cells.weight + i), free);
            hn::StoreU(seen, d, cells.seen + i);
            view = hn::Add(view, seen);
            sky = hn::Add(sky, hn::Mul(seen, hn::LoadU(d, cells.diffuse + i)));
        }
        hn::StoreU(view, d, views.data() + part);
        hn::StoreU(sky, d, skies.data() + part);
    }
    return {sumOf(views), sumOf(skies)};
}

SunSums sumSun(const XYZf& normal, const SunCellView& cells) {
    const F d;
    const hn::RebindToSigned<F> di;
    const std::size_t n = hn::Lanes(d);
    const V nx = hn::Set(d, normal.x);
    const V ny = hn::Set(d, normal.y);
    const V nz = hn::Set(d, normal.z);
    const V zero = hn::Zero(d);
    std::array<float, lanes> beams{};
    std::array<float, lanes> times{};
    for (std::size_t part = 0; part < lanes; part += n) {
        V beam = zero;
        V time = zero;
        for (std::size_t i = part; i < cells.rays->cellOfSun.size(); i += lanes) {
            const auto cell = hn::LoadU(di, cells.rays->cellOfSun.data() + i);
            V weight = zero;
            V seen = zero;
            for (std::size_t half = 0; half < 2; ++half) {
                const FirstRays::Sun& sun = cells.rays->sun[half];
                const V product =
                    hn::Add(hn::Add(hn::Mul(nx, hn::LoadU(d, sun.energyX.data() + i)),
                                    hn::Mul(ny, hn::LoadU(d, sun.energyY.data() + i))),
                            hn::Mul(nz, hn::LoadU(d, sun.energyZ.data() + i)));
                const V energy = hn::Max(product, zero);
                const V free = hn::GatherIndex(d, cells.visible[half], cell);
                weight = hn::Add(weight, energy);
                seen = hn::Add(seen, hn::Mul(energy, free));
                const V height = hn::Add(hn::Add(hn::Mul(nx, hn::LoadU(d, sun.rayX.data() + i)),
                                                 hn::Mul(ny, hn::LoadU(d, sun.rayY.data() + i))),
                                         hn::Mul(nz, hn::LoadU(d, sun.rayZ.data() + i)));
                time = hn::Add(
                    time, hn::IfThenElseZero(hn::Gt(height, zero),
                                             hn::Mul(hn::LoadU(d, sun.hours.data() + i), free)));
            }
            beam = hn::Add(beam, seen);
            hn::StoreU(weight, d, cells.weight + i);
            hn::StoreU(hn::IfThenElseZero(hn::Gt(weight, zero), hn::Div(seen, weight)), d,
                       cells.sunVisible + i);
        }
        hn::StoreU(beam, d, beams.data() + part);
        hn::StoreU(time, d, times.data() + part);
    }
    return {sumOf(beams), sumOf(times)};
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate::sensorKernels {

HWY_EXPORT(sumProducts);
HWY_EXPORT(project);
HWY_EXPORT(sumSky);
HWY_EXPORT(sumSun);
HWY_EXPORT(expand);

float sumOfProducts(const float* a, const float* b, std::size_t count) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(sumProducts)(a, b, count);
}

void projectOnSurface(const XYZf& normal, const float* x, const float* y, const float* z,
                      std::size_t count, float least, float* out, std::uint8_t* front,
                      std::uint8_t* heavy) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(project)(normal, x, y, z, count, least, out, front, heavy);
}

SkySums sumVisibleSky(const SkyCellView& cells) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(sumSky)(cells);
}

SunSums sumVisibleSun(const XYZf& normal, const SunCellView& cells) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(sumSun)(normal, cells);
}

void expandSet(const SkyCellSet& set, float* out) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(expand)(set, out);
}

} // namespace insolate::sensorKernels

#endif
