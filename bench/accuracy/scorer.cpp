#include "bench/accuracy/scorer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <tuple>

namespace qxpkutil::accuracy {

namespace {

double Ratio(std::int64_t a, std::int64_t b) {
  return b > 0 ? static_cast<double>(a) / static_cast<double>(b) : kUnknown;
}

std::string Fixed(double v, int decimals) {
  if (std::isnan(v)) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, v);
  return text;
}

std::string Percent(double v) { return std::isnan(v) ? "-" : Fixed(100.0 * v, 1) + " %"; }

std::size_t Band(double snr) {
  std::size_t band = 0;
  while (band + 1 < kBandFloor.size() && snr >= kBandFloor[band + 1]) ++band;
  return band;
}

std::string Line(const char* format, auto... values) {
  char text[256];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

}  // namespace

Matching MatchPeaks(const std::vector<TruthPeak>& truth, const std::vector<Detection>& found) {
  // Every pair within tolerance, found through the found peaks sorted by x.
  std::vector<std::size_t> byX(found.size());
  std::iota(byX.begin(), byX.end(), std::size_t{0});
  std::sort(byX.begin(), byX.end(), [&](std::size_t a, std::size_t b) {
    return found[a].x < found[b].x;
  });
  std::vector<std::tuple<double, std::size_t, std::size_t>> pairs;  // distance, truth, found
  for (std::size_t t = 0; t < truth.size(); ++t) {
    const double tolerance = 0.5 * truth[t].fwhm;
    auto it = std::lower_bound(byX.begin(), byX.end(), truth[t].x - tolerance,
                               [&](std::size_t f, double x) { return found[f].x < x; });
    for (; it != byX.end() && found[*it].x <= truth[t].x + tolerance; ++it) {
      pairs.emplace_back(std::fabs(found[*it].x - truth[t].x), t, *it);
    }
  }
  std::sort(pairs.begin(), pairs.end());
  Matching m;
  m.truthToFound.assign(truth.size(), -1);
  m.foundToTruth.assign(found.size(), -1);
  for (const auto& [distance, t, f] : pairs) {
    if (m.truthToFound[t] >= 0 || m.foundToTruth[f] >= 0) continue;
    m.truthToFound[t] = static_cast<std::int64_t>(f);
    m.foundToTruth[f] = static_cast<std::int64_t>(t);
  }
  return m;
}

void SetScore::Add(const std::vector<TruthPeak>& truth, const std::vector<Detection>& found,
                   const Matching& matching) {
  ++traces;
  detections += static_cast<std::int64_t>(found.size());
  for (std::size_t t = 0; t < truth.size(); ++t) {
    const TruthPeak& p = truth[t];
    const std::int64_t f = matching.truthToFound[t];
    if (f >= 0 && p.charge_scored) {
      ++chargeScored;
      if (found[static_cast<std::size_t>(f)].charge == p.charge) ++chargeRight;
    }
    if (p.optional) continue;
    ++required;
    ++bandRequired[Band(p.snr)];
    if (f < 0) continue;
    ++hits;
    ++bandHits[Band(p.snr)];
    const Detection& d = found[static_cast<std::size_t>(f)];
    centroidErrors.push_back(std::fabs(d.x - p.x) / p.fwhm);
    if (std::isfinite(d.area)) areaErrors.push_back(std::fabs(d.area / p.area - 1.0));
    if (std::isfinite(d.height)) heightErrors.push_back(std::fabs(d.height / p.height - 1.0));
    if (std::isfinite(d.fwhm)) fwhmErrors.push_back(std::fabs(d.fwhm / p.fwhm - 1.0));
    if (std::isfinite(d.left) && std::isfinite(d.right)) {
      ++boundsKnown;
      bool overTwo = false;
      for (std::size_t u = 0; u < truth.size(); ++u) {
        overTwo = overTwo || (u != t && !truth[u].optional && truth[u].x > d.left &&
                              truth[u].x < d.right);
      }
      boundsOverTwo += overTwo ? 1 : 0;
    }
  }
  for (const std::int64_t t : matching.foundToTruth) falsePositives += t < 0 ? 1 : 0;
}

void SetScore::Merge(const SetScore& o) {
  traces += o.traces;
  required += o.required;
  detections += o.detections;
  hits += o.hits;
  falsePositives += o.falsePositives;
  for (std::size_t b = 0; b < bandRequired.size(); ++b) {
    bandRequired[b] += o.bandRequired[b];
    bandHits[b] += o.bandHits[b];
  }
  centroidErrors.insert(centroidErrors.end(), o.centroidErrors.begin(), o.centroidErrors.end());
  areaErrors.insert(areaErrors.end(), o.areaErrors.begin(), o.areaErrors.end());
  heightErrors.insert(heightErrors.end(), o.heightErrors.begin(), o.heightErrors.end());
  fwhmErrors.insert(fwhmErrors.end(), o.fwhmErrors.begin(), o.fwhmErrors.end());
  chargeScored += o.chargeScored;
  chargeRight += o.chargeRight;
  boundsKnown += o.boundsKnown;
  boundsOverTwo += o.boundsOverTwo;
}

double SetScore::Recall() const { return required > 0 ? Ratio(hits, required) : 1.0; }

// Found peaks matched to optional true peaks are left out of both counts.
double SetScore::Precision() const {
  const std::int64_t judged = hits + falsePositives;
  return judged > 0 ? Ratio(hits, judged) : 0.0;
}

double SetScore::F1() const {
  const double r = Recall(), p = Precision();
  return r + p > 0.0 ? 2.0 * r * p / (r + p) : 0.0;
}

double SetScore::BandRecall(std::size_t band) const {
  return Ratio(bandHits[band], bandRequired[band]);
}

double SetScore::RecallFrom(std::size_t band) const {
  std::int64_t h = 0, r = 0;
  for (std::size_t b = band; b < bandRequired.size(); ++b) h += bandHits[b], r += bandRequired[b];
  return Ratio(h, r);
}

double Median(std::vector<double> values) {
  if (values.empty()) return kUnknown;
  const auto mid = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), mid, values.end());
  if (values.size() % 2 == 1) return *mid;
  return 0.5 * (*mid + *std::max_element(values.begin(), mid));
}

