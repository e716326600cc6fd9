#include <insolate/sunlight/sunlight_index.h>

#include <insolate/rt/occlusion_build.h>
#include <insolate/rt/triangle.h>
#include <insolate/sunlight/span_set.h>
#include <insolate/sunlight/sun_arc.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

// How a query goes. The tree is built in the axes of the sun's day. For each quarter of the day the
// boxes are walked from near to far; a box is opened when the fan of sun directions may meet it at
// a time that is not known to be blocked yet. For a triangle, the sun stands behind it while all of
// up to four functions of the sun's direction are positive: its place before the planes through the
// sensor and the three edges, and the distance. They differ from linear by a known bound along a
// run of chords; so a run is taken as a whole where all are clearly positive, left where one is
// clearly negative, and halved otherwise, down to one chord, where they are parabolas. Straight
// lines would do for most edges; but where the sun grazes an edge, as it passes a level one about
// noon, the 4e-6 radians between chord and course are a quarter of a minute.

namespace insolate {

namespace {

using Float4 = float __attribute__((vector_size(16)));
using Int4 = std::int32_t __attribute__((vector_size(16)));

/// A function of the sun's direction, constant + normal . direction.
struct Condition {
    Vector3d normal{};
    double constant = 0.0;
    double steepness = 0.0; ///< the normal's length

    double at(const Vector3d& direction) const {
        return constant + dotProduct(normal.data(), direction.data());
    }
};

Condition conditionOf(const Vector3d& normal, double constant = 0.0) {
    return {normal, constant, std::sqrt(dotProduct(normal.data(), normal.data()))};
}

/// Finds when all of some conditions hold, and hands over the spans, each once and whole.
template <typename Take>
class Sweep {
public:
    Sweep(const SunArc& arc, std::span<const Condition> conditions, Take& take)
        : m_arc(arc), m_conditions(conditions), m_take(take) {}

    void run(std::size_t first, std::size_t last) {
        walk(first, last, valuesAt(first), valuesAt(last));
        if (m_open) {
            m_take(m_span);
        }
    }

private:
    static constexpr std::size_t most = 4;
    using Values = std::array<double, most>;

    Values valuesAt(std::size_t knot) const {
        Values values{};
        for (std::size_t k = 0; k < m_conditions.size(); ++k) {
            values[k] = m_conditions[k].at(m_arc.knots[knot]);
        }
        return values;
    }

    void walk(std::size_t first, std::size_t last, const Values& begin, const Values& end) {
        const std::size_t chords = last - first;
        const double bend = m_arc.bend * static_cast<double>(chords * chords);
        bool all = true;
        for (std::size_t k = 0; k < m_conditions.size(); ++k) {
            const double doubt = m_conditions[k].steepness * bend;
            if (std::max(begin[k], end[k]) < -doubt) {
                return;
            }
            all = all && std::min(begin[k], end[k]) > doubt;
        }
        if (all) {
            take(static_cast<double>(first), static_cast<double>(last));
            return;
        }
        if (chords == 1) {
            solve(first, begin, end);
            return;
        }
        const std::size_t middle = first + chords / 2;
        const Values between = valuesAt(middle);
        walk(first, middle, begin, between);
        walk(middle, last, between, end);
    }

    /// A condition along a chord from 0 to 1.
    struct Parabola {
        double constant = 0.0;
        double slope = 0.0;
        double square = 0.0;

        double at(double place) const { return constant + place * (slope + place * square); }
    };

