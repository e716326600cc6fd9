#include <insolate/hourly/sensor_kernels.h>
#include <insolate/hourly/sky_parts.h>

#include <cmath>

namespace insolate {
namespace {

/// Sine of the angle from a cell's middle to its farthest corner, 3.54 degrees, and a little more:
/// a cell this far from the surface's plane lies on one side of it.
constexpr float farFromPlane = 0.0629f;

} // namespace

SkyParts::Part SkyParts::partOf(const HourlySky& sky, const std::vector<int>& sunCellOf) {
    Part part;
    part.diffuse = sky.diffuse;
    part.groundReflected = static_cast<float>(sky.groundReflected);
    part.steps.reserve(sky.sunSteps.size());
    for (const SunStep& step : sky.sunSteps) {
        part.steps.push_back(step.energy);
    }
    for (const SunCell& cell : sky.sunCells) {
        const int sunCell = sunCellOf[static_cast<std::size_t>(cell.cell)];
        if (sunCell < 0) {
            continue;
        }
        // The steps of a cell are in the order of their places, the lower half first.
        const auto first = static_cast<std::size_t>(cell.firstStep);
        const std::size_t end = first + static_cast<std::size_t>(cell.stepCount);
        std::size_t middle = first;
        while (middle < end && FirstRays::halfOf(sky.sunSteps[middle]) == 0) {
            ++middle;
        }
        for (int half = 0; half < 2; ++half) {
            HalfSun sun;
            sun.sunCell = sunCell;
            sun.half = half;
            const std::size_t begin = half == 0 ? first : middle;
            const std::size_t stop = half == 0 ? middle : end;
            std::array<double, 3> energy{};
            double hours = 0.0;
            for (std::size_t s = begin; s < stop; ++s) {
                const SunStep& step = sky.sunSteps[s];
                energy[0] += static_cast<double>(step.energy.x);
                energy[1] += static_cast<double>(step.energy.y);
                energy[2] += static_cast<double>(step.energy.z);
                hours += static_cast<double>(step.sunHours);
            }
            sun.energy = {static_cast<float>(energy[0]), static_cast<float>(energy[1]),
                          static_cast<float>(energy[2])};
            sun.hours = static_cast<float>(hours);
            sun.steps = std::span<const XYZf>(part.steps).subspan(begin, stop - begin);
            part.suns.push_back(sun);
        }
    }
    return part;
}

SkyParts::SkyParts(const HourlySky& whole, const FirstRays& first,
                   const std::vector<HourlySky>& parts) {
    if (parts.empty()) {
        return;
    }
    const SkyCells cells(whole.options.northOffset);
    std::vector<int> sunCellOf(static_cast<std::size_t>(skyGrid::cellCount), -1);
    for (const SunCell& cell : whole.sunCells) {
        const auto index = static_cast<std::size_t>(cell.cell);
        sunCellOf[index] = static_cast<int>(m_cells.size());
        m_cells.push_back(cell.cell);
        m_centres.push_back(cells.centre[index]);
    }
    for (std::size_t half = 0; half < 2; ++half) {
        const FirstRays::Sun& sun = first.sun[half];
        for (std::size_t j = 0; j < m_cells.size(); ++j) {
            m_rays[half].push_back({sun.rayX[j], sun.rayY[j], sun.rayZ[j]});
        }
    }
    m_whole = partOf(whole, sunCellOf);
    for (const HourlySky& part : parts) {
        m_parts.push_back(partOf(part, sunCellOf));
    }
}

/// What one sensor gets from the halves of the whole's sun cells.
class SkyParts::HalfSums {
public:
    HalfSums(const SkyParts& parts, const Seen& seen) : m_parts(parts), m_seen(seen) {
        const std::vector<HalfSun>& suns = parts.m_whole.suns;
        m_halves.resize(suns.size());
        for (std::size_t j = 0; j < parts.m_cells.size(); ++j) {
            addCell(j, std::span(m_halves).subspan(2 * j, 2), std::span(suns).subspan(2 * j, 2));
        }
    }

