/// The walk over a study's sensors that all methods share.
#pragma once

#include "study/run/partial_results.h"
#include "study/run/radiation_method.h"
#include "study/support/progress.h"

#include <cstddef>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate::study {

/// Results of all sensors, in blocks, on several threads. Equal inputs give equal bytes for every
/// number of threads.
/// @param threads 0: all processors
/// @param kept receives finished sensors and gives those of a stopped run; null: none are kept
/// @throws Stopped at the next block after the stop was asked for
std::vector<ResultColumn> calculateSensors(RadiationMethod& method, const SensorWork& work,
                                           int threads, PartialResults* kept, Progress& progress,
                                           const std::stop_token& stop);

/// By sensor 1 where it looks into closed geometry, by the method's judgement, else 0.
std::vector<float> enclosedSensors(const RadiationMethod& method,
                                   std::span<const ResultColumn> columns, const SensorField& field);

} // namespace insolate::study
