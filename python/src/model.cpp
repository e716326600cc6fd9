#include "bindings.h"

#include <optional>
#include <utility>

#include <study/results/cell_neighbours.h>

namespace insolate::python {

study::StudyInputs inputsOf(const std::vector<PyMesh>& models, const PySensors& sensors) {
    study::StudyInputs inputs;
    for (const PyMesh& model : models) {
        study::appendTriangles(*model.mesh, inputs.scene);
    }
    inputs.field = *sensors.field;
    inputs.offset = sensors.offset;
    inputs.spacing = sensors.spacing;
    return inputs;
}

void describeInputs(study::ModelOptions& options, const std::vector<PyMesh>& models,
                    const PySensors& sensors) {
    options = sensors.options;
    options.scenes.clear();
    bool isAlike = true;
    for (const PyMesh& model : models) {
        const study::MeshImportOptions& import = model.options.import;
        if (options.scenes.empty()) {
            options.import = import;
            options.orient = model.options.orient;
        }
        options.scenes.emplace_back(model.name);
        options.readings.push_back({import, model.options.orient});
        isAlike = isAlike && import.unit == options.import.unit && import.up == options.import.up &&
                  import.lod == options.import.lod && model.options.orient == options.orient;
    }
    if (isAlike) {
        options.readings.clear();
    }
}

namespace {

PyMesh readModel(const std::string& file, const OptionTexts& texts, nb::handle report) {
    const study::ModelOptions options = modelOptionsOf(texts);
    study::Mesh mesh;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        mesh = study::readModel(file, options, progress, stop);
    });
    return {std::make_shared<const study::Mesh>(std::move(mesh)), file, options};
}

PyMesh modelOf(const std::string& name, const InArray<double, 2>& vertices,
               const InArray<std::uint32_t, 1>& corners, const InArray<std::uint32_t, 1>& counts,
               const InArray<std::int32_t, 1>& objects, const InArray<std::int32_t, 1>& materials,
               const InArray<std::int32_t, 1>& groups, const std::vector<std::string>& names,
               const OptionTexts& texts, nb::handle report) {
    const study::ModelOptions options = modelOptionsOf(texts);
    study::Mesh mesh = study::meshFromArrays({.coordinates = spanOf(vertices),
                                              .corners = spanOf(corners),
                                              .cornerCounts = spanOf(counts),
                                              .objects = spanOf(objects),
                                              .materials = spanOf(materials),
                                              .groups = spanOf(groups),
                                              .names = names},
                                             name, options.import);
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        study::orientModel(mesh, name, options, progress, stop);
    });
    return {std::make_shared<const study::Mesh>(std::move(mesh)), name, options};
}

PyMesh replaceObject(const PyMesh& self, const std::string& object, const PyMesh& by) {
    study::Mesh mesh = study::replaceObject(*self.mesh, object, *by.mesh, self.name);
    return {std::make_shared<const study::Mesh>(std::move(mesh)), self.name, self.options};
}

PySensors cutSensors(const PyMesh& model, const OptionTexts& texts, nb::handle report) {
    study::ModelOptions options = modelOptionsOf(texts);
    options.scenes = {model.name};
    options.import = model.options.import;
    options.orient = model.options.orient;
    study::checkModelOptions(options);
    study::StudyInputs inputs;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        study::appendTriangles(*model.mesh, inputs.scene);
        study::addSensors(inputs, *model.mesh, options, progress, stop);
    });
    return {std::make_shared<const study::SensorField>(std::move(inputs.field)), inputs.offset,
            inputs.spacing, options};
}

PySensors readSensors(const std::string& file, const OptionTexts& texts, nb::handle report) {
    study::ModelOptions options = modelOptionsOf(texts);
    options.sensors = file;
    study::SensorField field;
    doWork(report, [&](study::Progress&, const std::stop_token& stop) {
        field = study::readSensorCsv(file, options.import.unit,
                                     options.import.up.value_or(study::UpAxis::z), stop);
    });
    return {std::make_shared<const study::SensorField>(std::move(field)), {}, {}, options};
}

PySensors sensorsOf(const std::string& name, const InArray<double, 2>& points,
                    const InArray<double, 2>& normals, const InArray<double, 1>& areas) {
    study::ModelOptions options;
    options.sensors = name;
    study::SensorField field =
        study::sensorsFromArrays(spanOf(points), spanOf(normals), spanOf(areas), name);
    return {std::make_shared<const study::SensorField>(std::move(field)), {}, {}, options};
}

std::vector<std::string> namesOf(const PySensors& sensors,
                                 std::uint32_t study::CellOrigin::*member) {
    std::vector<std::string> names;
    const study::SensorField& field = *sensors.field;
    for (const study::CellOrigin& origin : field.origins) {
        const std::uint32_t name = origin.*member;
        names.push_back(name == study::CellOrigin::unnamed ? std::string() : field.names[name]);
    }
    return names;
}

/// Pairs of cells that lie side by side.
nb::ndarray<nb::numpy, std::uint32_t> neighboursOf(const PySensors& self) {
    std::vector<std::uint32_t> numbers;
    doWork(nb::none(), [&](study::Progress&, const std::stop_token& stop) {
        for (const auto& [first, second] : study::neighbouringCells(*self.field, stop)) {
            numbers.insert(numbers.end(), {first, second});
        }
        study::throwIfStopped(stop);
    });
    const std::size_t pairs = numbers.size() / 2;
    return arrayOf(std::move(numbers), {pairs, 2});
}

