#include "scenes.h"

#include <insolate/rt/spatial_tree.h>
#include <insolate/rt/spatial_tree_util.h>

#include <tbb/global_control.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <string>
#include <vector>

namespace insolate::test {
namespace {

/// What a node holds by the octree's definition.
struct PlainNode {
    Vector3d boxMin{}, boxMax{};
    std::vector<std::int32_t> triangles;
    std::int32_t containedCount = 0;
};

/// The children of a node, octant by octant. A triangle that lies wholly inside one is taken off
/// the node's list.
std::vector<PlainNode> splitPlainly(const RT::InputPackage& package, PlainNode& node) {
    std::vector<PlainNode> children;
    for (unsigned octant = 0; octant < 8; ++octant) {
        PlainNode child;
        Vector3d centre{};
        Vector3d halfExtents{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double h = (node.boxMax[axis] - node.boxMin[axis]) * 0.5;
            child.boxMin[axis] = node.boxMin[axis] + ((octant >> axis) & 1U) * h;
            child.boxMax[axis] = child.boxMin[axis] + h;
            halfExtents[axis] = h * 0.5;
            centre[axis] = child.boxMin[axis] + halfExtents[axis];
        }
        const auto holds = [&](const Vector3d& vertex) {
            bool isInside = true;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                isInside = isInside && child.boxMin[axis] <= vertex[axis] &&
                           vertex[axis] <= child.boxMax[axis];
            }
            return isInside ? 1 : 0;
        };
        for (auto entry = node.triangles.rbegin(); entry != node.triangles.rend(); ++entry) {
            if (*entry == -1) {
                continue;
            }
            const RT::Triangle& triangle = package.triangles[static_cast<std::size_t>(*entry)];
            const int inside = holds(triangle.p0) + holds(triangle.p1) + holds(triangle.p2);
            if (inside > 0 || insolate::overlapsBox(triangle, centre, halfExtents)) {
                child.triangles.push_back(*entry);
            }
            if (inside == 3) {
                ++child.containedCount;
                *entry = -1;
            }
        }
        if (!child.triangles.empty()) {
            children.push_back(std::move(child));
        }
    }
    return children;
}

/// Compares a tree with its definition node by node; on a difference says where.
testing::AssertionResult isAsDefined(const RT::SpatialTree& node, PlainNode plain, int maxDepth,
                                     int depth = 1, const std::string& path = "root") {
    std::vector<PlainNode> children;
    const bool isLeaf = plain.triangles.size() < 12 || depth > maxDepth;
    if (!isLeaf) {
        children = splitPlainly(*node.package, plain);
    }
    const std::vector<std::int32_t> list = node.triangleList();
    if (node.depth != depth || node.isLeaf != isLeaf || node.boxMin != plain.boxMin ||
        node.boxMax != plain.boxMax || node.containedCount != plain.containedCount ||
        list != plain.triangles || static_cast<std::size_t>(node.childCount) != children.size()) {
        return testing::AssertionFailure() << "different node: " << path;
    }
    for (std::size_t i = 0; i < children.size(); ++i) {
        const RT::SpatialTree child = node.child(static_cast<std::int32_t>(i));
        if (child.parent != &node || child.package != node.package) {
            return testing::AssertionFailure() << "unlinked child " << i << " of " << path;
        }
        const std::string below = path + "/" + std::to_string(i);
        if (auto result = isAsDefined(child, children[i], maxDepth, depth + 1, below); !result) {
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
    const auto changed = [](Scene scene, std::size_t first, std::size_t step, auto&& change) {
        for (std::size_t i = first; i < scene.size(); i += step) {
            scene[i] = change(scene[i]);
        }
        return scene;
    };
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
        {"far away", changed(randomScene(500, 3, 9), 0, 3, [](double x) { return x + 5e6; }), true},
        {"huge", changed(randomScene(200, 40, 10), 0, 1, [](double x) { return x * 1e7; }), true},
        {"flat, without a box height",
         changed(randomScene(300, 5, 11), 2, 3, [](double) { return 0.0; }), false},
        {"not a number",
         changed(randomScene(100, 5, 12), 0, 17, [](double) { return std::nan(""); }), true},
        {"empty", {}, true},
    };
    for (const auto& [name, scene, inflate] : cases) {
        SCOPED_TRACE(name);
        const RT::InputPackage& package = loadScene(scene, inflate);
        const int limit = insolate::depthLimit(package.triangleCount);
        PlainNode root{package.boxMin, package.boxMax, {}, package.triangleCount};
        root.triangles.resize(static_cast<std::size_t>(package.triangleCount));
        std::iota(root.triangles.begin(), root.triangles.end(), 0);
        RT::SpatialTreeUtil::GenerateSpatialTree();
        EXPECT_EQ(RT::SpatialTree::maxDepth, limit);
        EXPECT_TRUE(isAsDefined(*RT::SpatialTree::root, root, limit));
        for (const std::size_t threads : {std::size_t{1}, std::size_t{8}}) {
            const tbb::global_control control(tbb::global_control::max_allowed_parallelism,
                                              threads);
            const Octree tree(package);
            EXPECT_TRUE(isAsDefined(tree.root(), root, limit)) << threads << " threads";
        }
    }
}

TEST(Octree, DepthLimitLeavesThreeLevelsToSpare) {
    const int cases[][2] = {{0, 3}, {2, 3}, {3, 4}, {12, 4}, {23, 5}, {1000, 6}, {1000000, 10}};
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
        {"past an edge, by one of its edges alone", {-1, -1.5, 1}, {1, 4, 2}, {4.5, 3.5, 5}, false},
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
} // namespace insolate::test
