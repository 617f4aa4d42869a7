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

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "diffusion/random_split_fast.h"
#include "frame/band.h"
#include "frame/engine.h"
#include "tablediffusion/level_bias_traits.h"

namespace halftone::level_bias {

// A split rule as one multiply and shift: ahead = (e * mul + (e < 0 ? neg_add : 0)) >> 32.
// Flooring by a power of two is the plain product shifted; truncation adds den - 1 (scaled)
// to negative products first; thirds use the 32-bit reciprocal rounded up, which floors every
// positive and every negative non-multiple one too low, so truncation adds one to negatives.
// Exact whenever num * e fits in 32 bits; a pixel's error stays within 18 bits.
struct MulShift {
  std::int64_t mul;
  std::int64_t neg_add;
};
inline constexpr int kMulShiftBits = 32;
inline constexpr std::int64_t kMulShiftOne = std::int64_t{1} << kMulShiftBits;
inline constexpr std::int64_t kThirdReciprocal = 0x55555556;  // ceil(2^32 / 3)

constexpr int Log2Exact(int d) {
  int k = 0;
  while ((1 << k) < d) ++k;
  return (1 << k) == d ? k : -1;
}

// Whether a rule has a multiply-and-shift form here: the share goes ahead, and the divisor is
// a power of two up to 4, or 3 with truncation.
constexpr bool HasMulShift(const ShareRule& r) {
  if (!r.to_ahead || r.num < 0 || r.num > r.den) return false;
  if (r.den == 3) return r.rounding == Rounding::kTrunc;
  return Log2Exact(r.den) >= 0 && r.den <= 4;
}

constexpr MulShift MulShiftOf(const ShareRule& r) {
  if (r.den == 3) return {r.num * kThirdReciprocal, kMulShiftOne};
  const int k = Log2Exact(r.den);
  const std::int64_t unit = std::int64_t{1} << (kMulShiftBits - k);
  return {r.num * unit, r.rounding == Rounding::kTrunc ? (r.den - 1) * unit : 0};
}

inline int AheadShare(int e, const MulShift& m) {
  const std::int64_t e64 = e;
  return static_cast<int>((e64 * m.mul + ((e64 >> 63) & m.neg_add)) >> kMulShiftBits);
}

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
    for (const ShareRule& r : m.bands[i].choice.rules)
      if (!HasMulShift(r)) return false;
  return true;
}

// What a pixel needs from its input level, for one scan direction and column parity.
struct LevelEntry {
  std::int16_t biased;  // the level plus the bias byte added at this column, if any
  std::uint8_t draws;   // 1: the pixel draws one word
  std::uint8_t rules;   // rule index for bit 0 in the low nibble, for bit 1 in the high one
};
inline constexpr unsigned kRuleBits = 4;
inline constexpr unsigned kRuleMask = (1u << kRuleBits) - 1;

enum : unsigned { kForward = 0, kBackward = 1 };

struct FastTables {
  std::array<std::array<std::array<LevelEntry, 256>, 2>, 2> entry{};  // [direction][x & 1][level]
  std::array<MulShift, kRuleMask + 1> rule{};
};

template <const LevelBiasTraits& M>
FastTables BuildTables() {
  FastTables t;
  ShareRule seen[kRuleMask + 1];
  unsigned count = 0;
  auto index_of = [&](const ShareRule& r) {
    for (unsigned i = 0; i < count; ++i)
      if (seen[i].num == r.num && seen[i].den == r.den && seen[i].rounding == r.rounding) return i;
    seen[count] = r;
    t.rule[count] = MulShiftOf(r);
    return count++;
  };
  for (unsigned dir : {kForward, kBackward})
    for (unsigned parity = 0; parity < 2; ++parity)
      for (int v = 0; v < 256; ++v) {
        const ShareChoice& choice = BandOf(M, v, dir == kForward).choice;
        const bool by_bit = choice.by == Selector::kOneBit;
        const unsigned r0 = index_of(choice.rules[by_bit ? 0 : parity]);
        const unsigned r1 = index_of(choice.rules[by_bit ? 1 : parity]);
        int biased = v;
        if constexpr (M.bias != nullptr) {
          if (dir == kForward ? M.bias_ltr_even && parity == 0 : M.bias_rtl_odd && parity == 1)
            biased += (*M.bias)[static_cast<std::size_t>(v)];
        }
        t.entry[dir][parity][static_cast<std::size_t>(v)] = {static_cast<std::int16_t>(biased),
                                                             static_cast<std::uint8_t>(by_bit),
                                                             static_cast<std::uint8_t>(r0 | r1 << kRuleBits)};
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
#if defined(__SSE2__)
  const __m128i top = _mm_set1_epi8(static_cast<char>(limit - 1));
  const __m128i one = _mm_set1_epi8(1);
  __m128i sums = _mm_setzero_si128();
  for (; x + 16 <= w; x += 16) {
    const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + x));
    const __m128i below = _mm_cmpeq_epi8(_mm_min_epu8(s, top), s);  // s <= limit - 1, unsigned
    sums = _mm_add_epi64(sums, _mm_sad_epu8(_mm_and_si128(below, one), _mm_setzero_si128()));
  }
  n = static_cast<std::size_t>(_mm_cvtsi128_si32(sums)) +
      static_cast<std::size_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(sums, sums)));
