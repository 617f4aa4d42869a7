// Shared helpers of the double-precision diffusion tests: bands laid out with their strides.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "frame/band.h"
#include "frame/engine.h"
#include "tablediffusion/double_diffusion.h"

namespace halftone::testing {

inline constexpr long long kFixedTime = 1000;

inline std::uint32_t Flags(unsigned planes, unsigned phase) { return (planes << 8) | (phase << 16); }

// A band of `planes` planes, h rows of w pixels, all at `level`.
struct TestBand {
  std::size_t w, h;
  unsigned planes;
  std::vector<std::uint8_t> src, dst;

  TestBand(std::size_t w_, std::size_t h_, unsigned planes_, std::uint8_t level)
      : w(w_), h(h_), planes(planes_), src(RasterStride(w_) * h_ * planes_, 0), dst(DotStride(w_, 1) * h_ * planes_, 0) {
    for (std::size_t y = 0; y < h * planes; ++y)
      for (std::size_t x = 0; x < w; ++x) src[y * RasterStride(w) + x] = level;
  }
  void Set(std::size_t y, unsigned p, std::size_t x, std::uint8_t v) { src[(y * planes + p) * RasterStride(w) + x] = v; }
  const std::uint8_t* DotRow(std::size_t y, unsigned p = 0) const { return dst.data() + (y * planes + p) * DotStride(w, 1); }
  bool Dot(std::size_t y, std::size_t x, unsigned p = 0) const { return (DotRow(y, p)[x >> 3] & (0x80u >> (x & 7))) != 0; }
  double Density() const {
    std::size_t dots = 0;
    for (std::size_t y = 0; y < h; ++y)
      for (unsigned p = 0; p < planes; ++p)
        for (std::size_t x = 0; x < w; ++x) dots += Dot(y, x, p);
    return static_cast<double>(dots) / static_cast<double>(w * h * planes);
  }
  int Run(Engine& e, DoubleMethod m, unsigned phase) {
    return DoubleDiffusion(e, m, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)});
  }
};

inline std::unique_ptr<Engine> FixedEngine() {
  auto e = std::make_unique<Engine>();
  e->clock.SetFixed(kFixedTime);
  return e;
}

}  // namespace halftone::testing
