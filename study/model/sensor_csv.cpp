#include "study/model/sensor_csv.h"

#include "study/files/input_file.h"
#include "study/support/errors.h"
#include "study/support/fields.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"
#include "study/support/utf8.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// What sensors are made from, in the order of a table without a header.
constexpr std::array<std::string_view, 6> knownNames = {"x", "y", "z", "nx", "ny", "nz"};
constexpr std::size_t coordinateCount = 3;
constexpr const char* knownText =
    "known are x, y and z, which are needed, nx, ny and nz, a unit behind a coordinate as in "
    "'x [m]', and columns that are passed on, such as id or name";

struct LinePlace {
    const std::filesystem::path& file;
    std::size_t line;

    [[nodiscard]] std::string text() const { return place(file, line); }
};

/// Where things stand in a line.
struct Layout {
    std::size_t width = 0;                                        ///< fields of every line
    std::array<std::optional<std::size_t>, knownNames.size()> at; ///< of knownNames
    std::array<double, coordinateCount> scale{1.0, 1.0, 1.0};     ///< metres in one unit
    std::vector<std::size_t> given;                               ///< of all other columns
    std::string_view separators;                                  ///< empty: as each line shows

    [[nodiscard]] bool hasNormals() const { return at.back().has_value(); }
};

/// Semicolons; commas in a line without any, so that decimal commas are no further fields; blanks
/// and tabs in a line without either.
std::string_view separatorsOf(std::string_view line) {
    return line.find(';') != line.npos ? ";" : line.find(',') != line.npos ? "," : " \t";
}

/// A column's name in small letters and the unit behind it.
std::pair<std::string, std::string> nameAndUnit(std::string_view heading) {
    const std::size_t bracket = heading.find_first_of("[(");
    const std::string name = lowered(trimmed(heading.substr(0, bracket)));
    if (bracket == heading.npos) {
        return {name, ""};
    }
    heading.remove_prefix(bracket + 1);
    return {name, std::string(trimmed(heading.substr(0, heading.find_first_of("])"))))};
}

std::optional<std::size_t> knownColumn(const std::string& name) {
    const auto* const found = std::find(knownNames.begin(), knownNames.end(), name);
    return found == knownNames.end()
               ? std::nullopt
               : std::optional(static_cast<std::size_t>(found - knownNames.begin()));
}

/// A column's name, or a text that is passed on: both stand in the results, which are UTF-8.
std::string textOf(std::string_view field, std::size_t column, const LinePlace& where) {
    const auto refuse = [&](const char* what) {
        throw DataError(fmt::format("{}: field {}: {}", where.text(), column + 1, what));
    };
    if (!isUtf8(field)) {
        refuse("the text is not UTF-8; save the sensor table as UTF-8");
    }
    if (!hasClosedQuotes(field)) {
        refuse(
            "quotes are opened and not closed at the field's end; write them twice within a text "
            "in quotes");
    }
    return unquoted(field);
}

/// The fields of a header. A unit is no field of its own where blanks separate.
std::vector<std::string> headingsOf(std::string_view row, std::string_view separators,
                                    const LinePlace& where) {
    std::vector<std::string_view> fields;
    splitFields(row, separators, fields);
    std::vector<std::string> headings;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!headings.empty() && fields[i].find_first_of("[(") == 0) {
            headings.back() += textOf(fields[i], i, where);
        } else {
            headings.push_back(textOf(fields[i], i, where));
        }
    }
    return headings;
}

/// Whether the first line names columns. One of words may have a number among them.
bool isHeader(std::string_view row, const std::vector<std::string>& headings) {
    const auto numbers =
        std::count_if(headings.begin(), headings.end(), [](const std::string& word) {
            return word.find_first_of("0123456789") == 0 || parseNumber<double>(word).has_value();
        });
    const bool isWords = row.find_first_of(";,") == row.npos;
    return numbers == 0 ||
           (isWords && numbers < std::min<std::ptrdiff_t>(3, std::ssize(headings))) ||
           std::any_of(headings.begin(), headings.end(), [](const std::string& heading) {
               return knownColumn(nameAndUnit(heading).first).has_value();
           });
}