std::string FormatTable(const std::vector<SetScore>& sets) {
  std::string out =
      "| set | traces | true peaks | found | recall S/N 3-5 | 5-10 | 10-100 | >=100 | recall | "
      "precision | F1 | centroid error / FWHM | area error | height error | FWHM error | "
      "charge right | bounds over 2 peaks |\n"
      "|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n";
  SetScore all("all");
  auto row = [&](const SetScore& s, bool bold) {
    const std::string b = bold ? "**" : "";
    out += "| " + b + s.name + b + " | " + std::to_string(s.traces) + " | " +
           std::to_string(s.required) + " | " + std::to_string(s.detections) + " | ";
    for (std::size_t band = 0; band < kBandFloor.size(); ++band) {
      out += Fixed(s.BandRecall(band), 3) + " | ";
    }
    out += Fixed(s.Recall(), 3) + " | " + Fixed(s.Precision(), 3) + " | " + b +
           Fixed(s.F1(), 3) + b + " | " + Fixed(Median(s.centroidErrors), 4) + " | " +
           Percent(Median(s.areaErrors)) + " | " + Percent(Median(s.heightErrors)) + " | " +
           Percent(Median(s.fwhmErrors)) + " | " +
           Fixed(Ratio(s.chargeRight, s.chargeScored), 3) + " | " +
           Percent(Ratio(s.boundsOverTwo, s.boundsKnown)) + " |\n";
  };
  double sumF1 = 0.0, lowestF1 = 1.0;
  std::string lowestName;
  for (const SetScore& s : sets) {
    row(s, false);
    all.Merge(s);
    sumF1 += s.F1();
    if (s.F1() <= lowestF1) lowestF1 = s.F1(), lowestName = s.name;
  }
  if (sets.empty()) return out;
  row(all, true);
  const double meanF1 = sumF1 / static_cast<double>(sets.size());
  out += "\nTrue peaks count only when resolved and at S/N >= 3; errors are medians over the "
         "matched peaks (area against the plain sum of the true profile, height and FWHM "
         "against the true ones); charge over resolved isotope peaks with a visible neighbour; "
         "bounds over 2 peaks: the share of hits whose bounds also hold another required "
         "peak.\n\n";
  out += Line("Mean F1 %.3f, lowest F1 %.3f (%s).\n\n", meanF1, lowestF1, lowestName.c_str());
  // A figure with nothing to measure it on (no peak in the band, no charged peak) is n/a.
  auto target = [&](double value, bool atLeast, double bound, const std::string& text) {
    const char* verdict = std::isnan(value)                             ? "- n/a  "
                          : (atLeast ? value >= bound : value <= bound) ? "- PASS "
                                                                        : "- FAIL ";
    out += verdict + text + "\n";
  };
  target(meanF1, true, 0.96, Line("mean F1 >= 0.96: %.3f", meanF1));
  target(lowestF1, true, 0.93,
         Line("no set below F1 0.93: lowest %.3f (%s)", lowestF1, lowestName.c_str()));
  const double above5 = all.RecallFrom(1), below5 = all.BandRecall(0);
  target(above5, true, 0.95, Line("recall at S/N >= 5 >= 0.95: %.3f", above5));
  target(below5, true, 0.7, Line("recall at S/N 3-5 >= 0.7: %.3f", below5));
  target(all.Precision(), true, 0.97, Line("precision >= 0.97: %.3f", all.Precision()));
  const double centroid = Median(all.centroidErrors);
  target(centroid, false, 0.01, Line("median centroid error <= 0.01 FWHM: %.4f", centroid));
  const double charge = Ratio(all.chargeRight, all.chargeScored);
  target(charge, true, 0.95, Line("charge right >= 95 %%: %.1f %%", 100.0 * charge));
  return out;
}

