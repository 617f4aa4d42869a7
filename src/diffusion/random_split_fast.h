// The fast path of the serpentine two-neighbour scan (random_split_scan.h): the same pixels in
// the same order per plane, the same draws, the same rows left behind. What changes is how:
//   - the planes of a group run in lockstep, row y of every plane in one loop, each with its
//     own working rows, carry entries and slice of the drawn words, so their dependency chains
//     overlap;
//   - the value carried along the row stays in a register;
//   - a row is cut into whole output bytes, their pixels unrolled (a group's by pairs of
//     columns), so the curve term's column parity is a constant, dots shift in from the side
//     the scan comes from, and only the last two rows of a band store their scanned values back;
//   - the split is branch-free: whole, half or none of the error by masks (the half read from
//     a table decider where no curve term falls), or a multiply by a rounded-up reciprocal;
//   - the dots of a byte are gathered in a register and stored once.
// The readable scan stays the reference; mirror any change to it here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "diffusion/random_split_scan.h"
#include "frame/band_draws.h"
#include "frame/lockstep.h"

namespace halftone::random_split {

// Division truncating toward zero, as shifts and a multiply. Exact for every value a share
// can be formed from (at most four times a 16-bit error); fast_paths_test checks each one.
constexpr int DivTrunc2(int x) { return (x + static_cast<int>(static_cast<unsigned>(x) >> 31)) >> 1; }
constexpr int DivTrunc4(int x) { return (x + ((x >> 31) & 3)) >> 2; }
constexpr int DivTrunc3(int x) {
  return static_cast<int>((static_cast<std::int64_t>(x) * 0x55555556LL) >> 32) - (x >> 31);
}
template <int kDen>
constexpr int DivTrunc(int x) {
  static_assert(kDen >= 1 && kDen <= 4, "divisors 1 to 4");
  if constexpr (kDen == 1) return x;
  else if constexpr (kDen == 2) return DivTrunc2(x);
  else if constexpr (kDen == 3) return DivTrunc3(x);
  else return DivTrunc4(x);
}

// 2^32 / den rounded up (2^31 + 1 for halves, 0x55555556 for thirds).
constexpr std::int64_t RoundedUpReciprocal(int den) { return (std::int64_t{1} << 32) / den + 1; }
// A share of e as a product: trunc(num / den * e), or e less that (the rest), as the high word
// of e times a multiplier plus a step of one on one side of zero. The share takes num times
// den's reciprocal rounded up: e times that is num / den * e plus a sliver with e's sign (under
// 1 / den for |e| below 2^28), so its high word is the truncated share for positive e and one
// under it for negative e. The rest takes 2^32 less that multiplier: its high word is one under
// the rest for positive e and the rest itself for negative e. All of e and none of it are 2^32
// and 0, with no step. A scan that picks the product by its drawn split before e is known keeps
// the pick off the chain, and can add the step beside the multiply (HighWord, StepOf).
struct ShareProduct {
  std::int64_t mul;
  std::int64_t flip;  // -1: the step is for negative e; 0: for positive e
  std::int64_t step;  // 1 where the share divides, else 0
};
constexpr ShareProduct ProductOfShare(int num, int den, bool rest) {
  constexpr std::int64_t kOne = std::int64_t{1} << 32;
  if (num == 0 || num == den) {
    const bool all = (num == den) != rest;
    return {all ? kOne : 0, 0, 0};
  }
  const std::int64_t share = num * RoundedUpReciprocal(den);
  return rest ? ShareProduct{kOne - share, 0, 1} : ShareProduct{share, -1, 1};
}
HALFTONE_FORCE_INLINE constexpr std::int64_t HighWord(std::int64_t e, std::int64_t mul) { return (e * mul) >> 32; }
// Without a branch on the side (a drawn split no predictor learns): "the side's e is positive",
// with e negated where the step is for negative e. DividingStep is for products known to divide.
HALFTONE_FORCE_INLINE constexpr std::int64_t DividingStep(const ShareProduct& p, std::int64_t e) {
  return ((e ^ p.flip) - p.flip) > 0;
}
HALFTONE_FORCE_INLINE constexpr std::int64_t StepOf(const ShareProduct& p, std::int64_t e) {
  return DividingStep(p, e) & p.step;
}
HALFTONE_FORCE_INLINE constexpr std::int64_t ShareByProduct(const ShareProduct& p, std::int64_t e) {
  return HighWord(e, p.mul) + StepOf(p, e);
}

// num * e / den truncated toward zero, with mul = num * RoundedUpReciprocal(den) and `divides`
// all ones (zero where the share is 0 or e itself), for the values a share is formed from (a
// 16-bit error, up to four times over). e * mul misses the exact quotient times 2^32 by less
// than 2^-15 of a unit, above it for positive e and below it for negative e, so its high word
// is the truncated quotient for positive e and one less than it for negative e.
HALFTONE_FORCE_INLINE constexpr int MulHighTrunc(int e, std::int64_t mul, int divides) {
  return static_cast<int>((std::int64_t{e} * mul) >> 32) - ((e >> 31) & divides);
}

// How one column (along or below) of a row kind's splits is computed for every code.
enum class ColumnKind : std::uint8_t {
  kLinear,      // (num[code] * e) / den
  kComplement,  // e - the other column
  kGeneric,     // each code's share formed on its own and selected
};
struct ColumnForm {
  ColumnKind kind = ColumnKind::kGeneric;
  int den = 1;
  int num[kSplitCodes] = {};
};

constexpr int DenOf(Share s) {
  switch (s) {
    case Share::kHalf: return 2;
    case Share::kThird:
    case Share::kTwoThirds: return 3;
    case Share::kQuarter:
    case Share::kThreeQuarters: return 4;
    default: return 0;
  }
}
constexpr int NumOf(Share s, int den) {
  switch (s) {
    case Share::kNone: return 0;
    case Share::kAll: return den;
    case Share::kHalf:
    case Share::kThird:
    case Share::kQuarter: return 1;
    case Share::kTwoThirds: return 2;
    case Share::kThreeQuarters: return 3;
    default: return -1;
  }
}
constexpr Share Pick(const Split& s, bool below) { return below ? s.below : s.along; }

constexpr ColumnForm LinearForm(const Split* splits, unsigned codes, bool below) {
  ColumnForm f;
  int den = 0;
  for (unsigned c = 0; c < codes; ++c) {
    const Share s = Pick(splits[c], below);
    if (s == Share::kRestAfterThird) return f;
    const int d = DenOf(s);
    if (d != 0 && den != 0 && d != den) return f;
    if (d != 0) den = d;
  }
  f.kind = ColumnKind::kLinear;
  f.den = den == 0 ? 1 : den;
  for (unsigned c = 0; c < codes; ++c) f.num[c] = NumOf(Pick(splits[c], below), f.den);
  return f;
}

// True when, for every code, this column's share is e minus the other column's share.
constexpr bool Complements(const Split* splits, unsigned codes, bool below) {
  for (unsigned c = 0; c < codes; ++c) {
    const Share mine = Pick(splits[c], below), other = Pick(splits[c], !below);
    const bool ok = (mine == Share::kRestAfterThird && other == Share::kThird) ||
                    (mine == Share::kNone && other == Share::kAll) || (mine == Share::kAll && other == Share::kNone);
    if (!ok) return false;
  }
  return true;
}

struct RowForm {
  ColumnForm along, below;
};
constexpr RowForm FormOf(const Split* splits, unsigned codes) {
  RowForm r{LinearForm(splits, codes, false), LinearForm(splits, codes, true)};
  if (r.along.kind == ColumnKind::kLinear && r.below.kind != ColumnKind::kLinear && Complements(splits, codes, true))
    r.below.kind = ColumnKind::kComplement;
  if (r.below.kind == ColumnKind::kLinear && r.along.kind != ColumnKind::kLinear && Complements(splits, codes, false))
    r.along.kind = ColumnKind::kComplement;
  // A column neither linear nor the other's complement makes the whole row generic.
  if (r.along.kind == ColumnKind::kGeneric || r.below.kind == ColumnKind::kGeneric) {
    r.along.kind = ColumnKind::kGeneric;
    r.below.kind = ColumnKind::kGeneric;
  }
  return r;
}

// A window table's entry (ClampedDecisionTable) is four 16-bit fields side by side: the error
// (v - level), its part (err / the table's divisor, truncated toward zero), the code, and the
// rest (err - part). A scan reads the share it carries along straight from the field its drawn
// split names, picked before the value is known.
enum EntryField : unsigned { kEntryErr = 0, kEntryPart = 1, kEntryCode = 2, kEntryRest = 3, kEntryFields = 4 };

enum class RowKind { kInnerLtr, kInnerRtl, kLast };

// The two shares of a split code, branch-free.
template <class Pass, RowKind kRow>
struct FastSplit {
  static constexpr const ScanTraits& kScan = Pass::kScan;
  static constexpr unsigned kCodes = kScan.draw_bits == 2 ? 4 : 2;
  static constexpr const Split* kSplits = kRow == RowKind::kInnerLtr   ? kScan.splits.inner_ltr
                                          : kRow == RowKind::kInnerRtl ? kScan.splits.inner_rtl
                                                                       : kScan.splits.last;
  static constexpr RowForm kForm = FormOf(kSplits, kCodes);
  static constexpr ColumnForm kAlong = kForm.along, kBelow = kForm.below;

