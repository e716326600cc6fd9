#include "study/run/run_study.h"
#include "study/run/sun_hours_study.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"
#include "tests/support/test_data.h"

#include <cmath>
#include <map>
#include <numbers>
#include <set>
#include <sstream>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::messageOf;
using test::readFile;
using test::rowsOf;
using testing::HasSubstr;

/// A sensor under the open sky.
SunHoursStudy pointFacing(const Vector3& normal, const Site& site, SunlightRule rule) {
    SunHoursStudy study;
    study.options.year = SunHoursOptions::usualYear;
    study.site.site = site;
    study.rule = std::move(rule);
    study.inputs.field.positions = {{0, 0, 0}};
    study.inputs.field.normals = {normal};
    return study;
}

double minutesOf(const SunHoursStudy& study) {
    Progress silent;
    return static_cast<double>(calculateSunHours(study, silent).columns.front().values.front());
}

SunlightRule onDays(const char* days) {
    SunlightRule rule;
    rule.days = parseDays(days);
    return rule;
}

TEST(SunlightRules, CountWhatTheyAskFor) {
    const std::vector<TimeSpan> lit = {{0, 60}, {70, 100}, {130, 220}};
    const std::vector<TimeSpan> possible = {{0, 300}};
    struct Case {
        SunCount count;
        double leastSpan;
        SunSense sense;
        double counted, first, last;
    };
    for (const Case& c :
         std::vector<Case>{{SunCount::sum, 0, SunSense::sunAtLeast, 180, 0, 220},
                           {SunCount::longest, 0, SunSense::sunAtLeast, 90, 0, 220},
                           {SunCount::longestFew, 0, SunSense::sunAtLeast, 150, 0, 220},
                           {SunCount::oneGap, 0, SunSense::sunAtLeast, 120, 0, 220},
                           {SunCount::oneGap, 30, SunSense::sunAtLeast, 120, 0, 220},
                           {SunCount::oneGap, 31, SunSense::sunAtLeast, 150, 0, 220},
                           {SunCount::sum, 61, SunSense::sunAtLeast, 90, 130, 220},
                           {SunCount::sum, 0, SunSense::shadowAtMost, 120, 60, 300},
                           {SunCount::longest, 0, SunSense::shadowAtMost, 80, 60, 300}}) {
        SunlightRule rule;
        rule.count = c.count;
        rule.leastSpan = c.leastSpan;
        rule.sense = c.sense;
        const DayOfSun day = dayOfSun(lit, possible, rule);
        EXPECT_DOUBLE_EQ(day.counted, c.counted);
        EXPECT_DOUBLE_EQ(day.first, c.first);
        EXPECT_DOUBLE_EQ(day.last, c.last);
        // A threshold a minute to either side decides.
        const double over = c.sense == SunSense::sunAtLeast ? 1.0 : -1.0;
        rule.hours = (c.counted - over) / 60.0;
        EXPECT_TRUE(dayPasses(day, rule));
        rule.hours = (c.counted + over) / 60.0;
        EXPECT_FALSE(dayPasses(day, rule));
    }
    SunlightRule gap;
    gap.count = SunCount::oneGap;
    gap.hours = 91.0 / 60.0; // the longest span has 90 minutes, the best two have 120
    gap.hoursWithGap = 119.0 / 60.0;
    EXPECT_TRUE(dayPasses(dayOfSun(lit, possible, gap), gap));
    gap.hoursWithGap = 121.0 / 60.0;
    EXPECT_FALSE(dayPasses(dayOfSun(lit, possible, gap), gap));
    EXPECT_TRUE(std::isnan(dayOfSun({}, possible, SunlightRule()).first));
}

