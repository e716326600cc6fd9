#include <insolate/hourly/light_cells.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/sensor_order.h>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_sort.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <span>
#include <tuple>

namespace insolate {
namespace {

/// Cells are lit in blocks of this many: enough to be worth handing out.
constexpr std::size_t cellsPerBlock = 32;
/// Places of a cell that share its rays, and rays that each of them has at least. With one place
/// for a cell of several metres the light of a court is that of a hundred places: by chance 1 % of
/// the total too little in bright ones.
constexpr std::size_t mostPoints = 64;
constexpr std::size_t raysOfPoint = 4;

/// Two directions across a unit vector (Duff et al. 2017, "Building an orthonormal basis,
/// revisited", Journal of Computer Graphics Techniques 6(1)).
std::array<XYZf, 2> acrossOf(const XYZf& n) {
    const float sign = std::copysign(1.0f, n.z);
    const float a = -1.0f / (sign + n.z);
    const float b = n.x * n.y * a;
    return {
        {{1.0f + sign * n.x * n.x * a, sign * b, -sign * n.x}, {b, sign + n.y * n.y * a, -n.y}}};
}

std::uint64_t bitsOfPlace(const XYZf& p, const XYZf& n) {
    const auto bits = [](float value) {
        return std::uint64_t{std::bit_cast<std::uint32_t>(value + 0.0f)};
    };
    return mixedBits(mixedBits(bits(p.x) << 32U | bits(p.y), bits(p.z)),
                     mixedBits(bits(n.x) << 32U | bits(n.y), bits(n.z)));
}

/// Plane lattice of the plastic number, whose first points are evenly spread for any count
/// (Roberts 2018, "The unreasonable effectiveness of quasirandom sequences").
constexpr double plasticX = 0.7548776662466927;
constexpr double plasticY = 0.5698402909980532;
/// A third coordinate: the golden ratio's fraction, which has no simple ratio to the others.
constexpr double golden = 0.6180339887498949;

/// From 0 to below 1.
double wrapped(double value) {
    return value - std::floor(value);
}

/// The cell of a landing: a cube of space of the size, the side of the surface in steps of some 19
/// degrees, its material and the landing's kind. Cubes are moved off the round numbers on which
/// surfaces like to lie.
std::uint64_t keyOf(const Landing& landing, int level) {
    constexpr std::array<double, 3> move{0.3719, 0.4127, 0.3361};
    const XYZf& place = landing.position;
    const std::array<double, 3> position{static_cast<double>(place.x), static_cast<double>(place.y),
                                         static_cast<double>(place.z)};
    const double size = std::ldexp(1.0, level);
    std::uint64_t key = mixedBits(static_cast<std::uint64_t>(level + 128),
                                  std::uint64_t{landing.kind} << 32U | landing.material);
    for (std::size_t k = 0; k < 3; ++k) {
        const double cube = std::clamp(std::floor(position[k] / size + move[k]), -1e15, 1e15);
        key = mixedBits(key, static_cast<std::uint64_t>(static_cast<std::int64_t>(cube)));
    }
    for (const float component : {landing.normal.x, landing.normal.y, landing.normal.z}) {
        key = mixedBits(key, static_cast<std::uint64_t>(std::lround(3.0f * component) + 8));
    }
    return key;
}

std::array<double, 3> placeAt(const XYZf& origin, const XYZf& direction, double distance) {
    return {static_cast<double>(origin.x) + distance * static_cast<double>(direction.x),
            static_cast<double>(origin.y) + distance * static_cast<double>(direction.y),
            static_cast<double>(origin.z) + distance * static_cast<double>(direction.z)};
}

/// The side of a surface that a ray meets.
XYZf against(const XYZf& normal, const XYZf& direction) {
    return dotProduct(normal, direction) > 0.0f ? scaled(normal, -1.0f) : normal;
}

/// Rays of a cell in proportion to what hangs on it; from the usual most on with the root of that,
/// as what very many sensors see is to be known better than what a few see.
double raysFor(std::uint32_t weight, double perRay, std::size_t usualMost) {
    const auto most = static_cast<double>(usualMost);
    const double wanted = perRay * static_cast<double>(weight) / Landing::oneRay;
    return wanted > most ? std::sqrt(wanted * most) : wanted;
}

/// Off the surface by more than positions are rounded. Up to 33,000 units from the origin of the
/// coordinates that is less than the hundredth within which rays see nothing; beyond it single
/// precision itself rounds positions by several thousandths.
XYZf originAt(const Landing& landing) {
    const float size = std::max({std::fabs(landing.position.x), std::fabs(landing.position.y),
                                 std::fabs(landing.position.z)});
    return sum(landing.position, scaled(landing.normal, 0.002f + size * 0x1p-22f));
}

/// Of landings of one key and order.
bool before(const Landing& a, const Landing& b) {
    const auto rank = [](const Landing& l) {
        return std::tie(l.position.x, l.position.y, l.position.z, l.normal.x, l.normal.y,
                        l.normal.z, l.weight, l.start);
    };
    return rank(a) < rank(b);
}

} // namespace

std::uint64_t LightGatherer::placeInSpace(const XYZf& position) const {
    const XYZf size = difference(m_scene.high(), m_scene.low());
    const float largest = std::max({size.x, size.y, size.z, 1e-6f});
    const auto steps = [&](float value, float low) {
        const float place = (value - low) / largest * 65535.0f;
        return static_cast<std::uint32_t>(place > 0.0f ? std::min(place, 65535.0f) : 0.0f);
    };
    return placeOnCurve({steps(position.z, m_scene.low().z), steps(position.y, m_scene.low().y),
                         steps(position.x, m_scene.low().x)});
}

void LightGatherer::through(const XYZf& origin, const XYZf& direction, double distance,
                            std::span<float> bySeason) const {
    m_scene.transmittances(origin, direction, bySeason, distance);
}

void LightGatherer::appendThrough(const Ray& ray, double distance, float factor,
                                  Gathered& gathered) const {
    const std::size_t first = gathered.through.size();
    gathered.through.resize(first + seasonCount(), factor);
    if (m_scene.hasTranslucent()) {
        const std::span<float> own = std::span(gathered.through).subspan(first);
        through(ray.origin, ray.direction, distance, own);
        for (float& one : own) {
            one *= factor;
        }
    }
}

std::uint32_t LightGatherer::append(const Ray& ray, double distance, const XYZf& facing,
                                    std::uint32_t material, Gathered& gathered) {
    const std::array<double, 3> position = placeAt(ray.origin, ray.direction, distance);
    Landing landing{};
    landing.position = {static_cast<float>(position[0]), static_cast<float>(position[1]),
                        static_cast<float>(position[2])};
    landing.normal = facing;
    landing.material = material;
    landing.start = ray.start;
    landing.distance = static_cast<float>(distance);
    landing.order = bitsOfPlace(landing.position, facing);
    gathered.landings.push_back(landing);
    return static_cast<std::uint32_t>(gathered.landings.size() - 1);
}

void LightGatherer::appendCrossed(const Ray& ray, double distance, Gathered& gathered) const {
    static thread_local std::vector<RayHit> hits;
    m_scene.translucent().allHits(ray.origin, ray.direction, hits);
    std::erase_if(hits, [&](const RayHit& hit) {
        const LightScene::Surface& surface = m_scene.translucentSurface(hit.triangle);
        const Material& material = m_scene.materials()[surface.material];
        return !(hit.distance < distance) || material.passage == Material::Passage::Crown ||
               !(material.reflectance > 0.0f) || vectorLength(surface.normal) == 0.0f;
    });
    if (hits.empty()) {
        return;
    }
    const auto count = static_cast<double>(hits.size());
    const double draw = unitNumber(mixedBits(bitsOfPlace(ray.origin, ray.direction), 5));
    const RayHit& hit = hits[static_cast<std::size_t>(std::floor(draw * count))];
    const LightScene::Surface& surface = m_scene.translucentSurface(hit.triangle);
    appendThrough(ray, hit.distance, static_cast<float>(count), gathered);
    gathered.found.push_back(append(ray, hit.distance, against(surface.normal, ray.direction),
                                    surface.material, gathered));
}

void LightGatherer::divide(Gathered& gathered, std::size_t spread, double leastCell,
                           std::uint32_t weight, std::uint32_t kind) {
    // Twice the distance between neighbouring rays where they land. With four times, one place
    // stands for too much of a deep street: 15 % off in the closed form of two widths. Finer cells
    // cost more, and the lattice averages over them all the same.
    const double growth = 2.0 * std::sqrt(std::numbers::pi / static_cast<double>(spread));
    for (Landing& landing : gathered.landings) {
        const double size = std::max(leastCell, growth * static_cast<double>(landing.distance));
        landing.kind = kind;
        landing.key = keyOf(landing, static_cast<int>(std::floor(std::log2(size))));
        landing.weight = weight;
    }
}

void LightGatherer::gather(const XYZf& origin, const XYZf& normal, std::size_t first,
                           std::size_t end, Gathered& gathered) const {
    gather(origin, normal, bitsOfPlace(origin, normal), first, end, gathered);
}

void LightGatherer::gather(const XYZf& origin, const XYZf& normal, std::uint64_t seed,
                           std::size_t first, std::size_t end, Gathered& gathered) const {
    const bool everywhere = vectorLength(normal) == 0.0f;
    const std::array<XYZf, 2> across = acrossOf(everywhere ? XYZf{0, 0, 1} : normal);
    const double shiftX = unitNumber(mixedBits(seed, 1));
    const double shiftY = unitNumber(mixedBits(seed, 2));
    const double shiftStart = unitNumber(mixedBits(seed, 4));
    static thread_local std::vector<XYZf> directions;
    static thread_local std::vector<RayHit> hits;
    directions.clear();
    for (std::size_t ray = first; ray < end; ++ray) {
        const auto number = static_cast<double>(ray);
        const double u = wrapped(shiftX + number * plasticX);
        const double turn = 2.0 * std::numbers::pi * wrapped(shiftY + number * plasticY);
        // Evenly by projected solid angle, or over the whole sphere.
        const double up = everywhere ? 1.0 - 2.0 * u : std::sqrt(1.0 - u);
        const double flat = std::sqrt(std::max(1.0 - up * up, 0.0));
        const XYZf local{static_cast<float>(flat * std::cos(turn)),
                         static_cast<float>(flat * std::sin(turn)), static_cast<float>(up)};
        const XYZf& n = everywhere ? XYZf{0, 0, 1} : normal;
        directions.push_back(
            sum(sum(scaled(across[0], local.x), scaled(across[1], local.y)), scaled(n, local.z)));
    }
    hits.resize(directions.size());
    m_scene.opaque().nearestHits(origin, directions, hits);
    const bool hasTranslucent = m_scene.hasTranslucent();
    for (std::size_t i = 0; i < directions.size(); ++i) {
        const Ray ray{
            origin, directions[i],
            static_cast<float>(wrapped(shiftStart + golden * static_cast<double>(first + i)))};
        const XYZf& direction = ray.direction;
        ++gathered.rays;
        double distance = hits[i].distance;
        XYZf facing{0, 0, 1};
        std::uint32_t material = groundMaterial;
        const bool blocked = hits[i].triangle != RayHit::none;
        const bool below = direction.z < 0.0f;
        if (below && !m_ground.lit) {
            continue; // what is there throws back what open ground does, in the ground's own light
        }
        if (hasTranslucent) {
            appendCrossed(ray, blocked ? distance : std::numeric_limits<double>::infinity(),
                          gathered);
        }
        if (blocked) {
            ++gathered.blocked;
            const LightScene::Surface& surface = m_scene.surface(hits[i].triangle);
            facing = against(surface.normal, direction);
            material = surface.material;
        } else if (below) {
            distance = (m_ground.height - static_cast<double>(origin.z)) /
                       static_cast<double>(direction.z);
            if (!(distance > 0.0) || !m_ground.isShadowed(placeAt(origin, direction, distance)) ||
                !(m_ground.reflectance > 0.0f)) {
                gathered.found.push_back(Gathered::farGround);
                appendThrough(ray, std::numeric_limits<double>::infinity(), 1.0f, gathered);
                continue;
            }
        } else {
            continue;
        }
        if (!(reflectance(material) > 0.0f) || vectorLength(facing) == 0.0f) {
            continue;
        }
        appendThrough(ray, distance, 1.0f, gathered);
        gathered.found.push_back(append(ray, distance, facing, material, gathered));
    }
}

std::size_t LightCells::add(std::span<const Landing> landings, const LightGatherer& gatherer) {
    struct Place {
        std::uint64_t key, order;
        std::size_t landing;
    };
    std::vector<Place> sorted;
    sorted.reserve(landings.size());
    for (std::size_t i = 0; i < landings.size(); ++i) {
        sorted.push_back({landings[i].key, landings[i].order, i});
    }
    tbb::parallel_sort(sorted.begin(), sorted.end(), [&](const Place& a, const Place& b) {
        return std::tie(a.key, a.order) < std::tie(b.key, b.order) ||
               (a.key == b.key && a.order == b.order &&
                before(landings[a.landing], landings[b.landing]));
    });
    struct NewCell {
        std::uint64_t place;
        std::size_t first, end; // of its landings
        bool operator<(const NewCell& other) const {
            return std::tie(place, first) < std::tie(other.place, other.first);
        }
    };
    std::vector<NewCell> fresh;
    for (std::size_t i = 0; i < sorted.size();) {
        const std::size_t first = i;
        while (i < sorted.size() && sorted[i].key == sorted[first].key) {
            ++i;
        }
        if (find(sorted[first].key) == none) { // else lit before, by what hung on it then
            fresh.push_back({0, first, i});
        }
    }
    tbb::parallel_for(std::size_t{0}, fresh.size(), [&](std::size_t i) {
        fresh[i].place = gatherer.placeInSpace(landings[sorted[fresh[i].first].landing].position);
    });
    tbb::parallel_sort(fresh.begin(), fresh.end());
    const std::size_t known = m_cells.size();
    if (m_cells.capacity() < known + fresh.size()) { // each generation is much smaller
        m_cells.reserve(std::max(known + fresh.size(), known + known / 4));
    }
    for (const NewCell& one : fresh) {
        Cell cell;
        cell.landing = landings[sorted[one.first].landing];
        cell.firstPoint = m_points.size();
        std::uint64_t weight = 0;
        std::uint64_t last = cell.landing.order;
        for (std::size_t k = one.first; k < one.end; ++k) {
            const Landing& landing = landings[sorted[k].landing];
            weight += landing.weight;
            if (landing.order != last && cell.pointCount + 1 < mostPoints) {
                last = landing.order;
                m_points.push_back(landing);
                ++cell.pointCount;
            }
        }
        cell.landing.weight =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(weight, 0xFFFFFFFFU));
        m_cells.push_back(cell);
    }
    addSlots(known);
    return fresh.size();
}

