#include <insolate/rt/spatial_tree.h>

#include <insolate/rt/spatial_tree_util.h>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace insolate {
namespace {

constexpr std::int32_t leafLimit = 12;
constexpr std::int32_t claimedMark = -1;

/// A set of octants, bit k for octant k.
using OctantSet = unsigned;

constexpr OctantSet allOctants = 0xFF;
constexpr std::array<OctantSet, 3> lowerHalf = {0x55, 0x33, 0x0F};
constexpr std::array<OctantSet, 3> upperHalf = {0xAA, 0xCC, 0xF0};

double smallest(double a, double b, double c) {
    return std::min(std::min(a, b), c);
}

double largest(double a, double b, double c) {
    return std::max(std::max(a, b), c);
}

/// Whether the projections of a triangle's vertices and a box of the given radius are apart.
bool isSeparated(double a, double b, double c, double radius) {
    return static_cast<int>(smallest(a, b, c) > radius) |
           static_cast<int>(largest(a, b, c) < -radius);
}

/// A triangle's vertices relative to a box's centre.
struct RelativeVertices {
    RelativeVertices(const RT::Triangle& triangle, const Vector3d& centre)
        : v0(difference(triangle.p0, centre)), v1(difference(triangle.p1, centre)),
          v2(difference(triangle.p2, centre)) {}

    Vector3d v0, v1, v2;
};

/// Along the cross product of an edge with the box axis that is neither i nor j.
template <std::size_t i, std::size_t j>
bool isSeparatedAlong(const Vector3d& edge, const RelativeVertices& v,
                      const Vector3d& halfExtents) {
    const auto project = [&edge](const Vector3d& vertex) {
        return edge[i] * vertex[j] - edge[j] * vertex[i];
    };
    const double radius = std::fabs(edge[j]) * halfExtents[i] + std::fabs(edge[i]) * halfExtents[j];
    return isSeparated(project(v.v0), project(v.v1), project(v.v2), radius);
}

bool isSeparatedByEdge(const Vector3d& edge, const RelativeVertices& v,
                       const Vector3d& halfExtents) {
    return isSeparatedAlong<1, 2>(edge, v, halfExtents) ||
           isSeparatedAlong<2, 0>(edge, v, halfExtents) ||
           isSeparatedAlong<0, 1>(edge, v, halfExtents);
}

/// The separating-axis test without the box's own axes: Akenine-Moeller (2001), Fast 3D
/// triangle-box overlap testing, Journal of Graphics Tools 6(1). The plane goes first here: it is
/// cheap and separates most large triangles from small boxes.
bool overlapsByEdgesAndPlane(const RT::Triangle& triangle, const RelativeVertices& v,
                             const Vector3d& halfExtents) {
    const Vector3d& normal = triangle.normal;
    const double d = -dotProduct(normal.data(), v.v0.data());
    Vector3d against{}; // the corners farthest against and along the normal
    Vector3d along{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        along[axis] = normal[axis] > 0.0 ? halfExtents[axis] : -halfExtents[axis];
        against[axis] = -along[axis];
    }
    if (dotProduct(normal.data(), against.data()) + d > 0.0 ||
        !(dotProduct(normal.data(), along.data()) + d >= 0.0)) {
        return false;
    }
    return !isSeparatedByEdge(triangle.edge1, v, halfExtents) &&
           !isSeparatedByEdge(triangle.edge3, v, halfExtents) &&
           !isSeparatedByEdge(triangle.negEdge2, v, halfExtents);
}

/// Where one triangle goes.
struct Assignment {
    OctantSet octants = 0;
    bool isClaimed = false; ///< lies wholly inside the highest of the octants, which keeps it
};

/// The eight octants of a box. Each half along each axis is classified once, not once per octant;
/// the sums are those of the single octants' boxes, so that the answers are theirs to the last bit.
class Octants {
public:
    Octants(const Vector3d& boxMin, const Vector3d& boxMax) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double h = (boxMax[axis] - boxMin[axis]) * 0.5;
            m_halfExtents[axis] = h * 0.5;
            for (std::size_t half = 0; half < 2; ++half) {
                m_lower[half][axis] = boxMin[axis] + static_cast<double>(half) * h;
                m_upper[half][axis] = m_lower[half][axis] + h;
                m_centre[half][axis] = m_lower[half][axis] + m_halfExtents[axis];
            }
        }
    }

    /// In the order of the octants, a triangle goes to each that holds one of its vertices or
    /// overlaps it, up to and including the first that holds all three.
    Assignment assign(const RT::Triangle& triangle) const {
        const OctantSet in0 = containing(triangle.p0);
        const OctantSet in1 = containing(triangle.p1);
        const OctantSet in2 = containing(triangle.p2);
        const OctantSet inAll = in0 & in1 & in2;
        const OctantSet inAny = in0 | in1 | in2;
        OctantSet open = allOctants;
        if (inAll != 0) {
            const OctantSet first = inAll & (~inAll + 1U);
            open = first | (first - 1U);
        }
        Assignment assignment{.octants = inAny & open, .isClaimed = inAll != 0};
        const OctantSet unsettled = open & ~inAny;
        for (OctantSet rest = unsettled != 0 ? overlappedByBox(triangle, unsettled) : 0U; rest != 0;
             rest &= rest - 1U) {
            const auto octant = static_cast<unsigned>(std::countr_zero(rest));
            if (overlapsByEdgesAndPlane(triangle,
                                        RelativeVertices(triangle, cornerOf(m_centre, octant)),
                                        m_halfExtents)) {
                assignment.octants |= 1U << octant;
            }
        }
        return assignment;
    }

