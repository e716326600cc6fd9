#include "study/results/hour_rows.h"

#include <algorithm>
#include <array>

namespace insolate::study {

std::vector<int> hoursOfPeriod(const StudyPeriod& period) {
    std::vector<int> hours;
    for (int day = 0; day < 365; ++day) {
        if (!period.contains(day + 1)) {
            continue;
        }
        const bool isAhead = period.summerTime && period.summerTime->contains(day + 1);
        for (int hour = 0; hour < 24; ++hour) {
            const int clock = isAhead ? (hour + 1) % 24 : hour; // what watches show
            if (clock + 1 > period.startHour && clock < period.endHour) {
                hours.push_back(24 * day + hour);
            }
        }
    }
    return hours;
}

GroupHours::GroupHours(std::span<const SensorGroups> groupings, std::span<const float> areas)
    : m_groupings(groupings), m_areas(areas) {
    for (const SensorGroups& grouping : groupings) {
        m_sums.emplace_back(grouping.groups.size());
        for (Sum& sum : m_sums.back()) {
            for (std::size_t p = 0; p < hourParts(false).size(); ++p) {
                sum.parts[p].assign(hoursPerYear, 0.0);
            }
        }
    }
}

void GroupHours::add(std::size_t first, std::span<const SensorHours> sensors) {
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        const double weight = m_areas.empty() ? 1.0 : static_cast<double>(m_areas[first + i]);
        for (std::size_t g = 0; g < m_groupings.size(); ++g) {
            const std::uint32_t group = m_groupings[g].groupOf[first + i];
            if (group == SensorGroups::none) {
                continue;
            }
            Sum& sum = m_sums[g][group];
            sum.weight += weight;
            const std::span<const HourPart> parts = hourParts(sensors[i]);
            for (std::size_t p = 0; p < parts.size(); ++p) {
                const std::vector<float>& from = sensors[i].*parts[p].values;
                std::vector<double>& to = sum.parts[p];
                to.resize(hoursPerYear, 0.0);
                for (std::size_t k = 0; k < to.size(); ++k) {
                    to[k] += weight * static_cast<double>(from[k]);
                }
            }
        }
    }
}

std::vector<HourRow> GroupHours::rows() const {
    std::vector<HourRow> rows;
    for (std::size_t g = 0; g < m_groupings.size(); ++g) {
        for (std::size_t i = 0; i < m_sums[g].size(); ++i) {
            const Sum& sum = m_sums[g][i];
            HourRow row;
            row.name = groupName(m_groupings[g], i);
            const double factor = sum.weight > 0.0 ? 1.0 / sum.weight : 0.0;
            for (std::size_t p = 0; p < everyHourPart.size(); ++p) {
                const std::vector<double>& from = sum.parts[p];
                std::vector<float>& to = row.hours.*everyHourPart[p].values;
                to.resize(from.size());
                std::transform(from.begin(), from.end(), to.begin(),
                               [&](double value) { return static_cast<float>(factor * value); });
            }
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

} // namespace insolate::study
