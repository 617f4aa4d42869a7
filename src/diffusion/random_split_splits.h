// The splits of the random-split scans in branch-free form: each row kind's split table
// (random_split_scan.h) analysed at compile time into columns (linear in the error, the
// other's complement, or generic), and the shares of a drawn code formed by masks or one
// multiply.
#pragma once

#include <cstdint>
#include <utility>

#include "diffusion/random_split_scan.h"
#include "frame/share_arithmetic.h"

namespace halftone::random_split {

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

// A share's divisor where it divides, else 0; and its numerator over the column's divisor.
constexpr int DenOf(const Fraction& s) { return Divides(s) ? s.den : 0; }
constexpr int NumOf(const Fraction& s, int den) { return IsWhole(s) ? den : Divides(s) ? s.num * den / s.den : 0; }
constexpr Fraction Pick(const Split& s, bool below) { return below ? s.below : s.along; }

constexpr ColumnForm LinearForm(const Split* splits, unsigned codes, bool below) {
  ColumnForm f;
  int den = 0;
  for (unsigned c = 0; c < codes; ++c) {
    const Fraction s = Pick(splits[c], below);
    if (s.rest && Divides(s)) return f;
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
    const Fraction mine = Pick(splits[c], below), other = Pick(splits[c], !below);
    const bool ok = AddUpToWhole(mine, other) && (mine.rest || !Divides(mine));
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

  template <const ColumnForm& kCol>
  static int Linear(unsigned code, int e, int half) {
    using K = LinearConstants<kCol>;
    if constexpr (kCodes == 2 && kCol.num[0] == 0 && kCol.num[1] == kCol.den) {
      return e & -static_cast<int>(code);
    } else if constexpr (kCodes == 2 && kCol.num[1] == 0 && kCol.num[0] == kCol.den) {
      return e & (static_cast<int>(code) - 1);
    } else if constexpr (kCol.den <= 2) {
      // All, half or none of e, picked by masks: no multiply on the chain through e.
      return (half & K::kTables.half[code]) | (e & K::kTables.whole[code]);
    } else {
      // (num * e) / den truncated toward zero as the high word of e times num/den rounded up,
      // one added for negative e: the rounding error is below 2^-15 for a 16-bit e, so the
      // high word is floor(num * e / den), one less where that is exact and e negative.
      return MulHighTrunc(e, K::kTables.mul[code], K::kTables.nonzero[code]);
    }
  }

  // Whether SharesWithHalf forms both columns from e and its half alone (whole, half or none of
  // e), so a half known in advance can stand in for DivTrunc2(e).
  static constexpr bool ColumnTakesHalf(const ColumnForm& c) {
    return c.kind == ColumnKind::kComplement || (c.kind == ColumnKind::kLinear && c.den <= 2);
  }
  static constexpr bool kTakesHalf = kAlong.kind != ColumnKind::kGeneric && ColumnTakesHalf(kAlong) &&
                                     ColumnTakesHalf(kBelow);

  // The along share by code when e and its half come from a window table (kTakesHalf): none,
  // half or all of e. `field` and `mask` read it from the entry (the mask clears a share of
  // none); `mul` and `step` form it from an error with a curve term added, as ProductOf
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
      const ShareProduct p = ProductOf({twice, 2});
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
      if (!(sp.along == fraction::kThird && sp.below == fraction::kRestAfterThird) &&
          !(sp.along == fraction::kRestAfterThird && sp.below == fraction::kThird))
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
      const bool rest = kSplits[c].along == fraction::kRestAfterThird;
      t.field[c] = rest ? kEntryRest : kEntryPart;
      t.product[c] = ProductOf({1, 3, rest});
    }
    return t;
  }

  // Shares {along, below} of error e for the drawn code; `half` is DivTrunc2(e).
  static void SharesWithHalf(unsigned code, int e, int half, int& along, int& below) {
    if constexpr (kAlong.kind == ColumnKind::kGeneric) {
      along = Generic<false>(code, e);
      below = Generic<true>(code, e);
    } else if constexpr (kAlong.kind == ColumnKind::kComplement) {
      below = Linear<kBelow>(code, e, half);
      along = e - below;
    } else if constexpr (kBelow.kind == ColumnKind::kComplement) {
      along = Linear<kAlong>(code, e, half);
      below = e - along;
    } else {
      along = Linear<kAlong>(code, e, half);
      below = Linear<kBelow>(code, e, half);
    }
  }
  static void Shares(unsigned code, int e, int& along, int& below) {
    SharesWithHalf(code, e, DivTrunc2(e), along, below);
  }
};

}  // namespace halftone::random_split