double metresInUnit(const std::string& unit, const std::string& heading, const LinePlace& where) {
    const std::optional<LengthUnit> known = lengthUnitNamed(unit);
    if (!known) {
        throw DataError(fmt::format("{}: column {}: there is no unit {}; choose from {}",
                                    where.text(), quoteText(heading), quoteText(unit),
                                    lengthUnitNames()));
    }
    return metresIn(*known);
}

/// A normal's component under another name would be lost among what is passed on.
void refuseOtherNormals(const std::string& name, const std::string& heading,
                        const LinePlace& where) {
    std::string plain;
    std::copy_if(name.begin(), name.end(), std::back_inserter(plain),
                 [](unsigned char c) { return std::isalnum(c) != 0; });
    for (const char axis : {'x', 'y', 'z'}) {
        for (const char* word : {"n", "norm", "normal", "dir", "direction", "d", "v"}) {
            if (plain == word + std::string(1, axis)) {
                throw DataError(
                    fmt::format("{}: there is no column {}; if it is part of the normal, "
                                "write n{}; {}",
                                where.text(), quoteText(heading), axis, knownText));
            }
        }
    }
}

void requireColumns(const Layout& layout, const LinePlace& where) {
    std::vector<std::string_view> missing;
    const auto collect = [&](std::size_t first, std::size_t end) {
        for (std::size_t i = first; i < end; ++i) {
            if (!layout.at[i]) {
                missing.push_back(knownNames[i]);
            }
        }
    };
    collect(0, coordinateCount);
    if (missing.empty()) {
        collect(coordinateCount, knownNames.size());
        if (missing.size() == knownNames.size() - coordinateCount) {
            return;
        }
    }
    if (!missing.empty()) {
        throw DataError(fmt::format("{}: the header has no column {}; {}", where.text(),
                                    fmt::join(missing, ", "), knownText));
    }
}

/// The layout that a header describes.
/// @param given receives the columns that are passed on
Layout layoutOf(const std::vector<std::string>& headings, std::string_view separators, double scale,
                const LinePlace& where, std::vector<GivenColumn>& given) {
    Layout layout;
    layout.width = headings.size();
    layout.scale.fill(scale);
    for (std::size_t i = 0; i < headings.size(); ++i) {
        const auto [name, unit] = nameAndUnit(headings[i]);
        const std::optional<std::size_t> known = knownColumn(name);
        if (!known) {
            refuseOtherNormals(name, headings[i], where);
            given.push_back(
                {headings[i].empty() ? fmt::format("column_{}", i + 1) : headings[i], {}});
            layout.given.push_back(i);
            continue;
        }
        if (layout.at[*known]) {
            throw DataError(fmt::format("{}: the header has two columns '{}'; delete one of them",
                                        where.text(), name));
        }
        layout.at[*known] = i;
        if (*known < coordinateCount && !unit.empty()) {
            layout.scale[*known] = metresInUnit(unit, headings[i], where);
        }
    }
    requireColumns(layout, where);
    if (!given.empty()) { // texts may hold what separates numbers
        layout.separators = separators;
    }
    return layout;
}

/// The layout of a table without a header, by its first line.
Layout plainLayout(const std::vector<std::string_view>& fields, std::string_view row, double scale,
                   const LinePlace& where) {
    const std::size_t count = fields.size();
    if (count != coordinateCount && count != knownNames.size()) {
        const bool hasDecimalCommas =
            count > 1 && row.find(", ") == row.npos && fields[1].find_first_of(" \t") != row.npos;
        const bool isMixed = std::any_of(fields.begin(), fields.end(), [](std::string_view word) {
            return word.empty() || word.find_first_of(" \t,") != word.npos;
        });
        throw DataError(fmt::format("{}: {} {} where x,y,z or x,y,z,nx,ny,nz is expected; {}",
                                    where.text(), count, counted(count, "field", "fields"),
                                    hasDecimalCommas ? "write decimals with a point"
                                    : isMixed ? "separate all fields alike, none of them empty"
                                              : "complete the line, or name the columns in a first "
                                                "line"));
    }
    Layout layout;
    layout.width = count;
    layout.scale.fill(scale);
    for (std::size_t i = 0; i < count; ++i) {
        layout.at[i] = i;
    }
    return layout;
}

