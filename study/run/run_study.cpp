#include "study/run/run_study.h"

#include "study/files/folder_hold.h"
#include "study/model/sensor_grid.h"
#include "study/output/summary.h"
#include "study/results/cell_neighbours.h"
#include "study/run/calculate_hours.h"
#include "study/run/calculate_sensors.h"
#include "study/run/enclosed.h"
#include "study/run/result_files.h"
#include "study/run/run_files.h"
#include "study/run/study_batch.h"
#include "study/run/study_record.h"
#include "study/run/study_steps.h"
#include "study/support/errors.h"
#include "study/support/kept_warnings.h"
#include "study/support/readable.h"
#include "study/weather/weather_year.h"

#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <span>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

void checkHoursOf(const RunOptions& options, std::size_t sensors) {
    for (const std::size_t sensor : options.hourly.hoursOf.sensors) {
        if (sensor >= sensors) {
            throw UsageError(
                fmt::format("--hours-of {}: there is no such sensor; give numbers from "
                            "0 to {}, the lines of sensors.csv below its header",
                            sensor, sensors - 1));
        }
    }
}

PartialResults::Key resumeKey(const PreparedStudy& study) {
    const RunOptions& options = study.options;
    nlohmann::ordered_json record = runRecord(options, study.method->weather(), study.inputs);
    study.method->describeSky(record);
    study.method->describeSensors(record, {});
    record["save_masks"] = options.saveMasks;
    record["asked"] = options.asked;
    std::vector<std::filesystem::path> files = {options.weather};
    if (options.masks) {
        files.push_back(*options.masks);
    }
    if (!options.hourly.materials.empty()) {
        files.push_back(options.hourly.materials);
    }
    return PartialResults::keyOf(
        record.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace),
        study.visibility, files);
}

void readRules(RunOptions& options, const std::stop_token& stop) {
    HourlyOptions& hourly = options.hourly;
    if (!hourly.materials.empty()) {
        hourly.rules = std::make_shared<const MaterialRules>(
            readMaterials(hourly.materials, studyFileKeys(), stop));
    }
    // What is said for one run holds before what a file says of the ground.
    if (hourly.rules != nullptr && !hourly.albedo && !hourly.monthlyAlbedo) {
        hourly.albedo = hourly.rules->albedo;
    }
}

/// Gives the scene its materials, and says which surfaces have which.
void takeMaterials(PreparedStudy& study, Progress& progress, const std::stop_token& stop) {
    const HourlyOptions& hourly = study.options.hourly;
    SceneMaterials found =
        sceneMaterials(study.inputs.scene, hourly.rules.get(), hourly.otherReflectance());
    for (const MaterialUse& use : found.uses) {
        if (use.triangles > 0 || !use.pattern.empty()) {
            progress.note(fmt::format("{}: {} {}, {:.4g} m2: {}",
                                      !use.pattern.empty() ? "material " + quoteText(use.pattern)
                                      : found.uses.size() == 1 ? "all surfaces"
                                                               : "other surfaces",
                                      groupedDigits(use.triangles),
                                      counted(use.triangles, "triangle", "triangles"), use.area,
                                      use.text));
        }
    }
    for (Material& material : found.materials) {
        if (material.passage == Material::Passage::Crown) {
            material.passing =
                material.passing.scaled(static_cast<float>(1.0 / study.recentring->scale()));
        }
    }
    study.masks = makeLightMasks(study.inputs.scene, *study.recentring, found.ofTriangle,
                                 std::move(found.materials), stop);
    study.materials = std::move(found.uses);
    if (const std::size_t open = study.masks->light()->openCrowns(); open > 0) {
        progress.warn(fmt::format("{} {} with a density {} not closed: what passes is measured "
                                  "where rays enter and leave; close {}, or give a transmittance",
                                  groupedDigits(open), counted(open, "hull", "hulls"),
                                  counted(open, "is", "are"), counted(open, "it", "them")));
    }
}

/// Finished sensors of another study may have taken hours: they go only where the user knows.
void checkLeftover(const PartialResults::Leftover& left, const RunOptions& options,
                   Progress& progress) {
    if (left.isForeign) {
        throw OutputError(
            fmt::format("{}: was not written by this version of insolate, which keeps "
                        "finished sensors under that name; rename it or choose "
                        "another --out",
                        place(options.out / PartialResults::fileName)));
    }
    if (left.sensors == 0 || (options.resume && left.ofThisStudy)) {
        return;
    }
    if (options.resume) {
        throw UsageError(fmt::format(
            "--resume: the {} finished {} in {} {} to another study or version and {}; repeat the "
            "options of that run, or leave --resume out to replace them",
            groupedDigits(left.sensors), counted(left.sensors, "sensor", "sensors"),
            place(options.out), counted(left.sensors, "belongs", "belong"),
            counted(left.sensors, "stays", "stay")));
    }
    progress.warn(fmt::format(
        "{} finished {} of an interrupted run {} replaced{}", groupedDigits(left.sensors),
        counted(left.sensors, "sensor", "sensors"), counted(left.sensors, "is", "are"),
        left.ofThisStudy ? "; --resume would go on after them" : ""));
}