// An east facade in Warsaw from 7 to 17: to noon it has the sun, and when noon is depends on the
// clock. Shifts of solar time as the almanac has them, +16.6 and -28.6 minutes.
TEST(SunHours, CountsByTheClockOrTheSun) {
    const struct {
        const char* day;
        double timeZone;
        TimeBasis basis;
        double hours;
    } cases[] = {{"3/20", 1, TimeBasis::clock, 4.723},
                 {"9/22", 2, TimeBasis::clock, 5.477},
                 {"3/20", 1, TimeBasis::solar, 5.0},
                 {"9/22", 2, TimeBasis::solar, 5.0}};
    for (const auto& c : cases) {
        SunlightRule rule = onDays(c.day);
        rule.window = {c.basis, 7.0, 17.0};
        const SunHoursStudy study = pointFacing({1, 0, 0}, {52.23, 21.01, c.timeZone, 0.0}, rule);
        EXPECT_NEAR(minutesOf(study) / 60.0, c.hours, 0.003) << c.day; // the shifts have 0.1 minute
    }
    const Site warsaw{52.23, 21.01, 1.0, 0.0};
    const SunTimes times = sunTimes(2025, 3, 20, warsaw);
    const TimeSpan window = windowOf({TimeBasis::daylight, 1.5, 1.0}, 2025, 3, 20, warsaw);
    EXPECT_DOUBLE_EQ(window.begin, (times.rise + 1.5) * 60.0);
    EXPECT_DOUBLE_EQ(window.end, (times.set - 1.0) * 60.0);
    const Site north{80.0, 21.0, 1.0, 0.0};
    EXPECT_EQ(windowOf({TimeBasis::daylight, 1.5, 1.5}, 2025, 12, 21, north).length(), 0.0);
    EXPECT_EQ(windowOf({TimeBasis::daylight, 1.5, 1.5}, 2025, 6, 21, north).length(), 1440.0);
    EXPECT_EQ(windowOf({TimeBasis::daylight, 9.0, 9.0}, 2025, 3, 20, warsaw).length(), 0.0);
}

// The window moves with the clock on the days on which summer time begins and ends.
TEST(SunHours, GoesByWatchesInSummerTime) {
    const Site site{52.0, 21.0, 1.0, 0.0};
    const SunWindow clock{TimeBasis::clock, 9.0, 15.0, summerTimeOf("eu", 2025)};
    EXPECT_EQ(windowOf(clock, 2025, 3, 29, site).begin, 540.0);
    EXPECT_EQ(windowOf(clock, 2025, 3, 30, site).begin, 480.0);
    EXPECT_EQ(windowOf(clock, 2025, 10, 25, site).end, 840.0);
    EXPECT_EQ(windowOf(clock, 2025, 10, 26, site).end, 900.0);
    SunWindow day{TimeBasis::clock, 0.0, 24.0, clock.summerTime};
    EXPECT_EQ(windowOf(day, 2025, 6, 21, site).begin, 0.0) << "dates begin at midnight";
}

// Altitude, angle in plan, refraction and year, each against the sun's own place.
TEST(SunHours, LeavesOutWhatTheRuleLeavesOut) {
    const Site site{52.0, 5.0, 1.0, 0.0};
    const auto counted = [&](const Vector3& normal, bool refraction, double altitude, double plan) {
        SunlightRule rule = onDays("3/21");
        rule.leastAltitude = altitude;
        rule.leastPlanAngle = plan;
        SunHoursStudy study = pointFacing(normal, site, rule);
        study.options.refraction = refraction;
        return minutesOf(study);
    };
    const auto wanted = [&](bool refraction, const auto& counts) {
        const SunPath::Sun sun = sunOfDate(2025, 3, 21, site, refraction);
        double minutes = 0.0;
        for (int second = 0; second < 86400; ++second) {
            minutes += counts(sun((second + 0.5) / 60.0)) ? 1.0 / 60.0 : 0.0;
        }
        return minutes;
    };
    const double degree = std::numbers::pi / 180.0;
    const auto above = [&](double altitude) {
        return [=](const Direction& s) { return s[2] >= std::sin(altitude * degree); };
    };
    const double open = counted({0, 0, 1}, false, 10, 0);
    EXPECT_NEAR(open, wanted(false, above(10)), 0.05);
    EXPECT_NEAR(counted({0, 0, 1}, true, 0, 0), wanted(true, above(0)), 0.05);
    EXPECT_GT(counted({0, 0, 1}, true, 0, 0), counted({0, 0, 1}, false, 0, 0) + 5.0);
    const double facade = wanted(false, [&](const Direction& s) {
        const double angle = std::atan2(-s[1], s[0]) / degree; // of a facade to the south
        return s[2] > 0.0 && angle >= 25.0 && angle <= 155.0;
    });
    EXPECT_NEAR(counted({0, -1, 0}, false, 0, 25), facade, 0.05);
    EXPECT_NEAR(counted({0, 0, 1}, false, 10, 25), open, 1e-3) << "no facade";
    EXPECT_NEAR(counted({0, 0, 0}, false, 10, 25), open, 1e-3) << "no surface";
}

