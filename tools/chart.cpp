#include "chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "draw.h"

namespace halftone_tool {
namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = 768;
constexpr int kRampHeight = 96;       // each of the two ramps
constexpr int kPhotoTop = 2 * kRampHeight;
constexpr int kPhotoHeight = 288;
constexpr int kLinesTop = kPhotoTop + kPhotoHeight;
constexpr int kLinesHeight = 160;
constexpr int kPatchTop = kLinesTop + kLinesHeight;

void FillRect(GrayImage& img, int x0, int y0, int x1, int y1, int v) {
  for (int y = std::max(0, y0); y < std::min(img.height, y1); ++y)
    for (int x = std::max(0, x0); x < std::min(img.width, x1); ++x) img.at(x, y) = static_cast<std::uint8_t>(v);
}

}  // namespace

GrayImage BuiltInChart(const std::vector<int>& patch_levels) {
  GrayImage img;
  img.width = kWidth;
  img.height = kHeight;
  img.pixels.assign(static_cast<std::size_t>(kWidth * kHeight), 255);

  // Ramps: a smooth one from ink to paper, and one in 17 steps, where banding shows at once.
  for (int y = 0; y < kRampHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      img.at(x, y) = static_cast<std::uint8_t>(x * 255 / (kWidth - 1));
      img.at(x, kRampHeight + y) = static_cast<std::uint8_t>(std::min(255, (x * 17 / kWidth) * 16));
    }

  // Soft photo-like area: overlapping smooth blobs on a gentle gradient, like skin and sky.
  const double cx[] = {0.25, 0.55, 0.8, 0.4, 0.7};
  const double cy[] = {0.4, 0.6, 0.3, 0.85, 0.9};
  const double radius[] = {0.18, 0.22, 0.15, 0.12, 0.2};
  const double depth[] = {150, -90, 120, 80, -60};
  for (int y = 0; y < kPhotoHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      double u = static_cast<double>(x) / kWidth, v = static_cast<double>(y) / kPhotoHeight;
      double value = 200.0 - 60.0 * v;
      for (int i = 0; i < 5; ++i) {
        double dx = (u - cx[i]) * 2.0, dy = (v - cy[i]) * 0.75;
        value -= depth[i] * std::exp(-(dx * dx + dy * dy) / (radius[i] * radius[i]));
      }
      value += 12.0 * std::sin(u * 40.0) * std::sin(v * 25.0);
      img.at(x, kPhotoTop + y) = static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0));
    }

  // Fine lines: hairlines at widening spacing, then letters at three sizes, dark on light and
  // light on dark, where edge sharpness and dropouts show.
  for (int i = 0, x = 16; x < kWidth / 2; ++i, x += 4 + i)
    FillRect(img, x, kLinesTop + 8, x + 1, kLinesTop + 72, 0);
  for (int i = 0, y = kLinesTop + 8; y < kLinesTop + 72; ++i, y += 3 + i / 2)
    FillRect(img, kWidth / 2 + 16, y, kWidth - 16, y + 1, 40);
  DrawLettering(img, "HALFTONE", 16, kLinesTop + 100, 16, 0);
  DrawLettering(img, "INK", 140, kLinesTop + 114, 36, 60);
  FillRect(img, 260, kLinesTop + 80, kWidth - 16, kLinesTop + 152, 30);
  DrawLettering(img, "FINE LINE", 280, kLinesTop + 136, 56, 235);

  // Flat patches at the given levels, then at the extremes where guards and vetoes act.
  std::vector<int> levels = patch_levels;
  for (int v : {0, 1, 64, 127, 128, 192, 254, 255}) levels.push_back(v);
  const int n = static_cast<int>(levels.size());
  for (int i = 0; i < n; ++i)
    FillRect(img, i * kWidth / n, kPatchTop, (i + 1) * kWidth / n, kHeight, std::clamp(levels[static_cast<std::size_t>(i)], 0, 255));
  return img;
}

}  // namespace halftone_tool
