/// The records of a table that insolate wrote: lines, and several of them where a field in quotes
/// goes over their ends.
#pragma once

#include "study/files/input_file.h"

#include <cstddef>
#include <filesystem>
#include <stop_token>
#include <string>

namespace insolate::study {

class TableRecords {
public:
    /// @param kind says how long a record may be, as a line
    /// @throws as InputFile does, here and below
    TableRecords(const std::filesystem::path& file, const InputKind& kind,
                 const std::stop_token& stop);

    /// The next record that is not empty, without the end of its line; false at the end of the
    /// file. Takes time in proportion to its length.
    /// @throws DataError too when quotes are opened and not closed
    bool next(std::string& record);

    /// On which the record begins, from 1.
    [[nodiscard]] std::size_t line() const { return m_line; }

private:
    std::filesystem::path m_file;
    InputFile m_in;
    std::size_t m_mostBytes;
    std::string m_more; ///< the line that is added
    std::size_t m_line = 0;
    std::size_t m_linesRead = 0;
};

} // namespace insolate::study
