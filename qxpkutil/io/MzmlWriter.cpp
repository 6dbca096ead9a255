#include "qxpkutil/io/MzmlWriter.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <pugixml.hpp>
#include <zlib.h>

#include "qxpkutil/io/Base64.h"
#include "qxpkutil/io/io_internal.h"

namespace qxpkutil {

namespace {

using io_internal::XmlEscape;
using io_internal::XmlSafe;

constexpr std::string_view kProfileSpectrum = "MS:1000128";
constexpr std::string_view kCentroidSpectrum = "MS:1000127";
constexpr const char* kProcessingId = "qxpeak_peak_picking";
constexpr const char* kNamespace = "http://psi.hupo.org/ms/mzml";

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  for (const std::string_view n : names) {
    if (n == name) return true;
  }
  return false;
}

bool IsRepresentation(pugi::xml_node p) {
  return IsOneOf(p.attribute("accession").value(), {kProfileSpectrum, kCentroidSpectrum});
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

void SetParam(pugi::xml_node p, const char* cv, const char* accession, const char* name,
              const std::string& value = "") {
  p.remove_attributes();
  p.append_attribute("cvRef") = cv;
  p.append_attribute("accession") = accession;
  p.append_attribute("name") = name;
  p.append_attribute("value") = value.c_str();
}

// A cvParam in an element's own parameter block (after its group references and cvParams).
pugi::xml_node AddParam(pugi::xml_node node, const char* accession, const char* name,
                        const std::string& value = "") {
  pugi::xml_node p = InsertBefore(node, "cvParam",
                                  FirstChildAfter(node, {"referenceableParamGroupRef", "cvParam"}));
  SetParam(p, "MS", accession, name, value);
  return p;
}

void SetUnit(pugi::xml_node p, const char* cv, const char* accession, const char* name) {
  p.append_attribute("unitCvRef") = cv;
  p.append_attribute("unitAccession") = accession;
  p.append_attribute("unitName") = name;
}

// Repairs every attribute value and text of the tree under `root` so that it prints as
// well-formed XML. Walks without recursion: a deeply nested input costs no stack.
void MakeSafe(pugi::xml_node root) {
  for (pugi::xml_node n = root; n;) {
    for (pugi::xml_attribute a : n.attributes()) {
      const std::string_view value = a.value();
      const std::string safe = XmlSafe(value);
      if (safe != value) a.set_value(safe.c_str());
    }
    if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata) {
      const std::string_view value = n.value();
      const std::string safe = XmlSafe(value);
      if (safe != value) n.set_value(safe.c_str());
    }
    if (n.first_child()) {
      n = n.first_child();
      continue;
    }
    while (n && n != root && !n.next_sibling()) n = n.parent();
    if (!n || n == root) break;
    n = n.next_sibling();
  }
}

// "<name a="v" ...>" for an element whose content is written separately.
std::string StartTag(pugi::xml_node node) {
  std::string out = "<" + XmlSafe(node.name());
  for (pugi::xml_attribute a : node.attributes()) {
    out += " " + XmlSafe(a.name()) + "=\"" + XmlEscape(a.value()) + "\"";
  }
  return out + ">";
}

// Little-endian bytes of `values` as 32- or 64-bit floats, zlib-compressed if asked, in
// base64.
std::string EncodeValues(const std::vector<double>& values, bool float32, bool compress) {
  const std::size_t width = float32 ? 4 : 8;
  std::vector<unsigned char> bytes(values.size() * width);
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::uint64_t bits = 0;
    if (float32) {
      const float f = static_cast<float>(values[i]);
      std::uint32_t b32;
      std::memcpy(&b32, &f, 4);
      bits = b32;
    } else {
      std::memcpy(&bits, &values[i], 8);
    }
    for (std::size_t k = 0; k < width; ++k) {
      bytes[i * width + k] = static_cast<unsigned char>(bits >> (8 * k));
    }
  }
  if (compress) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::vector<unsigned char> packed(size);
    if (compress2(packed.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()), 6) ==
        Z_OK) {
      packed.resize(size);
      bytes.swap(packed);
    }
  }
  return EncodeBase64(bytes.data(), bytes.size());
}

