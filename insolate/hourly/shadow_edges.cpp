// How the cells at the edges of shadows are found, and which of them are split.
//
// After the first look a cell counts by two rays, one in each of its halves. That is wrong only
// where the edge of a shadow passes: in cells whose rays, or those of a neighbour, are seen
// differently. refine() works on these.
//
// 1. Each cell at an edge could be wrong by about what it weighs: its sky and its beam on the
//    surface. The errors of different cells have either sign, so their squares add up, and the root
//    of the sum, times an empirical factor, bounds the error of the sensor. Cells that the
//    surface's own plane cuts lose instead of erring, all in one direction, and add up plainly.
// 2. While the bound exceeds the tolerance, the heaviest cells are split into squares, two by two
//    (level 1, 2.5 degrees), then those of the squares at edges again (1.25, 0.6 degrees). A split
//    square has one ray for each of its four. How heavy a square must be to be split is read from a
//    histogram of the errors.
// 3. When one more split of some squares is enough, no others are looked at, and this is the last
//    round. Otherwise all squares at edges are split but the light ones that together leave a
//    quarter of what is tolerated.
// 4. Beyond the smallest squares the sun's own steps are asked one by one; the sky has no finer
//    detail.
//
// The sums of a cell (Cell) hold at any time what its squares give: a square that is split is taken
// out and its four are put in. A map of each such cell holds what is seen of it, in eighths of its
// width and height, so that squares of different levels can be compared with their neighbours.
#include <insolate/hourly/shadow_edges.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>

