#include "tone.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

#include "draw.h"

namespace halftone_tool {
namespace {

// Small multiples: one panel per family of methods, its curves told apart by colour (and, past
// eight, by dashes), in pixels.
constexpr int kColumns = 3;
constexpr int kPanelWidth = 440;
constexpr int kPlotWidth = 360;
constexpr int kPlotHeight = 240;
constexpr int kPlotLeft = 52;       // inside a panel
constexpr int kPlotTop = 44;
constexpr int kLegendRow = 17;
constexpr int kLegendColumns = 2;
constexpr int kTitleHeight = 64;
constexpr int kMargin = 16;
constexpr double kTitleSize = 20;
constexpr double kPanelTitleSize = 14;
constexpr double kLabelSize = 11;

constexpr Rgb kPaper{255, 255, 255};
constexpr Rgb kInk{20, 20, 20};
constexpr Rgb kSubtle{100, 100, 100};
constexpr Rgb kGrid{228, 228, 228};
constexpr Rgb kReference{150, 150, 150};

}  // namespace

double InkCoverage(const DotPlanes& dots, int plane, int first_row) {
  const unsigned full = FullCode(dots.bits);
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
  curve.family = method.family;
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
  // Families in the order their first method comes.
  std::vector<std::string> families;
  std::map<std::string, std::vector<const ToneCurve*>> by_family;
  for (const auto& c : curves) {
    if (!by_family.count(c.family)) families.push_back(c.family);
    by_family[c.family].push_back(&c);
  }
  std::size_t most = 1;
  for (const auto& [family, members] : by_family) most = std::max(most, members.size());
  const int legend_rows = static_cast<int>((most + kLegendColumns - 1) / kLegendColumns);
  const int panel_height = kPlotTop + kPlotHeight + 40 + legend_rows * kLegendRow + 12;
  const int columns = std::min<int>(kColumns, static_cast<int>(std::max<std::size_t>(1, families.size())));
  const int rows = (static_cast<int>(families.size()) + columns - 1) / columns;
  Canvas img(2 * kMargin + columns * kPanelWidth, kTitleHeight + std::max(1, rows) * panel_height + kMargin, kPaper);
  img.Text(kMargin, 30, img.Fit(title, kTitleSize, img.width() - 2 * kMargin, true), kTitleSize, kInk, Align::kLeft, true);
  img.Text(kMargin, 50,
           "ink coverage against input level (0 = full ink asked, 255 = paper); dashed grey: the linear response",
           kLabelSize, kSubtle);

  for (std::size_t f = 0; f < families.size(); ++f) {
    const int px = kMargin + static_cast<int>(f % columns) * kPanelWidth;
    const int py = kTitleHeight + static_cast<int>(f / columns) * panel_height;
    const double left = px + kPlotLeft, top = py + kPlotTop;
    auto X = [&](double level) { return left + level * kPlotWidth / (kToneLevels - 1); };
    auto Y = [&](double coverage) { return top + (1.0 - coverage) * kPlotHeight; };
    img.Text(px + 8, py + 24, img.Fit(families[f].empty() ? std::string("(no family)") : families[f], kPanelTitleSize, kPanelWidth - 16, true),
             kPanelTitleSize, kInk, Align::kLeft, true);
    for (int level : {0, 64, 128, 192, 255}) {
      img.Line(X(level), top, X(level), top + kPlotHeight, 1, kGrid);
      img.Text(X(level), top + kPlotHeight + 14, std::to_string(level), kLabelSize, kSubtle, Align::kCentre);
    }
    for (int percent : {0, 25, 50, 75, 100}) {
      img.Line(left, Y(percent / 100.0), left + kPlotWidth, Y(percent / 100.0), 1, kGrid);
      img.Text(left - 6, Y(percent / 100.0) + 4, std::to_string(percent) + "%", kLabelSize, kSubtle, Align::kRight);
    }
    img.Text(left + kPlotWidth / 2.0, top + kPlotHeight + 28, "input level", kLabelSize, kSubtle, Align::kCentre);
    img.Frame(left, top, kPlotWidth, kPlotHeight, 1, kInk);
    img.Line(X(0), Y(1.0), X(255), Y(0.0), 1.2, kReference, 5);

    const auto& members = by_family[families[f]];
    const auto& colours = CurveColours();
    for (std::size_t i = 0; i < members.size(); ++i) {
      const Rgb colour = colours[i % colours.size()];
      const double dash = i < colours.size() ? 0 : 6;  // past eight curves, dashes tell them apart
      std::vector<double> xs, ys;
      for (int level = 0; level < kToneLevels; ++level) {
        xs.push_back(X(level));
        ys.push_back(Y(members[i]->coverage[static_cast<std::size_t>(level)]));
      }
      img.Polyline(xs, ys, 1.6, colour, dash);
      const double lx = px + 12 + static_cast<double>(i % kLegendColumns) * (kPanelWidth - 24) / kLegendColumns;
      const double ly = top + kPlotHeight + 50 + static_cast<double>(i / kLegendColumns) * kLegendRow;
      img.Line(lx, ly - 4, lx + 22, ly - 4, 2.5, colour, dash);
      img.Text(lx + 28, ly, img.Fit(members[i]->method, kLabelSize + 1, (kPanelWidth - 24) / kLegendColumns - 34), kLabelSize + 1, kInk);
    }
  }
  return img.ToRgb();
}

}  // namespace halftone_tool