double numberIn(std::string_view field, std::size_t column, const LinePlace& where) {
    const std::string text = unquoted(field);
    const auto number = parseNumber<double>(text);
    if (!number || !(std::abs(*number) < 1.0e12)) {
        const bool hasComma = text.find(',') != text.npos;
        throw DataError(
            fmt::format("{}: field {}: {} is not a usable number; {}", where.text(), column + 1,
                        quoteText(text),
                        hasComma ? "write decimals with a point" : "correct or delete the line"));
    }
    return *number;
}

/// Adds the sensor of a line.
void addSensor(const std::vector<std::string_view>& fields, const Layout& layout, UpAxis up,
               const LinePlace& where, SensorField& field) {
    std::array<double, knownNames.size()> values{};
    const std::size_t count = layout.hasNormals() ? knownNames.size() : coordinateCount;
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = numberIn(fields[*layout.at[i]], *layout.at[i], where);
        values[i] *= i < coordinateCount ? layout.scale[i] : 1.0;
    }
    Vector3 normal;
    if (layout.hasNormals()) {
        normal = toModelAxes({values[3], values[4], values[5]}, 1.0, up);
        const double size = length(normal);
        if (!(size > 1.0e-9)) {
            throw DataError(fmt::format(
                "{}: the normal is zero; give the direction in which the sensor faces, or "
                "leave the normals out of the whole table",
                where.text()));
        }
        normal = normal * (1.0 / size);
    }
    field.positions.push_back(toModelAxes({values[0], values[1], values[2]}, 1.0, up));
    field.normals.push_back(normal);
    for (std::size_t i = 0; i < layout.given.size(); ++i) {
        const std::size_t column = layout.given[i];
        field.given[i].values.push_back(textOf(fields[column], column, where));
    }
}

} // namespace

SensorField readSensorCsv(const std::filesystem::path& file, LengthUnit unit, UpAxis up,
                          const std::stop_token& stop) {
    InputFile in(file, inputKinds::sensorTable, stop);
    SensorField field;
    std::optional<Layout> layout;
    std::vector<std::string_view> fields;
    std::string text;
    for (std::size_t line = 1; in.readLine(text); ++line) {
        std::string_view row = text;
        if (line == 1 && row.starts_with("\xEF\xBB\xBF")) {
            row.remove_prefix(3);
        }
        // An empty last field ends in its separator, which may be a tab.
        const std::string_view content = trimmed(row);
        if (content.empty() || content.front() == '#') {
            continue;
        }
        const LinePlace where{file, line};
        const bool isFixed = layout && !layout->separators.empty();
        if (!isFixed) {
            row = content;
        }
        const std::string_view separators = isFixed ? layout->separators : separatorsOf(row);
        if (!layout) {
            const bool byTabs = separators.size() > 1 && row.find('\t') != row.npos;
            const std::string_view ofHeader = byTabs ? "\t" : separators;
            const std::vector<std::string> headings = headingsOf(row, ofHeader, where);
            if (isHeader(row, headings)) {
                layout = layoutOf(headings, ofHeader, metresIn(unit), where, field.given);
                continue;
            }
        }
        splitFields(row, separators, fields);
        if (!layout) {
            layout = plainLayout(fields, row, metresIn(unit), where);
        }
        if (fields.size() != layout->width) {
            throw DataError(fmt::format("{}: {} {} where the lines above have {}; make all lines "
                                        "alike",
                                        where.text(), fields.size(),
                                        counted(fields.size(), "field", "fields"), layout->width));
        }
        addSensor(fields, *layout, up, where, field);
    }
    if (field.positions.empty()) {
        throw DataError(
            fmt::format("{}: the table has no sensors; give lines of x,y,z,nx,ny,nz", place(file)));
    }
    return field;
}

} // namespace insolate::study
