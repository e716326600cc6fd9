#include <insolate/analysis/hourly_analysis.h>

#include <insolate/analysis/hourly_kernels.h>
#include <insolate/analysis/peak_hours.h>
#include <insolate/rt/sky_visibility.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

namespace insolate {
namespace {

constexpr float pi = std::numbers::pi_v<float>;
constexpr std::size_t cellCount = skyGrid::cellCount;
constexpr std::size_t patchCount = skyPatches::count;
using hourlyKernels::lanes;
using hourlyKernels::sumOfProducts;

/// Shares of the view below this are not worth a ray: a two-hundredth of the ground's light.
constexpr float smallGroundView = 0.005f;

/// Deepest splitting of a cell at a shadow edge: 5 degrees / 2^5.
constexpr int deepestLevel = 5;

float dot(const XYZf& a, const XYZf& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
float length(const XYZf& a) {
    return std::sqrt(dot(a, a));
}
XYZf scaled(const XYZf& a, float factor) {
    return {a.x * factor, a.y * factor, a.z * factor};
}
XYZf added(const XYZf& a, const XYZf& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

/// How a surface weighs what comes from a direction.
enum class Sides { One, Two, NoSurface };

/// The weight of a vector whose length, or measure without direction, is given.
float weightOf(Sides sides, const XYZf& normal, const XYZf& vector, float measure) {
    switch (sides) {
    case Sides::One:
        return std::max(dot(normal, vector), 0.0f);
    case Sides::Two:
        return std::abs(dot(normal, vector));
    case Sides::NoSurface:
        break;
    }
    return measure;
}

/// The rays of one sensor. Visibilities are 0 (blocked) to 1 (clear).
class Rays {
public:
    Rays(GetTransparencyValueOnRay& caster, const XYZf& origin)
        : m_caster(caster), m_query(dynamic_cast<SkyVisibilityQuery*>(&caster)), m_origin(origin) {}

    void receiveOn(const XYZf* normal) { m_normal = normal; }

    float one(const XYZf& direction) {
        const float value = m_caster.getTransparencyValue(m_origin, direction, m_normal);
        return value > 0.0f ? std::min(value, 1.0f) : 0.0f;
    }

    /// The cells that are free, where every visibility is 0 or 1; else it changes nothing.
    void skies(std::span<const SkyDirections> directions, std::span<SkyCellSet> cells) {
        if (m_query != nullptr) {
            m_query->visibleSkies(m_origin, directions, cells);
        }
    }

    /// Visibility of several sets of directions, by cell index, 0 for the cells that are not
    /// wanted. cells: for each set the wanted ones; they become those that are free.
    void skies(std::span<const SkyDirections> directions, std::span<SkyCellSet> cells,
               std::span<std::array<float, cellCount>* const> visibility) {
        if (m_query != nullptr) {
            skies(directions, cells);
            for (std::size_t i = 0; i < directions.size(); ++i) {
                hourlyKernels::spread(cells[i], visibility[i]->data());
            }
            return;
        }
        for (std::size_t i = 0; i < directions.size(); ++i) {
            visibility[i]->fill(0.0f);
            SkyCellSet free;
            forEach(cells[i], [&](std::size_t cell, int azimuth, int altitude) {
                const float value = one(directions[i].direction(azimuth, altitude));
                (*visibility[i])[cell] = value;
                if (value == 1.0f) {
                    free.insert(azimuth, altitude);
                }
            });
            cells[i] = free;
        }
    }

    /// Whether every visibility is 0 or 1.
    bool allOrNothing() const { return m_query != nullptr; }

private:
    template <typename Function>
    static void forEach(const SkyCellSet& set, Function&& function) {
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            const auto altitude = static_cast<int>(word / 2);
            for (std::uint64_t bits = set.words[word]; bits != 0; bits &= bits - 1) {
                const int azimuth = static_cast<int>(word % 2) * 64 + std::countr_zero(bits);
                function(static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude)), azimuth,
                         altitude);
            }
        }
    }

