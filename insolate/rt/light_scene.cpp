#include <insolate/rt/light_scene.h>

#include <insolate/geometry/vector_math.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <utility>

namespace insolate {

namespace {

constexpr std::size_t doublesOfTriangle = 9;
constexpr std::uint32_t noBody = 0xFFFFFFFFU;

XYZf unitNormal(const double* corners) {
    const Vector3d a{corners[0], corners[1], corners[2]};
    const Vector3d b{corners[3], corners[4], corners[5]};
    const Vector3d c{corners[6], corners[7], corners[8]};
    const Vector3d u = difference(b, a);
    const Vector3d v = difference(c, a);
    const Vector3d n = crossProduct(u.data(), v.data());
    const double length = std::sqrt(dotProduct(n.data(), n.data()));
    if (!(length > 0.0) || !std::isfinite(length)) {
        return {0, 0, 0};
    }
    return {static_cast<float>(n[0] / length), static_cast<float>(n[1] / length),
            static_cast<float>(n[2] / length)};
}

/// Closed hulls among triangles: those of one material that share corners belong to one body. A
/// body turned inside out has outward -1.
struct Bodies {
    std::vector<std::uint32_t> ofTriangle;
    std::vector<float> outward;
    /// Boxes around the bodies: rays from outside of one did not begin within it.
    std::vector<std::array<Vector3d, 2>> boxes;
    std::size_t open = 0; ///< bodies that are not closed

    /// coordinates: of the triangles of hulls, others have no entry in hullMaterials (notAHull).
    static constexpr std::uint32_t notAHull = 0xFFFFFFFFU;
    Bodies(std::span<const double> coordinates, const std::vector<std::uint32_t>& hullMaterials)
        : ofTriangle(hullMaterials.size(), noBody) {
        const std::vector<std::array<std::uint32_t, 3>> corners = weld(coordinates, hullMaterials);
        std::map<std::uint32_t, std::uint32_t> bodyOfRoot;
        std::vector<double> volume;
        std::vector<std::map<std::pair<std::uint32_t, std::uint32_t>, int>> edges;
        for (std::size_t i = 0; i < corners.size(); ++i) {
            if (corners[i][0] == noBody) {
                continue;
            }
            const std::uint32_t root = find(corners[i][0]);
            const auto [found, isNew] =
                bodyOfRoot.emplace(root, static_cast<std::uint32_t>(volume.size()));
            const double* p = coordinates.data() + doublesOfTriangle * i;
            if (isNew) {
                volume.push_back(0.0);
                edges.emplace_back();
                boxes.push_back({Vector3d{p[0], p[1], p[2]}, Vector3d{p[0], p[1], p[2]}});
            }
            const std::uint32_t body = found->second;
            ofTriangle[i] = body;
            for (std::size_t k = 0; k < doublesOfTriangle; ++k) {
                double& low = boxes[body][0][k % 3];
                double& high = boxes[body][1][k % 3];
                low = std::min(low, p[k]);
                high = std::max(high, p[k]);
            }
            // Six times the volume against a corner of the body itself, so that bodies far from the
            // origin keep their digits.
            const double* from = coordinates.data() + 3 * std::size_t{m_first[root]};
            const Vector3d a{p[0] - from[0], p[1] - from[1], p[2] - from[2]};
            const Vector3d b{p[3] - from[0], p[4] - from[1], p[5] - from[2]};
            const Vector3d c{p[6] - from[0], p[7] - from[1], p[8] - from[2]};
            const Vector3d n = crossProduct(b.data(), c.data());
            volume[body] += dotProduct(a.data(), n.data());
            for (std::size_t k = 0; k < 3; ++k) {
                const std::uint32_t one = corners[i][k];
                const std::uint32_t next = corners[i][(k + 1) % 3];
                edges[body][std::minmax(one, next)] += one < next ? 1 : -1;
            }
        }
        for (std::size_t body = 0; body < volume.size(); ++body) {
            outward.push_back(volume[body] < 0.0 ? -1.0f : 1.0f);
            open += std::any_of(edges[body].begin(), edges[body].end(),
                                [](const auto& edge) { return edge.second != 0; })
                        ? 1
                        : 0;
        }
    }

