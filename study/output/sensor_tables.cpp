#include "study/output/sensor_tables.h"

#include "study/output/text.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr std::string_view coordinateHeadings = "x [m],y [m],z [m],nx,ny,nz";
constexpr std::string_view provenanceName = "Name=\"made_by\"";

/// The raw blocks of appended data, each behind its length as an unsigned 64-bit number.
class AppendedData {
public:
    /// Registers a block of `size` bytes and gives its offset for the XML.
    std::uint64_t add(std::uint64_t size) {
        const std::uint64_t offset = m_next;
        m_next += sizeof(std::uint64_t) + size;
        return offset;
    }

private:
    std::uint64_t m_next = 0;
};

/// What the cells of a mesh belong to; nothing for sensors that were not cut from one.
struct Origins {
    explicit Origins(const SensorField& field) {
        if (!field.origins.empty()) {
            names = {objectLabels(field), materialLabels(field)};
        }
    }
    std::vector<LabelColumn> names;
};

/// Labels whose texts are made safe once.
struct CsvLabels {
    explicit CsvLabels(const LabelColumn& labels) : column(&labels) {
        for (const std::string& label : labels.labels) {
            fields.push_back(csvField(validText(label)));
        }
    }
    [[nodiscard]] std::string_view of(std::size_t sensor) const {
        const std::int32_t index = column->indices[sensor];
        return index == LabelColumn::none ? std::string_view()
                                          : fields[static_cast<std::size_t>(index)];
    }
    const LabelColumn* column;
    std::vector<std::string> fields;
};

/// Texts as field data, which keeps them as the numbers of their bytes, each text ended by a zero.
/// @param name as an attribute: Name="..."
void writeTexts(OutputFile& out, std::string_view name, std::span<const std::string> texts) {
    out.write("      <DataArray type=\"String\" ");
    out.write(name);
    out.write(" NumberOfTuples=\"" + std::to_string(texts.size()) + "\" format=\"ascii\">\n");
    for (const std::string& text : texts) {
        out.write("       ");
        for (const char c : validText(text)) {
            out.write(" " + std::to_string(static_cast<int>(static_cast<unsigned char>(c))));
        }
        out.write(" 0\n");
    }
    out.write("      </DataArray>\n");
}

void openArray(OutputFile& out, std::string_view type, std::string_view name, int components,
               std::uint64_t offset) {
    out.write("        <DataArray type=\"");
    out.write(type);
    out.write("\" Name=\"");
    out.write(name);
    out.write("\" NumberOfComponents=\"" + std::to_string(components) +
              "\" format=\"appended\" offset=\"" + std::to_string(offset) + "\"/>\n");
}

void writeBlockSize(OutputFile& out, std::uint64_t size) {
    out.write(&size, sizeof size);
}

void writePoints(OutputFile& out, const std::vector<Vector3>& points) {
    static_assert(sizeof(Vector3) == 3 * sizeof(double));
    writeBlockSize(out, points.size() * sizeof(Vector3));
    out.write(points.data(), points.size() * sizeof(Vector3));
}

/// Connectivity 0..count - 1.
void writeCounting(OutputFile& out, std::size_t count, const std::stop_token& stop) {
    writeBlockSize(out, count * sizeof(std::int64_t));
    for (std::size_t i = 0; i < count; ++i) {
        throwIfStoppedAt(i, stop);
        const auto index = static_cast<std::int64_t>(i);
        out.write(&index, sizeof index);
    }
}

/// "total" of "total [kWh]".
std::string_view withoutUnit(std::string_view heading) {
    return trimmed(heading.substr(0, heading.find_first_of("[(")));
}

} // namespace

std::vector<std::string> namesOfGiven(const SensorField& field,
                                      std::span<const ResultColumn> columns,
                                      std::span<const LabelColumn> labels) {
    std::set<std::string, std::less<>> ours = {
        "x", "y", "z", "nx", "ny", "nz", "area", "enclosed", "face", "object", "material"};
    for (const ResultColumn& column : columns) {
        ours.insert(column.name);
    }
    for (const LabelColumn& label : labels) {
        ours.insert(label.name);
    }
    std::set<std::string, std::less<>> taken;
    std::vector<std::string> names;
    for (const GivenColumn& column : field.given) {
        std::string name = column.name;
        constexpr const char* apart = " of the table";
        if (ours.contains(withoutUnit(name))) {
            name += apart;
        }
        while (!taken.insert(name).second) {
            name += apart;
        }
        names.push_back(std::move(name));
    }
    return names;
}

