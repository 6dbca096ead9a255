// Reads mzML 1.1 files (plain or inside an indexedmzML wrapper) into Traces: spectra or
// chromatograms, profile or centroided, 32/64-bit float (or integer) arrays, zlib-compressed
// or not. Built on pugixml and zlib; the parsed document is kept so that the centroided-mzML
// writer can replace the arrays of the traces it was given and keep everything else.
//
//   MzmlRun run;  std::string error;
//   MzmlSelection sel;  sel.ms_level = 1;
//   if (!run.Read("sample.mzML", sel, error)) { std::cerr << error << '\n'; }
//   for (const Trace& t : run.Traces()) { ... }
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "qxpkutil/io/Trace.h"

namespace qxpkutil {

// An inclusive range of indices or scan numbers.
struct NumberRange {
  std::int64_t first = 0;
  std::int64_t last = 0;
};

// Which traces of a file to read. Every filter that is set must accept a trace. The
// retention-time and MS-level filters apply to spectra only: a spectrum without a scan start
// time or MS level fails them, chromatograms are never filtered by them.
struct MzmlSelection {
  enum class List { kAuto, kSpectra, kChromatograms };
  List list = List::kAuto;  // kAuto: the spectra, or the chromatograms when there is no spectrum
  std::vector<NumberRange> indices;  // positions in the list; empty: every position
  std::vector<NumberRange> scans;    // scan numbers ("scan=N" ids); empty: any
  double rt_min = -std::numeric_limits<double>::infinity();  // seconds, inclusive
  double rt_max = std::numeric_limits<double>::infinity();
  int ms_level = 0;  // 0: any

  bool Accepts(const Trace& trace) const;
};

// One parsed file: the selected traces and, for the writer, the document they came from.
// Not copyable or movable: the document points into the buffer the run owns.
class MzmlRun {
 public:
  MzmlRun() = default;
  MzmlRun(const MzmlRun&) = delete;
  MzmlRun& operator=(const MzmlRun&) = delete;

  // Reads and parses the file at `path` ("-" is standard input). False with one line in
  // `error` (naming the file, the trace and the problem) for an unreadable file, XML that
  // is malformed or truncated, a document that is not mzML, an array that cannot be
  // decoded (bad base64, bad zlib stream, unsupported encoding), arrays whose lengths
  // disagree with each other or with the declared length, inflated data larger than
  // declared, non-finite values or x values out of ascending order. On failure the run
  // holds no traces.
  [[nodiscard]] bool Read(const std::string& path, const MzmlSelection& selection,
                          std::string& error);
  // The same for the text of a file already in memory; `name` only labels messages.
  [[nodiscard]] bool Parse(std::vector<char> text, const std::string& name,
                           const MzmlSelection& selection, std::string& error);

  // How many elements the list that was read holds (selected or not), and their name.
  std::size_t ListSize() const { return m_listSize; }
  const char* ListElement() const { return m_listElement; }

  std::vector<Trace>& Traces() { return m_traces; }
  const std::vector<Trace>& Traces() const { return m_traces; }
  // The spectrum or chromatogram element of each trace, in the order of Traces().
  const std::vector<pugi::xml_node>& Nodes() const { return m_nodes; }
  // The <mzML> element, inside an <indexedmzML> wrapper or not; null before a successful read.
  pugi::xml_node MzmlElement() const { return m_mzml; }

 private:
  std::vector<char> m_text;  // parsed in place: the document points into it
  pugi::xml_document m_document;
  pugi::xml_node m_mzml;
  std::vector<Trace> m_traces;
  std::vector<pugi::xml_node> m_nodes;
  std::size_t m_listSize = 0;
  const char* m_listElement = "spectrum";
};

}  // namespace qxpkutil
