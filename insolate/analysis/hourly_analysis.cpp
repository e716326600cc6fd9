#include <insolate/analysis/hourly_analysis.h>

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
constexpr std::size_t lanes = 16;
constexpr std::size_t zoneCount = 16;

/// Within an hour the sun moves by 15 degrees, half of it away from the hour's mean.
constexpr float sunSwing = 0.15f;

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

/// A sum of products in a fixed order that vectorises; count is a multiple of lanes.
float sumOfProducts(const float* a, const float* b, std::size_t count) {
    std::array<float, lanes> sums{};
    for (std::size_t i = 0; i < count; i += lanes) {
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            sums[lane] += a[i + lane] * b[i + lane];
        }
    }
    for (std::size_t half = lanes / 2; half > 0; half /= 2) {
        for (std::size_t lane = 0; lane < half; ++lane) {
            sums[lane] += sums[lane + half];
        }
    }
    return sums[0];
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

    /// Visibility of the wanted cells' directions, by cell index; 0 for the others.
    void sky(const SkyDirections& directions, const SkyCellSet& wanted,
             std::array<float, cellCount>& visibility) {
        visibility.fill(0.0f);
        if (m_query != nullptr) {
            forEach(m_query->visibleSky(m_origin, directions, wanted),
                    [&](std::size_t cell, int, int) { visibility[cell] = 1.0f; });
            return;
        }
        forEach(wanted, [&](std::size_t cell, int azimuth, int altitude) {
            visibility[cell] = one(directions.direction(azimuth, altitude));
        });
    }

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

/// A set of sun cells by their index.
class SunCellSet {
public:
    void insert(std::size_t sunCell) {
        m_words[sunCell / 64] |= std::uint64_t{1} << (sunCell % 64);
    }
    bool meets(const SunCellSet& other, std::size_t sunCells) const {
        std::uint64_t common = 0;
        for (std::size_t i = 0; i <= sunCells / 64; ++i) {
            common |= m_words[i] & other.m_words[i];
        }
        return common != 0;
    }

private:
    std::array<std::uint64_t, cellCount / 64 + 1> m_words{};
};

/// Where the ray of each cell goes: at well-spread places of the cells instead of their middles.
///
/// A roof line that runs along a row of cells would pass all their middles on the same side and be
/// half a cell off as a whole; places that follow the golden section along a row (in altitude) and
/// along a column (in azimuth) find its share of the row.
std::vector<XYZf> sampleDirections(double northOffset) {
    constexpr double width = std::numbers::pi / 36.0;
    const auto fraction = [](double value) { return value - std::floor(value); };
    std::vector<XYZf> directions(cellCount);
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        const double low = std::sin(band * width);
        const double high = std::sin((band + 1) * width);
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            const double u = fraction(0.5 + 0.6180339887 * band + 0.5698402910 * sector);
            const double v = fraction(0.5 + 0.6180339887 * sector + 0.7548776662 * band);
            const double azimuth = (sector + u) * width + northOffset;
            const double sine = low + v * (high - low);
            const double cosine = std::sqrt(1.0 - sine * sine);
            directions[static_cast<std::size_t>(skyGrid::cellIndex(sector, band))] = {
                static_cast<float>(cosine * std::sin(azimuth)),
                static_cast<float>(cosine * std::cos(azimuth)), static_cast<float>(sine)};
        }
    }
    return directions;
}

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

/// What all sensors of an analysis share.
///
/// The peak does not walk the hours over the cells. Each hour has an upper bound of what it can
/// give to a surface of a given normal: its direct vector times the normal; for the diffuse sky a
/// constant plus a vector times the normal, fitted above the open sky's true values over all
/// normals, or the brightest patch times the sensor's view, whichever is less; and the ground's
/// light. Hours with a similar sun stand in blocks of 16 that have a common bound. A good hour for
/// a start is the strongest one of the sun cell that promises most. Only blocks whose bound exceeds
/// the best hour so far are opened, and of them only hours whose bound does are computed: with the
/// visibility of their one to three sun cells, then with the brightest patches of 16 zones, then
/// with one product over the 240 patches.
struct HourlyAnalysis::Prepared {
    HourlySky sky;
    HourlyAnalysisOptions options;
    SkyCells cells;
    SkyDirections cellDirections;
    SkyDirections sunDirections;
    std::vector<int> sunCellOfCell; // -1 for cells without sun
    std::vector<std::size_t> patchOfCell;
    std::vector<GroundPiece> ground;
    std::array<float, patchCount> patchTotals{}; // the hours' radiance, summed

