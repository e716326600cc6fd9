#include "study/weather/epw_records.h"

#include "study/support/errors.h"
#include "study/support/readable.h"

#include <cstddef>
#include <string_view>

#include <fmt/format.h>
#include <insolate/weather/epw_text.h>
#include <insolate/weather/text_lines.h>

namespace insolate::study {

std::optional<std::string> unevenRecordsNote(const WeatherInput& input) {
    TextLines lines(input.content);
    TextLine line;
    std::size_t width = 0;
    std::size_t uneven = 0;
    std::size_t firstLine = 0;
    std::size_t firstWidth = 0;
    while (lines.next(line)) {
        if (epwLineKind(line.text) != EpwLineKind::Record) {
            continue;
        }
        FieldSplitter splitter(line.text);
        std::size_t count = 0;
        for (std::string_view field; splitter.next(field);) {
            ++count;
        }
        width = width == 0 ? count : width;
        if (count != width && ++uneven == 1) {
            firstLine = line.number;
            firstWidth = count;
        }
    }
    if (uneven == 0) {
        return std::nullopt;
    }
    return fmt::format(
        "{}: {} fields where the first record has {} ({} such {}); if a comma is too "
        "many or missing, the values behind it are in wrong columns: correct the "
        "line or download the file again",
        place(input.file, firstLine), firstWidth, width, groupedDigits(uneven),
        counted(uneven, "record", "records"));
}

} // namespace insolate::study
