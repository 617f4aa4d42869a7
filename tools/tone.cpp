#include "tone.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>

#include "font.h"

namespace halftone_tool {
namespace {

// Plot geometry, in pixels.
constexpr int kPlotLeft = 72;
constexpr int kPlotTop = 56;
constexpr int kPlotWidth = 640;
constexpr int kPlotHeight = 480;
constexpr int kLegendGap = 24;
constexpr int kLegendWidth = 200;
constexpr int kLegendRow = 11;
constexpr int kBottomMargin = 56;
constexpr int kLevelTick = 32;   // input levels between x ticks
constexpr int kCoverageTicks = 10;

constexpr Rgb kPaper{255, 255, 255};
constexpr Rgb kInk{20, 20, 20};
constexpr Rgb kGrid{225, 225, 225};
constexpr Rgb kReference{150, 150, 150};

// Colours far enough apart to tell a dozen curves from each other; more curves reuse them.
constexpr std::array<Rgb, 12> kPalette = {{{31, 119, 180}, {214, 39, 40}, {44, 160, 44}, {255, 127, 14},
                                           {148, 103, 189}, {140, 86, 75}, {227, 119, 194}, {23, 190, 207},
                                           {188, 189, 34}, {0, 0, 0}, {127, 127, 127}, {0, 80, 0}}};

void Dot(RgbImage& img, int x, int y, int size, Rgb c) {
  for (int dy = 0; dy < size; ++dy)
    for (int dx = 0; dx < size; ++dx)
      if (x + dx >= 0 && y + dy >= 0 && x + dx < img.width && y + dy < img.height) img.at(x + dx, y + dy) = c;
}

// A straight line; `dash` > 0 leaves gaps of that many steps every other run.
void Line(RgbImage& img, int x0, int y0, int x1, int y1, int size, Rgb c, int dash = 0) {
  const int steps = std::max({std::abs(x1 - x0), std::abs(y1 - y0), 1});
  for (int i = 0; i <= steps; ++i) {
    if (dash > 0 && (i / dash) % 2 == 1) continue;
    Dot(img, x0 + (x1 - x0) * i / steps, y0 + (y1 - y0) * i / steps, size, c);
  }
}

int PlotX(int level) { return kPlotLeft + level * (kPlotWidth - 1) / (kToneLevels - 1); }
int PlotY(double coverage) { return kPlotTop + static_cast<int>(std::lround((1.0 - coverage) * (kPlotHeight - 1))); }

}  // namespace

double InkCoverage(const DotPlanes& dots, int plane, int first_row) {
  const unsigned full = dots.bits == 1 ? 1u : dots.bits == 2 ? 3u : 7u;
  unsigned long long ink = 0, pixels = 0;
  for (int y = std::max(0, first_row); y < dots.rows; ++y)
    for (int x = 0; x < dots.pixels; ++x) {
      ink += dots.Code(plane, x, y);
      ++pixels;
    }
  return pixels == 0 ? 0.0 : static_cast<double>(ink) / (static_cast<double>(pixels) * full);
}

std::string MeasureTone(const halftone_method_info& method, const ToneOptions& options, ToneCurve& curve,
                        const std::function<void(int level)>& on_level) {
  curve.method = method.name;
  curve.coverage.assign(kToneLevels, 0.0);
  GrayImage patch;
  patch.width = patch.height = options.patch;
  DotPlanes dots;
  for (int level = 0; level < kToneLevels; ++level) {
    patch.pixels.assign(static_cast<std::size_t>(options.patch) * static_cast<std::size_t>(options.patch),
                        static_cast<std::uint8_t>(level));
    if (std::string err = RunMethod(method, {patch}, options.run, dots); !err.empty()) return err;
    // Diffusion needs some rows to build up its error: measure below the first quarter.
    curve.coverage[static_cast<std::size_t>(level)] = InkCoverage(dots, 0, dots.rows / 4);
    if (on_level) on_level(level);
  }
  return {};
}

std::string WriteToneCsv(const std::string& path, const std::vector<ToneCurve>& curves) {
  std::ofstream out(path);
  if (!out) return "cannot write '" + path + "'";
  out << "level";
  for (const auto& c : curves) out << ',' << c.method;
  out << '\n';
  char cell[32];
  for (int level = 0; level < kToneLevels; ++level) {
    out << level;
    for (const auto& c : curves) {
      std::snprintf(cell, sizeof cell, ",%.6f", c.coverage[static_cast<std::size_t>(level)]);
      out << cell;
    }
    out << '\n';
  }
  return out ? std::string{} : "error writing '" + path + "'";
}

RgbImage PlotTone(const std::vector<ToneCurve>& curves, const std::string& title) {
  const int legend_rows = static_cast<int>(curves.size()) + 1;
  const int height = std::max(kPlotTop + kPlotHeight + kBottomMargin, kPlotTop + legend_rows * kLegendRow + 16);
  RgbImage img(kPlotLeft + kPlotWidth + kLegendGap + kLegendWidth, height, kPaper);

  DrawText(img, title, kPlotLeft, 16, 2, kInk);
  // Grid and axis labels.
  for (int level = 0; level < kToneLevels; level += kLevelTick) {
    Line(img, PlotX(level), kPlotTop, PlotX(level), kPlotTop + kPlotHeight - 1, 1, kGrid);
    const std::string label = std::to_string(level);
    DrawText(img, label, PlotX(level) - TextWidth(label, 1) / 2, kPlotTop + kPlotHeight + 6, 1, kInk);
  }
  DrawText(img, "255", PlotX(255) - 9, kPlotTop + kPlotHeight + 6, 1, kInk);
  for (int i = 0; i <= kCoverageTicks; ++i) {
    const double coverage = static_cast<double>(i) / kCoverageTicks;
    Line(img, kPlotLeft, PlotY(coverage), kPlotLeft + kPlotWidth - 1, PlotY(coverage), 1, kGrid);
    const std::string label = std::to_string(i * 100 / kCoverageTicks) + "%";
    DrawText(img, label, kPlotLeft - 6 - TextWidth(label, 1), PlotY(coverage) - 3, 1, kInk);
  }
  const std::string x_title = "input level (0 = full ink asked, 255 = paper)";
  DrawText(img, x_title, kPlotLeft + (kPlotWidth - TextWidth(x_title, 1)) / 2, kPlotTop + kPlotHeight + 24, 1, kInk);
  DrawText(img, "ink coverage", kPlotLeft - 36, kPlotTop - 14, 1, kInk);
  // Frame.
  Line(img, kPlotLeft, kPlotTop, kPlotLeft + kPlotWidth - 1, kPlotTop, 1, kInk);
  Line(img, kPlotLeft, kPlotTop + kPlotHeight - 1, kPlotLeft + kPlotWidth - 1, kPlotTop + kPlotHeight - 1, 1, kInk);
  Line(img, kPlotLeft, kPlotTop, kPlotLeft, kPlotTop + kPlotHeight - 1, 1, kInk);
  Line(img, kPlotLeft + kPlotWidth - 1, kPlotTop, kPlotLeft + kPlotWidth - 1, kPlotTop + kPlotHeight - 1, 1, kInk);

  // The linear response for reference: full ink at level 0, none at 255.
  Line(img, PlotX(0), PlotY(1.0), PlotX(255), PlotY(0.0), 1, kReference, 4);
  const int legend_x = kPlotLeft + kPlotWidth + kLegendGap;
  Line(img, legend_x, kPlotTop + 3, legend_x + 16, kPlotTop + 3, 1, kReference, 2);
  DrawText(img, "linear", legend_x + 22, kPlotTop, 1, kInk);

  for (std::size_t i = 0; i < curves.size(); ++i) {
    const Rgb colour = kPalette[i % kPalette.size()];
    const auto& cov = curves[i].coverage;
    for (int level = 1; level < kToneLevels; ++level)
      Line(img, PlotX(level - 1), PlotY(cov[static_cast<std::size_t>(level - 1)]), PlotX(level),
           PlotY(cov[static_cast<std::size_t>(level)]), 2, colour);
    const int y = kPlotTop + static_cast<int>(i + 1) * kLegendRow;
    Line(img, legend_x, y + 3, legend_x + 16, y + 3, 2, colour);
    DrawText(img, curves[i].method, legend_x + 22, y, 1, kInk);
  }
  return img;
}

}  // namespace halftone_tool
