/// Light that the surfaces of a scene, and the ground in its shadow, throw on sensors.
///
///     const LightScene scene(coordinates, materialOfTriangle, materials);
///     analysis.evaluate(scene, sensors, results);
///     const ReflectedLight light(analysis, scene, sensors, {}, {}, results);
///     for (std::size_t i = 0; i < results.size(); ++i) light.addTo(i, results[i]);
///
/// From each sensor a lattice of rays looks for surfaces. Where they land the surfaces are divided
/// into cells, whose size grows with the distance of the sensors that see them; a cell gets the
/// light of the period by some rays to the sky and the sun, more the more it counts, and light of
/// other cells by a few rays that land in coarser ones. Surfaces scatter what they do not absorb
/// evenly (Lambert). The lattice averages over the cells: nothing is interpolated, and as a cell is
/// represented by a place where a ray landed, no light leaks through walls.
///
/// Where the scene has no ground, light of the open ground below is as in HourlyAnalysis, but the
/// ground lies in the scene's shadow: a plane at the scene's lowest point, up to
/// ReflectionOptions::groundReach heights of the scene around it. Beyond it is open.
///
/// The analysis's tolerance governs this light too: the options are those of a tolerance of 1 %,
/// and of 0. A smaller one takes more rays of sensors, by its fourth power up to 64 times, and
/// smaller cells, by its square down to a quarter, with up to twice the rays; a larger one down to
/// half of the sensors' rays. Sensors are then found in groups of 16384 over the 3/4th power of the
/// factor of rays, which bounds the memory.
///
/// Results are the same bytes for every number of threads. They depend on which sensors are asked
/// together, since these choose the cells: within what the rays leave uncertain anyway.
#pragma once

#include <insolate/export.h>
#include <insolate/hourly/hourly_analysis.h>
#include <insolate/rt/light_scene.h>

#include <cstddef>
#include <memory>
#include <span>

namespace insolate {

struct ReflectionOptions {
    /// Times that light is reflected before it reaches a sensor, 1 or more; 0 goes on until what is
    /// left is below a thousandth of the reflected light.
    int bounces = 0;
    /// Rays of the lattice of a sensor that sees the scene in half of its view and gets 15 % of
    /// its light from it, 1..256: others have more or fewer by the square of that share, a third at
    /// least, 256 at most. Without results of evaluate() all have them, and up to four times as
    /// many where much of what is seen reflects.
    int rays = 20;
    /// Rays to sky and sun of a cell that many rays have found, 1..1,024.
    int cellRays = 48;
    /// Rays of such a cell to other cells, 1..256.
    int linkRays = 24;
    double leastCell = 1.0;     ///< edge of the finest cells [model units], above 0
    double leastLinkCell = 2.0; ///< the same of cells that other cells find
    /// How far ground is in the scene's shadow [heights of the scene], 0..1e6. Of this and the
    /// edges, what is no such number counts as the default.
    double groundReach = 4.0;
    /// Keeps the reflected light of parts of the sun's year by themselves, for hours, peaks and
    /// parts of the period: some 100 bytes a sensor.
    bool hours = true;
};

/// What became of the light.
struct ReflectionReport {
    std::size_t cells = 0; ///< of surfaces that were lit
    std::size_t rays = 0;  ///< that were cast, those of the sensors included
    std::size_t bytes = 0; ///< that cells and sensors took at most
    int bounces = 0;       ///< reflections that were followed one by one
    /// Of the light that the sensors' cells scatter, the part that came with the reflections beyond
    /// those, estimated and added; 0 for a chosen number.
    double beyond = 0.0;
    /// Whether what is left beyond is known: it is not in a closed scene that absorbs next to
    /// nothing, whose light grows with every reflection. Then the results hold `bounces` of them.
    bool converged = true;
};

class INSOLATE_EXPORT ReflectedLight {
public:
    /// All sensors at once; one-sided, as HourlyAnalysis::evaluate() with a LightScene takes them.
    /// The analysis says which sky, and whether the ground is open (groundRays of 0: then the
    /// surfaces below the horizon throw nothing back, as the open ground's light stands for
    /// theirs). Takes `threads`, `stop` and `progress` as evaluate() does, where a sensor counts as
    /// finished by the share of all the work that is done.
    /// @param direct what evaluate() gave the sensors, before addTo(): with it rays go where they
    ///        count; of another size than sensors: not known
    ReflectedLight(const HourlyAnalysis& analysis, const LightScene& scene,
                   std::span<const Sensor> sensors, const ReflectionOptions& options = {},
                   const EvaluateOptions& run = {}, std::span<const SensorResult> direct = {});
    ReflectedLight(ReflectedLight&&) noexcept;
    ReflectedLight& operator=(ReflectedLight&&) noexcept;
    ~ReflectedLight();

    /// False after a stop: there are no results.
    bool complete() const;
    const ReflectionReport& report() const;

    /// Light reflected on the sensor [Wh/m2], by the lattice alone.
    float reflected(std::size_t sensor) const;
    /// Light of the ground that the sensor sees over that of open ground, both without what the
    /// scene hides.
    float groundShare(std::size_t sensor) const;

    /// Puts the light into a result of evaluate(). Of the view that the scene takes, evaluate()
    /// knows more than the lattice: the reflected light is scaled to it. What changes: `reflected`,
    /// the ground in the scene's shadow, the total and its averages. The peak gets what is
    /// reflected in its hour; another hour that would only be the highest with it is not looked
    /// for.
    /// @param parts of the sensor, as evaluate() gives them; with ReflectionOptions::hours off they
    ///        share the reflected light by their own light alone
    void addTo(std::size_t sensor, SensorResult& result, SensorHours* hours = nullptr,
               std::span<SensorPart> parts = {}) const;

private:
    struct Content;
    std::unique_ptr<const Content> m_content;
};

} // namespace insolate
