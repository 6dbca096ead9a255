// The `_core` extension of the qxpkutil Python package. The package's own modules wrap it
// with keyword options, tables and Dask; this file only gathers the bindings.
#include <limits>

#include "bindings.h"

namespace qxpkutil::python {

std::uint32_t Count(std::size_t n, const char* what) {
  if (n > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    throw py::value_error(std::string(what) + " has more than 2147483647 points");
  }
  return static_cast<std::uint32_t>(n);
}

}  // namespace qxpkutil::python

PYBIND11_MODULE(_core, m) {
  m.doc() = "Compiled core of qxpkutil: detection, readers and the numeric toolkit.";
  m.attr("__version__") = QXPKUTIL_VERSION;
  qxpkutil::python::BindDetection(m);
  qxpkutil::python::BindReaders(m);
  qxpkutil::python::BindToolkit(m);
}
