// What the fast level-keyed bias diffusion reads per pixel, prepared before a band: its split
// rules as one multiply and shift each, per direction, parity and input level a table of the
// level plus bias, the draw and the rule pair, the draw counts that place each plane's slice of
// the random stream, and the four-level quantiser without branches.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/vector_lanes.h"
#include "tablediffusion/level_bias_traits.h"

namespace halftone::level_bias {

// The level band a pixel's input level falls in on a forward or backward row.
constexpr const LevelBand& BandOf(const LevelBiasTraits& m, int v, bool forward) {
  for (std::size_t i = 0; i + 1 < m.band_count; ++i)
    if (v >= (forward ? m.bands[i].lowest_ltr : m.bands[i].lowest_rtl)) return m.bands[i];
  return m.bands[m.band_count - 1];
}

// The levels that draw on a row of one direction are those below a limit (the lighter bands
// choose by parity or not at all); the count of draws a row makes is then a count of samples
// below it. Zero: the row draws nothing.
constexpr int DrawLimit(const LevelBiasTraits& m, bool forward) {
  int limit = 0;
  while (limit < 256 && BandOf(m, limit, forward).choice.by == Selector::kOneBit) ++limit;
  return limit;
}
constexpr bool DrawsBelowLimitOnly(const LevelBiasTraits& m, bool forward) {
  const int limit = DrawLimit(m, forward);
  for (int v = 0; v < 256; ++v) {
    const Selector by = BandOf(m, v, forward).choice.by;
    if (by == Selector::kTwoBits || (by == Selector::kOneBit) != (v < limit)) return false;
  }
  return true;
}
constexpr bool AllRulesHaveMulShift(const LevelBiasTraits& m) {
  for (std::size_t i = 0; i < m.band_count; ++i)
    for (const Fraction& r : m.bands[i].choice.rules)
      if (!HasMulShift(r)) return false;
  return true;
}

// What a pixel needs from its input level, for one scan direction and column parity.
struct LevelEntry {
  std::int16_t biased;  // the level plus the bias byte added at this column, if any
  std::int16_t room;    // the first quantiser threshold less the level
  std::uint8_t draws;   // 1: the pixel draws one word
  std::uint8_t rules;   // index into FastTables::rule_words of the pair of split rules
  std::int16_t bias;    // biased less the level: what this column adds to the error
};

enum : unsigned { kForward = 0, kBackward = 1 };
inline constexpr unsigned kMaxRulePairs = 16;

// The split rules as flat 64-bit words: pair k holds {mul, neg_add} for bit 0 at 4k and for
// bit 1 at 4k + 2, so a pixel's rule sits at its entry's index plus its prepared word.
inline constexpr unsigned kRuleWords = 2;  // words of one MulShift
inline constexpr unsigned kPairWords = 2 * kRuleWords;

struct FastTables {
  std::array<std::array<std::array<LevelEntry, 256>, 2>, 2> entry{};  // [direction][x & 1][level]
  std::array<std::int64_t, kPairWords * kMaxRulePairs> rule_words{};
};

// A draw as a pixel uses it: its split bit (bit 1 of the word) as the word offset of that
// bit's rule within a pair, one byte a draw. With two words a rule, the offset is the word's
// bit 1 in place.
inline constexpr unsigned kSplitBit = 1;
static_assert(kRuleWords == 1u << kSplitBit, "the split bit in place is its rule's offset");
inline constexpr unsigned kPreparedShift = 0;
inline constexpr std::uint8_t kPreparedMask = 1u << kSplitBit;

template <const LevelBiasTraits& M>
FastTables BuildTables() {
  constexpr int kFirstThreshold = M.bits == 1 ? kBilevelCut : kFourThreshold[0];
  FastTables t;
  Fraction seen[kMaxRulePairs][2];
  unsigned count = 0;
  auto pair_of = [&](const Fraction& bit0, const Fraction& bit1) {
    for (unsigned i = 0; i < count; ++i)
      if (seen[i][0] == bit0 && seen[i][1] == bit1) return i;
    seen[count][0] = bit0;
    seen[count][1] = bit1;
    const MulShift m0 = MulShiftOf(bit0), m1 = MulShiftOf(bit1);
    const std::int64_t words[kPairWords] = {m0.mul, m0.neg_add, m1.mul, m1.neg_add};
    for (unsigned k = 0; k < kPairWords; ++k) t.rule_words[count * kPairWords + k] = words[k];
    return count++;
  };
  for (unsigned dir : {kForward, kBackward})
    for (unsigned parity = 0; parity < 2; ++parity)
      for (int v = 0; v < 256; ++v) {
        const ShareChoice& choice = BandOf(M, v, dir == kForward).choice;
        const bool by_bit = choice.by == Selector::kOneBit;
        const unsigned pair = pair_of(choice.rules[by_bit ? 0 : parity], choice.rules[by_bit ? 1 : parity]);
        int biased = v;
        // Members with a bias table add it in at least one direction (a table's address is
        // not a constant expression under every build, so the flags decide).
        if constexpr (M.bias_ltr_even || M.bias_rtl_odd) {
          if (dir == kForward ? M.bias_ltr_even && parity == 0 : M.bias_rtl_odd && parity == 1)
            biased += (*M.bias)[static_cast<std::size_t>(v)];
        }
        t.entry[dir][parity][static_cast<std::size_t>(v)] = {
            static_cast<std::int16_t>(biased), static_cast<std::int16_t>(kFirstThreshold - v),
            static_cast<std::uint8_t>(by_bit), static_cast<std::uint8_t>(pair * kPairWords),
            static_cast<std::int16_t>(biased - v)};
      }
  return t;
}

template <const LevelBiasTraits& M>
const FastTables& TablesOf() {
  static const FastTables tables = BuildTables<M>();
  return tables;
}

// Samples of a row below `limit` (0..256).
inline std::size_t CountBelow(const std::uint8_t* row, std::size_t w, int limit) {
  if (limit <= 0) return 0;
  if (limit > 255) return w;
  std::size_t n = 0, x = 0;
#if HALFTONE_VECTOR_ROWS
  // Sixteen samples a step, counted in bytes (a compare is all ones, -1, where below) for up
  // to 255 steps, then added up.
  const vec::Bytes top = vec::Bytes{} + static_cast<std::uint8_t>(limit - 1);
  while (x + 16 <= w) {
    vec::Bytes counts{};
    for (unsigned k = 0; k < 255 && x + 16 <= w; ++k, x += 16) {
      vec::Bytes s;
      std::memcpy(&s, row + x, sizeof s);
      counts -= std::bit_cast<vec::Bytes>(s <= top);
    }
    // The byte counts added in pairs of 16 bits, then the four pairs of each half by a multiply.
    constexpr std::uint64_t kLowBytes = 0x00FF00FF00FF00FFu, kOnes16 = 0x0001000100010001u;
    const vec::Quads q = std::bit_cast<vec::Quads>(counts);
    const vec::Quads pairs = (q & kLowBytes) + ((q >> 8) & kLowBytes);
    n += static_cast<std::size_t>((pairs[0] * kOnes16 >> 48) + (pairs[1] * kOnes16 >> 48));
  }
#endif
  for (; x < w; ++x) n += row[x] < limit;
  return n;
}

// The four-level quantiser as a table over a window of corrected values (-512..511, where
// errors stay): each entry holds the value less its output level and the dot code less
// kMaxCode. One addition and one load take the place of three compares, their sum and a
// multiply, which matters where four planes share the core's issue slots. A value outside the
// window takes the quantiser as sign masks (Arithmetic).
struct FourLevelWindow {
  // Four output levels evenly spaced, as are the thresholds between them.
  static constexpr int kStep = kFourLevelValue[1] - kFourLevelValue[0];
  static constexpr int kGap = kFourThreshold[1] - kFourThreshold[0];
  static_assert(kFourLevelValue[0] == 0 && kFourLevelValue[2] == 2 * kStep && kFourLevelValue[3] == 3 * kStep &&
                kFourThreshold[2] - kFourThreshold[1] == kGap);
  static constexpr int kMaxCode = 3;
  static constexpr int kLo = -512, kHi = 511;
  static constexpr std::size_t kRows = kHi - kLo + 1;
  struct Entry {
    std::int16_t err;           // value less level
    std::int16_t code_less_max;
  };
  struct Result {
    std::int64_t err;
    std::int64_t code_less_max;
  };
  std::array<Entry, kRows> entry{};

