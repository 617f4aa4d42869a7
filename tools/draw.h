// Drawing for the command's pictures (contact sheet, tone and analysis plots, chart lettering)
// through cairo, with a sans-serif face found by fontconfig. Without cairo, HaveDrawing() is
// false and the subcommands that draw are left out.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "image_io.h"

namespace halftone_tool {

bool HaveDrawing();

// Colours far enough apart to tell eight curves from each other (a colour-blind-safe set).
const std::vector<Rgb>& CurveColours();

enum class Align { kLeft, kCentre, kRight };

class Canvas {
 public:
  Canvas(int width, int height, Rgb background);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  int width() const { return width_; }
  int height() const { return height_; }

  // Text with its baseline at y; `size` in pixels. Returns the width drawn.
  double Text(double x, double y, const std::string& text, double size, Rgb colour, Align align = Align::kLeft,
              bool bold = false);
  double TextWidth(const std::string& text, double size, bool bold = false) const;
  // Text cut with "..." to fit `width` pixels.
  std::string Fit(const std::string& text, double size, double width, bool bold = false) const;
  // Text turned a quarter anticlockwise, centred on (x, y).
  void TextUp(double x, double y, const std::string& text, double size, Rgb colour);

  void Line(double x0, double y0, double x1, double y1, double width, Rgb colour, double dash = 0);
  // A line through every point (x[i], y[i]).
  void Polyline(const std::vector<double>& x, const std::vector<double>& y, double width, Rgb colour, double dash = 0);
  void Rect(double x, double y, double w, double h, Rgb fill);
  void Frame(double x, double y, double w, double h, double width, Rgb colour);
  // Pixels of `image` with their top left at (x, y), unscaled.
  void Blit(const RgbImage& image, int x, int y);

  RgbImage ToRgb() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  int width_, height_;
};

// Draws `text` into a grey picture, dark on light or light on dark (`value` the grey of its
// letters), baseline at y, `size` pixels high, as chart lettering.
void DrawLettering(GrayImage& image, const std::string& text, int x, int y, double size, std::uint8_t value);

}  // namespace halftone_tool
