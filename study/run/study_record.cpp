#include "study/run/study_record.h"

#include "study/output/summary.h"
#include "study/results/result_scene.h"
#include "study/support/readable.h"

#include <system_error>

#include <fmt/format.h>
#include <insolate/version.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

nlohmann::ordered_json studyRecord(const SkyOptions& options, const WeatherReport& weather) {
    nlohmann::ordered_json record;
    record["versions"] = versionsInUse();
    record["weather"] = {{"file", options.weather.string()},
                         {"site", weather.site.text()},
                         {"latitude_deg", weather.site.latitude},
                         {"longitude_deg", weather.site.longitude},
                         {"time_zone_h", weather.site.timeZone},
                         {"elevation_m", weather.site.elevation},
                         {"hours_present", weather.hoursPresent},
                         {"hours_missing", weather.hoursMissing.size()},
                         {"hours_marked_missing", weather.radiationMissing.size()}};
    const StudyPeriod& period = options.period;
    record["period"] = {{"text", period.text()},          {"first_day", period.startDay},
                        {"last_day", period.endDay},      {"days", period.dayCount()},
                        {"start_hour", period.startHour}, {"end_hour", period.endHour},
                        {"step_h", period.step}};
    record["period"]["clock"] = "standard time of the weather file";
    if (period.summerTime && !period.hasWholeDays()) { // whole days keep to the zone
        record["period"]["clock"] = "watches: standard time, and an hour ahead in summer time";
        record["period"]["summer_time"] = {{"text", period.summerTime->text()},
                                           {"first_day", period.summerTime->firstDay},
                                           {"last_day", period.summerTime->lastDay}};
    }
    record["method"] = options.method;
    return record;
}

namespace {

void describeReading(nlohmann::ordered_json& record, const ModelReading& reading) {
    record["metres_per_unit"] = metresIn(reading.import.unit);
    if (reading.import.up) {
        record["up"] = *reading.import.up == UpAxis::y ? "y" : "z";
    }
    if (!reading.import.lod.empty()) {
        record["lod"] = reading.import.lod;
    }
    record["orient"] = orientName(reading.orient);
}

} // namespace

void describeModel(nlohmann::ordered_json& record, const ModelOptions& options,
                   const StudyInputs& inputs, const std::filesystem::path& out) {
    record["scene"]["files"] = nlohmann::ordered_json::array();
    record["scene"]["files_from_here"] = nlohmann::ordered_json::array();
    for (const auto& file : options.scenes) {
        std::error_code problem;
        record["scene"]["files"].push_back(file.string());
        record["scene"]["files_from_here"].push_back(
            std::filesystem::proximate(file, out, problem).string());
    }
    record["scene"]["fingerprint"] = sceneFingerprint(inputs.scene);
    record["scene"]["triangles"] = inputs.scene.triangleCount();
    describeReading(record["scene"], {options.import, options.orient});
    record["scene"]["north_deg"] = options.north;
    for (const ModelReading& reading : options.readings) {
        nlohmann::ordered_json one;
        describeReading(one, reading);
        record["scene"]["files_read"].push_back(std::move(one));
    }
    record["sensors"] = {{"file", options.sensorFile().string()}, {"count", inputs.field.size()}};
    if (inputs.spacing) {
        record["sensors"]["grid_m"] = *inputs.spacing;
    }
    if (inputs.offset) {
        record["sensors"]["offset_m"] = *inputs.offset;
        record["sensors"]["merge_faces"] = options.mergeFaces;
        record["sensors"]["select"] = options.selection.patterns;
        record["sensors"]["exclude"] = options.selection.exclude;
        nlohmann::ordered_json facing = nlohmann::ordered_json::array();
        for (const Facing side : options.selection.facing) {
            facing.push_back(facingName(side));
        }
        record["sensors"]["facing"] = facing;
        if (const auto& tilt = options.selection.tilt) {
            record["sensors"]["tilt_deg"] = {tilt->least, tilt->most};
        }
    }
}

nlohmann::ordered_json runRecord(const RunOptions& options, const WeatherReport& weather,
                                 const StudyInputs& inputs) {
    nlohmann::ordered_json record = studyRecord(options, weather);
    record["rays"] = options.masks                       ? "masks " + options.masks->string()
                     : options.rays == RayMethod::octree ? "octree"
                                                         : "fast";
    describeModel(record, options, inputs, options.out);
    return record;
}

std::string studySubtitle(const SkyOptions& options, const WeatherReport& weather) {
    return fmt::format("{}; {}; {}; insolate {}", weather.site.text(), options.period.text(),
                       options.method, INSOLATE_VERSION);
}

void reportStudy(const SkyOptions& options, const WeatherReport& weather, Progress& progress) {
    progress.note(fmt::format("weather of {}: {} {}", weather.site.text(),
                              groupedDigits(weather.hoursPresent),
                              counted(weather.hoursPresent, "hour", "hours")));
    const StudyPeriod& period = options.period;
    progress.note(fmt::format("{} method, {}{}", options.method, period.text(),
                              period.hasWholeDays() ? ", 0:00 to 24:00" : ""));
    for (const std::string& text : weather.notes) {
        progress.warn(text);
    }
    if (weather.hoursRepeated > 0) {
        progress.warn(fmt::format("{} {} an hour; the last one stands", weather.hoursRepeated,
                                  counted(weather.hoursRepeated, "line repeats", "lines repeat")));
    }
    if (weather.gapCount() > 0) {
        progress.warn(fmt::format(
            "{} {} as without radiation", weather.gapCount(),
            counted(weather.gapCount(), "hour without data counts", "hours without data count")));
    }
}

} // namespace insolate::study
