/// Lines and fields of text files.
///
/// A line ends with LF or CR LF, a byte order mark at the start of the file does not count. Fields
/// stand between commas; commas between double quotes do not separate.
#pragma once

#include <insolate/export.h>

#include <cstddef>
#include <cstdio>
#include <limits>
#include <memory>
#include <string_view>

namespace insolate {

struct TextLine {
    std::string_view text;  ///< without its end, else as it stands; valid until the next line
    bool ended = true;      ///< whether a line end follows: not after a cut or at the text's end
    std::size_t number = 0; ///< counted from 1
};

/// How the lines are taken; by default as any editor shows them.
struct TextLineRules {
    static constexpr std::size_t noLimit = std::numeric_limits<std::size_t>::max() - 1;
    std::size_t longestLine = noLimit; ///< with its line feed; the rest of a longer one is a line
    bool byteFFEnds = false;           ///< a byte 0xFF ends the file
    bool dropsUnfinishedLine = false;  ///< a last line without a line feed is not read
};

/// The lines of a text or, block by block, of a file.
class INSOLATE_EXPORT TextLines {
public:
    explicit TextLines(std::string_view text, const TextLineRules& rules = {});
    /// @param rules with a longest line of at most 32 kB
    TextLines(std::FILE* file, const TextLineRules& rules);

    /// False at the end.
    bool next(TextLine& line);

private:
    void refill();

    TextLineRules m_rules;
    std::FILE* m_file = nullptr;
    std::unique_ptr<char[]> m_block;
    const char* m_window = nullptr;
    std::size_t m_size = 0;
    std::size_t m_position = 0;
    std::size_t m_number = 0;
    bool m_ended = true; ///< the window reaches to the end of the text
};

/// Takes the fields of a line one after the other, as they stand, with blanks and quotes. A line
/// has one field more than it has commas that separate.
class FieldSplitter {
public:
    explicit FieldSplitter(std::string_view line) : m_line(line) {}

    bool next(std::string_view& field) {
        if (m_start > m_line.size()) {
            return false;
        }
        bool quoted = false;
        std::size_t at = m_start;
        for (; at < m_line.size() && (quoted || m_line[at] != ','); ++at) {
            quoted = m_line[at] == '"' ? !quoted : quoted;
        }
        field = m_line.substr(m_start, at - m_start);
        m_start = at + 1;
        return true;
    }
    /// Whether the last field has been taken.
    [[nodiscard]] bool atEnd() const { return m_start > m_line.size(); }

private:
    std::string_view m_line;
    std::size_t m_start = 0;
};

/// The Unicode form other than UTF-8 that the byte order mark at the text's start says: "UTF-16",
/// "UTF-32" or empty.
INSOLATE_EXPORT std::string_view foreignEncoding(std::string_view text);

} // namespace insolate
