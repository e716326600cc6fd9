/// A study in memory: for hosts that hold its inputs, or want its results rather than its files.
///
///     StudySession session(options, {.weather = year, .models = inputs}, progress);
///     session.calculate(progress);
///     session.columns().front().values;   // Wh/m2 by sensor
///     session.save("out", progress);      // the files of `insolate run`
///
/// What comes out is the same, bit for bit, as what `insolate run` writes from the same inputs.
/// Once it is calculated, any number of threads may call its const members at the same time.
#pragma once

#include "study/export.h"
#include "study/results/result_column.h"
#include "study/results/result_folder.h"
#include "study/results/sensor_groups.h"
#include "study/run/run_options.h"
#include "study/run/study_inputs.h"
#include "study/support/progress.h"
#include "study/weather/weather_check.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include <insolate/insolate.h>

namespace insolate::study {

/// Sensors that are not a study's own, calculated before its scene; made by
/// StudySession::calculateOthers(), whose session must outlive it.
class INSOLATE_STUDY_EXPORT OtherSensors {
public:
    ~OtherSensors();
    OtherSensors(OtherSensors&&) noexcept;
    OtherSensors& operator=(OtherSensors&&) noexcept;

    /// By sensor, the columns of the study.
    [[nodiscard]] std::span<const ResultColumn> columns() const;
    /// The hours of the sensors from first to before end, in their order, some at a time.
    /// @throws UsageError where the method has no hours, or there are no such sensors; Stopped
    void
    hoursOf(std::size_t first, std::size_t end,
            const std::function<void(std::size_t first, std::span<const SensorHours> hours)>& take,
            Progress& progress, const std::stop_token& stop = {}) const;

private:
    friend class StudySession;
    struct Content;
    explicit OtherSensors(std::unique_ptr<Content> content);

    std::unique_ptr<Content> m_content;
};

class INSOLATE_STUDY_EXPORT StudySession {
public:
    /// Reads what is not given, builds the sky and the index of the rays.
    /// @param earlier a session whose sky is taken where weather (the same object), period and
    ///        options are the same, or null
    /// @throws Error
    StudySession(const RunOptions& options, GivenInputs given, Progress& progress,
                 const std::stop_token& stop = {}, const StudySession* earlier = nullptr);
    ~StudySession();
    StudySession(StudySession&&) noexcept;
    StudySession& operator=(StudySession&&) noexcept;

    [[nodiscard]] const RunOptions& options() const;
    [[nodiscard]] const WeatherReport& weather() const;
    [[nodiscard]] const Scene& scene() const;
    [[nodiscard]] const SensorField& field() const;

    /// Calculates all sensors. To be called once, before what follows.
    /// @throws Stopped
    void calculate(Progress& progress, const std::stop_token& stop = {});

    /// The same bytes, with the sun, sky and ground of sensors that a change of the scene cannot
    /// touch taken from an earlier session that was calculated; what surfaces reflect is found
    /// anew. Sensors are the same where place and normal are. Where the sessions differ in weather,
    /// period or options, or have materials, all sensors are calculated.
    /// @throws Stopped
    void calculateSince(const StudySession& earlier, Progress& progress,
                        const std::stop_token& stop = {});

    /// What calculate() would find, found by others with calculateOthers(): processes on other
    /// machines for instance. Takes the place of calculate(); of the columns, names and values
    /// count.
    /// @throws DataError when the columns are not those of this study
    void take(std::vector<ResultColumn> columns, Progress& progress,
              const std::stop_token& stop = {});

    /// By sensor; the method's columns, the one to look at first.
    [[nodiscard]] std::span<const ResultColumn> columns() const;
    /// Of the cells [m2]; empty for sensors without.
    [[nodiscard]] std::span<const float> areas() const;
    /// Sensors that look into closed geometry.
    [[nodiscard]] std::size_t enclosed() const;
    /// By sensor, 1 for those.
    [[nodiscard]] std::span<const float> enclosedSensors() const;

    /// The hours of a sensor; any number of them may be asked for at the same time.
    /// @throws UsageError where there is no such sensor, or the method has no hours
    [[nodiscard]] SensorHours hoursOf(std::size_t sensor) const;

    /// Calculates other sensors before the same scene, which need not be the study's own. Where
    /// surfaces are black they get the bytes that they would have as its own. Reflected light
    /// depends on which sensors are asked together, within its error; for the same sensors it is
    /// the same. Needs no calculate().
    /// @throws Stopped
    [[nodiscard]] OtherSensors calculateOthers(SensorField sensors, Progress& progress,
                                               const std::stop_token& stop = {}) const;

    /// Where rays have their origin, for sessions that are to give the same bytes.
    [[nodiscard]] const Recentring& recentring() const;

    /// What summary.json says, as text.
    [[nodiscard]] std::string summary() const;

    /// The groups of groups.csv by these keys, without their best areas.
    [[nodiscard]] SensorGroups groups(const GroupBy& by) const;

    /// Writes the files of `insolate run` into the folder, which is made when it is missing.
    /// @throws OutputError, Stopped; no file is left then
    void save(const std::filesystem::path& folder, Progress& progress,
              const std::stop_token& stop = {}) const;

    /// Writes page.html of the results as that file; it bears the name of its folder.
    /// @throws OutputError, Stopped; no file is left then
    void savePage(const std::filesystem::path& file, Progress& progress,
                  const std::stop_token& stop = {}) const;

    /// As what reads earlier results takes them: to compare them, to draw them.
    [[nodiscard]] ResultFolder results() const;

private:
    struct Content;
    template <typename Calculate>
    void finish(Calculate&& calculate, Progress& progress);

    std::unique_ptr<Content> m_content;
};

} // namespace insolate::study