    void solve(std::size_t chord, const Values& begin, const Values& end) {
        std::array<Parabola, most> parabolas;
        std::array<double, 2 * most + 2> places{0.0};
        std::size_t count = 1;
        const auto add = [&](double place) {
            if (place > 0.0 && place < 1.0) {
                places[count++] = place;
            }
        };
        for (std::size_t k = 0; k < m_conditions.size(); ++k) {
            const double square =
                0.5 * dotProduct(m_conditions[k].normal.data(), m_arc.bends[chord].data());
            const Parabola f{begin[k], end[k] - begin[k] - square, square};
            parabolas[k] = f;
            const double discriminant = f.slope * f.slope - 4.0 * f.square * f.constant;
            if (discriminant > 0.0) {
                // Of the two forms of each root the one that loses no digits.
                const double sum =
                    -0.5 * (f.slope + std::copysign(std::sqrt(discriminant), f.slope));
                add(f.constant / sum);
                add(sum / f.square);
            }
        }
        std::sort(places.begin(), places.begin() + static_cast<std::ptrdiff_t>(count));
        places[count] = 1.0;
        const auto start = static_cast<double>(chord);
        for (std::size_t i = 0; i < count; ++i) {
            const double middle = 0.5 * (places[i] + places[i + 1]);
            const auto holds = [&](const Parabola& f) { return f.at(middle) > 0.0; };
            if (std::all_of(parabolas.begin(),
                            parabolas.begin() + static_cast<std::ptrdiff_t>(m_conditions.size()),
                            holds)) {
                take(start + places[i], start + places[i + 1]);
            }
        }
    }

    void take(double fromKnot, double toKnot) {
        const TimeSpan span{m_arc.timeAt(fromKnot), m_arc.timeAt(toKnot)};
        if (m_open && span.begin - m_span.end < SpanSet::closedGap) {
            m_span.end = span.end;
            return;
        }
        if (m_open) {
            m_take(m_span);
        }
        m_open = true;
        m_span = span;
    }

    const SunArc& m_arc;
    std::span<const Condition> m_conditions;
    Take& m_take;
    bool m_open = false;
    TimeSpan m_span;
};

/// What must hold for a triangle p0, p0 + edge1, p0 + edge2 to stand before the sun.
class BlockingConditions {
public:
    BlockingConditions(const Vector3d& origin, const double* triangle) {
        const Vector3d a = {triangle[0] - origin[0], triangle[1] - origin[1],
                            triangle[2] - origin[2]};
        const Vector3d b = {a[0] + triangle[3], a[1] + triangle[4], a[2] + triangle[5]};
        const Vector3d c = {a[0] + triangle[6], a[1] + triangle[7], a[2] + triangle[8]};
        Vector3d normal = crossProduct(triangle + 3, triangle + 6);
        double depth = dotProduct(normal.data(), a.data());
        if (!(std::fabs(depth) > 0.0)) {
            return; // seen edge-on, or no triangle
        }
        const double side = depth > 0.0 ? 1.0 : -1.0;
        depth *= side;
        const auto add = [&](Vector3d of, double constant) {
            for (double& component : of) {
                component *= side;
            }
            m_conditions[m_count++] = conditionOf(of, constant);
        };
        add(crossProduct(a.data(), b.data()), 0.0);
        add(crossProduct(b.data(), c.data()), 0.0);
        add(crossProduct(c.data(), a.data()), 0.0);
        // The hit lies at depth / (normal . direction); that the sun stands behind the plane
        // follows from the edges.
        for (double& component : normal) {
            component = -component;
        }
        const double farthest = depth / nearestHit;
        if (dotProduct(normal.data(), normal.data()) > farthest * farthest) {
            add(normal, farthest);
        }
    }

    std::span<const Condition> get() const { return {m_conditions.data(), m_count}; }

private:
    std::array<Condition, 4> m_conditions;
    std::size_t m_count = 0;
};

bool isUsable(const Vector3d& origin) {
    return std::fabs(origin[0]) <= largestCoordinate && std::fabs(origin[1]) <= largestCoordinate &&
           std::fabs(origin[2]) <= largestCoordinate;
}

std::uint64_t binsFrom(int low, int high) {
    return (~std::uint64_t{0} << static_cast<unsigned>(low)) &
           (~std::uint64_t{0} >> static_cast<unsigned>(SunFan::binCount - 1 - high));
}

inline Float4 smaller(Float4 a, Float4 b) {
    return a < b ? a : b;
}
inline Float4 larger(Float4 a, Float4 b) {
    return a > b ? a : b;
}
inline Float4 all(float value) {
    return Float4{value, value, value, value};
}
inline Float4 signedSquare(Float4 value) {
    return value * (value < 0.0f ? -value : value);
}

/// What of a node's children the fan may meet.
struct Meeting {
    std::array<std::int32_t, OcclusionNode::width> low{};  ///< bins
    std::array<std::int32_t, OcclusionNode::width> high{}; ///< below low: nothing
    std::array<float, OcclusionNode::width> distance{};    ///< from the axis, squared
};

/// A fan about a sensor, as boxes are held against it.
class FanOfSensor {
public:
    FanOfSensor(const SunFan& fan, const Vector3d& fromCentre)
        : m_fan(fan), m_origin{static_cast<float>(fromCentre[0]), static_cast<float>(fromCentre[1]),
                               static_cast<float>(fromCentre[2])} {
        // The sensor's own rounding, and that of the differences with boxes as far away.
        m_pad = 0x1p-21f * std::max({std::fabs(m_origin[0]), std::fabs(m_origin[1]),
                                     std::fabs(m_origin[2])}) +
                1e-20f;
    }

