#include <insolate/analysis/hourly_kernels.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/analysis/hourly_kernels.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <array>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
using namespace hourlyKernels;

using F = hn::CappedTag<float, lanes>;
using V = hn::Vec<F>;

/// Bounds are taken a little higher than computed: their rounding must not hide an hour.
constexpr float margin = 1.00001f;

float dotProduct(const float* a, const float* b, std::size_t count) {
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
    for (std::size_t half = lanes / 2; half > 0; half /= 2) {
        for (std::size_t lane = 0; lane < half; ++lane) {
            sums[lane] += sums[lane + half];
        }
    }
    return sums[0];
}

/// The same without its order, for bounds.
float zoneProduct(const float* a, const float* b) {
    const F d;
    V sum = hn::Zero(d);
    for (std::size_t i = 0; i < zoneCount; i += hn::Lanes(d)) {
        sum = hn::Add(sum, hn::Mul(hn::LoadU(d, a + i), hn::LoadU(d, b + i)));
    }
    return hn::GetLane(hn::SumOfLanes(d, sum));
}

void weigh(const XYZf& normal, const float* x, const float* y, const float* z, std::size_t count,
           float* out, std::uint8_t* front) {
    const hn::CappedTag<float, 8> d;
    using V8 = hn::Vec<decltype(d)>;
    const std::size_t n = hn::Lanes(d);
    const V8 nx = hn::Set(d, normal.x);
    const V8 ny = hn::Set(d, normal.y);
    const V8 nz = hn::Set(d, normal.z);
    const V8 zero = hn::Zero(d);
    for (std::size_t i = 0; i < count; i += 8) {
        unsigned bits = 0;
        for (std::size_t part = 0; part < 8; part += n) {
            const std::size_t k = i + part;
            const V8 product =
                hn::Add(hn::Add(hn::Mul(nx, hn::LoadU(d, x + k)), hn::Mul(ny, hn::LoadU(d, y + k))),
                        hn::Mul(nz, hn::LoadU(d, z + k)));
            std::uint8_t some[8] = {};
            hn::StoreMaskBits(d, hn::Gt(product, zero), some);
            bits |= static_cast<unsigned>(some[0]) << part;
            hn::StoreU(hn::Max(product, zero), d, out + k);
        }
        front[i / 8] = static_cast<std::uint8_t>(bits);
    }
}

ViewSums keep(const SkyCellSet& visible, const float* diffuse, float* weight) {
    const hn::CappedTag<float, 8> d;
    using V8 = hn::Vec<decltype(d)>;
    const std::size_t n = hn::Lanes(d);
    alignas(64) std::array<float, 8> views{};
    alignas(64) std::array<float, 8> skies{};
    std::array<std::uint8_t, skyGrid::cellCount / 8 + 8> bits{};
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        for (unsigned byte = 0; byte < 8; ++byte) {
            bits[band * 9 + byte] =
                static_cast<std::uint8_t>(visible.words[2 * band] >> (8 * byte));
        }
        bits[band * 9 + 8] = static_cast<std::uint8_t>(visible.words[2 * band + 1]);
    }
    for (std::size_t part = 0; part < 8; part += n) {
        V8 view = hn::Zero(d);
        V8 sky = hn::Zero(d);
        for (std::size_t i = 0; i < skyGrid::cellCount; i += 8) {
            const std::uint8_t some[8] = {static_cast<std::uint8_t>(bits[i / 8] >> part)};
            const V8 kept =
                hn::IfThenElseZero(hn::LoadMaskBits(d, some), hn::LoadU(d, weight + i + part));
            hn::StoreU(kept, d, weight + i + part);
            view = hn::Add(view, kept);
            sky = hn::Add(sky, hn::Mul(kept, hn::LoadU(d, diffuse + i + part)));
        }
        hn::StoreU(view, d, views.data() + part);
        hn::StoreU(sky, d, skies.data() + part);
    }
    for (std::size_t half = 4; half > 0; half /= 2) {
        for (std::size_t lane = 0; lane < half; ++lane) {
            views[lane] += views[lane + half];
            skies[lane] += skies[lane + half];
        }
    }
    return {views[0], skies[0]};
}

struct Lanes {
    alignas(64) std::array<float, lanes> sky;
    alignas(64) std::array<float, lanes> all;
};

