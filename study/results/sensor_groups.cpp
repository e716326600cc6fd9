#include "study/results/sensor_groups.h"

#include "study/model/selection.h"
#include "study/results/label_column.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <tuple>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace insolate::study {

namespace {

constexpr std::array<std::string_view, 4> keyNames = {"object", "material", "orientation", "tilt"};
/// Angles of faces are known to the digits of their corners.
constexpr double angleSlack = 1.0e-6; // degrees

/// The class of an orientation: the sector, then up, down and none behind the sectors.
std::int32_t orientationClass(const Vector3& normal, double north,
                              const OrientationClasses& classes) {
    if (!(length(normal) > 0.0)) {
        return classes.sectors + 2;
    }
    const double tilt = tiltOf(normal);
    if (tilt <= classes.flat + angleSlack) {
        return classes.sectors;
    }
    if (tilt >= 180.0 - classes.flat - angleSlack) {
        return classes.sectors + 1;
    }
    const double width = 360.0 / classes.sectors;
    const double azimuth = azimuthOf(normal, north);
    const double turns = (azimuth + 0.5 * width) / 360.0;
    const auto sector =
        static_cast<std::int32_t>(std::floor((turns - std::floor(turns)) * classes.sectors));
    return sector % classes.sectors;
}

std::string orientationName(std::int32_t index, const OrientationClasses& classes) {
    if (index < classes.sectors) {
        return compassName(index * (16 / classes.sectors));
    }
    constexpr std::array<const char*, 3> others = {"up", "down", "none"};
    return others[static_cast<std::size_t>(index - classes.sectors)];
}

std::int32_t tiltClass(const Vector3& normal, const OrientationClasses& classes) {
    if (!(length(normal) > 0.0)) {
        return static_cast<std::int32_t>(classes.tilts.size() + 1);
    }
    const auto above =
        std::lower_bound(classes.tilts.begin(), classes.tilts.end(), tiltOf(normal) - angleSlack);
    return static_cast<std::int32_t>(above - classes.tilts.begin());
}

std::string tiltName(std::int32_t index, const OrientationClasses& classes) {
    const auto i = static_cast<std::size_t>(index);
    if (i > classes.tilts.size()) {
        return "none";
    }
    return fmt::format("{} to {}", i == 0 ? 0.0 : classes.tilts[i - 1],
                       i == classes.tilts.size() ? 180.0 : classes.tilts[i]);
}

/// What tells groups apart: object, material, orientation, tilt; 0 where the grouping has no such
/// key. Sensors without a name come last.
using Place = std::tuple<std::uint32_t, std::uint32_t, std::int32_t, std::int32_t>;

std::uint32_t placeOf(const LabelColumn& labels, std::size_t sensor) {
    return labels.indices.empty() ? 0U : static_cast<std::uint32_t>(labels.indices[sensor]);
}

std::string nameOf(const LabelColumn& labels, std::uint32_t place) {
    return place < labels.labels.size() ? labels.labels[place] : std::string();
}

/// Adds the sensors' values of one column to their groups.
void addColumn(SensorGroups& groups, std::size_t column, std::span<const float> values,
               std::span<const float> areas) {
    std::vector<double> weights(groups.groups.size(), 0.0);
    for (std::size_t i = 0; i < groups.groupOf.size(); ++i) {
        const std::uint32_t index = groups.groupOf[i];
        if (index == SensorGroups::none || !std::isfinite(values[i])) {
            continue;
        }
        GroupValues& group = groups.groups[index].values[column];
        const double value = values[i];
        const double weight = areas.empty() ? 1.0 : static_cast<double>(areas[i]);
        group.sum += weight * value;
        weights[index] += weight;
        if (group.count == 0 || value < group.lowest) {
            group.lowest = value;
        }
        if (group.count == 0 || value > group.highest) {
            group.highest = value;
            group.highestSensor = i;
        }
        ++group.count;
    }
    for (std::size_t g = 0; g < groups.groups.size(); ++g) {
        if (weights[g] > 0.0) {
            GroupValues& group = groups.groups[g].values[column];
            group.mean = group.sum / weights[g];
        }
    }
}

/// The area of each group in which the values reach the thresholds.
void addThresholds(SensorGroups& groups, std::span<const float> values,
                   std::span<const float> areas, const std::vector<double>& thresholds) {
    for (SensorGroup& group : groups.groups) {
        group.areaAbove.assign(thresholds.size(), 0.0);
    }
    for (std::size_t i = 0; i < areas.size(); ++i) {
        for (std::size_t t = 0; t < thresholds.size(); ++t) {
            if (groups.groupOf[i] != SensorGroups::none &&
                static_cast<double>(values[i]) >= thresholds[t]) {
                groups.groups[groups.groupOf[i]].areaAbove[t] += static_cast<double>(areas[i]);
            }
        }
    }
}

/// Finds the best area of each group: cells enter in the order of their values, and areas that
/// touch become one.
class AreaJoiner {
public:
    AreaJoiner(SensorGroups& groups, std::span<const float> values, std::span<const float> areas,
               double wanted)
        : m_groups(groups), m_values(values), m_areas(areas), m_wanted(wanted),
          m_parent(areas.size()), m_patches(areas.size()), m_entered(areas.size(), false) {}

