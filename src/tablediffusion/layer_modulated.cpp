// Level-modulated halving diffusion. Before each pixel is quantised a term from a 16 x 16 tile
// chosen by the pixel's input level is added to it, so one diffusion draws a different texture
// at each input level (clustered in the highlights, dispersed in the mid-tones, as the loaded
// layer table decides); the term enters the diffused error as well, not only the threshold.
// The sibling without the layer table biases the error with the tone curves instead and picks
// its split at random, with split rules by input-level band.
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

struct SplitBand {
  int lowest;  // lowest input level of the band
  ShareChoice choice;
};

struct LayerModulatedTraits {
  bool layer;  // add the layer-table term of the pixel's level and tile position
  CurveTerm ltr, rtl;
  std::size_t band_count;
  std::array<SplitBand, 3> bands;  // lightest first; the last starts at level 0
};

constexpr Fraction kHalfDown{1, 2, true};
constexpr Fraction kThirdDown{1, 3, true};

constexpr LayerModulatedTraits kLayerTiles{true, {}, {}, 1, {{{0, Always(fraction::kHalf)}}}};

// Two-bit choices are indexed by the drawn value 0..3.
constexpr LayerModulatedTraits kCurveBias{
    false, {Curve::kB, 0}, {Curve::kA, 1}, 3,
    {{{176, ByBit(fraction::kThird, kThirdDown)},
      {141, {Selector::kTwoBits, {kThirdDown, fraction::kThird, kHalfDown, fraction::kAll}}},
      {0, {Selector::kTwoBits, {kThirdDown, fraction::kNone, kThirdDown, fraction::kAll}}}}}};

// The split band of input level v: the lightest whose lowest level v reaches.
template <const LayerModulatedTraits& M>
constexpr std::size_t SplitBandOf(int v) {
  std::size_t i = 0;
  while (i + 1 < M.band_count && v < M.bands[i].lowest) ++i;
  return i;
}

// Working rows hold bare error.
template <const LayerModulatedTraits& M>
void DiffusePlane(Engine& engine, const Band& band, unsigned p) {
  const std::size_t w = band.w, h = band.h;
  std::int16_t* a = engine.rows.a();
  std::int16_t* b = engine.rows.b();
  std::int16_t* carry = engine.rows.carry(p, w);
  RandomBitSource& random = engine.random;
  const auto& layers = engine.tables.layers;
  LoadCarry(a, carry, w);

  // The value quantised at (x, y): the tile row restarts with every band and plane.
  auto value = [&](int v, int error, std::size_t y, std::size_t x) {
    int s = v + error;
    if constexpr (M.layer)
      s += layers[static_cast<std::size_t>(v)][y % kLayerTile][x % kLayerTile];
    return s;
  };

  for (std::size_t y = 0; y < h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* out = band.Out(y, p);
    const bool last_row = y + 1 >= h;

    if ((y & 1) == 0) {
      for (std::size_t x = 0; x < w; ++x) {
        const int v = in[x];
        int e = QuantiseBilevel(value(v, a[x], y, x), out, x);
        e += CurveBias<M.ltr>(engine, v, x);
        const Shares s = Apply(Pick(M.bands[SplitBandOf<M>(v)].choice, x, random), e);
        if (x + 1 < w) a[x + 1] = Store16(a[x + 1] + s.ahead);
        // required: a forward last row stores into B, so only even-height bands carry.
        b[x] = Store16(s.down);
      }
    } else {
      for (std::size_t x = w; x-- > 0;) {
        const int v = in[x];
        int e = QuantiseBilevel(value(v, b[x], y, x), out, x);
        e += CurveBias<M.rtl>(engine, v, x);
        const Shares s = Apply(Pick(M.bands[SplitBandOf<M>(v)].choice, x, random), e);
        if (x > 0) b[x - 1] = Store16(b[x - 1] + s.ahead);
        if (last_row)
          carry[x] = Store16(s.down);
        else
          a[x] = Store16(s.down);
      }
    }
  }
}

// The fast path: DiffusePlane's pixel as a kernel of the lockstep frame.

constexpr std::size_t kInputLevels = kCurveLength;
constexpr unsigned kDrawnCodes = 4;  // a two-bit draw; a one-bit choice repeats its rules

template <const LayerModulatedTraits& M>
constexpr bool DrawsSplitBits() {
  for (std::size_t i = 0; i < M.band_count; ++i)
    if (M.bands[i].choice.by != Selector::kParity) return true;
  return false;
}

// The split band of every input level.
template <const LayerModulatedTraits& M>
constexpr std::array<std::uint8_t, kInputLevels> SplitBandOfLevel() {
  std::array<std::uint8_t, kInputLevels> band{};
  for (int v = 0; v < static_cast<int>(kInputLevels); ++v) band[v] = static_cast<std::uint8_t>(SplitBandOf<M>(v));
  return band;
}