  template <bool kBelow>
  static int Generic(unsigned code, int e) {
    int r = 0;
    [&]<unsigned... c>(std::integer_sequence<unsigned, c...>) {
      ((r |= ShareOf(Pick(kSplits[c], kBelow), e) & -static_cast<int>(code == c)), ...);
    }(std::make_integer_sequence<unsigned, kCodes>{});
    return r;
  }
  // Per-code constants of a linear column: masks for whole and half shares, and num times
  // den's reciprocal rounded up (see Linear).
  template <const ColumnForm& kCol>
  struct LinearConstants {
    static constexpr std::int64_t kReciprocal = RoundedUpReciprocal(kCol.den);
    struct Tables {
      int whole[kCodes];
      int half[kCodes];
      int nonzero[kCodes];
      std::int64_t mul[kCodes];
    };
    static constexpr Tables Make() {
      Tables t{};
      for (unsigned c = 0; c < kCodes; ++c) {
        t.whole[c] = kCol.num[c] == kCol.den ? -1 : 0;
        t.half[c] = 2 * kCol.num[c] == kCol.den ? -1 : 0;
        t.nonzero[c] = kCol.num[c] != 0 ? -1 : 0;
        t.mul[c] = kCol.num[c] * kReciprocal;
      }
      return t;
    }
    static constexpr Tables kTables = Make();
  };

  // kMasks: halves and whole shares by masks rather than a multiply, shorter on the chain
  // through e but more live values (measured faster on one lane, slower on two).
  template <const ColumnForm& kCol, bool kMasks>
  static int Linear(unsigned code, int e, int half) {
    using K = LinearConstants<kCol>;
    if constexpr (kCodes == 2 && kCol.num[0] == 0 && kCol.num[1] == kCol.den) {
      return e & -static_cast<int>(code);
    } else if constexpr (kCodes == 2 && kCol.num[1] == 0 && kCol.num[0] == kCol.den) {
      return e & (static_cast<int>(code) - 1);
    } else if constexpr (kCol.den <= 2 && kMasks) {
      // All, half or none of e, picked by masks: no multiply on the chain through e.
      return (half & K::kTables.half[code]) | (e & K::kTables.whole[code]);
    } else if constexpr (kCol.den <= 2) {
      return DivTrunc<kCol.den>(kCol.num[code] * e);
    } else {
      // (num * e) / den truncated toward zero as the high word of e times num/den rounded up,
      // one added for negative e: the rounding error is below 2^-15 for a 16-bit e, so the
      // high word is floor(num * e / den), one less where that is exact and e negative.
      return MulHighTrunc(e, K::kTables.mul[code], K::kTables.nonzero[code]);
    }
  }

  // Whether Shares<true> forms both columns from e and its half alone (whole, half or none of
  // e), so a half known in advance can stand in for DivTrunc2(e).
  static constexpr bool ColumnTakesHalf(const ColumnForm& c) {
    return c.kind == ColumnKind::kComplement || (c.kind == ColumnKind::kLinear && c.den <= 2);
  }
  static constexpr bool kTakesHalf = kAlong.kind != ColumnKind::kGeneric && ColumnTakesHalf(kAlong) &&
                                     ColumnTakesHalf(kBelow);

