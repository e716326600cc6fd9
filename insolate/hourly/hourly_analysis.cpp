#include <insolate/hourly/hourly_analysis.h>

#include <insolate/hourly/first_masks.h>
#include <insolate/hourly/first_rays.h>
#include <insolate/hourly/ground_rays.h>
#include <insolate/hourly/light_sources.h>
#include <insolate/hourly/north_offset.h>
#include <insolate/hourly/peak_hours.h>
#include <insolate/hourly/peak_search.h>
#include <insolate/hourly/sensor_kernels.h>
#include <insolate/hourly/sensor_order.h>
#include <insolate/hourly/sensor_rays.h>
#include <insolate/hourly/shadow_edges.h>
#include <insolate/hourly/sky_parts.h>
#include <insolate/platform/processor_count.h>
#include <insolate/rt/occlusion_query.h>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <mutex>
#include <numbers>
#include <optional>
#include <utility>

namespace insolate {
namespace {

constexpr float pi = std::numbers::pi_v<float>;
using sensorKernels::cellCount;
using sensorKernels::lanes;
using sensorKernels::patchCount;
using sensorKernels::sumOfProducts;

/// Shares of the view below this are not worth a ray: what hides all of it takes a 200th of the
/// light of open ground, below a thousandth of a year's total.
constexpr float smallGroundView = 0.005f;

/// For less than this share of the view a quarter of the ground's rays are enough. By
/// `bench_validation <weather folder> <plot.svg> ground` 128 rays leave a facade, with a share of
/// 0.5, 1.0 % of its total (root mean square): with 0.15 the quarter of 384, 96 rays, leaves less
/// than 0.5 %. At 0.3 it would leave up to twice that, at 0.05 roofs and slopes would take 288 rays
/// more without need.
constexpr float littleGroundView = 0.15f;

/// Pieces of the ground whose mean direction is nearer to the surface's plane than this (a sine)
/// may be cut by it: 14 degrees, half the diagonal of the largest. Of 384 rays pieces are 10.6
/// degrees wide and 5 (horizon) to 25 (nadir) high; of a quarter of them 22.5 wide and 10 to 15
/// high down to where the plane of a surface that takes so few passes.
constexpr float nearPlane = 0.24f;

/// A part of the radiation counts for its tolerance as at least this share of the sensor's own
/// total and of that of open ground. It is part of what the tolerances promise, not an estimate.
constexpr float smallPart = 0.1f;

/// A sensor's total counts for its tolerance as at least this share of open ground's, which is part
/// of the promise too: what sees next to nothing has nothing to be exact about.
constexpr float smallTotal = 0.02f;

/// Cells of less projected solid angle than this count too little for two rays [sr]: a fifth of the
/// heaviest cell of a facade. A level surface sees all around, where errors even out, and has half
/// as much again. By `bench_validation <weather folder> <plot.svg> shading scenes` half of both
/// takes 14 % more rays on the ground and 8 % more on facades, for errors that are a twentieth less
/// at most; twice both saves 36 % and 12 %, but three quarters more are left of the beam in courts
/// (1.05 % in place of 0.60, root mean square), and a quarter more in a dense city.
constexpr float lightCell = 0.0016f;
constexpr float lightCellUpwards = 0.0008f;

/// Sensors that a thread evaluates in one go: a few milliseconds, far above what it costs to hand
/// them out, and often enough for a progress bar; enough to put neighbours together.
constexpr std::size_t sensorsPerBlock = 256;

/// The sensors of one walk ask the scene together, unless their block is wider than this [model
/// units]: then they see different triangles, and what must be asked for each of them takes longer
/// than walks of their own. On a grid of 0.5 m, with
/// blocks of 1.5 m, sums are up to 1.9 times as fast together; on one of 2 m 0.88 to 1.03 times
/// (`bench_hourly neighbours`).
constexpr float widestBlock = 4.0f;

/// Makes values shares of their sum; of none all are 0.
template <class Range, class Value = std::identity>
void makeShares(Range&& of, Value valueOf = {}) {
    float all = 0.0f;
    for (auto& one : of) {
        all += valueOf(one);
    }
    for (auto& one : of) {
        valueOf(one) = all > 0.0f ? valueOf(one) / all : 0.0f;
    }
}

HourlySky withFiniteNorth(HourlySky sky) {
    sky.options.northOffset = finiteOffset(sky.options.northOffset);
    return sky;
}

/// A zero vector stays one.
XYZf unitVector(const XYZf& v) {
    const float length = vectorLength(v);
    if (length > 1e-12f && length < 1e12f) {
        return scaled(v, 1.0f / length);
    }
    // Single precision does not hold the squares of what is much shorter or longer.
    const double exact =
        std::hypot(static_cast<double>(v.x), static_cast<double>(v.y), static_cast<double>(v.z));
    const auto part = [&](float component) {
        return exact > 0.0 ? static_cast<float>(static_cast<double>(component) / exact) : 0.0f;
    };
    return {part(v.x), part(v.y), part(v.z)};
}

void clear(SensorHours& hours) {
    for (std::vector<float>* series : {&hours.beam, &hours.sky, &hours.ground}) {
        series->assign(hoursPerYear, 0.0f);
    }
    hours.reflected.clear();
}

bool isFinite(const XYZf& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

constexpr std::uint64_t everySecond = 0x5555555555555555U;

} // namespace

/// What all sensors of an analysis share.
struct HourlyAnalysis::Prepared {
    HourlySky sky;
    HourlyAnalysisOptions options;
    SkyCells cells;
    std::array<float, skyGrid::altitudeCount> cosines{}; // of the bands' middle altitudes
    FirstRays first;
    std::array<GroundRays, 2> ground; // for surfaces that face it, and that see little of it
    std::optional<EdgeTables> edges;  // where a tolerance is given
    SkyParts parts;
    float openTotal = 0.0f;                      // of open ground [Wh/m2]
    std::array<float, patchCount> patchTotals{}; // the hours' radiance, summed
    /// What falls in a season of the scene's materials, as shares of the period's.
    struct Season {
        std::array<float, patchCount> patches{};
        std::vector<float> sunCells;
        float ground = 0.0f;
        std::vector<float> patchRadiance; // of its hours; the peak's hours point into it
        PeakHours peakHours;
        std::vector<int> hours; // of the year, by PeakHour::skyHour
    };
    std::vector<Season> seasons;
    /// By part and season, where there are several: what falls in the season, as shares of the
    /// part's.
    struct PartSeason {
        std::array<float, patchCount> patches{};
        float ground = 0.0f;
        std::vector<float> sunCells; // of the whole sky
    };
    std::vector<std::vector<PartSeason>> partSeasons;
    std::vector<PartLight> partLights;

    Prepared(HourlySky&& theSky, const std::vector<HourlySky>& theParts,
             const HourlyAnalysisOptions& theOptions)
        : sky(withFiniteNorth(std::move(theSky))), options(theOptions),
          cells(sky.options.northOffset),
          first(sky), ground{GroundRays(raysOfGround(1), sky.options.northOffset),
                             GroundRays(raysOfGround(4), sky.options.northOffset)} {
        for (std::size_t band = 0; band < cosines.size(); ++band) {
            cosines[band] = static_cast<float>(
                std::cos((static_cast<double>(band) + 0.5) * skyGrid::cellWidth));
        }
        std::array<double, patchCount> totals{};
        for (std::size_t i = 0; i < sky.patchRadiance.size(); ++i) {
            totals[i % patchCount] += static_cast<double>(sky.patchRadiance[i]);
        }
        for (std::size_t p = 0; p < patchCount; ++p) {
            patchTotals[p] = static_cast<float>(totals[p]);
        }
        if (sky.valid &&
            (options.tolerance > 0.0 || options.skyTolerance > 0.0 || options.sunTolerance > 0.0)) {
            edges.emplace(sky, first, ground);
        }
        if (sky.valid) {
            parts = SkyParts(sky, theParts);
        }
        openTotal = static_cast<float>(sky.report.diffuseHorizontal + sky.report.directHorizontal);
        if (sky.valid) {
            prepareSeasons();
        }
        for (const HourlySky& part : theParts) {
            partLights.push_back(
                {part.report.diffuseHorizontal, part.groundReflected, part.sunCells, {}, {}});
            if (seasons.size() > 1) {
                partSeasons.push_back(seasonsOf(part));
                divideAmongSeasons(part, partLights.back());
            }
        }
    }

