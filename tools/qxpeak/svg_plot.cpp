#include "tools/qxpeak/svg_plot.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include "qxpkutil/peaks/QXPeakTableElement.h"

namespace qxpkutil::qxpeak {

namespace {

constexpr double kMarginLeft = 84.0;
constexpr double kMarginRight = 24.0;
constexpr double kMarginTop = 44.0;
constexpr double kMarginBottom = 50.0;
constexpr double kCharWidth = 6.2;  // of the 11-pixel sans-serif labels, roughly
constexpr double kLabelHeight = 13.0;

// Data-to-pixel mapping of one panel.
struct Frame {
  double x0, x1, y0, y1;
  double left, top, width, height;
  double Px(double x) const { return left + (x - x0) / (x1 - x0) * width; }
  double Py(double y) const {
    const double p = top + height - (y - y0) / (y1 - y0) * height;
    return std::clamp(p, top - 2.0, top + height + 2.0);
  }
};

// Pixel coordinates to a tenth of a pixel.
void Coord(std::string& out, double v) {
  char buffer[32];
  const auto r = std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::fixed, 1);
  out.append(buffer, r.ptr);
}

void Point(std::string& out, char command, double x, double y) {
  out += command;
  Coord(out, x);
  out += ',';
  Coord(out, y);
}

std::string Fixed(double v, int decimals) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, v);
  return buffer;
}

// A tick step of 1, 2 or 5 times a power of ten giving about `target` ticks.
double NiceStep(double range, int target) {
  const double raw = range / target;
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  const double norm = raw / magnitude;
  return (norm < 1.5 ? 1.0 : norm < 3.0 ? 2.0 : norm < 7.0 ? 5.0 : 10.0) * magnitude;
}

// The multiples of `step` within lo..hi, counted in whole steps so that a step too small
// to change a large value cannot stall the walk.
std::vector<double> Ticks(double lo, double hi, double step) {
  std::vector<double> ticks;
  const double first = std::ceil(lo / step);
  for (int k = 0; k <= 20; ++k) {
    const double t = (first + k) * step;
    if (t > hi + step * 1e-9) break;
    ticks.push_back(t);
  }
  return ticks;
}

int DecimalsFor(double step) {
  return std::max(0, static_cast<int>(-std::floor(std::log10(step))));
}

void Text(std::string& out, double x, double y, const std::string& text, const char* extra) {
  out += "<text x=\"";
  Coord(out, x);
  out += "\" y=\"";
  Coord(out, y);
  out += "\" ";
  out += extra;
  out += '>';
  out += XmlEscape(text);
  out += "</text>\n";
}

void Axes(std::string& out, const Frame& f, const char* xTitle) {
  const double bottom = f.top + f.height;
  out += "<g class=\"axes\" stroke=\"#444\" fill=\"none\">";
  out += "<path d=\"";
  Point(out, 'M', f.left, f.top);
  Point(out, 'L', f.left, bottom);
  Point(out, 'L', f.left + f.width, bottom);
  out += "\"/></g>\n";
  out += "<g class=\"ticks\" font-family=\"sans-serif\" font-size=\"11\" fill=\"#333\">\n";
  const double xStep = NiceStep(f.x1 - f.x0, 8);
  for (const double t : Ticks(f.x0, f.x1, xStep)) {
    const double px = f.Px(t);
    out += "<path stroke=\"#444\" d=\"";
    Point(out, 'M', px, bottom);
    out += 'v';
    out += "5\"/>";
    Text(out, px, bottom + 17.0, Fixed(t, DecimalsFor(xStep)), "text-anchor=\"middle\"");
  }
  const double yStep = NiceStep(f.y1 - f.y0, 5);
  for (const double t : Ticks(f.y0, f.y1, yStep)) {
    const double py = f.Py(t);
    out += "<path stroke=\"#444\" d=\"";
    Point(out, 'M', f.left - 5.0, py);
    out += 'h';
    out += "5\"/>";
    // Large intensities in exponent form keep the labels inside the margin.
    char label[32];
    if (std::fabs(t) >= 1e5) {
      std::snprintf(label, sizeof label, "%.3g", t);
    } else {
      std::snprintf(label, sizeof label, "%.*f", DecimalsFor(yStep), t);
    }
    Text(out, f.left - 8.0, py + 4.0, label, "text-anchor=\"end\"");
  }
  Text(out, f.left + f.width / 2.0, bottom + 36.0, xTitle, "text-anchor=\"middle\"");
  Text(out, f.left - 62.0, f.top + f.height / 2.0, "intensity",
       ("text-anchor=\"middle\" transform=\"rotate(-90 " + Fixed(f.left - 62.0, 1) + " " +
        Fixed(f.top + f.height / 2.0, 1) + ")\"")
           .c_str());
  out += "</g>\n";
}

