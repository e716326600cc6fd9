/// The command as a host of the library: weather and period make a sky, the scene makes masks, both
/// make results.
#pragma once

#include "app/input/weather_check.h"
#include "app/run/mask_source.h"
#include "app/run/run_options.h"
#include "app/run/sky_visibility_store.h"
#include "app/study_data.h"
#include "app/terminal/progress.h"

#include <insolate/insolate.h>

#include <memory>
#include <string>
#include <vector>

namespace insolate::app {

/// Reads a weather file that was inspected into the controller's store and moves the library's site
/// there. Hours that the file marks as missing become hours without radiation.
/// @throws DataError when the library cannot open it
void loadWeather(ESolarAnalysisController& controller, const std::filesystem::path& file,
                 const WeatherReport& report);

/// "41.98 N, 87.92 W, UTC-6".
std::string siteText(const Site& site);

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
    WeatherReport m_weather;
    std::unique_ptr<EModel> m_model; ///< on the heap: the controllers point back at it
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

struct SensorWork {
    const SensorField& field;
    const Recentring& recentring;
    MaskSource& masks;
    int threads = 0;                     ///< 0: all processors
    SkyVisibilityStore* saved = nullptr; ///< receives what each sensor sees, when given
};

/// Masks and results of all sensors, in blocks. Equal inputs give equal bytes for every number of
/// threads.
/// @throws Interrupted at the next block after a signal
SensorResults calculateSensors(SolarAnalysis& analysis, const SensorWork& work, Progress& progress);

} // namespace insolate::app
