#include "north.h"

#include <insolate/geometry/geometry.h>
#include <insolate/shading/cell_directions.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <thread>
#include <vector>

namespace {

using insolate::allCellDirections;
using insolate::cellDirection;
using insolate::CellDirections;
using insolate::test::NorthOffset;

constexpr double degree = std::numbers::pi / 180.0;

/// Compass azimuth 0..360 and altitude [degrees] of a direction of a model without north offset.
struct Compass {
    explicit Compass(const XYZf& d)
        : azimuth(std::fmod(std::atan2(d.x, d.y) / degree + 360.0, 360.0)),
          altitude(std::asin(static_cast<double>(d.z)) / degree) {}
    double azimuth, altitude;
};

TEST(CellDirections, PointAtTheCellsCentresClockwiseFromNorth) {
    for (const double offset : {0.0, 30.0, -90.0, 200.0}) {
        const NorthOffset north(offset * degree);
        const auto directions = allCellDirections();
        for (int altitude = 0; altitude < 18; ++altitude) {
            for (int azimuth = 0; azimuth < 72; ++azimuth) {
                const XYZf d = directions->direction[static_cast<std::size_t>(
                    insolate::skyGrid::cellIndex(azimuth, altitude))];
                const Compass compass(d);
                // Single precision near the zenith resolves the azimuth to some 1e-4 degrees.
                const double turn = compass.azimuth - (5 * azimuth + 2.5 + offset);
                ASSERT_NEAR(std::remainder(turn, 360.0), 0.0, 1e-3) << azimuth << ' ' << altitude;
                ASSERT_NEAR(compass.altitude, 5 * altitude + 2.5, 2e-3);
                ASSERT_NEAR(d.x * d.x + d.y * d.y + d.z * d.z, 1.0f, 1e-6f);
                ASSERT_EQ(cellDirection(azimuth, altitude).x, d.x);
            }
        }
    }
}

TEST(CellDirections, KeepAJitteredDirectionUntilTheNorthOffsetChanges) {
    const NorthOffset north(0.25);
    cellDirection(0, 0);
    ESolarPosition::Global.setNorthOffset(0.0); // forgets all
    EGeometry::SeedRandomiser(5);
    const double across = (EGeometry::RandomNumber() * 0.6 + 0.2) * 5 * degree;
    const double up = (EGeometry::RandomNumber() * 0.6 + 0.2) * 5 * degree;
    EGeometry::SeedRandomiser(5);
    const Compass jittered(cellDirection(20, 6, true));
    // The random numbers exceed 1 where the platform's do: any angle may come out.
    const double altitude = (30 + 5 * up) * degree;
    EXPECT_NEAR(std::sin(jittered.altitude * degree), std::sin(altitude), 1e-3);
    const double turn = std::cos(altitude) < 0 ? 180.0 : 0.0;
    EXPECT_NEAR(std::remainder(jittered.azimuth - turn - (100 + 5 * across), 360.0), 0.0, 0.2);

    EXPECT_EQ(Compass(cellDirection(20, 6)).azimuth, jittered.azimuth);
    EXPECT_NEAR(Compass(cellDirection(21, 6)).azimuth, 107.5, 1e-4);
    EXPECT_EQ(Compass(cellDirection(21, 6, true)).azimuth, Compass(cellDirection(21, 6)).azimuth);
    EXPECT_EQ(Compass(allCellDirections()->direction[6 * 72 + 20]).azimuth, jittered.azimuth);

    ESolarPosition::Global.setNorthOffset(0.25);
    cellDirection(0, 0);
    ESolarPosition::Global.setNorthOffset(0.0);
    EXPECT_NEAR(Compass(cellDirection(20, 6)).azimuth, 102.5, 1e-4);
}

TEST(CellDirections, AreSharedByThreads) {
    for (const double offset : {0.5, 0.75, 0.5}) {
        const NorthOffset north(offset);
        std::vector<std::shared_ptr<const CellDirections>> seen(8);
        std::vector<std::thread> threads;
        for (auto& mine : seen) {
            threads.emplace_back([&mine] {
                mine = allCellDirections();
                cellDirection(3, 3);
                EXPECT_EQ(allCellDirections(), mine);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const auto& mine : seen) {
            EXPECT_EQ(mine, seen[0]);
            EXPECT_EQ(mine->northOffset, offset);
        }
    }
}

} // namespace
