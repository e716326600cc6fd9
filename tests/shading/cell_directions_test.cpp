#include "../support/keep_global_site.h"

#include <insolate/geometry/geometry.h>
#include <insolate/shading/cell_directions.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

using insolate::allCellDirections;
using insolate::cellDirection;
using insolate::test::KeepGlobalSite;

constexpr double radiansPerDegree = std::numbers::pi / 180.0;

/// Compass azimuth 0..360 and altitude [degrees] of a direction of a model without north offset.
struct Compass {
    explicit Compass(const XYZf& d)
        : azimuth(std::fmod(std::atan2(d.x, d.y) / radiansPerDegree + 360.0, 360.0)),
          altitude(std::asin(static_cast<double>(d.z)) / radiansPerDegree) {}
    double azimuth, altitude;
};

TEST(CellDirections, PointAtTheCellsCentresClockwiseFromNorth) {
    for (const double offset : {0.0, 30.0, -90.0, 200.0}) {
        const KeepGlobalSite north(offset * radiansPerDegree);
        const auto directions = allCellDirections();
        for (int cell = 0; cell < 1296; ++cell) {
            const XYZf d = directions->direction[static_cast<std::size_t>(cell)];
            const Compass compass(d);
            // Single precision near the zenith resolves the azimuth to some 1e-4 degrees.
            const double turn = compass.azimuth - (5 * (cell % 72) + 2.5 + offset);
            ASSERT_NEAR(std::remainder(turn, 360.0), 0.0, 1e-3) << cell;
            ASSERT_NEAR(compass.altitude, 5 * (cell / 72) + 2.5, 2e-3);
            ASSERT_NEAR(d.x * d.x + d.y * d.y + d.z * d.z, 1.0f, 1e-6f);
            ASSERT_EQ(cellDirection(cell % 72, cell / 72).x, d.x);
        }
    }
}

TEST(CellDirections, KeepAJitteredDirectionUntilTheNorthOffsetChanges) {
    const KeepGlobalSite north(0.25);
    const auto forgetAll = [] {
        ESolarPosition::Global.setNorthOffset(0.25);
        cellDirection(0, 0);
        ESolarPosition::Global.setNorthOffset(0.0);
    };
    forgetAll();
    EGeometry::SeedRandomiser(5);
    const double across = (EGeometry::RandomNumber() * 0.6 + 0.2) * 5 * radiansPerDegree;
    const double up = (EGeometry::RandomNumber() * 0.6 + 0.2) * 5 * radiansPerDegree;
    EGeometry::SeedRandomiser(5);
    const Compass jittered(cellDirection(20, 6, true));
    // The random numbers exceed 1 where the platform's do: any angle may come out.
    const double altitude = (30 + 5 * up) * radiansPerDegree;
    EXPECT_NEAR(std::sin(jittered.altitude * radiansPerDegree), std::sin(altitude), 1e-3);
    const double turn = std::cos(altitude) < 0 ? 180.0 : 0.0;
    EXPECT_NEAR(std::remainder(jittered.azimuth - turn - (100 + 5 * across), 360.0), 0.0, 0.2);

    EXPECT_EQ(Compass(cellDirection(20, 6)).azimuth, jittered.azimuth);
    EXPECT_EQ(Compass(allCellDirections()->direction[6 * 72 + 20]).azimuth, jittered.azimuth);
    EXPECT_NEAR(Compass(cellDirection(21, 6)).azimuth, 107.5, 1e-4);
    EXPECT_NEAR(Compass(cellDirection(21, 6, true)).azimuth, 107.5, 1e-4) << "known by now";
    forgetAll();
    EXPECT_NEAR(Compass(cellDirection(20, 6)).azimuth, 102.5, 1e-4);
}

} // namespace
