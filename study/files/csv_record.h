/// Tables with commas, as this library writes them: fields in quotes may hold commas, quotes and
/// line ends (RFC 4180).
#pragma once

#include "study/files/input_file.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

/// Reads a table record by record.
class CsvReader {
public:
    /// @param file as messages call it
    CsvReader(InputFile& in, std::filesystem::path file) : m_in(in), m_file(std::move(file)) {}

    /// The fields of the next record that is no empty line; false at the end of the file. They hold
    /// until the next call.
    /// @throws DataError for quotes that are not closed, and as InputFile does
    bool next(std::vector<std::string_view>& fields);

    /// The line on which the record began, from 1.
    [[nodiscard]] std::size_t line() const { return m_line; }

private:
    InputFile& m_in;
    std::filesystem::path m_file;
    std::string m_text;     ///< one line
    std::string m_unquoted; ///< of fields in quotes, one after the other
    std::size_t m_line = 0;
    std::size_t m_linesRead = 0;
};

} // namespace insolate::study
