/// The extension module insolate._core: thin bindings, one file a subject. What people call is in
/// the Python files of the package.
#include "bindings.h"

#include <insolate/version.h>

NB_MODULE(_core, module) {
    namespace nb = nanobind;
    using namespace insolate;

    module.attr("version") = INSOLATE_VERSION;
    nb::exception<study::Error> error(module, "Error", PyExc_Exception);
    nb::exception<study::UsageError>(module, "UsageError", error.ptr());
    nb::exception<study::DataError>(module, "DataError", error.ptr());
    nb::exception<study::OutputError>(module, "OutputError", error.ptr());
    nb::exception<study::Stopped>(module, "Stopped", error.ptr());
    python::bindOptions(module);
    python::bindWeather(module);
    python::bindModel(module);
    python::bindRadiation(module);
    python::bindSun(module);
    python::bindSunHours(module);
}