TEST(SunHours, DecidesByTheRightDay) {
    const Site site{52.0, 5.0, 1.0, 0.0};
    const auto results = [&](DayRule days, SunSense sense, double hours) {
        SunlightRule rule = onDays("3/21,6/21,12/21");
        rule.dayRule = days;
        rule.sense = sense;
        rule.hours = hours;
        Progress silent;
        return calculateSunHours(pointFacing({0, 0, 1}, site, rule), silent);
    };
    struct Case {
        DayRule days;
        double hours;
        float day;
        bool passes;
    };
    // About 7.5 hours in winter, 16.5 in summer.
    for (const Case& c :
         {Case{DayRule::every, 7.0, 355, true}, Case{DayRule::every, 8.0, 355, false},
          Case{DayRule::any, 16.0, 172, true}, Case{DayRule::any, 17.0, 172, false}}) {
        const SunHoursResults r = results(c.days, SunSense::sunAtLeast, c.hours);
        EXPECT_EQ(r.columns[1].name, "day");
        EXPECT_EQ(r.columns[1].values.front(), c.day);
        EXPECT_EQ(r.passes, c.passes);
    }
    const SunHoursResults shadow = results(DayRule::every, SunSense::shadowAtMost, 0.0);
    EXPECT_EQ(shadow.columns.front().name, "shadow");
    EXPECT_EQ(shadow.passes, true);
}

// A year of constant sunshine is the share of the day's hours; winter days weigh by their months.
TEST(SunHours, WeighsTheYearByItsClouds) {
    SunlightRule rule = onDays("1/1-12/31");
    rule.probable.emplace();
    rule.probable->share.fill(0.4);
    const Site site{0.0, 0.0, 0.0, 0.0};
    Progress silent;
    SunHoursResults open = calculateSunHours(pointFacing({0, 0, 1}, site, rule), silent);
    EXPECT_NEAR(open.columns[0].values.front(), 100.0f, 0.01f);
    // Days are equally long on the equator: 102 days to the end of the year, 80 after it.
    EXPECT_NEAR(open.columns[1].values.front(), 100.0f * 182.0f / 365.0f, 0.1f);
    EXPECT_EQ(open.passes, true);
    const SunHoursResults east = calculateSunHours(pointFacing({1, 0, 0}, site, rule), silent);
    EXPECT_NEAR(east.columns[0].values.front(), 50.0f, 0.05f);
    rule.probable->share = {};
    rule.probable->share[6] = 1.0; // July alone
    const SunHoursResults july = calculateSunHours(pointFacing({0, 0, 1}, site, rule), silent);
    EXPECT_EQ(july.columns[1].values.front(), 0.0f);
    EXPECT_EQ(july.passes, false);
}

// The figures as published stand in the table of docs/sun-hours.md.
TEST(SunlightRules, HoldThePublishedFigures) {
    const std::string page = readFile(insolate::test::sourceFolder() / "docs/sun-hours.md");
    std::istringstream lines(page.substr(std::min(page.find("| `--rule` |"), page.size())));
    std::set<std::string> published;
    std::string line;
    for (std::getline(lines, line); std::getline(lines, line);) {
        if (line.starts_with("| `")) {
            published.insert(line);
        }
    }
    for (const SunlightPreset& preset : sunlightPresets()) {
        std::string needed;
        for (const std::string& name : preset.needed) {
            needed += (needed.empty() ? "`--" : " `--") + name + "`";
        }
        const std::string row =
            fmt::format("| `{}` | {}, {} | {} | {} | {} |", preset.name, preset.title,
                        preset.country, preset.edition, ruleText(preset.rule), needed);
        EXPECT_EQ(published.erase(row), 1U) << row;
        // What sources leave open is asked for.
        SunlightChoices choices;
        choices.preset = preset.name;
        EXPECT_THAT(messageOf([&] { ruleOf(choices); }),
                    HasSubstr(needed.empty() ? "nothing is wrong" : " is missing; "));
    }
    EXPECT_THAT(published, testing::IsEmpty());
    EXPECT_EQ(sunlightPreset("ee-dwelling").rule.hoursWithGap, 3.5);
    EXPECT_EQ(sunlightPreset("ca-montreal-park").rule.count, SunCount::longest);
    EXPECT_EQ(sunlightPreset("bre209-garden").rule.baselineRatio, 0.8);
    EXPECT_EQ(sunlightPreset("au-victoria").rule.leastArea, 40.0);
    EXPECT_EQ(sunlightPreset("au-victoria").rule.baselineRatio, 1.0);
    const ProbableSun& year = *sunlightPreset("bre209-apsh").rule.probable;
    EXPECT_EQ(std::pair(year.yearPercent, year.winterPercent), std::pair(25.0, 5.0));
    EXPECT_EQ(std::pair(year.winterStart, year.winterEnd), std::pair(264, 80));
}

