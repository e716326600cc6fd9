#include "scenes.h"

#include <insolate/rt/spatial_tree.h>
#include <insolate/rt/spatial_tree_util.h>

#include <tbb/global_control.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

namespace insolate::test {
namespace {

/// Whether a triangle has a point in a box, by cutting off what lies outside of one face after the
/// other (Sutherland, Hodgman 1974, Communications of the ACM 17(1)).
bool hasPointIn(const RT::Triangle& triangle, const Vector3d& boxMin, const Vector3d& boxMax) {
    std::vector<Vector3d> rest = {triangle.p0, triangle.p1, triangle.p2};
    for (std::size_t face = 0; face < 6; ++face) {
        const std::size_t axis = face / 2;
        const auto inside = [&](const Vector3d& p) {
            return face % 2 == 0 ? p[axis] - boxMin[axis] : boxMax[axis] - p[axis];
        };
        std::vector<Vector3d> cut;
        for (std::size_t i = 0; i < rest.size(); ++i) {
            const Vector3d& a = rest[i];
            const Vector3d& b = rest[(i + 1) % rest.size()];
            if (inside(a) >= 0) {
                cut.push_back(a);
            }
            if ((inside(a) >= 0) != (inside(b) >= 0)) {
                const double t = inside(a) / (inside(a) - inside(b));
                cut.push_back(
                    {a[0] + t * (b[0] - a[0]), a[1] + t * (b[1] - a[1]), a[2] + t * (b[2] - a[2])});
            }
        }
        rest = std::move(cut);
    }
    return !rest.empty();
}

/// What a node holds by the octree's definition.
struct PlainNode {
    Vector3d boxMin{}, boxMax{};
    std::vector<std::int32_t> triangles;
    std::int32_t containedCount = 0;
};

/// The list of an octant of a node, whose entries it takes off that lie wholly inside. Whether a
/// triangle that merely touches the octant, as far as rounding can tell, belongs to it says
/// `given`.
void fillPlainly(const RT::InputPackage& package, PlainNode& node, PlainNode& child,
                 const std::set<std::int32_t>& given) {
    double scale = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        scale = std::max({scale, std::fabs(child.boxMin[axis]), std::fabs(child.boxMax[axis])});
    }
    const auto grown = [&](const Vector3d& corner, double by) {
        return Vector3d{corner[0] + by, corner[1] + by, corner[2] + by};
    };
    for (auto entry = node.triangles.rbegin(); entry != node.triangles.rend(); ++entry) {
        if (*entry == -1) {
            continue;
        }
        const RT::Triangle& triangle = package.triangles[static_cast<std::size_t>(*entry)];
        int inside = 0;
        double reach = scale;
        for (const Vector3d* vertex : {&triangle.p0, &triangle.p1, &triangle.p2}) {
            bool isInside = true;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                isInside = isInside && child.boxMin[axis] <= (*vertex)[axis] &&
                           (*vertex)[axis] <= child.boxMax[axis];
                reach = std::max(reach, std::fabs((*vertex)[axis]));
            }
            inside += isInside ? 1 : 0;
        }
        const double margin = 1e-12 * reach;
        const auto overlapsWith = [&](double by) {
            return hasPointIn(triangle, grown(child.boxMin, -by), grown(child.boxMax, by));
        };
        const bool isHeld = given.contains(*entry);
        if (inside > 0 || overlapsWith(-margin) ||
            (isHeld && !(std::isfinite(reach) && !overlapsWith(margin)))) {
            child.triangles.push_back(*entry);
        }
        if (inside == 3) {
            ++child.containedCount;
            *entry = -1;
        }
    }
}