    GetTransparencyValueOnRay& m_caster;
    SkyVisibilityQuery* m_query;
    XYZf m_origin;
    const XYZf* m_normal = nullptr;
};

/// A piece of the lower hemisphere, for the ground's rays.
struct GroundPiece {
    XYZf direction; // unit
    XYZf moment;    // integral of the direction over the piece [sr]
    float solidAngle;
};

/// About the given number of pieces, of equal horizontal projection in each of their bands.
std::vector<GroundPiece> groundPieces(int rays, double northOffset) {
    std::vector<GroundPiece> pieces;
    if (rays <= 0) {
        return pieces;
    }
    const int bands =
        std::max(1, static_cast<int>(std::lround(std::sqrt(std::min(rays, 4096) / 3.0))));
    const int sectors = std::max(3, std::min(rays, 4096) / bands);
    for (int band = 0; band < bands; ++band) {
        const double h0 = std::asin(static_cast<double>(band) / bands);
        const double h1 = std::asin(static_cast<double>(band + 1) / bands);
        const double width = 2.0 * std::numbers::pi / sectors;
        const double level = 0.5 * (h1 - h0) + 0.25 * (std::sin(2.0 * h1) - std::sin(2.0 * h0));
        const double down =
            0.5 * (std::sin(h1) * std::sin(h1) - std::sin(h0) * std::sin(h0)) * width;
        for (int sector = 0; sector < sectors; ++sector) {
            const double a0 = sector * width + northOffset;
            const double a1 = a0 + width;
            GroundPiece piece;
            piece.moment = {static_cast<float>(level * (std::cos(a0) - std::cos(a1))),
                            static_cast<float>(level * (std::sin(a1) - std::sin(a0))),
                            static_cast<float>(-down)};
            piece.direction = scaled(piece.moment, 1.0f / length(piece.moment));
            piece.solidAngle = static_cast<float>((std::sin(h1) - std::sin(h0)) * width);
            pieces.push_back(piece);
        }
    }
    return pieces;
}

} // namespace

/// The ground's rays as cells of the lower hemisphere, band 0 at the nadir, so that they are asked
/// like a sky; as many sets as it takes to give each ray a cell of its own.
struct GroundRays {
    struct Cell {
        std::size_t set;
        int azimuth, altitude;
    };
    std::vector<SkyDirections> sets;
    std::vector<Cell> cells; // of the pieces

    explicit GroundRays(const std::vector<GroundPiece>& pieces) {
        constexpr double width = std::numbers::pi / 36.0;
        std::vector<SkyCellSet> taken;
        std::vector<std::vector<XYZf>> directions;
        for (const GroundPiece& piece : pieces) {
            const XYZf& d = piece.direction;
            const double turn = std::atan2(static_cast<double>(d.x), static_cast<double>(d.y));
            const double depth = std::acos(std::clamp(static_cast<double>(-d.z), 0.0, 1.0));
            const int sector = static_cast<int>(std::floor(turn / width));
            Cell cell;
            cell.azimuth = (sector + skyGrid::azimuthCount) % skyGrid::azimuthCount;
            cell.altitude = std::min(static_cast<int>(depth / width), skyGrid::altitudeCount - 1);
            cell.set = 0;
            while (cell.set < taken.size() &&
                   taken[cell.set].contains(cell.azimuth, cell.altitude)) {
                ++cell.set;
            }
            if (cell.set == taken.size()) {
                taken.emplace_back();
                directions.emplace_back(cellCount, XYZf{0, 0, 0});
            }
            taken[cell.set].insert(cell.azimuth, cell.altitude);
            directions[cell.set]
                      [static_cast<std::size_t>(skyGrid::cellIndex(cell.azimuth, cell.altitude))] =
                          d;
            cells.push_back(cell);
        }
        for (std::size_t i = 0; i < taken.size(); ++i) {
            sets.emplace_back(std::span<const XYZf, cellCount>(directions[i].data(), cellCount),
                              taken[i]);
        }
    }
};

/// What all sensors of an analysis share.
struct HourlyAnalysis::Prepared {
    HourlySky sky;
    HourlyAnalysisOptions options;
    SkyCells cells;
    std::array<SkyDirections, 2> directions; // the cells' middles, the sun in them
    std::vector<int> sunCellOfCell;          // -1 for cells without sun
    std::vector<std::size_t> patchOfCell;
    std::vector<GroundPiece> ground;
    GroundRays groundRays;
    std::array<float, patchCount> patchTotals{}; // the hours' radiance, summed