void LightCells::addSlots(std::size_t firstCell) {
    if (m_slots.size() < 2 * m_cells.size()) {
        m_slots.assign(std::bit_ceil(2 * m_cells.size()), Slot());
        firstCell = 0;
    }
    for (std::size_t c = firstCell; c < m_cells.size(); ++c) {
        const std::uint64_t key = m_cells[c].landing.key;
        std::size_t at = key & (m_slots.size() - 1); // keys are well mixed
        while (m_slots[at].cell != none) {
            at = (at + 1) & (m_slots.size() - 1);
        }
        m_slots[at] = {key, static_cast<std::uint32_t>(c)};
    }
}

std::uint32_t LightCells::find(std::uint64_t key) const {
    if (m_slots.empty()) {
        return none;
    }
    std::size_t at = key & (m_slots.size() - 1);
    while (m_slots[at].cell != none && m_slots[at].key != key) {
        at = (at + 1) & (m_slots.size() - 1);
    }
    return m_slots[at].cell;
}

std::vector<Landing> LightCells::light(const LightGatherer& gatherer, const LightSources& sources,
                                       const Options& options, bool withLinks) {
    /// Rays of a cell for each ray of a sensor that found it. Two to the sources leave less than
    /// the lattice itself does; what comes to a cell from others is a small part of its light.
    constexpr double sourceRays = 2.0;
    constexpr double linkRays = 0.33;
    /// Cells that have links have this many at least. With one or two, pairs of cells that only see
    /// each other would hold their light for ever: a white street got 3 % too much.
    constexpr double leastLinks = 8.0;
    m_bins = sources.binCount();
    m_seasons = gatherer.seasonCount();
    m_seasonOfBin.resize(m_bins);
    for (std::size_t b = 0; b < m_bins; ++b) {
        m_seasonOfBin[b] = static_cast<std::uint16_t>(sources.seasonOf(b));
    }
    m_direct.resize(m_cells.size() * m_bins, 0.0f);
    m_farGround.resize(m_cells.size() * m_seasons, 0.0f);
    const std::size_t first = m_lit;
    const std::size_t count = m_cells.size() - first;
    const std::size_t blocks = (count + cellsPerBlock - 1) / cellsPerBlock;
    struct LitCells {
        std::vector<Link> links;
        std::vector<float> through; // by link and season
        std::vector<Landing> landings;
        std::size_t rays = 0;
    };
    const bool hasTranslucent = gatherer.scene().hasTranslucent();
    std::vector<LitCells> done(blocks);
    tbb::parallel_for(std::size_t{0}, blocks, [&](std::size_t number) {
        LitCells& block = done[number];
        std::vector<LightSources::Ray> rays;
        std::vector<XYZf> directions;
        std::vector<std::uint8_t> occluded;
        std::vector<float> through(m_seasons, 1.0f);
        Gathered gathered;
        const std::size_t end = first + std::min((number + 1) * cellsPerBlock, count);
        if (options.stop.stop_requested()) {
            return;
        }
        for (std::size_t c = first + number * cellsPerBlock; c < end; ++c) {
            Cell& cell = m_cells[c];
            const Landing& landing = cell.landing;
            const auto pointOf = [&](std::size_t k) -> const Landing& {
                return k == 0 ? landing : m_points[cell.firstPoint + k - 1];
            };
            const auto pointsFor = [&](std::size_t rayCount) {
                return std::clamp<std::size_t>(rayCount / raysOfPoint, 1, cell.pointCount + 1U);
            };
            const auto sourceCount = static_cast<std::size_t>(
                std::max(std::ceil(raysFor(landing.weight, sourceRays, options.cellRays)), 1.0));
            float* received = m_direct.data() + c * m_bins;
            const std::size_t points = pointsFor(sourceCount);
            for (std::size_t k = 0; k < points; ++k) {
                const XYZf origin = originAt(pointOf(k));
                sources.draw(pointOf(k).normal,
                             {landing.order, landing.start, sourceCount, k, points}, rays);
                directions.clear();
                for (const LightSources::Ray& ray : rays) {
                    directions.push_back(ray.direction);
                }
                occluded.assign(rays.size(), 0);
                gatherer.scene().opaque().areOccluded(origin, directions, occluded);
                for (std::size_t r = 0; r < rays.size(); ++r) {
                    if (occluded[r] != 0) {
                        continue;
                    }
                    if (hasTranslucent) {
                        gatherer.through(origin, rays[r].direction,
                                         std::numeric_limits<double>::infinity(), through);
                    }
                    for (const LightSources::BinShare& one : sources.binsOf(rays[r].source)) {
                        received[one.bin] +=
                            rays[r].light * one.share * through[m_seasonOfBin[one.bin]];
                    }
                }
                block.rays += rays.size();
            }
            cell.isLinked = !withLinks; // nothing to be known
            if (!withLinks) {
                continue;
            }
            // Cells on which little hangs have links by chance.
            const double wanted = raysFor(landing.weight, linkRays, options.linkRays);
            const double least = std::min(leastLinks, static_cast<double>(options.linkRays));
            const double chance = std::min(wanted / least, 1.0);
            const double drawn = unitNumber(mixedBits(landing.order, 3));
            const auto links = static_cast<std::size_t>(wanted >= least  ? wanted + drawn
                                                        : drawn < chance ? least
                                                                         : 0.0);
            cell.chance = static_cast<float>(chance);
            cell.linkRays = static_cast<std::uint32_t>(links);
            cell.firstLink = block.links.size();
            if (links == 0) {
                continue;
            }
            gathered.clear();
            const double share = static_cast<double>(landing.weight) *
                                 static_cast<double>(gatherer.reflectance(landing.material)) /
                                 static_cast<double>(links);
            const std::size_t linkPoints = pointsFor(links);
            for (std::size_t k = 0; k < linkPoints; ++k) {
                const Landing& point = pointOf(k);
                gatherer.gather(originAt(point), point.normal, landing.order,
                                links * k / linkPoints, links * (k + 1) / linkPoints, gathered);
            }
            // Cells as fine as for 64 rays at least: as for 16, those of a street of two widths
            // were so high that its floor got 0.6 % of its total too much.
            LightGatherer::divide(gathered, std::max<std::size_t>(links, 64), options.leastLinkCell,
                                  static_cast<std::uint32_t>(std::clamp(share, 1.0, 4.0e9)),
                                  landing.kind);
            block.rays += links;
            for (std::size_t r = 0; r < gathered.found.size(); ++r) {
                const float* const passed = gathered.through.data() + r * m_seasons;
                if (gathered.found[r] == Gathered::farGround) {
                    for (std::size_t s = 0; s < m_seasons; ++s) {
                        m_farGround[c * m_seasons + s] += passed[s] / static_cast<float>(links);
                    }
                } else {
                    const Landing& found = gathered.landings[gathered.found[r]];
                    block.links.push_back({found.key, none});
                    if (hasTranslucent) {
                        block.through.insert(block.through.end(), passed, passed + m_seasons);
                    }
                    block.landings.push_back(found);
                }
            }
            cell.linkCount = static_cast<std::uint32_t>(block.links.size() - cell.firstLink);
        }
        if (options.advance) {
            options.advance(1.0 / static_cast<double>(blocks));
        }
    });
    std::vector<Landing> landings;
    for (std::size_t number = 0; number < blocks; ++number) {
        LitCells& block = done[number];
        const std::size_t end = first + std::min((number + 1) * cellsPerBlock, count);
        for (std::size_t c = first + number * cellsPerBlock; c < end; ++c) {
            m_cells[c].firstLink += m_links.size();
        }
        m_links.insert(m_links.end(), block.links.begin(), block.links.end());
        m_through.insert(m_through.end(), block.through.begin(), block.through.end());
        landings.insert(landings.end(), block.landings.begin(), block.landings.end());
        m_rays += block.rays;
        block = {};
    }
    m_lit = m_cells.size();
    m_points = {};
    return landings;
}

