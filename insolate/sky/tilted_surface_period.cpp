#include <insolate/sky/tilted_surface_period.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/sky/tilted_surface_period.cpp"
#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include <insolate/geometry/geometry.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/shading/shading_mask.h>
#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/period_walk.h>
#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>
#include <insolate/weather/weather_series.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>

#ifndef INSOLATE_SKY_TILTED_SURFACE_PERIOD_SHARED
#define INSOLATE_SKY_TILTED_SURFACE_PERIOD_SHARED

namespace insolate {

/// What a surface contributes to each part of the model, and its unit normal.
struct SurfaceFactors {
    double isotropic;
    double horizon;
    double ground;
    double x;
    double y;
    double z;
};

/// Steps are evaluated by tiles that stay in the nearest cache.
struct StepTile {
    static constexpr std::size_t capacity = 512;
    float visibility[capacity]; ///< of the sun, by step
    float beam[capacity];       ///< [Wh/m2]
    float diffuse[capacity];    ///< [Wh/m2]
    float total[capacity];      ///< [W/m2]
};

} // namespace insolate

#endif

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Evaluates the steps from first on, a multiple of the lanes.
void evaluateSteps(const PointSteps& steps, const SurfaceFactors& factors, std::size_t first,
                   std::size_t count, StepTile& tile) {
    const hn::CappedTag<double, 8> d;
    const hn::Rebind<float, decltype(d)> d32;
    const auto zero = hn::Zero(d);
    const auto hours = hn::Set(d, static_cast<double>(steps.increment));
    const auto promoted = [&](const float* values) {
        return hn::PromoteTo(d, hn::LoadU(d32, values));
    };
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        const std::size_t at = first + i;
        const auto incidence =
            hn::Add(hn::Add(hn::Mul(promoted(steps.sunX.data() + at), hn::Set(d, factors.x)),
                            hn::Mul(promoted(steps.sunY.data() + at), hn::Set(d, factors.y))),
                    hn::Mul(promoted(steps.sunZ.data() + at), hn::Set(d, factors.z)));
        const auto reach = hn::Mul(hn::Max(incidence, zero), promoted(tile.visibility + i));
        const auto beam = hn::Mul(hn::LoadU(d, steps.beam.data() + at), reach);
        const auto isotropic =
            hn::Mul(hn::LoadU(d, steps.isotropic.data() + at), hn::Set(d, factors.isotropic));
        const auto circumsolar =
            hn::Max(hn::Mul(hn::LoadU(d, steps.circumsolar.data() + at), reach), zero);
        const auto horizon = hn::Max(
            hn::Mul(hn::LoadU(d, steps.horizon.data() + at), hn::Set(d, factors.horizon)), zero);
        const auto ground =
            hn::Mul(hn::LoadU(d, steps.ground.data() + at), hn::Set(d, factors.ground));
        const auto diffuse = hn::Add(hn::Add(hn::Add(isotropic, circumsolar), horizon), ground);
        hn::StoreU(hn::DemoteTo(d32, hn::Mul(beam, hours)), d32, tile.beam + i);
        hn::StoreU(hn::DemoteTo(d32, hn::Mul(diffuse, hours)), d32, tile.diffuse + i);
        hn::StoreU(hn::DemoteTo(d32, hn::Add(diffuse, beam)), d32, tile.total + i);
    }
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {
namespace {

HWY_EXPORT(evaluateSteps);

constexpr std::size_t laneCount = 8;
constexpr XYZf origin{0.0f, 0.0f, 0.0f};

void addStep(PointSteps& steps, const TiltedSurfaceSky& sky, XYZf sun, int cell) {
    if (!sky.sunIsHigh) {
        steps.lowSun.push_back(steps.sky.size());
    }
    steps.sunX.push_back(sun.x);
    steps.sunY.push_back(sun.y);
    steps.sunZ.push_back(sun.z);
    steps.cell.push_back(cell);
    steps.sky.push_back(sky);
    steps.beam.push_back(sky.direct);
    steps.circumsolar.push_back(sky.hasBrightness
                                    ? sky.diffuse / std::max(sky.cosineZenith, lowestCosineZenith) *
                                          sky.circumsolarDegree
                                    : 0.0);
    steps.isotropic.push_back(sky.hasBrightness ? sky.diffuse - sky.circumsolarDegree * sky.diffuse
                                                : 0.0);
    steps.horizon.push_back(sky.hasBrightness ? sky.diffuse * sky.horizonDegree : 0.0);
    steps.ground.push_back(sky.cosineZenith * sky.direct + sky.diffuse);
}

/// One step's parts as the sums take them: [Wh/m2], [Wh/m2], [W/m2].
struct StepSums {
    float beam;
    float diffuse;
    float total;
};

StepSums stepSums(const TiltedSurfaceParts& parts, float increment) {
    return {static_cast<float>(parts.beam * increment),
            static_cast<float>(parts.diffuse() * increment), static_cast<float>(parts.total())};
}

void add(PointSums& sums, const StepSums& step) {
    sums.beam += step.beam;
    sums.diffuse += step.diffuse;
    sums.peak = std::max(sums.peak, step.total);
}

TiltedSurface atStep(TiltedSurface surface, const PointSteps& steps, std::size_t step, XYZf normal,
                     const std::uint8_t* exposure) {
    const XYZf sun{steps.sunX[step], steps.sunY[step], steps.sunZ[step]};
    surface.cosineIncidence =
        std::cos(static_cast<double>(EGeometry::Angle(origin, sun, normal, nullptr)));
    surface.directFactor = static_cast<float>(exposure[steps.cell[step]]) / 255.0f;
    return surface;
}

/// What the steps of a period depend on, compared value by value.
struct StepInputs {
    std::array<EHourlyData, hoursPerYear> hours;
    std::array<float, 7> numbers;
    std::array<int, 3> dates;

    [[nodiscard]] bool matches(const EWeatherData& weather, const ECumulativeSky& sky) const {
        return numbers == numbersOf(sky) && dates == datesOf(sky) &&
               std::memcmp(hours.data(), hoursOf(weather), sizeof(hours)) == 0;
    }
    void take(const EWeatherData& weather, const ECumulativeSky& sky) {
        std::memcpy(hours.data(), hoursOf(weather), sizeof(hours));
        numbers = numbersOf(sky);
        dates = datesOf(sky);
    }

private:
    static const EHourlyData* hoursOf(const EWeatherData& weather) {
        return weather.getHourlyDataAsPointer(0, 0);
    }
    static std::array<float, 7> numbersOf(const ECumulativeSky& sky) {
        return {sky.getStartTime(),  sky.getEndTime(),   sky.getTimeIncrement(),
                sky.getLatitude(),   sky.getLongitude(), sky.getReferenceLongitude(),
                sky.getNorthOffset()};
    }
    static std::array<int, 3> datesOf(const ECumulativeSky& sky) {
        return {sky.getStartDate(), sky.getEndDate(), sky.getDaylightSavingTime() ? 1 : 0};
    }
};

} // namespace

PointSteps makePointSteps(const EWeatherData& weather, const ECumulativeSky& sky) {
    const DaySteps day = dayStepsOf(sky);
    const int endDate = unwrappedEndDate(sky.getStartDate(), sky.getEndDate());
    ESolarPosition sun = sunAtSite(sky);
    PointSteps steps;
    steps.increment = day.increment;
    // The walk of the skies' methods, but with the start left out, the end taken in, and no light
    // from below the horizon.
    for (long long date = sky.getStartDate(); date <= endDate; ++date) {
        const int dayOfYear = dayWithinYear(static_cast<int>(date));
        moveToDay(sun, dayOfYear);
        const auto sunrise = static_cast<float>(sun.getSunriseTime());
        const auto sunset = static_cast<float>(sun.getSunsetTime());
        float previous = day.start;
        for (float time = previous + day.increment; time <= day.end && time > previous;
             previous = time, time += day.increment) {
            const float stepEnd = roundToTenth(time);
            sun.setTime(stepEnd - day.increment * 0.5f);
            const double altitude = sun.getSolarAltitudeInRadians();
            const int sector =
                skyGrid::azimuthSector(static_cast<float>(sun.getSolarAzimuthInRadians()));
            const int band = skyGrid::altitudeBand(static_cast<float>(altitude));
            if (!(altitude >= 0.0) || !skyGrid::isCell(sector, band)) {
                continue;
            }
            const HourlyRadiation radiation =
                hourlyRadiation(weather, dayOfYear - 1, wholeHour(stepEnd), sunrise, sunset);
            XYZf toSun{};
            sun.calculateRelativeSunPos(origin, 1.0f, &toSun);
            addStep(steps,
                    tiltedSurfaceSky(std::max(radiation.direct, 0.0f),
                                     std::max(radiation.diffuse, 0.0f),
                                     std::numbers::pi / 2.0 - altitude),
                    toSun, skyGrid::cellIndex(sector, band));
            steps.hours += day.increment;
        }
    }
    // Steps without light fill the last vector.
    const std::size_t padded = (steps.sky.size() + laneCount - 1) / laneCount * laneCount;
    for (auto* part :
         {&steps.beam, &steps.circumsolar, &steps.isotropic, &steps.horizon, &steps.ground}) {
        part->resize(padded, 0.0);
    }
    for (auto* coordinate : {&steps.sunX, &steps.sunY, &steps.sunZ}) {
        coordinate->resize(padded, 0.0f);
    }
    return steps;
}

const PointSteps& pointSteps(const EWeatherData& weather, const ECumulativeSky& sky) {
    struct Kept {
        StepInputs inputs;
        PointSteps steps;
    };
    thread_local std::unique_ptr<Kept> kept;
    if (kept == nullptr || !kept->inputs.matches(weather, sky)) {
        kept.reset();
        auto fresh = std::make_unique<Kept>();
        fresh->inputs.take(weather, sky);
        fresh->steps = makePointSteps(weather, sky);
        kept = std::move(fresh);
    }
    return kept->steps;
}

PointSums integrateOnSurfacePlain(const PointSteps& steps, const TiltedSurface& surface,
                                  XYZf normal, const EShadingMask& mask) {
    PointSums sums{};
    for (std::size_t step = 0; step < steps.sky.size(); ++step) {
        add(sums, stepSums(irradianceOnSurface(steps.sky[step],
                                               atStep(surface, steps, step, normal,
                                                      ShadingMaskAccess::exposure(mask))),
                           steps.increment));
    }
    sums.hours = steps.hours;
    return sums;
}

PointSums integrateOnSurface(const PointSteps& steps, const TiltedSurface& surface, XYZf normal,
                             const EShadingMask& mask) {
    const std::uint8_t* exposure = ShadingMaskAccess::exposure(mask);
    std::array<float, 256> fractions{};
    for (std::size_t byte = 0; byte < fractions.size(); ++byte) {
        fractions[byte] = static_cast<float>(byte) / 255.0f;
    }
    const double length = std::hypot(static_cast<double>(normal.x), static_cast<double>(normal.y),
                                     static_cast<double>(normal.z));
    const SurfaceFactors factors{surface.skyViewFactor,
                                 surface.sineTilt * surface.horizonFactor,
                                 (1.0 - surface.cosineTilt) * surface.groundReflectance * 0.5,
                                 normal.x / length,
                                 normal.y / length,
                                 normal.z / length};
    applySimdChoice();
    // Tile by tile: visibility of the sun by table, all steps in vector code, then the few low suns
    // again by the plain model, and sums in the order of time.
    PointSums sums{};
    StepTile tile;
    auto lowSun = steps.lowSun.begin();
    for (std::size_t first = 0; first < steps.sky.size(); first += StepTile::capacity) {
        const std::size_t count = std::min(StepTile::capacity, steps.sky.size() - first);
        const std::size_t padded = std::min(StepTile::capacity, steps.beam.size() - first);
        for (std::size_t i = 0; i < count; ++i) {
            tile.visibility[i] = fractions[exposure[steps.cell[first + i]]];
        }
        std::fill(tile.visibility + count, tile.visibility + padded, 0.0f);
        HWY_DYNAMIC_DISPATCH(evaluateSteps)(steps, factors, first, padded, tile);
        for (; lowSun != steps.lowSun.end() && *lowSun < first + count; ++lowSun) {
            const std::size_t at = *lowSun;
            TiltedSurface reached = surface;
            reached.cosineIncidence = steps.sunX[at] * factors.x + steps.sunY[at] * factors.y +
                                      steps.sunZ[at] * factors.z;
            reached.directFactor = tile.visibility[at - first];
            // The model has a jump where the sun passes the surface's plane.
            if (!(std::fabs(reached.cosineIncidence) > 1e-5)) {
                reached = atStep(surface, steps, at, normal, exposure);
            }
            const StepSums step =
                stepSums(irradianceOnSurface(steps.sky[at], reached), steps.increment);
            tile.beam[at - first] = step.beam;
            tile.diffuse[at - first] = step.diffuse;
            tile.total[at - first] = step.total;
        }
        for (std::size_t i = 0; i < count; ++i) {
            add(sums, {tile.beam[i], tile.diffuse[i], tile.total[i]});
        }
    }
    sums.hours = steps.hours;
    return sums;
}

} // namespace insolate

#endif
