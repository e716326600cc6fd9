// Skies, points and readers: the plain definitions beside the vector code, in one run.
#include <insolate/insolate.h>

#include <insolate/platform/simd.h>
#include <insolate/shading/shading_mask.h>
#include <insolate/sky/all_weather_cells.h>
#include <insolate/sky/all_weather_cells_vector.h>
#include <insolate/sky/sky_on_mask.h>
#include <insolate/sky/tilted_surface_period.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace {

namespace skyGrid = insolate::skyGrid;

std::filesystem::path weatherFile() {
    const char* folder = std::getenv("INSOLATE_TEST_DATA");
    const std::filesystem::path chicago =
        std::filesystem::path(folder != nullptr ? folder : "") / "weather/chicago.epw";
    return std::filesystem::exists(chicago) ? chicago : "examples/courtyard/weather.epw";
}

EWeatherData& weather() {
    static EWeatherData loaded = [] {
        EWeatherData data;
        auto result = static_cast<ResultLoadWeatherData>(0);
        data.loadFile_EPW(weatherFile().wstring(), 0, result);
        return data;
    }();
    return loaded;
}

/// A whole year at 0.1 h in Chicago.
ECumulativeSky yearSky() {
    ECumulativeSky sky;
    sky.setLocation(41.98f, -87.92f, -90.0f);
    return sky;
}

void loadEpw(benchmark::State& state) {
    EWeatherData data;
    const std::wstring file = weatherFile().wstring();
    for (auto _ : state) {
        auto result = static_cast<ResultLoadWeatherData>(0);
        benchmark::DoNotOptimize(data.loadFile_EPW(file, 0, result));
    }
}
BENCHMARK(loadEpw)->Unit(benchmark::kMillisecond);

void plainSkyYear(benchmark::State& state) {
    for (auto _ : state) {
        ECumulativeSky sky = yearSky();
        benchmark::DoNotOptimize(sky.calculate(&weather()));
    }
}
BENCHMARK(plainSkyYear)->Unit(benchmark::kMillisecond);

void perezSkyYear(benchmark::State& state) {
    for (auto _ : state) {
        ECumulativeSky sky = yearSky();
        benchmark::DoNotOptimize(sky.calculateUsingPerez(&weather()));
    }
}
BENCHMARK(perezSkyYear)->Unit(benchmark::kMillisecond);

/// One step's distribution; the counter is the time for each booked step and cell.
template <typename Distribute>
void perezStep(benchmark::State& state, const Distribute& distribute) {
    float cells[skyGrid::cellCount];
    insolate::AllWeatherStep sky = insolate::allWeatherStep(100, 0.7, 0.4, 80.0, 700.0);
    for (auto _ : state) {
        sky.trigAngle += 1.0e-4;
        benchmark::DoNotOptimize(distribute(sky, cells));
    }
    state.counters["per_cell"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * skyGrid::cellCount,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void perezStepPlain(benchmark::State& state) {
    perezStep(state, [](const insolate::AllWeatherStep& sky, float(&cells)[skyGrid::cellCount]) {
        return insolate::distributeAllWeather(sky, 0.0, cells);
    });
}
BENCHMARK(perezStepPlain);

void perezStepVector(benchmark::State& state) {
    const auto level = static_cast<insolate::SimdLevel>(state.range(0));
    const insolate::SimdLevel before = insolate::simdLevel();
    if (!insolate::setSimdLevel(level)) {
        state.SkipWithError("this processor lacks the level");
        return;
    }
    state.SetLabel(insolate::simdLevelName(level));
    perezStep(state, [](const insolate::AllWeatherStep& sky, float(&cells)[skyGrid::cellCount]) {
        return insolate::distributeAllWeatherVector(sky, 0.0, cells);
    });
    insolate::setSimdLevel(before);
}
BENCHMARK(perezStepVector)->Apply([](benchmark::internal::Benchmark* b) {
    for (const insolate::SimdLevel level : insolate::availableSimdLevels()) {
        b->Arg(static_cast<int>(level));
    }
});

/// A surface tilted to the south-east under a sky that a street's skyline leaves open.
struct TiltedPoint {
    TiltedPoint() {
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
            const int skyline = azimuth * 31 % 17 / 3 + (azimuth % 36 < 20 ? 4 : 0);
            for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
                mask.setExposureValue(azimuth, altitude, altitude < skyline ? 0.0f : 1.0f);
                mask.setIncidenceValue(azimuth, altitude,
                                       static_cast<float>((azimuth * 5 + altitude) % 37) / 37.0f);
            }
        }
    }

    XYZf normal{0.5f, -0.5f, 0.7f};
    EShadingMask mask;
    insolate::TiltedSurface surface{0.2, 0.0, 0.71, 0.70, 0.9, 1.0, 0.8};
};

void perezPointPlain(benchmark::State& state) {
    const ECumulativeSky sky = yearSky();
    const TiltedPoint point;
    const insolate::PointSteps& steps = insolate::pointSteps(weather(), sky);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            insolate::integrateOnSurfacePlain(steps, point.surface, point.normal, point.mask));
    }
}
BENCHMARK(perezPointPlain)->Unit(benchmark::kMillisecond);

/// Per further point, through the public operation: the steps are kept from the first.
void perezPoint(benchmark::State& state) {
    ECumulativeSky sky = yearSky();
    TiltedPoint point;
    float results[3];
    ESolarRadiation radiation;
    radiation.calculateUsingPerez(&weather(), &sky, &point.mask, point.normal, {}, results);
    for (auto _ : state) {
        radiation.calculateUsingPerez(&weather(), &sky, &point.mask, point.normal, {}, results);
        benchmark::DoNotOptimize(results);
    }
}
BENCHMARK(perezPoint)->Unit(benchmark::kMillisecond);

void radiationAtPoint(benchmark::State& state) {
    ECumulativeSky sky = yearSky();
    sky.calculate(&weather());
    TiltedPoint point;
    float results[3];
    ESolarRadiation radiation;
    for (auto _ : state) {
        radiation.calculate(&sky, &point.mask, results);
        benchmark::DoNotOptimize(results);
    }
}
BENCHMARK(radiationAtPoint)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
