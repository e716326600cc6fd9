// How the hours of a year become blocks, and what bounds a block for any sensor.
//
// Each hour is reduced to its features: its whole beam as a vector, and a linear function of the
// normal that lies above what its open sky gives. The hours are ordered so that each 16 of them are
// alike in these features. Of each block of 16 are then kept:
//
// - the strongest beam along the mean direction to its suns, and how far a sun lies from that mean;
// - the mean of the linear functions, raised by the farthest of them, the brightest patch and the
//   brightest ground;
// - the sun cells of all its hours, a bit for each;
// - for each zone of the sky the highest mean radiance and the largest deviation from it;
// - the beams of its hours, exact and part by part, and their sums with what the plane of a surface
//   can make of them (WholeBeams).
//
// The leaders, from which a search starts, are the strongest hour of each patch that holds the sun.
#include <insolate/hourly/peak_hours.h>

#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/sensor_kernels.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <numeric>
#include <utility>

namespace insolate {
namespace {

using sensorKernels::cellCount;
using sensorKernels::lanes;
using sensorKernels::patchCount;

/// Within an hour the sun moves by up to 15 degrees. A mean weighted with energy may lie at either
/// end of that: a step is at most 2 sin(7.5 degrees) away from it. Less would hide hours, more
/// opens blocks without need.
constexpr float sunSwing = 0.262f;

std::size_t zoneOfCell(std::size_t cell) {
    const std::size_t row = cell / skyGrid::azimuthCount / 2;
    const std::size_t sector = cell % skyGrid::azimuthCount;
    return row < 4 ? row / 2 * 12 + sector / 6 : row < 7 ? 24 + sector / 12 : 30 + sector / 36;
}

/// Normals spread evenly over the sphere by the golden angle, with what their open sky weighs.
struct SpreadNormals {
    static constexpr std::size_t count = 96;
    std::array<XYZf, count> normals{};
    std::array<std::array<float, patchCount>, count> weights{};

    explicit SpreadNormals(const SkyCells& cells) {
        for (std::size_t i = 0; i < count; ++i) {
            const double z = 1.0 - (2.0 * static_cast<double>(i) + 1.0) / count;
            const double turn = static_cast<double>(i) * std::numbers::pi * (3.0 - std::sqrt(5.0));
            const double r = std::sqrt(1.0 - z * z);
            normals[i] = {static_cast<float>(r * std::cos(turn)),
                          static_cast<float>(r * std::sin(turn)), static_cast<float>(z)};
            for (std::size_t c = 0; c < cellCount; ++c) {
                weights[i][static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(c)))] +=
                    std::max(dotProduct(normals[i],
                                        {cells.momentX[c], cells.momentY[c], cells.momentZ[c]}),
                             0.0f);
            }
        }
    }
};

/// The constant of the open sky's bound holds for the 96 normals; between them the sky may give
/// more. In the years of Amsterdam, Chicago, Mannheim and Tokyo factors up to 1.018 were needed
/// over 1,500 random normals. Below that, as the test PeakHours.BoundWhatHoursGiveInTheOpen finds,
/// hours would be hidden; above 1.05 blocks are opened without need.
constexpr float betweenNormals = 1.05f;

/// The sun cell that gives most of an hour's direct radiation, -1 without any.
int mainSunCell(const HourlySky& sky, const SkyHour& hour) {
    int cell = -1;
    float most = 0.0f;
    for (int b = 0; b < hour.beamCount; ++b) {
        const BeamPart& part = sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
        if (vectorLength(part.energy) > most) {
            most = vectorLength(part.energy);
            cell = part.sunCell;
        }
    }
    return cell;
}

} // namespace

const skyZones::Table& skyZones::table() {
    static const Table made = [] {
        Table table;
        table.patches.fill(static_cast<std::int32_t>(patchCount) - 1);
        std::array<std::size_t, count> used{};
        std::int32_t last = -1; // patches are numbered by their first cells
        for (std::size_t cell = 0; cell < cellCount; ++cell) {
            const std::int32_t patch = skyPatches::ofCell(static_cast<int>(cell));
            if (patch > last) {
                last = patch;
                const std::size_t zone = zoneOfCell(cell);
                table.patches[used[zone]++ * count + zone] = patch;
            }
        }
        for (std::size_t zone = 0; zone < count; ++zone) {
            table.share[zone] = 1.0f / static_cast<float>(used[zone]);
        }
        return table;
    }();
    return made;
}

