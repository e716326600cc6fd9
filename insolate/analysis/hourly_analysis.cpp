#include <insolate/analysis/hourly_analysis.h>

#include <insolate/analysis/hourly_kernels.h>
#include <insolate/analysis/peak_hours.h>
#include <insolate/analysis/sensor_rays.h>
#include <insolate/analysis/shadow_edges.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>
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

/// A part of the radiation counts for its tolerance as at least this share of the sensor's own
/// total and of that of open ground.
constexpr float smallPart = 0.1f;

/// Below this tolerance cells at edges are split further than twice.
constexpr double fineTolerance = 0.01;

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
    std::array<SkyDirections, 2> directions; // of the cells' first rays, of the sun in them
    std::vector<std::size_t> patchOfCell;
    std::vector<GroundPiece> ground;
    GroundRays groundRays;
    std::optional<EdgeTables> edges;             // where a tolerance is given
    int edgeLevel = 2;                           // of the finest squares
    float openTotal = 0.0f;                      // of open ground [Wh/m2]
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
          patchOfCell(cellCount), ground(groundPieces(options.groundRays, sky.options.northOffset)),
          groundRays(ground) {
        std::vector<XYZf> towardsSun(cellCount, XYZf{0, 0, 0});
        SkyCellSet held;
        for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
            const SunCell& sun = sky.sunCells[j];
            towardsSun[static_cast<std::size_t>(sun.cell)] = sun.direction;
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
            EdgeTables::firstDirections(sky.options.northOffset),
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
        if (sky.valid && (options.skyTolerance > 0.0 || options.sunTolerance > 0.0)) {
            const auto fine = [](double tolerance) {
                return tolerance > 0.0 && tolerance < fineTolerance;
            };
            if (fine(options.skyTolerance) || fine(options.sunTolerance)) {
                edgeLevel = EdgeTables::deepest + 1;
            }
            edges.emplace(sky, edgeLevel);
        }
        openTotal = static_cast<float>(sky.report.diffuseHorizontal + sky.report.directHorizontal);
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
        const std::array<SkyCellSet, 2> front = cells;
        m_rays.skies(m.directions, cells, visibility);
        seeSun();
        if (m.edges) {
            ShadowEdges edges(*m.edges, m.sky, m_sides, m_normal);
            edges.find({front, cells, m_visible.data(), m_weight.data(), m_sunVisible.data(),
                        m_sunWeight.data()});
            for (const ShadowEdges::Mixed& cell : edges.mixed()) {
                m_sunVisible[static_cast<std::size_t>(cell.sunCell)] = cell.visible;
            }
            sumSky(cells[0]);
            sumBeam();
            lookAgain(edges);
        } else {
            sumSky(cells[0]);
            sumBeam();
        }
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
        if (!m_rays.allOrNothing()) {
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
        }
        for (std::size_t j = m.sky.sunCells.size(); j < m.sunEnergyX.size(); ++j) {
            m_sunWeight[j] = m_sunVisible[j] = 0.0f;
        }
    }

    void sumBeam() {
        m_beam = sumOfProducts(m_sunWeight.data(), m_sunVisible.data(), m.sunEnergyX.size());
        m_sunHours = sumOfProducts(m.sunHours.data(), m_sunVisible.data(), m.sunEnergyX.size());
    }

    /// Puts right what the edges of shadows leave too uncertain.
    void lookAgain(ShadowEdges& edges) {
        const float least = smallPart * std::max(m_sky + m_beam, m.openTotal);
        const EdgeTolerance tolerance{
            static_cast<float>(m.options.skyTolerance) * std::max(m_sky, least),
            static_cast<float>(m.options.sunTolerance) * std::max(m_beam, least), m.edgeLevel};
        for (const ShadowEdges::Cell& cell : edges.refine(m_rays, tolerance)) {
            const auto i = static_cast<std::size_t>(cell.cell);
            const float seen = std::max(cell.seen, 0.0f);
            const float gained = seen - m_weight[i];
            m_weight[i] = seen;
            m_view += gained;
            m_sky += gained * m.sky.diffuse[i];
            if (cell.sunCell >= 0) {
                const auto j = static_cast<std::size_t>(cell.sunCell);
                m_beam += cell.beamSeen - m_sunWeight[j] * m_sunVisible[j];
                m_sunHours += cell.directHours - m.sunHours[j] * m_sunVisible[j];
                m_sunWeight[j] = cell.beam;
                // Where squares were taken out again, sums of nothing are not quite 0.
                m_sunVisible[j] =
                    cell.beam > 0.0f ? std::clamp(cell.beamSeen / cell.beam, 0.0f, 1.0f) : 0.0f;
            }
        }
        m_view = std::max(m_view, 0.0f);
        m_sky = std::max(m_sky, 0.0f);
        m_beam = std::max(m_beam, 0.0f);
        m_sunHours = std::max(m_sunHours, 0.0f);
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
    // Of the sun cells: energy on the surface [Wh/m2], its visible part.
    std::array<float, cellCount + lanes> m_sunWeight;
    std::array<float, cellCount + lanes> m_sunVisible;
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