std::string renamedText(const SensorField& field, std::span<const ResultColumn> columns,
                        std::span<const LabelColumn> labels) {
    const std::vector<std::string> names = namesOfGiven(field, columns, labels);
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] != field.given[i].name) {
            text += fmt::format("{}{} is called {}", text.empty() ? "" : ", ",
                                quoteText(field.given[i].name), quoteText(names[i]));
        }
    }
    return text.empty() ? text
                        : fmt::format("columns of the table of sensors have names of results: in "
                                      "sensors.csv {}",
                                      text);
}

void writeSensorsCsv(OutputFile& out, const SensorField& field,
                     std::span<const ResultColumn> columns, std::span<const LabelColumn> labels,
                     const std::stop_token& stop) {
    const Origins origins(field);
    // The texts in the order of the table: behind which column each stands; the rest at the end.
    std::vector<std::vector<CsvLabels>> beside(columns.size() + 1);
    for (const LabelColumn& label : labels) {
        const auto found =
            std::find_if(columns.begin(), columns.end(),
                         [&](const ResultColumn& column) { return column.name == label.beside; });
        beside[static_cast<std::size_t>(found - columns.begin())].emplace_back(label);
    }
    for (const LabelColumn& label : origins.names) {
        beside.back().emplace_back(label);
    }

    out.write(coordinateHeadings);
    for (std::size_t c = 0; c <= columns.size(); ++c) {
        if (c < columns.size()) {
            out.write("," + csvHeading(columns[c]));
        } else if (!origins.names.empty()) {
            out.write(",face");
        }
        for (const CsvLabels& label : beside[c]) {
            out.write("," + csvField(label.column->name));
        }
    }
    for (const std::string& name : namesOfGiven(field, columns, labels)) {
        out.write("," + csvField(name));
    }
    out.write("\n");
    for (std::size_t i = 0; i < field.size(); ++i) {
        throwIfStoppedAt(i, stop);
        const Vector3& p = field.positions[i];
        const Vector3& n = field.normals[i];
        const std::array<double, 6> coordinates = {p.x, p.y, p.z, n.x, n.y, n.z};
        for (std::size_t k = 0; k < coordinates.size(); ++k) {
            if (k > 0) {
                out.write(",");
            }
            out.writeNumber(coordinates[k]);
        }
        for (std::size_t c = 0; c <= columns.size(); ++c) {
            if (c < columns.size()) {
                out.write(",");
                out.writeNumber(columns[c].values[i]);
            } else if (!origins.names.empty()) {
                out.write("," + std::to_string(field.origins[i].face));
            }
            for (const CsvLabels& label : beside[c]) {
                out.write(",");
                out.write(label.of(i));
            }
        }
        for (const GivenColumn& column : field.given) {
            const std::string& value = column.values[i];
            out.write("," + (parseNumber<double>(value) ? value : csvField(value)));
        }
        out.write("\n");
    }
}

