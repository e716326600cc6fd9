#include "bindings.h"

#include <nanobind/stl/pair.h>
#include <nanobind/stl/vector.h>

#include <optional>

namespace insolate::python {

namespace {

nb::dict sunHours(const std::vector<PyMesh>& models, const PySensors& sensors,
                  const OptionTexts& texts, nb::handle report) {
    study::SunHoursOptions options;
    describeInputs(options.model, models, sensors);
    study::OptionTable table;
    study::addSunHoursOptions(table, options);
    giveOptions(table, texts);
    std::optional<study::SunHoursStudy> sun;
    study::SunHoursResults results;
    doWork(report, [&](study::Progress& progress, const std::stop_token& stop) {
        sun = study::prepareSunHours(options, inputsOf(models, sensors), progress, stop);
        results = study::calculateSunHours(*sun, progress, stop);
    });
    nb::dict told;
    told["columns"] = columnsOf(std::move(results.columns));
    nb::list groups;
    for (const study::SunGroupResult& group : results.groups) {
        groups.append(nb::make_tuple(group.name, group.sensors, group.passing, group.area,
                                     group.passingArea, group.least, group.greatest, group.passes));
    }
    told["groups"] = groups;
    told["passes"] = results.passes ? nb::cast(*results.passes) : nb::none();
    told["rule"] = study::ruleText(sun->rule);
    return told;
}

} // namespace

void bindSunHours(nb::module_& module) {
    module.def("sun_hours", &sunHours, nb::arg("models"), nb::arg("sensors"), nb::arg("options"),
               nb::arg("report").none());
}

} // namespace insolate::python
