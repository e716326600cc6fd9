// The arithmetic of a mask's 1,296 cells, with the bytes and sums of its definition.
//
// By definition a cell takes the cosine c between the normal and its direction, measured between
// points 100 units away in single precision; the angle g = acos(c), rounded to a float; and as its
// incidence cos(g), rounded again. These roundings show in the results, so each must be made as the
// definition makes it. Most cells are settled without an arc cosine all the same:
//
// 1. faceBlocks(), before the rays. The product of the unit normal and the direction differs from
//    the incidence by less than a known margin. Where the margin does not reach the surface's plane
//    or another byte of 1/255, the side and the byte of the cell are final.
// 2. sumCells(), after the rays. Only blocks of 16 cells with light, or with an open byte, take the
//    incidence itself; all others add nothing to the sums.
// 3. CosineTable. Sensors on one face share their normal. From point to point, a cell's angle is
//    then one of a few neighbouring floats: the table holds one of them with its cosine, and the
//    cosine of another follows by Taylor's series in single precision with a bound of the error.
// 4. anglesOf(). What the bounds leave open takes the polynomials of geometry/arc_cosine.h.
//
// Sums in single precision depend on their order. Shares are formed by vectors, but added one after
// another in the cells' order, beside the arithmetic of the next cells. The file is compiled once
// for each instruction set; multiplications and additions are fused in bounds alone, so that every
// set gives the same bits.

#include <insolate/shading/mask_arithmetic.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/shading/mask_arithmetic.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <insolate/platform/vector_masks.h>

#include <insolate/geometry/arc_cosine.h>
#include <insolate/geometry/vector_math.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#ifndef INSOLATE_MASK_ARITHMETIC_ONCE
#define INSOLATE_MASK_ARITHMETIC_ONCE

namespace insolate {

/// What the rays have brought: the cells with light, and how much of it passes.
struct Light {
    CellBits lit;
    const float* transparency; ///< of each cell; null where every lit cell is clear
};

/// How the cells lie before a surface.
struct FacedCells {
    CellBits inFront;
    CellBits undecided; ///< among them, those whose byte of incidence the margin leaves open
    /// Blocks with a cell within the margin of the surface's plane: which side it lies on depends
    /// on the point, and is to be asked again for each.
    std::array<std::uint8_t, blockCount> doubtful;
    std::size_t doubtfulCount = 0;
};

/// What points with one normal have in common.
///
/// From point to point, a cell's cosine c varies by some units in its last place, as the
/// coordinates round. Let g be the rounded angle of one point, a float whose last place is worth q.
/// The rounded angle of another point is then g + k q with a whole k, which for c = cos(g) + x is
/// the nearest to
///     t = -x / (sin(g) q) (1 + x cos(g) / (2 sin(g)^2)),
/// and cos(g + k q) = cos(g) - k q (sin(g) + k q cos(g) / 2), both by Taylor's series.
struct CosineTable {
    MaskSurface surface; ///< the first point with the normal, with a margin for others
    std::shared_ptr<const CellDirections> directions;
    FacedCells faced;
    alignas(
        64) std::array<std::uint8_t, skyGrid::cellCount> incidence; ///< bytes, as faced has them

    // By cell, for roundAnglesBy().
    using Floats = std::array<float, skyGrid::cellCount>;
    alignas(64) Floats cosine; ///< cos(g), rounded
    alignas(64) Floats rest;   ///< cos(g) less that
    alignas(64) Floats slope;  ///< -1 / (sin(g) q); NaN where the series does not hold
    alignas(64) Floats sine;   ///< sin(g) q
    alignas(64) Floats curve;  ///< cos(g) q^2 / 2

    CosineTable(const MaskSurface& first, std::shared_ptr<const CellDirections> all)
        : surface(first), directions(std::move(all)) {}
};

/// The bands' numbers, from which a vector takes those of its lanes.
inline constexpr auto bandNumbers = [] {
    std::array<float, skyGrid::altitudeCount> numbers{};
    for (std::size_t band = 0; band < numbers.size(); ++band) {
        numbers[band] = static_cast<float>(band);
    }
    return numbers;
}();

// Up to mostSteps from an angle g with sin(g) and q / sin(g) within these limits, t is off by less
// than 2^-14 and the cosine by less than 2^-20 of its change. Of t the cubic term is left out,
// (1 + 2 cos(g)^2) / 6 k^3 (q / sin(g))^2, at most 2^-15 here; of the cosine's change less than
// (k q)^2. With twice as many steps, or twice as large a q / sin(g), the cubic term would exceed
// what roundAnglesBy() allows for, and a mask could differ from its definition in the last bit;
// with fewer, more blocks take the full arithmetic.
inline constexpr float mostSteps = 256.0f;
inline constexpr float largestPlaceToSine = 0x1p-19f;
inline constexpr double smallestSine = 0.02;

/// The largest margin of a surface with which a table is made. A cosine that moves by so much moves
/// the angle by 256 steps and more, which the series do not reach: beyond, a table would be made
/// and then serve hardly any other point.
inline constexpr float largestTableMargin = 0x1p-15f;

} // namespace insolate

