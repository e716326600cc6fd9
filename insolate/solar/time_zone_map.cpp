#include <insolate/solar/time_zone_map.h>

namespace insolate {

float timeZoneOfCell(int row, int column) {
    if (row >= 0 && row < timeZoneMapRows) {
        int reached = -2;
        for (int at = timeZoneMapRowStart[row]; at < timeZoneMapRowStart[row + 1]; at += 2) {
            reached += timeZoneMapRuns[at];
            if (reached >= column) {
                return static_cast<float>(timeZoneMapRuns[at + 1]) / 10.0f;
            }
        }
    }
    return 12.0f;
}

} // namespace insolate
