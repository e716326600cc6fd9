#include <insolate/hourly/light_sources.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/first_rays.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <span>
#include <utility>

namespace insolate {
namespace {

/// Parts of the sun's year in a season. What a scene lets through and throws back changes with the
/// sun's direction; finer parts would leave few rays for each, and take memory for each cell and
/// sensor, as many seasons do.
constexpr int sixthsAndHeights = 12; // of the compass, below and above 35 degrees
constexpr int sixths = 6;
constexpr int halves = 2; // before and after noon
int partsOfSun(int seasons, bool many) {
    return !many ? 0 : seasons <= 2 ? sixthsAndHeights : seasons <= 4 ? sixths : halves;
}
std::uint32_t partOf(int cell, int parts) {
    constexpr int low = 7;
    const int sectors = skyGrid::azimuthCount / std::min(parts, sixths);
    const int sector = cell % skyGrid::azimuthCount / sectors;
    const bool isHigh = parts == sixthsAndHeights && cell / skyGrid::azimuthCount >= low;
    return static_cast<std::uint32_t>(isHigh ? sixths + sector : sector);
}
constexpr std::uint32_t noBin = 0xFFFFFFFFU;

/// Shares of a sum; where there is none, all alike.
std::vector<float> sharesOf(std::span<const double> light) {
    double sum = 0.0;
    for (const double one : light) {
        sum += one;
    }
    std::vector<float> shares;
    for (const double one : light) {
        shares.push_back(sum > 0.0 ? static_cast<float>(one / sum)
                                   : 1.0f / static_cast<float>(light.size()));
    }
    return shares;
}

} // namespace

std::size_t seasonOfHour(const SkyHour& hour, const Seasons& seasons) {
    const std::size_t season = seasons.ofDay[static_cast<std::size_t>(hour.hour / 24)];
    return std::min(season, static_cast<std::size_t>(std::max(seasons.count, 1)) - 1);
}

LightSources::LightSources(const HourlySky& sky, const Seasons& seasons, bool manyBins) {
    makeBins(sky, seasons, manyBins);
    if (!sky.valid) {
        return;
    }
    const SkyCells cells(sky.options.northOffset);
    const std::array<std::vector<XYZf>, 2> lattice =
        rayLattice::pair(0.0, 0.0, sky.options.northOffset);
    std::vector<std::vector<Child>> patches(skyPatches::count);
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        const auto i = static_cast<std::size_t>(cell);
        const float radiance = sky.diffuse[i];
        const XYZf vector =
            scaled({cells.momentX[i], cells.momentY[i], cells.momentZ[i]}, radiance);
        const float length = vectorLength(vector);
        if (length > 0.0f) {
            patches[static_cast<std::size_t>(skyPatches::ofCell(cell))].push_back(
                {vector, {lattice[0][i], lattice[1][i]}, length, 0.0f, 0});
        }
    }
    for (std::vector<Child>& patch : patches) {
        addGroup(std::move(patch));
    }
    std::map<std::pair<int, int>, std::vector<Child>> suns;
    std::uint32_t source = 0;
    for (const SunCell& sun : sky.sunCells) {
        ++source;
        const float length = vectorLength(sun.energy);
        if (length > 0.0f) {
            const int azimuth = sun.cell % skyGrid::azimuthCount;
            const int altitude = sun.cell / skyGrid::azimuthCount;
            suns[{altitude / 2, azimuth / 2}].push_back(
                {sun.energy, {sun.direction, sun.direction}, length, 0.0f, source});
        }
    }
    for (auto& [place, group] : suns) {
        addGroup(std::move(group));
    }
    weigh();
    findShares(sky, seasons);
}

std::uint32_t LightSources::binOfSun(int cell, std::size_t season) const {
    if (m_partsOfSun == 0) {
        return static_cast<std::uint32_t>(season); // the season's light has one bin
    }
    const auto found = m_binOfPart.find({partOf(cell, m_partsOfSun), season});
    return found != m_binOfPart.end() ? found->second : noBin;
}

