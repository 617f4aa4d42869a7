// The inner rows of the table-driven kernels of the row engine (frame/row_engine.h) with the
// planes of a group as the 16-bit lanes of one vector, on the vector frame
// (frame/vector_scan.h), for kernels whose rows hold bare error and whose pixel picks its split
// rule by input level and draw. As in the random-split
// vector rows, the rows are kept interleaved (entry 4x + l is lane l at column x), and each
// row is prepared, scanned and its dots packed. The preparation looks up, lane by lane, each
// pixel's curve term and rule (whole error, a third or a half, ahead or down) so the scan only
// does the arithmetic on the pixel-to-pixel chain.
//
// The scan's value and error are ints that a 16-bit lane holds only while the carried value
// stays below kHeldLimit; a column where a lane's value is above it (errors driven to the
// wrap by extreme curves) is done by the scalar kernel, lane by lane, as is the pixel ending a
// row; the band's last row runs on the row engine.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/dispatch.h"
#include "frame/row_engine.h"
#include "frame/vector_lanes.h"
#include "frame/vector_scan.h"
#include "tablediffusion/integer_diffusion.h"

namespace halftone::row_engine {
#if HALFTONE_VECTOR_ROWS

// A pixel's split rule as flags in the top bits of a 16-bit entry, so each flag becomes a lane
// mask with a shift left and an arithmetic shift right. The ahead share is
//   (e & whole) + ((part ^ negate) - negate)
// with part the truncated fraction the rule names: ahead takes the fraction, or (whole and
// negate) the rest after it goes down.
inline constexpr unsigned kRuleWholeBit = 15, kRuleThirdBit = 14, kRuleHalfBit = 13, kRuleNegateBit = 12,
                          kRuleQuarterBit = 11, kRuleTwoThirdsBit = 10, kRuleThreeQuartersBit = 9,
                          kRuleHalfFloorBit = 8, kRuleThreeQuartersFloorBit = 7;
// The fraction each part bit names.
struct PartRule {
  unsigned bit;
  Fraction rule;
};
inline constexpr PartRule kPartRules[] = {{kRuleHalfBit, fraction::kHalf},
                                          {kRuleThirdBit, fraction::kThird},
                                          {kRuleTwoThirdsBit, fraction::kTwoThirds},
                                          {kRuleQuarterBit, fraction::kQuarter},
                                          {kRuleThreeQuartersBit, fraction::kThreeQuarters},
                                          {kRuleHalfFloorBit, {1, 2, false, Rounding::kFloor}},
                                          {kRuleThreeQuartersFloorBit, {3, 4, false, Rounding::kFloor}}};
constexpr std::uint16_t RuleFlags(const Fraction& f) {
  if (!Divides(f)) return IsWhole(f) ? std::uint16_t{1u << kRuleWholeBit} : std::uint16_t{0};
  for (const PartRule& p : kPartRules) {
    if (p.rule.num != f.num || p.rule.den != f.den || p.rule.rounding != f.rounding) continue;
    const unsigned part = 1u << p.bit;
    return static_cast<std::uint16_t>(f.rest ? part | 1u << kRuleWholeBit | 1u << kRuleNegateBit : part);
  }
  throw "a fraction the vector rows do not form";
}
// The same share in plain ints, for errors of any size: the columns and pixels the vector
// rows leave to scalar code.
constexpr int AheadByFlags(int e, std::uint16_t flags) {
  const auto has = [flags](unsigned bit) { return (flags >> bit & 1u) != 0; };
  int part = 0;
  for (const PartRule& p : kPartRules)
    if (has(p.bit)) part = ShareOf(p.rule, e);
  return (has(kRuleWholeBit) ? e : 0) + (has(kRuleNegateBit) ? -part : part);
}

// The carried value above which a lane's int arithmetic may leave 16 bits: the sum of the
// value, an input level and a curve term (each at most 255) must stay a 16-bit value. Below
// it an error stays under 32767 - 255, so the quarter splits' rounding adds fit too.
inline constexpr int kHeldLimit = 32767 - 2 * 255;
// Whether a lane of the group holds a value above kHeldLimit. Only the four low lanes count:
// the upper ones carry whatever the arithmetic leaves there and are never stored.
HALFTONE_FORCE_INLINE inline bool AnyHeldOverLimit(vec::V16 held) {
  return vec::AnyOfGroup(vec::Greater(held, vec::Splat(kHeldLimit)));
}

// A flag's lane mask: all ones where every rule sets it, none where no rule does (both known
// when the kernel is compiled), else taken from the lane's flags.
template <std::uint16_t kAny, std::uint16_t kEvery, unsigned kBit>
HALFTONE_FORCE_INLINE inline vec::V16 FlagMask(vec::V16 flags) {
  if constexpr ((kEvery >> kBit & 1u) != 0)
    return ~vec::V16{};
  else if constexpr ((kAny >> kBit & 1u) == 0)
    return vec::V16{};
  else
    return vec::Sar(flags << (15 - kBit), 15);
}

// The ahead share of each lane's error e (at most 32767 - 255) under its rule flags, where the
// rules in play set no flag outside kAny and every flag in kEvery: only the fractions some rule
// names are formed.
template <std::uint16_t kAny, std::uint16_t kEvery>
HALFTONE_FORCE_INLINE inline vec::V16 AheadByFlags(vec::V16 e, vec::V16 flags) {
  using namespace halftone::vec;
  V16 part{};
  [&]<std::size_t... i>(std::index_sequence<i...>) HALFTONE_FORCE_INLINE {
    ((part |= (kAny >> kPartRules[i].bit & 1u) != 0
                  ? vec::ShareOf<kPartRules[i].rule>(e) & FlagMask<kAny, kEvery, kPartRules[i].bit>(flags)
                  : V16{}),
     ...);
  }(std::make_index_sequence<std::size(kPartRules)>{});
  const V16 negate = FlagMask<kAny, kEvery, kRuleNegateBit>(flags);
  return (e & FlagMask<kAny, kEvery, kRuleWholeBit>(flags)) + ((part ^ negate) - negate);
}

// A column's four 32-bit records (entries 4x .. 4x+3 of a row of records): their low halves
// in the low four 16-bit lanes, their high halves in the upper four. Written as the three
// shuffles SSE2 has for it (pshuflw, pshufhw, pshufd): GCC turns the one shuffle of all eight
// lanes into lane-by-lane moves.
HALFTONE_FORCE_INLINE inline vec::V16 ColumnRecords(const std::uint32_t* column) {
  vec::V16 rec;
  std::memcpy(&rec, column, sizeof rec);
  rec = __builtin_shufflevector(rec, rec, 0, 2, 1, 3, 4, 6, 5, 7);
  const auto pairs = std::bit_cast<vec::Words>(rec);
  return std::bit_cast<vec::V16>(__builtin_shufflevector(pairs, pairs, 0, 2, 1, 3));
}
// The upper four lanes moved down.
HALFTONE_FORCE_INLINE inline vec::V16 UpperLanes(vec::V16 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7, 4, 5, 6, 7); }

