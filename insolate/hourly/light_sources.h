/// The sun and the sky of a period as sources from which a surface draws a few rays.
///
/// Sky cells and sun cells lie in groups of about ten degrees. The groups are weighed for some
/// hundred normals; a surface draws from the weights of the one nearest to its own in even steps,
/// so that every ray stands for about the same light; the group's ray goes to one of its cells,
/// drawn by what it has. The sum over the rays that nothing blocks is an unbiased estimate of what
/// the surface receives.
///
/// Each ray also has a bin: 0 for the sky, others for parts of the sun's year. An hour's light of a
/// bin is its share of the bin's sum, by which sums are divided among hours.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/hourly/hourly_sky.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace insolate {

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
    /// manyBins: tell the parts of the sun's year apart; otherwise all light has bin 0.
    LightSources(const HourlySky& sky, bool manyBins);

    struct Ray {
        XYZf direction;
        float light; ///< on the surface, if nothing blocks the ray [Wh/m2]
        std::uint32_t bin;
    };
    /// Draws `count` rays, or none without any light in front of the surface. normal: unit, or zero
    /// for a point that takes light from everywhere. start: 0..1, of the first of the even steps.
    void draw(const XYZf& normal, std::uint64_t seed, float start, std::size_t count,
              std::vector<Ray>& rays) const;

    std::size_t binCount() const { return m_binCount; }
    /// Share of a bin's sum that falls in an hour of HourlySky::skyHours.
    const float* sharesOfHour(std::size_t skyHour) const {
        return m_shares.data() + skyHour * m_binCount;
    }
    /// The same for a part of the period, by bin.
    /// @param diffuseHorizontal of the part [Wh/m2]
    std::vector<float> sharesOfPart(double diffuseHorizontal,
                                    const std::vector<SunCell>& sunCells) const;

private:
    struct Child {
        XYZf vector; ///< its direction times what it brings on a surface across it [Wh/m2]
        std::array<XYZf, 2> directions;
        float length;
        float upTo; ///< sum of the lengths in its group so far
        std::uint32_t bin;
    };
    struct Group {
        std::vector<Child> children;
        XYZf vector{0, 0, 0}; ///< sum of the children's
    };
    static void drawFrom(const Group& group, float inside, float light, const XYZf& normal,
                         bool everywhere, std::uint64_t bits, std::vector<Ray>& rays);
    void addGroup(std::vector<Child> children);
    void weigh();
    void findShares(const HourlySky& sky, const std::vector<std::uint32_t>& binOfSun);

    /// Directions that stand for all normals: the middles of 9 by 9 squares on each side of a cube,
    /// so that level and upright surfaces along the axes have their own.
    static constexpr std::size_t squares = 9;
    static std::size_t normalLike(const XYZf& normal);
    static XYZf normalOf(std::size_t number);
    static constexpr std::size_t everyDirection = 6 * squares * squares; ///< for points

    std::vector<Group> m_groups;
    /// For each of the normals, and for points: sums of the weights of the groups up to each.
    std::vector<float> m_weightsUpTo;
    std::size_t m_binCount = 1;
    std::vector<float> m_shares;                        ///< by hour, then by bin
    std::map<std::uint32_t, std::uint32_t> m_binOfPart; ///< of the sun's year; empty for one bin
    std::vector<double> m_sums;                         ///< light of the hours by bin
    std::vector<double> m_periodSums;                   ///< the same as a part's light is known
};

} // namespace insolate
