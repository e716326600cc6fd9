#include <insolate/hourly/reflected_light.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/light_cells.h>
#include <insolate/platform/processor_count.h>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_sort.h>
#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <utility>
#include <vector>

namespace insolate {
namespace {

/// Of a sensor, by the usual tolerance.
constexpr std::size_t mostRays = 256;
/// Parts of the view that are neither sky nor open ground from which sensors have cells for
/// themselves, see Landing::kind. With cells that all share, one inside of a building in Lyon got
/// ten times its light.
constexpr std::array<float, Landing::kinds - 1> closedIn{0.8f, 0.95f};

/// Landings whose numbers fit into 16 bits: sensors are sorted into cells together that cannot have
/// more. Fewer would leave more landings to keep at once.
constexpr std::size_t mostLandings = 65'535;

/// Of the light on open ground, what a surface in view gets, about: also in courts, less only where
/// next to no sky is seen, as below the ground and in rooms.
constexpr float usualLight = 0.45f;
/// Of what such a surface gets, the part that others have thrown on it, over the reflectance of
/// what it sees.
constexpr float usualReturn = 0.7f;
constexpr float usualSkyView = 0.05f;
constexpr float leastOpen = 0.1f;
/// Totals below this share of the light on open ground get no more rays than a total of that share.
constexpr float leastShare = 0.05f;
/// The share of reflected light in a total, and the part of the view that the scene takes, for
/// which ReflectionOptions::rays are: in Lyon and in a dense city they leave a root mean square of
/// 1.2 to 1.5 % of the mean total, where surfaces reflect half of their light 1.7 to 2.0 %
/// (bench_reflection). A share of 0.165 leaves a tenth more and takes a sixth fewer rays.
constexpr double usualShare = 0.15;
constexpr double usualView = 0.5;
constexpr float leastView = 0.05f;

/// Rays of a cell for each ray of a sensor whose lattice would have to be larger than the largest.
constexpr double mostWeight = 4.0;

/// Where totals are not known: shares of the lattice's light, if all that it meets were lit like
/// open ground, from which sensors get twice and four times the rays.
constexpr float muchReflected = 0.15f;
constexpr float mostlyReflected = 0.35f;

/// Cells that cells find, beyond those that sensors find: so many times new ones are lit.
constexpr int generations = 3;

/// What a sensor's rays have found, by number in its block.
struct SensorRays {
    std::uint32_t first = 0; ///< in Block::found
    std::uint16_t count = 0;
    std::uint16_t rays = 0;
    std::uint16_t blocked = 0;
    float farGround = 0.0f; ///< rays that met open ground, by what comes through on their way
};

/// What is left of a landing once the cells have it.
struct FoundCell {
    std::uint64_t key;
    std::uint32_t cell;
    std::uint32_t material;
    std::uint32_t weight;
};

struct Block {
    std::vector<Landing> landings; ///< until the cells have them
    std::vector<FoundCell> cells;  ///< of the landings
    std::vector<std::uint16_t> found;
    std::vector<float> through; ///< by entry of found and season; empty where nothing is in the way
    std::vector<SensorRays> sensors;
    std::size_t rays = 0;

    std::size_t bytes() const {
        return landings.capacity() * sizeof(Landing) + cells.capacity() * sizeof(FoundCell) +
               found.capacity() * sizeof(std::uint16_t) + through.capacity() * sizeof(float) +
               sensors.capacity() * sizeof(SensorRays);
    }
};

/// Reports the work as finished sensors, of which each of its phases stands for a share.
class PhaseProgress {
public:
    PhaseProgress(const EvaluateOptions& run, std::size_t sensors)
        : m_run(run), m_sensors(static_cast<double>(sensors)) {}

