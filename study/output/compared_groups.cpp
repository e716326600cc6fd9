#include "study/output/compared_groups.h"

#include "study/output/text.h"

#include <algorithm>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// A group with its like in the other study; one of the two may be null.
struct GroupPair {
    const SensorGroup* a = nullptr;
    const SensorGroup* b = nullptr;
};

/// In the order of B, then what only A has.
std::vector<GroupPair> pairGroups(const SensorGroups& a, const SensorGroups& b) {
    const auto keyOf = [](const SensorGroup& group) {
        return std::tie(group.object, group.material, group.orientation, group.tilt);
    };
    const auto find = [&](const SensorGroups& in, const SensorGroup& like) -> const SensorGroup* {
        const auto found =
            std::find_if(in.groups.begin(), in.groups.end(),
                         [&](const SensorGroup& group) { return keyOf(group) == keyOf(like); });
        return found == in.groups.end() ? nullptr : &*found;
    };
    std::vector<GroupPair> pairs;
    for (const SensorGroup& group : b.groups) {
        pairs.push_back({find(a, group), &group});
    }
    for (const SensorGroup& group : a.groups) {
        if (find(b, group) == nullptr) {
            pairs.push_back({&group, nullptr});
        }
    }
    return pairs;
}

void writeField(OutputFile& out, std::optional<double> value) {
    // Nine digits: all that single precision has.
    out.write(value ? fmt::format(",{:.9g}", *value) : ",");
}

/// A value of both, and its difference; empty where a group has none.
template <typename Value>
void writeBoth(OutputFile& out, const GroupPair& pair, bool withRatio, const Value& valueOf) {
    const auto of = [&](const SensorGroup* group) {
        return group == nullptr ? std::optional<double>() : valueOf(*group);
    };
    const std::optional<double> a = of(pair.a);
    const std::optional<double> b = of(pair.b);
    writeField(out, a);
    writeField(out, b);
    writeField(out, a && b ? std::optional(*b - *a) : std::nullopt);
    if (withRatio) {
        writeField(out, a && b && *a != 0.0 ? std::optional(100.0 * *b / *a) : std::nullopt);
    }
}

} // namespace

void writeComparedGroupsCsv(OutputFile& out, std::span<const SensorGroups> a,
                            std::span<const SensorGroups> b,
                            std::span<const ResultColumn> columns) {
    const bool hasSums = !columns.empty() && columns.front().unit == "Wh/m2" && !b.empty() &&
                         !b.front().groups.empty() && b.front().groups.front().area > 0.0;
    const auto heading = [&](const std::string& name, const char* ending, const std::string& unit) {
        out.write("," + csvHeading({name + ending, unit, {}, {}}));
    };
    out.write("by,object,material,orientation,tilt,sensors_a,sensors_b");
    heading("area_a", "", "m2");
    heading("area_b", "", "m2");
    if (hasSums) {
        for (const char* const ending : {"_a", "_b", "_difference"}) {
            heading(columns.front().name, ending, "MWh");
        }
    }
    for (const ResultColumn& column : columns) {
        const std::string unit = tableUnit(column.unit).name;
        for (const char* const ending : {"_mean_a", "_mean_b", "_mean_difference"}) {
            heading(column.name, ending, unit);
        }
        heading(column.name, "_mean_ratio", "%");
    }
    out.write("\n");
    for (std::size_t i = 0; i < b.size(); ++i) {
        for (const GroupPair& pair : pairGroups(a[i], b[i])) {
            const SensorGroup& named = pair.b != nullptr ? *pair.b : *pair.a;
            const auto sensorsOf = [](const SensorGroup* group) {
                return group == nullptr ? std::size_t{0} : group->sensors;
            };
            out.write(fmt::format("{},{},{},{},{},{},{}", csvField(groupByText(b[i].by)),
                                  csvField(validText(named.object)),
                                  csvField(validText(named.material)), named.orientation,
                                  named.tilt, sensorsOf(pair.a), sensorsOf(pair.b)));
            for (const SensorGroup* const group : {pair.a, pair.b}) {
                writeField(out, group == nullptr ? 0.0 : group->area);
            }
            if (hasSums) {
                writeBoth(out, pair, false, [](const SensorGroup& group) {
                    return std::optional(1.0e-6 * group.values.front().sum);
                });
            }
            for (std::size_t c = 0; c < columns.size(); ++c) {
                const double factor = 1.0 / tableUnit(columns[c].unit).divisor;
                writeBoth(out, pair, true, [&](const SensorGroup& group) {
                    const GroupValues& values = group.values[c];
                    return values.count > 0 ? std::optional(factor * values.mean) : std::nullopt;
                });
            }
            out.write("\n");
        }
    }
}

} // namespace insolate::study
