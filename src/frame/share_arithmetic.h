// Error shares in integer arithmetic as the diffusions form them: truncating division by 2, 3
// and 4 without a divide, and a share (num / den of an error, or the error less that) as the
// high word of one multiply plus a step of one on one side of zero, so a scan can pick the
// multiplier by its drawn split before the error is known.
#pragma once

#include <cstdint>

#include "frame/force_inline.h"

namespace halftone {

// Division truncating toward zero, as shifts and a multiply. Exact for every value a share
// can be formed from (at most four times a 16-bit error); random_split_fast_test checks each one.
constexpr int DivTrunc2(int x) { return (x + static_cast<int>(static_cast<unsigned>(x) >> 31)) >> 1; }
constexpr int DivTrunc4(int x) { return (x + ((x >> 31) & 3)) >> 2; }
constexpr int DivTrunc3(int x) {
  return static_cast<int>((static_cast<std::int64_t>(x) * 0x55555556LL) >> 32) - (x >> 31);
}
template <int kDen>
constexpr int DivTrunc(int x) {
  static_assert(kDen >= 1 && kDen <= 4, "divisors 1 to 4");
  if constexpr (kDen == 1) return x;
  else if constexpr (kDen == 2) return DivTrunc2(x);
  else if constexpr (kDen == 3) return DivTrunc3(x);
  else return DivTrunc4(x);
}

// 2^32 / den rounded up (2^31 + 1 for halves, 0x55555556 for thirds).
constexpr std::int64_t RoundedUpReciprocal(int den) { return (std::int64_t{1} << 32) / den + 1; }
// A share of e as a product: trunc(num / den * e), or e less that (the rest), as the high word
// of e times a multiplier plus a step of one on one side of zero. The share takes num times
// den's reciprocal rounded up: e times that is num / den * e plus a sliver with e's sign (under
// 1 / den for |e| below 2^28), so its high word is the truncated share for positive e and one
// under it for negative e. The rest takes 2^32 less that multiplier: its high word is one under
// the rest for positive e and the rest itself for negative e. All of e and none of it are 2^32
// and 0, with no step. A scan that picks the product by its drawn split before e is known keeps
// the pick off the chain, and can add the step beside the multiply (HighWord, StepOf).
struct ShareProduct {
  std::int64_t mul;
  std::int64_t flip;  // -1: the step is for negative e; 0: for positive e
  std::int64_t step;  // 1 where the share divides, else 0
};
constexpr ShareProduct ProductOfShare(int num, int den, bool rest) {
  constexpr std::int64_t kOne = std::int64_t{1} << 32;
  if (num == 0 || num == den) {
    const bool all = (num == den) != rest;
    return {all ? kOne : 0, 0, 0};
  }
  const std::int64_t share = num * RoundedUpReciprocal(den);
  return rest ? ShareProduct{kOne - share, 0, 1} : ShareProduct{share, -1, 1};
}
HALFTONE_FORCE_INLINE constexpr std::int64_t HighWord(std::int64_t e, std::int64_t mul) { return (e * mul) >> 32; }
// Without a branch on the side (a drawn split no predictor learns): "the side's e is positive",
// with e negated where the step is for negative e. DividingStep is for products known to divide.
HALFTONE_FORCE_INLINE constexpr std::int64_t DividingStep(const ShareProduct& p, std::int64_t e) {
  return ((e ^ p.flip) - p.flip) > 0;
}
HALFTONE_FORCE_INLINE constexpr std::int64_t StepOf(const ShareProduct& p, std::int64_t e) {
  return DividingStep(p, e) & p.step;
}
HALFTONE_FORCE_INLINE constexpr std::int64_t ShareByProduct(const ShareProduct& p, std::int64_t e) {
  return HighWord(e, p.mul) + StepOf(p, e);
}

// num * e / den truncated toward zero, with mul = num * RoundedUpReciprocal(den) and `divides`
// all ones (zero where the share is 0 or e itself), for the values a share is formed from (a
// 16-bit error, up to four times over). e * mul misses the exact quotient times 2^32 by less
// than 2^-15 of a unit, above it for positive e and below it for negative e, so its high word
// is the truncated quotient for positive e and one less than it for negative e.
HALFTONE_FORCE_INLINE constexpr int MulHighTrunc(int e, std::int64_t mul, int divides) {
  return static_cast<int>((std::int64_t{e} * mul) >> 32) - ((e >> 31) & divides);
}

}  // namespace halftone
