#include "study/output/series_table.h"

#include "study/files/input_file.h"

#include <cmath>
#include <string_view>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr std::string_view header = "hour_of_year,month,day,hour";

} // namespace

void writeSeriesCsv(OutputFile& out, const StudyPeriod& period,
                    std::span<const SensorSeries> series) {
    out.write(header);
    for (const SensorSeries& one : series) {
        out.write(fmt::format(",beam_{0} [Wh/m2],sky_{0} [Wh/m2],ground_{0} [Wh/m2]", one.sensor));
    }
    out.write("\n");
    for (int i = 0; i < period.dayCount(); ++i) {
        const int day = (period.startDay - 1 + i) % 365;
        const MonthAndDay date = monthAndDay(day);
        const bool isAhead = period.summerTime && period.summerTime->contains(day + 1);
        for (int hour = 0; hour < 24; ++hour) {
            const int clock = isAhead ? (hour + 1) % 24 : hour; // what watches show
            if (clock + 1 <= period.startHour || clock >= period.endHour) {
                continue;
            }
            const auto index = static_cast<std::size_t>(24 * day + hour);
            out.write(fmt::format("{},{},{},{}", index + 1, date.month, date.day, hour + 1));
            for (const SensorSeries& one : series) {
                for (const auto* part : {&one.hours.beam, &one.hours.sky, &one.hours.ground}) {
                    out.write(",");
                    out.writeNumber((*part)[index]);
                }
            }
            out.write("\n");
        }
    }
}

bool isOurSeriesCsv(const std::filesystem::path& file) {
    return fileBeginning(file, header.size()) == header;
}

} // namespace insolate::study
