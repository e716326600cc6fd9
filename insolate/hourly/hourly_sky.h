/// The sky of an analysis period, hour by hour: how much radiation came from where.
///
/// Every hour of the weather is walked in sub-steps. The sub-steps with the sun up share the hour's
/// direct and diffuse radiation, so that the hour's sums are kept, in the hours of sunrise and
/// sunset too. Direct radiation is summed as vectors (energy times sun direction) in the 5 degree
/// cells that hold the sun; diffuse radiation follows the all-weather sky of Perez, Seals and
/// Michalsky (1993), integrated over each cell and scaled to the hour's diffuse horizontal.
///
/// Directions are in model coordinates: x east, y north, z up at north offset 0; a compass azimuth
/// A points to (sin(A + offset), cos(A + offset)). Cells are those of skyGrid, by compass azimuth.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/weather/weather_series.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace insolate {

/// Days and daily hours of an analysis, in the site's standard time but for the days of summer
/// time. Values out of range are held to it.
struct AnalysisPeriod {
    int firstDay = 1;       ///< day of the year, 1..365
    int lastDay = 365;      ///< the same, included; before firstDay the period runs over new year
    double startHour = 0.0; ///< clock time from 0 to 24 [hours]
    /// The same, excluded; before startHour the hours run over midnight. Equal to it: the one clock
    /// hour in which both lie.
    double endHour = 24.0;
    /// Days of the year on which the hours are those of a clock that runs one ahead of standard
    /// time; each keeps the 24 hours of its date. 0: none.
    int firstSummerDay = 0;
    int lastSummerDay = 0; ///< included; before firstSummerDay they run over new year
};

struct HourlySkyOptions {
    int stepsPerHour = 10; ///< sub-steps of an hour, 1..60; 10 are 6 minutes
    /// Turns the compass in the model [radians, clockwise]; what is no finite number counts as 0.
    double northOffset = 0.0;
    double albedo = 0.2; ///< ground reflectance 0..1
    /// Takes the weather's monthly albedo where it has one; albedo holds for the other months.
    bool monthlyAlbedo = false;
    /// Direct normal radiation from which a step counts as direct sun [W/m2]: 0 counts all the time
    /// the sun is up, 120 the sunshine duration of WMO (2018), Guide No. 8, chapter 8.
    double sunshineThreshold = 0.0;
    /// Year of the sun's course, 1950..2050; 0 takes each hour's own year where the weather knows
    /// it and 2001 elsewhere.
    int year = 0;
};

/// A cell that held the sun during the period.
struct SunCell {
    int cell = 0;            ///< skyGrid::cellIndex
    XYZf direction{0, 0, 1}; ///< towards the sun, unit, weighted with energy (with time where none)
    XYZf energy{0, 0, 0};    ///< sum of direct normal radiation times sun direction [Wh/m2]
    float directNormal = 0;  ///< its plain sum [Wh/m2]
    float sunHours = 0;      ///< time with direct sun [hours], see sunshineThreshold
    int firstStep = 0;       ///< the cell's part of HourlySky::sunSteps
    int stepCount = 0;
};

/// A sub-step with the sun up, with or without direct radiation: what is finer than the cells.
struct SunStep {
    std::uint32_t place = 0; ///< in the cell: 6 bits of azimuth and of altitude, interleaved
    XYZf energy{0, 0, 0};    ///< direct normal radiation times sun direction [Wh/m2]
    float sunHours = 0;
};

/// The direct radiation of an hour that came from one cell.
struct BeamPart {
    int sunCell = 0;      ///< index into HourlySky::sunCells
    XYZf energy{0, 0, 0}; ///< direct normal radiation times sun direction [Wh/m2]
};

/// An hour with radiation that lies in the period, wholly or in part.
struct SkyHour {
    int hour = 0;              ///< hour of the year 0..8,759; it ends at hour + 1
    float share = 1;           ///< part of the hour within the period, 0..1
    float diffuse = 0;         ///< diffuse horizontal that was placed [Wh/m2]
    float groundReflected = 0; ///< albedo times global horizontal [Wh/m2]
    int firstBeam = 0;         ///< the hour's part of HourlySky::beams
    int beamCount = 0;
};

