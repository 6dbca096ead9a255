// File readers of the io component: mzML runs and two-column text, each trace handed to
// Python with its arrays moved into numpy (no copy) and what the file says about it.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "bindings.h"
#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/TextReader.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil::python {

namespace {

// One trace as Python sees it.
struct PyTrace {
  py::array_t<double> x, y;
  std::string id;
  double rt = 0.0;
  int ms_level = 0;
  std::string kind;
  std::int32_t index = 0;
  std::int64_t scan_number = -1;
  bool centroided = false;
};

// The vector's buffer becomes the array's: numpy frees it with the array.
py::array_t<double> Adopt(std::vector<double>&& values) {
  auto* owner = new std::vector<double>(std::move(values));
  py::capsule free(owner, [](void* p) { delete static_cast<std::vector<double>*>(p); });
  return py::array_t<double>(static_cast<py::ssize_t>(owner->size()), owner->data(), free);
}

PyTrace ToPython(Trace&& t) {
  PyTrace p;
  p.x = Adopt(std::move(t.x));
  p.y = Adopt(std::move(t.y));
  p.id = std::move(t.id);
  p.rt = t.rt;
  p.ms_level = t.ms_level;
  p.kind = t.kind == Trace::Kind::kChromatogram ? "chromatogram" : "spectrum";
  p.index = t.index;
  p.scan_number = t.scan_number;
  p.centroided = t.centroided;
  return p;
}

MzmlSelection Selection(int msLevel, const std::string& list,
                        const std::vector<std::pair<std::int64_t, std::int64_t>>& indices) {
  MzmlSelection s;
  if (list == "spectra") {
    s.list = MzmlSelection::List::kSpectra;
  } else if (list == "chromatograms") {
    s.list = MzmlSelection::List::kChromatograms;
  } else if (list != "auto") {
    throw py::value_error("list='" + list + "': not one of auto, spectra, chromatograms");
  }
  s.ms_level = msLevel;
  for (const auto& [first, last] : indices) s.indices.push_back({first, last});
  return s;
}

std::vector<PyTrace> ReadMzml(const std::string& path, int msLevel, const std::string& list,
                              const std::vector<std::pair<std::int64_t, std::int64_t>>& indices) {
  const MzmlSelection selection = Selection(msLevel, list, indices);
  MzmlRun run;
  std::string error;
  bool ok = false;
  {
    py::gil_scoped_release release;
    ok = run.Read(path, selection, error);
  }
  if (!ok) throw py::value_error(error);
  std::vector<PyTrace> traces;
  traces.reserve(run.Traces().size());
  for (Trace& t : run.Traces()) traces.push_back(ToPython(std::move(t)));
  return traces;
}

// How many elements the list that would be read holds, selected or not.
std::size_t CountTraces(const std::string& path, const std::string& list) {
  // A range no element has: the run parses the document but decodes no array.
  const MzmlSelection selection = Selection(0, list, {{-1, -1}});
  MzmlRun run;
  std::string error;
  bool ok = false;
  {
    py::gil_scoped_release release;
    ok = run.Read(path, selection, error);
  }
  if (!ok) throw py::value_error(error);
  return run.ListSize();
}

PyTrace ReadText(const std::string& path) {
  Trace trace;
  std::string error;
  if (!ReadTextSignal(path, trace, error)) throw py::value_error(error);
  return ToPython(std::move(trace));
}

}  // namespace

void BindReaders(py::module_& m) {
  py::class_<PyTrace>(m, "Trace", "One spectrum or chromatogram read from a file.")
      .def_readonly("x", &PyTrace::x, "m/z or time (seconds for chromatograms), ascending")
      .def_readonly("y", &PyTrace::y, "intensities")
      .def_readonly("id", &PyTrace::id, "the file's id ('scan=12', 'TIC'); '' for text")
      .def_readonly("rt", &PyTrace::rt, "retention time in seconds; NaN when unknown")
      .def_readonly("ms_level", &PyTrace::ms_level, "0 when the file does not say")
      .def_readonly("kind", &PyTrace::kind, "'spectrum' or 'chromatogram'")
      .def_readonly("index", &PyTrace::index, "position in the file's list")
      .def_readonly("scan_number", &PyTrace::scan_number, "N of a 'scan=N' id, else -1")
      .def_readonly("centroided", &PyTrace::centroided, "the file declares it centroided")
      .def("__len__", [](const PyTrace& t) { return t.x.size(); })
      .def("__repr__", [](const PyTrace& t) {
        return "<qxpkutil.Trace " + t.kind + " '" + t.id + "' with " +
               std::to_string(t.x.size()) + " points>";
      });
  m.def("read_mzml", &ReadMzml, py::arg("path"), py::arg("ms_level") = 0,
        py::arg("list") = "auto",
        py::arg("indices") = std::vector<std::pair<std::int64_t, std::int64_t>>{},
        "The traces of an mzML file (plain or indexed, zlib or not) as a list.");
  m.def("count_traces", &CountTraces, py::arg("path"), py::arg("list") = "auto",
        "How many spectra (or chromatograms) an mzML file holds.");
  m.def("read_text", &ReadText, py::arg("path"),
        "A two-column text signal (x and y separated by a tab, comma or blanks).");
}

}  // namespace qxpkutil::python
