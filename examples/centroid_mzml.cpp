// Centroids every spectrum of an mzML file (gzip or not) into a new indexed mzML file, one
// spectrum at a time: memory stays at a few spectra whatever the size of the run.
//   centroid_mzml in.mzML[.gz] out.mzML
#include <cstdio>
#include <string>

#include <qxpkutil/detect/PeakDetection.h>
#include <qxpkutil/io/MzmlReader.h>
#include <qxpkutil/io/MzmlWriter.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: centroid_mzml IN.mzML OUT.mzML\n");
    return 2;
  }
  qxpkutil::MzmlReadOptions read;
  read.keep_elements = true;  // the writer copies what is not searched
  qxpkutil::MzmlReader reader;
  qxpkutil::MzmlWriter writer;
  qxpkutil::MzmlWriteOptions write;
  write.software = "centroid_mzml";
  std::string error;
  if (!reader.Open(argv[1], read, error) || !writer.Open(argv[2], reader, write, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  std::size_t traces = 0, peaks = 0, skipped = 0;
  for (qxpkutil::Trace t; reader.Next(t);) {
    qxpkutil::PeakList found;
    if (t.selected && t.problem.empty()) {
      found = qxpkutil::DetectPeaks(t.x, t.y);
      ++traces;
      peaks += found.peaks.size();
    } else if (!t.problem.empty()) {
      std::fprintf(stderr, "skipped %s\n", t.problem.c_str());
      ++skipped;
    }
    if (!writer.Add(t, found.peaks, error)) break;
  }
  if (!error.empty() || !reader.Error().empty() || !writer.Finish(error)) {
    std::fprintf(stderr, "%s\n", error.empty() ? reader.Error().c_str() : error.c_str());
    return 1;
  }
  std::printf("%zu traces, %zu peaks, %zu skipped\n", traces, peaks, skipped);
  return 0;
}
