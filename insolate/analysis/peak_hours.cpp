#include <insolate/analysis/peak_hours.h>

#include <insolate/analysis/hourly_kernels.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/vector_math.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <utility>

namespace insolate {
namespace {

constexpr std::size_t cellCount = skyGrid::cellCount;
constexpr std::size_t patchCount = skyPatches::count;

/// Within an hour the sun moves by up to 15 degrees. A mean weighted with energy may lie at either
/// end of that: a step is at most 2 sin(7.5 degrees) away from it.
constexpr float sunSwing = 0.262f;

std::size_t zoneOfCell(std::size_t cell) {
    const std::size_t row = cell / skyGrid::azimuthCount / 2;
    const std::size_t sector = cell % skyGrid::azimuthCount;
    return row < 4 ? row / 2 * 12 + sector / 6 : row < 7 ? 24 + sector / 12 : 30 + sector / 36;
}

struct Zones {
    std::array<std::uint8_t, patchCount> ofPatch{};
    std::array<float, skyZones::count> patches{}; // the patches in each

    Zones() {
        std::size_t used = 0;
        for (std::size_t cell = 0; cell < cellCount; ++cell) {
            const auto patch = static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(cell)));
            ofPatch[patch] = static_cast<std::uint8_t>(zoneOfCell(cell));
            used = std::max(used, patch + 1);
        }
        for (std::size_t patch = 0; patch < used; ++patch) {
            patches[ofPatch[patch]] += 1.0f;
        }
    }
};

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

void skyZones::measure(const float* patches, bool averages, float* terms) {
    static const Zones zones;
    std::array<float, count> squares{};
    std::fill(terms, terms + termCount, 0.0f);
    for (std::size_t p = 0; p < patchCount; ++p) {
        const std::size_t zone = zones.ofPatch[p];
        terms[zone] += patches[p];
        squares[zone] += patches[p] * patches[p];
    }
    for (std::size_t zone = 0; zone < count; ++zone) {
        const float mean = terms[zone] / zones.patches[zone];
        // Rounding takes less than a millionth of the squares from the difference.
        const float rest = std::max(squares[zone] - terms[zone] * mean, 0.0f);
        terms[count + zone] = std::sqrt(rest + 4e-6f * squares[zone]);
        terms[zone] = averages ? mean : terms[zone];
    }
}

std::uint32_t PeakHours::paired(float first, float second) {
    const std::uint32_t lower = (std::bit_cast<std::uint32_t>(second) + 0xFFFFU) >> 16U;
    const auto exact = std::bit_cast<std::uint32_t>(first);
    const std::uint32_t word = (exact & 0xFFFF0000U) | lower;
    return word >= exact ? word : word + 0x10000U;
}

struct PeakHours::Described {
    int skyHour = 0;
    int group = 0; // by the sun's patch, -1 without sun
    XYZf beam{0, 0, 0}, openVector{0, 0, 0};
    float beamLength = 0, open = 0, brightest = 0, ground = 0;

    XYZf towardsSun() const {
        return beamLength > 0.0f ? scaled(beam, 1.0f / beamLength) : XYZf{0, 0, 0};
    }
    float strength() const { return beamLength + open + vectorLength(openVector); }
};

PeakHours::PeakHours(const HourlySky& sky, const SkyCells& cells)
    : patches(sky.patchRadiance.data()) {
    const SpreadNormals spread(cells);
    std::vector<Described> list(sky.skyHours.size());
    for (std::size_t h = 0; h < list.size(); ++h) {
        const SkyHour& ofSky = sky.skyHours[h];
        Described& hour = list[h];
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
                hourlyKernels::sumOfProducts(radiance, spread.weights[i].data(), patchCount) *
                perHour;
            hour.openVector = sum(hour.openVector, scaled(spread.normals[i],
                                                          3.0f / SpreadNormals::count * values[i]));
        }
        for (std::size_t i = 0; i < values.size(); ++i) {
            hour.open =
                std::max(hour.open, values[i] - dotProduct(spread.normals[i], hour.openVector));
        }
        hour.open *= 1.05f; // for the normals in between; found by trial to be enough
        hour.brightest = *std::max_element(radiance, radiance + patchCount) * perHour;
        hour.ground = ofSky.groundReflected * perHour;
        const int sunCell = mainSunCell(sky, ofSky);
        hour.group = sunCell < 0
                         ? -1
                         : skyPatches::ofCell(sky.sunCells[static_cast<std::size_t>(sunCell)].cell);
    }
    std::stable_sort(list.begin(), list.end(), [](const Described& a, const Described& b) {
        return a.group != b.group ? a.group < b.group : a.strength() > b.strength();
    });
    std::vector<std::pair<std::size_t, std::size_t>> blocks; // first and count
    for (std::size_t i = 0; i < list.size();) {
        std::size_t end = i + 1;
        while (end < list.size() && end - i < lanes && list[end].group == list[i].group) {
            ++end;
        }
        blocks.emplace_back(i, end - i);
        i = end;
    }
    // Strong ones together, so that many are passed over at once.
    std::stable_sort(blocks.begin(), blocks.end(), [&](const auto& a, const auto& b) {
        return list[a.first].strength() > list[b.first].strength();
    });

    const std::size_t sunCells = (sky.sunCells.size() + lanes - 1) / lanes * lanes;
    strongest.assign(sunCells, 0);
    for (std::vector<float>* values : {&strongestX, &strongestY, &strongestZ}) {
        values->assign(sunCells, 0.0f);
    }
    sunWords = (sunCells + 511) / 512 * 8;
    for (const auto& [first, count] : blocks) {
        addBlock(sky, list.data() + first, count);
    }
}

