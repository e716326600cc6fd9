/// Texts by sensor: names of what a cell belongs to, dates.
#pragma once

#include "study/export.h"
#include "study/model/scene.h"
#include "study/results/result_column.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace insolate::study {

/// One text by sensor, each different text kept once.
struct LabelColumn {
    static constexpr std::int32_t none = -1; ///< a sensor without a text

    std::string name;                  ///< lower_snake, the name in files: "object"
    std::vector<std::string> labels;   ///< in the order in which sensors first have them
    std::vector<std::int32_t> indices; ///< by sensor into labels, or none
    /// The result column that it explains, and stands behind in tables; empty: it stands at the
    /// end.
    std::string beside = {};
};

/// Names of the objects (of the groups for faces in no object) that the cells belong to; no indices
/// for sensors that were not cut from a mesh.
INSOLATE_STUDY_EXPORT LabelColumn objectLabels(const SensorField& field);
/// Names of their materials, likewise.
INSOLATE_STUDY_EXPORT LabelColumn materialLabels(const SensorField& field);

/// When the hours of the column peak_hour begin, "2001-05-22T11:00+01:00", beside it; nothing where
/// there is no such column.
/// @param timeZone of the site, hours from UTC
INSOLATE_STUDY_EXPORT std::optional<LabelColumn> peakStarts(std::span<const ResultColumn> columns,
                                                            double timeZone);

} // namespace insolate::study
