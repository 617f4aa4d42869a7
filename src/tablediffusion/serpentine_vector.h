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

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/row_engine.h"
#include "frame/vector_lanes.h"
#include "frame/vector_scan.h"

#if HALFTONE_VECTOR_ROWS
namespace halftone::row_engine {

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

// The bilevel decision of the kernels here: a dot where s <= kThreshold; the error is the
// biased value, less white without a dot.
template <int kThreshold, int kWhite>
HALFTONE_FORCE_INLINE inline vec::V16 BilevelVectorError(vec::V16 s, vec::V16 biased, vec::V16& dot) {
  using halftone::vec::Splat;
  dot = vec::Greater(Splat(kThreshold + 1), s);
  return biased - (~dot & Splat(kWhite));
}

// A kernel on this path provides, besides the scalar Step:
//   kVectorRows                     true;
//   Rule<kLtr>(level, drawn)        static constexpr: the pixel's rule flags (RuleFlags), by
//                                   the draw's two low bits only;
//   Term<kLtr>(level, odd)          its curve term (0..65535 as a 16-bit value);
//   VectorError(s, biased, dot)     from s = level + value and biased = s + term, the error
//                                   and the dot (all ones where a dot is set).
// TableRows is what the vector engine (frame/vector_scan.h) runs for such a kernel: each row
// looks up every pixel's record, and a column is the error, its rule's share ahead and the rest
// down.
template <class Kernel>
class TableRows {
 public:
  static constexpr unsigned kBits = Kernel::kBits;
  static constexpr bool kStartsFromInput = false;

  TableRows(const Kernel& kernel, const Band& band, const Lane* lanes) : k_(kernel), band_(band) {
    for (unsigned l = 0; l < kVectorLanes; ++l) lanes_[l] = lanes[l];
    MakeRecords<true>();
    MakeRecords<false>();
  }

  template <bool kLtr>
  struct RowKernel {
    const TableRows* rows;
    std::size_t y;
    const std::uint32_t* records;
    const std::uint8_t* levels;

    HALFTONE_FORCE_INLINE static bool Fits(vec::V16 held) { return !AnyHeldOverLimit(held); }
    HALFTONE_FORCE_INLINE VectorColumn Column(vec::V16 held, std::size_t at, std::size_t) const {
      const vec::V16 rec = ColumnRecords(records + at);  // terms low, rules high
      const vec::V16 s = vec::Load8(levels + at) + held;
      vec::V16 dot;
      const vec::V16 e = rows->k_.VectorError(s, s + rec, dot);
      const vec::V16 ahead = AheadOf<kLtr>(e, UpperLanes(rec));
      return {ahead, e - ahead, dot & vec::Splat(1)};
    }
    VectorColumn Cold(vec::V16 held, std::size_t at, std::size_t i) const {
      return rows->template ScalarColumn<kLtr>(held, y, i, at / kVectorLanes);
    }
    VectorEnd End(unsigned l, int held, std::size_t at) const {
      const std::size_t w = rows->band_.w;
      const std::size_t x = kLtr ? w - 1 : 0;
      const unsigned drawn = Kernel::kDraws ? rows->lanes_[l].drawn[y * w + (w - 1)] : 0u;
      const PixelOut o = rows->k_.template Step<kLtr>(levels[at], held, x, static_cast<unsigned>(x & 1), drawn);
      return {o.down, o.code};
    }
  };
  template <bool kLtr>
  RowKernel<kLtr> Row(std::size_t y, const VectorRowsMemory& mem) {
    PrepareRow<kLtr>(y, mem);
    k_.SetRow(y);
    return {this, y, mem.records(), mem.samples};
  }

 private:
  // A pixel's curve term (low half) and rule flags (high half) by scan direction, column
  // parity, input level and the draw's two low bits, made once per group.
  static constexpr std::size_t kRuleCodes = 4;
  static constexpr std::size_t kPerParity = kCurveLength * kRuleCodes;
  template <bool kLtr>
  void MakeRecords() {
    for (unsigned odd = 0; odd < 2; ++odd)
      for (std::size_t level = 0; level < kCurveLength; ++level)
        for (unsigned code = 0; code < kRuleCodes; ++code) {
          const auto v = static_cast<std::uint8_t>(level);
          const auto term = static_cast<std::uint16_t>(k_.template Term<kLtr>(v, odd));
          records_[kLtr][odd * kPerParity + level * kRuleCodes + code] =
              term | std::uint32_t{Kernel::template Rule<kLtr>(v, code)} << 16;
        }
  }

