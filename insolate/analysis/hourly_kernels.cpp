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
    alignas(64) std::array<float, lanes> beam;
    alignas(64) std::array<float, lanes> rest; // sky and ground
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
HWY_INLINE V skyOfZones(const std::uint16_t* zones, const float* zoneWeight) {
    const F d;
    const hn::Rebind<std::uint32_t, F> du;
    const hn::Rebind<std::uint16_t, F> halves;
    const auto term = [&](std::size_t i) HWY_ATTR {
        const V value = hn::BitCast(
            d, hn::ShiftLeft<16>(hn::PromoteTo(du, hn::LoadU(halves, zones + i * lanes))));
        return hn::Mul(value, hn::Set(d, zoneWeight[i]));
    };
    // Several sums, or each would wait for the one before.
    V a = hn::Zero(d);
    V b = a;
    V c = a;
    V e = a;
    for (std::size_t i = 0; i < skyZones::termCount; i += 4) {
        a = hn::Add(a, term(i));
        b = hn::Add(b, term(i + 1));
        c = hn::Add(c, term(i + 2));
        e = hn::Add(e, term(i + 3));
    }
    return hn::Add(hn::Add(a, b), hn::Add(c, e));
}

/// Completes the bounds of lanes from `part` on, given their direct radiation; those above the best
/// as bits. The zones are looked at when the open sky alone leaves one above.
HWY_INLINE unsigned boundLanes(const PeakBounds& bounds, std::size_t first, std::size_t part,
                               const std::uint16_t* zones, const PeakSensor& sensor,
                               const Broadcast& in, V beam, float best, Lanes& result) {
    const F d;
    const auto field = [&](PeakBounds::Field which)
                           HWY_ATTR { return hn::LoadU(d, bounds.lanesOf(first, which) + part); };
    const V ground = hn::Mul(field(PeakBounds::ground), in.groundView);
    const V open = hn::Add(
        in.dot(field(PeakBounds::openX), field(PeakBounds::openY), field(PeakBounds::openZ)),
        field(PeakBounds::open));
    V sky = hn::Min(hn::Mul(open, in.openScale), hn::Mul(field(PeakBounds::brightest), in.view));
    const V least = hn::Set(d, best);
    const auto all = [&] HWY_ATTR {
        return hn::Mul(hn::Add(hn::Add(beam, sky), ground), hn::Set(d, margin));
    };
    if (hn::AllFalse(d, hn::Gt(all(), least))) {
        return 0;
    }
    sky = hn::Min(sky, skyOfZones(zones + part, sensor.zoneWeight));
    hn::StoreU(beam, d, result.beam.data() + part);
    hn::StoreU(hn::Add(sky, ground), d, result.rest.data() + part);
    hn::StoreU(all(), d, result.all.data() + part);
    std::uint8_t some[8] = {};
    hn::StoreMaskBits(d, hn::Gt(all(), least), some);
    return (some[0] | static_cast<unsigned>(hn::Lanes(d) > 8 ? some[1] : 0) << 8) << part;
}

unsigned boundBlocks(const PeakHours& hours, std::size_t first, const PeakSensor& sensor,
                     const Broadcast& in, float best, Lanes& result) {
    const F d;
    unsigned above = 0;
    for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
        const auto field = [&](PeakBounds::Field which) HWY_ATTR {
            return hn::LoadU(d, hours.blockBounds.lanesOf(first, which) + part);
        };
        const V beam = hn::Add(
            in.dot(field(PeakBounds::beamX), field(PeakBounds::beamY), field(PeakBounds::beamZ)),
            field(PeakBounds::beamRadius));
        const V slack = field(PeakBounds::beamSlack);
        const V direct = hn::IfThenElse(hn::Gt(beam, slack), beam,
                                        hn::IfThenElseZero(hn::Gt(beam, hn::Neg(slack)), slack));
        above |= boundLanes(hours.blockBounds, first, part,
                            hours.blockZones.data() + first * skyZones::termCount, sensor, in,
                            direct, best, result);
    }
    return above;
}

/// Direct radiation that the lanes from `part` on of a block's hours give.
HWY_INLINE V beamOfHours(const PeakHours& hours, std::size_t block, std::size_t part,
                         const PeakSensor& sensor, const Broadcast& in) {
    const F d;
    V beam = hn::Zero(d);
    for (std::size_t row = hours.firstBeams[block]; row < hours.firstBeams[block + 1]; ++row) {
        const float visible =
            sensor.sunVisible[static_cast<std::size_t>(hours.sunCellOfBeams[row])];
        if (visible == 0.0f) {
            continue;
        }
        const PeakHours::Beams& beams = hours.beams[row];
        const V product =
            in.dot(hn::LoadU(d, beams.x.data() + part), hn::LoadU(d, beams.y.data() + part),
                   hn::LoadU(d, beams.z.data() + part));
        beam = hn::Add(beam, hn::Mul(hn::Set(d, visible), hn::Max(product, hn::Zero(d))));
    }
    return beam;
}

