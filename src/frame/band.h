// Band geometry, the flags word and dot packing: what every halftoning routine shares.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace halftone {

// Return codes of the library (mirrored as macros in the public header).
inline constexpr int kOk = 0;
inline constexpr int kErrOpen = 20101;
inline constexpr int kErrShortRead = 20103;
inline constexpr int kErrFault = 20301;
inline constexpr int kErrNoMemory = 20302;
inline constexpr int kErrOutOfContract = 20401;
inline constexpr int kErrNotProvided = 20501;

// Job phases carried in bits 16-23 of the flags word.
inline constexpr unsigned kPhaseStart = 1;
inline constexpr unsigned kPhaseEnd = 3;

// The flags word a host passes with each band: plane count in bits 8-15, job phase in bits
// 16-23. Nothing else in it is read.
struct HalftoneFlags {
  std::uint32_t word = 0;
  constexpr unsigned planes() const { return (word >> 8) & 0xFFu; }
  constexpr unsigned phase() const { return (word >> 16) & 0xFFu; }
};

// Row strides are rounded up to whole 32-bit words, as printer drivers lay out raster rows.
constexpr std::size_t RasterStride(std::size_t w) { return ((w * 8 + 31) >> 5) * 4; }
constexpr std::size_t DotStride(std::size_t w, unsigned bits) { return ((w * bits + 31) >> 5) * 4; }

// One band as a host hands it over: planes interleaved row by row in both buffers.
struct Band {
  const std::uint8_t* src = nullptr;
  std::uint8_t* dst = nullptr;
  std::size_t w = 0;
  std::size_t h = 0;
  unsigned planes = 0;
  unsigned phase = 0;
  std::size_t src_stride = 0;
  std::size_t dst_stride = 0;

  static Band Make(const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                   HalftoneFlags flags, unsigned bits) {
    return {.src = src,
            .dst = dst,
            .w = w,
            .h = h,
            .planes = flags.planes(),
            .phase = flags.phase(),
            .src_stride = RasterStride(w),
            .dst_stride = DotStride(w, bits)};
  }

  // Row y of plane p. Callers never ask for a row past the band.
  const std::uint8_t* In(std::size_t y, unsigned p) const { return src + (y * planes + p) * src_stride; }
  std::uint8_t* Out(std::size_t y, unsigned p) const { return dst + (y * planes + p) * dst_stride; }

  std::size_t dst_bytes() const { return dst_stride * planes * h; }
  void ClearOutput() const {
    if (dst_bytes() != 0) std::memset(dst, 0, dst_bytes());
  }
  bool starts_job() const { return phase == kPhaseStart; }
  bool ends_job() const { return phase == kPhaseEnd; }
};

// Dot packing: codes are OR-ed into a cleared row, first pixel in the high bits of a byte.
inline void PutDot(std::uint8_t* row, std::size_t x) {
  row[x >> 3] = static_cast<std::uint8_t>(row[x >> 3] | (0x80u >> (x & 7)));
}
inline void PutCode2(std::uint8_t* row, std::size_t x, unsigned code) {
  row[x >> 2] = static_cast<std::uint8_t>(row[x >> 2] | (code << (6 - 2 * (x & 3))));
}
inline void PutCode4(std::uint8_t* row, std::size_t x, unsigned code) {
  row[x >> 1] = static_cast<std::uint8_t>(row[x >> 1] | ((x & 1) ? code : code << 4));
}

// Error rows store 16 bits: every store truncates and every read sign-extends.
inline std::int16_t Store16(int v) { return static_cast<std::int16_t>(v); }

}  // namespace halftone
