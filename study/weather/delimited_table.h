/// Weather as a comma-separated table with the names of its columns, below a header of its own.
#pragma once

#include "study/weather/weather_input.h"

#include "study/support/errors.h"

#include <cstddef>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <insolate/weather/text_lines.h>

namespace insolate::study {

/// A file line by line, with the fields of the current line, without blanks and quotes around them.
class DelimitedTable {
public:
    explicit DelimitedTable(const WeatherInput& input)
        : m_file(input.file), m_lines(input.content) {}

    /// False at the end. Empty lines are passed over.
    /// @throws DataError for a record with too many or too few fields
    bool next();
    /// @throws DataError when the file ends here
    void need(std::string_view what);

    [[nodiscard]] std::string_view text() const { return m_text; }
    [[nodiscard]] std::size_t line() const { return m_line; }
    [[nodiscard]] bool beginsWithDigit() const {
        return m_text.front() >= '0' && m_text.front() <= '9';
    }
    [[nodiscard]] std::string_view field(std::size_t index) const {
        return index < m_fields.size() ? m_fields[index] : std::string_view();
    }
    [[nodiscard]] DataError fault(std::string_view what) const;

    /// Names of the current line's fields, without the unit in parentheses: "ghi" of "GHI (W/m^2)".
    [[nodiscard]] std::map<std::string, std::size_t> names() const;
    /// Takes the current line for the names of the columns.
    /// @throws DataError when a required one is missing
    void takeColumns(std::initializer_list<std::string_view> required);

    /// The current line's text in a column, empty where there is none.
    [[nodiscard]] std::string_view operator[](const std::string& column) const;

    /// @param what stands for the text in messages
    /// @throws DataError when it is no finite number; whole(): none of the range either
    [[nodiscard]] double number(std::string_view text, std::string_view what) const;
    [[nodiscard]] int whole(std::string_view text, std::string_view what, int lowest,
                            int highest) const;
    /// A value of the record, NaN where the file has none or marks it as missing: -9900, -9999 and
    /// -999 are in use.
    [[nodiscard]] float value(const std::string& column) const;

private:
    void requireWidth();
    [[nodiscard]] std::size_t filledFields() const;

    const std::filesystem::path& m_file;
    TextLines m_lines;
    std::string_view m_text;
    std::size_t m_line = 0;
    std::vector<std::string_view> m_fields;
    std::map<std::string, std::size_t> m_columns;
    std::size_t m_named = 0; ///< columns with a name
    std::size_t m_most = 0;  ///< fields of a record with something in them
    std::size_t m_least = 0; ///< fields of a record, empty ones among them
};

} // namespace insolate::study
