#include "qxpkutil/io/MzmlWriter.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

#include "qxpkutil/io/Base64.h"

namespace qxpkutil {

namespace {

constexpr const char* kProfileSpectrum = "MS:1000128";
constexpr const char* kCentroidSpectrum = "MS:1000127";

bool IsOneOf(const char* name, std::initializer_list<std::string_view> names) {
  for (const std::string_view n : names) {
    if (n == name) return true;
  }
  return false;
}

// The first child whose name is not in `leading`: where an element that must follow those
// children goes (null means at the end).
pugi::xml_node FirstChildAfter(pugi::xml_node node,
                               std::initializer_list<std::string_view> leading) {
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
    if (c.type() == pugi::node_element && !IsOneOf(c.name(), leading)) return c;
  }
  return {};
}

pugi::xml_node InsertBefore(pugi::xml_node parent, const char* name, pugi::xml_node before) {
  return before ? parent.insert_child_before(name, before) : parent.append_child(name);
}

pugi::xml_node CopyBefore(pugi::xml_node parent, pugi::xml_node copy, pugi::xml_node before) {
  return before ? parent.insert_copy_before(copy, before) : parent.append_copy(copy);
}

void SetParam(pugi::xml_node p, const char* accession, const char* name, const char* value = "") {
  p.remove_attributes();
  p.append_attribute("cvRef") = "MS";
  p.append_attribute("accession") = accession;
  p.append_attribute("name") = name;
  p.append_attribute("value") = value;
}

// A cvParam in the spectrum's own parameter block (after its group references).
pugi::xml_node AddParam(pugi::xml_node node, const char* accession, const char* name,
                        const char* value = "") {
  pugi::xml_node p = InsertBefore(node, "cvParam",
                                  FirstChildAfter(node, {"referenceableParamGroupRef", "cvParam"}));
  SetParam(p, accession, name, value);
  return p;
}

bool GroupSaysRepresentation(pugi::xml_node group) {
  for (pugi::xml_node p : group.children("cvParam")) {
    if (IsOneOf(p.attribute("accession").value(), {kProfileSpectrum, kCentroidSpectrum}))
      return true;
  }
  return false;
}

// Marks a spectrum centroided. A referenced group that states the representation is copied
// into the spectrum first (it may be shared with spectra that stay as they are).
void MarkCentroided(pugi::xml_node mzml, pugi::xml_node spectrum) {
  const pugi::xml_node groups = mzml.child("referenceableParamGroupList");
  for (pugi::xml_node ref = spectrum.child("referenceableParamGroupRef"); ref;) {
    const pugi::xml_node next = ref.next_sibling("referenceableParamGroupRef");
    const pugi::xml_node group = groups.find_child_by_attribute("referenceableParamGroup", "id",
                                                                ref.attribute("ref").value());
    if (group && GroupSaysRepresentation(group)) {
      for (pugi::xml_node p : group.children()) {
        const bool cv = std::string_view(p.name()) == "cvParam";
        CopyBefore(
            spectrum, p,
            FirstChildAfter(
                spectrum, cv ? std::initializer_list<std::string_view>{"referenceableParamGroupRef",
                                                                       "cvParam"}
                             : std::initializer_list<std::string_view>{"referenceableParamGroupRef",
                                                                       "cvParam", "userParam"}));
      }
      spectrum.remove_child(ref);
    }
    ref = next;
  }
  bool marked = false;
  for (pugi::xml_node p = spectrum.child("cvParam"); p;) {
    const pugi::xml_node next = p.next_sibling("cvParam");
    if (IsOneOf(p.attribute("accession").value(), {kProfileSpectrum, kCentroidSpectrum})) {
      if (marked) {
        spectrum.remove_child(p);
      } else {
        SetParam(p, kCentroidSpectrum, "centroid spectrum");
        marked = true;
      }
    }
    p = next;
  }
  if (!marked) AddParam(spectrum, kCentroidSpectrum, "centroid spectrum");
}

// The cvParam naming an array's kind (m/z, time or intensity) in the old arrays, so that the
// new array keeps its unit.
pugi::xml_node FindRoleParam(pugi::xml_node oldList, const char* accession) {
  for (pugi::xml_node array : oldList.children("binaryDataArray")) {
    if (pugi::xml_node p = array.find_child_by_attribute("cvParam", "accession", accession))
      return p;
  }
  return {};
}

void AppendArray(pugi::xml_node list, const std::vector<double>& values, pugi::xml_node role,
                 const char* accession, const char* name) {
  std::string text;
  // mzML arrays are little-endian: the bytes are laid out in that order whatever the host's.
  std::vector<unsigned char> bytes(values.size() * 8);
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::uint64_t bits;
    std::memcpy(&bits, &values[i], 8);
    for (int k = 0; k < 8; ++k) bytes[i * 8 + k] = static_cast<unsigned char>(bits >> (8 * k));
  }
  AppendBase64(bytes.data(), bytes.size(), text);
  pugi::xml_node array = list.append_child("binaryDataArray");
  array.append_attribute("encodedLength") = static_cast<unsigned long long>(text.size());
  SetParam(array.append_child("cvParam"), "MS:1000523", "64-bit float");
  SetParam(array.append_child("cvParam"), "MS:1000576", "no compression");
  if (role) {
    array.append_copy(role);
  } else {
    SetParam(array.append_child("cvParam"), accession, name);
  }
  array.append_child("binary").text().set(text.c_str());
}