/// Compares a tree with its definition node by node; on a difference says where.
testing::AssertionResult isAsDefined(const RT::SpatialTree& node, PlainNode plain,
                                     const DistinctTriangles& distinct, int maxDepth, int depth = 1,
                                     const std::string& path = "root") {
    int weight = 0;
    for (const std::int32_t index : plain.triangles) {
        weight += distinct.weight(static_cast<std::size_t>(index));
    }
    const bool isLeaf = weight < 12 || depth > maxDepth;
    if (node.depth != depth || node.isLeaf != isLeaf || node.boxMin != plain.boxMin ||
        node.boxMax != plain.boxMax || node.containedCount != plain.containedCount) {
        return testing::AssertionFailure() << "different node: " << path;
    }
    std::int32_t next = 0;
    for (unsigned octant = 0; !isLeaf && octant < 8; ++octant) {
        PlainNode expected;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double h = (plain.boxMax[axis] - plain.boxMin[axis]) * 0.5;
            expected.boxMin[axis] = plain.boxMin[axis] + ((octant >> axis) & 1U) * h;
            expected.boxMax[axis] = expected.boxMin[axis] + h;
        }
        std::vector<std::int32_t> given;
        if (next < node.childCount && node.child(next).boxMin == expected.boxMin) {
            given = node.child(next).triangleList();
        }
        fillPlainly(*node.package, plain, expected, {given.begin(), given.end()});
        if (expected.triangles.empty()) {
            continue;
        }
        const std::string below = path + "/" + std::to_string(octant);
        if (next == node.childCount) {
            return testing::AssertionFailure() << "no node: " << below;
        }
        const RT::SpatialTree child = node.child(next++);
        if (child.parent != &node || child.package != node.package) {
            return testing::AssertionFailure() << "unlinked node: " << below;
        }
        if (auto result = isAsDefined(child, expected, distinct, maxDepth, depth + 1, below);
            !result) {
            return result;
        }
    }
    if (next != node.childCount || node.triangleList() != plain.triangles) {
        return testing::AssertionFailure() << "different list or children: " << path;
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
        {"a box with sides of their own",
         changed(changed(randomScene(2000, 8, 14), 2, 3, [](double z) { return z * 0.1; }), 1, 3,
                 [](double y) { return y * 3; }),
         true},
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
        const DistinctTriangles distinct(package);
        const PlainNode root{package.boxMin, package.boxMax, distinct.first,
                             static_cast<std::int32_t>(distinct.first.size())};
        RT::SpatialTreeUtil::GenerateSpatialTree();
        EXPECT_EQ(RT::SpatialTree::maxDepth, limit);
        EXPECT_TRUE(isAsDefined(*RT::SpatialTree::root, root, distinct, limit));
        for (const std::size_t threads : {std::size_t{1}, std::size_t{8}}) {
            const tbb::global_control control(tbb::global_control::max_allowed_parallelism,
                                              threads);
            const Octree tree(package);
            EXPECT_TRUE(isAsDefined(tree.root(), root, distinct, limit)) << threads << " threads";
        }
    }
}

TEST(Octree, DepthLimitLeavesThreeLevelsToSpare) {
    const int cases[][2] = {{0, 3}, {2, 3}, {3, 4}, {12, 4}, {23, 5}, {1000, 6}, {1000000, 10}};
    for (const auto& [triangles, limit] : cases) {
        EXPECT_EQ(insolate::depthLimit(triangles), limit) << triangles;
    }
}

TEST(Octree, TakesThousandsOfCopiesLikeOne) {
    Scene scene = copiesOf(5000, {0, 0, 1}, {100, 0, 2}, {0, 100, 50});
    addTriangle(scene, {100, 0, 2}, {0, 100, 50}, {0, 0, 1}); // other corners first: no copy
    addTriangle(scene, {0, 0, 1}, {100, 0, 2}, {0, 100, 50});
    const DistinctTriangles distinct(loadScene(scene));
    EXPECT_EQ(distinct.first, (std::vector<std::int32_t>{0, 5000}));
    EXPECT_EQ(distinct.weight(0), 5001);
    EXPECT_EQ(distinct.weight(5000), 1);
}

} // namespace
} // namespace insolate::test
