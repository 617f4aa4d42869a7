#include "sheet.h"

#include <algorithm>

#include "font.h"
#include "picture.h"

namespace halftone_tool {
namespace {

// Tile geometry, in sheet pixels.
constexpr int kMargin = 12;
constexpr int kOverviewWidth = 360;
constexpr int kOverviewHeight = 270;
constexpr int kCrop = 256;  // side of the 1:1 crop
constexpr int kCaptionHeight = 44;
constexpr int kTileWidth = kMargin + kOverviewWidth + kMargin + kCrop + kMargin;
constexpr int kTileHeight = kCaptionHeight + std::max(kOverviewHeight, kCrop) + kMargin + 10;
constexpr int kTitleHeight = 52;
constexpr int kGutter = 8;
constexpr int kMaxCaptionChars = (kTileWidth - 2 * kMargin) / kCellWidth;

constexpr Rgb kBackground{228, 228, 224};
constexpr Rgb kPaper{255, 255, 255};
constexpr Rgb kText{20, 20, 20};
constexpr Rgb kSubtleText{90, 90, 90};
constexpr Rgb kCropFrame{210, 40, 40};
constexpr Rgb kFailure{180, 30, 30};

std::string Fit(std::string text, std::size_t chars) {
  if (text.size() > chars) text = text.substr(0, chars - 3) + "...";
  return text;
}

void Frame(RgbImage& img, int x0, int y0, int w, int h, Rgb c) {
  for (int x = x0; x < x0 + w; ++x) {
    if (x < 0 || x >= img.width) continue;
    if (y0 >= 0 && y0 < img.height) img.at(x, y0) = c;
    if (y0 + h - 1 >= 0 && y0 + h - 1 < img.height) img.at(x, y0 + h - 1) = c;
  }
  for (int y = y0; y < y0 + h; ++y) {
    if (y < 0 || y >= img.height) continue;
    if (x0 >= 0 && x0 < img.width) img.at(x0, y) = c;
    if (x0 + w - 1 >= 0 && x0 + w - 1 < img.width) img.at(x0 + w - 1, y) = c;
  }
}

// Where the 1:1 crop is taken: a little left of and above the middle, which on the built-in
// chart falls in the soft photo-like area with its range of tones.
void CropOrigin(const DotPlanes& dots, int& cx, int& cy) {
  cx = std::clamp(dots.pixels * 3 / 10, 0, std::max(0, dots.pixels - kCrop));
  cy = std::clamp(dots.rows * 3 / 10, 0, std::max(0, dots.rows - kCrop));
}

void DrawTile(RgbImage& sheet, int x0, int y0, const SheetEntry& e, const std::vector<std::string>& inks) {
  for (int y = y0; y < y0 + kTileHeight; ++y)
    for (int x = x0; x < x0 + kTileWidth; ++x) sheet.at(x, y) = kPaper;
  DrawText(sheet, e.method.name, x0 + kMargin, y0 + 8, 2, kText);
  const std::string depth = std::to_string(e.method.output_bits) + "-bit";
  DrawText(sheet, depth, x0 + kTileWidth - kMargin - TextWidth(depth, 2), y0 + 8, 2, kSubtleText);
  DrawText(sheet, Fit(std::string(e.method.family) + ": " + e.method.description, static_cast<std::size_t>(kMaxCaptionChars)),
           x0 + kMargin, y0 + 28, 1, kSubtleText);
  const int top = y0 + kCaptionHeight;
  if (!e.error.empty() || e.dots.planes.empty()) {
    DrawText(sheet, Fit(e.error, static_cast<std::size_t>(kMaxCaptionChars)), x0 + kMargin, top + 20, 1, kFailure);
    return;
  }
  const DotPlanes& d = e.dots;
  const RgbImage print = CompositeInks(d, inks);
  // Reduced view: each sheet pixel averages the ink of the block of dots it covers.
  const int step = std::max({1, (d.pixels + kOverviewWidth - 1) / kOverviewWidth, (d.rows + kOverviewHeight - 1) / kOverviewHeight});
  const int ow = d.pixels / step, oh = d.rows / step;
  for (int oy = 0; oy < oh; ++oy)
    for (int ox = 0; ox < ow; ++ox) {
      int sum[3] = {0, 0, 0};
      for (int y = oy * step; y < (oy + 1) * step; ++y)
        for (int x = ox * step; x < (ox + 1) * step; ++x) {
          const Rgb c = print.at(x, y);
          sum[0] += c.r;
          sum[1] += c.g;
          sum[2] += c.b;
        }
      const int n = step * step;
      auto mean = [n](int total) { return static_cast<std::uint8_t>((total + n / 2) / n); };
      sheet.at(x0 + kMargin + ox, top + oy) = Rgb{mean(sum[0]), mean(sum[1]), mean(sum[2])};
    }
  // The crop at one sheet pixel a dot, and where it came from.
  int cx = 0, cy = 0;
  CropOrigin(d, cx, cy);
  const int cw = std::min(kCrop, d.pixels), ch = std::min(kCrop, d.rows);
  const int crop_x = x0 + kMargin + kOverviewWidth + kMargin;
  for (int y = 0; y < ch; ++y)
    for (int x = 0; x < cw; ++x) sheet.at(crop_x + x, top + y) = print.at(cx + x, cy + y);
  Frame(sheet, crop_x - 1, top - 1, cw + 2, ch + 2, kCropFrame);
  Frame(sheet, x0 + kMargin + cx / step, top + cy / step, std::max(2, cw / step), std::max(2, ch / step), kCropFrame);
  DrawText(sheet, "1:1", crop_x, top + ch + 4, 1, kSubtleText);
}

}  // namespace

RgbImage ContactSheet(const std::vector<SheetEntry>& entries, const std::vector<std::string>& inks,
                      const std::string& title, const std::string& detail, int columns) {
  columns = std::max(1, std::min(columns, static_cast<int>(std::max<std::size_t>(1, entries.size()))));
  const int rows = (static_cast<int>(entries.size()) + columns - 1) / columns;
  RgbImage sheet(kGutter + columns * (kTileWidth + kGutter), kTitleHeight + std::max(1, rows) * (kTileHeight + kGutter),
                 kBackground);
  DrawText(sheet, title, kGutter + 4, 10, 2, kText);
  DrawText(sheet, detail, kGutter + 4, 32, 1, kSubtleText);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const int col = static_cast<int>(i) % columns, row = static_cast<int>(i) / columns;
    DrawTile(sheet, kGutter + col * (kTileWidth + kGutter), kTitleHeight + row * (kTileHeight + kGutter), entries[i], inks);
  }
  return sheet;
}

}  // namespace halftone_tool
