#include <insolate/hourly/hourly_preparation.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/north_offset.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>

namespace insolate {
namespace {

/// Makes values shares of their sum; of none all are 0.
template <class Range, class Value = std::identity>
void makeShares(Range&& of, Value valueOf = {}) {
    float all = 0.0f;
    for (auto& one : of) {
        all += valueOf(one);
    }
    for (auto& one : of) {
        valueOf(one) = all > 0.0f ? valueOf(one) / all : 0.0f;
    }
}

HourlySky withFiniteNorth(HourlySky sky) {
    sky.options.northOffset = finiteOffset(sky.options.northOffset);
    return sky;
}

} // namespace

HourlyPreparation::HourlyPreparation(HourlySky&& theSky, const std::vector<HourlySky>& theParts,
                                     const HourlyAnalysisOptions& theOptions)
    : sky(withFiniteNorth(std::move(theSky))), options(theOptions), cells(sky.options.northOffset),
      first(sky), ground{GroundRays(raysOfGround(1), sky.options.northOffset),
                         GroundRays(raysOfGround(4), sky.options.northOffset)} {
    for (std::size_t band = 0; band < cosines.size(); ++band) {
        cosines[band] =
            static_cast<float>(std::cos((static_cast<double>(band) + 0.5) * skyGrid::cellWidth));
    }
    std::array<double, patchCount> totals{};
    for (std::size_t i = 0; i < sky.patchRadiance.size(); ++i) {
        totals[i % patchCount] += static_cast<double>(sky.patchRadiance[i]);
    }
    for (std::size_t p = 0; p < patchCount; ++p) {
        patchTotals[p] = static_cast<float>(totals[p]);
    }
    if (sky.valid &&
        (options.tolerance > 0.0 || options.skyTolerance > 0.0 || options.sunTolerance > 0.0)) {
        edges.emplace(sky, first, ground);
    }
    if (sky.valid) {
        parts = SkyParts(sky, theParts);
    }
    openTotal = static_cast<float>(sky.report.diffuseHorizontal + sky.report.directHorizontal);
    if (sky.valid) {
        prepareSeasons();
    }
    for (const HourlySky& part : theParts) {
        partLights.push_back(
            {part.report.diffuseHorizontal, part.groundReflected, part.sunCells, {}, {}});
        if (seasons.size() > 1) {
            partSeasons.push_back(seasonsOf(part));
            divideAmongSeasons(part, partLights.back());
        }
    }
}

std::vector<HourlyPreparation::PartSeason>
HourlyPreparation::seasonsOf(const HourlySky& part) const {
    std::vector<int> sunCellOf(static_cast<std::size_t>(skyGrid::cellCount), -1);
    for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
        sunCellOf[static_cast<std::size_t>(sky.sunCells[j].cell)] = static_cast<int>(j);
    }
    std::vector<PartSeason> result(seasons.size());
    for (PartSeason& season : result) {
        season.sunCells.assign(sky.sunCells.size(), 0.0f);
    }
    for (std::size_t h = 0; h < part.skyHours.size(); ++h) {
        const SkyHour& hour = part.skyHours[h];
        PartSeason& season = result[seasonOf(hour)];
        for (std::size_t p = 0; p < patchCount; ++p) {
            season.patches[p] += part.patchRadiance[h * patchCount + p];
        }
        season.ground += hour.groundReflected;
        for (int b = 0; b < hour.beamCount; ++b) {
            const BeamPart& beam = part.beams[static_cast<std::size_t>(hour.firstBeam + b)];
            const int cell = part.sunCells[static_cast<std::size_t>(beam.sunCell)].cell;
            if (const int j = sunCellOf[static_cast<std::size_t>(cell)]; j >= 0) {
                season.sunCells[static_cast<std::size_t>(j)] += vectorLength(beam.energy);
            }
        }
    }
    for (std::size_t p = 0; p < patchCount; ++p) {
        makeShares(result, [p](PartSeason& season) -> float& { return season.patches[p]; });
    }
    makeShares(result, [](PartSeason& season) -> float& { return season.ground; });
    for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
        makeShares(result, [j](PartSeason& season) -> float& { return season.sunCells[j]; });
    }
    return result;
}

