// The JSON API behind `qxpeak view`: one ViewState per opened file (its traces, the detection
// settings as the setup dialogs edit them, the label list, the calculators, binning) and one
// function that answers a request without any socket, so that tests call it directly.
// Every rule, validator and message comes from the library (qxpkutil/ui, the string table);
// a refused request answers 4xx with the library's message and changes nothing.
//
//   ViewState state;  std::string error;
//   if (!OpenViewFile("run.mzML", {}, state, error)) { ... }
//   ApiReply r = HandleApi(state, "POST", "/api/segments/range",
//                          R"({"index": 0, "bound": "x2", "text": "500"})");
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/settings/PeakCalc.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil::qxpeak::view {

// The traces of the file shown, held whole: the page lets a person pick any of them.
struct ViewInput {
  std::vector<Trace> traces;
  std::vector<Trace>& Traces() { return traces; }
};

struct ViewState {
  std::string path;    // the file shown
  ViewInput input;     // its traces
  std::int32_t current = 0;  // the trace shown

  // Classic mode runs `list`'s segments and switches; automatic mode the physical options.
  bool automatic = true;
  QXPeakTableList list;
  std::int32_t displayPrecision = 2;  // decimals the range editor shows, as the dialogs keep it
  DetectOptions physical;             // snr, fwhm, resolution, width law, max charge
  std::string fwhmText;               // the width as typed, empty: from the data

  QXUserPkLabels labels;
  bool matchLabels = false;
  SNPeakCalc sn;
  ResCalcPeakCalc res;

  bool binning = false;
  double binWidth = 0.01;

  std::string section = "qxpeak";  // where the INI settings live, as for --settings
  int settingsTrace = 0;

  // The last detection, kept until something changes.
  bool fresh = false;
  std::vector<double> x, y;  // the trace shown, binned when binning is on
  PeakList peaks;
};

// Reads `path` (mzML or two-column text) into a fresh state; `settingsFile`, when not empty,
// gives the classic segments (and turns classic mode on). False with one line in `error`.
[[nodiscard]] bool OpenViewFile(const std::string& path, const std::string& settingsFile,
                                ViewState& state, std::string& error);

struct ApiReply {
  int status = 200;
  std::string contentType = "application/json";
  std::string body;
};

// Answers one API request (`path` starts with /api/, `body` is JSON for POST). Unknown paths
// get 404, malformed JSON or a value a validator refuses 400 with {"error": message}; the
// state is then unchanged. A range edit whose rule asks a question answers 200 with
// {"question": {"id", "text"}} and nothing changed; the same request sent again with
// "answers": [true, ...] gives the rule those answers in order.
ApiReply HandleApi(ViewState& state, const std::string& method, const std::string& path,
                   const std::string& body);

}  // namespace qxpkutil::qxpeak::view