    /// From any thread. share: of all the work.
    void advance(double share) {
        if (m_run.progress) {
            const std::lock_guard lock(m_mutex);
            m_done += share;
            tell(static_cast<std::size_t>(m_sensors * std::min(m_done, 1.0)));
        }
    }
    /// Whatever the phases have left out.
    void finish() {
        if (m_run.progress) {
            tell(static_cast<std::size_t>(m_sensors));
        }
    }

private:
    void tell(std::size_t sensors) {
        if (sensors > m_told) {
            m_run.progress(sensors - m_told);
            m_told = sensors;
        }
    }
    const EvaluateOptions& m_run;
    double m_sensors;
    std::mutex m_mutex;
    double m_done = 0.0;
    std::size_t m_told = 0;
};

/// Phases of the work, as shares of its time in cities (bench_reflection).
constexpr double lookingPart = 0.5;
constexpr double firstCellsPart = 0.35;
constexpr double laterCellsPart = 0.03; // of each generation

/// A few landings for each cell.
class UniqueLandings {
public:
    explicit UniqueLandings(std::vector<Landing>& landings) : m_landings(landings) {
        m_places.assign(std::size_t{1} << 17U, empty);
    }
    std::uint16_t add(const Landing& landing) {
        const std::size_t home = (landing.key + slotOf(landing)) % m_places.size();
        for (std::size_t at = home;; at = (at + 1) % m_places.size()) {
            if (m_places[at] == empty) {
                m_places[at] = static_cast<std::uint32_t>(m_landings.size());
                m_landings.push_back(landing);
                return static_cast<std::uint16_t>(m_landings.size() - 1);
            }
            Landing& known = m_landings[m_places[at]];
            if (known.key == landing.key && slotOf(known) == slotOf(landing)) {
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
    static std::uint64_t slotOf(const Landing& landing) { return landing.order % 4; }
    static constexpr std::uint32_t empty = 0xFFFFFFFFU;
    std::vector<Landing>& m_landings;
    std::vector<std::uint32_t> m_places;
};

/// Sum over landings of what they throw back, by bin. Few cells know the light of others; those
/// that a place sees and that know it stand for all that it sees.
class LightSum {
public:
    explicit LightSum(const LightSources& sources)
        : m_sources(sources), m_direct(sources.binCount()), m_known(sources.binCount()),
          m_filled(sources.binCount()), m_weight(sources.seasonCount()),
          m_knownWeight(sources.seasonCount()) {}

    void clear() {
        for (std::vector<double>* sums :
             {&m_direct, &m_known, &m_filled, &m_weight, &m_knownWeight}) {
            std::fill(sums->begin(), sums->end(), 0.0);
        }
    }
    /// share: of the cell's light. through: of it by season; null: all.
    void add(const LightCells& cells, std::uint32_t cell, float share, const float* through) {
        const float chance = cells.chanceOfLinks(cell);
        const double more = chance > 0.0f ? 1.0 / static_cast<double>(chance) : 0.0;
        const auto weightOf = [&](std::size_t season) {
            return static_cast<double>(through != nullptr ? share * through[season] : share);
        };
        for (std::size_t s = 0; s < m_weight.size(); ++s) {
            m_weight[s] += weightOf(s);
            m_knownWeight[s] += more * weightOf(s);
        }
        const float* const direct = cells.direct(cell);
        const float* const indirect = cells.indirect(cell);
        const bool hasSeasons = m_weight.size() > 1;
        double weight = weightOf(0);
        for (std::size_t b = 0; b < m_direct.size(); ++b) {
            weight = hasSeasons ? weightOf(m_sources.seasonOf(b)) : weight;
            const auto light = static_cast<double>(indirect[b]);
            m_direct[b] += weight * static_cast<double>(direct[b]);
            m_known[b] += more * weight * light;
            m_filled[b] += weight * light;
        }
    }
    double of(std::size_t bin) const {
        const std::size_t season = m_sources.seasonOf(bin);
        return m_direct[bin] + (m_knownWeight[season] > 0.0
                                    ? m_known[bin] * m_weight[season] / m_knownWeight[season]
                                    : m_filled[bin]);
    }

private:
    const LightSources& m_sources;
    std::vector<double> m_direct, m_known, m_filled; // by bin
    std::vector<double> m_weight, m_knownWeight;     // by season
};

/// A length of the options, in whose place the usual one holds where it is none.
double lengthOr(double given, double usual) {
    return given > 0.0 && std::isfinite(given) ? given : usual;
}

/// What HourlyAnalysisOptions::tolerance changes of the options (bench_reflection with tolerances;
/// docs/validation.md has the table).
///
/// Errors fall with the root of a sensor's rays: for half the error four times as many. By the
/// usual tolerance half to four fifths of the sensors keep it, for the sake of time; a smaller one
/// that is asked for is to be kept by most, which takes the same again: the fourth power of
/// what is asked. In courts and streets the rays are all that matters. In Lyon and in dense cities
/// cells of 1 m then hide what more rays gain, as they reach around corners and through walls: at
/// sixteen times the rays and a reflectance of 0.5 the root mean square in Lyon is 1.2 % with cells
/// of 1 m, 0.7 % with 0.5 and 0.55 % with 0.25, and the worst of 300 sensors off by 130, 50 and 4
/// %. Rays of each cell matter least, as they grow with the sensors' by themselves.
struct Refinement {
    double rays = 1.0;     ///< of sensors
    double cellRays = 1.0; ///< to sources and other cells, at most
    double edges = 1.0;    ///< of cells

    explicit Refinement(double tolerance) {
        constexpr double usualTolerance = 0.01;
        constexpr double leastTimes = 0.5;
        constexpr double mostTimes = 64.0; // thousands of rays a sensor in bright courts
        constexpr double leastEdges = 0.25;
        if (!(tolerance > 0.0)) {
            return; // nothing is asked for
        }
        const double finer = usualTolerance / tolerance;
        const double squared = finer * finer;
        if (finer > 1.0) {
            rays = std::min(squared * squared, mostTimes);
            edges = std::max(1.0 / squared, leastEdges);
            cellRays = std::sqrt(1.0 / edges);
        } else {
            rays = std::max(finer, leastTimes);
        }
    }

    /// Sensors that are found together, as what they find is kept meanwhile: up to half a megabyte
    /// each in bright courts. Fewer at once share fewer cells, and take longer.
    std::size_t together(std::size_t sensors) const {
        constexpr double most = 16384.0; // as many as studies ask
        const double root = std::sqrt(rays);
        return rays > 1.0 ? static_cast<std::size_t>(most / (root * std::sqrt(root))) : sensors;
    }
};

/// The options within their bounds, for a tolerance.
ReflectionOptions settled(ReflectionOptions options, const Refinement& refinement) {
    const ReflectionOptions usual;
    options.leastCell = lengthOr(options.leastCell, usual.leastCell) * refinement.edges;
    options.leastLinkCell = lengthOr(options.leastLinkCell, usual.leastLinkCell) * refinement.edges;
    options.groundReach = options.groundReach >= 0.0 && std::isfinite(options.groundReach)
                              ? std::min(options.groundReach, 1e6)
                              : usual.groundReach;
    const auto times = [](int rays, int most, double factor) {
        return static_cast<int>(std::ceil(std::clamp(rays, 1, most) * factor));
    };
    options.rays = times(options.rays, static_cast<int>(mostRays), refinement.rays);
    options.cellRays = times(options.cellRays, 1024, refinement.cellRays);
    options.linkRays = times(options.linkRays, 256, refinement.cellRays);
    options.bounces = std::max(options.bounces, 0);
    return options;
}

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

/// Neighbours follow each other: they meet the same parts of the scene, and share cells.
std::vector<std::uint32_t> orderInSpace(const LightGatherer& gatherer,
                                        std::span<const Sensor> sensors) {
    std::vector<std::pair<std::uint64_t, std::uint32_t>> places;
    places.reserve(sensors.size());
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        places.emplace_back(gatherer.placeInSpace(sensors[i].position),
                            static_cast<std::uint32_t>(i));
    }
    tbb::parallel_sort(places.begin(), places.end());
    std::vector<std::uint32_t> order;
    order.reserve(places.size());
    for (const auto& [place, sensor] : places) {
        order.push_back(sensor);
    }
    return order;
}

std::span<const std::uint32_t> ofBlock(std::span<const std::uint32_t> order, std::size_t size,
                                       std::size_t number) {
    const std::size_t first = number * size;
    return order.subspan(first, std::min(size, order.size() - first));
}

bool hasFinite(const XYZf& v) {
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
    float openLight = 0.0f; ///< on open ground [Wh/m2]
    double hours, daylightHours, groundReflected;
    std::vector<SkyHour> skyHours;
    std::vector<std::vector<float>> shares; ///< by part of the period and bin
    Refinement refinement;
    ReflectionOptions options;

    Content(const HourlyAnalysis& analysis, const LightScene& scene,
            std::span<const Sensor> sensors, const ReflectionOptions& theOptions,
            const EvaluateOptions& run, std::span<const SensorResult> direct)
        : sources(analysis.sky(), scene.seasons(), theOptions.hours), hours(analysis.sky().hours),
          daylightHours(analysis.sky().daylightHours),
          groundReflected(analysis.sky().groundReflected), refinement(analysis.options().tolerance),
          options(settled(theOptions, refinement)) {
        if (options.hours) {
            skyHours = analysis.sky().skyHours;
        }
        for (std::size_t p = 0; p < analysis.partCount() && analysis.sky().valid; ++p) {
            const HourlyAnalysis::PartLight& part = analysis.partLight(p);
            shares.push_back(sources.sharesOfPart(
                {part.diffuseHorizontal, part.sunCells, part.diffuseShares, part.sunShares}));
        }
        bins = sources.binCount();
        byBin.assign(sensors.size() * bins, 0.0f);
        ground.assign(sensors.size(), 1.0f);
        seen.assign(sensors.size(), 0.0f);
        const int threads =
            run.threads > 0 ? std::min(run.threads, processorCount()) : processorCount();
        tbb::task_arena arena(threads);
        arena.execute([&] {
            calculate(analysis, scene, sensors, run,
                      direct.size() == sensors.size() ? direct : std::span<const SensorResult>());
        });
    }

    void calculate(const HourlyAnalysis& analysis, const LightScene& scene,
                   std::span<const Sensor> sensors, const EvaluateOptions& run,
                   std::span<const SensorResult> direct) {
        PhaseProgress progress(run, sensors.size());
        if (!analysis.sky().valid || scene.seasons() != analysis.options().seasons) {
            complete = !run.stop.stop_requested(); // evaluate() gives 0 too
            progress.finish();
            return;
        }
        openLight = static_cast<float>(analysis.sky().report.directHorizontal +
                                       analysis.sky().report.diffuseHorizontal);
        const LightGatherer gatherer(scene, openGround(analysis, scene, options.groundReach),
                                     sources.seasonShares());
        const std::vector<std::uint32_t> order = orderInSpace(gatherer, sensors);
        const std::size_t together = refinement.together(order.size());
        for (std::size_t first = 0; first < order.size(); first += together) {
            const std::size_t count = std::min(together, order.size() - first);
            calculate(gatherer, sensors, run, direct, std::span(order).subspan(first, count),
                      progress);
            if (run.stop.stop_requested()) {
                return;
            }
        }
        complete = !run.stop.stop_requested();
        if (complete) {
            progress.finish();
        }
    }

    /// @param order of the sensors that are found together
    void calculate(const LightGatherer& gatherer, std::span<const Sensor> sensors,
                   const EvaluateOptions& run, std::span<const SensorResult> direct,
                   std::span<const std::uint32_t> order, PhaseProgress& progress) {
        const double ofAll =
            static_cast<double>(order.size()) / static_cast<double>(sensors.size());
        // A ray has a second landing where it crosses glass or leaves.
        const std::size_t sorted =
            mostLandings / (largestLattice() * (gatherer.scene().hasTranslucent() ? 2 : 1));
        const std::size_t blockCount = (order.size() + sorted - 1) / sorted;
        std::vector<Block> blocks(blockCount);
        tbb::parallel_for(std::size_t{0}, blockCount, [&](std::size_t number) {
            if (run.stop.stop_requested()) {
                return;
            }
            const std::span<const std::uint32_t> some = ofBlock(order, sorted, number);
            look(gatherer, sensors, direct, some, blocks[number]);
            progress.advance(ofAll * lookingPart / static_cast<double>(blockCount));
        });
        if (run.stop.stop_requested()) {
            return;
        }
        std::vector<Landing> landings = landingsOf(blocks);
        LightCells cells;
        double part = firstCellsPart;
        const LightCells::Options cellOptions{
            options.bounces,
            static_cast<std::size_t>(options.cellRays),
            static_cast<std::size_t>(options.linkRays),
            options.leastLinkCell,
            run.stop,
            [&](double share) { progress.advance(ofAll * part * share); }};
        const bool oneBounce = options.bounces == 1;
        for (int generation = 0; generation <= generations; ++generation) {
            if (cells.add(landings, gatherer) == 0 || run.stop.stop_requested()) {
                break;
            }
            count(blocks, cells, landings);
            landings = cells.light(gatherer, sources, cellOptions, !oneBounce);
            part = laterCellsPart;
        }
        count(blocks, cells, landings);
        landings = {};
        if (run.stop.stop_requested()) {
            return;
        }
        const LightCells::Exchange exchange = cells.exchange(gatherer, cellOptions);
        if (run.stop.stop_requested()) {
            return;
        }
        count(blocks, cells, landings);
        report.cells += cells.size();
        report.rays += cells.rays();
        report.bounces = std::max(report.bounces, exchange.bounces);
        report.beyond = std::max(report.beyond, exchange.beyond);
        report.converged = report.converged && exchange.converged;
        const std::vector<float> usual = usualLightThrown(gatherer, cells, blocks);
        tbb::parallel_for(std::size_t{0}, blockCount, [&](std::size_t number) {
            if (run.stop.stop_requested()) {
                return;
            }
            collect(gatherer, cells, usual, sensors, ofBlock(order, sorted, number),
                    blocks[number]);
            blocks[number] = {};
        });
    }

    /// Rays of the largest lattice that a sensor may have.
    std::size_t largestLattice() const {
        const double most = std::ceil(static_cast<double>(mostRays) * refinement.rays);
        return std::max(mostRays, static_cast<std::size_t>(most));
    }

    /// Takes the landings out of the blocks, which keep what they need of them.
    std::vector<Landing> landingsOf(std::vector<Block>& blocks) {
        std::size_t all = 0;
        for (const Block& block : blocks) {
            all += block.landings.size();
            report.rays += block.rays;
        }
        std::vector<Landing> landings;
        landings.reserve(all);
        for (Block& block : blocks) {
            block.cells.reserve(block.landings.size());
            for (const Landing& landing : block.landings) {
                block.cells.push_back({landing.key, 0, landing.material, landing.weight});
            }
            landings.insert(landings.end(), block.landings.begin(), block.landings.end());
            block.landings = {};
        }
        return landings;
    }

    /// Notes the memory that is taken now.
    void count(const std::vector<Block>& blocks, const LightCells& cells,
               const std::vector<Landing>& landings) {
        std::size_t bytes = cells.bytes() + landings.capacity() * sizeof(Landing) +
                            (byBin.size() + ground.size() + seen.size()) * sizeof(float);
        for (const Block& block : blocks) {
            bytes += block.bytes();
        }
        report.bytes = std::max(report.bytes, bytes);
    }

    /// Rays that a sensor's reflected light needs, of which a first few have told the reflectance
    /// of what it sees. The error that they leave in the total goes with what is shared out among
    /// them over the total, and with one over the root of those that meet something.
    double raysNeeded(float reflectance, const SensorResult& direct) const {
        const float view =
            std::clamp(1.0f - direct.skyViewFactor - direct.groundViewFactor, 0.0f, 1.0f);
        const float open = std::clamp(direct.skyViewFactor / usualSkyView, leastOpen, 1.0f);
        // The ground's shadow is found by the same rays.
        const float lit = usualLight / (1.0f - usualReturn * view * reflectance);
        const float shared = open * (view * reflectance * lit * openLight + direct.ground);
        const float whole = std::max(shared + direct.beam + direct.sky, leastShare * openLight);
        if (!(whole > 0.0f)) {
            return 0.0;
        }
        const auto share = static_cast<double>(shared / whole) / usualShare;
        const auto met = static_cast<double>(std::max(view + direct.groundViewFactor, leastView));
        return options.rays * share * share * usualView / met;
    }

    /// The kind of landings of a sensor. direct: null where it is not known.
    static std::uint32_t kindOf(const Gathered& gathered, const SensorResult* direct) {
        const float view =
            direct != nullptr
                ? 1.0f - direct->skyViewFactor - direct->groundViewFactor
                : static_cast<float>(gathered.blocked) / static_cast<float>(gathered.rays);
        return static_cast<std::uint32_t>(
            std::count_if(closedIn.begin(), closedIn.end(), [&](float one) { return view > one; }));
    }

    /// @param some the sensors of the block
    void look(const LightGatherer& gatherer, std::span<const Sensor> sensors,
              std::span<const SensorResult> direct, std::span<const std::uint32_t> some,
              Block& block) const {
        UniqueLandings unique(block.landings);
        Gathered gathered;
        const auto rays = static_cast<std::size_t>(options.rays);
        for (const std::uint32_t i : some) {
            const Sensor& sensor = sensors[i];
            gathered.clear();
            if (hasFinite(sensor.position) && hasFinite(sensor.normal)) {
                const float length = vectorLength(sensor.normal);
                const XYZf normal =
                    length > 0.0f ? scaled(sensor.normal, 1.0f / length) : XYZf{0, 0, 0};
                // A few rays tell what is seen, and with it how many it takes.
                const std::size_t few = direct.empty() ? rays : (rays + 2) / 3;
                gatherer.gather(sensor.position, normal, 0, few, gathered);
                float scattering = 0.0f;
                for (const Landing& landing : gathered.landings) {
                    scattering += landing.material == LightGatherer::groundMaterial
                                      ? 0.0f
                                      : gatherer.reflectance(landing.material);
                }
                double needed = static_cast<double>(rays);
                if (direct.empty()) {
                    const float share = scattering / static_cast<float>(rays);
                    needed *= share > mostlyReflected ? 4.0 : share > muchReflected ? 2.0 : 1.0;
                } else {
                    const float reflectance =
                        gathered.blocked > 0
                            ? std::min(scattering / static_cast<float>(gathered.blocked), 1.0f)
                            : gatherer.meanReflectance();
                    needed = raysNeeded(reflectance, direct[i]);
                }
                const std::size_t count =
                    std::clamp(static_cast<std::size_t>(needed), few, largestLattice());
                gatherer.gather(sensor.position, normal, few, count, gathered);
                // Few rays of little weight, or as many as there are of more.
                const double weight = std::min(needed / static_cast<double>(count), mostWeight);
                // Three times the distance between neighbouring rays where they land: as a cell is
                // lit at many places, finer ones gain nothing.
                const std::size_t spread = std::max(rays, count) / 2;
                LightGatherer::divide(
                    gathered, std::max<std::size_t>(length > 0.0f ? spread : spread / 4, 1),
                    options.leastCell,
                    static_cast<std::uint32_t>(std::max(weight * Landing::oneRay, 1.0)),
                    kindOf(gathered, direct.empty() ? nullptr : &direct[i]));
            }
            SensorRays known;
            known.first = static_cast<std::uint32_t>(block.found.size());
            known.rays = static_cast<std::uint16_t>(gathered.rays);
            known.blocked = static_cast<std::uint16_t>(gathered.blocked);
            for (std::size_t entry = 0; entry < gathered.found.size(); ++entry) {
                const std::uint32_t found = gathered.found[entry];
                const float* const through =
                    gathered.through.data() + entry * gatherer.seasonCount();
                if (found == Gathered::farGround) {
                    known.farGround += gatherer.meanOf(through);
                    continue;
                }
                ++known.count;
                block.found.push_back(unique.add(gathered.landings[found]));
                if (gatherer.scene().hasTranslucent()) {
                    block.through.insert(block.through.end(), through,
                                         through + gatherer.seasonCount());
                }
            }
            block.rays += gathered.rays;
            block.sensors.push_back(known);
        }
    }

    /// What the surfaces that sensors see throw back on the mean, by bin: for those few of which no
    /// ray has met any.
    std::vector<float> usualLightThrown(const LightGatherer& gatherer, const LightCells& cells,
                                        std::vector<Block>& blocks) const {
        tbb::parallel_for(std::size_t{0}, blocks.size(), [&](std::size_t number) {
            for (FoundCell& found : blocks[number].cells) {
                found.cell = cells.find(found.key);
            }
        });
        LightSum sum(sources);
        double weights = 0.0;
        for (const Block& block : blocks) {
            for (const FoundCell& found : block.cells) {
                if (found.material != LightGatherer::groundMaterial) {
                    const auto weight = static_cast<float>(found.weight);
                    weights += static_cast<double>(weight);
                    sum.add(cells, found.cell, weight * gatherer.reflectance(found.material),
                            nullptr);
                }
            }
        }
        std::vector<float> usual(bins, 0.0f);
        for (std::size_t b = 0; b < bins && weights > 0.0; ++b) {
            usual[b] = static_cast<float>(sum.of(b) / weights);
        }
        return usual;
    }

    void collect(const LightGatherer& gatherer, const LightCells& cells,
                 const std::vector<float>& usual, std::span<const Sensor> sensors,
                 std::span<const std::uint32_t> some, Block& block) {
        const float openGroundLight = gatherer.ground().light;
        LightSum surfaces(sources);
        LightSum groundNear(sources);
        for (std::size_t s = 0; s < block.sensors.size(); ++s) {
            const SensorRays& rays = block.sensors[s];
            if (rays.rays == 0) {
                continue;
            }
            surfaces.clear();
            groundNear.clear();
            float groundRays = rays.farGround;
            for (std::size_t i = 0; i < rays.count; ++i) {
                const FoundCell& found = block.cells[block.found[rays.first + i]];
                const float reflectance = gatherer.reflectance(found.material);
                const float* const through =
                    block.through.empty()
                        ? nullptr
                        : block.through.data() + (rays.first + i) * gatherer.seasonCount();
                if (found.material == LightGatherer::groundMaterial) {
                    groundRays += through != nullptr ? gatherer.meanOf(through) : 1.0f;
                    groundNear.add(cells, found.cell, reflectance, through);
                } else {
                    surfaces.add(cells, found.cell, reflectance, through);
                }
            }
            const std::uint32_t sensor = some[s];
            const bool hasNormal = vectorLength(sensors[sensor].normal) > 0.0f;
            float* const out = byBin.data() + sensor * bins;
            // A point without a surface takes light of the whole sphere: four times the mean.
            const double share = (hasNormal ? 1.0 : 4.0) / static_cast<double>(rays.rays);
            for (std::size_t b = 0; b < bins; ++b) {
                out[b] = static_cast<float>(share * surfaces.of(b));
            }
            if (hasNormal && !gatherer.scene().hasTranslucent()) {
                seen[sensor] = static_cast<float>(rays.blocked) / static_cast<float>(rays.rays);
                if (rays.blocked == 0) {
                    seen[sensor] = 1.0f; // of all that is in view
                    std::copy(usual.begin(), usual.end(), out);
                }
            }
            if (groundRays > 0.0f && openGroundLight > 0.0f) {
                double light =
                    static_cast<double>(rays.farGround) * static_cast<double>(openGroundLight);
                for (std::size_t b = 0; b < bins; ++b) {
                    light += groundNear.of(b);
                }
                ground[sensor] = static_cast<float>(light / (static_cast<double>(groundRays) *
                                                             static_cast<double>(openGroundLight)));
            }
        }
    }
};

ReflectedLight::ReflectedLight(const HourlyAnalysis& analysis, const LightScene& scene,
                               std::span<const Sensor> sensors, const ReflectionOptions& options,
                               const EvaluateOptions& run, std::span<const SensorResult> direct)
    : m_content(std::make_unique<Content>(analysis, scene, sensors, options, run, direct)) {}
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

void ReflectedLight::addTo(std::size_t sensor, SensorResult& result, SensorHours* hours,
                           std::span<SensorPart> parts) const {
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
    for (std::size_t p = 0; p < std::min(parts.size(), all.shares.size()); ++p) {
        SensorPart& part = parts[p];
        part.ground *= groundShare(sensor);
        part.reflected = 0.0f;
        for (std::size_t b = 0; b < all.bins; ++b) {
            part.reflected += scale * light[b] * all.shares[p][b];
        }
        part.total = part.beam + part.sky + part.ground + part.reflected;
    }
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
