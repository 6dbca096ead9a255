// A first look at the library: builds a peak table from a built-in signal (three
// Gaussian peaks on a flat baseline), queries it and prints it in the table's text format.
#include <cmath>
#include <cstdio>
#include <vector>

#include <qxpkutil/qxpkutil.h>

int main() {
  using namespace qxpkutil;
  const int n = 600;
  std::vector<double> x(n), y(n);
  const double centres[] = {100.0, 102.5, 110.0};
  const double heights[] = {1000.0, 400.0, 2500.0};
  for (int i = 0; i < n; ++i) {
    x[i] = 95.0 + 0.03 * i;
    y[i] = 20.0;
    for (int k = 0; k < 3; ++k) {
      const double z = (x[i] - centres[k]) / 0.08;
      y[i] += heights[k] * std::exp(-0.5 * z * z);
    }
  }

  // Each local maximum well above the baseline becomes a peak bounded by its valleys.
  QXPeakTable table;
  for (int i = 1; i + 1 < n; ++i) {
    if (y[i] <= 100.0 || y[i] < y[i - 1] || y[i] < y[i + 1]) continue;
    int left = i, right = i;
    while (left > 0 && y[left - 1] < y[left]) --left;
    while (right + 1 < n && y[right + 1] < y[right]) ++right;
    double area = 0.0;
    for (int k = left; k <= right; ++k) area += y[k] - std::min(y[left], y[right]);
    table.AddPeak(x[i], y[i], i, x[left], y[left], left, x[right], y[right], right, x[i], area,
                  x[i], y[i], x[i], y[i], 0);
  }

  const QXPeakTableElement* tallest = table.GetPeakInRange(95.0, 115.0, 0, nullptr, 0);
  std::printf("%d peaks; tallest at x = %.3f with intensity %.1f\n\n",
              static_cast<int>(table.GetNumPeaks()), tallest->m_dApexX, tallest->m_dApexY);
  const char* dump = "peak_table_demo.txt";
  table.DumpToFile(dump);
  std::printf("the table's text dump (%s):\n", dump);
  std::FILE* file = std::fopen(dump, "r");
  if (file == nullptr) return 1;
  for (int c; (c = std::fgetc(file)) != EOF;) std::putchar(c);
  std::fclose(file);
  return 0;
}
