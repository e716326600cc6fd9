#include "study/run/study_estimate.h"

#include "study/model/sensor_grid.h"
#include "study/run/study_steps.h"
#include "study/support/readable.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <vector>

#include <fmt/format.h>
#include <sys/resource.h>

namespace insolate::study {

namespace {

/// Sensors of the sample are spread over all, so that open and shaded places are among them.
constexpr std::size_t sampleSize = 400;
constexpr std::chrono::milliseconds longestSample{1500};

double secondsPerSensor(PreparedStudy& study, const std::stop_token& stop) {
    const std::size_t sensors = study.inputs.field.size();
    std::vector<ResultColumn> columns = study.method->columns();
    for (ResultColumn& column : columns) {
        column.values.resize(sensors);
    }
    const SensorWork work = study.work();
    const std::size_t count = std::min(sensors, sampleSize);
    using SteadyClock = std::chrono::steady_clock;
    study.method->calculate(work, {0, 1}, 0, columns); // what is made once is made here
    const SteadyClock::time_point start = SteadyClock::now();
    std::size_t done = 0;
    // Steps of a fraction that fills the range evenly however early the time is over.
    constexpr double golden = 0.6180339887498949;
    for (double place = 0.5; done < count && SteadyClock::now() - start < longestSample; ++done) {
        throwIfStopped(stop);
        const auto sensor =
            std::min(static_cast<std::size_t>(place * static_cast<double>(sensors)), sensors - 1);
        study.method->calculate(work, {sensor, sensor + 1}, 0, columns);
        place += golden;
        place -= place >= 1.0 ? 1.0 : 0.0;
    }
    return std::chrono::duration<double>(SteadyClock::now() - start).count() /
           static_cast<double>(std::max<std::size_t>(done, 1));
}

double bytesNow() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

} // namespace

StudyEstimate estimateStudy(PreparedStudy& study, const std::stop_token& stop) {
    // For each sensor the result columns twice, for the tables, and its colours in the picture.
    constexpr double bytesPerSensor = 150.0;
    constexpr double picture = 40.0e6;      // 1600 x 1000 points with samples and their depths
    constexpr double pictureSeconds = 0.25; // docs/performance.md has the figures
    constexpr double fileSecondsPerSensor = 4.0e-6;
    const SensorField& field = study.inputs.field;
    const std::vector<float> areas = cellAreas(field);
    const auto sensors = static_cast<double>(field.size());
    StudyEstimate estimate;
    estimate.sensors = field.size();
    estimate.area = std::accumulate(areas.begin(), areas.end(), 0.0);
    estimate.triangles = study.inputs.scene.triangleCount();
    estimate.threads = usedThreads(study.options.threads);
    estimate.bytes = bytesNow() + picture + sensors * bytesPerSensor;
    estimate.seconds = secondsPerSensor(study, stop) * sensors / estimate.threads + pictureSeconds +
                       fileSecondsPerSensor * sensors;
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
