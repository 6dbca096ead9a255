// The numeric toolkit on numpy arrays: smoothing, baselines and noise estimates. Each
// function returns new arrays and leaves its inputs alone.
#include <cmath>
#include <utility>

#include "bindings.h"
#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/QXWaveletAnalysis.h"

namespace qxpkutil::python {

namespace {

using Doubles = py::array_t<double, py::array::c_style | py::array::forcecast>;

Doubles Copy(const Doubles& a) {
  Doubles out(a.size());
  std::copy(a.data(), a.data() + a.size(), out.mutable_data());
  return out;
}

void RequireFinite(const Doubles& a, const char* what) {
  for (py::ssize_t i = 0; i < a.size(); ++i) {
    if (!std::isfinite(a.data()[i])) {
      throw py::value_error(std::string(what) + "[" + std::to_string(i) +
                            "] is not a finite number");
    }
  }
}

void RequireAscending(const Doubles& x) {
  RequireFinite(x, "x");
  for (py::ssize_t i = 1; i < x.size(); ++i) {
    if (x.data()[i] < x.data()[i - 1]) {
      throw py::value_error("x is not ascending at point " + std::to_string(i + 1));
    }
  }
}

Doubles Smooth(py::handle y, int width, bool gapAware) {
  auto in = Vector<double>(y, "y");
  Doubles out(in.size());
  const std::uint32_t n = Count(static_cast<std::size_t>(in.size()), "y");
  if (QXDataExpUtils::SmoothData(in.data(), out.mutable_data(), n, gapAware ? 1 : 0, 0, width) ==
      0) {
    throw py::value_error("cannot smooth: the width must be 1..2001 and at most the length of y");
  }
  return out;
}

Doubles ResolutionSmooth(py::handle x, py::handle y, double resolution, double cutoff) {
  auto xs = Vector<double>(x, "x");
  auto ys = Vector<double>(y, "y");
  if (xs.size() != ys.size()) throw py::value_error("x and y differ in length");
  RequireAscending(xs);  // the kernel's reach is found by walking x
  Doubles out = Copy(ys);
  const std::uint32_t n = Count(static_cast<std::size_t>(xs.size()), "x");
  if (QXDataExpUtils::ResolutionSmoothData(xs.data(), out.mutable_data(),
                                           static_cast<std::int32_t>(n), resolution,
                                           cutoff) == 0) {
    throw py::value_error("cannot smooth: y is empty, or the resolution is not a positive "
                          "finite number, or the cutoff is NaN");
  }
  return out;
}

Doubles SmoothBaseline(py::handle y, double level) {
  auto in = Vector<double>(y, "y");
  RequireFinite(in, "y");
  if (in.size() < 4) throw py::value_error("a baseline needs at least 4 points");
  if (!(level >= 2.0)) throw py::value_error("the baseline level must be at least 2 points");
  Doubles out = Copy(in);
  const std::uint32_t n = Count(static_cast<std::size_t>(in.size()), "y");
  {
    py::gil_scoped_release release;
    QXWaveletAnalysis::SmoothBaseline(out.mutable_data(), n, level);
  }
  return out;
}

Doubles SubtractNoise(py::handle y, double factor) {
  auto in = Vector<double>(y, "y");
  Doubles out = Copy(in);
  const std::uint32_t n = Count(static_cast<std::size_t>(in.size()), "y");
  QXWaveletAnalysis::SubtractNoise(out.mutable_data(), n, factor);
  return out;
}

std::pair<double, double> BaselineLevel(py::handle x, py::handle y, double x1, double x2,
                                        int nSigma) {
  auto xs = Vector<double>(x, "x");
  auto ys = Vector<double>(y, "y");
  if (xs.size() != ys.size()) throw py::value_error("x and y differ in length");
  const std::uint32_t n = Count(static_cast<std::size_t>(xs.size()), "x");
  double baseline = 0.0, noise = 0.0;
  if (QXDataExpUtils::ComputeBaseline(xs.data(), ys.data(), n, x1, x2, nSigma, baseline,
                                      noise) == 0) {
    throw py::value_error("cannot measure a baseline over that range: fewer than two points "
                          "in it, or a NaN bound");
  }
  return {baseline, noise};
}

double WhiteNoiseLevel(py::handle y) {
  if (py::isinstance<py::array_t<float>>(y)) {
    auto in = Vector<float>(y, "y");
    return QXWaveletAnalysis::CalcWhiteNoiseLevel(
        in.data(), Count(static_cast<std::size_t>(in.size()), "y"));
  }
  auto in = Vector<double>(y, "y");
  return QXWaveletAnalysis::CalcWhiteNoiseLevel(in.data(),
                                                Count(static_cast<std::size_t>(in.size()), "y"));
}

}  // namespace

void BindToolkit(py::module_& m) {
  m.def("smooth", &Smooth, py::arg("y"), py::arg("width"), py::arg("gap_aware") = false,
        "Gaussian smoothing over `width` points (1..2001); the ends are copied. With "
        "gap_aware, two adjacent zeros are a gap the kernel never reaches across.");
  m.def("resolution_smooth", &ResolutionSmooth, py::arg("x"), py::arg("y"),
        py::arg("resolution"), py::arg("cutoff") = 3.0,
        "Gaussian smoothing whose FWHM at each point is x / resolution; neighbours beyond "
        "`cutoff` kernel widths are left out. x ascending.");
  m.def("smooth_baseline", &SmoothBaseline, py::arg("y"), py::arg("level"),
        "A smooth baseline under the peaks (wavelet filter, peaks clipped away); `level` is the "
        "width in points of the narrowest structure that still counts as baseline.");
  m.def("subtract_noise", &SubtractNoise, py::arg("y"), py::arg("factor") = 1.5,
        "Wavelet soft-threshold denoising at `factor` x the white noise level.");
  m.def("baseline_level", &BaselineLevel, py::arg("x"), py::arg("y"), py::arg("x1"),
        py::arg("x2"), py::arg("n_sigma") = 0,
        "(baseline, noise) of y between x1 and x2: the mean (of the points within n_sigma "
        "deviations when n_sigma >= 1) and the population deviation.");
  m.def("white_noise_level", &WhiteNoiseLevel, py::arg("y"),
        "Standard deviation of the white noise in y, from its Haar wavelet coefficients "
        "(0 for fewer than 4 points).");
}

}  // namespace qxpkutil::python
