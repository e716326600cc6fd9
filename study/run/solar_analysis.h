/// The three methods of the analysis controllers: weather and period make a sky, the scene makes
/// masks, both make results.
#pragma once

#include "study/run/radiation_method.h"

#include <insolate/insolate.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace insolate::study {

/// Weather, site and sky of one period by one of the library's CalculationMethod, ready to be asked
/// for results.
///
/// The library's site is shared by the whole process: one analysis at a time.
class SolarAnalysis final : public RadiationMethod {
public:
    /// Reads the weather, sets the site and builds the sky.
    /// @param north from the model's +Y clockwise to true north [degrees]
    /// @throws DataError when the weather cannot be used, UsageError while another one is alive
    SolarAnalysis(CalculationMethod method, const SkyOptions& options, double north);
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
    [[nodiscard]] bool isEnclosed(std::span<const ResultColumn> columns, const SensorField& field,
                                  std::size_t sensor) const override;
    [[nodiscard]] const char* enclosedText() const override { return "no sky"; }
    [[nodiscard]] SkyPages skyPages() const override;
    [[nodiscard]] std::shared_ptr<const ProcessScene> processScene() const override {
        return m_processScene;
    }
    /// Neither pages nor sensors can be asked for afterwards.
    void release() override { m_processScene.reset(); }
    void describeSky(nlohmann::ordered_json& record) const override;
    void describeSensors(nlohmann::ordered_json&, std::span<const ResultColumn>) const override {}

private:
    struct ThreadSlot;

    std::shared_ptr<const ProcessScene> m_processScene = ProcessScene::take(); ///< comes first

    WeatherReport m_weather;
    std::unique_ptr<EModel> m_model; ///< on the heap: the controllers point back at it
    std::vector<std::optional<ThreadSlot>> m_slots;
};

} // namespace insolate::study
