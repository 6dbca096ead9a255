// File readers of the io component: mzML files streamed one trace at a time and two-column
// text, each trace handed to Python with its arrays moved into numpy (no copy) and what the
// file says about it.
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
  std::string problem;
  std::string note;
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
  p.problem = std::move(t.problem);
  p.note = std::move(t.note);
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

using Ranges = std::vector<std::pair<std::int64_t, std::int64_t>>;

// An mzML file as a Python iterator of traces; the GIL is released while each is read.
class MzmlStream {
 public:
  MzmlStream(const std::string& path, int msLevel, const std::string& list,
             const Ranges& indices) {
    MzmlReadOptions options;
    options.selection = Selection(msLevel, list, indices);
    std::string error;
    bool ok = false;
    {
      py::gil_scoped_release release;
      ok = m_reader.Open(path, options, error);
    }
    if (!ok) throw py::value_error(error);
  }

  PyTrace Next() {
    Trace trace;
    bool more = false;
    {
      py::gil_scoped_release release;
      more = m_reader.Next(trace);
    }
    if (!more) {
      if (!m_reader.Error().empty()) throw py::value_error(m_reader.Error());
      throw py::stop_iteration();
    }
    return ToPython(std::move(trace));
  }

  // Reads to the end; how many elements the list held, selected or not.
  std::size_t CountRest() {
    Trace trace;
    {
      py::gil_scoped_release release;
      while (m_reader.Next(trace)) {
      }
    }
    if (!m_reader.Error().empty()) throw py::value_error(m_reader.Error());
    return m_reader.ListSize();
  }

 private:
  MzmlReader m_reader;
};

std::size_t CountTraces(const std::string& path, const std::string& list) {
  // A range no element has: every element is passed over, no array decoded.
  return MzmlStream(path, 0, list, {{-1, -1}}).CountRest();
}

PyTrace ReadText(const std::string& path, bool chromatogram) {
  Trace trace;
  std::string error;
  if (!ReadTextSignal(path, trace, error)) throw py::value_error(error);
  if (chromatogram) trace.kind = Trace::Kind::kChromatogram;
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
      .def_readonly("problem", &PyTrace::problem,
                    "why the trace cannot be searched (x and y are then empty); '' when usable")
      .def_readonly("note", &PyTrace::note, "what the reader changed to make it usable")
      .def("__len__", [](const PyTrace& t) { return t.x.size(); })
      .def("__repr__", [](const PyTrace& t) {
        return "<qxpkutil.Trace " + t.kind + " '" + t.id + "' with " +
               std::to_string(t.x.size()) + " points>";
      });
  py::class_<MzmlStream>(m, "MzmlReader", "The traces of an mzML file, read one at a time.")
      .def(py::init<const std::string&, int, const std::string&, const Ranges&>(),
           py::arg("path"), py::arg("ms_level") = 0, py::arg("list") = "auto",
           py::arg("indices") = Ranges{})
      .def("__iter__", [](MzmlStream& s) -> MzmlStream& { return s; })
      .def("__next__", &MzmlStream::Next);
  m.def("count_traces", &CountTraces, py::arg("path"), py::arg("list") = "auto",
        "How many spectra (or chromatograms) an mzML file holds.");
  m.def("read_text", &ReadText, py::arg("path"), py::arg("chromatogram") = false,
        "A two-column text signal (x and y separated by a tab, comma or blanks); a "
        "chromatogram, x in seconds, when `chromatogram` is true.");
}

}  // namespace qxpkutil::python