namespace insolate {
namespace {

constexpr int sectors = skyGrid::azimuthCount;
constexpr int bands = skyGrid::altitudeCount;
constexpr int deepest = EdgeTables::deepest;
constexpr int side = EdgeTables::side;

// The constants below are measured by `bench_validation <weather folder> <plot.svg> shading
// scenes`: 500 random cases of each kind of surroundings, and 400 sensors of Lyon and of a dense
// city.

/// These times the root of the summed squares of the weights at edges bound the error. Of facades
/// before a wall, the hardest case, 98.0 % keep half a percent of the beam at a tolerance of 0.25
/// %, of those in a court 98.6 % keep 1 % of the sky. With 0.3 and 0.65 the rays are 5 % fewer and
/// the shares 96.4 % and 97.8 %; with 0.45 and 1.0 the rays are 6 % more, the shares 99.6 %
/// and 98.8 %.
constexpr float skyFactor = 0.36f;
constexpr float beamFactor = 0.8f;

/// The share of a square's squared error that is left when it is split. Halves of these save 3 % of
/// the rays, doubles take 2 % more; the share of facades before a wall within half a percent of the
/// beam, 88.4 % at that tolerance, becomes 86.6 % and 89.4 %.
struct Shrinking {
    float sky, beam;
};
constexpr Shrinking unchanged{1.0f, 1.0f};
constexpr Shrinking quartered{0.2f, 0.22f};
constexpr Shrinking gone{0.0f, 0.0f};

/// Of what is tolerated, the part that squares may take which are left as they are while others are
/// still to be split further. The errors are the same from 0.1 to 0.5; the rays are 5 % more with
/// 0.1 and 2 % fewer with 0.5.
constexpr float shareOfLightSquares = 0.25f;

/// Squared errors of squares, summed by the power of two of each: the limit above which squares
/// must be split is found without sorting them.
class ErrorHistogram {
public:
    void add(float value) {
        const std::size_t exponent = std::bit_cast<std::uint32_t>(value) >> exponentShift & 0xFF;
        m_sums[exponent] += value;
        m_sum += value;
        m_end = std::max(m_end, exponent + 1);
    }
    float sum() const { return m_sum; }
    /// The highest power of two such that, when all values from there on shrink by the factor, the
    /// sum of all is no more than allowed: infinity when nothing need shrink, 0 when shrinking all
    /// of them is not enough.
    float limit(float allowed, float factor) const {
        float left = m_sum;
        std::size_t exponent = m_end;
        while (left > allowed && exponent > 1) {
            --exponent;
            left -= (1.0f - factor) * m_sums[exponent];
        }
        if (left > allowed) {
            return 0.0f;
        }
        return exponent == m_end
                   ? std::numeric_limits<float>::infinity()
                   : std::bit_cast<float>(static_cast<std::uint32_t>(exponent) << exponentShift);
    }

private:
    static constexpr unsigned exponentShift = 23;
    std::array<float, 256> m_sums{};
    float m_sum = 0.0f;
    std::size_t m_end = 0;
};

/// The upper `level` of six interleaved bits of an axis (0: azimuth, 1: altitude).
int highBits(std::uint32_t place, int axis, int level) {
    int value = 0;
    for (int bit = 0; bit < level; ++bit) {
        value = value * 2 + static_cast<int>(place >> (10 - 2 * bit + axis) & 1U);
    }
    return value;
}

constexpr float squared(float value) {
    return value * value;
}

/// Solid angle of a square whose moment has length 1 [sr].
float solidAngle(int level) {
    constexpr auto width = static_cast<float>(skyGrid::cellWidth);
    return width * width / static_cast<float>(1 << 2 * level);
}

/// The cell of a word's lowest bit.
int cellOf(std::size_t word, std::uint64_t bits) {
    return static_cast<int>(word / 2) * sectors + static_cast<int>(word % 2) * 64 +
           std::countr_zero(bits);
}

} // namespace

EdgeTables::EdgeTables(const HourlySky& sky, const FirstRays& firstRays)
    : m_sky(&sky), m_firstRays(&firstRays), m_sunCellOf(skyGrid::cellCount, -1) {
    const double north = sky.options.northOffset;
    for (int level = 1; level <= deepest; ++level) {
        const int squares = 1 << level;
        auto& pairs = m_pairOfMove[static_cast<std::size_t>(level)];
        for (int move = 0; move < squares * squares; ++move) {
            const int x = move % squares;
            const int y = move / squares;
            const int other = ((y + squares / 2) % squares) * squares + (x + squares / 2) % squares;
            std::uint8_t& pair = pairs[static_cast<std::size_t>(move)];
            if (level > 1 && x % 2 == 0 && y % 2 == 0) {
                pair = m_pairOfMove[static_cast<std::size_t>(level - 1)]
                                   [static_cast<std::size_t>(y / 2 << (level - 1) | x / 2)];
            } else if (other < move) {
                pair = pairs[static_cast<std::size_t>(other)];
            } else {
                pair = static_cast<std::uint8_t>(m_sets.size() / 2);
                for (const std::vector<XYZf>& half :
                     rayLattice::pair(static_cast<double>(x) / squares,
                                      static_cast<double>(y) / squares, north)) {
                    m_sets.emplace_back(
                        std::span<const XYZf, skyGrid::cellCount>(half.data(), half.size()));
                }
            }
        }
    }
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        m_first[static_cast<std::size_t>(cell)] = {
            static_cast<std::uint8_t>(rayLattice::placeX(cell / sectors) * side),
            static_cast<std::uint8_t>(rayLattice::placeY(cell % sectors) * side)};
    }
    // From the middle of an eighth to the ray in it.
    const auto shift = [](double place) {
        const double over = place * side - std::floor(place * side) - 0.5;
        const double angle = over / side * skyGrid::cellWidth;
        return Angle{static_cast<float>(std::sin(angle)), static_cast<float>(std::cos(angle))};
    };
    for (int altitude = 0; altitude < bands; ++altitude) {
        m_shiftX[static_cast<std::size_t>(altitude)] = shift(rayLattice::placeX(altitude));
    }
    for (int azimuth = 0; azimuth < sectors; ++azimuth) {
        m_shiftY[static_cast<std::size_t>(azimuth)] = shift(rayLattice::placeY(azimuth));
    }
    const auto angles = [](int cells, double offset) {
        std::vector<Angle> result;
        for (int i = 0; i < cells * 2 * side; ++i) {
            const double angle = i * std::numbers::pi / (36.0 * 2 * side) + offset;
            result.push_back(
                {static_cast<float>(std::sin(angle)), static_cast<float>(std::cos(angle))});
        }
        return result;
    };
    m_azimuths = angles(sectors, north);
    m_altitudes = angles(bands, 0.0);

    for (int level = 0; level <= deepest; ++level) {
        m_suns[static_cast<std::size_t>(level)].resize(sky.sunCells.size() << 2 * level);
    }
    for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
        const SunCell& sun = sky.sunCells[j];
        m_sunCellOf[static_cast<std::size_t>(sun.cell)] = static_cast<int>(j);
        for (int s = sun.firstStep; s < sun.firstStep + sun.stepCount; ++s) {
            const SunStep& step = sky.sunSteps[static_cast<std::size_t>(s)];
            for (int level = 0; level <= deepest; ++level) {
                Sun& square = m_suns[static_cast<std::size_t>(level)][static_cast<std::size_t>(
                    (static_cast<int>(j) << 2 * level) + (highBits(step.place, 1, level) << level) +
                    highBits(step.place, 0, level))];
                square.energy = sum(square.energy, step.energy);
                square.hours += step.sunHours;
            }
        }
    }
}

