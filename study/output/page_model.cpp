#include "study/output/page_model.h"

#include "study/model/mesh.h"
#include "study/output/page_bytes.h"
#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <optional>
#include <utility>

namespace insolate::study {

namespace {

using Place = std::array<std::int64_t, 3>; ///< in steps

std::span<const Vector3> cellOf(const SensorField& field, std::size_t sensor) {
    const std::size_t first = field.cellStart[sensor];
    return std::span(field.corners).subspan(first, field.cellStart[sensor + 1] - first);
}

bool sameOrigin(const SensorField& field, std::size_t a, std::size_t b) {
    if (field.origins.empty()) {
        return true;
    }
    const CellOrigin& first = field.origins[a];
    const CellOrigin& second = field.origins[b];
    return first.face == second.face && first.object == second.object &&
           first.material == second.material;
}

/// The lattice that a cell, the first of a grid, would begin.
class Lattice {
public:
    Lattice(const SensorField& field, std::size_t first, double tolerance)
        : m_tolerance(tolerance) {
        const std::span<const Vector3> cell = cellOf(field, first);
        if (cell.size() != 4) {
            return;
        }
        m_origin = cell[0];
        m_along = cell[1] - cell[0];
        m_across = cell[3] - cell[0];
        const Vector3 normal = cross(m_along, m_across);
        m_isOne = length(cell[2] - m_across - cell[1]) <= tolerance &&
                  dot(normal, field.normals[first]) > 0.0;
        const double determinant = dot(m_along, m_along) * dot(m_across, m_across) -
                                   dot(m_along, m_across) * dot(m_along, m_across);
        m_isOne = m_isOne && determinant > 0.0;
        if (m_isOne) {
            m_columnOf = (m_along * dot(m_across, m_across) - m_across * dot(m_along, m_across)) *
                         (1.0 / determinant);
            m_rowOf = (m_across * dot(m_along, m_along) - m_along * dot(m_along, m_across)) *
                      (1.0 / determinant);
        }
    }

    [[nodiscard]] bool isOne() const { return m_isOne; }
    [[nodiscard]] const Vector3& along() const { return m_along; }
    [[nodiscard]] const Vector3& across() const { return m_across; }
    [[nodiscard]] Vector3 at(double column, double row) const {
        return m_origin + m_along * column + m_across * row;
    }
    /// Whether the polygon is the cell of that place.
    [[nodiscard]] bool holds(std::span<const Vector3> cell, double column, double row) const {
        return cell.size() == 4 && length(cell[0] - at(column, row)) <= m_tolerance &&
               length(cell[1] - at(column + 1, row)) <= m_tolerance &&
               length(cell[2] - at(column + 1, row + 1)) <= m_tolerance &&
               length(cell[3] - at(column, row + 1)) <= m_tolerance;
    }
    /// The place that a corner would have.
    [[nodiscard]] std::pair<double, double> placeOf(const Vector3& corner) const {
        const Vector3 offset = corner - m_origin;
        return {std::round(dot(offset, m_columnOf)), std::round(dot(offset, m_rowOf))};
    }

private:
    double m_tolerance;
    Vector3 m_origin;
    Vector3 m_along;
    Vector3 m_across;
    Vector3 m_columnOf; ///< gives the column of an offset in the plane
    Vector3 m_rowOf;
    bool m_isOne = false;
};

/// The grid that begins with a sensor; of one cell where there is none.
CellBlock gridFrom(const SensorField& field, std::size_t first, double tolerance) {
    CellBlock block;
    block.first = first;
    block.count = 1;
    const Lattice lattice(field, first, tolerance);
    if (!lattice.isOne()) {
        return block;
    }
    constexpr double widest = 1.0e6; // beyond it a place is rather a mistake
    std::vector<std::pair<double, double>> places = {{0.0, 0.0}};
    double left = 0.0;
    double right = 0.0;
    for (std::size_t i = first + 1; i < field.size() && sameOrigin(field, first, i); ++i) {
        const std::span<const Vector3> cell = cellOf(field, i);
        const auto [column, row] = lattice.placeOf(cell[0]);
        const auto& [lastColumn, lastRow] = places.back();
        const bool goesOn = row == lastRow ? column > lastColumn : row > lastRow;
        if (!(std::abs(column) < widest) || !(row < widest) || !goesOn ||
            !lattice.holds(cell, column, row)) {
            break;
        }
        left = std::min(left, column);
        right = std::max(right, column);
        places.emplace_back(column, row);
    }
    const double rows = places.back().second + 1.0;
    const double columns = right - left + 1.0;
    const auto area = static_cast<std::size_t>(rows * columns);
    if (places.size() < 2 || area > 4 * places.size() + 64) {
        return block;
    }
    block.kind = CellBlock::Kind::grid;
    block.count = places.size();
    block.columns = static_cast<std::uint32_t>(columns);
    block.rows = static_cast<std::uint32_t>(rows);
    block.origin = lattice.at(left, 0.0);
    block.along = lattice.along() * columns;
    block.across = lattice.across() * rows;
    if (area > places.size()) {
        block.present.assign(area, 0);
        for (const auto& [column, row] : places) {
            block.present[static_cast<std::size_t>(row * columns + column - left)] = 1;
        }
    }
    return block;
}

/// Writes places as differences to the ones before.
class PlaceWriter {
public:
    PlaceWriter(ByteWriter& bytes, const Vector3& origin, double step)
        : m_bytes(bytes), m_origin(origin), m_step(step) {}

