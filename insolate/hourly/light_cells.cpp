#include <insolate/hourly/light_cells.h>

#include <insolate/geometry/vector_math.h>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_sort.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>

namespace insolate {
namespace {

/// Cells are lit in blocks of this many: enough to be worth handing out.
constexpr std::size_t cellsPerBlock = 32;

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

double fraction(double value) {
    return value - std::floor(value);
}

/// The cell of a landing: a cube of space of the size, the side of the surface in steps of some 19
/// degrees, and its material. Cubes are moved off the round numbers on which surfaces like to lie.
std::uint64_t keyOf(const std::array<double, 3>& position, const XYZf& normal,
                    std::uint32_t material, int level) {
    constexpr std::array<double, 3> move{0.3719, 0.4127, 0.3361};
    const double size = std::ldexp(1.0, level);
    std::uint64_t key = mixedBits(static_cast<std::uint64_t>(level + 128), material);
    for (std::size_t k = 0; k < 3; ++k) {
        const double place = std::clamp(std::floor(position[k] / size + move[k]), -1e15, 1e15);
        key = mixedBits(key, static_cast<std::uint64_t>(static_cast<std::int64_t>(place)));
    }
    for (const float component : {normal.x, normal.y, normal.z}) {
        key = mixedBits(key, static_cast<std::uint64_t>(std::lround(3.0f * component) + 8));
    }
    return key;
}

/// Rays of a cell in proportion to what hangs on it.
std::size_t raysFor(std::uint32_t weight, double perRay, std::size_t most) {
    const double wanted = perRay * static_cast<double>(weight) / Landing::oneRay;
    return static_cast<std::size_t>(std::clamp(std::ceil(wanted), 1.0, static_cast<double>(most)));
}

bool before(const Landing& a, const Landing& b) {
    const auto rank = [](const Landing& l) {
        return std::tie(l.key, l.order, l.position.x, l.position.y, l.position.z, l.normal.x,
                        l.normal.y, l.normal.z, l.weight);
    };
    return rank(a) < rank(b);
}

} // namespace

float LightGatherer::through(const XYZf& origin, const XYZf& direction, double distance) const {
    if (!m_scene.hasTranslucent()) {
        return 1.0f;
    }
    static thread_local std::vector<float> bySeason;
    bySeason.resize(m_seasonShares.size());
    m_scene.transmittances(origin, direction, bySeason, distance);
    float share = 0.0f;
    for (std::size_t s = 0; s < bySeason.size(); ++s) {
        share += m_seasonShares[s] * bySeason[s];
    }
    return share;
}

void LightGatherer::gather(const XYZf& origin, const XYZf& normal, std::size_t first,
                           std::size_t end, std::size_t spread, double leastCell,
                           std::uint32_t weight, Gathered& gathered) const {
    const bool everywhere = vectorLength(normal) == 0.0f;
    const std::array<XYZf, 2> across = acrossOf(everywhere ? XYZf{0, 0, 1} : normal);
    const std::uint64_t seed = bitsOfPlace(origin, normal);
    const double shiftX = unitNumber(mixedBits(seed, 1));
    const double shiftY = unitNumber(mixedBits(seed, 2));
    static thread_local std::vector<XYZf> directions;
    static thread_local std::vector<RayHit> hits;
    directions.clear();
    for (std::size_t ray = first; ray < end; ++ray) {
        const auto number = static_cast<double>(ray);
        const double u = fraction(shiftX + number * plasticX);
        const double turn = 2.0 * std::numbers::pi * fraction(shiftY + number * plasticY);
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
    // Twice the distance between neighbouring rays where they land. With four times, one place
    // stands for too much of a deep street: 15 % off in the closed form of two widths. Finer cells
    // cost more, and the lattice averages over them all the same.
    const double growth =
        2.0 * std::sqrt((everywhere ? 4.0 : 1.0) * std::numbers::pi / static_cast<double>(spread));
    for (std::size_t i = 0; i < directions.size(); ++i) {
        const XYZf& direction = directions[i];
        gathered.found.push_back(Gathered::nothing);
        gathered.through.push_back(1.0f);
        double distance = hits[i].distance;
        XYZf facing{0, 0, 1};
        std::uint32_t material = groundMaterial;
        if (hits[i].triangle != RayHit::none) {
            if (!m_ground.lit && direction.z < 0.0f) {
                continue;
            }
            ++gathered.blocked;
            const LightScene::Surface& surface = m_scene.surface(hits[i].triangle);
            facing = surface.normal;
            if (dotProduct(facing, direction) > 0.0f) {
                facing = scaled(facing, -1.0f);
            }
            material = surface.material;
        } else if (m_ground.lit && direction.z < 0.0f) {
            distance = (m_ground.height - static_cast<double>(origin.z)) /
                       static_cast<double>(direction.z);
        } else {
            continue;
        }
        const std::array<double, 3> position{
            static_cast<double>(origin.x) + distance * static_cast<double>(direction.x),
            static_cast<double>(origin.y) + distance * static_cast<double>(direction.y),
            static_cast<double>(origin.z) + distance * static_cast<double>(direction.z)};
        if (material == groundMaterial &&
            !(distance > 0.0 && position[0] >= static_cast<double>(m_ground.low.x) &&
              position[0] <= static_cast<double>(m_ground.high.x) &&
              position[1] >= static_cast<double>(m_ground.low.y) &&
              position[1] <= static_cast<double>(m_ground.high.y))) {
            gathered.found.back() = Gathered::farGround;
            continue;
        }
        gathered.through.back() = through(origin, direction, distance);
        if (!(reflectance(material) > 0.0f) || vectorLength(facing) == 0.0f) {
            if (material == groundMaterial) {
                gathered.found.back() = Gathered::farGround; // dark ground, with shadow or without
            }
            continue;
        }
        const int level =
            static_cast<int>(std::floor(std::log2(std::max(leastCell, growth * distance))));
        Landing landing;
        landing.position = {static_cast<float>(position[0]), static_cast<float>(position[1]),
                            static_cast<float>(position[2])};
        landing.normal = facing;
        landing.material = material;
        landing.key = keyOf(position, facing, material, level);
        landing.order = bitsOfPlace(landing.position, facing);
        landing.weight = weight;
        gathered.found.back() = static_cast<std::uint32_t>(gathered.landings.size());
        gathered.landings.push_back(landing);
    }
}

std::size_t LightCells::add(std::vector<Landing>& landings) {
    tbb::parallel_sort(landings.begin(), landings.end(), before);
    const std::size_t known = m_cells.size();
    for (std::size_t i = 0; i < landings.size();) {
        Cell cell;
        cell.landing = landings[i];
        std::uint64_t weight = 0;
        for (const std::uint64_t key = landings[i].key;
             i < landings.size() && landings[i].key == key; ++i) {
            weight += landings[i].weight;
        }
        if (find(cell.landing.key) != none) {
            continue; // lit before, by what hung on it then
        }
        cell.landing.weight =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(weight, 0xFFFFFFFFU));
        m_cells.push_back(cell);
    }
    m_places.reserve(m_cells.size());
    const auto middle = static_cast<std::ptrdiff_t>(m_places.size());
    for (std::size_t i = known; i < m_cells.size(); ++i) {
        m_places.emplace_back(m_cells[i].landing.key, static_cast<std::uint32_t>(i));
    }
    std::inplace_merge(m_places.begin(), m_places.begin() + middle, m_places.end());
    return m_cells.size() - known;
}

std::uint32_t LightCells::find(std::uint64_t key) const {
    const auto found = std::lower_bound(m_places.begin(), m_places.end(), std::pair(key, 0U));
    return found != m_places.end() && found->first == key ? found->second : none;
}

std::vector<Landing> LightCells::light(const LightGatherer& gatherer, const LightSources& sources,
                                       const Options& options, bool withLinks) {
    /// Rays of a cell for each ray of a sensor that found it. Four to the sources leave less than
    /// the lattice itself does.
    constexpr double sourceRays = 4.0;
    constexpr double linkRays = 1.0;
    m_bins = sources.binCount();
    m_received.resize(m_cells.size() * m_bins, 0.0f);
    const std::size_t first = m_lit;
    const std::size_t count = m_cells.size() - first;
    const std::size_t blocks = (count + cellsPerBlock - 1) / cellsPerBlock;
    struct Block {
        std::vector<Link> links;
        std::vector<Landing> landings;
        std::size_t rays = 0;
    };
    std::vector<Block> done(blocks);
    tbb::parallel_for(std::size_t{0}, blocks, [&](std::size_t number) {
        Block& block = done[number];
        std::vector<LightSources::Ray> rays;
        std::vector<XYZf> directions;
        std::vector<std::uint8_t> occluded;
        Gathered gathered;
        const std::size_t end = std::min(first + (number + 1) * cellsPerBlock, m_cells.size());
        for (std::size_t c = first + number * cellsPerBlock; c < end; ++c) {
            Cell& cell = m_cells[c];
            const Landing& landing = cell.landing;
            // Off the surface by more than positions are rounded, and by less than the hundredth
            // within which rays see nothing.
            const float size =
                std::max({std::fabs(landing.position.x), std::fabs(landing.position.y),
                          std::fabs(landing.position.z)});
            const XYZf origin =
                sum(landing.position, scaled(landing.normal, 0.002f + size * 0x1p-22f));
            sources.draw(landing.normal, landing.order,
                         raysFor(landing.weight, sourceRays, options.cellRays), rays);
            directions.clear();
            for (const LightSources::Ray& ray : rays) {
                directions.push_back(ray.direction);
            }
            occluded.assign(rays.size(), 0);
            gatherer.scene().opaque().areOccluded(origin, directions, occluded);
            float* received = m_received.data() + c * m_bins;
            for (std::size_t i = 0; i < rays.size(); ++i) {
                if (occluded[i] == 0) {
                    received[rays[i].bin] +=
                        rays[i].light * gatherer.through(origin, rays[i].direction,
                                                         std::numeric_limits<double>::infinity());
                }
            }
            block.rays += rays.size();
            if (!withLinks) {
                continue;
            }
            const std::size_t links = raysFor(landing.weight, linkRays, options.linkRays);
            gathered.clear();
            const double share = static_cast<double>(landing.weight) *
                                 static_cast<double>(gatherer.reflectance(landing.material)) /
                                 static_cast<double>(links);
            gatherer.gather(origin, landing.normal, 0, links, std::max<std::size_t>(links, 16),
                            options.leastLinkCell,
                            static_cast<std::uint32_t>(std::clamp(share, 1.0, 4.0e9)), gathered);
            block.rays += links;
            cell.linkRays = static_cast<std::uint32_t>(links);
            cell.firstLink = block.links.size();
            for (std::size_t i = 0; i < gathered.found.size(); ++i) {
                if (gathered.found[i] == Gathered::farGround) {
                    cell.farGround += 1.0f / static_cast<float>(links);
                } else if (gathered.found[i] != Gathered::nothing) {
                    const Landing& found = gathered.landings[gathered.found[i]];
                    block.links.push_back({found.key, gathered.through[i], none});
                    block.landings.push_back(found);
                }
            }
            cell.linkCount = static_cast<std::uint32_t>(block.links.size() - cell.firstLink);
        }
    });
    std::vector<Landing> landings;
    for (std::size_t number = 0; number < blocks; ++number) {
        Block& block = done[number];
        const std::size_t end = std::min(first + (number + 1) * cellsPerBlock, m_cells.size());
        for (std::size_t c = first + number * cellsPerBlock; c < end; ++c) {
            m_cells[c].firstLink += m_links.size();
        }
        m_links.insert(m_links.end(), block.links.begin(), block.links.end());
        landings.insert(landings.end(), block.landings.begin(), block.landings.end());
        m_rays += block.rays;
        block = {};
    }
    m_lit = m_cells.size();
    return landings;
}

LightCells::Exchange LightCells::exchange(const LightGatherer& gatherer, const Options& options) {
    constexpr int mostBounces = 500;
    constexpr double enough = 1e-3; // of the reflected light, left beyond the last reflection
    tbb::parallel_for(std::size_t{0}, m_links.size(),
                      [&](std::size_t i) { m_links[i].cell = find(m_links[i].key); });
    const std::size_t count = m_cells.size();
    // What the cells throw back of the light of the n-th reflection, and of all so far.
    std::vector<float> term(m_received.size());
    std::vector<float> next(m_received.size());
    const auto reflectanceOf = [&](std::size_t c) {
        return gatherer.reflectance(m_cells[c].landing.material);
    };
    const auto sumOf = [&](const std::vector<float>& thrown) {
        double all = 0.0;
        for (std::size_t c = 0; c < count; ++c) {
            double light = 0.0;
            for (std::size_t b = 0; b < m_bins; ++b) {
                light += static_cast<double>(thrown[c * m_bins + b]);
            }
            all += light * static_cast<double>(m_cells[c].landing.weight);
        }
        return all;
    };
    for (std::size_t c = 0; c < count; ++c) {
        // Light of the open ground far away arrives like that of the sky.
        m_received[c * m_bins] += m_cells[c].farGround * gatherer.ground().light;
        for (std::size_t b = 0; b < m_bins; ++b) {
            term[c * m_bins + b] = reflectanceOf(c) * m_received[c * m_bins + b];
        }
    }
    std::vector<float> whole = term;
    Exchange result;
    double last = sumOf(term);
    double all = last;
    const int most = options.bounces > 0 ? options.bounces : mostBounces;
    while (result.bounces < most && last > 0.0) {
        tbb::parallel_for(std::size_t{0}, count, [&](std::size_t c) {
            const Cell& cell = m_cells[c];
            float* out = next.data() + c * m_bins;
            std::fill(out, out + m_bins, 0.0f);
            // Links into cells that nobody lit take the mean of the others.
            std::uint32_t missing = 0;
            for (std::size_t l = cell.firstLink; l < cell.firstLink + cell.linkCount; ++l) {
                if (m_links[l].cell == none) {
                    ++missing;
                    continue;
                }
                const float* from = term.data() + std::size_t{m_links[l].cell} * m_bins;
                for (std::size_t b = 0; b < m_bins; ++b) {
                    out[b] += m_links[l].through * from[b];
                }
            }
            if (missing < cell.linkCount) {
                const float scale = reflectanceOf(c) * static_cast<float>(cell.linkCount) /
                                    (static_cast<float>(cell.linkCount - missing) *
                                     static_cast<float>(cell.linkRays));
                for (std::size_t b = 0; b < m_bins; ++b) {
                    out[b] *= scale;
                }
            }
        });
        std::swap(term, next);
        ++result.bounces;
        for (std::size_t i = 0; i < whole.size(); ++i) {
            whole[i] += term[i];
        }
        const double now = sumOf(term);
        all += now;
        const double ratio = now / last;
        last = now;
        if (options.bounces == 0) {
            result.converged = ratio < 0.9999;
            const double beyond = result.converged ? now * ratio / (1.0 - ratio) : 0.0;
            if (result.converged && beyond <= enough * all) {
                const auto factor = static_cast<float>(ratio / (1.0 - ratio));
                for (std::size_t i = 0; i < whole.size(); ++i) {
                    whole[i] += factor * term[i];
                }
                result.beyond = all > 0.0 ? beyond / (all + beyond) : 0.0;
                break;
            }
        }
    }
    m_received = std::move(whole);
    return result;
}

std::size_t LightCells::bytes() const {
    return m_cells.capacity() * sizeof(Cell) + m_links.capacity() * sizeof(Link) +
           m_places.capacity() * sizeof(m_places[0]) + 3 * m_received.capacity() * sizeof(float);
}

} // namespace insolate
