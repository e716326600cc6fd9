#include "bindings.h"

#include "study/run/reflected_sensors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <span>
#include <tuple>

namespace insolate::python {

namespace {

/// Where rays have their origin: x, y, z and scale.
using Origin = std::array<double, 4>;

study::RunOptions optionsOf(const std::vector<PyMesh>& models, const PySensors& sensors,
                            const PyWeather& weather, const OptionTexts& texts,
                            const std::string& materials = {}) {
    study::RunOptions options;
    describeInputs(options, models, sensors);
    study::OptionTable table;
    study::addRunOptions(table, options);
    giveOptions(table, texts);
    options.weather = weather.name;
    if (!materials.empty()) {
        options.hourly.rules = std::make_shared<const study::MaterialRules>(
            study::parseMaterials(materials, "materials"));
    }
    return options;
}

PyStudy radiation(const std::vector<PyMesh>& models, const PySensors& sensors,
                  const PyWeather& weather, const OptionTexts& texts, const std::string& materials,
                  const PyStudy* since, nb::handle report) {
    const study::RunOptions options = optionsOf(models, sensors, weather, texts, materials);
    study::GivenInputs given;
    if (options.method == "hourly" || !weather.isFile) {
        given.weather = weather.year;
    }
    PyStudy result;
    result.models = models;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        given.models = inputsOf(models, sensors);
        const study::StudySession* earlier = since != nullptr ? since->session.get() : nullptr;
        result.session = std::make_shared<study::StudySession>(options, std::move(given), progress,
                                                               stop, earlier);
        if (earlier != nullptr) {
            result.session->calculateSince(*earlier, progress, stop);
        } else {
            result.session->calculate(progress, stop);
        }
    });
    return result;
}

/// A study of the hourly method that is not calculated.
/// @param sensors null: it has none of its own
/// @param earlier a study whose sky is taken where weather and options are the same; or null
PyStudy prepareStudy(const std::vector<PyMesh>& models, const PySensors* sensors,
                     const PyWeather& weather, const OptionTexts& texts,
                     const std::string& materials, const std::optional<Origin>& origin,
                     const PyStudy* earlier, nb::handle report) {
    PySensors none;
    none.field = std::make_shared<const study::SensorField>();
    const PySensors& own = sensors != nullptr ? *sensors : none;
    const study::RunOptions options = optionsOf(models, own, weather, texts, materials);
    study::GivenInputs given;
    given.weather = weather.year;
    if (origin) {
        const auto& [x, y, z, scale] = *origin;
        given.recentring.emplace(study::Vector3{x, y, z}, scale);
    }
    PyStudy result;
    result.models = models;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        given.models = inputsOf(models, own);
        result.session = std::make_shared<study::StudySession>(
            options, std::move(given), progress, stop,
            earlier != nullptr ? earlier->session.get() : nullptr);
    });
    return result;
}

/// Sensors as a field has them: nothing is checked and normals stay to the last bit.
study::SensorField fieldOf(const InArray<double, 2>& points, const InArray<double, 2>& normals) {
    if (points.shape(1) != 3 || normals.shape(1) != 3 || points.shape(0) != normals.shape(0)) {
        throw nb::value_error("points and normals must have the shape (n, 3)");
    }
    study::SensorField field;
    for (std::size_t i = 0; i < points.shape(0); ++i) {
        const double* p = points.data() + 3 * i;
        const double* n = normals.data() + 3 * i;
        field.positions.push_back({p[0], p[1], p[2]});
        field.normals.push_back({n[0], n[1], n[2]});
    }
    return field;
}

study::OtherSensors calculateOthers(const PyStudy& self, const InArray<double, 2>& points,
                                    const InArray<double, 2>& normals, nb::handle report) {
    study::SensorField field = fieldOf(points, normals);
    std::optional<study::OtherSensors> others;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        others = self.session->calculateOthers(std::move(field), progress, stop);
    });
    return *std::move(others);
}

