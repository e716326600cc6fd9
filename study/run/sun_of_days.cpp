#include "study/run/sun_of_days.h"
#include "study/support/numbers.h"

#include <cmath>

#include <fmt/format.h>

namespace insolate::study {

namespace {

SkyAxes axesOf(const SunHoursStudy& study) {
    return {study.site.site.latitude, study.options.model.north * radiansPerDegree};
}

} // namespace

SunOfDays::SunOfDays(const SunHoursStudy& study)
    : m_recentring(study.inputs.scene, study.inputs.field),
      m_index(m_recentring.coordinates(study.inputs.scene), axesOf(study)),
      m_leastPlanAngle(study.rule.leastPlanAngle * radiansPerDegree) {
    const Site& site = study.site.site;
    const int year = study.options.year;
    for (const int dayOfYear : study.rule.days) {
        const MonthAndDay date = monthAndDay(dayOfYear - 1);
        SunOfDay& day = m_days.emplace_back();
        day.dayOfYear = dayOfYear;
        day.month = date.month;
        day.day = date.day;
        day.path = SunPath(sunOfDate(year, date.month, date.day, site, study.options.refraction),
                           windowOf(study.rule.window, year, date.month, date.day, site),
                           axesOf(study), study.rule.leastAltitude * radiansPerDegree);
        day.possible = day.path.spans();
    }
}

void SunOfSensor::moveTo(std::size_t sensor) {
    const Vector3 position = m_sun.recentring().moved(m_field.positions[sensor]);
    const Vector3& normal = m_field.normals[sensor];
    m_origin = {position.x, position.y, position.z};
    m_facings.assign(1, {normal.x, normal.y, normal.z});
    const double level = std::hypot(normal.x, normal.y);
    if (m_sun.leastPlanAngle() > 0.0 && level > std::abs(normal.z)) {
        // In plan the sun stands so far off the facade on either side exactly where it stands
        // before both of the planes that are turned by the angle.
        const double c = std::cos(m_sun.leastPlanAngle());
        for (const double s :
             {std::sin(m_sun.leastPlanAngle()), -std::sin(m_sun.leastPlanAngle())}) {
            m_facings.push_back({normal.x * c - normal.y * s, normal.x * s + normal.y * c, 0.0});
        }
    }
}

const std::vector<TimeSpan>& SunOfSensor::litOn(std::size_t day) {
    m_sun.index().sunlight(m_origin, m_facings, m_sun.days()[day].path, m_workspace, m_lit);
    return m_lit;
}

std::string utcText(double timeZone) {
    return fmt::format("UTC{:+g}", timeZone);
}

} // namespace insolate::study
