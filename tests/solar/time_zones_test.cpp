#include <insolate/solar/solar_position.h>
#include <insolate/solar/time_zone_list.h>
#include <insolate/solar/time_zone_map.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

namespace {

const ESolarPosition anywhere;

double zoneAt(double latitude, double longitude) {
    return anywhere.determineTimeZone(ESolarPosition::convertDegreesToRadians(latitude),
                                      ESolarPosition::convertDegreesToRadians(longitude));
}

TEST(TimeZoneMap, KnownPlaces) {
    struct Place {
        double latitude, longitude, hours;
    };
    for (const Place& place :
         {Place{37.79, -122.39, -8.0}, Place{28.6, 77.2, 5.5}, Place{35.7, 51.4, 3.5},
          Place{51.5, -0.12, 0.0}, Place{48.86, 2.35, 1.0}, Place{41.9, -87.65, -6.0},
          Place{40.7, -74.0, -5.0}, Place{35.68, 139.76, 9.0}, Place{34.5, 69.2, 4.5},
          Place{-33.9, 151.2, 10.0}, Place{-31.9, 116.0, 8.0}, Place{55.75, 37.6, 3.0},
          // The date line: no run covers the easternmost columns.
          Place{0.0, 179.0, 12.0}, Place{0.0, -179.9, -11.0}, Place{60.0, -179.9, -12.0},
          // The poles read the outermost rows.
          Place{90.0, 0.0, 0.0}, Place{-90.0, 0.0, 0.0}, Place{-88.4, 100.0, 7.0}}) {
        EXPECT_EQ(zoneAt(place.latitude, place.longitude), place.hours)
            << place.latitude << ' ' << place.longitude;
    }
    EXPECT_EQ(anywhere.determineReferenceLongitudeInDegrees(0.6, -2.1), -120.0);
}

TEST(TimeZoneMap, PlacesOutsideTheWorldReadItsEdge) {
    const double infinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(anywhere.determineTimeZone(0.0, 1e30), 12.0);
    EXPECT_EQ(anywhere.determineTimeZone(infinite, 0.0), 0.0);
    EXPECT_EQ(anywhere.determineTimeZone(1.04, -infinite), -12.0);
    EXPECT_EQ(anywhere.determineTimeZone(std::nan(""), 0.0), 0.0);
    EXPECT_EQ(insolate::timeZoneOfCell(-1, 0), 12.0f);
    EXPECT_EQ(insolate::timeZoneOfCell(insolate::timeZoneMapRows, 0), 12.0f);
}

// Every row by itself: the runs fill columns 0 to 704 and hold known zones only.
TEST(TimeZoneMap, IsWellFormed) {
    using namespace insolate;
    std::set<int> zones;
    ASSERT_EQ(timeZoneMapRowStart[0], 0);
    ASSERT_EQ(timeZoneMapRowStart[timeZoneMapRows], timeZoneMapBytes);
    for (int row = 0; row < timeZoneMapRows; ++row) {
        const int bytes = timeZoneMapRowStart[row + 1] - timeZoneMapRowStart[row];
        ASSERT_EQ(bytes % 2, 0);
        ASSERT_GE(bytes, 2 * 19);
        ASSERT_LE(bytes, 2 * 39);
        int columns = 0;
        for (int at = timeZoneMapRowStart[row]; at < timeZoneMapRowStart[row + 1]; at += 2) {
            ASSERT_GT(timeZoneMapRuns[at], 0);
            columns += timeZoneMapRuns[at];
            zones.insert(timeZoneMapRuns[at + 1]);
        }
        ASSERT_EQ(columns, 706) << row;
        ASSERT_EQ(timeZoneOfCell(row, 705), 12.0f);
    }
    std::set<int> expected = {35, 45, 55, 95};
    for (int hour = -12; hour <= 12; ++hour) {
        expected.insert(10 * hour);
    }
    EXPECT_EQ(zones, expected);
}

// Far from land the map is the nautical one: bands of 15 degrees around the whole hours.
TEST(TimeZoneMap, PolarRowsAreNautical) {
    for (int column = 0; column < 705; ++column) {
        const double longitude = -180.0 + (column + 0.5) / 2.0;
        ASSERT_EQ(insolate::timeZoneOfCell(0, column), std::round(longitude / 15.0)) << longitude;
    }
}

TEST(TimeZoneList, EveryZoneIsFoundByItsMeridian) {
    for (int index = 0; index < 31; ++index) {
        const double meridian =
            static_cast<double>(insolate::timeZoneList[index].offset) * M_PI / 12;
        EXPECT_EQ(anywhere.getTimeZoneListIndex(meridian), index);
    }
    EXPECT_STREQ(insolate::timeZoneList[anywhere.getTimeZoneListIndex(0.0)].name, "GMT London");
    EXPECT_STREQ(insolate::timeZoneList[30].name, "+12:00 Aukland");
    EXPECT_TRUE(std::signbit(insolate::timeZoneList[13].offset));
}

TEST(TimeZoneList, MeridiansBetweenZonesTakeTheNextOneEast) {
    struct Case {
        double hours;
        int index;
    };
    for (const Case& one : {Case{-8.0, 4}, Case{-3.6, 9}, Case{-3.39, 10}, Case{5.65, 22},
                            Case{12.05, 0}, // beyond half a turn: folded to -11.95
                            Case{-12.5, 30}, Case{35.0, 29}, Case{-59.0, 1}, Case{1e9, 13}}) {
        EXPECT_EQ(anywhere.getTimeZoneListIndex(one.hours * M_PI / 12), one.index) << one.hours;
    }
    EXPECT_EQ(anywhere.getTimeZoneListIndex(std::nan("")), -1);
}

} // namespace
