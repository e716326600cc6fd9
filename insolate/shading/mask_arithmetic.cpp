#include <insolate/shading/mask_arithmetic.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/shading/mask_arithmetic.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <insolate/geometry/arc_cosine.h>
#include <insolate/geometry/vector_math.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// Eight cells at a time: a band is nine times eight. No fused operations: the scalar code has none.
using F64 = hn::CappedTag<double, 8>;
using F32 = hn::Rebind<float, F64>;
using Doubles = hn::Vec<F64>;
using Floats = hn::Vec<F32>;
using FloatMask = hn::Mask<F32>;

constexpr std::size_t cellCount = skyGrid::cellCount;
constexpr std::size_t bandCells = skyGrid::azimuthCount;

void cosinesAt(const XYZf& point, const XYZf& normal, const CellDirections& directions,
               float* cosines) {
    const hn::CappedTag<float, 16> d;
    using V = hn::Vec<decltype(d)>;
    const XYZf u = difference(sum(point, scaled(normal, 100.0f)), point);
    const V pointX = hn::Set(d, point.x);
    const V pointY = hn::Set(d, point.y);
    const V pointZ = hn::Set(d, point.z);
    const V hundred = hn::Set(d, 100.0f);
    const V zero = hn::Zero(d);
    const V lengthU = hn::Set(d, vectorLength(u));
    const auto tip = [&](const float* component, V origin) {
        return hn::Sub(hn::Add(origin, hn::Mul(hn::Load(d, component), hundred)), origin);
    };
    for (std::size_t i = 0; i < cellCount; i += hn::Lanes(d)) {
        const V x = tip(directions.x.data() + i, pointX);
        const V y = tip(directions.y.data() + i, pointY);
        const V z = tip(directions.z.data() + i, pointZ);
        const V squares = hn::Add(hn::Add(hn::Mul(x, x), hn::Mul(y, y)), hn::Mul(z, z));
        const V length = hn::IfThenElseZero(hn::Gt(squares, zero), hn::Sqrt(squares));
        const V product = hn::Mul(lengthU, length);
        const V dot = hn::Add(hn::Add(hn::Mul(hn::Set(d, u.x), x), hn::Mul(hn::Set(d, u.y), y)),
                              hn::Mul(hn::Set(d, u.z), z));
        const auto defined = hn::And(hn::Lt(product, hn::Set(d, 1e38f)), hn::Ne(product, zero));
        hn::Store(hn::IfThenElseZero(defined, hn::Div(dot, product)), d, cosines + i);
    }
}

// The arc cosine is one long chain of operations: several vectors go through it side by side.
constexpr std::size_t chains = hn::MaxLanes(F64()) >= 8 ? 4 : 2;

/// Not a std::array: its members would not be compiled for the level's instructions.
template <class V>
struct Several {
    V values[chains];

    HWY_INLINE Several() {}
    HWY_INLINE V& operator[](std::size_t k) { return values[k]; }
    HWY_INLINE const V& operator[](std::size_t k) const { return values[k]; }
};

template <class V, class Step>
HWY_INLINE Several<V> each(const Step& step) {
    Several<V> values;
    for (std::size_t k = 0; k < chains; ++k) {
        values[k] = step(k);
    }
    return values;
}

template <std::size_t count>
HWY_INLINE Several<Doubles> polynomial(F64 d, const std::array<double, count>& terms,
                                       const Several<Doubles>& x) {
    auto values = each<Doubles>([&](std::size_t) { return hn::Set(d, terms[count - 1]); });
    for (std::size_t i = count - 1; i-- > 0;) {
        const Doubles term = hn::Set(d, terms[i]);
        values =
            each<Doubles>([&](std::size_t k) { return hn::Add(hn::Mul(values[k], x[k]), term); });
    }
    return values;
}

