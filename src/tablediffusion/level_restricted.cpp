// Level-restricted serpentine diffusion biased by the current tone curves and, for two members,
// a tiled bias matrix. The four-level members let a pixel take only one of the two output
// levels around its own input level, so diffused error can never put a large drop into a
// light area or leave a hole in a dark one: the error still moves, but only the choice between
// neighbouring dot sizes carries it. The tone curve of the print mode is added to the error at
// every second column, and the bias matrix, added to each next row as it is loaded, breaks up
// the regular textures diffusion forms in flat areas.
#include <algorithm>
#include <array>

#include "frame/dispatch.h"
#include "frame/job.h"
#include "frame/row_engine.h"
#include "tablediffusion/curve_term.h"
#include "tablediffusion/error_shares.h"
#include "tablediffusion/integer_diffusion.h"
#include "tablediffusion/serpentine_vector.h"

namespace halftone {
namespace {

struct LevelRestrictedTraits {
  unsigned bits;            // 2: level-restricted on L0..L3; 1: dot at 128
  std::size_t period;       // tiling period of the bias matrix; 0: no matrix
  bool rows_hold_input;     // working rows hold input + noise + error, else noise + error only
  CurveTerm ltr, rtl;
  ShareChoice split_ltr, split_rtl;
};

constexpr Fraction kThreeQuartersDown{3, 4, true};

constexpr std::size_t kWidePeriod = 256;
constexpr std::size_t kNarrowPeriod = 240;

constexpr LevelRestrictedTraits kMatrixFourLevel{2, kWidePeriod, true, {Curve::kA, 1}, {Curve::kB, 0},
                                                 Always(fraction::kHalf), Always(fraction::kHalf)};
constexpr LevelRestrictedTraits kRandomFourLevel{2, 0, true, {Curve::kA, 1}, {Curve::kB, 0},
                                                 ByBit(fraction::kNone, fraction::kAll), ByBit(fraction::kNone, fraction::kAll)};
constexpr LevelRestrictedTraits kMatrixBilevel{1, kNarrowPeriod, false, {Curve::kB, 0}, {Curve::kA, 1},
                                               Always(fraction::kRestAfterThird), Always(fraction::kTwoThirds)};
// required: forward rows of this member add no curve term.
constexpr LevelRestrictedTraits kRandomBilevel{1, 0, false, {Curve::kNone, 0}, {Curve::kA, 1},
                                               ByBit(kThreeQuartersDown, fraction::kRestAfterThird),
                                               ByBit(fraction::kQuarter, fraction::kTwoThirds)};

constexpr int kTopLevel = 255;

// Levels L0..L3 (codes 3..0) and the floored midpoints between them.
struct Levels {
  int level[4];  // by code: level[3] = L0 ... level[0] = L3
  int L1, L2, t1, t2, t3;
  static Levels From(const LevelValues& lv) {
    const int l0 = lv.L[0], l1 = lv.L[1], l2 = lv.L[2], l3 = lv.L[3];
    return {{l3, l2, l1, l0}, l1, l2, (l0 + l1) >> 1, (l1 + l2) >> 1, (l2 + l3) >> 1};
  }
};

// The two codes around input level v (the darker one and the next lighter) and the split
// between them; s at or below the split takes the darker code.
struct LevelPair {
  unsigned dark;
  int split;
};
inline LevelPair PairFor(const Levels& lv, int v) {
  if (v <= lv.L1) return {3, lv.t1};
  if (v <= lv.L2) return {2, lv.t2};
  // required: the top level splits at the middle midpoint, so white turns light sooner.
  return {1, v == kTopLevel ? lv.t2 : lv.t3};
}

// Quantises s of a pixel of input level v and returns the error.
template <unsigned Bits>
inline int Quantise(const Levels& lv, int v, int s, std::uint8_t* out, std::size_t x) {
  if constexpr (Bits == 1) return QuantiseBilevel(s, out, x);
  const LevelPair pair = PairFor(lv, v);
  const unsigned code = s <= pair.split ? pair.dark : pair.dark - 1;
  if (code != 0) PutCode2(out, x, code);
  return s - lv.level[code];
}

template <const LevelRestrictedTraits& M>
void DiffusePlane(Engine& engine, const Band& band, unsigned p, const Levels& lv) {
  const std::size_t w = band.w, h = band.h;
  std::int16_t* a = engine.rows.a();
  std::int16_t* b = engine.rows.b();
  std::int16_t* carry = engine.rows.carry(p, w);
  RandomBitSource& random = engine.random;
  const auto& matrix = engine.tables.bias;

  // What a row's entry at x starts from before error arrives: input and matrix noise, as the
  // member keeps them. The matrix tile restarts at its row 0 with every band and plane.
  auto start_value = [&](std::size_t y, std::size_t x) {
    int value = 0;
    if constexpr (M.rows_hold_input) value += band.In(y, p)[x];
    if constexpr (M.period != 0) value += matrix[y % M.period][x % M.period];
    return value;
  };
  auto pixel_value = [](int v, int entry) { return M.rows_hold_input ? entry : v + entry; };

  // An empty band has no row 0 to load, but it still uses up the carried error.
  LoadCarry(a, carry, w);
  if (h == 0) return;
  for (std::size_t x = 0; x < w; ++x) a[x] = Store16(start_value(0, x) + a[x]);

  for (std::size_t y = 0; y < h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* out = band.Out(y, p);
    const bool last_row = y + 1 >= h;
    // The next row's start is never read after the band's last row; it is not loaded there.
    auto next_start = [&](std::size_t x) { return last_row ? 0 : start_value(y + 1, x); };

    if ((y & 1) == 0) {
      for (std::size_t x = 0; x < w; ++x) {
        const int v = in[x];
        int e = Quantise<M.bits>(lv, v, pixel_value(v, a[x]), out, x);
        e += CurveBias<M.ltr>(engine, v, x);
        const Shares s = Apply(Pick(M.split_ltr, x, random), e);
        if (x + 1 < w) a[x + 1] = Store16(a[x + 1] + s.ahead);
        // required: a forward last row adds its down shares to B, so only even-height bands carry.
        b[x] = Store16(next_start(x) + s.down);
      }
    } else {
      for (std::size_t x = w; x-- > 0;) {
        const int v = in[x];
        int e = Quantise<M.bits>(lv, v, pixel_value(v, b[x]), out, x);
        e += CurveBias<M.rtl>(engine, v, x);
        const Shares s = Apply(Pick(M.split_rtl, x, random), e);
        if (x > 0) b[x - 1] = Store16(b[x - 1] + s.ahead);
        if (last_row)
          carry[x] = Store16(s.down);
        else
          a[x] = Store16(next_start(x) + s.down);
      }
    }
  }
}

// The fast path: DiffusePlane's pixels as kernels of the lockstep frame. Levels, midpoints
// and the curve terms of the band are folded into tables per input level and column parity.

constexpr std::size_t kInputLevels = kCurveLength;

// The level pair of an input level with the column's curve term folded into the levels:
// e = s - level + curve = s - offset.
struct RestrictedEntry {
  std::int16_t split;
  std::int16_t dark_offset;
  std::int16_t light_offset;
  std::uint16_t dark;  // code of the darker level; the lighter is dark - 1
};
using RestrictedTable = std::array<RestrictedEntry, 2 * kInputLevels>;  // [parity * 256 + v]

template <CurveTerm T>
void BuildRestrictedTable(const Engine& engine, const Levels& lv, RestrictedTable& table) {
  for (std::size_t parity = 0; parity < 2; ++parity)
    for (int v = 0; v < static_cast<int>(kInputLevels); ++v) {
      const LevelPair pair = PairFor(lv, v);
      const int curve = CurveBias<T>(engine, v, parity);
      table[parity * kInputLevels + static_cast<std::size_t>(v)] = {
          static_cast<std::int16_t>(pair.split), static_cast<std::int16_t>(lv.level[pair.dark] - curve),
          static_cast<std::int16_t>(lv.level[pair.dark - 1] - curve), static_cast<std::uint16_t>(pair.dark)};
    }
}

using BiasMatrix = decltype(ScreeningTables::bias);

// What the kernels below start a row from: its entries before error arrives (the reference's
// start_value), laid in tile by tile of the matrix so no column needs a modulo.
template <const LevelRestrictedTraits& M>
struct MatrixStart {
  const BiasMatrix* matrix;

