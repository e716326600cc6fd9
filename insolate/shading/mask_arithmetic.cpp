#include <insolate/shading/mask_arithmetic.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/shading/mask_arithmetic.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <insolate/geometry/arc_cosine.h>
#include <insolate/geometry/vector_math.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// Eight cells at a time: a band is nine times eight. No fused operations: the scalar code has none.
using F64 = hn::CappedTag<double, 8>;
using F32 = hn::Rebind<float, F64>;
using I32 = hn::Rebind<std::int32_t, F64>;
using U8 = hn::Rebind<std::uint8_t, F64>;
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

template <std::size_t count>
HWY_INLINE Doubles polynomial(F64 d, const std::array<double, count>& terms, Doubles x) {
    Doubles value = hn::Set(d, terms[count - 1]);
    for (std::size_t i = count - 1; i-- > 0;) {
        value = hn::Add(hn::Mul(value, x), hn::Set(d, terms[i]));
    }
    return value;
}

/// Cosine of the rounded angle of a cosine: roundedCosine(roundedArcCosine(x)), and 1 or -1 beyond
/// these.
HWY_INLINE Floats cosineOfAngle(Floats cosine) {
    const F64 d;
    const F32 d32;
    const Doubles half = hn::Set(d, 0.5);
    const Doubles x = hn::PromoteTo(d, cosine);
    const Doubles magnitude = hn::Min(hn::Abs(x), hn::Set(d, 1.0));
    const auto isLow = hn::Le(magnitude, half);
    const Doubles square =
        hn::IfThenElse(isLow, hn::Mul(x, x), hn::Mul(hn::Sub(hn::Set(d, 1.0), magnitude), half));
    const Doubles s = hn::IfThenElse(isLow, magnitude, hn::Sqrt(square));
    const Doubles arcSine =
        hn::Add(s, hn::Mul(hn::Mul(s, square), polynomial(d, arcCosine::arcSineTerms, square)));
    const Doubles folded = hn::IfThenElse(isLow, hn::Sub(hn::Set(d, arcCosine::halfPi), arcSine),
                                          hn::Add(arcSine, arcSine));
    const Doubles exactAngle =
        hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Sub(hn::Set(d, arcCosine::pi), folded), folded);

    const Doubles angle = hn::PromoteTo(d, hn::DemoteTo(d32, exactAngle));
    const Doubles r =
        hn::Add(hn::Sub(hn::Set(d, arcCosine::halfPi), angle), hn::Set(d, arcCosine::halfPiRest));
    const Doubles squareR = hn::Mul(r, r);
    return hn::DemoteTo(d32, hn::Add(r, hn::Mul(hn::Mul(r, squareR),
                                                polynomial(d, arcCosine::sineTerms, squareR))));
}

/// Limited to 0..1, times 255, truncated; NaN gives 0.
HWY_INLINE hn::Vec<I32> toByte(Floats value) {
    const F32 d;
    const Floats positive = hn::IfThenElseZero(hn::Gt(value, hn::Zero(d)), value);
    const Floats limited = hn::Min(positive, hn::Set(d, 1.0f));
    return hn::ConvertTo(I32(), hn::Mul(limited, hn::Set(d, 255.0f)));
}

/// Cells whose light counts, packed in cell order, as products with their weights.
struct Lit {
    alignas(64) std::array<float, cellCount + 16> uniform;
    alignas(64) std::array<float, cellCount + 16> overcast;
    alignas(64) std::array<float, cellCount + 16> horizon;
    std::size_t count = 0;
    std::size_t horizonCount = 0;
};

MaskSums fill(const float* cosines, bool doubleSided, const float* transparency,
              std::uint8_t* exposure, std::uint8_t* incidence) {
    const F32 d;
    const std::size_t step = hn::Lanes(d);
    const SkyWeights& weights = SkyWeights::instance();
    const Floats zero = hn::Zero(d);
    const Floats one = hn::Set(d, 1.0f);
    // The cosine of the rounded angle differs from the cosine itself by half a unit in the last
    // place of an angle below 2 (2^-24), by another 2^-23 beyond, and by its own rounding.
    const Floats margin = hn::Set(d, 0x1p-21f);
    Lit lit;
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        const Floats weight = hn::Set(d, weights.solidAngle[band]);
        const Floats luminance = hn::Set(d, weights.luminance[band]);
        for (std::size_t i = band * bandCells; i < (band + 1) * bandCells; i += step) {
            const Floats t = hn::LoadU(d, transparency + i);
            hn::StoreU(hn::DemoteTo(U8(), toByte(t)), U8(), exposure + i);

            Floats c = one;
            FloatMask isFacing = hn::Eq(one, one);
            hn::Vec<I32> byte = hn::Set(I32(), 255);
            // A cell without light adds nothing; NaN counts.
            FloatMask isLit = hn::Ne(t, zero);
            if (cosines != nullptr) {
                c = hn::LoadU(d, cosines + i);
                isFacing = doubleSided ? isFacing : hn::Gt(c, hn::Set(d, behindCosine));
                isLit = hn::And(isLit, isFacing);
                const Floats size = hn::Min(hn::Abs(c), one);
                byte = toByte(hn::Sub(size, margin));
                // The cosine of the angle is worked out only where it is summed, or where it might
                // truncate to another byte.
                const auto highest = toByte(hn::Add(size, margin));
                if (!hn::AllFalse(d, isLit) || !hn::AllTrue(I32(), hn::Eq(byte, highest))) {
                    c = hn::Abs(cosineOfAngle(c));
                    byte = toByte(c);
                }
                byte = hn::IfThenElseZero(hn::RebindMask(I32(), isFacing), byte);
            }
            hn::StoreU(hn::DemoteTo(U8(), byte), U8(), incidence + i);

            if (hn::AllFalse(d, isLit)) {
                continue;
            }
            const Floats share = hn::Mul(hn::Mul(c, weight), t);
            hn::CompressStore(share, isLit, d, lit.uniform.data() + lit.count);
            lit.count += hn::CompressStore(hn::Mul(share, luminance), isLit, d,
                                           lit.overcast.data() + lit.count);
            if (band < horizonBands) {
                lit.horizonCount += hn::CompressStore(hn::Mul(t, weight), isLit, d,
                                                      lit.horizon.data() + lit.horizonCount);
            }
        }
    }
    MaskSums sums;
    for (std::size_t i = 0; i < lit.count; ++i) {
        sums.uniform += lit.uniform[i];
        sums.overcast += lit.overcast[i];
    }
    for (std::size_t i = 0; i < lit.horizonCount; ++i) {
        sums.horizon += lit.horizon[i];
    }
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

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {
namespace {

HWY_EXPORT(cosinesAt);
HWY_EXPORT(fill);
HWY_EXPORT(compareCosines);

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
    float* to = transparency.value.data();
    for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
        for (unsigned bit = 0; bit < 64; ++bit) {
            *to++ = static_cast<float>(visible.words[2 * band] >> bit & 1U);
        }
        for (unsigned bit = 0; bit < 8; ++bit) {
            *to++ = static_cast<float>(visible.words[2 * band + 1] >> bit & 1U);
        }
    }
}

MaskSums fillMask(const CellValues* cosines, bool doubleSided, const CellValues& transparency,
                  std::uint8_t* exposure, std::uint8_t* incidence) {
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(fill)(cosines != nullptr ? cosines->value.data() : nullptr,
                                      doubleSided, transparency.value.data(), exposure, incidence);
}

} // namespace insolate

#endif
