#include "study/run/sun_hours_files.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/output/group_table.h"
#include "study/output/picture.h"
#include "study/output/sensor_tables.h"
#include "study/output/summary.h"
#include "study/output/text.h"
#include "study/run/stopwatch.h"
#include "study/run/study_page.h"
#include "study/run/study_record.h"
#include "study/run/sun_hours_steps.h"
#include "study/support/errors.h"
#include "study/support/iso_time.h"
#include "study/support/kept_warnings.h"
#include "study/support/period.h"
#include "study/support/readable.h"

#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include <fmt/format.h>
#include <insolate/version.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

constexpr std::string_view spansHeader = "sensor,begin,end,length [min]\n";

std::string presetText(const SunHoursStudy& study) {
    if (study.options.rule.preset.empty()) {
        return {};
    }
    const SunlightPreset& preset = sunlightPreset(study.options.rule.preset);
    return fmt::format("{}, {} ({}); ", preset.title, preset.country, preset.edition);
}

/// What made the results, in one line.
std::string subtitleOf(const SunHoursStudy& study) {
    return fmt::format("{}, {}; {}{}; centre of the disc, {} refraction; insolate {}",
                       study.site.name, study.options.year, presetText(study), ruleText(study.rule),
                       study.options.refraction ? "with" : "without", INSOLATE_VERSION);
}

/// The first column as people read it: hours, of the sensors that count.
ResultColumn shownColumn(const SunHoursResults& results) {
    ResultColumn shown = inShownUnit(results.columns.front());
    for (std::size_t i = 0; i < results.included.size(); ++i) {
        if (results.included[i] == 0) {
            shown.values[i] = std::numeric_limits<float>::quiet_NaN();
        }
    }
    return shown;
}

std::vector<ResultColumn> tableColumns(const SunHoursResults& results) {
    std::vector<ResultColumn> columns = results.columns;
    columns.push_back(
        {"enclosed", "0 or 1", "Whether it looks into closed geometry", results.enclosed});
    if (!results.areas.empty()) {
        columns.push_back({"area", "m2", "Area of the cell", results.areas});
    }
    return columns;
}

/// "2025-03-21T09:00:03.4+01:00".
class IsoTime {
public:
    IsoTime(int year, double timeZone) : m_year(year), m_offset(isoOffset(timeZone)) {}

    [[nodiscard]] std::string text(int dayOfYear, double minutes) const {
        const auto tenths = static_cast<long>(std::lround(minutes * 600.0));
        constexpr long wholeDay = 864000;
        // A window of solar time may lie partly in a neighbouring date of the clock.
        const long days = (tenths >= 0 ? tenths : tenths - wholeDay + 1) / wholeDay;
        const long rest = tenths - days * wholeDay;
        const MonthAndDay date = monthAndDay(static_cast<int>((dayOfYear - 1 + days + 365) % 365));
        const int year = m_year + static_cast<int>((dayOfYear - 1 + days + 365) / 365) - 1;
        return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{}{}", year, date.month, date.day,
                           rest / 36000, rest / 600 % 60, rest / 10 % 60, rest % 10, m_offset);
    }

private:
    int m_year;
    std::string m_offset;
};