  static void SetRow(std::size_t) {}
  void FillStart(std::int16_t* row, const std::uint8_t* in, std::size_t y, std::size_t w) const {
    if constexpr (M.period == 0) {
      static_assert(M.rows_hold_input, "a member without matrix or input in its rows starts from bare error");
      for (std::size_t x = 0; x < w; ++x) row[x] = in[x];
    } else {
      const std::int16_t* noise = (*matrix)[y % M.period].data();
      for (std::size_t x0 = 0; x0 < w; x0 += M.period) {
        const std::size_t n = std::min(M.period, w - x0);
        for (std::size_t j = 0; j < n; ++j)
          row[x0 + j] = Store16((M.rows_hold_input ? in[x0 + j] : 0) + noise[j]);
      }
    }
  }
};

constexpr bool DrawsSplitBits(const LevelRestrictedTraits& m) {
  return m.split_ltr.by == Selector::kOneBit || m.split_rtl.by == Selector::kOneBit;
}

// Kaocosyx13 and Kaocosyx14: rows hold input, noise and error; the level pair by table.
template <const LevelRestrictedTraits& M>
struct FourLevelKernel : MatrixStart<M> {
  static_assert(M.bits == 2 && M.rows_hold_input);
  static constexpr unsigned kBits = 2;
  static constexpr bool kStarts = true;
  static constexpr bool kDraws = DrawsSplitBits(M);
  const RestrictedEntry* ltr;
  const RestrictedEntry* rtl;

