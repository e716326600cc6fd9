#include "study/results/table_records.h"

#include "study/support/errors.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Whether a line changes between within and without quotes; a doubled quote does not.
bool turnsQuotes(std::string_view line) {
    return std::count(line.begin(), line.end(), '"') % 2 != 0;
}

} // namespace

TableRecords::TableRecords(const std::filesystem::path& file, const InputKind& kind,
                           const std::stop_token& stop)
    : m_file(file), m_in(file, kind, stop), m_mostBytes(kind.mostLineBytes) {}

bool TableRecords::next(std::string& record) {
    do {
        if (!m_in.readLine(record)) {
            return false;
        }
        m_line = ++m_linesRead;
        record.resize(record.size() - (record.ends_with('\r') ? 1 : 0));
    } while (record.empty());
    for (bool isOpen = turnsQuotes(record); isOpen; isOpen ^= turnsQuotes(m_more)) {
        if (!m_in.readLine(m_more) || record.size() + m_more.size() > m_mostBytes) {
            throw DataError(fmt::format("{}: quotes are opened and not closed; calculate the "
                                        "results again",
                                        place(m_file, m_line)));
        }
        ++m_linesRead;
        record += '\n';
        record += m_more;
    }
    return true;
}

} // namespace insolate::study
