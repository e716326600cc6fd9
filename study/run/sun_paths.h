/// The sun's way over the sky on the longest, a middle and the shortest day, for orientation.
#pragma once

#include "study/results/sky_pages.h"
#include "study/support/period.h"

#include <array>
#include <utility>
#include <vector>

namespace insolate::study {

/// @param sunAt gives azimuth and altitude [degrees] by day of the year and clock hour
template <typename SunAt>
std::vector<SkyPath> sunPaths(SunAt&& sunAt) {
    constexpr std::array<int, 3> pathDays = {172, 80, 355};
    std::vector<SkyPath> paths;
    for (const int day : pathDays) {
        SkyPath path{.label = dayText(day), .points = {}};
        for (int minute = 0; minute <= 1440; minute += 10) {
            path.points.push_back(sunAt(day, minute / 60.0));
        }
        paths.push_back(std::move(path));
    }
    return paths;
}

} // namespace insolate::study
