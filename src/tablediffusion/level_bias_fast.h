// The fast path of the level-keyed bias diffusion (level_bias.cpp): the same pixels in the same
// order per plane, the same draws, the same rows left behind. What changes is how:
//   - whether a pixel draws depends only on its input level and the scan direction, never on
//     the error, so a count over each plane's input tells where its slice of the random stream
//     starts; the band's words are drawn ahead and the planes run in lockstep, row y of every
//     plane in one loop, each on its own working rows, carry entries and slice of words;
//   - per scan direction and column parity, a 256-entry table keyed by the input level gives
//     the level plus its bias byte, whether the pixel draws and the split rule for either bit;
//   - every split rule is one multiply and shift, exact for every error a pixel can hold;
//   - the error carried along the row stays in a register, the dots of a byte are gathered in
//     a register and stored once.
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
#include "tablediffusion/level_bias_rules.h"

namespace halftone::level_bias {

// One plane of a lockstep group.
struct FastLane {
  std::int16_t* carry;
  const std::uint8_t* words;  // the plane's slice of the band's prepared draws
  unsigned p;
};

// A group of planes scanned in lockstep. Their working rows are interleaved by lane (cell of
// lane l at column x at x * kLanes + l) so that one pointer and the column reach every lane;
// the dots of all lanes gather in one word, a byte per lane.
template <const LevelBiasTraits& M, unsigned kLanes>
class LockstepDiffusion {
 public:
  // `rows` holds 2 * kLanes * w cells; `shared_a`/`shared_b`, when set, receive the last
  // lane's working rows at the end, as the sequential pass leaves them.
  LockstepDiffusion(const FastTables& tables, const Band& band, const FastLane* lanes, std::int16_t* rows,
                    std::int16_t* shared_a, std::int16_t* shared_b)
      : tables_(tables), band_(band), rows_a_(rows), rows_b_(rows + kLanes * band.w), shared_a_(shared_a),
        shared_b_(shared_b) {
    for (unsigned l = 0; l < kLanes; ++l) lanes_[l] = lanes[l];
  }

#if HALFTONE_VECTOR_ROWS
  // Vector inner rows for a full group of a bilevel member. The four-level member's quantiser
  // costs more as vector compares than its window table does here (measured 0.96-0.99 times the
  // scalar rate), so it stays scalar.
  static constexpr bool kVectorRows = M.bits == 1 && kLanes == halftone::kVectorLanes;
#endif

  // `vector`, for a group of kVectorLanes planes: scratch rows in which the inner rows run as
  // vectors (the band's last row stays scalar).
  void Run([[maybe_unused]] const VectorMemory* vector = nullptr) {
    const std::size_t w = band_.w, h = band_.h;
    for (unsigned l = 0; l < kLanes; ++l)
      for (std::size_t x = 0; x < w; ++x) {
        rows_a_[x * kLanes + l] = lanes_[l].carry[x];
        lanes_[l].carry[x] = 0;
      }
    if (w != 0) {
      std::size_t y = 0;
#if HALFTONE_VECTOR_ROWS
      if constexpr (kVectorRows) {
        if (vector != nullptr && h >= 2) {
          VectorRows(*vector);
          y = h - 1;
        }
      }
#endif
      // Only the last two rows leave what ends up in the shared rows.
      for (; y < h; ++y) {
        const bool keep = y + 2 >= h;
        if ((y & 1) == 0) {
          if (keep)
            Row<true, false, true>(y);
          else
            Row<true, false, false>(y);
        } else if (y + 1 == h) {
          Row<false, true, true>(y);
        } else if (keep) {
          Row<false, false, true>(y);
        } else {
          Row<false, false, false>(y);
        }
      }
    }
    if (shared_a_ != nullptr) {
      for (std::size_t x = 0; x < w; ++x) shared_a_[x] = rows_a_[x * kLanes + kLanes - 1];
      // With no rows, the sequential pass never touches B.
      if (h != 0)
        for (std::size_t x = 0; x < w; ++x) shared_b_[x] = rows_b_[x * kLanes + kLanes - 1];
    }
  }

 private:
  static constexpr unsigned kBits = M.bits;
  static constexpr unsigned kPerByte = 8 / kBits;
  static constexpr unsigned kByteBits = 8;
  static constexpr std::uint64_t kByteMask = 0xFF;
  using Quantiser = FastQuantiser<kBits>;
  static constexpr bool kWindowed = kBits == 2;  // four levels by FourLevelWindow
  static_assert(kLanes * kByteBits <= 64, "a byte per lane in the dot word");

