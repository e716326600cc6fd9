/// What the user asks of a study, as plain values.
#pragma once

#include "study/export.h"
#include "study/model/materials.h"
#include "study/model/mesh_import.h"
#include "study/model/selection.h"
#include "study/model/winding.h"
#include "study/results/hour_rows.h"
#include "study/results/sensor_groups.h"
#include "study/run/period_parts.h"
#include "study/support/period.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace insolate::study {

/// How rays find the triangles in their way.
enum class RayMethod { fast, octree };

/// What only the hourly method asks for.
struct HourlyOptions {
    /// Error that a sensor's total may have, in percent of it, reflected light included; 0 takes
    /// what the first rays give, and reflected light as by the usual one.
    /// Absent: usualTolerance.
    std::optional<double> tolerance = {};
    static constexpr double usualTolerance = 1.0;
    /// Errors that shadow edges may leave beside that, in percent of the sensor's diffuse sky and
    /// direct sun; 0 asks for nothing.
    double skyTolerance = 0.0;
    double sunTolerance = 0.0;
    double toleranceOfTotal() const { return tolerance.value_or(usualTolerance); }
    std::optional<double> albedo = {}; ///< of the ground, 0..1; absent: usualAlbedo
    bool monthlyAlbedo = false;        ///< from the weather file, where it has one
    /// Of the scene's surfaces that no material fits, 0..1; absent:
    /// MaterialRules::usualReflectance. 0: nothing reflects, whatever the materials say.
    std::optional<double> reflectance = {};
    int bounces = 0; ///< reflections on the way to a sensor; 0: until hardly anything is left
    std::filesystem::path materials = {}; ///< a file of them, see materials.h; empty: none
    /// What the file says, or a host in its place. Read by whoever prepares a study.
    std::shared_ptr<const MaterialRules> rules = {};
    bool openGround = false; ///< the scene does not hide the ground below the horizon
    bool unshaded = false;   ///< also what each sensor would get without the scene
    HoursOf hoursOf = {};    ///< whose hours are wanted

    PeriodSplit split = PeriodSplit::none; ///< parts of the period with results of their own
    std::vector<AskedPeriod> periods = {}; ///< others of them
    bool operator==(const HourlyOptions&) const = default;

    static constexpr double usualAlbedo = 0.2;

    /// Of surfaces that no material fits.
    [[nodiscard]] double otherReflectance() const {
        return reflectance.value_or(MaterialRules::usualReflectance);
    }
};

/// The weather and the period: what a sky is made from.
struct SkyOptions {
    std::filesystem::path weather;
    StudyPeriod period;
    std::string method = "hourly"; ///< one of methodNames()
    HourlyOptions hourly;
    bool allowGaps = false;
    std::filesystem::path out;
    bool operator==(const SkyOptions&) const = default;

    /// Whether surfaces reflect, as only the hourly method knows; where none does, the open ground
    /// lies in the sun.
    [[nodiscard]] bool reflects() const;
};

/// How a model was read.
struct ModelReading {
    MeshImportOptions import;
    Orient orient = Orient::outward;
};

/// Scene and sensors, and how much of the machine they may take.
struct ModelOptions {
    std::vector<std::filesystem::path> scenes;
    /// A model, a table of points, or "plane:z=1.5,grid=1"; absent: the first scene file.
    std::optional<std::filesystem::path> sensors;
    MeshImportOptions import;
    double north = 0.0;              ///< from the model's +Y clockwise to true north [degrees]
    std::optional<double> grid;      ///< largest edge of a cell [m]; absent: usualGrid
    std::optional<double> offset;    ///< of a sensor from its face [m]; absent: defaultSensorOffset
    FaceSelection selection;         ///< which faces of the sensor model
    Orient orient = Orient::outward; ///< what becomes of the winding of the models
    bool mergeFaces = true;          ///< coplanar triangles are cut as one face
    int threads = 0;                 ///< 0: all processors
    bool force = false;              ///< whatever the size
    /// How each of the scenes was read, for records: a host may read them differently. Empty: all
    /// of them by `import` and `orient`.
    std::vector<ModelReading> readings = {};

    static constexpr double usualGrid = 2.0;

    [[nodiscard]] const std::filesystem::path& sensorFile() const {
        return sensors ? *sensors : scenes.front();
    }
};

/// How results are put together in groups.csv.
struct GroupTableOptions {
    std::vector<GroupBy> by = {}; ///< empty: usualGroupings()
    OrientationClasses classes = {};
    /// Totals to whose area is reported [kWh/m2]; cadastres of roofs tell apart at these.
    std::vector<double> thresholds = {800.0, 900.0, 1000.0, 1200.0};
    double bestArea = 0.0; ///< size of the best contiguous area [m2]; 0: not asked for
};

struct RunOptions : SkyOptions, ModelOptions {
    RayMethod rays = RayMethod::fast;
    bool saveMasks = false;                     ///< keep what each sensor sees of the sky
    std::optional<std::filesystem::path> masks; ///< what each sensor sees, from an earlier run
    GroupTableOptions groups;
    /// Sensors that see neither sky nor ground count in means and colours.
    bool keepEnclosed = false;
    bool page = false;       ///< also leave page.html
    double pageLimit = 25.0; ///< what it may weigh [MB], PageOptions::limit
    bool dryRun = false;     ///< an estimate is wanted and nothing else
    bool resume = false;     ///< go on where a stopped run of the same study was
    /// What was asked of each option on which finished sensors may depend, as texts by its name;
    /// addRunOptions() has them noted. Only a run that asks the same takes finished sensors over.
    std::map<std::string, std::string> asked;
};

/// The thresholds in Wh/m2, as results have their totals.
INSOLATE_STUDY_EXPORT std::vector<double> thresholdsOf(const GroupTableOptions& options);

/// The names that --method takes, the usual one first.
enum class MethodsOf { aRun, aSky };
INSOLATE_STUDY_EXPORT std::vector<std::string> methodNames(MethodsOf use = MethodsOf::aRun);

/// What a method takes beside the weather and the period.
struct MethodUse {
    bool hasSky = false;             ///< one by cells
    bool takesHourlyOptions = false; ///< those of HourlyOptions; it looks at every hour
    bool takesMasks = false;         ///< of earlier runs, and can save them
};

/// @throws UsageError when there is no such method
INSOLATE_STUDY_EXPORT MethodUse methodUse(const std::string& name);

/// @throws UsageError where a page could not weigh so much
void checkPageLimit(double limit);

/// @throws UsageError naming the option that is missing, out of its range, or does not go with the
///         method
INSOLATE_STUDY_EXPORT void checkSkyOptions(const SkyOptions& options);
INSOLATE_STUDY_EXPORT void checkModelOptions(const ModelOptions& options);
INSOLATE_STUDY_EXPORT void checkRunOptions(const RunOptions& options);

/// @throws UsageError when no folder is named; for work that writes files
INSOLATE_STUDY_EXPORT void checkOutFolder(const std::filesystem::path& out);

/// Threads that work when `threads` are asked for; 0 asks for all processors.
INSOLATE_STUDY_EXPORT int usedThreads(int threads);

} // namespace insolate::study
