// Helpers shared by the tests: temporary folders, bands built in code, dot reading, and (library
// suite only) engines with a pinned clock.
#pragma once

#include <concepts>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "halftone/halftone.h"

namespace halftone_test {

inline constexpr std::uint8_t kCanary = 0xEE;

// A fresh folder under the system temp folder, removed with everything in it at scope exit.
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
  // Writes `bytes` to `name` under the folder, making any folders on the way.
  void Write(const std::string& name, const std::vector<std::uint8_t>& bytes) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  void Write(const std::string& name, const std::string& text) const {
    Write(name, std::vector<std::uint8_t>(text.begin(), text.end()));
  }

 private:
  std::filesystem::path path_;
};

inline std::size_t RasterStride(std::size_t w) { return ((w * 8 + 31) >> 5) * 4; }
inline std::size_t DotStride(std::size_t w, unsigned bits) { return ((w * bits + 31) >> 5) * 4; }
inline unsigned Flags(unsigned planes, unsigned phase) { return (planes << 8) | (phase << 16); }

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

inline std::size_t CountBits(const std::vector<std::uint8_t>& bytes) {
  std::size_t n = 0;
  for (std::uint8_t b : bytes) n += static_cast<std::size_t>(__builtin_popcount(b));
  return n;
}

// Expects table[i] == v for every listed {i, v}.
template <class V, class Table>
void ExpectCells(const Table& table, std::initializer_list<std::pair<int, V>> cells) {
  for (auto [i, v] : cells) EXPECT_EQ(table[static_cast<std::size_t>(i)], v) << "cell " << i;
}

}  // namespace halftone_test

#if __has_include("frame/engine.h")
#include "frame/engine.h"

namespace halftone_test {

// An engine of a test's own (large, so on the heap) with its clock pinned.
inline std::unique_ptr<halftone::Engine> MakeEngine(long long seconds = 1002) {
  auto e = std::make_unique<halftone::Engine>();
  e->clock.SetFixed(seconds);
  return e;
}

// Selects flat curves: curve A all `a`, curve B all `b`.
inline void SetFlatCurves(halftone::Engine& e, int a, int b) {
  e.curves.slots[1].fill(static_cast<std::uint8_t>(a));
  e.curves.slots[2].fill(static_cast<std::uint8_t>(b));
  e.curves.curve_a = 1;
  e.curves.curve_b = 2;
}

// A band and its dot buffer (pre-filled with the canary: routines must clear it), with
// readers for its dots.
struct TestBand {
  std::size_t w, h;
  unsigned planes, bits;
  std::vector<std::uint8_t> src, dst;

  template <std::invocable<std::size_t, std::size_t, unsigned> Fn>
  TestBand(std::size_t w_, std::size_t h_, unsigned planes_, Fn sample, unsigned bits_ = 1)
      : w(w_), h(h_), planes(planes_), bits(bits_), src(MakeBand(w_, h_, planes_, sample)),
        dst(DotStride(w_, bits_) * h_ * planes_, kCanary) {}
  TestBand(std::size_t w_, std::size_t h_, unsigned planes_, int level, unsigned bits_ = 1)
      : TestBand(w_, h_, planes_, [level](std::size_t, std::size_t, unsigned) { return level; }, bits_) {}

  const std::uint8_t* DotRow(std::size_t y, unsigned p = 0) const {
    return dst.data() + (y * planes + p) * DotStride(w, bits);
  }
  unsigned Code(std::size_t y, std::size_t x, unsigned p = 0) const { return CodeAt(DotRow(y, p), x, bits); }
  bool Dot(std::size_t y, std::size_t x, unsigned p = 0) const { return Code(y, x, p) != 0; }
  double Density() const {
    std::size_t dots = 0;
    for (std::size_t y = 0; y < h; ++y)
      for (unsigned p = 0; p < planes; ++p)
        for (std::size_t x = 0; x < w; ++x) dots += Dot(y, x, p);
    return static_cast<double>(dots) / static_cast<double>(w * h * planes);
  }
  // Runs `fn(src, dst, w, h, flags)` on the band as a band of job phase `phase`.
  template <class Fn>
  int Run(Fn fn, unsigned phase) {
    return fn(src.data(), dst.data(), w, h, halftone::HalftoneFlags{Flags(planes, phase)});
  }
};

}  // namespace halftone_test
#endif