// Whether `id` has the form mzML requires of a spectrum's native id: "key=value" pairs
// separated by single spaces.
bool IsNativeId(std::string_view id) {
  if (id.empty()) return false;
  for (std::size_t start = 0; start <= id.size();) {
    std::size_t end = id.find(' ', start);
    if (end == std::string_view::npos) end = id.size();
    const std::string_view pair = id.substr(start, end - start);
    const std::size_t eq = pair.find('=');
    if (eq == std::string_view::npos || eq == 0 || eq + 1 == pair.size()) return false;
    for (const char c : pair) {
      if (c == '\t' || c == '\n' || c == '\r') return false;
    }
    start = end + 1;
  }
  return true;
}

}  // namespace

struct MzmlWriter::Impl {
  MzmlWriteOptions options;
  io_internal::OutputFile file;
  io_internal::Sha1 sha;
  std::uint64_t written = 0;
  bool fromSource = false;
  bool open = false;
  std::string path;

  pugi::xml_document header;
  // Referenceable groups by id, and whether each states the spectrum representation.
  std::unordered_map<std::string, std::pair<pugi::xml_node, bool>> groups;
  std::string listTags[2];
  std::size_t counts[2] = {0, 0};  // for built documents
  int currentList = -1;
  int lastList = -1;
  std::vector<std::pair<std::string, std::uint64_t>> offsets[2];
  pugi::xml_document element;

  bool Emit(std::string_view text) {
    sha.Update(text.data(), text.size());
    written += text.size();
    return file.Write(text);
  }

  struct Printer : pugi::xml_writer {
    explicit Printer(Impl& impl) : impl(impl) {}
    void write(const void* data, size_t size) override {
      impl.Emit(std::string_view(static_cast<const char*>(data), size));
    }
    Impl& impl;
  };

  bool WriteFailed(std::string& error) {
    error = path + ": write error";
    return false;
  }

  // Adds the software and data-processing entries to the header document.
  void RecordProcessing(pugi::xml_node mzml) {
    const auto ensureList = [&](const char* name, std::initializer_list<std::string_view> before) {
      if (pugi::xml_node list = mzml.child(name)) return list;
      for (pugi::xml_node c : mzml.children()) {
        if (IsOneOf(c.name(), before)) return mzml.insert_child_before(name, c);
      }
      return mzml.append_child(name);
    };
    // Ids already taken, gathered once: a file with many entries costs no more per entry.
    const auto freeId = [](pugi::xml_node list, const char* element, const std::string& wanted) {
      std::unordered_set<std::string> taken;
      for (pugi::xml_node c : list.children(element)) taken.insert(c.attribute("id").value());
      std::string id = wanted;
      for (int k = 2; taken.count(id) != 0; ++k) id = wanted + "_" + std::to_string(k);
      return id;
    };
    const auto setCount = [](pugi::xml_node list, const char* element) {
      std::size_t count = 0;
      for (pugi::xml_node c = list.child(element); c; c = c.next_sibling(element)) ++count;
      if (!list.attribute("count")) list.append_attribute("count");
      list.attribute("count").set_value(static_cast<unsigned long long>(count));
    };
    pugi::xml_node software = ensureList(
        "softwareList", {"instrumentConfigurationList", "dataProcessingList", "run"});
    const std::string softwareId = freeId(software, "software", options.software);
    pugi::xml_node s = software.append_child("software");
    s.append_attribute("id") = softwareId.c_str();
    s.append_attribute("version") =
        (options.software_version.empty() ? "unknown" : options.software_version).c_str();
    SetParam(s.append_child("cvParam"), "MS", "MS:1000799", "custom unreleased software tool",
             options.software);
    setCount(software, "software");

    pugi::xml_node processing = ensureList("dataProcessingList", {"run"});
    m_processingId = freeId(processing, "dataProcessing", kProcessingId);
    pugi::xml_node dp = processing.append_child("dataProcessing");
    dp.append_attribute("id") = m_processingId.c_str();
    pugi::xml_node method = dp.append_child("processingMethod");
    method.append_attribute("order") = 1;
    method.append_attribute("softwareRef") = softwareId.c_str();
    SetParam(method.append_child("cvParam"), "MS", "MS:1000035", "peak picking");
    pugi::xml_node settings = method.append_child("userParam");
    settings.append_attribute("name") = (options.software + " settings").c_str();
    settings.append_attribute("value") = options.settings.c_str();
    if (!options.source_name.empty()) {
      pugi::xml_node source = method.append_child("userParam");
      source.append_attribute("name") = "input";
      source.append_attribute("value") = options.source_name.c_str();
    }
    setCount(processing, "dataProcessing");
  }
  std::string m_processingId = kProcessingId;

