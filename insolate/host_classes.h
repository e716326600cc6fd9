/// The host classes in one include: the controller and its points, the masks, the scene of the
/// process, the sun, the weather and the cumulative sky. They stand at global scope and in RT,
/// share the process-wide site ESolarPosition::Global and the process-wide scene, and compile as
/// C++17.
#pragma once

#include <insolate/export.h>
#include <insolate/version.h>

#include <insolate/analysis/calculation_method.h>
#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/analysis/object.h>
#include <insolate/analysis/solar_analysis_controller.h>
#include <insolate/analysis/ui_controller.h>

#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/perez_irradiance.h>
#include <insolate/sky/solar_radiation.h>

#include <insolate/shading/shading_mask.h>
#include <insolate/shading/shading_mask_accumulator.h>

#include <insolate/rt/input_package_util.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/ray_transparency.h>
#include <insolate/rt/spatial_tree_util.h>

#include <insolate/solar/solar_position.h>
#include <insolate/solar/terrestrial_location.h>

#include <insolate/weather/load_weather_result.h>
#include <insolate/weather/weather_data.h>

#include <insolate/geometry/geometry.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/triangular_facet.h>
#include <insolate/geometry/xyzf.h>

#include <insolate/platform/debug_output.h>