    std::vector<PartSeason> seasonsOf(const HourlySky& part) const {
        std::vector<int> sunCellOf(static_cast<std::size_t>(skyGrid::cellCount), -1);
        for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
            sunCellOf[static_cast<std::size_t>(sky.sunCells[j].cell)] = static_cast<int>(j);
        }
        std::vector<PartSeason> result(seasons.size());
        for (PartSeason& season : result) {
            season.sunCells.assign(sky.sunCells.size(), 0.0f);
        }
        for (std::size_t h = 0; h < part.skyHours.size(); ++h) {
            const SkyHour& hour = part.skyHours[h];
            PartSeason& season = result[seasonOf(hour)];
            for (std::size_t p = 0; p < patchCount; ++p) {
                season.patches[p] += part.patchRadiance[h * patchCount + p];
            }
            season.ground += hour.groundReflected;
            for (int b = 0; b < hour.beamCount; ++b) {
                const BeamPart& beam = part.beams[static_cast<std::size_t>(hour.firstBeam + b)];
                const int cell = part.sunCells[static_cast<std::size_t>(beam.sunCell)].cell;
                if (const int j = sunCellOf[static_cast<std::size_t>(cell)]; j >= 0) {
                    season.sunCells[static_cast<std::size_t>(j)] += vectorLength(beam.energy);
                }
            }
        }
        for (std::size_t p = 0; p < patchCount; ++p) {
            makeShares(result, [p](PartSeason& season) -> float& { return season.patches[p]; });
        }
        makeShares(result, [](PartSeason& season) -> float& { return season.ground; });
        for (std::size_t j = 0; j < sky.sunCells.size(); ++j) {
            makeShares(result, [j](PartSeason& season) -> float& { return season.sunCells[j]; });
        }
        return result;
    }

    void divideAmongSeasons(const HourlySky& part, PartLight& light) const {
        light.diffuseShares.assign(seasons.size(), 0.0f);
        light.sunShares.assign(part.sunCells.size() * seasons.size(), 0.0f);
        for (const SkyHour& hour : part.skyHours) {
            const std::size_t season = seasonOf(hour);
            light.diffuseShares[season] += hour.diffuse;
            for (int b = 0; b < hour.beamCount; ++b) {
                const BeamPart& beam = part.beams[static_cast<std::size_t>(hour.firstBeam + b)];
                light.sunShares[static_cast<std::size_t>(beam.sunCell) * seasons.size() + season] +=
                    vectorLength(beam.energy);
            }
        }
        makeShares(std::span(light.diffuseShares));
        for (std::size_t j = 0; j < part.sunCells.size(); ++j) {
            makeShares(std::span(light.sunShares).subspan(j * seasons.size(), seasons.size()));
        }
    }

    std::size_t seasonOf(const SkyHour& hour) const { return seasonOfHour(hour, options.seasons); }

    void prepareSeasons() {
        seasons.resize(static_cast<std::size_t>(std::max(options.seasons.count, 1)));
        for (std::uint16_t& season : options.seasons.ofDay) {
            season = std::min(season, static_cast<std::uint16_t>(seasons.size() - 1));
        }
        std::vector<double> energy(sky.sunCells.size(), 0.0);
        const auto lengthOf = [](const BeamPart& part) {
            return static_cast<double>(vectorLength(part.energy));
        };
        for (const BeamPart& part : sky.beams) {
            energy[static_cast<std::size_t>(part.sunCell)] += lengthOf(part);
        }
        for (std::size_t s = 0; s < seasons.size(); ++s) {
            Season& season = seasons[s];
            HourlySky part;
            std::array<double, patchCount> patches{};
            std::vector<double> suns(sky.sunCells.size(), 0.0);
            double groundLight = 0.0;
            for (std::size_t h = 0; h < sky.skyHours.size(); ++h) {
                const SkyHour& hour = sky.skyHours[h];
                if (seasonOf(hour) != s) {
                    continue;
                }
                season.hours.push_back(hour.hour);
                part.skyHours.push_back(hour);
                part.patchRadiance.insert(part.patchRadiance.end(), patchesOf(h),
                                          patchesOf(h) + patchCount);
                for (std::size_t p = 0; p < patchCount; ++p) {
                    patches[p] += static_cast<double>(patchesOf(h)[p]);
                }
                for (int b = 0; b < hour.beamCount; ++b) {
                    const BeamPart& beam = sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
                    suns[static_cast<std::size_t>(beam.sunCell)] += lengthOf(beam);
                }
                groundLight += static_cast<double>(hour.groundReflected);
            }
            const auto shareOf = [&](double one, double all) {
                return all > 0.0 ? static_cast<float>(one / all) : s == 0 ? 1.0f : 0.0f;
            };
            for (std::size_t p = 0; p < patchCount; ++p) {
                season.patches[p] = shareOf(patches[p], static_cast<double>(patchTotals[p]));
            }
            for (std::size_t j = 0; j < suns.size(); ++j) {
                season.sunCells.push_back(shareOf(suns[j], energy[j]));
            }
            season.ground = shareOf(groundLight, sky.groundReflected);
            if (options.peak && seasons.size() == 1) {
                season.peakHours = PeakHours(sky, cells);
            } else if (options.peak) {
                part.valid = true;
                part.sunCells = sky.sunCells;
                part.beams = sky.beams;
                part.options = sky.options;
                season.peakHours = PeakHours(part, cells);
                season.patchRadiance = std::move(part.patchRadiance); // stays in its place
            }
        }
    }

    /// A part of the ground's rays, rounded up.
    int raysOfGround(int part) const {
        return (std::clamp(options.groundRays, 0, GroundRays::mostRays) + part - 1) / part;
    }

    const float* patchesOf(std::size_t skyHour) const {
        return sky.patchRadiance.data() + skyHour * patchCount;
    }
};

/// The work of one sensor in three steps: what it wants to know of the scene (wanted()), the
/// scene's answer (answer(), or a walk that several sensors share), and all that follows from it
/// (result()).
class HourlyAnalysis::Evaluation {
public:
    Evaluation(const Evaluation&) = delete;
    Evaluation& operator=(const Evaluation&) = delete;
    /// light: where translucent triangles are to be asked, else null.
    Evaluation(const Prepared& prepared, GetTransparencyValueOnRay& caster, const LightScene* light,
               const Sensor& sensor)
        : m_shared(prepared), m_light(light), m_origin(sensor.position),
          m_rays(caster, sensor.position) {
        m_normal = unitVector(sensor.normal);
        if (vectorLength(m_normal) > 0.0f) {
            m_sides = m_rays.doubleSided() ? Sides::Two : Sides::One;
            m_rays.receiveOn(&m_normal);
        } else {
            m_sides = Sides::NoSurface;
        }
    }

    /// The rays that answer for the sky's halves and for the pieces of the ground.
    FirstMasks wanted() {
        FirstMasks masks;
        weighSky();
        masks.sky = m_look.asked;
        weighGround(masks);
        return masks;
    }

    /// Asks the sensor's own caster for them.
    void answer(FirstMasks& masks) {
        if (m_rays.allOrNothing()) {
            m_rays.skies(m_shared.first.directions, masks.sky);
            if (masks.ground != nullptr) {
                m_rays.skies(masks.ground->sets, masks.groundCells);
            }
            return;
        }
        for (std::size_t half = 0; half < 2; ++half) {
            m_visible[half].fill(0.0f);
            m_rays.oneByOne(m_shared.first.directions[half], masks.sky[half],
                            m_visible[half].data());
        }
        for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
            if (m_groundWeights[i] > 0.0f) {
                m_groundVisible[i] = m_rays.one(masks.ground->pieces[i].direction);
            }
        }
    }

    /// The longest edge of the box around the sensors.
    template <class Each>
    static float widthOf(std::span<Each> sensors) {
        XYZf low = sensors.front()->m_origin;
        XYZf high = low;
        for (const Each& one : sensors) {
            const XYZf& p = one->m_origin;
            low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
            high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
        }
        return std::max({high.x - low.x, high.y - low.y, high.z - low.z});
    }