void HourlyPreparation::divideAmongSeasons(const HourlySky& part,
                                           HourlyAnalysis::PartLight& light) const {
    light.diffuseShares.assign(seasons.size(), 0.0f);
    light.sunShares.assign(part.sunCells.size() * seasons.size(), 0.0f);
    for (const SkyHour& hour : part.skyHours) {
        const std::size_t season = seasonOf(hour);
        light.diffuseShares[season] += hour.diffuse;
        for (int b = 0; b < hour.beamCount; ++b) {
            const BeamPart& beam = part.beams[static_cast<std::size_t>(hour.firstBeam + b)];
            light.sunShares[static_cast<std::size_t>(beam.sunCell) * seasons.size() + season] +=
                vectorLength(beam.energy);
        }
    }
    makeShares(std::span(light.diffuseShares));
    for (std::size_t j = 0; j < part.sunCells.size(); ++j) {
        makeShares(std::span(light.sunShares).subspan(j * seasons.size(), seasons.size()));
    }
}

void HourlyPreparation::prepareSeasons() {
    seasons.resize(static_cast<std::size_t>(std::max(options.seasons.count, 1)));
    for (std::uint16_t& season : options.seasons.ofDay) {
        season = std::min(season, static_cast<std::uint16_t>(seasons.size() - 1));
    }
    std::vector<double> energy(sky.sunCells.size(), 0.0);
    const auto lengthOf = [](const BeamPart& part) {
        return static_cast<double>(vectorLength(part.energy));
    };
    for (const BeamPart& part : sky.beams) {
        energy[static_cast<std::size_t>(part.sunCell)] += lengthOf(part);
    }
    for (std::size_t s = 0; s < seasons.size(); ++s) {
        Season& season = seasons[s];
        HourlySky part;
        std::array<double, patchCount> patches{};
        std::vector<double> suns(sky.sunCells.size(), 0.0);
        double groundLight = 0.0;
        for (std::size_t h = 0; h < sky.skyHours.size(); ++h) {
            const SkyHour& hour = sky.skyHours[h];
            if (seasonOf(hour) != s) {
                continue;
            }
            season.hours.push_back(hour.hour);
            part.skyHours.push_back(hour);
            part.patchRadiance.insert(part.patchRadiance.end(), patchesOf(h),
                                      patchesOf(h) + patchCount);
            for (std::size_t p = 0; p < patchCount; ++p) {
                patches[p] += static_cast<double>(patchesOf(h)[p]);
            }
            for (int b = 0; b < hour.beamCount; ++b) {
                const BeamPart& beam = sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
                suns[static_cast<std::size_t>(beam.sunCell)] += lengthOf(beam);
            }
            groundLight += static_cast<double>(hour.groundReflected);
        }
        const auto shareOf = [&](double one, double all) {
            return all > 0.0 ? static_cast<float>(one / all) : s == 0 ? 1.0f : 0.0f;
        };
        for (std::size_t p = 0; p < patchCount; ++p) {
            season.patches[p] = shareOf(patches[p], static_cast<double>(patchTotals[p]));
        }
        for (std::size_t j = 0; j < suns.size(); ++j) {
            season.sunCells.push_back(shareOf(suns[j], energy[j]));
        }
        season.ground = shareOf(groundLight, sky.groundReflected);
        if (options.peak && seasons.size() == 1) {
            season.peakHours = PeakHours(sky, cells);
        } else if (options.peak) {
            part.valid = true;
            part.sunCells = sky.sunCells;
            part.beams = sky.beams;
            part.options = sky.options;
            season.peakHours = PeakHours(part, cells);
            season.patchRadiance = std::move(part.patchRadiance); // stays in its place
        }
    }
}

/// A part of the ground's rays, rounded up.
int HourlyPreparation::raysOfGround(int part) const {
    return (std::clamp(options.groundRays, 0, GroundRays::mostRays) + part - 1) / part;
}

} // namespace insolate
