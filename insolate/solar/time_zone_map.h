/// A world map of standard time zones in cells of half a degree, run-length encoded by rows.
#pragma once

#include <cstdint>

namespace insolate {

inline constexpr int timeZoneMapRows = 357;
inline constexpr int timeZoneMapBytes = 18506;

/// Row r occupies the bytes [timeZoneMapRowStart[r], timeZoneMapRowStart[r + 1]) of the runs.
extern const std::int32_t timeZoneMapRowStart[timeZoneMapRows + 1];

/// Pairs of a run length (1 to 127 columns) and a zone [tenths of an hour].
extern const std::int8_t timeZoneMapRuns[timeZoneMapBytes];

/// The zone [hours] of a cell: rows of half a degree from the north pole (0 to 356), columns of
/// half a degree from 180 degrees west. 12 for columns beyond the last run and rows outside the
/// map.
float timeZoneOfCell(int row, int column);

} // namespace insolate