namespace {

/// Cells that look up, aside or down and are of one kind stand for each other.
constexpr std::size_t waysToLook = 3;
constexpr std::size_t alikes = waysToLook * Landing::kinds;
std::size_t alikeOf(const Landing& landing) {
    constexpr float steep = 0.5f;
    const std::size_t way = landing.normal.z > steep ? 0 : landing.normal.z < -steep ? 2 : 1;
    return std::min(landing.kind, Landing::kinds - 1) * waysToLook + way;
}

} // namespace

/// Means over cells with links that are alike, by what hangs on them and by bin.
std::vector<float> LightCells::meansOfAlike(const std::vector<float>& values) const {
    std::vector<double> sums(alikes * m_bins, 0.0);
    std::array<double, alikes> weights{};
    for (std::size_t row = 0; row < m_cellOf.size(); ++row) {
        const Cell& cell = m_cells[m_cellOf[row]];
        if (cell.isLinked) {
            const std::size_t alike = alikeOf(cell.landing);
            weights[alike] += cell.expected();
            for (std::size_t b = 0; b < m_bins; ++b) {
                sums[alike * m_bins + b] +=
                    cell.expected() * static_cast<double>(values[row * m_bins + b]);
            }
        }
    }
    std::vector<float> means(alikes * m_bins, 0.0f);
    for (std::size_t alike = 0; alike < alikes; ++alike) {
        // Where a kind has none, those of the others that look the same way.
        double weight = weights[alike];
        std::vector<double> sum(sums.begin() + static_cast<std::ptrdiff_t>(alike * m_bins),
                                sums.begin() + static_cast<std::ptrdiff_t>((alike + 1) * m_bins));
        for (std::size_t i = alike % waysToLook; i < alikes && weights[alike] == 0.0;
             i += waysToLook) {
            weight += weights[i];
            for (std::size_t b = 0; b < m_bins; ++b) {
                sum[b] += sums[i * m_bins + b];
            }
        }
        for (std::size_t b = 0; b < m_bins && weight > 0.0; ++b) {
            means[alike * m_bins + b] = static_cast<float>(sum[b] / weight);
        }
    }
    return means;
}

