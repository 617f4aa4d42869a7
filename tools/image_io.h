// Grey image reading and writing for the halftone command: PGM always, PNG through libpng.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace halftone_tool {

struct GrayImage {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;  // row-major, width bytes a row

  std::uint8_t& at(int x, int y) { return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)]; }
  std::uint8_t at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)]; }
};

struct Rgb {
  std::uint8_t r = 255, g = 255, b = 255;
  bool operator==(const Rgb&) const = default;
};

// A colour picture for previews, contact sheets and plots.
struct RgbImage {
  int width = 0;
  int height = 0;
  std::vector<Rgb> pixels;  // row-major

  RgbImage() = default;
  RgbImage(int w, int h, Rgb fill) : width(w), height(h), pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), fill) {}
  Rgb& at(int x, int y) { return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)]; }
  Rgb at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)]; }
};

// Reads an 8-bit grey PNG (colour PNGs are converted to grey) or a binary PGM (P5). Returns an
// empty string on success, or a message saying what is wrong with the file.
std::string ReadGray(const std::string& path, GrayImage& image);

// A binary PGM (P5) read a band of rows at a time, so a picture need not be held whole.
class PgmRows {
 public:
  // Opens `path` and reads its header. Returns an empty string, or what is wrong with the file
  // in the words ReadGray uses (a short file is found here, before any row is read).
  std::string Open(const std::string& path);
  int width() const { return width_; }
  int height() const { return height_; }
  // Reads the next `count` rows, their first byte `stride` bytes apart.
  std::string Read(std::uint8_t* rows, int count, std::size_t stride);

 private:
  std::ifstream in_;
  std::string path_;
  int width_ = 0;
  int height_ = 0;
};

// True when `path` opens and starts as a binary PGM ("P5").
bool IsBinaryPgm(const std::string& path);

// Writes by extension: .png (needs libpng), .pgm (P5), .pbm (P4, dark pixels < 128 are 1).
std::string WriteGray(const std::string& path, const GrayImage& image);

// Writes by extension: .png (needs libpng), .ppm (P6); .pgm and .pbm get the picture's
// luminance.
std::string WriteRgb(const std::string& path, const RgbImage& image);

// Reads an 8-bit PNG of any colour type as RGB (alpha composited onto white paper). Empty string
// on success; `is_colour` tells whether the file holds colour or only grey.
std::string ReadRgbPng(const std::string& path, RgbImage& image, bool& is_colour);

// True when `path` ends in `tail`, ignoring case.
bool HasExtension(const std::string& path, const std::string& tail);

bool HavePng();

}  // namespace halftone_tool
