// The hourly method beside the defined default one, sensor by sensor, masks included, in one run
// whose repetitions are mixed. Ends with a table of the times and their ratios.
//
//     bench_hourly                 sensors all over the scene, by what is asked of them
//     bench_hourly neighbours      sensors in the order of a study: each by itself over together
#include <insolate/insolate.h>

#include <insolate/platform/simd.h>

#include <bench/race.h>
#include <bench/scenes.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace insolate;

constexpr std::size_t sensorCount = 400;

std::filesystem::path dataFolder() {
    const char* folder = std::getenv("INSOLATE_TEST_DATA");
    return folder != nullptr ? folder : "";
}

std::string weatherFile() {
    const std::filesystem::path chicago = dataFolder() / "weather" / "chicago.epw";
    return std::filesystem::exists(chicago) ? chicago.string() : "examples/courtyard/weather.epw";
}

/// What a sensor is asked for beyond its sums.
struct Extent {
    const char* name;
    bool peak;
    int groundRays;
    double tolerance; // of the total
};
const Extent extents[] = {
    {"sums", false, 0, 0.0},
    {"and ground rays", false, HourlyAnalysisOptions{}.groundRays, 0.0},
    {"and peak", true, HourlyAnalysisOptions{}.groundRays, 0.0},
    {"and 1 % of the total", true, HourlyAnalysisOptions{}.groundRays, 0.01},
};

const ECumulativeSky& definedSky() {
    static const ECumulativeSky sky = [] {
        EWeatherData weather;
        auto result = static_cast<ResultLoadWeatherData>(0);
        weather.loadFile_EPW(std::filesystem::path(weatherFile()).wstring(), 0, result);
        ECumulativeSky year;
        year.setLocation(41.98f, -87.92f, -90.0f);
        year.calculate(&weather);
        return year;
    }();
    return sky;
}

const HourlyAnalysis& analysis(const Extent& extent) {
    static std::map<std::string, HourlyAnalysis> made;
    const auto found = made.find(extent.name);
    if (found != made.end()) {
        return found->second;
    }
    static const WeatherReading weather = readWeatherSeries(weatherFile());
    HourlyAnalysisOptions options;
    options.peak = extent.peak;
    options.groundRays = extent.groundRays;
    options.tolerance = extent.tolerance;
    return made.emplace(extent.name, HourlyAnalysis(buildHourlySky(weather.series), options))
        .first->second;
}

/// A scene and its index, made when first asked for.
struct Place {
    std::string name;
    std::function<scenes::Scene()> make;
    scenes::Scene scene{};
    std::unique_ptr<OcclusionIndex> index{};

    const OcclusionIndex& ready() {
        if (index == nullptr) {
            scene = make();
            index = std::make_unique<OcclusionIndex>(scene.coordinates);
        }
        return *index;
    }
};

const std::string definedName = "default method";

void timeDefined(benchmark::State& state, Place& place) {
    FastRayTransparency rays(place.ready());
    ECumulativeSky sky = definedSky();
    ESolarRadiation radiation;
    EShadingMask mask;
    float results[3];
    for (auto _ : state) {
        for (std::size_t i = 0; i < place.scene.sensors.size(); ++i) {
            mask.calculate(&rays, place.scene.sensors[i], &place.scene.normals[i]);
            radiation.calculate(&sky, &mask, results);
            benchmark::DoNotOptimize(results);
        }
    }
}

void timeHourly(benchmark::State& state, Place& place, const Extent& extent) {
    FastRayTransparency rays(place.ready());
    const HourlyAnalysis& hourly = analysis(extent);
    for (auto _ : state) {
        for (std::size_t i = 0; i < place.scene.sensors.size(); ++i) {
            benchmark::DoNotOptimize(
                hourly.evaluate(rays, {place.scene.sensors[i], place.scene.normals[i]}));
        }
    }
}