void writeSensorsVtp(OutputFile& out, const SensorField& field,
                     std::span<const ResultColumn> columns, std::string_view provenance,
                     const std::stop_token& stop) {
    static_assert(std::endian::native == std::endian::little,
                  "the byte order in the header below is the machine's");
    const std::size_t sensors = field.size();
    const std::vector<Vector3>& points = field.hasCells() ? field.corners : field.positions;
    const std::string pointCount = std::to_string(points.size());
    const std::string cells = std::to_string(sensors);

    AppendedData blocks;
    out.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<VTKFile type=\"PolyData\" version=\"1.0\" byte_order=\"LittleEndian\" "
              "header_type=\"UInt64\">\n  <PolyData>\n");
    const Origins origins(field);
    if (!provenance.empty() || !origins.names.empty()) {
        out.write("    <FieldData>\n");
        if (!provenance.empty()) {
            writeTexts(out, provenanceName, std::array{std::string(provenance)});
        }
        for (const LabelColumn& label : origins.names) {
            writeTexts(out, "Name=\"" + label.name + "_names\"", label.labels);
        }
        out.write("    </FieldData>\n");
    }
    const char* const topology = field.hasCells() ? "Polys" : "Verts";
    out.write("    <Piece NumberOfPoints=\"" + pointCount + "\" NumberOfVerts=\"" +
              (field.hasCells() ? "0" : cells) +
              "\" NumberOfLines=\"0\" NumberOfStrips=\"0\" NumberOfPolys=\"" +
              (field.hasCells() ? cells : "0") + "\">\n");
    out.write("      <CellData");
    if (!columns.empty()) {
        out.write(" Scalars=\"" + xmlText(columns.front().name) + "\"");
    }
    out.write(" Normals=\"normal\">\n");
    for (const ResultColumn& column : columns) {
        openArray(out, "Float32", xmlText(column.name), 1, blocks.add(sensors * sizeof(float)));
    }
    openArray(out, "Float32", "normal", 3, blocks.add(sensors * 3 * sizeof(float)));
    if (!origins.names.empty()) {
        openArray(out, "UInt32", "face", 1, blocks.add(sensors * sizeof(std::uint32_t)));
    }
    for (const LabelColumn& label : origins.names) {
        openArray(out, "Int32", label.name, 1, blocks.add(sensors * sizeof(std::int32_t)));
    }
    out.write("      </CellData>\n      <Points>\n");
    openArray(out, "Float64", "Points", 3, blocks.add(points.size() * sizeof(Vector3)));
    out.write("      </Points>\n      <");
    out.write(topology);
    out.write(">\n");
    openArray(out, "Int64", "connectivity", 1, blocks.add(points.size() * sizeof(std::int64_t)));
    openArray(out, "Int64", "offsets", 1, blocks.add(sensors * sizeof(std::int64_t)));
    out.write("      </");
    out.write(topology);
    out.write(">\n    </Piece>\n  </PolyData>\n  <AppendedData encoding=\"raw\">\n   _");

    // The blocks, in the order in which they were announced.
    for (const ResultColumn& column : columns) {
        throwIfStopped(stop);
        writeBlockSize(out, sensors * sizeof(float));
        out.write(column.values.data(), sensors * sizeof(float));
    }
    writeBlockSize(out, sensors * 3 * sizeof(float));
    for (std::size_t i = 0; i < sensors; ++i) {
        throwIfStoppedAt(i, stop);
        const Vector3& n = field.normals[i];
        const std::array<float, 3> normal = {static_cast<float>(n.x), static_cast<float>(n.y),
                                             static_cast<float>(n.z)};
        out.write(normal.data(), sizeof normal);
    }
    if (!origins.names.empty()) {
        writeBlockSize(out, sensors * sizeof(std::uint32_t));
        for (std::size_t i = 0; i < sensors; ++i) {
            throwIfStoppedAt(i, stop);
            out.write(&field.origins[i].face, sizeof field.origins[i].face);
        }
    }
    for (const LabelColumn& label : origins.names) {
        writeBlockSize(out, sensors * sizeof(std::int32_t));
        out.write(label.indices.data(), sensors * sizeof(std::int32_t));
    }
    writePoints(out, points);
    writeCounting(out, points.size(), stop);
    writeBlockSize(out, sensors * sizeof(std::int64_t));
    for (std::size_t i = 0; i < sensors; ++i) {
        throwIfStoppedAt(i, stop);
        const auto end = field.hasCells() ? static_cast<std::int64_t>(field.cellStart[i + 1])
                                          : static_cast<std::int64_t>(i + 1);
        out.write(&end, sizeof end);
    }
    out.write("\n  </AppendedData>\n</VTKFile>\n");
}

bool isOurSensorsCsv(const std::filesystem::path& file) {
    const std::string begin = fileBeginning(file, 4096);
    const std::string_view line = std::string_view(begin).substr(0, begin.find('\n'));
    return line.starts_with(coordinateHeadings) &&
           line.find(" [", coordinateHeadings.size()) != std::string_view::npos;
}

bool isOurSensorsVtp(const std::filesystem::path& file) {
    const std::string begin = fileBeginning(file, 4096);
    return begin.starts_with("<?xml") && begin.find(provenanceName) != std::string::npos;
}

} // namespace insolate::study