/// Means of all radiation over the hours, by sensor and hour.
nb::ndarray<nb::numpy, float> hoursOfOthers(const study::OtherSensors& self, std::size_t begin,
                                            std::size_t end, nb::handle report) {
    constexpr auto perYear = static_cast<std::size_t>(hoursPerYear);
    const std::size_t count = end - std::min(begin, end);
    std::vector<float> all(count * perYear);
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        self.hoursOf(
            begin, end,
            [&](std::size_t first, std::span<const SensorHours> hours) {
                for (const SensorHours& one : hours) {
                    float* row = all.data() + first++ * perYear;
                    for (std::size_t hour = 0; hour < perYear; ++hour) {
                        row[hour] = one.beam[hour] + one.sky[hour] + one.ground[hour] +
                                    (one.reflected.empty() ? 0.0f : one.reflected[hour]);
                    }
                }
            },
            progress, stop);
    });
    return arrayOf(std::move(all), {count, perYear});
}

/// Columns that were calculated elsewhere, each with its name.
void takeColumns(PyStudy& self, const std::vector<std::pair<std::string, InArray<float, 1>>>& given,
                 nb::handle report) {
    std::vector<study::ResultColumn> columns;
    for (const auto& [name, values] : given) {
        columns.push_back({name, {}, {}, {values.data(), values.data() + values.size()}});
    }
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        self.session->take(std::move(columns), progress, stop);
    });
}

/// The parts of the radiation by sensor and hour, as an array each.
nb::list hoursOf(const PyStudy& self, const std::vector<std::size_t>& sensors, nb::handle report) {
    constexpr auto perYear = static_cast<std::size_t>(hoursPerYear);
    const std::span<const study::HourPart> parts =
        study::hourParts(self.session->options().reflects());
    std::vector<std::vector<float>> values(parts.size());
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        progress.begin(sensors.size(), "sensors");
        for (const std::size_t sensor : sensors) {
            study::throwIfStopped(stop);
            const SensorHours hours = self.session->hoursOf(sensor);
            for (std::size_t p = 0; p < parts.size(); ++p) {
                const std::vector<float>& part = hours.*parts[p].values;
                values[p].insert(values[p].end(), part.begin(), part.end());
            }
            progress.advance(1);
        }
    });
    nb::list arrays;
    for (std::vector<float>& part : values) {
        arrays.append(arrayOf(std::move(part), {sensors.size(), perYear}));
    }
    return arrays;
}

/// By group: object, material, orientation, tilt, number of sensors, area, and sum, mean, lowest
/// and highest of each column.
nb::list groupsOf(const PyStudy& self, const std::string& by) {
    study::SensorGroups groups;
    {
        const nb::gil_scoped_release unlocked;
        groups = self.session->groups(study::parseGroupBy(by));
    }
    nb::list listed;
    for (const study::SensorGroup& group : groups.groups) {
        nb::list values;
        for (const study::GroupValues& value : group.values) {
            values.append(nb::make_tuple(value.sum, value.mean, value.lowest, value.highest));
        }
        listed.append(nb::make_tuple(group.object, group.material, group.orientation, group.tilt,
                                     group.sensors, group.area, values));
    }
    return listed;
}

/// A ray along an edge that two triangles share passes between them; one beside it, by more than
/// rounding, does not.
class ClosedEdges {
public:
    /// @param scene triangles as the index has them
    ClosedEdges(const OcclusionIndex& index, std::span<const double> scene) : m_index(index) {
        double farthest = 0.0;
        for (const double coordinate : scene) {
            farthest = std::max(farthest, std::abs(coordinate));
        }
        constexpr double steps = 8.0; // of single precision, at the farthest corner
        m_aside = steps * static_cast<double>(std::numeric_limits<float>::epsilon()) * farthest;
    }

