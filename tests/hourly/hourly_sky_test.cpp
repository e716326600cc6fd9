#include <insolate/hourly/hourly_sky.h>

#include <insolate/platform/simd.h>
#include <insolate/weather/all_weather_luminance.h>

#include <tests/hourly/made_weather.h>
#include <tests/support/test_data.h>

#include <gtest/gtest.h>

#include <numeric>

namespace insolate {
namespace {

using test::degree;
using test::Vector;

double sum(const std::vector<float>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

/// Direct and diffuse sums of a sky on an open surface, from its cells.
struct OnSurface {
    double beam = 0.0;
    double sky = 0.0;
};

OnSurface onOpenSurface(const HourlySky& sky, const Vector& normal) {
    OnSurface light;
    const SkyCells cells(sky.options.northOffset);
    for (std::size_t i = 0; i < sky.diffuse.size(); ++i) {
        const Vector moment{cells.momentX[i], cells.momentY[i], cells.momentZ[i]};
        light.sky += sky.diffuse[i] * std::max(test::product(moment, normal), 0.0);
    }
    for (const SunCell& sun : sky.sunCells) {
        const Vector energy{sun.energy.x, sun.energy.y, sun.energy.z};
        light.beam += std::max(test::product(energy, normal), 0.0);
    }
    return light;
}

TEST(SkyCells, CoverTheHemisphere) {
    const SkyCells cells(0.3);
    EXPECT_NEAR(sum(cells.solidAngle), 2.0 * std::numbers::pi, 1e-5);
    EXPECT_NEAR(sum(cells.momentZ), std::numbers::pi, 1e-5);
    EXPECT_NEAR(sum(cells.momentX), 0.0, 1e-5);
    EXPECT_NEAR(sum(cells.momentY), 0.0, 1e-5);
}

TEST(HourlySky, KeepsTheSumsOfTheFourCities) {
    for (const char* file : {"weather/amsterdam.epw", "weather/chicago.epw", "weather/mannheim.epw",
                             "weather/tokyo.epw"}) {
        INSOLATE_REQUIRE_TEST_DATA(path, file);
        const WeatherReading reading = readWeatherSeries(path);
        EXPECT_EQ(reading.hoursWithoutRadiation, 0);
        const WeatherSeries& weather = reading.series;
        const HourlySky sky = buildHourlySky(weather);
        ASSERT_TRUE(sky.valid);
        EXPECT_EQ(sky.hours, 8760.0);
        EXPECT_NEAR(sky.daylightHours, 4430.0, 60.0); // refraction adds to the half
        const HourlySkyReport& report = sky.report;
        EXPECT_NEAR(report.directNormal + report.directWithoutSun, sum(weather.directNormal), 1.0);
        const double extra = report.diffuseHorizontal - sum(weather.diffuseHorizontal);
        EXPECT_GE(extra, -0.5);
        EXPECT_LE(extra, report.diffuseWithoutSun + 0.5);
        EXPECT_NEAR(report.globalHorizontal, sum(weather.globalHorizontal), 1.0);

        const OnSurface horizontal = onOpenSurface(sky, {0, 0, 1});
        EXPECT_NEAR(horizontal.sky / report.diffuseHorizontal, 1.0, 1e-5) << file;
        EXPECT_NEAR(horizontal.beam / report.directHorizontal, 1.0, 1e-5) << file;
        // What the sun's place and the file's direct radiation give closes with the file's global.
        EXPECT_NEAR((horizontal.sky + horizontal.beam) / report.globalHorizontal, 1.0, 0.01)
            << file;
        // The hours hold the same energy as the period.
        double hours = 0.0;
        double beams = 0.0;
        for (const SkyHour& hour : sky.skyHours) {
            hours += hour.diffuse;
        }
        for (const BeamPart& part : sky.beams) {
            beams += part.energy.z;
        }
        EXPECT_NEAR(hours / report.diffuseHorizontal, 1.0, 1e-5);
        EXPECT_NEAR(beams / report.directHorizontal, 1.0, 1e-5);
    }
}

// The sky's table of the sun's factor against exp and acos, cell by cell, over hours of all kinds.
TEST(HourlySky, EqualsThePlainLuminance) {
    const Site site{41.98, -87.92, -6.0, 0.0};
    // Month, day, hour, direct and diffuse
    const int cases[][5] = {{6, 21, 12, 900, 90}, {6, 21, 12, 5, 300},   {6, 21, 12, 120, 350},
                            {3, 20, 8, 500, 80},  {12, 21, 15, 100, 40}, {12, 21, 7, 1, 4},
                            {9, 5, 10, 300, 200}, {9, 5, 10, 700, 200},  {6, 1, 4, 90, 10}};
    for (const auto& [month, day, hour, directHere, diffuseHere] : cases) {
        std::vector<float> direct(hoursPerYear, 0.0f), diffuse = direct;
        const int k = dayIndex(month, day) * 24 + hour;
        direct[static_cast<std::size_t>(k)] = static_cast<float>(directHere);
        diffuse[static_cast<std::size_t>(k)] = static_cast<float>(diffuseHere);
        const HourlySky sky = buildHourlySky(makeWeatherSeries(site, direct, diffuse).series);

        const std::vector<SunPosition> suns = test::sunsOfHour(site, k, 10);
        ASSERT_FALSE(suns.empty());
        Vector mean{0, 0, 0};
        for (const SunPosition& sun : suns) {
            const Vector s = test::vectorOf(sun);
            mean = {mean[0] + s[0], mean[1] + s[1], mean[2] + s[2]};
        }
        const double rate = 10.0 / static_cast<double>(suns.size());
        const double zenith = std::acos(mean[2] / std::sqrt(test::product(mean, mean)));
        const AllWeatherSky model =
            allWeatherSky(directHere * rate, diffuseHere * rate, zenith, suns.front().distance);
        std::vector<double> plain(skyGrid::cellCount, 0.0);
        double horizontal = 0.0;
        const SkyCells cells(0.0);
        for (int i = 0; i < skyGrid::cellCount; ++i) {
            const int band = i / skyGrid::azimuthCount;
            const Vector centre =
                test::direction(i % skyGrid::azimuthCount * 5.0 + 2.5, band * 5.0 + 2.5);
            double gradation = 0.0;
            double weight = 0.0;
            for (int part = 0; part < 50; ++part) {
                const double altitude = (band * 5.0 + 0.05 + part * 0.1) * degree;
                gradation += std::cos(altitude) * horizonFactor(model, std::sin(altitude));
                weight += std::cos(altitude);
            }
            double& value = plain[static_cast<std::size_t>(i)];
            for (const SunPosition& sun : suns) {
                value += gradation / weight *
                         sunFactor(model, std::acos(test::product(centre, test::vectorOf(sun))));
            }
            horizontal += value * cells.momentZ[static_cast<std::size_t>(i)];
        }
        for (std::size_t i = 0; i < plain.size(); ++i) {
            const double expected = plain[i] / horizontal * diffuseHere;
            EXPECT_NEAR(sky.diffuse[i], expected, 2e-3 * expected + 2e-4)
                << month << ' ' << hour << ' ' << i;
        }
        for (const SimdLevel level : availableSimdLevels()) {
            setSimdLevel(level);
            EXPECT_EQ(buildHourlySky(makeWeatherSeries(site, direct, diffuse).series).patchRadiance,
                      sky.patchRadiance)
                << simdLevelName(level);
        }
    }
}

// The beam of walls and tilts, at each sub-step's own sun.
TEST(HourlySky, GivesOpenWallsAndTiltsTheirBeam) {
    const Site site{41.98, -87.92, -6.0, 201.0};
    WeatherSeries weather = test::clearYear(site);
    for (std::size_t k = 0; k < hoursPerYear; ++k) {
        weather.directNormal[k] *= k % 24 < 12 ? 0.5f : 1.0f;
    }
    const HourlySky sky = buildHourlySky(weather, {}, {.stepsPerHour = 4});
    for (const Vector& normal : {test::direction(0, 0), test::direction(90, 0),
                                 test::direction(205, 0), test::direction(280, 50)}) {
        double beam = 0.0;
        for (int k = 0; k < hoursPerYear; ++k) {
            const std::vector<SunPosition> suns = test::sunsOfHour(site, k, 4);
            for (const SunPosition& sun : suns) {
                beam += static_cast<double>(weather.directNormal[static_cast<std::size_t>(k)]) *
                        std::max(test::product(normal, test::vectorOf(sun)), 0.0) /
                        static_cast<double>(suns.size());
            }
        }
        // A cell that the surface's plane cuts loses a little.
        EXPECT_NEAR(onOpenSurface(sky, normal).beam / beam, 1.0, normal[1] == 1.0 ? 0.02 : 0.003);
    }
}

TEST(HourlySky, AddsUpOverPartsOfThePeriod) {
    const WeatherSeries weather = test::clearYear({35.7, 139.8, 9.0, 6.0});
    HourlySkyOptions options;
    options.stepsPerHour = 4;
    const auto sums = [&](const AnalysisPeriod& period) {
        const HourlySky sky = buildHourlySky(weather, period, options);
        return std::array<double, 4>{sky.hours, sky.report.directNormal,
                                     sky.report.diffuseHorizontal,
                                     onOpenSurface(sky, {0.6, 0, 0.8}).sky};
    };
    const std::array<double, 4> year = sums({});
    const auto expectTogether = [&](const AnalysisPeriod& a, const AnalysisPeriod& b) {
        const auto first = sums(a);
        const auto second = sums(b);
        for (std::size_t i = 0; i < year.size(); ++i) {
            EXPECT_GT(first[i], 0.0);
            // The parts of an hour are scaled to their own energy each.
            EXPECT_NEAR(first[i] + second[i], year[i], (i == 3 ? 1e-4 : 1e-5) * year[i]) << i;
        }
    };
    expectTogether({1, 100, 0, 24}, {101, 365, 0, 24});
    expectTogether({300, 30, 0, 24}, {31, 299, 0, 24});         // over new year
    expectTogether({1, 365, 9.5, 15.25}, {1, 365, 15.25, 9.5}); // over midnight, parts of hours
    EXPECT_EQ(sums({172, 172, 12.0, 12.0})[0], 1.0);            // an instant is its hour
    // In summer time the hours lie one earlier, those after midnight in their own date.
    EXPECT_EQ(sums({100, 200, 9.0, 17.0, 100, 200}), sums({100, 200, 8.0, 16.0}));
    EXPECT_EQ(sums({300, 30, 9.0, 17.0, 290, 40}), sums({300, 30, 8.0, 16.0}));
    EXPECT_EQ(sums({100, 200, 0.5, 4.0, 1, 365}), sums({100, 200, 23.5, 3.0}));
    const auto mixed = sums({100, 200, 9.0, 17.0, 150, 170});
    const auto before = sums({100, 149, 9.0, 17.0});
    const auto within = sums({150, 170, 8.0, 16.0});
    const auto after = sums({171, 200, 9.0, 17.0});
    for (std::size_t i = 0; i < mixed.size(); ++i) {
        EXPECT_NEAR(mixed[i], before[i] + within[i] + after[i], 1e-5 * mixed[i]) << i;
    }
}

TEST(HourlySky, PlacesEnergyWithoutSunAndCountsIt) {
    std::vector<float> direct(hoursPerYear, 0.0f), diffuse = direct, global = direct;
    direct[1] = 10.0f; // an hour after midnight in winter
    diffuse[1] = 4.0f;
    global[1] = 5.0f;
    direct[12] = std::nanf("");
    diffuse[12] = 100.0f;
    global[12] = std::nanf("");
    const HourlySky sky =
        buildHourlySky(makeWeatherSeries({50.0, 0.0, 0.0, 0.0}, direct, diffuse, global).series);
    EXPECT_EQ(sky.report.hoursWithoutSun, 1);
    EXPECT_DOUBLE_EQ(sky.report.directWithoutSun, 10.0);
    EXPECT_DOUBLE_EQ(sky.report.diffuseWithoutSun, 5.0);
    EXPECT_EQ(sky.report.hoursMissing, 1);
    EXPECT_NEAR(onOpenSurface(sky, {0, 0, 1}).sky, 105.0, 1e-3);
    EXPECT_NEAR(sky.groundReflected, 0.2 * 105.0, 1e-9);
    EXPECT_FALSE(buildHourlySky(WeatherSeries{}).valid);
}

TEST(HourlySky, TakesTheYearAndTheAirOfTheHour) {
    WeatherSeries weather = test::clearYear({-22.5, -68.0, -4.0, 4000.0});
    const auto onGround = [&](int year) {
        return buildHourlySky(weather, {}, {.year = year}).report.directHorizontal;
    };
    const double usual = onGround(0); // 2001, air of 4,000 m
    const double of1988 = onGround(1988);
    EXPECT_NE(of1988, usual);
    weather.year.assign(hoursPerYear, 1988);
    EXPECT_EQ(onGround(0), of1988);
    weather.pressure.assign(hoursPerYear, static_cast<float>(standardPressure(4000.0)));
    EXPECT_NEAR(onGround(2001) / usual, 1.0, 1e-9);
    weather.pressure.assign(hoursPerYear, 101325.0f);
    EXPECT_NE(onGround(2001), usual);
}

// Of the hour of sunrise a period that ends before the sun has nothing, the rest all.
TEST(HourlySky, SharesTheHourOfSunriseByTheSunsTime) {
    const WeatherSeries weather = test::clearYear({42.0, -90.0, -6.0, 0.0});
    const double hour = std::floor(sunTimes(2001, 2, 1, weather.site).rise); // 7:09, standard time
    const auto diffuse = [&](double start, double end) {
        return buildHourlySky(weather, {32, 32, start, end}).report.diffuseHorizontal;
    };
    EXPECT_EQ(diffuse(hour, hour + 0.1), 0.0);
    EXPECT_EQ(diffuse(hour + 0.5, hour + 1.0) + diffuse(hour, hour + 0.5),
              diffuse(hour, hour + 1.0));
    EXPECT_GT(diffuse(hour, hour + 0.5), 0.0);
}

TEST(HourlySky, IsTheSameOnAllThreads) {
    const WeatherSeries weather = test::clearYear({35.7, 139.8, 9.0, 6.0});
    const HourlySky alone = buildHourlySky(weather);
    const HourlySky together = buildHourlySky(weather, {}, {}, SkyThreads::all);
    EXPECT_EQ(alone.diffuse, together.diffuse);
    EXPECT_EQ(alone.patchRadiance, together.patchRadiance);
}

TEST(HourlySky, RunsAnywhere) {
    // Poles, polar circle, both sides of the date line, equator, half and quarter zones.
    for (const Site& site : {Site{90, 0, 0, 0}, Site{-90, 0, 12, 2800}, Site{67, 25, 2, 0},
                             Site{-18, 179.9, 12, 0}, Site{-14, -171.8, 13, 0}, Site{0, 32, 3, 0},
                             Site{28.6, 77.2, 5.5, 200}, Site{27.7, 85.3, 5.75, 1300}}) {
        SCOPED_TRACE(site.latitude);
        HourlySkyOptions options;
        options.stepsPerHour = 2;
        const WeatherSeries weather = test::clearYear(site);
        const HourlySky sky = buildHourlySky(weather, {}, options);
        for (const float value : sky.diffuse) {
            ASSERT_TRUE(std::isfinite(value) && value >= 0.0f);
        }
        EXPECT_NEAR(sky.daylightHours, 4450.0, 150.0);
        const OnSurface horizontal = onOpenSurface(sky, {0, 0, 1});
        EXPECT_NEAR(horizontal.sky / sum(weather.diffuseHorizontal), 1.0, 1e-4);
        for (const SunCell& sun : sky.sunCells) {
            EXPECT_NEAR(std::hypot(sun.direction.x, sun.direction.y, sun.direction.z), 1.0, 1e-5);
        }
        if (std::abs(site.latitude) == 90.0) { // the sun goes round: every wall gets the same
            EXPECT_NEAR(onOpenSurface(sky, {1, 0, 0}).beam / onOpenSurface(sky, {0, 1, 0}).beam,
                        1.0, 0.005);
        }
    }
}

} // namespace
} // namespace insolate
