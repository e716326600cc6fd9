/// Radiation on sensors over a period, hour by hour: the whole hourly method in one object.
///
///     const WeatherReading weather = readWeatherSeries("chicago.epw");
///     const HourlyAnalysis analysis(buildHourlySky(weather.series));
///     const OcclusionIndex scene(triangleCoordinates);
///     const SensorResult result = analysis.evaluate(scene, {{0, 0, 1}, {0, 0, 1}});
///
/// Nothing is shared between objects and nothing is process-wide: any number of analyses may run at
/// once, and one analysis may evaluate on any number of threads.
///
/// What a sensor gets: direct sun where the scene leaves it free, the diffuse sky that it sees, and
/// the light of the open ground. ReflectedLight adds what the scene's own surfaces and the ground
/// in their shadow reflect. Not modelled: a circumsolar disc that is cut by an edge finer than a
/// cell, and mirrors.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/hourly/hourly_sky.h>
#include <insolate/rt/light_scene.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_transparency.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate {

/// A place at which radiation is computed, in model coordinates.
struct Sensor {
    /// A sensor of which a coordinate is no finite number gets results of 0 and no peak hour.
    XYZf position{0, 0, 0};
    /// Outward normal of the receiving surface, of any length. A zero vector stands for a point
    /// without a surface, on which every direction counts fully. A component that is no finite
    /// number gives results of 0 too.
    XYZf normal{0, 0, 1};
};

struct HourlyAnalysisOptions {
    /// Error that a sensor's total may have, as a share of it (0.01 is 1 %), of a fiftieth of open
    /// ground's where the total is less: of sky, direct sun and ground together, over the whole
    /// period. Where the edges of shadows could leave more, the heaviest places at edges get
    /// further rays. The bound is one of chance, which some sensors in a hundred may exceed
    /// (docs/validation.md); what first rays miss altogether, such as gaps of a degree, no
    /// tolerance finds. 0 takes the first rays for all; below 0.001 little gets better. It governs
    /// ReflectedLight too, with 0 as with the usual one.
    double tolerance = 0.01;
    /// The same for the sky's part and the direct part, beside the tolerance of the total: as
    /// shares of that part, of a tenth of the sensor's total, or of open ground's, where the part
    /// is less. 0 asks for nothing. skyViewFactor and directSunHours come from the first rays
    /// unless these are given. Below 0.0005 of the sky and 0.0002 of the sun nothing gets better.
    double skyTolerance = 0.0;
    double sunTolerance = 0.0;
    /// Rays into the lower hemisphere that first find the part of the ground hidden by the scene;
    /// surfaces that see little of it have a quarter of them. 0 or less takes the ground as open,
    /// more than 4,096 are 4,096. Take 0 also for a scene that models its own ground, which would
    /// count as hiding it.
    int groundRays = 384;
    bool peak = true; ///< whether to find the peak and its hour
    /// LightScene::seasons() of the scene that will be asked, where its materials change with the
    /// date. A scene with other seasons gives results of 0.
    Seasons seasons = {};
};

/// Radiation on one sensor. Two-sided surfaces add both sides.
struct SensorResult {
    float total = 0;     ///< beam + sky + ground + reflected [Wh/m2]
    float beam = 0;      ///< direct sun [Wh/m2]
    float sky = 0;       ///< diffuse sky [Wh/m2]
    float ground = 0;    ///< reflected by the open ground [Wh/m2]
    float reflected = 0; ///< by the scene's surfaces [Wh/m2]; 0 before ReflectedLight::addTo()
    float averageDaylight = 0; ///< total over the hours with the sun above the horizon [W/m2]
    float averagePeriod = 0;   ///< total over all hours of the period [W/m2]
    float peak = 0;            ///< highest mean of an hour [W/m2]; 0 when not asked for
    /// Its hour of the year 0..8,759, ending at peakHour + 1; -1 for none. The command's tables
    /// count hours by their ends, from 1.
    int peakHour = -1;
    float skyViewFactor = 0;    ///< cosine-weighted share of the view that is sky, 0..1
    float groundViewFactor = 0; ///< the same for open ground
    /// See HourlySkyOptions::sunshineThreshold [hours]; with its default, and without a tolerance
    /// for the direct sun, the same for each weather of a site.
    float directSunHours = 0;
};

