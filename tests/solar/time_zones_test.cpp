#include <insolate/solar/solar_position.h>
#include <insolate/solar/time_zone_list.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

const ESolarPosition anywhere;

double zoneAt(double latitude, double longitude) {
    return anywhere.determineTimeZone(ESolarPosition::convertDegreesToRadians(latitude),
                                      ESolarPosition::convertDegreesToRadians(longitude));
}

TEST(TimeZoneMap, KnownPlaces) {
    // The last six: at the date line no run covers the easternmost columns; the poles read the
    // outermost rows.
    const double places[][3] = {
        {37.79, -122.39, -8.0}, {28.6, 77.2, 5.5},    {35.7, 51.4, 3.5},    {51.5, -0.12, 0.0},
        {48.86, 2.35, 1.0},     {41.9, -87.65, -6.0}, {35.68, 139.76, 9.0}, {34.5, 69.2, 4.5},
        {-33.9, 151.2, 10.0},   {-31.9, 116.0, 8.0},  {0.0, 179.0, 12.0},   {0.0, -179.9, -11.0},
        {60.0, -179.9, -12.0},  {90.0, 0.0, 0.0},     {-90.0, 0.0, 0.0},    {-88.4, 100.0, 7.0}};
    for (const auto& [latitude, longitude, hours] : places) {
        EXPECT_EQ(zoneAt(latitude, longitude), hours) << latitude << ' ' << longitude;
    }
    EXPECT_EQ(anywhere.determineReferenceLongitudeInDegrees(0.6, -2.1), -120.0);
}

TEST(TimeZoneMap, PlacesOutsideTheWorldReadItsEdge) {
    const double infinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(anywhere.determineTimeZone(0.0, 1e30), 12.0);
    EXPECT_EQ(anywhere.determineTimeZone(infinite, 0.0), 0.0);
    EXPECT_EQ(anywhere.determineTimeZone(1.04, -infinite), -12.0);
    EXPECT_EQ(anywhere.determineTimeZone(std::nan(""), 0.0), 0.0);
}

TEST(TimeZoneList, MeridiansTakeTheirZoneOrTheNextOneEast) {
    const auto indexAt = [](double hours) {
        return anywhere.getTimeZoneListIndex(hours * M_PI / 12);
    };
    for (int index = 0; index < 31; ++index) {
        EXPECT_EQ(indexAt(static_cast<double>(insolate::timeZoneList[index].offset)), index);
    }
    EXPECT_STREQ(insolate::timeZoneList[indexAt(0.0)].name, "GMT London");
    EXPECT_STREQ(insolate::timeZoneList[30].name, "+12:00 Aukland");
    EXPECT_TRUE(std::signbit(insolate::timeZoneList[13].offset));
    // Beyond half a turn they are folded: 12.05 to -11.95.
    const double cases[][2] = {{-3.6, 9},  {-3.39, 10}, {5.65, 22}, {12.05, 0}, {-12.5, 30},
                               {35.0, 29}, {-59.0, 1},  {1e9, 13},  {-1e9, 13}};
    for (const auto& [hours, index] : cases) {
        EXPECT_EQ(indexAt(hours), index) << hours;
    }
    EXPECT_EQ(indexAt(std::nan("")), -1);
}

} // namespace
