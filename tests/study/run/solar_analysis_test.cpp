#include "study/model/mesh.h"
#include "study/model/selection.h"
#include "study/model/sensor_grid.h"
#include "study/run/calculate_sensors.h"
#include "study/run/run_sun.h"
#include "study/run/solar_analysis.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"
#include "tests/support/test_data.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <mutex>
#include <numbers>
#include <set>
#include <thread>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::messageOf;
using testing::HasSubstr;

SensorField pointsFacing(const std::vector<Vector3>& normals) {
    SensorField field;
    field.normals = normals;
    field.positions.resize(normals.size());
    return field;
}

const SensorField up = pointsFacing({{0, 0, 1}});
const SensorField walls = pointsFacing({{0, 1, 0}, {1, 0, 0}, {0, -1, 0}, {-1, 0, 0}}); // N E S W

/// A flat triangle far below: a scene that hides nothing.
const Scene openScene = {{{-1, -1, -100}, {1, -1, -100}, {0, 1, -100}}};

/// The court's scene and sensors on all its faces, moved to a place.
std::pair<Scene, SensorField> courtAt(const Vector3& place) {
    const test::StudyFolder folder;
    Mesh mesh = importMesh(folder.write("court.obj", test::courtModel()), {});
    for (Vector3& v : mesh.vertices) {
        v = v + place;
    }
    Scene scene;
    appendTriangles(mesh, scene);
    return {scene,
            cutIntoSensors(mesh, selectFaces(mesh, {}, 0.0, "").faces, {.spacing = 0.7}).field};
}

/// Sun in the afternoon only, so that west and east differ.
std::string afternoonYear() {
    return test::weatherText([](int hour) {
        return hour > 13 && hour <= 18 ? test::HourOfWeather{600, 50} : test::HourOfWeather{0, 20};
    });
}

/// The afternoon's hours with global radiation and, in field 33, an albedo.
std::string withGroundLight(std::string text) {
    for (std::size_t at = 0; (at = text.find(",0,600,50,", at)) != std::string::npos;) {
        text.replace(at, 2, ",400");
        at = text.find('\n', at);
        text.insert(at, ",0,0,0,0.4");
    }
    return text;
}

using Results = std::map<std::string, std::vector<float>>;

class StudyTest : public testing::Test {
protected:
    StudyTest() { options.method = "cumulative-sky"; }

    void takeWeather(const std::string& text) { options.weather = folder.write("a.epw", text); }

    std::vector<ResultColumn> columns(const Scene& scene, const SensorField& field) {
        const auto method = makeRadiationMethod(options, north);
        const Recentring recentring(scene, field);
        const auto masks = stored != nullptr
                               ? makeStoredMasks(*stored, north)
                               : makeRayMasks(scene, recentring, rays, {}, method->processScene());
        return calculateSensors(
            *method, {.field = field, .recentring = recentring, .masks = *masks, .saved = saved},
            threads, nullptr, progress, progress.stop.get_token());
    }
    std::size_t enclosed(const Scene& scene, const SensorField& field) {
        const std::vector<ResultColumn> results = columns(scene, field);
        const std::vector<float> enclosed =
            enclosedSensors(*makeRadiationMethod(options, north), results, field);
        return static_cast<std::size_t>(std::count(enclosed.begin(), enclosed.end(), 1.0f));
    }
    Results calculate(const Scene& scene, const SensorField& field) {
        Results results;
        for (const ResultColumn& column : columns(scene, field)) {
            results[column.name] = column.values;
        }
        return results;
    }
    float open(const char* column, const SensorField& field = up, std::size_t sensor = 0) {
        return calculate(openScene, field)[column][sensor];
    }

    /// Who has calculated; and a stop, after the last sensor where it is asked for.
    struct Watch final : Progress {
        void advance(std::size_t) override {
            const std::lock_guard lock(mutex);
            threads.insert(std::this_thread::get_id());
        }
        void end() override { stopsLate&& stop.request_stop(); }
        std::mutex mutex;
        std::set<std::thread::id> threads;
        bool stopsLate = false;
        std::stop_source stop;
    };