/// @param options the study's, but for the folder of the results
nlohmann::ordered_json recordOf(const SunHoursOptions& options, const SunHoursStudy& study,
                                const SunHoursResults& results, const Stopwatch& watch,
                                const std::vector<std::string>& warnings) {
    const SunlightRule& rule = study.rule;
    nlohmann::ordered_json record;
    record["versions"] = versionsInUse();
    record["question"] = "hours of direct sun";
    record.update(sunRecord(study));
    if (!options.baseline.empty()) {
        record["rule"]["baseline"] = options.baseline.string();
        record["rule"]["ratio"] = *rule.baselineRatio;
    }
    describeModel(record, options.model, study.inputs, options.out);
    record["sensors"]["enclosed"] = results.enclosedCount;
    record["sensors"]["enclosed_in_means"] = options.keepEnclosed;
    if (!results.areas.empty()) {
        record["sensors"]["area_m2"] =
            std::accumulate(results.areas.begin(), results.areas.end(), 0.0);
    }
    record["sensors"]["means_weighted_by"] = results.areas.empty() ? "count" : "area";
    record["results"] = rangesOf(results.columns, results.areas, results.included);
    if (results.passes) {
        std::size_t passing = 0;
        for (const SunGroupResult& group : results.groups) {
            passing += group.passes ? 1 : 0;
        }
        record["verdict"] = {{"passes", *results.passes},
                             {"groups", results.groups.size()},
                             {"groups_that_pass", passing}};
    }
    record["warnings"] = warnings;
    record["threads"] = usedThreads(options.model.threads);
    for (const auto& [stage, seconds] : watch.stages()) {
        record["timings"][stage] = seconds;
    }
    record["timings"]["whole_s"] = watch.whole();
    return record;
}

void report(const SunHoursResults& results, Progress& progress) {
    const ResultColumn shown = shownColumn(results);
    const ColumnRange range = rangeOf(shown.values, results.areas);
    progress.note(fmt::format("{}: {:.4g} to {:.4g}, {} {:.4g} {}", shown.title, range.lowest,
                              range.highest, results.areas.empty() ? "mean" : "mean by area",
                              range.mean, shown.unit));
    if (!results.passes) {
        return;
    }
    std::size_t sensors = 0;
    std::size_t passing = 0;
    std::size_t groups = 0;
    for (const SunGroupResult& group : results.groups) {
        sensors += group.sensors;
        passing += group.passing;
        groups += group.passes ? 1 : 0;
    }
    progress.note(fmt::format("{}: {} of {} {} and {} of {} {} pass",
                              *results.passes ? "PASS" : "FAIL", groupedDigits(passing),
                              groupedDigits(sensors), counted(sensors, "sensor", "sensors"),
                              groupedDigits(groups), groupedDigits(results.groups.size()),
                              counted(results.groups.size(), "group", "groups")));
}

/// What a result must not replace.
std::vector<std::filesystem::path> filesRead(const SunHoursOptions& options) {
    std::vector<std::filesystem::path> files = options.model.scenes;
    if (options.model.sensors) {
        files.push_back(*options.model.sensors);
    }
    if (!options.baseline.empty()) {
        files.push_back(options.baseline / "sensors.csv");
        files.push_back(options.baseline / "summary.json");
    }
    return files;
}

} // namespace

void writeTable(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
                const std::stop_token& stop) {
    const SensorField& field = answer.study.inputs.field;
    const std::vector<ResultColumn> columns = tableColumns(answer.results);
    writeSensorsCsv(out, field, columns, {}, stop);
    if (const std::string text = renamedText(field, columns); !text.empty()) {
        progress.note(text);
    }
}

void writeCells(OutputFile& out, const SunHoursAnswer& answer, Progress&,
                const std::stop_token& stop) {
    writeSensorsVtp(out, answer.study.inputs.field, tableColumns(answer.results),
                    subtitleOf(answer.study), stop);
}

void writeGroups(OutputFile& out, const SunHoursAnswer& answer, Progress&, const std::stop_token&) {
    const SunHoursStudy& study = answer.study;
    const SunHoursResults& results = answer.results;
    const std::string unit = results.columns.front().unit;
    const bool judged = results.passes.has_value();
    const bool areas = !results.areas.empty();
    out.write(sunGroupHeadings);
    out.write(fmt::format("{}least [{}],greatest [{}]", areas ? "area [m2]," : "", unit, unit));
    if (judged) {
        out.write(fmt::format(",sensors that pass,{}share that passes [%],passes [0 or 1]",
                              areas ? "area that passes [m2]," : ""));
    }
    if (judged && !study.options.baseline.empty()) {
        out.write(",share that passed before [%]");
    }
    out.write("\n");
    const auto number = [&](double value) {
        out.write(",");
        out.writeNumber(value);
    };
    for (const SunGroupResult& group : results.groups) {
        out.write(fmt::format("{},{}", csvField(validText(group.name)), group.sensors));
        if (areas) {
            number(group.area);
        }
        number(group.least);
        number(group.greatest);
        if (judged) {
            out.write(fmt::format(",{}", group.passing));
            if (areas) {
                number(group.passingArea);
            }
            number(100.0 * group.passingArea / group.area);
            out.write(group.passes ? ",1" : ",0");
            if (!study.options.baseline.empty()) {
                number(100.0 * group.formerArea / group.area);
            }
        }
        out.write("\n");
    }
}

