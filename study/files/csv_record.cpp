#include "study/files/csv_record.h"

#include "study/support/errors.h"

#include <algorithm>

#include <fmt/format.h>

namespace insolate::study {

bool CsvReader::next(std::vector<std::string_view>& fields) {
    fields.clear();
    do {
        if (!m_in.readLine(m_text)) {
            return false;
        }
        m_line = ++m_linesRead;
        if (m_text.ends_with('\r')) {
            m_text.pop_back();
        }
        if (m_line == 1 && m_text.starts_with("\xEF\xBB\xBF")) {
            m_text.erase(0, 3);
        }
    } while (m_text.empty());
    // An odd number of quotes leaves one open: the field goes on in the next line.
    std::string more;
    while (std::count(m_text.begin(), m_text.end(), '"') % 2 != 0) {
        if (!m_in.readLine(more) || m_text.size() + more.size() > inputKinds::model.mostLineBytes) {
            throw DataError(fmt::format("{}: quotes are opened and not closed; correct the line",
                                        place(m_file, m_line)));
        }
        ++m_linesRead;
        m_text += '\n';
        m_text += more;
    }
    m_unquoted.clear();
    m_unquoted.reserve(m_text.size()); // views into it hold
    const std::string_view text = m_text;
    for (std::size_t at = 0;; ++at) {
        if (at < text.size() && text[at] == '"') {
            const std::size_t first = m_unquoted.size();
            for (++at; at < text.size(); ++at) {
                if (text[at] == '"' && (at + 1 == text.size() || text[++at] != '"')) {
                    break;
                }
                m_unquoted += text[at];
            }
            fields.push_back(std::string_view(m_unquoted).substr(first));
            at = std::min(text.find(',', at), text.size());
        } else {
            const std::size_t end = std::min(text.find(',', at), text.size());
            fields.push_back(text.substr(at, end - at));
            at = end;
        }
        if (at >= text.size()) {
            return true;
        }
    }
}

} // namespace insolate::study
