// How the table-driven integer diffusions divide one pixel's error between the next pixel of
// the scan ("ahead") and the pixel below ("down"): every split is one fraction of the error
// (frame/share_arithmetic.h) going ahead, with the pixel below taking the rest. Members
// describe their splits as constexpr data over this vocabulary instead of writing their own
// arithmetic.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/force_inline.h"
#include "frame/random_bits.h"
#include "frame/share_arithmetic.h"

namespace halftone {

// A split's rule is the Fraction of e that goes ahead; the pixel below takes the rest.
struct Shares {
  int ahead;
  int down;
};
constexpr Shares Apply(const Fraction& ahead, int e) {
  const int share = ShareOf(ahead, e);
  return {share, e - share};
}

// What picks the rule of a pixel: the column's parity (no draw), or one draw of the random bit
// source taken as one bit or two bits (rules indexed by the drawn value).
enum class Selector : std::uint8_t { kParity, kOneBit, kTwoBits };

struct ShareChoice {
  Selector by = Selector::kParity;
  std::array<Fraction, 4> rules{};  // kParity: [x & 1]; kOneBit: [bit]; kTwoBits: [0..3]
};

// A choice that is the same at every pixel and draws nothing.
constexpr ShareChoice Always(const Fraction& rule) { return {Selector::kParity, {rule, rule, rule, rule}}; }
// A choice by one drawn bit.
constexpr ShareChoice ByBit(const Fraction& bit0, const Fraction& bit1) {
  return {Selector::kOneBit, {bit0, bit1, bit0, bit1}};
}

inline const Fraction& Pick(const ShareChoice& choice, std::size_t x, RandomBitSource& random) {
  switch (choice.by) {
    case Selector::kOneBit: return choice.rules[random.NextBit()];
    case Selector::kTwoBits: return choice.rules[random.NextTwoBits()];
    case Selector::kParity: break;
  }
  return choice.rules[x & 1];
}

// The ahead share of error e under a member's share choice, branch-free. `bit` is the drawn
// split bit (ignored by a choice that draws nothing).
template <ShareChoice C>
HALFTONE_FORCE_INLINE inline int AheadShare(unsigned bit, int e) {
  if constexpr (C.by == Selector::kParity) {
    static_assert(C.rules[0] == C.rules[1], "a parity choice here is the same rule at every column");
    return TruncatedShare<C.rules[0]>(e);
  } else {
    static_assert(C.by == Selector::kOneBit, "two-bit choices take a table of their own");
    if constexpr (Divides(C.rules[0]) || Divides(C.rules[1])) {
      // The bit picks the multiplier before e is known, so the chain through e is one multiply
      // and one shift, not both rules' divisions and a select.
      static constexpr ShareProduct kByBit[2] = {ProductOf(C.rules[0]), ProductOf(C.rules[1])};
      return static_cast<int>(ShareByProduct(kByBit[bit & 1u], e));
    } else {
      // Whole error or none: masks.
      const int a0 = TruncatedShare<C.rules[0]>(e), a1 = TruncatedShare<C.rules[1]>(e);
      // A mask, not a select: compilers turn the select into a branch on the random bit.
      return a0 ^ ((a0 ^ a1) & -static_cast<int>(bit));
    }
  }
}

// The ahead share of a rule picked at run time among several (by input-level band and drawn
// value), as one multiply and masks, so one table entry replaces the rule:
//   part  = high word of e * mul, plus one for negative e where the rule divides
//           (e/2 or e/3 truncated toward zero; 0 for the whole error or none of it);
//   ahead = (e & whole) + ((part ^ negate) - negate),
// where negate makes a rest e minus the part; part is MulHighTrunc with den's rounded-up
// reciprocal.
struct AheadMasks {
  int whole;
  std::uint32_t mul;
  int divides;  // all ones when the rule divides
  int negate;
};
constexpr AheadMasks MasksOf(const Fraction& f) {
  if (!Divides(f)) return {IsWhole(f) ? -1 : 0, 0, 0, 0};
  if (f.num != 1 || f.rounding != Rounding::kTrunc || f.den > 3) throw "only the whole error, halves and thirds, truncated";
  const auto mul = static_cast<std::uint32_t>(RoundedUpReciprocal(f.den));
  return f.rest ? AheadMasks{-1, mul, -1, -1} : AheadMasks{0, mul, -1, 0};
}
HALFTONE_FORCE_INLINE inline int AheadByMasks(const AheadMasks& m, int e) {
  const int part = MulHighTrunc(e, m.mul, m.divides);
  return (e & m.whole) + ((part ^ m.negate) - m.negate);
}

}  // namespace halftone