    [[nodiscard]] Place placeOf(const Vector3& point) const {
        return {std::llround((point.x - m_origin.x) / m_step),
                std::llround((point.y - m_origin.y) / m_step),
                std::llround((point.z - m_origin.z) / m_step)};
    }
    void write(const Place& place) {
        for (std::size_t k = 0; k < 3; ++k) {
            m_bytes.difference(place[k] - m_last[k]);
        }
        m_last = place;
    }
    void write(const Vector3& point) { write(placeOf(point)); }

private:
    ByteWriter& m_bytes;
    Vector3 m_origin;
    double m_step;
    Place m_last = {0, 0, 0};
};

std::string packBlocks(const SensorField& field, std::span<const CellBlock> blocks,
                       const Vector3& origin, double step) {
    ByteWriter bytes;
    PlaceWriter places(bytes, origin, step);
    for (const CellBlock& block : blocks) {
        bytes.number(block.count << 2U | static_cast<unsigned>(block.kind));
        if (block.kind == CellBlock::Kind::grid) {
            bytes.number(block.columns);
            bytes.number(block.rows);
            places.write(block.origin);
            places.write(block.origin + block.along);
            places.write(block.origin + block.across);
            // A grid with gaps: how many places have a cell, how many have none, and so on.
            for (std::size_t i = 0; i < block.present.size();) {
                const auto other = std::find(block.present.begin() + static_cast<std::ptrdiff_t>(i),
                                             block.present.end(), block.present[i] ^ 1U);
                const auto next = static_cast<std::size_t>(other - block.present.begin());
                if (i == 0 && block.present[0] == 0) {
                    bytes.number(0);
                }
                bytes.number(next - i);
                i = next;
            }
            continue;
        }
        for (std::size_t i = block.first; i < block.first + block.count; ++i) {
            if (block.kind == CellBlock::Kind::points) {
                places.write(field.positions[i]);
                const Vector3& n = field.normals[i];
                for (const double component : {n.x, n.y, n.z}) {
                    bytes.difference(std::llround(component * 1000.0));
                }
                continue;
            }
            const std::span<const Vector3> cell = cellOf(field, i);
            bytes.number(cell.size());
            const bool isTurned = dot(areaVector(cell), field.normals[i]) < 0.0;
            for (std::size_t k = 0; k < cell.size(); ++k) {
                places.write(cell[isTurned ? cell.size() - 1 - k : k]);
            }
        }
    }
    return std::move(bytes).take();
}

/// The names that are used, numbered as they come; 0 stands for none.
class NamesInUse {
public:
    explicit NamesInUse(const SensorField& field)
        : m_field(field), m_numbers(field.names.size(), 0) {}
    std::uint32_t numberOf(std::uint32_t name) {
        if (name >= m_numbers.size()) {
            return 0;
        }
        if (m_numbers[name] == 0) {
            m_names.push_back(m_field.names[name]);
            m_numbers[name] = static_cast<std::uint32_t>(m_names.size());
        }
        return m_numbers[name];
    }
    [[nodiscard]] std::vector<std::string> take() && { return std::move(m_names); }

private:
    const SensorField& m_field;
    std::vector<std::uint32_t> m_numbers;
    std::vector<std::string> m_names;
};

std::string packFaces(const SensorField& field, NamesInUse& names) {
    ByteWriter bytes;
    for (std::size_t first = 0; first < field.origins.size();) {
        const CellOrigin& origin = field.origins[first];
        std::size_t end = first + 1;
        while (end < field.origins.size() && field.origins[end].object == origin.object &&
               field.origins[end].material == origin.material) {
            ++end;
        }
        bytes.number(end - first);
        bytes.number(names.numberOf(origin.object));
        bytes.number(names.numberOf(origin.material));
        first = end;
    }
    return std::move(bytes).take();
}

/// Finds the cell that lies on a triangle of the scene: by the cell that its centre is in.
class CellsByPlace {
public:
    CellsByPlace(const SensorField& field, double tolerance)
        : m_field(field), m_tolerance(tolerance) {
        double reach = 0.0;
        for (std::size_t i = 0; i < field.size(); ++i) {
            const std::span<const Vector3> cell = cellOf(field, i);
            for (const Vector3& corner : cell) {
                reach = std::max(reach, length(corner - cell[0]));
            }
        }
        m_size = std::max(reach, tolerance);
        m_cells.reserve(field.size());
        for (std::size_t i = 0; i < field.size(); ++i) {
            m_cells.emplace_back(keyOf(cellOf(field, i)[0]), i);
        }
        std::sort(m_cells.begin(), m_cells.end());
    }