    void meet(const OcclusionNode& node, Meeting& meeting) const {
        const std::array<const float*, 4> plan = {node.minX.data(), node.maxX.data(),
                                                  node.minY.data(), node.maxY.data()};
        // Along the quarter's axis (u) and across (v): x, y / y, -x / -x, -y / -y, x.
        const std::size_t alongY = static_cast<std::size_t>(m_fan.quarter) & 1U;
        const bool flipU = m_fan.quarter >= 2;
        const bool flipV = m_fan.quarter == 1 || m_fan.quarter == 2;
        for (std::size_t lane = 0; lane < OcclusionNode::width; lane += 4) {
            Float4 u0;
            Float4 u1;
            Float4 v0;
            Float4 v1;
            side(plan.data() + 2 * alongY, lane, m_origin[alongY], flipU, u0, u1);
            side(plan.data() + 2 * (1 - alongY), lane, m_origin[1 - alongY], flipV, v0, v1);
            const Float4 z0 = load(node.minZ.data() + lane) - m_origin[2] - m_pad;
            const Float4 z1 = load(node.maxZ.data() + lane) - m_origin[2] + m_pad;
            meetFour(u0, u1, v0, v1, z0, z1, lane, meeting);
        }
    }

private:
    static Float4 load(const float* lanes) {
        return Float4{lanes[0], lanes[1], lanes[2], lanes[3]};
    }

    void side(const float* const* bounds, std::size_t lane, float origin, bool flip, Float4& low,
              Float4& high) const {
        const Float4 least = load(bounds[0] + lane) - origin - m_pad;
        const Float4 most = load(bounds[1] + lane) - origin + m_pad;
        low = flip ? -most : least;
        high = flip ? -least : most;
    }

    void meetFour(Float4 u0, Float4 u1, Float4 v0, Float4 v1, Float4 z0, Float4 z1,
                  std::size_t lane, Meeting& meeting) const {
        constexpr auto reach = static_cast<float>(SunFan::reach);
        const Float4 nearU = larger(u0, all(1e-20f));
        const Float4 farU = larger(u1, all(1e-20f));
        Float4 lowSlope = v0 / (v0 > 0.0f ? farU : nearU);
        Float4 highSlope = v1 / (v1 > 0.0f ? nearU : farU);
        Int4 met =
            (u1 > 0.0f) & (lowSlope <= m_fan.highestSlope) & (highSlope >= m_fan.lowestSlope);
        lowSlope = larger(lowSlope, all(-reach));
        highSlope = smaller(highSlope, all(reach));
        // Distances from the axis, squared, within the slopes of the fan.
        const Float4 across = larger(larger(v0, -v1), all(0.0f));
        const Float4 nearest = nearU * nearU + across * across;
        const Float4 steepest = larger(lowSlope * lowSlope, highSlope * highSlope);
        const Float4 widest = larger(v0 * v0, v1 * v1);
        const Float4 farthest = farU * farU + smaller(widest, farU * farU * steepest);
        const Float4 bottom = signedSquare(z0);
        const Float4 top = signedSquare(z1);
        const float low = m_fan.lowestRise;
        const float high = m_fan.highestRise;
        met &= (bottom <= high * (high > 0.0f ? farthest : nearest)) &
               (top >= low * (low > 0.0f ? nearest : farthest));
        // A box that is missed may have any slope; its bins would overflow the integers.
        lowSlope = met != 0 ? lowSlope : all(0.0f);
        highSlope = met != 0 ? highSlope : all(0.0f);
        constexpr auto scale = static_cast<float>(SunFan::binsPerSlope);
        const Int4 first = __builtin_convertvector((lowSlope + reach) * scale, Int4);
        const Int4 last = __builtin_convertvector((highSlope + reach) * scale, Int4);
        for (int i = 0; i < 4; ++i) {
            const std::size_t place = lane + static_cast<std::size_t>(i);
            meeting.low[place] = std::min(first[i], SunFan::binCount - 1);
            meeting.high[place] = met[i] != 0 ? std::min(last[i], SunFan::binCount - 1) : -1;
            meeting.distance[place] = nearest[i];
        }
    }