// A kernel on this path provides, besides the scalar Step (the bilevel decision on s = level +
// value, kBilevelCut and kBilevelWhite, the error s plus the term, as TableRows decides):
//   kVectorRows                 true;
//   Rule<kLtr>(level, odd, code)  static constexpr: the pixel's rule flags (RuleFlags), by
//                               column parity and the draw's two low bits;
//   Term<kLtr>(level, odd)      its term added to the error (0..65535 as a 16-bit value);
// and, where not every pixel takes a draw, TakesDraw<kLtr>(level): whether a pixel of this
// level moves its lane on to the next draw (a pixel reads the next draw either way).
// TableRows is what the vector engine (frame/vector_scan.h) runs for such a kernel: each row
// looks up every pixel's record, in scan order, and a column is the error, its rule's share
// ahead and the rest down. A lane's draws start at its Lane's `drawn`.
template <class Kernel>
class TableRows {
 public:
  static constexpr unsigned kBits = Kernel::kBits;
  static_assert(kBits == 1);
  static constexpr bool kStartsFromInput = false;

  TableRows(const Kernel& kernel, const Band& band, const Lane* lanes) : k_(kernel), band_(band) {
    for (unsigned l = 0; l < kVectorLanes; ++l) next_draw_[l] = lanes[l].drawn;
    MakeRecords<true>();
    MakeRecords<false>();
  }
  // Lane l's next draw after the rows scanned so far.
  const std::uint8_t* NextDraw(unsigned l) const { return next_draw_[l]; }

  template <bool kLtr>
  struct RowKernel {
    const std::uint32_t* records;
    const std::uint8_t* levels;