XYZf EdgeTables::rayOf(int level, int cell, int x, int y) const {
    const Place first = m_first[static_cast<std::size_t>(cell)];
    const int below = deepest - level;
    const int rest = (1 << below) - 1;
    const int azimuth = cell % sectors;
    const int altitude = cell / sectors;
    const auto turned = [](const Angle& angle, const Angle& by) {
        return Angle{angle.sine * by.cosine + angle.cosine * by.sine,
                     angle.cosine * by.cosine - angle.sine * by.sine};
    };
    const int eighthX = (x << below) + (first.x & rest);
    const int eighthY = (y << below) + (first.y & rest);
    const Angle turn =
        turned(m_azimuths[static_cast<std::size_t>((azimuth * side + eighthX) * 2 + 1)],
               m_shiftX[static_cast<std::size_t>(altitude)]);
    const Angle height =
        turned(m_altitudes[static_cast<std::size_t>((altitude * side + eighthY) * 2 + 1)],
               m_shiftY[static_cast<std::size_t>(azimuth)]);
    return {height.cosine * turn.sine, height.cosine * turn.cosine, height.sine};
}

std::span<const SunStep> EdgeTables::stepsOf(int sunCell, int x, int y) const {
    const SunCell& sun = m_sky->sunCells[static_cast<std::size_t>(sunCell)];
    const std::span<const SunStep> steps = std::span(m_sky->sunSteps)
                                               .subspan(static_cast<std::size_t>(sun.firstStep),
                                                        static_cast<std::size_t>(sun.stepCount));
    constexpr int below = 2 * (6 - deepest);
    std::uint32_t square = 0;
    for (unsigned bit = 0; bit < deepest; ++bit) {
        square |= (static_cast<std::uint32_t>(x) >> bit & 1U) << 2 * bit |
                  (static_cast<std::uint32_t>(y) >> bit & 1U) << (2 * bit + 1);
    }
    const auto first = std::partition_point(steps.begin(), steps.end(), [&](const SunStep& step) {
        return step.place >> below < square;
    });
    const auto end = std::partition_point(
        first, steps.end(), [&](const SunStep& step) { return step.place >> below == square; });
    return {first, end};
}

/// The cells whose halves are seen differently, or a neighbour's.
std::vector<ShadowEdges::Square> ShadowEdges::cellsAtEdges() const {
    SkyCellSet free;
    SkyCellSet hidden;
    for (std::size_t half = 0; half < 2; ++half) {
        for (std::size_t i = 0; i < SkyCellSet::wordCount; ++i) {
            free.words[i] |= m_first.free[half].words[i];
            hidden.words[i] |= m_first.asked[half].words[i] & ~m_first.free[half].words[i];
        }
    }
    SkyCellSet both = free.grown();
    both &= hidden.grown();
    both &= m_first.front;
    std::vector<Square> edges;
    for (std::size_t i = 0; i < SkyCellSet::wordCount; ++i) {
        for (std::uint64_t bits = both.words[i]; bits != 0; bits &= bits - 1) {
            const int cell = cellOf(i, bits);
            const auto at = static_cast<std::size_t>(cell);
            const int sunCell = m_tables.sunCellOf(cell);
            const float beam = sunCell < 0 ? 0.0f : m_first.sunWeight[sunCell];
            edges.push_back({squared(m_first.weight[at] * m_hourlySky.diffuse[at]), squared(beam),
                             static_cast<std::uint16_t>(cell), 0, 0});
        }
    }
    if (m_sides == Sides::One) {
        addCutCells(edges);
    }
    return edges;
}