/// A garden in the open, one half behind a long wall to its south, and one under a lid.
std::string gardensModel(double wall) {
    return fmt::format("o open\nv 0 0 0\nv 10 0 0\nv 10 10 0\nv 0 10 0\nf 1 2 3 4\n"
                       "o half\nv 100 0 0\nv 110 0 0\nv 110 20 0\nv 100 20 0\nf 5 6 7 8\n"
                       "o pit\nv 300 0 0\nv 310 0 0\nv 310 10 0\nv 300 10 0\nf 9 10 11 12\n"
                       "o walls\nv 50 -0.01 0\nv 160 -0.01 0\nv 160 -0.01 {0}\nv 50 -0.01 {0}\n"
                       "f 13 14 15 16\nv 250 -50 .5\nv 360 -50 .5\nv 360 60 .5\nv 250 60 .5\n"
                       "f 17 18 19 20\n",
                       wall);
}

class SunHoursRun : public testing::Test {
protected:
    SunHoursOptions gardens(const char* out, double wall) {
        SunHoursOptions options;
        options.model.scenes = {m_folder.write(std::string(out) + ".obj", gardensModel(wall))};
        options.model.selection.patterns = {"open", "half", "pit"};
        options.model.grid = 0.5;
        options.site.latitude = 50.0;
        options.site.longitude = 15.0;
        options.site.timeZone = 1.0;
        options.rule.days = parseDays("3/21");
        options.rule.hoursOfSun = 2.0;
        options.out = m_folder.path() / out;
        return options;
    }
    /// Columns of groups.csv by group.
    std::map<std::string, std::map<std::string, std::string>> groupsOf(const SunHoursOptions& o) {
        Progress silent;
        runSunHours(o, silent);
        const auto rows = rowsOf(o.out / "groups.csv");
        std::map<std::string, std::map<std::string, std::string>> groups;
        for (std::size_t row = 1; row < rows.size(); ++row) {
            for (std::size_t i = 0; i < rows[0].size(); ++i) {
                groups[rows[row][0]][rows[0][i]] = rows[row][i];
            }
        }
        return groups;
    }
    static std::string verdict(std::map<std::string, std::map<std::string, std::string>> groups) {
        return groups["open"]["passes [0 or 1]"] + groups["half"]["passes [0 or 1]"] +
               groups["pit"]["passes [0 or 1]"];
    }

    test::StudyFolder m_folder;
};

