/// A way to calculate the radiation on sensors, and the walk over the sensors that all ways share.
#pragma once

#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "study/results/result_column.h"
#include "study/run/mask_source.h"
#include "study/run/partial_results.h"
#include "study/run/run_options.h"
#include "study/run/sky_visibility_store.h"
#include "study/support/progress.h"
#include "study/weather/weather_check.h"

#include <cstddef>
#include <memory>
#include <span>
#include <stop_token>
#include <vector>

#include <nlohmann/json.hpp>

namespace insolate::study {

struct SensorWork {
    const SensorField& field;
    const Recentring& recentring;
    MaskSource& masks;
    int threads = 0;                     ///< 0: all processors
    SkyVisibilityStore* saved = nullptr; ///< receives what each sensor sees, when given
    PartialResults* kept = nullptr;      ///< receives finished sensors, when given
};

/// Sensors first to end - 1.
struct SensorRange {
    std::size_t first = 0;
    std::size_t end = 0;
};

class RadiationMethod {
public:
    virtual ~RadiationMethod() = default;

    [[nodiscard]] virtual const WeatherReport& weather() const = 0;

    /// What each sensor gets, the values still empty; the first column is the one to look at.
    [[nodiscard]] virtual std::vector<ResultColumn> columns() const = 0;

    /// Fills the range's part of the columns. Different ranges may be calculated at the same time,
    /// each on a slot of its own.
    virtual void calculate(const SensorWork& work, SensorRange range, int slot,
                           std::span<ResultColumn> columns) = 0;

    /// Adds what was used and, from columns unless they are empty, what came out to the
    /// summary.
    virtual void describe(nlohmann::ordered_json& record,
                          std::span<const ResultColumn> columns) const = 0;
};

/// Sensors before which nothing is open, whatever the period and its light: no sky and, where
/// the method looks for it, no ground. Those that face straight down see no sky anyway; without a
/// column of the ground they do not count.
std::size_t countEnclosed(std::span<const ResultColumn> columns, const SensorField& field);

/// Reads the weather and builds the sky of the period.
/// @throws DataError when the weather cannot be used
std::unique_ptr<RadiationMethod> makeRadiationMethod(const SkyOptions& options, double north);

/// Results of all sensors, in blocks. Equal inputs give equal bytes for every number of threads.
/// @throws Stopped at the next block after the stop was asked for
std::vector<ResultColumn> calculateSensors(RadiationMethod& method, const SensorWork& work,
                                           Progress& progress, const std::stop_token& stop);

} // namespace insolate::study
