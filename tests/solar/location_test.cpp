#include "../support/keep_global_site.h"

#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

namespace {

double toRadians(double degrees) {
    return ESolarPosition::convertDegreesToRadians(degrees);
}

TEST(Location, StartsAtTheDefaultSite) {
    const ESolarPosition& site = ESolarPosition::Global;
    EXPECT_STREQ(site.name, "17 Quarry Ln, WestHollows, ZZ !DEFAULT!");
    EXPECT_NEAR(site.getLatitudeInDegrees(), 37.79408, 1e-5);
    EXPECT_NEAR(site.getLongitudeInDegrees(), -122.39509, 1e-5);
    EXPECT_NEAR(site.getTimeZone(), -8.0, 1e-12);
    EXPECT_DOUBLE_EQ(site.getTimeZoneDifference(), -0.1596726666666664);
    EXPECT_EQ(site.getLocalTime(), 12.0);
    EXPECT_EQ(site.getDayOfTheYear(), 91);
    EXPECT_EQ(site.getYear(), 2007);
    EXPECT_FALSE(site.getLimitToDayTimeOnly());
}

TEST(Location, IsHeldOffThePolesAndWithinTheDateLine) {
    ESolarPosition site;
    for (const double side : {1.0, -1.0}) {
        site.setLatitudeInRadians(side * toRadians(90.0));
        EXPECT_EQ(site.getLatitudeInRadians(), side * 1.5550883635269477);
        EXPECT_EQ(site.isSouthernHemisphere(), side < 0.0);
        site.setLongitudeInRadians(side * toRadians(200.0));
        EXPECT_EQ(site.getLongitudeInRadians(), side * 3.141592653589793);
    }
}

TEST(Location, TimeZoneAndItsDifferenceFollowTheMeridian) {
    ESolarPosition site;
    site.setTimeZone(5.5);
    EXPECT_NEAR(site.getReferenceLongitudeInDegrees(), 82.5, 1e-12);
    site.setLongitudeInRadians(toRadians(77.2));
    EXPECT_NEAR(site.getTimeZoneDifference(), (77.2 - 82.5) * 4.0 / 60.0, 1e-12);
    // Without a meridian it comes from the map, by way of the single-precision value of pi.
    site.setLocation(toRadians(28.6), toRadians(77.2));
    EXPECT_EQ(site.getReferenceLongitudeInRadians(), 5.5 * 15.0 / 180.0 * 3.1415927410125732);
}

TEST(Location, IsTakenFromARecordAndFromAnotherPosition) {
    ETerrestrialLocation record;
    std::strcpy(record.name, "Reykjavik");
    record.latitude = toRadians(64.15);
    record.longitude = toRadians(-21.94);
    record.northOffset = 0.25;
    record.daylightSaving = 1;

    ESolarPosition first;
    first.setYear(1999);
    first.setDayOfTheYear(200, 8.0);
    first.setLocation(&record);
    EXPECT_STREQ(first.name, "Reykjavik");
    EXPECT_EQ(first.getLatitudeInRadians(), record.latitude);
    EXPECT_EQ(first.getReferenceLongitudeInRadians(), 0.0);
    EXPECT_EQ(first.getNorthOffset(), 0.25);
    EXPECT_EQ(first.daylightSaving, 1);
    EXPECT_EQ(first.getDayOfTheYear(), 200);

    // Computed fields agree with a position that was set up the long way.
    ESolarPosition second;
    second.setLimitToDayTimeOnly(true);
    second.setLocation(&first, 0, -1.0);
    EXPECT_EQ(second.getYear(), 2007);
    EXPECT_TRUE(second.getLimitToDayTimeOnly());
    second.setYear(1999);
    EXPECT_EQ(second.getSolarAltitudeInRadians(), first.getSolarAltitudeInRadians());
    EXPECT_EQ(second.getTrigAngleInRadians(), first.getTrigAngleInRadians());
    EXPECT_EQ(second.getSunriseTime(), first.getSunriseTime());

    const struct {
        int day;
        double time;
        int dayAfter;
        double timeAfter;
    } cases[] = {
        {365, 0.0, 365, 0.0}, {366, 23.9, 200, 23.9}, {1, 24.0, 1, 8.0}, {-3, -0.1, 200, 8.0}};
    for (const auto& [day, time, dayAfter, timeAfter] : cases) {
        ESolarPosition third;
        third.setLocation(&first, day, time);
        EXPECT_EQ(third.getDayOfTheYear(), dayAfter);
        EXPECT_EQ(third.getLocalTime(), timeAfter);
    }

    const ESolarPosition before = second;
    second.setLocation(static_cast<const ETerrestrialLocation*>(nullptr));
    second.setLocation(static_cast<const ESolarPosition*>(nullptr));
    second.setLocation(nullptr, 10, 10.0);
    second.setName(nullptr);
    EXPECT_EQ(std::memcmp(&before, &second, sizeof(before)), 0);
}

TEST(Location, NamesAreCutToFit) {
    ESolarPosition site;
    site.setName(std::string(80, 'x').c_str());
    EXPECT_EQ(std::string(site.name), std::string(49, 'x'));
    site.setName(site.name + 40);
    EXPECT_EQ(std::string(site.name), std::string(9, 'x'));
}

TEST(Location, TheSharedSiteMovesWhateverObjectIsAsked) {
    const insolate::test::KeepGlobalSite keep;
    ESolarPosition other;
    other.setGlobalLocation(0.5f, 1.0f, 1.25f);
    EXPECT_EQ(ESolarPosition::Global.getLatitudeInRadians(), 0.5);
    EXPECT_EQ(ESolarPosition::Global.getReferenceLongitudeInRadians(), 1.25);
    EXPECT_NE(other.getLatitudeInRadians(), 0.5);
}

TEST(Location, DistanceIsGreatCircle) {
    ESolarPosition site;
    site.setLocation(toRadians(10.0), toRadians(20.0), 0.0);
    // Here, a degree north, over the pole to the other side of the parallel, and the antipode.
    const double cases[][3] = {{10, 20, 0}, {11, 20, 1}, {10, -160, 160}, {-10, -160, 180}};
    for (const auto& [latitude, longitude, arc] : cases) {
        EXPECT_NEAR(site.calculateDistanceFrom(toRadians(latitude), toRadians(longitude)),
                    toRadians(arc) * 6.371e6, 1.0);
    }
}

} // namespace
