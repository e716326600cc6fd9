#include <insolate/hourly/reflected_light.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/light_cells.h>
#include <insolate/platform/processor_count.h>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

namespace insolate {
namespace {

/// Sensors whose landings are sorted into cells together: fewer leave more landings to keep at
/// once, more would not fit the 16 bits of a landing's number.
constexpr std::size_t sensorsPerBlock = 256;
constexpr std::size_t mostRays = 256;

/// Shares of the lattice's light, if all that it meets were lit like open ground, from which
/// sensors get twice and four times the rays.
constexpr float muchReflected = 0.15f;
constexpr float mostlyReflected = 0.35f;

/// Cells that cells find, beyond those that sensors find: so many times new ones are lit.
constexpr int generations = 3;

constexpr std::uint16_t nothing = 0xFFFFU;

/// What a sensor's rays have found, by number in its block.
struct SensorRays {
    std::uint32_t first = 0; ///< in Block::found
    std::uint16_t count = 0;
    std::uint16_t farGround = 0;
    std::uint16_t blocked = 0;
};

struct Block {
    std::vector<Landing> landings;
    std::vector<std::uint16_t> found;
    std::vector<float> through;
    std::vector<SensorRays> sensors;
    std::vector<std::uint32_t> cells; ///< of the landings
};

/// One landing for each cell.
class UniqueLandings {
public:
    explicit UniqueLandings(std::vector<Landing>& landings) : m_landings(landings) {
        m_places.assign(2 * sensorsPerBlock * mostRays, empty);
    }
    std::uint16_t add(const Landing& landing) {
        for (std::size_t at = landing.key % m_places.size();; at = (at + 1) % m_places.size()) {
            if (m_places[at] == empty) {
                m_places[at] = static_cast<std::uint32_t>(m_landings.size());
                m_landings.push_back(landing);
                return static_cast<std::uint16_t>(m_landings.size() - 1);
            }
            Landing& known = m_landings[m_places[at]];
            if (known.key == landing.key) {
                const std::uint32_t weight = known.weight + landing.weight;
                if (landing.order < known.order) {
                    known = landing;
                }
                known.weight = weight;
                return static_cast<std::uint16_t>(m_places[at]);
            }
        }
    }

private:
    static constexpr std::uint32_t empty = 0xFFFFFFFFU;
    std::vector<Landing>& m_landings;
    std::vector<std::uint32_t> m_places;
};

OpenGround openGround(const HourlyAnalysis& analysis, const LightScene& scene, double reach) {
    const HourlySky& sky = analysis.sky();
    OpenGround ground;
    ground.lit = analysis.options().groundRays > 0;
    ground.low = scene.low();
    ground.high = scene.high();
    ground.height = static_cast<double>(ground.low.z);
    const auto margin =
        static_cast<float>(reach * static_cast<double>(ground.high.z - ground.low.z));
    ground.low = difference(ground.low, {margin, margin, 0});
    ground.high = sum(ground.high, {margin, margin, 0});
    ground.light = static_cast<float>(sky.groundReflected);
    const double open = sky.report.directHorizontal + sky.report.diffuseHorizontal;
    ground.reflectance = open > 0.0 ? static_cast<float>(sky.groundReflected / open) : 0.0f;
    return ground;
}

std::vector<float> seasonShares(const HourlySky& sky, const Seasons& seasons) {
    std::vector<double> light(static_cast<std::size_t>(seasons.count), 0.0);
    double whole = 0.0;
    for (const SkyHour& hour : sky.skyHours) {
        double sum = static_cast<double>(hour.diffuse);
        for (int b = 0; b < hour.beamCount; ++b) {
            sum += static_cast<double>(
                sky.beams[static_cast<std::size_t>(hour.firstBeam + b)].energy.z);
        }
        light[seasons.ofDay[static_cast<std::size_t>(hour.hour / 24)]] += sum;
        whole += sum;
    }
    std::vector<float> shares;
    for (const double one : light) {
        shares.push_back(whole > 0.0 ? static_cast<float>(one / whole)
                                     : 1.0f / static_cast<float>(light.size()));
    }
    return shares;
}

bool isFinite(const XYZf& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

} // namespace

struct ReflectedLight::Content {
    bool complete = false;
    ReflectionReport report;
    std::size_t bins = 1;
    std::vector<float> byBin; ///< reflected light by sensor and bin [Wh/m2]
    std::vector<float> ground;
    std::vector<float> seen; ///< share of the lattice that met surfaces; 0 where that says nothing
    LightSources sources;
    double hours, daylightHours, groundReflected;
    std::vector<SkyHour> skyHours;
    ReflectionOptions options;