  // The along share by code when e and its half come from a window table (kTakesHalf): none,
  // half or all of e. `field` and `mask` read it from the entry (the mask clears a share of
  // none); `mul` and `step` form it from an error with a curve term added, as ProductOfShare
  // does (a half's step, the only one here, is for negative e).
  struct TableAlong {
    unsigned field[kCodes];
    std::int64_t mask[kCodes];
    std::int64_t mul[kCodes];
    std::int64_t step[kCodes];
  };
  static constexpr TableAlong MakeTableAlong() {
    TableAlong t{};
    for (unsigned c = 0; c < kCodes; ++c) {
      // The share as a fraction of e: 0, 1/2 or 1. A complement here is of none or all of e.
      int twice = 0;
      if (kAlong.kind == ColumnKind::kLinear) twice = 2 * kAlong.num[c] / kAlong.den;
      if (kAlong.kind == ColumnKind::kComplement) twice = 2 - 2 * kBelow.num[c] / kBelow.den;
      if (kAlong.kind == ColumnKind::kComplement && twice == 1) throw "the rest of a half has no field";
      const ShareProduct p = ProductOfShare(twice, 2, false);
      t.field[c] = twice == 1 ? kEntryPart : kEntryErr;
      t.mask[c] = twice == 0 ? 0 : -1;
      t.mul[c] = p.mul;
      t.step[c] = p.step;
    }
    return t;
  }

  // Whether every code sends a third of e one way and the rest the other (the spine's split),
  // so a window table whose part is the third holds both shares.
  static constexpr bool kThirdOrRest = [] {
    for (unsigned c = 0; c < kCodes; ++c) {
      const Split sp = kSplits[c];
      if (!(sp.along == Share::kThird && sp.below == Share::kRestAfterThird) &&
          !(sp.along == Share::kRestAfterThird && sp.below == Share::kThird))
        return false;
    }
    return true;
  }();
  // The along share by code where kThirdOrRest: the entry's third or rest, and the product that
  // forms it from an error with a curve term added.
  struct ThirdsAlong {
    unsigned field[kCodes];
    ShareProduct product[kCodes];
  };
  static constexpr ThirdsAlong MakeThirdsAlong() {
    ThirdsAlong t{};
    for (unsigned c = 0; c < kCodes; ++c) {
      const bool rest = kSplits[c].along == Share::kRestAfterThird;
      t.field[c] = rest ? kEntryRest : kEntryPart;
      t.product[c] = ProductOfShare(1, 3, rest);
    }
    return t;
  }

  // Shares {along, below} of error e for the drawn code; `half` is DivTrunc2(e).
  template <bool kMasks = false>
  static void SharesWithHalf(unsigned code, int e, int half, int& along, int& below) {
    if constexpr (kAlong.kind == ColumnKind::kGeneric) {
      along = Generic<false>(code, e);
      below = Generic<true>(code, e);
    } else if constexpr (kAlong.kind == ColumnKind::kComplement) {
      below = Linear<kBelow, kMasks>(code, e, half);
      along = e - below;
    } else if constexpr (kBelow.kind == ColumnKind::kComplement) {
      along = Linear<kAlong, kMasks>(code, e, half);
      below = e - along;
    } else {
      along = Linear<kAlong, kMasks>(code, e, half);
      below = Linear<kBelow, kMasks>(code, e, half);
    }
  }
  template <bool kMasks = false>
  static void Shares(unsigned code, int e, int& along, int& below) {
    SharesWithHalf<kMasks>(code, e, DivTrunc2(e), along, below);
  }
};

// Deciders this large or larger are tables worth keeping across band calls.
inline constexpr std::size_t kCachedDeciderBytes = 4096;

// The decision a fast scan uses: the pass's own `Fast()` decider where it has one, else the
// pass itself. A decider that is a table is kept in the engine's cache, keyed by the pass (its
// level values), so a run of band calls with the same levels builds it once.
template <class Pass>
auto FastDecider(const Pass& pass, Engine& engine) {
  if constexpr (requires { pass.Fast(); }) {
    using Decider = decltype(pass.Fast());
    if constexpr (sizeof(Decider) >= kCachedDeciderBytes)
      return std::cref(engine.fast_tables.Get<Decider>(pass, [&] { return pass.Fast(); }));
    else
      return pass.Fast();
  } else {
    return pass;
  }
}
// The decider FastDecider gave, whether it holds it or refers to the cached one.
template <class Decider>
const Decider& Unwrapped(const Decider& d) {
  return d;
}
template <class Decider>
const Decider& Unwrapped(const std::reference_wrapper<Decider>& d) {
  return d.get();
}

// An outcome with the part of the error an inner row's split is formed from: the error
// (already held to 16 bits) divided by the table's divisor, truncated toward zero.
struct PartOutcome {
  unsigned code;
  int err;
  int part;
};

// Decision by table for passes whose thresholds and levels all lie in 0..255: the corrected
// value clamped to -1..256 (which keeps every comparison with such a threshold) and the class
// of the raw sample pick the code and the level; the error is v minus the level. Built from
// the pass's own Decide, so it gives the same outcome for every v and s.
//
// The clamp would sit on the pixel-to-pixel chain (two compares and two conditional moves), so
// the table is laid out over a window of values well beyond -1..256, each row outside that
// range a copy of the end it clamps to. Within the window every row is one value, so an entry
// holds the error itself, its part (error / kPartDen) and the rest (EntryField), and a pixel
// without a curve term takes its share straight from the table. A value outside the window (only after errors that
// wander far, as with levels out of order) takes a predicted-not-taken branch to the clamped
// lookup, off the chain. Each sample class has its own column of the window, so a picture
// region of one class keeps to one column.
template <int kPartDen>
struct ClampedDecisionTable {
  static constexpr int kPartDivisor = kPartDen;
  static constexpr int kLo = -1, kHi = 256;
  static constexpr unsigned kMaxClasses = 8;
  // The window: -512..511, the values whose shift right by 9 is -1 or 0.
  static constexpr int kWindowShift = 9;
  static constexpr int kWindowLo = -(1 << kWindowShift), kWindowHi = (1 << kWindowShift) - 1;
  static constexpr unsigned kWindowRows = kWindowHi - kWindowLo + 1;
  static_assert(kWindowLo <= kLo && kWindowHi >= kHi);
  static constexpr unsigned kOrigin = -kWindowLo;
  static_assert(kMaxClasses * kWindowRows <= 65536);
  static constexpr unsigned kErr = kEntryErr, kPart = kEntryPart, kCode = kEntryCode, kRest = kEntryRest,
                            kFields = kEntryFields;
  // The entries first, at the table's own address: an entry's address is then the table plus
  // index times 8, with no offset the compiler would fold into a slow three-part address.
  std::int16_t cells[kMaxClasses * kWindowRows * kFields];
  // Where value 0 of sample s's class column sits: class times kWindowRows, plus the window's
  // offset. One addition with v gives the index.
  std::uint16_t origin_of[256];