    /// [Wh/m2]
    double beamOf(const HalfSun& sun) const {
        const Half& half = halfOf(sun);
        if (half.factor == 0.0) {
            return 0.0;
        }
        return half.factor *
               static_cast<double>(half.isCut ? bySteps(sun.steps) : received(sun.energy));
    }
    /// [h]
    double hoursOf(const HalfSun& sun) const {
        return static_cast<double>(halfOf(sun).timeSeen * sun.hours);
    }

private:
    struct Half {
        bool isCut = false;
        double factor = 0.0; ///< on what a sun brings there, in the way that isCut says
        float timeSeen = 0.0f;
    };

    const Half& halfOf(const HalfSun& sun) const {
        return m_halves[static_cast<std::size_t>(2 * sun.sunCell + sun.half)];
    }
    float received(const XYZf& vector) const {
        // The length, which points without a surface alone take, costs more than all else here.
        const float measure = m_seen.sides == Sides::NoSurface ? vectorLength(vector) : 0.0f;
        return weightOnSurface(m_seen.sides, m_seen.normal, vector, measure);
    }
    float bySteps(std::span<const XYZf> steps) const {
        double sum = 0.0;
        for (const XYZf& step : steps) {
            sum += static_cast<double>(received(step));
        }
        return static_cast<float>(sum);
    }

    void addCell(std::size_t j, std::span<Half> halves, std::span<const HalfSun> suns) const {
        const float height = dotProduct(m_seen.normal, m_parts.m_centres[j]);
        const bool isBehind = m_seen.sides == Sides::One && height < -farFromPlane;
        if (isBehind) {
            return;
        }
        const bool isCut = m_seen.sides == Sides::NoSurface || std::abs(height) < farFromPlane;
        const auto cell = static_cast<std::size_t>(m_parts.m_cells[j]);
        std::array<double, 2> weight{}; // what the whole counts in the halves
        std::array<double, 2> single{}; // what its steps bring there
        std::array<double, 2> visible{};
        for (std::size_t half = 0; half < 2; ++half) {
            weight[half] = static_cast<double>(received(suns[half].energy));
            single[half] = isCut ? static_cast<double>(bySteps(suns[half].steps)) : weight[half];
            visible[half] = static_cast<double>(m_seen.visible[half][cell]);
            const bool faced = m_seen.sides != Sides::One ||
                               dotProduct(m_seen.normal, m_parts.m_rays[half][j]) > 0.0f;
            halves[half].isCut = isCut;
            halves[half].timeSeen = faced ? m_seen.visible[half][cell] : 0.0f;
        }
        const double counted =
            static_cast<double>(m_seen.sunWeight[j]) * static_cast<double>(m_seen.sunVisible[j]);
        // The halves share what was counted by what they let through; a cell that was looked at
        // again may count more than its first rays saw, and then all of its sun shares.
        std::array<double, 2> share = {visible[0] * weight[0], visible[1] * weight[1]};
        if (!(share[0] + share[1] > 0.0)) {
            share = single;
        }
        const double shares = share[0] + share[1];
        for (std::size_t half = 0; half < 2; ++half) {
            if (shares > 0.0 && single[half] > 0.0) {
                halves[half].factor = counted * (share[half] / shares) / single[half];
            }
        }
    }

    const SkyParts& m_parts;
    const Seen& m_seen;
    std::vector<Half> m_halves;
};

void SkyParts::evaluate(const Seen& seen, std::span<SensorPart> parts) const {
    const HalfSums halves(*this, seen);
    for (std::size_t p = 0; p < m_parts.size() && p < parts.size(); ++p) {
        const Part& part = m_parts[p];
        double beam = 0.0;
        double hours = 0.0;
        for (const HalfSun& sun : part.suns) {
            beam += halves.beamOf(sun);
            hours += halves.hoursOf(sun);
        }
        SensorPart& result = parts[p];
        result.beam = static_cast<float>(beam);
        static_assert(sensorKernels::cellCount % sensorKernels::lanes == 0);
        result.sky =
            sensorKernels::sumOfProducts(seen.cells, part.diffuse.data(), sensorKernels::cellCount);
        result.ground = part.groundReflected * seen.groundView;
        result.total = result.beam + result.sky + result.ground;
        result.directSunHours = seen.hoursScale * static_cast<float>(hours);
    }
}

} // namespace insolate
