#include "app/run/solar_analysis.h"

#include "app/errors.h"
#include "app/terminal/interrupt.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <thread>

#include <fmt/format.h>
#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>

namespace insolate::app {

namespace {

/// Points of one block: enough to keep the threads from meeting, few enough to stop soon.
constexpr std::size_t blockSize = 256;

/// A block of sensors as the library asks for it.
class BlockOfPoints final : public EUiController {
public:
    void onPointsRemaining(int) override {}
    void onResultRange(float, float, float, float, float, float) override {}
    void onPointTime(double) override {}
    void onUnusedCallback() override {}
    int getPointCount() override { return static_cast<int>(points.size()); }
    ECalculationPoint* getPoint(int index) override {
        return &points[static_cast<std::size_t>(index)];
    }

    std::vector<ECalculationPoint> points;
};

/// What a thread keeps from block to block.
struct ThreadSlot {
    explicit ThreadSlot(const ESolarAnalysisController& source) : controller(source) {}

    ESolarAnalysisController controller;
    BlockOfPoints block;
};

/// Solid angle of the visible cells over the one of the dome [%].
float visibleSolidAngle(const EShadingMask& mask) {
    double visible = 0.0;
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        double exposure = 0.0;
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            exposure += static_cast<double>(mask.getExposure(sector, band));
        }
        visible += exposure / skyGrid::azimuthCount *
                   (std::sin(static_cast<double>(skyGrid::bandUpperEdge(band))) -
                    std::sin(static_cast<double>(skyGrid::bandLowerEdge(band))));
    }
    return static_cast<float>(100.0 * visible);
}

/// The ground's share of a surface that faces straight down is the cosine of a right angle, which
/// rounds to just below zero; NaN stays what it is.
float notNegative(float value) {
    return value < 0.0f ? 0.0f : value;
}

bool isZero(const Vector3& v) {
    return v.x == 0.0 && v.y == 0.0 && v.z == 0.0;
}

} // namespace

std::string methodName(CalculationMethod method) {
    switch (method) {
    case CalculationMethod_PerezSky:
        return "perez-sky";
    case CalculationMethod_PerezPoint:
        return "perez-point";
    case CalculationMethod_CumulativeSky:
        break;
    }
    return "cumulative-sky";
}

SolarAnalysis::SolarAnalysis(const SkyOptions& options, double north)
    : m_weather(inspectWeatherFile(options.weather)), m_model(std::make_unique<EModel>()) {
    requireCompleteYear(m_weather, options.weather, options.allowGaps);
    // Model north lies at the plan angle pi/2 - north offset, which is clockwise of +Y.
    ESolarPosition::Global.setNorthOffset(ESolarPosition::convertDegreesToRadians(north));
    controller().setSolarCalculationMethod(options.method);
    loadWeather(controller(), options.weather, m_weather);
    const StudyPeriod& period = options.period;
    controller().setTimeSpec(static_cast<float>(period.startHour),
                             static_cast<float>(period.endHour), static_cast<float>(period.step),
                             period.startDay, period.endDay);
    if (!controller().isCumulativeSkyValid()) {
        throw DataError(fmt::format("{}: the sky of the period could not be built; choose another "
                                    "period",
                                    place(options.weather)));
    }
}

void loadWeather(ESolarAnalysisController& controller, const std::filesystem::path& file,
                 const WeatherReport& report) {
    constexpr std::size_t longestName = 260;
    std::wstring name;
    try {
        name = file.wstring();
    } catch (const std::exception&) {
        throw DataError(
            fmt::format("{}: the file name is not UTF-8; rename the file", place(file)));
    }
    if (name.size() > longestName) {
        throw DataError(fmt::format("{}: the file name is longer than {} characters; go to its "
                                    "folder or copy the file to a shorter name",
                                    place(file), longestName));
    }
    auto result = static_cast<ResultLoadWeatherData>(0);
    if (!controller.setWeatherFile(name, result)) {
        throw DataError(fmt::format("{}: cannot be opened as a weather file; give an .epw, .wea or "
                                    ".mra file that you may read",
                                    place(file)));
    }
    // Marks for missing values are numbers to the readers; allowed gaps are without radiation.
    if (!report.radiationMissing.empty()) {
        EWeatherData& store = controller.getWeatherData();
        const auto isMark = [](float value) { return value < 0.0f || value >= 9999.0f; };
        for (int day = 0; day < ESolarPosition::DAYS_PER_YEAR; ++day) {
            for (int hour = 0; hour < ESolarPosition::HOURS_PER_DAY; ++hour) {
                if (isMark(store.getHourlyDirectRad(day, hour)) ||
                    isMark(store.getHourlyDiffuseRad(day, hour))) {
                    store.setHourlyDirectRad(day, hour, 0.0f);
                    store.setHourlyDiffuseRad(day, hour, 0.0f);
                }
            }
        }
    }
}

