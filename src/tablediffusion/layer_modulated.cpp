// Level-modulated halving diffusion. Before each pixel is quantised a term from a 16 x 16 tile
// chosen by the pixel's input level is added to it, so one diffusion draws a different texture
// at each input level (clustered in the highlights, dispersed in the mid-tones, as the loaded
// layer table decides); the term enters the diffused error as well, not only the threshold.
// The sibling without the layer table biases the error with the tone curves instead and picks
// its split at random, with split rules by input-level band.
#include <array>

#include "frame/job.h"
#include "tablediffusion/curve_term.h"
#include "tablediffusion/error_shares.h"
#include "tablediffusion/integer_diffusion.h"

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

constexpr ShareRule kHalfAhead{1, 2, Rounding::kTrunc, true};
constexpr ShareRule kHalfDown{1, 2, Rounding::kTrunc, false};
constexpr ShareRule kThirdAhead{1, 3, Rounding::kTrunc, true};
constexpr ShareRule kThirdDown{1, 3, Rounding::kTrunc, false};

constexpr LayerModulatedTraits kLayerTiles{true, {}, {}, 1, {{{0, Always(kHalfAhead)}}}};

// Two-bit choices are indexed by the drawn value 0..3.
constexpr LayerModulatedTraits kCurveBias{
    false, {Curve::kB, 0}, {Curve::kA, 1}, 3,
    {{{176, {Selector::kOneBit, {kThirdAhead, kThirdDown, kThirdAhead, kThirdDown}}},
      {141, {Selector::kTwoBits, {kThirdDown, kThirdAhead, kHalfDown, kAllAhead}}},
      {0, {Selector::kTwoBits, {kThirdDown, kAllDown, kThirdDown, kAllAhead}}}}}};

constexpr int kThreshold = 128;
constexpr int kWhite = 255;

template <const LayerModulatedTraits& M>
inline const ShareChoice& ChoiceFor(int v) {
  for (std::size_t i = 0; i + 1 < M.band_count; ++i)
    if (v >= M.bands[i].lowest) return M.bands[i].choice;
  return M.bands[M.band_count - 1].choice;
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

  for (std::size_t x = 0; x < w; ++x) {
    a[x] = carry[x];
    carry[x] = 0;
  }

  // The value quantised at (x, y): the tile row restarts with every band and plane.
  auto value = [&](int v, int error, std::size_t y, std::size_t x) {
    int s = v + error;
    if constexpr (M.layer)
      s += layers[static_cast<std::size_t>(v)][y % kLayerTile][x % kLayerTile];
    return s;
  };
  // No guard for white: a strongly negative term can put a dot on level 255.
  auto quantise = [](int s, std::uint8_t* out, std::size_t x) {
    if (s <= kThreshold) {
      PutDot(out, x);
      return s;
    }
    return s - kWhite;
  };

  for (std::size_t y = 0; y < h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* out = band.Out(y, p);
    const bool last_row = y + 1 >= h;

    if ((y & 1) == 0) {
      for (std::size_t x = 0; x < w; ++x) {
        const int v = in[x];
        int e = quantise(value(v, a[x], y, x), out, x);
        e += CurveBias<M.ltr>(engine, v, x);
        const Shares s = Apply(Pick(ChoiceFor<M>(v), x, random), e);
        if (x + 1 < w) a[x + 1] = Store16(a[x + 1] + s.ahead);
        // required: a forward last row stores into B, so only even-height bands carry.
        b[x] = Store16(s.down);
      }
    } else {
      for (std::size_t x = w; x-- > 0;) {
        const int v = in[x];
        int e = quantise(value(v, b[x], y, x), out, x);
        e += CurveBias<M.rtl>(engine, v, x);
        const Shares s = Apply(Pick(ChoiceFor<M>(v), x, random), e);
        if (x > 0) b[x - 1] = Store16(b[x - 1] + s.ahead);
        if (last_row)
          carry[x] = Store16(s.down);
        else
          a[x] = Store16(s.down);
      }
    }
  }
}

template <const LayerModulatedTraits& M>
int Run(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
        HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  const JobSpec spec{.bits = 1, .reseed = Reseed::kStartOfJob, .needs_pixels = false, .max_planes = 255};
  return RunJobBand(engine, engine.rows, band, spec, [&](unsigned p) { DiffusePlane<M>(engine, band, p); });
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