#endif

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// No fused operations where a result is rounded: the scalar code has none.
using F64 = hn::CappedTag<double, 8>;
using F32 = hn::Rebind<float, F64>;
using Doubles = hn::Vec<F64>;
using Floats = hn::Vec<F32>;
using F32x16 = hn::CappedTag<float, blockSize>;

constexpr std::size_t cellCount = skyGrid::cellCount;

/// The cosines between a surface's normal and cells from `first` on, before the angle is taken:
/// operation by operation those of EGeometry::Angle.
template <class D>
HWY_INLINE hn::Vec<D> cosinesFrom(D d, std::size_t first, const MaskSurface& surface,
                                  const CellDirections& directions) {
    const auto hundred = hn::Set(d, 100.0f);
    const auto zero = hn::Zero(d);
    const auto tip = [&](const float* component, float origin) HWY_ATTR {
        const auto from = hn::Set(d, origin);
        return hn::Sub(hn::Add(from, hn::Mul(hn::Load(d, component + first), hundred)), from);
    };
    const auto x = tip(directions.x.data(), surface.point.x);
    const auto y = tip(directions.y.data(), surface.point.y);
    const auto z = tip(directions.z.data(), surface.point.z);
    const auto squares = hn::Add(hn::Add(hn::Mul(x, x), hn::Mul(y, y)), hn::Mul(z, z));
    const auto length = hn::IfThenElseZero(hn::Gt(squares, zero), hn::Sqrt(squares));
    const auto product = hn::Mul(hn::Set(d, surface.length), length);
    const auto dot =
        hn::Add(hn::Add(hn::Mul(hn::Set(d, surface.up.x), x), hn::Mul(hn::Set(d, surface.up.y), y)),
                hn::Mul(hn::Set(d, surface.up.z), z));
    const auto defined = hn::And(hn::Lt(product, hn::Set(d, 1e38f)), hn::Ne(product, zero));
    return hn::IfThenElseZero(defined, hn::Div(dot, product));
}

/// A mask of lanes from a block's bits, the first lane's in bit `from`.
template <class D>
HWY_INLINE hn::Mask<D> maskOf(D d, std::uint16_t bits, std::size_t from) {
    const std::uint8_t bytes[8] = {static_cast<std::uint8_t>(bits >> from),
                                   static_cast<std::uint8_t>(bits >> 8U)};
    return hn::LoadMaskBits(d, bytes);
}

/// Stores whole numbers 0..255, given in single precision, as bytes.
template <class D>
HWY_INLINE void storeBytes(D d, hn::Vec<D> whole, std::uint8_t* bytes) {
    const hn::Rebind<std::uint32_t, D> d32;
    const hn::Rebind<std::uint8_t, D> d8;
    // Added to 2^23, a whole number stands in the lowest bits.
    hn::StoreU(hn::TruncateTo(d8, hn::BitCast(d32, hn::Add(whole, hn::Set(d, 0x1p23f)))), d8,
               bytes);
}

/// Stores values as a mask keeps them: limited to 0..1, times 255, truncated; NaN gives 0.
template <class D>
HWY_INLINE void truncateToBytes(D d, hn::Vec<D> value, std::uint8_t* bytes) {
    const auto positive = hn::IfThenElseZero(hn::Gt(value, hn::Zero(d)), value);
    storeBytes(d, hn::Floor(hn::Mul(hn::Min(positive, hn::Set(d, 1.0f)), hn::Set(d, 255.0f))),
               bytes);
}

