/// The hourly method on the sensors of a study.
#pragma once

#include "study/run/radiation_method.h"
#include "study/weather/weather_year.h"

#include <insolate/insolate.h>

#include <array>
#include <memory>

namespace insolate::study {

class HourlyStudy final : public RadiationMethod {
public:
    /// @param north from the model's +Y clockwise to true north [degrees]
    /// @param year of options.weather, the name of its file
    /// @throws DataError when the weather cannot be used
    HourlyStudy(const SkyOptions& options, double north, std::shared_ptr<const WeatherYear> year);

    [[nodiscard]] const WeatherReport& weather() const override { return m_weather; }
    [[nodiscard]] std::vector<ResultColumn> columns() const override;
    /// Needs a source that casts rays.
    void calculate(const SensorWork& work, SensorRange range, int slot,
                   std::span<ResultColumn> columns) override;
    std::shared_ptr<const ReflectedSensors>
    addReflected(const SensorWork& work, int threads, bool isKept, std::span<ResultColumn> columns,
                 Progress& progress, const std::stop_token& stop) const override;
    [[nodiscard]] bool isEnclosed(std::span<const ResultColumn> columns, const SensorField& field,
                                  std::size_t sensor) const override;
    [[nodiscard]] const char* enclosedText() const override { return "neither sky nor ground"; }
    [[nodiscard]] SensorHours hoursOf(const SensorWork& work, std::size_t sensor) const override;
    [[nodiscard]] SkyPages skyPages() const override;
    [[nodiscard]] std::unique_ptr<RadiationMethod>
    again(const SkyOptions& options, double north,
          const std::shared_ptr<const WeatherYear>& given) const override;
    [[nodiscard]] std::string digest() const override;
    [[nodiscard]] std::vector<std::uint8_t> touched(const SensorWork& work,
                                                    const SceneDifference& difference,
                                                    MaskSource& before, int threads,
                                                    const std::stop_token& stop) const override;
    void describeSky(nlohmann::ordered_json& record) const override;
    void describeSensors(nlohmann::ordered_json& record,
                         std::span<const ResultColumn> columns) const override;
    [[nodiscard]] std::string advice() const override;
    [[nodiscard]] bool reportsDarkness() const override { return true; }

private:
    /// The columns that a part of the period has.
    [[nodiscard]] std::size_t columnsOfPart() const;
    [[nodiscard]] std::size_t firstPartColumn() const;
    [[nodiscard]] SensorResult evaluate(const SensorWork& work, std::size_t index,
                                        std::span<SensorPart> parts, SensorHours* hours) const;
    /// Of the direct light.
    static SensorResult resultIn(std::span<const ResultColumn> columns, std::size_t sensor);
    /// @param first of the light's sensors
    void addReflected(const ReflectedLight& light, std::size_t first, std::size_t sensor,
                      std::span<ResultColumn> columns, std::span<SensorPart> parts) const;
    [[nodiscard]] Sensor sensorAt(const SensorWork& work, std::size_t index) const;

    SkyOptions m_asked;
    double m_north;
    std::shared_ptr<const WeatherYear> m_year;
    std::vector<NamedPeriod> m_parts; ///< of the period, with results of their own
    WeatherReport m_weather;
    std::array<float, 12> m_monthlyAlbedo{}; ///< of the weather, NaN where it has none
    std::shared_ptr<const HourlyAnalysis> m_analysis;
    bool m_hasSeasons = false; ///< of materials
};

std::unique_ptr<RadiationMethod> makeHourlyStudy(const SkyOptions& options, double north,
                                                 const std::shared_ptr<const WeatherYear>& given);

} // namespace insolate::study
