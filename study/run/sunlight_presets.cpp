#include "study/run/sunlight_rules.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"

#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

std::vector<int> daysOf(const char* text) {
    return parseDays(text);
}

/// The presets' figures and sources are those of docs/sun-hours.md.
std::vector<SunlightPreset> makePresets() {
    std::vector<SunlightPreset> presets;
    const auto add = [&](SunlightPreset preset) -> SunlightRule& {
        presets.push_back(std::move(preset));
        return presets.back().rule;
    };
    const auto atLeast = [](const char* days, double hours) {
        SunlightRule rule;
        rule.days = daysOf(days);
        rule.hours = hours;
        return rule;
    };
    const auto within = [](SunlightRule rule, TimeBasis basis, double start, double end) {
        rule.window = {basis, start, end};
        return rule;
    };

    // Victoria and New South Wales.
    {
        SunlightRule rule = within(atLeast("9/22", 5.0), TimeBasis::clock, 9.0, 15.0);
        rule.pass = SunPass::area;
        rule.share = 75.0;
        rule.leastArea = 40.0;
        rule.baselineRatio = 1.0;
        add({"au-victoria",
             "Sunlight of private open space",
             "Australia, Victoria",
             "Building Regulations 2006, reg. 418",
             rule,
             {},
             "the area must be 3 m wide at least"});
        rule = within(atLeast("6/21", 2.0), TimeBasis::clock, 9.0, 15.0);
        rule.pass = SunPass::groups;
        rule.share = 70.0;
        add({"au-nsw",
             "Solar access of flats, dense areas",
             "Australia, New South Wales",
             "as applied in [2014] NSWLEC 1073",
             rule,
             {},
             "groups are flats; outside dense areas 3 h (--min 3)"});
    }
    // Montreal, by the windows that hold the spans asked for.
    {
        SunlightRule rule = within(atLeast("3/20", 2.5), TimeBasis::clock, 12.0, 15.0);
        rule.count = SunCount::longest;
        add({"ca-montreal-sidewalk",
             "Sun on sidewalks",
             "Canada, Montreal",
             "plan, 3.1.1",
             rule,
             {},
             "elsewhere 90 minutes (--min 1.5)"});
        rule = within(atLeast("3/20", 8.0), TimeBasis::clock, 8.0, 18.0);
        rule.count = SunCount::longest;
        rule.pass = SunPass::area;
        rule.share = 50.0;
        add({"ca-montreal-park", "Sun in parks", "Canada, Montreal", "plan, 3.1.1", rule, {}, ""});
    }
    // China. How spans are counted is left to the cities, and so is which day holds.
    {
        const std::vector<std::string> count = {"count"};
        const auto china = [&](const char* name, const char* title, const char* day, double start,
                               double end, std::optional<double> hours) {
            SunlightRule rule = within(atLeast(day, 0.0), TimeBasis::solar, start, end);
            rule.hours = hours;
            std::vector<std::string> needed = count;
            if (!hours) {
                needed.insert(needed.begin(), "min");
            }
            add({name, title, "China", "GB 50180-2018, 4.0.9", rule, std::move(needed),
                 "measured 0.9 m above the floor in the plane of the outer wall; cities set the "
                 "angle to the facade (--min-plan-angle) and the shortest span (--min-span)"});
        };
        china("cn-great-cold", "Dwellings, day of Great Cold", "1/20", 8.0, 16.0, std::nullopt);
        china("cn-great-cold-renewal", "Dwellings in old quarters", "1/20", 8.0, 16.0, 1.0);
        china("cn-solstice", "Dwellings, winter solstice", "12/21", 9.0, 15.0, 1.0);
        china("cn-elderly", "Dwellings of the elderly", "12/21", 9.0, 15.0, 2.0);
        china("cn-nursery", "Nurseries", "12/21", 9.0, 15.0, 3.0);
        china("cn-hospital", "Hospitals and schools", "12/21", 9.0, 15.0, 2.0);
    }
    {
        SunlightRule rule = atLeast("4/22-8/22", 2.5);
        rule.count = SunCount::oneGap;
        rule.hoursWithGap = 3.5;
        add({"ee-dwelling",
             "Insolation of dwellings",
             "Estonia",
             "EVS 894:2008+A2:2015",
             rule,
             {"days"},
             "one interruption is allowed to tall buildings; a new building may not take more than "
             "half of its neighbours' sun (--baseline, --ratio 0.5)"});
    }
    // The day of EN 17037 may be chosen freely; the least altitude is the country's.
    {
        SunlightRule rule = atLeast("2/1-3/21", 1.5);
        rule.dayRule = DayRule::any;
        rule.pass = SunPass::groups;
        const std::string note = "minimum level; high: --min 4. Sensors lie in the room-side plane "
                                 "of the wall, 1.2 m above the floor and 0.3 m above the sill at "
                                 "least; a group is a room";
        add({"en17037",
             "Exposure to sunlight",
             "Europe",
             "EN 17037:2018+A1:2021",
             rule,
             {"min-altitude"},
             note});
        rule.leastAltitude = 13.0;
        add({"en17037-cz",
             "Exposure to sunlight",
             "Czech Republic",
             "EN 17037:2018+A1:2021",
             rule,
             {},
             note});
        rule.leastAltitude = 11.0;
        add({"en17037-de",
             "Exposure to sunlight",
             "Germany",
             "EN 17037:2018+A1:2021",
             rule,
             {},
             note});
    }
    {
        SunlightRule rule = atLeast("1/17", 1.0);
        rule.pass = SunPass::groups;
        add({"de-din5034",
             "Sunlight of a living room",
             "Germany",
             "DIN 5034-1, superseded in this by EN 17037",
             rule,
             {"min-altitude", "count"},
             ""});
    }
    // Japan limits the shadow of a new building; the limit depends on the zone.
    {
        SunlightRule rule = within(atLeast("12/21", 0.0), TimeBasis::solar, 8.0, 16.0);
        rule.hours.reset();
        rule.sense = SunSense::shadowAtMost;
        const std::string note = "3, 4 or 5 h from 5 to 10 m outside the boundary, 2, 2.5 or 3 h "
                                 "beyond; on a plane 1.5 m or 4 or 6.5 m above mean ground";
        add({"jp-shadow",
             "Shadow of buildings",
             "Japan",
             "Building Standard Law, 56-2, annex 4",
             rule,
             {"max-shadow"},
             note});
        rule.window = {TimeBasis::solar, 9.0, 15.0};
        add({"jp-shadow-hokkaido",
             "Shadow of buildings",
             "Japan, Hokkaido",
             "Building Standard Law, 56-2, annex 4",
             rule,
             {"max-shadow"},
             "2, 3 or 4 h from 5 to 10 m outside the boundary, 1.5, 2 or 2.5 h beyond; on a plane "
             "1.5 m or 4 or 6.5 m above mean ground"});
    }
    {
        SunlightRule rule = atLeast("2/19-10/21", 2.0);
        add({"nl-light",
             "TNO light",
             "Netherlands",
             "practice, not law",
             rule,
             {},
             "middle of the sill, inside of the window, or 0.75 m above the floor"});
        rule.leastAltitude = 10.0;
        add({"nl-light-the-hague",
             "TNO light",
             "Netherlands, The Hague",
             "practice, not law",
             rule,
             {},
             "on the facade, whether or not there is a window"});
        rule = atLeast("1/21-11/22", 3.0);
        add({"nl-strict",
             "TNO strict",
             "Netherlands",
             "practice, not law",
             rule,
             {},
             "middle of the sill, inside of the window, or 0.75 m above the floor"});
    }
    {
        SunlightRule rule = within(atLeast("3/20,9/22", 3.0), TimeBasis::clock, 7.0, 17.0);
        rule.pass = SunPass::groups;
        add({"pl-dwelling",
             "Sunlight of a dwelling",
             "Poland",
             "WT, par. 60",
             rule,
             {"time", "count"},
             "a group is a dwelling of several rooms"});
        rule.window = {TimeBasis::clock, 8.0, 16.0};
        rule.pass = SunPass::points;
        add({"pl-nursery",
             "Sunlight of nurseries and schools",
             "Poland",
             "WT, par. 60",
             rule,
             {"time", "count"},
             ""});
    }
    {
        SunlightRule rule = atLeast("4/22-8/22", 0.0);
        rule.hours.reset();
        add({"ru-st-petersburg",
             "Insolation",
             "Russia, St Petersburg",
             "as cited for 60 deg N",
             rule,
             {"min", "count", "days"},
             ""});
    }
    {
        SunlightRule rule = atLeast("3/1-10/13", 1.5);
        rule.leastAltitude = 5.0;
        rule.leastPlanAngle = 25.0;
        add({"sk-dwelling",
             "Insolation of dwellings",
             "Slovakia",
             "STN 73 4301",
             rule,
             {},
             "sensors 0.3 m above the middle of the opening's lower edge and 1.2 m above the floor "
             "at least; a third of the flat's room area must have it"});
    }
    {
        SunlightRule rule = within(atLeast("3/20,9/22", 5.0), TimeBasis::clock, 9.0, 17.0);
        add({"se-solklart",
             "Dwellings and places to sit and play",
             "Sweden",
             "Solklart 1991",
             rule,
             {},
             "advice"});
    }
    // BRE 209.
    {
        SunlightRule rule = atLeast("3/21", 2.0);
        rule.pass = SunPass::area;
        rule.share = 50.0;
        rule.baselineRatio = 0.8;
        add({"bre209-garden",
             "Gardens and amenity areas",
             "United Kingdom",
             "BRE 209, 2011/2022",
             rule,
             {},
             "a group is a garden"});
        rule = atLeast("3/21", 0.1 / 60.0);
        rule.pass = SunPass::area;
        rule.share = 60.0;
        add({"bre209-garden-1991",
             "Gardens and amenity areas",
             "United Kingdom",
             "BRE 209, 1991",
             rule,
             {},
             "any sun at all, in practice a tenth of a minute; preferably on 75 % of the "
             "area"});
        rule = atLeast("3/21", 1.5);
        rule.pass = SunPass::groups;
        add({"bre209-dwelling",
             "New dwellings",
             "United Kingdom",
             "BRE 209, 2022",
             rule,
             {"min-altitude"},
             "a group is a dwelling; 21 March is the day recommended"});
        rule = SunlightRule();
        rule.days = daysOf("1/1-12/31");
        rule.baselineRatio = 0.8;
        rule.probable.emplace();
        add({"bre209-apsh",
             "Annual probable sunlight hours",
             "United Kingdom",
             "BRE 209, 2011/2022",
             rule,
             {"sunshine"},
             "centre of the window in the plane of the inside face of the wall; for windows within "
             "90 degrees of due south"});
    }
    // The United States' rules report when shadows come and go; they pass nobody.
    {
        SunlightRule rule;
        rule.days = daysOf("3/21,5/6,6/21,12/21");
        rule.window = {TimeBasis::daylight, 1.5, 1.5};
        add({"us-new-york",
             "Shadows on open space",
             "United States, New York",
             "CEQR technical manual, ch. 8",
             rule,
             {},
             "Eastern standard time all year: --tz -5"});
        rule.days = daysOf("1/1-12/31");
        rule.window = {TimeBasis::daylight, 1.0, 1.0};
        add({"us-san-francisco",
             "Shadows on parks",
             "United States, San Francisco",
             "Planning Code, section 295",
             rule,
             {},
             ""});
    }
    return presets;
}

} // namespace

const std::vector<SunlightPreset>& sunlightPresets() {
    static const std::vector<SunlightPreset> presets = makePresets();
    return presets;
}

const SunlightPreset& sunlightPreset(std::string_view name) {
    std::vector<std::string> names;
    for (const SunlightPreset& preset : sunlightPresets()) {
        if (preset.name == name) {
            return preset;
        }
        names.push_back(preset.name);
    }
    const std::string close = didYouMean(name, names);
    throw UsageError(fmt::format(
        "--rule: there is no {}{}", quoteText(name),
        close.empty() ? fmt::format("; choose from {}", fmt::join(names, ", ")) : close));
}

} // namespace insolate::study