#endif
  for (; x < w; ++x) n += row[x] < limit;
  return n;
}

// The quantiser as compares: the dot code and the output level of a corrected value s.
template <unsigned kBits>
struct FastQuantiser {
  static_assert(kBits == 1 || kBits == 2);
  // Four output levels evenly spaced, so the level is white less one step per code.
  static constexpr int kStep = kFourLevelValue[1] - kFourLevelValue[0];
  static_assert(kFourLevelValue[0] == 0 && kFourLevelValue[2] == 2 * kStep && kFourLevelValue[3] == 3 * kStep &&
                kFourLevelValue[3] == kWhite);

  static unsigned Code(int s) {
    if constexpr (kBits == 1)
      return static_cast<unsigned>(s <= kBilevelThreshold);
    else
      return static_cast<unsigned>(s <= kFourThreshold[0]) + static_cast<unsigned>(s <= kFourThreshold[1]) +
             static_cast<unsigned>(s <= kFourThreshold[2]);
  }
  static int Level(unsigned code) {
    if constexpr (kBits == 1)
      return kWhite & (static_cast<int>(code) - 1);
    else
      return kWhite - kStep * static_cast<int>(code);
  }
};

// One plane of a lockstep group.
struct FastLane {
  std::int16_t* a;
  std::int16_t* b;
  std::int16_t* carry;
  const std::uint32_t* words;  // the plane's slice of the band's drawn words
  unsigned p;
};

template <const LevelBiasTraits& M, unsigned kLanes>
class LockstepDiffusion {
 public:
  LockstepDiffusion(const FastTables& tables, const Band& band, const FastLane* lanes)
      : tables_(tables), band_(band) {
    for (unsigned l = 0; l < kLanes; ++l) lanes_[l] = lanes[l];
  }

  void Run() {
    const std::size_t w = band_.w, h = band_.h;
    for (FastLane& lane : lanes_)
      for (std::size_t x = 0; x < w; ++x) {
        lane.a[x] = lane.carry[x];
        lane.carry[x] = 0;
      }
    if (w == 0) return;
    for (std::size_t y = 0; y < h; ++y) {
      if ((y & 1) == 0)
        Row<true, false>(y);
      else if (y + 1 < h)
        Row<false, false>(y);
      else
        Row<false, true>(y);
    }
  }

 private:
  static constexpr unsigned kBits = M.bits;
  static constexpr unsigned kPerByte = 8 / kBits;
  using Quantiser = FastQuantiser<kBits>;

  static unsigned Shift(std::size_t x) {
    return static_cast<unsigned>(kPerByte - 1 - (x & (kPerByte - 1))) * kBits;
  }