/// Cosines of the rounded angles of cosines: roundedCosine(roundedArcCosine(x)), and 1 or -1 beyond
/// these. In front of a single-sided surface they are all positive.
template <bool allPositive>
HWY_INLINE Several<Floats> cosinesOfAngles(const Several<Floats>& cosines) {
    const F64 d;
    const F32 d32;
    const Doubles one = hn::Set(d, 1.0);
    const Doubles half = hn::Set(d, 0.5);
    const Doubles halfPi = hn::Set(d, arcCosine::halfPi);
    Several<Doubles> square;
    Several<hn::Mask<F64>> isLow;
    const auto arc = each<Doubles>([&](std::size_t k) {
        const Doubles x = hn::Min(hn::Abs(hn::PromoteTo(d, cosines[k])), one);
        isLow[k] = hn::Le(x, half);
        square[k] = hn::IfThenElse(isLow[k], hn::Mul(x, x), hn::Mul(hn::Sub(one, x), half));
        return hn::IfThenElse(isLow[k], x, hn::Sqrt(square[k]));
    });
    const auto arcSeries = polynomial(d, arcCosine::arcSineTerms, square);
    const auto r = each<Doubles>([&](std::size_t k) {
        const Doubles arcSine = hn::Add(arc[k], hn::Mul(hn::Mul(arc[k], square[k]), arcSeries[k]));
        Doubles exactAngle =
            hn::IfThenElse(isLow[k], hn::Sub(halfPi, arcSine), hn::Add(arcSine, arcSine));
        if (!allPositive) {
            exactAngle = hn::IfThenElse(hn::Lt(hn::PromoteTo(d, cosines[k]), hn::Zero(d)),
                                        hn::Sub(hn::Set(d, arcCosine::pi), exactAngle), exactAngle);
        }
        const Doubles angle = hn::PromoteTo(d, hn::DemoteTo(d32, exactAngle));
        return hn::Add(hn::Sub(halfPi, angle), hn::Set(d, arcCosine::halfPiRest));
    });
    const auto squareR = each<Doubles>([&](std::size_t k) { return hn::Mul(r[k], r[k]); });
    const auto series = polynomial(d, arcCosine::sineTerms, squareR);
    return each<Floats>([&](std::size_t k) {
        return hn::DemoteTo(d32, hn::Add(r[k], hn::Mul(hn::Mul(r[k], squareR[k]), series[k])));
    });
}

constexpr std::size_t groupSize = 8;
constexpr std::size_t groupCount = cellCount / groupSize;
constexpr std::size_t bandGroups = bandCells / groupSize;

/// What one mask's arithmetic passes from step to step. Groups are eight cells.
struct Work {
    alignas(64) std::array<float, cellCount> cosine; ///< as incidence shows it, before truncation
    alignas(64) std::array<float, cellCount> uniform, overcast, horizon; ///< what cells add
    std::array<std::uint16_t, groupCount> due; ///< groups whose cosines must be exact
    std::size_t dueCount = 0;
    std::size_t dueOnHorizon = 0; ///< of them, in the horizon bands
};

/// Lists the groups in which light is summed or an incidence might truncate to another byte; in the
/// others a lower bound of the cosine gives the byte.
void listDueGroups(const float* cosines, bool doubleSided, const float* transparency, Work& work) {
    const F32 d;
    const Floats zero = hn::Zero(d);
    const Floats one = hn::Set(d, 1.0f);
    const Floats steps = hn::Set(d, 255.0f);
    // The cosine of the rounded angle differs from the cosine itself by half a unit in the last
    // place of an angle (below 2^-22) and by its own rounding (2^-25).
    const Floats margin = hn::Set(d, 0x1p-21f);
    for (std::size_t group = 0; group < groupCount; ++group) {
        bool isDue = false;
        for (std::size_t i = group * groupSize; i < (group + 1) * groupSize; i += hn::Lanes(d)) {
            const Floats c = hn::Load(d, cosines + i);
            const FloatMask isFacing =
                doubleSided ? hn::Eq(one, one) : hn::Gt(c, hn::Set(d, behindCosine));
            const FloatMask isLit = hn::And(isFacing, hn::Ne(hn::Load(d, transparency + i), zero));
            if (!hn::AllFalse(d, isLit)) {
                isDue = true;
                break;
            }
            const Floats size = hn::Min(hn::Abs(c), one);
            const Floats low = hn::Max(hn::Sub(size, margin), zero);
            const Floats high = hn::Min(hn::Add(size, margin), one);
            const FloatMask isOpen = hn::And(
                isFacing, hn::Ne(hn::Floor(hn::Mul(low, steps)), hn::Floor(hn::Mul(high, steps))));
            isDue = isDue || !hn::AllFalse(d, isOpen);
            hn::Store(hn::IfThenElseZero(isFacing, low), d, work.cosine.data() + i);
        }
        work.due[work.dueCount] = static_cast<std::uint16_t>(group);
        work.dueCount += isDue ? 1U : 0U;
        work.dueOnHorizon = group < horizonBands * bandGroups ? work.dueCount : work.dueOnHorizon;
    }
}