std::vector<SensorGroups> groupResults(const PreparedStudy& study, const StudyResults& results,
                                       const std::stop_token& stop) {
    const GroupTableOptions& options = study.options.groups;
    const SensorField& field = study.inputs.field;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> neighbours;
    GroupingOptions grouping = groupingOf(study, results);
    if (options.bestArea > 0.0) {
        neighbours = neighbouringCells(field, stop);
        grouping.bestArea = options.bestArea;
        grouping.neighbours = neighbours;
    }
    std::vector<SensorGroups> groups;
    for (const GroupBy& by : options.by.empty() ? usualGroupings(field) : options.by) {
        groups.push_back(groupSensors(field, results.columns, results.areas, by, grouping));
    }
    return groups;
}

/// The hours of the chosen sensors or of the groups; those of all sensors go straight to their
/// file.
std::vector<HourRow> hoursOfSome(const PreparedStudy& study, const SensorWork& work,
                                 const StudyResults& results, Progress& progress,
                                 const std::stop_token& stop) {
    const HoursOf& wanted = study.options.hourly.hoursOf;
    std::vector<HourRow> rows;
    if (!wanted.sensors.empty()) {
        calculateHours(
            *study.method, work, wanted.sensors, study.options.threads,
            [&](std::size_t first, std::span<const SensorHours> hours) {
                for (std::size_t i = 0; i < hours.size(); ++i) {
                    rows.push_back({std::to_string(wanted.sensors[first + i]), hours[i]});
                }
            },
            progress, stop);
    } else if (wanted.groups) {
        constexpr std::size_t mostGroups = 2000; // 300 kB each
        std::size_t groups = 0;
        for (const SensorGroups& grouping : results.groups) {
            groups += grouping.groups.size();
        }
        if (groups > mostGroups) {
            throw UsageError(fmt::format("--hours-of groups: {} groups are more than {}; choose "
                                         "fewer with --by or --select, or give --hours-of all",
                                         groupedDigits(groups), groupedDigits(mostGroups)));
        }
        GroupHours sums(results.groups, results.areas);
        calculateHours(
            *study.method, work, everySensor(study.inputs.field), study.options.threads,
            [&](std::size_t first, std::span<const SensorHours> hours) { sums.add(first, hours); },
            progress, stop);
        rows = sums.rows();
    }
    return rows;
}

} // namespace

GroupingOptions groupingOf(const PreparedStudy& study, const StudyResults& results) {
    return {.classes = study.options.groups.classes,
            .north = study.options.north,
            .included = results.included,
            .thresholds = thresholdsOf(study.options.groups)};
}

std::vector<std::filesystem::path> filesRead(const RunOptions& options) {
    std::vector<std::filesystem::path> files = options.scenes;
    files.push_back(options.sensorFile());
    files.push_back(options.weather);
    if (options.masks) {
        files.push_back(*options.masks);
    }
    if (!options.hourly.materials.empty()) {
        files.push_back(options.hourly.materials);
    }
    return files;
}

void reportResults(const PreparedStudy& study, const StudyResults& results, Progress& progress) {
    const std::vector<float>& totals = results.columns.front().values;
    if (!study.method->reportsDarkness() && results.enclosedCount < totals.size() &&
        std::all_of(totals.begin(), totals.end(), [](float total) { return total == 0.0f; })) {
        progress.warn(noLightText(study.options.weather));
    }
    if (results.enclosedCount > 0) {
        progress.warn(enclosedWarning(results.enclosedCount, study.inputs.field.size(),
                                      study.method->enclosedText(), study.options.keepEnclosed));
    }
    const ColumnRange range =
        rangeOf(inShownUnit(results.columns.front()).values, results.areas, results.included);
    progress.note(fmt::format("total radiation {:.4g} to {:.4g}, {} {:.4g} kWh/m2", range.lowest,
                              range.highest, results.areas.empty() ? "mean" : "mean by area",
                              range.mean));
}