  // `classify(s)` is the class (below kMaxClasses) of sample s; `decide(v, s)` the reference.
  template <class Classify, class Decide>
  void Build(Classify&& classify, Decide&& decide) {
    int representative[kMaxClasses];
    for (int& r : representative) r = -1;
    for (int s = 255; s >= 0; --s) {
      const unsigned c = classify(s);
      origin_of[s] = static_cast<std::uint16_t>(c * kWindowRows + kOrigin);
      representative[c] = s;
    }
    for (unsigned c = 0; c < kMaxClasses; ++c) {
      if (representative[c] < 0) continue;  // no sample indexes this column
      std::int16_t* column = cells + std::size_t{c} * kWindowRows * kFields;
      const auto put = [&](int v, unsigned code, int level) {
        const int err = v - level;
        const int part = DivTrunc<kPartDen>(err);
        std::int16_t* en = column + static_cast<std::size_t>(v - kWindowLo) * kFields;
        en[kErr] = static_cast<std::int16_t>(err);
        en[kPart] = static_cast<std::int16_t>(part);
        en[kCode] = static_cast<std::int16_t>(code);
        en[kRest] = static_cast<std::int16_t>(err - part);
      };
      const auto level_at = [&](int v) {
        return v - column[static_cast<std::size_t>(v - kWindowLo) * kFields + kErr];
      };
      const auto code_at = [&](int v) {
        return static_cast<unsigned>(column[static_cast<std::size_t>(v - kWindowLo) * kFields + kCode]);
      };
      // The decision is asked for -1..256 only; beyond, each row repeats its end's code and
      // level (a band's table is built per call, so this stays cheap).
      for (int v = kLo; v <= kHi; ++v) {
        const Outcome o = decide(v, representative[c]);
        put(v, o.code, v - o.err);
      }
      const int lo_level = level_at(kLo), hi_level = level_at(kHi);
      const unsigned lo_code = code_at(kLo), hi_code = code_at(kHi);
      for (int v = kWindowLo; v < kLo; ++v) put(v, lo_code, lo_level);
      for (int v = kHi + 1; v <= kWindowHi; ++v) put(v, hi_code, hi_level);
    }
  }
  // Whether v (a value not yet held to 16 bits) has its own entry. The test by the shift, not
  // by v - kWindowLo, so the compiler forms the index from v itself: one addition on the chain.
  // A value outside may still be one inside once held to 16 bits.
  HALFTONE_FORCE_INLINE static bool InWindow(std::ptrdiff_t v) {
    return static_cast<std::size_t>((v >> kWindowShift) + 1) <= 1u;
  }
  // Field f of sample s's column at value 0; the field of a value v in the window is at
  // [v * kFields].
  HALFTONE_FORCE_INLINE const std::int16_t* Column(int s, unsigned f) const {
    return cells + std::size_t{origin_of[s]} * kFields + f;
  }
  // The four fields of entry `index` (a class origin plus a value in the window).
  HALFTONE_FORCE_INLINE const std::int16_t* EntryAt(std::size_t index) const { return cells + index * kFields; }

  HALFTONE_FORCE_INLINE PartOutcome DecideWithPart(int v, int s) const {
    if (!InWindow(v)) [[unlikely]]
      return Outside(v, s);
    const std::int16_t* en = Column(s, 0) + std::ptrdiff_t{v} * kFields;
    return {static_cast<unsigned>(en[kCode]), en[kErr], en[kPart]};
  }
  HALFTONE_FORCE_INLINE Outcome Decide(int v, int s) const {
    const PartOutcome o = DecideWithPart(v, s);
    return {o.code, o.err};
  }

 private:
  [[gnu::noinline]] PartOutcome Outside(int v, int s) const {
    const int clamped = v < kLo ? kLo : kHi;
    const std::int16_t* en = Column(s, 0) + std::ptrdiff_t{clamped} * kFields;
    const int err = Store16(v - (clamped - en[kErr]));
    return {static_cast<unsigned>(en[kCode]), err, DivTrunc<kPartDen>(err)};
  }
};

// The divisor of a table decider's parts, 0 for a decider without them.
template <class Decider>
constexpr int PartDivisorOf() {
  if constexpr (requires { Decider::kPartDivisor; })
    return Decider::kPartDivisor;
  else
    return 0;
}

// The share carried along for every drawn code and every carried value of a window
// (-512..511), for rows whose decision is a compare and whose error depends on the value alone
// (the bilevel and one-drop passes), at pixels without a curve term. On the chain from one
// pixel's value to the next, one load then takes the place of the compare, the error and the
// split's multiply and rounding.
struct AlongShareTable {
  static constexpr int kWindowShift = 9;
  static constexpr int kWindowLo = -(1 << kWindowShift);
  static constexpr int kRows = 2 << kWindowShift;
  static constexpr unsigned kCodes = 4;  // room for a two-bit draw's codes
  // Code c's share for value v at [(v - kWindowLo) * kCodes + c], at the table's own address.
  std::int16_t cells[kRows * kCodes];

  // Whether v (a plain sum, not held to 16 bits) has its row: the test by the shift, as the
  // decision tables do, so the index is v itself.
  HALFTONE_FORCE_INLINE static bool InWindow(std::ptrdiff_t v) {
    return static_cast<std::size_t>((v >> kWindowShift) + 1) <= 1u;
  }
  // Code c's share at value 0; value v's is at [v * kCodes].
  HALFTONE_FORCE_INLINE const std::int16_t* Column(unsigned c) const {
    return cells + static_cast<std::size_t>(-kWindowLo) * kCodes + c;
  }

