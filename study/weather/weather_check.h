/// What is wrong with a weather file, found before the library reads it: its readers take whatever
/// opens.
#pragma once

#include "study/export.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
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

/// What is wrong in a line of the file, without a mend: "field 15 (...): 'abc' is not a number".
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
    WeatherSite site;
    std::string oddClock;    ///< what oddClockText() says; among the notes too
    StrayDirect strayDirect; ///< nothing where it is not worth telling
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

/// Reads an .epw, .wea or .mra file and says what it holds.
/// @throws DataError when it cannot be a usable weather file whatever the user allows
INSOLATE_STUDY_EXPORT WeatherReport inspectWeatherFile(const std::filesystem::path& file);

/// What is odd about the site's clock: nothing while it is within 3.5 hours of the sun's own time,
/// which no country's is beyond, and the light of the days lies about the sun's noon.
/// @param diffuse horizontal radiation of the year's hours [W/m2], NaN where it is missing
INSOLATE_STUDY_EXPORT std::string oddClockText(const WeatherSite& site,
                                               std::span<const float> diffuse,
                                               const std::filesystem::path& file);

/// Notes in the report the direct radiation that neither global nor diffuse radiation goes with.
/// @param global NaN where it is missing or unknown
INSOLATE_STUDY_EXPORT void noteStrayDirect(WeatherReport& report, std::span<const float> direct,
                                           std::span<const float> diffuse,
                                           std::span<const float> global,
                                           const std::filesystem::path& file);

/// "21 June, 12:00 to 13:00".
INSOLATE_STUDY_EXPORT std::string hourOfYearText(const HourOfYear& hour);

/// @throws DataError when the year has gaps or repeated hours and they are not allowed
INSOLATE_STUDY_EXPORT void requireCompleteYear(const WeatherReport& report,
                                               const std::filesystem::path& file, bool allowGaps);

} // namespace insolate::study
