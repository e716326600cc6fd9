#include "study/model/sensor_csv.h"

#include "study/files/input_file.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr std::size_t mostFields = 6;

/// Splits at semicolons; at commas in a line without any, so that decimal commas are no further
/// fields; at blanks and tabs in a line without either. More than mostFields are counted, not kept.
std::size_t splitFields(std::string_view line, std::array<std::string_view, mostFields>& fields) {
    constexpr std::string_view blanks = " \t";
    const bool byBlanks = line.find_first_of(";,") == std::string_view::npos;
    const std::string_view separators = byBlanks                                   ? blanks
                                        : line.find(';') == std::string_view::npos ? ","
                                                                                   : ";";
    std::size_t count = 0;
    for (;;) {
        const std::size_t end = line.find_first_of(separators);
        if (count < mostFields) {
            fields[count] = trimmed(line.substr(0, end));
        }
        ++count;
        if (end == std::string_view::npos) {
            return count;
        }
        line.remove_prefix(byBlanks ? line.find_first_not_of(blanks, end) : end + 1);
    }
}

} // namespace

SensorField readSensorCsv(const std::filesystem::path& file, LengthUnit unit, UpAxis up,
                          const std::stop_token& stop) {
    InputFile in(file, inputKinds::sensorTable, stop);
    const double scale = metresIn(unit);
    SensorField field;
    std::array<std::string_view, mostFields> fields;
    std::string text;
    std::size_t expected = 0;
    bool first = true;
    for (std::size_t line = 1; in.readLine(text); ++line) {
        std::string_view row = text;
        if (line == 1 && row.starts_with("\xEF\xBB\xBF")) {
            row.remove_prefix(3);
        }
        row = trimmed(row);
        if (row.empty() || row.front() == '#') {
            continue;
        }
        const std::size_t count = splitFields(row, fields);
        const auto kept = fields.begin() + std::min(count, mostFields);
        if (std::exchange(first, false)) {
            const auto numbers = std::count_if(fields.begin(), kept, [](std::string_view word) {
                return word.find_first_of("0123456789") == 0 ||
                       parseNumber<double>(word).has_value();
            });
            const bool isWords = row.find_first_of(";,") == std::string_view::npos;
            if (numbers == 0 ||
                (isWords && numbers < std::min<std::ptrdiff_t>(3, kept - fields.begin()))) {
                continue; // the header; one of words may have a number among them
            }
        }
        if (count != 3 && count != 6) {
            const bool hasDecimalCommas = count > 1 && row.find(", ") == std::string_view::npos &&
                                          fields[1].find_first_of(" \t") != std::string_view::npos;
            const bool isMixed = std::any_of(fields.begin(), kept, [](std::string_view word) {
                return word.empty() || word.find_first_of(" \t,") != std::string_view::npos;
            });
            throw DataError(fmt::format("{}: {} {} where x,y,z or x,y,z,nx,ny,nz is expected; {}",
                                        place(file, line), count, counted(count, "field", "fields"),
                                        hasDecimalCommas ? "write decimals with a point"
                                        : isMixed ? "separate all fields alike, none of them empty"
                                                  : "complete the line or delete it"));
        }
        if (expected == 0) {
            expected = count;
        }
        if (count != expected) {
            throw DataError(fmt::format("{}: {} fields where the lines above have {}; make all "
                                        "lines alike",
                                        place(file, line), count, expected));
        }
        std::array<double, mostFields> values = {};
        for (std::size_t i = 0; i < count; ++i) {
            const auto number = parseNumber<double>(fields[i]);
            if (!number || !(std::abs(*number) < 1.0e12)) {
                const bool hasComma = fields[i].find(',') != std::string_view::npos;
                throw DataError(fmt::format("{}: field {}: {} is not a usable number; {}",
                                            place(file, line), i + 1, quoteText(fields[i]),
                                            hasComma ? "write decimals with a point"
                                                     : "correct or delete the line"));
            }
            values[i] = *number;
        }
        Vector3 normal;
        if (count == 6) {
            normal = toModelAxes({values[3], values[4], values[5]}, 1.0, up);
            const double size = length(normal);
            if (!(size > 1.0e-9)) {
                throw DataError(fmt::format(
                    "{}: the normal is zero; give the direction in which the sensor faces, or "
                    "leave the normals out of the whole table",
                    place(file, line)));
            }
            normal = normal * (1.0 / size);
        }
        field.positions.push_back(toModelAxes({values[0], values[1], values[2]}, scale, up));
        field.normals.push_back(normal);
    }
    if (field.positions.empty()) {
        throw DataError(
            fmt::format("{}: the table has no sensors; give lines of x,y,z,nx,ny,nz", place(file)));
    }
    return field;
}

} // namespace insolate::study
