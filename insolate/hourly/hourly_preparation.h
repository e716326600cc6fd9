/// What all sensors of an analysis share: made once, then only read.
#pragma once

#include <insolate/hourly/first_rays.h>
#include <insolate/hourly/ground_rays.h>
#include <insolate/hourly/hourly_analysis.h>
#include <insolate/hourly/light_sources.h>
#include <insolate/hourly/peak_hours.h>
#include <insolate/hourly/sensor_kernels.h>
#include <insolate/hourly/shadow_edges.h>
#include <insolate/hourly/sky_parts.h>

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace insolate {

struct HourlyPreparation {
    HourlyPreparation(HourlySky&& theSky, const std::vector<HourlySky>& theParts,
                      const HourlyAnalysisOptions& theOptions);

    static constexpr std::size_t patchCount = sensorKernels::patchCount;

    HourlySky sky;
    HourlyAnalysisOptions options;
    SkyCells cells;
    std::array<float, skyGrid::altitudeCount> cosines{}; // of the bands' middle altitudes
    FirstRays first;
    std::array<GroundRays, 2> ground; // for surfaces that face it, and that see little of it
    std::optional<EdgeTables> edges;  // where a tolerance is given
    SkyParts parts;
    float openTotal = 0.0f;                      // of open ground [Wh/m2]
    std::array<float, patchCount> patchTotals{}; // the hours' radiance, summed
    /// What falls in a season of the scene's materials, as shares of the period's.
    struct Season {
        std::array<float, patchCount> patches{};
        std::vector<float> sunCells;
        float ground = 0.0f;
        std::vector<float> patchRadiance; // of its hours; the peak's hours point into it
        PeakHours peakHours;
        std::vector<int> hours; // of the year, by PeakHour::skyHour
    };
    std::vector<Season> seasons;
    /// By part and season, where there are several: what falls in the season, as shares of the
    /// part's.
    struct PartSeason {
        std::array<float, patchCount> patches{};
        float ground = 0.0f;
        std::vector<float> sunCells; // of the whole sky
    };
    std::vector<std::vector<PartSeason>> partSeasons;
    std::vector<HourlyAnalysis::PartLight> partLights;

    std::size_t seasonOf(const SkyHour& hour) const { return seasonOfHour(hour, options.seasons); }

    const float* patchesOf(std::size_t skyHour) const {
        return sky.patchRadiance.data() + skyHour * patchCount;
    }

private:
    std::vector<PartSeason> seasonsOf(const HourlySky& part) const;
    void divideAmongSeasons(const HourlySky& part, HourlyAnalysis::PartLight& light) const;
    void prepareSeasons();
    int raysOfGround(int part) const;
};

} // namespace insolate
