/// Texts between Python and the engine. Names in models and weather files have whatever bytes their
/// programs wrote, Latin-1 for one; Python gets U+FFFD for what is not UTF-8, as tables do. Names
/// of files that are not UTF-8 either come from Python as it has them, with surrogates for such
/// bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <nanobind/nanobind.h>
#include <study/output/text.h>

namespace insolate::python {

inline PyObject* newText(const std::string& text) {
    PyObject* made = PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size()));
    if (made == nullptr && PyErr_ExceptionMatches(PyExc_UnicodeDecodeError) != 0) {
        PyErr_Clear();
        const std::string valid = study::validText(text);
        made = PyUnicode_FromStringAndSize(valid.data(), static_cast<Py_ssize_t>(valid.size()));
    }
    return made;
}

} // namespace insolate::python

/// In the place of nanobind/stl/string.h.
template <>
struct nanobind::detail::type_caster<std::string> {
    NB_TYPE_CASTER(std::string, const_name("str"))

    bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
        if (!PyUnicode_Check(source.ptr())) {
            return false;
        }
        const object bytes =
            steal(PyUnicode_AsEncodedString(source.ptr(), "utf-8", "surrogateescape"));
        char* data = nullptr;
        Py_ssize_t size = 0;
        if (!bytes.is_valid() || PyBytes_AsStringAndSize(bytes.ptr(), &data, &size) != 0) {
            PyErr_Clear();
            return false;
        }
        value.assign(data, static_cast<std::size_t>(size));
        return true;
    }

    static handle from_cpp(const std::string& value, rv_policy, cleanup_list*) noexcept {
        return insolate::python::newText(value);
    }
};