  // Each pixel of row y's record, from its level (interleaved in mem.samples) and its draw.
  template <bool kLtr>
  void PrepareRow(std::size_t y, const VectorRowsMemory& mem) const {
    const std::size_t w = band_.w;
    auto* out = reinterpret_cast<unsigned char*>(mem.records());
    const std::uint32_t* even = records_[kLtr];
    const std::uint32_t* odd = records_[kLtr] + kPerParity;
    const std::uint8_t* const levels = mem.samples;
    const std::uint8_t* drawn[kVectorLanes];  // by scan position
    for (unsigned l = 0; l < kVectorLanes; ++l) drawn[l] = lanes_[l].drawn + y * w;
    // Column by column, the four lanes' records together.
    const auto put = [&](std::size_t x, const std::uint32_t* table) HALFTONE_FORCE_INLINE {
      const std::size_t i = kLtr ? x : w - 1 - x;
      ForEachLane<kVectorLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
        const std::uint32_t r = table[levels[kVectorLanes * x + l] * kRuleCodes + (drawn[l][i] & (kRuleCodes - 1))];
        std::memcpy(out + sizeof r * (kVectorLanes * x + l), &r, sizeof r);
      });
    };
    std::size_t x = 0;
    for (; x + 2 <= w; x += 2) {
      put(x, even);
      put(x + 1, odd);
    }
    if (x < w) put(x, even);
  }

  // The flags any rule of a direction sets, and those every rule sets: a part no rule names is
  // never formed, and a flag every rule sets needs no mask.
  template <bool kLtr, bool kEvery>
  static constexpr std::uint16_t kFlagsOf = [] {
    unsigned f = kEvery ? 0xFFFFu : 0u;
    for (unsigned level = 0; level < kCurveLength; ++level)
      for (unsigned code = 0; code < kRuleCodes; ++code) {
        const unsigned r = Kernel::template Rule<kLtr>(static_cast<std::uint8_t>(level), code);
        f = kEvery ? (f & r) : (f | r);
      }
    return static_cast<std::uint16_t>(f);
  }();
  template <bool kLtr>
  HALFTONE_FORCE_INLINE static vec::V16 AheadOf(vec::V16 e, vec::V16 flags) {
    return AheadByFlags<kFlagsOf<kLtr, false>, kFlagsOf<kLtr, true>>(e, flags);
  }

  // A column whose values may leave 16 bits: each lane by the scalar kernel.
  template <bool kLtr>
  [[gnu::noinline]] VectorColumn ScalarColumn(vec::V16 held, std::size_t y, std::size_t i, std::size_t x) const {
    VectorColumn c{};
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      const std::uint8_t level = band_.In(y, lanes_[l].p)[x];
      const unsigned drawn = Kernel::kDraws ? lanes_[l].drawn[y * band_.w + i] : 0u;
      const PixelOut o = k_.template Step<kLtr>(level, vec::At(held, l), x, static_cast<unsigned>(x & 1), drawn);
      c.ahead[l] = static_cast<std::uint16_t>(o.ahead);
      c.down[l] = static_cast<std::uint16_t>(o.down);
      c.dot[l] = static_cast<std::uint16_t>(o.code);
    }
    return c;
  }

  Kernel k_;
  const Band& band_;
  Lane lanes_[kVectorLanes];
  std::uint32_t records_[2][2 * kPerParity];  // [left to right][parity * kPerParity + ...]
};

// The planes of a group as the vector engine's lanes.
inline void VectorLanesOf(const Lane* lanes, unsigned n, VectorLane* out) {
  for (unsigned l = 0; l < n; ++l) out[l] = {lanes[l].a, lanes[l].b, lanes[l].carry, lanes[l].p};
}

// Every plane of a band (w >= 1, h >= 2) for a kernel with vector rows: groups of four planes
// as vector lanes, each plane's last row on the scalar scan. A smaller group (the rest of the
// planes, or a group per thread) stays scalar: three planes as lanes measured 10 % slower.
template <class Kernel>
void RunBandVector(const Kernel& kernel, Engine& engine, const Band& band) {
  const unsigned planes = band.planes;
  const std::size_t per_plane = band.w * band.h;
  const std::uint8_t* drawn = DrawSplitBits(engine, per_plane * planes, planes);
  halftone::ForEachVectorGroup(engine, planes, band.w, [&](unsigned first, unsigned n, VectorRowsMemory mem) {
    Lane lanes[kVectorLanes];
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      lanes[l] = {LaneRowA(engine.rows, p, planes), LaneRowB(engine.rows, p, planes), engine.rows.carry(p, band.w),
                  drawn + per_plane * p, p};
    }
    if (n < kVectorLanes) {
      WithLaneCount(n, [&](auto lanes_n) { Scan<Kernel, decltype(lanes_n)::value>(kernel, band, lanes).Run(); });
      return;
    }
    TableRows<Kernel> rows(kernel, band, lanes);
    VectorLane vlanes[kVectorLanes];
    VectorLanesOf(lanes, n, vlanes);
    VectorScan(rows, band, vlanes, n, mem).Run();
    for (unsigned l = 0; l < n; ++l) {
      Lane last = lanes[l];
      last.drawn += (band.h - 1) * band.w;
      Scan<Kernel, 1>(kernel, band, &last).LastRow();
    }
  });
}

}  // namespace halftone::row_engine
#endif