    [[nodiscard]] bool isOccluded(const XYZf& origin, const study::Vector3& direction) const {
        const XYZf way = study::narrowed(direction);
        if (m_index.isOccluded(origin, way)) {
            return true;
        }
        // Across the ray, along none of the axes in which models are drawn.
        study::Vector3 across = study::cross(direction, {0.36, 0.48, 0.80});
        if (study::length(across) < 0.1) {
            across = study::cross(direction, {0.80, 0.36, 0.48});
        }
        across = across * (m_aside / study::length(across));
        const study::Vector3 at{static_cast<double>(origin.x), static_cast<double>(origin.y),
                                static_cast<double>(origin.z)};
        return m_index.isOccluded(study::narrowed(at + across), way) &&
               m_index.isOccluded(study::narrowed(at - across), way);
    }

private:
    const OcclusionIndex& m_index;
    double m_aside;
};

/// Which rays nothing blocks.
nb::ndarray<nb::numpy, bool> visible(const std::vector<PyMesh>& models,
                                     const InArray<double, 2>& origins,
                                     const InArray<double, 2>& directions, nb::handle report) {
    const std::size_t count = origins.shape(0);
    auto seen = std::make_unique<bool[]>(std::max<std::size_t>(count, 1));
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        study::Scene scene;
        for (const PyMesh& model : models) {
            study::appendTriangles(*model.mesh, scene);
        }
        study::SensorField field;
        for (std::size_t i = 0; i < count; ++i) {
            const double* p = origins.data() + 3 * i;
            field.positions.push_back({p[0], p[1], p[2]});
        }
        const study::Recentring recentring(scene, field);
        const std::vector<double> triangles = recentring.coordinates(scene);
        const OcclusionIndex index(triangles, {.stop = stop});
        const ClosedEdges closed(index, triangles);
        progress.begin(count, "rays");
        constexpr std::size_t block = 65536;
        for (std::size_t i = 0; i < count; ++i) {
            if (i % block == 0) {
                study::throwIfStopped(stop);
                progress.advance(std::min(block, count - i));
            }
            const double* d = directions.data() + 3 * i;
            study::Vector3 direction{d[0], d[1], d[2]};
            direction = direction * (1.0 / study::length(direction));
            seen[i] = !closed.isOccluded(recentring.local(field.positions[i]), direction);
        }
    });
    bool* data = seen.release();
    nb::capsule owner(data, [](void* memory) noexcept { delete[] static_cast<bool*>(memory); });
    return {data, {count}, owner};
}

} // namespace

nb::list columnsOf(std::vector<study::ResultColumn> columns) {
    nb::list listed;
    for (study::ResultColumn& column : columns) {
        const std::size_t size = column.values.size();
        listed.append(nb::make_tuple(column.name, column.unit, column.title,
                                     arrayOf(std::move(column.values), {size})));
    }
    return listed;
}

nb::list viewsOf(std::span<const study::ResultColumn> columns, nb::handle owner) {
    nb::list listed;
    for (const study::ResultColumn& column : columns) {
        listed.append(nb::make_tuple(column.name, column.unit, column.title,
                                     viewOf(column.values.data(), {column.values.size()}, owner)));
    }
    return listed;
}

void drawPicture(const std::string& file, const OptionTexts& texts, const study::Scene& scene,
                 const std::vector<PyMesh>& models,
                 const std::function<study::ResultFolder()>& results, nb::handle report) {
    study::PictureRunOptions options;
    study::OptionTable table;
    study::addPictureOptions(table, options);
    giveOptions(table, texts);
    options.file = file;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        study::ResultScene drawn;
        drawn.scene = scene;
        if (!options.only.empty() || !options.hide.empty()) {
            for (const PyMesh& model : models) {
                drawn.meshes.push_back(*model.mesh);
            }
        }
        study::drawResults(options, results(), drawn, progress, stop);
    });
}