    /// Upper bounds as means over the hour [W/m2], of hours or of blocks of `lanes` hours.
    struct Bounds {
        std::vector<float> beamX, beamY, beamZ;
        std::vector<float> beamRadius; // of the block's vectors around their mean, 0 for an hour
        std::vector<float> beamSlack;  // most of a beam that the surface's plane cuts
        std::vector<float> open, openX, openY, openZ;
        std::vector<float> brightest; // radiance [W/(m2 sr)]
        std::vector<float> ground;

        void add(const XYZf& beam, float radius, float slack, float constant,
                 const XYZf& openVector, float brightestPatch, float groundLight) {
            beamX.push_back(beam.x);
            beamY.push_back(beam.y);
            beamZ.push_back(beam.z);
            beamRadius.push_back(radius);
            beamSlack.push_back(slack);
            open.push_back(constant);
            openX.push_back(openVector.x);
            openY.push_back(openVector.y);
            openZ.push_back(openVector.z);
            brightest.push_back(brightestPatch);
            ground.push_back(groundLight);
        }
    };
    Bounds hourBounds;
    Bounds blockBounds;
    std::vector<SunCellSet> blockSun; // where the sun stands in the hours of a block
    std::vector<BeamPart>
        boundedBeams; // as sky.beams, in the order of boundedHour, as means [W/m2]
    std::vector<std::size_t> firstBeam{0}; // into boundedBeams, one more than boundedHour
    std::vector<int> boundedHour;          // index into sky.skyHours, -1 where a block is not full
    std::vector<float> blockZoneBrightest; // zoneCount for each block
    std::vector<float> zoneBrightest;      // zoneCount for each of boundedHour [W/(m2 sr)]
    std::vector<std::size_t> strongest;    // for each sun cell: its strongest hour in boundedHour
    std::vector<float> strongestBeam;      // and that hour's direct radiation [W/m2]