    /// Asks for several sensors at once, by walks that they share where the caster answers for
    /// whole skies; else each its own.
    template <class Each>
    static void answerTogether(std::span<Each> sensors, std::span<FirstMasks> masks) {
        const bool shared = std::all_of(sensors.begin(), sensors.end(), [&](const Each& one) {
            return one->m_rays.sharesWith(sensors.front()->m_rays);
        });
        if (!shared || widthOf(sensors) > widestBlock) {
            for (std::size_t i = 0; i < sensors.size(); ++i) {
                sensors[i]->answer(masks[i]);
            }
            return;
        }
        const Prepared& prepared = sensors.front()->m_shared;
        std::vector<XYZf> origins;
        std::vector<SkyCellSet> cells;
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            origins.push_back(sensors[i]->m_origin);
            cells.insert(cells.end(), masks[i].sky.begin(), masks[i].sky.end());
        }
        sensors.front()->m_rays.skies(origins, prepared.first.directions, cells);
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            std::copy_n(cells.begin() + static_cast<std::ptrdiff_t>(2 * i), 2,
                        masks[i].sky.begin());
        }
        for (const GroundRays& ground : prepared.ground) {
            origins.clear();
            cells.clear();
            for (std::size_t i = 0; i < sensors.size(); ++i) {
                if (masks[i].ground == &ground) {
                    origins.push_back(sensors[i]->m_origin);
                    cells.insert(cells.end(), masks[i].groundCells.begin(),
                                 masks[i].groundCells.end());
                }
            }
            sensors.front()->m_rays.skies(origins, ground.sets, cells);
            auto next = cells.begin();
            for (FirstMasks& mask : masks) {
                if (mask.ground == &ground) {
                    std::copy_n(next, mask.groundCells.size(), mask.groundCells.begin());
                    next += static_cast<std::ptrdiff_t>(mask.groundCells.size());
                }
            }
        }
    }

    /// @param masks as wanted() gave and answer() or a shared walk answered them
    SensorResult result(const FirstMasks& masks, SensorHours* hours,
                        std::span<SensorPart> parts = {}) {
        see(masks);
        sumSky();
        sumSun();
        sumGround(masks);
        if (m_shared.edges) {
            lookAgain(masks, !parts.empty());
        }
        if (m_light != nullptr) {
            lookThrough(masks);
        }
        const float whole = m_sides == Sides::NoSurface ? 2.0f * pi : pi;
        SensorResult result;
        result.beam = m_beam > FirstRays::leastEnergy ? m_beam : 0.0f;
        result.sky = m_sky;
        result.ground = static_cast<float>(m_shared.sky.groundReflected) * m_groundView;
        result.total = result.beam + result.sky + result.ground;
        result.averageDaylight = over(result.total, m_shared.sky.daylightHours);
        result.averagePeriod = over(result.total, m_shared.sky.hours);
        result.skyViewFactor = (m_shared.options.skyTolerance > 0.0 ? m_view : m_firstView) / whole;
        result.groundViewFactor = m_sides == Sides::NoSurface ? 0.5f * m_groundView : m_groundView;
        result.directSunHours = m_sunHours;
        if (!parts.empty()) {
            evaluateParts(parts);
        }
        if (m_shared.options.peak || hours != nullptr) {
            gatherPatches();
        }
        if (m_shared.options.peak) {
            findPeak(result);
        }
        if (hours != nullptr) {
            fill(*hours);
        }
        return result;
    }

