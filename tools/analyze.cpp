#include "analyze.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <numeric>

#include "tone.h"

#ifndef HALFTONE_HAVE_FFTW
#define HALFTONE_HAVE_FFTW 0
#endif
#if HALFTONE_HAVE_FFTW
#include <fftw3.h>
#endif

namespace halftone_tool {
namespace {

constexpr int kDefaultLevelCount = 16;
constexpr int kFirstLevel = 8;
constexpr int kLevelStep = 16;
constexpr double kMmPerInch = 25.4;
constexpr double kPi = 3.14159265358979323846;
constexpr std::size_t kSmoothBins = 5;
constexpr int kTimedRuns = 3;

// Mannos and Sakrison (1974): A(f) = 2.6 (0.0192 + 0.114 f) exp(-(0.114 f)^1.1), f in cycles a
// degree; it peaks near 8 cycles a degree.
constexpr double kCsfGain = 2.6, kCsfOffset = 0.0192, kCsfScale = 0.114, kCsfPower = 1.1;
double MannosSakrison(double f) { return kCsfGain * (kCsfOffset + kCsfScale * f) * std::exp(-std::pow(kCsfScale * f, kCsfPower)); }
// Where the model peaks: dA/df = 0 solved by bisection on the slope's sign.
double CsfPeak() {
  double lo = 1, hi = 30;
  for (int i = 0; i < 60; ++i) {
    const double mid = (lo + hi) / 2, h = 1e-6;
    (MannosSakrison(mid + h) > MannosSakrison(mid - h) ? lo : hi) = mid;
  }
  return (lo + hi) / 2;
}

double Db(double ratio) { return 10.0 * std::log10(std::max(ratio, 1e-12)); }

// A field turned a quarter, transposed or flipped, for the turned layouts whose orientation
// differs by method: `k` 0 transposes, 1 and 2 add a flip, 3 does both flips.
InkField Turn(const InkField& f, int k) {
  InkField t;
  t.width = f.height;
  t.height = f.width;
  t.ink.resize(f.ink.size());
  for (int y = 0; y < t.height; ++y)
    for (int x = 0; x < t.width; ++x) {
      const int sx = (k & 1) ? f.width - 1 - y : y;
      const int sy = (k & 2) ? f.height - 1 - x : x;
      t.ink[static_cast<std::size_t>(y) * static_cast<std::size_t>(t.width) + static_cast<std::size_t>(x)] =
          f.ink[static_cast<std::size_t>(sy) * static_cast<std::size_t>(f.width) + static_cast<std::size_t>(sx)];
    }
  return t;
}

// A field flipped top to bottom (`k` & 2) and left to right (`k` & 1).
InkField Flip(const InkField& f, int k) {
  InkField t = f;
  for (int y = 0; y < f.height; ++y)
    for (int x = 0; x < f.width; ++x) {
      const int sx = (k & 1) ? f.width - 1 - x : x, sy = (k & 2) ? f.height - 1 - y : y;
      t.ink[static_cast<std::size_t>(y) * static_cast<std::size_t>(f.width) + static_cast<std::size_t>(x)] =
          f.ink[static_cast<std::size_t>(sy) * static_cast<std::size_t>(f.width) + static_cast<std::size_t>(sx)];
    }
  return t;
}

InkField Columns(const InkField& f, int first) {
  InkField c;
  c.width = f.width - first;
  c.height = f.height;
  for (int y = 0; y < f.height; ++y)
    for (int x = first; x < f.width; ++x) c.ink.push_back(f.ink[static_cast<std::size_t>(y) * static_cast<std::size_t>(f.width) + static_cast<std::size_t>(x)]);
  return c;
}

#if HALFTONE_HAVE_FFTW
// The DFT of a real field in FFTW's half-complex layout, and a weight per entry: 2 where the
// entry stands for itself and its conjugate mirror, 1 where it has none.
struct HalfSpectrum {
  int width = 0, height = 0, half = 0;
  std::vector<double> re, im, weight;
};

HalfSpectrum Transform(const std::vector<double>& values, int width, int height) {
  HalfSpectrum s;
  s.width = width, s.height = height, s.half = width / 2 + 1;
  const std::size_t n = static_cast<std::size_t>(height) * static_cast<std::size_t>(s.half);
  double* in = fftw_alloc_real(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  fftw_complex* out = fftw_alloc_complex(n);
  fftw_plan plan = fftw_plan_dft_r2c_2d(height, width, in, out, FFTW_ESTIMATE);
  std::copy(values.begin(), values.end(), in);
  fftw_execute(plan);
  s.re.resize(n), s.im.resize(n), s.weight.resize(n);
  for (int v = 0; v < height; ++v)
    for (int u = 0; u < s.half; ++u) {
      const std::size_t i = static_cast<std::size_t>(v) * static_cast<std::size_t>(s.half) + static_cast<std::size_t>(u);
      s.re[i] = out[i][0];
      s.im[i] = out[i][1];
      s.weight[i] = (u == 0 || (width % 2 == 0 && u == width / 2)) ? 1.0 : 2.0;
    }
  fftw_destroy_plan(plan);
  fftw_free(out);
  fftw_free(in);
  return s;
}

// Frequency in cycles a pixel of half-complex entry (u, v).
double Radius(const HalfSpectrum& s, int u, int v) {
  const double fu = static_cast<double>(u) / s.width;
  const double fv = static_cast<double>(v <= s.height / 2 ? v : v - s.height) / s.height;
  return std::sqrt(fu * fu + fv * fv);
}
#endif

}  // namespace

bool HaveAnalysis() { return HALFTONE_HAVE_FFTW != 0; }

InkField DotInk(const DotPlanes& dots, int plane, int first_row) {
  InkField f;
  f.width = dots.pixels;
  f.height = std::max(0, dots.rows - first_row);
  const double full = FullCode(dots.bits);
  f.ink.reserve(static_cast<std::size_t>(f.width) * static_cast<std::size_t>(f.height));
  for (int y = first_row; y < dots.rows; ++y)
    for (int x = 0; x < dots.pixels; ++x) f.ink.push_back(dots.Code(plane, x, y) / full);
  return f;
}

InkField PictureInk(const GrayImage& plane, bool ink_sense) {
  InkField f;
  f.width = plane.width;
  f.height = plane.height;
  for (std::uint8_t v : plane.pixels) f.ink.push_back(ink_sense ? v / 255.0 : (255.0 - v) / 255.0);
  return f;
}

double IdealPrincipalFrequency(double g) { return g <= 0.5 ? std::sqrt(g) : std::sqrt(1.0 - g); }

double ContrastSensitivity(double f) {
  static const double peak = CsfPeak();
  static const double top = MannosSakrison(peak);
  return MannosSakrison(std::max(f, peak)) / top;
}

std::vector<int> DefaultAnalysisLevels() {
  std::vector<int> levels;
  for (int i = 0; i < kDefaultLevelCount; ++i) levels.push_back(kFirstLevel + i * kLevelStep);
  return levels;
}

#if HALFTONE_HAVE_FFTW

std::vector<double> Periodogram(const InkField& field) {
  const double mean = field.ink.empty() ? 0.0 : std::accumulate(field.ink.begin(), field.ink.end(), 0.0) / static_cast<double>(field.ink.size());
  std::vector<double> centred(field.ink.size());
  for (std::size_t i = 0; i < centred.size(); ++i) centred[i] = field.ink[i] - mean;
  const HalfSpectrum s = Transform(centred, field.width, field.height);
  const double n = static_cast<double>(field.width) * field.height;
  std::vector<double> power(s.re.size());
  for (std::size_t i = 0; i < power.size(); ++i) power[i] = (s.re[i] * s.re[i] + s.im[i] * s.im[i]) / n;
  return power;
}

RadialSpectrum Rapsd(const InkField& field) {
  RadialSpectrum r;
  const double n = static_cast<double>(field.ink.size());
  r.coverage = n > 0 ? std::accumulate(field.ink.begin(), field.ink.end(), 0.0) / n : 0.0;
  double variance = 0;
  for (double v : field.ink) variance += (v - r.coverage) * (v - r.coverage);
  r.variance = n > 0 ? variance / n : 0.0;
  const int side = std::min(field.width, field.height);
  const int bins = static_cast<int>(side / std::sqrt(2.0)) + 1;
  std::vector<double> sum(static_cast<std::size_t>(bins), 0.0), sum2(sum), count(sum);
  const std::vector<double> power = Periodogram(field);
  const int half = field.width / 2 + 1;
  HalfSpectrum geometry;
  geometry.width = field.width, geometry.height = field.height, geometry.half = half;
  for (int v = 0; v < field.height; ++v)
    for (int u = 0; u < half; ++u) {
      const int k = static_cast<int>(std::lround(Radius(geometry, u, v) * side));
      if (k <= 0 || k >= bins) continue;
      const double p = power[static_cast<std::size_t>(v) * static_cast<std::size_t>(half) + static_cast<std::size_t>(u)];
      const double w = (u == 0 || (field.width % 2 == 0 && u == field.width / 2)) ? 1.0 : 2.0;
      sum[static_cast<std::size_t>(k)] += w * p;
      sum2[static_cast<std::size_t>(k)] += w * p * p;
      count[static_cast<std::size_t>(k)] += w;
    }
  for (int k = 1; k < bins; ++k) {
    const auto i = static_cast<std::size_t>(k);
    if (count[i] == 0) continue;
    const double mean = sum[i] / count[i];
    const double spread = std::max(0.0, sum2[i] / count[i] - mean * mean);
    r.frequency.push_back(static_cast<double>(k) / side);
    r.power.push_back(r.variance > 0 ? mean / r.variance : 0.0);
    r.anisotropy.push_back(mean > 0 ? spread / (mean * mean) : 0.0);
  }
  return r;
}

double VisualError(const InkField& a, const InkField& b, const Viewing& viewing) {
  if (a.width != b.width || a.height != b.height || a.ink.empty()) return std::numeric_limits<double>::quiet_NaN();
  std::vector<double> diff(a.ink.size());
  for (std::size_t i = 0; i < diff.size(); ++i) diff[i] = a.ink[i] - b.ink[i];
  const HalfSpectrum s = Transform(diff, a.width, a.height);
  // Pixels a degree of visual angle spans at the viewing distance.
  const double pixels_per_degree = viewing.dpi * viewing.distance_mm / kMmPerInch * std::tan(kPi / 180.0);
  double energy = 0;
  for (int v = 0; v < s.height; ++v)
    for (int u = 0; u < s.half; ++u) {
      const std::size_t i = static_cast<std::size_t>(v) * static_cast<std::size_t>(s.half) + static_cast<std::size_t>(u);
      const double h = ContrastSensitivity(Radius(s, u, v) * pixels_per_degree);
      energy += s.weight[i] * (s.re[i] * s.re[i] + s.im[i] * s.im[i]) * h * h;
    }
  // Parseval: the mean square of the filtered difference is the filtered energy over n^2.
  const double n = static_cast<double>(diff.size());
  return std::sqrt(energy) / n;
}

#else

std::vector<double> Periodogram(const InkField&) { return {}; }
RadialSpectrum Rapsd(const InkField&) { return {}; }
double VisualError(const InkField&, const InkField&, const Viewing&) { return std::numeric_limits<double>::quiet_NaN(); }

#endif

PatchMeasure MeasurePatch(const InkField& field, int level) {
  PatchMeasure m;
  m.level = level;
  m.spectrum = Rapsd(field);
  m.coverage = m.spectrum.coverage;
  const double white = m.coverage * (1.0 - m.coverage);
  m.patterned = white > 0 && m.spectrum.variance > 0 && !m.spectrum.power.empty();
  if (!m.patterned) return m;
  m.ideal = IdealPrincipalFrequency(m.coverage);
  // Where the spectrum, smoothed over kSmoothBins bins, first reaches the white-noise level: for
  // blue noise the edge of its low-frequency hole, where its peak stands. A spectrum that never
  // gets there (all its energy in a few spikes) takes its highest smoothed bin instead.
  const auto& p = m.spectrum.power;
  std::vector<double> smooth(p.size(), 0.0);
  for (std::size_t k = 0; k < p.size(); ++k) {
    const std::size_t lo = k >= kSmoothBins / 2 ? k - kSmoothBins / 2 : 0, hi = std::min(p.size(), k + kSmoothBins / 2 + 1);
    smooth[k] = std::accumulate(p.begin() + static_cast<std::ptrdiff_t>(lo), p.begin() + static_cast<std::ptrdiff_t>(hi), 0.0) / static_cast<double>(hi - lo);
  }
  const auto reached = std::find_if(smooth.begin(), smooth.end(), [](double v) { return v >= 1.0; });
  const auto at = reached != smooth.end() ? reached : std::max_element(smooth.begin(), smooth.end());
  m.principal = m.spectrum.frequency[static_cast<std::size_t>(at - smooth.begin())];
  m.principal_error = std::abs(m.principal - m.ideal) / m.ideal;
  double low = 0, low_n = 0, aniso = 0, aniso_n = 0;
  for (std::size_t k = 0; k < p.size(); ++k) {
    if (m.spectrum.frequency[k] < m.ideal / 2 || k == 0) low += p[k], ++low_n;
    if (m.spectrum.frequency[k] >= m.ideal / 2) aniso += m.spectrum.anisotropy[k], ++aniso_n;
  }
  // Grain in absolute terms: against a two-level pattern of white noise at the same coverage.
  m.graininess_db = Db(low / std::max(1.0, low_n) * m.spectrum.variance / white);
  m.anisotropy_db = Db(aniso / std::max(1.0, aniso_n));
  return m;
}

MethodAnalysis AnalyzeMethod(const halftone_method_info& method, const Picture& picture, const AnalyzeOptions& options) {
  MethodAnalysis a;
  a.method = method;
  const bool turned = method.layout == HALFTONE_LAYOUT_TURNED;
  GrayImage patch;
  patch.width = options.patch;
  patch.height = options.settle + options.patch;
  DotPlanes dots;
  double grain = 0, aniso = 0, principal = 0;
  int patterned = 0;
  for (int level : options.levels) {
    patch.pixels.assign(static_cast<std::size_t>(patch.width) * static_cast<std::size_t>(patch.height), static_cast<std::uint8_t>(level));
    if (std::string err = RunMethod(method, {patch}, options.run, dots); !err.empty()) {
      a.error = err;
      return a;
    }
    // The rows run first let a diffusion build up its error: they are left out. A turned
    // method writes the picture's rows as columns.
    const InkField field = turned ? Columns(DotInk(dots, 0, 0), options.settle) : DotInk(dots, 0, options.settle);
    PatchMeasure m = MeasurePatch(field, level);
    if (m.patterned) {
      grain += m.graininess_db, aniso += m.anisotropy_db, principal += m.principal_error;
      ++patterned;
    }
    a.patches.push_back(std::move(m));
  }
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // A few methods take ink, not lightness: their coverage rises with the level, and their linear
  // response is level / 255.
  const auto lightest = std::max_element(a.patches.begin(), a.patches.end(), [](const auto& x, const auto& y) { return x.level < y.level; });
  const auto darkest = std::min_element(a.patches.begin(), a.patches.end(), [](const auto& x, const auto& y) { return x.level < y.level; });
  a.ink_sense = !a.patches.empty() && lightest->coverage > darkest->coverage;
  double tone_sq = 0;
  for (const auto& m : a.patches) {
    const double linear = a.ink_sense ? m.level / 255.0 : (255.0 - m.level) / 255.0;
    tone_sq += (m.coverage - linear) * (m.coverage - linear);
  }
  a.tone_deviation = a.patches.empty() ? nan : std::sqrt(tone_sq / static_cast<double>(a.patches.size()));
  a.graininess_db = patterned ? grain / patterned : nan;
  a.anisotropy_db = patterned ? aniso / patterned : nan;
  a.principal_error = patterned ? principal / patterned : nan;

  // The speed is the best of a few runs: one run of a fast screen lasts well under a millisecond.
  double seconds = std::numeric_limits<double>::infinity();
  for (int run = 0; run < kTimedRuns; ++run) {
    const auto start = std::chrono::steady_clock::now();
    if (std::string err = RunMethod(method, picture.planes, options.run, dots); !err.empty()) {
      a.error = err;
      return a;
    }
    seconds = std::min(seconds, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  const double pixels = static_cast<double>(picture.planes[0].width) * picture.planes[0].height * static_cast<double>(picture.planes.size());
  a.megapixels_per_second = seconds > 0 ? pixels / seconds / 1e6 : nan;
  double error = 0;
  for (std::size_t p = 0; p < picture.planes.size(); ++p) {
    const InkField want = PictureInk(picture.planes[p], a.ink_sense);
    const InkField got = DotInk(dots, static_cast<int>(p));
    // Some methods write their rows in reverse order, and turned layouts differ in which way
    // they turn: the orientation that matches the picture is the one with the least error.
    double best = std::numeric_limits<double>::infinity();
    for (int k = 0; k < 4; ++k) best = std::min(best, VisualError(want, turned ? Turn(got, k) : Flip(got, k), options.viewing));
    error += best;
  }
  a.visual_error = error / static_cast<double>(picture.planes.size());
  return a;
}

}  // namespace halftone_tool
