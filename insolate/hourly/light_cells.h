/// The cells of a scene's surfaces that throw light back, and the rays that find them.
#pragma once

#include <insolate/hourly/light_sources.h>
#include <insolate/rt/light_scene.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <stop_token>
#include <utility>
#include <vector>

namespace insolate {

/// The level ground around a scene that models none.
struct OpenGround {
    bool lit = false; ///< false where the light of the ground is none of these cells' business
    double height = 0.0;
    XYZf low{0, 0, 0}, high{0, 0, 0}; ///< x and y within which it lies in the scene's shadow
    float light = 0.0f;               ///< thrown back by the ground without a scene [Wh/m2]
    float reflectance = 0.0f;

    bool isShadowed(const std::array<double, 3>& place) const {
        return place[0] >= static_cast<double>(low.x) && place[0] <= static_cast<double>(high.x) &&
               place[1] >= static_cast<double>(low.y) && place[1] <= static_cast<double>(high.y);
    }
};

/// Where a ray met a surface.
struct Landing {
    std::uint64_t key;   ///< of the cell
    std::uint64_t order; ///< of the landings in a cell the lowest stands for it
    XYZf position, normal;
    std::uint32_t material;
    std::uint32_t weight; ///< how much hangs on the cell, in rays of sensors times 2^12
    /// Landings of other kinds have other cells: places that see next to no sky do not share those
    /// of lit ones, into which a large cell may reach through a thin wall.
    std::uint32_t kind;
    static constexpr std::uint32_t kinds = 3;
    float start;    ///< 0..1, even over the rays of a lattice: where draws of sources begin
    float distance; ///< of the ray that landed [model units]

    static constexpr std::uint32_t oneRay = 1U << 12U;
};

/// What the rays of one place found: an entry for each that ended on a surface or on the ground,
/// and one for each that met glass or leaves on its way.
struct Gathered {
    static constexpr std::uint32_t farGround = 0xFFFFFFFFU; ///< open ground without a shadow

    std::vector<Landing> landings;
    std::vector<std::uint32_t> found; ///< by entry, places in `landings`
    /// By entry and season, what translucent surfaces let through.
    std::vector<float> through;
    std::size_t rays = 0;
    std::size_t blocked = 0; ///< rays that met an opaque surface, dark ones included

    void clear() {
        landings.clear();
        found.clear();
        through.clear();
        rays = 0;
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

    /// Casts the rays `first` to `end` of the lattice of a place and appends what they find, for
    /// divide() to complete. normal: unit, or zero for all directions.
    void gather(const XYZf& origin, const XYZf& normal, std::size_t first, std::size_t end,
                Gathered& gathered) const;
    /// The same of a lattice that several places share, by its number.
    void gather(const XYZf& origin, const XYZf& normal, std::uint64_t lattice, std::size_t first,
                std::size_t end, Gathered& gathered) const;
    /// Gives the landings of a place their cells and weights.
    /// @param spread rays of its whole lattice, a quarter of them for one of all directions: the
    ///        more, the finer the cells
    /// @param leastCell edge of the finest cells
    /// @param weight of each ray
    /// @param kind see Landing
    static void divide(Gathered& gathered, std::size_t spread, double leastCell,
                       std::uint32_t weight, std::uint32_t kind);

    /// What translucent surfaces let through in each season, of a ray into the sky or up to a
    /// distance.
    void through(const XYZf& origin, const XYZf& direction, double distance,
                 std::span<float> bySeason) const;
    std::size_t seasonCount() const { return m_seasonShares.size(); }
    const std::vector<float>& seasonShares() const { return m_seasonShares; }
    /// The mean over the period of what is known by season.
    float meanOf(const float* bySeason) const {
        float mean = 0.0f;
        for (std::size_t s = 0; s < m_seasonShares.size(); ++s) {
            mean += m_seasonShares[s] * bySeason[s];
        }
        return mean;
    }

    /// A number that is near for places near to each other.
    std::uint64_t placeInSpace(const XYZf& position) const;

    float reflectance(std::uint32_t material) const {
        return material == groundMaterial ? m_ground.reflectance
                                          : m_scene.materials()[material].reflectance;
    }
    /// Of the scene's materials, each counted once: a guess before a lattice has met anything.
    float meanReflectance() const {
        float all = 0.0f;
        for (const Material& material : m_scene.materials()) {
            all += material.reflectance;
        }
        return all / static_cast<float>(m_scene.materials().size());
    }
    const LightScene& scene() const { return m_scene; }
    const OpenGround& ground() const { return m_ground; }

    static constexpr std::uint32_t groundMaterial = 0xFFFFFFFFU;

private:
    struct Ray {
        XYZf origin, direction;
        float start; ///< see Landing
    };
    /// Appends what comes through on the way of an entry, by season, times a factor.
    void appendThrough(const Ray& ray, double distance, float factor, Gathered& gathered) const;
    /// Appends a landing on a surface at a distance; gives its number.
    static std::uint32_t append(const Ray& ray, double distance, const XYZf& facing,
                                std::uint32_t material, Gathered& gathered);
    /// Appends an entry for what a ray meets of panes and leaves on its way: one of them, drawn by
    /// chance, stands for all. Crowns that are hulls reflect nothing.
    void appendCrossed(const Ray& ray, double distance, Gathered& gathered) const;

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
        std::stop_token stop = {}; ///< asked now and then; after a stop nothing is complete
        /// Called with parts of the work of light(), of 1 in all, from any thread.
        std::function<void(double part)> advance = {};
    };
    /// Adds cells for landings; those of one key become one. New ones have to be lit. Gives the
    /// number of new ones. Neighbours follow each other: they meet the same parts of the scene.
    std::size_t add(std::span<const Landing> landings, const LightGatherer& gatherer);
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

