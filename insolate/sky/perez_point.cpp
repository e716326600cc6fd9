#include <insolate/sky/perez_point.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/sky/perez_point.cpp"
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

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>

#ifndef INSOLATE_SKY_PEREZ_POINT_SHARED
#define INSOLATE_SKY_PEREZ_POINT_SHARED

namespace insolate {

/// What a surface contributes to each part of the model.
struct SurfaceFactors {
    double isotropic;
    double horizon;
    double ground;
};

} // namespace insolate

#endif

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Beam and diffuse light of each step [W/m2] from its incidence and sun visibility.
void evaluateSteps(const PointSteps& steps, const SurfaceFactors& factors, const double* incidence,
                   const double* visibility, double* beam, double* diffuse) {
    const hn::ScalableTag<double> d;
    const auto zero = hn::Zero(d);
    const auto isotropicFactor = hn::Set(d, factors.isotropic);
    const auto horizonFactor = hn::Set(d, factors.horizon);
    const auto groundFactor = hn::Set(d, factors.ground);
    const std::size_t count = steps.beam.size(); // a multiple of 8, padded
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        const auto reach =
            hn::Mul(hn::Max(hn::LoadU(d, incidence + i), zero), hn::LoadU(d, visibility + i));
        hn::StoreU(hn::Mul(hn::LoadU(d, steps.beam.data() + i), reach), d, beam + i);
        const auto isotropic = hn::Mul(hn::LoadU(d, steps.isotropic.data() + i), isotropicFactor);
        const auto circumsolar =
            hn::Max(hn::Mul(hn::LoadU(d, steps.circumsolar.data() + i), reach), zero);
        const auto horizon =
            hn::Max(hn::Mul(hn::LoadU(d, steps.horizon.data() + i), horizonFactor), zero);
        const auto ground = hn::Mul(hn::LoadU(d, steps.ground.data() + i), groundFactor);
        hn::StoreU(hn::Add(hn::Add(hn::Add(isotropic, circumsolar), horizon), ground), d,
                   diffuse + i);
    }
}

} // namespace
} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {
namespace {

HWY_EXPORT(evaluateSteps);

constexpr double halfPi = 1.5707963267948966;
constexpr double cosine85Degrees = 0.0871557;
constexpr std::size_t laneCount = 8;
constexpr XYZf origin{0.0f, 0.0f, 0.0f};

void addStep(PointSteps& steps, const PerezSkyState& sky, XYZf sun, int cell) {
    if (!sky.sunIsHigh) {
        steps.lowSun.push_back(steps.sky.size());
    }
    steps.sun.push_back(sun);
    steps.cell.push_back(cell);
    steps.sky.push_back(sky);
    steps.beam.push_back(sky.direct);
    steps.circumsolar.push_back(sky.hasBrightness
                                    ? sky.diffuse / std::max(sky.cosineZenith, cosine85Degrees) *
                                          sky.circumsolarDegree
                                    : 0.0);
    steps.isotropic.push_back(sky.hasBrightness ? sky.diffuse - sky.circumsolarDegree * sky.diffuse
                                                : 0.0);
    steps.horizon.push_back(sky.hasBrightness ? sky.diffuse * sky.horizonDegree : 0.0);
    steps.ground.push_back(sky.cosineZenith * sky.direct + sky.diffuse);
}

/// Sums in the order of time.
class Integration {
public:
    void add(double beam, double diffuse, float increment) {
        m_sums.beam += static_cast<float>(beam * increment);
        m_sums.diffuse += static_cast<float>(diffuse * increment);
        m_sums.peak = std::max(m_sums.peak, static_cast<float>(diffuse + beam));
    }
    [[nodiscard]] PointSums finish(float hours) const {
        PointSums sums = m_sums;
        sums.hours = hours;
        return sums;
    }

private:
    PointSums m_sums{};
};

PerezSurface atStep(PerezSurface surface, const PointSteps& steps, std::size_t step, XYZf normal,
                    const std::uint8_t* exposure) {
    surface.cosineIncidence =
        std::cos(static_cast<double>(EGeometry::Angle(origin, steps.sun[step], normal, nullptr)));
    surface.directFactor = static_cast<float>(exposure[steps.cell[step]]) / 255.0f;
    return surface;
}

/// What the steps of a period depend on, compared value by value.
struct StepInputs {
    std::array<EHourlyData, 365 * 24> hours;
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
                    perezSkyState(std::max(radiation.direct, 0.0f),
                                  std::max(radiation.diffuse, 0.0f), halfPi - altitude),
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

PointSums integrateOnSurfacePlain(const PointSteps& steps, const PerezSurface& surface, XYZf normal,
                                  const EShadingMask& mask) {
    Integration sums;
    for (std::size_t step = 0; step < steps.sky.size(); ++step) {
        const PerezParts parts =
            perezOnSurface(steps.sky[step],
                           atStep(surface, steps, step, normal, ShadingMaskAccess::exposure(mask)));
        sums.add(parts.beam, parts.diffuse(), steps.increment);
    }
    return sums.finish(steps.hours);
}

PointSums integrateOnSurface(const PointSteps& steps, const PerezSurface& surface, XYZf normal,
                             const EShadingMask& mask) {
    const std::size_t count = steps.sky.size();
    const std::size_t padded = steps.beam.size();
    thread_local std::vector<double> work;
    work.assign(4 * padded, 0.0);
    double* incidence = work.data();
    double* visibility = incidence + padded;
    double* beam = visibility + padded;
    double* diffuse = beam + padded;

    const std::uint8_t* exposure = ShadingMaskAccess::exposure(mask);
    std::array<double, 256> fractions{};
    for (std::size_t byte = 0; byte < fractions.size(); ++byte) {
        fractions[byte] = static_cast<float>(byte) / 255.0f;
    }
    const double length = std::hypot(static_cast<double>(normal.x), static_cast<double>(normal.y),
                                     static_cast<double>(normal.z));
    const double x = normal.x / length;
    const double y = normal.y / length;
    const double z = normal.z / length;
    for (std::size_t step = 0; step < count; ++step) {
        const XYZf& sun = steps.sun[step];
        incidence[step] = sun.x * x + sun.y * y + sun.z * z;
        visibility[step] = fractions[exposure[steps.cell[step]]];
    }

    const SurfaceFactors factors{surface.skyViewFactor, surface.sineTilt * surface.horizonFactor,
                                 (1.0 - surface.cosineTilt) * surface.groundReflectance * 0.5};
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(evaluateSteps)(steps, factors, incidence, visibility, beam, diffuse);
    for (const std::size_t step : steps.lowSun) {
        const PerezParts parts =
            perezOnSurface(steps.sky[step], atStep(surface, steps, step, normal, exposure));
        beam[step] = parts.beam;
        diffuse[step] = parts.diffuse();
    }
    Integration sums;
    for (std::size_t step = 0; step < count; ++step) {
        sums.add(beam[step], diffuse[step], steps.increment);
    }
    return sums.finish(steps.hours);
}

} // namespace insolate

#endif
