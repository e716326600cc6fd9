#include "study/model/coplanar.h"

#include "study/model/mesh_edges.h"
#include "study/model/polygon_rings.h"
#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>

namespace insolate::study {

namespace {

constexpr std::uint32_t noFace = 0xFFFFFFFFU;

/// The triangle on the other side of one's edge.
struct Mate {
    std::uint32_t face = noFace;
    std::uint32_t corner = noFace; ///< where its side begins
};

class Merger {
public:
    explicit Merger(const Mesh& mesh)
        : m_mesh(mesh), m_welded(weldedVertices(mesh)), m_mates(mesh.corners.size()),
          m_patchOf(mesh.faces.size(), noFace), m_isTraced(mesh.corners.size(), 0) {
        findMates();
        Bounds bounds;
        bounds.add(mesh.vertices);
        m_farthest = 1.0e-6 * length(bounds.extent());
    }

    /// @throws Stopped
    MergedMesh merge(const std::stop_token& stop) {
        const std::size_t count = m_mesh.faces.size();
        std::vector<Vector3> areas(count);
        std::vector<double> sizes(count, -1.0);
        std::vector<std::uint32_t> seeds;
        std::vector<Vector3> polygon;
        for (std::uint32_t f = 0; f < count; ++f) {
            if (m_mesh.faces[f].cornerCount == 3) {
                areas[f] = areaVector(m_mesh.polygonOf(m_mesh.faces[f], polygon));
                sizes[f] = length(areas[f]);
                seeds.push_back(f);
            }
        }
        // From the largest on: the planes of slivers say nothing.
        std::stable_sort(seeds.begin(), seeds.end(),
                         [&](std::uint32_t a, std::uint32_t b) { return sizes[a] > sizes[b]; });
        std::vector<std::vector<Vector3>> polygons;
        std::vector<std::uint32_t> polygonOfPatch;
        std::vector<std::uint32_t> patch;
        std::size_t triangles = 0;
        for (const std::uint32_t seed : seeds) {
            throwIfStopped(stop);
            if (m_patchOf[seed] != noFace || !(sizes[seed] > 0.0)) {
                continue;
            }
            const auto number = static_cast<std::uint32_t>(polygonOfPatch.size());
            const Vector3 normal = grow(seed, number, areas, sizes, patch);
            polygonOfPatch.push_back(noFace);
            if (patch.size() > 1) {
                std::vector<Vector3> outline = outlineOf(patch, number, normal);
                if (!outline.empty() && covers(outline, patch, sizes)) {
                    polygonOfPatch.back() = static_cast<std::uint32_t>(polygons.size());
                    polygons.push_back(std::move(outline));
                    triangles += patch.size();
                }
            }
        }

        MergedMesh result{.mesh = m_mesh, .firstFace = {}, .triangles = triangles};
        result.mesh.faces.clear();
        result.mesh.corners.clear();
        for (std::uint32_t f = 0; f < count; ++f) {
            Mesh::Face face = m_mesh.faces[f];
            const std::uint32_t patchNumber = m_patchOf[f];
            const std::uint32_t merged =
                patchNumber == noFace ? noFace : polygonOfPatch[patchNumber];
            const auto corners = m_mesh.cornersOf(face);
            face.firstCorner = static_cast<std::uint32_t>(result.mesh.corners.size());
            if (merged == noFace) {
                result.mesh.corners.insert(result.mesh.corners.end(), corners.begin(),
                                           corners.end());
            } else if (polygons[merged].empty()) {
                continue; // stands with the first of its triangles
            } else {
                face.cornerCount = static_cast<std::uint32_t>(polygons[merged].size());
                for (const Vector3& p : polygons[merged]) {
                    result.mesh.corners.push_back(
                        static_cast<std::uint32_t>(result.mesh.vertices.size()));
                    result.mesh.vertices.push_back(p);
                }
                polygons[merged].clear();
            }
            result.mesh.faces.push_back(face);
            result.firstFace.push_back(f);
        }
        return result;
    }

private:
    void findMates() {
        const std::vector<EdgeUse> uses = edgeUses(m_mesh, m_welded);
        forEachEdge(std::span(uses), [&](std::span<const EdgeUse> edge) {
            if (edge.size() != 2 || edge[0].isForward == edge[1].isForward) {
                return;
            }
            const Mesh::Face& a = m_mesh.faces[edge[0].face];
            const Mesh::Face& b = m_mesh.faces[edge[1].face];
            if (a.cornerCount == 3 && b.cornerCount == 3 && a.object == b.object &&
                a.group == b.group && a.material == b.material) {
                m_mates[edge[0].corner] = {edge[1].face, edge[1].corner};
                m_mates[edge[1].corner] = {edge[0].face, edge[0].corner};
            }
        });
    }

    /// Collects the triangles in the seed's plane into the patch; the plane's normal comes back.
    Vector3 grow(std::uint32_t seed, std::uint32_t number, const std::vector<Vector3>& areas,
                 const std::vector<double>& sizes, std::vector<std::uint32_t>& patch) {
        patch.assign(1, seed);
        m_patchOf[seed] = number;
        // The plane is fitted anew each time the patch has doubled: small triangles at its middle
        // do not say where its ends are.
        const Vector3 origin = m_mesh.vertices[m_mesh.cornersOf(m_mesh.faces[seed])[0]];
        Vector3 normal = areas[seed] * (1.0 / sizes[seed]);
        Vector3 sum = areas[seed];
        Vector3 moment = middleOf(seed, origin) * sizes[seed];
        double whole = sizes[seed];
        Vector3 point = origin;
        std::size_t fitAt = 2;
        for (std::size_t next = 0; next < patch.size(); ++next) {
            const Mesh::Face& face = m_mesh.faces[patch[next]];
            for (std::uint32_t c = face.firstCorner; c < face.firstCorner + 3; ++c) {
                const std::uint32_t other = m_mates[c].face;
                if (other == noFace || m_patchOf[other] != noFace ||
                    !isInPlane(other, areas[other], sizes[other], point, normal)) {
                    continue;
                }
                m_patchOf[other] = number;
                patch.push_back(other);
                sum = sum + areas[other];
                moment = moment + middleOf(other, origin) * sizes[other];
                whole += sizes[other];
                if (patch.size() == fitAt) {
                    fitAt *= 2;
                    normal = sum * (1.0 / length(sum));
                    point = origin + moment * (1.0 / whole);
                }
            }
        }
        return normal;
    }

