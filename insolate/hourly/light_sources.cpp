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

/// Parts of the sun's year: a sixth of the compass, below and above 35 degrees. What a scene lets
/// through and throws back changes with the sun's direction; finer parts would leave few rays for
/// each, and take memory for each cell and sensor.
std::uint32_t binOfDirection(int cell) {
    constexpr int sectors = skyGrid::azimuthCount / 6;
    constexpr int low = 7;
    const int sector = cell % skyGrid::azimuthCount / sectors;
    return static_cast<std::uint32_t>(cell / skyGrid::azimuthCount < low ? sector : 6 + sector);
}

} // namespace

LightSources::LightSources(const HourlySky& sky, bool manyBins) {
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
    std::vector<std::uint32_t> binOfSun;
    std::map<std::pair<int, int>, std::vector<Child>> suns;
    for (const SunCell& sun : sky.sunCells) {
        std::uint32_t bin = 0;
        if (manyBins) {
            bin = m_binOfPart
                      .emplace(binOfDirection(sun.cell),
                               static_cast<std::uint32_t>(m_binOfPart.size() + 1))
                      .first->second;
        }
        binOfSun.push_back(bin);
        const float length = vectorLength(sun.energy);
        if (length > 0.0f) {
            const int azimuth = sun.cell % skyGrid::azimuthCount;
            const int altitude = sun.cell / skyGrid::azimuthCount;
            suns[{altitude / 2, azimuth / 2}].push_back(
                {sun.energy, {sun.direction, sun.direction}, length, 0.0f, bin});
        }
    }
    for (auto& [place, group] : suns) {
        addGroup(std::move(group));
    }
    weigh();
    m_binCount = m_binOfPart.size() + 1;
    findShares(sky, binOfSun);
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

void LightSources::findShares(const HourlySky& sky, const std::vector<std::uint32_t>& binOfSun) {
    m_shares.assign(sky.skyHours.size() * m_binCount, 0.0f);
    m_sums.assign(m_binCount, 0.0);
    const auto forAll = [&](const auto& take) {
        for (std::size_t h = 0; h < sky.skyHours.size(); ++h) {
            const SkyHour& hour = sky.skyHours[h];
            take(h, 0U, static_cast<double>(hour.diffuse));
            for (int b = 0; b < hour.beamCount; ++b) {
                const BeamPart& part = sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
                take(h, binOfSun[static_cast<std::size_t>(part.sunCell)],
                     static_cast<double>(vectorLength(part.energy)));
            }
        }
    };
    forAll([&](std::size_t, std::uint32_t bin, double light) { m_sums[bin] += light; });
    // Parts are known by these sums, to which theirs add up.
    m_periodSums.assign(m_binCount, 0.0);
    m_periodSums[0] = sky.report.diffuseHorizontal;
    for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
        m_periodSums[binOfSun[j]] += static_cast<double>(sky.sunCells[j].directNormal);
    }
    forAll([&](std::size_t hour, std::uint32_t bin, double light) {
        if (m_sums[bin] > 0.0) {
            m_shares[hour * m_binCount + bin] += static_cast<float>(light / m_sums[bin]);
        }
    });
}

std::vector<float> LightSources::sharesOfPart(double diffuseHorizontal,
                                              const std::vector<SunCell>& sunCells) const {
    std::vector<double> light(m_binCount, 0.0);
    light[0] = diffuseHorizontal;
    for (const SunCell& sun : sunCells) {
        const auto found = m_binOfPart.find(binOfDirection(sun.cell));
        light[found != m_binOfPart.end() ? found->second : 0] +=
            static_cast<double>(sun.directNormal);
    }
    std::vector<float> shares(m_binCount, 0.0f);
    for (std::size_t bin = 0; bin < m_periodSums.size(); ++bin) {
        const double all = m_periodSums[bin];
        shares[bin] = all > 0.0 ? static_cast<float>(light[bin] / all) : 0.0f;
    }
    return shares;
}

void LightSources::draw(const XYZf& normal, std::uint64_t seed, float start, std::size_t count,
                        std::vector<Ray>& rays) const {
    rays.clear();
    const bool everywhere = vectorLength(normal) == 0.0f;
    const std::size_t groups = m_groups.size();
    const std::span<const float> upTo =
        std::span(m_weightsUpTo)
            .subspan((everywhere ? everyDirection : normalLike(normal)) * groups, groups);
    if (groups == 0 || !(upTo.back() > 0.0f) || count == 0) {
        return;
    }
    const double step = static_cast<double>(upTo.back()) / static_cast<double>(count);
    const auto first = static_cast<double>(start);
    auto group = upTo.begin();
    for (std::size_t i = 0; i < count; ++i) {
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
                 mixedBits(seed, i + 1), rays);
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
    rays.push_back({direction, light / child->length * std::max(along, 0.0f), child->bin});
}

} // namespace insolate
