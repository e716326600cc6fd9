/// The whole public interface of the study library in one include: models, sensors, weather,
/// studies and the files that they leave.
#pragma once

#include <study/files/output_folder.h>
#include <study/files/result_name.h>
#include <study/model/coplanar.h>
#include <study/model/ground_plane.h>
#include <study/model/mesh.h>
#include <study/model/mesh_import.h>
#include <study/model/model_info.h>
#include <study/model/recentring.h>
#include <study/model/scene.h>
#include <study/model/selection.h>
#include <study/model/sensor_csv.h>
#include <study/model/sensor_grid.h>
#include <study/model/winding.h>
#include <study/output/color_map.h>
#include <study/output/picture.h>
#include <study/output/picture_format.h>
#include <study/output/picture_view.h>
#include <study/output/sensor_tables.h>
#include <study/results/result_column.h>
#include <study/run/option_table.h>
#include <study/run/period.h>
#include <study/run/run_option_table.h>
#include <study/run/run_options.h>
#include <study/run/run_sky.h>
#include <study/run/run_study.h>
#include <study/run/run_sun.h>
#include <study/run/run_weather.h>
#include <study/run/study_file.h>
#include <study/support/errors.h>
#include <study/support/progress.h>
#include <study/weather/weather_check.h>
#include <study/weather/weather_year.h>