private:
    void evaluateParts(std::span<SensorPart> parts) {
        std::vector<float> timeThrough;
        if (!m_through.empty()) {
            timeThrough.assign(m_shared.sky.sunCells.size(), 1.0f);
            for (const ThroughCell& touched : m_through) {
                if (touched.sunCell >= 0) { // of several seasons each part has its own
                    timeThrough[static_cast<std::size_t>(touched.sunCell)] = *sunThrough(touched);
                }
            }
        }
        const float ofCells = sumOfProducts(m_seen.data(), m_shared.sky.diffuse.data(), cellCount);
        const float skyScale = ofCells > 0.0f ? m_sky / ofCells : 0.0f;
        const std::span<const std::array<float, cellCount>> shares =
            m_sunShares.empty() ? std::span<const std::array<float, cellCount>>(m_visible)
                                : m_sunShares;
        const std::array<std::vector<float>, 2>& times = sunTimes();
        const SkyParts::Seen seen{.sides = m_sides,
                                  .normal = m_normal,
                                  .cells = m_seen.data(),
                                  .skyScale = skyScale,
                                  .sunShares = {shares[0].data(), shares[1].data()},
                                  .sunTimes = {times[0].data(), times[1].data()},
                                  .sunWeight = m_sunWeight.data(),
                                  .sunVisible = m_sunVisible.data(),
                                  .timeThrough = timeThrough.empty() ? nullptr : timeThrough.data(),
                                  .groundView = m_groundView};
        if (m_shared.partSeasons.empty() || (m_through.empty() && m_groundThrough.empty())) {
            m_shared.parts.evaluate(seen, 0, parts);
            return;
        }
        // What is seen in each part is a mean over the part's own days.
        const std::array<float, cellCount> cells = m_seen;
        const std::array<float, cellCount + lanes> suns = m_sunVisible;
        for (std::size_t p = 0; p < std::min(parts.size(), m_shared.partSeasons.size()); ++p) {
            const std::vector<Prepared::PartSeason>& seasons = m_shared.partSeasons[p];
            for (const ThroughCell& touched : m_through) {
                float sky = 0.0f;
                float sun = 0.0f;
                const auto j = static_cast<std::size_t>(std::max(touched.sunCell, 0));
                const auto patch =
                    static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(touched.cell)));
                for (std::size_t s = 0; s < seasons.size(); ++s) {
                    sky += seasons[s].patches[patch] * skyThrough(touched)[s];
                    sun += touched.sunCell >= 0 ? seasons[s].sunCells[j] * sunThrough(touched)[s]
                                                : 0.0f;
                }
                m_seen[touched.cell] = touched.seen * sky;
                if (touched.sunCell >= 0) {
                    m_sunVisible[j] = touched.sunVisible * sun;
                    timeThrough[j] = sun;
                }
            }
            SkyParts::Seen ofPart = seen;
            for (std::size_t s = 0; s < m_groundThrough.size(); ++s) {
                ofPart.groundView +=
                    (seasons[s].ground - m_shared.seasons[s].ground) * m_groundThrough[s];
            }
            m_shared.parts.evaluate(ofPart, p, parts.subspan(p, 1));
        }
        m_seen = cells;
        m_sunVisible = suns;
    }

    static float over(float total, double hours) {
        return hours > 0.0 ? static_cast<float>(static_cast<double>(total) / hours) : 0.0f;
    }

    /// What a vector with the given length, or measure without direction, brings on the surface.
    float received(const XYZf& vector, float measure) const {
        return weightOnSurface(m_sides, m_normal, vector, measure);
    }

    static SkyCellSet setOf(const std::array<std::uint8_t, cellCount / 8>& bits) {
        SkyCellSet set;
        for (std::size_t band = 0; band < skyGrid::altitudeCount; ++band) {
            const std::uint8_t* row = bits.data() + band * 9;
            for (unsigned byte = 0; byte < 8; ++byte) {
                set.words[2 * band] |= std::uint64_t{row[byte]} << (8 * byte);
            }
            set.words[2 * band + 1] = row[8];
        }
        return set;
    }

    /// Weighs the sky's cells. They have one ray in each half; those that weigh little have one
    /// ray, in the lower or the upper half alternately.
    void weighSky() {
        m_look.front = m_look.asked[0] = m_look.asked[1] = SkyCellSet::all();
        if (m_sides == Sides::One) {
            std::array<std::uint8_t, cellCount / 8> frontBits;
            std::array<std::uint8_t, cellCount / 8> heavyBits;
            sensorKernels::projectOnSurface(
                m_normal, m_shared.cells.momentX.data(), m_shared.cells.momentY.data(),
                m_shared.cells.momentZ.data(), cellCount,
                lightCell + lightCellUpwards * std::max(m_normal.z, 0.0f), m_weight.data(),
                frontBits.data(), heavyBits.data());
            m_look.front = setOf(frontBits);
            const SkyCellSet heavy = setOf(heavyBits);
            // The surface's own plane may cut cells: one behind it may hold sun in front of it, and
            // in one in front either ray may lie behind.
            const SkyCellSet near = m_look.front.grown();
            SkyCellSet cut = SkyCellSet::all();
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                cut.words[word] &= ~m_look.front.words[word];
            }
            cut = cut.grown();
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                const std::uint64_t asked = m_look.front.words[word] |
                                            (near.words[word] & m_shared.first.withSun.words[word]);
                const std::uint64_t light = asked & ~heavy.words[word] & ~cut.words[word];
                const std::uint64_t even = word / 2 % 2 == 0 ? everySecond : ~everySecond;
                m_alone[0].words[word] = light & even;
                m_alone[1].words[word] = light & ~even;
                for (std::size_t half = 0; half < 2; ++half) {
                    m_look.asked[half].words[word] = asked & ~m_alone[half].words[word];
                }
            }
        } else {
            for (std::size_t i = 0; i < cellCount; ++i) {
                m_weight[i] = received({m_shared.cells.momentX[i], m_shared.cells.momentY[i],
                                        m_shared.cells.momentZ[i]},
                                       m_shared.cells.solidAngle[i]);
            }
        }
    }

    /// Takes what the rays of the sky saw: cells with one ray take it for both halves.
    void see(const FirstMasks& masks) {
        m_look.free = masks.sky;
        for (std::size_t half = 0; half < 2; ++half) {
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                m_look.free[half].words[word] |=
                    m_alone[half].words[word] & masks.sky[1 - half].words[word];
            }
            if (m_rays.allOrNothing()) {
                sensorKernels::expandSet(m_look.free[half], m_visible[half].data());
            } else {
                Rays::forEach(m_alone[half], [&](std::size_t cell, int, int) {
                    m_visible[half][cell] = m_visible[1 - half][cell];
                });
            }
        }
    }

    void sumSky() {
        const sensorKernels::SkySums sums =
            sensorKernels::sumVisibleSky({m_weight.data(),
                                          {m_visible[0].data(), m_visible[1].data()},
                                          m_shared.sky.diffuse.data(),
                                          m_seen.data()});
        m_view = m_firstView = sums.view;
        m_sky = sums.diffuse;
        m_sky += skyAtPlane();
    }

    /// The sky that cells lose which the surface's own plane cuts: they count with the side of
    /// their middle, so what of them lies in front counts for too little if the middle does, and
    /// not at all otherwise. Over a cell the cosine x is about even between x - h and x + h, and
    /// the mean of its positive part is (x + h)^2 / 4h, above max(x, 0) by (h - |x|)^2 / 4h. A cell
    /// behind the plane is seen as the one before it. Two sides lose both.
    float skyAtPlane() const {
        float lost = 0.0f;
        const auto add = [&](std::size_t cell, int azimuth, int altitude) {
            const XYZf& centre = m_shared.cells.centre[cell];
            const float x = dotProduct(m_normal, centre);
            if (std::abs(x) > farFromPlane) {
                return;
            }
            const float turn = m_normal.x * centre.y - m_normal.y * centre.x;
            const float rise =
                (m_normal.z - centre.z * x) / m_shared.cosines[static_cast<std::size_t>(altitude)];
            constexpr auto half = static_cast<float>(0.5 * skyGrid::cellWidth);
            const float h = half * (std::abs(turn) + std::abs(rise));
            const float inside = h - std::abs(x);
            if (!(inside > 0.0f)) {
                return;
            }
            std::size_t seen = cell;
            if (!m_look.front.contains(azimuth, altitude)) {
                const bool aside = std::abs(turn) >= std::abs(rise);
                const int step = (aside ? turn : rise) > 0.0f ? 1 : -1;
                azimuth =
                    (azimuth + (aside ? step : 0) + skyGrid::azimuthCount) % skyGrid::azimuthCount;
                altitude = std::clamp(altitude + (aside ? 0 : step), 0, skyGrid::altitudeCount - 1);
                seen = static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude));
            }
            lost += m_shared.cells.solidAngle[cell] * inside * inside / (4.0f * h) * 0.5f *
                    (m_visible[0][seen] + m_visible[1][seen]) * m_shared.sky.diffuse[cell];
        };
        if (m_sides == Sides::NoSurface) {
            return 0.0f;
        }
        if (m_sides == Sides::Two) {
            Rays::forEach(SkyCellSet::all(), add);
            return 2.0f * lost;
        }
        SkyCellSet behind = SkyCellSet::all();
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            behind.words[word] &= ~m_look.front.words[word];
        }
        SkyCellSet cut = behind.grown();
        cut &= m_look.front.grown();
        Rays::forEach(cut, add);
        return lost;
    }

    void sumSun() {
        if (m_sides == Sides::One) {
            const sensorKernels::SunSums sums =
                sensorKernels::sumVisibleSun(m_normal, {&m_shared.first,
                                                        {m_visible[0].data(), m_visible[1].data()},
                                                        m_sunWeight.data(),
                                                        m_sunVisible.data()});
            m_beam = sums.beam;
            m_sunHours = sums.hours;
            return;
        }
        std::fill(m_sunVisible.begin(), m_sunVisible.end(), 0.0f);
        for (std::size_t j = 0; j < m_shared.sky.sunCells.size(); ++j) {
            const auto cell = static_cast<std::size_t>(m_shared.first.cellOfSun[j]);
            float weight = 0.0f;
            float seen = 0.0f;
            for (std::size_t half = 0; half < 2; ++half) {
                const FirstRays::Sun& sun = m_shared.first.sun[half];
                const XYZf energy{sun.energyX[j], sun.energyY[j], sun.energyZ[j]};
                const float visible = m_visible[half][cell];
                weight += received(energy, vectorLength(energy));
                seen += visible * received(energy, vectorLength(energy));
                m_sunHours += visible * sun.hours[j];
            }
            m_beam += seen;
            m_sunWeight[j] = weight;
            m_sunVisible[j] = weight > 0.0f ? seen / weight : 0.0f;
        }
    }

    /// Puts right what the edges of shadows leave too uncertain.
    void lookAgain(const FirstMasks& masks, bool hasParts) {
        m_look.visible = {m_visible[0].data(), m_visible[1].data()};
        m_look.weight = m_weight.data();
        m_look.alone = m_alone;
        m_look.ground = masks.ground;
        m_look.groundWeights = &m_groundWeights;
        m_look.groundVisible = &m_groundVisible;
        m_look.groundLight = static_cast<float>(m_shared.sky.groundReflected) * m_groundScale;
        const float light = m_sky + m_beam;
        const float whole = light + static_cast<float>(m_shared.sky.groundReflected) * m_groundView;
        const float part = smallPart * std::max(light, m_shared.openTotal);
        const auto allowed = [](double tolerance, float of) {
            return tolerance > 0.0 ? static_cast<float>(tolerance) * of
                                   : std::numeric_limits<float>::infinity();
        };
        const HourlyAnalysisOptions& options = m_shared.options;
        const EdgeTolerance tolerance{
            allowed(options.tolerance, std::max(whole, smallTotal * m_shared.openTotal)),
            allowed(options.skyTolerance, std::max(m_sky, part)),
            allowed(options.sunTolerance, std::max(m_beam, part))};
        ShadowEdges edges(*m_shared.edges, m_sides, m_normal, m_look);
        for (const ShadowEdges::Fan& fan : edges.lookAgain(m_rays, tolerance)) {
            switch (fan.rays > 0 ? fan.kind : ShadowEdges::Kind::None) {
            case ShadowEdges::Kind::Sky:
                takeSky(fan);
                break;
            case ShadowEdges::Kind::Sun:
                takeSun(fan, hasParts);
                break;
            case ShadowEdges::Kind::Ground:
                m_groundView += m_groundScale * m_groundWeights[fan.place] *
                                (fan.visible - m_groundVisible[fan.place]);
                m_groundVisible[fan.place] = fan.visible;
                break;
            case ShadowEdges::Kind::None:
                break;
            }
        }
        m_view = std::max(m_view, 0.0f);
        m_sky = std::max(m_sky, 0.0f);
        m_beam = std::max(m_beam, 0.0f);
        m_sunHours = std::max(m_sunHours, 0.0f);
        m_groundView = std::max(m_groundView, 0.0f);
    }

    /// The halves of a cell count by half of its weight each until one of them is looked at again,
    /// and then by their own.
    void takeSky(const ShadowEdges::Fan& fan) {
        const std::size_t cell = fan.place;
        const XYZf& moment = m_shared.edges->lowerMoment(cell);
        const float lower = std::min(received(moment, vectorLength(moment)), m_weight[cell]);
        const float weight = fan.half == 0 ? lower : m_weight[cell] - lower;
        float gained = weight * (fan.visible - m_visible[fan.half][cell]);
        const auto azimuth = static_cast<int>(cell % skyGrid::azimuthCount);
        const auto altitude = static_cast<int>(cell / skyGrid::azimuthCount);
        if (!m_lookedAt.contains(azimuth, altitude)) {
            m_lookedAt.insert(azimuth, altitude);
            gained += (lower - 0.5f * m_weight[cell]) * (m_visible[0][cell] - m_visible[1][cell]);
        }
        m_seen[cell] = std::max(m_seen[cell] + gained, 0.0f);
        m_view += gained;
        m_sky += gained * m_shared.sky.diffuse[cell];
    }

    void takeSun(const ShadowEdges::Fan& fan, bool hasParts) {
        const std::size_t j = fan.place;
        const auto cell = static_cast<std::size_t>(m_shared.first.cellOfSun[j]);
        const FirstRays::Sun& sun = m_shared.first.sun[fan.half];
        const XYZf energy{sun.energyX[j], sun.energyY[j], sun.energyZ[j]};
        const float before = m_visible[fan.half][cell];
        const float weight = received(energy, vectorLength(energy));
        const float gained = fan.weight * fan.visible - weight * before;
        const float seen = m_sunWeight[j] * m_sunVisible[j] + gained;
        m_sunWeight[j] += fan.weight - weight;
        // Differences of sums are not quite 0 where nothing is left.
        m_sunVisible[j] =
            m_sunWeight[j] > 0.0f ? std::clamp(seen / m_sunWeight[j], 0.0f, 1.0f) : 0.0f;
        m_beam += gained;
        if (m_shared.options.sunTolerance > 0.0) {
            float& time = sunTimes()[fan.half][j];
            m_sunHours += fan.hours - sun.hours[j] * time;
            time = sun.hours[j] > 0.0f ? fan.hours / sun.hours[j] : 0.0f;
        }
        if (hasParts) {
            if (m_sunShares.empty()) {
                m_sunShares.assign(m_visible.begin(), m_visible.end());
            }
            m_sunShares[fan.half][cell] = fan.visible;
        }
    }

    /// A cell with a ray that meets translucent triangles: what they let through of what is seen of
    /// its sky and of its sun, by season.
    struct ThroughCell {
        std::size_t cell;
        int sunCell;            // -1 for none
        float seen, sunVisible; // before
        std::size_t first;      // of its shares in m_throughShares
    };
    /// What comes through in each season: of the sky's light, and of the sun's.
    const float* skyThrough(const ThroughCell& touched) const {
        return m_throughShares.data() + touched.first;
    }
    const float* sunThrough(const ThroughCell& touched) const {
        return skyThrough(touched) + m_shared.seasons.size();
    }

    /// Weakens what comes through glass and crowns. Only cells that opaque triangles leave open and
    /// translucent ones do not are asked ray by ray.
    void lookThrough(const FirstMasks& masks) {
        lookThroughAtGround(masks);
        std::array<SkyCellSet, 2> asked;
        std::array<SkyCellSet, 2> untouched;
        for (std::size_t half = 0; half < 2; ++half) {
            asked[half] = m_look.asked[half];
            asked[half] &= m_look.free[half];
        }
        if (m_shared.edges) {
            askBehindEdges(asked);
        }
        untouched = asked;
        m_light->translucent().visibleSkies(m_origin, m_shared.first.directions, untouched);
        SkyCellSet changed;
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            changed.words[word] = (asked[0].words[word] ^ untouched[0].words[word]) |
                                  (asked[1].words[word] ^ untouched[1].words[word]);
        }
        const std::size_t seasons = m_shared.seasons.size();
        std::vector<float> through(seasons);
        const auto cells = static_cast<std::size_t>(changed.count());
        m_through.reserve(cells);
        m_throughShares.assign(2 * cells * seasons, 0.0f);
        std::size_t j = 0;
        Rays::forEach(changed, [&](std::size_t cell, int azimuth, int altitude) {
            while (j < m_shared.sky.sunCells.size() &&
                   m_shared.sky.sunCells[j].cell < static_cast<int>(cell)) {
                ++j;
            }
            const bool hasSun = j < m_shared.sky.sunCells.size() &&
                                m_shared.sky.sunCells[j].cell == static_cast<int>(cell);
            const ThroughCell touched{cell, hasSun ? static_cast<int>(j) : -1, m_seen[cell],
                                      hasSun ? m_sunVisible[j] : 0.0f,
                                      2 * seasons * m_through.size()};
            float* const sky = m_throughShares.data() + touched.first;
            float* const suns = sky + seasons;
            float rays = 0.0f;
            float sunRays = 0.0f;
            for (std::size_t half = 0; half < 2; ++half) {
                if (!asked[half].contains(azimuth, altitude)) {
                    continue;
                }
                if (untouched[half].contains(azimuth, altitude)) {
                    std::fill(through.begin(), through.end(), 1.0f);
                } else {
                    m_light->transmittances(
                        m_origin, m_shared.first.directions[half].direction(azimuth, altitude),
                        through);
                }
                // Of the other half too, where only this one has a ray.
                float sun = 0.0f;
                for (std::size_t other = 0; other < 2 && hasSun; ++other) {
                    if (other == half || !m_look.asked[other].contains(azimuth, altitude)) {
                        const FirstRays::Sun& part = m_shared.first.sun[other];
                        const XYZf energy{part.energyX[j], part.energyY[j], part.energyZ[j]};
                        sun += received(energy, vectorLength(energy));
                    }
                }
                rays += 1.0f;
                sunRays += sun;
                for (std::size_t s = 0; s < seasons; ++s) {
                    sky[s] += through[s];
                    suns[s] += sun * through[s];
                }
            }
            for (std::size_t s = 0; s < seasons; ++s) {
                sky[s] /= rays;
                suns[s] = sunRays > 0.0f ? suns[s] / sunRays : sky[s];
            }
            weaken(touched);
            m_through.push_back(touched);
        });
    }

    /// A second look may have found something open in a cell whose first rays are blocked: these
    /// stand for what is in its way all the same.
    void askBehindEdges(std::array<SkyCellSet, 2>& asked) const {
        SkyCellSet left;
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            left.words[word] = (m_look.asked[0].words[word] | m_look.asked[1].words[word]) &
                               ~(asked[0].words[word] | asked[1].words[word]);
        }
        SkyCellSet open;
        Rays::forEach(left, [&](std::size_t cell, int azimuth, int altitude) {
            if (m_seen[cell] > 0.0f) {
                open.insert(azimuth, altitude);
            }
        });
        for (std::size_t j = 0; j < m_shared.sky.sunCells.size(); ++j) {
            const int cell = m_shared.sky.sunCells[j].cell;
            if (m_sunVisible[j] > 0.0f) {
                open.insert(cell % skyGrid::azimuthCount, cell / skyGrid::azimuthCount);
            }
        }
        open &= left;
        for (std::size_t half = 0; half < 2; ++half) {
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                asked[half].words[word] |= m_look.asked[half].words[word] & open.words[word];
            }
        }
    }

    void weaken(const ThroughCell& touched) {
        const auto patch =
            static_cast<std::size_t>(skyPatches::ofCell(static_cast<int>(touched.cell)));
        float sky = 0.0f;
        float sun = 0.0f;
        for (std::size_t s = 0; s < m_shared.seasons.size(); ++s) {
            const Prepared::Season& season = m_shared.seasons[s];
            sky += season.patches[patch] * skyThrough(touched)[s];
            if (touched.sunCell >= 0) {
                sun += season.sunCells[static_cast<std::size_t>(touched.sunCell)] *
                       sunThrough(touched)[s];
            }
        }
        const float lost = m_seen[touched.cell] * (1.0f - sky);
        m_seen[touched.cell] -= lost;
        m_view = std::max(m_view - lost, 0.0f);
        const float first = 0.5f * m_weight[touched.cell] *
                            (m_visible[0][touched.cell] + m_visible[1][touched.cell]);
        m_firstView = std::max(m_firstView - first * (1.0f - sky), 0.0f);
        m_sky = std::max(m_sky - lost * m_shared.sky.diffuse[touched.cell], 0.0f);
        if (touched.sunCell >= 0) {
            const auto j = static_cast<std::size_t>(touched.sunCell);
            m_beam = std::max(m_beam - m_sunWeight[j] * m_sunVisible[j] * (1.0f - sun), 0.0f);
            m_sunHours = std::max(m_sunHours - sunHoursOf(j) * (1.0f - sun), 0.0f);
            m_sunVisible[j] *= sun;
        }
    }

    /// Puts what is seen in one season in the place of the means over all.
    void takeSeason(std::size_t season) {
        for (const ThroughCell& touched : m_through) {
            m_seen[touched.cell] = touched.seen * skyThrough(touched)[season];
            if (touched.sunCell >= 0) {
                m_sunVisible[static_cast<std::size_t>(touched.sunCell)] =
                    touched.sunVisible * sunThrough(touched)[season];
            }
        }
    }

    /// The share of the sun's time that counts as seen, by halves and sun cells: what the first ray
    /// of a half saw, where it lies before the surface, until the half is looked at again.
    std::array<std::vector<float>, 2>& sunTimes() {
        for (std::size_t half = 0; half < 2 && m_sunTimes[half].empty(); ++half) {
            const FirstRays::Sun& sun = m_shared.first.sun[half];
            for (std::size_t j = 0; j < m_shared.sky.sunCells.size(); ++j) {
                const XYZf ray{sun.rayX[j], sun.rayY[j], sun.rayZ[j]};
                const bool faced = m_sides != Sides::One || dotProduct(m_normal, ray) > 0.0f;
                const auto cell = static_cast<std::size_t>(m_shared.first.cellOfSun[j]);
                m_sunTimes[half].push_back(faced ? m_visible[half][cell] : 0.0f);
            }
        }
        return m_sunTimes;
    }

    /// The hours that a sun cell counts before anything weakens them.
    float sunHoursOf(std::size_t sunCell) {
        float hours = 0.0f;
        for (std::size_t half = 0; half < 2; ++half) {
            hours += m_shared.first.sun[half].hours[sunCell] * sunTimes()[half][sunCell];
        }
        return hours;
    }

    void weighGround(FirstMasks& masks) {
        m_openGround = m_sides == Sides::One   ? 0.5f * (1.0f - m_normal.z)
                       : m_sides == Sides::Two ? 1.0f
                                               : 2.0f;
        if (m_openGround < smallGroundView || m_shared.ground[0].pieces.empty()) {
            return;
        }
        const GroundRays& ground = m_shared.ground[m_openGround < littleGroundView ? 1 : 0];
        masks.ground = &ground;
        masks.groundCells.resize(ground.sets.size());
        m_groundWeights.resize(ground.pieces.size());
        m_groundVisible.resize(ground.pieces.size(), 0.0f);
        for (std::size_t i = 0; i < ground.pieces.size(); ++i) {
            m_groundWeights[i] = weightOf(ground.pieces[i]);
            if (m_groundWeights[i] > 0.0f) {
                const GroundRays::Cell& cell = ground.cells[i];
                masks.groundCells[cell.set].insert(cell.azimuth, cell.altitude);
            }
        }
    }

    /// Of a piece that the surface's plane may cut, the sum of its parts' weights.
    float weightOf(const GroundPiece& piece) const {
        if (m_sides == Sides::NoSurface ||
            std::abs(dotProduct(m_normal, piece.moment)) > nearPlane * piece.solidAngle) {
            return received(piece.moment, piece.solidAngle);
        }
        float weight = 0.0f;
        for (const XYZf& moment : piece.moments) {
            weight += received(moment, 0.0f);
        }
        return weight;
    }

    void sumGround(const FirstMasks& masks) {
        float seen = 0.0f;
        float all = 0.0f;
        for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
            if (m_groundWeights[i] > 0.0f) {
                if (m_rays.allOrNothing()) {
                    m_groundVisible[i] = isFree(masks, i) ? 1.0f : 0.0f;
                }
                all += m_groundWeights[i];
                seen += m_groundWeights[i] * m_groundVisible[i];
            }
        }
        // What a weight counts of the ground's light.
        m_groundScale = all > 0.0f ? m_openGround / all : 0.0f;
        m_groundView = all > 0.0f ? m_groundScale * seen : m_openGround;
    }

    static bool isFree(const FirstMasks& masks, std::size_t piece) {
        const GroundRays::Cell& cell = masks.ground->cells[piece];
        return masks.groundCells[cell.set].contains(cell.azimuth, cell.altitude);
    }

    /// Weakens what comes of the ground's light through glass and crowns.
    void lookThroughAtGround(const FirstMasks& masks) {
        if (masks.ground == nullptr) {
            return;
        }
        // Pieces whose first ray was blocked have light too where further rays found some.
        std::vector<SkyCellSet> seenCells(masks.groundCells.size());
        for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
            if (m_groundWeights[i] > 0.0f && m_groundVisible[i] > 0.0f) {
                const GroundRays::Cell& cell = masks.ground->cells[i];
                seenCells[cell.set].insert(cell.azimuth, cell.altitude);
            }
        }
        std::vector<SkyCellSet> untouched = seenCells;
        m_light->translucent().visibleSkies(m_origin, masks.ground->sets, untouched);
        for (std::size_t i = 0; i < m_groundWeights.size(); ++i) {
            const GroundRays::Cell& cell = masks.ground->cells[i];
            if (m_groundWeights[i] > 0.0f && m_groundVisible[i] > 0.0f &&
                !untouched[cell.set].contains(cell.azimuth, cell.altitude)) {
                const float seen = m_groundScale * m_groundWeights[i] * m_groundVisible[i];
                m_groundView -=
                    seen * (1.0f - groundThrough(masks.ground->pieces[i].direction, seen));
            }
        }
        m_groundView = std::max(m_groundView, 0.0f);
    }

    /// What comes through of the ground's light over the period.
    float groundThrough(const XYZf& direction, float weight) {
        std::vector<float> through(m_shared.seasons.size());
        m_light->transmittances(m_origin, direction, through);
        m_groundThrough.resize(through.size(), 0.0f);
        float share = 0.0f;
        for (std::size_t s = 0; s < through.size(); ++s) {
            share += m_shared.seasons[s].ground * through[s];
            m_groundThrough[s] += weight * through[s];
        }
        return share;
    }

    /// What is seen of the patches in each season (one, where the sensor sees no difference),
    /// scaled so that the hours' diffuse adds up to that of the cells.
    void gatherPatches() {
        const std::size_t count = m_through.empty() ? 1 : m_shared.seasons.size();
        m_patchWeights.resize(count);
        double all = 0.0;
        for (std::size_t s = 0; s < count; ++s) {
            if (count > 1) {
                takeSeason(s);
            }
            sumPatches(m_patchWeights[s]);
            std::array<float, patchCount> totals = m_shared.patchTotals;
            for (std::size_t p = 0; p < patchCount && count > 1; ++p) {
                totals[p] *= m_shared.seasons[s].patches[p];
            }
            all += static_cast<double>(
                sumOfProducts(m_patchWeights[s].data(), totals.data(), patchCount));
        }
        const auto whole = static_cast<float>(all);
        m_patchScale = whole > 0.0f ? m_sky / whole : 0.0f;
        for (std::array<float, patchCount>& weights : m_patchWeights) {
            for (float& weight : weights) {
                weight *= m_patchScale;
            }
        }
    }

    void sumPatches(std::array<float, patchCount>& weights) const {
        weights.fill(0.0f);
        float* patch = weights.data();
        for (std::size_t row = 0; row < skyGrid::altitudeCount / 2; ++row) {
            const float* lower = m_seen.data() + 2 * row * skyGrid::azimuthCount;
            const float* upper = lower + skyGrid::azimuthCount;
            std::array<float, skyGrid::azimuthCount> both;
            for (std::size_t sector = 0; sector < both.size(); ++sector) {
                both[sector] = lower[sector] + upper[sector];
            }
            const std::size_t width = skyPatches::sectorsWide(row);
            for (std::size_t first = 0; first < both.size(); first += width) {
                float sum = both[first] + both[first + 1];
                for (std::size_t sector = first + 2; sector < first + width; ++sector) {
                    sum += both[sector];
                }
                *patch++ = sum;
            }
        }
    }

    float beamOf(const SkyHour& hour) const {
        float beam = 0.0f;
        for (int b = 0; b < hour.beamCount; ++b) {
            const BeamPart& part = m_shared.sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
            beam += m_sunVisible[static_cast<std::size_t>(part.sunCell)] * receivedOf(part);
        }
        return beam;
    }

    float receivedOf(const BeamPart& part) const {
        return received(part.energy, vectorLength(part.energy));
    }

    /// How what a sensor gets from a sun cell is shared among the hours.
    struct CellShare {
        double received = 0.0; // by the whole sun of the hours, sum over the parts [Wh/m2]
        double energy = 0.0;   // the same without a surface
        double factor = 0.0;   // on what a part brings
        double extra = 0.0;    // on a part's energy
    };

    /// The sums take the energy of half a cell as one vector, the hours take their own parts. The
    /// same comes of it unless the surface's plane cuts the cell. There the hours' parts are scaled
    /// down to what the sums have, and what these have more is shared by energy.
    std::vector<CellShare> sharesOfSunCells() const {
        std::vector<CellShare> shares(m_shared.sky.sunCells.size());
        for (const BeamPart& part : m_shared.sky.beams) {
            CellShare& share = shares[static_cast<std::size_t>(part.sunCell)];
            share.received += static_cast<double>(receivedOf(part));
            share.energy += static_cast<double>(vectorLength(part.energy));
        }
        for (std::size_t j = 0; j < shares.size(); ++j) {
            CellShare& share = shares[j];
            const double seen = static_cast<double>(m_sunWeight[j] * m_sunVisible[j]);
            share.factor = share.received > 0.0 ? std::min(seen / share.received, 1.0) : 0.0;
            share.extra =
                share.energy > 0.0 ? std::max(seen - share.received, 0.0) / share.energy : 0.0;
        }
        return shares;
    }

    float skyOf(std::size_t skyHour) const {
        const std::size_t season =
            m_patchWeights.size() > 1 ? m_shared.seasonOf(m_shared.sky.skyHours[skyHour]) : 0;
        return sumOfProducts(m_patchWeights[season].data(), m_shared.patchesOf(skyHour),
                             patchCount);
    }

    void findPeak(SensorResult& result) {
        if (m_sides == Sides::One) {
            findPeakOfOneSide(result);
            return;
        }
        for (std::size_t h = 0; h < m_shared.sky.skyHours.size(); ++h) {
            const SkyHour& hour = m_shared.sky.skyHours[h];
            const float value =
                (beamOf(hour) + skyOf(h) + m_groundView * hour.groundReflected) / hour.share;
            if (value > result.peak) {
                result.peak = value;
                result.peakHour = hour.hour;
            }
        }
    }

    void findPeakOfOneSide(SensorResult& result) {
        PeakSensor sensor;
        sensor.normal = m_normal;
        sensor.sunVisible = m_sunVisible.data();
        sensor.openScale = m_patchScale;
        sensor.groundView = m_groundView;
        float highest = 0.0f;
        for (std::size_t s = 0; s < m_shared.seasons.size(); ++s) {
            const bool differs = m_patchWeights.size() > 1;
            if (differs) {
                takeSeason(s);
            }
            sensor.patchWeight = m_patchWeights[differs ? s : 0].data();
            sensor.view = (differs ? seenView() : m_view) * m_patchScale;
            const Prepared::Season& season = m_shared.seasons[s];
            const Peak peak = highestHour(season.peakHours, sensor);
            if (peak.hour >= 0 && peak.value > highest) {
                highest = peak.value;
                result.peak = peak.value;
                const int skyHour =
                    season.peakHours.hours[static_cast<std::size_t>(peak.hour)].skyHour;
                result.peakHour = season.hours[static_cast<std::size_t>(skyHour)];
            }
        }
    }

    float seenView() const {
        float view = 0.0f;
        for (const float seen : m_seen) {
            view += seen;
        }
        return view;
    }

    void fill(SensorHours& hours) {
        clear(hours);
        const bool seasonal = m_patchWeights.size() > 1;
        std::vector<std::vector<CellShare>> sharesOfSeason(m_patchWeights.size());
        for (std::size_t s = 0; s < sharesOfSeason.size(); ++s) {
            if (seasonal) {
                takeSeason(s);
            }
            sharesOfSeason[s] = sharesOfSunCells();
        }
        for (std::size_t h = 0; h < m_shared.sky.skyHours.size(); ++h) {
            const SkyHour& hour = m_shared.sky.skyHours[h];
            const std::vector<CellShare>& shares =
                sharesOfSeason[seasonal ? m_shared.seasonOf(hour) : 0];
            const auto k = static_cast<std::size_t>(hour.hour);
            double beam = 0.0;
            for (int b = 0; b < hour.beamCount; ++b) {
                const BeamPart& part =
                    m_shared.sky.beams[static_cast<std::size_t>(hour.firstBeam + b)];
                const CellShare& share = shares[static_cast<std::size_t>(part.sunCell)];
                beam += share.factor * static_cast<double>(receivedOf(part)) +
                        share.extra * static_cast<double>(vectorLength(part.energy));
            }
            hours.beam[k] = static_cast<float>(beam);
            hours.sky[k] = skyOf(h);
            hours.ground[k] = hour.groundReflected * m_groundView;
        }
    }

    const Prepared& m_shared;
    const LightScene* m_light;
    XYZf m_origin;
    Rays m_rays;
    Sides m_sides = Sides::One;
    XYZf m_normal{0, 0, 0};
    ShadowEdges::FirstLook m_look;
    std::array<SkyCellSet, 2> m_alone; // the cells that only the other half is asked for
    // Of the pieces of the ground; empty where it is not asked for.
    std::vector<float> m_groundWeights, m_groundVisible;
    float m_openGround = 0.0f;             // what the whole ground's light counts by
    float m_groundScale = 0.0f;            // the same of a weight of 1
    std::array<float, cellCount> m_weight; // projected solid angle of the cells [sr]
    std::array<float, cellCount> m_seen;   // the visible part of it
    std::array<std::array<float, cellCount>, 2> m_visible;     // of the cells' halves
    std::vector<std::array<float, patchCount>> m_patchWeights; // by season
    std::vector<ThroughCell> m_through;
    std::vector<float> m_throughShares;
    std::vector<float> m_groundThrough; // by season: of m_groundView, what comes through something
    // Of the sun cells: energy on the surface [Wh/m2], its visible share.
    std::array<float, cellCount + lanes> m_sunWeight;
    std::array<float, cellCount + lanes> m_sunVisible;
    /// Of the cells' halves, of their sun; empty where it is as m_visible.
    std::vector<std::array<float, cellCount>> m_sunShares;
    std::array<std::vector<float>, 2> m_sunTimes; // for sunTimes()
    SkyCellSet m_lookedAt;                        // cells whose halves count by their own weights
    float m_view = 0.0f;
    float m_firstView = 0.0f; // the same by the first rays, a figure of geometry alone
    float m_sky = 0.0f;
    float m_beam = 0.0f;
    float m_sunHours = 0.0f;
    float m_groundView = 0.0f; // what the ground's light counts by: 2 for an open point
    float m_patchScale = 0.0f;
};

