#include <insolate/shading/cell_directions.h>

#include <insolate/geometry/geometry.h>
#include <insolate/solar/solar_position.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <numbers>

namespace insolate {
namespace {

/// The fraction of a cell at which its direction is taken. The jitter is scaled by the cell's angle
/// although the caller scales it again: it reaches a tenth of the cell only.
float cellFraction(bool jittered) {
    return jittered ? (EGeometry::RandomNumber() * 0.6f + 0.2f) * skyGrid::cellAngle : 0.5f;
}

XYZf computeDirection(int azimuth, int altitude, double northOffset, bool jittered) {
    const double sector =
        static_cast<double>(azimuth) + static_cast<double>(cellFraction(jittered));
    const double horizontal =
        std::numbers::pi / 2.0 - sector * static_cast<double>(skyGrid::cellAngle) - northOffset;
    const float vertical =
        (static_cast<float>(altitude) + cellFraction(jittered)) * skyGrid::cellAngle;
    XYZf direction{};
    EGeometry::RotateByPolar({1.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 0.0f}, static_cast<float>(horizontal),
                             vertical, direction);
    return direction;
}

/// What is kept for the offset in force. Everything but the published pointer is guarded by the
/// mutex; once all cells are known, threads find the finished table without it.
class Cache {
public:
    XYZf direction(int azimuth, int altitude, bool jittered) {
        const std::lock_guard lock(m_mutex);
        return find(azimuth, altitude, ESolarPosition::Global.getNorthOffset(), jittered);
    }

    std::shared_ptr<const CellDirections> all() {
        thread_local std::shared_ptr<const CellDirections> mine;
        const double offset = ESolarPosition::Global.getNorthOffset();
        // While this thread holds its table the address cannot be reused by another one.
        if (mine != nullptr && mine.get() == m_published.load(std::memory_order_acquire) &&
            mine->northOffset == offset) {
            return mine;
        }
        const std::lock_guard lock(m_mutex);
        for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
            for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
                find(azimuth, altitude, offset, false);
            }
        }
        if (m_complete == nullptr) {
            for (std::size_t cell = 0; cell < m_partial.direction.size(); ++cell) {
                m_partial.x[cell] = m_partial.direction[cell].x;
                m_partial.y[cell] = m_partial.direction[cell].y;
                m_partial.z[cell] = m_partial.direction[cell].z;
            }
            m_partial.sky = SkyDirections(m_partial.direction);
            m_complete = std::make_shared<const CellDirections>(m_partial);
            m_published.store(m_complete.get(), std::memory_order_release);
        }
        mine = m_complete;
        return mine;
    }

private:
    XYZf find(int azimuth, int altitude, double offset, bool jittered) {
        if (m_partial.northOffset != offset) {
            m_partial.northOffset = offset;
            m_computed.fill(false);
            m_complete.reset();
            m_published.store(nullptr, std::memory_order_release);
        }
        const auto cell = static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude));
        if (!m_computed[cell]) {
            m_partial.direction[cell] = computeDirection(azimuth, altitude, offset, jittered);
            m_computed[cell] = true;
        }
        return m_partial.direction[cell];
    }

    std::mutex m_mutex;
    CellDirections m_partial;
    std::array<bool, skyGrid::cellCount> m_computed{};
    std::shared_ptr<const CellDirections> m_complete;
    std::atomic<const CellDirections*> m_published = nullptr;
};

Cache& cache() {
    static Cache instance;
    return instance;
}

} // namespace

XYZf cellDirection(int azimuth, int altitude, bool jittered) {
    return cache().direction(azimuth, altitude, jittered);
}

std::shared_ptr<const CellDirections> allCellDirections() {
    return cache().all();
}

} // namespace insolate
