#include "study/model/mesh_import.h"

#include "study/files/input_file.h"
#include "study/model/cityjson_reader.h"
#include "study/model/import_process.h"
#include "study/model/model_formats.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <unistd.h>

namespace insolate::study {

std::span<const NamedUnit> lengthUnits() {
    static constexpr std::array units = {
        NamedUnit{LengthUnit::millimetre, "mm", 0.001},
        NamedUnit{LengthUnit::centimetre, "cm", 0.01}, NamedUnit{LengthUnit::metre, "m", 1.0},
        NamedUnit{LengthUnit::foot, "ft", 0.3048}, NamedUnit{LengthUnit::inch, "in", 0.0254}};
    return units;
}

std::string lengthUnitNames() {
    std::string names;
    for (const NamedUnit& one : lengthUnits()) {
        names += names.empty() ? one.name : std::string(", ") + one.name;
    }
    return names;
}

std::optional<LengthUnit> lengthUnitNamed(std::string_view name) {
    const auto found = std::ranges::find(lengthUnits(), name, &NamedUnit::name);
    return found == lengthUnits().end() ? std::nullopt : std::optional(found->unit);
}

const char* unitName(LengthUnit unit) {
    return std::ranges::find(lengthUnits(), unit, &NamedUnit::unit)->name;
}

double metresIn(LengthUnit unit) {
    return std::ranges::find(lengthUnits(), unit, &NamedUnit::unit)->metres;
}

namespace {

/// How the axes lie in a file, and whether its reader gives them otherwise.
struct FileAxes {
    UpAxis up = UpAxis::z;
    bool isTurned = false; ///< z up in the file arrives as y up
};

FileAxes axesOf(const std::filesystem::path& file) {
    const ModelFormat* format = modelFormatOf(file);
    if (format == nullptr) {
        return {};
    }
    if (format->up != FormatUp::namedInFile) {
        return {format->up == FormatUp::y ? UpAxis::y : UpAxis::z, format->isTurnedByReader};
    }
    // Collada's element <asset> comes first; without the axis in it y is up.
    constexpr std::size_t longestHead = 65536;
    constexpr std::string_view element = "<up_axis>";
    std::string head;
    if (const auto in = InputFile::ifReadable(file, inputKinds::model)) {
        head.resize(longestHead);
        head.resize(in->read(head));
    }
    const std::size_t at = head.find(element);
    const bool isZ =
        at != std::string::npos &&
        trimmed(std::string_view(head).substr(at + element.size())).starts_with("Z_UP");
    return {isZ ? UpAxis::z : UpAxis::y, isZ && format->isTurnedByReader};
}

/// "glTF" or "3DS, DXF, IFC": the formats that are so, each once.
template <typename IsSo>
std::string formatNames(IsSo&& isSo) {
    std::vector<std::string_view> names;
    for (const ModelFormat& format : modelFormats) {
        if (isSo(format) && std::find(names.begin(), names.end(), format.name) == names.end()) {
            names.push_back(format.name);
        }
    }
    return fmt::format("{}", fmt::join(names, ", "));
}

} // namespace

UpAxis defaultUpAxis(const std::filesystem::path& file) {
    return axesOf(file).up;
}

std::string upAxisText() {
    const auto namesOf = [](FormatUp up) {
        return formatNames([up](const ModelFormat& format) { return format.up == up; });
    };
    return fmt::format("y for {}, what the file says for {}, z for all others",
                       namesOf(FormatUp::y), namesOf(FormatUp::namedInFile));
}

Vector3 toModelAxes(const Vector3& point, double scale, UpAxis up) {
    if (up == UpAxis::y) {
        return {point.x * scale, -point.z * scale, point.y * scale};
    }
    return {point.x * scale, point.y * scale, point.z * scale};
}

ImportLimits defaultImportLimits(std::uintmax_t fileBytes) {
    // A million triangles (binary STL, 50 MB) take a second and 300 MB, text formats less for a
    // byte; compressed ones up to ten times that.
    constexpr double secondsAtLeast = 10.0;
    constexpr double secondsPerMegabyte = 2.0;
    constexpr std::uint64_t bytesAtLeast = 512U << 20U;
    constexpr std::uint64_t bytesPerByte = 64;
    const std::uint64_t memory = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                 static_cast<std::uint64_t>(sysconf(_SC_PAGE_SIZE));
    return {.seconds =
                secondsAtLeast + secondsPerMegabyte * 1.0e-6 * static_cast<double>(fileBytes),
            .bytes = std::min(bytesAtLeast + bytesPerByte * fileBytes, memory / 5 * 4)};
}

namespace {

std::string headOf(InputFile& in) {
    std::string head(cityJsonHead, '\0');
    head.resize(in.read(head));
    return head;
}

Mesh readModel(const std::filesystem::path& file, const MeshImportOptions& options,
               const std::stop_token& stop) {
    const ModelFormat* format = modelFormatOf(file);
    InputFile in(file, inputKinds::model, stop);
    if (isCityJson(headOf(in))) {
        return readCityJson(file, options.lod, stop);
    }
    in.seek(0);
    if (format == nullptr) {
        throw DataError(fmt::format("{}: models of this name's ending are not read; export the "
                                    "model to one of {}",
                                    place(file),
                                    formatNames([](const ModelFormat&) { return true; })));
    }
    if (format->extension == ".obj") {
        return readObj(file, stop);
    }
    return readInProcess(file, in.descriptor(), *format, options,
                         options.limits.value_or(defaultImportLimits(in.size())), stop);
}

} // namespace

Mesh importMesh(const std::filesystem::path& file, const MeshImportOptions& options,
                const std::stop_token& stop) {
    Mesh mesh = readModel(file, options, stop);
    throwIfStopped(stop);
    return placedMesh(std::move(mesh), file, options);
}

bool hasLevelsOfDetail(const std::filesystem::path& file) {
    const std::unique_ptr<InputFile> in = InputFile::ifReadable(file, inputKinds::model);
    return in != nullptr && isCityJson(headOf(*in));
}

std::size_t countFacesWithoutArea(const Mesh& mesh) {
    std::vector<Vector3> polygon;
    return static_cast<std::size_t>(
        std::count_if(mesh.faces.begin(), mesh.faces.end(), [&](const Mesh::Face& face) {
            return !(length(areaVector(mesh.polygonOf(face, polygon))) > 0.0);
        }));
}

std::string precisionText(const Mesh& mesh, const std::filesystem::path& file) {
    // Below a millimetre neither faces nor shadows change.
    constexpr double leastReported = 1.0e-3;
    if (!(mesh.coordinateStep >= leastReported)) {
        return {};
    }
    const ModelFormat* format = modelFormatOf(file);
    const std::size_t flat = countFacesWithoutArea(mesh);
    return fmt::format("{}: {} keeps coordinates in single precision, in steps of {:.2g} m where "
                       "this model stands{}; move it to its origin before the export, or export "
                       "it as OBJ",
                       place(file), format != nullptr ? format->name : "the format",
                       mesh.coordinateStep,
                       flat == 0 ? ""
                                 : fmt::format(", and {} {} no area", groupedDigits(flat),
                                               counted(flat, "face has", "faces have")));
}

Mesh placedMesh(Mesh mesh, const std::filesystem::path& file, const MeshImportOptions& options) {
    if (mesh.faces.empty()) {
        throw DataError(fmt::format(
            "{}: the model has no faces; export it with surfaces, not only lines or points, "
            "or whole if the file is cut off",
            place(file)));
    }
    const double scale = metresIn(options.unit);
    const FileAxes axes = axesOf(file);
    const UpAxis up = options.up.value_or(axes.up);
    // Beyond this single precision would not hold even a recentred model.
    constexpr double farthest = 1.0e12;
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        const Vector3& v = mesh.vertices[i];
        if (!(std::abs(v.x) < farthest && std::abs(v.y) < farthest && std::abs(v.z) < farthest)) {
            throw DataError(fmt::format("{}: vertex {} is at ({}, {}, {}), which is not a usable "
                                        "place; repair the model and export it again",
                                        place(file), i + 1, v.x, v.y, v.z));
        }
        const Vector3 inFile = axes.isTurned ? toModelAxes(v, 1.0, UpAxis::y) : v;
        mesh.vertices[i] = toModelAxes(inFile, scale, up);
    }
    mesh.coordinateStep *= scale;
    return mesh;
}

} // namespace insolate::study
