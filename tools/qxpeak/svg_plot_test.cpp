#include "tools/qxpeak/svg_plot.h"

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "tools/qxpeak/test_peaks.h"

namespace qxpkutil::qxpeak {
namespace {

TEST(SvgPlot, EscapesTextForXml) {
  const std::pair<std::string, std::string> cases[] = {
      {"a<b>&\"'", "a&lt;b&gt;&amp;&quot;&apos;"},
      {"tab\tok\x01\x1F", "tab\tok"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},  // é € 😀
      {"\xFF\xC0\xAF\xED\xA0\x80x", "??????x"},  // stray byte, overlong '/', a surrogate
      {"\xE2\x82", "??"},                        // cut-off sequence
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(XmlEscape(in), out) << in;
}

// A Gaussian trace with hostile text in its id and labels.
struct Picture {
  std::vector<Trace> traces;
  std::vector<TracePeaks> peaks;
  explicit Picture(std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) {
      Trace t;
      t.index = static_cast<std::int32_t>(k);
      t.id = "scan=1 <&> \x02";
      for (int i = 0; i < 5000; ++i) {
        t.x.push_back(400.0 + 0.01 * i);
        t.y.push_back(10.0 + 1000.0 * std::exp(-0.5 * std::pow((t.x.back() - 420.0) / 0.05, 2)));
      }
      traces.push_back(t);
      peaks.push_back(testing::PeaksAt({420.0}, {1010.0}));
      peaks.back().table.GetPeak(0)->m_strLabel = "</text><script>\xFF";
    }
  }
};

TEST(SvgPlot, IsWellFormedWhateverTheText) {
  Picture p(2);
  p.traces[1].x.clear();  // an empty trace gets a panel of its own
  p.traces[1].y.clear();
  p.peaks[1] = testing::PeaksAt({}, {});
  const std::string svg = FormatSvg("title & <more>", p.traces, p.peaks);
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_string(svg.c_str())) << svg.substr(0, 300);
  EXPECT_STREQ(doc.child("svg").child_value("title"), "title & <more>");
  EXPECT_NE(svg.find("&lt;/text&gt;&lt;script&gt;?"), std::string::npos);
  EXPECT_NE(svg.find("no data points"), std::string::npos);
}

TEST(SvgPlot, StopsAtTheMostPanelsAndSaysSo) {
  Picture p(5);
  PlotOptions options;
  options.maxPanels = 3;
  const std::string svg = FormatSvg("t", p.traces, p.peaks, options);
  std::size_t panels = 0;
  for (std::size_t at = 0; (at = svg.find("class=\"panel\"", at)) != std::string::npos; ++at) {
    ++panels;
  }
  EXPECT_EQ(panels, 3u);
  EXPECT_NE(svg.find("showing the first 3 of 5 traces"), std::string::npos);
}

TEST(SvgPlot, MillionPointsMakeASmallFileThatRenders) {
  Picture p(1);
  Trace& t = p.traces[0];
  t.x.resize(1000000);
  t.y.resize(1000000);
  for (std::size_t i = 0; i < t.x.size(); ++i) {
    t.x[i] = 400.0 + 0.001 * static_cast<double>(i);
    t.y[i] = static_cast<double>(i % 97);
  }
  const std::string svg = FormatSvg("big", p.traces, p.peaks);
  EXPECT_LT(svg.size(), 200000u);
  if (std::system("command -v rsvg-convert > /dev/null 2>&1") != 0) {
    GTEST_SKIP() << "rsvg-convert is not installed";
  }
  const std::string path = testing::WriteTempFile("plot.svg", svg);
  EXPECT_EQ(std::system(("rsvg-convert -o " + path + ".png " + path).c_str()), 0);
}

}  // namespace
}  // namespace qxpkutil::qxpeak
