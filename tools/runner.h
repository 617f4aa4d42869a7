// Runs a library method over whole images the way a print host does: band by band, planes
// interleaved, through the exported entry points.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "halftone/halftone.h"
#include "image_io.h"

namespace halftone_tool {

std::vector<halftone_method_info> ListMethods();
// Finds a method by export name (case-sensitive); false if the library has none of that name.
bool FindMethod(const std::string& name, halftone_method_info& info);

struct RunOptions {
  int mode = 0;
  std::string levels;       // level-values list as the host passes it ("0,85,170,255,")
  int band_rows = 64;
  long long fixed_time = -1;  // < 0: the library's clock
  bool overlap = false;       // streamed runs: read and write beside the library (RunMethodStreamed)
  // Told after every band (or whole plane) how many of the picture's plane rows are done.
  std::function<void(long long done, long long total)> on_progress;
};

// The largest code of each depth: a 1-bit dot, the 2-bit largest drop, the eighth drop size.
inline unsigned FullCode(int bits) { return bits == 1 ? 1u : bits == 2 ? 3u : 7u; }

// The code of pixel x in a dot row of `bits` bits a pixel (first pixel in the high bits).
inline unsigned CodeAt(const std::uint8_t* row, int bits, int x) {
  switch (bits) {
    case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1u;
    case 2: return (row[x >> 2] >> (6 - 2 * (x & 3))) & 3u;
    default: return (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 7u;
  }
}

// Dot planes as a method wrote them, one buffer per plane, `rows` rows of `stride` bytes.
struct DotPlanes {
  int bits = 1;
  int pixels = 0;  // pixels a row
  int rows = 0;
  std::size_t stride = 0;
  std::vector<std::vector<std::uint8_t>> planes;

  unsigned Code(int plane, int x, int y) const;
};

// Sets up tone curves and levels, then halftones `planes` (all the same size) as one job.
// Returns an empty string, or a message naming what failed.
std::string RunMethod(const halftone_method_info& method, const std::vector<GrayImage>& planes,
                      const RunOptions& options, DotPlanes& out);

// True for the methods that take bands with a flags word (the others take whole planes).
bool Banded(const halftone_method_info& method);

// Planes streamed band by band instead of held whole: `read(band, count, stride)` fills the
// next `count` rows of every plane (row y of plane p at band + (y * planes + p) * stride; the
// padding stays as it is), and each sink (band, count, stride) takes the next `count` dot rows
// laid out the same way. Each returns an empty string or what failed. With `overlap`, the reader
// and every sink run on threads of their own, up to two bands ahead of and behind the library;
// each callback is still called in band order, from one thread. Banded methods only; the dots
// are those RunMethod gives.
using BandSource = std::function<std::string(std::uint8_t* band, int count, std::size_t stride)>;
using BandSink = std::function<std::string(const std::uint8_t* band, int count, std::size_t stride)>;
std::string RunMethodStreamed(const halftone_method_info& method, int width, int height, int planes,
                              const RunOptions& options, const BandSource& read, const std::vector<BandSink>& sinks);

// Draws one dot plane as ink on paper: each code as its share of full ink.
GrayImage PreviewPlane(const DotPlanes& dots, int plane);

}  // namespace halftone_tool