    /// Of the sun cells, padded with zeros to a multiple of lanes.
    std::vector<float> sunEnergyX, sunEnergyY, sunEnergyZ;
    std::vector<std::uint16_t> cellOfSun;
    std::vector<float> sunHours;
    /// The sun's directions by cell, 0 for cells without.
    std::array<float, cellCount> towardsSunX{}, towardsSunY{}, towardsSunZ{};
    PeakHours peakHours;

    Prepared(HourlySky&& theSky, const HourlyAnalysisOptions& theOptions)
        : sky(std::move(theSky)), options(theOptions), cells(sky.options.northOffset),
          sunCellOfCell(cellCount, -1), patchOfCell(cellCount),
          ground(groundPieces(options.groundRays, sky.options.northOffset)), groundRays(ground) {
        std::vector<XYZf> towardsSun(cellCount, XYZf{0, 0, 0});
        SkyCellSet held;
        for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
            const SunCell& sun = sky.sunCells[j];
            towardsSun[static_cast<std::size_t>(sun.cell)] = sun.direction;
            sunCellOfCell[static_cast<std::size_t>(sun.cell)] = static_cast<int>(j);
            const int azimuth = sun.cell % skyGrid::azimuthCount;
            const int altitude = sun.cell / skyGrid::azimuthCount;
            held.insert(azimuth, altitude);
            const auto cell = static_cast<std::size_t>(sun.cell);
            towardsSunX[cell] = sun.direction.x;
            towardsSunY[cell] = sun.direction.y;
            towardsSunZ[cell] = sun.direction.z;
            sunEnergyX.push_back(sun.energy.x);
            sunEnergyY.push_back(sun.energy.y);
            sunEnergyZ.push_back(sun.energy.z);
            cellOfSun.push_back(static_cast<std::uint16_t>(sun.cell));
            sunHours.push_back(sun.sunHours);
        }
        for (std::vector<float>* values : {&sunEnergyX, &sunEnergyY, &sunEnergyZ, &sunHours}) {
            values->resize((values->size() + lanes - 1) / lanes * lanes, 0.0f);
        }
        directions = {
            SkyDirections(std::span<const XYZf, cellCount>(cells.centre.data(), cellCount)),
            SkyDirections(std::span<const XYZf, cellCount>(towardsSun.data(), cellCount), held)};
        for (std::size_t i = 0; i < cellCount; ++i) {
            patchOfCell[i] = static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(i)));
        }
        std::array<double, patchCount> totals{};
        for (std::size_t i = 0; i < sky.patchRadiance.size(); ++i) {
            totals[i % patchCount] += static_cast<double>(sky.patchRadiance[i]);
        }
        for (std::size_t p = 0; p < patchCount; ++p) {
            patchTotals[p] = static_cast<float>(totals[p]);
        }
        if (options.peak && sky.valid) {
            peakHours = PeakHours(sky, cells);
        }
    }

    const float* patchesOf(std::size_t skyHour) const {
        return sky.patchRadiance.data() + skyHour * patchCount;
    }
};

/// The work of one sensor: first what it sees, then what comes through.
class HourlyAnalysis::Evaluation {
public:
    Evaluation(const Evaluation&) = delete;
    Evaluation& operator=(const Evaluation&) = delete;
    Evaluation(const Prepared& prepared, GetTransparencyValueOnRay& caster, const Sensor& sensor)
        : m(prepared), m_rays(caster, sensor.position) {
        const float size = length(sensor.normal);
        if (size > 1e-12f && std::isfinite(size)) {
            m_normal = scaled(sensor.normal, 1.0f / size);
            m_sides = caster.getSurfaceDoubleSided() ? Sides::Two : Sides::One;
            m_rays.receiveOn(&m_normal);
        } else {
            m_sides = Sides::NoSurface;
        }
    }