  // Row y: forward rows quantise A and write the next row's errors into B (a forward last row
  // too); backward rows quantise B and write into A, or into the carry row on the band's last
  // row. kKeep: the corrected values are written back into the row read.
  template <bool kLtr, bool kLast, bool kKeep>
  void Row(std::size_t y) {
    const std::size_t w = band_.w;
    const auto& by_parity = tables_.entry[kLtr ? kForward : kBackward];
    const std::int64_t* rules = tables_.rule_words.data();
    std::int16_t* const cur = kLtr ? rows_a_ : rows_b_;
    std::int16_t* const next = kLtr ? rows_b_ : rows_a_;
    std::int16_t* carry[kLanes];
    const std::uint8_t* in[kLanes];
    const std::uint8_t* words[kLanes];
    std::int64_t carried[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      carry[l] = lanes_[l].carry;
      in[l] = band_.In(y, lanes_[l].p);
      words[l] = lanes_[l].words;
      carried[l] = cur[(kLtr ? 0 : w - 1) * kLanes + l];
    }
    // Dots of the byte being gathered: lane l in bits 8l..8l+7. Forward rows shift codes in
    // from the low end, backward rows from the high end, so both end a byte in pixel order.
    // Every pixel adds kMaxCode once per column for all lanes, then its (non-positive) code
    // less kMaxCode; the sum is exact, so no lane borrows from another.
    std::uint64_t dots = 0;
    constexpr unsigned kCodeShift = kLtr ? 0 : kByteBits - kBits;
    constexpr std::uint64_t kColumnMax = [] {
      std::uint64_t m = 0;
      for (unsigned l = 0; l < kLanes; ++l) m |= std::uint64_t{Quantiser::kMaxCode} << (l * kByteBits + kCodeShift);
      return m;
    }();
    auto flush = [&](std::size_t x) {
      for (unsigned l = 0; l < kLanes; ++l) {
        std::uint8_t* out = band_.Out(y, lanes_[l].p) + x / kPerByte;
        *out = static_cast<std::uint8_t>(*out | ((dots >> (l * kByteBits)) & kByteMask));
      }
      dots = 0;
    };

    // One pixel of lane l at column x: dot and down share; returns the ahead share.
    auto pixel = [&](unsigned l, std::size_t x, const LevelEntry* entries) HALFTONE_FORCE_INLINE {
      const std::uint8_t sample = in[l][x];
      const LevelEntry en = entries[sample];
      const std::int64_t* rule = rules + (std::size_t{en.rules} + *words[l]);
      words[l] += en.draws;
      const std::int64_t c = carried[l];
      std::int64_t e;
      if constexpr (kWindowed) {
        const auto q = kFourLevelWindow.Decide(c + sample);
        dots += static_cast<std::uint64_t>(q.code_less_max) << (l * kByteBits + kCodeShift);
        e = q.err + en.bias;
      } else {
        const auto q = Quantiser::Decide(en.room - c);
        dots += static_cast<std::uint64_t>(q.code_less_max) << (l * kByteBits + kCodeShift);
        e = c + en.biased - q.level;
      }
      const std::int64_t ahead = AheadShare(e, rule[0], rule[1]);
      if constexpr (kKeep) cur[x * kLanes + l] = static_cast<std::int16_t>(c);
      if constexpr (kLast)
        carry[l][x] = Store16(static_cast<int>(e - ahead));
      else
        next[x * kLanes + l] = Store16(static_cast<int>(e - ahead));
      return ahead;
    };

    for (std::size_t i = 0; i + 1 < w; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      const std::size_t along = kLtr ? x + 1 : x - 1;
      const LevelEntry* entries = by_parity[x & 1].data();
      dots = (kLtr ? dots << kBits : dots >> kBits) + kColumnMax;
      ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
        const std::int64_t ahead = pixel(l, x, entries);
        carried[l] = static_cast<std::int16_t>(cur[along * kLanes + l] + ahead);
      });
      if ((x & (kPerByte - 1)) == (kLtr ? kPerByte - 1 : 0)) flush(x);
    }
    // The row's end: its ahead share has no pixel to go to.
    const std::size_t x = kLtr ? w - 1 : 0;
    const LevelEntry* entries = by_parity[x & 1].data();
    dots = (kLtr ? dots << kBits : dots >> kBits) + kColumnMax;
    for (unsigned l = 0; l < kLanes; ++l) {
      pixel(l, x, entries);
      lanes_[l].words = words[l];
    }
    // A forward row's last byte may be partial: its pixels go to the high end.
    if constexpr (kLtr) dots <<= (kPerByte - 1 - (x & (kPerByte - 1))) * kBits;
    flush(x);
  }

