// Groups of cells: what belongs together, and the sums over it.
#include "study/results/sensor_groups.h"

#include "study/output/group_table.h"
#include "study/results/cell_neighbours.h"
#include "study/results/label_column.h"
#include "study/support/errors.h"
#include "study/support/iso_time.h"
#include "tests/study/output/output_support.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <stop_token>
#include <tuple>

namespace insolate::study {
namespace {

using test::messageOf;
using test::readFile;
using testing::HasSubstr;
using GroupsTest = OutputTest;

/// A normal by tilt and compass azimuth [degrees], north along +Y.
Vector3 facing(double tilt, double azimuth) {
    const double t = tilt * std::numbers::pi / 180.0;
    const double a = azimuth * std::numbers::pi / 180.0;
    return {std::sin(t) * std::sin(a), std::sin(t) * std::cos(a), std::cos(t)};
}

/// Cells of two buildings and two materials, some without names, in every direction.
struct City {
    explicit City(std::size_t cells) {
        field.names = {"brick", "north house", "tile", "a,\"b\""};
        std::mt19937 random(5); // the seed decides all numbers below
        std::uniform_real_distribution<double> part(0.0, 1.0);
        for (std::size_t i = 0; i < cells; ++i) {
            field.positions.push_back({part(random), part(random), part(random)});
            field.normals.push_back(facing(180.0 * part(random), 360.0 * part(random)));
            CellOrigin origin{.face = static_cast<std::uint32_t>(i)};
            origin.object = i % 5 == 0 ? CellOrigin::unnamed : i % 2 == 0 ? 3U : 1U;
            origin.material = i % 3 == 0 ? 2U : 0U;
            field.origins.push_back(origin);
            areas.push_back(static_cast<float>(0.1 + part(random)));
            columns[0].values.push_back(static_cast<float>(1.0e6 * part(random)));
            columns[1].values.push_back(static_cast<float>(900.0 * part(random)));
            columns[2].values.push_back(static_cast<float>(1 + i % 8760));
        }
    }
    SensorField field;
    std::vector<float> areas;
    std::vector<ResultColumn> columns = {{"total", "Wh/m2", "", {}},
                                         {"peak", "W/m2", "", {}},
                                         {"peak_hour", "hour of year", "", {}}};
};

TEST(SensorGroups, SumMeanAndExtremesAreThoseOfTheMembers) {
    const City city(2000);
    for (const GroupBy& by :
         {GroupBy{}, GroupBy{GroupKey::object}, GroupBy{GroupKey::object, GroupKey::material},
          GroupBy{GroupKey::orientation, GroupKey::tilt}}) {
        const SensorGroups groups = groupSensors(city.field, city.columns, city.areas, by);
        std::size_t members = 0;
        for (std::size_t g = 0; g < groups.groups.size(); ++g) {
            const SensorGroup& group = groups.groups[g];
            double area = 0.0;
            double sum = 0.0;
            double highest = 0.0;
            for (std::size_t i = 0; i < city.areas.size(); ++i) {
                if (groups.groupOf[i] == g) {
                    ++members;
                    area += city.areas[i];
                    sum += static_cast<double>(city.areas[i]) * city.columns[0].values[i];
                    highest = std::max<double>(highest, city.columns[1].values[i]);
                }
            }
            EXPECT_NEAR(group.area, area, 1e-9 * area);
            EXPECT_NEAR(group.values[0].sum, sum, 1e-9 * sum);
            EXPECT_NEAR(group.values[0].mean, sum / area, 1e-9 * sum / area);
            EXPECT_EQ(group.values[1].highest, highest);
            EXPECT_EQ(city.columns[1].values[group.values[1].highestSensor], highest);
        }
        EXPECT_EQ(members, city.areas.size());
    }
    const SensorGroups objects =
        groupSensors(city.field, city.columns, city.areas, {GroupKey::object});
    ASSERT_EQ(objects.groups.size(), 3U);
    EXPECT_EQ(objects.groups[0].object, "north house"); // the first name that a cell has
    EXPECT_EQ(objects.groups[1].object, "a,\"b\"");
    EXPECT_EQ(objects.groups[2].object, "");
    EXPECT_EQ(objects.groups[2].sensors, 400U);

    std::vector<std::uint8_t> included(2000, 1);
    included[0] = 0;
    const SensorGroups fewer =
        groupSensors(city.field, city.columns, {}, {}, {.included = included});
    EXPECT_EQ(fewer.groups[0].sensors, 1999U);
    EXPECT_EQ(fewer.groups[0].area, 0.0);
    EXPECT_EQ(fewer.groupOf[0], SensorGroups::none);
}

TEST(SensorGroups, DirectionsAndSlopesFallIntoTheirClasses) {
    const struct {
        double tilt, azimuth, north;
        const char *orientation, *slope;
    } cases[] = {
        {0, 0, 0, "up", "0 to 10"},
        {10, 90, 0, "up", "0 to 10"},
        {10.1, 90, 0, "east", "10 to 20"},
        {90, 22.4, 0, "north", "80 to 100"},
        {90, 22.6, 0, "northeast", "80 to 100"},
        {90, -22.4, 0, "north", "80 to 100"},
        {30, 180, 0, "south", "20 to 40"},
        {30, 180, 45, "southeast", "20 to 40"},
        {90, 300, 0, "northwest", "80 to 100"},
        {169, 200, 0, "south", "100 to 180"},
        {170, 200, 0, "down", "100 to 180"},
    };
    for (const auto& c : cases) {
        SensorField field;
        field.positions = {{}};
        field.normals = {facing(c.tilt, c.azimuth)};
        const SensorGroups groups = groupSensors(
            field, {}, {}, {GroupKey::tilt, GroupKey::orientation}, {.north = c.north});
        EXPECT_EQ(groups.groups[0].orientation, c.orientation) << c.tilt << " " << c.azimuth;
        EXPECT_EQ(groups.groups[0].tilt, c.slope) << c.tilt;
    }
    EXPECT_EQ(orientationOf({}, 0.0), "none");
    EXPECT_EQ(orientationOf({1.0, 2.0, 0.0}, 0.0, {.sectors = 16}), "north-northeast");
    EXPECT_EQ(orientationOf({1.0, 2.0, 0.0}, 0.0, {.sectors = 4}), "north");
}

TEST(SensorGroups, KeysAndClassesAreRefusedByName) {
    EXPECT_EQ(parseGroupBy("object, tilt"), (GroupBy{GroupKey::object, GroupKey::tilt}));
    EXPECT_EQ(parseGroupBy("all"), GroupBy());
    EXPECT_EQ(groupByText({GroupKey::material, GroupKey::orientation}), "material,orientation");
    EXPECT_THAT(messageOf([] { parseGroupBy("object,materal"); }),
                testing::AllOf(HasSubstr("--by 'object,materal'"), HasSubstr("mean 'material'")));
    EXPECT_THAT(messageOf([] { parseGroupBy("tilt,tilt"); }), HasSubstr("stands there twice"));
    EXPECT_THAT(messageOf([] {
                    checkClasses({.tilts = {20, 10}});
                }),
                HasSubstr("--tilt-classes 20,10"));
}

// Two rows of unit cells, the upper one shifted by half a cell, and a wall along the lower one:
//     4   5   6        0.9 0.2 0.8
//   0   1   2   3    0.7 0.6 0.1 0.5
TEST(SensorGroups, BestAreaHangsTogetherAndThresholdsCountArea) {
    SensorField field;
    ResultColumn total{"total", "Wh/m2", "", {0.7F, 0.6F, 0.1F, 0.5F, 0.9F, 0.2F, 0.8F, 2.0F}};
    const auto level = [&](double x, double y) {
        addCell(field, {x, y, 0}, {x + 1, y, 0}, {x + 1, y + 1, 0}, {x, y + 1, 0}, {0, 0, 1});
    };
    for (int i = 0; i < 4; ++i) {
        level(i, 0.0);
    }
    for (int i = 0; i < 3; ++i) {
        level(i + 0.5, 1.0);
    }
    addCell(field, {0, 0, -1}, {1, 0, -1}, {1, 0, 0}, {0, 0, 0}, {0, -1, 0});
    const auto neighbours = neighbouringCells(field);
    using Pair = std::pair<std::uint32_t, std::uint32_t>;
    EXPECT_THAT(neighbours, testing::ElementsAre(Pair{0, 1}, Pair{0, 4}, Pair{1, 2}, Pair{1, 4},
                                                 Pair{1, 5}, Pair{2, 3}, Pair{2, 5}, Pair{2, 6},
                                                 Pair{3, 6}, Pair{4, 5}, Pair{5, 6}));
    // The same pairs beside cells a thousand times smaller, each 40 of them on the edge of cell 0.
    SensorField uneven = field;
    for (int i = 0; i < 40; ++i) {
        const double x = 0.025 * i;
        addCell(uneven, {x, -0.025, 0}, {x + 0.025, -0.025, 0}, {x + 0.025, 0, 0}, {x, 0, 0},
                {0, 0, 1});
    }
    const auto more = neighbouringCells(uneven);
    EXPECT_EQ(more.size(), neighbours.size() + 40 + 39);
    EXPECT_EQ(std::count_if(more.begin(), more.end(), [](const Pair& p) { return p.first == 0; }),
              42);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(neighbouringCells(uneven, stop.get_token()), Stopped);
    const std::vector<float> areas(8, 1.0F);
    for (const auto& [wanted, cells, sum, lowest] : {std::tuple{1.0, 1U, 2.0, 2.0},
                                                     {2.0, 2U, 1.6, 0.7},
                                                     {3.0, 3U, 2.2, 0.6},
                                                     {4.0, 6U, 3.7, 0.2},
                                                     {8.0, 0U, 0.0, 0.0}}) {
        const SensorGroups groups =
            groupSensors(field, std::span(&total, 1), areas, {},
                         {.thresholds = {0.6, 0.0}, .bestArea = wanted, .neighbours = neighbours});
        const BestArea& best = groups.groups[0].best;
        EXPECT_EQ(best.sensors, cells) << wanted;
        EXPECT_NEAR(best.sum, sum, 1e-6) << wanted;
        EXPECT_NEAR(best.lowest, lowest, 1e-6) << wanted;
        EXPECT_THAT(groups.groups[0].areaAbove, testing::ElementsAre(5.0, 8.0));
    }
}

TEST_F(GroupsTest, TableHasSumsMeansAndTheDateOfThePeak) {
    City city(0);
    city.field.positions = {{}, {}};
    city.field.normals = {{0, -1, 0}, {0, 0, 1}};
    city.field.origins = {{.object = 1}, {.object = 3}};
    city.areas = {2.0F, 0.5F};
    city.columns[0].values = {1.0e6F, 4.0e6F};
    city.columns[1].values = {500.0F, 800.0F};
    city.columns[2].values = {12.0F, 8760.0F};
    const std::vector<SensorGroups> groupings = {
        groupSensors(city.field, city.columns, city.areas, {}),
        groupSensors(city.field, city.columns, city.areas,
                     {GroupKey::object, GroupKey::orientation})};
    const auto file = written(
        "groups.csv", [&](OutputFile& out) { writeGroupsCsv(out, groupings, city.columns, -3.5); });
    EXPECT_EQ(readFile(file),
              "by,object,material,orientation,tilt,sensors,area [m2],total [MWh],"
              "total_mean [kWh/m2],total_lowest [kWh/m2],total_highest [kWh/m2],peak [W/m2],"
              "peak_start\n"
              "all,,,,,2,2.5,4,1600,1000,4000,800,2001-12-31T23:00-03:30\n"
              "\"object,orientation\",north house,,south,,1,2,2,1000,1000,1000,500,"
              "2001-01-01T11:00-03:30\n"
              "\"object,orientation\",\"a,\"\"b\"\"\",,up,,1,0.5,2,4000,4000,4000,800,"
              "2001-12-31T23:00-03:30\n");
    EXPECT_TRUE(isOurGroupsCsv(file));
    EXPECT_FALSE(isOurGroupsCsv(own.write("other.csv", "by,object\n")));
}

} // namespace
} // namespace insolate::study
