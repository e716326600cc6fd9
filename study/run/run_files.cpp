#include "study/run/run_files.h"

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

HoursHead hoursHead(const PreparedStudy& study) {
    return {hoursOfPeriod(study.options.period), study.method->weather().site.timeZone,
            studySubtitle(study.options, study.method->weather()), study.options.reflects()};
}

} // namespace

nlohmann::ordered_json summaryRecord(const RunAnswer& answer) {
    const PreparedStudy& study = answer.study;
    const StudyResults& results = answer.results;
    nlohmann::ordered_json record =
        runRecord(answer.options, study.method->weather(), study.inputs);
    study.method->describeSky(record);
    study.method->describeSensors(record, results.columns);
    if (study.reflected != nullptr) {
        const ReflectionReport& report = study.reflected->report();
        record["hourly"]["reflected"] = {{"reflections_followed", report.bounces},
                                         {"share_beyond", report.beyond},
                                         {"converged", report.converged},
                                         {"cells", report.cells},
                                         {"rays", report.rays},
                                         {"bytes", report.bytes}};
    }
    for (const MaterialUse& use : study.materials) {
        record["hourly"]["materials"].push_back({{"names", use.pattern.empty() ? "*" : use.pattern},
                                                 {"taken_for", use.text},
                                                 {"triangles", use.triangles},
                                                 {"area_m2", use.area}});
    }
    record["sensors"]["enclosed"] = results.enclosedCount;
    record["sensors"]["enclosed_in_means"] = answer.options.keepEnclosed;
    if (!results.areas.empty()) {
        record["sensors"]["area_m2"] =
            std::accumulate(results.areas.begin(), results.areas.end(), 0.0);
    }
    record["sensors"]["means_weighted_by"] = results.areas.empty() ? "count" : "area";
    record["results"] = rangesOf(results.columns, results.areas, results.included);
    record["warnings"] = results.warnings;
    record["threads"] = usedThreads(answer.options.threads);
    for (const auto& [stage, seconds] : answer.watch.stages()) {
        record["timings"][stage] = seconds;
    }
    record["timings"]["whole_s"] = answer.watch.whole();
    return record;
}

void writeTable(OutputFile& out, const RunAnswer& answer, Progress& progress,
                const std::stop_token& stop) {
    std::vector<LabelColumn> labels;
    if (auto starts =
            peakStarts(answer.results.columns, answer.study.method->weather().site.timeZone)) {
        labels.push_back(std::move(*starts));
    }
    const SensorField& field = answer.study.inputs.field;
    const std::vector<ResultColumn> columns = tableColumns(answer.results);
    writeSensorsCsv(out, field, columns, labels, stop);
    if (const std::string text = renamedText(field, columns, labels); !text.empty()) {
        progress.note(text);
    }
}

void writeCells(OutputFile& out, const RunAnswer& answer, Progress&, const std::stop_token& stop) {
    writeSensorsVtp(out, answer.study.inputs.field, tableColumns(answer.results),
                    studySubtitle(answer.options, answer.study.method->weather()), stop);
}

void writeGroups(OutputFile& out, const RunAnswer& answer, Progress&, const std::stop_token&) {
    writeGroupsCsv(out, answer.results.groups, answer.results.columns,
                   answer.study.method->weather().site.timeZone,
                   thresholdsOf(answer.options.groups), answer.options.groups.bestArea);
}

void writePicture(OutputFile& out, const RunAnswer& answer, Progress&,
                  const std::stop_token& stop) {
    ResultColumn shown = inShownUnit(answer.results.columns.front());
    for (std::size_t i = 0; i < answer.results.included.size(); ++i) {
        if (answer.results.included[i] == 0) {
            shown.values[i] = std::numeric_limits<float>::quiet_NaN();
        }
    }
    PictureOptions picture;
    picture.subtitle = studySubtitle(answer.options, answer.study.method->weather());
    picture.north = answer.options.north;
    picture.areas = answer.results.areas;
    drawPicture(out, answer.study.inputs.scene, answer.study.inputs.field, shown, picture, stop);
}

void writeMasks(OutputFile& out, const RunAnswer& answer, Progress&, const std::stop_token&) {
    answer.results.seen.write(out, answer.study.visibility);
}

void writeHours(OutputFile& out, const RunAnswer& answer, Progress& progress,
                const std::stop_token& stop) {
    const HoursOf& wanted = answer.options.hourly.hoursOf;
    if (wanted.groups) {
        HoursFile file(out, hoursHead(answer.study), answer.results.groups);
        for (const HourRow& row : answer.results.hours) {
            file.add(row.hours);
        }
        file.finish();
        return;
    }
    const std::vector<std::size_t> sensors =
        wanted.all ? everySensor(answer.study.inputs.field) : wanted.sensors;
    HoursFile file(out, hoursHead(answer.study), answer.study.inputs.field, answer.results.areas,
                   sensors);
    if (wanted.all) {
        calculateHours(
            *answer.study.method, answer.study.work(), sensors, answer.options.threads,
            [&](std::size_t, std::span<const SensorHours> hours) {
                for (const SensorHours& row : hours) {
                    file.add(row);
                }
            },
            progress, stop);
    }
    for (const HourRow& row : answer.results.hours) {
        file.add(row.hours);
    }
    file.finish();
}

void writeHoursTable(OutputFile& out, const RunAnswer& answer, Progress&, const std::stop_token&) {
    writeHoursCsv(out, hoursOfPeriod(answer.options.period),
                  answer.study.method->weather().site.timeZone, answer.results.hours);
}

void writeSummary(OutputFile& out, const RunAnswer& answer, Progress&, const std::stop_token&) {
    writeSummaryJson(out, summaryRecord(answer));
}

void writePage(OutputFile& out, const RunAnswer& answer, Progress& progress,
               const std::stop_token& stop) {
    writeStudyPage(out, answer, progress, stop);
}

bool wantsMasks(const RunOptions& options) {
    return options.saveMasks;
}

bool wantsHours(const RunOptions& options) {
    return options.hourly.hoursOf.any();
}

bool wantsHoursTable(const RunOptions& options) {
    return wantsHours(options) && !options.hourly.hoursOf.all;
}

bool wantsPage(const RunOptions& options) {
    return options.page;
}

} // namespace insolate::study
