/// Light reflected on the sensors of a study, found for some thousand of them at a time.
///
/// Sensors that follow each other lie near each other and find the same surfaces: what is kept of
/// these while they are lit stays small, and in the processor's caches, for any number of sensors.
#pragma once

#include <insolate/hourly/reflected_light.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace insolate::study {

class ReflectedSensors {
public:
    /// Sensors that are asked together. A part of a study that begins at a multiple of this, and
    /// ends at one or with the study, gets the same bytes by itself.
    static constexpr std::size_t blockSize = 16384;

    /// Takes in what was found for the next block.
    /// @param isKept whether addTo() will be asked for its sensors later
    void add(ReflectedLight block, bool isKept) {
        const ReflectionReport& report = block.report();
        m_report.cells += report.cells;
        m_report.rays += report.rays;
        m_report.bytes = std::max(m_report.bytes, report.bytes);
        m_report.bounces = std::max(m_report.bounces, report.bounces);
        m_report.beyond = std::max(m_report.beyond, report.beyond);
        m_report.converged = m_report.converged && report.converged;
        if (isKept) {
            m_blocks.push_back(std::move(block));
        }
    }

    /// Of all blocks: their sums, and the most bytes, bounces and light beyond of any.
    [[nodiscard]] const ReflectionReport& report() const { return m_report; }

    /// As ReflectedLight::addTo(), for a sensor of a kept block.
    void addTo(std::size_t sensor, SensorResult& result, SensorHours* hours) const {
        m_blocks.at(sensor / blockSize).addTo(sensor % blockSize, result, hours);
    }

private:
    std::vector<ReflectedLight> m_blocks;
    ReflectionReport m_report;
};

} // namespace insolate::study