/// Writes the incidences of some blocks from lower bounds of the cosines; notes the cells in front
/// and, among them, those in which an upper bound would give another byte.
void faceBlocks(const MaskSurface& surface, const CellDirections& directions,
                const std::uint8_t* blocks, std::size_t count, std::uint8_t* incidence,
                FacedCells& faced) {
    const F32x16 d;
    const std::size_t lanes = hn::Lanes(d);
    const auto one = hn::Set(d, 1.0f);
    const auto steps = hn::Set(d, 255.0f);
    const auto behind = hn::Set(d, behindCosine);
    const auto margin = hn::Set(d, surface.margin);
    // The cosine of the rounded angle differs from the cosine itself by half a unit in the last
    // place of an angle (at most 2^-23) and by its own rounding (2^-25).
    const auto wider = hn::Set(d, surface.margin + 0x1p-22f);
    const auto x = hn::Set(d, surface.unit.x);
    const auto y = hn::Set(d, surface.unit.y);
    const auto z = hn::Set(d, surface.unit.z);
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t block = blocks[k];
        std::uint32_t front = 0;
        std::uint32_t open = 0;
        bool isDoubtful = false;
        for (std::size_t part = 0; part < blockSize; part += lanes) {
            const std::size_t at = block * blockSize + part;
            // Within the margin of the cosine that the definition takes.
            const auto cosine =
                hn::MulAdd(z, hn::Load(d, directions.z.data() + at),
                           hn::MulAdd(y, hn::Load(d, directions.y.data() + at),
                                      hn::Mul(x, hn::Load(d, directions.x.data() + at))));
            auto isInFront = hn::Eq(one, one);
            if (!surface.doubleSided) {
                // The definition's own cosine decides only where the margin reaches the plane.
                isInFront = hn::Gt(cosine, behind);
                if (!hn::AllTrue(d, hn::Gt(hn::Abs(hn::Sub(cosine, behind)), margin))) {
                    isInFront = hn::Gt(cosinesFrom(d, at, surface, directions), behind);
                    isDoubtful = true;
                }
            }
            // The byte is final where both ends of the margin give the same one.
            const auto size = hn::Abs(cosine);
            const auto low =
                hn::Floor(hn::Mul(hn::Min(hn::ZeroIfNegative(hn::Sub(size, wider)), one), steps));
            const auto high = hn::Floor(hn::Mul(hn::Min(hn::Add(size, wider), one), steps));
            front |= bitsOf(d, isInFront) << part;
            open |= bitsOf(d, hn::And(isInFront, hn::Not(hn::Eq(low, high)))) << part;
            storeBytes(d, hn::IfThenElseZero(isInFront, low), incidence + at);
        }
        faced.inFront[block] = static_cast<std::uint16_t>(front);
        faced.undecided[block] = static_cast<std::uint16_t>(open);
        faced.doubtful[faced.doubtfulCount] = static_cast<std::uint8_t>(block);
        faced.doubtfulCount += isDoubtful ? 1U : 0U;
    }
}

// The arc cosine is one long chain of operations, each of which waits for the one before. Several
// vectors go through it side by side, as many as the registers hold: 4 with the 32 of AVX-512, else
// 2 (timed by ./dev bench rays whole, column "changing normals").
constexpr std::size_t chains = hn::MaxLanes(F64()) >= 8 ? 4 : 2;

/// The vectors that go through a computation side by side. Not a std::array: its members would not
/// be compiled for the level's instructions.
template <class V>
struct Several {
    V values[chains];

    HWY_INLINE Several() {}
    HWY_INLINE V& operator[](std::size_t k) { return values[k]; }
    HWY_INLINE const V& operator[](std::size_t k) const { return values[k]; }
};

/// One step of the computation, taken for each vector.
template <class V, class Step>
HWY_INLINE Several<V> each(const Step& step) {
    Several<V> values;
    for (std::size_t k = 0; k < chains; ++k) {
        values[k] = step(k);
    }
    return values;
}

/// arcCosine::polynomial(), operation by operation.
template <std::size_t count>
HWY_INLINE Several<Doubles> polynomial(F64 d, const std::array<double, count>& terms,
                                       const Several<Doubles>& x) {
    const auto x2 = each<Doubles>([&](std::size_t k) HWY_ATTR { return hn::Mul(x[k], x[k]); });
    const auto x4 = each<Doubles>([&](std::size_t k) HWY_ATTR { return hn::Mul(x2[k], x2[k]); });
    const auto pair = [&](std::size_t i) HWY_ATTR {
        const Doubles first = hn::Set(d, terms[i]);
        const Doubles second = hn::Set(d, terms[i + 1]);
        return each<Doubles>([&](std::size_t k)
                                 HWY_ATTR { return hn::Add(first, hn::Mul(second, x[k])); });
    };
    const auto add = [&](const Several<Doubles>& low, const Several<Doubles>& high,
                         const Several<Doubles>& power) HWY_ATTR {
        return each<Doubles>([&](std::size_t k)
                                 HWY_ATTR { return hn::Add(low[k], hn::Mul(high[k], power[k])); });
    };
    const auto low = add(pair(0), pair(2), x2);
    const auto last =
        each<Doubles>([&](std::size_t) HWY_ATTR { return hn::Set(d, terms[count - 1]); });
    if constexpr (count == 7) {
        return add(low, add(pair(4), last, x2), x4);
    } else {
        return add(low, add(add(pair(4), pair(6), x2), last, x4), x4);
    }
}

