#include <insolate/hourly/sensor_kernels.h>
#include <insolate/hourly/sky_parts.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace insolate {
namespace {

/// The weight on a sensor's surface of the energy that comes along a vector.
float received(const SkyParts::Seen& seen, const XYZf& vector) {
    // The length, which points without a surface alone take, costs more than all else here.
    const float measure = seen.sides == Sides::NoSurface ? vectorLength(vector) : 0.0f;
    return weightOnSurface(seen.sides, seen.normal, vector, measure);
}

float received(const SkyParts::Seen& seen, std::span<const XYZf> steps) {
    double sum = 0.0;
    for (const XYZf& step : steps) {
        sum += static_cast<double>(received(seen, step));
    }
    return static_cast<float>(sum);
}

} // namespace

/// Calls use(cell, half, sun) for the sun of a sky in each half of its cells.
template <typename Use>
void SkyParts::forEachSun(const HourlySky& sky, Use&& use) {
    std::vector<XYZf>& steps = m_steps.emplace_back();
    steps.reserve(sky.sunSteps.size());
    for (const SunStep& step : sky.sunSteps) {
        steps.push_back(step.energy);
    }
    for (const SunCell& cell : sky.sunCells) {
        auto begin = static_cast<std::size_t>(cell.firstStep);
        const std::array<std::span<const SunStep>, 2> ofHalves = FirstRays::stepsOf(sky, cell);
        for (std::size_t half = 0; half < 2; ++half) {
            const std::span<const SunStep> own = ofHalves[half];
            std::array<double, 3> energy{};
            double hours = 0.0;
            for (const SunStep& step : own) {
                energy[0] += static_cast<double>(step.energy.x);
                energy[1] += static_cast<double>(step.energy.y);
                energy[2] += static_cast<double>(step.energy.z);
                hours += static_cast<double>(step.sunHours);
            }
            HalfSun sun;
            sun.energy = {static_cast<float>(energy[0]), static_cast<float>(energy[1]),
                          static_cast<float>(energy[2])};
            sun.hours = static_cast<float>(hours);
            sun.steps = std::span<const XYZf>(steps).subspan(begin, own.size());
            begin += own.size();
            use(cell.cell, half, sun);
        }
    }
}

SkyParts::SkyParts(const HourlySky& whole, const std::vector<HourlySky>& parts) {
    if (parts.empty()) {
        return;
    }
    const SkyCells skyCells(whole.options.northOffset);
    constexpr std::size_t none = static_cast<std::size_t>(skyGrid::cellCount);
    std::vector<std::size_t> placeOf(none, none);
    for (const SunCell& cell : whole.sunCells) {
        const auto index = static_cast<std::size_t>(cell.cell);
        placeOf[index] = m_cells.size();
        m_cells.push_back({cell.cell, skyCells.centre[index], {}});
    }
    m_steps.reserve(1 + parts.size());
    forEachSun(whole, [&](int cell, std::size_t half, const HalfSun& sun) {
        m_cells[placeOf[static_cast<std::size_t>(cell)]].halves[half].whole = sun;
    });
    for (const HourlySky& part : parts) {
        std::vector<std::size_t> cells;
        forEachSun(part, [&](int cell, std::size_t half, const HalfSun& sun) {
            const std::size_t place = placeOf[static_cast<std::size_t>(cell)];
            if (place != none && !sun.steps.empty()) {
                m_cells[place].halves[half].parts.push_back({m_parts.size(), sun});
                if (cells.empty() || cells.back() != place) { // the halves follow each other
                    cells.push_back(place);
                }
            }
        });
        m_parts.push_back(
            {part.diffuse, static_cast<float>(part.groundReflected), std::move(cells)});
    }
}

void SkyParts::addCell(const Seen& seen, std::size_t cell, std::size_t first,
                       std::span<SunSums> sums) const {
    const Cell& sunCell = m_cells[cell];
    const float height = dotProduct(seen.normal, sunCell.centre);
    const bool isBehind = seen.sides == Sides::One && height < -farFromPlane;
    const auto index = static_cast<std::size_t>(sunCell.index);
    const std::array<float, 2> times{seen.sunTimes[0][cell], seen.sunTimes[1][cell]};
    const double counted =
        static_cast<double>(seen.sunWeight[cell]) * static_cast<double>(seen.sunVisible[cell]);
    if (isBehind || (counted == 0.0 && times[0] == 0.0f && times[1] == 0.0f)) {
        return;
    }
    const bool isCut = seen.sides == Sides::NoSurface || std::abs(height) < farFromPlane;
    const auto brought = [&](const HalfSun& sun) {
        return static_cast<double>(isCut ? received(seen, sun.steps) : received(seen, sun.energy));
    };
    std::array<double, 2> single{}; // what the whole's steps bring in the halves
    std::array<double, 2> share{};
    for (std::size_t half = 0; half < 2; ++half) {
        const HalfSun& sun = sunCell.halves[half].whole;
        single[half] = brought(sun);
        share[half] = static_cast<double>(seen.sunShares[half][index]) *
                      static_cast<double>(received(seen, sun.energy));
    }
    // The halves share what was counted by what they let through; a cell that was looked at
    // again may count more than its first rays saw, and then all of its sun shares.
    if (!(share[0] + share[1] > 0.0)) {
        share = single;
    }
    const double shares = share[0] + share[1];
    for (std::size_t i = 0; i < 2; ++i) {
        const Half& half = sunCell.halves[i];
        const float through = seen.timeThrough != nullptr ? seen.timeThrough[cell] : 1.0f;
        const float timeSeen = times[i] * through;
        const double factor =
            shares > 0.0 && single[i] > 0.0 ? counted * (share[i] / shares) / single[i] : 0.0;
        auto entry = half.parts.begin();
        if (first > 0) {
            entry = std::lower_bound(
                entry, half.parts.end(), first,
                [](const PartSun& one, std::size_t part) { return one.part < part; });
        }
        for (; entry != half.parts.end() && entry->part < first + sums.size(); ++entry) {
            SunSums& sum = sums[entry->part - first];
            sum.hours += static_cast<double>(timeSeen * entry->sun.hours);
            if (factor > 0.0) {
                sum.beam += factor * brought(entry->sun);
            }
        }
    }
}

void SkyParts::evaluate(const Seen& seen, std::size_t first, std::span<SensorPart> parts) const {
    const std::size_t count =
        first < m_parts.size() ? std::min(parts.size(), m_parts.size() - first) : 0;
    std::vector<SunSums> sums(count);
    if (count == 1) { // of many: few cells have its sun
        for (const std::size_t cell : m_parts[first].cells) {
            addCell(seen, cell, first, sums);
        }
    } else {
        for (std::size_t cell = 0; cell < m_cells.size(); ++cell) {
            addCell(seen, cell, first, sums);
        }
    }
    for (std::size_t p = 0; p < count; ++p) {
        const Part& part = m_parts[first + p];
        SensorPart& result = parts[p];
        result.beam = static_cast<float>(sums[p].beam);
        static_assert(sensorKernels::cellCount % sensorKernels::lanes == 0);
        result.sky = seen.skyScale * sensorKernels::sumOfProducts(seen.cells, part.diffuse.data(),
                                                                  sensorKernels::cellCount);
        result.ground = part.groundReflected * seen.groundView;
        result.total = result.beam + result.sky + result.ground;
        result.directSunHours = static_cast<float>(sums[p].hours);
    }
}

} // namespace insolate