private:
    using Halves = std::array<Vector3d, 2>;

    static Vector3d cornerOf(const Halves& halves, unsigned octant) {
        return {halves[octant & 1U][0], halves[(octant >> 1) & 1U][1],
                halves[(octant >> 2) & 1U][2]};
    }

    OctantSet containing(const Vector3d& vertex) const {
        OctantSet octants = allOctants;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double value = vertex[axis];
            // Arithmetic on truth values: whether a vertex is inside cannot be predicted.
            const OctantSet inLower = static_cast<OctantSet>(m_lower[0][axis] <= value) &
                                      static_cast<OctantSet>(value <= m_upper[0][axis]);
            const OctantSet inUpper = static_cast<OctantSet>(m_lower[1][axis] <= value) &
                                      static_cast<OctantSet>(value <= m_upper[1][axis]);
            octants &= (lowerHalf[axis] * inLower) | (upperHalf[axis] * inUpper);
        }
        return octants;
    }

    /// Those of the given octants that the box axes do not separate from the triangle.
    OctantSet overlappedByBox(const RT::Triangle& triangle, OctantSet octants) const {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            for (std::size_t half = 0; half < 2; ++half) {
                const double c = m_centre[half][axis];
                const bool isApart = isSeparated(triangle.p0[axis] - c, triangle.p1[axis] - c,
                                                 triangle.p2[axis] - c, m_halfExtents[axis]);
                octants &= ~((half == 0 ? lowerHalf[axis] : upperHalf[axis]) *
                             static_cast<OctantSet>(isApart));
            }
        }
        return octants;
    }

    Halves m_lower{}, m_upper{}, m_centre{};
    Vector3d m_halfExtents{};
};

/// Room for one assignment per entry of a node's list; short lists stay on the stack.
class Assignments {
public:
    explicit Assignments(std::size_t size) {
        if (size > m_few.size()) {
            m_many = std::make_unique_for_overwrite<std::uint16_t[]>(size);
        }
        m_codes = m_many != nullptr ? m_many.get() : m_few.data();
    }