    Prepared(HourlySky&& theSky, const HourlyAnalysisOptions& theOptions)
        : sky(std::move(theSky)), options(theOptions), cells(sky.options.northOffset),
          sunCellOfCell(cellCount, -1), patchOfCell(cellCount),
          ground(groundPieces(options.groundRays, sky.options.northOffset)) {
        std::vector<XYZf> directions = sampleDirections(sky.options.northOffset);
        cellDirections =
            SkyDirections(std::span<const XYZf, cellCount>(directions.data(), cellCount));
        directions.assign(cellCount, XYZf{0, 0, 0});
        SkyCellSet held;
        for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
            const SunCell& sun = sky.sunCells[j];
            directions[static_cast<std::size_t>(sun.cell)] = sun.direction;
            sunCellOfCell[static_cast<std::size_t>(sun.cell)] = static_cast<int>(j);
            held.insert(sun.cell % skyGrid::azimuthCount, sun.cell / skyGrid::azimuthCount);
        }
        sunDirections =
            SkyDirections(std::span<const XYZf, cellCount>(directions.data(), cellCount), held);
        for (std::size_t i = 0; i < cellCount; ++i) {
            patchOfCell[i] = static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(i)));
            // Eight sectors below and above 40 degrees.
            zoneOfPatch[patchOfCell[i]] =
                i % skyGrid::azimuthCount / 9 + (i < 8 * skyGrid::azimuthCount ? 0 : 8);
        }
        std::array<double, patchCount> totals{};
        for (std::size_t i = 0; i < sky.patchRadiance.size(); ++i) {
            totals[i % patchCount] += static_cast<double>(sky.patchRadiance[i]);
        }
        for (std::size_t p = 0; p < patchCount; ++p) {
            patchTotals[p] = static_cast<float>(totals[p]);
        }
        if (options.peak && sky.valid) {
            prepareBounds();
        }
    }

    std::array<std::size_t, patchCount> zoneOfPatch{};

    const float* patchesOf(std::size_t skyHour) const {
        return sky.patchRadiance.data() + skyHour * patchCount;
    }

    void prepareBounds() {
        // Normals spread evenly over the sphere by the golden angle, with what their open sky
        // weighs.
        constexpr int normalCount = 96;
        std::vector<XYZf> normals;
        std::vector<std::array<float, patchCount>> weights(normalCount);
        for (int i = 0; i < normalCount; ++i) {
            const double z = 1.0 - (2.0 * i + 1.0) / normalCount;
            const double turn = i * std::numbers::pi * (3.0 - std::sqrt(5.0));
            const double r = std::sqrt(1.0 - z * z);
            normals.push_back({static_cast<float>(r * std::cos(turn)),
                               static_cast<float>(r * std::sin(turn)), static_cast<float>(z)});
            std::array<float, patchCount>& weight = weights[static_cast<std::size_t>(i)];
            weight.fill(0.0f);
            for (std::size_t c = 0; c < cellCount; ++c) {
                weight[patchOfCell[c]] += std::max(
                    dot(normals.back(), {cells.momentX[c], cells.momentY[c], cells.momentZ[c]}),
                    0.0f);
            }
        }
        std::vector<HourBound> list(sky.skyHours.size());
        for (std::size_t h = 0; h < list.size(); ++h) {
            const SkyHour& hour = sky.skyHours[h];
            HourBound& bound = list[h];
            bound.hour = static_cast<int>(h);
            const float perHour = 1.0f / hour.share;
            for (int b = 0; b < hour.beamCount; ++b) {
                bound.beam = added(bound.beam,
                                   sky.beams[static_cast<std::size_t>(hour.firstBeam + b)].energy);
            }
            bound.beam = scaled(bound.beam, perHour);
            bound.beamLength = length(bound.beam);
            const float* patches = patchesOf(h);
            std::array<float, normalCount> values{};
            for (std::size_t i = 0; i < normalCount; ++i) {
                values[i] = sumOfProducts(patches, weights[i].data(), patchCount) * perHour;
                bound.openVector =
                    added(bound.openVector, scaled(normals[i], 3.0f / normalCount * values[i]));
            }
            for (std::size_t i = 0; i < normalCount; ++i) {
                bound.open = std::max(bound.open, values[i] - dot(normals[i], bound.openVector));
            }
            bound.open *= 1.05f; // for the normals in between
            bound.brightest = *std::max_element(patches, patches + patchCount) * perHour;
            bound.ground = hour.groundReflected * perHour;
            bound.group = mainSunCell(hour);
        }
        std::stable_sort(list.begin(), list.end(), [](const HourBound& a, const HourBound& b) {
            return a.group != b.group ? a.group < b.group : a.beamLength > b.beamLength;
        });
        strongest.assign(sky.sunCells.size(), 0);
        strongestBeam.assign(sky.sunCells.size(), 0.0f);
        std::vector<std::span<const HourBound>> blocks;
        for (std::size_t i = 0; i < list.size();) {
            std::size_t end = i + 1;
            while (end < list.size() && end - i < lanes && list[end].group == list[i].group) {
                ++end;
            }
            blocks.emplace_back(list.data() + i, end - i);
            i = end;
        }
        // Strong ones first: the best hour is soon a good one.
        const auto strength = [](const HourBound& hour) {
            return hour.beamLength + hour.open + length(hour.openVector);
        };
        std::stable_sort(blocks.begin(), blocks.end(), [&](const auto& a, const auto& b) {
            return strength(a.front()) > strength(b.front());
        });
        for (const std::span<const HourBound>& block : blocks) {
            addBlock(block);
        }
        while (blockBounds.open.size() % lanes != 0) {
            blockBounds.add({0, 0, 0}, 0, 0, -1e30f, {0, 0, 0}, 0, 0);
            blockSun.push_back({});
        }
    }

    struct HourBound {
        int hour = 0;
        int group = 0;
        XYZf beam{0, 0, 0}, openVector{0, 0, 0};
        float beamLength = 0, open = 0, brightest = 0, ground = 0;
    };

    /// The sun cell that gives most of an hour's direct radiation, -1 without any.
    int mainSunCell(const SkyHour& hour) const {
        int cell = -1;
        float most = 0.0f;
        for (int b = 0; b < hour.beamCount; ++b) {
            const BeamPart& part = sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
            if (length(part.energy) > most) {
                most = length(part.energy);
                cell = part.sunCell;
            }
        }
        return cell;
    }

    void addBlock(std::span<const HourBound> hours) {
        XYZf beam{0, 0, 0};
        XYZf openVector{0, 0, 0};
        for (const HourBound& hour : hours) {
            beam = added(beam, scaled(hour.beam, 1.0f / static_cast<float>(hours.size())));
            openVector =
                added(openVector, scaled(hour.openVector, 1.0f / static_cast<float>(hours.size())));
        }
        float beamRadius = 0.0f;
        float openRadius = 0.0f;
        float slack = 0.0f;
        HourBound most;
        SunCellSet sun;
        for (const HourBound& hour : hours) {
            const SkyHour& skyHour = sky.skyHours[static_cast<std::size_t>(hour.hour)];
            for (int b = 0; b < skyHour.beamCount; ++b) {
                sun.insert(static_cast<std::size_t>(
                    sky.beams[static_cast<std::size_t>(skyHour.firstBeam + b)].sunCell));
            }
            beamRadius = std::max(beamRadius, length(added(hour.beam, scaled(beam, -1.0f))));
            openRadius =
                std::max(openRadius, length(added(hour.openVector, scaled(openVector, -1.0f))));
            slack = std::max(slack, sunSwing * hour.beamLength);
            most.open = std::max(most.open, hour.open);
            most.brightest = std::max(most.brightest, hour.brightest);
            most.ground = std::max(most.ground, hour.ground);
            addHour(hour);
        }
        blockBounds.add(beam, beamRadius, slack, most.open + openRadius, openVector, most.brightest,
                        most.ground);
        blockSun.push_back(sun);
        const std::size_t firstBlockZone = blockZoneBrightest.size();
        blockZoneBrightest.resize(firstBlockZone + zoneCount, 0.0f);
        for (std::size_t i = boundedHour.size() - hours.size(); i < boundedHour.size(); ++i) {
            for (std::size_t zone = 0; zone < zoneCount; ++zone) {
                float& brightest = blockZoneBrightest[firstBlockZone + zone];
                brightest = std::max(brightest, zoneBrightest[i * zoneCount + zone]);
            }
        }
        while (boundedHour.size() % lanes != 0) {
            boundedHour.push_back(-1);
            firstBeam.push_back(boundedBeams.size());
            zoneBrightest.resize(zoneBrightest.size() + zoneCount, 0.0f);
            hourBounds.add({0, 0, 0}, 0, 0, -1e30f, {0, 0, 0}, 0, 0);
        }
    }

    void addHour(const HourBound& hour) {
        const SkyHour& skyHour = sky.skyHours[static_cast<std::size_t>(hour.hour)];
        for (int b = 0; b < skyHour.beamCount; ++b) {
            const BeamPart& part = sky.beams[static_cast<std::size_t>(skyHour.firstBeam + b)];
            const auto cell = static_cast<std::size_t>(part.sunCell);
            if (length(part.energy) > strongestBeam[cell]) {
                strongestBeam[cell] = length(part.energy);
                strongest[cell] = boundedHour.size();
            }
            boundedBeams.push_back({part.sunCell, scaled(part.energy, 1.0f / skyHour.share)});
        }
        const std::size_t firstZone = zoneBrightest.size();
        zoneBrightest.resize(firstZone + zoneCount, 0.0f);
        const float* patches = patchesOf(static_cast<std::size_t>(hour.hour));
        for (std::size_t p = 0; p < patchCount; ++p) {
            float& zone = zoneBrightest[firstZone + zoneOfPatch[p]];
            zone = std::max(zone, patches[p] / skyHour.share);
        }
        boundedHour.push_back(hour.hour);
        firstBeam.push_back(boundedBeams.size());
        hourBounds.add(hour.beam, 0.0f, sunSwing * hour.beamLength, hour.open, hour.openVector,
                       hour.brightest, hour.ground);
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
        seeSky();
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
        result.groundViewFactor = m_groundView;
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

    void seeSky() {
        const float* x = m.cells.momentX.data();
        const float* y = m.cells.momentY.data();
        const float* z = m.cells.momentZ.data();
        for (std::size_t i = 0; i < cellCount; ++i) {
            m_weight[i] = m_normal.x * x[i] + m_normal.y * y[i] + m_normal.z * z[i];
        }
        for (std::size_t i = 0; i < cellCount; ++i) {
            m_weight[i] = m_sides == Sides::One   ? std::max(m_weight[i], 0.0f)
                          : m_sides == Sides::Two ? std::abs(m_weight[i])
                                                  : m.cells.solidAngle[i];
        }
        SkyCellSet wanted;
        for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
            const float* row = m_weight.data() + band * skyGrid::azimuthCount;
            wanted.words[2 * band] = positiveBits(row, 64);
            wanted.words[2 * band + 1] = positiveBits(row + 64, 8);
        }
        m_rays.sky(m.cellDirections, wanted, m_visible);
        std::array<float, lanes> view{};
        for (std::size_t i = 0; i < cellCount; i += lanes) {
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                m_weight[i + lane] *= m_visible[i + lane];
                view[lane] += m_weight[i + lane];
            }
        }
        for (const float part : view) {
            m_view += part;
        }
        m_sky = sumOfProducts(m_weight.data(), m.sky.diffuse.data(), cellCount);
    }

    static std::uint64_t positiveBits(const float* values, std::size_t count) {
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < count; ++i) {
            bits |= std::uint64_t{values[i] > 0.0f ? 1U : 0U} << i;
        }
        return bits;
    }

    void seeSun() {
        const std::vector<SunCell>& sunCells = m.sky.sunCells;
        m_sunWeight.resize(sunCells.size());
        m_sunVisible.resize(sunCells.size());
        m_sunHoursOf.resize(sunCells.size());
        SkyCellSet wanted;
        for (std::size_t j = 0; j < sunCells.size(); ++j) {
            const SunCell& sun = sunCells[j];
            m_sunWeight[j] = weigh(sun.energy, sun.directNormal);
            if (weigh(sun.direction, 1.0f) > 0.0f) {
                wanted.insert(sun.cell % skyGrid::azimuthCount, sun.cell / skyGrid::azimuthCount);
            }
        }
        m_rays.sky(m.sunDirections, wanted, m_sunInCell);
        for (std::size_t j = 0; j < sunCells.size(); ++j) {
            m_sunVisible[j] = m_sunInCell[static_cast<std::size_t>(sunCells[j].cell)];
            m_sunHoursOf[j] = sunCells[j].sunHours * m_sunVisible[j];
        }
        sumBeam();
        if (m.options.sunTolerance > 0.0) {
            splitShadowEdges();
        }
    }

    void sumBeam() {
        m_beam = 0.0f;
        m_sunHours = 0.0f;
        for (std::size_t j = 0; j < m_sunWeight.size(); ++j) {
            m_beam += m_sunWeight[j] * m_sunVisible[j];
            m_sunHours += m_sunHoursOf[j];
        }
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
        return (weigh(moment, 1.0f) > 0.0f && m_visible[i] != here) ||
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
        float seen = 0.0f;
        float all = 0.0f;
        for (const GroundPiece& piece : m.ground) {
            const float weight = weigh(piece.moment, piece.solidAngle);
            if (weight > 0.0f) {
                all += weight;
                seen += weight * m_rays.one(piece.direction);
            }
        }
        m_groundView = all > 0.0f ? open * seen / all : open;
    }

    /// The visible weights on the patches, scaled so that the hours' diffuse adds up to the one
    /// from the cells.
    void gatherPatches() {
        for (std::size_t i = 0; i < cellCount; ++i) {
            m_patchWeight[m.patchOfCell[i]] += m_weight[i];
        }
        const float sum = sumOfProducts(m_patchWeight.data(), m.patchTotals.data(), patchCount);
        m_patchScale = sum > 0.0f ? m_sky / sum : 0.0f;
        for (float& weight : m_patchWeight) {
            weight *= m_patchScale;
        }
    }

    float beamOf(std::span<const BeamPart> parts) const {
        float beam = 0.0f;
        for (const BeamPart& part : parts) {
            const float visible = m_sunVisible[static_cast<std::size_t>(part.sunCell)];
            if (visible > 0.0f) {
                beam +=
                    visible * (m_sides == Sides::One ? std::max(dot(m_normal, part.energy), 0.0f)
                                                     : weigh(part.energy, length(part.energy)));
            }
        }
        return beam;
    }

    float skyOf(std::size_t skyHour) const {
        return sumOfProducts(m_patchWeight.data(), m.patchesOf(skyHour), patchCount);
    }

    using Lanes = std::array<float, lanes>;

    /// Bounds of one-sided surfaces, of the sky and in all.
    void boundsOf(const Prepared::Bounds& bounds, std::size_t first, float view, Lanes& sky,
                  Lanes& all) const {
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const std::size_t i = first + lane;
            const float beam = m_normal.x * bounds.beamX[i] + m_normal.y * bounds.beamY[i] +
                               m_normal.z * bounds.beamZ[i] + bounds.beamRadius[i];
            const float slack = bounds.beamSlack[i];
            const float open = bounds.open[i] + m_normal.x * bounds.openX[i] +
                               m_normal.y * bounds.openY[i] + m_normal.z * bounds.openZ[i];
            sky[lane] = std::min(open * m_patchScale, bounds.brightest[i] * view);
            all[lane] = (beam > slack    ? beam
                         : beam > -slack ? slack
                                         : 0.0f) +
                        sky[lane] + m_groundView * bounds.ground[i];
        }
    }

    float zoneSky(const std::vector<float>& brightest, std::size_t i) const {
        return sumOfProducts(m_zoneWeight.data(), brightest.data() + i * zoneCount, zoneCount);
    }

    void findPeak(SensorResult& result) {
        const float view = m_view * m_patchScale;
        for (std::size_t p = 0; p < patchCount; ++p) {
            m_zoneWeight[m.zoneOfPatch[p]] += m_patchWeight[p];
        }
        if (m_sides != Sides::One) {
            for (std::size_t i = 0; i < m.boundedHour.size(); ++i) {
                if (m.boundedHour[i] >= 0) {
                    consider(i, m.hourBounds.brightest[i] * view, result);
                }
            }
            return;
        }
        std::size_t promising = 0;
        float promise = 0.0f;
        SunCellSet visibleSun;
        for (std::size_t j = 0; j < m_sunVisible.size(); ++j) {
            const float value =
                dot(m_normal, m.sky.sunCells[j].direction) * m.strongestBeam[j] * m_sunVisible[j];
            if (m_sunVisible[j] > 0.0f) {
                visibleSun.insert(j);
            }
            if (value > promise) {
                promise = value;
                promising = j;
            }
        }
        if (promise > 0.0f) {
            consider(m.strongest[promising], m.hourBounds.brightest[m.strongest[promising]] * view,
                     result);
        }
        Lanes skyBound;
        Lanes bound;
        Lanes blockSky;
        Lanes blockBound;
        for (std::size_t first = 0; first < m.blockBounds.open.size(); first += lanes) {
            boundsOf(m.blockBounds, first, view, blockSky, blockBound);
            for (std::size_t block = 0; block < lanes; ++block) {
                const std::size_t b = first + block;
                if (!(blockBound[block] > result.peak) ||
                    !(blockBound[block] - blockSky[block] + zoneSky(m.blockZoneBrightest, b) >
                      result.peak)) {
                    continue;
                }
                if (!m.blockSun[b].meets(visibleSun, m_sunVisible.size()) &&
                    !(zoneSky(m.blockZoneBrightest, b) + m_groundView * m.blockBounds.ground[b] >
                      result.peak)) {
                    continue;
                }
                const std::size_t firstHour = (first + block) * lanes;
                boundsOf(m.hourBounds, firstHour, view, skyBound, bound);
                for (std::size_t lane = 0; lane < lanes; ++lane) {
                    if (bound[lane] > result.peak) {
                        consider(firstHour + lane, skyBound[lane], result);
                    }
                }
            }
        }
    }

    /// Computes the hour of a bound as far as it may still exceed the best one.
    void consider(std::size_t i, float skyBound, SensorResult& result) const {
        const float beam =
            beamOf({m.boundedBeams.data() + m.firstBeam[i], m.firstBeam[i + 1] - m.firstBeam[i]});
        const float ground = m_groundView * m.hourBounds.ground[i];
        if (!(beam + skyBound + ground > result.peak) ||
            !(beam +
                  sumOfProducts(m_zoneWeight.data(), m.zoneBrightest.data() + i * zoneCount,
                                zoneCount) +
                  ground >
              result.peak)) {
            return;
        }
        const auto h = static_cast<std::size_t>(m.boundedHour[i]);
        const SkyHour& hour = m.sky.skyHours[h];
        const float value = beam + skyOf(h) / hour.share + ground;
        if (value > result.peak) {
            result.peak = value;
            result.peakHour = hour.hour;
        }
    }

    void fill(SensorHours& hours) const {
        for (std::vector<float>* series : {&hours.beam, &hours.sky, &hours.ground}) {
            series->assign(hoursPerYear, 0.0f);
        }
        for (std::size_t h = 0; h < m.sky.skyHours.size(); ++h) {
            const SkyHour& hour = m.sky.skyHours[h];
            const auto k = static_cast<std::size_t>(hour.hour);
            hours.beam[k] = beamOf(
                {m.sky.beams.data() + hour.firstBeam, static_cast<std::size_t>(hour.beamCount)});
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
    std::array<float, zoneCount> m_zoneWeight{};
    std::vector<float> m_sunWeight;  // of the sun cells' energy on the surface [Wh/m2]
    std::vector<float> m_sunVisible; // their visible part
    std::vector<float> m_sunHoursOf;
    float m_view = 0.0f;
    float m_sky = 0.0f;
    float m_beam = 0.0f;
    float m_sunHours = 0.0f;
    float m_groundView = 0.0f;
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