/// Angles in single precision, and their cosines.
struct Angles {
    Several<Floats> angle;
    Several<Doubles> cosine;

    HWY_INLINE Angles() {}
};

/// roundedArcCosine(x), 0 or pi beyond 1 and -1, and roundedCosine() of it but for the rounding. In
/// front of a single-sided surface cosines are all positive.
template <bool allPositive>
HWY_INLINE Angles anglesOf(const Several<Floats>& cosines) {
    const F64 d;
    const F32 d32;
    const Doubles one = hn::Set(d, 1.0);
    const Doubles half = hn::Set(d, 0.5);
    const Doubles halfPi = hn::Set(d, arcCosine::halfPi);
    Angles angles;
    Several<Doubles> square;
    Several<hn::Mask<F64>> isLow;
    const auto arc = each<Doubles>([&](std::size_t k) HWY_ATTR {
        const Doubles x = hn::Min(hn::Abs(hn::PromoteTo(d, cosines[k])), one);
        isLow[k] = hn::Le(x, half);
        square[k] = hn::IfThenElse(isLow[k], hn::Mul(x, x), hn::Mul(hn::Sub(one, x), half));
        return hn::IfThenElse(isLow[k], x, hn::Sqrt(square[k]));
    });
    const auto arcSeries = polynomial(d, arcCosine::arcSineTerms, square);
    const auto r = each<Doubles>([&](std::size_t k) HWY_ATTR {
        const Doubles arcSine = hn::Add(arc[k], hn::Mul(hn::Mul(arc[k], square[k]), arcSeries[k]));
        Doubles exact =
            hn::IfThenElse(isLow[k], hn::Sub(halfPi, arcSine), hn::Add(arcSine, arcSine));
        if (!allPositive) {
            exact = hn::IfThenElse(hn::Lt(hn::PromoteTo(d, cosines[k]), hn::Zero(d)),
                                   hn::Sub(hn::Set(d, arcCosine::pi), exact), exact);
        }
        angles.angle[k] = hn::DemoteTo(d32, exact);
        return hn::Add(hn::Sub(halfPi, hn::PromoteTo(d, angles.angle[k])),
                       hn::Set(d, arcCosine::halfPiRest));
    });
    const auto squareR = each<Doubles>([&](std::size_t k) HWY_ATTR { return hn::Mul(r[k], r[k]); });
    const auto series = polynomial(d, arcCosine::sineTerms, squareR);
    angles.cosine = each<Doubles>([&](std::size_t k) HWY_ATTR {
        return hn::Add(r[k], hn::Mul(hn::Mul(r[k], squareR[k]), series[k]));
    });
    return angles;
}

/// Fills a table's terms of the series; the rest of it is what faceBlocks() finds out.
void tabulate(CosineTable& table) {
    const F64 d;
    const F32 d32;
    const hn::RebindToUnsigned<F32> bits;
    const std::size_t lanes = hn::Lanes(d);
    for (std::size_t i = 0; i < cellCount; i += chains * lanes) {
        // The last steps of some vector lengths reach beyond the last cell.
        const auto placeOf = [&](std::size_t k)
                                 HWY_ATTR { return std::min(i + k * lanes, cellCount - lanes); };
        const Angles angles = anglesOf<false>(each<Floats>([&](std::size_t k) HWY_ATTR {
            return cosinesFrom(d32, placeOf(k), table.surface, *table.directions);
        }));
        for (std::size_t k = 0; k < chains; ++k) {
            const Floats angle = angles.angle[k];
            const Doubles cosine = angles.cosine[k];
            // q, from the power of two below the angle: its bits without those of the mantissa.
            const Floats power = hn::BitCast(
                d32, hn::And(hn::BitCast(bits, angle), hn::Set(bits, std::uint32_t{0x7F800000})));
            const Floats last = hn::Mul(power, hn::Set(d32, 0x1p-23f));
            const Floats reach = hn::Mul(last, hn::Set(d32, mostSteps + 2));
            const Doubles sine = hn::Sqrt(
                hn::Max(hn::Sub(hn::Set(d, 1.0), hn::Mul(cosine, cosine)), hn::Set(d, 1e-12)));
            const Doubles step = hn::Mul(sine, hn::PromoteTo(d, last));
            // The series holds for angles that are neither flat, where the sine vanishes, nor near
            // a power of two, beyond which the last place is worth twice as much or half.
            const Floats sine32 = hn::DemoteTo(d32, sine);
            const auto samePower = hn::And(hn::Ge(hn::Sub(angle, reach), power),
                                           hn::Lt(hn::Add(angle, reach), hn::Add(power, power)));
            const auto steep =
                hn::And(hn::Gt(sine32, hn::Set(d32, static_cast<float>(smallestSine))),
                        hn::Le(last, hn::Mul(sine32, hn::Set(d32, largestPlaceToSine))));
            const auto holds = hn::And(samePower, steep);
            const Floats slope = hn::DemoteTo(d32, hn::Div(hn::Set(d, -1.0), step));
            const Floats high = hn::DemoteTo(d32, cosine);
            const std::size_t at = placeOf(k);
            hn::Store(high, d32, table.cosine.data() + at);
            hn::Store(hn::DemoteTo(d32, hn::Sub(cosine, hn::PromoteTo(d, high))), d32,
                      table.rest.data() + at);
            hn::Store(hn::IfThenElse(holds, slope, hn::NaN(d32)), d32, table.slope.data() + at);
            hn::Store(hn::DemoteTo(d32, step), d32, table.sine.data() + at);
            hn::Store(hn::Mul(hn::Mul(high, last), hn::Mul(last, hn::Set(d32, 0.5f))), d32,
                      table.curve.data() + at);
        }
    }
}

