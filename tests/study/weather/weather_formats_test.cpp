// One clear year, written in each format as its description says, read back: what falls on level
// and upright surfaces in the open must be the same whatever the format's labels and zones.
#include "study/support/errors.h"
#include "study/weather/weather_year.h"
#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

#include <array>
#include <numbers>

namespace insolate::study {
namespace {

using test::StudyFolder;
using testing::HasSubstr;

// West of Greenwich, in a half-hour zone.
constexpr Site stJohns{47.56, -52.71, -3.5, 140.0};

struct Radiation {
    double direct = 0.0, diffuse = 0.0, horizontal = 0.0; // horizontal: of the direct, on the level
};

/// A clear sky at an hour of the year 2001 by the site's clock.
Radiation at(const Site& site, double hour) {
    const SunPosition sun = sunPosition(julianDay(2001, 1, 1, hour - site.timeZone), site);
    if (sun.altitude <= 0.0) {
        return {};
    }
    const double sine = std::sin(sun.altitude);
    const double direct = 900.0 * std::exp(-0.12 / (sine + 0.02));
    return {direct, 110.0 * std::pow(sine, 0.7), direct * sine};
}

/// The mean from one hour of the year to another.
Radiation mean(const Site& site, double from, double to) {
    constexpr int parts = 12;
    Radiation sum;
    for (int part = 0; part < parts; ++part) {
        const Radiation now = at(site, from + (part + 0.5) / parts * (to - from));
        sum.direct += now.direct / parts;
        sum.diffuse += now.diffuse / parts;
        sum.horizontal += now.horizontal / parts;
    }
    return sum;
}

std::string epw(const Site& site) {
    std::string text = fmt::format("LOCATION,Town,-,TST,made,0,{},{},{},{}\n", site.latitude,
                                   site.longitude, site.timeZone, site.elevation);
    for (int k = 0; k < hoursPerYear; ++k) {
        const MonthAndDay date = monthAndDay(k / 24);
        const Radiation r = mean(site, k, k + 1);
        text += fmt::format("2001,{},{},{},60,?,20,10,50,100000,0,0,300,{:.1f},{:.1f},{:.1f},0\n",
                            date.month, date.day, k % 24 + 1, r.horizontal + r.diffuse, r.direct,
                            r.diffuse);
    }
    return text;
}

/// @param shift of the hour's label from the middle of the step that the row holds
std::string wea(const Site& site, int perHour = 1, double shift = 0.0, int unit = 1,
                const std::string& meridian = {}, bool onlyDays = false) {
    std::string text =
        fmt::format("place Town_Test\nlatitude {}\nlongitude {}\ntime_zone {}\nsite_elevation {}\n"
                    "weather_data_file_units {}\n",
                    site.latitude, -site.longitude,
                    meridian.empty() ? fmt::format("{}", -15.0 * site.timeZone) : meridian,
                    site.elevation, unit);
    for (int step = 0; step < hoursPerYear * perHour; ++step) {
        const double begin = static_cast<double>(step) / perHour;
        const double end = static_cast<double>(step + 1) / perHour;
        const int day = static_cast<int>(begin / 24.0);
        const MonthAndDay date = monthAndDay(day);
        const Radiation r = mean(site, begin, end);
        if (onlyDays && r.diffuse == 0.0) {
            continue;
        }
        text += fmt::format("{} {} {:.3f} {:.1f} {:.1f}\n", date.month, date.day,
                            0.5 * (begin + end) - day * 24.0 + shift,
                            unit == 1   ? r.direct
                            : unit == 2 ? r.horizontal
                                        : r.direct * 100.0,
                            unit == 3 ? r.diffuse * 125.0 : r.diffuse);
    }
    return text;
}

std::string tmy3(const Site& site) {
    std::string text =
        fmt::format("724666,\"TOWN, A\",CO,{:.1f},{},{},{}\n"
                    "Date (MM/DD/YYYY),Time (HH:MM),ETR (W/m^2),GHI (W/m^2),GHI source,"
                    "DNI (W/m^2),DHI (W/m^2),Dry-bulb (C),Pressure (mbar),Alb (unitless)\n",
                    site.timeZone, site.latitude, site.longitude, site.elevation);
    for (int k = 0; k < hoursPerYear; ++k) {
        const MonthAndDay date = monthAndDay(k / 24);
        const Radiation r = mean(site, k, k + 1);
        text += fmt::format("{:02}/{:02}/2001,{:02}:00,0,{:.1f},1,{:.1f},{:.1f},20.5,850,0.25\n",
                            date.month, date.day, k % 24 + 1, r.horizontal + r.diffuse, r.direct,
                            r.diffuse);
    }
    return text;
}

/// @param firstMinute of the hour's moments
std::string psm(const Site& site, int perHour, int firstMinute, const char* localZone) {
    std::string text = fmt::format(
        "Source,Location ID,City,State,Country,Latitude,Longitude,Time Zone,Elevation,Local Time "
        "Zone,DNI Units\nNSRDB,1,-,-,-,{},{},{},{},{},w/m2\n"
        "Year,Month,Day,Hour,Minute,DHI,Temperature,GHI,DNI,Surface Albedo,,,\n",
        site.latitude, site.longitude, site.timeZone, site.elevation, localZone);
    for (int step = 0; step < hoursPerYear * perHour; ++step) {
        const int hour = step / perHour;
        const int minute = firstMinute + step % perHour * 60 / perHour;
        const MonthAndDay date = monthAndDay(hour / 24);
        const Radiation r = at(site, hour + minute / 60.0);
        text +=
            fmt::format("2001,{},{},{},{},{:.1f},20,{:.1f},{:.1f},0.2,,,\n", date.month, date.day,
                        hour % 24, minute, r.diffuse, r.horizontal + r.diffuse, r.direct);
    }
    return text;
}

std::string pvgis(Site site, const std::string& offsetLine, double offset) {
    site.timeZone = 0.0;
    std::string text = fmt::format("Latitude (decimal degrees): {}\r\nLongitude (decimal degrees): "
                                   "{}\r\nElevation (m): {}\r\n{}month,year\r\n1,2001\r\n2,2001\r\n"
                                   "time(UTC),T2m,RH,G(h),Gb(n),Gd(h),IR(h),WS10m,WD10m,SP\r\n",
                                   site.latitude, site.longitude, site.elevation, offsetLine);
    for (int k = 0; k < hoursPerYear; ++k) {
        const MonthAndDay date = monthAndDay(k / 24);
        const Radiation r = at(site, k + offset);
        text += fmt::format("2001{:02}{:02}:{:02}00,20,50,{:.1f},{:.1f},{:.1f},-0.0,1,2,85000\r\n",
                            date.month, date.day, k % 24, r.horizontal + r.diffuse, r.direct,
                            r.diffuse);
    }
    return text + "\r\nT2m: 2-m air temperature (degree Celsius)\r\nPVGIS (c) European Union\r\n";
}

/// What falls on the level, on a wall to the east and on one to the west in the open [kWh/m2].
struct Sums {
    std::array<double, 3> beam{}, total{};
};
constexpr std::array<std::array<double, 3>, 3> normals{{{0, 0, 1}, {1, 0, 0}, {-1, 0, 0}}};

Sums sumsOf(const WeatherSeries& series) {
    HourlySkyOptions options;
    options.stepsPerHour = 6;
    const HourlySky sky = buildHourlySky(series, {}, options);
    const SkyCells cells(0.0);
    Sums sums;
    for (std::size_t n = 0; n < normals.size(); ++n) {
        const auto onto = [&](double x, double y, double z) {
            return std::max(x * normals[n][0] + y * normals[n][1] + z * normals[n][2], 0.0);
        };
        for (const SunStep& step : sky.sunSteps) {
            sums.beam[n] +=
                onto(static_cast<double>(step.energy.x), static_cast<double>(step.energy.y),
                     static_cast<double>(step.energy.z)) /
                1000.0;
        }
        sums.total[n] = sums.beam[n];
        for (std::size_t i = 0; i < sky.diffuse.size(); ++i) {
            sums.total[n] +=
                static_cast<double>(sky.diffuse[i]) *
                onto(static_cast<double>(cells.momentX[i]), static_cast<double>(cells.momentY[i]),
                     static_cast<double>(cells.momentZ[i])) /
                1000.0;
        }
    }
    return sums;
}

/// The beam of the clear sky itself, in steps of two minutes.
std::array<double, 3> trueBeam(const Site& site) {
    std::array<double, 3> sums{};
    for (int k = 0; k < hoursPerYear * 30; ++k) {
        const double hour = (k + 0.5) / 30.0;
        const double direct = at(site, hour).direct;
        if (direct > 0.0) {
            const SunPosition sun = sunPosition(julianDay(2001, 1, 1, hour - site.timeZone), site);
            const std::array<double, 3> towards{std::cos(sun.altitude) * std::sin(sun.azimuth),
                                                std::cos(sun.altitude) * std::cos(sun.azimuth),
                                                std::sin(sun.altitude)};
            for (std::size_t n = 0; n < normals.size(); ++n) {
                sums[n] += direct / 30000.0 *
                           std::max(towards[0] * normals[n][0] + towards[1] * normals[n][1] +
                                        towards[2] * normals[n][2],
                                    0.0);
            }
        }
    }
    return sums;
}

WeatherYear read(const std::string& text) {
    const StudyFolder folder;
    const auto file = folder.write("weather", text); // no suffix: the content decides
    WeatherYear year = readWeatherYear(file);
    EXPECT_NO_THROW(requireCompleteYear(year.report, file, false));
    EXPECT_EQ(year.report.oddClock, "");
    return year;
}

TEST(WeatherFormats, GiveTheSameSumsWhateverTheirLabels) {
    struct Case {
        const char* name;
        std::string text;
        double offset; // of the values from the middle of the hour [h]
    };
    const std::string stated = "Irradiance Time Offset (h): 0.1761\r\n";
    const std::string before = "Irradiance Time Offset (h): -0.01\r\n";
    const Site& site = stJohns;
    const std::array<double, 3> beam = trueBeam(site);
    const Sums reference = sumsOf(read(epw(site)).series);
    const char* zone = "-3.5";
    for (const Case& c : {Case{"EPW", epw(site), 0.0},
                          {"wea", wea(site), 0.0},
                          {"wea, sun-up rows", wea(site, 1, 0.0, 1, {}, true), 0.0},
                          {"wea, ten minutes", wea(site, 6), 0.0},
                          {"wea, hours' ends", wea(site, 1, 0.5), 0.0},
                          {"wea, hours' beginnings", wea(site, 1, -0.5), 0.0},
                          {"wea, on the level", wea(site, 1, 0.0, 2), 0.0},
                          {"wea, illuminance", wea(site, 1, 0.0, 3), 0.0},
                          {"TMY3", tmy3(site), 0.0},
                          {"PSM, half past", psm(site, 1, 30, zone), 0.0},
                          {"PSM, half hours", psm(site, 2, 0, zone), -0.25},
                          {"PSM, whole hours", psm(site, 1, 0, zone), -0.5},
                          {"PVGIS", pvgis(site, stated, 0.1761), -0.324},
                          {"PVGIS, before the hour", pvgis(site, before, -0.01), -0.5}}) {
        SCOPED_TRACE(c.name);
        const WeatherYear year = read(c.text);
        EXPECT_DOUBLE_EQ(year.series.sampleOffset, c.offset);
        const Sums sums = sumsOf(year.series);
        for (std::size_t n = 0; n < normals.size(); ++n) {
            // An hour's value stands for all of it: means are within 0.5 % of the sky's beam
            // and moments within 0.7 %, where half an hour at the wrong place moves walls by 5
            // %.
            EXPECT_NEAR(sums.beam[n] / beam[n], 1.0, 0.008) << n;
            EXPECT_NEAR(sums.total[n] / reference.total[n], 1.0, 0.007) << n;
        }
    }
}

TEST(WeatherFormats, SiteAndSideValuesComeAlong) {
    const WeatherYear tmy = read(tmy3(stJohns));
    EXPECT_EQ(tmy.report.site.text(), "TOWN, A, CO");
    EXPECT_EQ(tmy.report.site.elevation, 140.0);
    EXPECT_EQ(tmy.series.dryBulb[100], 20.5f);
    EXPECT_EQ(tmy.series.pressure[100], 85000.0f);
    EXPECT_FLOAT_EQ(tmy.series.monthlyAlbedo[6], 0.25f);
    EXPECT_EQ(tmy.series.year[100], 2001);
    EXPECT_EQ(read(wea(stJohns)).report.site.text(), "Town_Test");
    // The file's clock is not the site's.
    EXPECT_THAT(read(psm(stJohns, 1, 30, "-3")).report.notes,
                testing::ElementsAre(HasSubstr("clock is UTC-3.5, the site's UTC-3")));
    const WeatherYear late = read(pvgis(stJohns, "", 0.0));
    EXPECT_EQ(late.series.sampleOffset, -0.5);
    EXPECT_THAT(late.report.notes,
                testing::ElementsAre(HasSubstr("no 'Irradiance Time Offset"), HasSubstr("UTC")));
}

TEST(WeatherFormats, WeaFilesAreReadAsTheyWereMeant) {
    const Sums right = sumsOf(read(wea(stJohns)).series);
    for (const auto& [text, note] :
         {std::pair{wea(stJohns, 1, 0.0, 1, "52"),
                    "time_zone 52 is no meridian of a clock: taken as 52.5, UTC-3.5"},
          {wea(stJohns, 1, 0.5), "whole hours, where the format has the middles of the steps; "
                                 "they are read as half an hour earlier: the light"},
          {wea(stJohns, 1, -0.5), "they are read as half an hour later"},
          {wea(stJohns, 6, 0.5), "hours beyond 24, where the format has"},
          {test::withLine(wea(stJohns), 6, "units", "unit"), "read as weather_data_file_un"}}) {
        SCOPED_TRACE(note);
        const WeatherYear year = read(text);
        EXPECT_EQ(year.report.site.timeZone, -3.5);
        EXPECT_THAT(year.report.notes, testing::Contains(HasSubstr(note)));
        EXPECT_NEAR(sumsOf(year.series).total[1] / right.total[1], 1.0, 0.003);
    }
}

TEST(WeatherFormats, AHalfHourThatAProgramCutOffTheZoneIsGivenBack) {
    constexpr Site mumbai{19.12, 72.85, 5.5, 14.0};
    const WeatherYear year = read(wea(mumbai, 1, 0.0, 1, "-75"));
    EXPECT_EQ(year.report.site.timeZone, 5.5);
    EXPECT_EQ(year.series.site.timeZone, 5.5);
    EXPECT_THAT(year.report.notes,
                testing::ElementsAre(HasSubstr("time_zone -75 is taken as -82.5, UTC+5.5: ")));
}

TEST(WeatherFormats, BadFilesAreRefusedWithLineAndFix) {
    const std::string goodWea = wea(stJohns);
    const std::string goodTmy3 = tmy3(stJohns);
    const std::string goodPsm = psm(stJohns, 1, 30, "-3.5");
    const std::string goodPvgis = pvgis(stJohns, "", 0.0);
    const auto without = [](std::string text, std::size_t line) {
        std::size_t start = 0;
        for (std::size_t i = 1; i < line; ++i) {
            start = text.find('\n', start) + 1;
        }
        return text.erase(start, text.find('\n', start) + 1 - start);
    };
    const StudyFolder folder;
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {test::withLine(goodWea, 6, "1", "60"),
              "f:6: weather_data_file_units 60 is no code of "
              "a unit, rather a time step; give 1 (direct"},
             {without(goodWea, 3), "the header has no longitude line; add it"},
             {test::withLine(goodWea, 2, "47.56", "139"), "f:2: latitude 139 is not a value"},
             {test::withLine(goodWea, 3, "longitude", "latitude"), "f:3: a second latitude line"},
             {test::withLine(goodWea, 4, "time_zone", "zone"), "f:4: 'zone' is none of the six"},
             {test::withLine(goodWea, 100, " 0.0", ""), "f:100: the row has 4 values; month, day"},
             {test::withLine(goodWea, 100, "1 4", "1 x"), "f:100: day: 'x' is not a number"},
             {test::withLine(goodWea, 100, "1 4", "2 30"), "f:100: there is no day 30 in month 2"},
             {test::withLine(goodWea, 100, "21.500", "21.700"), "f:100: the record at 21.7 h does"},
             {test::withLine(goodWea, 100, "21.500", "20.500"), "f:100: the hour was given before"},
             {test::withLine(goodWea, 115, "12.500", "12.500 0"), "f:115: the row has 6 values; "},
             {test::withLine(goodPsm, 20, ",", ",,"),
              "fields where 10 are expected, as in the line"},
             {test::withLine(goodPsm, 20, "2001,", ""), "f:20: "},
             {without(goodWea, 115),
              "f:114: 1 of the year's 8760 hours is missing: 5 January, 12:"},
             {goodWea.substr(0, goodWea.find("\n1 1 ") + 1), "f: the file holds no hourly data"},
             {test::withLine(goodTmy3, 1, "47.56", "x"), "f:1: field 5 (latitude): 'x' is not a n"},
             {test::withLine(goodTmy3, 2, "DNI", "DNX"), "f:2: there is no column 'dni'"},
             {test::withLine(goodTmy3, 15, ",1,", ",1,-9900,"), "f:15: 11 fields where 10 are exp"},
             {test::withLine(goodTmy3, 15, "13:00", "13.00"),
              "f:15: '01/01/2001' '13.00' is no da"},
             {without(without(goodPsm, 1), 1), "f:1: the two lines with Latitude"},
             {test::withLine(goodPsm, 20, "2001,1", "2001,13"), "f:20: month: '13' is not a whole"},
             {test::withLine(goodPvgis, 1, "47.56", "99"), "f:1: latitude 99 is not"},
             {test::withLine(goodPvgis, 20, ":", ";"), "is no time as 20050131:2300"},
             {without(goodPvgis, 7), "f: the file ends before the records"},
             {"a,b,c\n1,2,3\n", "f: not a weather file; give an .epw file, a text .wea, TMY3"}}) {
        const auto file = folder.write("f", text);
        const std::string said = test::messageOf(
            [&] { requireCompleteYear(readWeatherYear(file).report, file, false); });
        EXPECT_THAT(said, testing::AllOf(HasSubstr(message), HasSubstr("; ")));
    }
}

} // namespace
} // namespace insolate::study
