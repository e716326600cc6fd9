#include <insolate/shading/shading_mask.h>

#include <insolate/geometry/geometry.h>
#include <insolate/geometry/vector_math.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/shading/cell_directions.h>
#include <insolate/shading/mask_arithmetic.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <memory>

namespace {

using namespace insolate::skyGrid;
using insolate::CellDirections;
using insolate::CellIncidence;

constexpr int horizonBands = 3; ///< altitudes 0 to 15 degrees

/// What depends on the altitude band alone, and the sums over the unobstructed horizontal plane.
struct SkyWeights {
    std::array<float, altitudeCount> solidAngle{}; ///< of one cell of the band [sr]
    /// Relative luminance of the overcast sky, (1 + 2 sin h) / 3: Moon, Spencer (1942),
    /// Illumination from a non-uniform sky, Transactions of the Illuminating Engineering
    /// Society 37.
    std::array<float, altitudeCount> luminance{};
    float overcast = 0.0f;
    float uniform = 0.0f;
    float horizon = 0.0f; ///< solid angle of the horizon band

    SkyWeights() {
        for (int altitude = 0; altitude < altitudeCount; ++altitude) {
            const auto band = static_cast<std::size_t>(altitude);
            const float lower = bandLowerEdge(altitude);
            const float upper = bandUpperEdge(altitude);
            const float weight = (std::sin(upper) - std::sin(lower)) * 6.2831855f / 72.0f;
            const float sine = std::sin((lower + upper) * 0.5f);
            solidAngle[band] = weight;
            luminance[band] = (1.0f + 2.0f * sine) / 3.0f;
            // Cell by cell: the numerators are summed so, and single precision remembers.
            for (int azimuth = 0; azimuth < azimuthCount; ++azimuth) {
                overcast += sine * weight * luminance[band];
                uniform += sine * weight;
                if (altitude < horizonBands) {
                    horizon += weight;
                }
            }
        }
    }
};

const SkyWeights& skyWeights() {
    static const SkyWeights weights;
    return weights;
}

} // namespace

bool EShadingMask::calculate(GetTransparencyValueOnRay* rayQuery, const XYZf& point, XYZf* normal) {
    if (rayQuery == nullptr) {
        return false;
    }
    const bool doubleSided = rayQuery->getSurfaceDoubleSided();
    const std::shared_ptr<const CellDirections> directions = insolate::allCellDirections();

    CellIncidence cells;
    if (normal != nullptr) {
        const XYZf tip = insolate::sum(point, insolate::scaled(*normal, 100.0f));
        surfaceNormalAltitude = EGeometry::Altitude(point, tip);
        insolate::computeIncidence(point, *normal, doubleSided, *directions, cells);
    } else {
        surfaceNormalAltitude = 0.0f;
        cells.cosine.fill(1.0f);
        cells.inFront.fill(true);
    }

    std::array<float, cellCount> transparency{};
    for (std::size_t cell = 0; cell < cellCount; ++cell) {
        if (cells.inFront[cell]) {
            transparency[cell] =
                rayQuery->getTransparencyValue(point, directions->direction[cell], normal);
        }
    }
    summarise(transparency.data(), cells.cosine.data());
    return true;
}

bool EShadingMask::calculate(const XYZf& point, const XYZf& normal) {
    XYZf normalCopy = normal;
    auto* rayQuery = new GetTransparencyValueOnRayInternal;
    return calculate(rayQuery, point, &normalCopy);
}

/// Fills the planes and the factors from transparencies and cosines in cell order. The sums take
/// the transparency as the ray object gave it, the planes limit it to 0..1.
void EShadingMask::summarise(const float* transparency, const float* incidenceCosine) {
    const SkyWeights& weights = skyWeights();
    float uniform = 0.0f;
    float overcast = 0.0f;
    float horizon = 0.0f;
    for (int altitude = 0; altitude < altitudeCount; ++altitude) {
        const auto band = static_cast<std::size_t>(altitude);
        const float weight = weights.solidAngle[band];
        const float luminance = weights.luminance[band];
        for (int azimuth = 0; azimuth < azimuthCount; ++azimuth) {
            const float t = *transparency++;
            const float c = *incidenceCosine++;
            exposure[altitude][azimuth] = convertToByte(t);
            incidence[altitude][azimuth] = convertToByte(c);
            if (c > 1e-12f) {
                uniform += c * weight * t;
                overcast += c * weight * t * luminance;
                if (altitude < horizonBands) {
                    horizon += t * weight;
                }
            }
        }
    }
    // The divisors are positive by construction.
    setOvercastSkyComponent(overcast / weights.overcast * 100.0f);
    setUniformSkyComponent(uniform / weights.uniform * 100.0f);
    setPerezHorizonFactor(horizon / weights.horizon);
}
