/// How far the sums of a year are from a converged reference, in shares of a sensor's total.
#pragma once

#include <string>
#include <vector>

namespace insolate {

/// Prints, for each scene and tolerance, the share of sensors within 1 and 2 % of their total and
/// within the tolerance, the largest and the root mean square error, and the time of a sensor.
/// @param cities names of weather files in the folder, without their ending; "south" is a clear
/// year at 34 degrees south
/// @param tolerances HourlyAnalysisOptions::tolerance
void printTotalAccuracy(const std::string& folder, const std::vector<std::string>& cities,
                        const std::vector<double>& tolerances);

} // namespace insolate