// Each step of the arithmetic is taken for some blocks at a time: short chains of operations fill
// the processor better than long ones. 8 and 16 blocks gain nothing over 4 (./dev bench rays
// whole).
constexpr std::size_t batchBlocks = 4;
constexpr std::size_t batchCells = batchBlocks * blockSize;

/// Turns cosines into the cosines of their rounded angles: the incidences.
template <bool allPositive>
HWY_INLINE void roundAngles(float* cosines, std::size_t count) {
    const F32 d;
    const std::size_t lanes = hn::Lanes(d);
    for (std::size_t i = 0; i < count; i += chains * lanes) {
        const Angles angles = anglesOf<allPositive>(each<Floats>(
            [&](std::size_t k) HWY_ATTR { return hn::Load(d, cosines + i + k * lanes); }));
        for (std::size_t k = 0; k < chains; ++k) {
            hn::Store(hn::DemoteTo(d, angles.cosine[k]), d, cosines + i + k * lanes);
        }
    }
}

/// The same for one block by a table. False, changing nothing, where the errors of the series leave
/// more than one answer for any of its cells.
HWY_INLINE bool roundAnglesBy(const CosineTable& table, std::size_t block, float* cosines) {
    const F32x16 d;
    hn::Vec<F32x16> results[blockSize / hn::MaxLanes(F32x16())];
    for (std::size_t part = 0; part < blockSize; part += hn::Lanes(d)) {
        const std::size_t at = block * blockSize + part;
        const auto high = hn::Load(d, table.cosine.data() + at);
        const auto rest = hn::Load(d, table.rest.data() + at);
        const auto slope = hn::Load(d, table.slope.data() + at);
        const auto curve = hn::Load(d, table.curve.data() + at);
        // t, and k as its nearest whole number at both ends of twice the error of t.
        const auto x = hn::Sub(hn::Sub(hn::Load(d, cosines + part), high), rest);
        const auto first = hn::Mul(x, slope);
        const auto t = hn::MulAdd(hn::Mul(first, first), hn::Mul(curve, slope), first);
        const auto doubt = hn::Set(d, 0x1p-13f);
        const auto k = hn::Round(hn::Sub(t, doubt));
        // The cosine at k, rounded at both ends of its error: the change's 2^-20 and the roundings.
        const auto change =
            hn::NegMulAdd(k, hn::MulAdd(k, curve, hn::Load(d, table.sine.data() + at)), rest);
        const auto bound = hn::MulAdd(hn::Abs(change), hn::Set(d, 0x1p-20f), hn::Set(d, 0x1p-46f));
        const auto result = hn::Add(high, hn::Sub(change, bound));
        const auto isCertain = hn::And(hn::And(hn::Eq(k, hn::Round(hn::Add(t, doubt))),
                                               hn::Le(hn::Abs(k), hn::Set(d, mostSteps))),
                                       hn::Eq(result, hn::Add(high, hn::Add(change, bound))));
        if (!hn::AllTrue(d, isCertain)) {
            return false;
        }
        results[part / hn::Lanes(d)] = result;
    }
    for (std::size_t part = 0; part < blockSize; part += hn::Lanes(d)) {
        hn::Store(results[part / hn::Lanes(d)], d, cosines + part);
    }
    return true;
}

/// The same for one block in full, for what a table leaves open.
HWY_NOINLINE void roundBlockAngles(float* cosines) {
    alignas(64) std::array<float, 2 * blockSize> twice; // as long as the longest chains take
    std::copy_n(cosines, blockSize, twice.data());
    std::copy_n(cosines, blockSize, twice.data() + blockSize);
    roundAngles<false>(twice.data(), twice.size());
    std::copy_n(twice.data(), blockSize, cosines);
}

