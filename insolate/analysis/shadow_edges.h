/// The cells that a shadow's edge crosses, for the hourly method.
///
/// One ray answers for a cell of 5 degrees, so the whole error of a sensor lies in the cells that
/// are seen differently from a neighbour. Their rays do not stand in the middle but spread over the
/// cells by golden ratios, row by row and column by column: along a roof line the errors of the
/// cells then add up like those of chance or better, and the root of the summed squares of the
/// cells' weights bounds them. Where that bound exceeds what is tolerated, the heaviest cells get
/// further rays, as many as the tolerance needs.
#pragma once

#include <insolate/analysis/sensor_rays.h>
#include <insolate/sky/hourly_sky.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace insolate {

/// What the sensors of an analysis share.
///
/// A cell is split into squares of 2^level by 2^level. Level by level their rays form one lattice:
/// the cell's first ray, moved by multiples of 1/2^level of the cell's width and height, wrapped
/// around within the cell. So each square of each level has exactly one of them, and the rays of a
/// level are also rays of the next.
class EdgeTables {
public:
    static constexpr int deepest = 3; ///< 0.6 degrees, the size of the sun's disc
    static constexpr int side = 1 << deepest;

    /// Keeps the sky by reference; prepares squares down to a level.
    EdgeTables(const HourlySky& sky, int finest);

    /// The first rays of the cells.
    static SkyDirections firstDirections(double northOffset);
    XYZf firstRay(int azimuth, int altitude) const;
    /// The ray of a square, of level 0 (the cell's first) on.
    XYZf rayOf(int level, int cell, int x, int y) const;

    /// The further sets of a level, 1..deepest.
    std::span<const SkyDirections> setsOf(int level) const {
        const auto first = static_cast<std::size_t>((1 << 2 * (level - 1)) - 1);
        return std::span(m_sets).subspan(first, std::size_t{3} << 2 * (level - 1));
    }
    /// The set of that level, counted from its first, that holds the ray of a cell's square; -1 if
    /// it is a ray of the level before.
    int setOfSquare(int level, int cell, int x, int y) const {
        const Place first = m_first[static_cast<std::size_t>(cell)];
        const int last = (1 << level) - 1;
        const int moveX = (x - (first.x >> (deepest - level))) & last;
        const int moveY = (y - (first.y >> (deepest - level))) & last;
        return m_setOfMove[static_cast<std::size_t>(level)]
                          [static_cast<std::size_t>(moveY << level | moveX)];
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
    /// The share of a sun cell's energy that lies nearer to the sun's own ray than to the cell's.
    float nearSun(int sunCell) const { return m_nearSun[static_cast<std::size_t>(sunCell)]; }
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
    double m_north;
    std::vector<SkyDirections> m_sets;
    std::array<std::array<std::int8_t, side * side>, deepest + 1> m_setOfMove{};
    std::array<Place, skyGrid::cellCount> m_first;    // of the cells' first rays, in eighths
    std::array<std::vector<Sun>, deepest + 1> m_suns; // by sun cell, row by row
    std::vector<float> m_nearSun;
    std::vector<int> m_sunCellOf;
    std::vector<Angle> m_azimuths, m_altitudes; // at sixteenths of a cell
    std::array<Angle, skyGrid::altitudeCount> m_shiftX;
    std::array<Angle, skyGrid::azimuthCount> m_shiftY;
};

/// How far a sensor's sums may be off.
struct EdgeTolerance {
    float sky = 0, beam = 0;           ///< [Wh/m2]; 0: as it comes
    int deepest = EdgeTables::deepest; ///< level of the finest squares
};

/// The edges that one sensor sees.
class ShadowEdges {
public:
    ShadowEdges(const EdgeTables& tables, const HourlySky& sky, Sides sides, const XYZf& normal)
        : m_tables(tables), m_hourlySky(sky), m_sides(sides), m_normal(normal) {}

    /// What was asked first: of the cells' rays and of the sun's, those in front of the surface,
    /// and those of them that are free; the visibilities, of the cells and of the sun cells; and
    /// the weights, projected solid angle [sr] and energy on the surface [Wh/m2].
    struct FirstLook {
        std::array<SkyCellSet, 2> front, free;
        const float* visible;
        const float* weight;
        const float* sunVisible;
        const float* sunWeight;
    };

    /// Finds the cells at edges.
    void find(const FirstLook& look);

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
    std::span<const Cell> refine(Rays& rays, const EdgeTolerance& tolerance);

    /// Cells at edges that hold the sun and whose two rays differ: cell of the sun and the part of
    /// its energy that is visible.
    struct Mixed {
        int sunCell;
        float visible;
    };
    std::span<const Mixed> mixed() const { return m_mixed; }

private:
    struct Square {
        float sky, beam; ///< squared weights [(Wh/m2)^2]
        std::uint16_t cell;
        std::uint8_t x, y;
    };
    void findCutCells();
    void look(Rays& rays, int level, const std::vector<Square>& squares, bool onlyHalve);
    void replace(int level, const Square& square, const std::array<float, 4>& values);
    void lookAtSteps(Rays& rays, const Square& square);
    void count(Cell& cell, int level, int x, int y, float value, float sign) const;
    void countSun(Cell& cell, const EdgeTables::Sun& sun, bool faced, float value,
                  float sign) const;
    bool facesRay(int level, int cell, int x, int y) const;
    bool atEdge(int level, int cell, int x, int y);
    float valueAt(int azimuth, int altitude, int x, int y) const;
    float start(Rays& rays, int index);
    static std::size_t mapPlace(int level, int x, int y) {
        const int width = EdgeTables::side >> level;
        return static_cast<std::size_t>((y * EdgeTables::side + x) * width);
    }
    /// Visibilities of a cell's squares, as fine as they come.
    using Map = std::array<float, EdgeTables::side * EdgeTables::side>;
    Map& mapOf(int cell) {
        return m_maps[static_cast<std::size_t>(m_place[static_cast<std::size_t>(cell)])];
    }
    float weigh(const XYZf& vector) const {
        return m_sides == Sides::One ? std::max(dot(m_normal, vector), 0.0f)
                                     : weightOf(m_sides, m_normal, vector, length(vector));
    }

    const EdgeTables& m_tables;
    const HourlySky& m_hourlySky;
    Sides m_sides;
    const XYZf& m_normal;
    FirstLook m_first{};
    std::vector<Square> m_edges;
    std::vector<Mixed> m_mixed;
    std::vector<Cell> m_cells;
    std::vector<Map> m_maps;           // of m_cells
    std::vector<std::int16_t> m_place; // of a cell in m_cells, -1 for none
};

} // namespace insolate
