#include <insolate/geometry/arc_cosine.h>
#include <insolate/geometry/geometry.h>
#include <insolate/geometry/triangular_facet.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr float pi = 3.1415927f;
constexpr float halfPi = 1.5707964f;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

void expectNear(XYZf actual, XYZf expected, const char* what = "", float tolerance = 1e-6f) {
    EXPECT_NEAR(actual.x, expected.x, tolerance) << what;
    EXPECT_NEAR(actual.y, expected.y, tolerance) << what;
    EXPECT_NEAR(actual.z, expected.z, tolerance) << what;
}

void expectSame(XYZf actual, XYZf expected) {
    expectNear(actual, expected, "", 0.0f);
}

TEST(Geometry, ComparesAndMeasuresDistances) {
    EXPECT_FALSE(EGeometry::VeryClose(1.0f, 1.0f + 1.2e-7f));
    EXPECT_FALSE(EGeometry::VeryClose(1.0f + 1.2e-7f, 1.0f));
    EXPECT_TRUE(EGeometry::VeryClose(0.0f, 5e-10f));
    EXPECT_TRUE(EGeometry::VeryClose(2.0f, 2.5f, 0.5f));
    EXPECT_TRUE(EGeometry::VeryClose(nan, 0.0f));
    EXPECT_EQ(EGeometry::Distance({1, 2, 3}, {3, 5, 9}), 7.0f);
    EXPECT_EQ(EGeometry::Distance({1, 2, nan}, {3, 5, 9}), 0.0f);
    // At (0.5, 1) the point is farther from a than b is: the distance to b; negative x is behind a.
    const float cases[][3] = {{5, 0, 4},  {0.5f, 0.5f, 0.5f}, {0.5f, 1, std::sqrt(1.25f)},
                              {-3, 0, 3}, {0.5f, 0, 0},       {-1, 1, std::sqrt(2.0f)}};
    for (const auto& [x, y, distance] : cases) {
        EXPECT_NEAR(EGeometry::DistanceToLine({x, y, 0}, {0, 0, 0}, {1, 0, 0}), distance, 1e-6f)
            << x << ' ' << y;
    }
    EXPECT_EQ(EGeometry::DistanceToLine({3, 4, 0}, {0, 0, 0}, {0, 0, 0}), 5.0f);
}

TEST(Geometry, MeasuresAnglesOfSight) {
    // Altitudes and azimuths in degrees.
    const float cases[][5] = {{0, 0, 2, 90, 0},   {0, 0, -2, -90, 0},   {0, 0, 0, 0, 0},
                              {1, 0, 1, 45, 0},   {0, -1, 0, 0, -90},   {0, 1, 0, 0, 90},
                              {-1, 0, 0, 0, 180}, {-1, -1, 0, 0, -135}, {3, 4, -5, -45, 53.13f}};
    for (const auto& [x, y, z, altitude, azimuth] : cases) {
        const XYZf from = {1, -2, 4};
        const XYZf target = {1 + x, -2 + y, 4 + z};
        EXPECT_NEAR(EGeometry::Altitude(from, target), altitude * pi / 180, 1e-6f) << x << ' ' << y;
        EXPECT_NEAR(EGeometry::Azimuth(from, target), azimuth * pi / 180, 1e-5f) << x << ' ' << y;
    }
}

TEST(Geometry, MeasuresTheAngleAtAVertex) {
    XYZf tip{};
    EXPECT_NEAR(EGeometry::Angle({1, 1, 1}, {3, 1, 1}, {1, 4, 1}, &tip), halfPi, 1e-6f);
    expectSame(tip, {1, 1, 7});
    EXPECT_NEAR(EGeometry::Angle({0, 0, 0}, {1, 0, 0}, {1, 1, 0}, nullptr), pi / 4, 1e-6f);
    EXPECT_EQ(EGeometry::Angle({0, 0, 0}, {2, 0, 0}, {5, 0, 0}, nullptr), 0.0f);
    EXPECT_EQ(EGeometry::Angle({0, 0, 0}, {2, 0, 0}, {-5, 0, 0}, nullptr), pi);
    EXPECT_EQ(EGeometry::Angle({1, 1, 1}, {1, 1, 1}, {2, 1, 1}, nullptr), halfPi);
    EXPECT_EQ(EGeometry::Angle({0, 0, 0}, {1e19f, 0, 0}, {1e19f, 1, 0}, nullptr), halfPi)
        << "lengths whose product leaves single precision";
}

