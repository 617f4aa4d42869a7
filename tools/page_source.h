// Pictures read a band of rows at a time, so a page is never held whole: PGM and PNG by rows,
// TIFF by strips or tiles, JPEG by scanlines. Rows come out as the library's ink planes in
// lightness sense (0 = full ink), interleaved as a band hands them to a method.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace halftone_tool {

struct Picture;

// How the samples of a file's pixel become ink planes.
enum class SampleKind {
  kGrey,         // one sample, lightness as it is (PGM, PNG, min-is-black TIFF, grey JPEG)
  kGreyInverted, // one sample, 0 = white (min-is-white TIFF)
  kRgb,          // three samples separated into C, M, Y, K by SeparateRgb
  kCmyk,         // four ink amounts, 0 = no ink
  kCmykInverted, // four ink amounts stored as 255 - amount (Adobe's CMYK JPEG)
};

// Planes a pixel of `kind` gives: four for colour, one for grey.
int PlanesOf(SampleKind kind);

// Splits `width` pixels of `kind`, `step` bytes apart (the file's samples a pixel), into the
// planes' rows: plane p's row starts at planes + p * plane_stride.
void SplitRow(SampleKind kind, const std::uint8_t* pixels, int step, int width, std::uint8_t* planes,
              std::size_t plane_stride);

class PageSource {
 public:
  virtual ~PageSource() = default;
  int width() const { return width_; }
  int height() const { return height_; }
  int planes() const { return static_cast<int>(names_.size()); }
  // "Cyan", "Magenta", "Yellow", "Black", or "Grey" for a one-plane picture.
  const std::vector<std::string>& names() const { return names_; }
  // Reads the next `count` rows into a band: row y of plane p starts at band + (y * P + p) *
  // stride (P = planes()). Returns an empty string, or what is wrong with the file.
  virtual std::string Read(std::uint8_t* band, int count, std::size_t stride) = 0;

 protected:
  void SetShape(int width, int height, SampleKind kind);
  int width_ = 0;
  int height_ = 0;
  std::vector<std::string> names_;
};

// Opens a picture by its content (PNG, TIFF, JPEG or binary PGM). Returns an empty string, or a
// message naming the file and what is wrong with it.
std::string OpenPage(const std::string& path, std::unique_ptr<PageSource>& source);

// A picture already in memory, handed out a band at a time.
std::unique_ptr<PageSource> PictureSource(const Picture& picture);

// Reads every row of `source` into whole planes.
std::string ReadAll(PageSource& source, Picture& picture);

bool HaveJpeg();
// The JPEG reader (jpeg_source.cpp): what OpenPage uses for a JPEG file.
std::string OpenJpegPage(const std::string& path, std::unique_ptr<PageSource>& source);

}  // namespace halftone_tool