  // Writes the XML declaration, the wrapper and the header document up to <run ...>.
  bool WriteHeader(std::string& error) {
    pugi::xml_node mzml = header.child("mzML");
    if (!mzml.attribute("xmlns")) mzml.prepend_attribute("xmlns") = kNamespace;
    bool usesXsi = false;
    for (pugi::xml_attribute a : mzml.attributes()) {
      usesXsi = usesXsi || std::string_view(a.name()).starts_with("xsi:");
    }
    if (usesXsi && !mzml.attribute("xmlns:xsi")) {
      mzml.append_attribute("xmlns:xsi") = "http://www.w3.org/2001/XMLSchema-instance";
    }
    RecordProcessing(mzml);
    for (pugi::xml_node groupList = mzml.child("referenceableParamGroupList"); groupList;) {
      for (pugi::xml_node g : groupList.children("referenceableParamGroup")) {
        bool says = false;
        for (pugi::xml_node p : g.children("cvParam")) says = says || IsRepresentation(p);
        groups.emplace(g.attribute("id").value(), std::make_pair(g, says));
      }
      break;
    }
    MakeSafe(header);
    Emit("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n");
    if (options.indexed) {
      Emit(std::string("<indexedmzML xmlns=\"") + kNamespace +
           "\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xsi:schemaLocation=\"http://psi.hupo.org/ms/mzml "
           "http://psidev.info/files/ms/mzML/xsd/mzML1.1.2_idx.xsd\">\n");
    }
    Emit(StartTag(mzml) + "\n");
    Printer printer(*this);
    for (pugi::xml_node c : mzml.children()) {
      if (std::string_view(c.name()) == "run") {
        Emit(StartTag(c) + "\n");
        break;
      }
      c.print(printer, "", pugi::format_raw, pugi::encoding_utf8);
      Emit("\n");
    }
    open = true;
    return file.Write("") || WriteFailed(error);
  }

  // Marks a spectrum centroided: its representation term becomes "centroid spectrum", once.
  // A referenced group that states the representation is copied into the spectrum first (it
  // may be shared with spectra that stay as they are).
  void MarkCentroided(pugi::xml_node spectrum) {
    for (pugi::xml_node ref = spectrum.child("referenceableParamGroupRef"); ref;) {
      const pugi::xml_node next = ref.next_sibling("referenceableParamGroupRef");
      const auto it = groups.find(ref.attribute("ref").value());
      if (it != groups.end() && it->second.second) {
        // Computed once per group: each copied parameter goes straight to its place.
        pugi::xml_node cvAt = FirstChildAfter(spectrum, {"referenceableParamGroupRef", "cvParam"});
        pugi::xml_node userAt =
            FirstChildAfter(spectrum, {"referenceableParamGroupRef", "cvParam", "userParam"});
        for (pugi::xml_node p : it->second.first.children()) {
          const bool cv = std::string_view(p.name()) == "cvParam";
          const pugi::xml_node at = cv ? cvAt : userAt;
          at ? spectrum.insert_copy_before(p, at) : spectrum.append_copy(p);
        }
        spectrum.remove_child(ref);
      }
      ref = next;
    }
    bool marked = false;
    for (pugi::xml_node p = spectrum.child("cvParam"); p;) {
      const pugi::xml_node next = p.next_sibling("cvParam");
      if (IsRepresentation(p)) {
        if (marked) {
          spectrum.remove_child(p);
        } else {
          SetParam(p, "MS", "MS:1000127", "centroid spectrum");
          marked = true;
        }
      }
      p = next;
    }
    if (!marked) AddParam(spectrum, "MS:1000127", "centroid spectrum");
  }