    Content(const HourlyAnalysis& analysis, const LightScene& scene,
            std::span<const Sensor> sensors, const ReflectionOptions& theOptions,
            const EvaluateOptions& run)
        : sources(analysis.sky(), theOptions.hours), hours(analysis.sky().hours),
          daylightHours(analysis.sky().daylightHours),
          groundReflected(analysis.sky().groundReflected), options(theOptions) {
        options.rays = std::clamp(options.rays, 1, static_cast<int>(mostRays));
        options.cellRays = std::clamp(options.cellRays, 1, 1024);
        options.linkRays = std::clamp(options.linkRays, 1, 256);
        options.bounces = std::max(options.bounces, 0);
        if (options.hours) {
            skyHours = analysis.sky().skyHours;
        }
        bins = sources.binCount();
        byBin.assign(sensors.size() * bins, 0.0f);
        ground.assign(sensors.size(), 1.0f);
        seen.assign(sensors.size(), 0.0f);
        const int threads =
            run.threads > 0 ? std::min(run.threads, processorCount()) : processorCount();
        tbb::task_arena arena(threads);
        arena.execute([&] { calculate(analysis, scene, sensors, run); });
    }

    void calculate(const HourlyAnalysis& analysis, const LightScene& scene,
                   std::span<const Sensor> sensors, const EvaluateOptions& run) {
        const LightGatherer gatherer(scene, openGround(analysis, scene, options.groundReach),
                                     seasonShares(analysis.sky(), scene.seasons()));
        const std::size_t blockCount = (sensors.size() + sensorsPerBlock - 1) / sensorsPerBlock;
        std::vector<Block> blocks(blockCount);
        std::mutex reporting;
        tbb::parallel_for(std::size_t{0}, blockCount, [&](std::size_t number) {
            if (run.stop.stop_requested()) {
                return;
            }
            const std::span<const Sensor> some = sensors.subspan(
                number * sensorsPerBlock,
                std::min(sensorsPerBlock, sensors.size() - number * sensorsPerBlock));
            look(gatherer, some, blocks[number]);
            const std::lock_guard lock(reporting);
            if (run.progress) {
                run.progress(some.size());
            }
        });
        if (run.stop.stop_requested() || !analysis.sky().valid) {
            complete = !run.stop.stop_requested();
            return;
        }
        LightCells cells;
        std::vector<Landing> landings;
        for (const Block& block : blocks) {
            landings.insert(landings.end(), block.landings.begin(), block.landings.end());
            report.bytes += block.landings.size() * (sizeof(Landing) + sizeof(std::uint32_t)) +
                            block.found.size() * sizeof(std::uint16_t);
            report.rays += block.found.size();
        }
        const LightCells::Options cellOptions{
            options.bounces, static_cast<std::size_t>(options.cellRays),
            static_cast<std::size_t>(options.linkRays), options.leastLinkCell, 0};
        const bool oneBounce = options.bounces == 1;
        for (int generation = 0; generation <= generations; ++generation) {
            if (cells.add(landings) == 0 || run.stop.stop_requested()) {
                break;
            }
            landings = cells.light(gatherer, sources, cellOptions, !oneBounce);
        }
        if (run.stop.stop_requested()) {
            return;
        }
        const LightCells::Exchange exchange = cells.exchange(gatherer, cellOptions);
        report.cells = cells.size();
        report.rays += cells.rays();
        report.bytes += cells.bytes() + (byBin.size() + ground.size()) * sizeof(float);
        report.bounces = exchange.bounces;
        report.beyond = exchange.beyond;
        report.converged = exchange.converged;
        tbb::parallel_for(std::size_t{0}, blockCount, [&](std::size_t number) {
            collect(gatherer, cells, sensors, number * sensorsPerBlock, blocks[number]);
            blocks[number] = {};
        });
        complete = true;
    }