    void set(std::size_t i, Assignment assignment) {
        m_codes[i] = static_cast<std::uint16_t>(assignment.octants |
                                                (assignment.isClaimed ? claimedBit : 0U));
    }
    OctantSet octants(std::size_t i) const { return m_codes[i] & allOctants; }
    bool isClaimed(std::size_t i) const { return (m_codes[i] & claimedBit) != 0; }

private:
    static constexpr unsigned claimedBit = 0x100;
    std::array<std::uint16_t, 512> m_few;
    std::unique_ptr<std::uint16_t[]> m_many;
    std::uint16_t* m_codes;
};

// Lists that no ray reads are packed: an index as its distance from the last one that was not
// claimed, seven bits a byte, the sign in the lowest; indices are unique, so that 0 is the mark.

void packList(std::span<const std::int32_t> list, std::vector<std::uint8_t>& bytes) {
    bytes.clear();
    std::int64_t last = -1;
    for (const std::int32_t index : list) {
        if (index == claimedMark) {
            bytes.push_back(0);
            continue;
        }
        const std::int64_t distance = index - last;
        last = index;
        auto rest = static_cast<std::uint64_t>(distance < 0 ? -2 * distance + 1 : 2 * distance);
        for (; rest >= 0x80; rest >>= 7U) {
            bytes.push_back(static_cast<std::uint8_t>(rest | 0x80U));
        }
        bytes.push_back(static_cast<std::uint8_t>(rest));
    }
}

std::vector<std::int32_t> unpackList(const std::uint8_t* bytes, std::int32_t count) {
    std::vector<std::int32_t> list(static_cast<std::size_t>(count), claimedMark);
    std::int64_t last = -1;
    for (std::int32_t& index : list) {
        std::uint64_t value = 0;
        for (unsigned shift = 0;; shift += 7) {
            value |= static_cast<std::uint64_t>(*bytes & 0x7FU) << shift;
            if ((*bytes++ & 0x80U) == 0) {
                break;
            }
        }
        if (value != 0) {
            const auto distance = static_cast<std::int64_t>(value >> 1U);
            last += (value & 1U) != 0 ? -distance : distance;
            index = static_cast<std::int32_t>(last);
        }
    }
    return list;
}

/// Room for a node's list: in its final place when it is a leaf. weight: triangles that the list
/// stands for.
std::int32_t* prepare(NodeInWork& work, std::int32_t weight, TreeArena& arena, TreeMemory& memory) {
    PackedNode& node = *work.node;
    const auto count = static_cast<std::size_t>(node.triangleCount);
    node.isLeaf = weight < leafLimit || node.depth > RT::SpatialTree::maxDepth;
    if (node.isLeaf) {
        node.triangles = arena.take(memory, count * sizeof(std::int32_t));
        return memory.at<std::int32_t>(node.triangles);
    }
    work.triangles = std::make_unique_for_overwrite<std::int32_t[]>(count);
    return work.triangles.get();
}