    test::StudyFolder folder;
    SkyOptions options;
    Watch progress;
    double north = 0.0;
    int threads = 1;
    RayMethod rays = RayMethod::fast;
    const SkyVisibilityStore* stored = nullptr;
    SkyVisibilityStore* saved = nullptr;
};

TEST_F(StudyTest, ScenesOfCentimetresGiveWhatBuildingsGive) {
    takeWeather(test::clearYear());
    const auto [scene, field] = courtAt({});
    const auto shrunk = [](std::vector<Vector3> points) {
        for (Vector3& p : points) {
            p = p * 0.01;
        }
        return points;
    };
    const Scene small = {shrunk(scene.vertices)};
    SensorField smallField = field;
    smallField.positions = shrunk(field.positions);
    for (const char* method : {"hourly", "cumulative-sky"}) {
        options.method = method;
        for (const RayMethod way : {RayMethod::fast, RayMethod::octree}) {
            rays = way;
            const std::vector<float> wanted = calculate(scene, field)["total"];
            const std::vector<float> got = calculate(small, smallField)["total"];
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                EXPECT_NEAR(got[i] / wanted[i], 1.0, 1e-3) << method << ' ' << i;
            }
        }
    }
}

TEST_F(StudyTest, NorthTurnsClockwiseFromModelY) {
    takeWeather(afternoonYear());
    for (const auto& [method, tolerance] :
         {std::pair{"cumulative-sky", 0.01}, std::pair{"hourly", 1e-4}}) {
        options.method = method;
        north = 0.0;
        const auto compass = calculate(openScene, walls)["total"];
        EXPECT_GT(compass[3], 1.5f * compass[1]);
        EXPECT_GT(compass[2], 1.2f * compass[0]);
        // True north at +X: a wall that faces +Y looks west, +X north, -Y east, -X south.
        north = 90.0;
        const auto turned = calculate(openScene, walls)["total"];
        const std::array<std::size_t, 4> looksTo = {3, 0, 1, 2};
        for (std::size_t wall = 0; wall < 4; ++wall) {
            EXPECT_NEAR(turned[wall] / compass[looksTo[wall]], 1.0, tolerance) << wall;
        }
        // A screen south of the sensor takes its sun when +Y is north, not when -Y is.
        const Scene screen{{{-50, -5, -20}, {50, -5, -20}, {0, -5, 80}}};
        north = 0.0;
        const float inShade = calculate(screen, up)["total"][0];
        north = 180.0;
        EXPECT_LT(inShade, 0.8f * calculate(screen, up)["total"][0]);
    }
}

TEST_F(StudyTest, OpenSensorsSeeWhatGeometrySays) {
    takeWeather(test::clearYear());
    const Results seen =
        calculate(openScene, pointsFacing({{0, 0, 1}, {0, 1, 0}, {0, 0, -1}, {0, 0, 0}}));
    EXPECT_FALSE(std::signbit(seen.at("total")[2])) << "downwards";
    // The sky is seen in 5-degree cells and bytes: half a percent.
    EXPECT_THAT(seen.at("sky_view"),
                testing::Pointwise(testing::FloatNear(0.5f), {100.0f, 50.0f, 0.0f, 100.0f}));
    EXPECT_GE(seen.at("peak")[0], seen.at("average")[0]);
}

TEST_F(StudyTest, CountsEnclosedSensorsByViewNotByLight) {
    takeWeather(test::clearYear());
    options.period = {.startDay = 1, .endDay = 1, .startHour = 0.0, .endHour = 2.0, .step = 0.5};
    auto [court, field] = courtAt({0, 0, 0});
    field.normals.insert(field.normals.end(), {{0, 0, -1}, {0, 1, 0}, {0.02, 0, 1}, {0, 0, 0}});
    field.positions.insert(field.positions.end(), 4, {-5, -5, 5}); // outside, in the dark
    Scene box = court;
    for (const Vector3& corner : std::initializer_list<Vector3>{
             {0, 0, 10}, {10, 0, 10}, {10, 10, 10}, {0, 0, 10}, {10, 10, 10}, {0, 10, 10}}) {
        box.vertices.push_back(corner);
    }
    for (const std::string method : {"hourly", "cumulative-sky", "perez-point"}) {
        options.method = method;
        EXPECT_EQ(enclosed(court, field), 0U) << method;
        EXPECT_EQ(enclosed(box, field), field.size() - 4) << method;
    }
}

