#include <insolate/hourly/hourly_kernels.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/hourly/hourly_kernels.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

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

/// The bits of a mask, the first lane's lowest.
template <typename D, typename Mask>
HWY_INLINE std::uint64_t bitsOf(D d, Mask mask) {
    std::uint8_t bytes[8] = {};
    hn::StoreMaskBits(d, mask, bytes);
    std::uint64_t bits;
    std::memcpy(&bits, bytes, sizeof(bits));
    return bits;
}

/// Direct radiation of the hours in the lanes from `lane` on, one part after the other.
HWY_INLINE V beamsOf(const BeamLanes* parts, const BeamLanes* end, std::size_t lane,
                     const Broadcast& in, const float* visible) {
    const F d;
    const hn::RebindToSigned<F> di;
    V sum = hn::Zero(d);
    for (; parts != end; ++parts) {
        const V product =
            in.dot(hn::LoadU(d, parts->x.data() + lane), hn::LoadU(d, parts->y.data() + lane),
                   hn::LoadU(d, parts->z.data() + lane));
        const V free = hn::GatherIndex(d, visible, hn::LoadU(di, parts->cell.data() + lane));
        sum = hn::Add(sum, hn::Mul(free, hn::Max(product, hn::Zero(d))));
    }
    return sum;
}

/// Bound of the direct radiation of those hours if nothing hid the sun.
HWY_INLINE V openBeamsOf(const WholeBeams& whole, std::size_t lane, const Broadcast& in) {
    const F d;
    const V product =
        in.dot(hn::LoadU(d, whole.x.data() + lane), hn::LoadU(d, whole.y.data() + lane),
               hn::LoadU(d, whole.z.data() + lane));
    const V swing = hn::LoadU(d, whole.swing.data() + lane);
    const V cut = hn::Mul(hn::Set(d, 0.5f), hn::Add(product, swing));
    return hn::MulAdd(hn::Set(d, WholeBeams::rounding), swing,
                      hn::Max(hn::Max(product, cut), hn::Zero(d)));
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

/// What the sensor sees of the sun and of the sky.
struct Sight {
    std::array<std::uint64_t, PeakHours::mostCellWords> sun{}; ///< a bit for each sun cell
    skyZones::Terms zones;
    /// The patches of which something is seen, as the first of each `lanes`.
    std::array<std::uint32_t, skyPatches::count / lanes> patches;
    std::size_t patchCount = 0;

    Sight(const PeakHours& hours, const PeakSensor& sensor) : zones(measure(sensor.patchWeight)) {
        const F d;
        for (std::size_t first = 0; first < hours.sunCellCount; first += 64) {
            const std::size_t count = std::min<std::size_t>(hours.sunCellCount - first, 64);
            std::uint64_t word = 0;
            for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
                const V visible = hn::LoadU(d, sensor.sunVisible + first + i);
                word |= bitsOf(d, hn::Gt(visible, hn::Zero(d))) << i;
            }
            sun[first / 64] = word;
        }
        for (std::size_t i = 0; i < skyPatches::count; i += lanes) {
            patches[patchCount] = static_cast<std::uint32_t>(i);
            V any = hn::Zero(d);
            for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
                any = hn::Max(any, hn::LoadU(d, sensor.patchWeight + i + part));
            }
            patchCount += !hn::AllTrue(d, hn::Eq(any, hn::Zero(d)));
        }
    }

    /// Whether any sun cell of a block's hours is seen.
    HWY_INLINE bool sunOf(const PeakHours& hours, std::size_t block) const {
        const hn::CappedTag<std::uint64_t, 4> d;
        const std::uint64_t* cells = hours.blockCells.data() + block * hours.cellWords;
        auto both = hn::Zero(d);
        for (std::size_t i = 0; i < hours.cellWords; i += hn::Lanes(d)) {
            both = hn::Or(both, hn::And(hn::LoadU(d, cells + i), hn::LoadU(d, sun.data() + i)));
        }
        return !hn::AllTrue(d, hn::Eq(both, hn::Zero(d)));
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
    std::array<std::uint32_t, PeakHours::mostBlocks> list;
    std::uint32_t* end = list.data();

    /// Keeps the blocks of the list of which the function says so.
    template <typename Function>
    HWY_INLINE void keep(Function&& function) {
        std::uint32_t* kept = list.data();
        for (const std::uint32_t* at = list.data(); at != end; ++at) {
            *kept = *at;
            kept += function(std::size_t{*at});
        }
        end = kept;
    }
    float bound(std::size_t block) const { return (beam[block] + rest[block]) * margin; }
};

/// The blocks that may exceed the best with the whole sun and the open sky.
void boundBlocks(const PeakHours& hours, const Broadcast& in, float best, Promise& blocks) {
    const F d;
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
        for (std::uint64_t more = bitsOf(d, above(hn::Add(beam, rest), best)); more != 0;
             more &= more - 1) {
            *blocks.end++ =
                static_cast<std::uint32_t>(i) + static_cast<std::uint32_t>(std::countr_zero(more));
        }
    }
}

