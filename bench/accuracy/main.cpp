// qxpkutil_accuracy: scores DetectPeaks, with its default options, on seeded traces whose
// true peaks are known, and prints a Markdown table with the targets. It can also write the
// traces out for other programs and score their results the same way.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "bench/accuracy/generator.h"
#include "bench/accuracy/scorer.h"
#include "bench/accuracy/trace_files.h"
#include "qxpkutil/detect/PeakDetection.h"

namespace {

using namespace qxpkutil;
using namespace qxpkutil::accuracy;

constexpr const char* kUsage =
    "usage: qxpkutil_accuracy [--set NAME] [--seed N] [--seeds K] [--verbose] [--dump DIR]\n"
    "       qxpkutil_accuracy --score TRUTH.tsv FOUND.tsv [TRUTH.tsv FOUND.tsv ...]\n"
    "\n"
    "Scores DetectPeaks with its default options (kind set to chromatogram for the\n"
    "chromatogram sets) on seeded traces with known peaks and prints a Markdown table.\n"
    "  --set NAME    one set only: tof, orbitrap, sampling, snr_ladder, chromatogram, srm,\n"
    "                zero_filled, baseline_drift\n"
    "  --seed N      the generator's seed (default 1)\n"
    "  --seeds K     K seeds from N on, pooled per set: a steadier figure, and sets the\n"
    "                method was not tuned on\n"
    "  --verbose     also list every missed true peak and every false positive\n"
    "  --dump DIR    write each trace as DIR/SET/TRACE.txt (x<TAB>y) with its truth\n"
    "                DIR/SET/TRACE.truth.tsv and DetectPeaks's DIR/SET/TRACE.qxpkutil.tsv,\n"
    "                and DIR/sets.tsv, for other programs\n"
    "  --score ...   score found-peak TSVs (apex_x and/or centroid_x columns; area,\n"
    "                height, fwhm, snr, charge when present) against truth files written by\n"
    "                --dump; the set of a pair is the truth file's folder name\n";

std::vector<Detection> ToDetections(const std::vector<Peak>& peaks) {
  std::vector<Detection> found;
  found.reserve(peaks.size());
  for (const Peak& p : peaks) {
    Detection d;
    d.x = std::isfinite(p.centroid_x) ? p.centroid_x : p.apex_x;
    d.area = p.area;
    d.height = p.height;
    d.fwhm = p.fwhm;
    d.snr = p.snr;
    d.left = p.left_x;
    d.right = p.right_x;
    d.charge = p.charge;
    found.push_back(d);
  }
  return found;
}

// DetectPeaks's table beside the dumped trace, as DIR/SET/TRACE.qxpkutil.tsv, so that it
// can be plotted against the truth or scored again with --score.
bool WriteFound(const std::string& dir, const TraceSet& set, const Trace& trace,
                const std::vector<Peak>& peaks, std::string& error) {
  const auto path = std::filesystem::path(dir) / set.name / (trace.name + ".qxpkutil.tsv");
  std::ofstream file(path, std::ios::binary);
  file.precision(17);
  file << "apex_x\tcentroid_x\tleft_x\tright_x\tarea\theight\tbaseline\tfwhm\tnoise\tsnr\tcharge\n";
  for (const Peak& p : peaks) {
    for (const double v : {p.apex_x, p.centroid_x, p.left_x, p.right_x, p.area, p.height,
                           p.baseline, p.fwhm, p.noise, p.snr}) {
      file << v << '\t';
    }
    file << p.charge << '\n';
  }
  file.close();
  if (!file) error = "cannot write " + path.string();
  return static_cast<bool>(file);
}

int Fail(const std::string& message) {
  std::cerr << "qxpkutil_accuracy: " << message << '\n';
  return 2;
}

int Score(const std::vector<std::string>& files, bool verbose) {
  if (files.empty() || files.size() % 2 != 0) return Fail("--score takes pairs of files");
  std::vector<SetScore> sets;
  for (std::size_t i = 0; i < files.size(); i += 2) {
    std::vector<TruthPeak> truth;
    std::vector<Detection> found;
    std::string error;
    if (!ReadTruth(files[i], truth, error) || !ReadFound(files[i + 1], found, error)) {
      return Fail(error);
    }
    const std::filesystem::path truthPath(files[i]);
    std::string set = truthPath.parent_path().filename().string();
    if (set.empty()) set = "scored";
    auto score = std::find_if(sets.begin(), sets.end(),
                              [&](const SetScore& s) { return s.name == set; });
    if (score == sets.end()) score = sets.insert(sets.end(), SetScore(set));
    const Matching matching = MatchPeaks(truth, found);
    score->Add(truth, found, matching);
    if (verbose) std::cout << ListMistakes(files[i + 1], truth, found, matching);
  }
  std::cout << FormatTable(sets);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string only, dump;
  std::uint64_t seed = 1, seeds = 1;
  bool verbose = false;
  std::vector<std::string> scoreFiles;
  bool score = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--set" && hasValue) {
      only = argv[++i];
    } else if (arg == "--seed" && hasValue) {
      char* end = nullptr;
      seed = std::strtoull(argv[++i], &end, 10);
      if (*end != '\0') return Fail("--seed takes a whole number");
    } else if (arg == "--seeds" && hasValue) {
      char* end = nullptr;
      seeds = std::strtoull(argv[++i], &end, 10);
      if (*end != '\0') return Fail("--seeds takes a whole number");
    } else if (arg == "--verbose") {
      verbose = true;
    } else if (arg == "--dump" && hasValue) {
      dump = argv[++i];
    } else if (arg == "--score") {
      score = true;
      while (i + 1 < argc && std::string(argv[i + 1]).rfind("--", 0) != 0) {
        scoreFiles.push_back(argv[++i]);
      }
    } else if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    } else {
      std::cerr << kUsage;
      return Fail("unknown or incomplete option " + arg);
    }
  }
  if (score) return Score(scoreFiles, verbose);

  if (seeds < 1) return Fail("--seeds takes a count of at least 1");
  if (seeds > 1 && !dump.empty()) return Fail("--dump writes the traces of one seed");
  std::vector<SetScore> scores;
  std::size_t points = 0;
  std::chrono::steady_clock::duration spent{};
  for (std::uint64_t k = 0; k < seeds; ++k) {
    const std::vector<TraceSet> sets = MakeSets(seed + k, only);
    if (sets.empty()) {
      std::string names;
      for (const std::string& name : SetNames()) names += " " + name;
      return Fail("no set named " + only + "; the sets are" + names);
    }
    std::string error;
    if (!dump.empty() && !WriteSetList(dump, sets, error)) return Fail(error);
    for (std::size_t i = 0; i < sets.size(); ++i) {
      const TraceSet& set = sets[i];
      DetectOptions options;  // the defaults: nothing tuned to the data
      if (set.chromatogram) options.kind = SignalKind::kChromatogram;
      if (scores.size() <= i) scores.emplace_back(set.name);
      for (const Trace& trace : set.traces) {
        if (!dump.empty() && !WriteTrace(dump, set, trace, error)) return Fail(error);
        const auto start = std::chrono::steady_clock::now();
        const PeakList result = DetectPeaks(trace.x, trace.y, options);
        spent += std::chrono::steady_clock::now() - start;
        points += trace.x.size();
        std::string label = set.name + '/' + trace.name;
        if (seeds > 1) label += "@" + std::to_string(seed + k);
        if (!result.ok()) std::cerr << label << ": " << result.message << '\n';
        if (!dump.empty() && !WriteFound(dump, set, trace, result.peaks, error)) return Fail(error);
        const std::vector<Detection> found = ToDetections(result.peaks);
        const Matching matching = MatchPeaks(trace.truth, found);
        scores[i].Add(trace.truth, found, matching);
        if (verbose) std::cout << ListMistakes(label, trace.truth, found, matching);
      }
    }
  }
  if (verbose) std::cout << '\n';
  std::cout << FormatTable(scores);
  const std::string last = seeds > 1 ? " to " + std::to_string(seed + seeds - 1) : "";
  std::printf("\nSeed %llu%s; DetectPeaks took %.2f s over %zu points.\n",
              static_cast<unsigned long long>(seed), last.c_str(),
              std::chrono::duration<double>(spent).count(), points);
  return 0;
}