// The signal as a path: sticks for centroided data, otherwise the min/max envelope of
// each pixel column (exact when points are sparser than pixels).
void Signal(std::string& out, const Trace& t, const Frame& f) {
  out += "<path class=\"signal\" fill=\"none\" stroke=\"#1f4e79\" stroke-width=\"1\" d=\"";
  const std::size_t n = t.x.size();
  const auto columns = static_cast<std::size_t>(std::max(1.0, std::ceil(f.width)));
  if (t.centroided && n <= 4 * columns) {
    const double base = f.Py(std::max(f.y0, 0.0));
    for (std::size_t i = 0; i < n; ++i) {
      Point(out, 'M', f.Px(t.x[i]), base);
      Point(out, 'L', f.Px(t.x[i]), f.Py(t.y[i]));
    }
  } else {
    std::vector<double> lo(columns, std::numeric_limits<double>::infinity());
    std::vector<double> hi(columns, -std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < n; ++i) {
      const double c = (t.x[i] - f.x0) / (f.x1 - f.x0) * static_cast<double>(columns);
      const std::size_t col = std::min(columns - 1, static_cast<std::size_t>(std::max(0.0, c)));
      lo[col] = std::min(lo[col], t.y[i]);
      hi[col] = std::max(hi[col], t.y[i]);
    }
    char command = 'M';
    for (std::size_t col = 0; col < columns; ++col) {
      if (lo[col] > hi[col]) continue;
      const double px =
          f.left + (static_cast<double>(col) + 0.5) * f.width / static_cast<double>(columns);
      Point(out, command, px, f.Py(hi[col]));
      command = 'L';
      if (lo[col] < hi[col]) Point(out, 'L', px, f.Py(lo[col]));
    }
  }
  out += "\"/>\n";
}

// Apexes, integration baselines with their bounds, centroids and centroid regions, each
// kind as one path.
void PeakMarks(std::string& out, const TracePeaks& peaks, const Frame& f) {
  std::string apex, baseline, centroid;
  for (long i = 0; i < peaks.table.GetNumPeaks(); ++i) {
    const QXPeakTableElement& p = *peaks.table.GetPeak(i);
    const double ax = f.Px(p.m_dApexX), ay = f.Py(p.m_dApexY);
    Point(apex, 'M', ax - 3.5, ay - 7.0);
    Point(apex, 'L', ax + 3.5, ay - 7.0);
    Point(apex, 'L', ax, ay - 1.0);
    apex += 'Z';
    Point(baseline, 'M', f.Px(p.m_dLeftX), f.Py(p.m_dLeftY) - 4.0);
    Point(baseline, 'l', 0.0, 4.0);
    Point(baseline, 'L', f.Px(p.m_dRightX), f.Py(p.m_dRightY));
    Point(baseline, 'l', 0.0, -4.0);
    if (peaks.centroids) {
      const double cx = f.Px(p.m_dCentroidX);
      Point(centroid, 'M', cx, f.Py(std::max(f.y0, 0.0)));
      Point(centroid, 'L', cx, ay);
      Point(centroid, 'M', f.Px(p.m_dCentroidLeftX), f.Py(p.m_dCentroidLeftY));
      Point(centroid, 'L', f.Px(p.m_dCentroidRightX), f.Py(p.m_dCentroidRightY));
    }
  }
  out += "<path class=\"bounds\" fill=\"none\" stroke=\"#e07b00\" stroke-width=\"1.2\" d=\"" +
         baseline + "\"/>\n";
  if (!centroid.empty()) {
    out +=
        "<path class=\"centroids\" fill=\"none\" stroke=\"#2a9d3a\" stroke-width=\"1\" "
        "stroke-dasharray=\"3,2\" d=\"" +
        centroid + "\"/>\n";
  }
  out += "<path class=\"apexes\" fill=\"#c0392b\" stroke=\"none\" d=\"" + apex + "\"/>\n";
}