    [[nodiscard]] std::size_t find(std::span<const Vector3> triangle) const {
        const Vector3 centre = (triangle[0] + triangle[1] + triangle[2]) * (1.0 / 3.0);
        const Vector3 area = areaVector(triangle);
        if (!(length(area) > 0.0)) {
            return m_field.size();
        }
        const Vector3 normal = area * (1.0 / length(area));
        const Place middle = keyOf(centre);
        for (std::int64_t k = 0; k < 27; ++k) {
            const Place key = {middle[0] + k % 3 - 1, middle[1] + k / 3 % 3 - 1,
                               middle[2] + k / 9 - 1};
            for (auto it = std::lower_bound(m_cells.begin(), m_cells.end(),
                                            std::pair(key, std::size_t{0}));
                 it != m_cells.end() && it->first == key; ++it) {
                if (lies(centre, normal, it->second)) {
                    return it->second;
                }
            }
        }
        return m_field.size();
    }

private:
    [[nodiscard]] Place keyOf(const Vector3& p) const {
        return {static_cast<std::int64_t>(std::floor(p.x / m_size)),
                static_cast<std::int64_t>(std::floor(p.y / m_size)),
                static_cast<std::int64_t>(std::floor(p.z / m_size))};
    }
    [[nodiscard]] bool lies(const Vector3& point, const Vector3& normal, std::size_t sensor) const {
        const std::span<const Vector3> cell = cellOf(m_field, sensor);
        const Vector3& facing = m_field.normals[sensor];
        if (std::abs(dot(normal, facing)) < 0.999 ||
            std::abs(dot(point - cell[0], facing)) > m_tolerance) {
            return false;
        }
        const Vector3 up = areaVector(cell);
        for (std::size_t k = 0; k < cell.size(); ++k) {
            const Vector3 edge = cell[(k + 1) % cell.size()] - cell[k];
            if (dot(cross(edge, point - cell[k]), up) < -m_tolerance * length(edge) * length(up)) {
                return false;
            }
        }
        return true;
    }

