// The steps that the comments count are those of the header.
#include <insolate/hourly/peak_search.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/hourly/peak_search.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <insolate/hourly/vector_lanes.h>
#include <insolate/platform/vector_masks.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

static_assert(PeakHours::lanes == lanes);

/// Bounds are taken a little higher than computed, so that rounding hides no hour: a bound and what
/// it bounds are sums of at most some 80 terms in single precision, of which each rounds by 6e-8.
constexpr float margin = 1.00001f;

/// The sensor's numbers, each in every lane of a vector.
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

skyZones::Terms measureZones(const float* patches) {
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
        // The difference of nearly equal numbers: its rounding is below a millionth of the squares,
        // and four millionths keep the deviation from being too small.
        const V rest = hn::Max(hn::NegMulAdd(sum, mean, squares), hn::Zero(d));
        hn::StoreU(sum, d, terms.sums.data() + zone);
        hn::StoreU(hn::Sqrt(hn::MulAdd(hn::Set(d, 4e-6f), squares, rest)), d,
                   terms.deviations.data() + zone);
    }
    return terms;
}

/// Direct radiation of the hours in the lanes from `lane` on: exact, part by part.
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

/// Bound of the direct radiation of those hours if nothing hid the sun: the product of the normal
/// with their sum, p, or (p + swing) / 2 where the surface's plane may cut their parts.
HWY_INLINE V unshadedBeamsOf(const WholeBeams& whole, std::size_t lane, const Broadcast& in) {
    const F d;
    const V product =
        in.dot(hn::LoadU(d, whole.x.data() + lane), hn::LoadU(d, whole.y.data() + lane),
               hn::LoadU(d, whole.z.data() + lane));
    const V swing = hn::LoadU(d, whole.swing.data() + lane);
    const V cut = hn::Mul(hn::Set(d, 0.5f), hn::Add(product, swing));
    return hn::MulAdd(hn::Set(d, WholeBeams::rounding), swing,
                      hn::Max(hn::Max(product, cut), hn::Zero(d)));
}

