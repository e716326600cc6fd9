#include "app/errors.h"
#include "app/input/mesh.h"
#include "app/input/sensor_grid.h"
#include "app/run/run_sun.h"
#include "app/run/solar_analysis.h"
#include "tests/app/support/study_fixture.h"
#include "tests/support/test_data.h"

#include <gmock/gmock.h>

namespace insolate::app {
namespace {

using test::StudyFolder;
using testing::HasSubstr;

SensorField pointsFacing(const std::vector<Vector3>& normals) {
    SensorField field;
    field.normals = normals;
    field.positions.resize(normals.size());
    return field;
}

/// A flat square far below: a scene that hides nothing.
Scene openScene() {
    return {{{-1, -1, -100}, {1, -1, -100}, {0, 1, -100}}};
}

struct Study {
    std::filesystem::path weather;
    double north = 0.0;
    Method method = Method::cumulativeSky;
    int threads = 1;
    StudyPeriod period = {};
    bool allowGaps = false;
    RayMethod rays = RayMethod::fast;
    const SkyVisibilityStore* stored = nullptr;
    SkyVisibilityStore* saved = nullptr;
    HourlyOptions hourly = {};
};

/// The columns by name.
class Results {
public:
    explicit Results(std::vector<ResultColumn> all) : columns(std::move(all)) {}
    const std::vector<float>& operator[](const std::string& name) const {
        const auto found = std::find_if(columns.begin(), columns.end(),
                                        [&](const ResultColumn& c) { return c.name == name; });
        return found == columns.end() ? none : found->values;
    }
    std::vector<ResultColumn> columns;

private:
    std::vector<float> none;
};

Results calculate(const Study& study, const Scene& scene, const SensorField& field) {
    SkyOptions options;
    options.weather = study.weather;
    options.method = study.method;
    options.period = study.period;
    options.allowGaps = study.allowGaps;
    options.hourly = study.hourly;
    const auto method = makeRadiationMethod(options, study.north);
    const Recentring recentring(scene, field);
    const auto masks = study.stored != nullptr ? makeStoredMasks(*study.stored, study.north)
                                               : makeRayMasks(scene, recentring, study.rays);
    Progress silent(stderr, Progress::Style::quiet);
    return Results(calculateSensors(*method,
                                    {.field = field,
                                     .recentring = recentring,
                                     .masks = *masks,
                                     .threads = study.threads,
                                     .saved = study.saved},
                                    silent));
}

/// Sun in the afternoon only, so that west and east differ.
std::string afternoonYear() {
    return test::weatherText([](int, int hour) {
        return hour > 13 && hour <= 18 ? test::HourOfWeather{600, 50} : test::HourOfWeather{0, 20};
    });
}

TEST(SolarAnalysis, NorthTurnsClockwiseFromModelY) {
    const StudyFolder folder;
    Study study{.weather = folder.write("a.epw", afternoonYear())};
    const SensorField walls = pointsFacing({{0, 1, 0}, {1, 0, 0}, {0, -1, 0}, {-1, 0, 0}});
    const auto compass = calculate(study, openScene(), walls)["total"]; // N, E, S, W
    EXPECT_GT(compass[3], 1.5f * compass[1]);
    EXPECT_GT(compass[2], 1.2f * compass[0]);
    // True north at +X: a wall that faces +Y looks west, +X north, -Y east, -X south.
    study.north = 90.0;
    const auto turned = calculate(study, openScene(), walls)["total"];
    const std::array<std::size_t, 4> looksTo = {3, 0, 1, 2};
    for (std::size_t wall = 0; wall < 4; ++wall) {
        EXPECT_NEAR(turned[wall] / compass[looksTo[wall]], 1.0, 0.01) << wall;
    }
    // A screen south of the sensor takes its sun when +Y is north, not when -Y is.
    const Scene screen{{{-50, -5, -20}, {50, -5, -20}, {0, -5, 80}}};
    const SensorField up = pointsFacing({{0, 0, 1}});
    study.north = 0.0;
    const float inShade = calculate(study, screen, up)["total"][0];
    study.north = 180.0;
    EXPECT_LT(inShade, 0.8f * calculate(study, screen, up)["total"][0]);
}

TEST(SolarAnalysis, OpenSensorsSeeWhatGeometrySays) {
    const StudyFolder folder;
    const Study study{.weather = folder.write("a.epw", test::clearYear())};
    const SensorField field = pointsFacing({{0, 0, 1}, {0, 1, 0}, {0, 0, -1}, {0, 0, 0}});
    const Results open = calculate(study, openScene(), field);
    // The sky is seen in 5-degree cells and bytes: half a percent.
    EXPECT_NEAR(open["sky_view"][0], 100.0f, 0.5f);
    EXPECT_NEAR(open["sky_view"][1], 50.0f, 0.5f);
    EXPECT_EQ(open["sky_view"][2], 0.0f);
    EXPECT_NEAR(open["sky_view"][3], 100.0f, 0.01f);
    EXPECT_GE(open["total"][2], 0.0f);
    EXPECT_GE(open["peak"][0], open["average"][0]);
}

/// The court's scene and sensors on all its faces, moved to a place.
std::pair<Scene, SensorField> courtAt(const Vector3& place) {
    const StudyFolder folder;
    Mesh mesh = importMesh(folder.write("court.obj", test::courtModel()), {});
    for (Vector3& v : mesh.vertices) {
        v = v + place;
    }
    std::pair<Scene, SensorField> result;
    appendTriangles(mesh, result.first);
    result.second = cutIntoSensors(mesh, selectFaces(mesh, {}, ""), {.spacing = 0.7}).field;
    return result;
}

TEST(SolarAnalysis, GivesTheSameBytesByAnyWay) {
    const StudyFolder folder;
    Study study{.weather = folder.write("a.epw", test::clearYear()), .north = 20.0};
    const auto [scene, field] = courtAt({0, 0, 0});
    ASSERT_GT(field.size(), 3U * 256U) << "too few blocks for two threads";
    SkyVisibilityStore store(field.size());
    study.saved = &store;
    const Results one = calculate(study, scene, field);
    study.saved = nullptr;
    const auto expectSame = [&](const Results& other, const char* way) {
        EXPECT_EQ(one["total"], other["total"]) << way;
        EXPECT_EQ(one["average"], other["average"]) << way;
        EXPECT_EQ(one["peak"], other["peak"]) << way;
        EXPECT_EQ(one["sky_view"], other["sky_view"]) << way;
    };
    study.threads = 2;
    expectSame(calculate(study, scene, field), "two threads");
    study.rays = RayMethod::octree;
    expectSame(calculate(study, scene, field), "octree");
    study.stored = &store;
    expectSame(calculate(study, scene, field), "stored masks");
    study.stored = nullptr;
    study.rays = RayMethod::fast;
    const auto [farScene, farField] = courtAt({5.0e6, -4.0e6, 2.0e3});
    expectSame(calculate(study, farScene, farField), "far from the origin");
}

TEST(SkyVisibilityStore, ComesBackFromItsFileAndRefusesAnother) {
    const StudyFolder folder;
    const Scene scene = openScene();
    const SensorField field = pointsFacing({{0, 0, 1}, {0, 1, 0}});
    const VisibilityKey key = visibilityKey(scene, field, 10.0);
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

    const auto expectRefusal = [&](const std::filesystem::path& f, const VisibilityKey& k,
                                   const char* message) {
        try {
            SkyVisibilityStore::read(f, k);
            ADD_FAILURE() << message;
        } catch (const DataError& error) {
            EXPECT_THAT(error.what(), HasSubstr(message));
        }
    };
    SensorField moved = field;
    moved.positions[1].x = 1e-9;
    expectRefusal(file, visibilityKey(scene, moved, 10.0), "another scene or other sensors");
    expectRefusal(file, visibilityKey(scene, field, 11.0), "made with --north 10");
    expectRefusal(file, visibilityKey(scene, pointsFacing({{0, 0, 1}}), 10.0),
                  "made for 2 sensors");
    std::string damaged = bytes;
    damaged[100] = static_cast<char>(damaged[100] ^ 4);
    expectRefusal(folder.write("b.masks", damaged), key, "damaged");
    expectRefusal(folder.write("b.masks", bytes.substr(0, 200)), key, "cut short");
    expectRefusal(folder.write("b.masks", bytes + "x"), key, "cut short");
    expectRefusal(folder.write("b.masks", bytes.substr(0, 20)), key, "not a mask file");
    damaged = bytes;
    damaged[8] = 2;
    expectRefusal(folder.write("b.masks", damaged), key, "has version 2");
    expectRefusal(folder.path() / "none", key, "cannot be read");
}

TEST(SolarAnalysis, MethodsPeriodsAndGapsReachTheLibrary) {
    const StudyFolder folder;
    Study study{.weather = folder.write("a.epw", test::clearYear())};
    const SensorField up = pointsFacing({{0, 0, 1}});
    const float year = calculate(study, openScene(), up)["total"][0];
    study.method = Method::perezSky;
    const float perezSky = calculate(study, openScene(), up)["total"][0];
    study.method = Method::perezPoint;
    const float perezPoint = calculate(study, openScene(), up)["total"][0];
    EXPECT_NE(year, perezSky);
    EXPECT_NE(perezSky, perezPoint);
    EXPECT_NEAR(perezPoint / year, 1.0, 0.25);

    study.method = Method::cumulativeSky;
    study.period = {.startDay = 335, .endDay = 31}; // over the new year
    const float winter = calculate(study, openScene(), up)["total"][0];
    study.period = {.startDay = 152, .endDay = 213};
    EXPECT_GT(calculate(study, openScene(), up)["total"][0], 1.5f * winter);

    // A mark for missing must not be taken for 9,999 W/m2.
    study.period = {};
    study.allowGaps = true;
    study.weather = folder.write(
        "m.epw", test::withLine(test::clearYear(), test::weatherLine(6, 5, 12), ",793,", ",9999,"));
    const Results marked = calculate(study, openScene(), up);
    EXPECT_LT(marked["peak"][0], 1000.0f);
    EXPECT_LT(marked["total"][0], year);
}

TEST(HourlyStudy, GivesTheSameBytesByAnyWayAndPartsThatAddUp) {
    const StudyFolder folder;
    Study study{.weather = folder.write("a.epw", afternoonYear()),
                .north = 20.0,
                .method = Method::hourly,
                .hourly = {.sunTolerance = 2.0}};
    const auto [scene, field] = courtAt({0, 0, 0});
    const Results one = calculate(study, scene, field);
    for (std::size_t i = 0; i < field.size(); ++i) {
        ASSERT_FLOAT_EQ(one["total"][i], one["beam"][i] + one["sky"][i] + one["ground"][i]) << i;
    }
    const auto expectSame = [&](const Results& other, const char* way) {
        for (std::size_t column = 0; column < one.columns.size(); ++column) {
            EXPECT_EQ(one.columns[column].values, other.columns[column].values)
                << way << ": " << one.columns[column].name;
        }
    };
    study.threads = 2;
    expectSame(calculate(study, scene, field), "two threads");
    study.rays = RayMethod::octree;
    expectSame(calculate(study, scene, field), "octree");
    const auto [farScene, farField] = courtAt({5.0e6, -4.0e6, 2.0e3});
    expectSame(calculate(study, farScene, farField), "far from the origin");
}

TEST(HourlyStudy, TurnsWithNorthAndTakesTheAlbedoAndGaps) {
    const StudyFolder folder;
    Study study{.weather = folder.write("a.epw", afternoonYear()), .method = Method::hourly};
    const SensorField walls = pointsFacing({{0, 1, 0}, {1, 0, 0}, {0, -1, 0}, {-1, 0, 0}});
    const auto compass = calculate(study, openScene(), walls)["total"]; // N, E, S, W
    EXPECT_GT(compass[3], 1.5f * compass[1]);
    study.north = 90.0;
    const auto turned = calculate(study, openScene(), walls)["total"];
    const std::array<std::size_t, 4> looksTo = {3, 0, 1, 2};
    for (std::size_t wall = 0; wall < 4; ++wall) {
        EXPECT_NEAR(turned[wall] / compass[looksTo[wall]], 1.0, 1e-4) << wall;
    }

    // The file's own albedo stands in field 33; the made year has none and no global radiation.
    std::string text = afternoonYear();
    for (std::size_t at = 0; (at = text.find(",0,600,50,", at)) != std::string::npos;) {
        text.replace(at, 2, ",400");
        const std::size_t end = text.find('\n', at);
        text.insert(end, ",0,0,0,0.4");
        at = end;
    }
    study.weather = folder.write("b.epw", text);
    const SensorField down = pointsFacing({{0, 0, -1}});
    const float standard = calculate(study, openScene(), down)["ground"][0];
    study.hourly.albedo = 0.3;
    EXPECT_NEAR(calculate(study, openScene(), down)["ground"][0] / standard, 1.5f, 1e-4);
    study.hourly.monthlyAlbedo = true;
    EXPECT_NEAR(calculate(study, openScene(), down)["ground"][0] / standard, 2.0f, 1e-4);

    study.weather =
        folder.write("m.epw", test::withLine(text, test::weatherLine(6, 5, 15), ",600,", ",9999,"));
    EXPECT_THROW(calculate(study, openScene(), down), DataError);
    study.allowGaps = true;
    EXPECT_LT(calculate(study, openScene(), walls)["peak"][3], 1000.0f);
}

TEST(HourlyStudy, ClosesWithTheWeatherOfChicago) {
    INSOLATE_REQUIRE_TEST_DATA(weather, "weather/chicago.epw");
    const Results open = calculate({.weather = weather, .method = Method::hourly}, openScene(),
                                   pointsFacing({{0, 0, 1}}));
    // Sums of the file's own columns [Wh/m2]; it closes to a third of a percent in itself.
    EXPECT_NEAR(open["sky"][0] / 660255.0, 1.0, 1e-5);
    EXPECT_NEAR(open["total"][0] / 1406646.0, 1.0, 5e-3);
}

TEST(SolarAnalysis, OpenHorizontalSensorInChicago) {
    INSOLATE_REQUIRE_TEST_DATA(weather, "weather/chicago.epw");
    const Results open = calculate({.weather = weather}, openScene(), pointsFacing({{0, 0, 1}}));
    // An independent calculation of the same sky gives 1.1647e6 Wh/m2; a thousandth covers the
    // bytes of the mask.
    EXPECT_NEAR(open["total"][0] / 1.1647e6, 1.0, 1e-3);
}

TEST(Sun, IsTabledByClockTime) {
    SunOptions options;
    options.latitude = 41.98;
    options.longitude = -87.92;
    options.timeZone = -6.0;
    const std::string table = sunTable(options);
    EXPECT_THAT(table, HasSubstr("41.98 N, 87.92 W, UTC-6, 21 June"));
    EXPECT_THAT(table, HasSubstr("sunrise 4:21, sunset 19:25"));
    EXPECT_THAT(table, HasSubstr("\n 12:00 "));
    EXPECT_THAT(table, testing::Not(HasSubstr("\n  2:00 ")));
    options.latitude = 80.0;
    EXPECT_THAT(sunTable(options), HasSubstr("does not set"));
    options.day = 355;
    EXPECT_THAT(sunTable(options), HasSubstr("does not rise"));
    options.latitude = 95.0;
    EXPECT_THROW(sunTable(options), UsageError);
    options.latitude.reset();
    EXPECT_THROW(sunTable(options), UsageError);
}

} // namespace
} // namespace insolate::app
