/// The whole public interface of the library in one include.
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

#include <insolate/hourly/hourly_analysis.h>
#include <insolate/hourly/hourly_sky.h>

#include <insolate/platform/debug_output.h>

#include <insolate/geometry/geometry.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/triangular_facet.h>
#include <insolate/geometry/xyzf.h>

#include <insolate/solar/solar_position.h>
#include <insolate/solar/sun_position.h>
#include <insolate/solar/terrestrial_location.h>

#include <insolate/weather/load_weather_result.h>
#include <insolate/weather/weather_data.h>
#include <insolate/weather/weather_series.h>

#include <insolate/rt/input_package_util.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/ray_transparency.h>
#include <insolate/rt/sky_visibility.h>
#include <insolate/rt/spatial_tree_util.h>

#include <insolate/shading/shading_mask.h>
#include <insolate/shading/shading_mask_accumulator.h>
