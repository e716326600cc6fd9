#include "app/run/run_sky.h"

#include "app/output/output_folder.h"
#include "app/output/sky_output.h"
#include "app/output/summary.h"
#include "app/run/solar_analysis.h"
#include "app/run/study_record.h"
#include "app/terminal/interrupt.h"

#include <array>
#include <cmath>

#include <fmt/format.h>

namespace insolate::app {

namespace {

/// The sun's way on the longest, a middle and the shortest day, for orientation.
std::vector<SkyPath> sunPaths() {
    std::vector<SkyPath> paths;
    for (const int day : {172, 80, 355}) {
        SkyPath path{.label = dayText(day), .points = {}};
        ESolarPosition sun = ESolarPosition::Global;
        sun.setDayOfTheYear(day);
        for (int minute = 0; minute <= 1440; minute += 10) {
            sun.setTime(minute / 60.0);
            const double azimuth = sun.getSolarAzimuthInDegrees();
            path.points.push_back({.azimuth = azimuth < 0.0 ? azimuth + 360.0 : azimuth,
                                   .altitude = sun.getSolarAltitudeInDegrees()});
        }
        paths.push_back(std::move(path));
    }
    return paths;
}

} // namespace

void runSky(const SkyOptions& options, Progress& progress) {
    OutputFolder folder(options.out);
    SolarAnalysis analysis(options, 0.0);
    reportWeather(analysis.weather(), progress);

    ECumulativeSky& sky = analysis.controller().getCumulativeSky();
    std::array<ResultColumn, 4> columns;
    columns[0] = {"direct", "Wh/m2", "Direct radiation", {}};
    columns[1] = {"diffuse", "Wh/m2", "Diffuse radiation", {}};
    columns[2] = {"peak", "W/m2", "Peak radiation", {}};
    columns[3] = {"radiation", "Wh/m2", "Radiation by sky cell", {}};
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            const float direct = sky.getDirect(sector, band);
            const float diffuse = sky.getDiffuse(sector, band);
            columns[0].values.push_back(direct);
            columns[1].values.push_back(diffuse);
            columns[2].values.push_back(sky.getPeak(sector, band));
            columns[3].values.push_back(direct + diffuse);
        }
    }
    const std::span<const ResultColumn> parts(columns.data(), 3);
    writeSkyCsv(folder.stage("sky.csv"), parts);
    SkyDomeOptions picture;
    picture.title = columns[3].title;
    picture.subtitle = studySubtitle(options, analysis.weather());
    picture.paths = sunPaths();
    drawSkyDome(folder.stage("sky.png"), columns[3], picture);
    nlohmann::ordered_json record = studyRecord(options, analysis.weather());
    record["hours_counted"] = sky.getHourCount();
    record["results"] = rangesOf(parts);
    writeSummaryJson(folder.stage("sky.json"), record);
    throwIfInterrupted();
    folder.commit();
    progress.note(fmt::format("wrote sky.csv, sky.png and sky.json in {}", options.out.string()));
}

} // namespace insolate::app
