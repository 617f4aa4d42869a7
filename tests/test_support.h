// Helpers shared by the tests: bands built in code, temporary folders, dot reading.
#pragma once

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace halftone_test {

// A folder under the system temp folder, removed with everything in it at scope exit.
class TempFolder {
 public:
  TempFolder() {
    std::random_device rd;
    path_ = std::filesystem::temp_directory_path() / ("halftone-test-" + std::to_string(rd()) + std::to_string(rd()));
    std::filesystem::create_directories(path_);
  }
  ~TempFolder() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }
  // The folder as the library wants it: ending in a separator.
  std::string with_separator() const { return path_.string() + "/"; }

 private:
  std::filesystem::path path_;
};

inline std::size_t RasterStride(std::size_t w) { return ((w * 8 + 31) >> 5) * 4; }
inline std::size_t DotStride(std::size_t w, unsigned bits) { return ((w * bits + 31) >> 5) * 4; }

// A band of P planes of w x h samples in the interleaved layout, filled from `sample(x, y, p)`.
template <class Fn>
std::vector<std::uint8_t> MakeBand(std::size_t w, std::size_t h, unsigned planes, Fn sample) {
  const std::size_t stride = RasterStride(w);
  std::vector<std::uint8_t> band(stride * planes * h, 0);
  for (std::size_t y = 0; y < h; ++y)
    for (unsigned p = 0; p < planes; ++p)
      for (std::size_t x = 0; x < w; ++x)
        band[(y * planes + p) * stride + x] = static_cast<std::uint8_t>(sample(x, y, p));
  return band;
}

// Seeded noise for bands whose content does not matter, only that it varies.
inline std::vector<std::uint8_t> NoiseBand(std::size_t w, std::size_t h, unsigned planes, unsigned seed) {
  std::mt19937 gen(seed);
  return MakeBand(w, h, planes, [&](std::size_t, std::size_t, unsigned) { return gen() & 0xFF; });
}

// Code of pixel x in a row of `bits` bits a pixel.
inline unsigned CodeAt(const std::uint8_t* row, std::size_t x, unsigned bits) {
  switch (bits) {
    case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1u;
    case 2: return (row[x >> 2] >> (6 - 2 * (x & 3))) & 3u;
    default: return (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 0xFu;
  }
}

inline unsigned Flags(unsigned planes, unsigned phase) { return (planes << 8) | (phase << 16); }

}  // namespace halftone_test