std::string siteText(const Site& site) {
    return fmt::format("{:.2f} {}, {:.2f} {}, UTC{:+}", std::abs(site.latitude),
                       site.latitude < 0.0 ? "S" : "N", std::abs(site.longitude),
                       site.longitude < 0.0 ? "W" : "E", std::round(site.timeZone * 100.0) / 100.0);
}

int usedThreads(int threads) {
    const int processors = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return threads <= 0 ? processors : std::min(threads, processors);
}

SensorResults calculateSensors(SolarAnalysis& analysis, const SensorWork& work,
                               Progress& progress) {
    const SensorField& field = work.field;
    const std::size_t count = field.size();
    SensorResults results;
    for (auto* values : {&results.total, &results.average, &results.peak, &results.skyView}) {
        values->resize(count);
    }

    // A slot of the arena is a slot in every triangle's memory of rays: no more than processors.
    tbb::task_arena arena(usedThreads(work.threads));
    std::vector<std::optional<ThreadSlot>> slots(
        static_cast<std::size_t>(usedThreads(work.threads)));

    const auto calculateBlock = [&](std::size_t first) {
        const int slotIndex = tbb::this_task_arena::current_thread_index();
        std::optional<ThreadSlot>& slot = slots[static_cast<std::size_t>(slotIndex)];
        if (!slot) {
            slot.emplace(analysis.controller());
        }
        std::vector<ECalculationPoint>& points = slot->block.points;
        points.clear();
        const std::size_t end = std::min(first + blockSize, count);
        for (std::size_t i = first; i < end; ++i) {
            const Vector3& n = field.normals[i];
            const bool onFace = !isZero(n);
            const XYZf normal = {static_cast<float>(n.x), static_cast<float>(n.y),
                                 static_cast<float>(n.z)};
            ECalculationPoint& point =
                points.emplace_back(work.recentring.local(field.positions[i]), normal,
                                    static_cast<int>(i - first), 0, onFace);
            work.masks.updateMask(point, i, slotIndex);
            if (work.saved != nullptr) {
                work.saved->set(i, *point.getShadingMask());
            }
            results.skyView[i] = onFace ? point.getShadingMask()->getUniformSkyComponent()
                                        : visibleSolidAngle(*point.getShadingMask());
        }
        slot->controller.calculate(&slot->block);
        for (std::size_t i = first; i < end; ++i) {
            const ECalculationPoint& point = points[i - first];
            results.total[i] = notNegative(point.getValue(ResultAccumulator_Total));
            results.average[i] = notNegative(point.getValue(ResultAccumulator_Average));
            results.peak[i] = point.getValue(ResultAccumulator_Peak);
        }
        progress.advance(end - first);
    };

    progress.begin(count, "sensors");
    arena.execute([&] {
        const std::size_t blocks = (count + blockSize - 1) / blockSize;
        tbb::parallel_for(
            tbb::blocked_range<std::size_t>(0, blocks, 1),
            [&](const tbb::blocked_range<std::size_t>& range) {
                for (std::size_t block = range.begin(); block < range.end(); ++block) {
                    if (pendingSignal() != 0) {
                        return;
                    }
                    calculateBlock(block * blockSize);
                }
            },
            tbb::simple_partitioner());
    });
    progress.end();
    throwIfInterrupted();
    return results;
}

} // namespace insolate::app