void writePicture(OutputFile& out, const SunHoursAnswer& answer, Progress&,
                  const std::stop_token& stop) {
    PictureOptions picture;
    picture.subtitle = subtitleOf(answer.study);
    picture.north = answer.options.model.north;
    picture.areas = answer.results.areas;
    drawPicture(out, answer.study.inputs.scene, answer.study.inputs.field,
                shownColumn(answer.results), picture, stop);
}

void writeSpans(OutputFile& out, const SunHoursAnswer& answer, Progress&,
                const std::stop_token& stop) {
    const SunHoursStudy& study = answer.study;
    const IsoTime iso(study.options.year, study.site.site.timeZone);
    out.write(spansHeader);
    for (const std::vector<SensorSpan>& block : answer.results.spans) {
        throwIfStopped(stop);
        for (const auto& [sensor, day, time] : block) {
            const int dayOfYear = study.rule.days[day];
            out.write(fmt::format("{},{},{},{:.3f}\n", sensor, iso.text(dayOfYear, time.begin),
                                  iso.text(dayOfYear, time.end), time.length()));
        }
    }
}

void writePage(OutputFile& out, const SunHoursAnswer& answer, Progress&,
               const std::stop_token& stop) {
    writeResultsPage(out, sunHoursInMemory(answer.study, answer.results, answer.warned.warnings()),
                     answer.study.inputs.scene, pageNameIn(answer.options.out),
                     answer.options.pageLimit, stop);
}

void writeSummary(OutputFile& out, const SunHoursAnswer& answer, Progress&,
                  const std::stop_token&) {
    writeSummaryJson(out, recordOf(answer.options, answer.study, answer.results, answer.watch,
                                   answer.warned.warnings()));
}

bool wantsSpans(const SunHoursOptions& options) {
    return options.spans;
}

bool wantsPage(const SunHoursOptions& options) {
    return options.page;
}

bool isOurSpans(const std::filesystem::path& file) {
    return fileBeginning(file, spansHeader.size()) == spansHeader;
}

