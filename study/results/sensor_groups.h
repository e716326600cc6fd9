/// Results by object, material, compass direction and slope.
#pragma once

#include "study/export.h"
#include "study/model/scene.h"
#include "study/results/result_column.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace insolate::study {

/// What sensors of one group have in common.
enum class GroupKey {
    object,      ///< the object of their faces; the group of faces in no object
    material,    ///< the material of their faces
    orientation, ///< where they look in plan, or up or down
    tilt         ///< their slope, in classes
};

/// Keys whose values make a group together; with none, all sensors are one group.
using GroupBy = std::vector<GroupKey>;

/// Bounds of the classes.
struct OrientationClasses {
    /// A sensor this close to level, or closer, looks up or down [degrees], 0..90.
    double flat = 10.0;
    /// Compass sectors of equal width, the first one centred on north: 4, 8 or 16.
    int sectors = 8;
    /// Ascending bounds between classes of slope [degrees], each within 0..180 and part of the
    /// class below it. The defaults are in use for roofs: flat to 10, best from 20 to 40, usable to
    /// 60 degrees; 80 to 100 are walls.
    std::vector<double> tilts = {10.0, 20.0, 40.0, 60.0, 80.0, 100.0};
};

/// What a group has of one column.
struct GroupValues {
    /// Of value times area, in the column's unit times m2; of the values where sensors have no
    /// cells.
    double sum = 0.0;
    double mean = 0.0; ///< by area; of the sensors alike where they have no cells
    double lowest = 0.0;
    double highest = 0.0;
    std::size_t highestSensor = 0; ///< the first one that has it
    std::size_t count = 0;         ///< finite values; the other members are 0 without any
};

/// The best area of a wanted size that hangs together.
struct BestArea {
    double area = 0.0;       ///< [m2]; 0 where the group has no such area
    std::size_t sensors = 0; ///< cells
    double sum = 0.0;        ///< of the first column's value times area
    double lowest = 0.0;     ///< of the first column: its worst cell
};

struct SensorGroup {
    /// Of the group's keys; empty for keys that the grouping does not have, and for sensors without
    /// such a name.
    std::string object;
    std::string material;
    std::string orientation; ///< "north", "northeast", ..., "up", "down"; "none" without a normal
    std::string tilt;        ///< "20 to 40"; "none" without a normal
    std::size_t sensors = 0;
    double area = 0.0;               ///< of the cells [m2]; 0 for sensors without cells
    std::vector<GroupValues> values; ///< one for each column
    std::vector<double> areaAbove;   ///< by threshold: where the first column reaches it [m2]
    BestArea best;
};

struct SensorGroups {
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

    GroupBy by;
    /// Names in the order in which sensors first have them; directions clockwise from north, then
    /// up and down; slopes from flat on.
    std::vector<SensorGroup> groups;
    std::vector<std::uint32_t> groupOf; ///< by sensor; none for one that is left out
};

struct GroupingOptions {
    OrientationClasses classes = {};
    double north = 0.0; ///< from the model's +Y clockwise to true north [degrees]
    /// By sensor: 0 leaves it out; empty: all count.
    std::span<const std::uint8_t> included = {};
    /// In the unit of the first column: how much area reaches each of them.
    std::vector<double> thresholds = {};
    /// Size of the area that hangs together, for SensorGroup::best [m2]; 0: not asked for. Of all
    /// that are this large it is the one whose worst cell is best: cells join in the order of their
    /// values until some of them are large enough.
    double bestArea = 0.0;
    /// Which cells hang together, neighbouringCells(); only for bestArea.
    std::span<const std::pair<std::uint32_t, std::uint32_t>> neighbours = {};
};

/// Groups the sensors of a field by the keys.
/// @param columns of results, with a value for each sensor
/// @param areas of the cells, cellAreas(); empty for sensors without cells
INSOLATE_STUDY_EXPORT SensorGroups groupSensors(const SensorField& field,
                                                std::span<const ResultColumn> columns,
                                                std::span<const float> areas, const GroupBy& by,
                                                const GroupingOptions& options = {});

/// The groupings that say most where nobody chose: all sensors, then by object and by material
/// where cells have such names, then by orientation where sensors have normals.
INSOLATE_STUDY_EXPORT std::vector<GroupBy> usualGroupings(const SensorField& field);

/// "object roof", "object,tilt hall, 20 to 40"; "all" for the group of all sensors.
INSOLATE_STUDY_EXPORT std::string groupName(const SensorGroups& groups, std::size_t group);

/// "object,material"; "all" for no keys.
INSOLATE_STUDY_EXPORT std::string groupByText(const GroupBy& by);
/// The reverse.
/// @throws UsageError that begins with "--by"
INSOLATE_STUDY_EXPORT GroupBy parseGroupBy(std::string_view text);

/// @throws UsageError for classes that cannot be
INSOLATE_STUDY_EXPORT void checkClasses(const OrientationClasses& classes);

/// The sector's name or "up" or "down"; "none" for a zero normal.
INSOLATE_STUDY_EXPORT std::string orientationOf(const Vector3& normal, double north,
                                                const OrientationClasses& classes = {});

} // namespace insolate::study
