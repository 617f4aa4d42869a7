// A small built-in bitmap font (5 x 7 glyphs in 6 x 8 cells) for the labels the command draws
// into its pictures: chart lettering, contact-sheet captions and tone-plot axes.
#pragma once

#include <cstdint>
#include <string_view>

#include "image_io.h"

namespace halftone_tool {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kCellWidth = 6;   // glyph plus one column of spacing
constexpr int kCellHeight = 8;  // glyph plus one row of spacing

// True when glyph `c` has ink at column `col` (0..4), row `row` (0..6). Characters outside
// printable ASCII draw as a hollow box.
bool GlyphPixel(char c, int col, int row);

// Width in pixels of `text` drawn at `scale` (the last cell's spacing column included).
inline int TextWidth(std::string_view text, int scale) { return static_cast<int>(text.size()) * kCellWidth * scale; }

// Draws `text` with its top-left corner at (x0, y0), each font pixel a `scale` x `scale` square.
// Pixels outside the picture are skipped.
void DrawText(GrayImage& img, std::string_view text, int x0, int y0, int scale, std::uint8_t value);
void DrawText(RgbImage& img, std::string_view text, int x0, int y0, int scale, Rgb colour);

}  // namespace halftone_tool
