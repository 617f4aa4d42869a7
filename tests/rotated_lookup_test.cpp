// The lookup-table diffusion members (rotated, reversed and four-way): the rand() they draw
// from, where each member puts a dot, hand-worked planes, the unturned last row, the refusals.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <thread>
#include <tuple>
#include <vector>

#include "test_support.h"
#include "rotated/crt_rand.h"
#include "rotated/lookup_diffusion.h"

namespace halftone {
namespace {

using halftone_test::CountBits;

constexpr std::uint8_t kCanary = 0x5A;

std::array<std::int32_t, 256> Identity() {
  std::array<std::int32_t, 256> t{};
  std::iota(t.begin(), t.end(), 0);
  return t;
}

// A plane of w x h samples in the host's raster layout, all `fill` or given row by row.
struct TestPlane {
  std::size_t w, h, stride;
  std::vector<std::uint8_t> bytes;
  TestPlane(std::size_t w_, std::size_t h_, std::uint8_t fill)
      : w(w_), h(h_), stride(RasterStride(w_)), bytes(stride * h_, fill) {}
  TestPlane(std::size_t w_, std::initializer_list<std::initializer_list<std::uint8_t>> rows)
      : TestPlane(w_, rows.size(), 0) {
    std::size_t y = 0;
    for (const auto& r : rows) std::copy(r.begin(), r.end(), &at(0, y++));
  }
  std::uint8_t& at(std::size_t x, std::size_t y) { return bytes[y * stride + x]; }
  LookupPlane For(std::uint8_t* out, const std::int32_t* lookup) {
    return {bytes.data(), out, static_cast<int>(w), static_cast<int>(h), lookup};
  }
};

std::vector<std::uint8_t> Diffuse(RotatedMember member, TestPlane& plane, const std::int32_t* lookup,
                              std::uint32_t seed) {
  std::vector<std::uint8_t> out(RotatedBufferBytes(member, plane.w, plane.h), kCanary);
  CrtRand rng;
  EXPECT_EQ(RotatedLookupDiffusion(member, plane.For(out.data(), lookup), rng, seed), kOk);
  return out;
}

std::vector<std::uint8_t> FourWay(TestPlane& plane, const std::int32_t* lookup, std::uint32_t seed) {
  std::vector<std::uint8_t> out(DotStride(plane.w, 1) * plane.h, kCanary);
  CrtRand rng;
  EXPECT_EQ(FourWayLookupDiffusion(plane.For(out.data(), lookup), rng, seed), kOk);
  return out;
}

TEST(CrtRand, KnownSequenceFromSeedOneAndFreshState) {
  // The Windows C runtime's rand() after srand(1) (and before any srand) starts 41, 18467,
  // 6334, 26500, 19169: 1 * 214013 + 2531011 = 2745024, and 2745024 >> 16 = 41.
  const unsigned expected[] = {41, 18467, 6334, 26500, 19169, 15724, 11478, 29358, 26962, 24464};
  CrtRand seeded;
  seeded.Seed(1);
  CrtRand fresh;
  for (unsigned v : expected) {
    EXPECT_EQ(seeded.Next(), v);
    EXPECT_EQ(fresh.Next(), v);
  }
  // srand(0): the first state is the increment alone, 2531011 >> 16 = 38.
  CrtRand zero;
  zero.Seed(0);
  EXPECT_EQ(zero.Next(), 38u);
}

TEST(CrtRand, EachThreadHasItsOwnState) {
  ThreadCrtRand().Seed(12345);
  const unsigned main_first = ThreadCrtRand().Next();
  unsigned other_first = 0;
  std::thread([&] { other_first = ThreadCrtRand().Next(); }).join();
  EXPECT_EQ(other_first, 41u);  // a new thread starts from state 1, untouched by this one
  ThreadCrtRand().Seed(12345);
  EXPECT_EQ(ThreadCrtRand().Next(), main_first);
}

// One dark pixel in a paper-white plane: with an identity table the dark pixel prints and
// passes error 0, the white ones print nothing and pass 0, so exactly one bit is set whatever
// the draws, at the member's place for that pixel.
struct Probe {
  RotatedMember member;
  std::size_t w, h, x, y;
  std::size_t byte;
  std::uint8_t mask;
};

void PrintTo(const Probe& p, std::ostream* os) {
  *os << "member" << static_cast<int>(p.member) << "_" << p.w << "x" << p.h << "_at_" << p.x << "_" << p.y;
}

class RotatedPlacement : public ::testing::TestWithParam<Probe> {};

TEST_P(RotatedPlacement, SingleDotLandsWhereTheMemberPutsIt) {
  const Probe& pr = GetParam();
  const auto lookup = Identity();
  TestPlane plane(pr.w, pr.h, 255);
  plane.at(pr.x, pr.y) = 0;
  const std::size_t cleared = RotatedClearedBytes(pr.member, pr.w, pr.h);
  const auto out = Diffuse(pr.member, plane, lookup.data(), 7);
  for (std::size_t i = 0; i < out.size(); ++i) {
    const std::uint8_t base = i < cleared ? 0 : kCanary;
    const std::uint8_t want = i == pr.byte ? static_cast<std::uint8_t>(base | pr.mask) : base;
    ASSERT_EQ(out[i], want) << "byte " << i;
  }
}

// 13 x 11: turned rows hold 11 pixels (4 bytes), flat rows 13 pixels (4 bytes), h % 8 = 3.
// 5 x 36: turned rows 8 bytes, h % 8 = 4.
INSTANTIATE_TEST_SUITE_P(
    Members, RotatedPlacement,
    ::testing::Values(
        // Turned: (x, y) -> row w-1-x, column h-1-y. Row 0, column 1 is input (w-1, h-2).
        Probe{RotatedMember::kTurnedLastRowFlat, 13, 11, 12, 9, 0, 0x40},
        Probe{RotatedMember::kTurnedLastRowFlat, 13, 11, 0, 0, 12 * 4 + 1, 0x20},  // row 12, column 10
        Probe{RotatedMember::kTurnedLastRowFlat, 5, 36, 4, 34, 0, 0x40},
        Probe{RotatedMember::kTurnedLastRowFlat, 5, 36, 0, 0, 4 * 8 + 4, 0x10},  // row 4, column 35
        // Last row unturned: pixel 9 of row 10 at byte 10 * 4 + 1, bit 7 - 1.
        Probe{RotatedMember::kTurnedLastRowFlat, 13, 11, 9, 10, 41, 0x40},
        // Transposed: (12, 9) -> row 12, column 9; last row unturned like the above.
        Probe{RotatedMember::kTransposedLastRowFlat, 13, 11, 12, 9, 12 * 4 + 1, 0x40},
        Probe{RotatedMember::kTransposedLastRowFlat, 13, 11, 3, 10, 40, 0x10},
        // Every row turned: the last row fills column 0. (3, 10) -> row 9, column 0.
        Probe{RotatedMember::kTurned, 13, 11, 3, 10, 9 * 4, 0x80},
        // Every row transposed: (3, 10) -> row 3, column 10.
        Probe{RotatedMember::kTransposed, 13, 11, 3, 10, 3 * 4 + 1, 0x20},
        // Rows reversed: (9, 2) -> row 8, column 9; the last row goes to row 0.
        Probe{RotatedMember::kRowsReversed, 13, 11, 9, 2, 8 * 4 + 1, 0x40},
        Probe{RotatedMember::kRowsReversed, 13, 11, 0, 10, 0, 0x80},
        // Mixed: forward row 2 stays at row 2.
        Probe{RotatedMember::kMixed, 13, 11, 9, 2, 2 * 4 + 1, 0x40},
        // Backward row 3 -> row 7, byte (12 - 9) / 8 = 0, bit (9 + 8 - 3) % 8 = 6 from the right.
        Probe{RotatedMember::kMixed, 13, 11, 9, 3, 7 * 4, 0x40},
        // Backward row 1 -> row 9, byte (12 - 0) / 8 = 1, bit (0 + 5) % 8 = 5.
        Probe{RotatedMember::kMixed, 13, 11, 0, 1, 9 * 4 + 1, 0x20},
        // Last row 10 runs forward but is still placed like a backward row: row 0, byte 0,
        // bit (12 + 5) % 8 = 1.
        Probe{RotatedMember::kMixed, 13, 11, 12, 10, 0, 0x02},
        // h % 8 = 4 sets the phase: (4, 1) -> row 34, byte 0, bit (4 + 8 - 4) % 8 = 0.
        Probe{RotatedMember::kMixed, 5, 36, 4, 1, 34 * 4, 0x01}));

// Identity table, seed 1, so the draws' low bits run 1, 1, 0, 0, 1, 0, 0, 0, 0 (41, 18467,
// 6334, 26500, 19169, 15724, 11478, 29358, 26962).
//   input   row 0: 100 200  50     row 1: 30 140 220     row 2: 128 129  90
// Row 0, left to right, looking up row 1 below as it goes:
//   x0 100 dot, e +100, below 30, bit 1 down -> 130     x1 200 blank, e -55, below 140 -> 85
//   x2  50 dot, e +50, below 220, bit 0 along: row end, dropped
// Row 1, right to left (current 130 85 220), row 2 below:
//   x2 220 blank, e -35, below 90, bit 0 along -> x1 = 50
//   x1  50 dot, e +50, below 129, bit 1 down -> 179
//   x0 130 blank, e -125, below 128, bit 0 along: row end, dropped
// Row 2 (last), left to right (current 128 179 90):
//   x0 128 dot, e +128, bit 0 -> x1 = 307;  x1 307 blank, e +52, bit 0 -> x2 = 142
//   x2 142 blank, bit 0: row end.
// Dots: (0,0) (2,0) (1,1) (0,2). Plain thresholding would differ at (0,1), (1,1) and (2,2).
TEST(RotatedDiffusion, HandWorkedPlaneInEveryLayout) {
  const auto lookup = Identity();
  TestPlane plane(3, {{100, 200, 50}, {30, 140, 220}, {128, 129, 90}});

  using Bytes = std::vector<std::uint8_t>;
  // The first byte of output rows 0, 1 and 2 (the rest stay clear), member by member:
  //   turned: (0,0) -> row 2 col 2; (2,0) -> row 0 col 2; (1,1) -> row 1 col 1; the last row's
  //     dot (0,2) unturned at byte 2 * 4, pixel 0, OR-ed over row 2's 0x20; all turned: (0,2)
  //     -> row 2 col 0 instead, the same byte;
  //   transposed: (0,0) -> row 0 col 0; (2,0) -> row 2 col 0; (1,1) -> row 1 col 1; last row
  //     unturned at byte 8 again; all transposed: (0,2) -> row 0 col 2;
  //   rows reversed: row 0 (x0, x2) -> output row 2; row 1 (x1) -> row 1; row 2 (x0) -> row 0;
  //   mixed, h % 8 = 3: row 0 forward in place (0xA0). Row 1 backward -> row 1, x1 at bit
  //     (1 + 5) % 8 = 6 = 0x40. Last row -> row 0, x0 at bit 5 = 0x20, OR-ed with 0xA0.
  const std::tuple<RotatedMember, std::uint8_t, std::uint8_t, std::uint8_t> expected[] = {
      {RotatedMember::kTurnedLastRowFlat, 0x20, 0x40, 0xA0}, {RotatedMember::kTurned, 0x20, 0x40, 0xA0},
      {RotatedMember::kTransposedLastRowFlat, 0x80, 0x40, 0x80}, {RotatedMember::kTransposed, 0xA0, 0x40, 0x80},
      {RotatedMember::kRowsReversed, 0x80, 0x40, 0xA0}, {RotatedMember::kMixed, 0xA0, 0x40, 0}};
  for (const auto& [member, row0, row1, row2] : expected)
    EXPECT_EQ(Diffuse(member, plane, lookup.data(), 1), (Bytes{row0, 0, 0, 0, row1, 0, 0, 0, row2, 0, 0, 0}))
        << "member " << static_cast<int>(member);
  // The export seeds from the library clock and writes through the reference it is given.
  halftone_set_fixed_time(1);
  Bytes out(12, kCanary);
  unsigned char* dst = out.data();
  EXPECT_EQ(sdicxx78xy(plane.bytes.data(), dst, 3, 3, const_cast<int*>(lookup.data()), nullptr), 0);
  halftone_set_fixed_time(-1);
  EXPECT_EQ(dst, out.data());
  EXPECT_EQ(out, (Bytes{0x20, 0, 0, 0, 0x40, 0, 0, 0, 0xA0, 0, 0, 0}));
}

// One row of two pixels, seed 3: the first draw (48) sends pixel 0's error along in both
// families, to pixel 1, whose looked-up level is 1.
//   lookup[0] = 128: dot, +128 -> pixel 1 = 129, blank.   bits 10
//   lookup[0] = 129: blank, -126 -> pixel 1 = -125, dot.  bits 01
TEST(LookupDiffusion, Level128PrintsAnd129DoesNot) {
  auto lookup = Identity();
  TestPlane plane(2, {{0, 1}});
  for (auto [level, byte] : {std::pair{128, 0x80}, std::pair{129, 0x40}}) {
    lookup[0] = level;
    EXPECT_EQ(Diffuse(RotatedMember::kRowsReversed, plane, lookup.data(), 3)[0], byte) << level;
    EXPECT_EQ(FourWay(plane, lookup.data(), 3)[0], byte) << level;
  }
}

TEST(LookupDiffusion, LastRowDropsTheDownwardError) {
  // h = 1, seed 1: bits 1, 1, 0 (four-way: directions 1, 3, 2, all below). Row 100 100 100:
  // x0 dot, +100 down: no row, dropped; x1 likewise; x2 dot. All three print (passing the
  // errors along would leave x1 at 200, blank).
  const auto lookup = Identity();
  TestPlane plane(3, 1, 100);
  EXPECT_EQ(Diffuse(RotatedMember::kRowsReversed, plane, lookup.data(), 1)[0], 0xE0);
  EXPECT_EQ(FourWay(plane, lookup.data(), 1)[0], 0xE0);
  // The unturned last row is the whole output when h = 1: same dots at byte 0.
  EXPECT_EQ(Diffuse(RotatedMember::kTurnedLastRowFlat, plane, lookup.data(), 1)[0], 0xE0);
}

TEST(RotatedDiffusion, FlatPlanesAndTheEmptyColumn) {
  const auto lookup = Identity();
  // All 0 on 10 x 9: every turned pixel prints except column 0, where the last input row
  // would have gone; that row stands unturned from byte 8 * 4 (pixels 0-9: FF C0), over
  // turned rows 8 (7F 80) and 9.
  TestPlane dark(10, 9, 0);
  std::vector<std::uint8_t> turned_flat, turned;
  for (std::size_t row = 0; row < 10; ++row) {
    const bool under_last_row = row == 8;
    turned_flat.insert(turned_flat.end(), {under_last_row ? std::uint8_t{0xFF} : std::uint8_t{0x7F},
                                           under_last_row ? std::uint8_t{0xC0} : std::uint8_t{0x80}, 0, 0});
    turned.insert(turned.end(), {0xFF, 0x80, 0, 0});
  }
  EXPECT_EQ(Diffuse(RotatedMember::kTurnedLastRowFlat, dark, lookup.data(), 5), turned_flat);
  // The same plane with every row turned fills column 0 and writes nothing flat.
  EXPECT_EQ(Diffuse(RotatedMember::kTurned, dark, lookup.data(), 5), turned);
  TestPlane light(10, 9, 255);
  for (RotatedMember m : {RotatedMember::kTurnedLastRowFlat, RotatedMember::kTransposedLastRowFlat,
                          RotatedMember::kTurned, RotatedMember::kTransposed, RotatedMember::kRowsReversed,
                          RotatedMember::kMixed})
    EXPECT_EQ(CountBits(Diffuse(m, light, lookup.data(), 5)), 0u);
}

TEST(RotatedDiffusion, UnturnedLastRowReachesPastTheClearedBytes) {
  // w = 1, h = 5: the turned output is one row of 4 bytes, but the last input row lands at
  // byte 4 * 4 = 16. Bytes 4..15 are the caller's and stay as they were; byte 16 gets the dot
  // OR-ed over what the caller left there.
  const auto lookup = Identity();
  TestPlane dark(1, 5, 0);
  for (RotatedMember m : {RotatedMember::kTurnedLastRowFlat, RotatedMember::kTransposedLastRowFlat}) {
    ASSERT_EQ(RotatedBufferBytes(m, 1, 5), 20u);
    const auto out = Diffuse(m, dark, lookup.data(), 9);
    EXPECT_EQ(out[0], m == RotatedMember::kTurnedLastRowFlat ? 0x78 : 0xF0);  // 4 turned dots of 5
    for (std::size_t i = 4; i < 16; ++i) EXPECT_EQ(out[i], kCanary) << i;
    EXPECT_EQ(out[16], kCanary | 0x80);
    for (std::size_t i = 17; i < 20; ++i) EXPECT_EQ(out[i], kCanary) << i;
  }
}

TEST(RotatedDiffusion, RefusesBadSizesAndNullsUntouched) {
  const auto lookup = Identity();
  std::vector<std::uint8_t> src(64, 0), out(64, kCanary);
  unsigned char* dst = out.data();
  int* lk = const_cast<int*>(lookup.data());
  EXPECT_EQ(sdicxx78xy(src.data(), dst, 0, 4, lk, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(ixndiwkc76y(src.data(), dst, 4, -1, lk, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(ghskdjiekld(src.data(), dst, 4, 4, nullptr, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(tishduth29dmc(nullptr, dst, 4, 4, lk, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(nchsuw56xd(src.data(), nullptr, 4, 4, lk, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(fdxin324c(src.data(), dst, -3, 4, lk, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(kajdjigc23kdh(src.data(), dst, 4, 0, lk, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(xinskdn34skx(src.data(), dst, 4, 4, lk, nullptr), HALFTONE_ERR_NOT_PROVIDED);
  EXPECT_EQ(shdeiznc45kdi(src.data(), dst, 4, 4, lk, nullptr), HALFTONE_ERR_NOT_PROVIDED);
  for (std::uint8_t b : out) ASSERT_EQ(b, kCanary);
}

// Seed 1: draws 41, 18467, 6334, 26500, 19169, 15724, i.e. directions 1, 3, 2, 0, 1, 0
// (1 below-ahead, 3 below-behind, 2 below, 0 along).
//   input  row 0: 100 200  60     row 1: 170  20 240
// Row 0, left to right (row 1 looked up one pixel ahead):
//   x0 100 dot, e +100; below loads x1 = 20 and x0 = 170; dir 1 -> below x1 = 120
//   x1 200 blank, e -55; below loads x2 = 240; dir 3 -> below x0 = 115
//   x2  60 dot, e +60; dir 2 -> below x2 = 300
// Row 1 (last), right to left (115 120 300):
//   x2 300 blank, e +45, dir 0 -> x1 = 165;  x1 165 blank, e -90, dir 1: no row below, dropped
//   x0 115 dot, dir 0: row end, dropped.
// Row 0 dots x0, x2 (A0); row 1 x0 (80). Thresholding alone would print row 1 at x1 instead.
TEST(FourWayDiffusion, HandWorkedRoutes) {
  const auto lookup = Identity();
  TestPlane src(3, {{100, 200, 60}, {170, 20, 240}});
  EXPECT_EQ(FourWay(src, lookup.data(), 1), (std::vector<std::uint8_t>{0xA0, 0, 0, 0, 0x80, 0, 0, 0}));
  // The export seeds from the library clock.
  std::vector<std::uint8_t> out(8, kCanary);
  halftone_set_fixed_time(1);
  EXPECT_EQ(kajdjigc23kdh(src.bytes.data(), out.data(), 3, 2, const_cast<int*>(lookup.data()), nullptr), 0);
  halftone_set_fixed_time(-1);
  EXPECT_EQ(out, (std::vector<std::uint8_t>{0xA0, 0, 0, 0, 0x80, 0, 0, 0}));
}

// w = 1: only "below" moves error. Seed 0 draws 38, 7719, 21238: directions 2, 3, 2.
// Column 100, 100, 40 with lookup[40] = 160:
//   y0 100 dot, +100, dir 2 -> y1 = 200;  y1 blank, -55, dir 3: no pixel behind, dropped
//   y2 160 blank (105, a dot, had the -55 been sent elsewhere).
TEST(FourWayDiffusion, SingleColumnDropsAllButStraightDown) {
  auto lookup = Identity();
  lookup[40] = 160;
  TestPlane src(1, {{100}, {100}, {40}});
  EXPECT_EQ(FourWay(src, lookup.data(), 0), (std::vector<std::uint8_t>{0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(FourWayDiffusion, FlatPlanesAndPadding) {
  const auto lookup = Identity();
  // 37 pixels: raster rows of 40 bytes; dot rows of 8 bytes, bytes 0-3 full, byte 4 holds
  // pixels 32-36 (F8), padding bytes 5-7 stay 0.
  TestPlane dark(37, 6, 0), light(37, 6, 255);
  std::vector<std::uint8_t> dark_dots;
  for (int y = 0; y < 6; ++y) dark_dots.insert(dark_dots.end(), {0xFF, 0xFF, 0xFF, 0xFF, 0xF8, 0, 0, 0});
  EXPECT_EQ(FourWay(dark, lookup.data(), 11), dark_dots);
  EXPECT_EQ(FourWay(light, lookup.data(), 11), std::vector<std::uint8_t>(48, 0));
}

}  // namespace
}  // namespace halftone
