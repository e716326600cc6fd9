#include "study/run/period_parts.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

#include <fmt/format.h>
#include <insolate/weather/weather_series.h>

namespace insolate::study {

namespace {

constexpr std::array<const char*, 12> monthParts = {"jan", "feb", "mar", "apr", "may", "jun",
                                                    "jul", "aug", "sep", "oct", "nov", "dec"};
constexpr std::array<const char*, 4> seasonParts = {"dec_feb", "mar_may", "jun_aug", "sep_nov"};

std::string dayName(int dayOfYear) {
    const MonthAndDay date = monthAndDay(dayOfYear - 1);
    return fmt::format("{:02}_{:02}", date.month, date.day);
}

std::string splitName(PeriodSplit split, int dayOfYear) {
    const auto month = static_cast<std::size_t>(monthAndDay(dayOfYear - 1).month);
    switch (split) {
    case PeriodSplit::month:
        return monthParts[month - 1];
    case PeriodSplit::season:
        return seasonParts[month % 12 / 3];
    case PeriodSplit::day:
    case PeriodSplit::none:
        break;
    }
    return dayName(dayOfYear);
}

std::string clockName(double hours) {
    const auto minutes = static_cast<int>(std::lround(hours * 60.0));
    return fmt::format("{:02}{:02}", minutes / 60, minutes % 60);
}

/// Neighbouring days of one name are one part, over the end of a whole year too.
std::vector<NamedPeriod> splitParts(const StudyPeriod& whole, PeriodSplit split) {
    std::vector<NamedPeriod> parts;
    const int days = whole.dayCount();
    for (int i = 0; i < days; ++i) {
        const int day = (whole.startDay - 1 + i) % 365 + 1;
        const std::string name = splitName(split, day);
        if (parts.empty() || parts.back().name != name) {
            parts.push_back({name, {}, whole});
            parts.back().period.startDay = day;
        }
        parts.back().period.endDay = day;
    }
    if (days == 365 && parts.size() > 1 && parts.front().name == parts.back().name) {
        parts.front().period.startDay = parts.back().period.startDay;
        parts.pop_back();
    }
    std::set<std::string> names;
    for (NamedPeriod& part : parts) {
        if (!names.insert(part.name).second) {
            part.name += "_2";
        }
        part.text = part.period.text();
    }
    return parts;
}

bool isSame(const StudyPeriod& a, const StudyPeriod& b) {
    return a.startDay == b.startDay && a.endDay == b.endDay && a.startHour == b.startHour &&
           a.endHour == b.endHour;
}

bool contains(const StudyPeriod& whole, const StudyPeriod& part) {
    if (part.startHour < whole.startHour || part.endHour > whole.endHour) {
        return false;
    }
    for (int i = 0; i < part.dayCount(); ++i) {
        if (!whole.contains((part.startDay - 1 + i) % 365 + 1)) {
            return false;
        }
    }
    return true;
}

} // namespace

PeriodSplit parseSplit(std::string_view text) {
    if (text == "month") {
        return PeriodSplit::month;
    }
    if (text == "season") {
        return PeriodSplit::season;
    }
    if (text == "day") {
        return PeriodSplit::day;
    }
    throw UsageError(
        fmt::format("--split: there is no {}; choose from month, season, day", quoteText(text)));
}

AskedPeriod parseAskedPeriod(std::string_view text) {
    AskedPeriod asked;
    try {
        const std::size_t colon = text.find(':');
        const DateRange days = parseDateRange(text.substr(0, colon));
        asked.period.startDay = days.first.day;
        asked.period.endDay = days.last.day;
        asked.hasHours = colon != std::string_view::npos;
        if (asked.hasHours) {
            const HourRange hours = parseHourRange(text.substr(colon + 1));
            asked.period.startHour = hours.start;
            asked.period.endHour = hours.end;
        }
    } catch (const UsageError& error) {
        throw UsageError(inOption("--periods", text, error.what()));
    }
    return asked;
}

std::vector<NamedPeriod> partsOf(const StudyPeriod& whole, PeriodSplit split,
                                 const std::vector<AskedPeriod>& asked) {
    std::vector<NamedPeriod> parts;
    if (split != PeriodSplit::none) {
        parts = splitParts(whole, split);
    }
    for (const AskedPeriod& one : asked) {
        NamedPeriod part{dayName(one.period.startDay), {}, one.period};
        part.period.step = whole.step;
        part.period.summerTime = whole.summerTime;
        if (one.period.endDay != one.period.startDay) {
            part.name += "_" + dayName(one.period.endDay);
        }
        if (one.hasHours) {
            part.name +=
                "_" + clockName(one.period.startHour) + "_" + clockName(one.period.endHour);
        } else {
            part.period.startHour = whole.startHour;
            part.period.endHour = whole.endHour;
        }
        part.text = part.period.text();
        if (!contains(whole, part.period)) {
            throw UsageError(fmt::format("--periods: {} does not lie in the study's {}; give a "
                                         "longer --period and --hours, or leave it out",
                                         part.text, whole.text()));
        }
        const auto same = std::find_if(parts.begin(), parts.end(), [&](const NamedPeriod& other) {
            return other.name == part.name;
        });
        if (same == parts.end()) {
            parts.push_back(std::move(part));
        } else if (!isSame(same->period, part.period)) {
            throw UsageError(fmt::format("--periods: {} and another part differ by less than a "
                                         "minute and would both be called {}; give hours in whole "
                                         "minutes",
                                         part.text, part.name));
        }
    }
    return parts;
}

} // namespace insolate::study
