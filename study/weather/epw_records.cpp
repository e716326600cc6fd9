#include "study/weather/epw_records.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <cstddef>
#include <string_view>

#include <fmt/format.h>
#include <insolate/weather/epw_text.h>
#include <insolate/weather/text_lines.h>

namespace insolate::study {

void noteUnevenRecords(const WeatherInput& input, WeatherReport& report) {
    TextLines lines(input.content);
    TextLine line;
    std::size_t width = 0; // of the first record, without empty fields at its end
    std::size_t uneven = 0;
    std::size_t firstLine = 0;
    std::size_t firstCount = 0;
    while (lines.next(line)) {
        if (epwLineKind(line.text) != EpwLineKind::Record) {
            continue;
        }
        FieldSplitter splitter(line.text);
        std::size_t count = 0;
        std::size_t filled = 0;
        for (std::string_view field; splitter.next(field);) {
            ++count;
            filled = trimmed(field).empty() ? filled : count;
        }
        width = width == 0 ? filled : width;
        if ((filled > width || count < width) && ++uneven == 1) {
            firstLine = line.number;
            firstCount = filled;
        }
    }
    if (uneven > 0) {
        report.notes.push_back(fmt::format(
            "{}: {} fields where the first record has {} ({} such {}); if a comma is too many or "
            "missing, the values behind it are in wrong columns: correct the line or download the "
            "file again",
            place(input.file, firstLine), firstCount, width, groupedDigits(uneven),
            counted(uneven, "record", "records")));
    }
}

} // namespace insolate::study
