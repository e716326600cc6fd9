/// The command as a host of the library: weather and period make a sky, the scene makes masks, both
/// make results.
#pragma once

#include "app/input/weather_check.h"
#include "app/run/run_options.h"
#include "app/study_data.h"
#include "app/terminal/progress.h"

#include <insolate/insolate.h>

#include <memory>
#include <vector>

namespace insolate::app {

/// Weather, site and sky of one period, ready to be asked for results.
///
/// The library's site is shared by the whole process: one analysis at a time.
class SolarAnalysis {
public:
    /// Reads the weather, sets the site and builds the sky.
    /// @param north from the model's +Y clockwise to true north [degrees]
    /// @throws DataError when the weather cannot be used
    SolarAnalysis(const SkyOptions& options, double north);

    [[nodiscard]] const WeatherReport& weather() const { return m_weather; }
    /// The configured controller; copies of it calculate on other threads.
    [[nodiscard]] ESolarAnalysisController& controller() {
        return m_model->getSolarAnalysisController();
    }

private:
    void loadWeather(const std::filesystem::path& file);

    WeatherReport m_weather;
    std::unique_ptr<EModel> m_model; ///< on the heap: the controllers point back at it
};

/// The scene in the library's ray caster, moved so that its middle is the origin: positions in the
/// library are single precision, and map coordinates would lose their decimetres. One at a time.
class RayScene {
public:
    /// Replaces the scene of the process and builds the octree.
    /// @param field takes part in finding the middle
    RayScene(const Scene& scene, const SensorField& field);

    /// A point of the model as the library sees it.
    [[nodiscard]] XYZf local(const Vector3& point) const;
    [[nodiscard]] const Vector3& centre() const { return m_centre; }

private:
    Vector3 m_centre; ///< whole metres, so that moving a model rounds alike wherever it stands
};

struct SensorResults {
    std::vector<float> total;   ///< [Wh/m2]
    std::vector<float> average; ///< [W/m2]
    std::vector<float> peak;    ///< [W/m2]
    /// Share of the unobstructed sky that is seen [%]: weighted by the cosine of incidence for
    /// sensors with a normal (an open horizontal one has 100, an open wall 50), by solid angle for
    /// sensors without.
    std::vector<float> skyView;
};

/// Masks and results of all sensors, in blocks on `threads` threads (0: all processors). Equal
/// inputs give equal bytes for every number of threads.
/// @throws Interrupted at the next block after a signal
SensorResults calculateSensors(SolarAnalysis& analysis, const RayScene& scene,
                               const SensorField& field, int threads, Progress& progress);

/// Threads that calculateSensors uses when asked for `threads`.
int usedThreads(int threads);

} // namespace insolate::app
