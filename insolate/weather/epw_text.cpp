#include <insolate/weather/epw_text.h>

#include <insolate/weather/weather_series.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>

namespace insolate {
namespace {

constexpr std::size_t epwBlockSize = 64 * 1024;
constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";

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

// --- Lines ------------------------------------------------------------------------------------

EpwLines::EpwLines(std::string_view text, const EpwLineRules& rules)
    : m_rules(rules), m_window(text.data()), m_size(text.size()) {
    if (m_rules.byteFFEnds) {
        m_size = std::min(m_size, text.find('\xFF'));
    }
    m_position = text.substr(0, m_size).starts_with(utf8Mark) ? utf8Mark.size() : 0;
}

EpwLines::EpwLines(std::FILE* file, const EpwLineRules& rules)
    : m_rules(rules), m_file(file), m_block(new char[epwBlockSize]), m_window(m_block.get()),
      m_ended(false) {
    m_rules.longestLine = std::min(m_rules.longestLine, epwBlockSize / 2);
    refill();
    m_position = std::string_view(m_window, m_size).starts_with(utf8Mark) ? utf8Mark.size() : 0;
}

/// Moves what is left to the front and reads on.
void EpwLines::refill() {
    m_size -= m_position;
    std::memmove(m_block.get(), m_block.get() + m_position, m_size);
    m_position = 0;
    char* free = m_block.get() + m_size;
    const std::size_t wanted = epwBlockSize - m_size;
    std::size_t got = std::fread(free, 1, wanted, m_file);
    m_ended = got < wanted;
    if (m_rules.byteFFEnds) {
        if (const void* endMark = std::memchr(free, 0xFF, got)) {
            got = static_cast<std::size_t>(static_cast<const char*>(endMark) - free);
            m_ended = true;
        }
    }
    m_size += got;
}

bool EpwLines::next(EpwLine& line) {
    const std::size_t longest = m_rules.longestLine;
    // The byte after the longest line decides whether it ends in CR LF.
    if (!m_ended && m_size - m_position <= longest) {
        refill();
    }
    const std::string_view rest(m_window + m_position, m_size - m_position);
    const std::size_t lineFeed = rest.substr(0, std::min(rest.size(), longest + 1)).find('\n');
    std::size_t length = 0;
    if (lineFeed != std::string_view::npos) {
        const bool carriageReturn = lineFeed > 0 && rest[lineFeed - 1] == '\r';
        if (carriageReturn || lineFeed < longest) {
            m_position += lineFeed + 1;
            line = {rest.substr(0, lineFeed - (carriageReturn ? 1 : 0)), true, ++m_number};
            return true;
        }
    }
    if (rest.size() >= longest) {
        length = longest;
    } else if (rest.empty() || m_rules.dropsUnfinishedLine) {
        return false;
    } else {
        length = rest.size();
    }
    m_position += length;
    line = {rest.substr(0, length), false, ++m_number};
    return true;
}

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
    EpwFieldSplitter splitter(trimmed(line, epwBlanks));
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
        int low, high;
        const char* name;
        double* value;
        const char* fix;
    };
    Site& site = location.site;
    for (const Entry& entry :
         {Entry{6, -90, 90, "latitude", &site.latitude, "give the site's degrees, north positive"},
          Entry{7, -180, 180, "longitude", &site.longitude,
                "give the site's degrees, east positive"},
          Entry{8, -12, 14, "time zone", &site.timeZone,
                "give the hours of standard time before UTC, as 5.5"},
          Entry{9, -1000, 10000, "elevation", &site.elevation,
                "give the metres above the sea, 0 where unknown"}}) {
        const std::optional<double> value = epwNumber(fields[entry.column]);
        if (!value || *value < entry.low || *value > entry.high) {
            return EpwFault{"LOCATION: field " + std::to_string(entry.column + 1) + " (" +
                                entry.name + "): " + epwQuoted(fields[entry.column]) +
                                " is not a value from " + std::to_string(entry.low) + " to " +
                                std::to_string(entry.high),
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

std::string_view foreignEncoding(std::string_view text) {
    // The mark of UTF-32 in little-endian order begins with that of UTF-16.
    constexpr std::string_view utf32Little("\xFF\xFE\0\0", 4);
    constexpr std::string_view utf32Big("\0\0\xFE\xFF", 4);
    if (text.starts_with(utf32Little) || text.starts_with(utf32Big)) {
        return "UTF-32";
    }
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") ? "UTF-16"
                                                                        : std::string_view();
}

} // namespace insolate