/// Values of cells without links of their own, by row: the mean of cells with links that look the
/// same way and that some cell sees as well as them; where there are none, of all that are alike.
class LightCells::Unlinked {
public:
    explicit Unlinked(const LightCells& cells) : m_cells(cells) {
        constexpr float sameWay = 0.5f;
        constexpr std::size_t mostModels = 8;
        const auto cellOf = [&](std::uint32_t row) -> const Cell& {
            return cells.m_cells[cells.m_cellOf[row]];
        };
        std::vector<std::uint8_t> hasModel(cells.m_cellOf.size(), 0);
        for (std::uint32_t row = 0; row < cells.m_cellOf.size(); ++row) {
            const Cell& cell = cellOf(row);
            if (!cell.isLinked) {
                continue;
            }
            hasModel[row] = 1; // needs none
            const std::span<const Link> links =
                std::span(cells.m_links).subspan(cell.firstLink, cell.linkCount);
            for (const Link& link : links) {
                if (link.row == none || cellOf(link.row).isLinked) {
                    continue;
                }
                const XYZf& normal = cellOf(link.row).landing.normal;
                std::size_t models = 0;
                for (const Link& other : links) {
                    if (other.row != none && cellOf(other.row).isLinked && models < mostModels &&
                        dotProduct(normal, cellOf(other.row).landing.normal) > sameWay) {
                        m_models.push_back({link.row, other.row});
                        hasModel[link.row] = 1;
                        ++models;
                    }
                }
            }
        }
        tbb::parallel_sort(m_models.begin(), m_models.end());
        for (std::size_t i = 0; i < m_models.size(); ++i) {
            if (i == 0 || m_models[i].first != m_models[i - 1].first) {
                m_runs.push_back({i, i});
            }
            m_runs.back().second = i + 1;
        }
        for (std::uint32_t row = 0; row < cells.m_cellOf.size(); ++row) {
            if (hasModel[row] == 0) {
                m_alone.push_back(row);
            }
        }
    }

