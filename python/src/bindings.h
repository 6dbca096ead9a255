// Shared pieces of the `_core` extension: how numpy arrays become spans for the library,
// and the functions that add each group of bindings to the module.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

namespace qxpkutil::python {

namespace py = pybind11;

// `obj` as a one-dimensional C-contiguous array of T: the caller's own buffer when it
// already is one, a converted copy otherwise. ValueError, naming `what`, for an object
// numpy cannot convert to numbers or an array that is not one-dimensional.
template <class T>
py::array_t<T, py::array::c_style | py::array::forcecast> Vector(py::handle obj,
                                                                const char* what) {
  auto array = py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(obj);
  if (!array) throw py::value_error(std::string(what) + " is not an array of numbers");
  if (array.ndim() != 1) {
    throw py::value_error(std::string(what) + " must be one-dimensional (it has " +
                          std::to_string(array.ndim()) + " dimensions)");
  }
  return array;
}

template <class T, int F>
std::span<const T> Span(const py::array_t<T, F>& array) {
  return {array.data(), static_cast<std::size_t>(array.size())};
}

// The library counts points in 32 bits.
std::uint32_t Count(std::size_t n, const char* what);

void BindDetection(py::module_& m);
void BindReaders(py::module_& m);
void BindToolkit(py::module_& m);

}  // namespace qxpkutil::python