    HALFTONE_FORCE_INLINE static bool Fits(vec::V16 held) { return !AnyHeldOverLimit(held); }
    HALFTONE_FORCE_INLINE VectorColumn Column(vec::V16 held, std::size_t at, std::size_t) const {
      using vec::Splat;
      const vec::V16 rec = ColumnRecords(records + at);  // terms low, rules high
      const vec::V16 s = vec::Load8(levels + at) + held;
      // Paper where s is above the threshold: one signed compare on the chain (the dot's
      // compare, s <= threshold, costs SSE2 a min and an equal).
      const vec::V16 paper = vec::Greater(s, Splat(kBilevelCut));
      const vec::V16 e = s + rec - (paper & Splat(kBilevelWhite));
      const vec::V16 ahead = AheadOf<kLtr>(e, UpperLanes(rec));
      return {ahead, e - ahead, ~paper & Splat(1)};
    }
    // A column whose values may leave 16 bits: each lane in ints.
    [[gnu::noinline]] VectorColumn Cold(vec::V16 held, std::size_t at, std::size_t) const {
      VectorColumn c{};
      for (unsigned l = 0; l < kVectorLanes; ++l) {
        const IntPixel px = PixelOf(levels[at + l], vec::At(held, l), records[at + l]);
        c.ahead[l] = static_cast<std::uint16_t>(px.ahead);
        c.down[l] = static_cast<std::uint16_t>(px.e - px.ahead);
        c.dot[l] = static_cast<std::uint16_t>(px.code);
      }
      return c;
    }
    VectorEnd End(unsigned, int held, std::size_t at) const {
      const IntPixel px = PixelOf(levels[at], held, records[at]);
      return {px.e - px.ahead, px.code};
    }
  };
  template <bool kLtr>
  RowKernel<kLtr> Row(std::size_t, const VectorRowsMemory& mem) {
    PrepareRow<kLtr>(mem);
    return {mem.records(), mem.samples};
  }

 private:
  // A pixel in ints from its level, carried value and record: error, ahead share and code.
  struct IntPixel {
    int e, ahead;
    unsigned code;
  };
  static IntPixel PixelOf(int level, int held, std::uint32_t record) {
    const int s = level + held;
    const bool dot = s <= kBilevelCut;
    const int e = s - (dot ? 0 : kBilevelWhite) + static_cast<std::int16_t>(record & 0xFFFF);
    return {e, AheadByFlags(e, static_cast<std::uint16_t>(record >> 16)), dot ? 1u : 0u};
  }

  template <bool kLtr>
  static bool TakesDraw(std::uint8_t level) {
    if constexpr (requires { Kernel::template TakesDraw<kLtr>(level); })
      return Kernel::template TakesDraw<kLtr>(level);
    else
      return true;
  }

  // A pixel's rule flags by scan direction, [parity * kPerParity + level * kRuleCodes + the
  // draw's two low bits], made when the kernel is compiled; its record holds its term (low
  // half) and those flags (high half), made once per group.
  static constexpr std::size_t kRuleCodes = kSplitBitsMask + 1;
  static constexpr std::size_t kPerParity = kCurveLength * kRuleCodes;
  template <bool kLtr>
  static constexpr std::array<std::uint16_t, 2 * kPerParity> kRules = [] {
    std::array<std::uint16_t, 2 * kPerParity> r{};
    for (unsigned odd = 0; odd < 2; ++odd)
      for (std::size_t level = 0; level < kCurveLength; ++level)
        for (unsigned code = 0; code < kRuleCodes; ++code)
          r[odd * kPerParity + level * kRuleCodes + code] =
              Kernel::template Rule<kLtr>(static_cast<std::uint8_t>(level), odd, code);
    return r;
  }();
  template <bool kLtr>
  void MakeRecords() {
    for (unsigned odd = 0; odd < 2; ++odd)
      for (std::size_t level = 0; level < kCurveLength; ++level) {
        const auto term = static_cast<std::uint16_t>(k_.template Term<kLtr>(static_cast<std::uint8_t>(level), odd));
        for (unsigned code = 0; code < kRuleCodes; ++code) {
          const std::size_t i = odd * kPerParity + level * kRuleCodes + code;
          records_[kLtr][i] = term | std::uint32_t{kRules<kLtr>[i]} << 16;
        }
      }
  }