HourlyAnalysis::HourlyAnalysis(HourlySky sky, const HourlyAnalysisOptions& options)
    : HourlyAnalysis(std::move(sky), options, {}) {}
HourlyAnalysis::HourlyAnalysis(HourlySky sky, const HourlyAnalysisOptions& options,
                               const std::vector<HourlySky>& parts)
    : m_prepared(std::make_unique<Prepared>(std::move(sky), parts, options)) {}
HourlyAnalysis::HourlyAnalysis(HourlyAnalysis&&) noexcept = default;
HourlyAnalysis& HourlyAnalysis::operator=(HourlyAnalysis&&) noexcept = default;
HourlyAnalysis::~HourlyAnalysis() = default;

const HourlySky& HourlyAnalysis::sky() const {
    static const HourlySky none;
    return m_prepared != nullptr ? m_prepared->sky : none;
}

const HourlyAnalysisOptions& HourlyAnalysis::options() const {
    static const HourlyAnalysisOptions none;
    return m_prepared != nullptr ? m_prepared->options : none;
}

/// Whether there is anything to compute; results are 0 else.
bool HourlyAnalysis::canEvaluate(const LightScene* light, const Sensor& sensor) const {
    return sky().valid && isFinite(sensor.position) && isFinite(sensor.normal) &&
           (light == nullptr || light->seasons() == options().seasons);
}

