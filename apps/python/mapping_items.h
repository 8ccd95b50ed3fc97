// The items of a dict-like argument (Profile.settings, Profile.header).
#pragma once

#include <string>

#include <pybind11/pybind11.h>

namespace murmex_python {

// Calls fn(name, value) for every item of mapping; anything but a mapping
// raises TypeError naming what it should have been ("settings").
template <class Fn>
void forEachItem(const pybind11::handle& mapping, const char* what, const char* example, Fn fn)
{
    namespace py = pybind11;
    if (!PyMapping_Check(mapping.ptr()) || !py::hasattr(mapping, "items"))
        throw py::type_error(std::string(what) + " must be a dict such as " + example + ", not " +
                             py::repr(py::type::handle_of(mapping)).cast<std::string>());
    for (const py::handle item : mapping.attr("items")()) {
        const py::tuple pair = py::reinterpret_borrow<py::tuple>(item);
        fn(pair[0], pair[1]);
    }
}

}  // namespace murmex_python
