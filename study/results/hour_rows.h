/// The hours of sensors and of groups.
#pragma once

#include "study/export.h"
#include "study/results/sensor_groups.h"
#include "study/support/period.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include <insolate/insolate.h>

namespace insolate::study {

/// Whose hours are wanted.
struct HoursOf {
    bool all = false;                      ///< of every sensor
    bool groups = false;                   ///< of every group of the groupings
    std::vector<std::size_t> sensors = {}; ///< of these; all and groups are false then
    [[nodiscard]] bool any() const { return all || groups || !sensors.empty(); }
    bool operator==(const HoursOf&) const = default;
};

/// The hours of one sensor, or of a group: means by area [Wh/m2].
struct HourRow {
    std::string name; ///< "17" for a sensor, "object roof" for a group
    SensorHours hours;
};

/// A part of an hour's radiation.
struct HourPart {
    const char* name; ///< in files: "beam"
    const char* text; ///< for people
    std::vector<float> SensorHours::*values;
};

/// All parts, in the order of files; the last one only exists where surfaces reflect.
inline constexpr std::array<HourPart, 4> everyHourPart = {
    {{"beam", "direct sun on the surface", &SensorHours::beam},
     {"sky", "diffuse radiation of the sky on the surface", &SensorHours::sky},
     {"ground", "radiation reflected by the ground on the surface", &SensorHours::ground},
     {"reflected", "radiation reflected by the scene on the surface", &SensorHours::reflected}}};

/// The parts that there are.
inline std::span<const HourPart> hourParts(bool withReflected) {
    return std::span(everyHourPart).first(withReflected ? 4 : 3);
}
inline std::span<const HourPart> hourParts(const SensorHours& hours) {
    return hourParts(!hours.reflected.empty());
}

/// Hours of the year, 0..8,759 and ascending, that touch the period.
INSOLATE_STUDY_EXPORT std::vector<int> hoursOfPeriod(const StudyPeriod& period);

/// Adds up the hours of groups, sensor by sensor.
class INSOLATE_STUDY_EXPORT GroupHours {
public:
    /// Keeps groupings and areas by reference.
    /// @param areas empty: all sensors count alike
    GroupHours(std::span<const SensorGroups> groupings, std::span<const float> areas);

    /// Adds the sensors first, first + 1, ...; each sensor once, in order.
    void add(std::size_t first, std::span<const SensorHours> sensors);
    /// The means, grouping by grouping.
    [[nodiscard]] std::vector<HourRow> rows() const;

private:
    struct Sum {
        double weight = 0.0;
        std::array<std::vector<double>, everyHourPart.size()> parts; ///< empty without any
    };
    std::span<const SensorGroups> m_groupings;
    std::span<const float> m_areas;
    std::vector<std::vector<Sum>> m_sums; ///< by grouping and group
};

} // namespace insolate::study