SensorResult HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const LightScene* light,
                                      const Sensor& sensor, std::span<SensorPart> parts,
                                      SensorHours* hours) const {
    std::fill(parts.begin(), parts.end(), SensorPart());
    if (!canEvaluate(light, sensor)) {
        if (hours != nullptr) {
            clear(*hours);
        }
        return {};
    }
    const bool looksThrough = light != nullptr && light->hasTranslucent();
    Evaluation evaluation(*m_prepared, rays, looksThrough ? light : nullptr, sensor);
    FirstMasks masks = evaluation.wanted();
    evaluation.answer(masks);
    return evaluation.result(masks, hours, parts);
}

SensorResult HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const Sensor& sensor,
                                      SensorHours* hours) const {
    return evaluate(rays, nullptr, sensor, {}, hours);
}

std::vector<SkyDirections> HourlyAnalysis::firstRays() const {
    std::vector<SkyDirections> sets;
    if (m_prepared != nullptr) {
        sets.assign(m_prepared->first.directions.begin(), m_prepared->first.directions.end());
        for (const GroundRays& ground : m_prepared->ground) {
            sets.insert(sets.end(), ground.sets.begin(), ground.sets.end());
        }
    }
    return sets;
}

std::size_t HourlyAnalysis::partCount() const {
    return m_prepared != nullptr ? m_prepared->parts.size() : 0;
}

