/// The sun and the sky of a period as sources from which a surface draws a few rays.
///
/// Sky cells and sun cells lie in groups of about ten degrees. The groups are weighed for some
/// hundred normals; a surface draws from the weights of the one nearest to its own in even steps,
/// so that every ray stands for about the same light; the group's ray goes to one of its cells,
/// drawn by what it has. The sum over the rays that nothing blocks is an unbiased estimate of what
/// the surface receives.
///
/// The light of each source is divided into bins: the sky or a part of the sun's year, in a season
/// of the scene's materials. What passes glass and crowns is known by bin, and an hour's light of a
/// bin is its share of the bin's sum, by which sums are divided among hours.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/hourly/hourly_sky.h>
#include <insolate/rt/light_scene.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

namespace insolate {

/// The season of an hour's day, held to those that there are.
std::size_t seasonOfHour(const SkyHour& hour, const Seasons& seasons);

/// Well mixed bits of two numbers (Steele, Lea, Flood 2014, "Fast splittable pseudorandom number
/// generators", the finaliser of SplitMix64).
inline std::uint64_t mixedBits(std::uint64_t a, std::uint64_t b = 0) {
    std::uint64_t z = a + 0x9E3779B97F4A7C15U * (b + 1);
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
}
/// From 0 to below 1.
inline double unitNumber(std::uint64_t bits) {
    return static_cast<double>(bits >> 11U) * 0x1p-53;
}

class LightSources {
public:
    /// manyBins: a bin for each part of the sun's year; otherwise a season's light has one bin.
    LightSources(const HourlySky& sky, const Seasons& seasons, bool manyBins);

    struct Ray {
        XYZf direction;
        float light; ///< on the surface, if nothing blocks the ray [Wh/m2]
        std::uint32_t source;
    };
    struct BinShare {
        std::uint32_t bin;
        float share;
    };
    /// The light of a ray's source by bin: shares that add up to 1.
    std::span<const BinShare> binsOf(std::uint32_t source) const {
        return std::span(m_binShares)
            .subspan(m_firstShare[source], m_firstShare[source + 1] - m_firstShare[source]);
    }
    /// Even steps through the sources, of which several places of a surface share the rays.
    struct Steps {
        std::uint64_t seed;
        float start;                      ///< 0..1, of the first step
        std::size_t count;                ///< rays of all places
        std::size_t first = 0, every = 1; ///< of this place
    };
    /// Draws rays, or none without any light in front of the surface. normal: unit, or zero for a
    /// point that takes light from everywhere.
    void draw(const XYZf& normal, const Steps& steps, std::vector<Ray>& rays) const;

    std::size_t binCount() const { return m_seasonOfBin.size(); }
    /// Of a bin; the first bins are those of the sky, one for each season in turn.
    std::size_t seasonOf(std::size_t bin) const { return m_seasonOfBin[bin]; }
    std::size_t seasonCount() const { return m_seasonShares.size(); }
    /// Of the light of the whole period on open ground, by season.
    const std::vector<float>& seasonShares() const { return m_seasonShares; }
    /// Share of a bin's sum that falls in an hour of HourlySky::skyHours.
    const float* sharesOfHour(std::size_t skyHour) const {
        return m_shares.data() + skyHour * binCount();
    }
    /// What is known of a part of the period.
    struct Part {
        double diffuseHorizontal; ///< [Wh/m2]
        const std::vector<SunCell>& sunCells;
        /// Of the diffuse light by season, and of each sun cell's by season; empty: all in one.
        std::span<const float> diffuseShares, sunShares;
    };
    /// The same for a part, by bin.
    std::vector<float> sharesOfPart(const Part& part) const;

private:
    struct Child {
        XYZf vector; ///< its direction times what it brings on a surface across it [Wh/m2]
        std::array<XYZf, 2> directions;
        float length;
        float upTo; ///< sum of the lengths in its group so far
        std::uint32_t source;
    };
    struct Group {
        std::vector<Child> children;
        XYZf vector{0, 0, 0}; ///< sum of the children's
    };
    static void drawFrom(const Group& group, float inside, float light, const XYZf& normal,
                         bool everywhere, std::uint64_t bits, std::vector<Ray>& rays);
    void addGroup(std::vector<Child> children);
    void weigh();
    /// The bin of the sun in a sky cell and a season; none where the period has no such sun.
    std::uint32_t binOfSun(int cell, std::size_t season) const;
    void makeBins(const HourlySky& sky, const Seasons& seasons, bool manyBins);
    void findShares(const HourlySky& sky, const Seasons& seasons);

    /// Directions that stand for all normals: the middles of 9 by 9 squares on each side of a cube,
    /// so that level and upright surfaces along the axes have their own.
    static constexpr std::size_t squares = 9;
    static std::size_t normalLike(const XYZf& normal);
    static XYZf normalOf(std::size_t number);
    static constexpr std::size_t everyDirection = 6 * squares * squares; ///< for points

    std::vector<Group> m_groups;
    /// For each of the normals, and for points: sums of the weights of the groups up to each.
    std::vector<float> m_weightsUpTo;
    std::vector<std::uint16_t> m_seasonOfBin;
    std::vector<float> m_seasonShares;
    std::vector<BinShare> m_binShares; ///< of the sky, then of each sun cell
    std::vector<std::size_t> m_firstShare;
    std::vector<float> m_shares; ///< by hour, then by bin
    int m_partsOfSun = 0;        ///< in a season, each with a bin of its own; 0: none
    /// Of the parts of the sun's year, by part and season.
    std::map<std::pair<std::uint32_t, std::size_t>, std::uint32_t> m_binOfPart;
    std::vector<double> m_periodSums; ///< light by bin as that of parts is known
};

} // namespace insolate
