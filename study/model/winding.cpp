#include "study/model/winding.h"

#include "study/model/mesh_edges.h"
#include "study/model/plan_tree.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Faces that hang together, with the winding of each against that of the set's first (a forest of
/// disjoint sets whose links carry a parity; Tarjan 1975, Journal of the ACM 22(2), 215-225).
class WindingSets {
public:
    explicit WindingSets(std::size_t faces)
        : m_parent(faces), m_isOpposed(faces), m_size(faces, 1) {
        std::iota(m_parent.begin(), m_parent.end(), 0U);
    }

    struct Place {
        std::uint32_t set;
        bool isOpposed; ///< whether the face is wound against the set's first
    };

    Place find(std::uint32_t face) {
        std::uint32_t root = face;
        bool isOpposed = false;
        while (m_parent[root] != root) {
            isOpposed = isOpposed != (m_isOpposed[root] != 0);
            root = m_parent[root];
        }
        bool rest = isOpposed;
        while (m_parent[face] != root && face != root) {
            const std::uint32_t next = m_parent[face];
            const bool own = m_isOpposed[face] != 0;
            m_parent[face] = root;
            m_isOpposed[face] = rest ? 1 : 0;
            rest = rest != own;
            face = next;
        }
        return {root, isOpposed};
    }

    /// False when the two hang together already with the other winding: a surface with one side.
    bool join(std::uint32_t a, std::uint32_t b, bool areOpposed) {
        Place p = find(a);
        Place q = find(b);
        const bool link = (p.isOpposed != q.isOpposed) != areOpposed;
        if (p.set == q.set) {
            return !link;
        }
        if (m_size[p.set] < m_size[q.set]) {
            std::swap(p, q);
        }
        m_parent[q.set] = p.set;
        m_isOpposed[q.set] = link ? 1 : 0;
        m_size[p.set] += m_size[q.set];
        return true;
    }

private:
    std::vector<std::uint32_t> m_parent;
    std::vector<char> m_isOpposed; ///< against the parent
    std::vector<std::uint32_t> m_size;
};

/// Leaves out where a face goes along an edge there and back, as on the bridge to a hole. The uses
/// are sorted by face.
void cancelBridges(std::vector<EdgeUse>& uses) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < uses.size(); ++i) {
        if (kept > 0 && uses[kept - 1].face == uses[i].face &&
            uses[kept - 1].isForward != uses[i].isForward) {
            --kept;
        } else {
            uses[kept++] = uses[i];
        }
    }
    uses.resize(kept);
}

class BodyFinder {
public:
    BodyFinder(const Mesh& mesh, const std::stop_token& stop)
        : m_mesh(mesh), m_stop(stop), m_sets(mesh.faces.size()), m_isOpen(mesh.faces.size(), 0) {}

    Bodies find() {
        joinFaces();
        measure();
        orientNested();
        return std::move(m_result);
    }

private:
    void join(const EdgeUse& a, const EdgeUse& b) {
        if (!m_sets.join(a.face, b.face, a.isForward == b.isForward)) {
            m_isOpen[a.face] = 1; // one-sided, as a Moebius strip: it has no inside
        }
    }

    void joinFaces() {
        const std::vector<std::uint32_t> welded = weldedVertices(m_mesh);
        const std::vector<EdgeUse> uses = edgeUses(m_mesh, welded);
        std::vector<EdgeUse> edge;
        std::vector<EdgeUse> crowded; // edges of more than two faces, for a second look
        forEachEdge(std::span(uses), [&](std::span<const EdgeUse> all) {
            throwIfStopped(m_stop);
            if (all.size() == 2 && all[0].face != all[1].face) { // nearly every edge
                join(all[0], all[1]);
                return;
            }
            edge.assign(all.begin(), all.end());
            cancelBridges(edge);
            if (edge.size() == 1) {
                m_isOpen[edge[0].face] = 1;
            } else if (edge.size() == 2) {
                join(edge[0], edge[1]);
            } else if (edge.size() > 2 && !joinByObject(edge)) {
                crowded.insert(crowded.end(), edge.begin(), edge.end());
            }
        });
        // What hangs together by now takes its own sides of a crowded edge.
        forEachEdge(std::span<const EdgeUse>(crowded), [&](std::span<const EdgeUse> all) {
            edge.assign(all.begin(), all.end());
            std::stable_sort(edge.begin(), edge.end(), [&](const EdgeUse& a, const EdgeUse& b) {
                return m_sets.find(a.face).set < m_sets.find(b.face).set;
            });
            for (std::size_t first = 0; first < edge.size();) {
                const std::uint32_t set = m_sets.find(edge[first].face).set;
                int balance = 0;
                std::size_t end = first;
                for (; end < edge.size() && m_sets.find(edge[end].face).set == set; ++end) {
                    const bool isOpposed = m_sets.find(edge[end].face).isOpposed;
                    balance += edge[end].isForward != isOpposed ? 1 : -1;
                }
                if (balance != 0) {
                    m_isOpen[edge[first].face] = 1;
                }
                first = end;
            }
        });
    }