void bindRadiation(nb::module_& module) {
    nb::class_<study::OtherSensors>(module, "OtherSensors")
        .def_prop_ro("columns",
                     [](nb::handle self) {
                         return viewsOf(nb::cast<study::OtherSensors&>(self).columns(), self);
                     })
        .def("hours", &hoursOfOthers, nb::arg("first"), nb::arg("end"), nb::arg("report").none());
    module.attr("reflected_block") = study::ReflectedSensors::blockSize;
    nb::class_<PyStudy>(module, "Study")
        .def_prop_ro("columns",
                     [](nb::handle self) {
                         return viewsOf(nb::cast<PyStudy&>(self).session->columns(), self);
                     })
        .def_prop_ro(
            "origin",
            [](const PyStudy& self) {
                const study::Recentring& place = self.session->recentring();
                return Origin{place.centre().x, place.centre().y, place.centre().z, place.scale()};
            })
        .def("others", &calculateOthers, nb::arg("points").noconvert(),
             nb::arg("normals").noconvert(), nb::arg("report").none(), nb::keep_alive<0, 1>())
        .def_prop_ro("reflects",
                     [](const PyStudy& self) { return self.session->options().reflects(); })
        .def("take", &takeColumns, nb::arg("columns"), nb::arg("report").none())
        .def_prop_ro("enclosed", [](const PyStudy& self) { return self.session->enclosed(); })
        .def_prop_ro("summary", [](const PyStudy& self) { return self.session->summary(); })
        .def_prop_ro("subtitle",
                     [](const PyStudy& self) {
                         return self.session->weather().site.text() + "; " +
                                self.session->options().period.text() + "; " +
                                self.session->options().method;
                     })
        .def("groups", &groupsOf, nb::arg("by"))
        .def("hours", &hoursOf, nb::arg("sensors"), nb::arg("report").none())
        .def(
            "picture",
            [](const PyStudy& self, const std::string& file, const OptionTexts& texts,
               nb::handle report) {
                drawPicture(
                    file, texts, self.session->scene(), self.models,
                    [&] { return self.session->results(); }, report);
            },
            nb::arg("file"), nb::arg("options"), nb::arg("report").none())
        .def_prop_ro(
            "enclosed_sensors",
            [](nb::handle self) {
                const auto enclosed = nb::cast<PyStudy&>(self).session->enclosedSensors();
                return viewOf(enclosed.data(), {enclosed.size()}, self);
            },
            nb::rv_policy::reference)
        .def(
            "page",
            [](const PyStudy& self, const std::string& file, nb::handle report) {
                doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                    self.session->savePage(file, progress, stop);
                });
            },
            nb::arg("file"), nb::arg("report").none())
        .def(
            "save",
            [](const PyStudy& self, const std::string& folder, nb::handle report) {
                doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                    self.session->save(folder, progress, stop);
                });
            },
            nb::arg("folder"), nb::arg("report").none());
    module.def("radiation", &radiation, nb::arg("models"), nb::arg("sensors"), nb::arg("weather"),
               nb::arg("options"), nb::arg("materials"), nb::arg("since").none(),
               nb::arg("report").none());
    module.def("prepare_study", &prepareStudy, nb::arg("models"), nb::arg("sensors").none(),
               nb::arg("weather"), nb::arg("options"), nb::arg("materials"),
               nb::arg("origin").none(), nb::arg("earlier").none(), nb::arg("report").none());
    module.def("visible", &visible, nb::arg("models"), nb::arg("origins").noconvert(),
               nb::arg("directions").noconvert(), nb::arg("report").none());
    module.def(
        "sky_view",
        [](const std::vector<PyMesh>& models, const PySensors& sensors, double north, int threads,
           nb::handle report) {
            std::vector<study::ResultColumn> columns;
            doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                columns =
                    study::skyViews(inputsOf(models, sensors), north, threads, progress, stop);
            });
            return columnsOf(std::move(columns));
        },
        nb::arg("models"), nb::arg("sensors"), nb::arg("north"), nb::arg("threads"),
        nb::arg("report").none());
}

} // namespace insolate::python
