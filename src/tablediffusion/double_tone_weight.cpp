// The tone-weighted member: before each row is diffused, a per-row routine fills a fourth
// row with each pixel's ahead weight, chosen from the local tone (the mean of the pixel and its
// two row neighbours) and the column parity: shadows alternate two thirds and a half, midtones
// a half and two thirds, highlights a half and three quarters. Alternating by column keeps the
// sparse dots of the highlights and the sparse gaps of the shadows from lining up in chains;
// averaging over three pixels lets the weights change smoothly across a tone edge.
#include <vector>

#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"

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

  // The per-row routine: weights for every pixel of the row, from its input alone.
  void StartRow(const DoubleRow& r) {
    for (std::size_t x = 0; x < r.w; ++x) {
      const int left = r.in[x > 0 ? x - 1 : x];
      const int right = r.in[x + 1 < r.w ? x + 1 : x];
      const int mean = (left + r.in[x] + right) / kToneSpan;
      const bool odd = (x & 1) != 0;
      if (mean <= kShadowTop)
        weights[x] = odd ? kShadowWeight : kMidWeight;
      else if (mean < kHighlightFrom)
        weights[x] = odd ? kMidWeight : kShadowWeight;
      else
        weights[x] = odd ? kHighlightWeight : kShadowWeight;
    }
  }
  bool BiasAt(std::size_t, bool) const { return false; }
  double Bias(int) const { return 0.0; }
  double Ahead(double e, int, std::size_t x, bool) const { return e * weights[x]; }
};

}  // namespace

int ToneWeightRow(Engine& engine, const Band& band) {
  std::vector<double>& fourth = engine.double_weight_row;
  if (int rc = CheckJobBand(engine.double_rows, band, DoubleJobSpec(Reseed::kEveryCall)); rc != kOk) return rc;
  // A job begun by another member of the family has no fourth row yet.
  if (band.starts_job() || fourth.size() < band.w) fourth.assign(band.w, 0.0);
  ToneWeightTraits traits{{}, fourth.data()};
  const int rc = RunJobBand(engine, engine.double_rows, band, DoubleJobSpec(Reseed::kEveryCall),
                            [&](unsigned p) { DiffuseAheadDownPlane(traits, engine.double_rows, band, p); });
  if (band.ends_job()) std::vector<double>().swap(fourth);
  return rc;
}

}  // namespace halftone