unsigned boundHours(const PeakHours& hours, std::size_t block, const PeakSensor& sensor,
                    const Broadcast& in, float best, Lanes& result) {
    const F d;
    unsigned above = 0;
    for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
        above |= boundLanes(hours.hourBounds, block * lanes, part,
                            hours.hourZones.data() + block * lanes * skyZones::termCount, sensor,
                            in, beamOfHours(hours, block, part, sensor, in), best, result);
    }
    return above;
}

void consider(const PeakHours& hours, const PeakSensor& sensor, std::size_t i, float beam,
              Peak& best) {
    const float* patches =
        hours.patches + static_cast<std::size_t>(hours.skyHour[i]) * skyPatches::count;
    const float value =
        beam + dotProduct(sensor.patchWeight, patches, skyPatches::count) * hours.shareInverse[i] +
        sensor.groundView * hours.hourBounds.at(i, PeakBounds::ground);
    if (value > best.value ||
        (value == best.value && best.hour >= 0 &&
         hours.skyHour[i] < hours.skyHour[static_cast<std::size_t>(best.hour)])) {
        best = {value, static_cast<int>(i)};
    }
}

/// The place of the first of the highest values, all of which are 0 or more, with `lanes` zeros
/// behind them; count when all are 0.
std::size_t placeOfMost(const float* values, std::size_t count) {
    const F d;
    const std::size_t n = hn::Lanes(d);
    V most = hn::Zero(d);
    for (std::size_t i = 0; i < count; i += n) {
        most = hn::Max(most, hn::LoadU(d, values + i));
    }
    most = hn::MaxOfLanes(d, most);
    if (!(hn::GetLane(most) > 0.0f)) {
        return count;
    }
    for (std::size_t i = 0; i < count; i += n) {
        const auto found = hn::FindFirstTrue(d, hn::Eq(hn::LoadU(d, values + i), most));
        if (found >= 0) {
            return i + static_cast<std::size_t>(found);
        }
    }
    return count;
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
    const F d;
    const Broadcast in(sensor);
    Peak best;
    Lanes bounds;
    alignas(64) std::array<std::uint64_t, skyGrid::cellCount / 64 + 8> visible{};
    const int start = promisingHour(hours, sensor, visible.data());
    if (start >= 0) {
        const auto hour = static_cast<std::size_t>(start);
        for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
            hn::StoreU(beamOfHours(hours, hour / lanes, part, sensor, in), d,
                       bounds.beam.data() + part);
        }
        consider(hours, sensor, hour, bounds.beam[hour % lanes], best);
    }
    std::array<float, PeakHours::mostBlocks + lanes> promises;
    std::array<std::uint16_t, PeakHours::mostBlocks> promising;
    std::size_t count = 0;
    for (std::size_t first = 0; first < hours.blockBounds.size(); first += lanes) {
        unsigned blocks = boundBlocks(hours, first, sensor, in, best.value, bounds);
        for (; blocks != 0; blocks &= blocks - 1) {
            const auto lane = static_cast<std::size_t>(__builtin_ctz(blocks));
            const bool seen = sunSeen(hours, first + lane, visible.data());
            const float bound = seen ? bounds.all[lane] : bounds.rest[lane] * margin;
            if (bound > best.value) {
                promises[count] = bound;
                promising[count++] = static_cast<std::uint16_t>(first + lane);
            }
        }
    }
    std::fill_n(promises.begin() + static_cast<std::ptrdiff_t>(count), lanes, 0.0f);
    for (;;) {
        const std::size_t next = placeOfMost(promises.data(), count);
        if (next == count || !(promises[next] > best.value)) {
            return best;
        }
        promises[next] = 0.0f;
        unsigned open = boundHours(hours, promising[next], sensor, in, best.value, bounds);
        for (; open != 0; open &= open - 1) {
            const auto lane = static_cast<std::size_t>(__builtin_ctz(open));
            if (bounds.all[lane] > best.value) {
                consider(hours, sensor, promising[next] * lanes + lane, bounds.beam[lane], best);
            }
        }
    }
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
