#include "study/support/iso_time.h"

#include <cmath>

#include <fmt/format.h>
#include <insolate/weather/weather_series.h>

namespace insolate::study {

std::string isoOffset(double timeZone) {
    const auto minutes = static_cast<int>(std::lround(std::abs(timeZone) * 60.0));
    return fmt::format("{}{:02}:{:02}", timeZone < 0.0 && minutes > 0 ? '-' : '+', minutes / 60,
                       minutes % 60);
}

std::string isoHourStart(int hourOfYear, double timeZone) {
    const MonthAndDay date = monthAndDay(hourOfYear / 24);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:00{}", nominalYear, date.month, date.day,
                       hourOfYear % 24, isoOffset(timeZone));
}

} // namespace insolate::study
