/// The text of EPW files: fields, numbers, the LOCATION line and the records of the hours.
///
/// One grammar for all who read such files, over the lines and fields of text_lines.h. A reader
/// that must depart from this says so by TextLineRules and at its own head.
/// Source: Crawley, Hand, Lawrie (1999), Improving the weather information available to simulation
/// programs, table 1.
#pragma once

#include <insolate/export.h>
#include <insolate/solar/sun_position.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace insolate {

/// The fields of a line, numbered from 0, without blanks and quotes around them.
class INSOLATE_EXPORT EpwFields {
public:
    explicit EpwFields(std::string_view line);
    /// At most 35, the fields of a record.
    [[nodiscard]] std::size_t count() const { return m_count; }
    /// Empty where there is none.
    [[nodiscard]] std::string_view operator[](std::size_t i) const {
        return i < m_count ? m_fields[i] : std::string_view();
    }

private:
    std::array<std::string_view, 35> m_fields;
    std::size_t m_count = 0;
};

enum class EpwLineKind {
    Blank,
    Location,
    DataPeriods,
    Header, ///< another of the format's header lines
    Record, ///< begins with a number
    Unknown
};
/// By the line's first word, in any case of letters.
INSOLATE_EXPORT EpwLineKind epwLineKind(std::string_view line);

/// The finite decimal number that the whole field is; nothing when it is anything else.
INSOLATE_EXPORT std::optional<double> epwNumber(std::string_view field);
/// The same of a whole number below a million, "1" or "1.0".
INSOLATE_EXPORT std::optional<int> epwWholeNumber(std::string_view field);

/// Text from the file between quotes, cut when long, without control characters.
INSOLATE_EXPORT std::string epwQuoted(std::string_view text);

/// What is wrong with a line.
struct EpwFault {
    std::string what; ///< "field 7 (latitude): 'x' is not a value from -90 to 90"
    std::string fix;  ///< "give it in degrees, north positive"
    int column = 0;   ///< of the field, counted from 1; 0 where the line as such is meant
};

struct EpwLocation {
    std::string city, region, country;
    Site site;
};
/// Gives what is wrong with the LOCATION line, nothing when the location is complete.
INSOLATE_EXPORT std::optional<EpwFault> readEpwLocation(const EpwFields& fields,
                                                        EpwLocation& location);

/// When a record was taken, as the file labels it.
struct EpwDate {
    int year = 0; ///< 0 when the field holds none
    int month = 0;
    int day = 0;
    int hour = 0; ///< 1..24, the hour that ends then
    [[nodiscard]] bool isLeapDay() const { return month == 2 && day == 29; }
};
/// Gives what is wrong, nothing when the line is long enough to hold radiation and its date is one
/// of the calendar, 29 February included.
INSOLATE_EXPORT std::optional<EpwFault> readEpwDate(const EpwFields& fields, EpwDate& date);

/// The values of a record that are read.
enum class EpwField { DryBulb, DewPoint, Pressure, Global, Direct, Diffuse, Albedo };
inline constexpr std::size_t epwFieldCount = 7;

struct EpwFieldInfo {
    std::size_t column; ///< counted from 0
    double missingFrom; ///< values from here up mean "missing"
    bool radiation;     ///< [W/m2], not below zero
    const char* name;
};
INSOLATE_EXPORT const EpwFieldInfo& epwFieldInfo(EpwField field);
/// "field 15 (direct normal radiation): 'abc'".
INSOLATE_EXPORT std::string epwFieldText(const EpwFields& fields, EpwField field);

struct EpwValue {
    enum State { Number, Missing, NotANumber } state = Missing;
    double number = 0.0; ///< of State::Number; negative radiation included
};
INSOLATE_EXPORT EpwValue readEpwValue(const EpwFields& fields, EpwField field);

} // namespace insolate