void PeakHours::addBlock(const HourlySky& sky, const Described* first, std::size_t count) {
    const float part = 1.0f / static_cast<float>(count);
    XYZf sun{0, 0, 0};
    XYZf openVector{0, 0, 0};
    float strongestBeam = 0.0f;
    for (const Described* hour = first; hour != first + count; ++hour) {
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
    const std::size_t block = blockBounds.add();
    blockBounds.at(block, PeakBounds::beamX) = beam.x;
    blockBounds.at(block, PeakBounds::beamY) = beam.y;
    blockBounds.at(block, PeakBounds::beamZ) = beam.z;
    blockBounds.at(block, PeakBounds::openX) = openVector.x;
    blockBounds.at(block, PeakBounds::openY) = openVector.y;
    blockBounds.at(block, PeakBounds::openZ) = openVector.z;
    const auto raise = [&](PeakBounds::Field field, float value) {
        blockBounds.at(block, field) = std::max(blockBounds.at(block, field), value);
    };
    float openRadius = 0.0f;
    const std::size_t suns = blockSun.size();
    blockSun.resize(suns + sunWords, 0);
    hourZones.resize(hourZones.size() + skyZones::count * lanes, 0);
    for (const Described* hour = first; hour != first + count; ++hour) {
        if (hour->beamLength > 0.0f) {
            raise(PeakBounds::beamRadius,
                  strongestBeam * vectorLength(difference(hour->towardsSun(), sun)));
        }
        raise(PeakBounds::beamSlack, sunSwing * hour->beamLength);
        raise(PeakBounds::open, hour->open);
        raise(PeakBounds::brightest, hour->brightest);
        raise(PeakBounds::ground, hour->ground);
        openRadius = std::max(openRadius, vectorLength(difference(hour->openVector, openVector)));
        addHour(sky, *hour);
        const SkyHour& ofSky = sky.skyHours[static_cast<std::size_t>(hour->skyHour)];
        for (int b = 0; b < ofSky.beamCount; ++b) {
            const auto cell = static_cast<std::size_t>(
                sky.beams[static_cast<std::size_t>(ofSky.firstBeam + b)].sunCell);
            blockSun[suns + cell / 64] |= std::uint64_t{1} << (cell % 64);
        }
    }
    blockBounds.at(block, PeakBounds::open) += openRadius;
    while (hours.size() % lanes != 0) {
        hours.emplace_back();
        hourBounds.add();
    }

    const std::size_t lane = block % lanes;
    if (lane == 0) {
        blockZones.resize(blockZones.size() + skyZones::count * lanes, 0);
    }
    std::uint32_t* zones = blockZones.data() + blockZones.size() - skyZones::count * lanes;
    const std::uint32_t* ofHours = hourZones.data() + hourZones.size() - skyZones::count * lanes;
    for (std::size_t zone = 0; zone < skyZones::count; ++zone) {
        float mean = 0.0f;
        float rest = 0.0f;
        for (std::size_t i = 0; i < lanes; ++i) {
            const std::uint32_t word = ofHours[zone * lanes + i];
            mean = std::max(mean, std::bit_cast<float>(word));
            rest = std::max(rest, std::bit_cast<float>(word << 16U));
        }
        zones[zone * lanes + lane] = paired(mean, rest);
    }
}

void PeakHours::addHour(const HourlySky& sky, const Described& hour) {
    const std::size_t place = hourBounds.add();
    const std::size_t lane = place % lanes;
    hourBounds.at(place, PeakBounds::ground) = hour.ground;

    hourBounds.at(place, PeakBounds::beamX) = hour.beam.x;
    hourBounds.at(place, PeakBounds::beamY) = hour.beam.y;
    hourBounds.at(place, PeakBounds::beamZ) = hour.beam.z;
    hourBounds.at(place, PeakBounds::beamSlack) = sunSwing * hour.beamLength;

    const SkyHour& ofSky = sky.skyHours[static_cast<std::size_t>(hour.skyHour)];
    const float perHour = 1.0f / ofSky.share;
    hours.push_back({static_cast<std::uint32_t>(beams.size()),
                     static_cast<std::uint32_t>(ofSky.beamCount), hour.skyHour, perHour,
                     hour.ground});
    for (int b = 0; b < ofSky.beamCount; ++b) {
        const BeamPart& part = sky.beams[static_cast<std::size_t>(ofSky.firstBeam + b)];
        const XYZf mean = scaled(part.energy, perHour);
        const auto cell = static_cast<std::size_t>(part.sunCell);
        const XYZf& sun = sky.sunCells[cell].direction;
        if (vectorLength(mean) >
            vectorLength({strongestX[cell], strongestY[cell], strongestZ[cell]})) {
            strongest[cell] = static_cast<int>(place);
            strongestX[cell] = sun.x * vectorLength(mean);
            strongestY[cell] = sun.y * vectorLength(mean);
            strongestZ[cell] = sun.z * vectorLength(mean);
        }
        beams.push_back({part.sunCell, mean});
    }

    std::array<float, patchCount> radiance;
    for (std::size_t p = 0; p < patchCount; ++p) {
        radiance[p] = patches[static_cast<std::size_t>(hour.skyHour) * patchCount + p] * perHour;
    }
    std::array<float, skyZones::termCount> terms;
    skyZones::measure(radiance.data(), true, terms.data());
    std::uint32_t* zones = hourZones.data() + hourZones.size() - skyZones::count * lanes;
    for (std::size_t zone = 0; zone < skyZones::count; ++zone) {
        zones[zone * lanes + lane] = paired(terms[zone], terms[skyZones::count + zone]);
    }
}

} // namespace insolate
