/// A way to calculate the radiation on sensors. A new way is one new file with a class like this
/// and one line in the list of radiation_method.cpp.
#pragma once

#include "study/model/scene.h"
#include "study/results/hour_rows.h"
#include "study/results/result_column.h"
#include "study/results/sky_pages.h"
#include "study/run/changed_scene.h"
#include "study/run/mask_source.h"
#include "study/run/process_scene.h"
#include "study/run/reflected_sensors.h"
#include "study/run/run_options.h"
#include "study/run/sensor_blocks.h"
#include "study/run/sky_visibility_store.h"
#include "study/support/progress.h"
#include "study/weather/weather_check.h"
#include "study/weather/weather_year.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace insolate::study {

/// What every sensor's calculation reads.
struct SensorWork {
    const SensorField& field;
    const Recentring& recentring;
    MaskSource& masks;
    SkyVisibilityStore* saved = nullptr; ///< receives what each sensor sees, when given
    /// What RadiationMethod::addReflected() has found for these sensors, where it was called.
    const ReflectedSensors* reflected = nullptr;
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

    /// Adds to the finished columns what only all sensors together give: the light that the scene's
    /// surfaces reflect. Gives it for SensorWork; null for a method, or options, without it.
    /// @param isKept whether SensorWork will be asked for hours; without it only the report is kept
    /// @throws Stopped
    virtual std::shared_ptr<const ReflectedSensors>
    addReflected(const SensorWork& /*work*/, int /*threads*/, bool /*isKept*/,
                 std::span<ResultColumn> /*columns*/, Progress& /*progress*/,
                 const std::stop_token& /*stop*/) const {
        return {};
    }

    /// Whether nothing is open before the sensor, whatever the period and its light: no sky and,
    /// where the method looks for it, no ground. One that faces straight down sees no sky anyway.
    [[nodiscard]] virtual bool isEnclosed(std::span<const ResultColumn> columns,
                                          const SensorField& field, std::size_t sensor) const = 0;
    /// What lies before an enclosed sensor, for the user: "no sky".
    [[nodiscard]] virtual const char* enclosedText() const = 0;

    /// The hours of a sensor. Only asked of methods that take --hours-of.
    [[nodiscard]] virtual SensorHours hoursOf(const SensorWork& /*work*/,
                                              std::size_t /*sensor*/) const {
        return {};
    }

    /// The sky of the period by cell. Only asked of methods that are listed as having one.
    [[nodiscard]] virtual SkyPages skyPages() const { return {}; }

    /// What the sky was made with, for a summary.
    virtual void describeSky(nlohmann::ordered_json& record) const = 0;
    /// What else the sensors were calculated with; and, from the columns unless they are empty,
    /// what came out.
    virtual void describeSensors(nlohmann::ordered_json& record,
                                 std::span<const ResultColumn> columns) const = 0;

    /// What the method holds of the process, for other parts of its study; null when nothing.
    [[nodiscard]] virtual std::shared_ptr<const ProcessScene> processScene() const { return {}; }
    /// The same method for another study, sharing what it has built; null where that study asks
    /// something else.
    /// @param given the other study's weather, the object itself
    [[nodiscard]] virtual std::unique_ptr<RadiationMethod>
    again(const SkyOptions& /*options*/, double /*north*/,
          const std::shared_ptr<const WeatherYear>& /*given*/) const {
        return nullptr;
    }
    /// A digest of all on which the results of calculate() depend but scene and sensors: methods of
    /// one digest give any sensor the same results there, bit by bit. Empty where there is none;
    /// none is always safe.
    [[nodiscard]] virtual std::string digest() const { return {}; }
    /// Whether calculate() of the other method gives any sensor the same results in any scene.
    [[nodiscard]] bool isSameAs(const RadiationMethod& other) const {
        const std::string own = digest();
        return !own.empty() && own == other.digest();
    }
    /// By sensor, whether a change of the scene can touch its result of calculate(). Only asked of
    /// methods that are the same as that of another study.
    /// @param work after the change
    /// @param before the rays through the former scene
    /// @throws Stopped
    [[nodiscard]] virtual std::vector<std::uint8_t> touched(const SensorWork& work,
                                                            const SceneDifference& /*difference*/,
                                                            MaskSource& /*before*/, int /*threads*/,
                                                            const std::stop_token& /*stop*/) const {
        return std::vector<std::uint8_t>(work.field.size(), 1);
    }
    /// The sensors are calculated: gives back what only one study of the process can hold.
    virtual void release() {}

    /// Advice that the chosen options call for; empty when there is none.
    [[nodiscard]] virtual std::string advice() const { return {}; }
    /// That a period has no light is said by skies that know; others have it seen in the results.
    [[nodiscard]] virtual bool reportsDarkness() const { return false; }
};

/// Reads the weather and builds the sky of the period.
/// @param north from the model's +Y clockwise to true north [degrees]
/// @param given the weather, for the hourly method; null: options.weather is read
/// @throws DataError when the weather cannot be used, UsageError when there is no such method
std::unique_ptr<RadiationMethod>
makeRadiationMethod(const SkyOptions& options, double north,
                    const std::shared_ptr<const WeatherYear>& given = {});

} // namespace insolate::study