    /// Light of the sun and the sky on a cell, by bin [Wh/m2].
    const float* direct(std::uint32_t cell) const {
        return m_direct.data() + std::size_t{cell} * m_bins;
    }
    /// Light of other surfaces on a cell after exchange(), by bin [Wh/m2]: where it has no links of
    /// its own, that of cells which see it, or else the mean of those that look like it up, aside
    /// or down.
    const float* indirect(std::uint32_t cell) const {
        return m_indirect.data() + std::size_t{m_rowOf[cell]} * m_bins;
    }
    /// The chance that a cell had of links, 0..1, where it has some; else 0.
    float chanceOfLinks(std::uint32_t cell) const {
        return m_cells[cell].isLinked ? m_cells[cell].chance : 0.0f;
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
        float chance = 1.0f;         ///< that it had of any
        /// Other landings in it, of m_points: its light is the mean over several places.
        std::uint32_t pointCount = 0;
        std::size_t firstPoint = 0;
        bool isLinked = false; ///< has rays to other cells that are known

        /// What hangs on it and on those that had the same chance and no luck.
        double expected() const {
            return static_cast<double>(landing.weight) /
                   std::max(static_cast<double>(chance), 1e-6);
        }
    };
    class Unlinked;
    struct Link {
        std::uint64_t key;
        std::uint32_t row; ///< of the cell that it leads to; none where that was not lit
    };
    struct Slot {
        std::uint64_t key = 0;
        std::uint32_t cell = none;
    };
    void addSlots(std::size_t firstCell);
    /// Finds where links lead, and gives rows to the cells that take part in the exchange: those
    /// with links and those that links lead to, by cell. All others have a row for all that are
    /// alike, behind them.
    void makeRows();
    void receive(const std::vector<float>& thrown, std::vector<float>& received) const;
    /// Light of the open ground far away, which arrives like that of the sky.
    void addFarGround(const LightGatherer& gatherer, std::vector<float>& received) const;
    std::vector<float> meansOfAlike(const std::vector<float>& values) const;

    std::vector<Cell> m_cells;
    std::vector<Landing> m_points; ///< of the cells that are to be lit
    std::vector<Slot> m_slots; ///< of the cells by their keys: a power of two, half full at most
    std::vector<Link> m_links;
    std::vector<std::uint32_t> m_rowOf;  ///< by cell
    std::vector<std::uint32_t> m_cellOf; ///< by row
    std::vector<float> m_through;        ///< by link and season
    std::vector<float> m_farGround; ///< by cell and season: share of its rays that met open ground
    std::vector<std::uint16_t> m_seasonOfBin;
    std::size_t m_seasons = 1;
    std::vector<float> m_direct;   ///< by cell and bin
    std::vector<float> m_indirect; ///< by row and bin, after exchange()
    std::size_t m_bins = 1;
    std::size_t m_lit = 0;
    std::size_t m_rays = 0;
};

} // namespace insolate