/// Adds the cells that the surface's own plane cuts. The first look weighs such a cell by its
/// middle alone, and loses what lies in front of the plane in the corners. These losses have one
/// sign: a cell's squared error is its loss times the loss of all, so that the sum of these is the
/// square of the whole loss. The empirical factor, which holds for errors of either sign, is
/// divided out.
void ShadowEdges::addCutCells(std::vector<Square>& edges) const {
    SkyCellSet behind = SkyCellSet::all();
    for (std::size_t i = 0; i < SkyCellSet::wordCount; ++i) {
        behind.words[i] &= ~m_first.front.words[i];
    }
    if (behind == SkyCellSet()) {
        return;
    }
    SkyCellSet free = m_first.front;
    for (std::size_t i = 0; i < SkyCellSet::wordCount; ++i) {
        free.words[i] &= m_first.free[0].words[i] | m_first.free[1].words[i];
    }
    SkyCellSet cut = behind.grown();
    cut &= free;
    SkyCellSet beyond = free.grown();
    beyond &= behind;
    struct Lost {
        std::size_t edge;
        float sky, beam;
    };
    std::vector<Lost> lost;
    float lostSky = 0.0f;
    float lostBeam = 0.0f;
    std::size_t edge = 0;
    const std::size_t count = edges.size();
    for (std::size_t i = 0; i < SkyCellSet::wordCount; ++i) {
        for (std::uint64_t bits = cut.words[i] | beyond.words[i]; bits != 0; bits &= bits - 1) {
            const int cell = cellOf(i, bits);
            const auto at = static_cast<std::size_t>(cell);
            const int sunCell = m_tables.sunCellOf(cell);
            float sky = -m_first.weight[at];
            float beam = sunCell < 0 ? 0.0f : -m_first.sunWeight[sunCell];
            for (int y = 0; y < 2; ++y) {
                for (int x = 0; x < 2; ++x) {
                    sky += solidAngle(1) * projected(m_tables.moment(1, cell, x, y));
                    beam += sunCell < 0 ? 0.0f : projected(m_tables.sunOf(1, sunCell, x, y).energy);
                }
            }
            sky = std::max(sky * m_hourlySky.diffuse[at], 0.0f);
            beam = std::max(beam, 0.0f);
            lostSky += sky;
            lostBeam += beam;
            while (edge < count && edges[edge].cell < cell) {
                ++edge;
            }
            if (edge < count && edges[edge].cell == cell) {
                lost.push_back({edge, sky, beam});
            } else {
                lost.push_back({edges.size(), sky, beam});
                edges.push_back({0.0f, 0.0f, static_cast<std::uint16_t>(cell), 0, 0});
            }
        }
    }
    for (const Lost& cell : lost) {
        edges[cell.edge].sky += cell.sky * lostSky / squared(skyFactor);
        edges[cell.edge].beam += cell.beam * lostBeam / squared(beamFactor);
    }
}

std::span<const ShadowEdges::Cell> ShadowEdges::refine(Rays& rays, const FirstLook& first,
                                                       const EdgeTolerance& tolerance) {
    m_first = first;
    // The tolerances as sums of squares that are allowed, and what the squares that stay as they
    // are take of them.
    const auto allowed = [](float error, float factor) {
        return error > 0.0f ? squared(error / factor) : std::numeric_limits<float>::infinity();
    };
    const float allowedSky = allowed(tolerance.sky, skyFactor);
    const float allowedBeam = allowed(tolerance.beam, beamFactor);
    float fixedSky = 0.0f;
    float fixedBeam = 0.0f;
    std::vector<Square> squares = cellsAtEdges();
    std::vector<Square> chosen;
    for (int level = 1;; ++level) {
        ErrorHistogram sky;
        ErrorHistogram beam;
        for (const Square& square : squares) {
            sky.add(square.sky);
            beam.add(square.beam);
        }
        const auto enough = [&](const Shrinking& shrinking) {
            return fixedSky + shrinking.sky * sky.sum() <= allowedSky &&
                   fixedBeam + shrinking.beam * beam.sum() <= allowedBeam;
        };
        if (enough(unchanged)) {
            break;
        }
        // The last round splits no more than needed; the steps of the sun are always the last.
        const bool steps = level > EdgeTables::deepest;
        const bool reached = steps || enough(quartered);
        const Shrinking& shrinking = steps || !reached ? gone : quartered;
        const float share = reached ? 1.0f : shareOfLightSquares;
        const float skyLimit = steps ? std::numeric_limits<float>::infinity()
                                     : sky.limit(share * allowedSky - fixedSky, shrinking.sky);
        const float beamLimit = beam.limit(share * allowedBeam - fixedBeam, shrinking.beam);
        chosen.clear();
        for (const Square& square : squares) {
            if ((square.sky > 0.0f && square.sky >= skyLimit) ||
                (square.beam > 0.0f && square.beam >= beamLimit)) {
                chosen.push_back(square);
            } else {
                fixedSky += square.sky;
                fixedBeam += square.beam;
            }
        }
        if (steps) {
            for (const Square& square : chosen) {
                lookAtSteps(rays, square);
            }
            break;
        }
        look(rays, level, chosen);
        if (reached) {
            break;
        }
        // The next round's squares: those of the new ones that an edge crosses.
        squares.clear();
        for (const Square& parent : chosen) {
            const Cell& cell = m_cells[static_cast<std::size_t>(m_place[parent.cell])];
            for (int quarter = 0; quarter < 4; ++quarter) {
                const int x = 2 * parent.x + quarter % 2;
                const int y = 2 * parent.y + quarter / 2;
                if (atEdge(level, parent.cell, x, y)) {
                    const float energy =
                        cell.sunCell < 0
                            ? 0.0f
                            : projected(m_tables.sunOf(level, cell.sunCell, x, y).energy);
                    // A quarter of the parent's sky is near enough for a bound, squared a
                    // sixteenth.
                    squares.push_back({parent.sky / 16.0f, squared(energy), parent.cell,
                                       static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y)});
                }
            }
        }
    }
    return m_cells;
}

