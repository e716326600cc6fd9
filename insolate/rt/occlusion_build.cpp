#include <insolate/rt/occlusion_build.h>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_invoke.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace insolate {

namespace {

// Four floats that the compiler keeps in one register on every machine.
using Float4 = float __attribute__((vector_size(16)));
using Int4 = std::int32_t __attribute__((vector_size(16)));

constexpr float infinity = std::numeric_limits<float>::infinity();

inline Float4 smaller(Float4 a, Float4 b) {
    return a < b ? a : b;
}
inline Float4 larger(Float4 a, Float4 b) {
    return a > b ? a : b;
}

/// An axis-aligned box; the fourth lanes are free.
struct Box {
    Float4 low{infinity, infinity, infinity, infinity};
    Float4 high{-infinity, -infinity, -infinity, -infinity};

    void add(Float4 point) {
        low = smaller(low, point);
        high = larger(high, point);
    }
    void add(const Box& other) {
        low = smaller(low, other.low);
        high = larger(high, other.high);
    }
    /// Half the surface area.
    float area() const {
        const Float4 size = high - low;
        return size[0] * size[1] + size[1] * size[2] + size[2] * size[0];
    }
};

/// A triangle's box; the fourth lane of `low` holds its index, with upper bits that make it an
/// ordinary number: arithmetic on denormal ones would be slow.
struct Item {
    static constexpr std::uint32_t ordinary = 0x30000000U;

    Float4 low;
    Float4 high;

    std::uint32_t triangle() const {
        return std::bit_cast<std::array<std::uint32_t, 4>>(low)[3] & ~ordinary;
    }
    Float4 doubledCentre() const { return low + high; }
};

/// A range of items, and its halves.
///
/// The tree's inner nodes are stored by the place of their cut in the sorted items, which is
/// unique: no allocation, and the same place whatever thread cuts.
struct BinaryNode {
    Box box;
    std::uint32_t begin, end;
    std::uint32_t left, right; ///< inner nodes, or noNode where the half is a leaf
};

constexpr std::uint32_t noNode = 0xFFFFFFFFU;

/// Places at which a cut is tried along each axis: fewer give worse cuts and slower walks
/// (./dev bench rays masks), more a slower build (./dev bench rays build).
constexpr std::size_t binCount = 16;

/// Below this depth ranges are halved whatever it costs, which bounds the depth of any tree by this
/// plus the logarithm of the largest scene.
constexpr int halvingDepth = 64;
static_assert(halvingDepth + 28 <= occlusionChild::largestDepth);
/// Fewer are not worth a task, which costs some microseconds (./dev bench rays build).
constexpr std::uint32_t parallelItems = 4096;

/// Leaves hold at most this many, which one pass of the widest loop tests. Leaves of 4 and 6 gain
/// nothing (./dev bench rays masks).
constexpr std::uint32_t leafItems = occlusionChild::largestLeaf;

/// What the items of a range span.
struct Extent {
    Box box;
    Box centres; ///< of the doubled centres

    void add(const Item& item) {
        box.low = smaller(box.low, item.low);
        box.high = larger(box.high, item.high);
        centres.add(item.doubledCentre());
    }
};

/// A rounded-outwards box of a triangle, relative to the centre.
///
/// The single-precision value is off by at most 2^-24 of its magnitude; 2^-22 of it covers that and
/// the rounding of this arithmetic. A millionth of the triangle's size, and 1e-20 so that no box is
/// flat, keep every hit of the exact test inside: see occlusion_query.cpp.
bool makeItem(const double* vertices, const std::array<double, 3>& centre, std::size_t triangle,
              Item& item) {
    std::array<float, 4> low{};
    std::array<float, 4> high{};
    float size = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double a = vertices[axis];
        const double b = vertices[3 + axis];
        const double c = vertices[6 + axis];
        if (!(std::max({std::fabs(a), std::fabs(b), std::fabs(c)}) <= largestCoordinate) ||
            std::isnan(a + b + c) || triangle >= largestScene) {
            return false;
        }
        low[axis] = static_cast<float>(std::min({a, b, c}) - centre[axis]);
        high[axis] = static_cast<float>(std::max({a, b, c}) - centre[axis]);
        size = std::max(size, high[axis] - low[axis]);
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const float margin = size * 0x1p-20f + 1e-20f;
        low[axis] -= std::fabs(low[axis]) * 0x1p-22f + margin;
        high[axis] += std::fabs(high[axis]) * 0x1p-22f + margin;
    }
    low[3] = std::bit_cast<float>(static_cast<std::uint32_t>(triangle) | Item::ordinary);
    high[3] = 0;
    item.low = std::bit_cast<Float4>(low);
    item.high = std::bit_cast<Float4>(high);
    return true;
}