#if HALFTONE_VECTOR_ROWS
  // Rows 0 .. h-2 with the lanes as the 16-bit lanes of one vector, on the same interleaved
  // working rows. Each row: the samples are interleaved and every pixel's record looked up lane
  // by lane, taking the draws in scan order; the columns are scanned; the dots are packed. A
  // column where some lane's carried value could take the error out of 16 bits, and the pixel
  // ending each row, are done in ints, lane by lane.
  void VectorRows(const VectorMemory& mem) {
    const std::size_t w = band_.w;
    std::memset(mem.dots, 0, halftone::VectorRowsMemory::Columns(w) * kLanes);
    halftone::ScanInnerRows(band_.h, [&]<bool kLtr, bool kKeep>(std::size_t y) {
      VectorRow<kLtr, kKeep>(y, mem);
    });
  }

  // A pixel in ints from its sample, carried value and record: error, ahead share and code.
  struct IntPixel {
    int e, ahead;
    unsigned code;
  };
  static IntPixel PixelOfRecord(int v, int c, std::uint32_t record) {
    const int s = c + v;
    const bool dot = s <= kBilevelThreshold;
    const int e = s - (dot ? 0 : kWhite) + static_cast<std::int16_t>(record & 0xFFFF);
    return {e, serpentine_lockstep::AheadByFlags(e, static_cast<std::uint16_t>(record >> 16)), dot ? 1u : 0u};
  }

  template <bool kLtr>
  void PrepareVectorRow(std::size_t y, const VectorMemory& mem) {
    const std::size_t w = band_.w;
    const std::uint8_t* in[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) in[l] = band_.In(y, lanes_[l].p);
    halftone::InterleaveBytes(in, w, mem.samples);
    const std::uint32_t* even = VectorRecordsOf<M>(kLtr).data();
    const std::uint32_t* odd = even + kRecordsPerParity;
    constexpr int kLimit = DrawLimit(M, kLtr);
    std::uint32_t* records = mem.records();
    const std::uint8_t* const samples = mem.samples;
    const std::uint8_t* words[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) words[l] = lanes_[l].words;
    // Column by column in scan order, so each lane takes its draws as the scalar row does.
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
    for (unsigned l = 0; l < kLanes; ++l) lanes_[l].words = words[l];
  }

  template <bool kLtr, bool kKeep>
  void VectorRow(std::size_t y, const VectorMemory& mem) {
    using namespace halftone::vec;
    PrepareVectorRow<kLtr>(y, mem);
    const std::size_t w = band_.w;
    std::int16_t* const cur = kLtr ? rows_a_ : rows_b_;
    std::int16_t* const next = kLtr ? rows_b_ : rows_a_;
    const std::uint32_t* const records = mem.records();
    const std::uint8_t* const samples = mem.samples;
    std::uint8_t* const dots = mem.dots;
    constexpr std::ptrdiff_t kStep = kLtr ? kLanes : -static_cast<std::ptrdiff_t>(kLanes);
    constexpr std::uint16_t kAny = kVectorFlags<M, kLtr, false>, kEvery = kVectorFlags<M, kLtr, true>;
    const Decide decide;

    std::size_t at = kLtr ? 0 : (w - 1) * kLanes;
    V16 held = Load16(cur + at);
    for (std::size_t i = 0; i + 1 < w; ++i, at += kStep) {
      if constexpr (kKeep) Store16(cur + at, held);
      V16 ahead, down, code;
      if (!serpentine_lockstep::AnyHeldOverLimit(held)) [[likely]] {
        const V16 rec = serpentine_lockstep::ColumnRecords(records + at);  // bias low, rules high
        const V16 e = decide.Error(Load8(samples + at) + held, {}, rec, code);
        ahead = serpentine_lockstep::AheadByFlags<kAny, kEvery>(e, serpentine_lockstep::UpperLanes(rec));
        down = e - ahead;
      } else {
        IntColumn(held, at, mem, ahead, down, code);
      }
      Store16(next + at, down);
      Store8(dots + at, code);
      held = Load16(cur + at + kStep) + ahead;
    }
    // The pixel ending the row: its ahead share has no pixel to go to.
    for (unsigned l = 0; l < kLanes; ++l, ++at) {
      if constexpr (kKeep) cur[at] = At(held, l);
      const IntPixel px = PixelOfRecord(samples[at], At(held, l), mem.records()[at]);
      next[at] = Store16(px.e - px.ahead);
      dots[at] = static_cast<std::uint8_t>(px.code);
    }
    std::uint8_t* out[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) out[l] = band_.Out(y, lanes_[l].p);
    halftone::PackDots<kBits>(dots, w, out, kLanes);
  }

  [[gnu::noinline]] static void IntColumn(vec::V16 held, std::size_t at, const VectorMemory& mem, vec::V16& ahead,
                                          vec::V16& down, vec::V16& code) {
    ahead = down = code = vec::V16{};
    for (unsigned l = 0; l < kLanes; ++l) {
      const IntPixel px = PixelOfRecord(mem.samples[at + l], vec::At(held, l), mem.records()[at + l]);
      ahead[l] = static_cast<std::uint16_t>(px.ahead);
      down[l] = static_cast<std::uint16_t>(px.e - px.ahead);
      code[l] = static_cast<std::uint16_t>(px.code);
    }
  }

  static constexpr int kBilevelLevels[2] = {0, kWhite};
  static constexpr int kBilevelThresholds[1] = {kBilevelThreshold};
  using Decide = halftone::FixedStepsDecide<kBilevelThresholds, kBilevelLevels, 1>;