/// Asks a square of the deepest level for each step of the sun. Steps without radiation keep what
/// the square's own ray saw.
void ShadowEdges::lookAtSteps(Rays& rays, const Square& square) {
    Cell& cell = m_cells[static_cast<std::size_t>(m_place[square.cell])];
    const float value = mapOf(square.cell)[mapPlace(deepest, square.x, square.y)];
    const bool faced = facesRay(deepest, square.cell, square.x, square.y);
    countSun(cell, m_tables.sunOf(deepest, cell.sunCell, square.x, square.y), faced, value, -1.0f);
    for (const SunStep& step : m_tables.stepsOf(cell.sunCell, square.x, square.y)) {
        const float size = vectorLength(step.energy);
        if (projected(step.energy) > 0.0f) {
            countSun(cell, {step.energy, step.sunHours}, true,
                     rays.one(scaled(step.energy, 1.0f / size)), 1.0f);
        } else if (size == 0.0f) {
            countSun(cell, {step.energy, step.sunHours}, faced, value, 1.0f);
        }
    }
}

/// Asks the squares of the level that lie in the chosen ones of the level before.
void ShadowEdges::look(Rays& rays, int level, const std::vector<Square>& squares) {
    const std::span<const SkyDirections> sets = m_tables.setsOf(level);
    const std::size_t firstSet = EdgeTables::firstSetOf(level);
    std::vector<SkyCellSet> cells(sets.size());
    const auto setOf = [&](const Square& square, unsigned quarter) {
        return m_tables.setOfSquare(level, square.cell,
                                    2 * square.x + static_cast<int>(quarter & 1U),
                                    2 * square.y + static_cast<int>(quarter >> 1));
    };
    const auto isKnown = [&](const Square& square, unsigned quarter, std::size_t set) {
        if (level > 1) {
            return quarter == m_tables.knownQuarter(level, square.cell);
        }
        const int azimuth = square.cell % sectors;
        const int altitude = square.cell / sectors;
        return m_tables.isFirst(set, azimuth, altitude) &&
               m_first.asked[set].contains(azimuth, altitude);
    };
    for (const Square& square : squares) {
        for (unsigned quarter = 0; quarter < 4; ++quarter) {
            const std::size_t set = setOf(square, quarter);
            if (!isKnown(square, quarter, set)) {
                cells[set - firstSet].insert(square.cell % sectors, square.cell / sectors);
            }
        }
    }
    rays.skies(sets, cells);
    if (level == 1) {
        m_place.assign(skyGrid::cellCount, -1);
        m_cells.reserve(squares.size());
        m_maps.resize(squares.size());
    }
    for (const Square& square : squares) {
        if (level == 1) {
            start(square.cell);
        }
        std::array<float, 4> values;
        for (unsigned quarter = 0; quarter < 4; ++quarter) {
            const std::size_t set = setOf(square, quarter);
            values[quarter] = !isKnown(square, quarter, set)
                                  ? rays.visible(sets[set - firstSet], cells[set - firstSet],
                                                 square.cell % sectors, square.cell / sectors)
                              : level == 1
                                  ? m_first.visible[set][square.cell]
                                  : mapOf(square.cell)[mapPlace(level - 1, square.x, square.y)];
        }
        replace(level, square, values);
    }
}

/// Begins the record of a cell.
void ShadowEdges::start(int index) {
    m_place[static_cast<std::size_t>(index)] = static_cast<std::int16_t>(m_cells.size());
    Cell& cell = m_cells.emplace_back();
    cell.cell = index;
    cell.sunCell = m_tables.sunCellOf(index);
}