/// What was placed where; sums over the period [Wh/m2].
struct HourlySkyReport {
    double directNormal = 0.0;      ///< direct normal radiation placed
    double directHorizontal = 0.0;  ///< the same times the sine of the sun's altitude
    double diffuseHorizontal = 0.0; ///< diffuse radiation placed, radiation at night included
    double globalHorizontal = 0.0;  ///< the weather's own global horizontal
    /// Direct normal radiation recorded in hours without sun: it has no direction. What it adds to
    /// the hour's global horizontal over its diffuse is placed on a uniform sky.
    double directWithoutSun = 0.0;
    double diffuseWithoutSun = 0.0; ///< placed on a uniform sky, with that part of the direct
    int hoursWithoutSun = 0;        ///< hours with radiation and no sun
    int hoursMissing = 0; ///< hours whose direct or diffuse is missing; that value counts as 0
    int skiesLimited = 0; ///< hours in which the sky model was held to its range
};

/// A finished sky; plain data, made by buildHourlySky().
struct HourlySky {
    bool valid = false; ///< false when the weather's series do not hold 8,760 values each
    Site site;
    AnalysisPeriod period;
    HourlySkyOptions options;
    HourlySkyReport report;
    double hours = 0.0;           ///< of the period
    double daylightHours = 0.0;   ///< with the sun above the horizon
    double groundReflected = 0.0; ///< albedo times global horizontal, summed [Wh/m2]

    /// Diffuse radiance of each cell, summed [Wh/(m2 sr)]; 1,296 values.
    std::vector<float> diffuse;
    std::vector<SunCell> sunCells; ///< in the order of their cell index
    std::vector<SunStep> sunSteps; ///< by cell, then by place
    std::vector<SkyHour> skyHours; ///< in the order of the year, or of the period when it wraps
    std::vector<BeamPart> beams;
    /// Diffuse radiance of each hour on the skyPatches [Wh/(m2 sr)], skyPatches::count for each of
    /// skyHours.
    std::vector<float> patchRadiance;
};

/// Who builds a sky: the calling thread alone, or all threads of the oneTBB arena that it is in.
enum class SkyThreads { calling, all };

/// The sky of a period. Needs no more than the weather; may run on several threads at once.
/// @param threads change the time that it takes, and no byte
INSOLATE_EXPORT HourlySky buildHourlySky(const WeatherSeries& weather,
                                         const AnalysisPeriod& period = {},
                                         const HourlySkyOptions& options = {},
                                         SkyThreads threads = SkyThreads::calling);

/// Cells in groups of about ten degrees, for what is computed hour by hour.
namespace skyPatches {
inline constexpr int count = 240; ///< the last ones are empty: a multiple of vector lengths
/// Patches stand in rows of two bands; their widths in sectors, row 0 at the horizon.
constexpr std::size_t sectorsWide(std::size_t row) {
    return row < 5 ? 2 : row < 7 ? 4 : row < 8 ? 6 : 12;
}
/// The patch of a cell (skyGrid::cellIndex); they are numbered row by row, along the azimuth.
INSOLATE_EXPORT int ofCell(int cell);
} // namespace skyPatches

/// The geometry of the cells in model coordinates; 1,296 values each.
struct SkyCells {
    /// northOffset as in HourlySkyOptions.
    explicit INSOLATE_EXPORT SkyCells(double northOffset);
    std::vector<XYZf> centre; ///< direction of the middle in azimuth and altitude, unit
    /// Integral of the direction over the cell's solid angle, exact [sr]: its product with a normal
    /// is the cell's projected solid angle on that surface, its z the one on the horizontal.
    std::vector<float> momentX, momentY, momentZ;
    std::vector<float> solidAngle; ///< [sr]
};

} // namespace insolate
