/// One year of hourly weather at one site.
///
/// Days are numbered 0 to 364 from 1 January (no 29 February), hours 0 to 23: hour index h holds
/// what the weather file labels hour h + 1, the hour that ends at h + 1 o'clock. The object is a
/// plain record without pointers: its bytes after the signature are a WEA file.
#pragma once

#include <insolate/export.h>
#include <insolate/weather/load_weather_result.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

/// One hour of weather, whole numbers.
struct EHourlyData {
    std::int16_t temp;          ///< dry-bulb temperature [tenths of a degree Celsius]
    std::int16_t humidity;      ///< relative humidity [percent]
    std::int16_t windSpeed;     ///< [tenths of a metre per second]
    std::int16_t windDirection; ///< [degrees]
    std::int16_t diffuseRad;    ///< diffuse horizontal radiation over the hour [Wh/m2]
    std::int16_t directRad;     ///< direct normal radiation over the hour [Wh/m2]
    std::int16_t cloud;         ///< total sky cover [tenths of the sky]
    std::int16_t rain;          ///< rainfall, in the unit of the weather file
};

/// Everything an EWeatherData holds, as a WEA file stores it.
struct EWeaFileFormatData {
    char name[32] = "[NoName]";    ///< city, NUL-terminated
    char state[32] = "[NoWhere]";  ///< state, province or region, NUL-terminated
    EHourlyData hourly[365][24]{}; ///< [day of the year][hour]
    std::uint8_t reserved[1344]{}; ///< carried along, never interpreted
    float longitude = 0.0f; ///< radians after a WEA file, degrees after an EPW file; east positive
    float timeZone = 0.0f;  ///< meridian of the time zone, radians or degrees like longitude
    float latitude = 0.0f;  ///< radians or degrees like longitude; north positive
    float altitude = 0.0f;  ///< elevation [metres]
    std::uint16_t loaded = 0; ///< 1 once a reader has found a site
    std::uint16_t padding = 0;
    std::uint32_t spare = 0; ///< carried along, never interpreted
};

static_assert(sizeof(EHourlyData) == 16);
static_assert(sizeof(EWeaFileFormatData) == 141592);
static_assert(offsetof(EWeaFileFormatData, hourly) == 64);
static_assert(offsetof(EWeaFileFormatData, reserved) == 64 + 365 * 24 * sizeof(EHourlyData));
static_assert(offsetof(EWeaFileFormatData, longitude) == 64 + 141504);
static_assert(offsetof(EWeaFileFormatData, loaded) == 141584);
static_assert(offsetof(EWeaFileFormatData, spare) == 141588);
static_assert(std::is_trivially_copyable_v<EWeaFileFormatData>);

/// Day and hour out of range never fail hard: getters give 0, setters give false and change
/// nothing. Setters truncate toward zero and keep the low 16 bits; nothing is clamped, and a value
/// beyond 32 bits (NaN included) stores 0.
class INSOLATE_EXPORT EWeatherData {
public:
    char* getName() { return data.name; }
    const char* getName() const { return data.name; }
    char* getState() { return data.state; }
    const char* getState() const { return data.state; }

    /// The whole record, for writing a WEA file: the signature "xqt_WEA_ver1.10" with its
    /// terminating zero, then these bytes with longitude, timeZone and latitude in degrees.
    EWeaFileFormatData& getDataForWrite() { return data; }
    const EWeaFileFormatData& getDataForWrite() const { return data; }

    /// The position is taken to be in radians, which holds after a WEA file. An EPW file leaves
    /// degrees in the store: there the "InRadians" getters give degrees, and only getTimeZone gives
    /// hours. The site in radians, after either, is in ESolarPosition::Global.
    float getLatitudeInRadians() const;
    float getLatitudeInDegrees() const;
    float getLongitudeInRadians() const;
    float getLongitudeInDegrees() const;
    float getTimeZone() const; ///< meridian / 15
    float getAltitude() const; ///< [metres]

    bool validDay(int day) const;
    bool validHour(int hour) const;

    /// Null when day or hour is out of range.
    EHourlyData* getHourlyDataAsPointer(int day, int hour);
    const EHourlyData* getHourlyDataAsPointer(int day, int hour) const;
    /// Field 0 to 7 of a record as stored, tenths included; 0 for a null record or another index.
    float getHourlyDataByIndex(const EHourlyData* record, int index) const;

