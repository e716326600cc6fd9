#include "plain_octree.h"
#include "scenes.h"

#include <insolate/rt/spatial_tree_util.h>

#include <tbb/global_control.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using insolate::Octree;
using insolate::Vector3d;
using insolate::test::addTriangle;
using insolate::test::latticeScene;
using insolate::test::loadScene;
using insolate::test::PlainNode;
using insolate::test::plainOctree;
using insolate::test::randomScene;
using insolate::test::Scene;

/// Compares two trees node by node; on a difference says where.
testing::AssertionResult sameTree(const RT::SpatialTree& node, const PlainNode& plain,
                                  const std::string& path = "root") {
    const std::vector<std::int32_t> list = node.triangleList();
    if (node.depth != plain.depth || node.isLeaf != plain.isLeaf || node.boxMin != plain.boxMin ||
        node.boxMax != plain.boxMax || node.containedCount != plain.containedCount ||
        !std::equal(list.begin(), list.end(), plain.triangles.begin(), plain.triangles.end()) ||
        static_cast<std::size_t>(node.childCount) != plain.children.size()) {
        return testing::AssertionFailure() << "different node: " << path;
    }
    for (std::size_t i = 0; i < plain.children.size(); ++i) {
        const RT::SpatialTree child = node.child(static_cast<std::int32_t>(i));
        if (child.parent != &node || child.package != node.package) {
            return testing::AssertionFailure() << "unlinked child " << i << " of " << path;
        }
        if (auto result = sameTree(child, *plain.children[i], path + "/" + std::to_string(i));
            !result) {
            return result;
        }
    }
    return testing::AssertionSuccess();
}

/// Copies of one triangle; twelve are enough to be subdivided.
Scene copiesOf(int count, Vector3d a, Vector3d b, Vector3d c) {
    Scene scene;
    for (int i = 0; i < count; ++i) {
        addTriangle(scene, a, b, c);
    }
    return scene;
}

TEST(Octree, IsTheOneItsDefinitionGives) {
    Scene far = randomScene(500, 3.0, 9);
    for (std::size_t i = 0; i < far.size(); i += 3) {
        far[i] += 5e6;
    }
    Scene huge = randomScene(200, 40.0, 10);
    for (double& value : huge) {
        value *= 1e7; // beyond the empty box's corners
    }
    Scene flat = randomScene(300, 5.0, 11);
    for (std::size_t i = 2; i < flat.size(); i += 3) {
        flat[i] = 0.0;
    }
    Scene notNumbers = randomScene(100, 5.0, 12);
    for (std::size_t i = 0; i < notNumbers.size(); i += 17) {
        notNumbers[i] = std::nan("");
    }
    Scene heap = copiesOf(12, {1, 1, 1}, {1.001, 1, 1}, {1, 1.001, 1});
    addTriangle(heap, {50, 50, 50}, {51, 50, 50}, {50, 51, 50});
    const struct {
        const char* name;
        Scene scene;
        bool inflate;
    } cases[] = {
        {"small triangles", randomScene(20000, 1.0, 1), true},
        {"medium triangles", randomScene(2000, 10.0, 2), true},
        {"large triangles", randomScene(300, 60.0, 3), true},
        {"degenerate, long, doubled", randomScene(3000, 4.0, 4, true), true},
        {"vertices on the octants' faces", latticeScene(16), false},
        {"a stack", copiesOf(12, {1, 1, 1}, {3, 1, 1}, {1, 3, 2}), true},
        {"one too few", copiesOf(11, {1, 1, 1}, {3, 1, 1}, {1, 3, 2}), true},
        {"down to the depth limit", heap, true},
        {"up to the shared face", copiesOf(12, {0, 0, 0}, {4, 0, 0}, {8, 8, 8}), false},
        {"far away", far, true},
        {"huge", huge, true},
        {"flat, without a box height", flat, false},
        {"not a number", notNumbers, true},
        {"empty", {}, true},
    };
    for (const auto& [name, scene, inflate] : cases) {
        SCOPED_TRACE(name);
        const RT::InputPackage& package = loadScene(scene, inflate);
        const int limit = insolate::depthLimit(package.triangleCount);
        const PlainNode plain = plainOctree(package, limit);
        RT::SpatialTreeUtil::GenerateSpatialTree();
        EXPECT_EQ(RT::SpatialTree::maxDepth, limit);
        EXPECT_TRUE(sameTree(*RT::SpatialTree::root, plain));
        for (const std::size_t threads : {std::size_t{1}, std::size_t{8}}) {
            const tbb::global_control control(tbb::global_control::max_allowed_parallelism,
                                              threads);
            Octree tree(package);
            EXPECT_TRUE(sameTree(tree.root(), plain)) << threads << " threads";
        }
    }
}

TEST(Octree, DepthLimitLeavesThreeLevelsToSpare) {
    const struct {
        int triangles, limit;
    } cases[] = {{0, 3},  {1, 3},  {2, 3},    {3, 4},       {10, 4},
                 {12, 4}, {23, 5}, {1000, 6}, {1000000, 10}};
    for (const auto& [triangles, limit] : cases) {
        EXPECT_EQ(insolate::depthLimit(triangles), limit) << triangles;
    }
}

TEST(TriangleBoxOverlap, FindsEachKindOfSeparation) {
    const struct {
        const char* name;
        Vector3d a, b, c;
        bool overlaps;
    } cases[] = {
        {"across the whole box", {-9, -9, 0.2}, {9, -9, 0.2}, {0, 20, 0.2}, true},
        {"around the box, cut by no edge", {-9, -9, 0}, {9, -9, 0}, {0, 20, 0}, true},
        {"inside", {0, 0, 0}, {0.1, 0, 0}, {0, 0.1, 0}, true},
        {"touching a face", {1, 0, 0}, {2, 0, 0}, {2, 1, 0}, true},
        {"beyond a face", {1.001, 0, 0}, {2, 0, 0}, {2, 1, 0}, false},
        {"past an edge of the box", {2.2, 0, -5}, {0, 2.2, -5}, {2.2, 0, 5}, false},
        {"cutting an edge of the box", {1.8, 0, -5}, {0, 1.8, -5}, {1.8, 0, 5}, true},
        {"plane past a corner", {3.1, 0, 0}, {0, 3.1, 0}, {0, 0, 3.1}, false},
        {"plane cutting a corner", {2.9, 0, 0}, {0, 2.9, 0}, {0, 0, 2.9}, true},
    };
    for (const auto& [name, a, b, c, overlaps] : cases) {
        Scene scene;
        addTriangle(scene, a, b, c);
        addTriangle(scene, c, b, a);
        addTriangle(scene, b, c, a);
        for (std::size_t i = 0; i < scene.size(); i += 9) {
            const RT::Triangle triangle = insolate::makeTriangle(&scene[i]);
            EXPECT_EQ(insolate::overlapsBox(triangle, {0, 0, 0}, {1, 1, 1}), overlaps) << name;
        }
    }
}

} // namespace