TEST(Geometry, InterpolatesAndExtends) {
    EXPECT_EQ(EGeometry::DivideSafely(3, 0), 0.0f);
    EXPECT_EQ(EGeometry::DivideSafely(3, 4), 0.75f);
    expectNear(EGeometry::ExtendLine({0, 0, 0}, {3, 4, 0}, 10), {9, 12, 0});
    expectSame(EGeometry::ExtendLine({1, 2, 3}, {1, 2, 3}, 10), {1, 2, 3});
    EXPECT_EQ(EGeometry::Interpolate(3, 2, 6, 10, 30), 15.0f);
    EXPECT_EQ(EGeometry::Interpolate(3, 2, 2, 10, 30), 20.0f);
    EXPECT_EQ(EGeometry::InterpolateBetween(1.5f, 10, 30), 40.0f);
    expectSame(EGeometry::InterpolateLine({0, 10, 4}, {8, 30, 0}, 0.25f), {2, 15, 3});

    XYZf v = {0, 0, 0}; // with a length ExtendLine asks for it
    EXPECT_FALSE(EGeometry::Unify(&v.x, &v.y, &v.z));
    expectSame(v, {0, 0, 0});

    XYZf out{};
    EGeometry::IntersectPlane3D({1, 2, 4}, {1, 2, 3}, 0, 0, 2, 6, out);
    expectSame(out, {1, 2, -3});
    EGeometry::IntersectPlane3D({1, 2, 4}, {5, 6, 4}, 0, 0, 2, 6, out);
    expectSame(out, {1, 2, 4});

    EXPECT_TRUE(EGeometry::IsBetween({1.1f, 0, -0.1f}, {1, 0, 0}, {-1, 0, 0}, 0.2f));
    EXPECT_FALSE(EGeometry::IsBetween({0, 0, -0.3f}, {1, 0, 0}, {-1, 0, 0}, 0.2f));
}

TEST(Geometry, SnapsHalvesAwayFromZero) {
    const float cases[][3] = {{2.5f, 1, 3},        {-2.5f, 1, -3}, {2.4f, 1, 2},
                              {-0.5f, 1, 0},       {7, -2, 7},     {7, 1e-13f, 7},
                              {7, 5, 5},           {8, 5, 10},     {1e12f, 1, -2147483648.0f},
                              {0.3f, 0.25f, 0.25f}};
    for (const auto& [value, step, snapped] : cases) {
        EXPECT_EQ(EGeometry::SnapTo(value, step), snapped) << value << ' ' << step;
    }
}

TEST(Geometry, TurnsAndTilts) {
    const XYZf origin = {10, 20, 30};
    const auto from = [&](float x, float y, float z) {
        return XYZf{origin.x + x, origin.y + y, origin.z + z};
    };
    const float tilt = pi / 6;
    const float c = std::cos(tilt);
    const float s = std::sin(tilt);
    XYZf out{};
    EGeometry::RotateByAzimuth(from(2, 0, 5), origin, halfPi, out);
    expectNear(out, from(0, 2, 5), "counter-clockwise", 1e-5f);

    const struct {
        const char* name;
        XYZf point, expected;
    } tilts[] = {
        {"+x is lifted", {2, 1, 0}, {2 * c, 1, 2 * s}},
        {"-x sinks", {-2, 1, 0}, {-2 * c, 1, -2 * s}},
        {"in the plane of y", {1, 2, 0}, {1, 2 * c, 2 * s}},
        {"ties go to x", {2, -2, 0}, {2 * c, -2, 2 * s}},
        {"height counts", {2, 0, 1}, {2 * c - s, 0, c + 2 * s}},
    };
    for (const auto& [name, point, expected] : tilts) {
        EGeometry::RotateByAltitude(from(point.x, point.y, point.z), origin, tilt, out);
        expectNear(out, from(expected.x, expected.y, expected.z), name, 1e-5f);
    }

    EGeometry::RotateByPolar(from(1, 0, 0), origin, halfPi, tilt, out);
    expectNear(out, from(0, c, s), "tilted, then turned", 1e-5f);
    EGeometry::RotateByPolarReverse(from(1, 0, 0), origin, 2.0f, tilt, out);
    const float x = std::cos(2.0f);
    const float y = std::sin(2.0f);
    expectNear(out, from(x, y * c, y * s), "turned, then tilted along y", 1e-5f);

    XYZf p = from(1, 2, 3);
    for (auto* rotate : {EGeometry::RotateByPolar, EGeometry::RotateByPolarReverse}) {
        rotate(p, origin, 1e-9f, -1e-9f, out);
        expectSame(out, p);
    }
    EGeometry::RotateByPolar(p, origin, 0.5f, 0.25f, out);
    EGeometry::RotateByPolar(p, origin, 0.5f, 0.25f, p);
    expectSame(p, out);
}