  // Each pixel of the row's record from its level (interleaved in mem.samples) and its draw,
  // column by column in scan order, so each lane takes its draws as the scalar row does.
  template <bool kLtr>
  void PrepareRow(const VectorRowsMemory& mem) {
    const std::size_t w = band_.w;
    auto* out = reinterpret_cast<unsigned char*>(mem.records());
    const std::uint32_t* even = records_[kLtr];
    const std::uint32_t* odd = records_[kLtr] + kPerParity;
    const std::uint8_t* const levels = mem.samples;
    const std::uint8_t* draw[kVectorLanes];
    for (unsigned l = 0; l < kVectorLanes; ++l) draw[l] = next_draw_[l];
    const auto put = [&](std::size_t x, const std::uint32_t* table) HALFTONE_FORCE_INLINE {
      ForEachLane<kVectorLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
        const std::uint8_t level = levels[kVectorLanes * x + l];
        const std::uint32_t r = table[level * kRuleCodes + *draw[l]];  // a draw is below kRuleCodes
        draw[l] += TakesDraw<kLtr>(level);
        std::memcpy(out + sizeof r * (kVectorLanes * x + l), &r, sizeof r);
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
    for (unsigned l = 0; l < kVectorLanes; ++l) next_draw_[l] = draw[l];
  }

  // The flags any rule of a direction sets, and those every rule sets: a part no rule names is
  // never formed, and a flag every rule sets needs no mask.
  template <bool kLtr, bool kEvery>
  static constexpr std::uint16_t kFlagsOf = [] {
    unsigned f = kEvery ? 0xFFFFu : 0u;
    for (const unsigned r : kRules<kLtr>) f = kEvery ? (f & r) : (f | r);
    return static_cast<std::uint16_t>(f);
  }();
  template <bool kLtr>
  HALFTONE_FORCE_INLINE static vec::V16 AheadOf(vec::V16 e, vec::V16 flags) {
    return AheadByFlags<kFlagsOf<kLtr, false>, kFlagsOf<kLtr, true>>(e, flags);
  }

  Kernel k_;
  const Band& band_;
  const std::uint8_t* next_draw_[kVectorLanes];
  std::uint32_t records_[2][2 * kPerParity];  // [left to right][parity * kPerParity + ...]
};

// Every plane of a band (w >= 1, h >= 2) for a kernel with vector rows: groups of four planes
// as vector lanes, each plane's last row on the scalar scan. A smaller group (the rest of the
// planes, or a group per thread) stays scalar: three planes as lanes measured 10 % slower.
// Plane p's draws start at plane_draws[p], or where none are given, at its slice of the band's
// split bits (a draw a pixel).
template <class Kernel>
void RunBandVector(const Kernel& kernel, Engine& engine, const Band& band,
                   const std::uint8_t* const* plane_draws = nullptr) {
  const unsigned planes = band.planes;
  const std::size_t per_plane = band.w * band.h;
  const std::uint8_t* drawn = plane_draws ? nullptr : DrawSplitBits(engine, per_plane * planes, planes);
  halftone::ForEachVectorGroup(engine, planes, band.w, [&](unsigned first, unsigned n, VectorRowsMemory mem) {
    Lane lanes[kVectorLanes];
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      lanes[l] = {LaneRowA(engine.rows, p, planes), LaneRowB(engine.rows, p, planes), engine.rows.carry(p, band.w),
                  plane_draws ? plane_draws[p] : drawn + per_plane * p, p};
    }
    if (n < kVectorLanes) {
      WithLaneCount(n, [&](auto lanes_n) { Scan<Kernel, decltype(lanes_n)::value>(kernel, band, lanes).Run(); });
      return;
    }
    TableRows<Kernel> rows(kernel, band, lanes);
    VectorScan(rows, band, lanes, n, mem).Run();
    for (unsigned l = 0; l < n; ++l) {
      Lane last = lanes[l];
      last.drawn = rows.NextDraw(l);
      Scan<Kernel, 1>(kernel, band, &last).LastRow();
    }
  });
}
#endif

// Every plane of a band (w, h >= 1) for a table-driven kernel: on the vector rows where the
// kernel has them and the band has a full group of planes and two rows, else on the row engine.
template <class Kernel>
void RunTableBand(const Kernel& kernel, Engine& engine, const Band& band,
                  const std::uint8_t* const* plane_draws = nullptr) {
#if HALFTONE_VECTOR_ROWS
  if constexpr (Kernel::kVectorRows) {
    if (VectorRowsOn() && band.h >= 2 && band.planes >= kVectorLanes)
      return RunBandVector(kernel, engine, band, plane_draws);
  }
#endif
  RunBand(kernel, engine, band, plane_draws);
}

}  // namespace halftone::row_engine
