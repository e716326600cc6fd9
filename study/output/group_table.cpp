#include "study/output/group_table.h"

#include "study/output/text.h"
#include "study/support/iso_time.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr std::string_view keyHeadings = "by,object,material,orientation,tilt,sensors";

/// A column of the table, and how a group fills it.
struct GroupField {
    std::string heading;
    std::function<void(OutputFile&, const SensorGroup&)> write;
};

std::vector<GroupField> groupFields(std::span<const ResultColumn> columns, bool hasAreas,
                                    double timeZone, std::span<const double> thresholds,
                                    double bestArea) {
    std::vector<GroupField> fields;
    const auto add = [&](std::string name, const std::string& unit, auto value) {
        fields.push_back({csvHeading({std::move(name), unit, {}, {}}),
                          [value](OutputFile& out, const SensorGroup& group) {
                              // Nine digits: all that single precision has.
                              out.write(fmt::format("{:.9g}", value(group)));
                          }});
    };
    if (hasAreas) {
        add("area", "m2", [](const SensorGroup& group) { return group.area; });
    }
    const auto hours = std::find_if(columns.begin(), columns.end(), [](const ResultColumn& column) {
        return column.name == "peak_hour";
    });
    for (std::size_t c = 0; c < columns.size(); ++c) {
        const ResultColumn& column = columns[c];
        const ShownUnit unit = tableUnit(column.unit);
        const auto ofValues = [&](const char* ending, double GroupValues::*member) {
            add(column.name + ending, unit.name,
                [c, member, factor = 1.0 / unit.divisor](const SensorGroup& group) {
                    return factor * group.values[c].*member;
                });
        };
        if (column.name == "peak_hour") {
            continue;
        }
        if (column.name == "peak") {
            ofValues("", &GroupValues::highest);
            if (hours != columns.end()) {
                fields.push_back(
                    {"peak_start", [c, hours, timeZone](OutputFile& out, const SensorGroup& group) {
                         const std::size_t sensor = group.values[c].highestSensor;
                         const auto hour = static_cast<int>(hours->values[sensor]);
                         if (group.values[c].count > 0 && hour > 0) {
                             out.write(isoHourStart(hour - 1, timeZone));
                         }
                     }});
            }
            continue;
        }
        if (c == 0) {
            if (hasAreas && column.unit == "Wh/m2") {
                add(column.name, "MWh",
                    [](const SensorGroup& group) { return 1.0e-6 * group.values[0].sum; });
            }
            ofValues("_mean", &GroupValues::mean);
            ofValues("_lowest", &GroupValues::lowest);
            ofValues("_highest", &GroupValues::highest);
            continue;
        }
        ofValues("_mean", &GroupValues::mean);
        if (column.name == "unshaded") {
            add("unshaded_share", "%", [c](const SensorGroup& group) {
                const double open = group.values[c].sum;
                return open > 0.0 ? 100.0 * group.values[0].sum / open : 0.0;
            });
        }
    }
    if (!hasAreas || columns.empty()) {
        return fields;
    }
    const ShownUnit unit = tableUnit(columns.front().unit);
    for (std::size_t t = 0; t < thresholds.size(); ++t) {
        add(fmt::format("area_from_{:g}", thresholds[t] / unit.divisor), "m2",
            [t](const SensorGroup& group) { return group.areaAbove[t]; });
    }
    if (bestArea > 0.0) {
        const bool isEnergy = columns.front().unit == "Wh/m2";
        add("best_area", "m2", [](const SensorGroup& group) { return group.best.area; });
        add("best_sensors", "",
            [](const SensorGroup& group) { return static_cast<double>(group.best.sensors); });
        add("best", isEnergy ? "MWh" : columns.front().unit + "*m2",
            [factor = isEnergy ? 1.0e-6 : 1.0](const SensorGroup& group) {
                return factor * group.best.sum;
            });
        add("best_lowest", unit.name, [factor = 1.0 / unit.divisor](const SensorGroup& group) {
            return factor * group.best.lowest;
        });
    }
    return fields;
}

} // namespace

void writeGroupsCsv(OutputFile& out, std::span<const SensorGroups> groupings,
                    std::span<const ResultColumn> columns, double timeZone,
                    std::span<const double> thresholds, double bestArea) {
    const bool hasAreas =
        std::any_of(groupings.begin(), groupings.end(), [](const SensorGroups& grouping) {
            return std::any_of(grouping.groups.begin(), grouping.groups.end(),
                               [](const SensorGroup& group) { return group.area > 0.0; });
        });
    const std::vector<GroupField> fields =
        groupFields(columns, hasAreas, timeZone, thresholds, bestArea);
    out.write(keyHeadings);
    for (const GroupField& field : fields) {
        out.write("," + field.heading);
    }
    out.write("\n");
    for (const SensorGroups& grouping : groupings) {
        for (const SensorGroup& group : grouping.groups) {
            out.write(fmt::format("{},{},{},{},{},{}", csvField(groupByText(grouping.by)),
                                  csvField(validText(group.object)),
                                  csvField(validText(group.material)), group.orientation,
                                  group.tilt, group.sensors));
            for (const GroupField& field : fields) {
                out.write(",");
                field.write(out, group);
            }
            out.write("\n");
        }
    }
}

bool isOurGroupsCsv(const std::filesystem::path& file) {
    const std::string begin = fileBeginning(file, keyHeadings.size());
    return begin == keyHeadings || begin.starts_with(sunGroupHeadings);
}

} // namespace insolate::study