    void look(const LightGatherer& gatherer, std::span<const Sensor> sensors, Block& block) const {
        UniqueLandings unique(block.landings);
        Gathered gathered;
        const auto rays = static_cast<std::size_t>(options.rays);
        for (const Sensor& sensor : sensors) {
            gathered.clear();
            if (isFinite(sensor.position) && isFinite(sensor.normal)) {
                const float length = vectorLength(sensor.normal);
                const XYZf normal =
                    length > 0.0f ? scaled(sensor.normal, 1.0f / length) : XYZf{0, 0, 0};
                const auto gather = [&](std::size_t first, std::size_t end) {
                    gatherer.gather(sensor.position, normal, first, end, rays, options.leastCell,
                                    Landing::oneRay, gathered);
                };
                gather(0, rays);
                float scattering = 0.0f;
                for (const Landing& landing : gathered.landings) {
                    scattering += gatherer.reflectance(landing.material) / static_cast<float>(rays);
                }
                const std::size_t more = scattering > mostlyReflected ? 4
                                         : scattering > muchReflected ? 2
                                                                      : 1;
                gather(rays, std::min(more * rays, mostRays));
            }
            SensorRays known;
            known.first = static_cast<std::uint32_t>(block.found.size());
            known.count = static_cast<std::uint16_t>(gathered.found.size());
            known.blocked = static_cast<std::uint16_t>(gathered.blocked);
            for (std::size_t i = 0; i < gathered.found.size(); ++i) {
                const std::uint32_t found = gathered.found[i];
                std::uint16_t place = nothing;
                if (found == Gathered::farGround) {
                    ++known.farGround;
                } else if (found != Gathered::nothing) {
                    place = unique.add(gathered.landings[found]);
                }
                block.found.push_back(place);
                if (gatherer.scene().hasTranslucent()) {
                    block.through.push_back(gathered.through[i]);
                }
            }
            block.sensors.push_back(known);
        }
    }

