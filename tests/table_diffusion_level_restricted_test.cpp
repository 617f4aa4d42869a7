// Level-restricted diffusion with bias matrix and curve bias: the pair a level may choose, the
// top-level split, the matrix periods, curve columns and the random splits.
#include <gtest/gtest.h>

#include "tablediffusion/integer_diffusion.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

using M = LevelRestrictedMember;

int Halftone(Engine& e, M m, TestBand& b, unsigned phase = kPhaseStart) {
  return b.Run([&](auto... a) { return LevelRestrictedDiffusion(e, m, a...); }, phase);
}

std::unique_ptr<Engine> EngineWithLevels() {
  auto e = MakeEngine();
  e->levels.L = {0, 85, 170, 255};
  return e;
}

TEST(LevelRestricted, PairsFollowTheInputLevel) {
  // Levels 0/85/170/255, midpoints 42/127/212, no matrix term, zero curves:
  //  x0: 85 (<= L1) pair 3/2 split 42: s=85 -> code 2, e=0.
  //  x1: 86 (pair 2/1 split 127): s=86 -> code 2, e=1; ahead trunc(1/2)=0.
  //  x2: 171 (pair 1/0 split 212): s=171 -> code 1.
  auto e = EngineWithLevels();
  TestBand b(3, 1, 1, [](std::size_t x, std::size_t, unsigned) { return x == 0 ? 85 : x == 1 ? 86 : 171; }, 2);
  ASSERT_EQ(Halftone(*e, M::kMatrixFourLevel, b), 0);
  EXPECT_EQ(b.dst[0], 0xA4);  // codes 2, 2, 1
}

TEST(LevelRestricted, TopLevelSplitsAtTheMiddleMidpoint) {
  // The matrix entry brings s to 150: level 255 splits at 127 (code 0), 254 at 212 (code 1).
  for (auto [v, code] : {std::pair{255, 0u}, std::pair{254, 1u}}) {
    auto e = EngineWithLevels();
    e->tables.bias[0][0] = static_cast<std::int16_t>(150 - v);
    TestBand b(1, 1, 1, v, 2);
    ASSERT_EQ(Halftone(*e, M::kMatrixFourLevel, b), 0);
    EXPECT_EQ(b.Code(0, 0), code) << v;
  }
}

TEST(LevelRestricted, ErrorNeverLeavesThePair) {
  // However much error a dark or light input collects, it only ever takes one of its two codes.
  for (auto m : {M::kMatrixFourLevel, M::kRandomFourLevel}) {
    for (auto [v, bias, allowed_dark] : {std::tuple{50, 1000, 3u}, std::tuple{200, -1000, 1u}}) {
      auto e = EngineWithLevels();
      for (auto& row : e->tables.bias) row.fill(static_cast<std::int16_t>(bias));
      for (auto& c : e->curves.slots[0]) c = 40;  // curve terms pile up error too
      TestBand b(21, 6, 1, v, 2);
      ASSERT_EQ(Halftone(*e, m, b), 0);
      for (std::size_t r = 0; r < 6; ++r)
        for (std::size_t x = 0; x < 21; ++x) {
          const unsigned code = b.Code(r, x);
          EXPECT_TRUE(code == allowed_dark || code == allowed_dark - 1) << "v " << v << " code " << code;
        }
    }
  }
}

TEST(LevelRestricted, MatrixPeriods) {
  // One strongly negative matrix entry at [0][0], on white: only the columns that map to matrix
  // column 0 print; the error a printed column passes on dies out long before the next.
  auto e = EngineWithLevels();
  e->tables.bias[0][0] = -200;
  TestBand four(257, 1, 1, 255, 2), two(257, 1, 1, 255);
  ASSERT_EQ(Halftone(*e, M::kMatrixFourLevel, four), 0);
  EXPECT_EQ(four.Code(0, 0), 1u);
  EXPECT_EQ(four.Code(0, 240), 0u);
  EXPECT_EQ(four.Code(0, 256), 1u);
  e = EngineWithLevels();
  e->tables.bias[0][0] = -200;
  ASSERT_EQ(Halftone(*e, M::kMatrixBilevel, two), 0);
  for (std::size_t x = 0; x < 257; ++x) EXPECT_EQ(two.Dot(0, x), x == 0 || x == 240) << x;
}

// Bilevel, period-240 matrix; level 100, curve A[100] = 10, curve B[100] = 20, matrix[1][1] = 7.
// Forward rows add curve B at even x and send trunc(e/3) down; backward rows add curve A at odd
// x and send trunc(2e/3) ahead.
TEST(LevelRestricted, HandWorkedBilevelMatrixBand) {
  auto e = MakeEngine();
  SetFlatCurves(*e, 10, 20);
  e->tables.bias[1][1] = 7;
  TestBand b(3, 2, 1, 100);
  ASSERT_EQ(Halftone(*e, M::kMatrixBilevel, b), 0);
  // Row 0, A = 0:
  //  x0: s=100 dot, e=100+20=120: down 40, ahead 80.     B0 = 0 + 40
  //  x1: s=180, e=-75: down trunc(-25)=-25, ahead -50.   B1 = 7 - 25 = -18
  //  x2: s=50 dot, e=50+20=70: down 23 (ahead dropped).  B2 = 23
  EXPECT_EQ(b.dst[0], 0xA0);
  // Row 1, backward and last, B = [40, -18, 23]:
  //  x2: s=123 dot, e=123: ahead 82, down 41 -> carry.   B1 = 64
  //  x1: s=164, e=-91+10=-81: ahead -54, down -27.        B0 = -14
  //  x0: s=86 dot, e=86: ahead 57 dropped, down 29.
  EXPECT_EQ(b.dst[4], 0xA0);
  ExpectCells<int>(e->rows.carry_all(), {{0, 29}, {1, -27}, {2, 41}});
}

// At 1002 s the first one-bit draws are 0, 1, 1 (see random_stream_test).
TEST(LevelRestricted, HandWorkedRandomBilevelRow) {
  auto e = MakeEngine(1002);
  TestBand b(3, 1, 1, 100);
  ASSERT_EQ(Halftone(*e, M::kRandomBilevel, b), 0);
  // Forward row, no curve terms forward:
  //  x0 bit 0: s=100 dot, e=100: down trunc(300/4)=75, ahead 25.
  //  x1 bit 1: s=125 dot, e=125: down trunc(125/3)=41, ahead 84.
  //  x2 bit 1: s=184, e=-71: down trunc(-71/3)=-23.
  EXPECT_EQ(b.dst[0], 0xC0);
  ExpectCells<int>(e->rows.b(), {{0, 75}, {1, 41}, {2, -23}});
}

TEST(LevelRestricted, ReseedsEveryBand) {
  // The random four-level member reseeds from the clock at every call: the same band at two
  // different times differs, at the same time it repeats.
  auto run = [](long long t) {
    auto e = EngineWithLevels();
    TestBand b(64, 4, 1, [](std::size_t x, std::size_t, unsigned) { return 60 + x; }, 2);
    EXPECT_EQ(Halftone(*e, M::kRandomFourLevel, b), 0);
    e->clock.SetFixed(t);
    EXPECT_EQ(Halftone(*e, M::kRandomFourLevel, b, 0), 0);
    return b.dst;
  };
  EXPECT_EQ(run(1002), run(1002));
  EXPECT_NE(run(1002), run(99));
}

}  // namespace
}  // namespace halftone
