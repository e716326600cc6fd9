#include "study/run/sun_hours_baseline.h"

#include "study/files/input_file.h"
#include "study/model/mesh.h"
#include "study/results/table_records.h"
#include "study/support/errors.h"
#include "study/support/fields.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

using Json = nlohmann::ordered_json;

/// A field of summary.json on which minutes of sun or their verdict depend.
struct SunField {
    const char* pointer;
    const char* option; ///< by which it is set
};

constexpr std::array sunFields = {
    SunField{"/site/latitude_deg", "--lat"},
    SunField{"/site/longitude_deg", "--lon"},
    SunField{"/site/time_zone_h", "--tz"},
    SunField{"/scene/north_deg", "--north"},
    SunField{"/sun/year", "--year"},
    SunField{"/sun/refraction", "--refraction"},
    SunField{"/sun/least_altitude_deg", "--min-altitude"},
    SunField{"/sun/least_plan_angle_deg", "--min-plan-angle"},
    SunField{"/rule/days_of_year", "--dates"},
    SunField{"/rule/which_days", "--days"},
    SunField{"/rule/time_basis", "--time"},
    SunField{"/rule/window_h", "--hours"},
    SunField{"/rule/summer_time/text", "--dst"},
    SunField{"/rule/count", "--count"},
    SunField{"/rule/least_span_min", "--min-span"},
    SunField{"/rule/hours", "--min"},
    SunField{"/rule/hours_with_gap", "--min-with-gap"},
    SunField{"/rule/probable_sun", "--sunshine"},
};

Json fieldOf(const Json& record, const SunField& field) {
    const Json::json_pointer pointer(field.pointer);
    return record.contains(pointer) ? record.at(pointer) : Json();
}

std::string valueText(const Json& value) {
    constexpr std::size_t longest = 60;
    const std::string text = value.is_null() ? "nothing" : value.dump();
    return text.size() <= longest ? text : text.substr(0, longest) + "...";
}

} // namespace

void requireSameSun(const std::filesystem::path& folder, const Json& record) {
    const std::filesystem::path file = folder / "summary.json";
    const Json theirs =
        Json::parse(InputFile(file, inputKinds::ownResults).readAll(), nullptr, false);
    if (!theirs.is_object()) {
        throw DataError(
            fmt::format("{}: not a summary of insolate; make the baseline again", place(file)));
    }
    for (const SunField& field : sunFields) {
        const Json before = fieldOf(theirs, field);
        const Json now = fieldOf(record, field);
        if (before != now) {
            throw DataError(fmt::format("{}: the baseline has another {}: {}, and this study {}; "
                                        "make both with the same options",
                                        place(file), field.option, valueText(before),
                                        valueText(now)));
        }
    }
}

Baseline readBaseline(const std::filesystem::path& folder, const SensorField& field, bool probable,
                      const std::stop_token& stop) {
    const std::filesystem::path file = folder / "sensors.csv";
    TableRecords records(file, inputKinds::resultTable, stop);
    std::string line;
    records.next(line);
    const std::string first = line;
    std::vector<std::string_view> header;
    splitFields(first, ",", header);
    const auto columnOf = [&](std::string_view name) {
        const auto found = std::find(header.begin(), header.end(), name);
        if (found == header.end()) {
            throw DataError(fmt::format("{}: there is no column '{}'; give the folder of an "
                                        "'insolate sunhours' run with the same kind of threshold",
                                        place(file, 1), name));
        }
        return static_cast<std::size_t>(found - header.begin());
    };
    const std::size_t value = columnOf(probable ? "probable_sun [%]" : "sun [min]");
    const std::size_t winter = probable ? columnOf("probable_sun_winter [%]") : 0;
    const std::size_t passes = columnOf("passes [0 or 1]");
    constexpr double wholePercent = 100.0 + 1.0e-3;   // rounding allowed for
    constexpr double wholeYear = 366.0 * 24.0 * 60.0; // minutes
    // The place comes first. Names at the end of a record may have commas and line ends within.
    constexpr std::size_t ofPlace = 3;
    const std::size_t width = std::max(header.size(), ofPlace);
    Baseline baseline;
    std::vector<std::string_view> fields;
    while (records.next(line)) {
        splitFields(line, ",", fields);
        const auto at = [&](std::size_t column) {
            const auto parsed =
                fields.size() >= width ? parseNumber<double>(fields[column]) : std::nullopt;
            if (!parsed) {
                throw DataError(fmt::format("{}: not a line of results; write the baseline again",
                                            place(file, records.line())));
            }
            return *parsed;
        };
        const std::size_t sensor = baseline.values.size();
        constexpr double samePlace = 1.0e-3; // metres
        if (sensor >= field.size() ||
            length(Vector3{at(0), at(1), at(2)} - field.positions[sensor]) > samePlace) {
            throw DataError(fmt::format("{}: not the sensors of this study; make the baseline with "
                                        "the same --sensors, --select, --grid and --offset",
                                        place(file, records.line())));
        }
        const auto within = [&](std::size_t column, double highest) {
            const double read = at(column);
            if (!(read >= 0.0 && read <= highest)) {
                throw DataError(fmt::format("{}: field {}: {} is no value from 0 to {}; write the "
                                            "baseline again",
                                            place(file, records.line()), column + 1,
                                            quoteText(fields[column]), highest));
            }
            return read;
        };
        baseline.values.push_back(within(value, probable ? wholePercent : wholeYear));
        baseline.winter.push_back(probable ? within(winter, wholePercent) : 0.0);
        baseline.passes.push_back(within(passes, 1.0) != 0.0);
    }
    if (baseline.values.size() != field.size()) {
        throw DataError(fmt::format("{}: {} sensors, but this study has {}; make the baseline with "
                                    "the same --sensors, --select, --grid and --offset",
                                    place(file), baseline.values.size(), field.size()));
    }
    return baseline;
}

} // namespace insolate::study