    /// Neighbouring houses share edges and whole walls; each object closes with its own faces.
    bool joinByObject(std::vector<EdgeUse>& edge) {
        std::stable_sort(edge.begin(), edge.end(), [&](const EdgeUse& a, const EdgeUse& b) {
            return m_mesh.faces[a.face].object < m_mesh.faces[b.face].object;
        });
        const auto object = [&](std::size_t i) { return m_mesh.faces[edge[i].face].object; };
        bool inPairs = edge.size() % 2 == 0;
        for (std::size_t i = 0; inPairs && i < edge.size(); i += 2) {
            inPairs = object(i) == object(i + 1) && (i == 0 || object(i - 1) != object(i));
        }
        if (inPairs) {
            for (std::size_t i = 0; i < edge.size(); i += 2) {
                join(edge[i], edge[i + 1]);
            }
        }
        return inPairs;
    }

    void measure() {
        const std::size_t count = m_mesh.faces.size();
        constexpr std::uint32_t none = 0xFFFFFFFFU;
        std::vector<std::uint32_t> bodyOfSet(count, none);
        m_result.bodyOf.resize(count);
        m_result.isTurned.assign(count, 0);
        std::vector<char> isOpen;
        std::vector<std::size_t> opposed;
        std::vector<double> largestArea;
        std::vector<Vector3> polygon;
        for (std::uint32_t f = 0; f < count; ++f) {
            throwIfStopped(m_stop);
            const WindingSets::Place place = m_sets.find(f);
            std::uint32_t& body = bodyOfSet[place.set];
            if (body == none) {
                body = static_cast<std::uint32_t>(m_result.bodies.size());
                m_result.bodies.push_back({.firstFace = f});
                isOpen.push_back(0);
                opposed.push_back(0);
                m_largest.push_back(f);
                largestArea.push_back(-1.0);
            }
            m_result.bodyOf[f] = body;
            Body& whole = m_result.bodies[body];
            m_mesh.polygonOf(m_mesh.faces[f], polygon);
            const Vector3 area = areaVector(polygon);
            const Vector3& origin =
                m_mesh.vertices[m_mesh.cornersOf(m_mesh.faces[whole.firstFace])[0]];
            const double volume = dot(polygon[0] - origin, area) / 6.0;
            ++whole.faces;
            const double size = 0.5 * length(area);
            whole.area += size;
            if (size > largestArea[body]) {
                largestArea[body] = size;
                m_largest[body] = f;
            }
            whole.volume += place.isOpposed ? -volume : volume;
            m_result.isTurned[f] = place.isOpposed ? 1 : 0;
            opposed[body] += place.isOpposed ? 1U : 0U;
            isOpen[body] = static_cast<char>(isOpen[body] | m_isOpen[f]);
        }
        m_signed.resize(m_result.bodies.size());
        for (std::size_t b = 0; b < m_result.bodies.size(); ++b) {
            Body& body = m_result.bodies[b];
            m_signed[b] = body.volume; // as the set's first face is wound
            // Sheets folded onto themselves enclose nothing but rounding.
            constexpr double thinnest = 1.0e-9;
            if (isOpen[b] != 0 ||
                !(std::abs(body.volume) > thinnest * body.area * std::sqrt(body.area))) {
                body.volume = 0.0;
                continue;
            }
            const bool allOpposed = opposed[b] == body.faces;
            body.winding = opposed[b] != 0 && !allOpposed       ? Winding::mixed
                           : (body.volume > 0.0) == !allOpposed ? Winding::outward
                                                                : Winding::inward;
            body.volume = std::abs(body.volume);
        }
        for (std::uint32_t f = 0; f < count; ++f) {
            const std::uint32_t b = m_result.bodyOf[f];
            char& isTurned = m_result.isTurned[f];
            isTurned = m_result.bodies[b].winding != Winding::open &&
                               (isTurned != 0) != (m_signed[b] < 0.0)
                           ? 1
                           : 0;
        }
    }

