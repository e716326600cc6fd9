#include <insolate/hourly/ground_rays.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

namespace insolate {
namespace {

int bandsOf(int rays) {
    return rays <= 0 ? 0
                     : std::max(1, static_cast<int>(std::lround(
                                       std::sqrt(std::min(rays, GroundRays::mostRays) / 3.0))));
}

int sectorsOf(int rays) {
    return rays <= 0 ? 0 : std::max(3, std::min(rays, GroundRays::mostRays) / bandsOf(rays));
}

std::vector<GroundPiece> groundPieces(int bands, int sectors, double northOffset) {
    std::vector<GroundPiece> pieces;
    const auto spread = [](int i) {
        const double place = 0.25 + i / std::numbers::phi;
        return place - std::floor(place);
    };
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
            const auto moment = [&](double from, double to) {
                return XYZf{static_cast<float>(level * (std::cos(from) - std::cos(to))),
                            static_cast<float>(level * (std::sin(to) - std::sin(from))),
                            static_cast<float>(-down * (to - from) / width)};
            };
            piece.moment = moment(a0, a1);
            for (std::size_t part = 0; part < piece.moments.size(); ++part) {
                const double size = width / static_cast<double>(piece.moments.size());
                const double from = a0 + static_cast<double>(part) * size;
                piece.moments[part] = moment(from, from + size);
            }
            const double sine = (band + spread(sector)) / bands;
            const double turn = a0 + spread(band) * width;
            const double cosine = std::sqrt(1.0 - sine * sine);
            piece.direction = {static_cast<float>(cosine * std::sin(turn)),
                               static_cast<float>(cosine * std::cos(turn)),
                               static_cast<float>(-sine)};
            piece.solidAngle = static_cast<float>((std::sin(h1) - std::sin(h0)) * width);
            pieces.push_back(piece);
        }
    }
    return pieces;
}

} // namespace

GroundRays::GroundRays(int rays, double northOffset)
    : pieces(groundPieces(bandsOf(rays), sectorsOf(rays), northOffset)), bands(bandsOf(rays)),
      sectors(sectorsOf(rays)) {
    std::vector<SkyCellSet> taken;
    std::vector<std::vector<XYZf>> directions;
    for (const GroundPiece& piece : pieces) {
        const XYZf& d = piece.direction;
        const double turn = std::atan2(static_cast<double>(d.x), static_cast<double>(d.y));
        const double depth = std::acos(std::clamp(static_cast<double>(-d.z), 0.0, 1.0));
        const int sector = static_cast<int>(std::floor(turn / skyGrid::cellWidth));
        Cell cell;
        cell.azimuth = (sector + skyGrid::azimuthCount) % skyGrid::azimuthCount;
        cell.altitude =
            std::min(static_cast<int>(depth / skyGrid::cellWidth), skyGrid::altitudeCount - 1);
        cell.set = 0;
        while (cell.set < taken.size() && taken[cell.set].contains(cell.azimuth, cell.altitude)) {
            ++cell.set;
        }
        if (cell.set == taken.size()) {
            taken.emplace_back();
            directions.emplace_back(skyGrid::cellCount, XYZf{0, 0, 0});
        }
        taken[cell.set].insert(cell.azimuth, cell.altitude);
        directions[cell.set]
                  [static_cast<std::size_t>(skyGrid::cellIndex(cell.azimuth, cell.altitude))] = d;
        cells.push_back(cell);
    }
    for (std::size_t i = 0; i < taken.size(); ++i) {
        sets.emplace_back(
            std::span<const XYZf, skyGrid::cellCount>(directions[i].data(), skyGrid::cellCount),
            taken[i]);
    }
}

} // namespace insolate
