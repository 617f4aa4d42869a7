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
#include <cstring>
#include <utility>

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
// gives its biased level and rule pair, and the lane's prepared draws are read one a drawing
// pixel.
template <const LevelBiasTraits& M>
struct LevelBiasKernel {
  static constexpr unsigned kBits = M.bits;
  static constexpr bool kStarts = false;
  static constexpr bool kDraws = false;  // the lane reads its own draws, by level
  using Quantiser = FastQuantiser<kBits>;
  struct LaneState {
    const std::uint8_t* words;  // the next prepared draw of the lane's plane
  };
  const FastTables* tables;
  const std::uint8_t* const* first_word;  // by plane: its first prepared draw in this band

  LaneState StartLane(unsigned p) const { return {first_word[p]}; }
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
      code = Quantiser::kMaxCode + q.code_less_max;
      e = q.err + en.bias;
    } else {
      const std::int64_t room = en.room - c;
      const auto q = Quantiser::Decide(room);
      // The code from its own compare, not from the quantiser's mask: kept apart, the mask
      // stays in a register for the level on the pixel-to-pixel chain.
      code = room >= 0;
      e = c + en.biased - q.level;
    }
    const std::int64_t ahead = ShareByMulShift(e, rule[0], rule[1]);
    return {static_cast<unsigned>(code), static_cast<int>(ahead), static_cast<int>(e - ahead)};
  }
};

#if HALFTONE_VECTOR_ROWS
// The rows of a full group of a bilevel member on the vector engine (frame/vector_scan.h). Each
// row looks up every pixel's record lane by lane, taking the draws in scan order; a column is
// the error, its rule's share ahead and the rest down. A column where some lane's carried value
// could take the error out of 16 bits, and the pixel ending each row, are done in ints, lane by
// lane. (The four-level member's quantiser costs more as vector compares than its window table
// does on the scalar engine: 0.96-0.99 times the scalar rate.)
template <const LevelBiasTraits& M>
class VectorRows {
  static constexpr unsigned kLanes = halftone::kVectorLanes;

 public:
  static constexpr unsigned kBits = M.bits;
  static_assert(kBits == 1);
  static constexpr bool kStartsFromInput = false;

  // `words` by plane: its next prepared draw, moved on as the rows take them.
  VectorRows(const Band& band, const row_engine::Lane* lanes, const std::uint8_t** words)
      : band_(band), words_(words) {
    for (unsigned l = 0; l < kLanes; ++l) p_[l] = lanes[l].p;
  }

  template <bool kLtr>
  struct RowKernel {
    const std::uint32_t* records;
    const std::uint8_t* samples;

    HALFTONE_FORCE_INLINE static bool Fits(vec::V16 held) { return !row_engine::AnyHeldOverLimit(held); }
    HALFTONE_FORCE_INLINE VectorColumn Column(vec::V16 held, std::size_t at, std::size_t) const {
      constexpr std::uint16_t kAny = kVectorFlags<M, kLtr, false>, kEvery = kVectorFlags<M, kLtr, true>;
      const vec::V16 rec = row_engine::ColumnRecords(records + at);  // bias low, rules high
      vec::V16 code;
      const vec::V16 e = Decide{}.Error(vec::Load8(samples + at) + held, {}, rec, code);
      const vec::V16 ahead = row_engine::AheadByFlags<kAny, kEvery>(e, row_engine::UpperLanes(rec));
      return {ahead, e - ahead, code};
    }
    VectorEnd End(unsigned, int held, std::size_t at) const {
      const IntPixel px = PixelOfRecord(samples[at], held, records[at]);
      return {px.e - px.ahead, px.code};
    }
    [[gnu::noinline]] VectorColumn Cold(vec::V16 held, std::size_t at, std::size_t) const {
      VectorColumn c{};
      for (unsigned l = 0; l < kLanes; ++l) {
        const IntPixel px = PixelOfRecord(samples[at + l], vec::At(held, l), records[at + l]);
        c.ahead[l] = static_cast<std::uint16_t>(px.ahead);
        c.down[l] = static_cast<std::uint16_t>(px.e - px.ahead);
        c.dot[l] = static_cast<std::uint16_t>(px.code);
      }
      return c;
    }
  };

