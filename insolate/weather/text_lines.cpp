#include <insolate/weather/text_lines.h>

#include <algorithm>
#include <cstring>

namespace insolate {
namespace {

constexpr std::size_t lineBlockSize = 64 * 1024;
constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";

} // namespace

TextLines::TextLines(std::string_view text, const TextLineRules& rules)
    : m_rules(rules), m_window(text.data()), m_size(text.size()) {
    if (m_rules.byteFFEnds) {
        m_size = std::min(m_size, text.find('\xFF'));
    }
    m_position = text.substr(0, m_size).starts_with(utf8Mark) ? utf8Mark.size() : 0;
}

TextLines::TextLines(std::FILE* file, const TextLineRules& rules)
    : m_rules(rules), m_file(file), m_block(new char[lineBlockSize]), m_window(m_block.get()),
      m_ended(false) {
    m_rules.longestLine = std::min(m_rules.longestLine, lineBlockSize / 2);
    refill();
    m_position = std::string_view(m_window, m_size).starts_with(utf8Mark) ? utf8Mark.size() : 0;
}

/// Moves what is left to the front and reads on.
void TextLines::refill() {
    m_size -= m_position;
    std::memmove(m_block.get(), m_block.get() + m_position, m_size);
    m_position = 0;
    char* free = m_block.get() + m_size;
    const std::size_t wanted = lineBlockSize - m_size;
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

bool TextLines::next(TextLine& line) {
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
