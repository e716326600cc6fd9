/// What the figures of a site may be, whoever gives them.
#pragma once

namespace insolate {

struct SiteRange {
    double low = 0.0;
    double high = 0.0;

    /// Not of NaN.
    [[nodiscard]] constexpr bool holds(double value) const { return value >= low && value <= high; }
};

namespace siteRanges {
inline constexpr SiteRange latitude{-90.0, 90.0};       ///< degrees, north positive
inline constexpr SiteRange longitude{-180.0, 180.0};    ///< degrees, east positive
inline constexpr SiteRange timeZone{-12.0, 14.0};       ///< hours from UTC
inline constexpr SiteRange elevation{-1000.0, 10000.0}; ///< metres above the sea
} // namespace siteRanges

} // namespace insolate
