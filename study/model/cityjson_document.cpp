#include "study/model/cityjson_document.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

namespace insolate::study::cityjson {

namespace {

constexpr int deepest = 100; ///< nesting; CityJSON itself has twelve levels
constexpr std::size_t largestDocument = 512U << 20U;

/// Many programs write the whole city into one line.
constexpr InputKind cityFile = {
    .name = "city model", .mostBytes = 64ULL << 30U, .mostLineBytes = largestDocument};

/// What one document may have on this machine. Parsed, it takes up to 28 times its text: lists of
/// numbers of one digit, doubled as they grow.
std::size_t mostText() {
    static const std::size_t memory = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) *
                                      static_cast<std::size_t>(sysconf(_SC_PAGE_SIZE));
    return std::min(largestDocument, memory / 32);
}

} // namespace

CityDocuments::CityDocuments(const std::filesystem::path& file, std::stop_token stop)
    : m_file(file), m_in(file, cityFile, stop), m_stop(std::move(stop)) {}

std::optional<Json> CityDocuments::next() {
    m_text.clear();
    m_firstLine = m_line + 1;
    int depth = 0;
    bool isInText = false;
    bool isEscaped = false;
    bool hasBegun = false;
    for (std::string line; !(hasBegun && depth == 0) && m_in.readLine(line);) {
        ++m_line;
        throwIfStopped(m_stop);
        if (m_line == 1 && line.starts_with("\xEF\xBB\xBF")) {
            line.erase(0, 3);
        }
        if (!hasBegun && trimmed(line).empty()) {
            m_firstLine = m_line + 1;
            continue;
        }
        hasBegun = true;
        // Depth is counted before anything is built, so that hostile nesting costs nothing.
        for (const char c : line) {
            if (isInText) {
                isInText = isEscaped || c != '"';
                isEscaped = !isEscaped && c == '\\';
            } else if (c == '"') {
                isInText = true;
            } else if (c == '{' || c == '[') {
                if (++depth > deepest) {
                    throw DataError(fmt::format("{}: more than {} lists and objects lie one in "
                                                "the other, which no city model needs; export "
                                                "the model again",
                                                place(m_file, m_line), deepest));
                }
            } else if (c == '}' || c == ']') {
                --depth;
            }
        }
        isEscaped = false;
        m_text += line;
        m_text += '\n';
        if (m_text.size() > mostText()) {
            throw DataError(fmt::format("{}: one CityJSON document of more than {} MB; convert "
                                        "the model to CityJSONSeq "
                                        "(.city.jsonl), which is read feature by feature",
                                        place(m_file), mostText() >> 20U));
        }
    }
    if (!hasBegun) {
        return std::nullopt;
    }
    try {
        return Json::parse(m_text);
    } catch (const Json::exception& error) {
        const auto* parseError = dynamic_cast<const Json::parse_error*>(&error);
        const std::size_t byte =
            std::min(parseError != nullptr ? parseError->byte : 0, m_text.size());
        const auto lines =
            std::count(m_text.begin(),
                       m_text.begin() + static_cast<std::ptrdiff_t>(byte > 0 ? byte - 1 : 0), '\n');
        throw DataError(
            fmt::format("{}: this is no JSON, or the file is cut off; export the model again",
                        place(m_file, m_firstLine + static_cast<std::size_t>(lines))));
    }
}

void CityDocuments::fail(const std::string& what, const std::string& object) const {
    const std::string here = place(m_file, m_firstLine);
    throw DataError(object.empty()
                        ? fmt::format("{}: {}", here, what)
                        : fmt::format("{}: city object {}: {}", here, quoteText(object), what));
}

const Json* memberOf(const Json& object, const char* name) {
    if (!object.is_object()) {
        return nullptr;
    }
    const auto found = object.find(name);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

const Json& elementsOf(const Json& object, const char* name) {
    static const Json none = Json::array();
    const Json* member = memberOf(object, name);
    return member != nullptr && member->is_array() ? *member : none;
}

std::string textOf(const Json& object, const char* name) {
    const Json* member = memberOf(object, name);
    return member != nullptr && member->is_string() ? member->get<std::string>() : std::string();
}

std::optional<double> numberOf(const Json& value) {
    return value.is_number() ? std::optional(value.get<double>()) : std::nullopt;
}

std::optional<Vector3> pointOf(const Json& value) {
    if (!value.is_array() || value.size() < 3) {
        return std::nullopt;
    }
    const auto x = numberOf(value[0]);
    const auto y = numberOf(value[1]);
    const auto z = numberOf(value[2]);
    return x && y && z ? std::optional(Vector3{*x, *y, *z}) : std::nullopt;
}

} // namespace insolate::study::cityjson
