/// From records of weather, one or several an hour, to the hours of a year.
#pragma once

#include <insolate/export.h>
#include <insolate/weather/epw_text.h>
#include <insolate/weather/weather_series.h>

#include <array>
#include <cstddef>
#include <vector>

namespace insolate {

/// Sums up the values of each hour's records.
class INSOLATE_EXPORT HourMeans {
public:
    HourMeans();

    /// @param hour of the year, 0..8,759
    /// @param value not finite where the record has none
    void add(EpwField field, std::size_t hour, float value);

    /// Gives the series the means of its values and its monthly albedo. An hour of which only some
    /// records have radiation gets none: the mean over a part of it would change its sum. For other
    /// values one record is enough.
    void fill(WeatherSeries& series, int recordsAnHour) const;

private:
    struct Sum {
        double sum = 0.0;
        int count = 0;
    };
    std::array<std::vector<Sum>, epwFieldCount> m_sums;
};

} // namespace insolate