// Labels above apexes: user labels first, then the positions of the most intense other
// peaks (of an isotope series only its most intense member), each placed only where it
// overlaps no label already placed.
void PeakLabels(std::string& out, const Trace& t, const TracePeaks& peaks, const Frame& f,
                std::size_t maxPositions) {
  struct Box {
    double x0, x1, y0, y1;
  };
  std::vector<Box> placed;
  const auto place = [&](double px, double py, const std::string& text, const char* style) {
    const double w = kCharWidth * static_cast<double>(text.size()) + 4.0;
    double x = std::clamp(px, f.left + w / 2.0, f.left + f.width - w / 2.0);
    for (double y = py - 10.0; y > f.top - 30.0; y -= kLabelHeight) {
      const Box box{x - w / 2.0, x + w / 2.0, y - kLabelHeight + 2.0, y + 2.0};
      const bool clear = std::none_of(placed.begin(), placed.end(), [&](const Box& b) {
        return box.x0 < b.x1 && b.x0 < box.x1 && box.y0 < b.y1 && b.y0 < box.y1;
      });
      if (clear) {
        placed.push_back(box);
        Text(out, x, y, text, style);
        return true;
      }
    }
    return false;
  };
  std::vector<const QXPeakTableElement*> byHeight;
  for (long i = 0; i < peaks.table.GetNumPeaks(); ++i) {
    const QXPeakTableElement* p = peaks.table.GetPeak(i);
    if (!p->m_strLabel.empty()) {
      place(f.Px(p->m_dApexX), f.Py(p->m_dApexY), p->m_strLabel,
            "text-anchor=\"middle\" font-weight=\"bold\" fill=\"#7b2d8e\"");
    } else if ((p->m_dwFlags & kQXPeakChargeAssigned) == 0 ||
               (p->m_dwFlags & kQXPeakSeriesMostIntense) != 0) {
      // One position per isotope series (its most intense member) keeps the picture legible.
      byHeight.push_back(p);
    }
  }
  std::stable_sort(byHeight.begin(), byHeight.end(),
                   [](const auto* a, const auto* b) { return a->m_dApexY > b->m_dApexY; });
  const int decimals = t.kind == Trace::Kind::kChromatogram ? 2 : 4;
  std::size_t written = 0;
  for (const QXPeakTableElement* p : byHeight) {
    if (written == maxPositions) break;
    std::string text = Fixed(p->GetXVal(peaks.centroids ? 1 : 0), decimals);
    if (p->m_nCharge != 0) text += " z=" + std::to_string(p->m_nCharge);
    if (place(f.Px(p->m_dApexX), f.Py(p->m_dApexY), text, "text-anchor=\"middle\" fill=\"#222\"")) {
      ++written;
    }
  }
}

std::string PanelTitle(const Trace& t) {
  std::string title = t.kind == Trace::Kind::kChromatogram ? "chromatogram " : "spectrum ";
  title += std::to_string(t.index);
  if (!t.id.empty()) title += " (" + t.id + ")";
  if (t.ms_level > 0) title += ", MS" + std::to_string(t.ms_level);
  if (std::isfinite(t.rt)) title += ", RT " + Fixed(t.rt, 2) + " s";
  return title;
}

void Panel(std::string& out, const Trace& t, const TracePeaks& peaks, double top,
           const PlotOptions& options) {
  out += "<g class=\"panel\">\n";
  Text(out, kMarginLeft, top + 28.0,
       PanelTitle(t) + ": " + std::to_string(peaks.table.GetNumPeaks()) + " peaks",
       "font-family=\"sans-serif\" font-size=\"13\" fill=\"#111\"");
  Frame f{};
  f.left = kMarginLeft;
  f.top = top + kMarginTop;
  f.width = options.width - kMarginLeft - kMarginRight;
  f.height = options.panelHeight - kMarginTop - kMarginBottom;
  if (t.x.empty()) {
    Text(out, f.left + f.width / 2.0, f.top + f.height / 2.0, "no data points",
         "text-anchor=\"middle\" font-family=\"sans-serif\" font-size=\"13\" fill=\"#666\"");
    out += "</g>\n";
    return;
  }
  f.x0 = t.x.front();
  f.x1 = t.x.back();
  if (!(f.x1 > f.x0)) {
    f.x0 -= 0.5;
    f.x1 += 0.5;
  }
  const auto [lo, hi] = std::minmax_element(t.y.begin(), t.y.end());
  f.y0 = std::min(0.0, *lo);
  // Headroom above the tallest point for the labels.
  f.y1 = *hi + 0.12 * (*hi - f.y0);
  if (!(f.y1 > f.y0)) f.y1 = f.y0 + 1.0;
  if (!std::isfinite(f.x1 - f.x0) || !std::isfinite(f.y1 - f.y0)) {
    Text(out, f.left + f.width / 2.0, f.top + f.height / 2.0, "values too large to plot",
         "text-anchor=\"middle\" font-family=\"sans-serif\" font-size=\"13\" fill=\"#666\"");
    out += "</g>\n";
    return;
  }
  Axes(out, f, t.kind == Trace::Kind::kChromatogram ? "time" : "m/z");
  Signal(out, t, f);
  PeakMarks(out, peaks, f);
  out += "<g font-family=\"sans-serif\" font-size=\"11\">\n";
  PeakLabels(out, t, peaks, f, options.maxPositionLabels);
  out += "</g>\n</g>\n";
}

