// How the table-driven integer diffusions divide one pixel's error between the next pixel of
// the scan ("ahead") and the pixel below ("down"): every split is one fraction of the error,
// rounded one of two ways, given to one neighbour, with the other taking the rest. Members
// describe their splits as constexpr data over this vocabulary instead of writing their own
// arithmetic.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/random_bits.h"

namespace halftone {

// Truncation toward zero and flooring differ only on negative errors that do not divide
// evenly (-3 / 2 is -1 truncated, -2 floored); both occur in the families, on purpose.
enum class Rounding : std::uint8_t { kTrunc, kFloor };

// One neighbour receives (num * e) / den, rounded as given; the other receives the rest, so
// nothing of e is lost in the split itself.
struct ShareRule {
  int num = 1;
  int den = 2;
  Rounding rounding = Rounding::kTrunc;
  bool to_ahead = true;  // the computed share goes ahead; false: it goes down
};

struct Shares {
  int ahead;
  int down;
};

constexpr int DivideRounded(int n, int d, Rounding rounding) {
  int q = n / d;
  if (rounding == Rounding::kFloor && n % d != 0 && (n < 0) != (d < 0)) --q;
  return q;
}

constexpr Shares Apply(const ShareRule& rule, int e) {
  const int share = DivideRounded(rule.num * e, rule.den, rule.rounding);
  return rule.to_ahead ? Shares{share, e - share} : Shares{e - share, share};
}

// Common rules by name.
inline constexpr ShareRule kAllAhead{1, 1, Rounding::kTrunc, true};
inline constexpr ShareRule kAllDown{1, 1, Rounding::kTrunc, false};

// What picks the rule of a pixel: the column's parity (no draw), or one draw of the random bit
// source taken as one bit or two bits (rules indexed by the drawn value).
enum class Selector : std::uint8_t { kParity, kOneBit, kTwoBits };

struct ShareChoice {
  Selector by = Selector::kParity;
  std::array<ShareRule, 4> rules{};  // kParity: [x & 1]; kOneBit: [bit]; kTwoBits: [0..3]
};

// A choice that is the same at every pixel and draws nothing.
constexpr ShareChoice Always(const ShareRule& rule) { return {Selector::kParity, {rule, rule, rule, rule}}; }

inline const ShareRule& Pick(const ShareChoice& choice, std::size_t x, RandomBitSource& random) {
  switch (choice.by) {
    case Selector::kOneBit: return choice.rules[random.NextBit()];
    case Selector::kTwoBits: return choice.rules[random.NextTwoBits()];
    case Selector::kParity: break;
  }
  return choice.rules[x & 1];
}

}  // namespace halftone