TEST_F(StudyTest, GivesTheSameBytesByAnyWay) {
    takeWeather(afternoonYear());
    north = 20.0;
    const auto [scene, field] = courtAt({0, 0, 0});
    const auto [farScene, farField] = courtAt({5.0e6, -4.0e6, 2.0e3});
    ASSERT_GT(field.size(), 3U * 256U) << "too few blocks for two threads";
    SkyVisibilityStore store(field.size());
    options.hourly.sunTolerance = 2.0;
    for (const std::string method : {"cumulative-sky", "hourly"}) {
        options.method = method;
        const bool isHourly = method == "hourly";
        threads = 1;
        rays = RayMethod::fast;
        saved = isHourly ? nullptr : &store;
        progress.threads.clear();
        Results one = calculate(scene, field);
        EXPECT_EQ(progress.threads.size(), 1U) << "one was asked for";
        saved = nullptr;
        for (std::size_t i = 0; isHourly && i < field.size(); ++i) {
            ASSERT_FLOAT_EQ(one["total"][i], one["beam"][i] + one["sky"][i] + one["ground"][i]);
        }
        threads = 2;
        EXPECT_EQ(calculate(scene, field), one) << "two threads";
        EXPECT_EQ(calculate(farScene, farField), one) << "far from the origin";
        rays = RayMethod::octree;
        EXPECT_EQ(calculate(scene, field), one) << "octree";
        stored = isHourly ? nullptr : &store;
        EXPECT_EQ(calculate(scene, field), one) << "stored masks";
        stored = nullptr;
    }
}

TEST_F(StudyTest, TrianglesRememberTheRayOfEachSensorApart) {
    takeWeather(test::clearYear());
    rays = RayMethod::octree;
    // In the way of one cell's ray alone, so that no other ray comes between two sensors' rays.
    const Scene speck = {{{480, 440, 737}, {520, 440, 737}, {498, 480, 737}}};
    const std::vector<float> seen =
        calculate(speck, pointsFacing({{0, 0, 1}, {0, 0, 1}}))["sky_view"];
    EXPECT_LT(seen[0], open("sky_view"));
    EXPECT_EQ(seen[1], seen[0]);
}

TEST_F(StudyTest, HourlyOptionsChangeTheResults) {
    takeWeather(withGroundLight(afternoonYear()));
    options.method = "hourly";
    options.period = {.startDay = 172, .endDay = 172};
    EXPECT_EQ(open("peak_hour"), 171.0f * 24.0f + 14.0f) << "the first hour of direct sun";
    EXPECT_NEAR(open("sky_view", walls), 50.0f, 0.5f);
    EXPECT_NEAR(open("ground_view", walls), 50.0f, 0.5f);
    auto [scene, field] = courtAt({0, 0, 0});
    EXPECT_EQ(calculate(scene, field)["ground"].back(), 0.0f);
    options.hourly.openGround = true;
    const SensorField last = pointsFacing({field.normals.back()});
    const float unhidden = open("ground", last);
    EXPECT_GT(unhidden, 100.0f);
    EXPECT_EQ(calculate(scene, field)["ground"].back(), unhidden);
    // Percent: half of one comes close to what the finest splits give, a hundred split nothing.
    for (const auto& [tolerance, part] :
         {std::pair{&HourlyOptions::skyTolerance, "sky"}, {&HourlyOptions::sunTolerance, "beam"}}) {
        const auto at = [&, &field = field, &scene = scene, toleranceOf = tolerance,
                         column = part](double percent) {
            options.hourly.*toleranceOf = percent;
            return calculate(scene, field)[column];
        };
        const std::vector<float> finest = at(0.02);
        const auto errorOf = [&](const std::vector<float>& values) {
            double sum = 0.0;
            for (std::size_t i = 0; i < values.size(); ++i) {
                sum += std::abs(static_cast<double>(values[i] - finest[i]));
            }
            return sum;
        };
        EXPECT_LT(errorOf(at(0.5)), 0.8 * errorOf(at(100.0))) << part;
        options.hourly.*tolerance = 0.0;
    }
}