    SensorResult result(SensorHours* hours) {
        std::array<SkyCellSet, 2> cells{skyInFront(), sunInFront()};
        const std::array visibility{&m_visible, &m_sunInCell};
        m_rays.skies(m.directions, cells, visibility);
        sumSky(cells[0]);
        seeSun();
        seeGround();
        const float whole = m_sides == Sides::NoSurface ? 2.0f * pi : pi;
        SensorResult result;
        result.beam = m_beam;
        result.sky = m_sky;
        result.ground = static_cast<float>(m.sky.groundReflected) * m_groundView;
        result.total = result.beam + result.sky + result.ground;
        result.averageDaylight = over(result.total, m.sky.daylightHours);
        result.averagePeriod = over(result.total, m.sky.hours);
        result.skyViewFactor = m_view / whole;
        result.groundViewFactor = m_sides == Sides::NoSurface ? 0.5f * m_groundView : m_groundView;
        result.directSunHours = m_sunHours;
        if (m.options.peak || hours != nullptr) {
            gatherPatches();
        }
        if (m.options.peak) {
            findPeak(result);
        }
        if (hours != nullptr) {
            fill(*hours);
        }
        return result;
    }

private:
    static float over(float total, double hours) {
        return hours > 0.0 ? static_cast<float>(static_cast<double>(total) / hours) : 0.0f;
    }

    float weigh(const XYZf& vector, float measure) const {
        return weightOf(m_sides, m_normal, vector, measure);
    }

    /// Weighs the open sky's cells; gives those that the sensor faces.
    SkyCellSet skyInFront() {
        if (m_sides == Sides::One) {
            std::array<std::uint8_t, cellCount / 8> front;
            hourlyKernels::weighInFront(m_normal, m.cells.momentX.data(), m.cells.momentY.data(),
                                        m.cells.momentZ.data(), cellCount, m_weight.data(),
                                        front.data());
            return setOf(front);
        }
        for (std::size_t i = 0; i < cellCount; ++i) {
            m_weight[i] = weigh({m.cells.momentX[i], m.cells.momentY[i], m.cells.momentZ[i]},
                                m.cells.solidAngle[i]);
        }
        return SkyCellSet::all();
    }

    void sumSky(SkyCellSet free) {
        if (m.options.sunTolerance > 0.0) {
            quarterSkyEdges();
        }
        if (m.options.sunTolerance > 0.0 || !m_rays.allOrNothing()) {
            for (std::size_t i = 0; i < cellCount; ++i) {
                m_weight[i] *= m_visible[i];
            }
            free = SkyCellSet::all();
        }
        const hourlyKernels::ViewSums sums =
            hourlyKernels::keepVisible(free, m.sky.diffuse.data(), m_weight.data());
        m_view = sums.view;
        m_sky = sums.sky;
    }