// The rule a drawing choice takes for drawn value 0..3 (a one-bit choice reads its low bit).
constexpr const Fraction& DrawnRule(const ShareChoice& c, unsigned drawn) {
  if (c.by == Selector::kParity) throw "a drawing member draws at every level";
  return c.rules[c.by == Selector::kOneBit ? (drawn & 1u) : (drawn & 3u)];
}

// [split band * 4 + drawn value]
template <const LayerModulatedTraits& M>
constexpr std::array<AheadMasks, 3 * kDrawnCodes> AheadMaskTable() {
  std::array<AheadMasks, 3 * kDrawnCodes> table{};
  for (std::size_t i = 0; i < M.band_count; ++i)
    for (unsigned q = 0; q < kDrawnCodes; ++q) table[i * kDrawnCodes + q] = MasksOf(DrawnRule(M.bands[i].choice, q));
  return table;
}

template <const LayerModulatedTraits& M>
struct LayerKernel {
  static constexpr unsigned kBits = 1;
  static constexpr bool kStarts = false;
  static constexpr bool kDraws = DrawsSplitBits<M>();
  static constexpr bool kCurves = M.ltr.curve != Curve::kNone || M.rtl.curve != Curve::kNone;
  static constexpr std::array<std::uint8_t, kInputLevels> kSplitBand = SplitBandOfLevel<M>();
  static_assert((kLayerTile & (kLayerTile - 1)) == 0, "the tile column is a mask");

  const std::int16_t* ltr;  // curve terms
  const std::int16_t* rtl;
  const decltype(ScreeningTables::layers)* layers;
  std::size_t tile_row = 0;

  void SetRow(std::size_t y) { tile_row = y % kLayerTile; }
  template <bool kLtr>
  HALFTONE_FORCE_INLINE row_engine::PixelOut Step(int v, int held, std::size_t x, unsigned odd,
                                                            unsigned drawn) const {
    const auto level = static_cast<std::size_t>(v);
    // The layer term joins the input level before the carried value, off the pixel-to-pixel chain.
    int start = v;
    if constexpr (M.layer) start += (*layers)[level][tile_row][x & (kLayerTile - 1)];
    const int s = start + held;
    const int biased = s + CurveTermAt<kLtr ? M.ltr : M.rtl>(kLtr ? ltr : rtl, odd, level);
    const bool dot = s <= kBilevelCut;
    const int e = dot ? biased : biased - kBilevelWhite;
    int ahead;
    if constexpr (kDraws) {
      static constexpr std::array<AheadMasks, 3 * kDrawnCodes> kMasks = AheadMaskTable<M>();
      ahead = AheadByMasks(
          kMasks[kSplitBand[level] * kDrawnCodes + (drawn & (kDrawnCodes - 1))], e);
    } else {
      static_assert(M.band_count == 1);
      ahead = AheadShare<M.bands[0].choice>(0, e);
    }
    return {dot, ahead, e - ahead};
  }

#if HALFTONE_VECTOR_ROWS
  // Vector rows for the drawing members without the layer table: the rule of a pixel by its
  // level's split band and its draw, the curve term by level and column.
  static constexpr bool kVectorRows = !M.layer && kDraws;
  template <bool kLtr>
  static constexpr std::uint16_t Rule(std::uint8_t level, unsigned, unsigned drawn) {
    return row_engine::RuleFlags(DrawnRule(M.bands[kSplitBand[level]].choice, drawn));
  }
  template <bool kLtr>
  int Term(std::uint8_t level, std::size_t odd) const {
    return CurveTermAt<kLtr ? M.ltr : M.rtl>(kLtr ? ltr : rtl, static_cast<unsigned>(odd), level);
  }
#endif
};

template <const LayerModulatedTraits& M>
int Run(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
        HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  const JobSpec spec{.reseed = Reseed::kStartOfJob};
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] {
    if (ForceScalar() || band.w == 0 || band.h == 0) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane<M>(engine, band, p);
      return;
    }
    CurveTermTable ltr, rtl;
    if constexpr (LayerKernel<M>::kCurves) {
      BuildCurveTermTable<M.ltr>(engine, ltr);
      BuildCurveTermTable<M.rtl>(engine, rtl);
    }
    row_engine::RunTableBand(LayerKernel<M>{ltr.data(), rtl.data(), &engine.tables.layers}, engine, band);
  });
}

}  // namespace

int LayerModulatedDiffusion(Engine& engine, LayerModulatedMember member, const std::uint8_t* src, std::uint8_t* dst,
                            std::size_t w, std::size_t h, HalftoneFlags flags) {
  switch (member) {
    case LayerModulatedMember::kLayerTiles: return Run<kLayerTiles>(engine, src, dst, w, h, flags);
    case LayerModulatedMember::kCurveBias: return Run<kCurveBias>(engine, src, dst, w, h, flags);
  }
  return kErrOutOfContract;
}

}  // namespace halftone
