#include <insolate/analysis/hourly_kernels.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/analysis/hourly_kernels.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <algorithm>
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

void spreadOut(const SkyCellSet& set, float* out) {
    const hn::CappedTag<float, 8> d;
    const std::size_t n = hn::Lanes(d);
    const CellBits bits = bitsOfCells(set);
    for (std::size_t i = 0; i < skyGrid::cellCount; i += n) {
        const std::uint8_t some[8] = {static_cast<std::uint8_t>(bits[i / 8] >> (i % 8))};
        hn::StoreU(hn::IfThenElseZero(hn::LoadMaskBits(d, some), hn::Set(d, 1.0f)), d, out + i);
    }
}

ViewSums keep(const SkyCellSet& visible, const float* diffuse, float* weight) {
    const hn::CappedTag<float, 8> d;
    using V8 = hn::Vec<decltype(d)>;
    const std::size_t n = hn::Lanes(d);
    alignas(64) std::array<float, 8> views{};
    alignas(64) std::array<float, 8> skies{};
    const CellBits bits = bitsOfCells(visible);
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

/// The strongest hour of the sun cell that promises most, the first of equals; -1 where none is
/// seen. Sets a bit for each visible cell.
int promisingHour(const PeakHours& hours, const PeakSensor& sensor, std::uint64_t* visible) {
    const F d;
    const std::size_t n = hn::Lanes(d);
    const V nx = hn::Set(d, sensor.normal.x);
    const V ny = hn::Set(d, sensor.normal.y);
    const V nz = hn::Set(d, sensor.normal.z);
    const V zero = hn::Zero(d);
    V most = zero;
    V place = zero; // exact in single precision
    for (std::size_t i = 0; i < hours.strongest.size(); i += n) {
        const V product = hn::Add(hn::Add(hn::Mul(nx, hn::LoadU(d, hours.strongestX.data() + i)),
                                          hn::Mul(ny, hn::LoadU(d, hours.strongestY.data() + i))),
                                  hn::Mul(nz, hn::LoadU(d, hours.strongestZ.data() + i)));
        const V seen = hn::LoadU(d, sensor.sunVisible + i);
        const V value = hn::Mul(product, seen);
        const auto more = hn::Gt(value, most);
        most = hn::IfThenElse(more, value, most);
        place = hn::IfThenElse(more, hn::Iota(d, static_cast<float>(i)), place);
        std::uint8_t some[8] = {};
        hn::StoreMaskBits(d, hn::Gt(seen, zero), some);
        visible[i / 64] |= (some[0] | std::uint64_t{n > 8 ? some[1] : 0U} << 8U) << (i % 64);
    }
    const V highest = hn::MaxOfLanes(d, most);
    if (!(hn::GetLane(highest) > 0.0f)) {
        return -1;
    }
    const V first =
        hn::MinOfLanes(d, hn::IfThenElse(hn::Eq(most, highest), place, hn::Set(d, 1e9f)));
    return hours.strongest[static_cast<std::size_t>(hn::GetLane(first))];
}

/// What `lanes` blocks or hours may give.
struct Lanes {
    alignas(64) std::array<float, lanes> rest; // without the direct radiation
    alignas(64) std::array<float, lanes> all;
};

/// The sensor's numbers in every lane.
struct Broadcast {
    V nx, ny, nz, openScale, view, groundView;

    explicit Broadcast(const PeakSensor& sensor) {
        const F d;
        nx = hn::Set(d, sensor.normal.x);
        ny = hn::Set(d, sensor.normal.y);
        nz = hn::Set(d, sensor.normal.z);
        openScale = hn::Set(d, sensor.openScale);
        view = hn::Set(d, sensor.view);
        groundView = hn::Set(d, sensor.groundView);
    }
    HWY_INLINE V dot(V x, V y, V z) const {
        return hn::Add(hn::Add(hn::Mul(nx, x), hn::Mul(ny, y)), hn::Mul(nz, z));
    }
};

/// Bound of the sky from its zones.
///
/// With W the sum of a zone's n patch weights w, D the root of the sum of squares of w - W/n, and
/// the same of the radiance p, the zone gives W mean(p) + sum((w - W/n)(p - mean(p))), the last
/// term at most the product of the two deviations (Cauchy and Schwarz).
HWY_INLINE V skyOfZones(const std::uint32_t* zones, const float* zoneWeight) {
    const F d;
    const hn::Rebind<std::uint32_t, F> du;
    // Several sums, or each would wait for the one before.
    V means[2] = {hn::Zero(d), hn::Zero(d)};
    V rests[2] = {hn::Zero(d), hn::Zero(d)};
    for (std::size_t zone = 0; zone < skyZones::count; zone += 2) {
        for (std::size_t k = 0; k < 2; ++k) {
            const auto both = hn::LoadU(du, zones + (zone + k) * lanes);
            means[k] = hn::MulAdd(hn::BitCast(d, both), hn::Set(d, zoneWeight[zone + k]), means[k]);
            rests[k] = hn::MulAdd(hn::BitCast(d, hn::ShiftLeft<16>(both)),
                                  hn::Set(d, zoneWeight[skyZones::count + zone + k]), rests[k]);
        }
    }
    return hn::Add(hn::Add(means[0], means[1]), hn::Add(rests[0], rests[1]));
}

/// Direct radiation that the whole sun gives at most, its directions off by up to a radius.
HWY_INLINE V beamOfWholeSun(const PeakBounds& bounds, std::size_t first, std::size_t part,
                            const Broadcast& in, V radius) {
    const F d;
    const auto field = [&](PeakBounds::Field which)
                           HWY_ATTR { return hn::LoadU(d, bounds.lanesOf(first, which) + part); };
    const V beam = hn::Add(
        in.dot(field(PeakBounds::beamX), field(PeakBounds::beamY), field(PeakBounds::beamZ)),
        radius);
    const V slack = field(PeakBounds::beamSlack);
    return hn::IfThenElse(hn::Gt(beam, slack), beam,
                          hn::IfThenElseZero(hn::Gt(beam, hn::Neg(slack)), slack));
}

/// Notes the bounds of some lanes; those above the best as bits.
HWY_INLINE unsigned noteBounds(V beam, V rest, float best, std::size_t part, Lanes& result) {
    const F d;
    const V all = hn::Mul(hn::Add(beam, rest), hn::Set(d, margin));
    hn::StoreU(rest, d, result.rest.data() + part);
    hn::StoreU(all, d, result.all.data() + part);
    std::uint8_t some[8] = {};
    hn::StoreMaskBits(d, hn::Gt(all, hn::Set(d, best)), some);
    return (some[0] | static_cast<unsigned>(hn::Lanes(d) > 8 ? some[1] : 0) << 8) << part;
}

HWY_INLINE bool anyAbove(V beam, V rest, float best) {
    const F d;
    const V all = hn::Mul(hn::Add(beam, rest), hn::Set(d, margin));
    return !hn::AllFalse(d, hn::Gt(all, hn::Set(d, best)));
}

/// `lanes` blocks: by the open sky, and where that leaves one above the best, by its zones.
unsigned boundBlocks(const PeakHours& hours, std::size_t first, const PeakSensor& sensor,
                     const Broadcast& in, float best, Lanes& result) {
    const F d;
    unsigned above = 0;
    for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
        const auto field = [&](PeakBounds::Field which) HWY_ATTR {
            return hn::LoadU(d, hours.blockBounds.lanesOf(first, which) + part);
        };
        const V beam =
            beamOfWholeSun(hours.blockBounds, first, part, in, field(PeakBounds::beamRadius));
        const V open = hn::Add(
            in.dot(field(PeakBounds::openX), field(PeakBounds::openY), field(PeakBounds::openZ)),
            field(PeakBounds::open));
        const V sky =
            hn::Min(hn::Mul(open, in.openScale), hn::Mul(field(PeakBounds::brightest), in.view));
        const V ground = hn::Mul(field(PeakBounds::ground), in.groundView);
        if (anyAbove(beam, hn::Add(sky, ground), best)) {
            const V seen = skyOfZones(hours.blockZones.data() + first * skyZones::count + part,
                                      sensor.zoneWeight);
            above |= noteBounds(beam, hn::Add(hn::Min(sky, seen), ground), best, part, result);
        }
    }
    return above;
}

