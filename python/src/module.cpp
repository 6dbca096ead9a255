// The `_core` extension of the qxpkutil Python package. The package's own modules wrap it
// with keyword options, tables and Dask; this file only gathers the bindings.
#include <string>

#include "bindings.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil::python {

std::uint32_t Count(std::size_t n, const char* what) {
  if (n > kQXMaxPoints) {
    throw py::value_error(std::string(what) + " has more than " + std::to_string(kQXMaxPoints) +
                          " points");
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
