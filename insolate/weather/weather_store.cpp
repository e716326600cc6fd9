#include <insolate/weather/number_text.h>
#include <insolate/weather/weather_data.h>

using insolate::toField;

namespace {

constexpr int dayCount = 365;
constexpr int hourCount = 24;
constexpr float pi = 3.1415927f;

// The fields in the order of their index.
constexpr std::int16_t EHourlyData::*fields[] = {
    &EHourlyData::temp,          &EHourlyData::humidity,   &EHourlyData::windSpeed,
    &EHourlyData::windDirection, &EHourlyData::diffuseRad, &EHourlyData::directRad,
    &EHourlyData::cloud,         &EHourlyData::rain};

int valueOf(const EHourlyData* record, std::int16_t EHourlyData::*field) {
    return record != nullptr ? record->*field : 0;
}

bool store(EHourlyData* record, std::int16_t EHourlyData::*field, std::int16_t value) {
    if (record == nullptr) {
        return false;
    }
    record->*field = value;
    return true;
}

} // namespace

float EWeatherData::getLatitudeInRadians() const {
    return data.latitude;
}

float EWeatherData::getLatitudeInDegrees() const {
    return data.latitude / pi * 180.0f;
}

float EWeatherData::getLongitudeInRadians() const {
    return data.longitude;
}

float EWeatherData::getLongitudeInDegrees() const {
    return data.longitude / pi * 180.0f;
}

float EWeatherData::getTimeZone() const {
    return data.timeZone / 15.0f;
}

float EWeatherData::getAltitude() const {
    return data.altitude;
}

bool EWeatherData::validDay(int day) const {
    return day >= 0 && day < dayCount;
}

bool EWeatherData::validHour(int hour) const {
    return hour >= 0 && hour < hourCount;
}

EHourlyData* EWeatherData::getHourlyDataAsPointer(int day, int hour) {
    return validDay(day) && validHour(hour) ? &data.hourly[day][hour] : nullptr;
}

const EHourlyData* EWeatherData::getHourlyDataAsPointer(int day, int hour) const {
    return validDay(day) && validHour(hour) ? &data.hourly[day][hour] : nullptr;
}

float EWeatherData::getHourlyDataByIndex(const EHourlyData* record, int index) const {
    return index >= 0 && index < 8 ? static_cast<float>(valueOf(record, fields[index])) : 0.0f;
}

float EWeatherData::getHourlyTemp(int day, int hour) const {
    return static_cast<float>(valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::temp)) /
           10.0f;
}

float EWeatherData::getHourlyHumidity(int day, int hour) const {
    return static_cast<float>(valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::humidity));
}

float EWeatherData::getHourlyWindSpeed(int day, int hour) const {
    return static_cast<float>(valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::windSpeed)) /
           10.0f;
}

int EWeatherData::getHourlyWindDirection(int day, int hour) const {
    return valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::windDirection);
}

float EWeatherData::getHourlyDiffuseRad(int day, int hour) const {
    return static_cast<float>(valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::diffuseRad));
}

float EWeatherData::getHourlyDirectRad(int day, int hour) const {
    return static_cast<float>(valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::directRad));
}

float EWeatherData::getHourlyCloud(int day, int hour) const {
    return static_cast<float>(valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::cloud));
}

float EWeatherData::getHourlyRain(int day, int hour) const {
    return static_cast<float>(valueOf(getHourlyDataAsPointer(day, hour), &EHourlyData::rain));
}

bool EWeatherData::setHourlyTemp(int day, int hour, float value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::temp, toField(value * 10.0f));
}

bool EWeatherData::setHourlyHumidity(int day, int hour, float value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::humidity, toField(value));
}

bool EWeatherData::setHourlyWindSpeed(int day, int hour, float value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::windSpeed,
                 toField(value * 10.0f));
}

bool EWeatherData::setHourlyWindDirection(int day, int hour, int value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::windDirection, toField(value));
}

bool EWeatherData::setHourlyDiffuseRad(int day, int hour, float value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::diffuseRad, toField(value));
}

bool EWeatherData::setHourlyDirectRad(int day, int hour, float value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::directRad, toField(value));
}

bool EWeatherData::setHourlyCloud(int day, int hour, float value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::cloud, toField(value));
}

bool EWeatherData::setHourlyRain(int day, int hour, float value) {
    return store(getHourlyDataAsPointer(day, hour), &EHourlyData::rain, toField(value));
}
