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
    /// @param first the rays of the whole
    /// @param parts of the same weather and options, each within the whole's period; what of one
    ///        lies outside is left out
    SkyParts(const HourlySky& whole, const FirstRays& first, const std::vector<HourlySky>& parts);

    std::size_t size() const { return m_parts.size(); }

    /// What one sensor sees in the whole.
    struct Seen {
        Sides sides = Sides::One;
        XYZf normal{0, 0, 0};
        const float* cells = nullptr;          ///< visible projected solid angles [sr]
        std::array<const float*, 2> visible{}; ///< of the cells' halves, by cell
        const float* sunWeight = nullptr;      ///< by sun cell: energy on the surface [Wh/m2]
        const float* sunVisible = nullptr;     ///< by sun cell: its visible share
        float groundView = 0;                  ///< what the ground's light counts by
        float hoursScale = 1;                  ///< counted hours of sun over those of the halves
    };
    /// @param parts as many as size()
    void evaluate(const Seen& seen, std::span<SensorPart> parts) const;

private:
    /// The sun in the half of a cell; energies as in FirstRays::Sun.
    struct HalfSun {
        int sunCell = 0; ///< of the whole
        int half = 0;
        XYZf energy{0, 0, 0};
        float hours = 0;
        std::span<const XYZf> steps; ///< energies of the sun's single steps
    };
    struct Part {
        std::vector<float> diffuse; ///< as in HourlySky
        std::vector<HalfSun> suns;
        std::vector<XYZf> steps; ///< of all suns
        float groundReflected = 0;
    };
    static Part partOf(const HourlySky& sky, const std::vector<int>& sunCellOf);
    class HalfSums;

    Part m_whole;
    std::vector<Part> m_parts;
    std::vector<XYZf> m_centres;             ///< of the whole's sun cells
    std::vector<int> m_cells;                ///< of the whole's sun cells
    std::array<std::vector<XYZf>, 2> m_rays; ///< to the suns of the halves
};

} // namespace insolate