/// Bound of the sky from its zones (step 4). In each word of an hour or a block the upper half is a
/// zone's mean radiance, the lower one its deviation.
HWY_INLINE float zoneBound(const std::uint32_t* zones, const skyZones::Terms& weights) {
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

/// What the sensor sees of the sun and of the sky, in the form in which blocks are asked.
struct SensorView {
    std::array<std::uint64_t, PeakHours::mostCellWords> sun{}; ///< a bit for each sun cell
    skyZones::Terms zones;
    /// The patches of which something is seen, as the first of each `lanes`.
    std::array<std::uint32_t, skyPatches::count / lanes> patches;
    std::size_t patchCount = 0;

    SensorView(const PeakHours& hours, const PeakSensor& sensor)
        : zones(measureZones(sensor.patchWeight)) {
        const F d;
        for (std::size_t first = 0; first < hours.sunCellCount; first += 64) {
            const std::size_t count = std::min<std::size_t>(hours.sunCellCount - first, 64);
            std::uint64_t word = 0;
            for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
                const V visible = hn::LoadU(d, sensor.sunVisible + first + i);
                word |= bitsOf<std::uint64_t>(d, hn::Gt(visible, hn::Zero(d))) << i;
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
    HWY_INLINE bool seesSunOf(const PeakHours& hours, std::size_t block) const {
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

/// What the blocks of hours may give the sensor at most, and the list of those still in question.
struct BlockBounds {
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

/// Lists the blocks that may exceed the best with an unshaded sun and an open sky (step 2).
void boundBlocks(const PeakHours& hours, const Broadcast& in, float best, BlockBounds& blocks) {
    const F d;
    for (std::size_t i = 0; i < hours.blockTerms.size(); i += hn::Lanes(d)) {
        const auto field = [&](BlockTerms::Field which) HWY_ATTR {
            return hn::LoadU(d, hours.blockTerms.lanesOf(i, which));
        };
        const V product = hn::Add(
            in.dot(field(BlockTerms::beamX), field(BlockTerms::beamY), field(BlockTerms::beamZ)),
            field(BlockTerms::beamRadius));
        const V slack = field(BlockTerms::beamSlack);
        const V beam = hn::IfThenElse(hn::Gt(product, slack), product,
                                      hn::IfThenElseZero(hn::Gt(product, hn::Neg(slack)), slack));
        const V open = hn::Add(
            in.dot(field(BlockTerms::openX), field(BlockTerms::openY), field(BlockTerms::openZ)),
            field(BlockTerms::open));
        const V sky =
            hn::Min(hn::Mul(open, in.openScale), hn::Mul(field(BlockTerms::brightest), in.view));
        const V rest = hn::Add(sky, hn::Mul(field(BlockTerms::ground), in.groundView));
        hn::StoreU(beam, d, blocks.beam.data() + i);
        hn::StoreU(rest, d, blocks.rest.data() + i);
        for (std::uint64_t more = bitsOf<std::uint64_t>(d, above(hn::Add(beam, rest), best));
             more != 0; more &= more - 1) {
            *blocks.end++ =
                static_cast<std::uint32_t>(i) + static_cast<std::uint32_t>(std::countr_zero(more));
        }
    }
}

/// Keeps those of the list that still may with what is seen of the sun (step 3), of the zones (4)
/// and with the whole beams of their hours (5), and moves the most promising one to the front.
void tightenBounds(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in,
                   const SensorView& view, float best, BlockBounds& blocks) {
    blocks.keep([&](std::size_t block) HWY_ATTR {
        blocks.beam[block] = view.seesSunOf(hours, block) ? blocks.beam[block] : 0.0f;
        return blocks.bound(block) > best;
    });
    blocks.keep([&](std::size_t block) HWY_ATTR {
        blocks.rest[block] =
            std::min(blocks.rest[block],
                     zoneBound(hours.blockZones.data() + block * skyZones::count, view.zones) +
                         hours.blockTerms.at(block, BlockTerms::ground) * sensor.groundView);
        return blocks.bound(block) > best;
    });
    std::uint32_t first = 0;
    float most = 0.0f;
    blocks.keep([&](std::size_t block) HWY_ATTR {
        const F d;
        V beam = hn::Zero(d);
        for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
            beam = hn::Max(beam, unshadedBeamsOf(hours.wholeBeams[block], part, in));
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

/// Computes an hour, of which the direct radiation is known, and takes it when it is the best so
/// far; of equal ones the first in the sky is. Patches without weight add nothing and are left out.
void evaluateHour(const PeakHours& hours, const PeakSensor& sensor, const SensorView& view,
                  std::size_t i, float beam, Peak& best) {
    const PeakHours::Hour& hour = hours.hours[i];
    const float* patches =
        hours.patches + static_cast<std::size_t>(hour.skyHour) * skyPatches::count;
    const F d;
    alignas(64) std::array<float, lanes> sums;
    for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
        V sum = hn::Zero(d);
        for (std::size_t k = 0; k < view.patchCount; ++k) {
            const std::size_t at = view.patches[k] + part;
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

/// Computes the leader that promises most by its exact beam and the mean radiance of its sky
/// (step 1).
void evaluateBestLeader(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in,
                        const SensorView& view, Peak& best) {
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
    const auto lane = static_cast<std::size_t>(std::countr_zero(
                          bitsOf<std::uint64_t>(d, hn::Eq(most, hn::MaxOfLanes(d, most))))) %
                      lanes; // a NaN is equal to none
    alignas(64) std::array<float, 2 * lanes> kept;
    hn::Store(beams, d, kept.data());
    hn::Store(places, d, kept.data() + lanes);
    const int leader = hours.leaders[static_cast<std::size_t>(kept[lanes + lane])];
    evaluateHour(hours, sensor, view, static_cast<std::size_t>(leader), kept[lane], best);
}

/// Computes those hours of up to `lanes` blocks that may exceed the best with their exact direct
/// radiation and the zones of their own sky (step 6).
void evaluateBlocks(const PeakHours& hours, const PeakSensor& sensor, const Broadcast& in,
                    const SensorView& view, const BlockBounds& blocks, const std::uint32_t* at,
                    const std::uint32_t* end, Peak& best) {
    struct Candidate {
        std::size_t place;
        float beam, bound;
    };
    const F d;
    std::array<Candidate, lanes * lanes> list;
    std::size_t count = 0;
    for (; at != end; ++at) {
        const std::size_t block = *at;
        const V rest = hn::Set(d, blocks.rest[block]);
        for (std::size_t part = 0; part < lanes; part += hn::Lanes(d)) {
            const V unshaded = unshadedBeamsOf(hours.wholeBeams[block], part, in);
            if (hn::AllFalse(d, above(hn::Add(unshaded, rest), best.value))) {
                continue;
            }
            const V beam = beamsOf(hours.hourBeams.begin(block), hours.hourBeams.end(block), part,
                                   in, sensor.sunVisible);
            alignas(64) std::array<float, lanes> beams;
            hn::Store(beam, d, beams.data());
            for (std::uint64_t more =
                     bitsOf<std::uint64_t>(d, above(hn::Add(beam, rest), best.value));
                 more != 0; more &= more - 1) {
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
                        zoneBound(hours.hourZones.data() + place * skyZones::count, view.zones) +
                        hours.hours[place].ground * sensor.groundView;
        first = list[i].bound > list[first].bound ? i : first;
    }
    std::swap(list[0], list[first]);
    for (std::size_t i = 0; i < count; ++i) {
        if (list[i].bound * margin > best.value) {
            evaluateHour(hours, sensor, view, list[i].place, list[i].beam, best);
        }
    }
}

Peak search(const PeakHours& hours, const PeakSensor& sensor) {
    if (hours.leaders.empty()) {
        return {};
    }
    const Broadcast in(sensor);
    const SensorView view(hours, sensor);
    Peak best;
    evaluateBestLeader(hours, sensor, in, view, best);
    BlockBounds blocks;
    boundBlocks(hours, in, best.value, blocks);
    tightenBounds(hours, sensor, in, view, best.value, blocks);
    // The most promising block by itself: after its hours the best is nearly found, and most of the
    // others are left out at a glance.
    const std::uint32_t* at = blocks.list.data();
    for (std::ptrdiff_t some = 1; at != blocks.end; some = lanes) {
        some = std::min(some, blocks.end - at);
        evaluateBlocks(hours, sensor, in, view, blocks, at, at + some, best);
        at += some;
    }
    return best;
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {

HWY_EXPORT(measureZones);
HWY_EXPORT(search);

skyZones::Terms skyZones::measure(const float* patches) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(measureZones)(patches);
}

Peak highestHour(const PeakHours& hours, const PeakSensor& sensor) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(search)(hours, sensor);
}

} // namespace insolate

#endif