void LightSources::makeBins(const HourlySky& sky, const Seasons& seasons, bool manyBins) {
    const auto seasonCount = static_cast<std::size_t>(std::max(seasons.count, 1));
    m_partsOfSun = partsOfSun(seasons.count, manyBins);
    // Light of the sky, of all and of each sun cell by season.
    std::vector<double> diffuse(seasonCount, 0.0);
    std::vector<double> all(seasonCount, 0.0);
    std::vector<double> suns(sky.sunCells.size() * seasonCount, 0.0);
    for (const SkyHour& hour : sky.skyHours) {
        const std::size_t season = seasonOfHour(hour, seasons);
        diffuse[season] += static_cast<double>(hour.diffuse);
        all[season] += static_cast<double>(hour.diffuse);
        for (int b = 0; b < hour.beamCount; ++b) {
            const BeamPart& part = sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
            suns[static_cast<std::size_t>(part.sunCell) * seasonCount + season] +=
                static_cast<double>(vectorLength(part.energy));
            all[season] += static_cast<double>(part.energy.z);
        }
    }
    m_seasonShares = sharesOf(all);
    m_firstShare = {0};
    const std::vector<float> ofSky = sharesOf(diffuse);
    for (std::size_t s = 0; s < seasonCount; ++s) {
        m_seasonOfBin.push_back(static_cast<std::uint16_t>(s));
        m_binShares.push_back({static_cast<std::uint32_t>(s), ofSky[s]});
    }
    m_firstShare.push_back(m_binShares.size());
    for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
        const int cell = sky.sunCells[j].cell;
        const std::vector<float> shares =
            sharesOf(std::span(suns).subspan(j * seasonCount, seasonCount));
        for (std::size_t s = 0; s < seasonCount; ++s) {
            if (!(shares[s] > 0.0f)) {
                continue;
            }
            std::uint32_t bin = binOfSun(cell, s);
            if (bin == noBin) {
                bin = static_cast<std::uint32_t>(m_seasonOfBin.size());
                m_binOfPart[{partOf(cell, m_partsOfSun), s}] = bin;
                m_seasonOfBin.push_back(static_cast<std::uint16_t>(s));
            }
            m_binShares.push_back({bin, shares[s]});
        }
        m_firstShare.push_back(m_binShares.size());
    }
}

void LightSources::addGroup(std::vector<Child> children) {
    if (children.empty()) {
        return;
    }
    float length = 0.0f;
    for (Child& child : children) {
        length += child.length;
        child.upTo = length;
    }
    XYZf vector{0, 0, 0};
    for (const Child& child : children) {
        vector = sum(vector, child.vector);
    }
    m_groups.push_back({std::move(children), vector});
}

std::size_t LightSources::normalLike(const XYZf& n) {
    const std::array<float, 3> v{n.x, n.y, n.z};
    std::size_t axis = 0;
    for (std::size_t k = 1; k < 3; ++k) {
        axis = std::fabs(v[k]) > std::fabs(v[axis]) ? k : axis;
    }
    const float length = std::fabs(v[axis]);
    const auto square = [&](float value) {
        const float place = 0.5f * (value / length + 1.0f) * static_cast<float>(squares);
        return std::min(static_cast<std::size_t>(std::max(place, 0.0f)), squares - 1);
    };
    const std::size_t side = 2 * axis + (v[axis] < 0.0f ? 1 : 0);
    return (side * squares + square(v[(axis + 1) % 3])) * squares + square(v[(axis + 2) % 3]);
}

XYZf LightSources::normalOf(std::size_t number) {
    const std::size_t side = number / (squares * squares);
    const auto middle = [](std::size_t square) {
        return 2.0f * (static_cast<float>(square) + 0.5f) / static_cast<float>(squares) - 1.0f;
    };
    std::array<float, 3> v{};
    v[side / 2] = side % 2 == 0 ? 1.0f : -1.0f;
    v[(side / 2 + 1) % 3] = middle(number / squares % squares);
    v[(side / 2 + 2) % 3] = middle(number % squares);
    const XYZf normal{v[0], v[1], v[2]};
    return scaled(normal, 1.0f / vectorLength(normal));
}

void LightSources::weigh() {
    // A group whose middle lies behind the surface may have cells in front of it: those within ten
    // degrees, and the nine that the normal's place in its square may add, keep a small weight,
    // which their rays make up for.
    constexpr float behind = -0.33f;
    constexpr float least = 0.06f;
    m_weightsUpTo.reserve((everyDirection + 1) * m_groups.size());
    for (std::size_t number = 0; number <= everyDirection; ++number) {
        const XYZf normal = number < everyDirection ? normalOf(number) : XYZf{0, 0, 0};
        float upTo = 0.0f;
        for (const Group& group : m_groups) {
            const float length = group.children.back().upTo;
            const float along = dotProduct(normal, group.vector);
            if (number == everyDirection) {
                upTo += length;
            } else if (along > behind * length) {
                upTo += std::max(along, 0.0f) + least * length;
            }
            m_weightsUpTo.push_back(upTo);
        }
    }
}