    void fill(std::vector<float>& values) const {
        const std::size_t bins = m_cells.m_bins;
        tbb::parallel_for(std::size_t{0}, m_runs.size(), [&](std::size_t k) {
            const auto [first, end] = m_runs[k];
            float* const to = values.data() + std::size_t{m_models[first].first} * bins;
            const auto count = static_cast<float>(end - first);
            for (std::size_t b = 0; b < bins; ++b) {
                float all = 0.0f;
                for (std::size_t i = first; i < end; ++i) {
                    all += values[std::size_t{m_models[i].second} * bins + b];
                }
                to[b] = all / count;
            }
        });
        if (m_alone.empty()) {
            return;
        }
        const std::vector<float> means = m_cells.meansOfAlike(values);
        tbb::parallel_for(std::size_t{0}, m_alone.size(), [&](std::size_t k) {
            const Cell& cell = m_cells.m_cells[m_cells.m_cellOf[m_alone[k]]];
            const float* const from = means.data() + alikeOf(cell.landing) * bins;
            std::copy(from, from + bins, values.data() + std::size_t{m_alone[k]} * bins);
        });
    }

private:
    const LightCells& m_cells;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> m_models; ///< rows and what they take
    std::vector<std::pair<std::size_t, std::size_t>> m_runs;       ///< in m_models, of each row
    std::vector<std::uint32_t> m_alone;
};