PreparedStudy prepareStudy(const RunOptions& options, GivenInputs given, Progress& progress,
                           const std::stop_token& stop, const PreparedStudy* earlier) {
    PreparedStudy study;
    study.options = options;
    readRules(study.options, stop);
    if (earlier != nullptr) {
        study.method = earlier->method->again(study.options, options.north, given.weather);
    }
    if (study.method == nullptr) {
        tbb::task_arena arena(usedThreads(options.threads));
        arena.execute([&] {
            study.method = makeRadiationMethod(study.options, options.north, given.weather);
        });
    }
    reportStudy(options, study.method->weather(), progress);
    if (const std::string advice = study.method->advice(); !advice.empty()) {
        progress.note(advice);
    }
    study.watch.lap("weather_and_sky_s");
    study.inputs = given.models ? std::move(*given.models) : readInputs(options, progress, stop);
    checkHoursOf(options, study.inputs.field.size());
    study.watch.lap("models_s");
    study.recentring = std::make_unique<Recentring>(
        given.recentring ? *given.recentring : Recentring(study.inputs.scene, study.inputs.field));
    study.visibility = visibilityKey(study.inputs.scene, study.inputs.field, options.north);
    if (options.masks) {
        study.stored = std::make_unique<SkyVisibilityStore>(
            SkyVisibilityStore::read(*options.masks, study.visibility));
        study.masks = makeStoredMasks(*study.stored, options.north);
    } else if (study.options.hourly.rules != nullptr || study.options.reflects()) {
        takeMaterials(study, progress, stop);
    } else {
        study.masks = makeRayMasks(study.inputs.scene, *study.recentring, options.rays, stop,
                                   study.method->processScene());
    }
    throwIfStopped(stop);
    study.watch.lap("ray_index_s");
    return study;
}

StudyResults calculateStudy(PreparedStudy& study, PartialResults* kept, Progress& progress,
                            const std::stop_token& stop) {
    StudyResults results;
    if (study.options.saveMasks) {
        results.seen = SkyVisibilityStore(study.inputs.field.size());
    }
    const SensorWork work = study.work(study.options.saveMasks ? &results.seen : nullptr);
    results.columns =
        calculateSensors(*study.method, work, study.options.threads, kept, progress, stop);
    addReflected(study, results, progress, stop);
    completeResults(study, results, progress, stop);
    return results;
}

void addReflected(PreparedStudy& study, StudyResults& results, Progress& progress,
                  const std::stop_token& stop) {
    if (study.mayBeFollowed && study.options.reflects()) {
        results.direct = results.columns;
    }
    study.reflected = study.method->addReflected(
        study.work(), study.options.threads, study.mayAskHours, results.columns, progress, stop);
}

void completeResults(PreparedStudy& study, StudyResults& results, Progress& progress,
                     const std::stop_token& stop) {
    const SensorField& field = study.inputs.field;
    results.areas = cellAreas(field);
    results.enclosed = enclosedSensors(*study.method, results.columns, field);
    results.enclosedCount = static_cast<std::size_t>(
        std::count(results.enclosed.begin(), results.enclosed.end(), 1.0f));
    if (results.enclosedCount > 0 && !study.options.keepEnclosed) {
        results.included.resize(field.size());
        std::transform(results.enclosed.begin(), results.enclosed.end(), results.included.begin(),
                       [](float enclosed) { return enclosed == 0.0f ? 1 : 0; });
    }
    results.groups = groupResults(study, results, stop);
    results.hours = hoursOfSome(study, study.work(), results, progress, stop);
    study.watch.lap("sensors_s");
}

void runStudy(const RunOptions& options, Progress& progress, const std::stop_token& stop) {
    std::optional<StudyInputs> inputs;
    runStudy(options, progress, stop, inputs);
}

void runStudy(const RunOptions& options, Progress& listener, const std::stop_token& stop,
              std::optional<StudyInputs>& shared) {
    checkRunOptions(options);
    checkOutFolder(options.out);
    KeptWarnings progress(listener);
    OutputFolder folder(options.out, filesRead(options));
    const FolderHold hold(progress, folder);
    requireFreeFolder<RunAnswer>(folder, options);
    PreparedStudy study =
        prepareStudy(options, {.models = std::exchange(shared, std::nullopt)}, progress, stop);
    study.mayAskHours = options.hourly.hoursOf.any();
    PartialResults partial(options.out, resumeKey(study), options.resume);
    checkLeftover(partial.leftover(), options, progress);
    try {
        StudyResults results = calculateStudy(study, &partial, progress, stop);
        reportResults(study, results, progress);
        results.warnings = progress.warnings();
        if (!study.options.hourly.hoursOf.all) {
            study.masks.reset(); // the index of the rays makes room for what the files take
        }
        writeResults(folder, RunAnswer{study.options, study.watch, study, results}, progress, stop);
        partial.remove();
        shared = std::move(study.inputs);
    } catch (const Stopped& stopped) {
        const std::size_t kept = partial.sensorsKept();
        if (kept == 0) {
            throw;
        }
        throw Stopped(fmt::format("{}; run again with --resume to go on after {} {}",
                                  stopped.what(), groupedDigits(kept),
                                  counted(kept, "sensor", "sensors")));
    }
}

} // namespace insolate::study