  // Row y: forward rows quantise A and write the next row's errors into B (a forward last row
  // too); backward rows quantise B and write into A, or into the carry row on the band's last row.
  template <bool kLtr, bool kLast>
  void Row(std::size_t y) {
    const std::size_t w = band_.w;
    const auto& by_parity = tables_.entry[kLtr ? kForward : kBackward];
    const MulShift* rules = tables_.rule.data();
    std::int16_t* cur[kLanes];
    std::int16_t* next[kLanes];
    const std::uint8_t* in[kLanes];
    std::uint8_t* out[kLanes];
    const std::uint32_t* words[kLanes];
    int carried[kLanes];
    unsigned acc[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      cur[l] = kLtr ? lanes_[l].a : lanes_[l].b;
      next[l] = kLtr ? lanes_[l].b : (kLast ? lanes_[l].carry : lanes_[l].a);
      in[l] = band_.In(y, lanes_[l].p);
      out[l] = band_.Out(y, lanes_[l].p);
      words[l] = lanes_[l].words;
      carried[l] = cur[l][kLtr ? 0 : w - 1];
      acc[l] = 0;
    }

    // One pixel of lane l at column x: dot, split, down share; returns the ahead share.
    auto pixel = [&](unsigned l, std::size_t x, const LevelEntry* entries) {
      const int v = in[l][x];
      const LevelEntry en = entries[v];
      const unsigned bit = (*words[l] >> 1) & 1u;
      words[l] += en.draws;
      const MulShift& rule = rules[(en.rules >> (bit * kRuleBits)) & kRuleMask];
      const int c = carried[l];
      const unsigned code = Quantiser::Code(c + v);
      acc[l] |= code << Shift(x);
      const int e = c + en.biased - Quantiser::Level(code);
      const int ahead = AheadShare(e, rule);
      cur[l][x] = static_cast<std::int16_t>(c);
      next[l][x] = Store16(e - ahead);
      return ahead;
    };

    for (std::size_t i = 0; i + 1 < w; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      const std::size_t along = kLtr ? x + 1 : x - 1;
      const LevelEntry* entries = by_parity[x & 1].data();
      random_split::ForEachLane<kLanes>([&](unsigned l) {
        const int ahead = pixel(l, x, entries);
        carried[l] = Store16(cur[l][along] + ahead);
      });
      if ((x & (kPerByte - 1)) == (kLtr ? kPerByte - 1 : 0)) {
        random_split::ForEachLane<kLanes>([&](unsigned l) {
          out[l][x / kPerByte] = static_cast<std::uint8_t>(out[l][x / kPerByte] | acc[l]);
          acc[l] = 0;
        });
      }
    }
    // The row's end: its ahead share has no pixel to go to.
    const std::size_t x = kLtr ? w - 1 : 0;
    const LevelEntry* entries = by_parity[x & 1].data();
    for (unsigned l = 0; l < kLanes; ++l) {
      pixel(l, x, entries);
      out[l][x / kPerByte] = static_cast<std::uint8_t>(out[l][x / kPerByte] | acc[l]);
      lanes_[l].words = words[l];
    }
  }

  const FastTables& tables_;
  const Band& band_;
  FastLane lanes_[kLanes];
};

template <const LevelBiasTraits& M>
void RunLockstep(const FastTables& tables, const Band& band, const FastLane* lanes, unsigned n) {
  switch (n) {
    case 1: LockstepDiffusion<M, 1>(tables, band, lanes).Run(); break;
    case 2: LockstepDiffusion<M, 2>(tables, band, lanes).Run(); break;
    case 3: LockstepDiffusion<M, 3>(tables, band, lanes).Run(); break;
    default: LockstepDiffusion<M, 4>(tables, band, lanes).Run(); break;
  }
}

// Every plane of a band. The band's random stream is drawn ahead: a count of the drawing
// levels over each plane's rows gives where its slice starts. Each plane gets its own working
// rows (the last plane the shared ones, so they end the band as the sequential pass leaves
// them); the planes run in lockstep groups, the groups on the engine's threads.
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
  // One word more than drawn: a pixel reads its word before knowing whether it draws.
  std::uint32_t* words = engine.draws.Reserve(total + 1);
  engine.random.DrawWords(words, total);
  words[total] = 0;

  const FastTables& tables = TablesOf<M>();
  const unsigned group = random_split::LockstepGroupSize(planes, engine.threads.count());
  const unsigned groups = (planes + group - 1) / group;
  engine.threads.ForEachPlane(groups, [&](unsigned g) {
    FastLane lanes[random_split::kMaxLockstep];
    const unsigned first = g * group;
    const unsigned n = planes - first < group ? planes - first : group;
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      const bool last = p + 1 == planes;
      lanes[l] = {last ? engine.rows.a() : engine.rows.lane_a(p), last ? engine.rows.b() : engine.rows.lane_b(p),
                  engine.rows.carry(p, w), words + start[p], p};
    }
    RunLockstep<M>(tables, band, lanes, n);
  });
}

}  // namespace halftone::level_bias
