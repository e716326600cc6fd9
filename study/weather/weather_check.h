/// What is known of a weather file beside its hours: site, gaps, what is odd about it.
#pragma once

#include "study/export.h"
#include "study/weather/weather_input.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace insolate::study {

struct INSOLATE_STUDY_EXPORT WeatherSite {
    std::string city;
    std::string region;
    std::string country;
    double latitude = 0.0;  ///< degrees, north positive
    double longitude = 0.0; ///< degrees, east positive
    double timeZone = 0.0;  ///< hours from UTC
    double elevation = 0.0; ///< metres

    /// "Chicago, IL, USA".
    [[nodiscard]] std::string text() const;
};

/// An hour of the year: day index 0..364, hour index 0..23.
using HourOfYear = std::pair<int, int>;

/// What is wrong in a line of the file, without the fix: "field 15 (...): 'abc' is not a number".
struct LineFault {
    std::size_t line = 0; ///< 0: there is none
    std::string what;
};

/// Hours with direct normal radiation in which the level ground gets none at all.
struct StrayDirect {
    std::size_t hours = 0;
    double sum = 0.0; ///< [Wh/m2]
};

struct INSOLATE_STUDY_EXPORT WeatherReport {
    const WeatherFormat* format = &hostSamples;
    WeatherSite site;
    std::string oddClock;    ///< what noteOddities() finds of the clock; among the notes too
    StrayDirect strayDirect; ///< nothing where it is not worth a note
    std::size_t hoursPresent = 0;
    std::vector<HourOfYear> hoursMissing;
    std::size_t lineBeforeMissing = 0; ///< after which the first missing hour belongs; 0: unknown
    LineFault unreadableLine;          ///< the first data line that was left out
    std::size_t hoursRepeated = 0;     ///< data lines for an hour that an earlier line has given
    std::size_t firstRepeatedLine = 0; ///< 0 when there is none
    /// Hours whose direct or diffuse radiation carries the mark for missing.
    std::vector<HourOfYear> radiationMissing;
    std::size_t firstRadiationMissingLine = 0;
    LineFault unreadableRadiation; ///< the first text in the place of a radiation value
    /// The year ends on 30 December: 31 December, with light on the day before, has none.
    bool lastDayEmpty = false;
    std::vector<std::string> notes; ///< what a user should know, a sentence each
    std::vector<std::string> facts; ///< how the file was understood; for who looks into it

    /// Whether the file has lines for 31 December.
    [[nodiscard]] bool hasLastDay() const {
        return std::none_of(hoursMissing.begin(), hoursMissing.end(),
                            [](const HourOfYear& hour) { return hour.first == 364; });
    }
    /// Hours that the file leaves open in one way or the other.
    [[nodiscard]] std::size_t gapCount() const {
        return hoursMissing.size() + radiationMissing.size();
    }
};

/// The hours' radiation as the file gives it, 8,760 values each [W/m2], NaN where it is missing or
/// unknown; sampleOffset as in WeatherSeries.
struct HourlyRadiation {
    std::span<const float> direct, diffuse, global;
    double sampleOffset = 0.0;
};

/// How much later than the sun's noon the middle of the days' light lies on the median day [h];
/// nothing where fewer than 30 days show it. It is the light's ends that count, which clouds do not
/// move. They are known to the hour: sound years are up to 0.55 h off where their records stand at
/// the wrong end of half an hour, 0.16 h elsewhere.
INSOLATE_STUDY_EXPORT std::optional<double> latenessOfLight(const WeatherSite& site,
                                                            const HourlyRadiation& hours);

/// Notes in the report what is odd about the site's clock and about the direct radiation. The clock
/// is sound while it is within 3.5 hours of the sun's own time, which no country's is beyond, and
/// the light of the days lies about the sun's noon. Direct radiation is stray where neither global
/// nor diffuse radiation goes with it.
INSOLATE_STUDY_EXPORT void noteOddities(WeatherReport& report, const HourlyRadiation& hours,
                                        const std::filesystem::path& file);

/// "21 June, 12:00 to 13:00".
INSOLATE_STUDY_EXPORT std::string hourOfYearText(const HourOfYear& hour);

/// @throws DataError when the year has gaps or repeated hours and they are not allowed
INSOLATE_STUDY_EXPORT void requireCompleteYear(const WeatherReport& report,
                                               const std::filesystem::path& file, bool allowGaps);

} // namespace insolate::study