  // Filled from the scan's own arithmetic: the decision's error, held to 16 bits, split as
  // `Splits` splits it for each code.
  template <class Splits, class Decider>
  static AlongShareTable Make(const Decider& decide, unsigned codes) {
    AlongShareTable t{};
    for (int v = kWindowLo; v < kWindowLo + kRows; ++v) {
      const int e = Store16(decide.Decide(v, 0).err);
      for (unsigned c = 0; c < codes; ++c) {
        int along, below;
        Splits::template SharesWithHalf<true>(c, e, DivTrunc2(e), along, below);
        t.cells[static_cast<std::size_t>(v - kWindowLo) * kCodes + c] = static_cast<std::int16_t>(along);
      }
    }
    return t;
  }
};

// One plane of a lockstep group.
struct FastLane {
  PlaneRows rows;
  RandomBitSource random;  // positioned at the start of the plane's slice of the band's stream
  std::uint32_t* words;    // room for one row's draws (w + 1 words)
  unsigned p;
};

template <class Pass, class Decider, unsigned kLanes>
class LockstepScan {
 public:
  LockstepScan(const Decider& decide, const Band& band, const FastLane* lanes, const ToneCurveSet& curves)
      : decide_(decide), band_(band), curve_a_(curves.a().data()), curve_b_(curves.b().data()) {
    for (unsigned l = 0; l < kLanes; ++l) {
      rows_[l] = lanes[l].rows;
      random_[l] = lanes[l].random;
      words_[l] = lanes[l].words;
      p_[l] = lanes[l].p;
    }
    if constexpr (kShareRows<FastSplit<Pass, RowKind::kInnerLtr>>)
      along_ltr_ = &AlongSharesOf<FastSplit<Pass, RowKind::kInnerLtr>>(decide);
    if constexpr (kShareRows<FastSplit<Pass, RowKind::kInnerRtl>>)
      along_rtl_ = &AlongSharesOf<FastSplit<Pass, RowKind::kInnerRtl>>(decide);
  }

  // The generator of lane l, after the draws of the rows scanned so far.
  const RandomBitSource& random(unsigned l) const { return random_[l]; }

  void Run() {
    const std::size_t w = band_.w, h = band_.h;
    for (unsigned l = 0; l < kLanes; ++l) {
      const std::uint8_t* row0 = band_.In(0, p_[l]);
      std::int16_t* a = rows_[l].a;
      std::int16_t* carry = rows_[l].carry;
      if (carry) {
        for (std::size_t x = 0; x < w; ++x) {
          a[x] = Store16(row0[x] + carry[x]);
          carry[x] = 0;
        }
      } else {
        for (std::size_t x = 0; x < w; ++x) a[x] = row0[x];
      }
    }
    // Rows 0 .. h-3 of the working row being scanned are rewritten whole by the next row as
    // its row below, so only the last two rows need their values stored back.
    for (std::size_t y = 0; y + 1 < h; ++y) {
      const bool keep = y + 2 >= h;
      if ((y & 1) == 0)
        keep ? LanesRow<true, false, true>(y) : LanesRow<true, false, false>(y);
      else
        keep ? LanesRow<false, false, true>(y) : LanesRow<false, false, false>(y);
    }
    LastRow();
  }

  // The band's last row alone, on working rows that hold what the rows before it left.
  void LastRow() {
    const std::size_t h = band_.h;
    if (((h - 1) & 1) == 0)
      LanesRow<true, true, true>(h - 1);
    else
      LanesRow<false, true, true>(h - 1);
  }

 private:
  static constexpr const ScanTraits& kScan = Pass::kScan;
  static constexpr unsigned kBits = Pass::kBits;
  static constexpr unsigned kPerByte = 8 / kBits;
  static constexpr unsigned kCodeMask = kScan.draw_bits == 2 ? 3u : 1u;

  static unsigned Shift(std::size_t x) {
    return static_cast<unsigned>(kPerByte - 1 - (x & (kPerByte - 1))) * kBits;
  }
  // A dot into the byte being gathered, shifted in from the side the scan comes from: left to
  // right the first dot ends at the high end, right to left the last one does, so a byte the
  // scan leaves whole (or ends at column 0) needs no shift of its own.
  template <bool kLtr>
  HALFTONE_FORCE_INLINE static void ShiftIn(unsigned& acc, unsigned code) {
    acc = kLtr ? (acc << kBits) | code : (acc >> kBits) | (code << (8 - kBits));
  }

  template <bool kLtr>
  int CurveTerm(std::size_t x, std::uint8_t s) const {
    if constexpr (!kScan.curve_terms) {
      return 0;
    } else if constexpr (kLtr) {
      return curve_a_[s] & -static_cast<int>(x & 1);
    } else {
      return curve_b_[s] & (static_cast<int>(x & 1) - 1);
    }
  }

  // Whether a pixel of a row with these splits can take its error's half from a table decider.
  template <class Splits>
  static constexpr bool kTableHalves = PartDivisorOf<Decider>() == 2 && Splits::kTakesHalf;
  // Whether a pixel of a row with these splits takes its third and rest from a window table.
  template <class Splits>
  static constexpr bool kTableThirds = PartDivisorOf<Decider>() == 3 && Splits::kThirdOrRest;
  template <class Splits>
  static constexpr bool kTableParts = kTableHalves<Splits> || kTableThirds<Splits>;

  // Whether a split's share carried along takes a multiply (thirds, quarters), not masks alone.
  template <class Splits>
  static constexpr bool kAlongMultiplies =
      (Splits::kAlong.kind == ColumnKind::kLinear && Splits::kAlong.den > 2) ||
      (Splits::kAlong.kind == ColumnKind::kComplement && Splits::kBelow.den > 2);
  // Whether a row with these splits takes its along share from an AlongShareTable: passes
  // that ask for it (kAlongShareRows: a compare decides, the error depends on the value alone)
  // with a stateless decider, on the band's inner rows (pixels with a curve term excepted). A
  // lone lane gains on every split (whole error 1.1-1.3 times, thirds and quarters 1.6); in a
  // group, whose chains overlap, only where the split multiplies (pairs 1.05-1.14; whole-error
  // pairs ran at 0.90-0.93).
  template <class Splits>
  static constexpr bool kShareRows = [] {
    if constexpr (requires { Pass::kAlongShareRows; })
      return Pass::kAlongShareRows && std::is_empty_v<Decider> &&
             PartDivisorOf<Decider>() == 0 && Splits::kAlong.kind != ColumnKind::kGeneric &&
             (kLanes == 1 || kAlongMultiplies<Splits>);
    else
      return false;
  }();
  // The table of a row kind, made once per process from the scan's own arithmetic.
  template <class Splits>
  static const AlongShareTable& AlongSharesOf(const Decider& decide) {
    static const AlongShareTable table = AlongShareTable::Make<Splits>(decide, kCodeMask + 1);
    return table;
  }