#endif

  const FastTables& tables_;
  const Band& band_;
  std::int16_t* rows_a_;
  std::int16_t* rows_b_;
  std::int16_t* shared_a_;
  std::int16_t* shared_b_;
  FastLane lanes_[kLanes];
};

template <const LevelBiasTraits& M>
void RunLockstep(const FastTables& tables, const Band& band, const FastLane* lanes, unsigned n, std::int16_t* rows,
                 std::int16_t* shared_a, std::int16_t* shared_b, const VectorMemory* vector) {
  WithLaneCount(n, [&](auto lanes_n) {
    LockstepDiffusion<M, decltype(lanes_n)::value>(tables, band, lanes, rows, shared_a, shared_b).Run(vector);
  });
}

// Every plane of a band. The band's random stream is drawn ahead: a count of the drawing
// levels over each plane's rows gives where its slice starts. Each plane works on private rows;
// the last plane's are copied into the shared ones at the end, so they end the band as the
// sequential pass leaves them. The planes run in lockstep groups, the groups on the engine's
// threads.
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

  const FastTables& tables = TablesOf<M>();
  const auto run = [&](unsigned first, unsigned n, const VectorMemory* vector) {
    FastLane lanes[kMaxLockstep];
    for (unsigned l = 0; l < n; ++l) lanes[l] = {engine.rows.carry(first + l, w), words + start[first + l], first + l};
    // The group's interleaved working rows take the private rows of its planes (2 w cells each).
    const bool has_last = first + n == planes;
    RunLockstep<M>(tables, band, lanes, n, engine.rows.lane_a(first), has_last ? engine.rows.a() : nullptr,
                   has_last ? engine.rows.b() : nullptr, vector);
  };
#if HALFTONE_VECTOR_ROWS
  using halftone::kVectorLanes;
  if constexpr (LockstepDiffusion<M, kVectorLanes>::kVectorRows) {
    if (VectorRowsOn() && planes >= kVectorLanes && band.h >= 2) {
      // Groups of four planes as vector lanes; a smaller rest stays scalar.
      halftone::ForEachVectorGroup(engine, planes, w, [&](unsigned first, unsigned n, VectorMemory mem) {
        run(first, n, n == kVectorLanes ? &mem : nullptr);
      });
      return;
    }
  }
#endif
  ForEachLockstepGroup(engine.threads, planes, kMaxLockstep,
                       [&](unsigned first, unsigned n) { run(first, n, nullptr); });
}

}  // namespace halftone::level_bias
