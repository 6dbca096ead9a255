// The C++ side of the package's agreement test: reads an mzML or text file with the io
// component, runs DetectPeaks with default options on every trace and prints each peak's
// numbers exactly ("%a"), one tab-separated line per peak, preceded by the trace index.
//   detect_reference FILE
#include <cstdio>
#include <string>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/TextReader.h"

int main(int argc, char** argv) {
  using namespace qxpkutil;
  if (argc != 2) {
    std::fprintf(stderr, "usage: detect_reference FILE\n");
    return 2;
  }
  const std::string path = argv[1];
  std::string error;
  std::vector<Trace> traces;
  if (path.size() > 4 && path.substr(path.size() - 4) == ".txt") {
    traces.emplace_back();
    if (!ReadTextSignal(path, traces.back(), error)) traces.clear();
  } else {
    (void)ReadMzml(path, MzmlSelection{}, traces, error);
  }
  if (!error.empty()) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  for (const Trace& t : traces) {
    DetectOptions options;
    if (t.kind == Trace::Kind::kChromatogram) options.kind = SignalKind::kChromatogram;
    const PeakList found = DetectPeaks(t.x, t.y, options);
    if (!found.ok()) {
      std::fprintf(stderr, "%s\n", found.message.c_str());
      return 1;
    }
    for (const Peak& p : found.peaks) {
      std::printf("%d\t%a\t%a\t%a\t%a\t%a\t%a\t%a\t%a\t%d\t%u\n", t.index, p.apex_x, p.apex_y,
                  p.centroid_x, p.area, p.height, p.fwhm, p.noise, p.snr, p.charge, p.marks);
    }
  }
  return 0;
}