/// What each cell of a batch adds to the sums.
struct Shares {
    alignas(64) std::array<float, batchCells> uniform, overcast, horizon;
    std::size_t blocks = 0;
    bool areLow = false; ///< some of them in the horizon bands

    /// Adds a block's cells one after another, in the order of the definition.
    HWY_INLINE void addTo(MaskSums& sums, std::size_t block) const {
        if (block >= blocks) {
            return;
        }
        for (std::size_t i = 0; i < blockSize; ++i) {
            sums.uniform += uniform[block * blockSize + i];
        }
        for (std::size_t i = 0; i < blockSize; ++i) {
            sums.overcast += overcast[block * blockSize + i];
        }
        for (std::size_t i = 0; areLow && i < blockSize; ++i) {
            sums.horizon += horizon[block * blockSize + i];
        }
    }
};

/// Adds up the light of all cells, and completes the bytes of incidence that faceBlocks() has left
/// open. Without a surface every cosine is 1.
MaskSums sumCells(const MaskSurface* surface, const FacedSky* faced,
                  const CellDirections& directions, const Light& light, std::uint8_t* incidence) {
    const F32x16 d;
    const std::size_t lanes = hn::Lanes(d);
    const SkyWeights& weights = SkyWeights::instance();
    alignas(64) std::array<float, batchCells> cosines;
    Shares shares;
    cosines.fill(1.0f);
    // The blocks that have anything to add or to complete, filled up to whole batches.
    std::array<std::uint8_t, blockCount + batchBlocks> due;
    std::size_t dueCount = 0;
    for (std::size_t block = 0; block < blockCount; ++block) {
        due[dueCount] = static_cast<std::uint8_t>(block);
        dueCount +=
            (light.lit[block] | (surface != nullptr ? faced->undecided[block] : 0)) != 0 ? 1U : 0U;
    }
    for (std::size_t k = dueCount; k % batchBlocks != 0; ++k) {
        due[k] = due[k - 1];
    }
    MaskSums sums;
    for (std::size_t from = 0; from < dueCount; from += batchBlocks) {
        const std::uint8_t* blocks = due.data() + from;
        // The definition's cosines. Between them the last batch's shares are added: that chain of
        // additions, each waiting for the one before, leaves room for other work.
        for (std::size_t block = 0; block < batchBlocks; ++block) {
            for (std::size_t i = 0; surface != nullptr && i < blockSize; i += lanes) {
                hn::Store(cosinesFrom(d, blocks[block] * blockSize + i, *surface, directions), d,
                          cosines.data() + block * blockSize + i);
            }
            shares.addTo(sums, block);
        }
        // Cosines to incidences.
        if (surface != nullptr) {
            if (faced->table != nullptr) {
                for (std::size_t i = 0; i < batchCells; i += blockSize) {
                    if (!roundAnglesBy(*faced->table, blocks[i / blockSize], cosines.data() + i)) {
                        roundBlockAngles(cosines.data() + i);
                    }
                }
            } else if (surface->doubleSided) {
                roundAngles<false>(cosines.data(), batchCells);
            } else {
                roundAngles<true>(cosines.data(), batchCells);
            }
        }
        // Incidences to bytes and shares. The blocks that fill up the batch stay out.
        const std::size_t cells = std::min(batchBlocks, dueCount - from) * blockSize;
        for (std::size_t i = 0; i < cells; i += lanes) {
            const std::size_t block = blocks[i / blockSize];
            const std::size_t first = block * blockSize + i % blockSize;
            // A block may have its halves in two bands.
            const std::size_t band = first / skyGrid::azimuthCount;
            const std::size_t next = (first + lanes - 1) / skyGrid::azimuthCount;
            const auto isFirst = hn::FirstN(d, blockSize / 2);
            const auto byBand = [&](const auto& values) HWY_ATTR {
                return hn::IfThenElse(isFirst, hn::Set(d, values[band]), hn::Set(d, values[next]));
            };
            const auto weight = byBand(weights.solidAngle);
            auto c = hn::Load(d, cosines.data() + i);
            if (surface != nullptr) {
                c = hn::IfThenElseZero(maskOf(d, faced->inFront[block], i % blockSize), hn::Abs(c));
                truncateToBytes(d, c, incidence + first);
            }
            // What has no light adds 0, which changes nothing.
            const auto isLit = maskOf(d, light.lit[block], i % blockSize);
            auto share = hn::Mul(c, weight);
            auto size = weight;
            if (light.transparency != nullptr) {
                const auto t = hn::Load(d, light.transparency + first);
                share = hn::Mul(share, t);
                size = hn::Mul(t, weight);
            }
            share = hn::IfThenElseZero(isLit, share);
            hn::Store(share, d, shares.uniform.data() + i);
            hn::Store(hn::Mul(share, byBand(weights.luminance)), d, shares.overcast.data() + i);
            const auto isLow = hn::Lt(byBand(bandNumbers), hn::Set(d, 1.0f * horizonBands));
            hn::Store(hn::IfThenElseZero(hn::And(isLit, isLow), size), d,
                      shares.horizon.data() + i);
        }
        shares.blocks = cells / blockSize;
        shares.areLow = blocks[0] * blockSize < horizonBands * skyGrid::azimuthCount;
    }
    for (std::size_t block = 0; block < batchBlocks; ++block) {
        shares.addTo(sums, block);
    }
    return sums;
}