  void AppendArray(pugi::xml_node list, const std::vector<double>& values, const char* accession,
                   const char* name, int role) {
    const std::string text = EncodeValues(values, options.float32, options.zlib);
    pugi::xml_node array = list.append_child("binaryDataArray");
    array.append_attribute("encodedLength") = static_cast<unsigned long long>(text.size());
    SetParam(array.append_child("cvParam"), "MS", options.float32 ? "MS:1000521" : "MS:1000523",
             options.float32 ? "32-bit float" : "64-bit float");
    SetParam(array.append_child("cvParam"), "MS", options.zlib ? "MS:1000574" : "MS:1000576",
             options.zlib ? "zlib compression" : "no compression");
    pugi::xml_node p = array.append_child("cvParam");
    SetParam(p, "MS", accession, name);
    if (role == 0) SetUnit(p, "MS", "MS:1000040", "m/z");
    if (role == 1) SetUnit(p, "UO", "UO:0000010", "second");
    if (role == 2) SetUnit(p, "MS", "MS:1000131", "number of detector counts");
    array.append_child("binary").text().set(text.c_str());
  }

  void ReplaceArrays(pugi::xml_node node, std::span<const Peak> peaks, bool chromatogram) {
    std::vector<double> x(peaks.size()), y(peaks.size());
    for (std::size_t i = 0; i < peaks.size(); ++i) {
      // Without a measured centroid the apex is the best position there is.
      x[i] = std::isnan(peaks[i].centroid_x) ? peaks[i].apex_x : peaks[i].centroid_x;
      y[i] = peaks[i].apex_y;
    }
    const pugi::xml_node old = node.child("binaryDataArrayList");
    pugi::xml_node list = old ? node.insert_child_before("binaryDataArrayList", old)
                              : node.append_child("binaryDataArrayList");
    list.append_attribute("count") = 2;
    if (chromatogram) {
      AppendArray(list, x, "MS:1000595", "time array", 1);
    } else {
      AppendArray(list, x, "MS:1000514", "m/z array", 0);
    }
    AppendArray(list, y, "MS:1000515", "intensity array", 2);
    if (old) node.remove_child(old);
    if (!node.attribute("defaultArrayLength")) node.append_attribute("defaultArrayLength");
    node.attribute("defaultArrayLength").set_value(static_cast<unsigned long long>(x.size()));
  }

  // A new element for a trace that brings no XML of its own.
  pugi::xml_node BuildElement(const Trace& trace, int kind) {
    element.reset();
    pugi::xml_node node = element.append_child(kind == 0 ? "spectrum" : "chromatogram");
    node.append_attribute("index") = static_cast<unsigned long long>(offsets[kind].size());
    // A spectrum id must be "key=value" pairs; one that is not gives way to its position.
    const bool usable = kind == 0 ? IsNativeId(trace.id) : !trace.id.empty();
    const std::string id = usable ? trace.id : "index=" + std::to_string(offsets[kind].size());
    node.append_attribute("id") = id.c_str();
    node.append_attribute("defaultArrayLength") = 0;
    if (kind == 0) {
      AddParam(node, trace.ms_level > 1 ? "MS:1000580" : "MS:1000579",
               trace.ms_level > 1 ? "MSn spectrum" : "MS1 spectrum");
      AddParam(node, "MS:1000511", "ms level", std::to_string(std::max(trace.ms_level, 1)));
      AddParam(node, "MS:1000127", "centroid spectrum");
      if (std::isfinite(trace.rt)) {
        pugi::xml_node scans = node.append_child("scanList");
        scans.append_attribute("count") = 1;
        SetParam(scans.append_child("cvParam"), "MS", "MS:1000795", "no combination");
        pugi::xml_node p = scans.append_child("scan").append_child("cvParam");
        SetParam(p, "MS", "MS:1000016", "scan start time", io_internal::FormatNumber(trace.rt));
        SetUnit(p, "UO", "UO:0000010", "second");
      }
    } else {
      AddParam(node, "MS:1000810", "ion current chromatogram");
    }
    node.append_child("binaryDataArrayList");
    return node;
  }