    static SkyCellSet setOf(const std::array<std::uint8_t, cellCount / 8>& bits) {
        SkyCellSet set;
        for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
            const std::uint8_t* row = bits.data() + band * 9;
            for (unsigned byte = 0; byte < 8; ++byte) {
                set.words[2 * band] |= std::uint64_t{row[byte]} << (8 * byte);
            }
            set.words[2 * band + 1] = row[8];
        }
        return set;
    }

    /// Asks the cells that differ from a neighbour in the middle of each quarter instead.
    void quarterSkyEdges() {
        constexpr double width = std::numbers::pi / 36.0;
        const std::array<float, cellCount> middles = m_visible;
        const auto differs = [&](std::size_t cell, int azimuth, int altitude) {
            if (!skyGrid::isAltitude(altitude)) {
                return false;
            }
            const int sector = (azimuth + skyGrid::azimuthCount) % skyGrid::azimuthCount;
            const auto i = static_cast<std::size_t>(skyGrid::cellIndex(sector, altitude));
            return m_weight[i] > 0.0f && middles[i] != middles[cell];
        };
        for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
            for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
                const auto i = static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude));
                if (!(m_weight[i] > 0.0f) ||
                    !(differs(i, azimuth - 1, altitude) || differs(i, azimuth + 1, altitude) ||
                      differs(i, azimuth, altitude - 1) || differs(i, azimuth, altitude + 1))) {
                    continue;
                }
                float sum = 0.0f;
                for (int quarter = 0; quarter < 4; ++quarter) {
                    const double h = (altitude + (quarter < 2 ? 0.25 : 0.75)) * width;
                    const double a = (azimuth + (quarter % 2 == 0 ? 0.25 : 0.75)) * width +
                                     m.sky.options.northOffset;
                    sum += m_rays.one({static_cast<float>(std::cos(h) * std::sin(a)),
                                       static_cast<float>(std::cos(h) * std::cos(a)),
                                       static_cast<float>(std::sin(h))});
                }
                m_visible[i] = 0.25f * sum;
            }
        }
    }

    /// Weighs the unshaded sun; gives the cells in which the sensor faces it.
    SkyCellSet sunInFront() {
        const std::vector<SunCell>& sunCells = m.sky.sunCells;
        const std::size_t count = m.sunEnergyX.size();
        std::array<std::uint8_t, cellCount / 8> front;
        SkyCellSet wanted;
        if (m_sides == Sides::One) {
            hourlyKernels::weighInFront(m_normal, m.sunEnergyX.data(), m.sunEnergyY.data(),
                                        m.sunEnergyZ.data(), count, m_sunWeight.data(),
                                        front.data());
            std::array<float, cellCount> cosine;
            hourlyKernels::weighInFront(m_normal, m.towardsSunX.data(), m.towardsSunY.data(),
                                        m.towardsSunZ.data(), cellCount, cosine.data(),
                                        front.data());
            wanted = setOf(front);
        } else {
            wanted = m.directions[1].cells();
            for (std::size_t j = 0; j < sunCells.size(); ++j) {
                m_sunWeight[j] = weigh(sunCells[j].energy, sunCells[j].directNormal);
            }
        }
        return wanted;
    }

    void seeSun() {
        for (std::size_t j = 0; j < m.sky.sunCells.size(); ++j) {
            m_sunVisible[j] = m_sunInCell[m.cellOfSun[j]];
            m_sunHoursOf[j] = m.sunHours[j] * m_sunVisible[j];
        }
        for (std::size_t j = m.sky.sunCells.size(); j < m.sunEnergyX.size(); ++j) {
            m_sunWeight[j] = m_sunVisible[j] = m_sunHoursOf[j] = 0.0f;
        }
        sumBeam();
        if (m.options.sunTolerance > 0.0) {
            splitShadowEdges();
        }
    }

    void sumBeam() {
        static constexpr std::array<float, cellCount + lanes> ones = [] {
            std::array<float, cellCount + lanes> values{};
            values.fill(1.0f);
            return values;
        }();
        m_beam = sumOfProducts(m_sunWeight.data(), m_sunVisible.data(), m.sunEnergyX.size());
        m_sunHours = sumOfProducts(m_sunHoursOf.data(), ones.data(), m.sunEnergyX.size());
    }

    /// A cell being split: a square of visibilities, side 2^level, by azimuth and altitude.
    struct SplitCell {
        std::size_t sunCell = 0;
        std::vector<float> visible;
        std::vector<char> atEdge;
        float doubt = 0.0f; ///< energy of the squares that an edge crosses
    };

    void splitShadowEdges() {
        std::vector<SplitCell> cells;
        float doubt = 0.0f;
        for (std::size_t j = 0; j < m.sky.sunCells.size(); ++j) {
            if (m_sunWeight[j] > 0.0f && edgeNear(m.sky.sunCells[j].cell)) {
                cells.push_back({j, {m_sunVisible[j]}, {1}, m_sunWeight[j]});
                doubt += m_sunWeight[j];
            }
        }
        // A square that an edge crosses errs by a quarter of its energy in the mean; taken as if
        // all erred to the same side.
        for (int level = 1; level <= deepestLevel; ++level) {
            if (0.25f * doubt <= static_cast<float>(m.options.sunTolerance) * (m_beam + m_sky)) {
                break;
            }
            doubt = 0.0f;
            for (SplitCell& cell : cells) {
                if (cell.doubt > 0.0f) {
                    split(cell, level);
                    doubt += cell.doubt;
                }
            }
            sumBeam();
        }
    }

    /// Whether a neighbouring cell, as far as the surface faces it, is seen differently.
    bool differsFrom(float here, int azimuth, int altitude) const {
        if (!skyGrid::isAltitude(altitude)) {
            return false;
        }
        const int sector = (azimuth + skyGrid::azimuthCount) % skyGrid::azimuthCount;
        const auto i = static_cast<std::size_t>(skyGrid::cellIndex(sector, altitude));
        const XYZf moment{m.cells.momentX[i], m.cells.momentY[i], m.cells.momentZ[i]};
        const int sunCell = m.sunCellOfCell[i];
        return (weigh(moment, 1.0f) > 0.0f && (m_visible[i] > 0.5f) != (here > 0.5f)) ||
               (sunCell >= 0 && m_sunWeight[static_cast<std::size_t>(sunCell)] > 0.0f &&
                m_sunInCell[i] != here);
    }

    bool edgeNear(int cell) const {
        const int azimuth = cell % skyGrid::azimuthCount;
        const int altitude = cell / skyGrid::azimuthCount;
        for (int b = altitude - 1; b <= altitude + 1; ++b) {
            for (int a = azimuth - 1; a <= azimuth + 1; ++a) {
                if (differsFrom(m_sunInCell[static_cast<std::size_t>(cell)], a, b)) {
                    return true;
                }
            }
        }
        return false;
    }

    /// Brings a cell to the next level: the quarters of each square at an edge are asked for where
    /// the sun was in them, the others inherit; then the asked squares that differ from a neighbour
    /// are at an edge.
    void split(SplitCell& cell, int level) {
        const SunCell& sun = m.sky.sunCells[cell.sunCell];
        const std::size_t side = std::size_t{1} << level;
        std::vector<float> visible(side * side);
        std::vector<char> asked(side * side);
        std::vector<float> weight(side * side, 0.0f);
        for (std::size_t v = 0; v < side; ++v) {
            for (std::size_t u = 0; u < side; ++u) {
                const std::size_t parent = (v / 2) * (side / 2) + u / 2;
                visible[v * side + u] = cell.visible[parent];
                asked[v * side + u] = cell.atEdge[parent];
            }
        }
        float beam = 0.0f;
        float whole = 0.0f;
        float hours = 0.0f;
        const int shift = 2 * (6 - level);
        const SunStep* step = m.sky.sunSteps.data() + sun.firstStep;
        for (const SunStep* const end = step + sun.stepCount; step != end;) {
            const std::uint32_t square = step->place >> shift;
            XYZf energy{0, 0, 0};
            float sunHours = 0.0f;
            for (; step != end && step->place >> shift == square; ++step) {
                energy = added(energy, step->energy);
                sunHours += step->sunHours;
            }
            std::size_t u = 0;
            std::size_t v = 0;
            for (int bit = 0; bit < level; ++bit) {
                u |= std::size_t{square >> (2 * bit) & 1U} << bit;
                v |= std::size_t{square >> (2 * bit + 1) & 1U} << bit;
            }
            const std::size_t i = v * side + u;
            const float size = length(energy);
            weight[i] = weigh(energy, size);
            if (asked[i] != 0 && weight[i] > 0.0f) {
                visible[i] = m_rays.one(scaled(energy, 1.0f / size));
            }
            beam += weight[i] * visible[i];
            whole += weight[i];
            hours += sunHours * visible[i];
        }
        cell.atEdge.assign(side * side, 0);
        cell.doubt = 0.0f;
        for (std::size_t v = 0; v < side; ++v) {
            for (std::size_t u = 0; u < side; ++u) {
                if (asked[v * side + u] != 0 && squareAtEdge(visible, side, u, v, sun.cell)) {
                    cell.atEdge[v * side + u] = 1;
                    cell.doubt += weight[v * side + u];
                }
            }
        }
        cell.visible = std::move(visible);
        m_sunVisible[cell.sunCell] = whole > 0.0f ? beam / whole : 0.0f;
        m_sunHoursOf[cell.sunCell] = hours;
    }

    bool squareAtEdge(const std::vector<float>& visible, std::size_t side, std::size_t u,
                      std::size_t v, int cell) const {
        const float here = visible[v * side + u];
        for (std::size_t y = v > 0 ? v - 1 : 0; y <= std::min(v + 1, side - 1); ++y) {
            for (std::size_t x = u > 0 ? u - 1 : 0; x <= std::min(u + 1, side - 1); ++x) {
                if (visible[y * side + x] != here) {
                    return true;
                }
            }
        }
        const int azimuth = cell % skyGrid::azimuthCount;
        const int altitude = cell / skyGrid::azimuthCount;
        return (u == 0 && differsFrom(here, azimuth - 1, altitude)) ||
               (u == side - 1 && differsFrom(here, azimuth + 1, altitude)) ||
               (v == 0 && differsFrom(here, azimuth, altitude - 1)) ||
               (v == side - 1 && differsFrom(here, azimuth, altitude + 1));
    }

    void seeGround() {
        const float open = m_sides == Sides::One   ? 0.5f * (1.0f - m_normal.z)
                           : m_sides == Sides::Two ? 1.0f
                                                   : 2.0f;
        m_groundView = open;
        if (open < smallGroundView || m.ground.empty()) {
            return;
        }
        std::vector<SkyCellSet> free(m.groundRays.sets.size());
        std::vector<float> weights(m.ground.size());
        for (std::size_t i = 0; i < m.ground.size(); ++i) {
            weights[i] = weigh(m.ground[i].moment, m.ground[i].solidAngle);
            if (weights[i] > 0.0f) {
                const GroundRays::Cell& cell = m.groundRays.cells[i];
                free[cell.set].insert(cell.azimuth, cell.altitude);
            }
        }
        m_rays.skies(m.groundRays.sets, free);
        float seen = 0.0f;
        float all = 0.0f;
        for (std::size_t i = 0; i < m.ground.size(); ++i) {
            if (weights[i] > 0.0f) {
                const GroundRays::Cell& cell = m.groundRays.cells[i];
                all += weights[i];
                seen +=
                    weights[i] *
                    (m_rays.allOrNothing()
                         ? static_cast<float>(free[cell.set].contains(cell.azimuth, cell.altitude))
                         : m_rays.one(m.ground[i].direction));
            }
        }
        m_groundView = all > 0.0f ? open * seen / all : open;
    }

    /// The visible weights on the patches, scaled so that the hours' diffuse adds up to the one
    /// from the cells.
    void gatherPatches() {
        float* patch = m_patchWeight.data();
        for (std::size_t row = 0; row < skyGrid::altitudeCount / 2; ++row) {
            const float* lower = m_weight.data() + 2 * row * skyGrid::azimuthCount;
            const float* upper = lower + skyGrid::azimuthCount;
            const std::size_t width = skyPatches::sectorsWide(row);
            for (std::size_t first = 0; first < skyGrid::azimuthCount; first += width) {
                float sum = 0.0f;
                for (std::size_t sector = first; sector < first + width; ++sector) {
                    sum += lower[sector] + upper[sector];
                }
                *patch++ = sum;
            }
        }
        const float sum = sumOfProducts(m_patchWeight.data(), m.patchTotals.data(), patchCount);
        m_patchScale = sum > 0.0f ? m_sky / sum : 0.0f;
        for (float& weight : m_patchWeight) {
            weight *= m_patchScale;
        }
    }

    float beamOf(const SkyHour& hour) const {
        float beam = 0.0f;
        for (int b = 0; b < hour.beamCount; ++b) {
            const BeamPart& part = m.sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
            beam += m_sunVisible[static_cast<std::size_t>(part.sunCell)] *
                    weigh(part.energy, length(part.energy));
        }
        return beam;
    }

    float skyOf(std::size_t skyHour) const {
        return sumOfProducts(m_patchWeight.data(), m.patchesOf(skyHour), patchCount);
    }

    void findPeak(SensorResult& result) {
        if (m_sides == Sides::One) {
            findPeakOfOneSide(result);
            return;
        }
        for (std::size_t h = 0; h < m.sky.skyHours.size(); ++h) {
            const SkyHour& hour = m.sky.skyHours[h];
            const float value =
                (beamOf(hour) + skyOf(h) + m_groundView * hour.groundReflected) / hour.share;
            if (value > result.peak) {
                result.peak = value;
                result.peakHour = hour.hour;
            }
        }
    }

    void findPeakOfOneSide(SensorResult& result) {
        std::array<float, skyZones::termCount> zoneWeight;
        skyZones::measure(m_patchWeight.data(), false, zoneWeight.data());
        hourlyKernels::PeakSensor sensor;
        sensor.normal = m_normal;
        sensor.patchWeight = m_patchWeight.data();
        sensor.zoneWeight = zoneWeight.data();
        sensor.sunVisible = m_sunVisible.data();
        sensor.openScale = m_patchScale;
        sensor.view = m_view * m_patchScale;
        sensor.groundView = m_groundView;
        const hourlyKernels::Peak peak = hourlyKernels::highestHour(m.peakHours, sensor);
        if (peak.hour >= 0) {
            result.peak = peak.value;
            const int skyHour = m.peakHours.hours[static_cast<std::size_t>(peak.hour)].skyHour;
            result.peakHour = m.sky.skyHours[static_cast<std::size_t>(skyHour)].hour;
        }
    }

    void fill(SensorHours& hours) const {
        for (std::vector<float>* series : {&hours.beam, &hours.sky, &hours.ground}) {
            series->assign(hoursPerYear, 0.0f);
        }
        for (std::size_t h = 0; h < m.sky.skyHours.size(); ++h) {
            const SkyHour& hour = m.sky.skyHours[h];
            const auto k = static_cast<std::size_t>(hour.hour);
            hours.beam[k] = beamOf(hour);
            hours.sky[k] = skyOf(h);
            hours.ground[k] = hour.groundReflected * m_groundView;
        }
    }

    const Prepared& m;
    Rays m_rays;
    Sides m_sides = Sides::One;
    XYZf m_normal{0, 0, 0};
    std::array<float, cellCount> m_weight;    // projected solid angle that is visible [sr]
    std::array<float, cellCount> m_visible;   // of the cells
    std::array<float, cellCount> m_sunInCell; // of the sun, by cell
    std::array<float, patchCount> m_patchWeight{};
    // Of the sun cells: energy on the surface [Wh/m2], its visible part, hours of direct sun.
    std::array<float, cellCount + lanes> m_sunWeight;
    std::array<float, cellCount + lanes> m_sunVisible;
    std::array<float, cellCount + lanes> m_sunHoursOf;
    float m_view = 0.0f;
    float m_sky = 0.0f;
    float m_beam = 0.0f;
    float m_sunHours = 0.0f;
    float m_groundView = 0.0f; // what the ground's light counts by: 2 for an open point
    float m_patchScale = 0.0f;
};

