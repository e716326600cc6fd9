/// The order in which sensors share their work.
#pragma once

#include <insolate/hourly/hourly_analysis.h>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace insolate {

/// The bits of three coordinates in turn, the first coordinate's lowest: what is near in this order
/// is near in space. Of each the lowest 16 bits count, and the others must be 0.
///
/// Morton (1966), "A computer oriented geodetic data base and a new technique in file sequencing",
/// IBM.
std::uint64_t placeOnCurve(const std::array<std::uint32_t, 3>& coordinates);

/// Places of the sensors along a curve that fills the box around them: sensors that follow each
/// other lie close together, whatever rows or faces they come in. Those at one place keep their
/// order. Positions are finite.
std::vector<std::uint32_t> alongCurve(std::span<const Sensor> sensors);

} // namespace insolate
