/// What the surfaces of a scene do with light: how much they scatter and how much they let through.
#pragma once

#include <insolate/export.h>

#include <array>
#include <cstdint>
#include <vector>

namespace insolate {

/// A value that may change with the day of the year.
class INSOLATE_EXPORT SeasonalValue {
public:
    /// The same on all days.
    SeasonalValue(float value = 0.0f); // NOLINT(google-explicit-constructor): 0.7f is a value
    /// leaf from firstDay to lastDay, days of the year 1..365, both included; bare on all other
    /// days. A lastDay before firstDay runs over new year, as leaves do south of the equator.
    static SeasonalValue leafSeason(float leaf, float bare, int firstDay, int lastDay);
    /// From January to December.
    static SeasonalValue monthly(const std::array<float, 12>& values);

    /// day: 1..365; values beyond are held to it.
    float on(int day) const;
    float lowest() const;
    float highest() const;
    /// All values times the factor.
    SeasonalValue scaled(float factor) const;

private:
    std::vector<float> m_days; ///< one value, or 365
};

/// One material. Light that is neither scattered nor let through is absorbed.
struct Material {
    enum class Passage : std::uint8_t {
        Opaque, ///< nothing passes
        Pane,   ///< glass: passes weakened by the angle of incidence, at each surface crossed
        Leaves, ///< a surface of leaves: the same share passes at each crossing, at any angle
        Crown,  ///< a closed hull: weakened by the length of the path inside of it
    };

    /// Diffuse, of either side, for what arrives from everywhere: 0..1.
    float reflectance = 0.2f;
    Passage passage = Passage::Opaque;
    /// Pane: the transmittance at normal incidence, 0..1. Leaves: the share that passes, 0..1.
    /// Crown: the extinction [1/model unit], 0 or more; a path of length l lets exp(-passing l)
    /// through (Beer-Lambert: the leaf area density times its projection, 0.5 for leaves of all
    /// angles).
    SeasonalValue passing;
    /// Of a pane, 1 or more: 1.526 for window glass.
    float refractiveIndex = 1.526f;
};

/// A pane of one kind of glass.
///
/// Fresnel's reflection at both faces with all inner reflections, each polarisation by itself, and
/// Bouguer's absorption along the refracted path: Duffie and Beckman (2013), Solar Engineering of
/// Thermal Processes, 4th ed., section 5.3. The absorption is that which gives the transmittance at
/// normal incidence; one above what clear glass of the index passes is held to it.
class INSOLATE_EXPORT PaneGlass {
public:
    /// transmittance: at normal incidence, 0..1. refractiveIndex: 1 or more.
    explicit PaneGlass(float transmittance, float refractiveIndex = 1.526f);

    struct Shares {
        float transmitted = 0.0f;
        float reflected = 0.0f;
    };
    /// cosine: of the angle between the ray and the pane's normal, 0..1.
    Shares at(float cosine) const;
    /// The means over a hemisphere of uniform radiance.
    Shares hemispherical() const;

private:
    double m_index;
    double m_absorption; ///< extinction times thickness
};

} // namespace insolate
