#include "study/model/selection.h"

#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr double steepestUp = 60.0; ///< tilt of a face that looks up
constexpr double flat = 10.0;       ///< tilt up to which a face looks to no side

constexpr std::array<std::string_view, 6> facingNames = {"up",   "down",  "north",
                                                         "east", "south", "west"};

/// Whether the pattern is the whole text; each * stands for any part of it.
bool matches(std::string_view pattern, std::string_view text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string_view::npos; // the last one, which may take more
    std::size_t taken = 0;                     // where the text went on behind it
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            taken = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++taken;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

/// The names that a pattern means, as marks by index; empty when there are none.
std::vector<bool> namesLike(const Mesh& mesh, std::string_view pattern) {
    std::vector<bool> marks(mesh.names.size(), false);
    bool any = false;
    // A name with a * in it is meant before all that the * could stand for.
    const auto found = std::find(mesh.names.begin(), mesh.names.end(), pattern);
    if (found != mesh.names.end()) {
        marks[static_cast<std::size_t>(found - mesh.names.begin())] = any = true;
    } else if (pattern.find('*') != std::string_view::npos) {
        for (std::size_t i = 0; i < marks.size(); ++i) {
            marks[i] = matches(pattern, mesh.names[i]);
            any = any || marks[i];
        }
    }
    return any ? marks : std::vector<bool>();
}

/// What can be selected, as the end of a message about a name that cannot.
std::string choiceOf(const Mesh& mesh, std::string_view name, std::string_view option) {
    if (mesh.names.empty()) {
        return fmt::format("; the model has no names: leave {} out to take every face", option);
    }
    std::string close = didYouMean(name, mesh.names);
    if (!close.empty()) {
        return close;
    }
    constexpr std::size_t most = 12;
    std::string known;
    for (std::size_t i = 0; i < std::min(mesh.names.size(), most); ++i) {
        known += (i == 0 ? "; choose from " : ", ") + quoteText(mesh.names[i]);
    }
    return mesh.names.size() > most ? known + fmt::format(" and {} more", mesh.names.size() - most)
                                    : known;
}

/// The patterns of one option and the faces that they take.
class PatternReader {
public:
    PatternReader(const Mesh& mesh, std::string_view option, const std::string& source)
        : m_mesh(mesh), m_option(option), m_source(source) {}

    /// @param take (pattern, whether it takes a face)
    template <typename Take>
    void read(std::string_view text, const Take& take) const {
        if (takeNames(text, take)) {
            return;
        }
        // Where no name is the whole text, it is a list.
        std::string_view rest = text;
        do {
            const std::string_view part = trimmed(rest.substr(0, rest.find(',')));
            if (!takeNames(part, take) && !takePairs(part, take)) {
                refuse(part);
            }
            rest.remove_prefix(std::min(rest.find(','), rest.size() - 1) + 1);
        } while (!rest.empty());
    }

private:
    static bool isMarked(const std::vector<bool>& marks, std::uint32_t name) {
        return name != Mesh::unnamed && marks[name];
    }

    template <typename Take>
    bool takeNames(std::string_view pattern, const Take& take) const {
        const std::vector<bool> marks = namesLike(m_mesh, pattern);
        if (marks.empty()) {
            return false;
        }
        take(pattern, [&](const Mesh::Face& face) {
            return isMarked(marks, face.object) || isMarked(marks, face.group) ||
                   isMarked(marks, face.material);
        });
        return true;
    }

    /// "object:material", at the first colon that leaves names on both sides: names may hold some.
    template <typename Take>
    bool takePairs(std::string_view pattern, const Take& take) const {
        for (std::size_t colon = pattern.find(':'); colon != std::string_view::npos;
             colon = pattern.find(':', colon + 1)) {
            const std::vector<bool> objects = namesLike(m_mesh, trimmed(pattern.substr(0, colon)));
            const std::vector<bool> materials =
                namesLike(m_mesh, trimmed(pattern.substr(colon + 1)));
            if (objects.empty() || materials.empty()) {
                continue;
            }
            const auto isPair = [&](const Mesh::Face& face) {
                return (isMarked(objects, face.object) || isMarked(objects, face.group)) &&
                       isMarked(materials, face.material);
            };
            if (std::any_of(m_mesh.faces.begin(), m_mesh.faces.end(), isPair)) {
                take(pattern, isPair);
                return true;
            }
        }
        return false;
    }

    [[noreturn]] void refuse(std::string_view pattern) const {
        const std::size_t colon = pattern.find(':');
        if (colon != std::string_view::npos) {
            for (const std::string_view side :
                 {trimmed(pattern.substr(0, colon)), trimmed(pattern.substr(colon + 1))}) {
                if (namesLike(m_mesh, side).empty()) {
                    refuseName(side);
                }
            }
            throw DataError(fmt::format(
                "{}: no face has the object (or group) and the material of {}; write {} "
                "OBJECT:MATERIAL with names that meet on a face",
                m_source, quoteText(pattern), m_option));
        }
        refuseName(pattern);
    }

    [[noreturn]] void refuseName(std::string_view name) const {
        throw DataError(
            fmt::format("{}: no object, group or material {} {}{}", m_source,
                        name.find('*') == std::string_view::npos ? "is called" : "matches",
                        quoteText(name), choiceOf(m_mesh, name, m_option)));
    }

    const Mesh& m_mesh;
    std::string_view m_option;
    const std::string& m_source;
};

bool looksTo(Facing facing, const Vector3& normal, double north) {
    const double tilt = tiltOf(normal);
    switch (facing) {
    case Facing::up:
        return tilt <= steepestUp;
    case Facing::down:
        return tilt >= 180.0 - steepestUp;
    default:
        break;
    }
    if (tilt <= flat || tilt >= 180.0 - flat) {
        return false;
    }
    const double azimuth = azimuthOf(normal, north);
    const double wanted = 90.0 * (static_cast<int>(facing) - static_cast<int>(Facing::north));
    const double away = std::remainder(azimuth - wanted, 360.0);
    // Each direction lies in one quarter only, whatever the rounding of a wall that faces
    // northeast.
    constexpr double rounding = 1.0e-9;
    return away >= -45.0 - rounding && away < 45.0 - rounding;
}

} // namespace