class Builder {
public:
    Builder(const TriangleSource& source, const OcclusionIndexOptions& options)
        : m_source(source), m_parallel(options.parallel), m_stop(options.stop),
          m_storage(std::make_unique<OcclusionIndex::Storage>()), m_items(source.count),
          m_binary(source.count) {}

    std::unique_ptr<const OcclusionIndex::Storage> build() {
        const Extent extent = collectItems();
        if (m_items.size() == 0) {
            return std::move(m_storage);
        }
        const auto count = static_cast<std::uint32_t>(m_items.size());
        const std::uint32_t top = split(0, count, extent, 0);
        if (m_stop.stop_requested()) {
            return std::make_unique<OcclusionIndex::Storage>();
        }
        if (top == noNode) {
            // One leaf: a root with a single child.
            m_binary[0] = {extent.box, 0, count, noNode, noNode};
        }
        emit(top == noNode ? 0 : top);
        if (m_stop.stop_requested()) {
            return std::make_unique<OcclusionIndex::Storage>();
        }
        return std::move(m_storage);
    }

private:
    struct Cut {
        float cost = infinity;
        int axis = -1;
        std::size_t bin = 0; ///< first bin of the right half
    };

    struct Children {
        std::array<std::uint32_t, OcclusionNode::width> node; ///< or noNode for a leaf
        std::array<std::uint32_t, OcclusionNode::width> begin, end;
        std::size_t count = 0;
    };

