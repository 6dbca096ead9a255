// The command line of qxpeak, parsed with CLI11 into a plain Options value: which command,
// which inputs and traces, the settings file and the options that override it, the extra
// measurements and the outputs. Parsing only reads and checks the text; files are opened
// later, by the commands.
//
//   Options options;
//   if (std::optional<int> done = ParseOptions(argc, argv, options, std::cout, std::cerr)) {
//     return *done;                    // --help, --version, or a usage error already reported
//   }
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qxpkutil/io/MzmlReader.h"
#include "tools/qxpeak/detection.h"

#ifndef QXPEAK_VERSION
#define QXPEAK_VERSION "unknown"
#endif

namespace qxpkutil::qxpeak {

inline constexpr const char* kVersion = QXPEAK_VERSION;

// Values given on the command line for the detection settings; unset ones leave the
// settings file's (or the library's default) value alone.
struct SettingOverrides {
  std::optional<double> threshold;        // RelThreshold, percent of the data's height
  std::optional<double> absThreshold;     // AbsThreshold
  std::optional<int> filterType;          // 0 Gaussian-weighted mean, 1 plain mean
  std::optional<int> filterWidth;         // points
  std::optional<int> filterInc;           // points
  std::optional<double> minArea;          // MinPeakArea
  std::optional<double> areaPercent;      // PctPeakArea
  std::optional<int> maxWidth;            // MaxPeakWidth, points
  std::optional<double> noiseThreshold;   // NoiseThreshold
  std::optional<int> integration;         // IntegratedMethod: 1 line baseline, 0 flat
  std::optional<double> centroidPercent;  // PctCentroid
  std::optional<int> maxCharge;
  std::optional<int> maxIsotope;
  std::optional<bool> massProcessing;
  std::optional<bool> gaussFit;
  std::optional<bool> autoNoise;
  std::vector<std::pair<double, double>> segments;  // one segment per range, in order
};

struct Options {
  enum class Command { kFind, kSettings, kDemo };
  Command command = Command::kFind;
  std::vector<std::string> inputs;  // "-" is standard input

  // Traces.
  MzmlSelection selection;
  CentroidedInput centroided = CentroidedInput::kAuto;

  // Settings.
  std::string settingsFile;  // empty: the library's defaults
  std::string section = "qxpeak";
  int settingsTrace = 0;
  SettingOverrides overrides;

  // Measurements and labels.
  std::optional<std::pair<double, double>> noiseRegion;  // signal-to-noise baseline x1..x2
  std::optional<int> resolutionPercent;                  // resolution at this % of the height
  int resolutionMinIntensity = 0;
  std::string labelsFile;

  // Outputs.
  std::vector<std::string> formats;  // of "tsv", "json", "dump", "mzml", "svg"
  std::string output;                // one file for one input and one format; "-" is stdout
  std::string outDir;                // empty: the current folder
  int threads = 0;                   // 0: one per processor
  bool quiet = false;
};

// Parses the command line into `options`. Returns nothing when the command should run;
// otherwise the exit status, after writing help or the version to `out`, or one line
// saying what is wrong to `err` (status 2).
std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options,
                                std::ostream& out, std::ostream& err);

// "X1:X2" as two numbers with X1 <= X2; false when malformed.
[[nodiscard]] bool ParseRange(const std::string& text, std::pair<double, double>& range);

}  // namespace qxpkutil::qxpeak
