#include "draw.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#ifndef HALFTONE_HAVE_CAIRO
#define HALFTONE_HAVE_CAIRO 0
#endif
#if HALFTONE_HAVE_CAIRO
#include <cairo.h>
#endif

namespace halftone_tool {
namespace {

constexpr const char* kFace = "DejaVu Sans";  // fontconfig falls back to any sans face

}  // namespace

bool HaveDrawing() { return HALFTONE_HAVE_CAIRO != 0; }

const std::vector<Rgb>& CurveColours() {
  // Okabe and Ito's palette (black last), readable by the colour-blind.
  static const std::vector<Rgb> colours = {{0, 114, 178}, {213, 94, 0}, {0, 158, 115}, {204, 121, 167},
                                           {230, 159, 0}, {86, 180, 233}, {240, 228, 66}, {0, 0, 0}};
  return colours;
}

#if HALFTONE_HAVE_CAIRO

struct Canvas::Impl {
  cairo_surface_t* surface = nullptr;
  cairo_t* cr = nullptr;
  ~Impl() {
    if (cr) cairo_destroy(cr);
    if (surface) cairo_surface_destroy(surface);
  }
  void Colour(Rgb c) const { cairo_set_source_rgb(cr, c.r / 255.0, c.g / 255.0, c.b / 255.0); }
  void Font(double size, bool bold) const {
    cairo_select_font_face(cr, kFace, CAIRO_FONT_SLANT_NORMAL, bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
  }
};

Canvas::Canvas(int width, int height, Rgb background) : impl_(std::make_unique<Impl>()), width_(width), height_(height) {
  impl_->surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  impl_->cr = cairo_create(impl_->surface);
  Rect(0, 0, width, height, background);
}

Canvas::~Canvas() = default;

double Canvas::TextWidth(const std::string& text, double size, bool bold) const {
  impl_->Font(size, bold);
  cairo_text_extents_t e;
  cairo_text_extents(impl_->cr, text.c_str(), &e);
  return e.x_advance;
}

double Canvas::Text(double x, double y, const std::string& text, double size, Rgb colour, Align align, bool bold) {
  const double w = TextWidth(text, size, bold);
  if (align == Align::kCentre) x -= w / 2;
  if (align == Align::kRight) x -= w;
  impl_->Colour(colour);
  cairo_move_to(impl_->cr, x, y);
  cairo_show_text(impl_->cr, text.c_str());
  return w;
}

std::string Canvas::Fit(const std::string& text, double size, double width, bool bold) const {
  if (TextWidth(text, size, bold) <= width) return text;
  std::string cut = text;
  while (!cut.empty() && TextWidth(cut + "...", size, bold) > width) cut.pop_back();
  return cut + "...";
}

void Canvas::TextUp(double x, double y, const std::string& text, double size, Rgb colour) {
  cairo_save(impl_->cr);
  cairo_translate(impl_->cr, x, y);
  cairo_rotate(impl_->cr, -M_PI / 2);
  Text(0, 0, text, size, colour, Align::kCentre);
  cairo_restore(impl_->cr);
}

void Canvas::Line(double x0, double y0, double x1, double y1, double width, Rgb colour, double dash) {
  Polyline({x0, x1}, {y0, y1}, width, colour, dash);
}

void Canvas::Polyline(const std::vector<double>& x, const std::vector<double>& y, double width, Rgb colour, double dash) {
  if (x.size() < 2 || y.size() != x.size()) return;
  cairo_t* cr = impl_->cr;
  cairo_save(cr);
  impl_->Colour(colour);
  cairo_set_line_width(cr, width);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  if (dash > 0) cairo_set_dash(cr, &dash, 1, 0);
  cairo_move_to(cr, x[0], y[0]);
  for (std::size_t i = 1; i < x.size(); ++i) cairo_line_to(cr, x[i], y[i]);
  cairo_stroke(cr);
  cairo_restore(cr);
}

void Canvas::Rect(double x, double y, double w, double h, Rgb fill) {
  impl_->Colour(fill);
  cairo_rectangle(impl_->cr, x, y, w, h);
  cairo_fill(impl_->cr);
}

void Canvas::Frame(double x, double y, double w, double h, double width, Rgb colour) {
  cairo_save(impl_->cr);
  impl_->Colour(colour);
  cairo_set_line_width(impl_->cr, width);
  cairo_rectangle(impl_->cr, x, y, w, h);
  cairo_stroke(impl_->cr);
  cairo_restore(impl_->cr);
}

void Canvas::Blit(const RgbImage& image, int x0, int y0) {
  cairo_surface_flush(impl_->surface);
  unsigned char* data = cairo_image_surface_get_data(impl_->surface);
  const int stride = cairo_image_surface_get_stride(impl_->surface);
  for (int y = std::max(0, -y0); y < image.height && y0 + y < height_; ++y)
    for (int x = std::max(0, -x0); x < image.width && x0 + x < width_; ++x) {
      const Rgb c = image.at(x, y);
      // RGB24 keeps a pixel as a native-endian 32-bit word 0x00RRGGBB.
      const std::uint32_t word = (std::uint32_t{c.r} << 16) | (std::uint32_t{c.g} << 8) | c.b;
      std::memcpy(data + static_cast<std::ptrdiff_t>(y0 + y) * stride + static_cast<std::ptrdiff_t>(x0 + x) * 4, &word, 4);
    }
  cairo_surface_mark_dirty(impl_->surface);
}

RgbImage Canvas::ToRgb() const {
  cairo_surface_flush(impl_->surface);
  const unsigned char* data = cairo_image_surface_get_data(impl_->surface);
  const int stride = cairo_image_surface_get_stride(impl_->surface);
  RgbImage out(width_, height_, Rgb{});
  for (int y = 0; y < height_; ++y)
    for (int x = 0; x < width_; ++x) {
      std::uint32_t word = 0;
      std::memcpy(&word, data + static_cast<std::ptrdiff_t>(y) * stride + static_cast<std::ptrdiff_t>(x) * 4, 4);
      out.at(x, y) = Rgb{static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 8), static_cast<std::uint8_t>(word)};
    }
  return out;
}

void DrawLettering(GrayImage& image, const std::string& text, int x, int y, double size, std::uint8_t value) {
  // The letters' coverage as an alpha mask, then laid on the picture at their grey.
  cairo_surface_t* mask = cairo_image_surface_create(CAIRO_FORMAT_A8, image.width, image.height);
  cairo_t* cr = cairo_create(mask);
  cairo_select_font_face(cr, kFace, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(cr, size);
  cairo_move_to(cr, x, y);
  cairo_show_text(cr, text.c_str());
  cairo_destroy(cr);
  cairo_surface_flush(mask);
  const unsigned char* a = cairo_image_surface_get_data(mask);
  const int stride = cairo_image_surface_get_stride(mask);
  for (int py = 0; py < image.height; ++py)
    for (int px = 0; px < image.width; ++px) {
      const int cover = a[static_cast<std::ptrdiff_t>(py) * stride + px];
      if (cover == 0) continue;
      std::uint8_t& p = image.at(px, py);
      p = static_cast<std::uint8_t>((p * (255 - cover) + value * cover + 127) / 255);
    }
  cairo_surface_destroy(mask);
}

#else

struct Canvas::Impl {};
Canvas::Canvas(int width, int height, Rgb) : impl_(std::make_unique<Impl>()), width_(width), height_(height) {}
Canvas::~Canvas() = default;
double Canvas::Text(double, double, const std::string&, double, Rgb, Align, bool) { return 0; }
double Canvas::TextWidth(const std::string&, double, bool) const { return 0; }
std::string Canvas::Fit(const std::string& text, double, double, bool) const { return text; }
void Canvas::TextUp(double, double, const std::string&, double, Rgb) {}
void Canvas::Line(double, double, double, double, double, Rgb, double) {}
void Canvas::Polyline(const std::vector<double>&, const std::vector<double>&, double, Rgb, double) {}
void Canvas::Rect(double, double, double, double, Rgb) {}
void Canvas::Frame(double, double, double, double, double, Rgb) {}
void Canvas::Blit(const RgbImage&, int, int) {}
RgbImage Canvas::ToRgb() const { return RgbImage(width_, height_, Rgb{}); }
void DrawLettering(GrayImage&, const std::string&, int, int, double, std::uint8_t) {}

#endif

}  // namespace halftone_tool
