#include "study/run/result_files.h"

#include "study/output/group_table.h"
#include "study/output/hours_file.h"
#include "study/output/hours_table.h"
#include "study/output/picture.h"
#include "study/output/sensor_tables.h"
#include "study/output/summary.h"
#include "study/results/label_column.h"
#include "study/run/calculate_hours.h"
#include "study/run/study_page.h"
#include "study/run/study_record.h"
#include "study/run/sun_hours_study.h"

#include <array>
#include <limits>
#include <numeric>
#include <utility>

#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

/// The method's columns, the sensors that look into closed geometry and, where sensors have cells,
/// the cells' areas.
std::vector<ResultColumn> tableColumns(const StudyResults& results) {
    std::vector<ResultColumn> columns = results.columns;
    columns.push_back(
        {"enclosed", "0 or 1", "Whether it looks into closed geometry", results.enclosed});
    if (!results.areas.empty()) {
        columns.push_back({"area", "m2", "Area of the cell", results.areas});
    }
    return columns;
}

void writeCsv(OutputFile& out, const PreparedStudy& study, const StudyResults& results, Progress&,
              const std::stop_token& stop) {
    std::vector<LabelColumn> labels;
    if (auto starts = peakStarts(results.columns, study.method->weather().site.timeZone)) {
        labels.push_back(std::move(*starts));
    }
    writeSensorsCsv(out, study.inputs.field, tableColumns(results), labels, stop);
}

void writeVtp(OutputFile& out, const PreparedStudy& study, const StudyResults& results, Progress&,
              const std::stop_token& stop) {
    writeSensorsVtp(out, study.inputs.field, tableColumns(results),
                    studySubtitle(study.options, study.method->weather()), stop);
}

void writeGroups(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                 Progress&, const std::stop_token&) {
    writeGroupsCsv(out, results.groups, results.columns, study.method->weather().site.timeZone,
                   thresholdsOf(study.options.groups), study.options.groups.bestArea);
}

void writePicture(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                  Progress&, const std::stop_token& stop) {
    ResultColumn shown = inKilowattHours(results.columns.front());
    for (std::size_t i = 0; i < results.included.size(); ++i) {
        if (results.included[i] == 0) {
            shown.values[i] = std::numeric_limits<float>::quiet_NaN();
        }
    }
    PictureOptions picture;
    picture.subtitle = studySubtitle(study.options, study.method->weather());
    picture.north = study.options.north;
    picture.areas = results.areas;
    drawPicture(out, study.inputs.scene, study.inputs.field, shown, picture, stop);
}

void writeMasks(OutputFile& out, const PreparedStudy& study, const StudyResults& results, Progress&,
                const std::stop_token&) {
    results.seen.write(out, study.visibility);
}

HoursHead hoursHead(const PreparedStudy& study) {
    return {hoursOfPeriod(study.options.period), study.method->weather().site.timeZone,
            studySubtitle(study.options, study.method->weather())};
}

void writeHours(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                Progress& progress, const std::stop_token& stop) {
    const HoursOf& wanted = study.options.hourly.hoursOf;
    if (wanted.groups) {
        HoursFile file(out, hoursHead(study), results.groups);
        for (const HourRow& row : results.hours) {
            file.add(row.hours);
        }
        file.finish();
        return;
    }
    const std::vector<std::size_t> sensors =
        wanted.all ? everySensor(study.inputs.field) : wanted.sensors;
    HoursFile file(out, hoursHead(study), study.inputs.field, results.areas, sensors);
    if (wanted.all) {
        calculateHours(
            *study.method, study.work(), sensors, study.options.threads,
            [&](std::size_t, std::span<const SensorHours> hours) {
                for (const SensorHours& row : hours) {
                    file.add(row);
                }
            },
            progress, stop);
    }
    for (const HourRow& row : results.hours) {
        file.add(row.hours);
    }
    file.finish();
}

void writeHoursTable(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                     Progress&, const std::stop_token&) {
    writeHoursCsv(out, hoursOfPeriod(study.options.period), study.method->weather().site.timeZone,
                  results.hours);
}

void writeSummary(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                  Progress&, const std::stop_token&) {
    writeSummaryJson(out, summaryRecord(study, results));
}

bool always(const RunOptions&) {
    return true;
}

bool never(const RunOptions&) {
    return false;
}

constexpr std::array listedFiles = {
    ResultFile{"sensors.csv", always, writeCsv, isOurSensorsCsv},
    ResultFile{"groups.csv", always, writeGroups, isOurGroupsCsv},
    ResultFile{"sensors.vtp", always, writeVtp, isOurSensorsVtp},
    ResultFile{"heatmap.png", always, writePicture, isOurPicture},
    // Masks of another study stay: they are expensive, and a run refuses those that do not fit.
    ResultFile{"sensors.masks", [](const RunOptions& o) { return o.saveMasks; }, writeMasks,
               SkyVisibilityStore::isStore},
    ResultFile{"hours.nc", [](const RunOptions& o) { return o.hourly.hoursOf.any(); }, writeHours,
               isOurHoursFile, true},
    ResultFile{"hours.csv",
               [](const RunOptions& o) { return o.hourly.hoursOf.any() && !o.hourly.hoursOf.all; },
               writeHoursTable, isOurHoursCsv, true},
    // Earlier versions wrote it where hours.csv stands now.
    ResultFile{"series.csv", never, nullptr, isOurSeriesCsv, true},
    ResultFile{"page.html", [](const RunOptions& o) { return o.page; }, writeStudyPage, isOurPage,
               true},
    ResultFile{"spans.csv", never, nullptr, isOurSpans, true}, // of the hours of sun
    ResultFile{"summary.json", always, writeSummary, isOurSummary},
};

} // namespace

nlohmann::ordered_json summaryRecord(const PreparedStudy& study, const StudyResults& results) {
    nlohmann::ordered_json record = runRecord(study.options, study.method->weather(), study.inputs);
    study.method->describeSky(record);
    study.method->describeSensors(record, results.columns);
    record["sensors"]["enclosed"] = results.enclosedCount;
    record["sensors"]["enclosed_in_means"] = study.options.keepEnclosed;
    if (!results.areas.empty()) {
        record["sensors"]["area_m2"] =
            std::accumulate(results.areas.begin(), results.areas.end(), 0.0);
    }
    record["sensors"]["means_weighted_by"] = results.areas.empty() ? "count" : "area";
    record["results"] = rangesOf(results.columns, results.areas, results.included);
    record["warnings"] = results.warnings;
    record["threads"] = usedThreads(study.options.threads);
    for (const auto& [stage, seconds] : study.watch.stages()) {
        record["timings"][stage] = seconds;
    }
    record["timings"]["whole_s"] = study.watch.whole();
    return record;
}

std::span<const ResultFile> resultFiles() {
    return listedFiles;
}

} // namespace insolate::study
