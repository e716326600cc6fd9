#include "study/output/summary.h"

#include <algorithm>
#include <cmath>

#include <cairo.h>
#include <insolate/version.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

ColumnRange rangeOf(std::span<const float> values, std::span<const float> weights,
                    std::span<const std::uint8_t> included) {
    ColumnRange range;
    double sum = 0.0;
    double weight = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const float value = values[i];
        if (!std::isfinite(value) || (!included.empty() && included[i] == 0)) {
            continue;
        }
        const double number = value;
        range.lowest = range.count == 0 ? number : std::min(range.lowest, number);
        range.highest = range.count == 0 ? number : std::max(range.highest, number);
        const double own = weights.empty() ? 1.0 : static_cast<double>(weights[i]);
        sum += own * number;
        weight += own;
        ++range.count;
    }
    if (weight > 0.0) {
        range.mean = sum / weight;
    }
    return range;
}

nlohmann::ordered_json rangesOf(std::span<const ResultColumn> columns,
                                std::span<const float> weights,
                                std::span<const std::uint8_t> included) {
    nlohmann::ordered_json ranges = nlohmann::ordered_json::object();
    for (const ResultColumn& column : columns) {
        const ColumnRange range = rangeOf(column.values, weights, included);
        ranges[column.name] = {{"title", column.title},  {"unit", column.unit},
                               {"lowest", range.lowest}, {"highest", range.highest},
                               {"mean", range.mean},     {"count", range.count}};
    }
    return ranges;
}

nlohmann::ordered_json versionsInUse() {
    return {{"insolate", INSOLATE_VERSION},
            {"compiler", __VERSION__},
            {"cairo", cairo_version_string()}};
}

void writeSummaryJson(OutputFile& out, const nlohmann::ordered_json& summary) {
    out.write(summary.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    out.write("\n");
}

bool isOurSummary(const std::filesystem::path& file) {
    const std::string begin = fileBeginning(file, 256);
    const std::size_t versions = begin.find("\"versions\"");
    return begin.starts_with("{") && versions != std::string::npos &&
           begin.find("\"insolate\":", versions) != std::string::npos;
}

} // namespace insolate::study