  // The value carried along a row: an int held to 16 bits at every pixel, or in a pass whose
  // inner rows read a window table (TablePixel, SharePixel) a plain sum in a full register.
  static constexpr bool kWindowRows =
      kTableParts<FastSplit<Pass, RowKind::kInnerLtr>> || kTableParts<FastSplit<Pass, RowKind::kInnerRtl>> ||
      kShareRows<FastSplit<Pass, RowKind::kInnerLtr>> || kShareRows<FastSplit<Pass, RowKind::kInnerRtl>>;
  using CarriedValue = std::conditional_t<kWindowRows, std::ptrdiff_t, int>;

  // The working state of one lane's row, held in locals of LanesRow.
  struct Lane {
    std::int16_t* cur;
    std::int16_t* next;
    std::int16_t* carry;
    const std::uint8_t* in;
    const std::uint8_t* in_below;
    const std::uint32_t* drawn;  // the draw of pixel x: drawn[x] left to right, drawn[-x] right to left
    std::uint8_t* out;
    CarriedValue v;
    unsigned acc;
  };

  // One pixel of one lane that passes error along the row; `odd` is x & 1.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanePixel(Lane& st, const Decider& decide, std::size_t x, bool odd) const {
    using Splits = FastSplit<Pass, kLast ? RowKind::kLast : (kLtr ? RowKind::kInnerLtr : RowKind::kInnerRtl)>;
    if constexpr (kTableHalves<Splits>) {
      TablePixel<kLtr, kLast, kKeepCur, Splits>(st, decide, x, odd);
      return;
    } else if constexpr (kTableThirds<Splits>) {
      ThirdsPixel<kLtr, kLast, kKeepCur, Splits>(st, decide, x, odd);
      return;
    } else if constexpr (!kLast && kShareRows<Splits>) {
      SharePixel<kLtr, kKeepCur, Splits>(st, decide, x, odd);
      return;
    } else {
      const std::uint8_t s = st.in[x];
      if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(st.v);
      // Curve terms fall on every other column (odd ones left to right, even ones right to left).
      const bool has_term = kScan.curve_terms && (kLtr ? odd : !odd);
      // Rows of this kind hold the carried value to 16 bits at every pixel.
      const Outcome o = decide.Decide(static_cast<int>(st.v), s);
      ShiftIn<kLtr>(st.acc, o.code);
      int term = 0;
      if constexpr (kScan.curve_terms) term = has_term ? (kLtr ? curve_a_[s] : curve_b_[s]) : 0;
      const int e = Store16(o.err + term);
      const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
      const unsigned code = (word >> 1) & kCodeMask;
      int a, b;
      Splits::template SharesWithHalf<true>(code, e, DivTrunc2(e), a, b);
      PassOn<kLtr, kLast>(st, x, b);
      st.v = Store16(st.cur[kLtr ? x + 1 : x - 1] + a);
    }
  }

  // A pixel of a row whose error and half come from a window table (kTableHalves). The chain
  // from pixel to pixel is the value carried along: its entry, the share it passes on, the
  // next pixel's value. So the value is kept as a plain sum, not held to 16 bits (a value
  // outside the window, the only kind the holding can change, is held first on the cold
  // path), and the drawn code picks the share's field (or, with a curve term, its multiplier)
  // before the value is known.
  template <bool kLtr, bool kLast, bool kKeepCur, class Splits>
  HALFTONE_FORCE_INLINE void TablePixel(Lane& st, const Decider& decide, std::size_t x, bool odd) const {
    static constexpr typename Splits::TableAlong kAlong = Splits::MakeTableAlong();
    const std::uint8_t s = st.in[x];
    if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(st.v);
    const bool has_term = kScan.curve_terms && (kLtr ? odd : !odd);
    const int term = has_term ? (kLtr ? curve_a_[s] : curve_b_[s]) : 0;
    const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
    const unsigned code = (word >> 1) & kCodeMask;
    // The share carried along is `on + off`: `on` waits for the value, `off` is known beside
    // it and joins the pixel ahead first.
    std::ptrdiff_t on, off = 0;
    int b;
    if (decide.InWindow(st.v)) [[likely]] {
      // The sample's column, pinned to one register; the value's entry is at [v * kEntryFields].
      const std::int16_t* column = PinnedAddress(decide.Column(s, kEntryErr));
      const std::ptrdiff_t at = st.v * kEntryFields;
      ShiftIn<kLtr>(st.acc, static_cast<unsigned>(column[at + kEntryCode]));
      const int err = column[at + kEntryErr];
      int e, half;
      if (!has_term) {
        on = std::ptrdiff_t{PinnedAddress(column + kAlong.field[code])[at]} & kAlong.mask[code];
        e = err;
        half = column[at + kEntryPart];
      } else {
        // Levels and terms are bytes, so within the window neither the error nor the error
        // with its term leaves 16 bits.
        const std::ptrdiff_t et = std::ptrdiff_t{err} + term;
        on = (et * kAlong.mul[code]) >> 32;
        off = std::ptrdiff_t{et < 0} & kAlong.step[code];
        e = static_cast<int>(et);
        half = DivTrunc2(e);
      }
      if constexpr (Splits::kBelow.kind == ColumnKind::kComplement) {
        b = e - static_cast<int>(on + off);
      } else {
        int a_unused;
        Splits::template SharesWithHalf<true>(code, e, half, a_unused, b);
      }
    } else {
      const PartOutcome o = decide.DecideWithPart(Store16(static_cast<int>(st.v)), s);
      ShiftIn<kLtr>(st.acc, o.code);
      const int e = has_term ? Store16(o.err + term) : o.err;
      int a;
      Splits::template SharesWithHalf<true>(code, e, has_term ? DivTrunc2(e) : o.part, a, b);
      on = a;
    }
    PassOn<kLtr, kLast>(st, x, b);
    st.v = (st.cur[kLtr ? x + 1 : x - 1] + off) + on;
  }

