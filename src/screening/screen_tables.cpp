// The built-in 16 x 16 amplitude-screen matrices and their invariants.
#include "screening/screen_tables.h"

namespace halftone {

namespace {

using HalfTile = std::array<std::array<std::uint8_t, kBayerSize>, kBayerSize / 2>;

// Rows 8-15 repeat rows 0-7 turned by half a tile (row `odd_row` by `odd_turn` places instead),
// so the two dots of the tile interleave.
constexpr Matrix16 WithTurnedLowerHalf(const HalfTile& top, std::size_t odd_row = kBayerSize,
                                       std::size_t odd_turn = 0) {
  constexpr std::size_t kHalf = kBayerSize / 2;
  Matrix16 m{};
  for (std::size_t r = 0; r < kHalf; ++r)
    for (std::size_t c = 0; c < kBayerSize; ++c) {
      const std::size_t turn = r + kHalf == odd_row ? odd_turn : kHalf;
      m[r][c] = top[r][c];
      m[r + kHalf][c] = top[r][(c + turn) % kBayerSize];
    }
  return m;
}

constexpr Matrix16 kDispersed = WithTurnedLowerHalf({{
    {64, 7, 51, 41, 42, 52, 60, 61, 65, 70, 78, 88, 87, 77, 69, 68},
    {58, 34, 115, 20, 124, 13, 35, 53, 71, 3, 99, 17, 101, 57, 94, 76},
    {50, 27, 90, 117, 29, 6, 121, 30, 79, 102, 28, 116, 12, 113, 9, 84},
    {40, 66, 47, 74, 95, 46, 21, 43, 14, 111, 19, 125, 24, 119, 26, 86},
    {39, 109, 45, 1, 128, 22, 104, 10, 112, 8, 123, 127, 2, 118, 107, 85},
    {49, 108, 59, 110, 89, 93, 31, 120, 44, 80, 38, 122, 16, 114, 98, 83},
    {100, 33, 25, 126, 23, 32, 36, 54, 72, 96, 11, 105, 106, 97, 15, 75},
    {63, 56, 48, 103, 37, 5, 55, 62, 18, 73, 81, 91, 92, 82, 4, 67},
}}, 13, 9);

constexpr Matrix16 kClustered = WithTurnedLowerHalf({{
    {64, 59, 51, 41, 42, 52, 60, 61, 65, 70, 78, 88, 87, 77, 69, 68},
    {58, 34, 28, 19, 20, 29, 35, 53, 71, 95, 101, 110, 109, 100, 94, 76},
    {50, 27, 14, 12, 13, 16, 30, 45, 79, 102, 115, 117, 116, 113, 99, 84},
    {40, 18, 5, 4, 3, 10, 21, 43, 89, 111, 124, 125, 126, 119, 108, 86},
    {39, 17, 6, 1, 2, 11, 22, 44, 90, 112, 123, 128, 127, 118, 107, 85},
    {49, 26, 9, 7, 8, 15, 31, 46, 80, 103, 120, 122, 121, 114, 98, 83},
    {57, 33, 25, 24, 23, 32, 36, 54, 72, 96, 104, 105, 106, 97, 93, 75},
    {63, 56, 48, 38, 37, 47, 55, 62, 66, 73, 81, 91, 92, 82, 74, 67},
}});

// Every value 1..128 sits in exactly two cells, so each level step adds the same dot area.
constexpr bool EachValueTwice(const Matrix16& m) {
  std::array<int, 129> count{};
  for (const auto& row : m)
    for (std::uint8_t v : row) {
      if (v < 1 || v > 128) return false;
      ++count[v];
    }
  for (int v = 1; v <= 128; ++v)
    if (count[static_cast<std::size_t>(v)] != 2) return false;
  return true;
}

// The clustered tile is point-symmetric in tone: the right half of each top row mirrors the left.
constexpr bool HalvesComplement(const Matrix16& m) {
  for (std::size_t r = 0; r < kBayerSize / 2; ++r)
    for (std::size_t c = 0; c < kBayerSize / 2; ++c)
      if (m[r][c + kBayerSize / 2] != 129 - m[r][c]) return false;
  return true;
}

constexpr bool IsPermutation(const Matrix16& m) {
  std::array<bool, 256> seen{};
  for (const auto& row : m)
    for (std::uint8_t v : row) {
      if (seen[v]) return false;
      seen[v] = true;
    }
  return true;
}

static_assert(EachValueTwice(kDispersed));
static_assert(EachValueTwice(kClustered));
static_assert(HalvesComplement(kClustered));
static_assert(IsPermutation(BayerMatrix()));
static_assert(BayerMatrix()[0][1] == 128 && BayerMatrix()[1][0] == 192 && BayerMatrix()[15][0] == 255 &&
              BayerMatrix()[15][15] == 85);

}  // namespace

const Matrix16 kDispersedAmMatrix = kDispersed;
const Matrix16 kClusteredAmMatrix = kClustered;

}  // namespace halftone