void Legend(std::string& out, double right) {
  struct Item {
    const char* text;
    const char* mark;
  };
  const Item items[] = {
      {"signal", "<path d=\"M0,0h18\" stroke=\"#1f4e79\"/>"},
      {"apex", "<path d=\"M5,-5h8l-4,6z\" fill=\"#c0392b\"/>"},
      {"bounds and baseline", "<path d=\"M0,-4v4h18v-4\" fill=\"none\" stroke=\"#e07b00\"/>"},
      {"centroid", "<path d=\"M9,4v-10M2,-3h14\" stroke=\"#2a9d3a\" stroke-dasharray=\"3,2\"/>"},
  };
  double x = right - 560.0;
  out += "<g class=\"legend\" font-family=\"sans-serif\" font-size=\"11\" fill=\"#333\">\n";
  for (const Item& item : items) {
    out += "<g transform=\"translate(" + Fixed(x, 1) + ",16)\">" + item.mark;
    Text(out, 24.0, 4.0, item.text, "");
    out += "</g>\n";
    x += 36.0 + kCharWidth * static_cast<double>(std::char_traits<char>::length(item.text));
  }
  out += "</g>\n";
}

}  // namespace

std::string XmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x80) {
      switch (c) {
        case '&':
          out += "&amp;";
          break;
        case '<':
          out += "&lt;";
          break;
        case '>':
          out += "&gt;";
          break;
        case '"':
          out += "&quot;";
          break;
        case '\'':
          out += "&apos;";
          break;
        default:
          // XML 1.0 allows no control characters but tab and line ends.
          if (c >= 0x20 || c == '\t' || c == '\n' || c == '\r') out += static_cast<char>(c);
      }
      ++i;
      continue;
    }
    // A well-formed UTF-8 sequence (no overlong forms, no surrogates, at most U+10FFFF).
    const std::size_t length = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 0;
    bool valid = length != 0 && c <= 0xF4 && i + length <= text.size();
    for (std::size_t k = 1; valid && k < length; ++k) {
      valid = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
    }
    if (valid && length >= 3) {
      const auto c1 = static_cast<unsigned char>(text[i + 1]);
      valid = !(c == 0xE0 && c1 < 0xA0) && !(c == 0xED && c1 >= 0xA0) &&
              !(c == 0xF0 && c1 < 0x90) && !(c == 0xF4 && c1 >= 0x90);
    }
    if (valid) {
      out.append(text, i, length);
      i += length;
    } else {
      out += '?';
      ++i;
    }
  }
  return out;
}

std::string FormatSvg(const std::string& title, const std::vector<Trace>& traces,
                      const std::vector<TracePeaks>& peaks, const PlotOptions& options) {
  const std::size_t panels = std::min({traces.size(), peaks.size(), options.maxPanels});
  const bool cut = panels < traces.size();
  const double height =
      30.0 + static_cast<double>(std::max<std::size_t>(panels, 1)) * options.panelHeight +
      (cut ? 24.0 : 0.0);
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  out += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(options.width) +
         "\" height=\"" + Fixed(height, 0) + "\" viewBox=\"0 0 " + std::to_string(options.width) +
         " " + Fixed(height, 0) + "\">\n";
  out += "<title>" + XmlEscape(title) + "</title>\n";
  out += "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
  Text(out, 12.0, 20.0, title, "font-family=\"sans-serif\" font-size=\"14\" font-weight=\"bold\"");
  Legend(out, options.width);
  for (std::size_t i = 0; i < panels; ++i) {
    Panel(out, traces[i], peaks[i], 30.0 + static_cast<double>(i) * options.panelHeight, options);
  }
  if (cut) {
    Text(out, 12.0, height - 8.0,
         "showing the first " + std::to_string(panels) + " of " + std::to_string(traces.size()) +
             " traces",
         "font-family=\"sans-serif\" font-size=\"12\" fill=\"#666\"");
  }
  out += "</svg>\n";
  return out;
}

}  // namespace qxpkutil::qxpeak