/// Creates the children of a node, marks the entries that they claim, and packs its list.
void subdivide(NodeInWork& work, RT::BuildSpatialSubtree::Children& children,
               const RT::InputPackage& package, const DistinctTriangles& distinct,
               TreeMemory& memory) {
    TreeArena& arena = memory.arena();
    PackedNode& node = *work.node;
    const Octants octants(work.boxMin, work.boxMax);
    const std::span<std::int32_t> triangles(work.triangles.get(),
                                            static_cast<std::size_t>(node.triangleCount));
    Assignments assignments(triangles.size());
    std::array<std::int32_t, 8> count{};
    std::array<std::int32_t, 8> weight{};
    std::array<std::int32_t, 8> contained{};
    for (std::size_t i = 0; i < triangles.size(); ++i) {
        const auto index = static_cast<std::size_t>(triangles[i]);
        const Assignment assignment = octants.assign(package.triangles[index]);
        assignments.set(i, assignment);
        const std::int32_t own = distinct.weight(index);
        for (OctantSet rest = assignment.octants; rest != 0; rest &= rest - 1U) {
            const auto octant = static_cast<std::size_t>(std::countr_zero(rest));
            ++count[octant];
            weight[octant] += own;
        }
        if (assignment.isClaimed) {
            ++contained[static_cast<std::size_t>(std::bit_width(assignment.octants) - 1)];
        }
    }

    const auto occupied = static_cast<std::size_t>(8 - std::count(count.begin(), count.end(), 0));
    node.children = arena.take(memory, occupied * sizeof(PackedNode));
    auto* const packed = memory.at<PackedNode>(node.children);
    std::array<std::int32_t*, 8> next{};
    for (unsigned octant = 0; octant < 8; ++octant) {
        if (count[octant] == 0) {
            continue;
        }
        NodeInWork& child = children.nodes[node.childCount];
        child.node = std::construct_at(packed + node.childCount++);
        child.node->depth = static_cast<std::uint8_t>(node.depth + 1);
        child.node->octant = static_cast<std::uint8_t>(octant);
        child.node->triangleCount = count[octant];
        child.node->containedCount = contained[octant];
        octantBox(work.boxMin, work.boxMax, octant, child.boxMin, child.boxMax);
        next[octant] = prepare(child, weight[octant], arena, memory);
    }
    for (std::size_t i = triangles.size(); i-- > 0;) { // every list runs backwards
        for (OctantSet rest = assignments.octants(i); rest != 0; rest &= rest - 1U) {
            *next[static_cast<std::size_t>(std::countr_zero(rest))]++ = triangles[i];
        }
        if (assignments.isClaimed(i)) {
            triangles[i] = claimedMark;
        }
    }
    packList(triangles, arena.scratch);
    node.triangles = arena.take(memory, arena.scratch.size());
    std::copy(arena.scratch.begin(), arena.scratch.end(), memory.at<std::uint8_t>(node.triangles));
    work.triangles.reset();
}

/// Subdivides a node and everything below it.
void buildNode(NodeInWork& work, const RT::InputPackage& package, const DistinctTriangles& distinct,
               TreeMemory& memory) {
    if (work.node->isLeaf) {
        return;
    }
    RT::BuildSpatialSubtree::Children children;
    subdivide(work, children, package, distinct, memory);
    if (work.node->childCount > 0) {
        children.finished.store(0, std::memory_order_release);
        tbb::parallel_for(tbb::blocked_range<int>(0, work.node->childCount, 4),
                          RT::BuildSpatialSubtree(&children, &package, &distinct, &memory),
                          tbb::simple_partitioner());
        static_cast<void>(children.finished.load(std::memory_order_acquire));
    }
}

PackedNode buildTree(const RT::InputPackage& package, TreeMemory& memory) {
    const DistinctTriangles distinct(package);
    PackedNode root;
    root.triangleCount = static_cast<std::int32_t>(distinct.first.size());
    root.containedCount = root.triangleCount;
    NodeInWork work;
    work.node = &root;
    work.boxMin = package.boxMin;
    work.boxMax = package.boxMax;
    std::int32_t* const list = prepare(work, package.triangleCount, memory.arena(), memory);
    std::copy(distinct.first.begin(), distinct.first.end(), list);
    buildNode(work, package, distinct, memory);
    return root;
}

} // namespace