HourlyAnalysis::HourlyAnalysis(HourlySky sky, const HourlyAnalysisOptions& options)
    : m_prepared(std::make_unique<Prepared>(std::move(sky), options)) {}
HourlyAnalysis::HourlyAnalysis(HourlyAnalysis&&) noexcept = default;
HourlyAnalysis& HourlyAnalysis::operator=(HourlyAnalysis&&) noexcept = default;
HourlyAnalysis::~HourlyAnalysis() = default;

const HourlySky& HourlyAnalysis::sky() const {
    return m_prepared->sky;
}

SensorResult HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const Sensor& sensor,
                                      SensorHours* hours) const {
    if (!m_prepared->sky.valid) {
        if (hours != nullptr) {
            hours->beam.assign(hoursPerYear, 0.0f);
            hours->sky.assign(hoursPerYear, 0.0f);
            hours->ground.assign(hoursPerYear, 0.0f);
        }
        return {};
    }
    return Evaluation(*m_prepared, rays, sensor).result(hours);
}

SensorResult HourlyAnalysis::evaluate(const OcclusionIndex& scene, const Sensor& sensor,
                                      SensorHours* hours) const {
    FastRayTransparency rays(scene);
    return evaluate(rays, sensor, hours);
}

void HourlyAnalysis::evaluate(const OcclusionIndex& scene, std::span<const Sensor> sensors,
                              std::span<SensorResult> results) const {
    FastRayTransparency rays(scene);
    for (std::size_t i = 0; i < std::min(sensors.size(), results.size()); ++i) {
        results[i] = evaluate(rays, sensors[i]);
    }
}

} // namespace insolate