    /// A point of the body's inside, next to its largest face.
    [[nodiscard]] Vector3 insideOf(const Body& body, std::uint32_t largestFace) const {
        std::vector<Vector3> polygon;
        m_mesh.polygonOf(m_mesh.faces[largestFace], polygon);
        std::array<Vector3, 3> widest = {};
        double most = -1.0;
        for (const auto& t : triangulate(polygon)) {
            const std::array<Vector3, 3> triangle = {polygon[t[0]], polygon[t[1]], polygon[t[2]]};
            if (const double area = length(areaVector(triangle)); area > most) {
                most = area;
                widest = triangle;
            }
        }
        const Vector3 middle = (widest[0] + widest[1] + widest[2]) * (1.0 / 3.0);
        if (!(most > 0.0)) {
            return middle;
        }
        // Deep enough to be off the face, and no deeper than a tenth of the body's thickness.
        const double depth = std::min(1.0e-3 * std::sqrt(most), 0.1 * body.volume / body.area);
        const double turned = m_result.isTurned[largestFace] != 0 ? 1.0 : -1.0;
        return middle + areaVector(widest) * (turned * depth / most);
    }

    struct Box : PlanBox {
        double lowZ = 0.0;
        double highZ = 0.0;
    };

    [[nodiscard]] std::vector<Box> bodyBoxes() const {
        constexpr double most = std::numeric_limits<double>::max();
        std::vector<Box> boxes(m_result.bodies.size(),
                               Box{{most, most, -most, -most}, most, -most});
        for (std::uint32_t f = 0; f < m_mesh.faces.size(); ++f) {
            Box& box = boxes[m_result.bodyOf[f]];
            for (const std::uint32_t corner : m_mesh.cornersOf(m_mesh.faces[f])) {
                const Vector3& p = m_mesh.vertices[corner];
                box = {{std::min(box.lowX, p.x), std::min(box.lowY, p.y), std::max(box.highX, p.x),
                        std::max(box.highY, p.y)},
                       std::min(box.lowZ, p.z),
                       std::max(box.highZ, p.z)};
            }
        }
        return boxes;
    }

    /// The triangles of the marked bodies, tagged with these.
    [[nodiscard]] std::vector<PlumbLines::Triangle>
    trianglesOf(const std::vector<char>& marks) const {
        std::vector<PlumbLines::Triangle> triangles;
        std::vector<Vector3> polygon;
        for (std::uint32_t f = 0; f < m_mesh.faces.size(); ++f) {
            const std::uint32_t body = m_result.bodyOf[f];
            if (marks[body] != 0) {
                m_mesh.polygonOf(m_mesh.faces[f], polygon);
                for (const auto& t : triangulate(polygon)) {
                    triangles.push_back({polygon[t[0]], polygon[t[1]], polygon[t[2]], body});
                }
            }
        }
        return triangles;
    }

    /// A body in another one whose faces look the other way is its hollow, and both are turned or
    /// neither. Where all look the same way, there is none.
    void orientNested() {
        auto& bodies = m_result.bodies;
        if (m_result.count(Winding::outward) == 0 || m_result.count(Winding::inward) == 0) {
            return;
        }
        const auto isKnown = [&](std::uint32_t b) {
            return bodies[b].winding == Winding::outward || bodies[b].winding == Winding::inward;
        };
        // Few bodies hold others: only those are looked at face by face.
        const std::vector<Box> boxes = bodyBoxes();
        const PlanTree plan({boxes.begin(), boxes.end()});
        std::vector<Vector3> points(bodies.size());
        std::vector<char> mayHold(bodies.size(), 0);
        for (std::uint32_t b = 0; b < bodies.size(); ++b) {
            if (isKnown(b)) {
                points[b] = insideOf(bodies[b], m_largest[b]);
                plan.forEachAt(points[b].x, points[b].y, [&](std::uint32_t other) {
                    const bool isWithin =
                        points[b].z > boxes[other].lowZ && points[b].z < boxes[other].highZ;
                    if (isWithin && isKnown(other) && bodies[other].volume > bodies[b].volume) {
                        mayHold[other] = 1;
                    }
                });
            }
        }
        const PlumbLines lines(trianglesOf(mayHold));

        std::vector<std::uint32_t> order(bodies.size());
        std::iota(order.begin(), order.end(), 0U);
        std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return bodies[a].volume > bodies[b].volume;
        });
        std::vector<Winding> asRead;
        asRead.reserve(bodies.size());
        for (const Body& body : bodies) {
            asRead.push_back(body.winding);
        }
        std::vector<char> changes(bodies.size(), 0);
        std::vector<std::uint32_t> above;
        for (const std::uint32_t b : order) { // what holds a body is larger
            throwIfStopped(m_stop);
            if (asRead[b] == Winding::open || asRead[b] == Winding::mixed) {
                continue;
            }
            const Vector3& point = points[b];
            above.clear();
            lines.forEachCrossing(point.x, point.y, [&](std::uint32_t body, double z, bool) {
                if (z > point.z && body != b) {
                    above.push_back(body);
                }
            });
            std::sort(above.begin(), above.end());
            std::uint32_t holder = b;
            for (std::size_t first = 0; first < above.size();) {
                std::size_t end = first;
                while (end < above.size() && above[end] == above[first]) {
                    ++end;
                }
                const Body& candidate = bodies[above[first]];
                if ((end - first) % 2 == 1 && candidate.volume > bodies[b].volume &&
                    (holder == b || candidate.volume < bodies[holder].volume)) {
                    holder = above[first];
                }
                first = end;
            }
            if (holder != b && asRead[holder] != asRead[b] && !bodies[holder].isHollow) {
                bodies[b].isHollow = true;
                bodies[b].winding = bodies[holder].winding;
                changes[b] = 1;
            }
        }
        for (std::uint32_t f = 0; f < m_mesh.faces.size(); ++f) {
            if (changes[m_result.bodyOf[f]] != 0) {
                m_result.isTurned[f] = m_result.isTurned[f] != 0 ? 0 : 1;
            }
        }
    }

    const Mesh& m_mesh;
    const std::stop_token& m_stop;
    WindingSets m_sets;
    std::vector<char> m_isOpen;           ///< by face: whether its surface is not closed at it
    std::vector<double> m_signed;         ///< volumes, as the first face of each set is wound
    std::vector<std::uint32_t> m_largest; ///< face of each body
    Bodies m_result;
};

} // namespace

