#include "scenes.h"

#include <insolate/platform/processor_count.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace insolate::test {
namespace {

using RT::InputPackage;
using RT::InputPackageUitl;
using testing::Each;

class InputPackageTest : public testing::Test {
protected:
    void SetUp() override { package = InputPackage(); }

    InputPackage& package = InputPackage::instance();
    double coordinates[18] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 6, 7, -2, 8, 1, 3, 3, 9};
};

TEST_F(InputPackageTest, TakesWholeTrianglesAndABoxThatOutlivesThem) {
    for (const int count : {17, 0, -9, 8}) {
        InputPackageUitl::AddTriangles(coordinates, count);
    }
    InputPackageUitl::AddTriangles(nullptr, 9);
    EXPECT_EQ(package.triangleCount, 0);
    InputPackageUitl::AddTriangles(coordinates, 18);
    InputPackageUitl::AddTriangle(5, 6, 7, -2, 8, 1, 3, 3, 9);
    ASSERT_EQ(package.triangleCount, 3);
    for (const std::size_t same : {1U, 2U}) {
        const RT::Triangle& triangle = package.triangles[same];
        EXPECT_EQ(triangle.p2, (Vector3d{3, 3, 9}));
        EXPECT_EQ(triangle.negEdge2, (Vector3d{2, 3, -2}));
        EXPECT_EQ(triangle.edge3, (Vector3d{5, -5, 8}));
        EXPECT_EQ(triangle.normal, (Vector3d{14, -26, -25}));
        EXPECT_EQ(triangle.boxMin, (Vector3d{-2, 3, 1}));
        EXPECT_EQ(triangle.boxMax, (Vector3d{5, 8, 9}));
    }
    EXPECT_EQ(package.boxMin, (Vector3d{-2, 0, 0}));
    InputPackageUitl::InflateBoundingBox();
    InputPackageUitl::ResetInputPackage();
    EXPECT_EQ(package.triangleCount, 0);
    EXPECT_EQ(package.boxMin, (Vector3d{-3, -1, -1}));
    EXPECT_EQ(package.boxMax, (Vector3d{6, 9, 10}));
}

TEST_F(InputPackageTest, GivesEveryTriangleItsOwnMailboxPerProcessor) {
    constexpr std::size_t count = 40000; // more than one block of mailboxes
    for (std::size_t i = 0; i < count; ++i) {
        InputPackageUitl::AddTriangles(coordinates, 9);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto mailbox = package.triangles[i].mailbox;
        ASSERT_EQ(mailbox.size(), static_cast<std::size_t>(insolate::processorCount()));
        ASSERT_THAT(mailbox, Each(insolate::noRay));
        for (std::uint32_t& entry : mailbox) {
            entry = static_cast<std::uint32_t>(i);
        }
    }
    EXPECT_THAT(package.triangles[0].mailbox, Each(0U));
    EXPECT_THAT(package.triangles[count / 2].mailbox, Each(count / 2));
}

} // namespace
} // namespace insolate::test
