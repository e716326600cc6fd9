/// The whole public interface of the library in one include. There are two worlds in it:
///
/// - the host classes (<insolate/host_classes.h>): an analysis driven through a controller and
///   callbacks, with one shared site and one scene for the process. C++17 is enough for them;
/// - namespace insolate: weather series, the hourly sky and its analysis, the occlusion index, the
///   sun at an instant. Plain values without process-wide state. C++20.
///
/// They meet in the ray interface (an OcclusionIndex may serve masks, a host's rays may serve the
/// hourly analysis), in XYZf and in the grid of sky cells.
#pragma once

#if (defined(_MSVC_LANG) ? _MSVC_LANG : __cplusplus) < 202002L
#error                                                                                             \
    "insolate/insolate.h needs C++20 (-std=c++20); for the host classes alone, which need C++17, include insolate/host_classes.h instead"
#else

// The host classes.
#include <insolate/host_classes.h>

// Namespace insolate.
#include <insolate/hourly/hourly_analysis.h>
#include <insolate/hourly/hourly_sky.h>
#include <insolate/hourly/reflected_light.h>

#include <insolate/weather/weather_series.h>

#include <insolate/solar/sun_position.h>

#include <insolate/rt/light_scene.h>
#include <insolate/rt/material.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/sky_visibility.h>

#include <insolate/sunlight/sun_path.h>
#include <insolate/sunlight/sunlight_index.h>

#endif