// At the equinox the edge of a wall's shadow stands still at height x tan(latitude): 8.4 m throw it
// to 10.0 m, half of the middle garden. On 21 March 2025 (0.45 degrees) it is 0.14 m nearer at
// noon.
TEST_F(SunHoursRun, JudgesPointsAreasAndGroups) {
    SunHoursOptions options = gardens("a", 8.4);
    auto groups = groupsOf(options);
    EXPECT_EQ(verdict(groups), "100");
    EXPECT_EQ(groups["half"]["sensors"], "800");
    EXPECT_NEAR(std::stod(groups["half"]["share that passes [%]"]), 50.0, 2.5);
    EXPECT_LT(std::stod(groups["pit"]["greatest [min]"]), 20.0) << "in below the lid";
    EXPECT_THAT(readFile(options.out / "summary.json"), HasSubstr("\"passes\": false"));
    EXPECT_THAT(readFile(options.out / "sensors.csv"), HasSubstr("first_2025_03_21 [h of UTC+1]"));
    options.rule.pass = SunPass::area;
    options.rule.share = 52.6;
    EXPECT_EQ(verdict(groupsOf(options)), "100");
    options.rule.share = 47.4;
    EXPECT_EQ(verdict(groupsOf(options)), "110");
    options.rule.share = 90.0;
    options.rule.leastArea = 90.0; // of 100 m2 that pass, and 0 of the pit
    EXPECT_EQ(verdict(groupsOf(options)), "110");
    options.rule.leastArea.reset();
    options.rule.pass = SunPass::groups;
    options.rule.share = 60.0; // two of three
    EXPECT_EQ(verdict(groupsOf(options)), "110");
    EXPECT_THAT(readFile(options.out / "summary.json"), HasSubstr("\"passes\": true"));
    // Names in the encoding of another program are UTF-8 in the table.
    std::string model = gardensModel(8.4);
    model.replace(model.find("o pit"), 5, "o p\xEEt");
    m_folder.write("a.obj", model);
    options.model.selection.patterns = {"p*"};
    EXPECT_EQ(groupsOf(options).count("p\uFFFDt"), 1U);
}

// A closed shed stands on 25 of the 100 m2 of the open garden. Its ground is nobody's garden, but
// where it takes the sun of an earlier one, that is lost.
TEST_F(SunHoursRun, LeavesEnclosedGroundOut) {
    SunHoursOptions before = gardens("bare", 8.4);
    before.model.selection.patterns = {"open"};
    groupsOf(before);
    SunHoursOptions options = before;
    options.out = m_folder.path() / "shed";
    options.model.sensors = before.model.scenes.front();
    options.model.scenes.push_back(m_folder.write(
        "shed.obj", "v 0 0 0\nv 5 0 0\nv 5 5 0\nv 0 5 0\nv 0 0 .1\nv 5 0 .1\nv 5 5 .1\nv 0 5 .1\n"
                    "f 5 6 7 8\nf 1 2 6 5\nf 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\n"));
    auto groups = groupsOf(options);
    EXPECT_EQ(groups["open"]["sensors"], "300");
    EXPECT_EQ(groups["open"]["passes [0 or 1]"], "1");
    EXPECT_GT(std::stod(groups["open"]["least [min]"]), 120.0);
    EXPECT_THAT(readFile(options.out / "summary.json"), HasSubstr("\"enclosed\": 100"));
    options.keepEnclosed = true;
    groups = groupsOf(options);
    EXPECT_EQ(groups["open"]["sensors"], "400");
    EXPECT_EQ(groups["open"]["passes [0 or 1]"], "0");
    options.keepEnclosed = false;
    options.baseline = before.out;
    options.rule.ratio = 0.8;
    groups = groupsOf(options);
    EXPECT_EQ(groups["open"]["sensors"], "400") << "all had sun before";
    EXPECT_EQ(groups["open"]["passes [0 or 1]"], "0");
}

TEST_F(SunHoursRun, TakesTheYearOfTheDatesAndTheClockOfTheSummer) {
    SunHoursOptions options = gardens("y", 8.4);
    options.model.grid = 5.0;
    OptionTable table;
    addSunHoursOptions(table, options);
    const auto give = [&](const char* name, const std::string& text) {
        options.rule.days.reset();
        OptionTable::give(*table.find(name), std::span(&text, 1));
    };
    give("dst", "eu");
    give("hours", "9-17");
    give("dates", "2027-03-28");
    groupsOf(options);
    EXPECT_THAT(readFile(options.out / "sensors.csv"), HasSubstr("sun_2027_03_28 [min]"));
    EXPECT_THAT(readFile(options.out / "sensors.csv"), testing::Not(HasSubstr("2025")));
    EXPECT_THAT(readFile(options.out / "summary.json"),
                HasSubstr("9:00 to 17:00 clock time by watches, summer time 28 March to 30 October "
                          "(eu 2027)"));
    const double watches = std::stod(groupsOf(options)["open"]["least [min]"]);
    options.summerTime = "none";
    EXPECT_NEAR(watches, 480.0, 1e-3);
    options.rule.hours = {8.0, 16.0};
    EXPECT_EQ(std::stod(groupsOf(options)["open"]["least [min]"]), watches);
    Progress silent;
    options.year = 2026;
    EXPECT_THAT(messageOf([&] { runSunHours(options, silent); }),
                HasSubstr("--dates: the dates are of 2027, but --year is 2026; "));
    options.year = 0;
    options.summerTime = "eu";
    options.rule.basis = TimeBasis::solar;
    EXPECT_THAT(messageOf([&] { runSunHours(options, silent); }),
                HasSubstr("--dst eu: belongs to hours of the clock, but these are of true solar"));
    EXPECT_THAT(messageOf([] { parseDays("2026-03-21,2027-03-21"); }),
                HasSubstr("the dates are of several years"));
}