std::size_t Bodies::count(Winding winding) const {
    return static_cast<std::size_t>(std::count_if(
        bodies.begin(), bodies.end(), [&](const Body& body) { return body.winding == winding; }));
}

Bodies findBodies(const Mesh& mesh, const std::stop_token& stop) {
    return BodyFinder(mesh, stop).find();
}

OrientReport orientFaces(Mesh& mesh, Orient orient, const std::stop_token& stop) {
    const Bodies found = findBodies(mesh, stop);
    OrientReport report;
    report.inward = found.count(Winding::inward);
    report.mixed = found.count(Winding::mixed);
    report.open = found.count(Winding::open);
    report.closed = found.bodies.size() - report.open;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        const bool isAgainst = found.isTurned[f] != 0;
        report.facesAgainst += isAgainst ? 1U : 0U;
        if (orient == Orient::flip || (orient == Orient::outward && isAgainst)) {
            const auto first =
                mesh.corners.begin() + static_cast<std::ptrdiff_t>(mesh.faces[f].firstCorner);
            std::reverse(first + 1, first + static_cast<std::ptrdiff_t>(mesh.faces[f].cornerCount));
            ++report.facesTurned;
        }
    }
    return report;
}

std::string orientText(const OrientReport& report, Orient orient, const std::string& source) {
    const std::size_t wrong = report.inward + report.mixed;
    if (wrong == 0) {
        return {};
    }
    const std::string bodies =
        fmt::format("{}: the faces of {} of {} closed {} {}", source, groupedDigits(wrong),
                    groupedDigits(report.closed), counted(report.closed, "body", "bodies"),
                    report.mixed == 0    ? "look inwards"
                    : report.inward == 0 ? "look partly inwards"
                                         : "look inwards, wholly or in part");
    switch (orient) {
    case Orient::outward:
        return fmt::format("{}; {} {} turned (--orient keep leaves them as they are)", bodies,
                           groupedDigits(report.facesTurned),
                           counted(report.facesTurned, "face was", "faces were"));
    case Orient::flip:
        return fmt::format("{}; every face was turned, as --orient flip asks", bodies);
    case Orient::keep:
        break;
    }
    return fmt::format("{}: their sensors stand inside; --orient outward turns {} {}", bodies,
                       groupedDigits(report.facesAgainst),
                       counted(report.facesAgainst, "face", "faces"));
}

const char* orientName(Orient orient) {
    return orient == Orient::outward ? "outward" : orient == Orient::flip ? "flip" : "keep";
}

Orient parseOrient(std::string_view text) {
    if (text == "outward") {
        return Orient::outward;
    }
    if (text == "flip") {
        return Orient::flip;
    }
    if (text == "keep") {
        return Orient::keep;
    }
    throw UsageError(fmt::format("--orient: {} is no orientation; choose from outward, flip, keep",
                                 quoteText(text)));
}

} // namespace insolate::study
