// Grey image reading and writing for the halftone command: PGM always, PNG through libpng.
#pragma once

#include <cstdint>
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

// Reads an 8-bit grey PNG (colour PNGs are converted to grey) or a binary PGM (P5). Returns an
// empty string on success, or a message saying what is wrong with the file.
std::string ReadGray(const std::string& path, GrayImage& image);

// Writes by extension: .png (needs libpng), .pgm (P5), .pbm (P4, dark pixels < 128 are 1).
std::string WriteGray(const std::string& path, const GrayImage& image);

bool HavePng();

}  // namespace halftone_tool
