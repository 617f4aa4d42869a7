// The tables and pictures of an analysis: CSV files for every measure, the spectra of each method
// as small multiples, and a one-page ranking.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "analyze.h"
#include "draw.h"

namespace halftone_tool {
namespace {

constexpr Rgb kPaper{255, 255, 255};
constexpr Rgb kInk{20, 20, 20};
constexpr Rgb kSubtle{100, 100, 100};
constexpr Rgb kGrid{228, 228, 228};
constexpr Rgb kIdeal{150, 150, 150};
constexpr Rgb kCurve{0, 114, 178};
constexpr Rgb kStripe{244, 244, 240};

// Spectra panels: frequency 0 .. 1/sqrt 2 cycles a pixel across, power in dB over white noise up.
constexpr int kPanelColumns = 4;
constexpr int kPanelWidth = 300, kPanelHeight = 210;
constexpr int kPlotLeft = 44, kPlotTop = 30, kPlotWidth = 236, kPlotHeight = 140;
constexpr double kTopDb = 20, kBottomDb = -30;
constexpr double kMaxFrequency = 0.7072;
constexpr int kHeader = 70, kMargin = 16;
constexpr double kTitleSize = 20, kPanelTitleSize = 12.5, kLabelSize = 10.5;

std::string Number(double v, const char* format) {
  if (!std::isfinite(v)) return "-";
  char text[32];
  std::snprintf(text, sizeof text, format, v);
  return text;
}

double DbOf(double ratio) { return 10.0 * std::log10(std::max(ratio, 1e-12)); }

std::string WriteSpectraPicture(const std::string& path, const MethodAnalysis& a, const std::string& title) {
  const int rows = (static_cast<int>(a.patches.size()) + kPanelColumns - 1) / kPanelColumns;
  Canvas img(2 * kMargin + kPanelColumns * kPanelWidth, kHeader + std::max(1, rows) * kPanelHeight + kMargin, kPaper);
  img.Text(kMargin, 28, img.Fit(std::string(a.method.name) + ": radially averaged power spectra of flat patches", kTitleSize,
                                img.width() - 2 * kMargin, true),
           kTitleSize, kInk, Align::kLeft, true);
  img.Text(kMargin, 46, img.Fit(title, kLabelSize, img.width() - 2 * kMargin), kLabelSize, kSubtle);
  img.Text(kMargin, 61,
           img.Fit("Blue: the method's RAPSD over its variance, dB (white noise: 0 dB). Grey: the blue-noise ideal, nothing "
                   "below the principal frequency sqrt(g) (g <= 1/2) or sqrt(1 - g), the white-noise level above.",
                   kLabelSize, img.width() - 2 * kMargin),
           kLabelSize, kSubtle);
  for (std::size_t i = 0; i < a.patches.size(); ++i) {
    const PatchMeasure& m = a.patches[i];
    const double px = kMargin + static_cast<double>(i % kPanelColumns) * kPanelWidth;
    const double py = kHeader + static_cast<double>(i / kPanelColumns) * kPanelHeight;
    const double left = px + kPlotLeft, top = py + kPlotTop;
    auto X = [&](double f) { return left + std::min(f, kMaxFrequency) / kMaxFrequency * kPlotWidth; };
    auto Y = [&](double db) { return top + (kTopDb - std::clamp(db, kBottomDb, kTopDb)) / (kTopDb - kBottomDb) * kPlotHeight; };
    img.Text(px + 8, py + 18,
             "level " + std::to_string(m.level) + ", coverage " + Number(100 * m.coverage, "%.1f") + "%" +
                 (m.patterned ? ", peak " + Number(m.principal, "%.3f") : std::string(", no pattern")),
             kPanelTitleSize, kInk);
    for (double db : {-20.0, -10.0, 0.0, 10.0}) {
      img.Line(left, Y(db), left + kPlotWidth, Y(db), 1, kGrid);
      img.Text(left - 5, Y(db) + 4, Number(db, "%+.0f"), kLabelSize, kSubtle, Align::kRight);
    }
    for (double f : {0.0, 0.25, 0.5, 0.7071}) {
      img.Line(X(f), top, X(f), top + kPlotHeight, 1, kGrid);
      img.Text(X(f), top + kPlotHeight + 13, Number(f, "%.2f"), kLabelSize, kSubtle, Align::kCentre);
    }
    img.Frame(left, top, kPlotWidth, kPlotHeight, 1, kInk);
    if (!m.patterned) continue;
    img.Polyline({X(0), X(m.ideal), X(m.ideal), X(kMaxFrequency)}, {Y(kBottomDb), Y(kBottomDb), Y(0), Y(0)}, 1.4, kIdeal, 4);
    std::vector<double> xs, ys;
    for (std::size_t k = 0; k < m.spectrum.frequency.size(); ++k) {
      xs.push_back(X(m.spectrum.frequency[k]));
      ys.push_back(Y(DbOf(m.spectrum.power[k])));
    }
    img.Polyline(xs, ys, 1.3, kCurve);
  }
  img.Text(kMargin, img.height() - 4, "frequency, cycles a pixel", kLabelSize, kSubtle);
  return WriteRgb(path, img.ToRgb());
}

// One-page table, best visual error first; each measure's cell shaded from good (green) to poor.
std::string WriteRankingPicture(const std::string& path, std::vector<const MethodAnalysis*> rows, const AnalyzeOptions& o,
                                const std::string& title) {
  constexpr int kRow = 21, kTop = 106;
  struct Column {
    const char* head;
    const char* format;
    double (*value)(const MethodAnalysis&);
    bool lower_is_better;
    int width;
  };
  const Column columns[] = {
      {"visual error", "%.4f", [](const MethodAnalysis& a) { return a.visual_error; }, true, 100},
      {"graininess dB", "%+.1f", [](const MethodAnalysis& a) { return a.graininess_db; }, true, 110},
      {"anisotropy dB", "%+.1f", [](const MethodAnalysis& a) { return a.anisotropy_db; }, true, 110},
      {"peak freq. error", "%.0f%%", [](const MethodAnalysis& a) { return 100 * a.principal_error; }, true, 120},
      {"tone deviation", "%.1f%%", [](const MethodAnalysis& a) { return 100 * a.tone_deviation; }, true, 110},
      {"speed Mpx/s", "%.0f", [](const MethodAnalysis& a) { return a.megapixels_per_second; }, false, 100},
  };
  constexpr int kRankWidth = 40, kNameWidth = 170, kBitsWidth = 50;
  int width = 2 * kMargin + kRankWidth + kNameWidth + kBitsWidth;
  for (const auto& c : columns) width += c.width;
  Canvas img(width, kTop + std::max<int>(1, static_cast<int>(rows.size())) * kRow + 40, kPaper);
  img.Text(kMargin, 28, "Halftone methods ranked by visual error", kTitleSize, kInk, Align::kLeft, true);
  img.Text(kMargin, 46, img.Fit(title, kLabelSize, width - 2 * kMargin), kLabelSize, kSubtle);
  img.Text(kMargin, 61,
           img.Fit("Flat patches at " + std::to_string(o.levels.size()) + " levels, " + std::to_string(o.patch) + " x " +
                       std::to_string(o.patch) + " after " + std::to_string(o.settle) + " settling rows; visual error on the picture at " +
                       Number(o.viewing.dpi, "%.0f") + " dpi seen from " + Number(o.viewing.distance_mm, "%.0f") + " mm.",
                   kLabelSize, width - 2 * kMargin),
           kLabelSize, kSubtle);
  img.Text(kMargin, 76, "Lower is better in every column but speed; green marks the best third of a column, red the worst; "
                        "\"ink\": the method takes its input as ink, not lightness.",
           kLabelSize, kSubtle);
  double x = kMargin + kRankWidth + kNameWidth + kBitsWidth;
  img.Text(kMargin, kTop - 8, "#", kLabelSize + 1, kInk, Align::kLeft, true);
  img.Text(kMargin + kRankWidth, kTop - 8, "method", kLabelSize + 1, kInk, Align::kLeft, true);
  img.Text(kMargin + kRankWidth + kNameWidth, kTop - 8, "bits", kLabelSize + 1, kInk, Align::kLeft, true);
  for (const auto& c : columns) {
    img.Text(x + c.width - 8, kTop - 8, c.head, kLabelSize + 1, kInk, Align::kRight, true);
    x += c.width;
  }
  // Each column's thirds, from its finite values.
  std::vector<std::pair<double, double>> thirds;
  for (const auto& c : columns) {
    std::vector<double> v;
    for (const auto* r : rows)
      if (std::isfinite(c.value(*r))) v.push_back(c.value(*r));
    std::sort(v.begin(), v.end());
    if (!c.lower_is_better) std::reverse(v.begin(), v.end());
    thirds.emplace_back(v.empty() ? 0 : v[v.size() / 3], v.empty() ? 0 : v[v.size() * 2 / 3]);
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const MethodAnalysis& r = *rows[i];
    const double y = kTop + static_cast<double>(i) * kRow;
    if (i % 2 == 0) img.Rect(kMargin, y, width - 2 * kMargin, kRow, kStripe);
    const double base = y + kRow - 6;
    img.Text(kMargin, base, std::to_string(i + 1), kLabelSize + 1, kSubtle);
    img.Text(kMargin + kRankWidth, base, img.Fit(r.method.name, kLabelSize + 1, kNameWidth - 8, true), kLabelSize + 1, kInk, Align::kLeft, true);
    img.Text(kMargin + kRankWidth + kNameWidth, base, std::to_string(r.method.output_bits) + (r.ink_sense ? " ink" : ""), kLabelSize + 1, kSubtle);
    if (!r.error.empty()) {
      img.Text(kMargin + kRankWidth + kNameWidth + kBitsWidth, base, img.Fit(r.error, kLabelSize, 600), kLabelSize, Rgb{180, 30, 30});
      continue;
    }
    x = kMargin + kRankWidth + kNameWidth + kBitsWidth;
    for (std::size_t c = 0; c < std::size(columns); ++c) {
      const double v = columns[c].value(r);
      const bool better = columns[c].lower_is_better;
      const auto [good, poor] = thirds[c];
      if (std::isfinite(v)) {
        const bool is_good = better ? v <= good : v >= good;
        const bool is_poor = better ? v > poor : v < poor;
        if (is_good) img.Rect(x + 4, y + 2, columns[c].width - 8, kRow - 4, Rgb{210, 238, 214});
        if (is_poor) img.Rect(x + 4, y + 2, columns[c].width - 8, kRow - 4, Rgb{246, 214, 210});
      }
      img.Text(x + columns[c].width - 8, base, Number(v, columns[c].format), kLabelSize + 1, kInk, Align::kRight);
      x += columns[c].width;
    }
  }
  return WriteRgb(path, img.ToRgb());
}

}  // namespace

std::string WriteAnalysis(const std::string& dir, const std::vector<MethodAnalysis>& results, const AnalyzeOptions& options,
                          const std::string& title) {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (!fs::is_directory(dir, ec)) return "cannot make the folder '" + dir + "'";
  auto path = [&](const std::string& name) { return (fs::path(dir) / name).string(); };

  std::ofstream patches(path("patches.csv")), spectra(path("spectra.csv")), ranking(path("ranking.csv"));
  if (!patches || !spectra || !ranking) return "cannot write the tables in '" + dir + "'";
  patches << "method,level,coverage,principal_frequency,ideal_frequency,principal_error,anisotropy_db,graininess_db\n";
  spectra << "method,level,frequency,power_db,anisotropy_db\n";
  for (const auto& a : results)
    for (const auto& m : a.patches) {
      patches << a.method.name << ',' << m.level << ',' << Number(m.coverage, "%.6f") << ',' << Number(m.patterned ? m.principal : NAN, "%.5f")
              << ',' << Number(m.patterned ? m.ideal : NAN, "%.5f") << ',' << Number(m.patterned ? m.principal_error : NAN, "%.5f") << ','
              << Number(m.patterned ? m.anisotropy_db : NAN, "%.3f") << ',' << Number(m.patterned ? m.graininess_db : NAN, "%.3f") << '\n';
      for (std::size_t k = 0; m.patterned && k < m.spectrum.frequency.size(); ++k)
        spectra << a.method.name << ',' << m.level << ',' << Number(m.spectrum.frequency[k], "%.5f") << ','
                << Number(DbOf(m.spectrum.power[k]), "%.3f") << ',' << Number(DbOf(m.spectrum.anisotropy[k]), "%.3f") << '\n';
    }

  std::vector<const MethodAnalysis*> order;
  for (const auto& a : results) order.push_back(&a);
  std::stable_sort(order.begin(), order.end(), [](const MethodAnalysis* x, const MethodAnalysis* y) {
    const double vx = x->error.empty() && std::isfinite(x->visual_error) ? x->visual_error : INFINITY;
    const double vy = y->error.empty() && std::isfinite(y->visual_error) ? y->visual_error : INFINITY;
    return vx < vy;
  });
  ranking << "rank,method,bits,visual_error,graininess_db,anisotropy_db,principal_error,tone_deviation,megapixels_per_second,error\n";
  for (std::size_t i = 0; i < order.size(); ++i) {
    const MethodAnalysis& a = *order[i];
    ranking << i + 1 << ',' << a.method.name << ',' << a.method.output_bits << ',' << Number(a.visual_error, "%.6f") << ','
            << Number(a.graininess_db, "%.3f") << ',' << Number(a.anisotropy_db, "%.3f") << ',' << Number(a.principal_error, "%.5f")
            << ',' << Number(a.tone_deviation, "%.5f") << ',' << Number(a.megapixels_per_second, "%.1f") << ",\"" << a.error << "\"\n";
  }
  if (!patches || !spectra || !ranking) return "error writing the tables in '" + dir + "'";

  for (const auto& a : results)
    if (a.error.empty())
      if (std::string err = WriteSpectraPicture(path(std::string("spectra-") + a.method.name + ".png"), a, title); !err.empty())
        return err;
  return WriteRankingPicture(path("ranking.png"), order, options, title);
}

}  // namespace halftone_tool