    [[nodiscard]] Vector3 middleOf(std::uint32_t face, const Vector3& origin) const {
        Vector3 sum;
        for (const std::uint32_t corner : m_mesh.cornersOf(m_mesh.faces[face])) {
            sum = sum + (m_mesh.vertices[corner] - origin);
        }
        return sum * (1.0 / 3.0);
    }

    [[nodiscard]] bool isInPlane(std::uint32_t face, const Vector3& area, double size,
                                 const Vector3& point, const Vector3& normal) const {
        const auto corners = m_mesh.cornersOf(m_mesh.faces[face]);
        double longest = 0.0;
        for (std::size_t i = 0; i < 3; ++i) {
            const Vector3& p = m_mesh.vertices[corners[i]];
            if (!(std::abs(dot(p - point, normal)) <= m_farthest)) {
                return false;
            }
            longest = std::max(longest, length(m_mesh.vertices[corners[(i + 1) % 3]] - p));
        }
        constexpr double mostSine = 1.75e-3; // a tenth of a degree
        // 2 m_farthest / height, with height = size / longest; without area there is no normal.
        const double allowed = mostSine * size + 2.0 * m_farthest * longest;
        return dot(area, normal) >= -allowed && length(cross(area, normal)) <= allowed;
    }

    /// The patch's outline with its holes bridged; empty when it has none that will do.
    std::vector<Vector3> outlineOf(const std::vector<std::uint32_t>& patch, std::uint32_t number,
                                   const Vector3& normal) {
        std::vector<Vector3> outline;
        std::vector<std::vector<Vector3>> holes;
        bool isGood = true;
        for (const std::uint32_t f : patch) {
            const Mesh::Face& face = m_mesh.faces[f];
            for (std::uint32_t c = face.firstCorner; c < face.firstCorner + 3; ++c) {
                if (m_isTraced[c] != 0 || !isBorder(c, number)) {
                    continue;
                }
                std::vector<Vector3> loop = loopFrom(f, c, number);
                const bool isOutline = dot(areaVector(loop), normal) > 0.0;
                isGood = isGood && loop.size() >= 3 && !(isOutline && !outline.empty()) &&
                         !crossesItself(loop, normal);
                if (isOutline) {
                    outline = std::move(loop);
                } else {
                    holes.push_back(std::move(loop));
                }
            }
        }
        if (!isGood || outline.empty()) {
            return {};
        }
        return bridged(std::move(outline), std::move(holes)).value_or(std::vector<Vector3>());
    }

    /// Whether the polygon's parts are as large as the triangles: where rounding lets thin parts of
    /// an outline fold, they are not.
    static bool covers(const std::vector<Vector3>& outline, const std::vector<std::uint32_t>& patch,
                       const std::vector<double>& sizes) {
        constexpr double most = 1.0e-5; // ten times what the planes' differences explain
        double whole = 0.0;
        for (const std::uint32_t f : patch) {
            whole += sizes[f];
        }
        double parts = 0.0;
        for (const auto& [a, b, c] : triangulate(outline)) {
            parts += length(cross(outline[b] - outline[a], outline[c] - outline[a]));
        }
        return std::abs(parts - whole) <= most * whole;
    }

    [[nodiscard]] bool isBorder(std::uint32_t corner, std::uint32_t number) const {
        return m_mates[corner].face == noFace || m_patchOf[m_mates[corner].face] != number;
    }

    /// Follows the border from the side that begins at the corner. At a place where the border
    /// comes by twice it goes on along the same triangles.
    std::vector<Vector3> loopFrom(std::uint32_t face, std::uint32_t corner, std::uint32_t number) {
        std::vector<Vector3> loop;
        for (std::uint32_t c = corner, f = face; m_isTraced[c] == 0;) {
            m_isTraced[c] = 1;
            loop.push_back(m_mesh.vertices[m_mesh.corners[c]]);
            c = following(f, c);
            while (!isBorder(c, number)) {
                const Mate mate = m_mates[c];
                f = mate.face;
                c = following(f, mate.corner);
            }
        }
        return loop;
    }

    [[nodiscard]] std::uint32_t following(std::uint32_t face, std::uint32_t corner) const {
        const std::uint32_t first = m_mesh.faces[face].firstCorner;
        return first + (corner - first + 1) % 3;
    }

    const Mesh& m_mesh;
    std::vector<std::uint32_t> m_welded;
    std::vector<Mate> m_mates; ///< by corner, of the side that begins there
    std::vector<std::uint32_t> m_patchOf;
    std::vector<char> m_isTraced; ///< by corner
    double m_farthest = 0.0;      ///< of a corner from its plane [m]
};

} // namespace

MergedMesh mergeCoplanarTriangles(const Mesh& mesh, const std::stop_token& stop) {
    return Merger(mesh).merge(stop);
}

} // namespace insolate::study
