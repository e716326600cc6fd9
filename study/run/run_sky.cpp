#include "study/run/run_sky.h"

#include "study/files/output_folder.h"
#include "study/output/sky_output.h"
#include "study/output/summary.h"
#include "study/run/hourly_study.h"
#include "study/run/solar_analysis.h"
#include "study/run/study_record.h"

#include <array>
#include <memory>
#include <numbers>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr std::array<int, 3> pathDays = {172, 80, 355};

/// The sun's way on the longest, a middle and the shortest day, for orientation.
/// @param sunAt gives azimuth and altitude [degrees] by day of the year and clock hour
template <typename SunAt>
std::vector<SkyPath> sunPaths(SunAt&& sunAt) {
    std::vector<SkyPath> paths;
    for (const int day : pathDays) {
        SkyPath path{.label = dayText(day), .points = {}};
        for (int minute = 0; minute <= 1440; minute += 10) {
            path.points.push_back(sunAt(day, minute / 60.0));
        }
        paths.push_back(std::move(path));
    }
    return paths;
}

/// A sky as table and picture show it.
struct SkyPages {
    std::vector<ResultColumn> parts; ///< of the table
    ResultColumn whole;              ///< of the picture
    std::vector<SkyPath> paths;
};

SkyPages pagesOf(const HourlyStudy& study) {
    const HourlySky& sky = study.sky();
    SkyPages pages;
    const std::vector<float> empty(static_cast<std::size_t>(skyGrid::cellCount), 0.0f);
    pages.parts = {{"direct", "Wh/m2", "Direct radiation", empty},
                   {"diffuse", "Wh/m2", "Diffuse radiation", sky.diffuse},
                   {"sun_hours", "h", "Hours of sun", empty}};
    pages.whole = {"radiation", "Wh/m2", "Radiation by sky cell", empty};
    for (const SunCell& sun : sky.sunCells) {
        pages.parts[0].values[static_cast<std::size_t>(sun.cell)] = sun.directNormal;
        pages.parts[2].values[static_cast<std::size_t>(sun.cell)] = sun.sunHours;
    }
    const SkyCells cells(sky.options.northOffset);
    for (std::size_t cell = 0; cell < empty.size(); ++cell) {
        pages.parts[1].values[cell] *= cells.solidAngle[cell];
        pages.whole.values[cell] = pages.parts[0].values[cell] + pages.parts[1].values[cell];
    }
    pages.paths = sunPaths([&](int day, double hour) {
        const MonthAndDay date = monthAndDay(day - 1);
        const SunPosition sun =
            sunPosition(julianDay(2001, date.month, date.day, hour - sky.site.timeZone), sky.site);
        constexpr double degrees = 180.0 / std::numbers::pi;
        return SkyPath::Point{sun.azimuth * degrees, sun.altitude * degrees};
    });
    return pages;
}

SkyPages pagesOf(const SolarAnalysis& analysis) {
    ECumulativeSky& sky = analysis.controller().getCumulativeSky();
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

} // namespace

void runSky(const SkyOptions& options, Progress& progress, const std::stop_token& stop) {
    OutputFolder folder(options.out);
    folder.requireFree({"sky.csv", "sky.png", "sky.json"});
    const std::unique_ptr<RadiationMethod> method = makeRadiationMethod(options, 0.0);
    reportStudy(options, method->weather(), progress);
    const auto* hourly = dynamic_cast<const HourlyStudy*>(method.get());
    const SkyPages pages =
        hourly != nullptr ? pagesOf(*hourly) : pagesOf(dynamic_cast<const SolarAnalysis&>(*method));

    writeSkyCsv(folder.stage("sky.csv"), pages.parts);
    SkyDomeOptions picture;
    picture.title = pages.whole.title;
    picture.subtitle = studySubtitle(options, method->weather());
    picture.paths = pages.paths;
    drawSkyDome(folder.stage("sky.png"), pages.whole, picture);
    nlohmann::ordered_json record = studyRecord(options, method->weather());
    method->describe(record, {});
    if (hourly != nullptr) { // these belong to sensors in a scene
        for (const char* name : {"ground", "sky_tolerance_percent", "sun_tolerance_percent"}) {
            record["hourly"].erase(name);
        }
    }
    record["results"] = rangesOf(pages.parts);
    writeSummaryJson(folder.stage("sky.json"), record);
    throwIfStopped(stop);
    folder.commit();
    progress.note(fmt::format("wrote sky.csv, sky.png and sky.json in {}", options.out.string()));
}

} // namespace insolate::study