void ReplaceArrays(pugi::xml_node node, const std::vector<Peak>& peaks, bool chromatogram) {
  std::vector<double> x(peaks.size());
  std::vector<double> y(peaks.size());
  for (std::size_t i = 0; i < peaks.size(); ++i) {
    // Without a measured centroid the apex is the best position there is.
    x[i] = std::isnan(peaks[i].centroid_x) ? peaks[i].apex_x : peaks[i].centroid_x;
    y[i] = peaks[i].apex_y;
  }
  const pugi::xml_node old = node.child("binaryDataArrayList");
  const char* xAccession = chromatogram ? "MS:1000595" : "MS:1000514";
  const pugi::xml_node xRole = FindRoleParam(old, xAccession);
  const pugi::xml_node yRole = FindRoleParam(old, "MS:1000515");
  pugi::xml_node list = InsertBefore(node, "binaryDataArrayList", old);
  list.append_attribute("count") = 2;
  AppendArray(list, x, xRole, xAccession, chromatogram ? "time array" : "m/z array");
  AppendArray(list, y, yRole, "MS:1000515", "intensity array");
  node.remove_child(old);
  node.attribute("defaultArrayLength").set_value(static_cast<unsigned long long>(x.size()));
}

// An id not yet taken by any element of `list`.
std::string FreeId(pugi::xml_node list, const char* element, const std::string& wanted) {
  std::string id = wanted;
  for (int k = 2; list.find_child_by_attribute(element, "id", id.c_str()); ++k) {
    id = wanted + "_" + std::to_string(k);
  }
  return id;
}

pugi::xml_node EnsureList(pugi::xml_node mzml, const char* name,
                          std::initializer_list<std::string_view> before) {
  if (pugi::xml_node list = mzml.child(name)) return list;
  pugi::xml_node at;
  for (pugi::xml_node c : mzml.children()) {
    if (IsOneOf(c.name(), before)) {
      at = c;
      break;
    }
  }
  return InsertBefore(mzml, name, at);
}

void UpdateCount(pugi::xml_node list, const char* element) {
  std::size_t count = 0;
  for (pugi::xml_node c : list.children(element)) {
    (void)c;
    ++count;
  }
  if (!list.attribute("count")) list.append_attribute("count");
  list.attribute("count").set_value(static_cast<unsigned long long>(count));
}

// Adds the software and data-processing entries; returns the data-processing id.
std::string RecordProcessing(pugi::xml_node mzml, const ProcessingRecord& record) {
  pugi::xml_node software =
      EnsureList(mzml, "softwareList",
                 {"scanSettingsList", "instrumentConfigurationList", "dataProcessingList", "run"});
  const std::string softwareId = FreeId(software, "software", "qxpeak");
  pugi::xml_node s = software.append_child("software");
  s.append_attribute("id") = softwareId.c_str();
  s.append_attribute("version") = record.version.c_str();
  SetParam(s.append_child("cvParam"), "MS:1000799", "custom unreleased software tool", "qxpeak");
  UpdateCount(software, "software");

  pugi::xml_node processing = EnsureList(mzml, "dataProcessingList", {"run"});
  const std::string id = FreeId(processing, "dataProcessing", "qxpeak_peak_picking");
  pugi::xml_node dp = processing.append_child("dataProcessing");
  dp.append_attribute("id") = id.c_str();
  pugi::xml_node method = dp.append_child("processingMethod");
  method.append_attribute("order") = 1;
  method.append_attribute("softwareRef") = softwareId.c_str();
  SetParam(method.append_child("cvParam"), "MS:1000035", "peak picking");
  pugi::xml_node settings = method.append_child("userParam");
  settings.append_attribute("name") = "qxpeak settings";
  settings.append_attribute("value") = record.settings.c_str();
  UpdateCount(processing, "dataProcessing");
  return id;
}

struct StringWriter : pugi::xml_writer {
  explicit StringWriter(std::string& text) : out(text) {}
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
  std::string& out;
};