std::string ListMistakes(const std::string& trace, const std::vector<TruthPeak>& truth,
                         const std::vector<Detection>& found, const Matching& matching) {
  std::string out;
  for (std::size_t t = 0; t < truth.size(); ++t) {
    const TruthPeak& p = truth[t];
    if (p.optional || matching.truthToFound[t] >= 0) continue;
    const Detection* near = nullptr;
    for (const Detection& d : found) {
      if (!near || std::fabs(d.x - p.x) < std::fabs(near->x - p.x)) near = &d;
    }
    out += Line("%s\tmiss\tx %.6f\tS/N %.1f\tFWHM %.4g", trace.c_str(), p.x, p.snr, p.fwhm);
    out += near ? Line("\tnearest found x %.6f (%+.2f FWHM)\n", near->x, (near->x - p.x) / p.fwhm)
                : std::string("\tnothing found\n");
  }
  for (std::size_t f = 0; f < found.size(); ++f) {
    if (matching.foundToTruth[f] >= 0) continue;
    const Detection& d = found[f];
    const TruthPeak* near = nullptr;
    for (const TruthPeak& p : truth) {
      if (!near || std::fabs(d.x - p.x) < std::fabs(d.x - near->x)) near = &p;
    }
    out += Line("%s\tfalse\tx %.6f\tS/N %.1f\theight %.4g", trace.c_str(), d.x, d.snr,
                d.height);
    out += near ? Line("\tnearest true x %.6f (%+.2f FWHM, S/N %.1f%s)\n", near->x,
                       (d.x - near->x) / near->fwhm, near->snr, near->optional ? ", optional" : "")
                : std::string("\tno true peak\n");
  }
  return out;
}

}  // namespace qxpkutil::accuracy