/// The hours of a sensor: 8,760 values each [Wh/m2], 0 outside the period. They add up to the
/// sensor's beam, sky and ground to within 1e-4 of its total, in every period.
///
/// The sums take the sun of half a cell as one vector, and lose a little where the surface's plane
/// cuts the cell (within 0.7 % of a year's total, mostly under 0.2 %). The hours of such a cell are
/// scaled to what the sums have of it. The sensor's peak is searched before this: it is the highest
/// of the hours unless the sun of that hour stands within 7 degrees of the surface's plane.
struct SensorHours {
    std::vector<float> beam;
    std::vector<float> sky;
    std::vector<float> ground;
    std::vector<float> reflected; ///< empty before ReflectedLight::addTo()
};

/// Radiation on one sensor in a part of the period. Parts that make up the period, each hour in one
/// of them, add up to the sensor's beam, sky, ground and hours of sun within 1e-5 of its total;
/// within 1e-3 where what materials let through changes with the date.
struct SensorPart {
    float total = 0;          ///< beam + sky + ground + reflected [Wh/m2]
    float beam = 0;           ///< direct sun [Wh/m2]
    float sky = 0;            ///< diffuse sky [Wh/m2]
    float ground = 0;         ///< reflected by the open ground [Wh/m2]
    float reflected = 0;      ///< see SensorResult
    float directSunHours = 0; ///< [hours]
};

/// How many sensors at once are evaluated. The results are the same bytes whatever is chosen.
struct EvaluateOptions {
    /// Threads that share the work, the caller's included; 0, and more than there are processors,
    /// takes one for each processor. 1 stays on the caller's thread.
    int threads = 0;
    /// Called with the number of sensors that were finished since the last call, some hundred at
    /// a time; over a run that finishes these numbers add up to all sensors. Calls come from any of
    /// the threads, never two at once.
    std::function<void(std::size_t finished)> progress = {};
    /// Asked before each sixteen sensors; those that have begun are finished.
    std::stop_token stop = {};
};

struct HourlyPreparation;

class INSOLATE_EXPORT HourlyAnalysis {
public:
    /// Takes the sky over. An invalid sky gives results of 0, and so does an analysis that was
    /// moved from; a north offset in the sky's options that is no finite number counts as 0.
    explicit HourlyAnalysis(HourlySky sky, const HourlyAnalysisOptions& options = {});
    /// Radiation in parts of the period as well, such as the months of a year, by the same rays.
    /// @param parts skies of the same weather with the same options, each of a period within the
    ///        sky's own; they may overlap and leave gaps. Their skyHours, beams and patchRadiance
    ///        may be left out where there is one season.
    HourlyAnalysis(HourlySky sky, const HourlyAnalysisOptions& options,
                   const std::vector<HourlySky>& parts);
    HourlyAnalysis(HourlyAnalysis&&) noexcept;
    HourlyAnalysis& operator=(HourlyAnalysis&&) noexcept;
    ~HourlyAnalysis();

    /// The sky as it was taken over; an invalid one in an analysis that was moved from.
    const HourlySky& sky() const;

    const HourlyAnalysisOptions& options() const;

    /// One-sided sensors in a scene. hours, where given, gets the sensor's hours.
    SensorResult evaluate(const OcclusionIndex& scene, const Sensor& sensor,
                          SensorHours* hours = nullptr) const;

    /// The same where surfaces have materials: glass and crowns weaken what comes through them on
    /// its day. Cells at the edges of their shadows are not split. See ReflectedLight for what the
    /// surfaces reflect.
    SensorResult evaluate(const LightScene& scene, const Sensor& sensor,
                          SensorHours* hours = nullptr) const;

    /// Through any ray caster, with its transparencies and its choice of one or two sides. Casters
    /// that offer SkyVisibilityQuery are asked for whole skies. As safe on threads as the caster
    /// is.
    SensorResult evaluate(GetTransparencyValueOnRay& rays, const Sensor& sensor,
                          SensorHours* hours = nullptr) const;

