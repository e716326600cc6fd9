/// What the parts of the module share.
#pragma once

#include "text.h"
#include "work.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>
// All of them here: a source without one would convert the same type in its own way, and the linker
// keeps either.
#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

namespace insolate::python {

namespace nb = nanobind;

/// Arrays that come in: C order, of exactly this type; Python converts before the call, where a
/// copy is seen.
template <typename Number, int dimensions>
using InArray = nb::ndarray<const Number, nb::ndim<dimensions>, nb::c_contig, nb::device::cpu>;

template <typename Array>
auto spanOf(const Array& array) {
    return std::span(array.data(), array.size());
}

/// A view of numbers that the owner holds, which cannot be written to.
template <typename Number>
using View = nb::ndarray<nb::numpy, const Number>;

template <typename Number>
View<Number> viewOf(const Number* data, std::initializer_list<std::size_t> shape,
                    nb::handle owner) {
    return View<Number>(data, shape, owner);
}

/// An array that owns the numbers.
template <typename Number>
nb::ndarray<nb::numpy, Number> arrayOf(std::vector<Number> numbers,
                                       std::initializer_list<std::size_t> shape) {
    auto held = std::make_unique<std::vector<Number>>(std::move(numbers));
    Number* data = held->data();
    nb::capsule owner(held.release(), [](void* memory) noexcept {
        delete static_cast<std::vector<Number>*>(memory);
    });
    return nb::ndarray<nb::numpy, Number>(data, shape, owner);
}

/// Points and directions are three doubles, one after the other.
static_assert(sizeof(study::Vector3) == 3 * sizeof(double));
inline const double* numbersOf(const std::vector<study::Vector3>& vectors) {
    return vectors.empty() ? nullptr : &vectors.front().x;
}

/// Options by their names, with their values as texts.
using OptionTexts = std::vector<std::pair<std::string, std::vector<std::string>>>;

/// @throws UsageError as for the command
void giveOptions(const study::OptionTable& table, const OptionTexts& texts);
/// What of a study's options belongs to the model and its sensors.
study::ModelOptions modelOptionsOf(const OptionTexts& texts);

struct PyWeather {
    std::shared_ptr<const study::WeatherYear> year;
    std::string name; ///< of the file
    bool isFile = false;
};

struct PyMesh {
    std::shared_ptr<const study::Mesh> mesh;
    std::string name; ///< of the file
    study::ModelOptions options;
};

struct PySensors {
    std::shared_ptr<const study::SensorField> field;
    std::optional<double> offset = {}; ///< as in StudyInputs
    std::optional<double> spacing = {};
    study::ModelOptions options; ///< that made them
};

/// Scene and sensors of the models, for a study.
study::StudyInputs inputsOf(const std::vector<PyMesh>& models, const PySensors& sensors);
/// Options that name the models and repeat how the sensors were made, for records.
void describeInputs(study::ModelOptions& options, const std::vector<PyMesh>& models,
                    const PySensors& sensors);

/// A study of radiation; it may be asked while another thread asks it.
struct PyStudy {
    std::shared_ptr<study::StudySession> session;
    std::vector<PyMesh> models;
};

/// Name, unit, title and values of each column.
nb::list columnsOf(std::vector<study::ResultColumn> columns);
/// The same with views of values that the owner holds.
nb::list viewsOf(std::span<const study::ResultColumn> columns, nb::handle owner);

/// Draws one column in the model; the options are those of `insolate picture`.
/// @param results gives what is drawn, without the interpreter's lock
void drawPicture(const std::string& file, const OptionTexts& texts, const study::Scene& scene,
                 const std::vector<PyMesh>& models,
                 const std::function<study::ResultFolder()>& results, nb::handle report);

void bindOptions(nb::module_& module);
void bindWeather(nb::module_& module);
void bindModel(nb::module_& module);
void bindRadiation(nb::module_& module);
void bindComparison(nb::module_& module);
void bindSun(nb::module_& module);
void bindSunHours(nb::module_& module);

} // namespace insolate::python
