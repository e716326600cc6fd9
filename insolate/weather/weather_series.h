/// A year of hourly weather as plain series, and its reading from EPW files.
///
/// Record k of the series (0..8,759) covers the clock hour that ends k + 1 hours after the start of
/// 1 January, in the site's standard time: value k of a day is the mean over the hour from k to
/// k + 1. A year has 365 days; 29 February is left out. A value that the file marks as missing, or
/// that could not be read, is a NaN, and a finding says so.
#pragma once

#include <insolate/export.h>
#include <insolate/solar/sun_position.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace insolate {

inline constexpr int hoursPerYear = 8760;

struct WeatherSeries {
    std::string place; ///< the site's name as the file gives it
    Site site;
    /// How much later than the middle of its hour the sun stood as in a record [h], -0.5..0.5: 0
    /// for means over the hour. Records taken at an instant stand for the hour around it; the
    /// series keeps them in the hour that holds their label, and the sun is placed this much later.
    double sampleOffset = 0.0;
    std::vector<float> dryBulb;           ///< [degrees C], 8,760 values as all series here
    std::vector<float> dewPoint;          ///< [degrees C]
    std::vector<float> pressure;          ///< at the station [Pa]
    std::vector<float> globalHorizontal;  ///< hourly mean [W/m2], that is the hour's sum in Wh/m2
    std::vector<float> directNormal;      ///< the same
    std::vector<float> diffuseHorizontal; ///< the same
    /// The calendar year each hour was recorded in; empty when unknown. Typical years are composed
    /// of months of different years.
    std::vector<std::int16_t> year;
    /// Mean ground reflectance of each month, weighted with the global radiation, from the records'
    /// albedo field; NaN for a month without a usable value (0 < albedo <= 1).
    std::array<float, 12> monthlyAlbedo{};
};

enum class WeatherFindingKind {
    // These leave no series.
    CannotOpen,
    TooLarge,
    NotEpw,      ///< no LOCATION line, or no data line at all
    BadLocation, ///< latitude, longitude, zone or elevation missing or out of range
    UnevenSteps, ///< records an hour that are not 1, 2, 3, 4, 5, 6, 10, 12, 15, 20, 30 or 60
    WrongLength, ///< an array given by the caller does not hold 8,760 values
    // These leave a series with some hours changed or empty.
    BadLine,          ///< a data line too short, or with an impossible date or hour: left out
    BadNumber,        ///< text where a number belongs: the value is NaN
    MissingValue,     ///< the format's mark for a missing value, 9,999 or more: the value is NaN
    NegativeValue,    ///< radiation below zero: taken as zero
    ImplausibleValue, ///< radiation above 2,000 W/m2: kept
    DuplicateHour,    ///< a further record for the same hour: the last one holds
    Gap,              ///< hours without a record: NaN
    OutOfOrder,       ///< records that go back in time: put in their place
    // These are for information.
    LeapDayLeftOut,
    Averaged, ///< several records an hour, averaged
    SecondLocation
};

struct WeatherFinding {
    WeatherFindingKind kind{};
    /// Of the first occurrence, counted from 1; 0 where there is no line. For a gap the line
    /// before.
    int line = 0;
    int count = 0;    ///< occurrences
    std::string text; ///< complete sentence with the file's name, the line and the fix
    int column = 0;   ///< of the value in the line, counted from 1; 0 where a line as such is meant
    std::string what = {}; ///< what the text says between place and fix, the file's words quoted
};

/// What a reading gives. Findings of the same kind and field are counted together.
struct WeatherReading {
    bool ok = false;      ///< whether series holds a year; false only with a finding that says why
    WeatherSeries series; ///< complete when ok
    std::vector<WeatherFinding> findings;
    /// Hours for which global, direct or diffuse radiation is missing. The sky counts them as dark.
    int hoursWithoutRadiation = 0;
};

/// Reads an EPW file. Never throws for what the file holds.
INSOLATE_EXPORT WeatherReading readWeatherSeries(const std::filesystem::path& epwFile);

/// Reads an EPW file's text; name stands for the file in the findings.
INSOLATE_EXPORT WeatherReading parseWeatherSeries(std::string_view epwText, std::string_view name);

/// A series from plain hourly arrays of 8,760 values each [W/m2]. globalHorizontal may be empty: it
/// is then unknown, and the sky closes it from the other two. What is no finite number is missing,
/// and so is, with a finding, what no field of an EPW file could hold: 9,999 W/m2 and more.
INSOLATE_EXPORT WeatherReading makeWeatherSeries(const Site& site,
                                                 std::span<const float> directNormal,
                                                 std::span<const float> diffuseHorizontal,
                                                 std::span<const float> globalHorizontal = {});

/// Mean reflectance of each month, weighted with the global radiation, from a year's hours; NaN for
/// a month without a usable value (0 < albedo <= 1).
INSOLATE_EXPORT std::array<float, 12> monthlyAlbedoOf(std::span<const double> albedo,
                                                      std::span<const float> globalHorizontal);

/// Calendar of a year of 365 days: month 1..12 and day 1..31 of a day index 0..364 (held to range).
struct MonthAndDay {
    int month = 1;
    int day = 1;
};
INSOLATE_EXPORT MonthAndDay monthAndDay(int dayIndex);

/// Day index 0..364 of a date, -1 for a date that a year of 365 days does not have.
INSOLATE_EXPORT int dayIndex(int month, int day);

} // namespace insolate
