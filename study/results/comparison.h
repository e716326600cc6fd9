/// Two studies side by side: which cells are the same place, and what differs there.
#pragma once

#include "study/export.h"
#include "study/model/scene.h"
#include "study/results/result_column.h"
#include "study/results/result_folder.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

struct CompareOptions {
    /// Quantities by their names in sensors.csv; none: all that both studies have.
    std::vector<std::string> values = {};
    /// How far apart two sensors may be that stand for the same place [m], 0..100. Absent: three
    /// quarters of the typical edge of a cell, of the coarser study, which lets each centre find
    /// the cell that it lies in (0.71 edges away at most) and no neighbour of the same grid; 0
    /// without cells.
    std::optional<double> tolerance = {};

    /// Sensors this close are the same place whatever the tolerance [m].
    static constexpr double samePlace = 1.0e-3;
};

/// A sensor of B and its partner in A.
struct SensorPair {
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    float distance = 0.0F; ///< [m]
};

struct Comparison {
    std::vector<SensorPair> pairs;    ///< ascending by b
    std::vector<std::uint32_t> onlyA; ///< sensors with no place of theirs in B, ascending
    std::vector<std::uint32_t> onlyB; ///< likewise
    std::size_t samePlaces = 0;       ///< pairs within samePlace
    double tolerance = 0.0;           ///< [m]
    SensorField field;                ///< the pairs' sensors and cells, of B
    std::vector<float> areas;         ///< of these cells [m2]; empty for sensors without
    std::vector<std::string> values;  ///< the quantities that were compared
    /// Of each quantity four: NAME_difference, B less A; NAME_ratio, B in percent of A, NaN where A
    /// is 0; NAME_a and NAME_b. All four are NaN where one of the studies leaves its sensor out of
    /// means, so that those of A and B are of the same cells.
    std::vector<ResultColumn> columns;
    /// What makes the comparison doubtful, as sentences: other weather, other method, ...
    std::vector<std::string> doubts;
};

/// Finds to each sensor of B the nearest one of A that looks the same way: within a degree where
/// both are at the same place, else within ten degrees and the tolerance. A sensor of A at the same
/// place as one of B is nobody else's partner. Where several of a study lie at one place, as on a
/// wall that two bodies share, each has a partner of its own while there are any: first the one
/// with its normal, then the one of its object and material. The order of the sensors decides only
/// between those that agree in all of this.
/// @throws DataError when the studies cannot be compared (another question, period or rule, other
///         units, other sensors) with the reason, UsageError for options that cannot be, Stopped
INSOLATE_STUDY_EXPORT Comparison compareResults(const ResultFolder& a, const ResultFolder& b,
                                                const CompareOptions& options = {},
                                                const std::stop_token& stop = {});

/// Whether a column is a difference, whose colours run to both sides of zero.
INSOLATE_STUDY_EXPORT bool isDifference(const ResultColumn& column);

/// The field's sensors of these numbers, with cells and names.
INSOLATE_STUDY_EXPORT SensorField partOf(const SensorField& field,
                                         std::span<const std::uint32_t> sensors);

} // namespace insolate::study