/// Replaces the cosines of due groups by the exact ones, 0 behind a single-sided surface.
template <bool doubleSided>
void angleCosines(const float* cosines, const std::uint16_t* due, std::size_t count, Work& work) {
    const F32 d;
    constexpr std::size_t lanes = hn::MaxLanes(F32());
    constexpr std::size_t parts = groupSize / lanes; // vectors in a group
    const std::size_t vectors = count * parts;
    const auto placeOf = [&](std::size_t vector) {
        const std::size_t known = std::min(vector, vectors - 1); // the last again and again
        return due[known / parts] * groupSize + known % parts * lanes;
    };
    for (std::size_t vector = 0; vector < vectors; vector += chains) {
        const auto raw =
            each<Floats>([&](std::size_t k) { return hn::Load(d, cosines + placeOf(vector + k)); });
        const auto exact = cosinesOfAngles<!doubleSided>(raw);
        for (std::size_t k = 0; k < chains; ++k) {
            const Floats size = hn::Abs(exact[k]);
            const Floats kept =
                doubleSided ? size
                            : hn::IfThenElseZero(hn::Gt(raw[k], hn::Set(d, behindCosine)), size);
            hn::Store(kept, d, work.cosine.data() + placeOf(vector + k));
        }
    }
}

/// What the cells of a due group add to the sums. A cosine of 0 is that of a cell behind the
/// surface; what has no light adds 0, which changes nothing.
HWY_INLINE void weighGroup(const float* transparency, const SkyWeights& weights, std::size_t group,
                           Work& work) {
    const F32 d;
    const Floats zero = hn::Zero(d);
    const std::size_t band = group / bandGroups;
    const Floats weight = hn::Set(d, weights.solidAngle[band]);
    const Floats luminance = hn::Set(d, weights.luminance[band]);
    for (std::size_t i = group * groupSize; i < (group + 1) * groupSize; i += hn::Lanes(d)) {
        const Floats t = hn::Load(d, transparency + i);
        const Floats c = hn::Load(d, work.cosine.data() + i);
        const FloatMask isLit = hn::And(hn::Gt(c, zero), hn::Ne(t, zero)); // NaN is lit
        const Floats share = hn::IfThenElseZero(isLit, hn::Mul(hn::Mul(c, weight), t));
        hn::Store(share, d, work.uniform.data() + i);
        hn::Store(hn::Mul(share, luminance), d, work.overcast.data() + i);
        hn::Store(hn::IfThenElseZero(isLit, hn::Mul(t, weight)), d, work.horizon.data() + i);
    }
}

/// Adds a group's cells one after another, as the sums' order demands.
template <bool isOnHorizon>
HWY_INLINE void addGroup(const Work& work, std::size_t group, MaskSums& sums) {
    for (std::size_t i = group * groupSize; i < (group + 1) * groupSize; ++i) {
        sums.uniform += work.uniform[i];
        sums.overcast += work.overcast[i];
        if (isOnHorizon) {
            sums.horizon += work.horizon[i];
        }
    }
}

/// Limited to 0..1, times 255, truncated; NaN gives 0.
void truncateToBytes(const float* values, std::uint8_t* bytes) {
    const hn::CappedTag<float, 16> d;
    const hn::Rebind<std::uint32_t, decltype(d)> d32;
    const hn::Rebind<std::uint8_t, decltype(d)> d8;
    for (std::size_t i = 0; i < cellCount; i += hn::Lanes(d)) {
        const auto value = hn::Load(d, values + i);
        const auto positive = hn::IfThenElseZero(hn::Gt(value, hn::Zero(d)), value);
        const auto whole =
            hn::Floor(hn::Mul(hn::Min(positive, hn::Set(d, 1.0f)), hn::Set(d, 255.0f)));
        // Added to 2^23, a whole number stands in the lowest bits.
        const auto bits = hn::BitCast(d32, hn::Add(whole, hn::Set(d, 0x1p23f)));
        hn::StoreU(hn::TruncateTo(d8, bits), d8, bytes + i);
    }
}

MaskSums fill(const float* cosines, bool doubleSided, const float* transparency,
              std::uint8_t* exposure, std::uint8_t* incidence) {
    const SkyWeights& weights = SkyWeights::instance();
    Work work;
    if (cosines != nullptr) {
        listDueGroups(cosines, doubleSided, transparency, work);
    } else {
        std::iota(work.due.begin(), work.due.end(), std::uint16_t{0});
        work.dueCount = groupCount;
        work.cosine.fill(1.0f);
        work.dueOnHorizon = horizonBands * bandGroups;
    }
    // A few groups at a time: the chains of additions run beside the next groups' arithmetic.
    constexpr std::size_t batch = 4;
    MaskSums sums;
    for (std::size_t from = 0; from < work.dueCount; from += batch) {
        const std::size_t to = std::min(from + batch, work.dueCount);
        if (cosines != nullptr && doubleSided) {
            angleCosines<true>(cosines, work.due.data() + from, to - from, work);
        } else if (cosines != nullptr) {
            angleCosines<false>(cosines, work.due.data() + from, to - from, work);
        }
        for (std::size_t k = from; k < to; ++k) {
            weighGroup(transparency, weights, work.due[k], work);
        }
        for (std::size_t k = from; k < to; ++k) {
            if (k < work.dueOnHorizon) {
                addGroup<true>(work, work.due[k], sums);
            } else {
                addGroup<false>(work, work.due[k], sums);
            }
        }
    }
    truncateToBytes(transparency, exposure);
    truncateToBytes(work.cosine.data(), incidence);
    return sums;
}

