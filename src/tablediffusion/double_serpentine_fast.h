// The fast path of the ahead-and-down members (double_serpentine.h), as a kernel of the
// serpentine row engine (frame/row_engine.h): the same pixels in the same order per plane,
// the same double operations in the same order, the same draws, the same rows left behind.
// What changes is how:
//   - the planes of a group run in lockstep on their own working rows (the engine's), so the
//     floating-point dependency chains of the planes overlap;
//   - the error carried to the next pixel stays in a register;
//   - the dot decision is a compare mask, not a branch: e = s - (dark ? 0.0 : 255.0), which is
//     the reference's s - 0.0 or s - 255.0;
//   - a random member's split bits come from the band's draws made ahead.
// The readable pass stays the reference; mirror any change to it here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/lockstep.h"
#include "frame/row_engine.h"
#include "tablediffusion/double_serpentine.h"
#include "tablediffusion/double_tables.h"

namespace halftone::double_fast {

using row_engine::AtOrBelow;
using row_engine::Above;
using row_engine::Mask;
using row_engine::Real;
using row_engine::Select;

// What a share may depend on besides the error: the pixel, its row and its draw's split bit.
struct Px {
  int v;
  std::size_t x;
  unsigned split;  // the pixel's split bit (bit 1 of its drawn word)
  const std::uint8_t* in;  // the pixel's row
  std::size_t w;
};

// A member's fast traits:
//   kWhiteGuard, kReversedEndTest, kQuarterAtRowEnd  as the reference traits
//   kDrawsPerPixel                   true when every pixel but the row end takes one drawn word
//   Real Sum(v, c, y, x)             the value to threshold, as the reference's Sum
//   bool BiasAt(x, forward)          as the reference
//   Real Bias(v)                     as the reference
//   Real Scale(e, px)                the reference's ahead share up to its last operation,
//   Real Finish(n, px)               and that operation (a division, or nothing): the scan
//                                    selects between the dark and the paper outcome before it,
//                                    so a division is done once
// FastOf<Traits> gives a member the ones it takes as they are: the reference traits' flags and
// bias columns, no draws, no level bias, the common sum (the level plus the error that arrived,
// the reference's v + err) and no operation after the share.
//
// Both outcomes of the threshold are carried to the share and the one the compare picks is
// kept: the compare then runs beside the arithmetic instead of ahead of it. For the dark
// outcome the reference's s - 0.0 is s itself (no double is changed by subtracting +0.0).
// Row ends pass nothing ahead; the band's last row sends its down shares to the carry in either
// direction. Groups are not split below the member's width to give every thread one: the long
// division chains gain more from wide groups than from a second core (four planes, two
// threads: two pairs ran at 0.87-0.89 times one group of four, suiruiskao2 to 4).
template <class Fast>
struct AheadDownKernel {
  using Cell = double;
  static constexpr unsigned kBits = 1;
  static constexpr bool kStarts = false;
  static constexpr bool kDraws = Fast::kDrawsPerPixel;
  static constexpr bool kRowEndDraws = false;
  static constexpr bool kLastLtrToCarry = true;
  static constexpr unsigned kLockstep = LockstepWidth<Fast>();
  static constexpr bool kWholeGroups = true;
  struct LaneState {
    const std::uint8_t* in;  // the row's input, for shares that look at the neighbours
    std::size_t w;
  };
  Fast fast;
  std::size_t y = 0;

  static LaneState StartLane(const row_engine::LaneOf<double>&) { return {nullptr, 0}; }
  template <bool, bool>
  static void LaneRow(LaneState& s, const row_engine::RowView<double>& r) {
    s = {r.in, r.w};
  }
  void SetRow(std::size_t row) { y = row; }

  template <bool kLtr, bool kLast, bool kEnd>
  HALFTONE_FORCE_INLINE row_engine::PixelOutOf<Real> Step(const LaneState& ls, int v, Real held,
                                                                   std::size_t x, unsigned, unsigned drawn) const {
    const Real s = fast.Sum(v, held, y, x);
    const Real threshold = Real::Of(kDotThreshold);
    static_assert(kDotOutput == 0.0);
    // On the band's last right-to-left row the member may test the row end the other way round.
    constexpr bool kReversed = Fast::kReversedEndTest && kEnd && kLast && !kLtr;
    const Mask dark = kReversed ? Above(s, threshold) : AtOrBelow(s, threshold);
    const unsigned code = dark.bit() & (Fast::kWhiteGuard ? static_cast<unsigned>(v < kWhiteLevel) : 1u);
    Real e_dark = s, e_paper = s - Real::Of(kPaperOutput);
    if (fast.BiasAt(x, kLtr)) {
      const Real bias = fast.Bias(v);
      e_dark = e_dark + bias;
      e_paper = e_paper + bias;
    }
    const Real e = Select(dark, e_dark, e_paper);
    if constexpr (kEnd && Fast::kQuarterAtRowEnd) {
      return {code, Real::Of(0.0), e - e * Real::Of(kRowEndAhead)};
    } else {
      const Px px{v, x, drawn & 1u, ls.in, ls.w};
      const Real ahead = kEnd ? fast.Finish(fast.Scale(e, px), px)
                              : fast.Finish(Select(dark, fast.Scale(e_dark, px), fast.Scale(e_paper, px)), px);
      return {code, ahead, e - ahead};
    }
  }
};

// The defaults of a member's fast traits (above), from its reference traits.
template <class Traits>
struct FastOf {
  static constexpr bool kWhiteGuard = Traits::kWhiteGuard;
  static constexpr bool kReversedEndTest = Traits::kReversedEndTest;
  static constexpr bool kQuarterAtRowEnd = Traits::kQuarterAtRowEnd;
  static constexpr bool kDrawsPerPixel = false;
  static bool BiasAt(std::size_t x, bool forward) { return Traits::BiasAt(x, forward); }
  static Real Bias(int) { return Real::Of(0.0); }
  static Real Sum(int v, Real c, std::size_t, std::size_t) { return Real::Level(v) + c; }
  static Real Finish(Real n, const Px&) { return n; }
};

// A share's weight by column parity and level (0..255), [x & 1][level], tabulated from the
// reference's rule weight(level, x) when the member is compiled.
using WeightsByParity = std::array<std::array<double, kLevels>, 2>;
template <class Rule>
constexpr WeightsByParity TabulateWeights(Rule weight) {
  WeightsByParity t{};
  for (std::size_t parity = 0; parity < 2; ++parity)
    for (int v = 0; v < kLevels; ++v) t[parity][v] = weight(v, parity);
  return t;
}

// Every plane of a band, in lockstep groups on the engine's threads; the band's draws are made
// ahead where the member draws (plane p's slice at p * h * (w - 1), the order the sequential
// scan draws them).
template <class Fast>
void AheadDownBand(const Fast& fast, Engine& engine, const Band& band) {
  row_engine::RunBand(AheadDownKernel<Fast>{fast}, engine, band);
}

}  // namespace halftone::double_fast