    template <typename Body>
    void forRange(std::size_t count, const Body& body) const {
        if (m_parallel) {
            tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, 16384),
                              [&](const auto& range) { body(range.begin(), range.end()); });
        } else {
            body(std::size_t{0}, count);
        }
    }

    /// Fills `items`, sets aside what no box can hold, and finds the centre.
    Extent collectItems() {
        constexpr double far = std::numeric_limits<double>::max();
        std::array<double, 3> low{far, far, far};
        std::array<double, 3> high{-far, -far, -far};
        for (std::size_t i = 0; i < m_source.count; ++i) {
            const double* vertices = m_source.vertices(i);
            for (std::size_t k = 0; k < 9; ++k) {
                if (std::fabs(vertices[k]) <= largestCoordinate) {
                    low[k % 3] = std::min(low[k % 3], vertices[k]);
                    high[k % 3] = std::max(high[k % 3], vertices[k]);
                }
            }
        }
        for (std::size_t axis = 0; axis < 3; ++axis) {
            m_storage->centre[axis] = low[axis] <= high[axis] ? (low[axis] + high[axis]) / 2 : 0.0;
        }
        std::vector<std::uint8_t> boxed(m_source.count);
        forRange(m_source.count, [&](std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end; ++i) {
                boxed[i] = makeItem(m_source.vertices(i), m_storage->centre, i, m_items[i]);
            }
        });
        Extent extent;
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_source.count; ++i) {
            if (boxed[i] != 0) {
                extent.add(m_items[i]);
                m_items[kept++] = m_items[i];
            } else {
                m_storage->unboundedNumbers.push_back(static_cast<std::uint32_t>(i));
                m_storage->unbounded.resize(m_storage->unbounded.size() + doublesPerTriangle);
                packTriangle(i, m_storage->unbounded.data() + m_storage->unbounded.size() -
                                    doublesPerTriangle);
            }
        }
        m_items.shrink(kept);
        return extent;
    }

    /// Writes p0, edge1, edge2. The edges are formed exactly as the package forms them.
    void packTriangle(std::size_t triangle, double* place) const {
        const double* p = m_source.vertices(triangle);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            place[axis] = p[axis];
            place[3 + axis] = p[3 + axis] - p[axis];
            place[6 + axis] = p[6 + axis] - p[axis];
        }
    }

    /// Writes the leaf of items [begin, end) from the given unit on; box is the leaf's own.
    void packLeaf(std::uint32_t begin, std::uint32_t end, const Box& box,
                  std::uint32_t unit) const {
        OcclusionLeafUnit* place = m_storage->leaves.data() + unit;
        OcclusionLeafHeader header{};
        header.firstTriangle = begin;
        for (int axis = 0; axis < 3; ++axis) {
            header.anchor[static_cast<std::size_t>(axis)] =
                m_storage->centre[static_cast<std::size_t>(axis)] +
                static_cast<double>(box.low[axis] + box.high[axis]) / 2;
        }
        const std::size_t count = end - begin;
        float* runs = place[1].values.data();
        for (std::size_t i = 0; i < count; ++i) {
            double* exact = m_storage->exact.data() + doublesPerTriangle * (begin + i);
            packTriangle(m_items[begin + i].triangle(), exact);
            m_storage->numbers[begin + i] = m_items[begin + i].triangle();
            double reach = 0;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const double local = exact[axis] - header.anchor[axis];
                reach += std::fabs(local);
                runs[axis * count + i] = static_cast<float>(local);
                runs[(3 + axis) * count + i] = static_cast<float>(exact[3 + axis]);
                runs[(6 + axis) * count + i] = static_cast<float>(exact[6 + axis]);
            }
            constexpr double upwards = 1 + 0x1p-22;
            header.reach = std::max(header.reach, static_cast<float>(reach * upwards));
        }
        std::memcpy(place, &header, sizeof(header));
    }

    /// Cuts items [begin, end) recursively; the node made, or noNode for a leaf.
    ///
    /// Binned surface-area heuristic: Wald (2007), "On fast construction of SAH-based bounding
    /// volume hierarchies", IEEE Symposium on Interactive Ray Tracing.
    std::uint32_t split(std::uint32_t begin, std::uint32_t end, const Extent& extent, int depth) {
        if (end - begin <= leafItems || (end - begin > parallelItems && m_stop.stop_requested())) {
            return noNode; // after a stop nothing is made of it
        }
        Extent left;
        Extent right;
        const std::uint32_t middle = depth < halvingDepth
                                         ? partition(begin, end, extent, left, right)
                                         : halve(begin, end, left, right);
        BinaryNode& node = m_binary[middle];
        node.box = extent.box;
        node.begin = begin;
        node.end = end;
        const auto cutLeft = [&] { node.left = split(begin, middle, left, depth + 1); };
        const auto cutRight = [&] { node.right = split(middle, end, right, depth + 1); };
        if (m_parallel && end - begin > parallelItems) {
            tbb::parallel_invoke(cutLeft, cutRight);
        } else {
            cutLeft();
            cutRight();
        }
        return middle;
    }

    std::uint32_t partition(std::uint32_t begin, std::uint32_t end, const Extent& extent,
                            Extent& left, Extent& right) {
        const Float4 origin = extent.centres.low;
        const Float4 size = extent.centres.high - origin;
        constexpr auto bins = static_cast<float>(binCount);
        Float4 scale{};
        for (int axis = 0; axis < 3; ++axis) {
            scale[axis] = size[axis] > 1e-30f ? bins * 0.99999f / size[axis] : 0.0f;
        }
        const Cut cut = bestCut(begin, end, origin, scale);
        if (cut.axis < 0) {
            return halve(begin, end, left, right);
        }
        const int axis = cut.axis;
        const auto isLeft = [&](const Item& item) {
            const Int4 bin = __builtin_convertvector((item.doubledCentre() - origin) * scale, Int4);
            return static_cast<std::size_t>(bin[axis]) < cut.bin;
        };
        // From both ends inwards, so that the order is the same on every machine.
        Item* first = m_items.data() + begin;
        Item* last = m_items.data() + end;
        while (true) {
            while (first != last && isLeft(*first)) {
                left.add(*first++);
            }
            while (first != last && !isLeft(last[-1])) {
                right.add(*--last);
            }
            if (first == last) {
                break;
            }
            std::swap(*first, last[-1]);
        }
        return static_cast<std::uint32_t>(first - m_items.data());
    }

    /// Items with one common centre: any half is as good.
    std::uint32_t halve(std::uint32_t begin, std::uint32_t end, Extent& left, Extent& right) {
        const std::uint32_t middle = begin + (end - begin) / 2;
        for (std::uint32_t i = begin; i < end; ++i) {
            (i < middle ? left : right).add(m_items[i]);
        }
        return middle;
    }

    Cut bestCut(std::uint32_t begin, std::uint32_t end, Float4 origin, Float4 scale) const {
        std::array<std::array<Box, binCount>, 3> boxes;
        std::array<std::array<std::uint32_t, binCount>, 3> counts{};
        for (std::uint32_t i = begin; i < end; ++i) {
            const Item& item = m_items[i];
            const Int4 bin = __builtin_convertvector((item.doubledCentre() - origin) * scale, Int4);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const auto b = static_cast<std::size_t>(bin[axis]);
                boxes[axis][b].low = smaller(boxes[axis][b].low, item.low);
                boxes[axis][b].high = larger(boxes[axis][b].high, item.high);
                ++counts[axis][b];
            }
        }
        Cut best;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            if (!(scale[axis] > 0)) {
                continue;
            }
            std::array<float, binCount> rightCost{};
            Box box;
            std::uint32_t count = 0;
            for (std::size_t bin = binCount - 1; bin > 0; --bin) {
                box.add(boxes[axis][bin]);
                count += counts[axis][bin];
                rightCost[bin] = count == 0 ? infinity : box.area() * blocks(count);
            }
            box = Box();
            count = 0;
            for (std::size_t bin = 1; bin < binCount; ++bin) {
                box.add(boxes[axis][bin - 1]);
                count += counts[axis][bin - 1];
                const float cost =
                    count == 0 ? infinity : box.area() * blocks(count) + rightCost[bin];
                if (cost < best.cost) {
                    best = {cost, static_cast<int>(axis), bin};
                }
            }
        }
        return best;
    }

    /// What a half costs in the heuristic: its items, and 3 for the box and for passes that are not
    /// full. Other weights gain nothing (./dev bench rays masks).
    static float blocks(std::uint32_t count) { return static_cast<float>(count) + 3.0f; }

    /// Opens the child with the largest surface until eight children are there.
    Children childrenOf(std::uint32_t index) const {
        Children children;
        const auto add = [&](std::size_t place, std::uint32_t node, std::uint32_t begin,
                             std::uint32_t end) {
            children.node[place] = node;
            children.begin[place] = begin;
            children.end[place] = end;
        };
        const BinaryNode& top = m_binary[index];
        if (top.left == noNode && top.right == noNode && top.end - top.begin <= leafItems) {
            add(0, noNode, top.begin, top.end);
            children.count = 1;
            return children;
        }
        add(0, top.left, top.begin, index);
        add(1, top.right, index, top.end);
        children.count = 2;
        while (children.count < OcclusionNode::width) {
            float largest = -1;
            std::size_t widest = 0;
            for (std::size_t i = 0; i < children.count; ++i) {
                if (children.node[i] != noNode && m_binary[children.node[i]].box.area() > largest) {
                    largest = m_binary[children.node[i]].box.area();
                    widest = i;
                }
            }
            if (largest < 0) {
                break;
            }
            const std::uint32_t opened = children.node[widest];
            add(children.count++, m_binary[opened].right, opened, m_binary[opened].end);
            add(widest, m_binary[opened].left, m_binary[opened].begin, opened);
        }
        return children;
    }

    /// Marks the inner nodes that stay, and notes the size of each leaf.
    void markWide(std::uint32_t index, std::vector<std::uint32_t>& place) {
        place[index] = 1;
        const Children children = childrenOf(index);
        const bool large =
            m_parallel && m_binary[index].end - m_binary[index].begin > parallelItems;
        const auto mark = [&](std::size_t i) {
            if (children.node[i] != noNode) {
                markWide(children.node[i], place);
            } else {
                m_units[children.begin[i]] = leafUnits(children.end[i] - children.begin[i]);
            }
        };
        if (large) {
            tbb::parallel_for(std::size_t{0}, children.count, mark);
        } else {
            for (std::size_t i = 0; i < children.count; ++i) {
                mark(i);
            }
        }
    }

    /// Turns the binary tree into nodes of eight and writes the leaves' triangles.
    void emit(std::uint32_t top) {
        const std::size_t count = m_items.size();
        std::vector<std::uint32_t> place(count, 0);
        m_units.resize(count, 0);
        markWide(top, place);
        std::uint32_t wide = 0;
        for (std::uint32_t& p : place) {
            const std::uint32_t marked = p;
            p = marked != 0 ? wide : noNode;
            wide += marked;
        }
        m_storage->root = place[top];
        // Leaves start where their first item does; `units` holds their sizes, then their places.
        std::uint32_t unit = 0;
        for (std::uint32_t& u : m_units) {
            const std::uint32_t size = u;
            u = unit;
            unit += size;
        }
        const std::size_t leafCount = std::size_t{unit} + 1; // a load takes eight lanes of any run
        const std::size_t nodeBytes = wide * sizeof(OcclusionNode);
        const std::size_t leafBytes = leafCount * sizeof(OcclusionLeafUnit);
        const std::size_t doubles = count * doublesPerTriangle;
        m_storage->block = LargeBlock(nodeBytes + leafBytes + doubles * sizeof(double) +
                                      count * sizeof(std::uint32_t));
        std::byte* memory = m_storage->block.data();
        m_storage->nodes = {reinterpret_cast<OcclusionNode*>(memory), wide};
        memory += nodeBytes;
        m_storage->leaves = {reinterpret_cast<OcclusionLeafUnit*>(memory), leafCount};
        memory += leafBytes;
        m_storage->exact = {reinterpret_cast<double*>(memory), doubles};
        memory += doubles * sizeof(double);
        m_storage->numbers = {reinterpret_cast<std::uint32_t*>(memory), count};
        m_storage->leaves.back() = {};
        forRange(count, [&](std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end && !m_stop.stop_requested(); ++i) {
                if (place[i] != noNode) {
                    emitNode(static_cast<std::uint32_t>(i), place);
                }
            }
        });
    }

    void emitNode(std::uint32_t index, const std::vector<std::uint32_t>& place) {
        const Children children = childrenOf(index);
        OcclusionNode& node = m_storage->nodes[place[index]];
        node = {};
        node.childCount = static_cast<std::uint32_t>(children.count);
        for (std::size_t lane = 0; lane < OcclusionNode::width; ++lane) {
            Box box;
            if (lane < children.count) {
                const std::uint32_t child = children.node[lane];
                const std::uint32_t first = children.begin[lane];
                const std::uint32_t end = children.end[lane];
                if (child != noNode) {
                    box = m_binary[child].box;
                    node.child[lane] = place[child];
                } else {
                    for (std::uint32_t i = first; i < end; ++i) {
                        box.low = smaller(box.low, m_items[i].low);
                        box.high = larger(box.high, m_items[i].high);
                    }
                    packLeaf(first, end, box, m_units[first]);
                    node.child[lane] = occlusionChild::leaf(m_units[first], end - first);
                }
            }
            node.minX[lane] = box.low[0];
            node.minY[lane] = box.low[1];
            node.minZ[lane] = box.low[2];
            node.maxX[lane] = box.high[0];
            node.maxY[lane] = box.high[1];
            node.maxZ[lane] = box.high[2];
        }
    }

    TriangleSource m_source;
    bool m_parallel;
    std::stop_token m_stop;
    std::unique_ptr<OcclusionIndex::Storage> m_storage;
    LargeArray<Item> m_items;
    LargeArray<BinaryNode> m_binary;
    std::vector<std::uint32_t> m_units; ///< by a leaf's first item
};

} // namespace

std::unique_ptr<const OcclusionIndex::Storage>
buildOcclusionStorage(const TriangleSource& source, const OcclusionIndexOptions& options) {
    return Builder(source, options).build();
}

} // namespace insolate
