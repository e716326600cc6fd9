// Any text as a date, dates, hours and a step: refused, or a period that can be calculated.
#include "memory_file.h"

#include "study/support/errors.h"
#include "study/support/period.h"

#include <cstring>
#include <functional>

INSOLATE_FUZZ_TARGET(dates)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    StudyPeriod period;
    const auto attempt = [](const std::function<void()>& parse) {
        try {
            parse();
        } catch (const UsageError& error) {
            insolate::fuzz::requireFix(error);
        }
    };
    attempt([&] {
        const int day = parseDate(text).day;
        require(day >= 1 && day <= 365, "a date is a day of the year");
    });
    attempt([&] { parseDates(text, period); });
    attempt([&] { period.summerTime = summerTimeOf(text, 2025); });
    attempt([&] { parseHours(text, period); });
    require(period.startDay >= 1 && period.startDay <= 365 && period.endDay >= 1 &&
                period.endDay <= 365,
            "dates are days of the year");
    require(period.startHour >= 0.0 && period.startHour < period.endHour && period.endHour <= 24.0,
            "hours are hours of the day");
    require(period.dayCount() >= 1 && period.dayCount() <= 365, "a period has days");
    require(!period.text().empty(), "a period has a text");
    if (size >= sizeof(double)) {
        double step = 0.0;
        std::memcpy(&step, bytes, sizeof step);
        attempt([&] {
            checkStep(step);
            require(step > 0.0 && step <= 1.0, "a step is part of an hour");
        });
    }
    return 0;
}