TEST_F(SunHoursRun, ComparesWithWhatWasThereBefore) {
    const SunHoursOptions before = gardens("before", 8.4);
    groupsOf(before);
    // As another tool may have written them: a name that goes over the end of its line.
    std::string table = readFile(before.out / "sensors.csv");
    for (std::size_t at = 0; (at = table.find(",open,", at)) != std::string::npos; ++at) {
        table.replace(at, 6, ",\"op\nen\",");
    }
    m_folder.write("before/sensors.csv", table);
    SunHoursOptions after = gardens("after", 9.3); // to 11.1 m: 89 % of what there was
    after.baseline = before.out;
    after.rule.pass = SunPass::area;
    after.rule.share = 60.0;
    after.rule.ratio = 0.8;
    EXPECT_EQ(verdict(groupsOf(after)), "111") << "the pit had none to lose";
    after.rule.ratio = 0.95;
    auto groups = groupsOf(after);
    EXPECT_EQ(verdict(groups), "101");
    EXPECT_NEAR(std::stod(groups["half"]["share that passed before [%]"]), 50.0, 2.5);
    after.rule.pass = SunPass::points; // rows between 10 and 11 m have lost all
    after.rule.share.reset();
    EXPECT_EQ(verdict(groupsOf(after)), "101");
    Progress silent;
    SunHoursOptions other = after;
    other.rule.days = parseDays("6/21");
    EXPECT_THAT(messageOf([&] { runSunHours(other, silent); }),
                HasSubstr("before/summary.json: the baseline has another --dates: [80], and this "
                          "study [172]; "));
    other = after;
    other.rule.hours = {9.0, 15.0};
    EXPECT_THAT(messageOf([&] { runSunHours(other, silent); }), HasSubstr("another --hours: [0.0"));
    other = after;
    other.refraction = true;
    EXPECT_THAT(messageOf([&] { runSunHours(other, silent); }), HasSubstr("another --refraction"));
    other = after;
    other.model.north = 10.0;
    EXPECT_THAT(messageOf([&] { runSunHours(other, silent); }), HasSubstr("another --north"));
    other = after;
    other.rule.count = SunCount::longest;
    EXPECT_THAT(messageOf([&] { runSunHours(other, silent); }), HasSubstr("another --count"));
    const std::size_t row = table.find('\n') + 1;
    std::size_t sun = row;
    for (auto i = std::count(table.begin(), table.begin() + std::ptrdiff_t(table.find("sun [min]")),
                             ',');
         i > 0; --i) {
        sun = table.find(',', sun) + 1;
    }
    for (const char* minutes : {"-1", "nan", "1e9"}) {
        std::string changed = table;
        m_folder.write("before/sensors.csv",
                       changed.replace(sun, table.find(',', sun) - sun, minutes));
        EXPECT_THAT(
            messageOf([&] { runSunHours(after, silent); }),
            AllOf(HasSubstr("before/sensors.csv:2: field "), HasSubstr("is no value from 0")));
    }
    m_folder.write("before/sensors.csv", table);
    after.model.grid = 1.0;
    EXPECT_THAT(messageOf([&] { runSunHours(after, silent); }),
                HasSubstr("before/sensors.csv:2: not the sensors of this study; "));
}

} // namespace
} // namespace insolate::study
