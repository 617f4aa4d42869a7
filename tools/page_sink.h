// Dot planes and their preview written a band at a time, so neither is ever held whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "image_io.h"

namespace halftone_tool {

// The dot planes as a multi-page TIFF, one page a plane, at the method's depth (1, 2 or 4 bits
// a pixel), min-is-white: the codes exactly as the method wrote them, 0 = no ink. Page one is
// written as its rows come; the other pages go to files beside it, one each, whose compressed
// strips are copied in behind page one at Close.
class DotTiffStream {
 public:
  DotTiffStream();
  ~DotTiffStream();
  DotTiffStream(const DotTiffStream&) = delete;
  DotTiffStream& operator=(const DotTiffStream&) = delete;

  // `names` name the pages (and give their number); `description` goes into every page.
  std::string Open(const std::string& path, int width, int height, int bits, const std::vector<std::string>& names,
                   const std::string& description);
  // The next dot row of `plane` (the library's row: first pixel in the high bits).
  std::string Row(int plane, const std::uint8_t* row);
  // `count` rows of every plane as a band holds them: row y of plane p at (y * P + p) * stride.
  std::string Band(const std::uint8_t* band, int count, std::size_t stride);
  // Finishes the file. Without a successful Close (or on any error) nothing is left behind.
  std::string Close();

 private:
  struct State;
  std::unique_ptr<State> s_;
};

// The preview of dot planes: every plane's dots drawn as its ink on white paper, each code at its
// share of full ink, inks multiplied as transparent inks do; one plane named "Grey" is drawn
// grey. `scale` N draws each N x N block as its inks averaged. By extension: .png (RGB, or grey
// for one grey plane), .ppm, .pgm or .pbm (luminance, dark below 128).
class PreviewStream {
 public:
  PreviewStream();
  ~PreviewStream();
  PreviewStream(const PreviewStream&) = delete;
  PreviewStream& operator=(const PreviewStream&) = delete;

  std::string Open(const std::string& path, int width, int height, int bits, const std::vector<std::string>& names,
                   int scale = 1);
  std::string Band(const std::uint8_t* band, int count, std::size_t stride);
  std::string Close();

 private:
  struct State;
  std::unique_ptr<State> s_;
};

// The colour of each combination of dot codes, one code a plane (planes named as in
// Picture::names; anything unknown prints black), and of averaged ink shares.
class InkMixer {
 public:
  InkMixer(int bits, const std::vector<std::string>& names);
  // shares[p] in [0, 1]: the share of full ink plane p lays down.
  Rgb Mix(const double* shares) const;
  // Codes of every plane at one pixel; a table when it is small enough.
  Rgb Mix(const unsigned* codes) const;
  unsigned full() const { return full_; }
  // The table of every combination, entry sum of code_p * (full + 1)^p; null when too large.
  const Rgb* table() const { return table_.empty() ? nullptr : table_.data(); }

 private:
  unsigned full_;
  std::vector<Rgb> filters_;
  std::vector<Rgb> table_;  // indexed by codes as digits base full + 1; empty when too large
};

}  // namespace halftone_tool
