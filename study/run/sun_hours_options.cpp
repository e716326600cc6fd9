#include "study/run/run_option_table.h"
#include "study/run/sun_hours.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/period.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

namespace insolate::study {

namespace {

const std::map<std::string, SunPass> passWords = {
    {"points", SunPass::points}, {"area", SunPass::area}, {"groups", SunPass::groups}};
const std::map<std::string, SunGroups> groupWords = {
    {"object", SunGroups::object}, {"material", SunGroups::material}, {"all", SunGroups::all}};

void takeCount(SunlightChoices& rule, const std::string& text) {
    const std::map<std::string, SunCount> words = {
        {"sum", SunCount::sum}, {"longest", SunCount::longest}, {"one-gap", SunCount::oneGap}};
    if (const auto word = words.find(text); word != words.end()) {
        rule.count = word->second;
        return;
    }
    constexpr std::string_view few = "longest-";
    if (text.starts_with(few)) {
        const auto number = parseNumber<int>(std::string_view(text).substr(few.size()));
        if (number && *number >= 1 && *number <= 100) {
            rule.count = SunCount::longestFew;
            rule.few = number;
            return;
        }
    }
    throw UsageError(fmt::format("--count: there is no {}; choose from sum, longest, longest-2 (or "
                                 "another number), one-gap",
                                 quoteText(text)));
}

void takeHours(SunlightChoices& rule, const std::string& text) {
    StudyPeriod period;
    parseHours(text, period);
    rule.hours = {period.startHour, period.endHour};
}

/// Days of one part of a list, among those that are there.
void takeDays(SunHoursOptions& options, const std::string& text) {
    SunlightChoices& rule = options.rule;
    std::vector<int>& days = rule.days ? *rule.days : rule.days.emplace();
    std::optional<int> year;
    for (const int day : parseDays(text, &year)) {
        days.push_back(day);
    }
    if (year && options.yearOfDates && *year != *options.yearOfDates) {
        throw UsageError("--dates: the dates are of several years; give those of one");
    }
    options.yearOfDates = year ? year : options.yearOfDates;
    std::sort(days.begin(), days.end());
    days.erase(std::unique(days.begin(), days.end()), days.end());
}

void addSiteOptions(OptionTable& table, SiteOptions& site) {
    table.number("lat", site.latitude, "DEG", "Latitude, north positive",
                 "degrees, north positive");
    table.number("lon", site.longitude, "DEG", "Longitude, east positive",
                 "degrees, east positive");
    table.number("tz", site.timeZone, "H",
                 "Time zone of the clock, hours from UTC, east positive; --dst is on top of it; by "
                 "default from the built-in map",
                 "hours from UTC");
    table.add({.name = "weather",
               .help = "Take the site, and nothing else, from this weather file",
               .typeName = "FILE",
               .path = Option::Path::input,
               .take = [&](const std::string& text) { site.weather = text; }});
}

void addWindowOptions(OptionTable& table, SunHoursOptions& options) {
    SunlightChoices& rule = options.rule;
    table.add({.name = "dates",
               .kind = Option::Kind::list,
               .help = "Days: 3/21, 2026-03-21, 21 March or day of the year; one, several or "
                       "ranges: 3/21,12/21 or 2/19-10/21",
               .typeName = "DATES",
               .separator = ',',
               .take = [&](const std::string& text) { takeDays(options, text); }});
    table.add({.name = "days",
               .help = "Of several days, which must pass; every when absent",
               .typeName = "WHICH",
               .choices = {"every", "any"},
               .take = [&](const std::string& text) {
                   rule.dayRule = text == "every" ? DayRule::every : DayRule::any;
               }});
    table.add({.name = "hours",
               .help = "Hours of the day in which sun counts: 9-15, 8:30-16; the whole day when "
                       "absent",
               .typeName = "TIMES",
               .take = [&](const std::string& text) { takeHours(rule, text); }});
    table.add({.name = "time",
               .help = "What --hours are: of the site's clock, or of true solar time; clock when "
                       "absent",
               .typeName = "BASIS",
               .choices = {"clock", "solar"},
               .take = [&](const std::string& text) {
                   rule.basis = text == "solar" ? TimeBasis::solar : TimeBasis::clock;
               }});
    addSummerTimeOption(table, [&](const std::string& text) { options.summerTime = text; });
    table.number("after-sunrise", rule.afterSunrise, "H",
                 "Count from so many hours after sunrise, instead of --hours", "hours");
    table.number("before-sunset", rule.beforeSunset, "H",
                 "Count until so many hours before sunset, instead of --hours", "hours");
    table.number("min-altitude", rule.leastAltitude, "DEG",
                 "The sun counts from this altitude of its centre", "degrees");
    table.number("min-plan-angle", rule.leastPlanAngle, "DEG",
                 "The sun counts from this angle between its ray and the facade, in plan; for "
                 "surfaces steeper than 45 degrees",
                 "degrees");
}

void addRuleOptions(OptionTable& table, SunlightChoices& rule) {
    table.add({.name = "count",
               .help = "What counts of a day's spans: sum, longest, longest-2 (or another number) "
                       "for the sum of the longest ones, one-gap for two that follow each other; "
                       "sum when absent",
               .typeName = "WHAT",
               .take = [&](const std::string& text) { takeCount(rule, text); }});
    table.number("min-span", rule.leastSpan, "MIN", "Shorter spans do not count", "minutes");
    table.number("min", rule.hoursOfSun, "H", "Passes with so much sun or more", "hours");
    table.number("min-with-gap", rule.hoursWithGap, "H",
                 "--count one-gap: what the two spans must have where the longest has not --min",
                 "hours");
    table.number("max-shadow", rule.hoursOfShadow, "H",
                 "Passes with so much shadow or less, instead of --min", "hours");
    table.add({.name = "pass",
               .help = "Who must pass: all points, a --share of the area of every group, or one "
                       "point of every group (or of a --share of the groups); points when absent",
               .typeName = "WHO",
               .choices = {"points", "area", "groups"},
               .take = [&](const std::string& text) { rule.pass = passWords.at(text); }});
    table.number("share", rule.share, "PERCENT", "Of the area or the groups; 100 when absent",
                 "percent");
    table.number("min-area", rule.leastArea, "M2",
                 "--pass area: so much area satisfies a group, too", "m2");
    table.number("ratio", rule.ratio, "SHARE",
                 "--baseline: so much of what was there before satisfies, too: 0.8", "a share");
    table.add({.name = "sunshine",
               .kind = Option::Kind::list,
               .help = "Weigh the days of a year by these percents of the possible sunshine, "
                       "January to December, and ask for shares of the year's probable sun",
               .typeName = "P,...",
               .separator = ',',
               .take = [&](const std::string& text) {
                   rule.sunshine.push_back(numberOf("sunshine", text, "percent by month"));
               }});
    table.number("year-share", rule.yearPercent, "PERCENT",
                 "--sunshine: least share of the year's probable sun; 25 when absent", "percent");
    table.number("winter-share", rule.winterPercent, "PERCENT",
                 "--sunshine: least share of it from 21 September to 21 March; 5 when absent",
                 "percent");
}

} // namespace

void addSunHoursOptions(OptionTable& table, SunHoursOptions& options) {
    addSiteOptions(table, options.site);
    Option& year = table.wholeNumber(
        "year", options.year, "YEAR",
        "Year of the calendar: the sun of a date moves by 0.1 degrees between years",
        "a year from 1950 to 2050");
    year.usual = fmt::format("{}, or that of --dates", SunHoursOptions::usualYear);
    year.take = [&options, take = year.take](const std::string& text) {
        take(text);
        if (options.year == 0) { // stands for no year elsewhere
            throw UsageError("--year 0: the sun's place is known from 1950 to 2050; give a year "
                             "of these");
        }
    };
    table.flag("refraction", options.refraction,
               "Let the air lift the sun, by half a degree at the horizon");
    std::vector<std::string> names;
    for (const SunlightPreset& preset : sunlightPresets()) {
        names.push_back(preset.name);
    }
    table.add({.name = "rule",
               .help = fmt::format("A published rule, which the other options complete or change: "
                                   "{}; --list-rules describes them",
                                   fmt::join(names, ", ")),
               .typeName = "NAME",
               .take = [&](const std::string& text) {
                   options.rule.preset = sunlightPreset(text).name;
               }});
    addWindowOptions(table, options);
    addRuleOptions(table, options.rule);
    table.add({.name = "groups",
               .help = "What sensors are grouped by",
               .typeName = "WHAT",
               .choices = {"object", "material", "all"},
               .usual = "object",
               .take = [&](const std::string& text) { options.groups = groupWords.at(text); }});
    addEnclosedOption(table, options.keepEnclosed);
    Option& baseline =
        table.file("baseline", options.baseline,
                   "Results of an earlier run on the same sensors, to compare with; needs --ratio "
                   "or a rule that has one");
    baseline.typeName = "FOLDER";
    addPageOptions(table, options.page, options.pageLimit);
    table.flag("spans", options.spans, "Also write spans.csv: every span of sun of every sensor");
    addModelOptions(table, options.model);
    Option& out = table.file("out", options.out, "Folder for the results; made when missing");
    out.typeName = "FOLDER";
    out.path = Option::Path::output;
}

} // namespace insolate::study