TEST_F(StudyTest, PagesOfTheSkyHoldTheWeathersRadiation) {
    takeWeather(test::weatherText([](int hour) {
        return hour > 8 && hour <= 16 ? test::HourOfWeather{500, 100} : test::HourOfWeather{};
    }));
    options.period = {.startDay = 152, .endDay = 181};
    for (const std::string method : {"hourly", "perez-sky"}) {
        options.method = method;
        const SkyPages pages = makeRadiationMethod(options, 0.0)->skyPages();
        double normal = 0.0;
        double level = 0.0;
        for (std::size_t cell = 0; cell < pages.whole.values.size(); ++cell) {
            const double altitude = (static_cast<double>(cell / 72) + 0.5) * 5.0;
            const double diffuse = static_cast<double>(pages.parts[1].values[cell]);
            normal += static_cast<double>(pages.whole.values[cell]) - diffuse;
            level += diffuse * std::sin(altitude * std::numbers::pi / 180.0);
        }
        EXPECT_NEAR(normal / (30.0 * 8.0 * 500.0), 1.0, 0.01) << method;
        EXPECT_NEAR(level / (30.0 * 8.0 * 100.0), 1.0, 0.01) << method;
    }
}

TEST_F(StudyTest, EndsWithoutResultsAfterALateStopAndRefusesASecondScene) {
    takeWeather(afternoonYear());
    progress.stopsLate = true;
    EXPECT_THROW(calculate(openScene, up), Stopped);
    const auto first = makeRadiationMethod(options, 0.0);
    EXPECT_THAT(messageOf([&] { (void)makeRadiationMethod(options, 0.0); }),
                HasSubstr("another study uses them"));
    // The octree's triangles are the process's as well; the study that holds them may take both.
    rays = RayMethod::octree;
    const Recentring recentring(openScene, up);
    const auto octree = makeRayMasks(openScene, recentring, rays, {}, first->processScene());
    options.method = "hourly";
    EXPECT_THAT(messageOf([&] { (void)calculate(openScene, up); }),
                HasSubstr("another study uses them"));
    EXPECT_NO_THROW((void)makeRadiationMethod(options, 0.0));
}

TEST_F(StudyTest, TakesFinishedSensorsOverAndCalculatesTheOthers) {
    takeWeather(test::clearYear());
    const SensorField field = pointsFacing(std::vector<Vector3>(300, {0, 0, 1}));
    const auto method = makeRadiationMethod(options, north);
    std::vector<ResultColumn> left = method->columns();
    for (ResultColumn& column : left) {
        column.values.assign(field.size(), -7.0f);
    }
    PartialResults stopped(folder.path(), {}, false);
    constexpr std::size_t block = 4; // a sixty-fourth of the sensors
    stopped.attach(left, nullptr, block);
    std::this_thread::sleep_for(PartialResults::interval);
    stopped.finish(0);
    stopped.detach();
    PartialResults resumed(folder.path(), {}, true);
    const Recentring recentring(openScene, field);
    const auto masks = makeRayMasks(openScene, recentring, rays, {});
    const std::vector<float> total =
        calculateSensors(*method, {.field = field, .recentring = recentring, .masks = *masks}, 1,
                         &resumed, progress, {})[0]
            .values;
    EXPECT_EQ(total[block - 1], -7.0f);
    EXPECT_GT(total[block], 0.0f);
}

