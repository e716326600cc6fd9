#include "bindings.h"

#include "study/support/kept_warnings.h"

#include <optional>

namespace insolate::python {

namespace {

struct PySunHours {
    study::SunHoursStudy study;
    study::SunHoursResults results;
    std::vector<std::string> warnings;
    std::vector<PyMesh> models;
};

PySunHours sunHours(const std::vector<PyMesh>& models, const PySensors& sensors,
                    const OptionTexts& texts, nb::handle report) {
    study::SunHoursOptions options;
    describeInputs(options.model, models, sensors);
    study::OptionTable table;
    study::addSunHoursOptions(table, options);
    giveOptions(table, texts);
    PySunHours made;
    made.models = models;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        study::KeptWarnings kept(progress);
        made.study = study::prepareSunHours(options, inputsOf(models, sensors), kept, stop);
        made.results = study::calculateSunHours(made.study, kept, stop);
        made.warnings = kept.warnings();
    });
    return made;
}

nb::list sunGroupsOf(const PySunHours& self) {
    nb::list groups;
    for (const study::SunGroupResult& group : self.results.groups) {
        groups.append(nb::make_tuple(group.name, group.sensors, group.passing, group.area,
                                     group.passingArea, group.least, group.greatest, group.passes));
    }
    return groups;
}

} // namespace

void bindSunHours(nb::module_& module) {
    nb::class_<PySunHours>(module, "SunHours")
        .def_prop_ro("columns",
                     [](nb::handle self) {
                         return viewsOf(nb::cast<const PySunHours&>(self).results.columns, self);
                     })
        .def_prop_ro(
            "enclosed",
            [](nb::handle self) {
                const auto& enclosed = nb::cast<const PySunHours&>(self).results.enclosed;
                return viewOf(enclosed.data(), {enclosed.size()}, self);
            },
            nb::rv_policy::reference)
        .def_prop_ro("groups", &sunGroupsOf)
        .def_prop_ro("passes", [](const PySunHours& self) { return self.results.passes; })
        .def_prop_ro("rule",
                     [](const PySunHours& self) { return study::ruleText(self.study.rule); })
        .def(
            "save",
            [](const PySunHours& self, const std::string& folder, nb::handle report) {
                doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                    study::saveSunHours(self.study, self.results, self.warnings, folder, progress,
                                        stop);
                });
            },
            nb::arg("folder"), nb::arg("report").none())
        .def(
            "picture",
            [](const PySunHours& self, const std::string& file, const OptionTexts& texts,
               nb::handle report) {
                drawPicture(
                    file, texts, self.study.inputs.scene, self.models,
                    [&] {
                        return study::sunHoursInMemory(self.study, self.results, self.warnings);
                    },
                    report);
            },
            nb::arg("file"), nb::arg("options"), nb::arg("report").none())
        .def(
            "page",
            [](const PySunHours& self, const std::string& file, nb::handle report) {
                doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
                    study::saveResultsPage(
                        file, study::sunHoursInMemory(self.study, self.results, self.warnings),
                        self.study.inputs.scene, self.study.options.pageLimit, progress, stop);
                });
            },
            nb::arg("file"), nb::arg("report").none());
    module.def("sun_hours", &sunHours, nb::arg("models"), nb::arg("sensors"), nb::arg("options"),
               nb::arg("report").none());
}

} // namespace insolate::python
