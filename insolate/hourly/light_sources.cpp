#include <insolate/hourly/light_sources.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/first_rays.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <utility>

namespace insolate {
namespace {

constexpr std::uint32_t noBin = 0xFFFFFFFFU;

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
    std::map<std::uint32_t, std::uint32_t> bins;
    std::map<std::pair<int, int>, std::vector<Child>> suns;
    for (const SunCell& sun : sky.sunCells) {
        std::uint32_t bin = 0;
        if (manyBins) {
            bin =
                bins.emplace(binOfDirection(sun.cell), static_cast<std::uint32_t>(bins.size() + 1))
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
    arrange();
    m_binCount = bins.size() + 1;
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
    m_groups.push_back({std::move(children)});
}

void LightSources::arrange() {
    m_laneLength = (m_groups.size() + lanes - 1) / lanes;
    for (std::vector<float>* values : {&m_x, &m_y, &m_z, &m_length}) {
        values->assign(m_laneLength * lanes, 0.0f);
    }
    for (std::size_t g = 0; g < m_groups.size(); ++g) {
        const std::size_t at = place(g / m_laneLength, g % m_laneLength);
        for (const Child& child : m_groups[g].children) {
            m_x[at] += child.vector.x;
            m_y[at] += child.vector.y;
            m_z[at] += child.vector.z;
        }
        m_length[at] = m_groups[g].children.back().upTo;
    }
}

void LightSources::findShares(const HourlySky& sky, const std::vector<std::uint32_t>& binOfSun) {
    m_shares.assign(sky.skyHours.size() * m_binCount, 0.0f);
    std::vector<double> sums(m_binCount, 0.0);
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
    forAll([&](std::size_t, std::uint32_t bin, double light) { sums[bin] += light; });
    forAll([&](std::size_t hour, std::uint32_t bin, double light) {
        if (sums[bin] > 0.0) {
            m_shares[hour * m_binCount + bin] += static_cast<float>(light / sums[bin]);
        }
    });
}

void LightSources::draw(const XYZf& normal, std::uint64_t seed, std::size_t count,
                        std::vector<Ray>& rays) const {
    rays.clear();
    const bool everywhere = vectorLength(normal) == 0.0f;
    static thread_local std::vector<float> weights;
    weights.resize(m_length.size());
    // A group whose middle lies behind the surface may have cells in front of it: those within ten
    // degrees keep a small weight, which their rays make up for.
    constexpr float behind = -0.17f;
    constexpr float least = 0.06f;
    std::array<float, lanes> laneSums{};
    for (std::size_t i = 0; i < weights.size(); i += lanes) {
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const std::size_t g = i + lane;
            const float along = normal.x * m_x[g] + normal.y * m_y[g] + normal.z * m_z[g];
            const float weight = std::max(along, 0.0f) + least * m_length[g];
            const float front = along > behind * m_length[g] ? weight : 0.0f;
            weights[g] = everywhere ? m_length[g] : front;
            laneSums[lane] += weights[g];
        }
    }
    double whole = 0.0;
    for (const float part : laneSums) {
        whole += static_cast<double>(part);
    }
    if (!(whole > 0.0) || count == 0) {
        return;
    }
    const double step = whole / static_cast<double>(count);
    double next = step * unitNumber(mixedBits(seed));
    double before = 0.0;
    for (std::size_t lane = 0; lane < lanes && rays.size() < count; ++lane) {
        const double laneEnd = before + static_cast<double>(laneSums[lane]);
        double from = before;
        for (std::size_t i = 0; i < m_laneLength && next < laneEnd && rays.size() < count; ++i) {
            const std::size_t at = place(lane, i);
            const auto weight = static_cast<double>(weights[at]);
            for (; next < from + weight && rays.size() < count; next += step) {
                const float inside = static_cast<float>((next - from) / weight) * m_length[at];
                drawFrom(m_groups[lane * m_laneLength + i], inside,
                         static_cast<float>(step / weight) * m_length[at], normal, everywhere,
                         mixedBits(seed, rays.size() + 1), rays);
            }
            from += weight;
        }
        before = laneEnd;
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