double tiltOf(const Vector3& normal) {
    return std::atan2(std::hypot(normal.x, normal.y), normal.z) / radiansPerDegree;
}

double azimuthOf(const Vector3& normal, double north) {
    return std::atan2(normal.x, normal.y) / radiansPerDegree - north;
}

const char* compassName(int sixteenth) {
    constexpr std::array<const char*, 16> names = {
        "north", "north-northeast", "northeast", "east-northeast",
        "east",  "east-southeast",  "southeast", "south-southeast",
        "south", "south-southwest", "southwest", "west-southwest",
        "west",  "west-northwest",  "northwest", "north-northwest"};
    return names[static_cast<std::size_t>(sixteenth)];
}

SelectedFaces selectFaces(const Mesh& mesh, const FaceSelection& selection, double north,
                          const std::string& source) {
    const std::size_t count = mesh.faces.size();
    std::vector<Vector3> areas; // vectors of twice the area
    areas.reserve(count);
    std::vector<Vector3> polygon;
    for (const Mesh::Face& face : mesh.faces) {
        areas.push_back(areaVector(mesh.polygonOf(face, polygon)));
    }

    SelectedFaces result;
    std::vector<char> wanted(count, selection.patterns.empty() ? 1 : 0);
    /// Sets the wanted mark of what the patterns take, and counts what `counts` holds of it.
    const auto mark = [&](const std::vector<std::string>& patterns, std::string_view option,
                          char value, const auto& counts, std::vector<PatternCount>& taken) {
        const PatternReader reader(mesh, option, source);
        for (const std::string& text : patterns) {
            reader.read(text, [&](std::string_view pattern, const auto& takes) {
                PatternCount& found = taken.emplace_back(PatternCount{std::string(pattern)});
                for (std::size_t i = 0; i < count; ++i) {
                    if (counts(i) && takes(mesh.faces[i])) {
                        wanted[i] = value;
                        ++found.faces;
                        found.area += 0.5 * length(areas[i]);
                    }
                }
            });
        }
    };
    mark(
        selection.patterns, "--select", 1, [](std::size_t) { return true; }, result.taken);
    const std::vector<char> named = wanted;
    mark(
        selection.exclude, "--exclude", 0, [&](std::size_t i) { return named[i] != 0; },
        result.excluded);

    const TiltRange tilt = selection.tilt.value_or(TiltRange());
    constexpr double rounding = 1.0e-6; // of angles, so that --tilt 0-30 has a roof of 30 degrees
    for (std::uint32_t i = 0; i < count; ++i) {
        if (wanted[i] == 0) {
            continue;
        }
        const Vector3& normal = areas[i];
        const double angle = tiltOf(normal);
        const bool isTurned =
            (selection.tilt &&
             !(angle >= tilt.least - rounding && angle <= tilt.most + rounding)) ||
            (!selection.facing.empty() &&
             std::none_of(selection.facing.begin(), selection.facing.end(),
                          [&](Facing facing) { return looksTo(facing, normal, north); }));
        if (isTurned) {
            ++result.turnedAway;
            continue;
        }
        result.faces.push_back(i);
        result.area += 0.5 * length(normal);
    }
    if (result.faces.empty() && count > 0) {
        throw DataError(
            fmt::format("{}: the selection holds no face; {}", source,
                        result.turnedAway > 0
                            ? "widen --facing or --tilt, or turn the model's faces with --orient"
                        : selection.exclude.empty()
                            ? "choose another name or leave --select out to take every face"
                            : "leave out less with --exclude"));
    }
    return result;
}

