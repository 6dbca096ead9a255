// The command line of qxpeak, parsed with CLI11 into a plain Options value: which command,
// which inputs and traces, which detection mode with which settings, the extra measurements
// and the outputs. Parsing only reads and checks the text; files are opened later, by the
// commands. Every number goes through one rule (the library's QXParseDouble/QXParseInt),
// and every classic value through the same range table as settings files.
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

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/io/MzmlReader.h"
#include "tools/qxpeak/run/detection.h"

#ifndef QXPEAK_VERSION
#define QXPEAK_VERSION "unknown"
#endif

namespace qxpkutil::qxpeak {

inline constexpr const char* kVersion = QXPEAK_VERSION;

// Exit statuses, documented in --help and docs/qxpeak.md.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;    // an input or output failed
inline constexpr int kExitUsage = 2;     // the command line is wrong
inline constexpr int kExitSkipped = 3;   // every input written, but some traces were skipped

// Values given on the command line for the classic settings; unset ones leave the settings
// file's (or the library's default) value alone. Any of them selects the classic mode.
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
  std::optional<int> maxCharge;           // shared with the automatic mode
  std::optional<int> maxIsotope;
  std::optional<bool> massProcessing;
  std::optional<bool> autoNoise;
  std::vector<std::pair<double, double>> segments;  // one segment per range, in order

  // True when a value that only the classic mode knows was given.
  bool AnyClassic() const;
};

// The automatic mode's physical description; unset values keep DetectOptions' defaults.
struct AutomaticSettings {
  std::optional<double> snr;
  std::string fwhm;  // "0.01@400", "4s", "20ppm"; parsed by ParseFwhm
  std::optional<double> resolution;
  std::optional<double> resolutionAt;
  std::optional<WidthLaw> analyzer;

  bool Any() const { return snr || !fwhm.empty() || resolution || resolutionAt || analyzer; }
};

struct Options {
  enum class Command { kFind, kSettings, kDemo };
  enum class Mode { kAutomatic, kClassic };
  Command command = Command::kFind;
  Mode mode = Mode::kAutomatic;
  std::vector<std::string> inputs;  // "-" is standard input

  // Traces.
  MzmlSelection selection;
  CentroidedInput centroided = CentroidedInput::kAuto;

  // Detection.
  AutomaticSettings automatic;
  std::string autoFile;      // `settings --auto FILE`: segments chosen for this file
  bool classicDefaults = false;  // --classic
  std::string settingsFile;  // classic settings; empty: the library's defaults
  std::string section = "qxpeak";
  int settingsTrace = 0;
  SettingOverrides overrides;
  bool gaussFit = false;  // the tool's Gaussian refinement, either mode

  // Measurements and labels.
  std::optional<std::pair<double, double>> noiseRegion;  // signal-to-noise baseline x1..x2
  std::optional<int> resolutionPercent;                  // resolution at this % of the height
  double resolutionMinIntensity = 0.0;
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
// saying what is wrong to `err` (kExitUsage).
std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options,
                                std::ostream& out, std::ostream& err);

// "X1:X2" as two numbers with X1 <= X2; false when malformed.
[[nodiscard]] bool ParseRange(const std::string& text, std::pair<double, double>& range);

// The output format an output file's name implies (".tsv", ".json", ".txt", ".mzML",
// ".svg", case-insensitive); empty when the extension names none.
std::string FormatFromExtension(const std::string& path);

}  // namespace qxpkutil::qxpeak
