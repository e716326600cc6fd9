/// Sensors that lie inside of a body or against another one. sky_view.cpp has the rays for it.
#pragma once

#include "study/run/study_inputs.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

/// Whether these views [%] are those of a sensor inside of a body or against another one.
inline bool isEnclosedView(float skyView, float groundView) {
    // Sums of views that were taken out again are not quite 0, and a nearly level roof's part of
    // the ground is not looked for.
    constexpr float leastSky = 0.001f;
    constexpr float leastGround = 0.5f;
    return skyView < leastSky && !(groundView >= leastGround);
}

/// By sensor, 1 where the views that skyViews() gives are those of an enclosed one; the others are
/// mostly known after some rays.
/// @param asked by sensor: 0 is known not to be enclosed
/// @throws Stopped
std::vector<float> enclosedAmong(std::span<const std::uint8_t> asked, const StudyInputs& inputs,
                                 double north, int threads, const std::stop_token& stop);

/// What a person should know of enclosed sensors.
/// @param unseen what lies before none of them: "neither sky nor ground"
/// @param areKept whether they count in means and colours
std::string enclosedWarning(std::size_t enclosed, std::size_t sensors, const char* unseen,
                            bool areKept);

} // namespace insolate::study
