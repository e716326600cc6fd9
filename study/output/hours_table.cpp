#include "study/output/hours_table.h"

#include "study/files/input_file.h"
#include "study/output/text.h"
#include "study/results/table_records.h"
#include "study/support/errors.h"
#include "study/support/fields.h"
#include "study/support/iso_time.h"
#include "study/support/numbers.h"

#include <cmath>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <insolate/weather/weather_series.h>

namespace insolate::study {

namespace {

constexpr std::string_view hourHeadings = "hour_of_year,start";
constexpr std::string_view formerHeadings = "hour_of_year,month,day,hour";
constexpr std::string_view unitText = " [Wh/m2]";
constexpr std::size_t hoursOfYear = hoursPerYear;
/// 2,000 groups, each with a long name.
constexpr InputKind hoursKind = {
    .name = "table of hours", .mostBytes = 4ULL << 30U, .mostLineBytes = 64U << 20U};

[[noreturn]] void refuseHours(const std::filesystem::path& file, std::size_t line,
                              std::string_view what) {
    throw DataError(fmt::format("{}: {}; calculate the results again", place(file, line), what));
}

/// The rows that a table's headings announce, without their hours.
std::vector<HourRow> rowsOf(const std::vector<std::string_view>& headings,
                            const std::filesystem::path& file) {
    constexpr std::size_t before = 2;
    const std::size_t ofReflected = before + hourParts(false).size();
    const std::span<const HourPart> parts = hourParts(
        headings.size() > ofReflected &&
        unquoted(headings[ofReflected]).starts_with(fmt::format("{}_", everyHourPart.back().name)));
    if (headings.size() < before || (headings.size() - before) % parts.size() != 0) {
        refuseHours(file, 1, "does not begin as a table of hours does");
    }
    std::vector<HourRow> rows;
    for (std::size_t i = before; i < headings.size(); ++i) {
        const std::size_t part = (i - before) % parts.size();
        const std::string heading = unquoted(headings[i]);
        const std::string beginning = fmt::format("{}_", parts[part].name);
        if (!heading.starts_with(beginning) || !heading.ends_with(unitText) ||
            heading.size() < beginning.size() + unitText.size()) {
            refuseHours(file, 1,
                        fmt::format("column {} is not {} in Wh/m2", i + 1, parts[part].name));
        }
        if (part == 0) {
            HourRow row;
            row.name = heading.substr(beginning.size(),
                                      heading.size() - beginning.size() - unitText.size());
            for (const HourPart& one : parts) {
                (row.hours.*one.values).assign(hoursOfYear, 0.0f);
            }
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

} // namespace

void writeHoursCsv(OutputFile& out, std::span<const int> hours, double timeZone,
                   std::span<const HourRow> rows) {
    out.write(hourHeadings);
    for (const HourRow& row : rows) {
        for (const HourPart& part : hourParts(row.hours)) {
            out.write("," +
                      csvField(fmt::format("{}_{}{}", part.name, validText(row.name), unitText)));
        }
    }
    out.write("\n");
    for (const int hour : hours) {
        out.write(fmt::format("{},{}", hour + 1, isoHourStart(hour, timeZone)));
        for (const HourRow& row : rows) {
            for (const HourPart& part : hourParts(row.hours)) {
                out.write(",");
                out.writeNumber((row.hours.*part.values)[static_cast<std::size_t>(hour)]);
            }
        }
        out.write("\n");
    }
}

std::vector<HourRow> readHoursCsv(const std::filesystem::path& file, const std::stop_token& stop) {
    TableRecords records(file, hoursKind, stop);
    std::string text;
    if (!records.next(text) || !text.starts_with(hourHeadings)) {
        refuseHours(file, 1, "does not begin as a table of hours does");
    }
    std::vector<std::string_view> fields;
    splitFields(text, ",", fields);
    std::vector<HourRow> rows = rowsOf(fields, file);
    const std::size_t width = fields.size();
    int last = 0;
    while (records.next(text)) {
        splitFields(text, ",", fields);
        const auto hour = parseNumber<int>(fields[0]);
        if (fields.size() != width || !hour || *hour < 1 || *hour > static_cast<int>(hoursOfYear)) {
            refuseHours(file, records.line(), "is not the line of an hour");
        }
        if (*hour <= last) {
            refuseHours(file, records.line(), "does not follow the hour before it");
        }
        last = *hour;
        const auto at = static_cast<std::size_t>(*hour - 1);
        std::size_t field = 2;
        for (HourRow& row : rows) {
            for (const HourPart& part : hourParts(row.hours)) {
                const auto value = parseNumber<float>(fields[field]);
                if (!value || !(*value >= 0.0F) || std::isinf(*value)) {
                    refuseHours(file, records.line(),
                                fmt::format("field {} is not an hour's radiation", field + 1));
                }
                (row.hours.*part.values)[at] = *value;
                ++field;
            }
        }
    }
    return rows;
}

bool isOurHoursCsv(const std::filesystem::path& file) {
    return fileBeginning(file, hourHeadings.size()) == hourHeadings;
}

bool isOurSeriesCsv(const std::filesystem::path& file) {
    return fileBeginning(file, formerHeadings.size()) == formerHeadings;
}

} // namespace insolate::study
