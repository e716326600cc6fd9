/// What the user asks of a study, as given; nothing is checked here beyond its form.
#pragma once

#include "study/model/mesh_import.h"
#include "study/run/period.h"

#include <array>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace insolate::study {

/// How rays find the triangles in their way.
enum class RayMethod { fast, octree };

/// How radiation is calculated: hour by hour, or by one of the library's CalculationMethod.
enum class Method { hourly, cumulativeSky, perezSky, perezPoint };
inline constexpr std::array<Method, 4> allMethods = {Method::hourly, Method::cumulativeSky,
                                                     Method::perezSky, Method::perezPoint};

/// What only the hourly method asks for.
struct HourlyOptions {
    /// Errors that shadow edges may leave, in percent of the sensor's diffuse sky and direct sun; 0
    /// takes what two rays for each sky cell give.
    double skyTolerance = 0.0;
    double sunTolerance = 0.0;
    double albedo = 0.2;                  ///< 0..1
    bool monthlyAlbedo = false;           ///< from the weather file, where it has one
    bool openGround = false;              ///< the scene does not hide the ground below the horizon
    std::vector<std::size_t> series = {}; ///< sensors whose hours are wanted
};

/// The weather and the period: what a sky is made from.
struct SkyOptions {
    std::filesystem::path weather;
    StudyPeriod period;
    Method method = Method::hourly;
    HourlyOptions hourly;
    bool allowGaps = false;
    std::filesystem::path out;
    bool quiet = false;
};

struct RunOptions : SkyOptions {
    std::vector<std::filesystem::path> scenes;
    std::optional<std::filesystem::path> sensors; ///< absent: the first scene file
    MeshImportOptions import;
    double north = 0.0; ///< from the model's +Y clockwise to true north [degrees]
    double grid = 2.0;  ///< [m]
    bool gridGiven = false;
    double offset = 0.05; ///< [m]
    std::vector<std::string> select;
    int threads = 0; ///< 0: all processors
    RayMethod rays = RayMethod::fast;
    bool saveMasks = false;                     ///< keep what each sensor sees of the sky
    std::optional<std::filesystem::path> masks; ///< what each sensor sees, from an earlier run
    bool resume = false;                        ///< go on where a stopped run of the same study was
    bool force = false;

    [[nodiscard]] const std::filesystem::path& sensorFile() const {
        return sensors ? *sensors : scenes.front();
    }
};

struct SunOptions {
    std::optional<std::filesystem::path> weather; ///< names the site; else latitude and longitude
    std::optional<double> latitude;               ///< degrees, north positive
    std::optional<double> longitude;              ///< degrees, east positive
    std::optional<double> timeZone; ///< hours from UTC; absent: from the map of time zones
    int day = 172;                  ///< of the year
    double step = 1.0;              ///< hours
};

/// "hourly", "cumulative-sky", "perez-sky" or "perez-point".
std::string methodName(Method method);

/// Threads that work when `threads` are asked for; 0 asks for all processors.
int usedThreads(int threads);

} // namespace insolate::study
