// Every fast form of an error share against the readable one (ShareOf), for every fraction up to
// quarters, truncated and floored, as a share or as the rest, over every error a pixel can
// carry: the division helpers, the scalar, product, multiply-and-shift and mask forms, the rule
// flags of the vector rows in ints, and the vector lanes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "frame/share_arithmetic.h"
#include "tablediffusion/serpentine_lockstep.h"
#include "tablediffusion/serpentine_vector.h"

namespace halftone {
namespace {

// A pixel's error: a 16-bit row value, plus an input level and a curve term, less a level.
constexpr int kLowestError = -32768 - 255;
constexpr int kHighestError = 32767 + 255 + 255;
// The vector lanes hold 16-bit errors below the held limit plus a level.
constexpr int kHighestLaneError = 32767 - 255;

constexpr std::size_t kFractionCount = 4 * (2 + 3 + 4 + 5);
constexpr std::array<Fraction, kFractionCount> kEveryFraction = [] {
  std::array<Fraction, kFractionCount> all{};
  std::size_t n = 0;
  for (const Rounding r : {Rounding::kTrunc, Rounding::kFloor})
    for (const bool rest : {false, true})
      for (int den = 1; den <= 4; ++den)
        for (int num = 0; num <= den; ++num) all[n++] = {num, den, rest, r};
  return all;
}();

std::string Name(const Fraction& f) {
  return std::to_string(f.num) + "/" + std::to_string(f.den) + (f.rest ? " rest" : "") +
         (f.rounding == Rounding::kFloor ? " floored" : "");
}

TEST(ShareArithmetic, DivisionsTruncateTowardZeroForEveryShareOperand) {
  // A share is formed from a 16-bit error times at most 4.
  for (int x = -4 * 32768; x <= 4 * 32767; ++x) {
    ASSERT_EQ(DivTrunc2(x), x / 2) << x;
    ASSERT_EQ(DivTrunc3(x), x / 3) << x;
    ASSERT_EQ(DivTrunc4(x), x / 4) << x;
  }
}

TEST(ShareArithmetic, ReferenceRoundsAsNamed) {
  EXPECT_EQ(ShareOf(fraction::kHalf, -3), -1);
  EXPECT_EQ(ShareOf({1, 2, false, Rounding::kFloor}, -3), -2);
  EXPECT_EQ(ShareOf(fraction::kRestAfterThird, -7), -5);
  EXPECT_EQ(ShareOf({3, 4, true, Rounding::kFloor}, -5), -1);
}

template <std::size_t kIndex>
void ExpectScalarFormsMatch() {
  constexpr Fraction F = kEveryFraction[kIndex];
  constexpr bool kTrunc = F.rounding == Rounding::kTrunc;
  constexpr bool kMasks = !Divides(F) || (kTrunc && F.num == 1 && F.den <= 3);
  for (int e = kLowestError; e <= kHighestError; ++e) {
    const int want = ShareOf(F, e);
    if constexpr (kTrunc) {
      ASSERT_EQ(TruncatedShare<F>(e), want) << Name(F) << " e " << e;
      ASSERT_EQ(ShareByProduct(ProductOf(F), e), want) << Name(F) << " e " << e;
    }
    if constexpr (HasMulShift(F)) {
      ASSERT_EQ(ShareByMulShift(e, MulShiftOf(F)), want) << Name(F) << " e " << e;
    }
    if constexpr (kMasks) {
      ASSERT_EQ(serpentine_lockstep::AheadByMasks(serpentine_lockstep::MasksOf(F), e), want) << Name(F) << " e " << e;
    }
#if HALFTONE_VECTOR_ROWS
    if constexpr (vec::HasVectorForm(F)) {
      ASSERT_EQ(serpentine_lockstep::AheadByFlags(e, serpentine_lockstep::RuleFlags(F)), want) << Name(F) << " e " << e;
    }
#endif
  }
}

TEST(ShareArithmetic, ScalarFormsMatchTheReferenceForEveryError) {
  [&]<std::size_t... i>(std::index_sequence<i...>) {
    (ExpectScalarFormsMatch<i>(), ...);
  }(std::make_index_sequence<kFractionCount>{});
  // A multiply and shift floors or truncates only powers of two and truncated thirds.
  EXPECT_FALSE(HasMulShift({2, 3, false, Rounding::kFloor}));
  EXPECT_FALSE(HasMulShift(fraction::kRestAfterThird));
}

#if HALFTONE_VECTOR_ROWS
template <std::size_t kIndex>
void ExpectVectorFormsMatch() {
  constexpr Fraction F = kEveryFraction[kIndex];
  if constexpr (vec::HasVectorForm(F)) {
    // The floored three quarters is exact up to 32764, which the held limit keeps below.
    constexpr std::uint16_t kFlags = serpentine_lockstep::RuleFlags(F);
    for (int e0 = -32768; e0 <= kHighestLaneError; e0 += 8) {
      vec::V16 e{};
      for (unsigned k = 0; k < 8; ++k) e[k] = static_cast<std::uint16_t>(std::min(e0 + static_cast<int>(k), kHighestLaneError));
      const vec::V16 direct = vec::ShareOf<F>(e);
      // Flags in lanes: every lane takes this rule, the others' bits set or not.
      const vec::V16 flagged = serpentine_lockstep::AheadByFlags<0xFFFF, 0>(e, vec::Splat(kFlags));
      for (unsigned k = 0; k < 8; ++k) {
        const int want = ShareOf(F, vec::At(e, k));
        ASSERT_EQ(vec::At(direct, k), want) << Name(F) << " e " << vec::At(e, k);
        ASSERT_EQ(vec::At(flagged, k), want) << Name(F) << " flags, e " << vec::At(e, k);
      }
    }
  }
}

TEST(ShareArithmetic, VectorFormsMatchTheReferenceForEvery16BitError) {
  [&]<std::size_t... i>(std::index_sequence<i...>) {
    (ExpectVectorFormsMatch<i>(), ...);
  }(std::make_index_sequence<kFractionCount>{});
  EXPECT_FALSE(vec::HasVectorForm({2, 3, false, Rounding::kFloor}));
}
#endif

}  // namespace
}  // namespace halftone
