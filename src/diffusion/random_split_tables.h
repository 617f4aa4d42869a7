// The decision tables of the random-split fast scans: a pass's decision laid out over a window
// of carried values (with the error's part and rest beside the code), the share carried along
// by table for compare-decided passes, and the cache that keeps a table across band calls.
#pragma once

#include <cstddef>
#include <cstdint>

#include "diffusion/random_split_splits.h"
#include "frame/engine.h"

namespace halftone::random_split {

// Deciders this large or larger are tables worth keeping across band calls.
inline constexpr std::size_t kCachedDeciderBytes = 4096;

// The decision a fast scan uses: the pass's own `Fast()` decider. A decider that is a table is
// kept in the engine's cache, keyed by the pass (its level values), so a run of band calls with
// the same levels builds it once, and the scan refers to the cached one.
template <class Pass>
decltype(auto) FastDecider(const Pass& pass, Engine& engine) {
  using Decider = decltype(pass.Fast());
  if constexpr (sizeof(Decider) >= kCachedDeciderBytes)
    return engine.fast_tables.Get<Decider>(pass, [&] { return pass.Fast(); });
  else
    return pass.Fast();
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
      std::int16_t* en = cells + std::size_t{c} * kWindowRows * kFields;
      // The decision is asked for -1..256 only; beyond, each row repeats its end's code and
      // level.
      for (int v = kWindowLo; v <= kWindowHi; ++v, en += kFields) {
        const int clamped = v < kLo ? kLo : v > kHi ? kHi : v;
        const Outcome o = decide(clamped, representative[c]);
        const int err = v - (clamped - o.err);
        const int part = DivTrunc<kPartDen>(err);
        en[kErr] = static_cast<std::int16_t>(err);
        en[kPart] = static_cast<std::int16_t>(part);
        en[kCode] = static_cast<std::int16_t>(o.code);
        en[kRest] = static_cast<std::int16_t>(err - part);
      }
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

// A pass's decision as a window table; `classify(s)` is the class of sample s.
template <int kPartDen, class Pass, class Classify>
ClampedDecisionTable<kPartDen> DecisionTableOf(const Pass& pass, Classify&& classify) {
  ClampedDecisionTable<kPartDen> t;
  t.Build(classify, [&](int v, int s) { return pass.Decide(v, s); });
  return t;
}

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
        Splits::SharesWithHalf(c, e, DivTrunc2(e), along, below);
        t.cells[static_cast<std::size_t>(v - kWindowLo) * kCodes + c] = static_cast<std::int16_t>(along);
      }
    }
    return t;
  }
};

}  // namespace halftone::random_split
