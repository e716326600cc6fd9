#include <insolate/weather/epw_text.h>

#include <insolate/solar/site_ranges.h>
#include <insolate/weather/text_lines.h>
#include <insolate/weather/weather_series.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace insolate {
namespace {

std::string_view trimmed(std::string_view text, std::string_view blanks) {
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

constexpr std::string_view epwBlanks = " \t\r\n\v\f";
constexpr std::string_view epwBlanksAndQuotes = " \t\r\n\v\f\"";

bool beginsWith(std::string_view line, std::string_view key) {
    return line.size() >= key.size() &&
           std::equal(key.begin(), key.end(), line.begin(), [](char wanted, char given) {
               return wanted ==
                      (given >= 'a' && given <= 'z' ? static_cast<char>(given - 'a' + 'A') : given);
           });
}

} // namespace

EpwLineKind epwLineKind(std::string_view line) {
    line = trimmed(line, epwBlanksAndQuotes);
    if (line.empty()) {
        return EpwLineKind::Blank;
    }
    const char first = line.front();
    if ((first >= '0' && first <= '9') || first == '-' || first == '+') {
        return EpwLineKind::Record;
    }
    if (beginsWith(line, "LOCATION")) {
        return EpwLineKind::Location;
    }
    if (beginsWith(line, "DATA PERIODS")) {
        return EpwLineKind::DataPeriods;
    }
    for (const std::string_view key :
         {"DESIGN CONDITIONS", "TYPICAL/EXTREME PERIODS", "GROUND TEMPERATURES",
          "HOLIDAYS/DAYLIGHT SAVING", "COMMENTS"}) {
        if (beginsWith(line, key)) {
            return EpwLineKind::Header;
        }
    }
    return EpwLineKind::Unknown;
}

// --- Fields -----------------------------------------------------------------------------------

EpwFields::EpwFields(std::string_view line) {
    FieldSplitter splitter(trimmed(line, epwBlanks));
    std::string_view field;
    while (m_count < m_fields.size() && splitter.next(field)) {
        m_fields[m_count++] = trimmed(field, epwBlanksAndQuotes);
    }
}

std::optional<double> epwNumber(std::string_view field) {
    field = trimmed(field, epwBlanksAndQuotes);
    if (field.size() > 1 && field.front() == '+' && field[1] != '-') {
        field.remove_prefix(1);
    }
    double value = 0.0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
    if (error != std::errc{} || end != field.data() + field.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<int> epwWholeNumber(std::string_view field) {
    const std::optional<double> value = epwNumber(field);
    return value && std::abs(*value) < 1e6 && *value == std::floor(*value)
               ? std::optional<int>(static_cast<int>(*value))
               : std::nullopt;
}

std::string epwQuoted(std::string_view text) {
    constexpr std::size_t longest = 40;
    std::string result = "'";
    for (const char c : text.substr(0, longest)) {
        result += static_cast<unsigned char>(c) >= 0x20 && c != 0x7f ? c : '?';
    }
    return result + (text.size() > longest ? "...'" : "'");
}

// --- What lines hold --------------------------------------------------------------------------

std::optional<EpwFault> readEpwLocation(const EpwFields& fields, EpwLocation& location) {
    if (fields[0].find(';') != std::string_view::npos) {
        return EpwFault{"the fields are separated by semicolons",
                        "save the file again with commas between them"};
    }
    if (fields.count() < 10) {
        return EpwFault{"the LOCATION line has fewer than 10 fields",
                        "give place, latitude, longitude, zone and elevation"};
    }
    location.city = fields[1];
    location.region = fields[2];
    location.country = fields[3];
    struct Entry {
        std::size_t column;
        SiteRange range;
        const char* name;
        double* value;
        const char* fix;
    };
    Site& site = location.site;
    for (const Entry& entry : {Entry{6, siteRanges::latitude, "latitude", &site.latitude,
                                     "give the site's degrees, north positive"},
                               Entry{7, siteRanges::longitude, "longitude", &site.longitude,
                                     "give the site's degrees, east positive"},
                               Entry{8, siteRanges::timeZone, "time zone", &site.timeZone,
                                     "give the hours of standard time before UTC, as 5.5"},
                               Entry{9, siteRanges::elevation, "elevation", &site.elevation,
                                     "give the metres above the sea, 0 where unknown"}}) {
        const std::optional<double> value = epwNumber(fields[entry.column]);
        if (!value || !entry.range.holds(*value)) {
            return EpwFault{"LOCATION: field " + std::to_string(entry.column + 1) + " (" +
                                entry.name + "): " + epwQuoted(fields[entry.column]) +
                                " is not a value from " +
                                std::to_string(static_cast<int>(entry.range.low)) + " to " +
                                std::to_string(static_cast<int>(entry.range.high)),
                            entry.fix, static_cast<int>(entry.column) + 1};
        }
        *entry.value = *value;
    }
    return std::nullopt;
}

std::optional<EpwFault> readEpwDate(const EpwFields& fields, EpwDate& date) {
    constexpr std::size_t requiredFields = 16;
    const std::optional<int> year = epwWholeNumber(fields[0]);
    const std::optional<int> month = epwWholeNumber(fields[1]);
    const std::optional<int> day = epwWholeNumber(fields[2]);
    const std::optional<int> hour = epwWholeNumber(fields[3]);
    date = {year && *year > 0 && *year < 10000 ? *year : 0, month.value_or(0), day.value_or(0),
            hour.value_or(0)};
    constexpr const char* fix = "correct the line or download the file again";
    if (fields.count() < requiredFields) {
        return EpwFault{"the line has " + std::to_string(fields.count()) +
                            (fields.count() == 1 ? " field" : " fields") +
                            ", radiation stands in fields 15 and 16",
                        fix};
    }
    if ((dayIndex(date.month, date.day) < 0 && !date.isLeapDay()) || date.hour < 1 ||
        date.hour > 24) {
        return EpwFault{"month " + epwQuoted(fields[1]) + ", day " + epwQuoted(fields[2]) +
                            ", hour " + epwQuoted(fields[3]) + " (1 to 24) is no hour of a year",
                        fix};
    }
    return std::nullopt;
}

const EpwFieldInfo& epwFieldInfo(EpwField field) {
    static constexpr std::array<EpwFieldInfo, epwFieldCount> fields{
        {{6, 99.9, false, "dry bulb temperature"},
         {7, 99.9, false, "dew point temperature"},
         {9, 999999.0, false, "pressure"},
         {13, 9999.0, true, "global horizontal radiation"},
         {14, 9999.0, true, "direct normal radiation"},
         {15, 9999.0, true, "diffuse horizontal radiation"},
         {32, 2.0, false, "albedo"}}};
    return fields[static_cast<std::size_t>(field)];
}

std::string epwFieldText(const EpwFields& fields, EpwField field) {
    const EpwFieldInfo& info = epwFieldInfo(field);
    return "field " + std::to_string(info.column + 1) + " (" + info.name +
           "): " + epwQuoted(fields[info.column]);
}

EpwValue readEpwValue(const EpwFields& fields, EpwField field) {
    const EpwFieldInfo& info = epwFieldInfo(field);
    const std::optional<double> number = epwNumber(fields[info.column]);
    if (!number) {
        return {EpwValue::NotANumber, 0.0};
    }
    const bool isMissing =
        *number >= info.missingFrom || (field == EpwField::Pressure && *number <= 0.0);
    return isMissing ? EpwValue{EpwValue::Missing, 0.0} : EpwValue{EpwValue::Number, *number};
}

} // namespace insolate