  // A pixel of a row that sends a third of its error one way and the rest the other, its
  // error, third and rest read from a window table (kTableThirds): TablePixel's chain, with the
  // drawn bit picking the third's or the rest's field, or with a curve term their product.
  template <bool kLtr, bool kLast, bool kKeepCur, class Splits>
  HALFTONE_FORCE_INLINE void ThirdsPixel(Lane& st, const Decider& decide, std::size_t x, bool odd) const {
    static constexpr typename Splits::ThirdsAlong kAlong = Splits::MakeThirdsAlong();
    const std::uint8_t s = st.in[x];
    if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(st.v);
    const bool has_term = kScan.curve_terms && (kLtr ? odd : !odd);
    const int term = has_term ? (kLtr ? curve_a_[s] : curve_b_[s]) : 0;
    const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
    const unsigned code = (word >> 1) & kCodeMask;
    std::ptrdiff_t on, off = 0;
    int b;
    if (decide.InWindow(st.v)) [[likely]] {
      const std::int16_t* column = PinnedAddress(decide.Column(s, kEntryErr));
      const std::ptrdiff_t at = st.v * kEntryFields;
      ShiftIn<kLtr>(st.acc, static_cast<unsigned>(column[at + kEntryCode]));
      const std::ptrdiff_t err = column[at + kEntryErr];
      if (has_term) {
        // Levels and terms are bytes, so within the window the error with its term keeps to
        // 16 bits.
        const std::ptrdiff_t e = err + term;
        const ShareProduct& along = kAlong.product[code];
        on = HighWord(e, along.mul);
        off = DividingStep(along, e);
        b = static_cast<int>(e - on - off);
      } else {
        on = PinnedAddress(column + kAlong.field[code])[at];
        b = static_cast<int>(err - on);
      }
    } else {
      // Outside the window: the value held to 16 bits, the error held again after its term.
      const PartOutcome o = decide.DecideWithPart(Store16(static_cast<int>(st.v)), s);
      ShiftIn<kLtr>(st.acc, o.code);
      const int e = has_term ? Store16(o.err + term) : o.err;
      const int third = has_term ? DivTrunc3(e) : o.part;
      on = kAlong.field[code] == kEntryRest ? e - third : third;
      b = e - static_cast<int>(on);
    }
    PassOn<kLtr, kLast>(st, x, b);
    st.v = (st.cur[kLtr ? x + 1 : x - 1] + off) + on;
  }

  // A pixel of an inner row whose along share comes from an AlongShareTable (kShareRows). The
  // chain from pixel to pixel is the carried value, its share and the next value: the drawn
  // code picks the share's column before the value is known, and the value is kept as a plain
  // sum (a value outside the window, the only kind holding it to 16 bits can change, is held
  // first on the cold path). The dot and the share below hang off the chain.
  template <bool kLtr, bool kKeepCur, class Splits>
  HALFTONE_FORCE_INLINE void SharePixel(Lane& st, const Decider& decide, std::size_t x, bool odd) const {
    const std::uint8_t s = st.in[x];
    if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(st.v);
    const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
    const unsigned code = (word >> 1) & kCodeMask;
    // A curve term (every other column) joins the error before the split: such a pixel forms
    // its shares as the other rows do.
    const bool has_term = kScan.curve_terms && (kLtr ? odd : !odd);
    std::ptrdiff_t on;
    int e;
    if (!has_term && AlongShareTable::InWindow(st.v)) [[likely]] {
      const std::int16_t* column = PinnedAddress((kLtr ? along_ltr_ : along_rtl_)->Column(code));
      on = column[st.v * AlongShareTable::kCodes];
      const Outcome o = decide.Decide(static_cast<int>(st.v), s);
      ShiftIn<kLtr>(st.acc, o.code);
      e = o.err;  // within the window the error keeps to 16 bits
    } else {
      const Outcome o = decide.Decide(Store16(static_cast<int>(st.v)), s);
      ShiftIn<kLtr>(st.acc, o.code);
      e = Store16(o.err + (has_term ? (kLtr ? curve_a_[s] : curve_b_[s]) : 0));
      int a, b_unused;
      Splits::template SharesWithHalf<true>(code, e, DivTrunc2(e), a, b_unused);
      on = a;
    }
    int b;
    if constexpr (Splits::kBelow.kind == ColumnKind::kComplement) {
      b = e - static_cast<int>(on);
    } else {
      int a_unused;
      Splits::template SharesWithHalf<true>(code, e, DivTrunc2(e), a_unused, b);
    }
    PassOn<kLtr, false>(st, x, b);
    st.v = st.cur[kLtr ? x + 1 : x - 1] + on;
  }

  // The share b of pixel x to the row below (or, in the band's last row, to the carry row).
  template <bool kLtr, bool kLast>
  HALFTONE_FORCE_INLINE static void PassOn(Lane& st, std::size_t x, int b) {
    if constexpr (kLast) {
      if constexpr (!kLtr || kScan.ltr_last_carries)
        if (st.carry) st.carry[x] = Store16(b);
    } else {
      st.next[x] = Store16(st.in_below[x] + b);
    }
  }

