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

/// Adds the upper half of some numbers to the lower one.
template <std::size_t half>
HWY_INLINE void fold(float* numbers) {
    const hn::CappedTag<float, half> d;
    for (std::size_t i = 0; i < half; i += hn::Lanes(d)) {
        hn::StoreU(hn::Add(hn::LoadU(d, numbers + i), hn::LoadU(d, numbers + half + i)), d,
                   numbers + i);
    }
}

HWY_INLINE float sumOf(std::array<float, lanes>& sums) {
    fold<8>(sums.data());
    fold<4>(sums.data());
    return (sums[0] + sums[2]) + (sums[1] + sums[3]);
}

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
    return sumOf(sums);
}

void weigh(const XYZf& normal, const float* x, const float* y, const float* z, std::size_t count,
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

void spreadOut(const SkyCellSet& set, float* out) {
    const hn::CappedTag<float, 8> d;
    const std::size_t n = hn::Lanes(d);
    const CellBits bits = bitsOfCells(set);
    for (std::size_t i = 0; i < skyGrid::cellCount; i += n) {
        const std::uint8_t some[8] = {static_cast<std::uint8_t>(bits[i / 8] >> (i % 8))};
        hn::StoreU(hn::IfThenElseZero(hn::LoadMaskBits(d, some), hn::Set(d, 1.0f)), d, out + i);
    }
}

ViewSums skySums(const SkySeen& cells) {
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

SunSums sunSums(const XYZf& normal, const SunSeen& cells) {
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
                time = hn::Add(
                    time, hn::IfThenElseZero(hn::Gt(product, zero),
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

skyZones::Terms measure(const float* patches) {
    const F d;
    const hn::RebindToSigned<F> di;
    const skyZones::Table& table = skyZones::table();
    skyZones::Terms terms;
    for (std::size_t zone = 0; zone < skyZones::count; zone += hn::Lanes(d)) {
        V sum = hn::Zero(d);
        V squares = hn::Zero(d);
        for (std::size_t i = zone; i < table.patches.size(); i += skyZones::count) {
            const V value = hn::GatherIndex(d, patches, hn::LoadU(di, table.patches.data() + i));
            sum = hn::Add(sum, value);
            squares = hn::MulAdd(value, value, squares);
        }
        const V mean = hn::Mul(sum, hn::LoadU(d, table.share.data() + zone));
        // Rounding takes less than a millionth of the squares from the difference.
        const V rest = hn::Max(hn::NegMulAdd(sum, mean, squares), hn::Zero(d));
        hn::StoreU(sum, d, terms.sums.data() + zone);
        hn::StoreU(hn::Sqrt(hn::MulAdd(hn::Set(d, 4e-6f), squares, rest)), d,
                   terms.deviations.data() + zone);
    }
    return terms;
}

/// What a beam of 1 W/m2 gives at most, by the sun cell from which it comes: its direction s is
/// off the cell's own by no more than a radius, and so is the product of s and the normal.
void seeSun(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in, float* seen) {
    const F d;
    for (std::size_t i = 0; i < hours.sunX.size(); i += hn::Lanes(d)) {
        const V product =
            hn::Add(in.dot(hn::LoadU(d, hours.sunX.data() + i), hn::LoadU(d, hours.sunY.data() + i),
                           hn::LoadU(d, hours.sunZ.data() + i)),
                    hn::LoadU(d, hours.sunRadius.data() + i));
        hn::StoreU(hn::Mul(hn::LoadU(d, sensor.sunVisible + i), hn::Max(product, hn::Zero(d))), d,
                   seen + i);
    }
}

/// Bound of the direct radiation that the words from first up to end, by steps, stand for.
HWY_INLINE V beamOf(const SunWords& suns, std::size_t first, std::size_t end, std::size_t step,
                    const float* seen) {
    const F d;
    const hn::Rebind<std::int32_t, F> di;
    const hn::Rebind<std::uint32_t, F> du;
    V sum = hn::Zero(d);
    for (std::size_t i = first; i < end; i += step) {
        const auto words = hn::LoadU(du, suns.words.data() + i);
        const auto cells = hn::BitCast(di, hn::And(words, hn::Set(du, 0xFFFFU)));
        sum = hn::MulAdd(hn::BitCast(d, words), hn::GatherIndex(d, seen, cells), sum);
    }
    return sum;
}

/// Bound of the sky from its zones.
///
/// With W the sum of a zone's n patch weights w, D the root of the sum of squares of w - W/n, and
/// the same of the radiance p, the zone gives W mean(p) + sum((w - W/n)(p - mean(p))), the last
/// term at most the product of the two deviations (Cauchy and Schwarz).
HWY_INLINE float skyOf(const std::uint32_t* zones, const skyZones::Terms& weights) {
    const F d;
    const hn::Rebind<std::uint32_t, F> du;
    V means = hn::Zero(d);
    V rests = hn::Zero(d);
    for (std::size_t zone = 0; zone < skyZones::count; zone += hn::Lanes(d)) {
        const auto both = hn::LoadU(du, zones + zone);
        means = hn::MulAdd(hn::BitCast(d, both), hn::LoadU(d, weights.sums.data() + zone), means);
        rests = hn::MulAdd(hn::BitCast(d, hn::ShiftLeft<16>(both)),
                           hn::LoadU(d, weights.deviations.data() + zone), rests);
    }
    return hn::GetLane(hn::SumOfLanes(d, hn::Add(means, rests)));
}

/// What the sensor sees: of the sun by seeSun(), of the sky.
struct Sight {
    std::array<float, skyGrid::cellCount> sun;
    skyZones::Terms zones;
    /// The patches of which something is seen, as the first of each `lanes`.
    std::array<std::uint32_t, skyPatches::count / lanes> patches;
    std::size_t patchCount = 0;

    Sight(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in)
        : zones(measure(sensor.patchWeight)) {
        const F d;
        seeSun(hours, sensor, in, sun.data());
        for (std::size_t i = 0; i < skyPatches::count; i += lanes) {
            patches[patchCount] = static_cast<std::uint32_t>(i);
            V any = hn::Zero(d);
            for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
                any = hn::Max(any, hn::LoadU(d, sensor.patchWeight + i + part));
            }
            patchCount += !hn::AllTrue(d, hn::Eq(any, hn::Zero(d)));
        }
    }
};

/// The lanes whose bounds, taken a little higher, exceed the best.
HWY_INLINE auto above(V bounds, float best) {
    const F d;
    return hn::Gt(hn::Mul(bounds, hn::Set(d, margin)), hn::Set(d, best));
}

/// What the blocks promise.
struct Promise {
    std::array<float, PeakHours::mostBlocks> beam;
    std::array<float, PeakHours::mostBlocks> rest; // without the direct radiation
    std::array<std::int32_t, PeakHours::mostBlocks + lanes> list;
    std::int32_t* end = list.data();
};

/// The blocks that may exceed the best with the whole sun and the open sky.
void boundBlocks(const PeakHours& hours, const Broadcast& in, float best, Promise& blocks) {
    const F d;
    const hn::RebindToSigned<F> di;
    for (std::size_t i = 0; i < hours.blockBounds.size(); i += hn::Lanes(d)) {
        const auto field = [&](PeakBounds::Field which) HWY_ATTR {
            return hn::LoadU(d, hours.blockBounds.lanesOf(i, which));
        };
        const V product = hn::Add(
            in.dot(field(PeakBounds::beamX), field(PeakBounds::beamY), field(PeakBounds::beamZ)),
            field(PeakBounds::beamRadius));
        const V slack = field(PeakBounds::beamSlack);
        const V beam = hn::IfThenElse(hn::Gt(product, slack), product,
                                      hn::IfThenElseZero(hn::Gt(product, hn::Neg(slack)), slack));
        const V open = hn::Add(
            in.dot(field(PeakBounds::openX), field(PeakBounds::openY), field(PeakBounds::openZ)),
            field(PeakBounds::open));
        const V sky =
            hn::Min(hn::Mul(open, in.openScale), hn::Mul(field(PeakBounds::brightest), in.view));
        const V rest = hn::Add(sky, hn::Mul(field(PeakBounds::ground), in.groundView));
        hn::StoreU(beam, d, blocks.beam.data() + i);
        hn::StoreU(rest, d, blocks.rest.data() + i);
        blocks.end +=
            hn::CompressStore(hn::Iota(di, static_cast<std::int32_t>(i)),
                              hn::RebindMask(di, above(hn::Add(beam, rest), best)), di, blocks.end);
    }
}

/// Of those blocks the ones that may with the sun cells and the zones that are seen; the first of
/// them promises most.
void boundBySight(const PeakHours& hours, const PeakSensor& sensor, const Sight& sight, float best,
                  Promise& blocks) {
    const F d;
    std::int32_t* end = blocks.list.data();
    for (const std::int32_t* at = blocks.list.data(); at != blocks.end; ++at) {
        const auto block = static_cast<std::size_t>(*at);
        V cells = hn::Zero(d);
        for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
            cells =
                hn::Add(cells, beamOf(hours.blockSun, hours.blockSun.firsts[block] + part,
                                      hours.blockSun.firsts[block + 1], lanes, sight.sun.data()));
        }
        blocks.beam[block] = std::min(blocks.beam[block], hn::GetLane(hn::SumOfLanes(d, cells)));
        *end = *at;
        end += (blocks.beam[block] + blocks.rest[block]) * margin > best;
    }
    blocks.end = end;
    end = blocks.list.data();
    std::int32_t* first = end;
    float most = 0.0f;
    for (const std::int32_t* at = blocks.list.data(); at != blocks.end; ++at) {
        const auto block = static_cast<std::size_t>(*at);
        const float rest =
            std::min(blocks.rest[block],
                     skyOf(hours.blockZones.data() + block * skyZones::count, sight.zones) +
                         hours.blockBounds.at(block, PeakBounds::ground) * sensor.groundView);
        blocks.rest[block] = rest;
        const float bound = (blocks.beam[block] + rest) * margin;
        *end = *at;
        first = bound > most ? end : first;
        most = std::max(bound, most);
        end += bound > best;
    }
    blocks.end = end;
    if (end != blocks.list.data()) {
        std::swap(*first, blocks.list[0]);
    }
}

/// The place of the leader that promises most.
std::size_t bestLeader(const PeakHours& hours, const Broadcast& in, const float* seen) {
    const F d;
    V most = hn::Set(d, -1.0f);
    V places = hn::Zero(d); // exact in single precision
    for (std::size_t i = 0; i < hours.leaders.size(); i += hn::Lanes(d)) {
        const std::size_t group = i / lanes;
        const V beam = beamOf(hours.leaderSun, hours.leaderSun.firsts[group] + i % lanes,
                              hours.leaderSun.firsts[group + 1], lanes, seen);
        const V rest = hn::Add(hn::Mul(hn::LoadU(d, hours.leaderSky.data() + i), in.view),
                               hn::Mul(hn::LoadU(d, hours.leaderGround.data() + i), in.groundView));
        const V value = hn::Add(beam, rest);
        const auto more = hn::Gt(value, most);
        most = hn::IfThenElse(more, value, most);
        places = hn::IfThenElse(more, hn::Iota(d, static_cast<float>(i)), places);
    }
    const V first = hn::MinOfLanes(
        d, hn::IfThenElse(hn::Eq(most, hn::MaxOfLanes(d, most)), places, hn::Set(d, 1e9f)));
    return static_cast<std::size_t>(hours.leaders[static_cast<std::size_t>(hn::GetLane(first))]);
}

/// Computes an hour; of equal ones the first in the sky is the best. Patches without weight would
/// add nothing to the product and are left out.
void consider(const PeakHours& hours, const PeakSensor& sensor, const Sight& sight, std::size_t i,
              Peak& best) {
    const PeakHours::Hour& hour = hours.hours[i];
    float beam = 0.0f;
    for (std::size_t b = hour.firstBeam; b < hour.firstBeam + hour.beamCount; ++b) {
        const BeamPart& part = hours.beams[b];
        const XYZf& e = part.energy;
        const float product = sensor.normal.x * e.x + sensor.normal.y * e.y + sensor.normal.z * e.z;
        beam += sensor.sunVisible[part.sunCell] * (product > 0.0f ? product : 0.0f);
    }
    const float* patches =
        hours.patches + static_cast<std::size_t>(hour.skyHour) * skyPatches::count;
    const F d;
    alignas(64) std::array<float, lanes> sums;
    for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
        V sum = hn::Zero(d);
        for (std::size_t k = 0; k < sight.patchCount; ++k) {
            const std::size_t at = sight.patches[k] + part;
            sum = hn::Add(
                sum, hn::Mul(hn::LoadU(d, sensor.patchWeight + at), hn::LoadU(d, patches + at)));
        }
        hn::StoreU(sum, d, sums.data() + part);
    }
    const float value = beam + sumOf(sums) * hour.shareInverse + sensor.groundView * hour.ground;
    if (value > best.value ||
        (value == best.value && best.hour >= 0 &&
         hour.skyHour < hours.hours[static_cast<std::size_t>(best.hour)].skyHour)) {
        best = {value, static_cast<int>(i)};
    }
}

/// Computes the hours of up to `lanes` blocks that may exceed the best with the sun cells and zones
/// that are seen.
void open(const PeakHours& hours, const PeakSensor& sensor, const Sight& sight,
          const Promise& blocks, const std::int32_t* at, const std::int32_t* end, Peak& best) {
    const F d;
    const hn::RebindToSigned<F> di;
    std::array<std::int32_t, (lanes + 1) * lanes> places;
    std::array<float, (lanes + 1) * lanes> bounds;
    std::size_t count = 0;
    std::size_t first = 0; // the most promising one
    for (; at != end; ++at) {
        const auto block = static_cast<std::size_t>(*at);
        for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
            const V beam = beamOf(hours.hourSun, hours.hourSun.firsts[block] + part,
                                  hours.hourSun.firsts[block + 1], lanes, sight.sun.data());
            const auto more = above(hn::Add(beam, hn::Set(d, blocks.rest[block])), best.value);
            const auto place = static_cast<std::int32_t>(block * lanes + part);
            hn::StoreU(hn::Compress(beam, more), d, bounds.data() + count);
            hn::StoreU(hn::Compress(hn::Iota(di, place), hn::RebindMask(di, more)), di,
                       places.data() + count);
            count += hn::CountTrue(d, more);
        }
    }
    if (count == 0) {
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto place = static_cast<std::size_t>(places[i]);
        bounds[i] += skyOf(hours.hourZones.data() + place * skyZones::count, sight.zones) +
                     hours.hours[place].ground * sensor.groundView;
        first = bounds[i] > bounds[first] ? i : first;
    }
    std::swap(bounds[0], bounds[first]);
    std::swap(places[0], places[first]);
    for (std::size_t i = 0; i < count; ++i) {
        if (bounds[i] * margin > best.value) {
            consider(hours, sensor, sight, static_cast<std::size_t>(places[i]), best);
        }
    }
}

Peak search(const PeakHours& hours, const PeakSensor& sensor) {
    if (hours.leaders.empty()) {
        return {};
    }
    const Broadcast in(sensor);
    const Sight sight(hours, sensor, in);
    Peak best;
    consider(hours, sensor, sight, bestLeader(hours, in, sight.sun.data()), best);
    Promise blocks;
    boundBlocks(hours, in, best.value, blocks);
    boundBySight(hours, sensor, sight, best.value, blocks);
    // The most promising one by itself: with its hours the best is nearly found.
    const std::int32_t* at = blocks.list.data();
    for (std::ptrdiff_t some = 1; at != blocks.end; some = lanes) {
        some = std::min(some, blocks.end - at);
        open(hours, sensor, sight, blocks, at, at + some, best);
        at += some;
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
HWY_EXPORT(skySums);
HWY_EXPORT(sunSums);
HWY_EXPORT(spreadOut);
HWY_EXPORT(measure);
HWY_EXPORT(search);

float sumOfProducts(const float* a, const float* b, std::size_t count) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(dotProduct)(a, b, count);
}

void weighInFront(const XYZf& normal, const float* x, const float* y, const float* z,
                  std::size_t count, float least, float* out, std::uint8_t* front,
                  std::uint8_t* heavy) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(weigh)(normal, x, y, z, count, least, out, front, heavy);
}

ViewSums sumSky(const SkySeen& cells) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(skySums)(cells);
}

SunSums sumSun(const XYZf& normal, const SunSeen& cells) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(sunSums)(normal, cells);
}

void spread(const SkyCellSet& set, float* out) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(spreadOut)(set, out);
}

skyZones::Terms measureZones(const float* patches) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(measure)(patches);
}

Peak highestHour(const PeakHours& hours, const PeakSensor& sensor) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(search)(hours, sensor);
}

} // namespace insolate::hourlyKernels

#endif
