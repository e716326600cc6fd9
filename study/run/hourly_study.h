/// The hourly method on the sensors of a study.
#pragma once

#include "study/run/radiation_method.h"
#include "study/weather/weather_year.h"

#include <insolate/insolate.h>

#include <array>
#include <optional>
#include <string_view>

namespace insolate::study {

/// How the table of hours begins.
inline constexpr std::string_view seriesHeader = "hour_of_year,month,day,hour";

class HourlyStudy final : public RadiationMethod {
public:
    /// @param north from the model's +Y clockwise to true north [degrees]
    /// @throws DataError when the weather cannot be used
    HourlyStudy(const SkyOptions& options, double north);

    [[nodiscard]] const WeatherReport& weather() const override { return m_weather; }
    [[nodiscard]] const HourlySky& sky() const { return m_analysis->sky(); }
    [[nodiscard]] std::vector<ResultColumn> columns() const override;
    /// Needs a source that casts rays.
    void calculate(const SensorWork& work, SensorRange range, int slot,
                   std::span<ResultColumn> columns) override;
    void describe(nlohmann::ordered_json& record,
                  std::span<const ResultColumn> columns) const override;

    /// A line for each hour that touches the period, three columns for each chosen sensor.
    void writeSeries(OutputFile& out, const SensorWork& work) const;

private:
    [[nodiscard]] Sensor sensorAt(const SensorWork& work, std::size_t index) const;

    StudyPeriod m_period;
    HourlyOptions m_options;
    WeatherReport m_weather;
    std::array<float, 12> m_monthlyAlbedo{};  ///< of the weather, NaN where it has none
    std::optional<HourlyAnalysis> m_analysis; ///< holds a value from construction on
};

} // namespace insolate::study