    float getHourlyTemp(int day, int hour) const;        ///< [degrees Celsius]
    float getHourlyHumidity(int day, int hour) const;    ///< [percent]
    float getHourlyWindSpeed(int day, int hour) const;   ///< [m/s]
    int getHourlyWindDirection(int day, int hour) const; ///< [degrees]
    float getHourlyDiffuseRad(int day, int hour) const;  ///< horizontal [Wh/m2]
    float getHourlyDirectRad(int day, int hour) const;   ///< normal [Wh/m2]
    float getHourlyCloud(int day, int hour) const;       ///< [tenths]
    float getHourlyRain(int day, int hour) const;

    bool setHourlyTemp(int day, int hour, float value);
    bool setHourlyHumidity(int day, int hour, float value);
    bool setHourlyWindSpeed(int day, int hour, float value);
    bool setHourlyWindDirection(int day, int hour, int value);
    bool setHourlyDiffuseRad(int day, int hour, float value);
    bool setHourlyDirectRad(int day, int hour, float value);
    bool setHourlyCloud(int day, int hour, float value);
    bool setHourlyRain(int day, int hour, float value);

    // --- Between the hours: time in hours of the day, [0, 24) -----------------------------------

    /// The line through (x0, y0) and (x1, y1) at x; the mean of y0 and y1 when x0 equals x1.
    float interpolate(float x, float x0, float x1, float y0, float y1) const;
    /// A field as stored, from its hour toward the next. Radiation belongs to the middle of its
    /// hour and runs half an hour ahead: past the half hour it extrapolates beyond the next hour's
    /// value, and at a whole hour it is that hour's. After 23:00 the values are those of hour 0 of
    /// this day and of the next. 0 when day or time is out of range.
    float interpolateSubHourlyValues(int day, float time, int field) const;
    /// A field as stored, from its hour at the whole hour toward the previous hour's value as the
    /// fraction grows. 0 when day or time is out of range.
    float interpolatePreSubHourlyValues(int day, float time, int field) const;

    float getSubHourlyTemperature(int day, float time) const; ///< [degrees Celsius]
    float getSubHourlyHumidity(int day, float time) const;    ///< [percent], at most 100
    float getSubHourlyWindSpeed(int day, float time) const;   ///< [m/s]
    int getSubHourlyWindDirection(int day, float time) const; ///< [degrees]
    float getSubHourlyDiffuseRadiation(int day, float time) const;
    float getSubHourlyDirectRadiation(int day, float time) const;
    float getSubHourlyTotalRadiation(int day, float time) const; ///< direct normal + diffuse
    float getSubHourlyCloudiness(int day, float time) const;
    float getSubHourlyRainfall(int day, float time) const;
    float getPreSubHourlyDiffuseRadiation(int day, float time) const;
    float getPreSubHourlyDirectRadiation(int day, float time) const;
    float getPreSubHourlyTotalRadiation(int day, float time) const; ///< direct normal + diffuse

    /// Mean of direct + diffuse radiation at one hour over neighbouring days: with h half the
    /// window (at least 1), days day - h to day + h - 1. Day wraps around the year, hour is held in
    /// 0 to 23.
    float getAveragedRadiation(int day, int hour, int dayWindow) const;

    // --- Files ---------------------------------------------------------------------------------
    // Names are opened as UTF-8; only their first 260 characters are used.

    /// Reads an EnergyPlus weather file over what the store holds: hours that the file does not
    /// give keep their values. Malformed content is no error: text that is not a number reads as 0,
    /// lines without a valid date are skipped, and any file that opens gives true.
    ///
    /// Radiation, temperature, humidity and wind direction are read as their columns say; wind
    /// speed is read as whole m/s and stored unscaled, so its getter gives a tenth of it; cloud
    /// stays 0 for complete lines; rain is not read. Lines of 31 December fall on day 363, those of
    /// 29 February on day 58. A last line without a line feed is not read.
    ///
    /// With updateGlobalLocation >= 1 each LOCATION line moves ESolarPosition::Global to its site.
    bool loadFile_EPW(const std::wstring& fileName, int updateGlobalLocation,
                      ResultLoadWeatherData& result);

    /// Reads a WEA file over what the store holds; a short file leaves the rest as it was. With
    /// updateGlobalLocation > 0 ESolarPosition::Global moves to its site. False, with the reason in
    /// result, when it cannot be opened or is no WEA file.
    bool loadFile_WEA(const std::wstring& fileName, int updateGlobalLocation,
                      ResultLoadWeatherData& result);

private:
    EWeaFileFormatData data;
};

static_assert(sizeof(EWeatherData) == sizeof(EWeaFileFormatData));
static_assert(std::is_trivially_copyable_v<EWeatherData>);
