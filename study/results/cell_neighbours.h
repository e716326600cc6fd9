/// Which cells lie side by side.
#pragma once

#include "study/export.h"
#include "study/model/scene.h"

#include <cstdint>
#include <stop_token>
#include <utility>
#include <vector>

namespace insolate::study {

/// Pairs of cells that share an edge, or a part of one, and look the same way within 15 degrees:
/// what a module could lie across. Each pair once, the lower number first, in ascending order; none
/// for sensors without cells.
INSOLATE_STUDY_EXPORT std::vector<std::pair<std::uint32_t, std::uint32_t>>
neighbouringCells(const SensorField& field, const std::stop_token& stop = {});

} // namespace insolate::study