// Replaces the arrays of `nodes` (spectra or chromatograms of `mzml`) by `peaks` and
// prints the element.
void WriteCentroided(pugi::xml_node mzml, const std::vector<pugi::xml_node>& nodes,
                     const std::vector<std::vector<Peak>>& peaks, const ProcessingRecord& record,
                     std::string& out) {
  // Without its wrapper the element needs the namespace the wrapper declared.
  const pugi::xml_node wrapper = mzml.parent();
  for (const char* ns : {"xmlns", "xmlns:xsi"}) {
    if (!mzml.attribute(ns) && wrapper.attribute(ns)) {
      mzml.append_attribute(ns) = wrapper.attribute(ns).value();
    }
  }
  const std::string processingId = RecordProcessing(mzml, record);
  for (std::size_t i = 0; i < peaks.size(); ++i) {
    pugi::xml_node node = nodes[i];
    const bool chromatogram = std::string_view(node.name()) == "chromatogram";
    if (!chromatogram) MarkCentroided(mzml, node);
    ReplaceArrays(node, peaks[i], chromatogram);
    if (!node.attribute("dataProcessingRef")) node.append_attribute("dataProcessingRef");
    node.attribute("dataProcessingRef").set_value(processingId.c_str());
  }
  out = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
  StringWriter writer(out);
  mzml.print(writer, "  ", pugi::format_indent, pugi::encoding_utf8);
}

// The fixed part of a document built around traces that came from elsewhere.
constexpr const char* kSkeleton =
    "<mzML xmlns=\"http://psi.hupo.org/ms/mzml\" version=\"1.1.0\">"
    "<cvList count=\"2\">"
    "<cv id=\"MS\" fullName=\"Proteomics Standards Initiative Mass Spectrometry Ontology\" "
    "URI=\"https://raw.githubusercontent.com/HUPO-PSI/psi-ms-CV/master/psi-ms.obo\"/>"
    "<cv id=\"UO\" fullName=\"Unit Ontology\" "
    "URI=\"https://raw.githubusercontent.com/bio-ontology-research-group/unit-ontology/master/"
    "unit.obo\"/></cvList>"
    "<fileDescription><fileContent/><sourceFileList count=\"1\">"
    "<sourceFile id=\"source\" name=\"\" location=\"file://\"/></sourceFileList>"
    "</fileDescription>"
    "<softwareList count=\"0\"/>"
    "<instrumentConfigurationList count=\"1\"><instrumentConfiguration id=\"unknown\"/>"
    "</instrumentConfigurationList>"
    "<dataProcessingList count=\"0\"/>"
    "<run id=\"run\" defaultInstrumentConfigurationRef=\"unknown\"/></mzML>";

}  // namespace

bool FormatCentroidedMzml(MzmlRun& run, const std::vector<std::vector<Peak>>& peaks,
                          const ProcessingRecord& record, std::string& out, std::string& error) {
  if (!run.MzmlElement() || peaks.size() != run.Nodes().size()) {
    error = "internal error: the peaks do not match the traces of the mzML document";
    return false;
  }
  WriteCentroided(run.MzmlElement(), run.Nodes(), peaks, record, out);
  return true;
}

bool FormatCentroidedMzml(const std::string& sourceName, const std::vector<Trace>& traces,
                          const std::vector<std::vector<Peak>>& peaks, const ProcessingRecord& record,
                          std::string& out, std::string& error) {
  pugi::xml_document document;
  if (peaks.size() != traces.size() || !document.load_string(kSkeleton)) {
    error = "internal error: the peaks do not match the traces";
    return false;
  }
  const pugi::xml_node mzml = document.child("mzML");
  const std::string location = "file://" + sourceName;
  pugi::xml_node source = mzml.child("fileDescription").child("sourceFileList").child("sourceFile");
  source.attribute("name").set_value(sourceName.c_str());
  source.attribute("location").set_value(location.c_str());
  pugi::xml_node run = mzml.child("run");
  pugi::xml_node lists[2];  // spectra, chromatograms
  std::size_t counts[2] = {0, 0};
  std::vector<pugi::xml_node> nodes;
  for (const Trace& t : traces) {
    const int kind = t.kind == Trace::Kind::kChromatogram ? 1 : 0;
    if (!lists[kind]) {
      // Spectra come before chromatograms in a run.
      lists[kind] =
          kind == 0 ? run.prepend_child("spectrumList") : run.append_child("chromatogramList");
      lists[kind].append_attribute("count");
      lists[kind].append_attribute("defaultDataProcessingRef") = "qxpeak_peak_picking";
    }
    pugi::xml_node node = lists[kind].append_child(kind == 0 ? "spectrum" : "chromatogram");
    const std::string id = t.id.empty() ? "index=" + std::to_string(counts[kind]) : t.id;
    node.append_attribute("index") = static_cast<unsigned long long>(counts[kind]++);
    node.append_attribute("id") = id.c_str();
    node.append_attribute("defaultArrayLength") = 0;
    if (kind == 0 && t.ms_level > 0) {
      AddParam(node, "MS:1000511", "ms level", std::to_string(t.ms_level).c_str());
    }
    node.append_child("binaryDataArrayList");
    nodes.push_back(node);
  }
  for (int kind = 0; kind < 2; ++kind) {
    if (lists[kind])
      lists[kind].attribute("count").set_value(static_cast<unsigned long long>(counts[kind]));
  }
  WriteCentroided(mzml, nodes, peaks, record, out);
  return true;
}

}  // namespace qxpkutil
