/// The command as a host of the library: weather and period make a sky, the scene makes masks, both
/// make results.
#pragma once

#include "study/run/radiation_method.h"

#include <insolate/insolate.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace insolate::study {

/// Reads a weather file that was inspected into the controller's store and moves the library's site
/// there. Hours that the file marks as missing become hours without radiation.
/// @throws DataError when the library cannot open it
void loadWeather(ESolarAnalysisController& controller, const std::filesystem::path& file,
                 const WeatherReport& report);

/// Whether the year ends on 30 December: 31 December, with light on the day before, has none. So it
/// is with every EPW file, whose 31 December takes the place of the 30th in the store.
bool lastDayIsEmpty(const EWeatherData& year);

/// "41.98 N, 87.92 W, UTC-6".
std::string siteText(const Site& site);

/// Weather, site and sky of one period by one of the library's CalculationMethod, ready to be asked
/// for results.
///
/// The library's site is shared by the whole process: one analysis at a time.
class SolarAnalysis final : public RadiationMethod {
public:
    /// Reads the weather, sets the site and builds the sky.
    /// @param north from the model's +Y clockwise to true north [degrees]
    /// @throws DataError when the weather cannot be used
    SolarAnalysis(const SkyOptions& options, double north);
    ~SolarAnalysis() override;

    [[nodiscard]] const WeatherReport& weather() const override { return m_weather; }
    /// The configured controller; copies of it calculate on other threads.
    [[nodiscard]] ESolarAnalysisController& controller() const {
        return m_model->getSolarAnalysisController();
    }
    /// Total, average and peak; and sky view, the share of the unobstructed sky that is seen:
    /// weighted by the cosine of incidence for sensors with a normal (an open horizontal one has
    /// 100, an open wall 50), by solid angle for sensors without.
    [[nodiscard]] std::vector<ResultColumn> columns() const override;
    void calculate(const SensorWork& work, SensorRange range, int slot,
                   std::span<ResultColumn> columns) override;
    void describe(nlohmann::ordered_json& record,
                  std::span<const ResultColumn> columns) const override;

private:
    struct ThreadSlot;

    WeatherReport m_weather;
    std::unique_ptr<EModel> m_model; ///< on the heap: the controllers point back at it
    std::vector<std::optional<ThreadSlot>> m_slots;
};

} // namespace insolate::study
