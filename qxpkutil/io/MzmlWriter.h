// Centroided mzML output, written as a stream: each searched spectrum (or chromatogram)
// keeps its metadata and gets its peaks in place of its arrays, so the result feeds tools
// that expect centroided data; everything else is copied through. The document records the
// step (a software entry and a "peak picking" data-processing entry with the settings),
// spectra say "centroid spectrum" instead of "profile spectrum", and an indexedmzML wrapper
// gives the byte offset of every element and the file's SHA-1. Ids and values that are not
// valid UTF-8 or hold control characters are repaired, so the output is always well-formed.
// The file appears at its path only when Finish succeeds (temporary file, then rename).
//
//   MzmlReadOptions read;  read.keep_elements = true;
//   MzmlReader reader;  MzmlWriter writer;
//   if (reader.Open(in, read, error) && writer.Open(out, reader, {}, error)) {
//     for (Trace t; reader.Next(t);) writer.Add(t, PeaksOf(t), error);
//     writer.Finish(error);
//   }
#pragma once

#include <memory>
#include <span>
#include <string>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil {

struct MzmlWriteOptions {
  bool zlib = false;     // zlib-compress the peak arrays
  bool float32 = false;  // 32-bit floats for the peak arrays (64-bit otherwise)
  bool indexed = true;   // the indexedmzML wrapper with offsets and checksum
  std::string software = "qxpeak";  // the software entry's name (and id)
  std::string software_version;
  std::string settings;  // the search's settings, one line, recorded with the step
  // The input's name, recorded with the step.
  std::string source_name;
};

class MzmlWriter {
 public:
  MzmlWriter();
  ~MzmlWriter();  // an unfinished output is abandoned: nothing appears at its path
  MzmlWriter(const MzmlWriter&) = delete;
  MzmlWriter& operator=(const MzmlWriter&) = delete;

  // Starts a centroided copy of the document `source` reads (opened with keep_elements, so
  // that every element can be copied through) at `path` ("-" is standard output). Writes the
  // header at once; Add must then get every trace `source` returns, in order.
  [[nodiscard]] bool Open(const std::string& path, const MzmlReader& source,
                          const MzmlWriteOptions& options, std::string& error);
  // Starts a new document for traces that did not come from mzML: `spectra` spectra, then
  // `chromatograms` chromatograms will be added.
  [[nodiscard]] bool Open(const std::string& path, std::size_t spectra, std::size_t chromatograms,
                          const MzmlWriteOptions& options, std::string& error);

  // Writes `trace`: a selected, usable trace with `peaks` as its arrays (x the centroid, or
  // the apex where no centroid was measured; y the apex height); a trace with a problem or
  // outside the selection as it was read. False with a message when the output cannot be
  // written or the trace does not fit the document (a spectrum after the chromatograms).
  [[nodiscard]] bool Add(const Trace& trace, std::span<const Peak> peaks, std::string& error);
  // Closes the document, writes the index and checksum, and moves the file into place.
  [[nodiscard]] bool Finish(std::string& error);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace qxpkutil