  bool SwitchList(int kind, std::string& error) {
    if (kind == currentList) return true;
    if (kind < lastList) {
      error = path + ": spectra must come before chromatograms";
      return false;
    }
    if (currentList >= 0) Emit(currentList == 0 ? "</spectrumList>\n" : "</chromatogramList>\n");
    currentList = lastList = kind;
    const char* listName = kind == 0 ? "spectrumList" : "chromatogramList";
    std::string tag;
    if (fromSource && !listTags[kind].empty()) {
      pugi::xml_document d;
      const std::string closed = listTags[kind] + "</" + listName + ">";
      if (d.load_buffer(closed.data(), closed.size()) && d.child(listName)) {
        pugi::xml_node list = d.child(listName);
        if (!list.attribute("defaultDataProcessingRef")) {
          list.append_attribute("defaultDataProcessingRef") = m_processingId.c_str();
        }
        tag = StartTag(list);
      }
    }
    if (tag.empty()) {
      tag = std::string("<") + listName + " count=\"" + std::to_string(counts[kind]) +
            "\" defaultDataProcessingRef=\"" + XmlEscape(m_processingId) + "\">";
    }
    return Emit(tag + "\n") || WriteFailed(error);
  }

  bool Add(const Trace& trace, std::span<const Peak> peaks, std::string& error) {
    if (!open) {
      error = "internal error: the mzML writer is not open";
      return false;
    }
    const int kind = trace.kind == Trace::Kind::kSpectrum ? 0 : 1;
    if (!SwitchList(kind, error)) return false;
    pugi::xml_node node;
    const char* name = kind == 0 ? "spectrum" : "chromatogram";
    if (fromSource && !trace.element.empty()) {
      element.reset();
      if (element.load_buffer(trace.element.data(), trace.element.size())) {
        node = element.child(name);
      }
    }
    const bool built = !node;
    if (built) node = BuildElement(trace, kind);
    const bool searched = trace.selected && trace.problem.empty();
    if (searched || built) {
      if (kind == 0 && !built) MarkCentroided(node);
      ReplaceArrays(node, searched ? peaks : std::span<const Peak>(), kind == 1);
      if (!node.attribute("dataProcessingRef")) node.append_attribute("dataProcessingRef");
      node.attribute("dataProcessingRef").set_value(m_processingId.c_str());
    }
    MakeSafe(node);
    offsets[kind].emplace_back(node.attribute("id").value(), written);
    Printer printer(*this);
    node.print(printer, "", pugi::format_raw, pugi::encoding_utf8);
    return Emit("\n") || WriteFailed(error);
  }

  bool Finish(std::string& error) {
    if (!open) {
      error = "internal error: the mzML writer is not open";
      return false;
    }
    if (currentList >= 0) Emit(currentList == 0 ? "</spectrumList>\n" : "</chromatogramList>\n");
    Emit("</run>\n</mzML>\n");
    if (options.indexed) {
      const std::uint64_t indexOffset = written;
      const int lists = (offsets[0].empty() && offsets[1].empty()) ? 1
                        : (!offsets[0].empty()) + (!offsets[1].empty());
      Emit("<indexList count=\"" + std::to_string(lists) + "\">\n");
      for (int kind = 0; kind < 2; ++kind) {
        if (offsets[kind].empty() && !(kind == 0 && lists == 1 && offsets[1].empty())) continue;
        Emit(kind == 0 ? "<index name=\"spectrum\">\n" : "<index name=\"chromatogram\">\n");
        for (const auto& [id, offset] : offsets[kind]) {
          Emit("<offset idRef=\"" + XmlEscape(id) + "\">" + std::to_string(offset) + "</offset>\n");
        }
        Emit("</index>\n");
      }
      Emit("</indexList>\n<indexListOffset>" + std::to_string(indexOffset) +
           "</indexListOffset>\n<fileChecksum>");
      const std::string digest = sha.HexDigest();
      if (!file.Write(digest + "</fileChecksum>\n</indexedmzML>\n")) return WriteFailed(error);
    }
    open = false;
    return file.Commit(error);
  }
};

