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
    explicit Lines(std::string_view text) : m_rest(text) {
        const std::size_t end = text.find_first_of("\r\n");
        m_end = end == text.npos || text.substr(end).starts_with("\r\n") ? '\n' : text[end];
    }

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
    char m_end = '\n';
    std::size_t m_number = 0;
};

class Check {
public:
    Check(std::string_view bytes, const std::filesystem::path& file)
        : m_bytes(bytes), m_file(file) {}

    void ply() const;
    void off() const;
    void stl() const;
    void dxf() const;
    void ifc() const;

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
    [[nodiscard]] std::string_view withoutPadding() const;
    [[nodiscard]] std::string loweredTail() const;

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
    [[noreturn]] void refuseEnd(std::string_view mark) const {
        throw DataError(fmt::format("{}: does not end with {}; {}", place(m_file), mark, cutOff));
    }

    std::string_view m_bytes;
    const std::filesystem::path& m_file;
};

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

/// By the word at its beginning the reader takes a file for text. Other binary files it refuses
/// unless they have the length that they promise.
void Check::stl() const {
    constexpr std::string_view solid = "solid";
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    std::string_view head = withoutPadding().substr(0, 512);
    const bool isBinary = head.find('\0') != head.npos;
    head.remove_prefix(head.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
    if (!lowered(trimmed(head)).starts_with(solid)) {
        return;
    }
    if (isBinary) {
        constexpr std::size_t headBytes = 84; // 80 of any content, and the number of triangles
        constexpr std::size_t triangleBytes = 50;
        std::uint64_t promised = 0;
        for (std::size_t i = headBytes; i-- > headBytes - 4;) {
            promised = promised << 8U |
                       (i < m_bytes.size() ? static_cast<unsigned char>(m_bytes[i]) : 0xFFU);
        }
        const std::size_t found =
            m_bytes.size() < headBytes ? 0 : (m_bytes.size() - headBytes) / triangleBytes;
        if (found < promised) {
            refuseCount(promised, "triangles", found);
        }
        return;
    }
    const std::string tail = loweredTail();
    const std::size_t mark = tail.rfind("endsolid");
    if (mark == tail.npos) {
        refuseEnd("endsolid");
    }
    // The line may go on with the name, and further bodies follow.
    const std::size_t end = std::min(tail.find_first_of("\r\n", mark), tail.size());
    const std::string_view rest = trimmed(std::string_view(tail).substr(end));
    if (!rest.empty() &&
        (rest.starts_with(solid.substr(0, rest.size())) || rest.find("facet") != rest.npos)) {
        refuseEnd("endsolid");
    }
}

void Check::dxf() const {
    if (withoutPadding().find('\0') != m_bytes.npos) { // binary
        return;
    }
    const std::string tail = loweredTail();
    const std::size_t mark = tail.rfind("eof");
    const std::size_t behind = mark == tail.npos ? mark : tail.find_first_not_of(" \t", mark + 3);
    if (mark == tail.npos ||
        (behind != tail.npos && tail[behind] != '\r' && tail[behind] != '\n')) {
        refuseEnd("EOF");
    }
}

std::string_view Check::withoutPadding() const {
    constexpr std::string_view padding(" \t\r\n\v\f\0\x1A", 8);
    return m_bytes.substr(0, m_bytes.find_last_not_of(padding) + 1);
}

/// The end in small letters, long enough for a mark with a name or a comment behind it.
std::string Check::loweredTail() const {
    constexpr std::size_t tailBytes = 4096;
    const std::string_view text = withoutPadding();
    return lowered(text.substr(text.size() - std::min(text.size(), tailBytes)));
}

void Check::ifc() const {
    if (trimmed(m_bytes.substr(0, 512)).starts_with("ISO-10303-21") &&
        m_bytes.rfind("END-ISO-10303-21") == m_bytes.npos) {
        refuseEnd("END-ISO-10303-21");
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
    } else if (format.extension == ".dxf") {
        check.dxf();
    } else if (format.extension == ".ifc") {
        check.ifc();
    }
}

} // namespace insolate::study
