#include "../support/keep_global_site.h"

#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <climits>
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

TEST(Location, IsHeldWithinTheWorldAndItsTimeZoneFollowsTheMeridian) {
    ESolarPosition site;
    for (const double side : {1.0, -1.0}) {
        site.setLatitudeInRadians(side * toRadians(90.0));
        EXPECT_EQ(site.getLatitudeInRadians(), side * 1.5550883635269477);
        EXPECT_EQ(site.isSouthernHemisphere(), side < 0.0);
        site.setLongitudeInRadians(side * toRadians(200.0));
        EXPECT_EQ(site.getLongitudeInRadians(), side * 3.141592653589793);
    }
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
    first.setDayOfTheYear(200, 8.0);
    first.setLocation(&record);

    // Day and time asked for and taken; those outside the year and the day are the other's.
    const double cases[][4] = {
        {365, 0.0, 365, 0.0}, {366, 23.9, 200, 23.9}, {1, 24.0, 1, 8.0}, {0, -0.1, 200, 8.0}};
    ESolarPosition second;
    for (const auto& [day, time, dayAfter, timeAfter] : cases) {
        second.setLocation(&first, static_cast<int>(day), time);
        EXPECT_EQ(second.getDayOfTheYear(), dayAfter);
        EXPECT_EQ(second.getLocalTime(), timeAfter);
    }
    EXPECT_EQ(second.getSolarAltitudeInRadians(), first.getSolarAltitudeInRadians());
    EXPECT_EQ(second.getSunriseTime(), first.getSunriseTime());
    EXPECT_STREQ(second.name, "Reykjavik");
    EXPECT_EQ(second.getLatitudeInRadians(), record.latitude);
    EXPECT_EQ(second.getReferenceLongitudeInRadians(), 0.0);
    EXPECT_EQ(second.getNorthOffset(), 0.25);
    EXPECT_EQ(second.daylightSaving, 1);

    const ESolarPosition before = second;
    second.setLocation(static_cast<const ETerrestrialLocation*>(nullptr));
    second.setLocation(static_cast<const ESolarPosition*>(nullptr));
    second.setLocation(nullptr, 10, 10.0);
    second.setName(nullptr);
    EXPECT_EQ(std::memcmp(&before, &second, sizeof(before)), 0);
    first.setYear(1999);
    first.setLimitToDayTimeOnly(true); // neither goes over
    second.setLocation(&first);
    EXPECT_EQ(second.getYear(), 2007);
    EXPECT_FALSE(second.getLimitToDayTimeOnly());
}

TEST(Location, NamesAreCutAndTheSharedSiteMovesWhateverObjectIsAsked) {
    const insolate::test::KeepGlobalSite keep;
    ESolarPosition site;
    site.setName(std::string(80, 'x').c_str());
    EXPECT_EQ(std::string(site.name), std::string(49, 'x'));
    site.setName(site.name + 40);
    EXPECT_EQ(std::string(site.name), std::string(9, 'x'));
    site.setGlobalLocation(0.5f, 1.0f, 1.25f);
    EXPECT_EQ(ESolarPosition::Global.getLatitudeInRadians(), 0.5);
    EXPECT_EQ(ESolarPosition::Global.getReferenceLongitudeInRadians(), 1.25);
    EXPECT_NE(site.getLatitudeInRadians(), 0.5);
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

const ESolarPosition calendar;

TEST(Calendar, EveryDayOfTheYearReturnsFromItsMonthAndDay) {
    for (int day = 1; day <= 365; ++day) {
        ESolarPosition::ESolarDayAndTime date;
        calendar.calculateMonthAndDay(day, date);
        ASSERT_EQ(date.time, 12.0);
        ASSERT_GE(date.day, 1);
        ASSERT_LE(date.day, calendar.getMonthDayCount(date.month));
        // 31 December shares day 364 with the 30th.
        ASSERT_EQ(calendar.getDayOfTheYear(date.month, date.day), day == 365 ? 364 : day);
    }
}

TEST(Calendar, ImpossibleDatesAreHeldWithinTheCalendar) {
    const int days[][3] = {{11, 31, 364}, {0, -5, 0}, {12, 1, 0}, {11, INT_MAX, 364}, {-1, 1, 0}};
    for (const auto& [month, day, dayOfYear] : days) {
        EXPECT_EQ(calendar.getDayOfTheYear(month, day), dayOfYear) << month << ' ' << day;
    }
    // Day and month, what is written back, and the day of the year.
    int writtenBack[][5] = {
        {30, 1, 28, 1, 59}, {0, -3, 1, 0, 1}, {31, 12, 31, 11, 364}, {31, 3, 30, 3, 120}};
    for (auto& [day, month, dayAfter, monthAfter, dayOfYear] : writtenBack) {
        EXPECT_EQ(calendar.getDayOfTheYear(&day, &month), dayOfYear);
        EXPECT_EQ(day, dayAfter);
        EXPECT_EQ(month, monthAfter);
    }
    const int dates[][3] = {{32, 1, 1}, {59, 28, 1}, {60, 1, 2}, {1000, 31, 11}, {-4, -4, 0}};
    for (const auto& [dayOfYear, dayAfter, monthAfter] : dates) {
        int day = 99;
        int month = 99;
        EXPECT_EQ(calendar.getDate(dayOfYear, &day, &month), dayOfYear);
        EXPECT_EQ(day, dayAfter) << dayOfYear;
        EXPECT_EQ(month, monthAfter) << dayOfYear;
    }
    EXPECT_STREQ(calendar.getMonthName(11), "December");
    for (const int outside : {-1, 12, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(calendar.getMonthName(outside), "");
        EXPECT_EQ(calendar.getMonthDayCount(outside), 0);
    }
}

TEST(Calendar, GenericWeekBeginsOnTheFirstOfJanuary) {
    const int expected[][2] = {
        {1, 0}, {5, 4},  {6, 5},   {7, 6},
        {8, 0}, {0, -1}, {-7, -1}, {INT_MIN, -3}}; // -(2^31 + 1) = -7 * 306783378 - 3
    for (const auto& [day, dayOfWeek] : expected) {
        EXPECT_EQ(calendar.getGenericDayOfTheWeek(day), dayOfWeek);
        EXPECT_EQ(calendar.isGenericWeekDay(day), dayOfWeek < 5);
    }
}

} // namespace