  constexpr FourLevelWindow() {
    for (int v = kLo; v <= kHi; ++v) {
      const Result r = Arithmetic(v);
      entry[static_cast<std::size_t>(v - kLo)] = {static_cast<std::int16_t>(r.err),
                                                  static_cast<std::int16_t>(r.code_less_max)};
    }
  }
  // The first threshold less v, shifted down to its sign, is -1 when v lies above that
  // threshold; the signs of the other thresholds follow from it by their distance, so every
  // compare hangs off one subtraction. Their sum is the code less kMaxCode.
  static constexpr Result Arithmetic(std::int64_t v) {
    constexpr int kSign = 63;
    const std::int64_t room = kFourThreshold[0] - v;
    const std::int64_t over = (room >> kSign) + ((room + kGap) >> kSign) + ((room + 2 * kGap) >> kSign);
    const std::int64_t level = -kStep * over;
    return {v - level, over};
  }
  HALFTONE_FORCE_INLINE Result Decide(std::int64_t v) const {
    if (static_cast<std::uint64_t>(v - kLo) >= kRows) [[unlikely]]
      return Outside(v);
    const Entry& en = entry[static_cast<std::size_t>(v - kLo)];
    return {en.err, en.code_less_max};
  }
  [[gnu::noinline]] static Result Outside(std::int64_t v) { return Arithmetic(v); }
};
inline constexpr FourLevelWindow kFourLevelWindow{};

}  // namespace halftone::level_bias