void compareCosines(const float* cosines, std::uint8_t* bits) {
    const hn::CappedTag<float, 8> d;
    const std::size_t step = hn::Lanes(d);
    const auto behind = hn::Set(d, behindCosine);
    for (std::size_t i = 0; i < cellCount; i += 8) {
        unsigned byte = 0;
        for (std::size_t lane = 0; lane < 8; lane += step) {
            std::uint8_t part[8] = {};
            hn::StoreMaskBits(d, hn::Gt(hn::Load(d, cosines + i + lane), behind), part);
            byte |= static_cast<unsigned>(part[0]) << lane;
        }
        bits[i / 8] = static_cast<std::uint8_t>(byte);
    }
}

void expandBits(const std::uint8_t* bits, float* values) {
    const hn::CappedTag<float, 8> d;
    for (std::size_t i = 0; i < cellCount; i += 8) {
        for (std::size_t lane = 0; lane < 8; lane += hn::Lanes(d)) {
            const std::uint8_t part[8] = {static_cast<std::uint8_t>(bits[i / 8] >> lane)};
            hn::Store(hn::IfThenElseZero(hn::LoadMaskBits(d, part), hn::Set(d, 1.0f)), d,
                      values + i + lane);
        }
    }
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {
namespace {

HWY_EXPORT(cosinesAt);
HWY_EXPORT(fill);
HWY_EXPORT(compareCosines);
HWY_EXPORT(expandBits);

constexpr std::size_t bandBytes = skyGrid::azimuthCount / 8;

} // namespace

SkyWeights::SkyWeights() {
    for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
        const auto band = static_cast<std::size_t>(altitude);
        const float lower = skyGrid::bandLowerEdge(altitude);
        const float upper = skyGrid::bandUpperEdge(altitude);
        const float weight = (std::sin(upper) - std::sin(lower)) * 6.2831855f / 72.0f;
        const float sine = std::sin((lower + upper) * 0.5f);
        solidAngle[band] = weight;
        luminance[band] = (1.0f + 2.0f * sine) / 3.0f;
        // Cell by cell: the numerators are summed so, and single precision remembers.
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
            open.overcast += sine * weight * luminance[band];
            open.uniform += sine * weight;
            if (altitude < horizonBands) {
                open.horizon += weight;
            }
        }
    }
}

const SkyWeights& SkyWeights::instance() {
    static const SkyWeights weights;
    return weights;
}

void measureCosines(const XYZf& point, const XYZf& normal, const CellDirections& directions,
                    CellValues& cosines) {
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(cosinesAt)(point, normal, directions, cosines.value.data());
}

SkyCellSet cellsInFront(const CellValues& cosines) {
    applySimdChoice();
    std::array<std::uint8_t, skyGrid::cellCount / 8> bits;
    HWY_DYNAMIC_DISPATCH(compareCosines)(cosines.value.data(), bits.data());
    SkyCellSet cells;
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        const std::uint8_t* from = bits.data() + band * bandBytes;
        std::uint64_t word = 0;
        for (unsigned byte = 0; byte < 8; ++byte) {
            word |= static_cast<std::uint64_t>(from[byte]) << (8 * byte);
        }
        cells.words[2 * band] = word;
        cells.words[2 * band + 1] = from[8];
    }
    return cells;
}

void setTransparency(const SkyCellSet& visible, CellValues& transparency) {
    applySimdChoice();
    std::array<std::uint8_t, skyGrid::cellCount / 8> bits;
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        std::uint8_t* to = bits.data() + band * bandBytes;
        for (unsigned byte = 0; byte < 8; ++byte) {
            to[byte] = static_cast<std::uint8_t>(visible.words[2 * band] >> (8 * byte));
        }
        to[8] = static_cast<std::uint8_t>(visible.words[2 * band + 1]);
    }
    HWY_DYNAMIC_DISPATCH(expandBits)(bits.data(), transparency.value.data());
}

MaskSums fillMask(const CellValues* cosines, bool doubleSided, const CellValues& transparency,
                  std::uint8_t* exposure, std::uint8_t* incidence) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(fill)(cosines != nullptr ? cosines->value.data() : nullptr,
                                      doubleSided, transparency.value.data(), exposure, incidence);
}

} // namespace insolate

#endif