    /// Whether rays from a place may begin within a body: they see nothing in their first
    /// hundredth.
    bool mayHold(std::uint32_t body, const XYZf& place) const {
        constexpr double unseen = 0.011;
        const std::array<double, 3> p{static_cast<double>(place.x), static_cast<double>(place.y),
                                      static_cast<double>(place.z)};
        const auto& [low, high] = boxes[body];
        bool holds = true;
        for (std::size_t k = 0; k < 3; ++k) {
            holds = holds && p[k] >= low[k] - unseen && p[k] <= high[k] + unseen;
        }
        return holds;
    }

private:
    /// Numbers equal corners of a material alike and joins those of each triangle.
    std::vector<std::array<std::uint32_t, 3>>
    weld(std::span<const double> coordinates, const std::vector<std::uint32_t>& hullMaterials) {
        std::map<std::tuple<std::uint32_t, double, double, double>, std::uint32_t> numbers;
        std::vector<std::array<std::uint32_t, 3>> corners(hullMaterials.size(),
                                                          {noBody, noBody, noBody});
        for (std::size_t i = 0; i < hullMaterials.size(); ++i) {
            const double* p = coordinates.data() + doublesOfTriangle * i;
            if (hullMaterials[i] == notAHull ||
                !std::all_of(p, p + doublesOfTriangle,
                             [](double value) { return std::isfinite(value); })) {
                continue;
            }
            for (std::size_t k = 0; k < 3; ++k) {
                const auto [found, isNew] = numbers.emplace(
                    std::tuple{hullMaterials[i], p[3 * k], p[3 * k + 1], p[3 * k + 2]},
                    static_cast<std::uint32_t>(m_parent.size()));
                if (isNew) {
                    m_parent.push_back(found->second);
                    m_first.push_back(static_cast<std::uint32_t>(3 * i + k));
                }
                corners[i][k] = found->second;
            }
            join(corners[i][0], corners[i][1]);
            join(corners[i][0], corners[i][2]);
        }
        return corners;
    }
    std::uint32_t find(std::uint32_t one) {
        while (m_parent[one] != one) {
            m_parent[one] = m_parent[m_parent[one]];
            one = m_parent[one];
        }
        return one;
    }
    void join(std::uint32_t a, std::uint32_t b) {
        a = find(a);
        b = find(b);
        m_parent[std::max(a, b)] = std::min(a, b);
    }
    std::vector<std::uint32_t> m_parent; // by corner's number
    std::vector<std::uint32_t> m_first;  // where the corner first stands in the coordinates
};

/// Where a ray meets the surface of a body.
struct Crossing {
    std::uint32_t body;
    std::uint16_t material;
    bool enters;
    double at;
};

/// What a ray crosses.
struct Crossed {
    std::vector<RayHit> hits;
    std::vector<Crossing> crossings; ///< of bodies, by body, then by distance
};

/// One ray after the other on each thread: nothing is allocated for most of them.
Crossed& crossedOfThread() {
    static thread_local Crossed crossed;
    return crossed;
}

} // namespace

Seasons seasonsOf(std::span<const Material> materials) {
    Seasons seasons;
    std::vector<std::vector<float>> known;
    for (std::size_t day = 0; day < seasons.ofDay.size(); ++day) {
        std::vector<float> values;
        values.reserve(materials.size());
        for (const Material& material : materials) {
            values.push_back(material.passing.on(static_cast<int>(day) + 1));
        }
        const auto found = std::find(known.begin(), known.end(), values);
        seasons.ofDay[day] = static_cast<std::uint16_t>(found - known.begin());
        if (found == known.end()) {
            known.push_back(std::move(values));
        }
    }
    seasons.count = static_cast<int>(known.size());
    return seasons;
}

struct LightScene::Content {
    std::vector<Material> materials{Material()};
    Seasons seasons;
    OcclusionIndex opaque;
    OcclusionIndex translucent;
    std::vector<Surface> surfaces; // of the opaque triangles
    std::vector<Surface> through;  // of the translucent ones
    Bodies bodies{{}, {}};
    std::vector<std::vector<PaneGlass>> panes; // by material, then by season; empty for no pane
    std::vector<std::vector<float>> passing;   // by material and season
    XYZf low{1, 1, 1};
    XYZf high{-1, -1, -1};

    Content() = default;