    const SensorField& m_field;
    double m_tolerance;
    double m_size = 1.0;
    std::vector<std::pair<Place, std::size_t>> m_cells;
};

/// Runs of equal numbers.
std::string packRuns(std::span<const std::uint32_t> numbers) {
    ByteWriter bytes;
    for (std::size_t first = 0; first < numbers.size();) {
        std::size_t end = first + 1;
        while (end < numbers.size() && numbers[end] == numbers[first]) {
            ++end;
        }
        bytes.number(end - first);
        bytes.number(numbers[first]);
        first = end;
    }
    return std::move(bytes).take();
}

/// The scene's triangles over shared corners, its edges, and which object of the sensors they are.
void packScene(PackedModel& packed, const Scene& scene, const SensorField& field, NamesInUse& names,
               const std::stop_token& stop) {
    ByteWriter vertices;
    ByteWriter triangles;
    PlaceWriter places(vertices, packed.origin, packed.step);
    std::vector<std::pair<Place, std::uint32_t>> corners; // in the order of their places
    corners.reserve(scene.vertices.size());
    for (std::size_t i = 0; i < scene.vertices.size(); ++i) {
        corners.emplace_back(places.placeOf(scene.vertices[i]), static_cast<std::uint32_t>(i));
    }
    std::sort(corners.begin(), corners.end());
    throwIfStopped(stop);
    std::vector<std::uint32_t> firstOfPlace(corners.size());
    for (std::size_t i = 0; i < corners.size(); ++i) {
        const bool isNew = i == 0 || corners[i].first != corners[i - 1].first;
        firstOfPlace[corners[i].second] =
            isNew ? corners[i].second : firstOfPlace[corners[i - 1].second];
    }
    std::vector<std::uint32_t> numbers(corners.size());
    struct Side {
        std::uint32_t low;
        std::uint32_t high;
        std::uint32_t triangle;
        auto
        operator<=>(const Side&) const = default; // NOLINT(modernize-use-nullptr): there is none
    };
    std::vector<Side> sides;
    std::vector<Vector3> normals;
    std::vector<Vector3> placeOf; // by number
    std::uint32_t next = 0;
    std::vector<std::array<std::uint32_t, 3>> kept;
    std::vector<std::uint32_t> pairOf; // by triangle, 0: of no object
    // An object and a material make a pair, so that a triangle goes when either is hidden.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> byNumber;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> numberOf;
    const auto numberOfPair = [&](std::size_t sensor) -> std::uint32_t {
        if (sensor >= field.size()) {
            return 0;
        }
        const CellOrigin& origin = field.origins[sensor];
        const std::pair pair(names.numberOf(origin.object), names.numberOf(origin.material));
        const auto [found, isNew] =
            numberOf.try_emplace(pair, static_cast<std::uint32_t>(byNumber.size() + 1));
        if (isNew) {
            byNumber.push_back(pair);
        }
        return found->second;
    };
    std::optional<CellsByPlace> cells; // where sensors have names
    if (field.hasCells() && !field.origins.empty()) {
        cells.emplace(field, 0.5 * packed.step + 1.0e-3);
    }
    for (std::size_t t = 0; t < scene.triangleCount(); ++t) {
        if (t % 4096 == 0) {
            throwIfStopped(stop);
        }
        const std::span<const Vector3> triangle = std::span(scene.vertices).subspan(3 * t, 3);
        std::array<std::uint32_t, 3> first = {};
        for (std::size_t k = 0; k < 3; ++k) {
            first[k] = firstOfPlace[3 * t + k];
        }
        if (first[0] == first[1] || first[1] == first[2] || first[2] == first[0]) {
            continue;
        }
        std::array<std::uint32_t, 3> corner = {};
        for (std::size_t k = 0; k < 3; ++k) {
            std::uint32_t& number = numbers[first[k]];
            if (number == 0) {
                places.write(scene.vertices[first[k]]);
                placeOf.push_back(scene.vertices[first[k]]);
                number = ++next;
            }
            corner[k] = number - 1;
        }
        const auto index = static_cast<std::uint32_t>(kept.size());
        for (std::size_t k = 0; k < 3; ++k) {
            const std::uint32_t a = corner[k];
            const std::uint32_t b = corner[(k + 1) % 3];
            sides.push_back({std::min(a, b), std::max(a, b), index});
        }
        const Vector3 area = areaVector(triangle);
        normals.push_back(area * (1.0 / std::max(length(area), 1.0e-300)));
        kept.push_back(corner);
        pairOf.push_back(cells ? numberOfPair(cells->find(triangle)) : 0);
    }
    std::int64_t highest = 0;
    for (const auto& corner : kept) {
        for (const std::uint32_t number : corner) {
            triangles.number(static_cast<std::uint64_t>(highest - number));
            highest = std::max<std::int64_t>(highest, std::int64_t{number} + 1);
        }
    }
    ByteWriter objectBytes;
    objectBytes.number(byNumber.size());
    for (const auto& [object, material] : byNumber) {
        objectBytes.number(object);
        objectBytes.number(material);
    }
    packed.objects = std::move(objectBytes).take() + packRuns(pairOf);

    // Edges where the surface ends, branches or folds by more than 25 degrees, as in the pictures.
    const double sharp = std::cos(25.0 * std::numbers::pi / 180.0);
    Bounds box;
    box.add(scene.vertices);
    const double little = box.longest() / 120.0;
    std::sort(sides.begin(), sides.end());
    std::vector<std::array<std::uint32_t, 3>> edges; // object, low, high
    for (std::size_t i = 0; i < sides.size();) {
        std::size_t end = i + 1;
        while (end < sides.size() && sides[end].low == sides[i].low &&
               sides[end].high == sides[i].high) {
            ++end;
        }
        const bool folds = end - i == 2 && std::abs(dot(normals[sides[i].triangle],
                                                        normals[sides[i + 1].triangle])) < sharp;
        // The rims of leaves and the like would be nothing but lines.
        const Vector3 along = placeOf[sides[i].high] - placeOf[sides[i].low];
        const bool isRimOfLittle = end - i == 1 && length(along) < little;
        if ((end - i != 2 || folds) && !isRimOfLittle) {
            edges.push_back({pairOf[sides[i].triangle], sides[i].low, sides[i].high});
        }
        i = end;
    }
    std::sort(edges.begin(), edges.end());
    ByteWriter edgeBytes;
    std::vector<std::uint32_t> edgeObjects;
    std::int64_t last = 0;
    for (const auto& [object, low, high] : edges) {
        edgeBytes.difference(std::int64_t{low} - last);
        edgeBytes.number(high - low);
        edgeObjects.push_back(object);
        last = low;
    }
    packed.vertices = std::move(vertices).take();
    packed.triangles = std::move(triangles).take();
    packed.edges = std::move(edgeBytes).take();
    packed.edgeObjects = packRuns(edgeObjects);
    packed.sceneVertices = next;
    packed.sceneTriangles = kept.size();
    packed.sceneEdges = edges.size();
}

/// What the neighbours of a cell let expect, and so what little is left to write.
/// @param visit receives the cell's number and the numbers of up to two neighbours before it; the
///        cell's own number stands for none
template <typename Visit>
void forEachWithNeighbours(std::span<const CellBlock> blocks, const Visit& visit) {
    for (const CellBlock& block : blocks) {
        const bool isFull = block.kind == CellBlock::Kind::grid && block.present.empty();
        for (std::size_t k = 0; k < block.count; ++k) {
            const std::size_t cell = block.first + k;
            const bool hasLeft = isFull ? k % block.columns != 0 : cell > 0;
            const bool hasUpper = isFull && k >= block.columns;
            visit(cell, hasLeft ? cell - 1 : cell, hasUpper ? cell - block.columns : cell);
        }
    }
}

template <typename Level>
Level expected(std::span<const Level> levels, std::size_t cell, std::size_t left,
               std::size_t upper) {
    if (left != cell && upper != cell) {
        return static_cast<Level>((levels[left] + levels[upper]) / 2);
    }
    if (left != cell || upper != cell) {
        return levels[left != cell ? left : upper];
    }
    return 0;
}

struct Ends {
    double lowest = 0.0;
    double highest = 0.0;
};

Ends endsOf(std::span<const float> values, double factor) {
    Ends ends;
    bool any = false;
    for (const float value : values) {
        if (std::isfinite(value)) {
            const double shown = static_cast<double>(value) * factor;
            ends.lowest = any ? std::min(ends.lowest, shown) : shown;
            ends.highest = any ? std::max(ends.highest, shown) : shown;
            any = true;
        }
    }
    return ends;
}

} // namespace

std::vector<CellBlock> cellBlocks(const SensorField& field, double tolerance) {
    std::vector<CellBlock> blocks;
    if (!field.hasCells()) {
        CellBlock points;
        points.kind = CellBlock::Kind::points;
        points.count = field.size();
        blocks.assign(field.size() > 0 ? 1 : 0, points);
        return blocks;
    }
    for (std::size_t i = 0; i < field.size();) {
        CellBlock block = gridFrom(field, i, tolerance);
        i += block.count;
        if (block.kind == CellBlock::Kind::polygons && !blocks.empty() &&
            blocks.back().kind == CellBlock::Kind::polygons) {
            blocks.back().count += block.count;
        } else {
            blocks.push_back(std::move(block));
        }
    }
    return blocks;
}

PackedModel packModel(const Scene& scene, const SensorField& field, const std::stop_token& stop) {
    PackedModel packed;
    Bounds box;
    box.add(scene.vertices);
    box.add(field.hasCells() ? field.corners : field.positions);
    const double longest = box.longest();
    packed.origin = longest > 0.0 ? box.low : Vector3{};
    packed.step = longest > 0.0 ? std::pow(10.0, std::floor(std::log10(longest))) * 1.0e-5 : 1.0;
    packed.sensors = field.size();
    packed.cells = cellBlocks(field, 0.5 * packed.step);
    throwIfStopped(stop);
    packed.blocks = packBlocks(field, packed.cells, packed.origin, packed.step);
    throwIfStopped(stop);
    NamesInUse names(field);
    packed.faces = packFaces(field, names);
    packScene(packed, scene, field, names, stop);
    packed.names = std::move(names).take();
    return packed;
}

PackedColumn packColumn(std::span<const float> values, double factor, int digits,
                        std::span<const CellBlock> blocks) {
    const Ends ends = endsOf(values, factor);
    const double greatest = std::max(std::abs(ends.lowest), std::abs(ends.highest));
    PackedColumn packed;
    int exponent =
        greatest > 0.0 ? static_cast<int>(std::floor(std::log10(greatest))) + 1 - digits : 0;
    const auto levelsAt = [&](int e) {
        return (ends.highest - ends.lowest) / std::pow(10.0, e) + 2.0;
    };
    while (levelsAt(exponent) > PackedColumn::greatest) {
        ++exponent;
    }
    packed.decimals = -exponent;
    // Powers of ten below one are no binary fractions; dividing by their inverses rounds once.
    const double inverse = std::pow(10.0, std::abs(exponent));
    const auto wholeOf = [&](double shown) {
        return std::llround(exponent < 0 ? shown * inverse : shown / inverse);
    };
    packed.step = exponent < 0 ? 1.0 / inverse : inverse;
    const std::int64_t offset = wholeOf(ends.lowest);
    packed.lowest = static_cast<double>(offset);
    std::vector<std::uint16_t> levels;
    levels.reserve(values.size());
    for (const float value : values) {
        constexpr std::uint16_t none = 0xFFFF;
        levels.push_back(
            std::isfinite(value)
                ? static_cast<std::uint16_t>(wholeOf(static_cast<double>(value) * factor) - offset)
                : none);
    }
    packed.bytes.resize(2 * values.size());
    forEachWithNeighbours(blocks, [&](std::size_t cell, std::size_t left, std::size_t upper) {
        const std::uint16_t guess = expected<std::uint16_t>(levels, cell, left, upper);
        const auto rest = static_cast<std::uint16_t>(levels[cell] - guess);
        // Of either sign, near zero as a rule: the sign goes into the lowest bit.
        const auto folded = static_cast<std::uint16_t>(rest & 0x8000U ? ~(rest << 1U) : rest << 1U);
        packed.bytes[cell] = static_cast<char>(folded & 0xFFU);
        packed.bytes[values.size() + cell] = static_cast<char>(folded >> 8U);
    });
    return packed;
}

PackedColumn packBytes(std::span<const float> values, double factor, double lowest, double highest,
                       std::span<const CellBlock> blocks) {
    PackedColumn packed;
    const double range = std::max(highest - lowest, 1.0e-30);
    int exponent = static_cast<int>(std::floor(std::log10(range))) - 3;
    double multiple = 1.0;
    const auto step = [&] { return multiple * std::pow(10.0, exponent); };
    while (range / step() + 2.0 > PackedColumn::greatestByte) {
        multiple = multiple == 1.0 ? 2.0 : multiple == 2.0 ? 5.0 : 1.0;
        exponent += multiple == 1.0 ? 1 : 0;
    }
    packed.step = step();
    packed.decimals = -exponent;
    const auto offset = static_cast<std::int64_t>(std::floor(lowest / packed.step));
    packed.lowest = static_cast<double>(offset);
    std::vector<std::uint8_t> levels;
    levels.reserve(values.size());
    for (const float value : values) {
        constexpr std::uint8_t none = 0xFF;
        levels.push_back(
            std::isfinite(value)
                ? static_cast<std::uint8_t>(
                      std::llround(static_cast<double>(value) * factor / packed.step) - offset)
                : none);
    }
    packed.bytes.resize(values.size());
    forEachWithNeighbours(blocks, [&](std::size_t cell, std::size_t left, std::size_t upper) {
        const std::uint8_t guess = expected<std::uint8_t>(levels, cell, left, upper);
        packed.bytes[cell] = static_cast<char>(levels[cell] - guess);
    });
    return packed;
}

} // namespace insolate::study
