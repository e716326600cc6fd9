#include "study/run/study_estimate.h"

#include "study/model/sensor_grid.h"
#include "study/results/hour_rows.h"
#include "study/results/sensor_groups.h"
#include "study/run/reflected_sensors.h"
#include "study/run/study_steps.h"
#include "study/support/readable.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <vector>

#include <fmt/format.h>
#include <sys/resource.h>

namespace insolate::study {

namespace {

/// Sensors of the sample are spread over all, so that open and shaded places are among them.
constexpr std::size_t sampleSize = 400;
constexpr std::chrono::milliseconds longestSample{1500};

/// Mean of the seconds that sensors take which are spread over all.
template <typename Calculate>
double secondsPerSensor(std::size_t sensors, const Calculate& calculate,
                        const std::stop_token& stop) {
    using SteadyClock = std::chrono::steady_clock;
    calculate(0); // what is made once is made here
    const std::size_t count = std::min(sensors, sampleSize);
    const SteadyClock::time_point start = SteadyClock::now();
    std::size_t done = 0;
    // Steps of a fraction that fills the range evenly however early the time is over.
    constexpr double golden = 0.6180339887498949;
    for (double place = 0.5; done < count && SteadyClock::now() - start < longestSample; ++done) {
        throwIfStopped(stop);
        calculate(
            std::min(static_cast<std::size_t>(place * static_cast<double>(sensors)), sensors - 1));
        place += golden;
        place -= place >= 1.0 ? 1.0 : 0.0;
    }
    return std::chrono::duration<double>(SteadyClock::now() - start).count() /
           static_cast<double>(std::max<std::size_t>(done, 1));
}

/// Adds the light that surfaces reflect. It is found for sensors together: some that follow each
/// other stand for all, and take somewhat more each than larger blocks do.
void addReflected(PreparedStudy& study, StudyEstimate& estimate, const std::stop_token& stop) {
    if (!study.options.reflects()) {
        return;
    }
    constexpr std::size_t together = 2048;
    const SensorField& all = study.inputs.field;
    const std::size_t count = std::min(all.size(), together);
    const std::size_t first = (all.size() - count) / 2;
    SensorField some;
    for (std::size_t i = first; i < first + count; ++i) {
        some.positions.push_back(all.positions[i]);
        some.normals.push_back(all.normals[i]);
    }
    std::vector<ResultColumn> columns = study.method->columns();
    for (ResultColumn& column : columns) {
        column.values.resize(count);
    }
    const SensorWork work{some, *study.recentring, *study.masks};
    study.method->calculate(work, {0, count}, 0, columns);
    Progress silent;
    Stopwatch watch;
    const auto light =
        study.method->addReflected(work, study.options.threads, false, columns, silent, stop);
    const double share = static_cast<double>(all.size()) / static_cast<double>(count);
    estimate.seconds += watch.whole() * share;
    // By small tolerances the kernel finds fewer sensors at once than a block has.
    const double blocks = study.options.hourly.tolerance.value_or(HourlyOptions::usualTolerance) <
                                  HourlyOptions::usualTolerance
                              ? 1.0
                              : static_cast<double>(ReflectedSensors::blockSize) / together;
    estimate.bytes += static_cast<double>(light->report().bytes) * std::min(share, blocks);
    if (study.options.hourly.hoursOf.any()) {
        constexpr double keptBytes = 220.0; // of each sensor, for its hours
        estimate.bytes += keptBytes * static_cast<double>(all.size());
    }
}

/// Adds what --hours-of takes: a second look at its sensors, rows in memory and in files.
void addHours(PreparedStudy& study, StudyEstimate& estimate, const std::stop_token& stop) {
    const HoursOf& wanted = study.options.hourly.hoursOf;
    if (!wanted.any()) {
        return;
    }
    const double parts = study.options.reflects() ? 4.0 : 3.0;
    const double bytesPerRow = parts * sizeof(float) * hoursPerYear;
    constexpr double rowsAtOnce = 256.0;
    constexpr double packedRows = 2048.0;      // that wait for hours.nc
    constexpr double secondsPerValue = 3.0e-8; // rounded, compressed and written by one thread
    constexpr double secondsPerSum = 1.5e-9;   // of one hour of one sensor to its group
    const std::size_t all = study.inputs.field.size();
    const auto sensors = static_cast<double>(wanted.sensors.empty() ? all : wanted.sensors.size());
    const SensorWork work = study.work();
    const double each = secondsPerSensor(
        all, [&](std::size_t sensor) { (void)study.method->hoursOf(work, sensor); }, stop);
    estimate.seconds += each * sensors / estimate.threads;
    const double values =
        parts * static_cast<double>(hoursOfPeriod(study.options.period).size()); // of a row
    double rows = sensors;
    if (wanted.groups) {
        const std::vector<GroupBy>& asked = study.options.groups.by;
        const std::vector<GroupBy> groupings =
            asked.empty() ? usualGroupings(study.inputs.field) : asked;
        rows = 0.0;
        for (const GroupBy& by : groupings) {
            rows += static_cast<double>(groupSensors(study.inputs.field, {}, {}, by,
                                                     {.classes = study.options.groups.classes,
                                                      .north = study.options.north})
                                            .groups.size());
        }
        estimate.bytes += rows * 3.0 * bytesPerRow; // sums in double precision, then means
        estimate.seconds +=
            secondsPerSum * parts * hoursPerYear * sensors * static_cast<double>(groupings.size());
    } else if (!wanted.all) {
        estimate.bytes += rows * bytesPerRow;
    }
    estimate.bytes += std::min(sensors, rowsAtOnce) * bytesPerRow +
                      std::min(rows, packedRows) * values * sizeof(std::uint16_t);
    estimate.seconds += secondsPerValue * values * rows;
}

double bytesNow() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

} // namespace

StudyEstimate estimateStudy(PreparedStudy& study, const std::stop_token& stop) {
    // For each sensor the result columns twice, for the tables, and its colours in the picture.
    constexpr double bytesPerValue = 2.0 * sizeof(float);
    constexpr double otherBytesPerSensor = 62.0;
    constexpr double picture = 40.0e6;      // 1600 x 1000 points with samples and their depths
    constexpr double pictureSeconds = 0.25; // docs/performance.md has the figures
    constexpr double fileSecondsPerValue = 2.4e-7;
    constexpr double otherValues = 8.0; // position, normal, area, enclosed
    const SensorField& field = study.inputs.field;
    const std::vector<float> areas = cellAreas(field);
    const auto sensors = static_cast<double>(field.size());
    StudyEstimate estimate;
    estimate.sensors = field.size();
    estimate.area = std::accumulate(areas.begin(), areas.end(), 0.0);
    estimate.triangles = study.inputs.scene.triangleCount();
    estimate.threads = usedThreads(study.options.threads);
    std::vector<ResultColumn> columns = study.method->columns();
    const auto values = static_cast<double>(columns.size());
    estimate.bytes =
        bytesNow() + picture + sensors * (otherBytesPerSensor + values * bytesPerValue);
    for (ResultColumn& column : columns) {
        column.values.resize(field.size());
    }
    const SensorWork work = study.work();
    const double each = secondsPerSensor(
        field.size(),
        [&](std::size_t sensor) {
            study.method->calculate(work, {sensor, sensor + 1}, 0, columns);
        },
        stop);
    estimate.seconds = each * sensors / estimate.threads + pictureSeconds +
                       fileSecondsPerValue * (values + otherValues) * sensors;
    addReflected(study, estimate, stop);
    addHours(study, estimate, stop);
    return estimate;
}

std::string StudyEstimate::text() const {
    std::string lines = fmt::format("sensors    {}\n", groupedDigits(sensors));
    if (area > 0.0) {
        lines += fmt::format("area       {:.4g} m2\n", area);
    }
    lines += fmt::format("triangles  {}\n", groupedDigits(triangles));
    lines += fmt::format("memory     about {:.2g} GB\n", bytes / 1.0e9);
    lines += fmt::format("time       about {} on {} {}\n", durationText(seconds), threads,
                         counted(static_cast<std::size_t>(threads), "processor", "processors"));
    return lines;
}

} // namespace insolate::study