nlohmann::ordered_json sunRecord(const SunHoursStudy& study) {
    const SunHoursOptions& options = study.options;
    const SunlightRule& rule = study.rule;
    nlohmann::ordered_json record;
    record["site"] = {{"text", study.site.name},
                      {"latitude_deg", study.site.site.latitude},
                      {"longitude_deg", study.site.site.longitude},
                      {"time_zone_h", study.site.site.timeZone}};
    record["sun"] = {{"year", options.year},
                     {"disc", "centre"},
                     {"refraction", options.refraction},
                     {"least_altitude_deg", rule.leastAltitude},
                     {"least_plan_angle_deg", rule.leastPlanAngle}};
    record["rule"]["text"] = ruleText(rule);
    if (!options.rule.preset.empty()) {
        const SunlightPreset& preset = sunlightPreset(options.rule.preset);
        record["rule"]["preset"] = {{"name", preset.name},
                                    {"title", preset.title},
                                    {"country", preset.country},
                                    {"edition", preset.edition},
                                    {"note", preset.note}};
    }
    record["rule"]["days_of_year"] = rule.days;
    record["rule"]["which_days"] = rule.dayRule == DayRule::every ? "every" : "any";
    record["rule"]["time_basis"] = rule.window.basis == TimeBasis::clock   ? "clock"
                                   : rule.window.basis == TimeBasis::solar ? "true solar time"
                                                                           : "sunrise and sunset";
    if (const auto& summer = rule.window.summerTime) {
        record["rule"]["clock"] = "watches: the site's zone, and an hour ahead in summer time";
        record["rule"]["summer_time"] = {{"text", summer->text()},
                                         {"first_day", summer->firstDay},
                                         {"last_day", summer->lastDay}};
    }
    if (rule.hours) {
        record["rule"]["hours"] = *rule.hours;
    }
    record["rule"]["window_h"] = {rule.window.start, rule.window.end};
    record["rule"]["count"] = std::string(rule.sense == SunSense::sunAtLeast ? "sun" : "shadow") +
                              (rule.count == SunCount::sum          ? ", sum"
                               : rule.count == SunCount::longest    ? ", longest"
                               : rule.count == SunCount::longestFew ? ", longest "
                                                                    : ", one gap") +
                              (rule.count == SunCount::longestFew ? std::to_string(rule.few) : "");
    record["rule"]["least_span_min"] = rule.leastSpan;
    if (rule.hoursWithGap) {
        record["rule"]["hours_with_gap"] = *rule.hoursWithGap;
    }
    if (rule.probable) {
        record["rule"]["probable_sun"] = {
            {"share_by_month", rule.probable->share},
            {"year_percent", rule.probable->yearPercent},
            {"winter_percent", rule.probable->winterPercent},
            {"winter_days", {rule.probable->winterStart, rule.probable->winterEnd}}};
    }
    return record;
}

void runSunHours(const SunHoursOptions& options, Progress& progress, const std::stop_token& stop) {
    std::optional<StudyInputs> inputs;
    runSunHours(options, progress, stop, inputs);
}

void runSunHours(const SunHoursOptions& options, Progress& listener, const std::stop_token& stop,
                 std::optional<StudyInputs>& shared) {
    KeptWarnings progress(listener);
    Stopwatch watch;
    checkOutFolder(options.out);
    OutputFolder folder(options.out, filesRead(options));
    const FolderHold hold(progress, folder);
    requireFreeFolder<SunHoursAnswer>(folder, options);
    SunHoursStudy study =
        prepareSunHours(options, std::exchange(shared, std::nullopt), progress, stop);
    watch.lap("models_s");
    const SunHoursResults results = calculateSunHours(study, progress, stop);
    watch.lap("sensors_s");
    report(results, progress);
    writeResults(folder, SunHoursAnswer{options, watch, study, results, progress}, progress, stop);
    shared = std::move(study.inputs);
}

void saveSunHours(const SunHoursStudy& study, const SunHoursResults& results,
                  const std::vector<std::string>& warnings, const std::filesystem::path& out,
                  Progress& progress, const std::stop_token& stop) {
    checkOutFolder(out);
    SunHoursOptions options = study.options;
    options.out = out;
    Stopwatch watch;
    Progress silent; // they were heard when they came up
    KeptWarnings warned(silent);
    for (const std::string& warning : warnings) {
        warned.warn(warning);
    }
    OutputFolder folder(out, filesRead(options));
    const FolderHold hold(progress, folder);
    requireFreeFolder<SunHoursAnswer>(folder, options);
    writeResults(folder, SunHoursAnswer{options, watch, study, results, warned}, progress, stop);
}

ResultFolder sunHoursInMemory(const SunHoursStudy& study, const SunHoursResults& results,
                              const std::vector<std::string>& warnings) {
    std::vector<ResultColumn> columns = results.columns;
    columns.push_back(
        {"enclosed", "0 or 1", "Whether it looks into closed geometry", results.enclosed});
    const Stopwatch watch;
    ResultFolder folder =
        resultsInMemory(recordOf(study.options, study, results, watch, warnings)
                            .dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace),
                        study.inputs.field, std::move(columns), results.areas);
    folder.facts.madeBy = subtitleOf(study);
    return folder;
}

} // namespace insolate::study
