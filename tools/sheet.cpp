#include "sheet.h"

#include <algorithm>

#include "draw.h"
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
constexpr double kNameSize = 17;
constexpr double kCaptionSize = 11.5;
constexpr double kTitleSize = 20;

constexpr Rgb kBackground{228, 228, 224};
constexpr Rgb kPaper{255, 255, 255};
constexpr Rgb kText{20, 20, 20};
constexpr Rgb kSubtleText{90, 90, 90};
constexpr Rgb kCropFrame{210, 40, 40};
constexpr Rgb kFailure{180, 30, 30};

// Where the 1:1 crop is taken: a little left of and above the middle, which on the built-in
// chart falls in the soft photo-like area with its range of tones.
void CropOrigin(const DotPlanes& dots, int& cx, int& cy) {
  cx = std::clamp(dots.pixels * 3 / 10, 0, std::max(0, dots.pixels - kCrop));
  cy = std::clamp(dots.rows * 3 / 10, 0, std::max(0, dots.rows - kCrop));
}

void DrawTile(Canvas& sheet, int x0, int y0, const SheetEntry& e, const std::vector<std::string>& inks) {
  sheet.Rect(x0, y0, kTileWidth, kTileHeight, kPaper);
  sheet.Text(x0 + kMargin, y0 + 20, e.method.name, kNameSize, kText, Align::kLeft, true);
  sheet.Text(x0 + kTileWidth - kMargin, y0 + 20, std::to_string(e.method.output_bits) + "-bit", kNameSize, kSubtleText,
             Align::kRight);
  const double caption_width = kTileWidth - 2 * kMargin;
  sheet.Text(x0 + kMargin, y0 + 37, sheet.Fit(std::string(e.method.family) + ": " + e.method.description, kCaptionSize, caption_width),
             kCaptionSize, kSubtleText);
  const int top = y0 + kCaptionHeight;
  if (!e.error.empty() || e.dots.planes.empty()) {
    sheet.Text(x0 + kMargin, top + 20, sheet.Fit(e.error, kCaptionSize, caption_width), kCaptionSize, kFailure);
    return;
  }
  const DotPlanes& d = e.dots;
  const RgbImage print = CompositeInks(d, inks);
  // Reduced view: each sheet pixel averages the ink of the block of dots it covers.
  const int step = std::max({1, (d.pixels + kOverviewWidth - 1) / kOverviewWidth, (d.rows + kOverviewHeight - 1) / kOverviewHeight});
  RgbImage overview(d.pixels / step, d.rows / step, kPaper);
  for (int oy = 0; oy < overview.height; ++oy)
    for (int ox = 0; ox < overview.width; ++ox) {
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
      overview.at(ox, oy) = Rgb{mean(sum[0]), mean(sum[1]), mean(sum[2])};
    }
  sheet.Blit(overview, x0 + kMargin, top);
  // The crop at one sheet pixel a dot, and where it came from.
  int cx = 0, cy = 0;
  CropOrigin(d, cx, cy);
  const int cw = std::min(kCrop, d.pixels), ch = std::min(kCrop, d.rows);
  RgbImage crop(cw, ch, kPaper);
  for (int y = 0; y < ch; ++y)
    for (int x = 0; x < cw; ++x) crop.at(x, y) = print.at(cx + x, cy + y);
  const int crop_x = x0 + kMargin + kOverviewWidth + kMargin;
  sheet.Blit(crop, crop_x, top);
  sheet.Frame(crop_x - 0.5, top - 0.5, cw + 1, ch + 1, 1, kCropFrame);
  sheet.Frame(x0 + kMargin + cx / step + 0.5, top + cy / step + 0.5, std::max(2, cw / step), std::max(2, ch / step), 1, kCropFrame);
  sheet.Text(crop_x, top + ch + 14, "1:1", kCaptionSize, kSubtleText);
}

}  // namespace

RgbImage ContactSheet(const std::vector<SheetEntry>& entries, const std::vector<std::string>& inks,
                      const std::string& title, const std::string& detail, int columns) {
  columns = std::max(1, std::min(columns, static_cast<int>(std::max<std::size_t>(1, entries.size()))));
  const int rows = (static_cast<int>(entries.size()) + columns - 1) / columns;
  Canvas sheet(kGutter + columns * (kTileWidth + kGutter), kTitleHeight + std::max(1, rows) * (kTileHeight + kGutter),
               kBackground);
  sheet.Text(kGutter + 4, 26, sheet.Fit(title, kTitleSize, sheet.width() - 2 * kGutter, true), kTitleSize, kText, Align::kLeft, true);
  sheet.Text(kGutter + 4, 44, sheet.Fit(detail, kCaptionSize, sheet.width() - 2 * kGutter), kCaptionSize, kSubtleText);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const int col = static_cast<int>(i) % columns, row = static_cast<int>(i) / columns;
    DrawTile(sheet, kGutter + col * (kTileWidth + kGutter), kTitleHeight + row * (kTileHeight + kGutter), entries[i], inks);
  }
  return sheet.ToRgb();
}

}  // namespace halftone_tool
