#include "study/output/hours_file.h"

#include "study/model/selection.h"
#include "study/output/netcdf_file.h"
#include "study/output/text.h"
#include "study/results/label_column.h"
#include "study/support/iso_time.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <insolate/version.h>

namespace insolate::study {

namespace {

constexpr std::size_t chunkRows = 2048;
constexpr std::size_t chunkHours = 336;
constexpr double packedStep = 0.1; // Wh/m2
constexpr std::uint16_t noValue = 65535;
constexpr const char* mark = "made_by_insolate";

using Type = NetcdfFile::Type;

void describe(NetcdfFile& file, int variable, const char* longName, const char* units) {
    file.setText(variable, "long_name", longName);
    if (*units != '\0') {
        file.setText(variable, "units", units);
    }
}

/// Azimuth of a normal in the model's plan [degrees clockwise from +Y], 0..360.
double azimuthInModel(const Vector3& normal) {
    const double azimuth = azimuthOf(normal, 0.0);
    return azimuth < 0.0 ? azimuth + 360.0 : azimuth;
}

} // namespace

HoursFile::HoursFile(OutputFile& out, HoursHead head, const SensorField& field,
                     std::span<const float> areas, std::span<const std::size_t> sensors)
    : m_head(std::move(head)), m_file(std::make_unique<NetcdfFile>(out)), m_rows(sensors.size()) {
    NetcdfFile& file = *m_file;
    m_row = file.addDimension("sensor", m_rows);
    addTime();
    const int number = file.addVariable("sensor_number", Type::int32, {m_row});
    describe(file, number, "line of the sensor in sensors.csv, from 0", "");
    file.setText(number, "cf_role", "timeseries_id");

    struct Coordinate {
        const char *name, *bounds, *longName, *axis;
        double Vector3::*member;
        int variable = 0, boundsVariable = 0;
    };
    std::array<Coordinate, 3> coordinates = {
        {{"x", "x_bounds", "model x, east at north 0", "X", &Vector3::x},
         {"y", "y_bounds", "model y, north at north 0", "Y", &Vector3::y},
         {"z", "z_bounds", "height", "Z", &Vector3::z}}};
    std::size_t most = 0;
    for (const std::size_t sensor : sensors) {
        most =
            field.hasCells()
                ? std::max<std::size_t>(most, field.cellStart[sensor + 1] - field.cellStart[sensor])
                : 0;
    }
    const int corner = most > 0 ? file.addDimension("corner", most) : 0;
    for (Coordinate& c : coordinates) {
        c.variable = file.addVariable(c.name, Type::float64, {m_row});
        describe(file, c.variable, c.longName, "m");
        file.setText(c.variable, "axis", c.axis);
        if (most > 0) {
            file.setText(c.variable, "bounds", c.bounds);
            c.boundsVariable = file.addVariable(c.bounds, Type::float64, {m_row, corner});
        }
    }
    file.setText(coordinates[2].variable, "positive", "up");
    const int tilt = file.addVariable("tilt", Type::float64, {m_row});
    describe(file, tilt, "angle to the level plane, 0 looks up", "degree");
    const int azimuth = file.addVariable("azimuth", Type::float64, {m_row});
    describe(file, azimuth, "direction in plan, clockwise from the model's +Y", "degree");
    const int area = areas.empty() ? 0 : file.addVariable("area", Type::float64, {m_row});
    if (!areas.empty()) {
        describe(file, area, "area of the cell", "m2");
    }
    struct Names {
        LabelColumn labels;
        int variable = 0, texts = 0;
    };
    std::vector<Names> names;
    if (!field.origins.empty()) {
        for (LabelColumn& labels : std::array{objectLabels(field), materialLabels(field)}) {
            Names one{std::move(labels)};
            const std::string dimension = one.labels.name + "_name";
            const std::string texts = one.labels.name + "_names";
            one.variable = file.addVariable(one.labels.name.c_str(), Type::int32, {m_row});
            describe(file, one.variable, ("place in " + texts + ", from 0; -1 for none").c_str(),
                     "");
            if (!one.labels.labels.empty()) {
                const int many = file.addDimension(dimension.c_str(), one.labels.labels.size());
                one.texts = file.addVariable(texts.c_str(), Type::text, {many});
            }
            names.push_back(std::move(one));
        }
    }
    addValues("x y z");

    std::vector<std::int32_t> integers;
    const auto each = [&](auto& values, int variable, auto value) {
        values.clear();
        for (const std::size_t sensor : sensors) {
            values.push_back(value(sensor));
        }
        file.write(variable, values);
    };
    std::vector<double> numbers;
    each(integers, number, [](std::size_t sensor) { return static_cast<std::int32_t>(sensor); });
    for (const Coordinate& c : coordinates) {
        each(numbers, c.variable,
             [&](std::size_t sensor) { return field.positions[sensor].*c.member; });
        if (most > 0) {
            numbers.clear();
            for (const std::size_t sensor : sensors) {
                const std::size_t first = field.cellStart[sensor];
                const std::size_t last = field.cellStart[sensor + 1] - 1;
                for (std::size_t i = 0; i < most; ++i) { // the last corner stands for what is left
                    numbers.push_back(field.corners[std::min(first + i, last)].*c.member);
                }
            }
            file.write(c.boundsVariable, numbers);
        }
    }
    each(numbers, tilt, [&](std::size_t sensor) { return tiltOf(field.normals[sensor]); });
    each(numbers, azimuth,
         [&](std::size_t sensor) { return azimuthInModel(field.normals[sensor]); });
    if (!areas.empty()) {
        each(numbers, area, [&](std::size_t sensor) { return static_cast<double>(areas[sensor]); });
    }
    for (const Names& one : names) {
        each(integers, one.variable,
             [&](std::size_t sensor) { return one.labels.indices[sensor]; });
        if (!one.labels.labels.empty()) {
            std::vector<std::string> texts;
            for (const std::string& label : one.labels.labels) {
                texts.push_back(validText(label));
            }
            file.write(one.texts, texts);
        }
    }
}

HoursFile::HoursFile(OutputFile& out, HoursHead head, std::span<const SensorGroups> groupings)
    : m_head(std::move(head)), m_file(std::make_unique<NetcdfFile>(out)) {
    NetcdfFile& file = *m_file;
    std::vector<std::string> names;
    std::vector<double> areas;
    for (const SensorGroups& grouping : groupings) {
        for (std::size_t g = 0; g < grouping.groups.size(); ++g) {
            names.push_back(validText(groupName(grouping, g)));
            areas.push_back(grouping.groups[g].area);
        }
    }
    m_rows = names.size();
    m_row = file.addDimension("group", m_rows);
    addTime();
    const int name = file.addVariable("group_name", Type::text, {m_row});
    describe(file, name, "what the group's sensors have in common", "");
    file.setText(name, "cf_role", "timeseries_id");
    const int area = file.addVariable("area", Type::float64, {m_row});
    describe(file, area, "area of the group's cells", "m2");
    addValues("group_name");
    file.write(name, names);
    file.write(area, areas);
}

HoursFile::~HoursFile() = default;

void HoursFile::addTime() {
    NetcdfFile& file = *m_file;
    file.setText(NetcdfFile::global, mark, INSOLATE_VERSION); // first, so that it is near the head
    file.setText(NetcdfFile::global, "Conventions", "CF-1.8");
    file.setText(NetcdfFile::global, "featureType", "timeSeries");
    file.setText(NetcdfFile::global, "title", "Solar radiation hour by hour");
    file.setText(NetcdfFile::global, "source", m_head.provenance);
    m_time = file.addDimension("time", m_head.hours.size());
    const int two = file.addDimension("two", 2);
    m_timeVariable = file.addVariable("time", Type::float64, {m_time});
    describe(
        file, m_timeVariable, "middle of the hour, in a year that stands for any",
        fmt::format("hours since {}-01-01 00:00:00 {}", nominalYear, isoOffset(m_head.timeZone))
            .c_str());
    file.setText(m_timeVariable, "standard_name", "time");
    file.setText(m_timeVariable, "calendar", "standard");
    file.setText(m_timeVariable, "axis", "T");
    file.setText(m_timeVariable, "bounds", "time_bounds");
    m_timeBounds = file.addVariable("time_bounds", Type::float64, {m_time, two});
}

void HoursFile::addValues(const char* coordinates) {
    NetcdfFile& file = *m_file;
    for (const HourPart& part : hourParts(m_head.reflected)) {
        const int variable = file.addVariable(part.name, Type::uint16, {m_row, m_time});
        describe(file, variable, part.text, "W h m-2");
        file.setText(variable, "cell_methods", "time: sum");
        file.setText(variable, "coordinates", coordinates);
        file.setNumber(variable, "scale_factor", packedStep);
        file.setFill(variable, noValue);
        file.setChunks(variable,
                       {std::min(chunkRows, m_rows), std::min(chunkHours, m_head.hours.size())});
        m_variables.push_back(variable);
        m_block.emplace_back(std::min(chunkRows, m_rows) * m_head.hours.size());
    }
    std::vector<double> middles;
    std::vector<double> bounds;
    for (const int hour : m_head.hours) {
        middles.push_back(hour + 0.5);
        bounds.push_back(hour);
        bounds.push_back(hour + 1.0);
    }
    file.write(m_timeVariable, middles);
    file.write(m_timeBounds, bounds);
}

void HoursFile::add(const SensorHours& row) {
    const std::size_t width = m_head.hours.size();
    for (std::size_t p = 0; p < m_block.size(); ++p) {
        const std::vector<float>& values = row.*everyHourPart[p].values;
        std::uint16_t* to = m_block[p].data() + m_held * width;
        double left = 0.0; // what rounding has taken so far [steps]
        for (std::size_t k = 0; k < width; ++k) {
            const auto value =
                static_cast<double>(values[static_cast<std::size_t>(m_head.hours[k])]);
            if (!(value > 0.0)) {
                to[k] = 0;
                continue;
            }
            const double steps = value / packedStep + left;
            const double kept = std::clamp(std::round(steps), 0.0, noValue - 1.0);
            left = steps - kept;
            to[k] = static_cast<std::uint16_t>(kept);
        }
    }
    if (++m_held == chunkRows) {
        writeBlock();
    }
}

void HoursFile::writeBlock() {
    const std::size_t width = m_head.hours.size();
    for (std::size_t p = 0; p < m_variables.size(); ++p) {
        m_file->writeRows(m_variables[p], m_written, m_held, width,
                          std::span(m_block[p]).first(m_held * width));
    }
    m_written += m_held;
    m_held = 0;
}

void HoursFile::finish() {
    if (m_held > 0) {
        writeBlock();
    }
    m_file->finish();
}

bool isOurHoursFile(const std::filesystem::path& path) {
    // The library that writes these would wait for a pipe, and take any time for a damaged file.
    const std::string head = fileBeginning(path, 4096);
    return head.starts_with("\x89HDF\r\n\x1A\n") && head.find(mark) != std::string::npos;
}

} // namespace insolate::study
