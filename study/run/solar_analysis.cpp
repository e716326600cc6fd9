#include "study/run/solar_analysis.h"

#include "study/run/sun_paths.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"
#include "study/weather/weather_store.h"
#include "study/weather/weather_year.h"

#include <algorithm>
#include <cmath>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

/// Places of the columns.
enum ControllerColumn { totalColumn, averageColumn, peakColumn, viewColumn };

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

/// How far watches run ahead of standard time in the period. The controllers take one window for
/// all of its days.
double hoursAhead(const StudyPeriod& period, const std::string& method) {
    if (!period.summerTime || period.hasWholeDays()) {
        return 0.0;
    }
    int summerDays = 0;
    for (int day = 1; day <= 365; ++day) {
        summerDays += period.contains(day) && period.summerTime->contains(day) ? 1 : 0;
    }
    if (summerDays != 0 && summerDays != period.dayCount()) {
        throw UsageError(
            fmt::format("--dst: watches change within the period ({}), and --method {} "
                        "takes the same hours on all days; choose a --period on one "
                        "side, or --method hourly",
                        period.summerTime->text(), method));
    }
    if (summerDays != 0 && period.startHour < 1.0) {
        throw UsageError(fmt::format("--dst: in summer time --hours before 1:00 belong to the day "
                                     "before, which --method {} does not take; begin at 1:00, or "
                                     "take --method hourly",
                                     method));
    }
    return summerDays != 0 ? 1.0 : 0.0;
}

bool isZero(const Vector3& v) {
    return v.x == 0.0 && v.y == 0.0 && v.z == 0.0;
}

} // namespace

/// What a thread keeps from block to block.
struct SolarAnalysis::ThreadSlot {
    explicit ThreadSlot(const ESolarAnalysisController& source) : controller(source) {}

    ESolarAnalysisController controller;
    BlockOfPoints block;
};

SolarAnalysis::SolarAnalysis(CalculationMethod method, const SkyOptions& options, double north)
    : m_weather(inspectWeatherFile(options.weather)), m_model(std::make_unique<EModel>()),
      m_slots(static_cast<std::size_t>(usedThreads(0))) {
    requireCompleteYear(m_weather, options.weather, options.allowGaps);
    // Model north lies at the plan angle pi/2 - north offset, which is clockwise of +Y.
    ESolarPosition::Global.setNorthOffset(ESolarPosition::convertDegreesToRadians(north));
    controller().setSolarCalculationMethod(method);
    loadWeather(controller().getWeatherData(), options.weather, m_weather, GlobalSite::move);
    const StudyPeriod& period = options.period;
    m_weather.lastDayEmpty = lastDayIsEmpty(controller().getWeatherData());
    noteLastDay(m_weather, options.weather, options.method, touchesLastDays(options.period));
    const double shift = hoursAhead(period, options.method);
    controller().setTimeSpec(static_cast<float>(period.startHour - shift),
                             static_cast<float>(period.endHour - shift),
                             static_cast<float>(period.step), period.startDay, period.endDay);
    if (!controller().isCumulativeSkyValid()) {
        throw DataError(fmt::format("{}: the sky of the period could not be built; choose another "
                                    "period",
                                    place(options.weather)));
    }
}

SolarAnalysis::~SolarAnalysis() = default;

std::vector<ResultColumn> SolarAnalysis::columns() const {
    return {{"total", "Wh/m2", "Total radiation", {}},
            {"average", "W/m2", "Average radiation", {}},
            {"peak", "W/m2", "Peak radiation", {}},
            {"sky_view", "%", "Sky view", {}}};
}

void SolarAnalysis::calculate(const SensorWork& work, SensorRange range, int slotIndex,
                              std::span<ResultColumn> columns) {
    std::optional<ThreadSlot>& slot = m_slots[static_cast<std::size_t>(slotIndex)];
    if (!slot) {
        slot.emplace(controller());
    }
    std::vector<ECalculationPoint>& points = slot->block.points;
    points.clear();
    for (std::size_t i = range.first; i < range.end; ++i) {
        const Vector3& n = work.field.normals[i];
        const bool onFace = !isZero(n);
        const XYZf normal = {static_cast<float>(n.x), static_cast<float>(n.y),
                             static_cast<float>(n.z)};
        ECalculationPoint& point =
            points.emplace_back(work.recentring.local(work.field.positions[i]), normal,
                                static_cast<int>(i - range.first), 0, onFace);
        work.masks.updateMask(point, i, slotIndex);
        if (work.saved != nullptr) {
            work.saved->set(i, *point.getShadingMask());
        }
        columns[viewColumn].values[i] = onFace ? point.getShadingMask()->getUniformSkyComponent()
                                               : visibleSolidAngle(*point.getShadingMask());
    }
    slot->controller.calculate(&slot->block);
    for (std::size_t i = range.first; i < range.end; ++i) {
        const ECalculationPoint& point = points[i - range.first];
        columns[totalColumn].values[i] = notNegative(point.getValue(ResultAccumulator_Total));
        columns[averageColumn].values[i] = notNegative(point.getValue(ResultAccumulator_Average));
        columns[peakColumn].values[i] = point.getValue(ResultAccumulator_Peak);
    }
}

bool SolarAnalysis::isEnclosed(std::span<const ResultColumn> columns, const SensorField& field,
                               std::size_t sensor) const {
    // Sums of views that were taken out again are not quite 0.
    constexpr float leastSky = 0.001f;
    constexpr double straightDown = -0.999;
    return columns[viewColumn].values[sensor] < leastSky && field.normals[sensor].z >= straightDown;
}

SkyPages SolarAnalysis::skyPages() const {
    ECumulativeSky& sky = controller().getCumulativeSky();
    SkyPages pages;
    pages.parts = {{"direct", "Wh/m2", "Direct radiation", {}},
                   {"diffuse", "Wh/m2", "Diffuse radiation", {}},
                   {"peak", "W/m2", "Peak radiation", {}}};
    pages.whole = {"radiation", "Wh/m2", "Radiation by sky cell", {}};
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            const float direct = sky.getDirect(sector, band);
            const float diffuse = sky.getDiffuse(sector, band);
            pages.parts[0].values.push_back(direct);
            pages.parts[1].values.push_back(diffuse);
            pages.parts[2].values.push_back(sky.getPeak(sector, band));
            pages.whole.values.push_back(direct + diffuse);
        }
    }
    ESolarPosition sun = ESolarPosition::Global;
    pages.paths = sunPaths([&](int day, double hour) {
        sun.setDayOfTheYear(day);
        sun.setTime(hour);
        const double azimuth = sun.getSolarAzimuthInDegrees();
        return SkyPath::Point{azimuth < 0.0 ? azimuth + 360.0 : azimuth,
                              sun.getSolarAltitudeInDegrees()};
    });
    return pages;
}

void SolarAnalysis::describeSky(nlohmann::ordered_json& record) const {
    record["hours_counted"] = controller().getCumulativeSky().getHourCount();
}

} // namespace insolate::study