  template <bool kLtr>
  HALFTONE_FORCE_INLINE row_engine::PixelOut Step(int v, int held, std::size_t, unsigned odd,
                                                            unsigned drawn) const {
    const RestrictedEntry& t = (kLtr ? ltr : rtl)[odd * kInputLevels + static_cast<std::size_t>(v)];
    const int dark = -static_cast<int>(held <= t.split);
    const int e = held - (t.light_offset ^ ((t.light_offset ^ t.dark_offset) & dark));
    const int ahead = AheadShare<kLtr ? M.split_ltr : M.split_rtl>(drawn & 1u, e);
    return {static_cast<unsigned>(t.dark - 1 - dark), ahead, e - ahead};
  }
};

// Kaocosyx1 and Kaocosyx10: rows hold noise and error, the input level is added at the pixel.
template <const LevelRestrictedTraits& M>
struct BilevelKernel : MatrixStart<M> {
  static_assert(M.bits == 1 && !M.rows_hold_input);
  static constexpr unsigned kBits = 1;
  static constexpr bool kStarts = M.period != 0;
  static constexpr bool kDraws = DrawsSplitBits(M);
  const std::int16_t* ltr;  // curve terms
  const std::int16_t* rtl;

  template <bool kLtr>
  HALFTONE_FORCE_INLINE row_engine::PixelOut Step(int v, int held, std::size_t, unsigned odd,
                                                            unsigned drawn) const {
    constexpr CurveTerm kTerm = kLtr ? M.ltr : M.rtl;
    constexpr ShareChoice kSplit = kLtr ? M.split_ltr : M.split_rtl;
    const int s = v + held;
    const int biased = s + CurveTermAt<kTerm>(kLtr ? ltr : rtl, odd, static_cast<std::size_t>(v));
    const bool dot = s <= kBilevelCut;
    const int e = dot ? biased : biased - kBilevelWhite;
    const int ahead = AheadShare<kSplit>(drawn & 1u, e);
    return {dot, ahead, e - ahead};
  }

#if HALFTONE_VECTOR_ROWS
  // Vector rows for the member whose rows hold bare error and which draws at every pixel.
  static constexpr bool kVectorRows = !kStarts && kDraws;
  template <bool kLtr>
  static constexpr std::uint16_t Rule(std::uint8_t, unsigned, unsigned drawn) {
    constexpr ShareChoice kSplit = kLtr ? M.split_ltr : M.split_rtl;
    return row_engine::RuleFlags(kSplit.rules[kSplit.by == Selector::kOneBit ? (drawn & 1u) : 0u]);
  }
  template <bool kLtr>
  int Term(std::uint8_t level, std::size_t odd) const {
    return CurveTermAt<kLtr ? M.ltr : M.rtl>(kLtr ? ltr : rtl, static_cast<unsigned>(odd), level);
  }
#endif
};

template <const LevelRestrictedTraits& M>
int Run(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
        HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, M.bits);
  const Levels lv = Levels::From(engine.levels);
  const JobSpec spec{.reseed = Reseed::kEveryCall};
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] {
    if (ForceScalar() || band.w == 0 || band.h == 0) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane<M>(engine, band, p, lv);
    } else if constexpr (M.bits == 2) {
      RestrictedTable ltr, rtl;
      BuildRestrictedTable<M.ltr>(engine, lv, ltr);
      BuildRestrictedTable<M.rtl>(engine, lv, rtl);
      row_engine::RunBand(FourLevelKernel<M>{{&engine.tables.bias}, ltr.data(), rtl.data()}, engine, band);
    } else {
      CurveTermTable ltr, rtl;
      BuildCurveTermTable<M.ltr>(engine, ltr);
      BuildCurveTermTable<M.rtl>(engine, rtl);
      row_engine::RunTableBand(BilevelKernel<M>{{&engine.tables.bias}, ltr.data(), rtl.data()}, engine, band);
    }
  });
}

}  // namespace

int LevelRestrictedDiffusion(Engine& engine, LevelRestrictedMember member, const std::uint8_t* src,
                             std::uint8_t* dst, std::size_t w, std::size_t h, HalftoneFlags flags) {
  switch (member) {
    case LevelRestrictedMember::kMatrixFourLevel: return Run<kMatrixFourLevel>(engine, src, dst, w, h, flags);
    case LevelRestrictedMember::kRandomFourLevel: return Run<kRandomFourLevel>(engine, src, dst, w, h, flags);
    case LevelRestrictedMember::kMatrixBilevel: return Run<kMatrixBilevel>(engine, src, dst, w, h, flags);
    case LevelRestrictedMember::kRandomBilevel: return Run<kRandomBilevel>(engine, src, dst, w, h, flags);
  }
  return kErrOutOfContract;
}

}  // namespace halftone