/// Puts the four squares of a level in the place of the one that they make up.
void ShadowEdges::replace(int level, const Square& square, const std::array<float, 4>& values) {
    Cell& cell = m_cells[static_cast<std::size_t>(m_place[square.cell])];
    if (level > 1) {
        const float value = mapOf(cell.cell)[mapPlace(level - 1, square.x, square.y)];
        count(cell, level - 1, square.x, square.y, value, -1.0f);
    }
    const int width = side >> level;
    for (int quarter = 0; quarter < 4; ++quarter) {
        const int x = 2 * square.x + quarter % 2;
        const int y = 2 * square.y + quarter / 2;
        const float value = values[static_cast<std::size_t>(quarter)];
        count(cell, level, x, y, value, 1.0f);
        for (int row = 0; row < width; ++row) {
            std::fill_n(mapOf(cell.cell).begin() + (y * width + row) * side + x * width, width,
                        value);
        }
    }
}

/// Adds a square to its cell's sums, or takes it out with a sign of -1.
inline void ShadowEdges::count(Cell& cell, int level, int x, int y, float value, float sign) const {
    cell.seen +=
        sign * value * solidAngle(level) * projected(m_tables.moment(level, cell.cell, x, y));
    if (cell.sunCell >= 0) {
        countSun(cell, m_tables.sunOf(level, cell.sunCell, x, y),
                 value > 0.0f && facesRay(level, cell.cell, x, y), value, sign);
    }
}

/// The same for the sun in a square, or for a step of it. The time counts where the surface faces
/// the ray, whether the sun radiates or not. If its energy decided, a surface with a wall behind it
/// would lose time where the ray lies on one side of its plane and the energy on the other.
inline void ShadowEdges::countSun(Cell& cell, const EdgeTables::Sun& sun, bool faced, float value,
                                  float sign) const {
    const float beam = sign * projected(sun.energy);
    cell.beam += beam;
    cell.beamSeen += beam * value;
    cell.directHours += faced ? sign * sun.hours * value : 0.0f;
}

/// Whether the surface faces the ray of a square.
inline bool ShadowEdges::facesRay(int level, int cell, int x, int y) const {
    return m_sides != Sides::One || dotProduct(m_normal, m_tables.rayOf(level, cell, x, y)) > 0.0f;
}

/// Visibility of a place in a cell's map or, one step beyond it, in its neighbour's; -1 where the
/// sensor does not look.
float ShadowEdges::valueAt(int azimuth, int altitude, int x, int y) const {
    azimuth += x < 0 ? -1 : x >= side ? 1 : 0;
    altitude += y < 0 ? -1 : y >= side ? 1 : 0;
    azimuth = azimuth < 0 ? azimuth + sectors : azimuth >= sectors ? azimuth - sectors : azimuth;
    if (altitude < 0 || altitude >= bands || !m_first.front.contains(azimuth, altitude)) {
        return -1.0f;
    }
    const auto cell = static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude));
    const std::int16_t place = m_place[cell];
    return place < 0 ? m_first.visible[(y & (side - 1)) >= side / 2 ? 1 : 0][cell]
                     : m_maps[static_cast<std::size_t>(place)]
                             [static_cast<std::size_t>((y & (side - 1)) * side + (x & (side - 1)))];
}

/// Whether a square differs from one beside it.
bool ShadowEdges::atEdge(int level, int cell, int x, int y) {
    const int width = side >> level;
    const int x0 = x * width;
    const int y0 = y * width;
    const int azimuth = cell % sectors;
    const int altitude = cell / sectors;
    const float own = mapOf(cell)[static_cast<std::size_t>(y0 * side + x0)];
    const Map& map = m_maps[static_cast<std::size_t>(m_place[static_cast<std::size_t>(cell)])];
    const auto differs = [&](int px, int py) {
        const bool inside = static_cast<unsigned>(px) < side && static_cast<unsigned>(py) < side;
        const float value = inside ? map[static_cast<std::size_t>(py * side + px)]
                                   : valueAt(azimuth, altitude, px, py);
        return value >= 0.0f && value != own;
    };
    for (const int i : {0, width - 1}) {
        if (differs(x0 - 1, y0 + i) || differs(x0 + width, y0 + i) || differs(x0 + i, y0 - 1) ||
            differs(x0 + i, y0 + width)) {
            return true;
        }
    }
    return false;
}

} // namespace insolate