const HourlyAnalysis::PartLight& HourlyAnalysis::partLight(std::size_t part) const {
    return m_prepared->partLights[part];
}

SensorResult HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const Sensor& sensor,
                                      std::span<SensorPart> parts, SensorHours* hours) const {
    return evaluate(rays, nullptr, sensor, parts, hours);
}

SensorResult HourlyAnalysis::evaluate(const OcclusionIndex& scene, const Sensor& sensor,
                                      SensorHours* hours) const {
    FastRayTransparency rays(scene);
    return evaluate(rays, nullptr, sensor, {}, hours);
}

SensorResult HourlyAnalysis::evaluate(const LightScene& scene, const Sensor& sensor,
                                      SensorHours* hours) const {
    return evaluate(scene, sensor, {}, hours);
}

SensorResult HourlyAnalysis::evaluate(const LightScene& scene, const Sensor& sensor,
                                      std::span<SensorPart> parts, SensorHours* hours) const {
    FastRayTransparency rays(scene.opaque());
    return evaluate(rays, &scene, sensor, parts, hours);
}

bool HourlyAnalysis::evaluate(const OcclusionIndex& scene, std::span<const Sensor> sensors,
                              std::span<SensorResult> results, const EvaluateOptions& options,
                              std::span<SensorHours> hours, std::span<SensorPart> parts) const {
    FastRayTransparency rays(scene);
    return evaluate(rays, nullptr, {sensors, results, hours, parts}, options);
}