TEST(SkyVisibilityStore, ComesBackFromItsFileAndRefusesAnother) {
    const test::StudyFolder folder;
    const SensorField field = pointsFacing({{0, 0, 1}, {0, 1, 0}});
    const VisibilityKey key = visibilityKey(openScene, field, 10.0);
    SkyVisibilityStore store(2);
    EShadingMask mask;
    store.set(0, mask);
    for (const int band : {0, 3, 17}) {
        mask.setExposureValue(71, band, 0.0f);
    }
    store.set(1, mask);
    const auto file = folder.path() / "a.masks";
    {
        OutputFile out(file, "a.masks");
        store.write(out, key);
        out.finish();
    }
    const std::string bytes = test::readFile(file);
    EXPECT_EQ(bytes.size(), 56U + 2U * 162U + 8U);
    const SkyVisibilityStore back = SkyVisibilityStore::read(file, key);
    EXPECT_EQ(back.visibleSky(0), SkyCellSet::all());
    EXPECT_EQ(back.visibleSky(1).count(), 1293);
    EXPECT_FALSE(back.visibleSky(1).contains(71, 17));
    EXPECT_TRUE(back.visibleSky(1).contains(0, 17));

    SensorField moved = field;
    moved.positions[1].x = 1e-9;
    for (const auto& [wanted, message] :
         {std::pair{visibilityKey(openScene, moved, 10.0), "another scene or other sensors"},
          std::pair{visibilityKey(openScene, field, 11.0), "made with --north 10"},
          std::pair{visibilityKey(openScene, up, 10.0), "made for 2 sensors"}}) {
        EXPECT_THAT(messageOf([&, k = wanted] { SkyVisibilityStore::read(file, k); }),
                    HasSubstr(message));
    }
    const auto changed = [&](std::size_t at, int bits) {
        return std::string(bytes).replace(at, 1, 1, static_cast<char>(bytes[at] ^ bits));
    };
    for (const auto& [content, message] :
         {std::pair{changed(100, 4), "damaged"}, std::pair{bytes.substr(0, 200), "cut short"},
          std::pair{bytes + "x", "cut short"}, std::pair{bytes.substr(0, 20), "not a mask file"},
          std::pair{changed(8, 3), "has version 2"}}) {
        const auto other = folder.write("b.masks", content);
        EXPECT_THAT(messageOf([&] { SkyVisibilityStore::read(other, key); }), HasSubstr(message));
    }
}

TEST_F(StudyTest, MethodsPeriodsAndGapsReachTheLibrary) {
    takeWeather(test::clearYear());
    const float year = open("total");
    options.method = "perez-sky";
    const float perezSky = open("total");
    options.method = "perez-point";
    const float perezPoint = open("total");
    EXPECT_NE(year, perezSky);
    EXPECT_NE(perezSky, perezPoint);
    EXPECT_NEAR(perezPoint / year, 1.0, 0.25);

    options.method = "cumulative-sky";
    options.period = {.startDay = 335, .endDay = 31}; // over the new year
    const float winter = open("total");
    options.period = {.startDay = 152, .endDay = 213};
    EXPECT_GT(open("total"), 1.5f * winter);

    // A mark for missing must not be taken for 9,999 W/m2, nor 66,400 for the 864 W/m2 that the
    // store's 16 bits make of it. Of the year's end the store keeps 31 December alone.
    options.period = {};
    const auto atNoon = [](std::string text, const std::string& part, const std::string& with) {
        text = test::withLine(text, test::weatherLine(6, 5, 12), part, with);
        return test::withLine(text, test::weatherLine(12, 31, 12), part, with);
    };
    const std::string dark = atNoon(test::clearYear(), ",793,118", ",0,0");
    for (const std::string method : {"cumulative-sky", "hourly"}) {
        options.method = method;
        options.allowGaps = true;
        takeWeather(dark);
        const float withoutNoons = open("total");
        for (const char* mark : {"9999,0", "66400,0", "0,99999"}) {
            options.allowGaps = false;
            takeWeather(atNoon(dark, ",300,0,0,0", std::string(",300,0,") + mark));
            EXPECT_THAT(messageOf([&] { open("total"); }), HasSubstr("radiation is missing"));
            options.allowGaps = true;
            EXPECT_EQ(open("total"), withoutNoons) << mark;
        }
    }
}

TEST_F(StudyTest, TheGroundTakesTheAlbedo) {
    takeWeather(withGroundLight(afternoonYear()));
    options.method = "hourly";
    const SensorField down = pointsFacing({{0, 0, -1}});
    const float standard = open("ground", down);
    options.hourly.albedo = 0.3;
    EXPECT_NEAR(open("ground", down) / standard, 1.5f, 1e-4);
    options.hourly.monthlyAlbedo = true;
    EXPECT_NEAR(open("ground", down) / standard, 2.0f, 1e-4);
}

