/// The order in which sensors share their work.
#pragma once

#include <insolate/hourly/hourly_analysis.h>

#include <cstdint>
#include <span>
#include <vector>

namespace insolate {

/// Places of the sensors along a curve that fills the box around them: sensors that follow each
/// other lie close together, whatever rows or faces they come in. Those at one place keep their
/// order. Positions are finite.
///
/// Morton (1966), "A computer oriented geodetic data base and a new technique in file sequencing",
/// IBM: the bits of the coordinates in turn.
std::vector<std::uint32_t> alongCurve(std::span<const Sensor> sensors);

} // namespace insolate