TEST(Geometry, RandomNumbersRepeatWithTheirSeed) {
    EGeometry::SeedRandomiser(7);
    const float first = EGeometry::RandomNumber();
    EXPECT_NE(EGeometry::RandomNumber(), first);
    EGeometry::SeedRandomiser(7);
    EXPECT_EQ(EGeometry::RandomNumber(), first);
    EGeometry::SeedRandomiser(0);
    EXPECT_NE(EGeometry::RandomNumber(), EGeometry::RandomNumber());
}

TEST(Geometry, RoundsArcCosineAndCosineToTheNearestFloat) {
    // One value in some hundred million lies so near the middle of two floats that it may fall on
    // the other side: none of these does.
    const auto sweep = [](float from, float to, auto&& own, auto&& reference) {
        int count = 0;
        for (float x = from; x < to; x = std::nextafter(x * 1.00003f, 4.0f), ++count) {
            ASSERT_EQ(own(x), static_cast<float>(reference(static_cast<double>(x)))) << x;
        }
        EXPECT_GT(count, 300000);
    };
    for (const float sign : {1.0f, -1.0f}) {
        sweep(
            1e-8f, 1.0f, [sign](float x) { return insolate::roundedArcCosine(sign * x); },
            [sign](double x) { return std::acos(sign * x); });
    }
    sweep(1e-6f, 3.1415927f, insolate::roundedCosine, [](double x) { return std::cos(x); });
    EXPECT_EQ(insolate::roundedArcCosine(0.0f), halfPi);
    EXPECT_EQ(insolate::roundedArcCosine(1.0f), 0.0f);
    EXPECT_EQ(insolate::roundedArcCosine(-1.0f), pi);
    EXPECT_EQ(insolate::roundedCosine(pi), -1.0f);
    EXPECT_EQ(insolate::roundedCosine(halfPi), static_cast<float>(std::cos(1.57079637050628662)));
}

TEST(TriangularFacet, IsHitFromItsFrontOnly) {
    const ETriangularFacet facingUp({0, 0, 0}, {1, 0, 0}, {0, 1, 0});
    constexpr XYZf none = {-7, -7, -7};
    const struct {
        const char* name;
        XYZf origin, direction;
        bool isHit;
        XYZf hit;
    } cases[] = {
        {"front", {0.25f, 0.25f, 1}, {0, 0, -8}, true, {0.25f, 0.25f, 0}},
        {"slanted", {0.25f, -0.75f, 1}, {0, 1, -1}, true, {0.25f, 0.25f, 0}},
        {"away", {0.25f, 0.25f, 1}, {0, 0, 1}, false, none},
        {"back", {0.25f, 0.25f, -1}, {0, 0, 1}, false, none},
        {"plane behind", {0.25f, 0.25f, -1}, {0, 0, -1}, false, none},
        {"along the plane", {-1, 0.25f, 0}, {1, 0, 0}, false, none},
        {"beside: the plane's point is given", {2, 2, 1}, {0, 0, -1}, false, {2, 2, 0}},
        {"beside x", {-0.1f, 0.5f, 1}, {0, 0, -1}, false, {-0.1f, 0.5f, 0}},
        {"beside y", {0.5f, -0.1f, 1}, {0, 0, -1}, false, {0.5f, -0.1f, 0}},
        {"origin on an edge", {0.5f, 0, 0}, {0, 0, -1}, true, {0.5f, 0, 0}},
        {"vertex", {0, 1, 1}, {0, 0, -1}, true, {0, 1, 0}},
    };
    for (const auto& [name, origin, direction, isHit, hit] : cases) {
        XYZf found = none;
        EXPECT_EQ(facingUp.isHitBy(origin, direction, &found), isHit) << name;
        EXPECT_TRUE(found.x == hit.x && found.y == hit.y && found.z == hit.z) << name;
    }
    ETriangularFacet facet = facingUp;
    XYZf out = none;
    for (const int outside : {3, -1}) {
        EXPECT_FALSE(facet.getVertex(outside, &out));
        EXPECT_FALSE(facet.setVertex(outside, 0, 0, 0));
    }
    EXPECT_EQ(out.x, none.x);
    EXPECT_TRUE(facet.setVertex(2, 0, -1, 0)); // turns the facet over
    EXPECT_TRUE(facet.getVertex(2, &out));
    EXPECT_EQ(out.y, -1.0f);
    EXPECT_TRUE(facet.isHitBy({0.25f, -0.25f, -1}, {0, 0, 1}, &out));
    facet.set({0, 0, 2}, {1, 0, 2}, {0, 1, 2});
    EXPECT_TRUE(facet.isHitBy({0.25f, 0.25f, 3}, {0, 0, -1}, &out));
}

} // namespace
