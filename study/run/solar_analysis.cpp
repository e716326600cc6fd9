#include "study/run/solar_analysis.h"

#include "study/support/errors.h"
#include "study/support/file_name.h"
#include "study/weather/weather_year.h"

#include <algorithm>
#include <cmath>
#include <string>

#include <fmt/format.h>

namespace insolate::study {

namespace {

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

CalculationMethod libraryMethod(Method method) {
    return method == Method::perezSky     ? CalculationMethod_PerezSky
           : method == Method::perezPoint ? CalculationMethod_PerezPoint
                                          : CalculationMethod_CumulativeSky;
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

SolarAnalysis::SolarAnalysis(const SkyOptions& options, double north)
    : m_weather(inspectWeatherFile(options.weather)), m_model(std::make_unique<EModel>()),
      m_slots(static_cast<std::size_t>(usedThreads(0))) {
    requireCompleteYear(m_weather, options.weather, options.allowGaps);
    // Model north lies at the plan angle pi/2 - north offset, which is clockwise of +Y.
    ESolarPosition::Global.setNorthOffset(ESolarPosition::convertDegreesToRadians(north));
    controller().setSolarCalculationMethod(libraryMethod(options.method));
    loadWeather(controller(), options.weather, m_weather);
    const StudyPeriod& period = options.period;
    m_weather.lastDayEmpty = lastDayIsEmpty(controller().getWeatherData());
    noteLastDay(m_weather, options);
    controller().setTimeSpec(static_cast<float>(period.startHour),
                             static_cast<float>(period.endHour), static_cast<float>(period.step),
                             period.startDay, period.endDay);
    if (!controller().isCumulativeSkyValid()) {
        throw DataError(fmt::format("{}: the sky of the period could not be built; choose another "
                                    "period",
                                    place(options.weather)));
    }
}

SolarAnalysis::~SolarAnalysis() = default;

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
    // Marks for missing values are numbers to the readers, and the store's 16 bits wrap the larger
    // ones; allowed gaps are without radiation.
    EWeatherData& store = controller.getWeatherData();
    const bool isText = hasExtension(file, {".epw"});
    constexpr int lastDay = ESolarPosition::DAYS_PER_YEAR - 1;
    for (const auto& [day, hour] : report.radiationMissing) {
        // Of text files the store has 31 December, where it is given, in the place of the 30th.
        if (isText && day == lastDay - 1 &&
            std::find(report.hoursMissing.begin(), report.hoursMissing.end(),
                      HourOfYear(lastDay, hour)) == report.hoursMissing.end()) {
            continue;
        }
        const int place = isText ? std::min(day, lastDay - 1) : day;
        store.setHourlyDirectRad(place, hour, 0.0f);
        store.setHourlyDiffuseRad(place, hour, 0.0f);
    }
}

bool lastDayIsEmpty(const EWeatherData& year) {
    const auto isDark = [&](int day) {
        for (int hour = 0; hour < ESolarPosition::HOURS_PER_DAY; ++hour) {
            if (year.getHourlyDirectRad(day, hour) != 0.0f ||
                year.getHourlyDiffuseRad(day, hour) != 0.0f) {
                return false;
            }
        }
        return true;
    };
    return isDark(ESolarPosition::DAYS_PER_YEAR - 1) && !isDark(ESolarPosition::DAYS_PER_YEAR - 2);
}

std::string siteText(const Site& site) {
    return fmt::format("{:.2f} {}, {:.2f} {}, UTC{:+}", std::abs(site.latitude),
                       site.latitude < 0.0 ? "S" : "N", std::abs(site.longitude),
                       site.longitude < 0.0 ? "W" : "E", std::round(site.timeZone * 100.0) / 100.0);
}

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
        columns[3].values[i] = onFace ? point.getShadingMask()->getUniformSkyComponent()
                                      : visibleSolidAngle(*point.getShadingMask());
    }
    slot->controller.calculate(&slot->block);
    for (std::size_t i = range.first; i < range.end; ++i) {
        const ECalculationPoint& point = points[i - range.first];
        columns[0].values[i] = notNegative(point.getValue(ResultAccumulator_Total));
        columns[1].values[i] = notNegative(point.getValue(ResultAccumulator_Average));
        columns[2].values[i] = point.getValue(ResultAccumulator_Peak);
    }
}

void SolarAnalysis::describe(nlohmann::ordered_json& record, std::span<const ResultColumn>) const {
    record["hours_counted"] = controller().getCumulativeSky().getHourCount();
}

} // namespace insolate::study