/// Of those blocks the ones that may with what is seen of the sun and of the zones; the first of
/// them promises most.
void boundBySight(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in,
                  const Sight& sight, float best, Promise& blocks) {
    blocks.keep([&](std::size_t block) HWY_ATTR {
        blocks.beam[block] = sight.sunOf(hours, block) ? blocks.beam[block] : 0.0f;
        return blocks.bound(block) > best;
    });
    blocks.keep([&](std::size_t block) HWY_ATTR {
        blocks.rest[block] =
            std::min(blocks.rest[block],
                     skyOf(hours.blockZones.data() + block * skyZones::count, sight.zones) +
                         hours.blockBounds.at(block, PeakBounds::ground) * sensor.groundView);
        return blocks.bound(block) > best;
    });
    std::uint32_t first = 0;
    float most = 0.0f;
    blocks.keep([&](std::size_t block) HWY_ATTR {
        const F d;
        V beam = hn::Zero(d);
        for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
            beam = hn::Max(beam, openBeamsOf(hours.wholeBeams[block], part, in));
        }
        blocks.beam[block] = std::min(blocks.beam[block], hn::GetLane(hn::MaxOfLanes(d, beam)));
        const float bound = blocks.bound(block);
        first = bound > most ? static_cast<std::uint32_t>(block) : first;
        most = std::max(bound, most);
        return bound > best;
    });
    if (most > best) {
        std::iter_swap(std::find(blocks.list.data(), blocks.end, first), blocks.list.data());
    }
}

/// Computes an hour from its direct radiation; of equal ones the first in the sky is the best.
/// Patches without weight would add nothing to the product and are left out.
void consider(const PeakHours& hours, const PeakSensor& sensor, const Sight& sight, std::size_t i,
              float beam, Peak& best) {
    const PeakHours::Hour& hour = hours.hours[i];
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

/// Computes the leader that promises most.
void considerLeader(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in,
                    const Sight& sight, Peak& best) {
    const F d;
    V most = hn::Set(d, -1.0f);
    V beams = hn::Zero(d);
    V places = hn::Zero(d); // exact in single precision
    for (std::size_t i = 0; i < hours.leaders.size(); i += hn::Lanes(d)) {
        const std::size_t group = i / lanes;
        const V beam = beamsOf(hours.leaderBeams.begin(group), hours.leaderBeams.end(group),
                               i % lanes, in, sensor.sunVisible);
        const V rest = hn::Add(hn::Mul(hn::LoadU(d, hours.leaderSky.data() + i), in.view),
                               hn::Mul(hn::LoadU(d, hours.leaderGround.data() + i), in.groundView));
        const V value = hn::Add(beam, rest);
        const auto more = hn::Gt(value, most);
        most = hn::IfThenElse(more, value, most);
        beams = hn::IfThenElse(more, beam, beams);
        places = hn::IfThenElse(more, hn::Iota(d, static_cast<float>(i)), places);
    }
    const auto lane = static_cast<std::size_t>(
                          std::countr_zero(bitsOf(d, hn::Eq(most, hn::MaxOfLanes(d, most))))) %
                      lanes; // a NaN is equal to none
    alignas(64) std::array<float, 2 * lanes> kept;
    hn::Store(beams, d, kept.data());
    hn::Store(places, d, kept.data() + lanes);
    const int leader = hours.leaders[static_cast<std::size_t>(kept[lanes + lane])];
    consider(hours, sensor, sight, static_cast<std::size_t>(leader), kept[lane], best);
}

/// Computes the hours of up to `lanes` blocks that may exceed the best with their direct radiation
/// and the zones that are seen.
void open(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in, const Sight& sight,
          const Promise& blocks, const std::uint32_t* at, const std::uint32_t* end, Peak& best) {
    struct Hour {
        std::size_t place;
        float beam, bound;
    };
    const F d;
    std::array<Hour, lanes * lanes> list;
    std::size_t count = 0;
    for (; at != end; ++at) {
        const std::size_t block = *at;
        const V rest = hn::Set(d, blocks.rest[block]);
        for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
            const V open = openBeamsOf(hours.wholeBeams[block], part, in);
            if (hn::AllFalse(d, above(hn::Add(open, rest), best.value))) {
                continue;
            }
            const V beam = beamsOf(hours.hourBeams.begin(block), hours.hourBeams.end(block), part,
                                   in, sensor.sunVisible);
            alignas(64) std::array<float, lanes> beams;
            hn::Store(beam, d, beams.data());
            for (std::uint64_t more = bitsOf(d, above(hn::Add(beam, rest), best.value)); more != 0;
                 more &= more - 1) {
                const auto lane = static_cast<std::size_t>(std::countr_zero(more));
                list[count++] = {block * lanes + part + lane, beams[lane], 0.0f};
            }
        }
    }
    if (count == 0) {
        return;
    }
    std::size_t first = 0; // the most promising one
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t place = list[i].place;
        list[i].bound = list[i].beam +
                        skyOf(hours.hourZones.data() + place * skyZones::count, sight.zones) +
                        hours.hours[place].ground * sensor.groundView;
        first = list[i].bound > list[first].bound ? i : first;
    }
    std::swap(list[0], list[first]);
    for (std::size_t i = 0; i < count; ++i) {
        if (list[i].bound * margin > best.value) {
            consider(hours, sensor, sight, list[i].place, list[i].beam, best);
        }
    }
}

Peak search(const PeakHours& hours, const PeakSensor& sensor) {
    if (hours.leaders.empty()) {
        return {};
    }
    const Broadcast in(sensor);
    const Sight sight(hours, sensor);
    Peak best;
    considerLeader(hours, sensor, in, sight, best);
    Promise blocks;
    boundBlocks(hours, in, best.value, blocks);
    boundBySight(hours, sensor, in, sight, best.value, blocks);
    // The most promising one by itself: with its hours the best is nearly found.
    const std::uint32_t* at = blocks.list.data();
    for (std::ptrdiff_t some = 1; at != blocks.end; some = lanes) {
        some = std::min(some, blocks.end - at);
        open(hours, sensor, in, sight, blocks, at, at + some, best);
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
