/// The cells that a shadow's edge crosses, for the hourly method.
///
/// Two rays answer for a cell of 5 degrees, so the whole error of a sensor lies in the cells that
/// are seen differently from a neighbour. Along a roof line the errors of the cells add up like
/// those of chance or better (first_rays.h), and the root of the summed squares of the cells'
/// weights bounds them. Where that bound exceeds what is tolerated, the heaviest cells are split,
/// as often as the tolerance needs.
#pragma once

#include <insolate/hourly/first_rays.h>
#include <insolate/hourly/hourly_sky.h>
#include <insolate/hourly/sensor_rays.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace insolate {

/// What the sensors of an analysis share.
///
/// A cell is split into squares of 2^level by 2^level. Level by level their rays form one lattice:
/// the cell's own place, moved by multiples of 1/2^level of the cell's width and height, wrapped
/// around within the cell. So each square of each level has exactly one of them, and the rays of a
/// level are also rays of the next. Sets of directions stand in pairs for the halves of the cells.
class EdgeTables {
public:
    static constexpr int deepest = 3; ///< 0.6 degrees, the size of the sun's disc
    static constexpr int side = 1 << deepest;

    /// Keeps the sky and the first rays by reference.
    EdgeTables(const HourlySky& sky, const FirstRays& first);

    /// The ray of a square.
    XYZf rayOf(int level, int cell, int x, int y) const;

    /// The sets of a level that are none of the level before; the first level has the lattice's own
    /// pair too.
    std::span<const SkyDirections> setsOf(int level) const {
        const std::size_t first = firstSetOf(level);
        return std::span(m_sets).subspan(first, (std::size_t{1} << 2 * level) - first);
    }
    static std::size_t firstSetOf(int level) {
        return level == 1 ? 0 : std::size_t{1} << 2 * (level - 1);
    }
    /// The set that holds the ray of a cell's square, counted from set 0.
    std::size_t setOfSquare(int level, int cell, int x, int y) const {
        const Place first = m_first[static_cast<std::size_t>(cell)];
        const int last = (1 << level) - 1;
        const int moveX = (x - (first.x >> (deepest - level))) & last;
        const int moveY = (y - (first.y >> (deepest - level))) & last;
        return m_pairOfMove[static_cast<std::size_t>(level)]
                           [static_cast<std::size_t>(moveY << level | moveX)] *
                   std::size_t{2} +
               static_cast<std::size_t>(y >> (level - 1));
    }
    /// Whether the first rays have that of a half (set 0 or 1).
    bool isFirst(std::size_t set, int azimuth, int altitude) const {
        return set < 2 && m_firstRays->ofLattice[set].contains(azimuth, altitude);
    }
    /// Which of the four squares (bit 0: to the right, bit 1: above) of a level in one of the level
    /// before has the ray of that one.
    unsigned knownQuarter(int level, int cell) const {
        const Place first = m_first[static_cast<std::size_t>(cell)];
        return (first.x >> (deepest - level) & 1U) | (first.y >> (deepest - level) & 1U) << 1;
    }

    /// The direct radiation of a square.
    struct Sun {
        XYZf energy{0, 0, 0}; ///< as SunCell::energy
        float hours = 0;      ///< as SunCell::sunHours, also without energy
    };
    const Sun& sunOf(int level, int sunCell, int x, int y) const {
        return m_suns[static_cast<std::size_t>(level)]
                     [static_cast<std::size_t>((sunCell << 2 * level) + (y << level) + x)];
    }
    /// The sun's steps in a square of the deepest level.
    std::span<const SunStep> stepsOf(int sunCell, int x, int y) const;
    int sunCellOf(int cell) const { return m_sunCellOf[static_cast<std::size_t>(cell)]; }