/// The corners of the scene's triangles, nine numbers each.
nb::ndarray<nb::numpy, double> trianglesOf(const PyMesh& self) {
    study::Scene scene;
    study::appendTriangles(*self.mesh, scene);
    std::vector<double> numbers;
    numbers.reserve(3 * scene.vertices.size());
    for (const study::Vector3& corner : scene.vertices) {
        numbers.insert(numbers.end(), {corner.x, corner.y, corner.z});
    }
    return arrayOf(std::move(numbers), {scene.triangleCount(), 3, 3});
}

std::vector<std::string> faceNames(const PyMesh& self, std::uint32_t study::Mesh::Face::*member) {
    std::vector<std::string> names;
    for (const study::Mesh::Face& face : self.mesh->faces) {
        const std::uint32_t name = face.*member;
        names.push_back(name == study::Mesh::unnamed ? std::string() : self.mesh->names[name]);
    }
    return names;
}

} // namespace

void bindModel(nb::module_& module) {
    nb::class_<PyMesh>(module, "Mesh")
        .def_ro("name", &PyMesh::name)
        .def_prop_ro("face_count", [](const PyMesh& self) { return self.mesh->faces.size(); })
        .def_prop_ro(
            "vertices",
            [](nb::handle self) {
                const auto& vertices = nb::cast<PyMesh&>(self).mesh->vertices;
                return viewOf(numbersOf(vertices), {vertices.size(), 3}, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "corners",
            [](nb::handle self) {
                const auto& corners = nb::cast<PyMesh&>(self).mesh->corners;
                return viewOf(corners.data(), {corners.size()}, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "corner_counts",
            [](const PyMesh& self) {
                std::vector<std::uint32_t> counts;
                for (const study::Mesh::Face& face : self.mesh->faces) {
                    counts.push_back(face.cornerCount);
                }
                const std::size_t size = counts.size();
                return arrayOf(std::move(counts), {size});
            },
            nb::rv_policy::reference)
        .def_prop_ro("objects",
                     [](const PyMesh& self) { return faceNames(self, &study::Mesh::Face::object); })
        .def_prop_ro("groups",
                     [](const PyMesh& self) { return faceNames(self, &study::Mesh::Face::group); })
        .def_prop_ro(
            "materials",
            [](const PyMesh& self) { return faceNames(self, &study::Mesh::Face::material); })
        .def("triangles", &trianglesOf)
        .def("replace", &replaceObject, nb::arg("object"), nb::arg("by"));
    nb::class_<PySensors>(module, "Sensors")
        .def_prop_ro("size", [](const PySensors& self) { return self.field->size(); })
        .def_ro("offset", &PySensors::offset)
        .def_prop_ro(
            "points",
            [](nb::handle self) {
                const auto& points = nb::cast<PySensors&>(self).field->positions;
                return viewOf(numbersOf(points), {points.size(), 3}, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "normals",
            [](nb::handle self) {
                const auto& normals = nb::cast<PySensors&>(self).field->normals;
                return viewOf(numbersOf(normals), {normals.size(), 3}, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "areas",
            [](const PySensors& self) -> std::optional<nb::ndarray<nb::numpy, float>> {
                std::vector<float> areas = study::cellAreas(*self.field);
                if (areas.empty()) {
                    return std::nullopt;
                }
                const std::size_t size = areas.size();
                return arrayOf(std::move(areas), {size});
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "corners",
            [](nb::handle self) {
                const auto& corners = nb::cast<PySensors&>(self).field->corners;
                return viewOf(numbersOf(corners), {corners.size(), 3}, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "cell_start",
            [](nb::handle self) {
                const auto& start = nb::cast<PySensors&>(self).field->cellStart;
                return viewOf(start.data(), {start.size()}, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "faces",
            [](const PySensors& self) {
                std::vector<std::uint32_t> faces;
                for (const study::CellOrigin& origin : self.field->origins) {
                    faces.push_back(origin.face);
                }
                const std::size_t size = faces.size();
                return arrayOf(std::move(faces), {size});
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "objects",
            [](const PySensors& self) { return namesOf(self, &study::CellOrigin::object); })
        .def_prop_ro(
            "materials",
            [](const PySensors& self) { return namesOf(self, &study::CellOrigin::material); })
        .def("neighbours", &neighboursOf);
    module.def("read_model", &readModel, nb::arg("file"), nb::arg("options"),
               nb::arg("report").none());
    module.def("model_of", &modelOf, nb::arg("name"), nb::arg("vertices").noconvert(),
               nb::arg("corners").noconvert(), nb::arg("counts").noconvert(),
               nb::arg("objects").noconvert(), nb::arg("materials").noconvert(),
               nb::arg("groups").noconvert(), nb::arg("names"), nb::arg("options"),
               nb::arg("report").none());
    module.def("cut_sensors", &cutSensors, nb::arg("model"), nb::arg("options"),
               nb::arg("report").none());
    module.def("read_sensors", &readSensors, nb::arg("file"), nb::arg("options"),
               nb::arg("report").none());
    module.def("sensors_of", &sensorsOf, nb::arg("name"), nb::arg("points").noconvert(),
               nb::arg("normals").noconvert(), nb::arg("areas").noconvert());
}

} // namespace insolate::python
