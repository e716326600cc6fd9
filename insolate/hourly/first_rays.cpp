#include <insolate/hourly/first_rays.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace insolate {
namespace {

constexpr float directionOnly = 1e-20f; // [Wh/m2]

double part(double value) {
    return value - std::floor(value);
}

XYZf directionOf(double sector, double band, double northOffset) {
    const double azimuth = sector * skyGrid::cellWidth + northOffset;
    const double altitude = band * skyGrid::cellWidth;
    return {static_cast<float>(std::cos(altitude) * std::sin(azimuth)),
            static_cast<float>(std::cos(altitude) * std::cos(azimuth)),
            static_cast<float>(std::sin(altitude))};
}

/// A sum over the sun's steps, for its direction.
struct Mean {
    std::array<double, 3> sum{};
    void add(const XYZf& value) {
        sum[0] += static_cast<double>(value.x);
        sum[1] += static_cast<double>(value.y);
        sum[2] += static_cast<double>(value.z);
    }
    double length() const { return std::hypot(sum[0], sum[1], sum[2]); }
    XYZf scaled(double factor) const {
        return {static_cast<float>(sum[0] * factor), static_cast<float>(sum[1] * factor),
                static_cast<float>(sum[2] * factor)};
    }
};

} // namespace

double rayLattice::placeX(int altitude) {
    return part(0.25 + altitude / std::numbers::phi);
}

double rayLattice::placeY(int azimuth) {
    return part(0.25 + azimuth / std::numbers::phi);
}

std::array<std::vector<XYZf>, 2> rayLattice::pair(double moveX, double moveY, double northOffset) {
    std::array<std::vector<XYZf>, 2> directions;
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        const int azimuth = cell % skyGrid::azimuthCount;
        const int altitude = cell / skyGrid::azimuthCount;
        double x = part(placeX(altitude) + moveX);
        double y = part(placeY(azimuth) + moveY);
        for (std::size_t half = 0; half < 2; ++half) {
            if ((y >= 0.5) != (half == 1)) {
                x = part(x + 0.5);
                y = part(y + 0.5);
            }
            directions[half].push_back(directionOf(azimuth + x, altitude + y, northOffset));
        }
    }
    return directions;
}

std::array<std::span<const SunStep>, 2> FirstRays::stepsOf(const HourlySky& sky,
                                                           const SunCell& cell) {
    const std::span<const SunStep> steps = std::span(sky.sunSteps)
                                               .subspan(static_cast<std::size_t>(cell.firstStep),
                                                        static_cast<std::size_t>(cell.stepCount));
    const auto middle = static_cast<std::size_t>(
        std::ranges::find(steps, std::size_t{1}, FirstRays::halfOf) - steps.begin());
    return {steps.first(middle), steps.subspan(middle)};
}

XYZf FirstRays::towards(const HourlySky& sky, const SunCell& cell, std::span<const SunStep> steps) {
    std::array<double, 2> sums{}; // in shares of the cell's width and height
    for (const SunStep& step : steps) {
        std::array<unsigned, 2> axes{};
        for (unsigned bit = 0; bit < 12; ++bit) {
            axes[bit % 2] |= (step.place >> bit & 1U) << bit / 2;
        }
        sums[0] += (axes[0] + 0.5) / 64.0;
        sums[1] += (axes[1] + 0.5) / 64.0;
    }
    const auto count = static_cast<double>(steps.size());
    const int azimuth = cell.cell % skyGrid::azimuthCount;
    const int altitude = cell.cell / skyGrid::azimuthCount;
    return directionOf(azimuth + sums[0] / count, altitude + sums[1] / count,
                       sky.options.northOffset);
}

FirstRays::FirstRays(const HourlySky& sky) : ofLattice{SkyCellSet::all(), SkyCellSet::all()} {
    std::array<std::vector<XYZf>, 2> rays = rayLattice::pair(0.0, 0.0, sky.options.northOffset);
    for (const SunCell& cell : sky.sunCells) {
        const int azimuth = cell.cell % skyGrid::azimuthCount;
        const int altitude = cell.cell / skyGrid::azimuthCount;
        withSun.insert(azimuth, altitude);
        cellOfSun.push_back(cell.cell);
        const std::array<std::span<const SunStep>, 2> steps = stepsOf(sky, cell);
        for (std::size_t half = 0; half < 2; ++half) {
            Mean energy;
            double hours = 0.0;
            for (const SunStep& step : steps[half]) {
                energy.add(step.energy);
                hours += static_cast<double>(step.sunHours);
            }
            XYZf& ray = rays[half][static_cast<std::size_t>(cell.cell)];
            XYZf kept = energy.scaled(1.0);
            if (!steps[half].empty()) {
                ray = towards(sky, cell, steps[half]);
                ofLattice[half].erase(azimuth, altitude);
            }
            if (!(energy.length() > 0.0)) {
                kept = {ray.x * directionOnly, ray.y * directionOnly, ray.z * directionOnly};
            }
            sun[half].energyX.push_back(kept.x);
            sun[half].energyY.push_back(kept.y);
            sun[half].energyZ.push_back(kept.z);
            sun[half].hours.push_back(static_cast<float>(hours));
            sun[half].rayX.push_back(ray.x);
            sun[half].rayY.push_back(ray.y);
            sun[half].rayZ.push_back(ray.z);
        }
    }
    const std::size_t padded = (cellOfSun.size() + 15) / 16 * 16;
    cellOfSun.resize(padded, 0);
    for (std::size_t half = 0; half < 2; ++half) {
        for (std::vector<float>* values :
             {&sun[half].energyX, &sun[half].energyY, &sun[half].energyZ, &sun[half].hours,
              &sun[half].rayX, &sun[half].rayY, &sun[half].rayZ}) {
            values->resize(padded, 0.0f);
        }
        directions[half] = SkyDirections(
            std::span<const XYZf, skyGrid::cellCount>(rays[half].data(), rays[half].size()));
    }
}

} // namespace insolate
