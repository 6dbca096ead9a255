// An SVG picture of a peak search, for when a person would rather look than read: each
// trace as a panel with its signal (reduced to a min/max envelope per pixel column, so a
// million points stay a small file), every peak's apex, integration baseline and bounds,
// its centroid and centroid region when measured, and the labels and positions of the
// most prominent peaks. The text is valid XML: every string from a file is escaped.
//
//   std::string svg = FormatSvg("run.mzML", traces, peaks);   // then write it in one step
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qxpkutil/io/Trace.h"
#include "tools/qxpeak/detection.h"

namespace qxpkutil::qxpeak {

struct PlotOptions {
  int width = 1200;                    // pixels
  int panelHeight = 420;               // pixels per trace
  std::size_t maxPanels = 12;          // later traces are left out, with a note saying so
  std::size_t maxPositionLabels = 25;  // the most intense unlabelled peaks get their x written
};

// The whole picture; `traces` and `peaks` are parallel. User labels are always written
// (where they do not overlap one another); the most intense other peaks, one per isotope
// series, get their position and "z=" with their charge, while room and
// `maxPositionLabels` allow.
std::string FormatSvg(const std::string& title, const std::vector<Trace>& traces,
                      const std::vector<TracePeaks>& peaks, const PlotOptions& options = {});

// `text` made safe for XML character data and attribute values: markup characters become
// entities, control characters are dropped, and bytes that are not UTF-8 become '?'.
std::string XmlEscape(const std::string& text);

}  // namespace qxpkutil::qxpeak