void LightCells::makeRows() {
    tbb::parallel_for(std::size_t{0}, m_links.size(),
                      [&](std::size_t i) { m_links[i].row = find(m_links[i].key); });
    std::vector<std::uint8_t> takesPart(m_cells.size(), 0);
    for (const Link& link : m_links) {
        if (link.row != none) {
            takesPart[link.row] = 1;
        }
    }
    m_cellOf.clear();
    m_rowOf.assign(m_cells.size(), 0);
    for (std::size_t c = 0; c < m_cells.size(); ++c) {
        Cell& cell = m_cells[c];
        const std::span<const Link> links =
            std::span(m_links).subspan(cell.firstLink, cell.linkCount);
        cell.isLinked =
            cell.isLinked ||
            (cell.linkRays > 0 &&
             (links.empty() || std::any_of(links.begin(), links.end(),
                                           [](const Link& link) { return link.row != none; })));
        if (takesPart[c] != 0 || (cell.isLinked && cell.linkRays > 0)) {
            m_rowOf[c] = static_cast<std::uint32_t>(m_cellOf.size());
            m_cellOf.push_back(static_cast<std::uint32_t>(c));
            takesPart[c] = 1;
        }
    }
    for (std::size_t c = 0; c < m_cells.size(); ++c) {
        if (takesPart[c] == 0) {
            m_rowOf[c] = static_cast<std::uint32_t>(m_cellOf.size() + alikeOf(m_cells[c].landing));
        }
    }
    for (Link& link : m_links) {
        link.row = link.row != none ? m_rowOf[link.row] : none;
    }
}