/// The hours of a block whose sky and ground give at most blockRest: with the whole sun first, and
/// where that leaves one above the best, by their zones.
unsigned boundHours(const PeakHours& hours, std::size_t block, const PeakSensor& sensor,
                    const Broadcast& in, bool sunSeen, float blockRest, float best, Lanes& result) {
    const F d;
    const V most = hn::Set(d, blockRest);
    unsigned above = 0;
    for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
        const V beam = sunSeen
                           ? beamOfWholeSun(hours.hourBounds, block * lanes, part, in, hn::Zero(d))
                           : hn::Zero(d);
        if (anyAbove(beam, most, best)) {
            const V ground = hn::Mul(
                hn::LoadU(d, hours.hourBounds.lanesOf(block * lanes, PeakBounds::ground) + part),
                in.groundView);
            const V sky = skyOfZones(
                hours.hourZones.data() + block * lanes * skyZones::count + part, sensor.zoneWeight);
            above |= noteBounds(beam, hn::Min(hn::Add(sky, ground), most), best, part, result);
        }
    }
    return above;
}

/// Computes an hour as far as it may still exceed the best one. Without its direct radiation it
/// gives at most `rest`.
void consider(const PeakHours& hours, const PeakSensor& sensor, std::size_t i, float rest,
              Peak& best) {
    const PeakHours::Hour& hour = hours.hours[i];
    float beam = 0.0f;
    for (std::size_t b = hour.firstBeam; b < hour.firstBeam + hour.beamCount; ++b) {
        const BeamPart& part = hours.beams[b];
        const XYZf& e = part.energy;
        const float product = sensor.normal.x * e.x + sensor.normal.y * e.y + sensor.normal.z * e.z;
        beam += sensor.sunVisible[part.sunCell] * (product > 0.0f ? product : 0.0f);
    }
    if (!((beam + rest) * margin > best.value)) {
        return;
    }
    const float* patches =
        hours.patches + static_cast<std::size_t>(hour.skyHour) * skyPatches::count;
    const float value =
        beam + dotProduct(sensor.patchWeight, patches, skyPatches::count) * hour.shareInverse +
        sensor.groundView * hour.ground;
    if (value > best.value ||
        (value == best.value && best.hour >= 0 &&
         hour.skyHour < hours.hours[static_cast<std::size_t>(best.hour)].skyHour)) {
        best = {value, static_cast<int>(i)};
    }
}