    Content(std::span<const double> coordinates, std::span<const std::uint16_t> materialOfTriangle,
            std::vector<Material> given, const OcclusionIndexOptions& options) {
        materials = std::move(given);
        if (materials.size() > 0xFFFEU) {
            materials.resize(0xFFFEU);
        }
        materials.emplace_back();
        seasons = seasonsOf(materials);
        const std::size_t count = coordinates.size() / doublesOfTriangle;
        const auto materialOf = [&](std::size_t i) {
            const std::size_t last = materials.size() - 1;
            return static_cast<std::uint16_t>(
                i < materialOfTriangle.size() ? std::min<std::size_t>(materialOfTriangle[i], last)
                                              : last);
        };
        findBox(coordinates.first(count * doublesOfTriangle));
        std::vector<double> blocking;
        std::vector<double> passed;
        std::vector<std::uint32_t> hullMaterials;
        const bool allOpaque =
            std::all_of(materials.begin(), materials.end(), [](const Material& material) {
                return material.passage == Material::Passage::Opaque;
            });
        surfaces.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const double* corners = coordinates.data() + doublesOfTriangle * i;
            const Surface surface{unitNormal(corners), materialOf(i)};
            const Material::Passage passage = materials[surface.material].passage;
            if (passage == Material::Passage::Opaque) {
                surfaces.push_back(surface);
                if (!allOpaque) {
                    blocking.insert(blocking.end(), corners, corners + doublesOfTriangle);
                }
            } else {
                through.push_back(surface);
                hullMaterials.push_back(passage == Material::Passage::Crown ? surface.material
                                                                            : Bodies::notAHull);
                passed.insert(passed.end(), corners, corners + doublesOfTriangle);
            }
        }
        opaque =
            OcclusionIndex(allOpaque ? coordinates : std::span<const double>(blocking), options);
        translucent = OcclusionIndex(passed, options);
        bodies = Bodies(passed, hullMaterials);
        prepareSeasons();
    }

    void findBox(std::span<const double> coordinates) {
        std::array<double, 3> least{};
        std::array<double, 3> most{};
        bool any = false;
        for (std::size_t i = 0; i + 2 < coordinates.size(); i += 3) {
            const double* p = coordinates.data() + i;
            if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2])) {
                continue;
            }
            for (std::size_t k = 0; k < 3; ++k) {
                least[k] = any ? std::min(least[k], p[k]) : p[k];
                most[k] = any ? std::max(most[k], p[k]) : p[k];
            }
            any = true;
        }
        if (any) {
            low = {static_cast<float>(least[0]), static_cast<float>(least[1]),
                   static_cast<float>(least[2])};
            high = {static_cast<float>(most[0]), static_cast<float>(most[1]),
                    static_cast<float>(most[2])};
        }
    }

    void prepareSeasons() {
        panes.resize(materials.size());
        passing.resize(materials.size());
        for (std::size_t m = 0; m < materials.size(); ++m) {
            const Material& material = materials[m];
            for (int season = 0; season < seasons.count; ++season) {
                const auto day = std::find(seasons.ofDay.begin(), seasons.ofDay.end(), season) -
                                 seasons.ofDay.begin();
                const float value = material.passing.on(static_cast<int>(day) + 1);
                passing[m].push_back(value);
                if (material.passage == Material::Passage::Pane) {
                    panes[m].emplace_back(value, material.refractiveIndex);
                }
            }
        }
    }

    /// Multiplies what each season has with what the translucent triangles let through.
    void weaken(const XYZf& origin, const XYZf& direction, std::span<float> bySeason,
                std::size_t firstSeason, double distance) const {
        auto& [hits, crossings] = crossedOfThread();
        translucent.allHits(origin, direction, hits);
        crossings.clear();
        for (const RayHit& hit : hits) {
            const Surface& surface = through[hit.triangle];
            const auto material = static_cast<std::size_t>(surface.material);
            const float cosine = dotProduct(surface.normal, direction);
            const Material::Passage passage = materials[material].passage;
            if (passage == Material::Passage::Crown) {
                const std::uint32_t body = bodies.ofTriangle[hit.triangle];
                if (body != noBody) {
                    crossings.push_back({body, surface.material,
                                         cosine * bodies.outward[body] < 0.0f, hit.distance});
                }
                continue;
            }
            for (std::size_t s = 0; s < bySeason.size() && hit.distance < distance; ++s) {
                bySeason[s] *=
                    passage == Material::Passage::Pane
                        ? panes[material][firstSeason + s].at(std::fabs(cosine)).transmitted
                        : passing[material][firstSeason + s];
            }
        }
        std::stable_sort(crossings.begin(), crossings.end(),
                         [](const Crossing& a, const Crossing& b) { return a.body < b.body; });
        for (std::size_t first = 0; first < crossings.size();) {
            std::size_t end = first;
            while (end < crossings.size() && crossings[end].body == crossings[first].body) {
                ++end;
            }
            const double length =
                pathWithin(std::span(crossings).subspan(first, end - first), origin, distance);
            for (std::size_t s = 0; s < bySeason.size(); ++s) {
                const auto extinction =
                    static_cast<double>(passing[crossings[first].material][firstSeason + s]);
                bySeason[s] *= static_cast<float>(std::exp(-extinction * length));
            }
            first = end;
        }
    }