/// Light of the cells' links on them, by row and bin.
void LightCells::receive(const std::vector<float>& thrown, std::vector<float>& received) const {
    tbb::parallel_for(std::size_t{0}, m_cellOf.size(), [&](std::size_t row) {
        const Cell& cell = m_cells[m_cellOf[row]];
        float* const out = received.data() + row * m_bins;
        std::fill(out, out + m_bins, 0.0f);
        if (!cell.isLinked || cell.linkRays == 0) {
            return;
        }
        // Links into cells that nobody lit take the mean of the others.
        std::uint32_t missing = 0;
        for (std::size_t l = cell.firstLink; l < cell.firstLink + cell.linkCount; ++l) {
            if (m_links[l].row == none) {
                ++missing;
                continue;
            }
            const float* const from = thrown.data() + std::size_t{m_links[l].row} * m_bins;
            if (m_through.empty()) {
                for (std::size_t b = 0; b < m_bins; ++b) {
                    out[b] += from[b];
                }
                continue;
            }
            const float* const passed = m_through.data() + l * m_seasons;
            for (std::size_t b = 0; b < m_bins; ++b) {
                out[b] += passed[m_seasonOfBin[b]] * from[b];
            }
        }
        if (missing < cell.linkCount) {
            const float scale =
                static_cast<float>(cell.linkCount) /
                (static_cast<float>(cell.linkCount - missing) * static_cast<float>(cell.linkRays));
            for (std::size_t b = 0; b < m_bins; ++b) {
                out[b] *= scale;
            }
        }
    });
}

void LightCells::addFarGround(const LightGatherer& gatherer, std::vector<float>& received) const {
    for (std::size_t row = 0; row < m_cellOf.size(); ++row) {
        const std::size_t c = m_cellOf[row];
        for (std::size_t s = 0; s < m_seasons && m_cells[c].isLinked; ++s) { // bins of the sky
            received[row * m_bins + s] += m_farGround[c * m_seasons + s] * gatherer.ground().light *
                                          gatherer.seasonShares()[s];
        }
    }
}

