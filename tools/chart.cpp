#include "chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

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

// 5 x 7 glyphs for the few letters the chart writes, one row a byte (bit 4 = left column).
struct Glyph {
  char c;
  std::array<std::uint8_t, 7> rows;
};
constexpr Glyph kGlyphs[] = {
    {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}}, {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    {'N', {0x11, 0x19, 0x15, 0x13, 0x11, 0x11, 0x11}}, {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}},
};

void FillRect(GrayImage& img, int x0, int y0, int x1, int y1, int v) {
  for (int y = std::max(0, y0); y < std::min(img.height, y1); ++y)
    for (int x = std::max(0, x0); x < std::min(img.width, x1); ++x) img.at(x, y) = static_cast<std::uint8_t>(v);
}

void DrawText(GrayImage& img, std::string_view text, int x0, int y0, int scale, int v) {
  for (char c : text) {
    for (const Glyph& g : kGlyphs) {
      if (g.c != c) continue;
      for (int r = 0; r < 7; ++r)
        for (int col = 0; col < 5; ++col)
          if (g.rows[static_cast<std::size_t>(r)] & (0x10 >> col))
            FillRect(img, x0 + col * scale, y0 + r * scale, x0 + (col + 1) * scale, y0 + (r + 1) * scale, v);
    }
    x0 += 6 * scale;
  }
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
  DrawText(img, "HALFTONE", 16, kLinesTop + 84, 2, 0);
  DrawText(img, "INK", 140, kLinesTop + 84, 4, 60);
  FillRect(img, 260, kLinesTop + 80, kWidth - 16, kLinesTop + 152, 30);
  DrawText(img, "FINE LINE", 280, kLinesTop + 88, 7, 235);

  // Flat patches at the given levels, then at the extremes where guards and vetoes act.
  std::vector<int> levels = patch_levels;
  for (int v : {0, 1, 64, 127, 128, 192, 254, 255}) levels.push_back(v);
  const int n = static_cast<int>(levels.size());
  for (int i = 0; i < n; ++i)
    FillRect(img, i * kWidth / n, kPatchTop, (i + 1) * kWidth / n, kHeight, std::clamp(levels[static_cast<std::size_t>(i)], 0, 255));
  return img;
}

}  // namespace halftone_tool
