/// Parts of a period, by the rays of the whole: a year's months cost little more than the year.
///
/// A sensor sees the same of the sky in each part. The diffuse radiation of a part is a sum over
/// the cells with the part's own sky, and so is its sun: what the whole's rays leave of the half of
/// a cell holds for the part's sun in it. Where the surface's plane cuts a half, the parts share
/// what the whole counts there by what the sun's single steps bring on the surface; parts that make
/// up the whole therefore add up to it everywhere.
///
/// A run of the part alone points its rays to the part's own suns instead. Both differ within the
/// error that two rays for a cell leave; see docs/hourly-method.md.
#pragma once

#include <insolate/hourly/first_rays.h>
#include <insolate/hourly/hourly_analysis.h>
#include <insolate/hourly/sensor_rays.h>

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace insolate {

class SkyParts {
public:
    SkyParts() = default;
    SkyParts(SkyParts&&) noexcept = default; // the suns point into the steps
    SkyParts& operator=(SkyParts&&) noexcept = default;
    ~SkyParts() = default;
    /// @param parts of the same weather and options, each within the whole's period; what of one
    ///        lies outside is left out
    SkyParts(const HourlySky& whole, const std::vector<HourlySky>& parts);

    std::size_t size() const { return m_parts.size(); }

    /// What one sensor sees in the whole.
    struct Seen {
        Sides sides = Sides::One;
        XYZf normal{0, 0, 0};
        const float* cells = nullptr;            ///< visible projected solid angles [sr]
        float skyScale = 1;                      ///< what the sky counts by, over that of the cells
        std::array<const float*, 2> sunShares{}; ///< of the cells' halves, by cell: seen of the sun
        std::array<const float*, 2> sunTimes{};  ///< of the halves, by sun cell: seen of its time
        const float* sunWeight = nullptr;        ///< by sun cell: energy on the surface [Wh/m2]
        const float* sunVisible = nullptr;       ///< by sun cell: its visible share
        /// By sun cell: the share of its time that glass and crowns let through; null: all of it.
        const float* timeThrough = nullptr;
        float groundView = 0; ///< what the ground's light counts by
    };
    /// @param first place of the part that parts begins with
    void evaluate(const Seen& seen, std::size_t first, std::span<SensorPart> parts) const;

private:
    /// What a sun brings that stands in the half of a cell; energies as in FirstRays::Sun.
    struct HalfSun {
        XYZf energy{0, 0, 0};
        float hours = 0;
        std::span<const XYZf> steps; ///< energies of the sun's single steps
    };
    /// The sun of one part in the half of one of the whole's cells.
    struct PartSun {
        std::size_t part = 0;
        HalfSun sun;
    };
    struct Half {
        HalfSun whole;
        std::vector<PartSun> parts; ///< in their order
    };
    struct Cell {
        int index = 0; ///< in the sky
        XYZf centre{0, 0, 0};
        std::array<Half, 2> halves; ///< the lower one first
    };
    struct Part {
        std::vector<float> diffuse; ///< as in HourlySky
        float groundReflected = 0;
        std::vector<std::size_t> cells; ///< with its sun, in m_cells
    };
    /// What a sensor gets from a part's sun.
    struct SunSums {
        double beam = 0.0;  ///< [Wh/m2]
        double hours = 0.0; ///< [h]
    };
    template <typename Use>
    void forEachSun(const HourlySky& sky, Use&& use);
    /// @param first the part that sums begin with
    void addCell(const Seen& seen, std::size_t cell, std::size_t first,
                 std::span<SunSums> sums) const;

    std::vector<Part> m_parts;
    std::vector<Cell> m_cells; ///< with the whole's sun
    /// Of the whole and of all parts, which the suns point into.
    std::vector<std::vector<XYZf>> m_steps;
};

} // namespace insolate