DistinctTriangles::DistinctTriangles(const RT::InputPackage& package) {
    // A table of at least twice as many places as triangles; each lies at the first free one from
    // the place that its coordinates give.
    using Bits = std::array<std::uint64_t, 9>;
    const auto bitsOf = [&package](std::int32_t index) {
        const RT::Triangle& triangle = package.triangles[static_cast<std::size_t>(index)];
        return std::bit_cast<Bits>(std::array{triangle.p0, triangle.p1, triangle.p2});
    };
    const std::int32_t count = package.triangleCount;
    constexpr std::int32_t none = -1;
    const auto width =
        static_cast<unsigned>(std::bit_width(2 * static_cast<std::uint64_t>(count) + 1));
    std::vector<std::int32_t> table(std::size_t{1} << width, none);
    first.reserve(static_cast<std::size_t>(count));
    for (std::int32_t index = 0; index < count; ++index) {
        const Bits bits = bitsOf(index);
        std::uint64_t hash = 0;
        for (const std::uint64_t word : bits) {
            hash = (std::rotl(hash, 23) ^ word) * 0x9E3779B97F4A7C15U; // the golden ratio's digits
        }
        std::size_t place = hash >> (64U - width);
        while (table[place] != none && bitsOf(table[place]) != bits) {
            place = (place + 1) & (table.size() - 1);
        }
        if (table[place] == none) {
            table[place] = index;
            first.push_back(index);
            continue;
        }
        if (copies.empty()) {
            copies.assign(static_cast<std::size_t>(count), 1);
        }
        ++copies[static_cast<std::size_t>(table[place])];
    }
}

std::int32_t depthLimit(std::int32_t triangleCount) {
    const double levels =
        triangleCount > 0 ? std::log10(static_cast<double>(triangleCount)) / std::log10(8.0) : 0.0;
    return static_cast<std::int32_t>(levels + 0.5) + 3;
}

Octree::Octree(const RT::InputPackage& package)
    : m_packedRoot(buildTree(package, m_memory)), m_rootNode(m_packedRoot, m_memory, package) {}

} // namespace insolate

namespace RT {
namespace {

std::unique_ptr<insolate::Octree> processTree;

} // namespace

const SpatialTree* SpatialTree::root = nullptr;
std::int32_t SpatialTree::maxDepth = 8;

SpatialTree::SpatialTree(const insolate::PackedNode& packedRoot,
                         const insolate::TreeMemory& treeMemory, const InputPackage& triangles)
    : depth(packedRoot.depth), isLeaf(packedRoot.isLeaf), boxMin(triangles.boxMin),
      boxMax(triangles.boxMax), triangleCount(packedRoot.triangleCount),
      containedCount(packedRoot.containedCount), parent(nullptr), childCount(packedRoot.childCount),
      package(&triangles), packed(&packedRoot), memory(&treeMemory) {}

SpatialTree::SpatialTree(const SpatialTree& from, const insolate::PackedNode& packedChild)
    : depth(packedChild.depth), isLeaf(packedChild.isLeaf), boxMin(), boxMax(),
      triangleCount(packedChild.triangleCount), containedCount(packedChild.containedCount),
      parent(&from), childCount(packedChild.childCount), package(from.package),
      packed(&packedChild), memory(from.memory) {
    insolate::octantBox(from.boxMin, from.boxMax, packedChild.octant, boxMin, boxMax);
}

SpatialTree SpatialTree::child(std::int32_t index) const {
    return {*this, memory->at<const insolate::PackedNode>(packed->children)[index]};
}

std::vector<std::int32_t> SpatialTree::triangleList() const {
    if (isLeaf) {
        const auto list = leafTriangles();
        return {list.begin(), list.end()};
    }
    return insolate::unpackList(memory->at<const std::uint8_t>(packed->triangles), triangleCount);
}

void BuildSpatialSubtree::operator()(const tbb::blocked_range<int>& range) const {
    static_cast<void>(children->finished.load(std::memory_order_acquire));
    for (int i = range.begin(); i != range.end(); ++i) {
        insolate::buildNode(children->nodes[static_cast<std::size_t>(i)], *package, *distinct,
                            *memory);
    }
    children->finished.fetch_add(1, std::memory_order_release);
}

void SpatialTreeUtil::GenerateSpatialTree() {
    SpatialTree::root = nullptr;
    processTree.reset();
    const InputPackage& package = InputPackage::instance();
    SpatialTree::maxDepth = insolate::depthLimit(package.triangleCount);
    processTree = std::make_unique<insolate::Octree>(package);
    SpatialTree::root = &processTree->root();
}

} // namespace RT
