// Error shares in integer arithmetic. Every share a diffusion forms is a Fraction of the error:
// num * e / den, product before division, truncated toward zero (or, where a routine floors,
// toward minus infinity), or e less that (the rest). ShareOf is the reference form; the fast
// forms are derived from a Fraction at compile time: truncating division by 2, 3 and 4 without
// a divide (TruncatedShare), the high word of one multiply plus a step of one on one side of
// zero (ProductOf), a multiply and shift that also floors (MulShiftOf), and, in
// frame/vector_lanes.h, the same on 16-bit vector lanes (vec::ShareOf). One test checks every
// form against ShareOf for every fraction up to quarters and every 16-bit error.
#pragma once

#include <cstdint>

#include "frame/force_inline.h"

namespace halftone {

// Truncation toward zero and flooring differ only on negative errors that do not divide
// evenly (-3 / 2 is -1 truncated, -2 floored); both occur in the families, on purpose.
enum class Rounding : std::uint8_t { kTrunc, kFloor };

struct Fraction {
  int num = 0;
  int den = 1;
  bool rest = false;  // e less the share
  Rounding rounding = Rounding::kTrunc;
  friend constexpr bool operator==(const Fraction&, const Fraction&) = default;
};

constexpr int DivideRounded(int n, int d, Rounding rounding) {
  int q = n / d;
  if (rounding == Rounding::kFloor && n % d != 0 && (n < 0) != (d < 0)) --q;
  return q;
}
// The reference form: the share as the routines' readable passes write it.
constexpr int ShareOf(const Fraction& f, int e) {
  const int share = DivideRounded(f.num * e, f.den, f.rounding);
  return f.rest ? e - share : share;
}
// Whether the share divides: it is neither the whole error nor none of it.
constexpr bool Divides(const Fraction& f) { return f.num != 0 && f.num != f.den; }
// For a fraction that does not divide: whether it is the whole error.
constexpr bool IsWhole(const Fraction& f) { return (f.num == f.den) != f.rest; }
// Whether two shares of every error add up to it.
constexpr bool AddUpToWhole(const Fraction& a, const Fraction& b) {
  if (!Divides(a) && !Divides(b)) return IsWhole(a) != IsWhole(b);
  return a.num == b.num && a.den == b.den && a.rounding == b.rounding && a.rest != b.rest;
}
// The fast forms take fractions up to quarters.
constexpr bool UpToQuarters(const Fraction& f) { return f.den >= 1 && f.den <= 4 && f.num >= 0 && f.num <= f.den; }

// Fractions by name.
namespace fraction {
inline constexpr Fraction kNone{0, 1};
inline constexpr Fraction kAll{1, 1};
inline constexpr Fraction kHalf{1, 2};
inline constexpr Fraction kThird{1, 3};
inline constexpr Fraction kTwoThirds{2, 3};
inline constexpr Fraction kRestAfterThird{1, 3, true};
inline constexpr Fraction kQuarter{1, 4};
inline constexpr Fraction kThreeQuarters{3, 4};
}  // namespace fraction

// Division truncating toward zero, as shifts and a multiply. Exact for every value a share
// can be formed from (at most four times a 16-bit error); share_arithmetic_test checks each one.
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

// The scalar form of a truncated fraction up to quarters.
template <Fraction F>
HALFTONE_FORCE_INLINE constexpr int TruncatedShare(int e) {
  static_assert(F.rounding == Rounding::kTrunc && UpToQuarters(F), "truncated fractions up to quarters");
  const int share = DivTrunc<F.den>(F.num * e);
  return F.rest ? e - share : share;
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
constexpr ShareProduct ProductOf(const Fraction& f) {
  if (f.rounding != Rounding::kTrunc || !UpToQuarters(f)) throw "truncated fractions up to quarters only";
  constexpr std::int64_t kOne = std::int64_t{1} << 32;
  if (!Divides(f)) return {IsWhole(f) ? kOne : 0, 0, 0};
  const std::int64_t share = f.num * RoundedUpReciprocal(f.den);
  return f.rest ? ShareProduct{kOne - share, 0, 1} : ShareProduct{share, -1, 1};
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

// A share as one multiply and shift, flooring too: share = (e * mul + (e < 0 ? neg_add : 0)) >>
// 32. Flooring by a power of two is the plain product shifted; truncation adds den - 1 (scaled)
// to negative products first; thirds use the reciprocal rounded up, which floors every
// positive and every negative non-multiple one too low, so truncation adds one to negatives.
// Exact whenever num * e fits in 32 bits.
struct MulShift {
  std::int64_t mul;
  std::int64_t neg_add;
};
inline constexpr int kMulShiftBits = 32;
constexpr int Log2Exact(int d) {
  int k = 0;
  while ((1 << k) < d) ++k;
  return (1 << k) == d ? k : -1;
}
// Fractions with a multiply-and-shift form: not a rest; a power of two up to 4, or 3 truncated.
constexpr bool HasMulShift(const Fraction& f) {
  if (f.rest || !UpToQuarters(f)) return false;
  return f.den == 3 ? f.rounding == Rounding::kTrunc : Log2Exact(f.den) >= 0;
}
constexpr MulShift MulShiftOf(const Fraction& f) {
  if (!HasMulShift(f)) throw "no multiply-and-shift form";
  if (!Divides(f)) return {IsWhole(f) ? std::int64_t{1} << kMulShiftBits : 0, 0};
  if (f.den == 3) return {f.num * RoundedUpReciprocal(3), std::int64_t{1} << kMulShiftBits};
  const std::int64_t unit = std::int64_t{1} << (kMulShiftBits - Log2Exact(f.den));
  return {f.num * unit, f.rounding == Rounding::kTrunc ? (f.den - 1) * unit : 0};
}
HALFTONE_FORCE_INLINE inline std::int64_t ShareByMulShift(std::int64_t e, std::int64_t mul, std::int64_t neg_add) {
  constexpr int kSign = 63;
  return (e * mul + ((e >> kSign) & neg_add)) >> kMulShiftBits;
}
HALFTONE_FORCE_INLINE inline int ShareByMulShift(int e, const MulShift& m) {
  return static_cast<int>(ShareByMulShift(std::int64_t{e}, m.mul, m.neg_add));
}

}  // namespace halftone