namespace {

/// A word with the given lower half that, taken as single precision, is not below the number.
std::uint32_t raisedWord(float number, std::uint32_t lower) {
    const auto exact = std::bit_cast<std::uint32_t>(number);
    const std::uint32_t word = (exact & 0xFFFF0000U) | lower;
    return word >= exact ? word : word + 0x10000U;
}

} // namespace

std::uint32_t PeakHours::paired(float first, float second) {
    return raisedWord(first, (std::bit_cast<std::uint32_t>(second) + 0xFFFFU) >> 16U);
}

/// What makes hours alike, and what their blocks are bounded by; means over the hour [W/m2].
struct HourFeatures {
    int skyHour = 0;
    int group = 0;      // the patch of its main sun cell, -1 without direct radiation
    XYZf beam{0, 0, 0}; // sum of its direct radiation
    float beamLength = 0;
    XYZf openVector{0, 0, 0}; // an open sky gives normal * openVector + open at most
    float open = 0;
    float brightest = 0; // radiance [W/(m2 sr)]
    float ground = 0;

    XYZf towardsSun() const {
        return beamLength > 0.0f ? scaled(beam, 1.0f / beamLength) : XYZf{0, 0, 0};
    }
    static constexpr std::size_t featureCount = 7;
    float feature(std::size_t k) const {
        const std::array values{beam.x,       beam.y,       beam.z, openVector.x,
                                openVector.y, openVector.z, open};
        return values[k];
    }
    float strength() const { return beamLength + open + vectorLength(openVector); }
};

namespace {

/// Orders hours so that each `lanes` of them are alike: halves them by what spreads most, and
/// again. Alike in sun and sky, since a block that joins the strongest beam of one hour with the
/// brightest sky of another promises more than any of them gives.
void orderByLikeness(HourFeatures* first, HourFeatures* last) {
    const auto count = static_cast<std::size_t>(last - first);
    if (count <= lanes) {
        return;
    }
    const auto widest = [&] {
        std::array<float, HourFeatures::featureCount> low;
        std::array<float, HourFeatures::featureCount> high;
        low.fill(std::numeric_limits<float>::max());
        high.fill(std::numeric_limits<float>::lowest());
        for (const HourFeatures* hour = first; hour != last; ++hour) {
            for (std::size_t k = 0; k < low.size(); ++k) {
                low[k] = std::min(low[k], hour->feature(k));
                high[k] = std::max(high[k], hour->feature(k));
            }
        }
        std::size_t most = 0;
        for (std::size_t k = 1; k < low.size(); ++k) {
            most = high[k] - low[k] > high[most] - low[most] ? k : most;
        }
        return most;
    }();
    HourFeatures* middle = first + (count + lanes - 1) / lanes / 2 * lanes;
    std::nth_element(first, middle, last, [&](const HourFeatures& a, const HourFeatures& b) {
        return a.feature(widest) != b.feature(widest) ? a.feature(widest) > b.feature(widest)
                                                      : a.skyHour < b.skyHour;
    });
    orderByLikeness(first, middle);
    orderByLikeness(middle, last);
}

} // namespace

PeakHours::PeakHours(const HourlySky& sky, const SkyCells& cells)
    : patches(sky.patchRadiance.data()) {
    const SpreadNormals spread(cells);
    std::vector<HourFeatures> list(sky.skyHours.size());
    for (std::size_t h = 0; h < list.size(); ++h) {
        const SkyHour& ofSky = sky.skyHours[h];
        HourFeatures& hour = list[h];
        hour.skyHour = static_cast<int>(h);
        const float perHour = 1.0f / ofSky.share;
        for (int b = 0; b < ofSky.beamCount; ++b) {
            hour.beam =
                sum(hour.beam, sky.beams[static_cast<std::size_t>(ofSky.firstBeam + b)].energy);
        }
        hour.beam = scaled(hour.beam, perHour);
        hour.beamLength = vectorLength(hour.beam);
        const float* radiance = patches + h * patchCount;
        // The vector is fitted over all normals, the constant then lifted above every one.
        std::array<float, SpreadNormals::count> values{};
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] =
                sensorKernels::sumOfProducts(radiance, spread.weights[i].data(), patchCount) *
                perHour;
            hour.openVector = sum(hour.openVector, scaled(spread.normals[i],
                                                          3.0f / SpreadNormals::count * values[i]));
        }
        for (std::size_t i = 0; i < values.size(); ++i) {
            hour.open =
                std::max(hour.open, values[i] - dotProduct(spread.normals[i], hour.openVector));
        }
        hour.open *= betweenNormals;
        hour.brightest = *std::max_element(radiance, radiance + patchCount) * perHour;
        hour.ground = ofSky.groundReflected * perHour;
        const int sunCell = mainSunCell(sky, ofSky);
        hour.group = sunCell < 0
                         ? -1
                         : skyPatches::ofCell(sky.sunCells[static_cast<std::size_t>(sunCell)].cell);
    }
    orderByLikeness(list.data(), list.data() + list.size());
    sunCellCount = (sky.sunCells.size() + lanes - 1) / lanes * lanes;
    cellWords = (sunCellCount + 255) / 256 * 4;
    for (std::size_t i = 0; i < list.size(); i += lanes) {
        addBlock(sky, list.data() + i, std::min(lanes, list.size() - i));
    }
    addLeaders(list);
}

