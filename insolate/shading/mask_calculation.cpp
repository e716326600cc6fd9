#include <insolate/shading/shading_mask.h>

#include <insolate/geometry/geometry.h>
#include <insolate/geometry/vector_math.h>
#include <insolate/rt/ray_caster_abilities.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/shading/cell_directions.h>
#include <insolate/shading/mask_arithmetic.h>

#include <memory>
#include <optional>

namespace {

using insolate::CellDirections;
using insolate::CellValues;
using insolate::SkyCellSet;
using insolate::skyGrid::altitudeCount;
using insolate::skyGrid::azimuthCount;
using insolate::skyGrid::cellIndex;

/// One ray for each of the given cells; the others get 0.
void castRays(GetTransparencyValueOnRay& rayQuery, const XYZf& point, const XYZf* normal,
              const CellDirections& directions, const SkyCellSet& cells, CellValues& transparency) {
    for (int altitude = 0; altitude < altitudeCount; ++altitude) {
        for (int azimuth = 0; azimuth < azimuthCount; ++azimuth) {
            const auto cell = static_cast<std::size_t>(cellIndex(azimuth, altitude));
            transparency.value[cell] =
                cells.contains(azimuth, altitude)
                    ? rayQuery.getTransparencyValue(point, directions.direction[cell], normal)
                    : 0.0f;
        }
    }
}

} // namespace

bool EShadingMask::calculate(GetTransparencyValueOnRay* rayQuery, const XYZf& point, XYZf* normal) {
    if (rayQuery == nullptr) {
        return false;
    }
    const insolate::RayCasterAbilities abilities = insolate::abilitiesOf(*rayQuery);
    const std::shared_ptr<const CellDirections> directions = insolate::allCellDirections();

    std::optional<insolate::MaskSurface> surface;
    insolate::FacedSky faced{SkyCellSet::all(), {}, {}, nullptr};
    surfaceNormalAltitude = 0.0f;
    if (normal != nullptr) {
        const XYZf tip = insolate::sum(point, insolate::scaled(*normal, 100.0f));
        surfaceNormalAltitude = EGeometry::Altitude(point, tip);
        surface.emplace(point, *normal, abilities.doubleSided);
        faced = insolate::faceSky(*surface, directions, incidence[0]);
    }

    const insolate::MaskSurface* known = surface ? &*surface : nullptr;
    const insolate::MaskPlanes planes{exposure[0], incidence[0]};
    insolate::MaskSums sums;
    if (abilities.wholeSkies != nullptr) {
        const SkyCellSet visible =
            abilities.wholeSkies->visibleSky(point, directions->sky, faced.wanted);
        sums = insolate::fillMask(known, &faced, *directions, visible, planes);
    } else {
        CellValues transparency;
        castRays(*rayQuery, point, normal, *directions, faced.wanted, transparency);
        sums = insolate::fillMask(known, &faced, *directions, transparency, planes);
    }
    const insolate::MaskSums& open = insolate::SkyWeights::instance().open; // all above 0
    setOvercastSkyComponent(sums.overcast / open.overcast * 100.0f);
    setUniformSkyComponent(sums.uniform / open.uniform * 100.0f);
    setPerezHorizonFactor(sums.horizon / open.horizon);
    return true;
}

bool EShadingMask::calculate(const XYZf& point, const XYZf& normal) {
    XYZf normalCopy = normal;
    auto* rayQuery = new GetTransparencyValueOnRayInternal;
    return calculate(rayQuery, point, &normalCopy);
}