bool HourlyAnalysis::evaluate(const LightScene& scene, std::span<const Sensor> sensors,
                              std::span<SensorResult> results, const EvaluateOptions& options,
                              std::span<SensorHours> hours, std::span<SensorPart> parts) const {
    FastRayTransparency rays(scene.opaque());
    return evaluate(rays, &scene, {sensors, results, hours, parts}, options);
}

bool HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, std::span<const Sensor> sensors,
                              std::span<SensorResult> results, const EvaluateOptions& options,
                              std::span<SensorHours> hours, std::span<SensorPart> parts) const {
    return evaluate(rays, nullptr, {sensors, results, hours, parts}, options);
}

bool HourlyAnalysis::evaluate(GetTransparencyValueOnRay& rays, const LightScene* light, Work work,
                              const EvaluateOptions& options) const {
    work.partCount = partCount();
    const std::size_t count = std::min(work.sensors.size(), work.results.size());
    std::size_t finished = 0;
    const int threads =
        options.threads > 0 ? std::min(options.threads, processorCount()) : processorCount();
    // A few sensors are shared out too: each may take milliseconds.
    const std::size_t blockSize = std::clamp(count / (4 * static_cast<std::size_t>(threads)),
                                             std::size_t{1}, sensorsPerBlock);
    std::mutex reporting; // guards finished, and lets one report after the other through
    const auto evaluateBlock = [&](std::size_t block) {
        const std::size_t first = block * blockSize;
        const std::size_t done = evaluateNeighbours(
            rays, light, work, first, std::min(first + blockSize, count), options.stop);
        if (done > 0) {
            const std::lock_guard lock(reporting);
            finished += done;
            if (options.progress) {
                options.progress(done);
            }
        }
    };
    const std::size_t blocks = (count + blockSize - 1) / blockSize;
    if (threads == 1 || blocks < 2) {
        for (std::size_t block = 0; block < blocks; ++block) {
            evaluateBlock(block);
        }
    } else {
        tbb::task_arena arena(threads);
        arena.execute([&] { tbb::parallel_for(std::size_t{0}, blocks, evaluateBlock); });
    }
    return finished == count;
}

/// Evaluates the sensors from begin to end on this thread, those that lie close together in one go;
/// how many before a stop was asked for.
std::size_t HourlyAnalysis::evaluateNeighbours(GetTransparencyValueOnRay& rays,
                                               const LightScene* light, const Work& work,
                                               std::size_t begin, std::size_t end,
                                               const std::stop_token& stop) const {
    std::size_t done = 0;
    std::vector<std::uint32_t> asked;
    std::vector<Sensor> finite;
    std::vector<std::uint32_t> places;
    for (std::size_t i = begin; i < end && !stop.stop_requested(); ++i) {
        if (canEvaluate(light, work.sensors[i])) {
            finite.push_back(work.sensors[i]);
            places.push_back(static_cast<std::uint32_t>(i));
        } else {
            work.results[i] =
                evaluate(rays, light, work.sensors[i], work.partsOf(i), work.hoursOf(i));
            ++done;
        }
    }
    for (const std::uint32_t place : alongCurve(finite)) {
        asked.push_back(places[place]);
    }
    const LightScene* through = light != nullptr && light->hasTranslucent() ? light : nullptr;
    std::vector<std::optional<Evaluation>> evaluations(std::min(asked.size(), mostOriginsOfBlock));
    std::array<FirstMasks, mostOriginsOfBlock> masks;
    for (std::size_t first = 0; first < asked.size() && !stop.stop_requested();
         first += mostOriginsOfBlock) {
        const std::size_t some = std::min(mostOriginsOfBlock, asked.size() - first);
        for (std::size_t k = 0; k < some; ++k) {
            evaluations[k].emplace(*m_prepared, rays, through, work.sensors[asked[first + k]]);
            masks[k] = evaluations[k]->wanted();
        }
        Evaluation::answerTogether(std::span(evaluations).first(some),
                                   std::span(masks).first(some));
        for (std::size_t k = 0; k < some; ++k) {
            const std::size_t i = asked[first + k];
            const std::span<SensorPart> parts = work.partsOf(i);
            std::fill(parts.begin(), parts.end(), SensorPart());
            work.results[i] = evaluations[k]->result(masks[k], work.hoursOf(i), parts);
        }
        done += some;
    }
    return done;
}

} // namespace insolate