/// Sums with ground and peak of sensors in the order of a study, on one thread.
void timeNeighbours(std::vector<Place>& places, const Extent& extent) {
    constexpr std::size_t runs = 2;
    constexpr std::size_t length = 512;
    const HourlyAnalysis& hourly = analysis(extent);
    std::printf("%s, %s: microseconds a sensor in the order of a study\n%-20s %8s %10s %9s %7s\n",
                simdLevelName(simdLevel()), extent.name, "scene", "grid [m]", "by itself",
                "together", "ratio");
    for (Place& place : places) {
        const OcclusionIndex& index = place.ready();
        for (const double grid : {2.0, 0.5}) {
            scenes::takeStudySensors(place.scene, grid, runs, length);
            std::vector<Sensor> sensors;
            for (std::size_t i = 0; i < place.scene.sensors.size(); ++i) {
                sensors.push_back({place.scene.sensors[i], place.scene.normals[i]});
            }
            std::vector<SensorResult> results(sensors.size());
            const std::vector<bench::Timing> timings = bench::race(
                {{"by itself",
                  [&] {
                      for (std::size_t i = 0; i < sensors.size(); ++i) {
                          results[i] = hourly.evaluate(index, sensors[i]);
                      }
                  }},
                 {"together", [&] { hourly.evaluate(index, sensors, results, {.threads = 1}); }}});
            const double each = 1e6 / static_cast<double>(sensors.size());
            std::printf("%-20s %8.1f %10.1f %9.1f %7.2f\n", place.name.c_str(), grid,
                        each * timings[0].median, each * timings[1].median,
                        timings[0].median / timings[1].median);
            std::fflush(stdout);
        }
    }
}

/// Prints the medians side by side when all is measured.
class Table : public benchmark::ConsoleReporter {
public:
    explicit Table(const std::vector<Place>& places) : m_places(places) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                m_medians[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
    }

    void Finalize() override {
        std::printf("\nMicroseconds a sensor, and over those of the %s (%s):\n",
                    definedName.c_str(), simdLevelName(simdLevel()));
        for (const Place& place : m_places) {
            const auto defined = m_medians.find(place.name + "/" + definedName);
            if (defined == m_medians.end()) {
                continue;
            }
            std::printf("%-16s %s %.1f", place.name.c_str(), definedName.c_str(),
                        defined->second / sensorCount);
            for (const Extent& extent : extents) {
                const auto hourly = m_medians.find(place.name + "/" + extent.name);
                if (hourly != m_medians.end()) {
                    std::printf(", %s %.1f (%.2f)", extent.name, hourly->second / sensorCount,
                                hourly->second / defined->second);
                }
            }
            std::printf("\n");
        }
    }

private:
    const std::vector<Place>& m_places;
    std::map<std::string, double> m_medians;
};

} // namespace

int main(int argc, char** argv) {
    std::vector<Place> places;
    places.push_back({"Lyon", [] { return scenes::lyon(dataFolder(), sensorCount); }});
    for (const std::size_t triangles : {10'000U, 100'000U, 1'000'000U}) {
        places.push_back({"city of " + std::to_string(triangles),
                          [triangles] { return scenes::city(triangles, sensorCount); }});
    }
    if (std::find(argv, argv + argc, std::string("neighbours")) != argv + argc) {
        if (!std::filesystem::exists(dataFolder() / "meshes")) {
            places.erase(places.begin());
        }
        bench::prepareRaces(argc, argv, 9);
        timeNeighbours(places, extents[2]);
        return 0;
    }
    // Mixed repetitions, so that the machine's moods fall on all alike.
    std::vector<std::string> words{argv[0], "--benchmark_enable_random_interleaving=true"};
    words.insert(words.end(), argv + 1, argv + argc);
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    const auto add = [](const std::string& name, const auto& run) {
        benchmark::RegisterBenchmark(name.c_str(), run)
            ->Unit(benchmark::kMicrosecond)
            ->Iterations(2)
            ->Repetitions(15)
            ->ReportAggregatesOnly();
    };
    for (Place& place : places) {
        if (place.name == "Lyon" && !std::filesystem::exists(dataFolder() / "meshes")) {
            continue;
        }
        add(place.name + "/" + definedName,
            [&place](benchmark::State& state) { timeDefined(state, place); });
        for (const Extent& extent : extents) {
            add(place.name + "/" + extent.name,
                [&place, &extent](benchmark::State& state) { timeHourly(state, place, extent); });
        }
    }
    Table table(places);
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return 0;
}
