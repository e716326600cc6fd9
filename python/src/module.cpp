/// The extension module insolate._core: thin bindings, one file a subject. What people call is in
/// the Python files of the package.
#include "bindings.h"

#include <exception>
#include <string>

#include <insolate/version.h>

namespace insolate::python {

namespace {

/// An exception of the engine as one of Python with the same text.
template <typename Problem>
nb::object exceptionOf(nb::module_& module, const std::string& name, nb::handle base) {
    const auto whole = nb::cast<std::string>(module.attr("__name__")) + "." + name;
    nb::object type = nb::steal(PyErr_NewException(whole.c_str(), base.ptr(), nullptr));
    module.attr(name.c_str()) = type;
    nb::register_exception_translator(
        [](const std::exception_ptr& problem, void* payload) {
            try {
                std::rethrow_exception(problem);
            } catch (const Problem& caught) {
                if (const nb::object text = nb::steal(newText(caught.what())); text.is_valid()) {
                    PyErr_SetObject(static_cast<PyObject*>(payload), text.ptr());
                }
            }
        },
        type.ptr());
    return type;
}

} // namespace

} // namespace insolate::python

NB_MODULE(_core, module) {
    namespace nb = nanobind;
    using namespace insolate;

    module.attr("version") = INSOLATE_VERSION;
    const nb::object error = python::exceptionOf<study::Error>(module, "Error", PyExc_Exception);
    python::exceptionOf<study::UsageError>(module, "UsageError", error);
    python::exceptionOf<study::DataError>(module, "DataError", error);
    python::exceptionOf<study::OutputError>(module, "OutputError", error);
    python::exceptionOf<study::Stopped>(module, "Stopped", error);
    python::bindOptions(module);
    python::bindWeather(module);
    python::bindModel(module);
    python::bindRadiation(module);
    python::bindComparison(module);
    python::bindSun(module);
    python::bindSunHours(module);
}