TEST_F(StudyTest, OpenHorizontalSensorInChicago) {
    INSOLATE_REQUIRE_TEST_DATA(weather, "weather/chicago.epw");
    options.weather = weather;
    // An independent calculation of the same sky; a thousandth covers the bytes of the mask.
    EXPECT_NEAR(open("total") / 1.1647e6, 1.0, 1e-3);
    // Sums of the file's own columns [Wh/m2]; it closes to a third of a percent in itself.
    options.method = "hourly";
    EXPECT_NEAR(open("sky") / 660255.0, 1.0, 1e-5);
    EXPECT_NEAR(open("total") / 1406646.0, 1.0, 5e-3);
}

TEST(Sun, IsTabledByClockTime) {
    SunOptions options;
    options.latitude = 41.98;
    options.longitude = -87.92;
    options.timeZone = -6.0;
    const std::string table = sunTable(options);
    for (const char* part :
         {"41.98 N, 87.92 W, UTC-6, 21 June 2001\n", "sunrise 4:16, sunset 19:31", "\n   12:00 "}) {
        EXPECT_THAT(table, HasSubstr(part)); // the times of almanacs
    }
    EXPECT_THAT(table, testing::Not(HasSubstr("\n    2:00 ")));
    options.day = 60; // by years, 1 March is up to 0.3 degrees of declination apart
    EXPECT_THAT(sunTable(options), HasSubstr("\n   12:00          40.67 "));
    options.year = 2024;
    EXPECT_THAT(sunTable(options), HasSubstr("1 March 2024\n"));
    EXPECT_THAT(sunTable(options), HasSubstr("\n   12:00          40.84 "));
    options.year = 2051;
    EXPECT_THAT(messageOf([&] { sunTable(options); }), HasSubstr("from 1950 to 2050, not in 2051"));
    options.year = SunOptions::usualYear;
    options.day = 172;
    // Fine steps have times of their own; the first row's centre lies half a sun below the horizon.
    options.step = 0.01;
    EXPECT_THAT(sunTable(options), testing::ContainsRegex("\n +4:16:48 +-0\\.1[^\n]*\n +4:17:24 "));
    // The texts agree with each other.
    for (options.day = 1; options.day <= 365; options.day += 13) {
        const std::string day = sunTable(options);
        std::array<int, 9> t{};
        ASSERT_EQ(std::sscanf(day.c_str() + day.find("# sunrise"),
                              "# sunrise %d:%d:%d, sunset %d:%d:%d, daylight %d:%d:%d", &t[0],
                              &t[1], &t[2], &t[3], &t[4], &t[5], &t[6], &t[7], &t[8]),
                  9);
        EXPECT_EQ((t[3] - t[0] - t[6]) * 3600 + (t[4] - t[1] - t[7]) * 60 + t[5] - t[2] - t[8], 0);
    }
    options.day = 172;
    // By a clock far from the sun the day's light lasts into the next date.
    options.timeZone = 8.0;
    EXPECT_THAT(sunTable(options), HasSubstr("sunset 9:30:44 of the day after"));
    EXPECT_THAT(sunTable(options), testing::ContainsRegex("\n +9:30:36 [^\n]*\n *18:16:48 "));
    options.timeZone.reset(); // the map of time zones knows it
    EXPECT_THAT(sunTable(options), HasSubstr("\n# UTC-6 is from the built-in map"));
    options.latitude = 70.0;
    EXPECT_THAT(sunTable(options), HasSubstr("does not set"));
    options.day = 355;
    EXPECT_THAT(sunTable(options), HasSubstr("does not rise"));
    options.latitude = 95.0;
    EXPECT_THAT(messageOf([&] { sunTable(options); }), HasSubstr("is not on earth"));
    options.latitude.reset();
    EXPECT_THAT(messageOf([&] { sunTable(options); }), HasSubstr("give --lat and --lon"));
}

} // namespace
} // namespace insolate::study
