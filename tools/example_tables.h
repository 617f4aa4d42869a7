// Example screening files: threshold bitmaps, pattern stacks and a layer table in the formats the
// loaders read. The halftone command writes them so every screen can be previewed without a
// host's files; the tests and the fuzzing seeds use them as known-good input. Header-only and
// standard-library-only, so the command can build it without the engine.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

namespace halftone::examples {

inline constexpr int kSide = 256;
using Thresholds = std::vector<std::uint8_t>;  // kSide x kSide, row-major
using Ranks = std::vector<std::uint16_t>;      // kSide x kSide, each of 0..65535 once

// Ordered-dither ranks of a 256 x 256 tile: the doubling D2n = [[4Dn, 4Dn+2], [4Dn+3, 4Dn+1]].
inline Ranks DispersedRanks() {
  Ranks m(1, 0);
  for (int size = 1; size < kSide; size *= 2) {
    Ranks next(static_cast<std::size_t>(4 * size * size));
    constexpr int kAdd[2][2] = {{0, 2}, {3, 1}};
    for (int y = 0; y < 2 * size; ++y)
      for (int x = 0; x < 2 * size; ++x)
        next[static_cast<std::size_t>(y * 2 * size + x)] = static_cast<std::uint16_t>(
            4 * m[static_cast<std::size_t>((y % size) * size + x % size)] + kAdd[y / size][x / size]);
    m = std::move(next);
  }
  return m;
}

// Dispersed thresholds: the ranks scaled to bytes, every value held by 256 cells.
inline Thresholds DispersedThresholds() {
  const Ranks r = DispersedRanks();
  Thresholds t(r.size());
  for (std::size_t i = 0; i < r.size(); ++i) t[i] = static_cast<std::uint8_t>(r[i] >> 8);
  return t;
}

// Clustered thresholds: round dots on a 16-pixel grid. A dot is printed where the sample is at or
// below the threshold, so cells nearest a dot centre get the highest thresholds and ink first.
inline Thresholds ClusteredThresholds() {
  constexpr int kCell = 16;
  std::array<int, kCell * kCell> order{};
  std::iota(order.begin(), order.end(), 0);
  auto distance = [](int i) {
    const int dx = 2 * (i % kCell) - (kCell - 1), dy = 2 * (i / kCell) - (kCell - 1);
    return dx * dx + dy * dy;
  };
  // By distance from the centre; ties keep scan order.
  std::stable_sort(order.begin(), order.end(), [&](int i, int j) { return distance(i) < distance(j); });
  std::array<std::uint8_t, kCell * kCell> cell{};
  for (std::size_t rank = 0; rank < order.size(); ++rank)
    cell[static_cast<std::size_t>(order[rank])] = static_cast<std::uint8_t>(255 - rank);
  Thresholds t(static_cast<std::size_t>(kSide * kSide));
  for (int y = 0; y < kSide; ++y)
    for (int x = 0; x < kSide; ++x)
      t[static_cast<std::size_t>(y * kSide + x)] = cell[static_cast<std::size_t>((y % kCell) * kCell + x % kCell)];
  return t;
}

inline void PutLe(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) out[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
}

// An uncompressed 8-bit bitmap file with a grey palette; rows are stored bottom-up. `width` must
// be a multiple of 4 (no row padding is written).
inline std::vector<std::uint8_t> BitmapFile(const std::vector<std::uint8_t>& pixels, int width, int height) {
  constexpr std::size_t kHeaders = 14 + 40, kPalette = 256 * 4;
  const std::size_t offset = kHeaders + kPalette;
  std::vector<std::uint8_t> f(offset + pixels.size());
  f[0] = 'B';
  f[1] = 'M';
  PutLe(f, 2, static_cast<std::uint32_t>(f.size()), 4);
  PutLe(f, 10, static_cast<std::uint32_t>(offset), 4);
  PutLe(f, 14, 40, 4);
  PutLe(f, 18, static_cast<std::uint32_t>(width), 4);
  PutLe(f, 22, static_cast<std::uint32_t>(height), 4);
  PutLe(f, 26, 1, 2);   // planes
  PutLe(f, 28, 8, 2);   // bits a pixel
  PutLe(f, 34, static_cast<std::uint32_t>(pixels.size()), 4);
  PutLe(f, 46, 256, 4); // palette entries
  for (std::size_t i = 0; i < 256; ++i)
    for (std::size_t c = 0; c < 3; ++c) f[kHeaders + 4 * i + c] = static_cast<std::uint8_t>(i);
  for (int i = 0; i < height; ++i)
    for (int x = 0; x < width; ++x)
      f[offset + static_cast<std::size_t>(i * width + x)] = pixels[static_cast<std::size_t>((height - 1 - i) * width + x)];
  return f;
}

// A headerless stack of 256 patterns of a x b pixels at 1 or 2 bits, lightest first: file
// pattern k covers k/255 of the area (1 bit) or k/255 of the full three drop sizes (2 bits),
// placed in dispersed order.
inline std::vector<std::uint8_t> PatternStackFile(int bits, int a, int b) {
  const Ranks ranks = DispersedRanks();
  const int row_bytes = a * bits / 8;
  const int levels = (1 << bits) - 1;
  std::vector<std::uint8_t> f(static_cast<std::size_t>(256 * b * row_bytes));
  std::size_t at = 0;
  for (int k = 0; k < 256; ++k)
    for (int y = 0; y < b; ++y, at += static_cast<std::size_t>(row_bytes))
      for (int x = 0; x < a; ++x) {
        const std::int64_t rank = ranks[static_cast<std::size_t>(y * kSide + x)];
        int units = 0;
        for (int j = 0; j < levels; ++j)
          if ((rank + std::int64_t{j} * 65536) * 255 < std::int64_t{levels} * k * 65536) ++units;
        const int shift = 8 - bits * (x % (8 / bits) + 1);
        f[at + static_cast<std::size_t>(x * bits / 8)] |= static_cast<std::uint8_t>(units << shift);
      }
  return f;
}

// A layer table: per input level a 16 x 16 ordered texture, strongest in the mid-tones, listed
// column by column, one layer a line, every number followed by a space and the file by CR LF.
inline std::string LayerTableText() {
  const Ranks ranks = DispersedRanks();
  std::string text;
  for (int v = 0; v < 256; ++v) {
    for (int col = 0; col < 16; ++col)
      for (int row = 0; row < 16; ++row) {
        const int rank = ranks[static_cast<std::size_t>(row * kSide + col)] >> 8;  // 0..255 in a 16 x 16 tile
        const int value = (rank - 128) * v * (255 - v) / (128 * 255);
        text += std::to_string(value);
        text += ' ';
      }
    text += "\r\n";
  }
  return text;
}

}  // namespace halftone::examples