    /// A vector to the middle of a square, of the length of its solid angle (but for a factor that
    /// the squares of a cell share).
    XYZf moment(int level, int cell, int x, int y) const {
        const int step = 2 << (deepest - level);
        const Angle& azimuth = m_azimuths[static_cast<std::size_t>(
            cell % skyGrid::azimuthCount * 2 * side + x * step + step / 2)];
        const Angle& altitude = m_altitudes[static_cast<std::size_t>(
            cell / skyGrid::azimuthCount * 2 * side + y * step + step / 2)];
        const float level2 = altitude.cosine * altitude.cosine;
        return {level2 * azimuth.sine, level2 * azimuth.cosine, altitude.cosine * altitude.sine};
    }

private:
    struct Angle {
        float sine, cosine;
    };
    struct Place {
        std::uint8_t x, y;
    };
    const HourlySky* m_sky;
    const FirstRays* m_firstRays;
    std::vector<SkyDirections> m_sets;
    std::array<std::array<std::uint8_t, side * side>, deepest + 1> m_pairOfMove{};
    std::array<Place, skyGrid::cellCount> m_first;    ///< of the lattice's own place, in eighths
    std::array<std::vector<Sun>, deepest + 1> m_suns; ///< by sun cell, row by row
    std::vector<int> m_sunCellOf;
    std::vector<Angle> m_azimuths, m_altitudes; ///< at sixteenths of a cell
    std::array<Angle, skyGrid::altitudeCount> m_shiftX;
    std::array<Angle, skyGrid::azimuthCount> m_shiftY;
};

/// How far a sensor's sums may be off.
struct EdgeTolerance {
    float sky = 0, beam = 0; ///< [Wh/m2]; 0 asks for nothing beyond the first rays
};

/// The edges that one sensor sees.
class ShadowEdges {
public:
    ShadowEdges(const EdgeTables& tables, const HourlySky& sky, Sides sides, const XYZf& normal)
        : m_tables(tables), m_hourlySky(sky), m_sides(sides), m_normal(normal) {}

    /// What was asked first: the cells in front of the surface; those asked in either half, which
    /// may also hold only the sun in front of it; those of them that are free. The visibilities of
    /// the halves, and the weights: projected solid angle [sr], energy on the surface [Wh/m2] by
    /// sun cell.
    struct FirstLook {
        SkyCellSet front;
        std::array<SkyCellSet, 2> asked, free;
        std::array<const float*, 2> visible{};
        const float* weight = nullptr;
        const float* sunWeight = nullptr;
    };

    /// A cell that was looked at again, by its squares.
    struct Cell {
        int cell = 0;
        int sunCell = -1;      ///< -1 for none
        float seen = 0;        ///< visible projected solid angle [sr]
        float beam = 0;        ///< energy of the unshaded sun on the surface [Wh/m2]
        float beamSeen = 0;    ///< what is visible of it
        float directHours = 0; ///< of direct sun
    };

    /// Looks again where it is needed.
    std::span<const Cell> refine(Rays& rays, const FirstLook& first,
                                 const EdgeTolerance& tolerance);

private:
    struct Square {
        float sky, beam; ///< squared weights [(Wh/m2)^2]
        std::uint16_t cell;
        std::uint8_t x, y;
    };
    std::vector<Square> cellsAtEdges() const;
    void addCutCells(std::vector<Square>& edges) const;
    void look(Rays& rays, int level, const std::vector<Square>& squares);
    void replace(int level, const Square& square, const std::array<float, 4>& values);
    void lookAtSteps(Rays& rays, const Square& square);
    void count(Cell& cell, int level, int x, int y, float value, float sign) const;
    void countSun(Cell& cell, const EdgeTables::Sun& sun, bool faced, float value,
                  float sign) const;
    bool facesRay(int level, int cell, int x, int y) const;
    bool atEdge(int level, int cell, int x, int y);
    float valueAt(int azimuth, int altitude, int x, int y) const;
    void start(int index);
    static std::size_t mapPlace(int level, int x, int y) {
        const int width = EdgeTables::side >> level;
        return static_cast<std::size_t>((y * EdgeTables::side + x) * width);
    }
    /// Visibilities of a cell's squares, as fine as they come.
    using Map = std::array<float, EdgeTables::side * EdgeTables::side>;
    Map& mapOf(int cell) {
        return m_maps[static_cast<std::size_t>(m_place[static_cast<std::size_t>(cell)])];
    }
    /// What a vector brings on the surface.
    float projected(const XYZf& vector) const {
        return m_sides == Sides::One
                   ? std::max(dotProduct(m_normal, vector), 0.0f)
                   : weightOnSurface(m_sides, m_normal, vector, vectorLength(vector));
    }

    const EdgeTables& m_tables;
    const HourlySky& m_hourlySky;
    Sides m_sides;
    const XYZf& m_normal;
    FirstLook m_first{};
    std::vector<Cell> m_cells;
    std::vector<Map> m_maps;           ///< of m_cells
    std::vector<std::int16_t> m_place; ///< of a cell in m_cells, -1 for none
};

} // namespace insolate
