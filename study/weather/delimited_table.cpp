#include "study/weather/delimited_table.h"

#include "study/support/numbers.h"
#include "study/weather/sampled_weather.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace insolate::study {

namespace {

std::string_view unquoted(std::string_view text) {
    text = trimmed(text);
    if (text.size() > 1 && text.front() == '"' && text.back() == '"') {
        text = trimmed(text.substr(1, text.size() - 2));
    }
    return text;
}

} // namespace

bool DelimitedTable::next() {
    TextLine line;
    while (m_lines.next(line)) {
        m_text = trimmed(line.text);
        m_line = line.number;
        if (m_text.find_first_not_of(',') != std::string_view::npos) {
            m_fields.clear();
            FieldSplitter splitter(m_text);
            for (std::string_view field; splitter.next(field);) {
                m_fields.push_back(unquoted(field));
            }
            requireWidth();
            return true;
        }
    }
    return false;
}

/// A comma too many or too few moves all values behind it into other columns. Commas behind the
/// last value, which spreadsheets add to some lines, move nothing.
void DelimitedTable::requireWidth() {
    if (m_columns.empty() || !beginsWithDigit()) {
        return;
    }
    const std::size_t filled = filledFields();
    if (m_most == 0) {
        m_most = std::max(m_named, filled);
        m_least = std::min(m_named, m_fields.size());
    }
    if (filled > m_most || m_fields.size() < m_least) {
        throw fault(
            fmt::format("{} fields where {} are expected, as in the line of the columns' names",
                        filled, filled > m_most ? m_most : m_least));
    }
}

/// Without empty ones at the end.
std::size_t DelimitedTable::filledFields() const {
    std::size_t count = m_fields.size();
    while (count > 0 && m_fields[count - 1].empty()) {
        --count;
    }
    return count;
}

void DelimitedTable::need(std::string_view what) {
    if (!next()) {
        throw DataError(
            fmt::format("{}: the file ends before {}; download it again", place(m_file), what));
    }
}

DataError DelimitedTable::fault(std::string_view what) const {
    return DataError(fmt::format("{}: {}; correct the line or download the file again",
                                 place(m_file, m_line), what));
}

std::map<std::string, std::size_t> DelimitedTable::names() const {
    std::map<std::string, std::size_t> result;
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        result.try_emplace(lowered(trimmed(m_fields[i].substr(0, m_fields[i].find(" (")))), i);
    }
    return result;
}

void DelimitedTable::takeColumns(std::initializer_list<std::string_view> required) {
    m_columns = names();
    m_named = filledFields();
    for (const std::string_view name : required) {
        if (!m_columns.contains(std::string(name))) {
            throw fault(fmt::format("there is no column {}", quoteText(name)));
        }
    }
}

std::string_view DelimitedTable::operator[](const std::string& column) const {
    const auto found = m_columns.find(column);
    return found == m_columns.end() ? std::string_view() : field(found->second);
}

double DelimitedTable::number(std::string_view text, std::string_view what) const {
    const auto value = parseNumber<double>(text);
    if (!value || !std::isfinite(*value)) {
        throw fault(fmt::format("{}: {} is not a number", what, quoteText(text)));
    }
    return *value;
}

int DelimitedTable::whole(std::string_view text, std::string_view what, int lowest,
                          int highest) const {
    const double value = number(text, what);
    if (!(value >= lowest && value <= highest) || value != std::floor(value)) {
        throw fault(fmt::format("{}: {} is not a whole number from {} to {}", what, quoteText(text),
                                lowest, highest));
    }
    return static_cast<int>(value);
}

float DelimitedTable::value(const std::string& column) const {
    constexpr double missingUpTo = -900.0;
    const std::string_view text = (*this)[column];
    if (text.empty()) {
        return unknownValue;
    }
    const double read = number(text, column);
    return read <= missingUpTo ? unknownValue : static_cast<float>(read);
}

} // namespace insolate::study