  // Each pixel of the row's record, column by column in scan order, so each lane takes its
  // draws as the scalar row does.
  template <bool kLtr>
  RowKernel<kLtr> Row(std::size_t, const VectorMemory& mem) {
    const std::size_t w = band_.w;
    const std::uint32_t* even = VectorRecordsOf<M>(kLtr).data();
    const std::uint32_t* odd = even + kRecordsPerParity;
    constexpr int kLimit = DrawLimit(M, kLtr);
    std::uint32_t* records = mem.records();
    const std::uint8_t* const samples = mem.samples;
    const std::uint8_t* words[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) words[l] = words_[p_[l]];
    const auto put = [&](std::size_t x, const std::uint32_t* table) HALFTONE_FORCE_INLINE {
      ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
        const unsigned v = samples[kLanes * x + l];
        records[kLanes * x + l] = table[v * kDrawBytes + *words[l]];
        words[l] += v < kLimit;
      });
    };
    if constexpr (kLtr) {
      std::size_t x = 0;
      for (; x + 2 <= w; x += 2) put(x, even), put(x + 1, odd);
      if (x < w) put(x, even);
    } else {
      std::size_t x = w;
      if ((x & 1) != 0) put(--x, even);
      for (; x >= 2; x -= 2) put(x - 1, odd), put(x - 2, even);
    }
    for (unsigned l = 0; l < kLanes; ++l) words_[p_[l]] = words[l];
    return {records, samples};
  }

 private:
  // A pixel in ints from its sample, carried value and record: error, ahead share and code.
  struct IntPixel {
    int e, ahead;
    unsigned code;
  };
  static IntPixel PixelOfRecord(int v, int c, std::uint32_t record) {
    const int s = c + v;
    const bool dot = s <= kBilevelThreshold;
    const int e = s - (dot ? 0 : kWhite) + static_cast<std::int16_t>(record & 0xFFFF);
    return {e, row_engine::AheadByFlags(e, static_cast<std::uint16_t>(record >> 16)), dot ? 1u : 0u};
  }

  static constexpr int kBilevelLevels[2] = {0, kWhite};
  static constexpr int kBilevelThresholds[1] = {kBilevelThreshold};
  using Decide = halftone::FixedStepsDecide<kBilevelThresholds, kBilevelLevels, 1>;

  const Band& band_;
  const std::uint8_t** words_;
  unsigned p_[kLanes];
};
#endif

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
  const LevelBiasKernel<M> kernel{&TablesOf<M>(), first_word.data()};

#if HALFTONE_VECTOR_ROWS
  using halftone::kVectorLanes;
  if constexpr (M.bits == 1) {
    if (VectorRowsOn() && planes >= kVectorLanes && band.h >= 2) {
      // Groups of four planes as vector lanes; a smaller rest stays on the engine.
      halftone::ForEachVectorGroup(engine, planes, w, [&](unsigned first, unsigned n, VectorMemory mem) {
        row_engine::Lane lanes[kMaxLockstep];
        for (unsigned l = 0; l < n; ++l) {
          const unsigned p = first + l;
          lanes[l] = {LaneRowA(engine.rows, p, planes), LaneRowB(engine.rows, p, planes), engine.rows.carry(p, w),
                      nullptr, p};
        }
        if (n < kVectorLanes) {
          WithLaneCount(n, [&](auto lanes_n) {
            row_engine::Scan<LevelBiasKernel<M>, decltype(lanes_n)::value>(kernel, band, lanes).Run();
          });
          return;
        }
        VectorRows<M> rows(band, lanes, first_word.data());
        VectorLane vlanes[kVectorLanes];
        row_engine::VectorLanesOf(lanes, n, vlanes);
        VectorScan(rows, band, vlanes, n, mem).Run();
        for (unsigned l = 0; l < n; ++l) row_engine::Scan<LevelBiasKernel<M>, 1>(kernel, band, &lanes[l]).LastRow();
      });
      return;
    }
  }
#endif
  row_engine::RunBand(kernel, engine, band);
}

}  // namespace halftone::level_bias
