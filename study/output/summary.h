/// summary.json: what was asked, what was used, what came out.
#pragma once

#include "study/files/output_folder.h"
#include "study/results/result_column.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

#include <nlohmann/json_fwd.hpp>

namespace insolate::study {

/// Least, greatest and mean of a column's finite values.
struct ColumnRange {
    double lowest = 0.0;
    double highest = 0.0;
    double mean = 0.0;
    std::size_t count = 0; ///< finite values; the other members are 0 when there are none
};
/// @param weights of the mean, one for each value; empty: all alike
/// @param included by value: 0 leaves it out; empty: all count
ColumnRange rangeOf(std::span<const float> values, std::span<const float> weights = {},
                    std::span<const std::uint8_t> included = {});

/// {"total": {"title": ..., "unit": ..., "lowest": ..., "highest": ..., "mean": ...}, ...}
nlohmann::ordered_json rangesOf(std::span<const ResultColumn> columns,
                                std::span<const float> weights = {},
                                std::span<const std::uint8_t> included = {});

/// {"insolate": "0.1.0", "compiler": ..., "cairo": ...}: what made the result.
nlohmann::ordered_json versionsInUse();

/// Writes the document indented, with a final newline; text that is not UTF-8 gets
/// replacement characters.
void writeSummaryJson(OutputFile& out, const nlohmann::ordered_json& summary);

/// By the versions that each summary begins with, versionsInUse().
bool isOurSummary(const std::filesystem::path& file);

} // namespace insolate::study