/// Bounds of `lanes` hours or blocks; gives the lanes above the best as bits. zones, where given,
/// are the brightest radiances of zoneCount zones for each lane, zone by zone.
unsigned boundsAt(const Bounds& bounds, std::size_t first, const float* zones,
                  const PeakSensor& sensor, float best, Lanes& result) {
    const F d;
    const std::size_t n = hn::Lanes(d);
    const V nx = hn::Set(d, sensor.normal.x);
    const V ny = hn::Set(d, sensor.normal.y);
    const V nz = hn::Set(d, sensor.normal.z);
    const V zero = hn::Zero(d);
    unsigned above = 0;
    for (std::size_t part = 0; part < lanes; part += n) {
        const auto field = [&](Bounds::Field which) HWY_ATTR {
            return hn::LoadU(d, bounds.lanesOf(first, which) + part);
        };
        const auto product = [&](Bounds::Field x, Bounds::Field y, Bounds::Field z) HWY_ATTR {
            return hn::Add(hn::Add(hn::Mul(nx, field(x)), hn::Mul(ny, field(y))),
                           hn::Mul(nz, field(z)));
        };
        const V beam = hn::Add(product(Bounds::beamX, Bounds::beamY, Bounds::beamZ),
                               field(Bounds::beamRadius));
        const V slack = field(Bounds::beamSlack);
        const V direct = hn::IfThenElse(hn::Gt(beam, slack), beam,
                                        hn::IfThenElseZero(hn::Gt(beam, hn::Neg(slack)), slack));
        const V open =
            hn::Add(product(Bounds::openX, Bounds::openY, Bounds::openZ), field(Bounds::open));
        V sky = hn::Min(hn::Mul(open, hn::Set(d, sensor.openScale)),
                        hn::Mul(field(Bounds::brightest), hn::Set(d, sensor.view)));
        if (zones != nullptr) {
            V sum = zero;
            for (std::size_t zone = 0; zone < zoneCount; ++zone) {
                sum = hn::Add(sum, hn::Mul(hn::LoadU(d, zones + zone * lanes + part),
                                           hn::Set(d, sensor.zoneWeight[zone])));
            }
            sky = hn::Min(sky, sum);
        }
        const V ground = hn::Mul(field(Bounds::ground), hn::Set(d, sensor.groundView));
        const V all = hn::Mul(hn::Add(hn::Add(direct, sky), ground), hn::Set(d, margin));
        hn::StoreU(sky, d, result.sky.data() + part);
        hn::StoreU(all, d, result.all.data() + part);
        std::uint8_t some[8] = {};
        hn::StoreMaskBits(d, hn::Gt(hn::Max(all, zero), hn::Set(d, best)), some);
        above |= (some[0] | static_cast<unsigned>(n > 8 ? some[1] : 0) << 8) << part;
    }
    return above;
}

/// Computes an hour as far as it may still exceed the best one.
void consider(const PeakHours& hours, const PeakSensor& sensor, std::size_t i, float skyBound,
              Peak& best) {
    float beam = 0.0f;
    for (std::size_t b = hours.firstBeam[i]; b < hours.firstBeam[i + 1]; ++b) {
        const BeamPart& part = hours.beams[b];
        const XYZf& e = part.energy;
        const float product = sensor.normal.x * e.x + sensor.normal.y * e.y + sensor.normal.z * e.z;
        beam += sensor.sunVisible[part.sunCell] * (product > 0.0f ? product : 0.0f);
    }
    const float ground = sensor.groundView * hours.hourBounds.at(i, Bounds::ground);
    if (!((beam + skyBound + ground) * margin > best.value)) {
        return;
    }
    const float* patches =
        hours.patches + static_cast<std::size_t>(hours.skyHour[i]) * skyPatches::count;
    const float value =
        beam + dotProduct(sensor.patchWeight, patches, skyPatches::count) * hours.share[i] + ground;
    if (value > best.value || (value == best.value && static_cast<int>(i) < best.hour)) {
        best = {value, static_cast<int>(i)};
    }
}

Peak search(const PeakHours& hours, const PeakSensor& sensor, int start) {
    Peak best;
    if (start >= 0) {
        consider(hours, sensor, static_cast<std::size_t>(start), 1e30f, best);
    }
    Lanes ofBlocks;
    Lanes ofHours;
    for (std::size_t first = 0; first < hours.blockBounds.size(); first += lanes) {
        unsigned blocks = boundsAt(hours.blockBounds, first, nullptr, sensor, best.value, ofBlocks);
        for (; blocks != 0; blocks &= blocks - 1) {
            const auto lane = static_cast<std::size_t>(__builtin_ctz(blocks));
            const std::size_t block = first + lane;
            if (!(ofBlocks.all[lane] > best.value)) {
                continue;
            }
            const float zones =
                zoneProduct(sensor.zoneWeight, hours.blockZones + block * zoneCount);
            std::uint64_t seen = 0;
            for (std::size_t word = 0; word < hours.sunWords; ++word) {
                seen |= hours.blockSun[block * hours.sunWords + word] & sensor.visibleSun[word];
            }
            const float ground = sensor.groundView * hours.blockBounds.at(block, Bounds::ground);
            const float bound =
                seen != 0 ? ofBlocks.all[lane] - ofBlocks.sky[lane] + zones : zones + ground;
            if (!(bound * margin > best.value)) {
                continue;
            }
            unsigned open =
                boundsAt(hours.hourBounds, block * lanes,
                         hours.hourZones + block * lanes * zoneCount, sensor, best.value, ofHours);
            for (; open != 0; open &= open - 1) {
                const auto hour = static_cast<std::size_t>(__builtin_ctz(open));
                if (ofHours.all[hour] > best.value) {
                    consider(hours, sensor, block * lanes + hour, ofHours.sky[hour], best);
                }
            }
        }
    }
    return best;
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate::hourlyKernels {

HWY_EXPORT(dotProduct);
HWY_EXPORT(weigh);
HWY_EXPORT(keep);
HWY_EXPORT(search);

float sumOfProducts(const float* a, const float* b, std::size_t count) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(dotProduct)(a, b, count);
}

void weighInFront(const XYZf& normal, const float* x, const float* y, const float* z,
                  std::size_t count, float* out, std::uint8_t* front) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(weigh)(normal, x, y, z, count, out, front);
}

ViewSums keepVisible(const SkyCellSet& visible, const float* diffuse, float* weight) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(keep)(visible, diffuse, weight);
}

Peak highestHour(const PeakHours& hours, const PeakSensor& sensor, int start) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(search)(hours, sensor, start);
}

} // namespace insolate::hourlyKernels

#endif
