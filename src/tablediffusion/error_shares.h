// How the table-driven integer diffusions divide one pixel's error between the next pixel of
// the scan ("ahead") and the pixel below ("down"): every split is one fraction of the error
// (frame/share_arithmetic.h) going ahead, with the pixel below taking the rest. Members
// describe their splits as constexpr data over this vocabulary instead of writing their own
// arithmetic.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

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

inline const Fraction& Pick(const ShareChoice& choice, std::size_t x, RandomBitSource& random) {
  switch (choice.by) {
    case Selector::kOneBit: return choice.rules[random.NextBit()];
    case Selector::kTwoBits: return choice.rules[random.NextTwoBits()];
    case Selector::kParity: break;
  }
  return choice.rules[x & 1];
}

}  // namespace halftone