    const SunFan& m_fan;
    std::array<float, 3> m_origin;
    float m_pad;
};

} // namespace

struct SunlightIndex::Tree {
    std::unique_ptr<const OcclusionIndex::Storage> storage;
};

struct SunlightIndex::Workspace::Content {
    SpanSet blocked;
};

SunlightIndex::Workspace::Workspace() : m_content(std::make_unique<Content>()) {}
SunlightIndex::Workspace::Workspace(Workspace&&) noexcept = default;
SunlightIndex::Workspace& SunlightIndex::Workspace::operator=(Workspace&&) noexcept = default;
SunlightIndex::Workspace::~Workspace() = default;

/// One query over one arc.
struct SunlightIndex::Search {
    const OcclusionIndex::Storage& scene;
    const SunArc& arc;
    Vector3d origin; ///< in the axes of the sun's day
    SpanSet& blocked;

    void block(std::span<const Condition> conditions, std::size_t first, std::size_t last) {
        auto take = [this](TimeSpan span) { blocked.add(span); };
        Sweep(arc, conditions, take).run(first, last);
    }

    void walkFan(const SunFan& fan) {
        std::uint64_t open = stillOpen(fan, fan.bins);
        if (open == 0 || scene.nodes.empty()) {
            return;
        }
        const FanOfSensor fanOfSensor(fan, difference(origin, scene.centre));
        struct Entry {
            std::uint32_t child;
            std::uint64_t bins;
        };
        // Each level leaves fewer than all its children waiting.
        std::array<Entry, occlusionChild::largestDepth * OcclusionNode::width> waiting;
        std::size_t count = 0;
        waiting[count++] = {scene.root, open};
        Meeting meeting;
        while (count > 0 && open != 0) {
            const Entry entry = waiting[--count];
            if ((entry.bins & open) == 0) {
                continue;
            }
            if (occlusionChild::isLeaf(entry.child)) {
                open = blockByLeaf(fan, entry.child, entry.bins, open);
                continue;
            }
            const OcclusionNode& node = scene.nodes[entry.child];
            fanOfSensor.meet(node, meeting);
            const std::size_t base = count;
            std::array<float, OcclusionNode::width> distances;
            for (std::size_t lane = 0; lane < node.childCount; ++lane) {
                if (meeting.high[lane] < meeting.low[lane]) {
                    continue;
                }
                const std::uint64_t bins = binsFrom(meeting.low[lane], meeting.high[lane]) & open;
                if (bins == 0) {
                    continue;
                }
                // The nearest comes last, to be taken first.
                std::size_t place = count++;
                while (place > base && distances[place - base - 1] < meeting.distance[lane]) {
                    waiting[place] = waiting[place - 1];
                    distances[place - base] = distances[place - base - 1];
                    --place;
                }
                waiting[place] = {node.child[lane], bins};
                distances[place - base] = meeting.distance[lane];
            }
        }
    }

private:
    std::uint64_t blockByLeaf(const SunFan& fan, std::uint32_t child, std::uint64_t bins,
                              std::uint64_t open) {
        const OcclusionLeaf leaf(scene, child);
        const double* triangle =
            scene.exact.data() + doublesPerTriangle * leaf.header->firstTriangle;
        const std::uint64_t asked = bins & open;
        const std::size_t first =
            fan.binFirstKnot[static_cast<std::size_t>(std::countr_zero(asked))];
        const std::size_t last =
            fan.binLastKnot[static_cast<std::size_t>(63 - std::countl_zero(asked))];
        bool added = false;
        TimeSpan changed{std::numeric_limits<double>::max(), 0.0};
        auto take = [&](TimeSpan span) {
            const TimeSpan grown = blocked.add(span);
            changed = {std::min(changed.begin, grown.begin), std::max(changed.end, grown.end)};
            added = true;
        };
        for (std::size_t i = 0; i < leaf.count; ++i, triangle += doublesPerTriangle) {
            const BlockingConditions conditions(origin, triangle);
            if (!conditions.get().empty()) {
                Sweep(arc, conditions.get(), take).run(first, last);
            }
        }
        return added ? stillOpen(fan, open) : open;
    }

