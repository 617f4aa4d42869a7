// The tone-weighted member: before each row is diffused, a per-row routine fills a fourth
// row with each pixel's ahead weight, chosen from the local tone (the mean of the pixel and its
// two row neighbours) and the column parity: shadows alternate two thirds and a half, midtones
// a half and two thirds, highlights a half and three quarters. Alternating by column keeps the
// sparse dots of the highlights and the sparse gaps of the shadows from lining up in chains;
// averaging over three pixels lets the weights change smoothly across a tone edge.
#include <vector>

#include "frame/dispatch.h"
#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"
#include "tablediffusion/double_serpentine_fast.h"

namespace halftone {
namespace {

constexpr double kShadowWeight = 0.5;
constexpr double kMidWeight = 2.0 / 3.0;
constexpr double kHighlightWeight = 0.75;
constexpr int kShadowTop = 85;      // mean level up to here: shadows
constexpr int kHighlightFrom = 171; // mean level from here: highlights
constexpr int kToneSpan = 3;        // pixels averaged

struct ToneWeightTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = true;
  static constexpr bool kReversedEndTest = false;
  static constexpr bool kQuarterAtRowEnd = true;
  double* weights;

  // The local tone of pixel x, of level v, in a row of w input levels: the mean of the pixel
  // and its two row neighbours, the pixel standing in for a neighbour past the row's end.
  HALFTONE_FORCE_INLINE static int Tone(const std::uint8_t* in, std::size_t w, std::size_t x, int v) {
    const int left = in[x > 0 ? x - 1 : x];
    const int right = in[x + 1 < w ? x + 1 : x];
    return (left + v + right) / kToneSpan;
  }
  // The weight of a pixel of local tone `mean` at column x.
  static constexpr double Weight(int mean, std::size_t x) {
    const bool odd = (x & 1) != 0;
    if (mean <= kShadowTop) return odd ? kShadowWeight : kMidWeight;
    if (mean < kHighlightFrom) return odd ? kMidWeight : kShadowWeight;
    return odd ? kHighlightWeight : kShadowWeight;
  }
  // The per-row routine: weights for every pixel of the row, from its input alone.
  void StartRow(const DoubleRow& r) {
    for (std::size_t x = 0; x < r.w; ++x) weights[x] = Weight(Tone(r.in, r.w, x, r.in[x]), x);
  }
  double Ahead(double e, int, std::size_t x, bool) const { return e * weights[x]; }
};

// The fast form (double_serpentine_fast.h): each plane's weights formed pixel by pixel from the
// same three levels, by a table of the reference's weights instead of comparisons, rather than
// in the one shared fourth row.
constexpr double_fast::WeightsByParity kToneWeights = double_fast::TabulateWeights(ToneWeightTraits::Weight);

struct ToneWeightFast : double_fast::FastOf<ToneWeightTraits> {
  static constexpr unsigned kLockstep = 2;  // four lanes ran slower (suiruiskao6/4planes)
  // Forced inline: called for both outcomes of a pixel, whose local tone it then forms once.
  HALFTONE_FORCE_INLINE static double_fast::Real Scale(double_fast::Real e, const double_fast::Px& px) {
    const int mean = ToneWeightTraits::Tone(px.in, px.w, px.x, px.v);
    return e * double_fast::Real::Load(&kToneWeights[px.x & 1][mean]);
  }
};

}  // namespace

int ToneWeightRow(Engine& engine, const Band& band) {
  return RunJobBandPlanes(engine, engine.double_rows, band, DoubleJobSpec(Reseed::kEveryCall), [&] {
    std::vector<double>& fourth = engine.double_weight_row;
    // A job begun by another member of the family has no fourth row yet.
    if (band.starts_job() || fourth.size() < band.w) fourth.assign(band.w, 0.0);
    ToneWeightTraits traits{{}, fourth.data()};
    if (ForceScalar()) {
      for (unsigned p = 0; p < band.planes; ++p) DiffuseAheadDownPlane(traits, engine.double_rows, band, p);
    } else {
      double_fast::AheadDownBand(ToneWeightFast{}, engine, band);
      // The fourth row as the sequential scan leaves it: the last plane's last row.
      const std::size_t y = band.h - 1;
      if (band.planes > 0)
        traits.StartRow(DoubleRow{band.In(y, band.planes - 1), nullptr, nullptr, nullptr, band.w, y, true, true});
    }
    if (band.ends_job()) std::vector<double>().swap(fourth);
  });
}

}  // namespace halftone