void PeakHours::addBeams(BeamTable& table, const std::vector<std::size_t>& places) const {
    std::uint32_t most = 0;
    for (const std::size_t place : places) {
        most = std::max(most, hours[place].beamCount);
    }
    for (std::uint32_t b = 0; b < most; ++b) {
        BeamLanes& part = table.parts.emplace_back();
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const Hour& hour = hours[places[lane]];
            if (b < hour.beamCount) {
                const BeamPart& beam = beams[hour.firstBeam + b];
                part.cell[lane] = beam.sunCell;
                part.x[lane] = beam.energy.x;
                part.y[lane] = beam.energy.y;
                part.z[lane] = beam.energy.z;
            }
        }
    }
    table.firsts.push_back(table.parts.size());
}

WholeBeams PeakHours::wholeBeamsOf(const std::vector<std::size_t>& places) const {
    WholeBeams whole;
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        const Hour& hour = hours[places[lane]];
        XYZf all{0, 0, 0};
        float size = 0.0f;
        for (std::size_t b = hour.firstBeam; b < hour.firstBeam + hour.beamCount; ++b) {
            all = sum(all, beams[b].energy);
            size += vectorLength(beams[b].energy);
        }
        float radius = WholeBeams::leastRadius;
        for (std::size_t b = hour.firstBeam; b < hour.firstBeam + hour.beamCount; ++b) {
            if (const float part = vectorLength(beams[b].energy); part > 0.0f) {
                radius =
                    std::max(radius, vectorLength(difference(scaled(beams[b].energy, 1.0f / part),
                                                             scaled(all, 1.0f / size))));
            }
        }
        whole.x[lane] = all.x;
        whole.y[lane] = all.y;
        whole.z[lane] = all.z;
        whole.swing[lane] = radius * size;
    }
    return whole;
}

void PeakHours::addLeaders(const std::vector<HourFeatures>& list) {
    std::map<int, std::size_t> strongest; // by group; the list has the order of the hours
    for (std::size_t place = 0; place < list.size(); ++place) {
        std::size_t& most = strongest.emplace(list[place].group, place).first->second;
        if (list[place].strength() > list[most].strength()) {
            most = place;
        }
    }
    std::vector<std::size_t> places;
    places.reserve(strongest.size() + lanes);
    for (const auto& [group, place] : strongest) {
        places.push_back(place);
    }
    while (places.size() % lanes != 0) {
        places.push_back(places.back());
    }
    for (std::size_t i = 0; i < places.size(); i += lanes) {
        const auto first = places.begin() + static_cast<std::ptrdiff_t>(i);
        addBeams(leaderBeams, {first, first + lanes});
    }
    for (const std::size_t place : places) {
        const Hour& hour = hours[place];
        const float* radiance = patches + static_cast<std::size_t>(hour.skyHour) * patchCount;
        leaders.push_back(static_cast<int>(place));
        leaderSky.push_back(std::accumulate(radiance, radiance + patchCount, 0.0f) *
                            hour.shareInverse / static_cast<float>(patchCount));
        leaderGround.push_back(hour.ground);
    }
}