MzmlWriter::MzmlWriter() : m_impl(std::make_unique<Impl>()) {}
MzmlWriter::~MzmlWriter() = default;

bool MzmlWriter::Open(const std::string& path, const MzmlReader& source,
                      const MzmlWriteOptions& options, std::string& error) {
  m_impl = std::make_unique<Impl>();
  Impl& w = *m_impl;
  w.options = options;
  w.path = path == "-" ? "standard output" : path;
  w.fromSource = true;
  const std::string closed = source.HeaderXml() + "</run></mzML>";
  const pugi::xml_parse_result parsed = w.header.load_buffer(closed.data(), closed.size());
  if (source.HeaderXml().empty() || !parsed || !w.header.child("mzML")) {
    error = "internal error: the mzML reader has no document header to copy";
    return false;
  }
  w.listTags[0] = source.ListTag(Trace::Kind::kSpectrum);
  w.listTags[1] = source.ListTag(Trace::Kind::kChromatogram);
  return w.file.Open(path, error) && w.WriteHeader(error);
}

bool MzmlWriter::Open(const std::string& path, std::size_t spectra, std::size_t chromatograms,
                      const MzmlWriteOptions& options, std::string& error) {
  m_impl = std::make_unique<Impl>();
  Impl& w = *m_impl;
  w.options = options;
  w.path = path == "-" ? "standard output" : path;
  w.counts[0] = spectra;
  w.counts[1] = chromatograms;
  pugi::xml_node mzml = w.header.append_child("mzML");
  mzml.append_attribute("xmlns") = kNamespace;
  mzml.append_attribute("version") = "1.1.0";
  pugi::xml_node cvs = mzml.append_child("cvList");
  cvs.append_attribute("count") = 2;
  pugi::xml_node ms = cvs.append_child("cv");
  ms.append_attribute("id") = "MS";
  ms.append_attribute("fullName") = "Proteomics Standards Initiative Mass Spectrometry Ontology";
  ms.append_attribute("URI") =
      "https://raw.githubusercontent.com/HUPO-PSI/psi-ms-CV/master/psi-ms.obo";
  pugi::xml_node uo = cvs.append_child("cv");
  uo.append_attribute("id") = "UO";
  uo.append_attribute("fullName") = "Unit Ontology";
  uo.append_attribute("URI") =
      "https://raw.githubusercontent.com/bio-ontology-research-group/unit-ontology/master/unit.obo";
  pugi::xml_node content = mzml.append_child("fileDescription").append_child("fileContent");
  if (spectra > 0) SetParam(content.append_child("cvParam"), "MS", "MS:1000579", "MS1 spectrum");
  if (chromatograms > 0 || spectra == 0) {
    SetParam(content.append_child("cvParam"), "MS", "MS:1000810", "ion current chromatogram");
  }
  mzml.append_child("softwareList").append_attribute("count") = 0;
  pugi::xml_node instruments = mzml.append_child("instrumentConfigurationList");
  instruments.append_attribute("count") = 1;
  pugi::xml_node instrument = instruments.append_child("instrumentConfiguration");
  instrument.append_attribute("id") = "unknown";
  SetParam(instrument.append_child("cvParam"), "MS", "MS:1000031", "instrument model");
  mzml.append_child("dataProcessingList").append_attribute("count") = 0;
  pugi::xml_node run = mzml.append_child("run");
  run.append_attribute("id") = "run";
  run.append_attribute("defaultInstrumentConfigurationRef") = "unknown";
  return w.file.Open(path, error) && w.WriteHeader(error);
}

bool MzmlWriter::Add(const Trace& trace, std::span<const Peak> peaks, std::string& error) {
  return m_impl->Add(trace, peaks, error);
}

bool MzmlWriter::Finish(std::string& error) { return m_impl->Finish(error); }

}  // namespace qxpkutil