    void collect(const LightGatherer& gatherer, const LightCells& cells,
                 std::span<const Sensor> sensors, std::size_t firstSensor, Block& block) {
        for (const Landing& landing : block.landings) {
            block.cells.push_back(cells.find(landing.key));
        }
        const float openLight = gatherer.ground().light;
        for (std::size_t s = 0; s < block.sensors.size(); ++s) {
            const SensorRays& rays = block.sensors[s];
            if (rays.count == 0) {
                continue;
            }
            // A point without a surface takes light of the whole sphere: four times the mean.
            const Sensor& sensor = sensors[firstSensor + s];
            const float share =
                (vectorLength(sensor.normal) > 0.0f ? 1.0f : 4.0f) / static_cast<float>(rays.count);
            if (vectorLength(sensor.normal) > 0.0f && block.through.empty()) {
                seen[firstSensor + s] =
                    static_cast<float>(rays.blocked) / static_cast<float>(rays.count);
            }
            float* out = byBin.data() + (firstSensor + s) * bins;
            double groundLight =
                static_cast<double>(rays.farGround) * static_cast<double>(openLight);
            std::size_t groundRays = rays.farGround;
            for (std::size_t i = 0; i < rays.count; ++i) {
                const std::uint16_t place = block.found[rays.first + i];
                if (place == nothing) {
                    continue;
                }
                const float* light = cells.thrownBack(block.cells[place]);
                if (block.landings[place].material == LightGatherer::groundMaterial) {
                    ++groundRays;
                    for (std::size_t b = 0; b < bins; ++b) {
                        groundLight += static_cast<double>(light[b]);
                    }
                    continue;
                }
                const float weight =
                    share * (block.through.empty() ? 1.0f : block.through[rays.first + i]);
                for (std::size_t b = 0; b < bins; ++b) {
                    out[b] += weight * light[b];
                }
            }
            if (groundRays > 0 && openLight > 0.0f) {
                ground[firstSensor + s] =
                    static_cast<float>(groundLight / (static_cast<double>(groundRays) *
                                                      static_cast<double>(openLight)));
            }
        }
    }
};

ReflectedLight::ReflectedLight(const HourlyAnalysis& analysis, const LightScene& scene,
                               std::span<const Sensor> sensors, const ReflectionOptions& options,
                               const EvaluateOptions& run)
    : m_content(std::make_unique<Content>(analysis, scene, sensors, options, run)) {}
ReflectedLight::ReflectedLight(ReflectedLight&&) noexcept = default;
ReflectedLight& ReflectedLight::operator=(ReflectedLight&&) noexcept = default;
ReflectedLight::~ReflectedLight() = default;

bool ReflectedLight::complete() const {
    return m_content->complete;
}

const ReflectionReport& ReflectedLight::report() const {
    return m_content->report;
}

float ReflectedLight::reflected(std::size_t sensor) const {
    float light = 0.0f;
    for (std::size_t b = 0; b < m_content->bins; ++b) {
        light += m_content->byBin[sensor * m_content->bins + b];
    }
    return light;
}

float ReflectedLight::groundShare(std::size_t sensor) const {
    return m_content->ground[sensor];
}

void ReflectedLight::addTo(std::size_t sensor, SensorResult& result, SensorHours* hours) const {
    const Content& all = *m_content;
    const float open = result.ground;
    // Few rays that met something, by chance, are not scaled up without bounds.
    constexpr float mostScale = 3.0f;
    const float view = 1.0f - result.skyViewFactor - result.groundViewFactor;
    const float scale =
        all.seen[sensor] > 0.0f ? std::clamp(view / all.seen[sensor], 0.0f, mostScale) : 1.0f;
    result.reflected = scale * reflected(sensor);
    result.ground *= groundShare(sensor);
    result.total = result.beam + result.sky + result.ground + result.reflected;
    const auto over = [&](double time) {
        return time > 0.0 ? static_cast<float>(static_cast<double>(result.total) / time) : 0.0f;
    };
    result.averageDaylight = over(all.daylightHours);
    result.averagePeriod = over(all.hours);
    const float* light = all.byBin.data() + sensor * all.bins;
    if (hours != nullptr) {
        hours->reflected.assign(hoursPerYear, 0.0f);
        for (float& value : hours->ground) {
            value *= groundShare(sensor);
        }
    }
    for (std::size_t h = 0; h < all.skyHours.size(); ++h) {
        const SkyHour& hour = all.skyHours[h];
        if (hours == nullptr && hour.hour != result.peakHour) {
            continue;
        }
        const float* shares = all.sources.sharesOfHour(h);
        float sum = 0.0f;
        for (std::size_t b = 0; b < all.bins; ++b) {
            sum += scale * light[b] * shares[b];
        }
        if (hours != nullptr) {
            hours->reflected[static_cast<std::size_t>(hour.hour)] = sum;
        }
        if (hour.hour == result.peakHour) {
            const float shadow = open * (1.0f - groundShare(sensor));
            const double ground =
                all.groundReflected > 0.0
                    ? static_cast<double>(hour.groundReflected) / all.groundReflected
                    : 0.0;
            result.peak += (sum - shadow * static_cast<float>(ground)) / hour.share;
        }
    }
}

} // namespace insolate
