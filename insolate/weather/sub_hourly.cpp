#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <cmath>

namespace {

// Places of the fields in a record.
enum Field {
    temperature,
    humidity,
    windSpeed,
    windDirection,
    diffuseRadiation,
    directRadiation,
    cloudiness,
    rainfall
};

// Times down to -1 excluded are within the first hour, by truncation; NaN is out of range.
bool isTimeOfDay(float time) {
    return time > -1.0f && time < 24.0f;
}

} // namespace

float EWeatherData::interpolate(float x, float x0, float x1, float y0, float y1) const {
    if (x1 == x0) {
        return (y0 + y1) * 0.5f;
    }
    return (x - x0) / (x1 - x0) * (y1 - y0) + y0;
}

float EWeatherData::interpolateSubHourlyValues(int day, float time, int field) const {
    if (!validDay(day) || !isTimeOfDay(time)) {
        return 0.0f;
    }
    int nextDay = day;
    if (time > 23.0f) {
        nextDay = day + 1;
        time = 0.0f;
    }
    if (!validDay(nextDay)) {
        nextDay = 0;
    }
    const int nextHour = static_cast<int>(std::ceil(time)) % 24;
    const float next = getHourlyDataByIndex(getHourlyDataAsPointer(nextDay, nextHour), field);
    const float current =
        getHourlyDataByIndex(getHourlyDataAsPointer(day, static_cast<int>(time)), field);
    const float offset = field == diffuseRadiation || field == directRadiation ? 0.5f : 0.0f;
    const float low = std::floor(time) - offset;
    const float high = std::floor(time) + 1.0f - offset;
    return interpolate(time, low, high, current, next);
}

float EWeatherData::interpolatePreSubHourlyValues(int day, float time, int field) const {
    if (!validDay(day) || !isTimeOfDay(time)) {
        return 0.0f;
    }
    int previousDay = day;
    if (time <= 0.0f) {
        time = 23.0f;
        previousDay = day > 0 ? day - 1 : 364;
    }
    const float wholeHour = std::floor(time);
    const int hour = static_cast<int>(wholeHour);
    const int previousHour = hour > 0 ? hour - 1 : 23;
    const float previous =
        getHourlyDataByIndex(getHourlyDataAsPointer(previousDay, previousHour), field);
    const float current = getHourlyDataByIndex(getHourlyDataAsPointer(day, hour), field);
    return interpolate(time, wholeHour, wholeHour + 1.0f, current, previous);
}

float EWeatherData::getSubHourlyTemperature(int day, float time) const {
    return interpolateSubHourlyValues(day, time, temperature) / 10.0f;
}

float EWeatherData::getSubHourlyHumidity(int day, float time) const {
    return std::min(interpolateSubHourlyValues(day, time, humidity), 100.0f);
}

float EWeatherData::getSubHourlyWindSpeed(int day, float time) const {
    return interpolateSubHourlyValues(day, time, windSpeed) / 10.0f;
}

int EWeatherData::getSubHourlyWindDirection(int day, float time) const {
    return static_cast<int>(interpolateSubHourlyValues(day, time, windDirection));
}

float EWeatherData::getSubHourlyDiffuseRadiation(int day, float time) const {
    return interpolateSubHourlyValues(day, time, diffuseRadiation);
}

float EWeatherData::getSubHourlyDirectRadiation(int day, float time) const {
    return interpolateSubHourlyValues(day, time, directRadiation);
}

float EWeatherData::getSubHourlyTotalRadiation(int day, float time) const {
    return getSubHourlyDirectRadiation(day, time) + getSubHourlyDiffuseRadiation(day, time);
}

float EWeatherData::getSubHourlyCloudiness(int day, float time) const {
    return interpolateSubHourlyValues(day, time, cloudiness);
}

float EWeatherData::getSubHourlyRainfall(int day, float time) const {
    return interpolateSubHourlyValues(day, time, rainfall);
}

float EWeatherData::getPreSubHourlyDiffuseRadiation(int day, float time) const {
    return interpolatePreSubHourlyValues(day, time, diffuseRadiation);
}

float EWeatherData::getPreSubHourlyDirectRadiation(int day, float time) const {
    return interpolatePreSubHourlyValues(day, time, directRadiation);
}

float EWeatherData::getPreSubHourlyTotalRadiation(int day, float time) const {
    return getPreSubHourlyDirectRadiation(day, time) + getPreSubHourlyDiffuseRadiation(day, time);
}

float EWeatherData::getAveragedRadiation(int day, int hour, int dayWindow) const {
    constexpr int days = 365;
    const int half = dayWindow < 2 ? 1 : dayWindow / 2;
    day = (day % days + days) % days;
    hour = std::clamp(hour, 0, 23);
    float sum = 0.0f;
    float count = 0.0f;
    for (int neighbour = day - half; neighbour < day + half; ++neighbour) {
        // One year's correction: of a window wider than the year, what lies further out adds
        // nothing but still counts.
        const int index = neighbour < 0       ? neighbour + days
                          : neighbour >= days ? neighbour - days
                                              : neighbour;
        if (const EHourlyData* record = getHourlyDataAsPointer(index, hour)) {
            sum += static_cast<float>(record->directRad + record->diffuseRad);
        }
        count += 1.0f;
    }
    return count > 0.5f ? sum / count : sum;
}
