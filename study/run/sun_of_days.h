/// The sun's course on the days of a study, and the spans in which it shines on a sensor.
#pragma once

#include "study/model/recentring.h"
#include "study/run/sun_hours_study.h"

#include <cstddef>
#include <string>
#include <vector>

#include <insolate/insolate.h>

namespace insolate::study {

struct SunOfDay {
    int dayOfYear = 1;
    int month = 1;
    int day = 1;
    SunPath path;
    std::vector<TimeSpan> possible; ///< when the rule's sun stands in the sky
};

/// The study's scene and all its days, ready for the sensors.
class SunOfDays {
public:
    explicit SunOfDays(const SunHoursStudy& study);

    [[nodiscard]] const std::vector<SunOfDay>& days() const { return m_days; }
    /// From the model to the scene of the index.
    [[nodiscard]] const Recentring& recentring() const { return m_recentring; }
    [[nodiscard]] const SunlightIndex& index() const { return m_index; }
    [[nodiscard]] double leastPlanAngle() const { return m_leastPlanAngle; }

private:
    Recentring m_recentring;
    SunlightIndex m_index;
    double m_leastPlanAngle; ///< radians
    std::vector<SunOfDay> m_days;
};

/// One sensor after the other; one object for each thread.
class SunOfSensor {
public:
    SunOfSensor(const SunOfDays& sun, const SensorField& field) : m_sun(sun), m_field(field) {}

    void moveTo(std::size_t sensor);
    /// Spans of sun on a day, in minutes of the clock; until the next call.
    const std::vector<TimeSpan>& litOn(std::size_t day);

private:
    const SunOfDays& m_sun;
    const SensorField& m_field;
    Direction m_origin{};
    std::vector<Direction> m_facings;
    SunlightIndex::Workspace m_workspace;
    std::vector<TimeSpan> m_lit;
};

/// "UTC+1", "UTC-3.5".
std::string utcText(double timeZone);

} // namespace insolate::study