std::vector<bool> facesTaken(const Mesh& mesh, std::string_view pattern, std::string_view option,
                             const std::string& source) {
    std::vector<bool> marks(mesh.faces.size(), false);
    PatternReader(mesh, option, source).read(pattern, [&](std::string_view, const auto& takes) {
        for (std::size_t i = 0; i < marks.size(); ++i) {
            marks[i] = marks[i] || takes(mesh.faces[i]);
        }
    });
    return marks;
}

const char* facingName(Facing facing) {
    return facingNames[static_cast<std::size_t>(facing)].data();
}

std::vector<Facing> parseFacing(std::string_view text) {
    std::vector<Facing> facing;
    const std::vector<std::string> names(facingNames.begin(), facingNames.end());
    std::string_view rest = text;
    for (;;) {
        const std::string_view word = trimmed(rest.substr(0, rest.find(',')));
        const auto found = std::find(facingNames.begin(), facingNames.end(), word);
        if (found == facingNames.end()) {
            const std::string close = didYouMean(word, names);
            throw UsageError(fmt::format(
                "--facing: {} is no direction{}", quoteText(word),
                close.empty() ? "; choose from up, down, north, east, south, west" : close));
        }
        facing.push_back(static_cast<Facing>(found - facingNames.begin()));
        if (rest.find(',') == std::string_view::npos) {
            return facing;
        }
        rest.remove_prefix(rest.find(',') + 1);
    }
}

TiltRange parseTiltRange(std::string_view text) {
    const std::size_t dash = text.find('-', 1);
    const auto first = parseNumber<double>(text.substr(0, dash));
    const auto last = dash < text.size() ? parseNumber<double>(text.substr(dash + 1)) : first;
    if (!first || !last || !(*first >= 0.0 && *last <= 180.0 && *first <= *last)) {
        throw UsageError(
            fmt::format("--tilt: {} is no range of angles; give degrees from level, as "
                        "0-30 for flat roofs and gentle slopes (90 is a wall, 180 "
                        "looks down)",
                        quoteText(text)));
    }
    if (dash < text.size()) {
        return {*first, *last};
    }
    return {std::max(*first - 1.0, 0.0), std::min(*last + 1.0, 180.0)};
}

} // namespace insolate::study
