#include "study/output/hours_table.h"

#include "study/files/input_file.h"
#include "study/output/text.h"
#include "study/support/iso_time.h"

#include <array>
#include <string_view>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr std::string_view hourHeadings = "hour_of_year,start";
constexpr std::string_view formerHeadings = "hour_of_year,month,day,hour";

} // namespace

void writeHoursCsv(OutputFile& out, std::span<const int> hours, double timeZone,
                   std::span<const HourRow> rows) {
    out.write(hourHeadings);
    for (const HourRow& row : rows) {
        for (const char* part : {"beam", "sky", "ground"}) {
            out.write("," + csvField(fmt::format("{}_{} [Wh/m2]", part, validText(row.name))));
        }
    }
    out.write("\n");
    for (const int hour : hours) {
        out.write(fmt::format("{},{}", hour + 1, isoHourStart(hour, timeZone)));
        for (const HourRow& row : rows) {
            for (const auto* part : {&row.hours.beam, &row.hours.sky, &row.hours.ground}) {
                out.write(",");
                out.writeNumber((*part)[static_cast<std::size_t>(hour)]);
            }
        }
        out.write("\n");
    }
}

bool isOurHoursCsv(const std::filesystem::path& file) {
    return fileBeginning(file, hourHeadings.size()) == hourHeadings;
}

bool isOurSeriesCsv(const std::filesystem::path& file) {
    return fileBeginning(file, formerHeadings.size()) == formerHeadings;
}

} // namespace insolate::study