private:
    /// The way of a ray within a body up to a distance, counted twice where parts of the body that
    /// overlap or touch are both around it.
    double pathWithin(std::span<const Crossing> crossings, const XYZf& origin,
                      double distance) const {
        // More exits than entries on the way to some place mean that the ray began within.
        int depth = 0;
        int least = 0;
        for (const Crossing& crossing : crossings) {
            depth += crossing.enters ? 1 : -1;
            least = std::min(least, depth);
        }
        depth = bodies.mayHold(crossings.front().body, origin) ? -least : 0;
        double length = 0.0;
        double from = 0.0;
        for (const Crossing& crossing : crossings) {
            const double to = std::min(crossing.at, distance);
            length += depth * std::max(to - from, 0.0);
            from = to;
            depth = std::max(depth + (crossing.enters ? 1 : -1), 0);
        }
        // A ray may slip out through an edge between two triangles. A hull that it enters and never
        // leaves, on its whole length and not only up to the distance, weakens nothing.
        return length;
    }
};

LightScene::LightScene() = default;

LightScene::LightScene(std::span<const double> coordinates,
                       std::span<const std::uint16_t> materialOfTriangle,
                       std::vector<Material> materials, const OcclusionIndexOptions& options)
    : m_content(std::make_unique<Content>(coordinates, materialOfTriangle, std::move(materials),
                                          options)) {}

LightScene::LightScene(LightScene&&) noexcept = default;
LightScene& LightScene::operator=(LightScene&&) noexcept = default;
LightScene::~LightScene() = default;

const LightScene::Content& LightScene::content() const {
    if (m_content != nullptr) {
        return *m_content;
    }
    static const Content empty;
    return empty;
}

const OcclusionIndex& LightScene::opaque() const {
    return content().opaque;
}
const OcclusionIndex& LightScene::translucent() const {
    return content().translucent;
}
std::span<const Material> LightScene::materials() const {
    return content().materials;
}
const Seasons& LightScene::seasons() const {
    return content().seasons;
}
const LightScene::Surface& LightScene::surface(std::uint32_t hitOfOpaque) const {
    return content().surfaces[hitOfOpaque];
}
const LightScene::Surface& LightScene::translucentSurface(std::uint32_t hitOfTranslucent) const {
    return content().through[hitOfTranslucent];
}
XYZf LightScene::low() const {
    return content().low;
}
XYZf LightScene::high() const {
    return content().high;
}
std::size_t LightScene::openCrowns() const {
    return content().bodies.open;
}

float LightScene::transmittance(const XYZf& origin, const XYZf& direction, int season,
                                double distance) const {
    float share = 1.0f;
    if (hasTranslucent()) {
        const int last = seasons().count - 1;
        content().weaken(origin, direction, {&share, 1},
                         static_cast<std::size_t>(std::clamp(season, 0, last)), distance);
    }
    return share;
}

void LightScene::transmittances(const XYZf& origin, const XYZf& direction,
                                std::span<float> bySeason, double distance) const {
    std::fill(bySeason.begin(), bySeason.end(), 1.0f);
    if (hasTranslucent()) {
        const auto count = static_cast<std::size_t>(seasons().count);
        content().weaken(origin, direction, bySeason.first(std::min(bySeason.size(), count)), 0,
                         distance);
    }
}

std::size_t LightScene::memoryBytes() const {
    const Content& all = content();
    return all.opaque.memoryBytes() + all.translucent.memoryBytes() +
           (all.surfaces.capacity() + all.through.capacity()) * sizeof(Surface) +
           all.bodies.ofTriangle.capacity() * sizeof(std::uint32_t);
}

float LightSceneTransparency::getTransparencyValue(const XYZf& origin, const XYZf& direction,
                                                   const XYZf* /*normal*/) {
    return m_scene->opaque().isOccluded(origin, direction)
               ? 0.0f
               : m_scene->transmittance(origin, direction, m_season);
}

} // namespace insolate