    std::uint64_t stillOpen(const SunFan& fan, std::uint64_t bins) const {
        for (std::uint64_t rest = bins; rest != 0; rest &= rest - 1) {
            const auto bin = static_cast<std::size_t>(std::countr_zero(rest));
            if (blocked.covers(fan.binBegin[bin], fan.binEnd[bin])) {
                bins &= ~(rest & (~rest + 1));
            }
        }
        return bins;
    }
};

SunlightIndex::SunlightIndex(const SkyAxes& axes) : SunlightIndex({}, axes) {}

SunlightIndex::SunlightIndex(std::span<const double> coordinates, const SkyAxes& axes)
    : m_axes(axes) {
    std::vector<double> turned;
    turned.reserve(coordinates.size());
    for (std::size_t i = 0; i + 9 <= coordinates.size(); i += 9) {
        for (std::size_t vertex = i; vertex < i + 9; vertex += 3) {
            const Direction point =
                axes.polar({coordinates[vertex], coordinates[vertex + 1], coordinates[vertex + 2]});
            turned.insert(turned.end(), point.begin(), point.end());
        }
    }
    const TriangleSource source{reinterpret_cast<const std::byte*>(turned.data()),
                                9 * sizeof(double), turned.size() / 9};
    m_tree = std::make_unique<const Tree>(Tree{buildOcclusionStorage(source, {})});
}

SunlightIndex::SunlightIndex(SunlightIndex&&) noexcept = default;
SunlightIndex& SunlightIndex::operator=(SunlightIndex&&) noexcept = default;
SunlightIndex::~SunlightIndex() = default;

std::size_t SunlightIndex::triangleCount() const {
    return m_tree->storage->triangleCount();
}

void SunlightIndex::sunlight(const Direction& origin, std::span<const Direction> facings,
                             const SunPath& path, Workspace& workspace,
                             std::vector<TimeSpan>& lit) const {
    lit.clear();
    const Vector3d from = m_axes.polar(origin);
    if (!(path.axes() == m_axes) || !std::isfinite(from[0] + from[1] + from[2])) {
        return;
    }
    SpanSet& blocked = workspace.m_content->blocked;
    const OcclusionIndex::Storage& scene = *m_tree->storage;
    for (const SunArc& arc : path.arcs()) {
        blocked.clear();
        Search search{scene, arc, from, blocked};
        const std::size_t lastKnot = arc.knots.size() - 1;
        for (const Direction& facing : facings) {
            Vector3d behind = m_axes.polar(facing);
            for (double& component : behind) {
                component = -component;
            }
            const Condition condition = conditionOf(behind);
            if (condition.steepness > 0.0) {
                search.block({&condition, 1}, 0, lastKnot);
            }
        }
        const auto blockByEach = [&](std::span<const double> triangles) {
            for (std::size_t i = 0; i < triangles.size(); i += doublesPerTriangle) {
                const BlockingConditions conditions(from, triangles.data() + i);
                if (!conditions.get().empty()) {
                    search.block(conditions.get(), 0, lastKnot);
                }
            }
        };
        if (isUsable(from)) {
            for (const SunFan& fan : arc.fans) {
                search.walkFan(fan);
            }
        } else {
            blockByEach(scene.exact);
        }
        blockByEach(scene.unbounded);
        blocked.appendGaps(arc.begin, arc.end(), lit);
    }
}

std::vector<TimeSpan> SunlightIndex::sunlight(const Direction& origin,
                                              std::span<const Direction> facings,
                                              const SunPath& path) const {
    Workspace workspace;
    std::vector<TimeSpan> lit;
    sunlight(origin, facings, path, workspace, lit);
    return lit;
}

} // namespace insolate
