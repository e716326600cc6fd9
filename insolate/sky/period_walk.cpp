#include <insolate/sky/period_walk.h>

#include <insolate/weather/weather_data.h>

#include <cmath>
#include <limits>

namespace insolate {
namespace {

/// Whether every time of the range moves on by the increment. Numbers lie the farther apart the
/// larger they are, and a tie rounds to the even one, so the last two times before the end decide.
bool clockAdvances(const DaySteps& steps) {
    const float last = std::nextafter(steps.end, steps.start);
    const float lastButOne = std::nextafter(last, steps.start);
    return last + steps.increment > last && lastButOne + steps.increment > lastButOne;
}

} // namespace

DaySteps dayStepsOf(const ECumulativeSky& sky) {
    DaySteps steps{sky.getStartTime(), sky.getEndTime(), sky.getTimeIncrement()};
    if (steps.end >= steps.start) {
        const float duration = steps.end - steps.start;
        if (sky.getStartDate() == sky.getEndDate() && duration < 0.01f) {
            steps.increment = 1.0f;
            steps.end = steps.start + 0.01f;
        } else if (duration < 1.0f) {
            steps.increment = 0.016666668f;
        }
    }
    if (steps.start < steps.end && !clockAdvances(steps)) {
        steps.end = std::nextafter(steps.start, steps.end);
    }
    return steps;
}

int unwrappedEndDate(int startDate, int endDate) {
    long long end = endDate;
    if (startDate > end) {
        const long long years = (static_cast<long long>(startDate) - end + 364) / 365;
        end += years * 365;
    }
    return end <= std::numeric_limits<int>::max() ? static_cast<int>(end) : startDate;
}

ESolarPosition sunAtSite(const ECumulativeSky& sky) {
    ESolarPosition sun;
    sun.setLocation(&ESolarPosition::Global);
    sun.setLocation(ESolarPosition::convertDegreesToRadians(sky.getLatitude()),
                    ESolarPosition::convertDegreesToRadians(sky.getLongitude()),
                    ESolarPosition::convertDegreesToRadians(sky.getReferenceLongitude()));
    sun.northOffset = sky.getNorthOffset();
    sun.daylightSaving = sky.getDaylightSavingTime() ? 1 : 0;
    return sun;
}

void moveToDay(ESolarPosition& sun, int day) {
    sun.localTime = 12.0;
    sun.setDayOfTheYear(day);
}

SkyCell cellOfSun(const ESolarPosition& sun) {
    return {skyGrid::azimuthSector(
                static_cast<float>(sun.convertTrigAngleToAzimuth(sun.getTrigAngleInRadians()))),
            skyGrid::altitudeBand(static_cast<float>(sun.getSolarAltitudeInRadians()))};
}

HourlyRadiation hourlyRadiation(const EWeatherData& weather, int day, int hour, float sunrise,
                                float sunset) {
    HourlyRadiation values{weather.getHourlyDirectRad(day, hour + 1),
                           weather.getHourlyDiffuseRad(day, hour + 1)};
    float divisor = 0.0f;
    if (wholeHour(sunrise) + 1 == hour) {
        divisor = static_cast<float>(hour + 1) - sunrise;
    } else if (wholeHour(sunset) == hour) {
        divisor = sunset - static_cast<float>(hour);
    }
    if (divisor != 0.0f) {
        values.direct /= divisor;
        values.diffuse /= divisor;
    }
    return values;
}

int wholeHour(float time) {
    const float hour = std::floor(time);
    return hour >= -1.0e6f && hour <= 1.0e6f ? static_cast<int>(hour) : 1000000;
}

float roundToTenth(float time) {
    return std::floor(time * 10.0f + 0.5f) / 10.0f;
}

} // namespace insolate