void LightSources::findShares(const HourlySky& sky, const Seasons& seasons) {
    const std::size_t bins = binCount();
    m_shares.assign(sky.skyHours.size() * bins, 0.0f);
    std::vector<double> sums(bins, 0.0);
    const auto forAll = [&](const auto& take) {
        for (std::size_t h = 0; h < sky.skyHours.size(); ++h) {
            const SkyHour& hour = sky.skyHours[h];
            const std::size_t season = seasonOfHour(hour, seasons);
            take(h, season, static_cast<double>(hour.diffuse));
            for (int b = 0; b < hour.beamCount; ++b) {
                const BeamPart& part = sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
                const int cell = sky.sunCells[static_cast<std::size_t>(part.sunCell)].cell;
                if (const std::uint32_t bin = binOfSun(cell, season); bin != noBin) {
                    take(h, std::size_t{bin}, static_cast<double>(vectorLength(part.energy)));
                }
            }
        }
    };
    forAll([&](std::size_t, std::size_t bin, double light) { sums[bin] += light; });
    forAll([&](std::size_t hour, std::size_t bin, double light) {
        if (sums[bin] > 0.0) {
            m_shares[hour * bins + bin] += static_cast<float>(light / sums[bin]);
        }
    });
    // Parts are known by these sums, to which theirs add up.
    m_periodSums.assign(bins, 0.0);
    for (std::uint32_t source = 0; source <= sky.sunCells.size(); ++source) {
        const double light = source == 0
                                 ? sky.report.diffuseHorizontal
                                 : static_cast<double>(sky.sunCells[source - 1].directNormal);
        for (const BinShare& one : binsOf(source)) {
            m_periodSums[one.bin] += light * static_cast<double>(one.share);
        }
    }
}

std::vector<float> LightSources::sharesOfPart(const Part& part) const {
    const std::size_t seasons = seasonCount();
    std::vector<double> light(binCount(), 0.0);
    const auto shareAt = [](std::span<const float> shares, std::size_t place) {
        return place < shares.size() ? static_cast<double>(shares[place]) : 1.0;
    };
    for (std::size_t s = 0; s < seasons; ++s) {
        light[s] += part.diffuseHorizontal * shareAt(part.diffuseShares, s);
        for (std::size_t j = 0; j < part.sunCells.size(); ++j) {
            const SunCell& sun = part.sunCells[j];
            if (const std::uint32_t bin = binOfSun(sun.cell, s); bin != noBin) {
                light[bin] += static_cast<double>(sun.directNormal) *
                              shareAt(part.sunShares, j * seasons + s);
            }
        }
    }
    std::vector<float> shares(binCount(), 0.0f);
    for (std::size_t bin = 0; bin < m_periodSums.size(); ++bin) {
        const double all = m_periodSums[bin];
        shares[bin] = all > 0.0 ? static_cast<float>(light[bin] / all) : 0.0f;
    }
    return shares;
}

void LightSources::draw(const XYZf& normal, const Steps& steps, std::vector<Ray>& rays) const {
    rays.clear();
    const bool everywhere = vectorLength(normal) == 0.0f;
    const std::size_t groups = m_groups.size();
    const std::span<const float> upTo =
        std::span(m_weightsUpTo)
            .subspan((everywhere ? everyDirection : normalLike(normal)) * groups, groups);
    if (groups == 0 || !(upTo.back() > 0.0f) || steps.count == 0) {
        return;
    }
    const double step = static_cast<double>(upTo.back()) / static_cast<double>(steps.count);
    const auto first = static_cast<double>(steps.start);
    auto group = upTo.begin();
    for (std::size_t i = steps.first; i < steps.count; i += steps.every) {
        const auto place = static_cast<float>(step * (static_cast<double>(i) + first));
        group = std::upper_bound(group, upTo.end() - 1, place);
        const auto number = static_cast<std::size_t>(group - upTo.begin());
        const float before = number > 0 ? upTo[number - 1] : 0.0f;
        const float weight = *group - before;
        if (!(weight > 0.0f)) {
            continue; // by rounding, at the end
        }
        const Group& drawn = m_groups[number];
        const float length = drawn.children.back().upTo;
        drawFrom(drawn, std::clamp((place - before) / weight, 0.0f, 1.0f) * length,
                 static_cast<float>(step) / weight * length, normal, everywhere,
                 mixedBits(steps.seed, i + 1), rays);
    }
}

/// The ray of a group to the child at a place in it.
void LightSources::drawFrom(const Group& group, float inside, float light, const XYZf& normal,
                            bool everywhere, std::uint64_t bits, std::vector<Ray>& rays) {
    auto child = std::upper_bound(group.children.begin(), group.children.end(), inside,
                                  [](float value, const Child& one) { return value < one.upTo; });
    child = std::min(child, group.children.end() - 1);
    const float along = everywhere ? child->length : dotProduct(normal, child->vector);
    XYZf direction = child->directions[bits & 1U];
    if (!everywhere && along > 0.0f && !(dotProduct(normal, direction) > 0.0f)) {
        direction = scaled(child->vector, 1.0f / child->length);
    }
    rays.push_back({direction, light / child->length * std::max(along, 0.0f), child->source});
}

} // namespace insolate
