/// The cells of a scene's surfaces that throw light back, and the rays that find them.
#pragma once

#include <insolate/hourly/light_sources.h>
#include <insolate/rt/light_scene.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace insolate {

/// The level ground around a scene that models none.
struct OpenGround {
    bool lit = false; ///< false where the light of the ground is none of these cells' business
    double height = 0.0;
    XYZf low{0, 0, 0}, high{0, 0, 0}; ///< x and y within which it lies in the scene's shadow
    float light = 0.0f;               ///< thrown back by the ground without a scene [Wh/m2]
    float reflectance = 0.0f;
};

/// Where a ray met a surface.
struct Landing {
    std::uint64_t key;   ///< of the cell
    std::uint64_t order; ///< of the landings in a cell the lowest stands for it
    XYZf position, normal;
    std::uint32_t material;
    std::uint32_t weight; ///< how much hangs on the cell, in rays of sensors times 2^12

    static constexpr std::uint32_t oneRay = 1U << 12U;
};

/// What the rays of one place found. Numbers of landings are places in `landings`.
struct Gathered {
    static constexpr std::uint32_t nothing = 0xFFFFFFFFU;   ///< the sky, or what throws nothing
    static constexpr std::uint32_t farGround = 0xFFFFFFFEU; ///< open ground without a shadow

    std::vector<Landing> landings;
    std::vector<std::uint32_t> found; ///< by ray
    std::vector<float> through;       ///< by ray, what translucent surfaces let through
    std::size_t blocked = 0;          ///< rays that met a surface, dark ones included

    void clear() {
        landings.clear();
        found.clear();
        through.clear();
        blocked = 0;
    }
};

/// Casts lattices of rays.
class LightGatherer {
public:
    /// seasonShares: of the light of the whole period, by season of the scene.
    LightGatherer(const LightScene& scene, const OpenGround& ground,
                  std::vector<float> seasonShares)
        : m_scene(scene), m_ground(ground), m_seasonShares(std::move(seasonShares)) {}

    /// Casts the rays `first` to `end` of the lattice of a place whose whole lattice has about
    /// `spread` rays, and appends what they find. normal: unit, or zero for all directions.
    /// leastCell: edge of the finest cells. weight: of each ray.
    void gather(const XYZf& origin, const XYZf& normal, std::size_t first, std::size_t end,
                std::size_t spread, double leastCell, std::uint32_t weight,
                Gathered& gathered) const;

    /// What translucent surfaces let through over the period, of a ray into the sky or up to a
    /// distance.
    float through(const XYZf& origin, const XYZf& direction, double distance) const;

    float reflectance(std::uint32_t material) const {
        return material == groundMaterial ? m_ground.reflectance
                                          : m_scene.materials()[material].reflectance;
    }
    const LightScene& scene() const { return m_scene; }
    const OpenGround& ground() const { return m_ground; }

    static constexpr std::uint32_t groundMaterial = 0xFFFFFFFFU;

private:
    const LightScene& m_scene;
    OpenGround m_ground;
    std::vector<float> m_seasonShares;
};

/// All cells, with what they receive.
class LightCells {
public:
    struct Options {
        int bounces;
        std::size_t cellRays, linkRays;
        double leastLinkCell;
        int threads;
    };
    /// Adds cells for landings; those of one key become one. New ones have to be lit. Gives the
    /// number of new ones.
    std::size_t add(std::vector<Landing>& landings);
    /// The number of the cell of a key, or none.
    std::uint32_t find(std::uint64_t key) const;
    static constexpr std::uint32_t none = 0xFFFFFFFFU;

    /// Lights the cells that were added last and casts their links; gives what the links found.
    std::vector<Landing> light(const LightGatherer& gatherer, const LightSources& sources,
                               const Options& options, bool withLinks);
    /// Lets the cells exchange their light.
    struct Exchange {
        int bounces = 1;
        double beyond = 0.0;
        bool converged = true;
    };
    Exchange exchange(const LightGatherer& gatherer, const Options& options);

    /// Light that a cell throws back, by bin [Wh/m2].
    const float* thrownBack(std::uint32_t cell) const {
        return m_received.data() + std::size_t{cell} * m_bins;
    }
    std::size_t size() const { return m_cells.size(); }
    std::size_t rays() const { return m_rays; }
    std::size_t bytes() const;

private:
    struct Cell {
        Landing landing;
        std::size_t firstLink = 0;
        std::uint32_t linkCount = 0; ///< of m_links
        std::uint32_t linkRays = 0;  ///< that were cast
        float farGround = 0.0f;      ///< share of them that met open ground
    };
    struct Link {
        std::uint64_t key;
        float through;
        std::uint32_t cell;
    };
    std::vector<Cell> m_cells;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> m_places; ///< by key
    std::vector<Link> m_links;
    std::vector<float> m_received; ///< by cell and bin; after exchange() what is thrown back
    std::size_t m_bins = 1;
    std::size_t m_lit = 0;
    std::size_t m_rays = 0;
};

} // namespace insolate
