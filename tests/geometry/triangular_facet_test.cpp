#include <insolate/geometry/triangular_facet.h>

#include <gtest/gtest.h>

namespace {

const ETriangularFacet facingUp({0, 0, 0}, {1, 0, 0}, {0, 1, 0});

TEST(TriangularFacet, IsHitFromItsFrontOnly) {
    constexpr XYZf untouched = {-7, -7, -7};
    const struct {
        const char* name;
        XYZf origin, direction;
        bool isHit;
        XYZf hit;
    } cases[] = {
        {"front", {0.25f, 0.25f, 1}, {0, 0, -1}, true, {0.25f, 0.25f, 0}},
        {"direction of any length", {0.25f, 0.25f, 1}, {0, 0, -8}, true, {0.25f, 0.25f, 0}},
        {"slanted", {0.25f, -0.75f, 1}, {0, 1, -1}, true, {0.25f, 0.25f, 0}},
        {"away", {0.25f, 0.25f, 1}, {0, 0, 1}, false, untouched},
        {"back", {0.25f, 0.25f, -1}, {0, 0, 1}, false, untouched},
        {"plane behind", {0.25f, 0.25f, -1}, {0, 0, -1}, false, untouched},
        {"along the plane", {-1, 0.25f, 0}, {1, 0, 0}, false, untouched},
        {"beside: the plane's point is told", {2, 2, 1}, {0, 0, -1}, false, {2, 2, 0}},
        {"beside x", {-0.1f, 0.5f, 1}, {0, 0, -1}, false, {-0.1f, 0.5f, 0}},
        {"beside y", {0.5f, -0.1f, 1}, {0, 0, -1}, false, {0.5f, -0.1f, 0}},
        {"origin on the facet", {0.25f, 0.5f, 0}, {0, 0, -1}, true, {0.25f, 0.5f, 0}},
        {"edge", {0.5f, 0, 1}, {0, 0, -1}, true, {0.5f, 0, 0}},
        {"vertex", {0, 1, 1}, {0, 0, -1}, true, {0, 1, 0}},
    };
    for (const auto& [name, origin, direction, isHit, hit] : cases) {
        XYZf found = untouched;
        EXPECT_EQ(facingUp.isHitBy(origin, direction, &found), isHit) << name;
        EXPECT_EQ(found.x, hit.x) << name;
        EXPECT_EQ(found.y, hit.y) << name;
        EXPECT_EQ(found.z, hit.z) << name;
    }
}

TEST(TriangularFacet, KeepsThreeVertices) {
    ETriangularFacet facet = facingUp;
    XYZf out = {9, 9, 9};
    for (const int outside : {3, -1}) {
        EXPECT_FALSE(facet.getVertex(outside, &out));
        EXPECT_FALSE(facet.setVertex(outside, 0, 0, 0));
    }
    EXPECT_EQ(out.x, 9.0f);
    EXPECT_TRUE(facet.setVertex(2, 0, -1, 0)); // turns the facet over
    EXPECT_TRUE(facet.getVertex(2, &out));
    EXPECT_EQ(out.y, -1.0f);
    EXPECT_TRUE(facet.isHitBy({0.25f, -0.25f, -1}, {0, 0, 1}, &out));
    facet.set({0, 0, 2}, {1, 0, 2}, {0, 1, 2});
    EXPECT_TRUE(facet.isHitBy({0.25f, 0.25f, 3}, {0, 0, -1}, &out));
    EXPECT_EQ(out.z, 2.0f);
}

} // namespace
