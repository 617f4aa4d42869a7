// The fast path of the level-keyed bias diffusion (level_bias.cpp): the same pixels in the same
// order per plane, the same draws, the same rows left behind. What changes is how:
//   - whether a pixel draws depends only on its input level and the scan direction, never on
//     the error, so a count over each plane's input tells where its slice of the random stream
//     starts; the band's words are drawn ahead and the planes run as lanes of the serpentine
//     row engine (frame/row_engine.h), each lane reading its own slice;
//   - per scan direction and column parity, a 256-entry table keyed by the input level gives
//     the level plus its bias byte, whether the pixel draws and the split rule for either bit;
//   - every split rule is one multiply and shift, exact for every error a pixel can hold.
// The readable pass stays the reference; mirror any change to it here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/band_draws.h"
#include "frame/engine.h"
#include "frame/lockstep.h"
#include "frame/random_bits.h"
#include "frame/row_engine.h"
#include "tablediffusion/level_bias_rules.h"
#include "tablediffusion/serpentine_vector.h"

namespace halftone::level_bias {

// A member as a kernel of the serpentine row engine: rows hold bare error, a pixel's entry
// gives its biased level and rule pair, and the lane's prepared draws (from its Lane's `drawn`)
// are read one a drawing pixel. A bilevel member also runs on the vector rows
// (tablediffusion/serpentine_vector.h), its bias the term and its rule by level, parity and draw.
template <const LevelBiasTraits& M>
struct LevelBiasKernel {
  static constexpr unsigned kBits = M.bits;
  static constexpr bool kStarts = false;
  static constexpr bool kDraws = false;  // the lane reads its own draws, by level
  struct LaneState {
    const std::uint8_t* words;  // the next prepared draw of the lane's plane
  };
  const FastTables* tables;

  static LaneState StartLane(const row_engine::Lane& lane) { return {lane.drawn}; }
  template <bool, bool>
  static void LaneRow(LaneState&, const row_engine::RowView<std::int16_t>&) {}
  static void SetRow(std::size_t) {}

  template <bool kLtr, bool, bool>
  HALFTONE_FORCE_INLINE row_engine::PixelOut Step(LaneState& s, int v, int held, std::size_t, unsigned odd,
                                                           unsigned) const {
    const std::int64_t c = held;
    const LevelEntry en = tables->entry[kLtr ? kForward : kBackward][odd][static_cast<std::size_t>(v)];
    const std::int64_t* rule = tables->rule_words.data() + (std::size_t{en.rules} + *s.words);
    s.words += en.draws;
    std::int64_t e, code;
    if constexpr (kBits == 2) {
      const auto q = kFourLevelWindow.Decide(c + v);
      code = FourLevelWindow::kMaxCode + q.code_less_max;
      e = q.err + en.bias;
    } else {
      const std::int64_t room = en.room - c;
      const std::int64_t paper = (room >> 63) & kBilevelWhite;  // the level, from room's sign
      // The code from its own compare, not from the level's mask: kept apart, the mask stays in
      // a register for the level on the pixel-to-pixel chain.
      code = room >= 0;
      e = c + en.biased - paper;
    }
    const std::int64_t ahead = ShareByMulShift(e, rule[0], rule[1]);
    return {static_cast<unsigned>(code), static_cast<int>(ahead), static_cast<int>(e - ahead)};
  }

#if HALFTONE_VECTOR_ROWS
  // The vector rows, for the bilevel members. (The four-level member's quantiser costs more as
  // vector compares than its window table does on the scalar engine: 0.96-0.99 times the scalar
  // rate.) A prepared draw is 0 or kPreparedMask; a level at or above the direction's draw
  // limit reads the next draw's, which its pair of rules (one rule twice) ignores.
  static constexpr bool kVectorRows = kBits == 1;
  template <bool kLtr>
  static constexpr std::uint16_t Rule(std::uint8_t level, unsigned odd, unsigned code) {
    const ShareChoice& choice = BandOf(M, level, kLtr).choice;
    const bool by_bit = choice.by == Selector::kOneBit;
    return row_engine::RuleFlags(choice.rules[by_bit ? (code & kPreparedMask) >> kSplitBit : odd]);
  }
  template <bool kLtr>
  int Term(std::uint8_t level, unsigned odd) const {
    return tables->entry[kLtr ? kForward : kBackward][odd][level].bias;
  }
  template <bool kLtr>
  static bool TakesDraw(std::uint8_t level) {
    static constexpr int kLimit = DrawLimit(M, kLtr);
    return level < kLimit;
  }
#endif
};

// Every plane of a band (w, h >= 1). The band's random stream is drawn ahead: a count of the
// drawing levels over each plane's rows gives where its slice starts. The planes run on the
// serpentine row engine, or as vector lanes for full groups of a bilevel member.
template <const LevelBiasTraits& M>
void DiffuseBandFast(Engine& engine, const Band& band) {
  static_assert(DrawsBelowLimitOnly(M, true) && DrawsBelowLimitOnly(M, false), "draws keyed by a level limit");
  static_assert(AllRulesHaveMulShift(M), "every split rule as a multiply and shift");
  constexpr int kLimit[2] = {DrawLimit(M, true), DrawLimit(M, false)};  // [y & 1]
  const unsigned planes = band.planes;
  const std::size_t w = band.w;

  std::array<std::size_t, 256> start{};  // a plane's first word; planes fit in the flags' 8 bits
  std::size_t total = 0;
  for (unsigned p = 0; p < planes; ++p) {
    start[p] = total;
    for (std::size_t y = 0; y < band.h; ++y) total += CountBelow(band.In(y, p), w, kLimit[y & 1]);
  }
  // One draw more than drawn: a pixel reads its draw before knowing whether it draws.
  std::uint8_t* words = DrawBandBytes(engine, total, 1, kPreparedShift, kPreparedMask,
                                      LockstepGroupCount(planes, engine.threads.count()));
  words[total] = 0;
  std::array<const std::uint8_t*, 256> first_word{};
  for (unsigned p = 0; p < planes; ++p) first_word[p] = words + start[p];
  row_engine::RunTableBand(LevelBiasKernel<M>{&TablesOf<M>()}, engine, band, first_word.data());
}

}  // namespace halftone::level_bias
