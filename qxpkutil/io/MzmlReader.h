// Reads mzML 1.1 files (plain or inside an indexedmzML wrapper, gzip-compressed or not) one
// spectrum or chromatogram at a time, so that memory stays bounded by a few traces, not by
// the file: profile or centroided, 32/64-bit float (or integer) arrays, zlib-compressed or
// not. A trace that cannot be used is returned with its `problem` set and the rest of the
// file goes on; only a broken file (not mzML, truncated, unreadable) stops the reading.
// A plain file is mapped into memory rather than read; the pages passed are let go again.
// Built on pugixml (each element is parsed alone, without its base64 text) and zlib.
//
//   MzmlReader reader;  std::string error;
//   if (!reader.Open("run.mzML.gz", {}, error)) { std::cerr << error << '\n'; }
//   for (Trace t; reader.Next(t);) { if (t.problem.empty()) use(t.x, t.y); }
//   if (!reader.Error().empty()) { std::cerr << reader.Error() << '\n'; }
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qxpkutil/io/Trace.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

namespace io_internal {
class Input;
}

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

struct MzmlReadOptions {
  MzmlSelection selection;
  // Return every element of the file in order, the unselected ones (and those of the list
  // not read) with `selected` false and no points, each with its XML in Trace::element: what
  // MzmlWriter needs to copy the document.
  bool keep_elements = false;
  // Map a plain file into memory instead of reading it in chunks: fewer copies and page
  // faults, but if another program truncates the file meanwhile, touching the lost pages
  // raises SIGBUS. Only a caller that handles that signal should ask for it (qxpeak does).
  bool map_file = false;
};

// The limits that keep hostile files from exhausting memory; an element or array beyond
// them is refused with a message, never allocated. The reading window may take up to twice
// an element's size while it grows. Ten million points of 64-bit m/z and intensity fit.
inline constexpr std::size_t kMaxMzmlHeaderBytes = std::size_t{16} << 20;
inline constexpr std::size_t kMaxMzmlElementBytes = std::size_t{256} << 20;
inline constexpr std::uint64_t kMaxArrayValues = std::uint64_t{32} << 20;
static_assert(kMaxArrayValues <= kQXMaxPoints, "a trace read must be one the library can search");

class MzmlReader {
 public:
  MzmlReader();
  ~MzmlReader();
  MzmlReader(const MzmlReader&) = delete;
  MzmlReader& operator=(const MzmlReader&) = delete;

  // Opens the file at `path` ("-" is standard input) and reads its header, up to the first
  // spectrum or chromatogram. False with one line in `error` for an unreadable file, a
  // UTF-16 file, a file that is not mzML, or a malformed or oversized header.
  [[nodiscard]] bool Open(const std::string& path, const MzmlReadOptions& options,
                          std::string& error);
  // The same for a document in memory; `name` only labels messages.
  [[nodiscard]] bool OpenText(std::string text, const std::string& name,
                              const MzmlReadOptions& options, std::string& error);

  // Reads the next selected trace into `trace` (replacing what it held). False at the end
  // of the list, or when the file turns out broken (truncated, malformed between elements,
  // unreadable): Error() then says why. A trace that cannot be used is still returned,
  // with Trace::problem naming the element, its id and what is wrong.
  bool Next(Trace& trace);
  // Empty while all is well and at a clean end.
  const std::string& Error() const;

  // Next in two steps, for pipelines that spread the work over threads. NextElement only
  // finds where the next element of interest ends (cheap, in the reading thread); Interpret
  // parses and decodes it (the costly part) and reads nothing but what Open set up, so
  // several threads may call it at once, each with its own Workspace. It also lets go of
  // the mapped pages NextElement found passed, so that a pipeline does not do that under
  // the lock that guards NextElement. Interpret returns false for an element
  // Next would have skipped (outside the selection), and also, with Element::broken set,
  // for one that shows the file damaged: reading stops there with that message, as Next
  // stops with it in Error().
  class Element {
   public:
    // The element's XML: in the mapped file (valid while the reader lives) or a copy.
    std::string_view Text() const { return m_owned ? std::string_view(m_copy) : m_view; }
    Trace::Kind kind = Trace::Kind::kSpectrum;
    std::size_t position = 0;  // in its list
    bool listRead = true;      // false: from the other list, only passed through (keep_elements)
    std::string broken;        // set by Interpret: why the file cannot be read past here

   private:
    friend class MzmlReader;
    std::string_view m_view;
    std::string m_copy;
    bool m_owned = false;
    std::span<char> m_passed;  // mapped pages the reader has passed, let go by Interpret
  };
  class Workspace {  // scratch buffers for Interpret, reused from element to element
   public:
    Workspace();
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

   private:
    friend class MzmlReader;
    struct Impl;
    std::unique_ptr<Impl> m_impl;
  };
  // `oldest` is the earliest element the caller still interprets (null: none): a mapped
  // file's pages are let go up to it, so that only the elements in flight stay in memory.
  bool NextElement(Element& element, const Element* oldest = nullptr);
  bool Interpret(Element& element, Workspace& workspace, Trace& trace) const;

  // The element name of the list being read ("spectrum" or "chromatogram") and how many of
  // its elements were seen so far, selected or not.
  const char* ListElement() const;
  std::size_t ListSize() const;

  // For the writer: the document's text from <mzML> up to and including <run ...>, and the
  // opening tag of the list each kind of trace came from (empty before one was seen).
  const std::string& HeaderXml() const;
  const std::string& ListTag(Trace::Kind kind) const;

 private:
  friend class TraceReader;
  bool OpenInput(io_internal::Input&& input, const MzmlReadOptions& options, std::string& error);

  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// Reads every selected trace of the file at `path` into `traces`, in order: a convenience
// for small files. False with the reason in `error` when the file is broken; traces with a
// problem are kept, with Trace::problem set.
[[nodiscard]] bool ReadMzml(const std::string& path, const MzmlSelection& selection,
                            std::vector<Trace>& traces, std::string& error);

}  // namespace qxpkutil