LightCells::Exchange LightCells::exchange(const LightGatherer& gatherer, const Options& options) {
    constexpr int mostBounces = 500;
    constexpr double enough = 1e-3; // of a cell's light, left beyond the last reflection
    makeRows();
    const std::size_t rows = m_cellOf.size();
    m_indirect.assign((rows + alikes) * m_bins, 0.0f);
    addFarGround(gatherer, m_indirect);
    const Unlinked unlinked(*this);
    unlinked.fill(m_indirect);
    const auto directOf = [&](std::size_t row) {
        return m_direct.data() + std::size_t{m_cellOf[row]} * m_bins;
    };
    // What the cells throw back of the light of the n-th reflection.
    std::vector<float> thrown(rows * m_bins);
    std::vector<float> received(rows * m_bins);
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t b = 0; b < m_bins; ++b) {
            received[row * m_bins + b] = directOf(row)[b] + m_indirect[row * m_bins + b];
        }
    }
    struct Sums {
        double thrown = 0.0;
        double gain = 0.0; ///< the share of a linked cell's light that has just come
    };
    std::vector<Sums> ofRow(rows);
    const auto throwBack = [&] {
        tbb::parallel_for(std::size_t{0}, rows, [&](std::size_t row) {
            const Cell& cell = m_cells[m_cellOf[row]];
            const float reflectance = gatherer.reflectance(cell.landing.material);
            const std::size_t first = row * m_bins;
            for (std::size_t i = first; i < first + m_bins; ++i) {
                thrown[i] = reflectance * received[i];
            }
            if (cell.isLinked) {
                float come = 0.0f;
                float light = 0.0f;
                for (std::size_t b = 0; b < m_bins; ++b) {
                    come += received[first + b];
                    light += directOf(row)[b] + m_indirect[first + b];
                }
                ofRow[row] = {static_cast<double>(reflectance * come) * cell.expected(),
                              come > 0.0f ? static_cast<double>(come / light) : 0.0};
            }
        });
        Sums all;
        for (const Sums& one : ofRow) {
            all.thrown += one.thrown;
            all.gain = std::max(all.gain, one.gain);
        }
        return all;
    };
    Exchange result;
    double last = throwBack().thrown;
    double all = last;
    double lastWorst = 0.0;
    const int most = options.bounces > 0 ? options.bounces : mostBounces;
    while (result.bounces < most && last > 0.0 && !options.stop.stop_requested()) {
        receive(thrown, received);
        unlinked.fill(received);
        ++result.bounces;
        for (std::size_t i = 0; i < received.size(); ++i) {
            m_indirect[i] += received[i];
        }
        const Sums now = throwBack();
        all += now.thrown;
        const double ratio = now.thrown / last;
        last = now.thrown;
        // Places differ: a bright room keeps its light long after the street outside has lost its.
        // What the worst of them gains beyond goes by how its gain falls.
        const double falls = lastWorst > 0.0 ? now.gain / lastWorst : 1.0;
        lastWorst = now.gain;
        const double rest = falls < 1.0 ? now.gain * falls / (1.0 - falls)
                                        : std::numeric_limits<double>::infinity();
        if (options.bounces == 0 && (result.bounces == most || rest <= enough)) {
            constexpr double known = 0.05; // more than this share is not told from its beginning
            result.converged = rest <= known && ratio < 1.0;
            const double beyond = result.converged ? now.thrown * ratio / (1.0 - ratio) : 0.0;
            const auto factor = static_cast<float>(result.converged ? ratio / (1.0 - ratio) : 0.0);
            for (std::size_t i = 0; i < received.size(); ++i) {
                m_indirect[i] += factor * received[i];
            }
            result.beyond = all > 0.0 ? beyond / (all + beyond) : 0.0;
            break;
        }
    }
    const std::vector<float> means = meansOfAlike(m_indirect);
    std::copy(means.begin(), means.end(),
              m_indirect.begin() + static_cast<std::ptrdiff_t>(rows * m_bins));
    return result;
}

std::size_t LightCells::bytes() const {
    return m_cells.capacity() * sizeof(Cell) + m_points.capacity() * sizeof(Landing) +
           m_links.capacity() * sizeof(Link) + m_slots.capacity() * sizeof(Slot) +
           (m_rowOf.capacity() + m_cellOf.capacity()) * sizeof(std::uint32_t) +
           m_seasonOfBin.capacity() * 2 +
           (m_through.capacity() + m_farGround.capacity() + m_direct.capacity() +
            3 * m_indirect.capacity()) *
               sizeof(float);
}

} // namespace insolate