    /// All rays that evaluate() may cast for a sensor before it looks at edges again: two sets of
    /// the sky, the rest of the ground. With tolerances of 0 a result depends on their answers
    /// alone.
    std::vector<SkyDirections> firstRays() const;

    /// The parts that the analysis was made with.
    std::size_t partCount() const;
    /// The light of a part, for what is known of directions alone.
    struct PartLight {
        double diffuseHorizontal = 0.0; ///< [Wh/m2]
        double groundReflected = 0.0;   ///< by open ground [Wh/m2]
        std::vector<SunCell> sunCells;
        /// Shares of the diffuse light by season, and of each sun cell's; empty for one season.
        std::vector<float> diffuseShares, sunShares;
    };
    const PartLight& partLight(std::size_t part) const;
    /// The same, with the sensor's radiation in each of the parts, as many as partCount().
    SensorResult evaluate(GetTransparencyValueOnRay& rays, const Sensor& sensor,
                          std::span<SensorPart> parts, SensorHours* hours = nullptr) const;
    SensorResult evaluate(const LightScene& scene, const Sensor& sensor,
                          std::span<SensorPart> parts, SensorHours* hours = nullptr) const;

    /// The same for many sensors, in parallel. results[i] is that of sensors[i], and hours[i],
    /// where there is such an element, gets its hours (105 kB a sensor); the shorter of sensors and
    /// results counts. parts, where given, has partCount() elements for each sensor. Neighbours
    /// share their work: sensors that lie close together had best follow each other, within some
    /// 256.
    ///
    /// Gives true when every sensor was evaluated, false when a stop came before: the elements of
    /// the sensors left out are then as the caller gave them. What the ray caster or the progress
    /// function throws ends the run and is passed on.
    bool evaluate(const OcclusionIndex& scene, std::span<const Sensor> sensors,
                  std::span<SensorResult> results, const EvaluateOptions& options = {},
                  std::span<SensorHours> hours = {}, std::span<SensorPart> parts = {}) const;

    bool evaluate(const LightScene& scene, std::span<const Sensor> sensors,
                  std::span<SensorResult> results, const EvaluateOptions& options = {},
                  std::span<SensorHours> hours = {}, std::span<SensorPart> parts = {}) const;

    /// The same through any ray caster. All threads share it: one that is not safe on threads takes
    /// options.threads = 1.
    bool evaluate(GetTransparencyValueOnRay& rays, std::span<const Sensor> sensors,
                  std::span<SensorResult> results, const EvaluateOptions& options = {},
                  std::span<SensorHours> hours = {}, std::span<SensorPart> parts = {}) const;

private:
    SensorResult evaluate(GetTransparencyValueOnRay& rays, const LightScene* light,
                          const Sensor& sensor, std::span<SensorPart> parts,
                          SensorHours* hours) const;
    /// Sensors, and where their results go.
    struct Work {
        std::span<const Sensor> sensors;
        std::span<SensorResult> results;
        std::span<SensorHours> hours;
        std::span<SensorPart> parts;
        std::size_t partCount = 0; ///< of each sensor

        SensorHours* hoursOf(std::size_t i) const { return i < hours.size() ? &hours[i] : nullptr; }
        std::span<SensorPart> partsOf(std::size_t i) const {
            return (i + 1) * partCount <= parts.size() ? parts.subspan(i * partCount, partCount)
                                                       : std::span<SensorPart>();
        }
    };
    bool evaluate(GetTransparencyValueOnRay& rays, const LightScene* light, Work work,
                  const EvaluateOptions& options) const;
    std::size_t evaluateNeighbours(GetTransparencyValueOnRay& rays, const LightScene* light,
                                   const Work& work, std::size_t begin, std::size_t end,
                                   const std::stop_token& stop) const;
    bool canEvaluate(const LightScene* light, const Sensor& sensor) const;
    std::unique_ptr<const HourlyPreparation> m_prepared;
};

} // namespace insolate
