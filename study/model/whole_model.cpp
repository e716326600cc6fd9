#include "study/model/whole_model.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr const char* cutOff = "the file is cut off or damaged: export the model again";

/// The next word of a text, which loses it; "" at its end.
std::string_view takeWord(std::string_view& text) {
    constexpr std::string_view blanks = " \t\r\n\v\f";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

/// The lines of a text, with their numbers.
class Lines {
public:
    explicit Lines(std::string_view text)
        : m_rest(text), m_end(text.find('\n') == text.npos ? '\r' : '\n') {}

    /// False at the end.
    bool next(std::string_view& line) {
        if (m_rest.empty()) {
            return false;
        }
        line = m_rest.substr(0, m_rest.find(m_end));
        m_rest.remove_prefix(std::min(line.size() + 1, m_rest.size()));
        ++m_number;
        return true;
    }
    /// The next line that holds anything before a comment.
    bool nextFilled(std::string_view& line, char comment = '\0') {
        while (next(line)) {
            line = trimmed(comment == '\0' ? line : line.substr(0, line.find(comment)));
            if (!line.empty()) {
                return true;
            }
        }
        return false;
    }
    [[nodiscard]] std::size_t number() const { return m_number; } ///< of the last one, from 1
    [[nodiscard]] std::string_view rest() const { return m_rest; }

private:
    std::string_view m_rest;
    char m_end;
    std::size_t m_number = 0;
};

class Check {
public:
    Check(std::string_view bytes, const std::filesystem::path& file)
        : m_bytes(bytes), m_file(file) {}

    void ply() const;
    void off() const;
    void stl() const;
    void threeDs() const;
    /// @param head of the files that end so
    void endMark(std::string_view head, std::string_view mark) const;

private:
    struct PlyProperty {
        std::size_t countBytes = 0; // of the number of values before a list, 0 for a single value
        std::size_t bytes = 0;      // of a value
    };
    struct PlyElement {
        std::string name; // "vertex"
        std::uint64_t count = 0;
        std::vector<PlyProperty> properties;
    };

    static std::size_t bytesOfPlyType(std::string_view name);
    static std::optional<PlyProperty> plyPropertyOf(std::string_view words);
    void plyText(Lines lines, const std::vector<PlyElement>& elements) const;
    void plyBinary(std::string_view data, const std::vector<PlyElement>& elements,
                   bool bigEndian) const;
    [[nodiscard]] std::uint64_t numberAt(std::size_t at, std::size_t size) const;

    [[noreturn]] void refuseCount(std::uint64_t promised, std::string_view what,
                                  std::uint64_t found) const {
        throw DataError(
            fmt::format("{}: the number of {} is said to be {}, but the file has {}; {}",
                        place(m_file), what, promised, found, cutOff));
    }
    [[noreturn]] void refuseLine(std::size_t line, std::string_view what) const {
        throw DataError(
            fmt::format("{}: the line of a {} ends early; {}", place(m_file, line), what, cutOff));
    }

    std::string_view m_bytes;
    const std::filesystem::path& m_file;
};

/// An unsigned number with its least significant byte first.
std::uint64_t Check::numberAt(std::size_t at, std::size_t size) const {
    std::uint64_t number = 0;
    for (std::size_t i = size; i-- > 0;) {
        number = number << 8U | static_cast<unsigned char>(m_bytes[at + i]);
    }
    return number;
}

/// 0 for what is no type.
std::size_t Check::bytesOfPlyType(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, std::size_t>, 16> types = {{{"char", 1},
                                                                                 {"uchar", 1},
                                                                                 {"int8", 1},
                                                                                 {"uint8", 1},
                                                                                 {"short", 2},
                                                                                 {"ushort", 2},
                                                                                 {"int16", 2},
                                                                                 {"uint16", 2},
                                                                                 {"int", 4},
                                                                                 {"uint", 4},
                                                                                 {"int32", 4},
                                                                                 {"uint32", 4},
                                                                                 {"float", 4},
                                                                                 {"float32", 4},
                                                                                 {"double", 8},
                                                                                 {"float64", 8}}};
    const auto found =
        std::ranges::find(types, name, &std::pair<std::string_view, std::size_t>::first);
    return found == types.end() ? 0 : found->second;
}

std::optional<Check::PlyProperty> Check::plyPropertyOf(std::string_view words) {
    PlyProperty property;
    std::string_view type = takeWord(words);
    if (type == "list") {
        property.countBytes = bytesOfPlyType(takeWord(words));
        if (property.countBytes == 0) {
            return std::nullopt;
        }
        type = takeWord(words);
    }
    property.bytes = bytesOfPlyType(type);
    return property.bytes == 0 ? std::nullopt : std::optional(property);
}

void Check::ply() const {
    Lines lines(m_bytes);
    std::string_view line;
    std::string_view kind;
    std::vector<PlyElement> elements;
    bool isKnown = true;
    while (lines.next(line)) {
        const std::string_view word = takeWord(line);
        if (word == "format") {
            kind = takeWord(line);
        } else if (word == "element") {
            const std::string_view name = takeWord(line);
            const auto count = parseNumber<std::uint64_t>(line);
            isKnown = isKnown && count.has_value();
            elements.push_back({std::string(name), count.value_or(0), {}});
        } else if (word == "property" && !elements.empty()) {
            const auto property = plyPropertyOf(line);
            isKnown = isKnown && property.has_value();
            elements.back().properties.push_back(property.value_or(PlyProperty()));
        } else if (word == "end_header") {
            if (!isKnown) {
                return;
            }
            if (kind == "ascii") {
                plyText(lines, elements);
            } else {
                plyBinary(lines.rest(), elements, kind == "binary_big_endian");
            }
            return;
        }
    }
    // The reader would look for it for ever.
    throw DataError(
        fmt::format("{}: the PLY header has no line end_header; {}", place(m_file), cutOff));
}

void Check::plyText(Lines lines, const std::vector<PlyElement>& elements) const {
    std::string_view line;
    for (const PlyElement& element : elements) {
        for (std::uint64_t i = 0; i < element.count && !element.properties.empty(); ++i) {
            if (!lines.nextFilled(line)) {
                refuseCount(element.count, fmt::format("elements '{}'", element.name), i);
            }
            for (const PlyProperty& property : element.properties) {
                const std::string_view first = takeWord(line);
                std::uint64_t values =
                    property.countBytes > 0 ? parseNumber<std::uint64_t>(first).value_or(0) : 0;
                while (values > 0 && !takeWord(line).empty()) {
                    --values;
                }
                if (first.empty() || values > 0) {
                    refuseLine(lines.number(), element.name);
                }
            }
        }
    }
}

void Check::plyBinary(std::string_view data, const std::vector<PlyElement>& elements,
                      bool bigEndian) const {
    std::size_t at = m_bytes.size() - data.size();
    const auto fits = [&](std::uint64_t count, std::size_t bytes) {
        return count <= (m_bytes.size() - at) / bytes;
    };
    for (const PlyElement& element : elements) {
        for (std::uint64_t i = 0; i < element.count && !element.properties.empty(); ++i) {
            for (const PlyProperty& property : element.properties) {
                std::uint64_t values = 1;
                bool isThere = property.countBytes == 0 || fits(1, property.countBytes);
                if (isThere && property.countBytes > 0) {
                    values = 0;
                    for (std::size_t k = 0; k < property.countBytes; ++k) {
                        const std::size_t byte = bigEndian ? k : property.countBytes - 1 - k;
                        values = values << 8U | static_cast<unsigned char>(m_bytes[at + byte]);
                    }
                    at += property.countBytes;
                }
                isThere = isThere && fits(values, property.bytes);
                if (!isThere) {
                    refuseCount(element.count, fmt::format("elements '{}'", element.name), i);
                }
                at += static_cast<std::size_t>(values) * property.bytes;
            }
        }
    }
}

void Check::off() const {
    Lines lines(m_bytes);
    std::string_view line;
    std::array<std::uint64_t, 3> counts{}; // of vertices, faces and edges
    if (!lines.nextFilled(line, '#')) {
        return;
    }
    // "OFF" with letters before it for what else a vertex has; those with dimensions of their own
    // are left to the reader.
    const std::string_view head = takeWord(line);
    if (!head.ends_with("OFF") || head.find('n') != head.npos) {
        return;
    }
    for (std::uint64_t& count : counts) {
        while (trimmed(line).empty()) {
            if (!lines.nextFilled(line, '#')) {
                throw DataError(fmt::format("{}: the numbers of vertices, faces and edges are not "
                                            "all there; {}",
                                            place(m_file), cutOff));
            }
        }
        const auto number = parseNumber<std::uint64_t>(takeWord(line));
        if (!number) {
            return;
        }
        count = *number;
    }
    for (std::uint64_t i = 0; i < counts[0]; ++i) {
        if (!lines.nextFilled(line, '#')) {
            refuseCount(counts[0], "vertices", i);
        }
        takeWord(line);
        takeWord(line);
        if (takeWord(line).empty()) {
            refuseLine(lines.number(), "vertex");
        }
    }
    for (std::uint64_t i = 0; i < counts[1]; ++i) {
        if (!lines.nextFilled(line, '#')) {
            refuseCount(counts[1], "faces", i);
        }
        std::uint64_t corners = parseNumber<std::uint64_t>(takeWord(line)).value_or(0);
        while (corners > 0 && !takeWord(line).empty()) {
            --corners;
        }
        if (corners > 0) {
            refuseLine(lines.number(), "face");
        }
    }
}

void Check::stl() const {
    constexpr std::size_t headBytes = 84; // 80 of any content, and the number of triangles
    constexpr std::size_t triangleBytes = 50;
    const std::uint64_t triangles = m_bytes.size() < headBytes ? 0 : numberAt(headBytes - 4, 4);
    if (m_bytes.size() >= headBytes && m_bytes.size() - headBytes == triangles * triangleBytes) {
        return;
    }
    // The head of a binary file may begin with "solid" as well.
    const std::string head = lowered(trimmed(m_bytes.substr(0, 512)));
    if (head.starts_with("solid") &&
        (head.find("facet") != head.npos || head.find("endsolid") != head.npos)) {
        endMark("solid", "endsolid");
    } else if (m_bytes.size() < headBytes) {
        throw DataError(fmt::format("{}: the header has {} of {} bytes; {}", place(m_file),
                                    m_bytes.size(), headBytes, cutOff));
    } else if (const std::size_t found = (m_bytes.size() - headBytes) / triangleBytes;
               found < triangles) {
        refuseCount(triangles, "triangles", found);
    }
}

void Check::threeDs() const {
    // The first chunk is the whole file: its mark, its length, what it holds.
    constexpr std::size_t headBytes = 6;
    if (!m_bytes.starts_with("MM")) {
        return;
    }
    const std::uint64_t promised = m_bytes.size() < headBytes ? headBytes : numberAt(2, 4);
    if (m_bytes.size() < promised) {
        refuseCount(promised, "bytes", m_bytes.size());
    }
}

void Check::endMark(std::string_view head, std::string_view mark) const {
    if (!lowered(trimmed(m_bytes.substr(0, 512))).starts_with(head)) {
        return;
    }
    // A name or a comment may follow in the last line, and zeros behind it.
    constexpr std::size_t tailBytes = 4096;
    std::string_view tail = m_bytes.substr(m_bytes.size() - std::min(m_bytes.size(), tailBytes));
    tail = tail.substr(0, tail.find_last_not_of(std::string_view(" \t\r\n\v\f\0\x1A", 8)) + 1);
    if (!lowered(trimmed(tail.substr(tail.find_last_of("\r\n") + 1))).starts_with(lowered(mark))) {
        throw DataError(fmt::format("{}: the last line does not begin with {}; {}", place(m_file),
                                    mark, cutOff));
    }
}

} // namespace

void checkIsWhole(std::string_view bytes, const std::filesystem::path& file,
                  const ModelFormat& format) {
    const Check check(bytes, file);
    if (bytes.empty()) {
        return;
    }
    if (format.extension == ".ply") {
        check.ply();
    } else if (format.extension == ".off") {
        check.off();
    } else if (format.extension == ".stl") {
        check.stl();
    } else if (format.extension == ".dxf" && bytes.find('\0') == bytes.npos) { // as text
        check.endMark("", "EOF");
    } else if (format.extension == ".ifc") {
        check.endMark("iso-10303-21", "END-ISO-10303-21");
    } else if (format.extension == ".3ds") {
        check.threeDs();
    }
}

} // namespace insolate::study