void PeakHours::addBlock(const HourlySky& sky, const HourFeatures* first, std::size_t count) {
    const float part = 1.0f / static_cast<float>(count);
    XYZf sun{0, 0, 0};
    XYZf openVector{0, 0, 0};
    float strongestBeam = 0.0f;
    for (const HourFeatures* hour = first; hour != first + count; ++hour) {
        sun = sum(sun, hour->towardsSun());
        strongestBeam = std::max(strongestBeam, hour->beamLength);
        openVector = sum(openVector, scaled(hour->openVector, part));
    }
    // A beam L s gives n L s, which is at most L times n with the mean of the s, plus its distance
    // from that mean.
    if (vectorLength(sun) > 0.0f) {
        sun = scaled(sun, 1.0f / vectorLength(sun));
    }
    const XYZf beam = scaled(sun, strongestBeam);
    const std::size_t block = blockTerms.add();
    blockTerms.at(block, BlockTerms::beamX) = beam.x;
    blockTerms.at(block, BlockTerms::beamY) = beam.y;
    blockTerms.at(block, BlockTerms::beamZ) = beam.z;
    blockTerms.at(block, BlockTerms::openX) = openVector.x;
    blockTerms.at(block, BlockTerms::openY) = openVector.y;
    blockTerms.at(block, BlockTerms::openZ) = openVector.z;
    const auto raise = [&](BlockTerms::Field field, float value) {
        blockTerms.at(block, field) = std::max(blockTerms.at(block, field), value);
    };
    float openRadius = 0.0f;
    std::vector<std::size_t> places;
    blockCells.resize(blockCells.size() + cellWords, 0);
    for (const HourFeatures* hour = first; hour != first + count; ++hour) {
        if (hour->beamLength > 0.0f) {
            raise(BlockTerms::beamRadius,
                  strongestBeam * vectorLength(difference(hour->towardsSun(), sun)));
        }
        raise(BlockTerms::beamSlack, sunSwing * hour->beamLength);
        raise(BlockTerms::open, hour->open);
        raise(BlockTerms::brightest, hour->brightest);
        raise(BlockTerms::ground, hour->ground);
        openRadius = std::max(openRadius, vectorLength(difference(hour->openVector, openVector)));
        places.push_back(hours.size());
        addHour(sky, *hour);
        for (std::size_t b = hours.back().firstBeam; b < beams.size(); ++b) {
            const auto cell = static_cast<std::size_t>(beams[b].sunCell);
            blockCells[block * cellWords + cell / 64] |= std::uint64_t{1} << cell % 64;
        }
    }
    blockTerms.at(block, BlockTerms::open) += openRadius;
    for (std::size_t zone = 0; zone < skyZones::count; ++zone) {
        float mean = 0.0f;
        float rest = 0.0f;
        for (const std::size_t place : places) {
            const std::uint32_t word = hourZones[place * skyZones::count + zone];
            mean = std::max(mean, std::bit_cast<float>(word));
            rest = std::max(rest, std::bit_cast<float>(word << 16U));
        }
        blockZones.push_back(paired(mean, rest));
    }
    while (hours.size() % lanes != 0) {
        places.push_back(hours.size());
        hours.emplace_back();
        hourZones.resize(hourZones.size() + skyZones::count, 0);
    }
    addBeams(hourBeams, places);
    wholeBeams.push_back(wholeBeamsOf(places));
}

void PeakHours::addHour(const HourlySky& sky, const HourFeatures& hour) {
    const SkyHour& ofSky = sky.skyHours[static_cast<std::size_t>(hour.skyHour)];
    const float perHour = 1.0f / ofSky.share;
    hours.push_back({static_cast<std::uint32_t>(beams.size()),
                     static_cast<std::uint32_t>(ofSky.beamCount), hour.skyHour, perHour,
                     hour.ground});
    for (int b = 0; b < ofSky.beamCount; ++b) {
        const BeamPart& part = sky.beams[static_cast<std::size_t>(ofSky.firstBeam + b)];
        beams.push_back({part.sunCell, scaled(part.energy, perHour)});
    }
    std::array<float, patchCount> radiance;
    for (std::size_t p = 0; p < patchCount; ++p) {
        radiance[p] = patches[static_cast<std::size_t>(hour.skyHour) * patchCount + p] * perHour;
    }
    const skyZones::Terms terms = skyZones::measure(radiance.data());
    for (std::size_t zone = 0; zone < skyZones::count; ++zone) {
        hourZones.push_back(
            paired(terms.sums[zone] * skyZones::table().share[zone], terms.deviations[zone]));
    }
}

} // namespace insolate
