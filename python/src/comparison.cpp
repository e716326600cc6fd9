#include "bindings.h"

#include <optional>

namespace insolate::python {

namespace {

struct PyComparison {
    study::Comparison comparison;
    PyStudy a, b;
};

PyComparison compare(const PyStudy& a, const PyStudy& b, const std::vector<std::string>& values,
                     std::optional<double> tolerance, nb::handle report) {
    PyComparison made{{}, a, b};
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        made.comparison = study::compareResults(a.session->results(), b.session->results(),
                                                {.values = values, .tolerance = tolerance}, stop);
        for (const std::string& doubt : made.comparison.doubts) {
            progress.warn(doubt);
        }
    });
    return made;
}

study::ResultFolder resultsOf(const PyComparison& self) {
    return study::comparisonInMemory(self.a.session->results(), self.b.session->results(),
                                     self.comparison);
}

template <typename Number>
auto viewOfAll(const std::vector<Number>& numbers, nb::handle owner) {
    return viewOf(numbers.data(), {numbers.size()}, owner);
}

/// One of the members of each pair.
template <typename Number>
auto ofPairs(const PyComparison& self, Number study::SensorPair::*member) {
    std::vector<Number> numbers;
    for (const study::SensorPair& pair : self.comparison.pairs) {
        numbers.push_back(pair.*member);
    }
    const std::size_t size = numbers.size();
    return arrayOf(std::move(numbers), {size});
}

} // namespace

void bindComparison(nb::module_& module) {
    nb::class_<PyComparison>(module, "Comparison")
        .def_prop_ro("columns",
                     [](nb::handle self) {
                         return viewsOf(nb::cast<const PyComparison&>(self).comparison.columns,
                                        self);
                     })
        .def_prop_ro("sensors",
                     [](const PyComparison& self) {
                         PySensors sensors;
                         sensors.field =
                             std::make_shared<const study::SensorField>(self.comparison.field);
                         return sensors;
                     })
        .def_prop_ro(
            "sensors_a",
            [](const PyComparison& self) { return ofPairs(self, &study::SensorPair::a); },
            nb::rv_policy::move)
        .def_prop_ro(
            "sensors_b",
            [](const PyComparison& self) { return ofPairs(self, &study::SensorPair::b); },
            nb::rv_policy::move)
        .def_prop_ro(
            "distances",
            [](const PyComparison& self) { return ofPairs(self, &study::SensorPair::distance); },
            nb::rv_policy::move)
        .def_prop_ro(
            "only_a",
            [](nb::handle self) {
                return viewOfAll(nb::cast<const PyComparison&>(self).comparison.onlyA, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro(
            "only_b",
            [](nb::handle self) {
                return viewOfAll(nb::cast<const PyComparison&>(self).comparison.onlyB, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro("tolerance",
                     [](const PyComparison& self) { return self.comparison.tolerance; })
        .def(
            "save",
            [](const PyComparison& self, const std::string& folder, nb::handle report) {
                doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                    study::saveComparison(self.a.session->results(), self.b.session->results(),
                                          self.comparison, self.b.session->scene(), folder,
                                          progress, stop);
                });
            },
            nb::arg("folder"), nb::arg("report").none())
        .def(
            "picture",
            [](const PyComparison& self, const std::string& file, const OptionTexts& texts,
               nb::handle report) {
                drawPicture(
                    file, texts, self.b.session->scene(), self.b.models,
                    [&] { return resultsOf(self); }, report);
            },
            nb::arg("file"), nb::arg("options"), nb::arg("report").none())
        .def(
            "page",
            [](const PyComparison& self, const std::string& file, nb::handle report) {
                doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                    study::saveResultsPage(file, resultsOf(self), self.b.session->scene(),
                                           study::ViewOptions().limit, progress, stop);
                });
            },
            nb::arg("file"), nb::arg("report").none());
    module.def("compare", &compare, nb::arg("before"), nb::arg("after"), nb::arg("values"),
               nb::arg("tolerance").none(), nb::arg("report").none());
    module.def(
        "view",
        [](const std::vector<std::string>& folders, const std::optional<std::string>& file,
           nb::handle report) {
            study::ViewOptions options;
            options.folders.assign(folders.begin(), folders.end());
            if (file) {
                options.out = *file;
            }
            doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                study::viewResults(options, progress, stop);
            });
        },
        nb::arg("folders"), nb::arg("file").none(), nb::arg("report").none());
}

} // namespace insolate::python