    void join(std::span<const std::pair<std::uint32_t, std::uint32_t>> neighbours) {
        const std::size_t cells = m_areas.size();
        std::vector<std::vector<std::uint32_t>> beside(cells);
        for (const auto& [a, b] : neighbours) {
            if (m_groups.groupOf[a] == m_groups.groupOf[b]) {
                beside[a].push_back(b);
                beside[b].push_back(a);
            }
        }
        std::vector<std::uint32_t> order;
        for (std::uint32_t i = 0; i < cells; ++i) {
            if (m_groups.groupOf[i] != SensorGroups::none && std::isfinite(m_values[i])) {
                order.push_back(i);
            }
        }
        std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return m_values[a] > m_values[b];
        });
        for (const std::uint32_t cell : order) {
            BestArea& best = m_groups.groups[m_groups.groupOf[cell]].best;
            if (best.sensors > 0) {
                continue; // found before this cell
            }
            const double area = m_areas[cell];
            m_parent[cell] = cell;
            m_patches[cell] = {area, 1, area * static_cast<double>(m_values[cell]),
                               static_cast<double>(m_values[cell])};
            m_entered[cell] = true;
            for (const std::uint32_t other : beside[cell]) {
                if (m_entered[other]) {
                    unite(cell, other);
                }
            }
            const BestArea& patch = m_patches[rootOf(cell)];
            if (patch.area >= m_wanted * (1.0 - 1.0e-6)) { // areas are known to single precision
                best = patch;
                best.lowest = static_cast<double>(m_values[cell]);
            }
        }
    }

private:
    std::uint32_t rootOf(std::uint32_t cell) {
        while (m_parent[cell] != cell) {
            m_parent[cell] = m_parent[m_parent[cell]];
            cell = m_parent[cell];
        }
        return cell;
    }
    void unite(std::uint32_t a, std::uint32_t b) {
        a = rootOf(a);
        b = rootOf(b);
        if (a == b) {
            return;
        }
        if (m_patches[a].sensors < m_patches[b].sensors) {
            std::swap(a, b);
        }
        m_parent[b] = a;
        m_patches[a].area += m_patches[b].area;
        m_patches[a].sensors += m_patches[b].sensors;
        m_patches[a].sum += m_patches[b].sum;
    }

    SensorGroups& m_groups;
    std::span<const float> m_values;
    std::span<const float> m_areas;
    double m_wanted;
    std::vector<std::uint32_t> m_parent;
    std::vector<BestArea> m_patches; ///< by root
    std::vector<bool> m_entered;
};

} // namespace

SensorGroups groupSensors(const SensorField& field, std::span<const ResultColumn> columns,
                          std::span<const float> areas, const GroupBy& by,
                          const GroupingOptions& options) {
    const auto has = [&](GroupKey key) { return std::find(by.begin(), by.end(), key) != by.end(); };
    const LabelColumn objects = has(GroupKey::object) ? objectLabels(field) : LabelColumn();
    const LabelColumn materials = has(GroupKey::material) ? materialLabels(field) : LabelColumn();
    const OrientationClasses& classes = options.classes;

    std::map<Place, std::uint32_t> known;
    std::vector<std::uint32_t> foundAs(field.size(), SensorGroups::none);
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (!options.included.empty() && options.included[i] == 0) {
            continue;
        }
        const Vector3& normal = field.normals[i];
        const Place place = {
            placeOf(objects, i), placeOf(materials, i),
            has(GroupKey::orientation) ? orientationClass(normal, options.north, classes) : 0,
            has(GroupKey::tilt) ? tiltClass(normal, classes) : 0};
        foundAs[i] =
            known.try_emplace(place, static_cast<std::uint32_t>(known.size())).first->second;
    }

    SensorGroups groups;
    groups.by = by;
    std::vector<std::uint32_t> orderOf(known.size());
    for (const auto& [place, found] : known) {
        const auto& [object, material, orientation, tilt] = place;
        orderOf[found] = static_cast<std::uint32_t>(groups.groups.size());
        SensorGroup group;
        group.object = nameOf(objects, object);
        group.material = nameOf(materials, material);
        group.orientation =
            has(GroupKey::orientation) ? orientationName(orientation, classes) : std::string();
        group.tilt = has(GroupKey::tilt) ? tiltName(tilt, classes) : std::string();
        group.values.resize(columns.size());
        groups.groups.push_back(std::move(group));
    }
    groups.groupOf = std::move(foundAs);
    for (std::size_t i = 0; i < groups.groupOf.size(); ++i) {
        std::uint32_t& index = groups.groupOf[i];
        if (index != SensorGroups::none) {
            index = orderOf[index];
            SensorGroup& group = groups.groups[index];
            ++group.sensors;
            group.area += areas.empty() ? 0.0 : static_cast<double>(areas[i]);
        }
    }
    for (std::size_t c = 0; c < columns.size(); ++c) {
        addColumn(groups, c, columns[c].values, areas);
    }
    if (!columns.empty()) {
        addThresholds(groups, columns.front().values, areas, options.thresholds);
        if (options.bestArea > 0.0) {
            AreaJoiner(groups, columns.front().values, areas, options.bestArea)
                .join(options.neighbours);
        }
    }
    return groups;
}