  // Pixel x of every lane.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesPixel(Lane* st, const Decider& decide, std::size_t x, bool odd) const {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      LanePixel<kLtr, kLast, kKeepCur>(st[l], decide, x, odd);
    });
  }
  // Each lane's gathered dots into byte k of its output row.
  HALFTONE_FORCE_INLINE static void Flush(Lane* st, std::size_t k) {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      st[l].out[k] = static_cast<std::uint8_t>(st[l].out[k] | st[l].acc);
      st[l].acc = 0;
    });
  }

  // Scan positions i0 .. i0+count-1 (x = i left to right, w-1-i right to left) within one
  // output byte.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesPartial(Lane* st, const Decider& decide, std::size_t i0,
                                           std::size_t count) const {
    const std::size_t w = band_.w;
    for (std::size_t i = i0; i < i0 + count; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      LanesPixel<kLtr, kLast, kKeepCur>(st, decide, x, (x & 1) != 0);
    }
  }

  // Output byte k whole, its kPerByte pixels in scan order. A byte starts at an even x, so each
  // column's parity is a constant: a lone lane unrolls the whole byte; a group, whose pixel
  // bodies are several times larger, unrolls pairs of columns.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesByte(Lane* st, const Decider& decide, std::size_t k) const {
    const std::size_t base = k * kPerByte;
    if constexpr (kLanes == 1) {
      [&]<unsigned... j>(std::integer_sequence<unsigned, j...>) {
        ((LanesPixel<kLtr, kLast, kKeepCur>(st, decide, base + (kLtr ? j : kPerByte - 1 - j),
                                            ((kLtr ? j : kPerByte - 1 - j) & 1) != 0)),
         ...);
      }(std::make_integer_sequence<unsigned, kPerByte>{});
    } else {
      for (unsigned q = 0; q < kPerByte / 2; ++q) {
        // Left to right an even column then an odd one; right to left the other way round.
        const std::size_t x = base + (kLtr ? 2 * q : kPerByte - 1 - 2 * q);
        LanesPixel<kLtr, kLast, kKeepCur>(st, decide, x, !kLtr);
        LanesPixel<kLtr, kLast, kKeepCur>(st, decide, kLtr ? x + 1 : x - 1, kLtr);
      }
    }
    Flush(st, k);
  }

  // Row y of every lane: plain local pointers, and the row cut into whole output bytes
  // (unrolled, so the curve term's parity is a constant)
  // plus a partial byte at either end. kKeepCur stores the scanned row's values back, which
  // only the last two rows of a band need.
  template <bool kLtr, bool kLast, bool kKeepCur>
  void LanesRow(std::size_t y) {
    constexpr EndDraw kEndDraw = kLast ? kScan.last_row_end.draw : kScan.inner_row_end.draw;
    constexpr std::size_t kRowEndDraws = kEndDraw == EndDraw::kNone ? 0 : 1;
    const std::size_t w = band_.w;
    const Decider& decide = decide_;
    Lane st[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      const unsigned p = p_[l];
      random_[l].DrawWords(words_[l], w - 1 + kRowEndDraws);
      st[l] = {kLtr ? rows_[l].a : rows_[l].b,
               kLtr ? rows_[l].b : rows_[l].a,
               rows_[l].carry,
               band_.In(y, p),
               kLast ? nullptr : band_.In(y + 1, p),
               kLtr ? words_[l] : words_[l] + (w - 1),
               band_.Out(y, p),
               0,
               0};
      st[l].v = st[l].cur[kLtr ? 0 : w - 1];
    }

    ForEachRowByte<kLtr, kPerByte>(
        w, [&](std::size_t k) HALFTONE_FORCE_INLINE { LanesByte<kLtr, kLast, kKeepCur>(st, decide, k); },
        [&](std::size_t i0, std::size_t n) HALFTONE_FORCE_INLINE {
          LanesPartial<kLtr, kLast, kKeepCur>(st, decide, i0, n);
        },
        [&](std::size_t k) HALFTONE_FORCE_INLINE { Flush(st, k); });

    // The pixel ending the row.
    const std::size_t x = kLtr ? w - 1 : 0;
    for (unsigned l = 0; l < kLanes; ++l) {
      Lane& ln = st[l];
      const std::uint8_t s = ln.in[x];
      ln.cur[x] = static_cast<std::int16_t>(ln.v);
      const int held = ln.cur[x];  // the carried value, held to 16 bits
      if constexpr (kLast && kEndDraw == EndDraw::kNone) {
        // The pixel ending the band: its dot only.
        const int vd = (kLtr && kScan.ltr_last_end_reads_b) ? rows_[l].b[x] : held;
        ShiftIn<kLtr>(ln.acc, decide.Decide(vd, s).code);
      } else {
        const RowEndRule& rule = kLast ? kScan.last_row_end : kScan.inner_row_end;
        const Outcome o = decide.Decide(held, s);
        ShiftIn<kLtr>(ln.acc, o.code);
        const int e = Store16(o.err + CurveTerm<kLtr>(x, s));
        unsigned bit = 0;  // an ignored row-end draw was made with the row's draws
        if constexpr (kEndDraw == EndDraw::kUsed) bit = (words_[l][w - 1] >> 1) & 1u;
        if constexpr (kLast)
          PassOn<kLtr, true>(ln, x, ShareOf(rule.below[bit], e));
        else
          ln.next[x] = Store16(ln.in_below[x] + ShareOf(rule.below[bit], e));
      }
      // A forward row's last byte may be partial: its dots move up to the byte's high end.
      if constexpr (kLtr) ln.acc <<= Shift(x);
      ln.out[x / kPerByte] = static_cast<std::uint8_t>(ln.out[x / kPerByte] | ln.acc);
    }
  }

  const Decider& decide_;
  const Band& band_;
  const std::uint8_t* curve_a_;
  const std::uint8_t* curve_b_;
  PlaneRows rows_[kLanes];
  RandomBitSource random_[kLanes];
  std::uint32_t* words_[kLanes];
  unsigned p_[kLanes];
  const AlongShareTable* along_ltr_ = nullptr;  // the inner rows' shares, where kShareRows
  const AlongShareTable* along_rtl_ = nullptr;
};

// Widest group a pass runs well in: a pass whose lanes hold many live values (a decision
// table and curve terms) may ask for narrower groups with `kLockstep`; measured, not derived.
template <class Pass>
constexpr unsigned LockstepWidth() {
  if constexpr (requires { Pass::kLockstep; })
    return Pass::kLockstep;
  else
    return kMaxLockstep;
}

// Runs a group of kLanes lanes; each lane's generator is left after its plane's draws.
template <class Pass, class Decider, unsigned kLanes>
void RunLockstepOf(const Decider& decide, const Band& band, FastLane* lanes, const ToneCurveSet& curves) {
  LockstepScan<Pass, Decider, kLanes> scan(decide, band, lanes, curves);
  scan.Run();
  for (unsigned l = 0; l < kLanes; ++l) lanes[l].random = scan.random(l);
}

// Runs a group of n lanes (n at most the pass's width). Only group sizes up to that width are
// built: each is a large function.
template <class Pass, class Decider>
void RunLockstep(const Decider& decide, const Band& band, FastLane* lanes, unsigned n, const ToneCurveSet& curves) {
  constexpr unsigned kWidest = LockstepWidth<Pass>();
  if constexpr (kWidest >= 4) {
    if (n >= 4) return RunLockstepOf<Pass, Decider, 4>(decide, band, lanes, curves);
  }
  if constexpr (kWidest >= 3) {
    if (n == 3) return RunLockstepOf<Pass, Decider, 3>(decide, band, lanes, curves);
  }
  if constexpr (kWidest >= 2) {
    if (n == 2) return RunLockstepOf<Pass, Decider, 2>(decide, band, lanes, curves);
  }
  RunLockstepOf<Pass, Decider, 1>(decide, band, lanes, curves);
}

// Where each plane's slice of a band's random stream starts: plane p's generator is the
// engine's jumped p slices on. The engine's generator is left after all planes' slices, as the
// sequential scan leaves it. Returns the planes' starting generators.
inline const RandomBitSource* PlaneStreamStarts(Engine& engine, unsigned planes, std::size_t per_plane) {
  if (planes == 0) return nullptr;  // no plane draws; the generator stays where it is
  RandomBitSource* starts = SliceStarts(engine, planes, per_plane);
  if (planes == 1) return starts;  // the single lane hands its generator back itself
  engine.random = starts[planes - 1];
  engine.random.Skip(engine.draws.Jump(per_plane));
  return starts;
}

}  // namespace halftone::random_split