/// Whether one of a block's sun cells is visible.
HWY_INLINE bool sunSeen(const PeakHours& hours, std::size_t block, const std::uint64_t* visible) {
    const hn::CappedTag<std::uint64_t, 8> d;
    auto seen = hn::Zero(d);
    for (std::size_t word = 0; word < hours.sunWords; word += hn::Lanes(d)) {
        seen = hn::Or(seen,
                      hn::And(hn::LoadU(d, hours.blockSun.data() + block * hours.sunWords + word),
                              hn::LoadU(d, visible + word)));
    }
    return !hn::AllTrue(d, hn::Eq(seen, hn::Zero(d)));
}

Peak search(const PeakHours& hours, const PeakSensor& sensor) {
    const Broadcast in(sensor);
    Peak best;
    alignas(64) std::array<std::uint64_t, skyGrid::cellCount / 64 + 8> visible{};
    const int start = promisingHour(hours, sensor, visible.data());
    if (start >= 0) {
        consider(hours, sensor, static_cast<std::size_t>(start), 1e30f, best);
    }
    struct Candidate {
        float bound;
        float rest; // without the direct radiation
        std::uint16_t block;
        bool sunSeen;
    };
    std::array<Candidate, PeakHours::mostBlocks> candidates;
    std::size_t count = 0;
    Lanes bounds;
    for (std::size_t first = 0; first < hours.blockBounds.size(); first += lanes) {
        unsigned blocks = boundBlocks(hours, first, sensor, in, best.value, bounds);
        std::size_t promisingMost = lanes;
        float most = best.value;
        for (; blocks != 0; blocks &= blocks - 1) {
            const auto lane = static_cast<std::size_t>(__builtin_ctz(blocks));
            const bool seen = sunSeen(hours, first + lane, visible.data());
            const float bound = seen ? bounds.all[lane] : bounds.rest[lane] * margin;
            if (bound > best.value) {
                candidates[count++] = {bound, bounds.rest[lane],
                                       static_cast<std::uint16_t>(first + lane), seen};
                if (bound > most) {
                    most = bound;
                    promisingMost = lane;
                }
            }
        }
        // A good hour early keeps many blocks out.
        if (promisingMost < lanes) {
            consider(hours, sensor, (first + promisingMost) * lanes, bounds.rest[promisingMost],
                     best);
        }
    }
    std::sort(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(count),
              [](const Candidate& a, const Candidate& b) { return a.bound > b.bound; });
    for (std::size_t i = 0; i < count && candidates[i].bound > best.value; ++i) {
        const Candidate& candidate = candidates[i];
        unsigned open = boundHours(hours, candidate.block, sensor, in, candidate.sunSeen,
                                   candidate.rest, best.value, bounds);
        for (; open != 0; open &= open - 1) {
            const auto lane = static_cast<std::size_t>(__builtin_ctz(open));
            if (bounds.all[lane] > best.value) {
                consider(hours, sensor, candidate.block * lanes + lane, bounds.rest[lane], best);
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
HWY_EXPORT(spreadOut);
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

void spread(const SkyCellSet& set, float* out) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(spreadOut)(set, out);
}

Peak highestHour(const PeakHours& hours, const PeakSensor& sensor) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(search)(hours, sensor);
}

} // namespace insolate::hourlyKernels

#endif