/// The exposures and the light of transparencies.
void takeTransparency(const float* transparency, Light& light, std::uint8_t* exposure) {
    const F32x16 d;
    for (std::size_t i = 0; i < cellCount; i += blockSize) {
        std::uint32_t lit = 0;
        for (std::size_t part = 0; part < blockSize; part += hn::Lanes(d)) {
            const auto value = hn::Load(d, transparency + i + part);
            truncateToBytes(d, value, exposure + i + part);
            lit |= bitsOf(d, hn::Ne(value, hn::Zero(d))) << part; // NaN is lit
        }
        light.lit[i / blockSize] = static_cast<std::uint16_t>(lit);
    }
    light.transparency = transparency;
}

/// 255 for each bit that is set.
void expandBits(const CellBits& bits, std::uint8_t* bytes) {
    const hn::CappedTag<std::uint8_t, blockSize> d;
    for (std::size_t block = 0; block < blockCount; ++block) {
        for (std::size_t part = 0; part < blockSize; part += hn::Lanes(d)) {
            hn::StoreU(hn::VecFromMask(d, maskOf(d, bits[block], part)), d,
                       bytes + block * blockSize + part);
        }
    }
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {
namespace {

HWY_EXPORT(faceBlocks);
HWY_EXPORT(tabulate);
HWY_EXPORT(sumCells);
HWY_EXPORT(takeTransparency);
HWY_EXPORT(expandBits);

constexpr auto allBlocks = [] {
    std::array<std::uint8_t, blockCount> blocks{};
    for (std::size_t block = 0; block < blockCount; ++block) {
        blocks[block] = static_cast<std::uint8_t>(block);
    }
    return blocks;
}();

// Two bands are nine blocks; the upper one begins in the middle of a block.
static_assert(2 * skyGrid::azimuthCount == 9 * blockSize);

/// A set's cells, which stand band by band in words of 64 bits, as bits of blocks.
CellBits packed(const SkyCellSet& cells) {
    CellBits bits;
    for (std::size_t pair = 0; pair < skyGrid::altitudeCount / 2; ++pair) {
        const std::uint64_t* words = cells.words.data() + 4 * pair;
        std::uint16_t* to = bits.data() + 9 * pair;
        for (unsigned k = 0; k < 4; ++k) {
            to[k] = static_cast<std::uint16_t>(words[0] >> (16 * k));
            to[k + 5] = static_cast<std::uint16_t>(words[2] >> (16 * k + 8));
        }
        to[4] = static_cast<std::uint16_t>(words[1] | words[2] << 8U);
        to[8] = static_cast<std::uint16_t>(words[2] >> 56U | words[3] << 8U);
    }
    return bits;
}

/// The other way round.
SkyCellSet unpacked(const CellBits& bits) {
    SkyCellSet cells;
    for (std::size_t pair = 0; pair < skyGrid::altitudeCount / 2; ++pair) {
        std::uint64_t* words = cells.words.data() + 4 * pair;
        const std::uint16_t* from = bits.data() + 9 * pair;
        for (unsigned k = 0; k < 4; ++k) {
            words[0] |= std::uint64_t{from[k]} << (16 * k);
            words[2] |= std::uint64_t{from[k + 5]} << 8U << (16 * k);
        }
        words[1] = from[4] & 0xFFU;
        words[2] |= from[4] >> 8U;
        words[3] = from[8] >> 8U;
    }
    return cells;
}

MaskSums completeMask(const MaskSurface* surface, const FacedSky* faced,
                      const CellDirections& directions, const Light& light,
                      std::uint8_t* incidence) {
    if (surface == nullptr) {
        std::fill_n(incidence, skyGrid::cellCount, std::uint8_t{255});
    }
    return HWY_DYNAMIC_DISPATCH(sumCells)(surface, faced, directions, light, incidence);
}

bool sameNormal(const XYZf& a, const XYZf& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

void faceAll(const MaskSurface& surface, const CellDirections& directions, std::uint8_t* incidence,
             FacedCells& faced) {
    HWY_DYNAMIC_DISPATCH(faceBlocks)
    (surface, directions, allBlocks.data(), allBlocks.size(), incidence, faced);
}

/// The table that serves a surface, made when the thread's last surface had the same normal; else
/// null.
std::shared_ptr<const CosineTable>
tableFor(const MaskSurface& surface, const std::shared_ptr<const CellDirections>& directions) {
    // A table is worth its cost from the second point on: changing normals never pay for one.
    thread_local XYZf lastNormal{};
    thread_local std::shared_ptr<const CosineTable> kept;
    const bool isRepeated = sameNormal(surface.normal, lastNormal);
    lastNormal = surface.normal;
    if (!isRepeated || !(surface.margin <= largestTableMargin)) {
        return nullptr;
    }
    if (kept == nullptr || !sameNormal(kept->surface.normal, surface.normal) ||
        kept->surface.doubleSided != surface.doubleSided || kept->surface.margin < surface.margin ||
        kept->directions != directions) {
        const auto table = std::make_shared<CosineTable>(surface, directions);
        // Up to the next power of two, so that points a little farther out find it good as well.
        table->surface.margin = std::exp2(std::ceil(std::log2(surface.margin)));
        HWY_DYNAMIC_DISPATCH(tabulate)(*table);
        faceAll(table->surface, *directions, table->incidence.data(), table->faced);
        kept = table;
    }
    return kept;
}

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

MaskSurface::MaskSurface(const XYZf& position, const XYZf& direction, bool isDoubleSided)
    : point(position), normal(direction),
      up(difference(sum(position, scaled(direction, 100.0f)), position)), length(vectorLength(up)),
      doubleSided(isDoubleSided), unit{}, margin(std::numeric_limits<float>::infinity()) {
    const float size = vectorLength(direction);
    const float reach =
        std::max({std::fabs(position.x), std::fabs(position.y), std::fabs(position.z)});
    if (size > 1e-3f && size < 1e3f && reach < 1e9f &&
        !std::isnan(position.x + position.y + position.z)) {
        unit = scaled(direction, 1.0f / size);
        // With r = 2^-24: the components of either point's offset are off by r (reach + 300 size),
        // the offset as a whole by sqrt(3) times that, and its direction by a hundredth of it over
        // size. The cosine's own operations add 10 r, those of unit . direction 8 r. In all
        // 2 sqrt(3) 3 + 18 < 30, and some to spare.
        margin = 0x1p-24f * (40.0f + 0.018f * reach * (1.0f + 1.0f / size));
    }
}

FacedSky faceSky(const MaskSurface& surface,
                 const std::shared_ptr<const CellDirections>& directions, std::uint8_t* incidence) {
    applySimdChoice();
    FacedSky sky;
    sky.table = tableFor(surface, directions);
    FacedCells cells;
    if (sky.table != nullptr) {
        // The table's margin covers this point: what is settled there is settled here.
        const FacedCells& known = sky.table->faced;
        cells.inFront = known.inFront;
        cells.undecided = known.undecided;
        std::copy(sky.table->incidence.begin(), sky.table->incidence.end(), incidence);
        if (known.doubtfulCount != 0) {
            HWY_DYNAMIC_DISPATCH(faceBlocks)
            (surface, *directions, known.doubtful.data(), known.doubtfulCount, incidence, cells);
        }
    } else {
        faceAll(surface, *directions, incidence, cells);
    }
    sky.wanted = unpacked(cells.inFront);
    sky.inFront = cells.inFront;
    sky.undecided = cells.undecided;
    return sky;
}

MaskSums fillMask(const MaskSurface* surface, const FacedSky* faced,
                  const CellDirections& directions, const SkyCellSet& visible,
                  const MaskPlanes& planes) {
    applySimdChoice();
    const Light light{packed(visible), nullptr};
    HWY_DYNAMIC_DISPATCH(expandBits)(light.lit, planes.exposure);
    return completeMask(surface, faced, directions, light, planes.incidence);
}

MaskSums fillMask(const MaskSurface* surface, const FacedSky* faced,
                  const CellDirections& directions, const CellValues& transparency,
                  const MaskPlanes& planes) {
    applySimdChoice();
    Light light;
    HWY_DYNAMIC_DISPATCH(takeTransparency)(transparency.value.data(), light, planes.exposure);
    return completeMask(surface, faced, directions, light, planes.incidence);
}

} // namespace insolate

#endif