std::vector<GroupBy> usualGroupings(const SensorField& field) {
    std::vector<GroupBy> groupings = {{}};
    if (!objectLabels(field).labels.empty()) {
        groupings.push_back({GroupKey::object});
    }
    if (!materialLabels(field).labels.empty()) {
        groupings.push_back({GroupKey::material});
    }
    if (std::any_of(field.normals.begin(), field.normals.end(),
                    [](const Vector3& normal) { return length(normal) > 0.0; })) {
        groupings.push_back({GroupKey::orientation});
    }
    return groupings;
}

std::string groupName(const SensorGroups& groups, std::size_t group) {
    const SensorGroup& own = groups.groups[group];
    std::vector<std::string> names;
    for (const GroupKey key : groups.by) {
        const std::string& name = key == GroupKey::object        ? own.object
                                  : key == GroupKey::material    ? own.material
                                  : key == GroupKey::orientation ? own.orientation
                                                                 : own.tilt;
        names.push_back(name.empty() ? "without a name" : name);
    }
    return names.empty() ? groupByText(groups.by)
                         : fmt::format("{} {}", groupByText(groups.by), fmt::join(names, ", "));
}

std::string groupByText(const GroupBy& by) {
    std::vector<std::string_view> names;
    for (const GroupKey key : by) {
        names.push_back(keyNames[static_cast<std::size_t>(key)]);
    }
    return by.empty() ? "all" : fmt::format("{}", fmt::join(names, ","));
}

GroupBy parseGroupBy(std::string_view text) {
    GroupBy by;
    if (trimmed(text) == "all") {
        return by;
    }
    for (std::string_view rest = text;;) {
        const std::size_t comma = rest.find(',');
        const std::string_view name = trimmed(rest.substr(0, comma));
        const auto* const found = std::find(keyNames.begin(), keyNames.end(), name);
        if (found == keyNames.end()) {
            const std::vector<std::string> names(keyNames.begin(), keyNames.end());
            throw UsageError(fmt::format("--by {}: cells are not grouped by {}; choose from all, "
                                         "{}, or several of them with commas{}",
                                         quoteText(text), quoteText(name),
                                         fmt::join(keyNames, ", "), didYouMean(name, names)));
        }
        const auto key = static_cast<GroupKey>(found - keyNames.begin());
        if (std::find(by.begin(), by.end(), key) != by.end()) {
            throw UsageError(fmt::format("--by {}: {} stands there twice; leave one out",
                                         quoteText(text), name));
        }
        by.push_back(key);
        if (comma == std::string_view::npos) {
            return by;
        }
        rest.remove_prefix(comma + 1);
    }
}

void checkClasses(const OrientationClasses& classes) {
    if (!(classes.flat >= 0.0 && classes.flat <= 90.0)) {
        throw UsageError(fmt::format(
            "--flat {}: no slope of a flat surface; give degrees from 0 to 90", classes.flat));
    }
    if (classes.sectors != 4 && classes.sectors != 8 && classes.sectors != 16) {
        throw UsageError(
            fmt::format("--sectors {}: so many have no names; give 4, 8 or 16", classes.sectors));
    }
    double before = 0.0;
    for (const double bound : classes.tilts) {
        if (!(bound > before && bound < 180.0)) {
            throw UsageError(fmt::format("--tilt-classes {}: bounds ascend from above 0 to below "
                                         "180 degrees; give such as 10,20,40,60,80,100",
                                         fmt::join(classes.tilts, ",")));
        }
        before = bound;
    }
}

std::string orientationOf(const Vector3& normal, double north, const OrientationClasses& classes) {
    return orientationName(orientationClass(normal, north, classes), classes);
}

} // namespace insolate::study
