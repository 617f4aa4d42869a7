// Members that bias the quantisation error by a built-in table keyed by the input level, at
// fixed column phases, and pass a level-keyed share along the row; and the sibling that adds a
// per-level modulation tile to the sum instead. The bias keeps the midtones from settling into
// regular dot rows; it is zero at pure black and pure white, so solid areas stay solid.
#include <array>

#include "frame/dispatch.h"
#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"
#include "tablediffusion/double_serpentine_fast.h"
#include "tablediffusion/double_tables.h"

namespace halftone {
namespace {

// Every fourth column (phase 0 left to right, phase 2 right to left); the row share by level
// band and column parity.
struct QuarterColumnTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = true;
  static constexpr bool kReversedEndTest = true;
  static constexpr bool kQuarterAtRowEnd = true;
  static constexpr std::size_t kPeriod = 4, kForwardPhase = 0, kBackwardPhase = 2;
  static constexpr int kShadowTop = 205;     // levels up to here: the shadow band
  static constexpr int kHighlightFrom = 241; // levels from here: the highlight band
  static constexpr double kEven = 0.5, kOdd = 0.67, kLightOdd = 0.75;

  static bool BiasAt(std::size_t x, bool forward) { return x % kPeriod == (forward ? kForwardPhase : kBackwardPhase); }
  double Bias(int v) const { return kQuarterColumnBias[v]; }
  static constexpr double Weight(int v, std::size_t x) {
    const bool odd = (x & 1) != 0;
    if (v > kShadowTop && v < kHighlightFrom) return odd ? kLightOdd : kEven;
    if (v <= kShadowTop && !odd) return kEven;
    return kOdd;
  }
  double Ahead(double e, int v, std::size_t x, bool) const { return e * Weight(v, x); }
};

// Every second column (even x left to right, odd x right to left); the share by level only.
// Every pixel, the row end included, takes the same steps.
struct HalfColumnTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = true;
  static constexpr bool kReversedEndTest = false;
  static constexpr bool kQuarterAtRowEnd = false;
  static constexpr int kLightFrom = 246, kDarkBelow = 141, kDeadBranchFrom = 206;
  static constexpr double kLight = 0.75, kDark = 0.45, kMid = 0.67, kDeadBranch = 0.5;

  static bool BiasAt(std::size_t x, bool forward) { return ((x & 1) == 0) == forward; }
  double Bias(int v) const { return kHalfColumnBias[v]; }
  static constexpr double Weight(int v) {
    if (v >= kLightFrom) return kLight;
    // required: a branch for light levels inside the dark case; it can never be taken.
    if (v < kDarkBelow) return v >= kDeadBranchFrom ? kDeadBranch : kDark;
    return kMid;
  }
  double Ahead(double e, int v, std::size_t, bool) const { return e * Weight(v); }
};

// Bias at every pixel; two thirds ahead. No white guard: white input takes dots when enough
// dark error has gathered.
struct EveryColumnTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = false;
  static constexpr bool kReversedEndTest = true;
  static constexpr bool kQuarterAtRowEnd = true;
  static constexpr double kThirds = 3.0;

  static bool BiasAt(std::size_t, bool) { return true; }
  double Bias(int v) const { return kEveryColumnBias[v]; }
  double Ahead(double e, int, std::size_t, bool) const { return (e + e) / kThirds; }
};

// The sum takes a term from a 16 x 16 tile chosen by the input level, so the term is diffused
// with the error; halves ahead and down. No level bias, no white guard.
struct ModulatedTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = false;
  static constexpr bool kReversedEndTest = true;
  static constexpr bool kQuarterAtRowEnd = true;
  static constexpr double kHalf = 2.0;
  const decltype(ScreeningTables::layers_double)& tiles;

  double Sum(int v, double err, std::size_t y, std::size_t x) const {
    return v + err + tiles[v][y % kLayerTile][x % kLayerTile];
  }
  double Ahead(double e, int, std::size_t, bool) const { return e / kHalf; }
};

// Fast forms of the members (double_serpentine_fast.h): the same steps, the level-keyed row
// shares read from tables built from the reference's own choice.
constexpr double_fast::WeightsByParity kQuarterColumnWeights =
    double_fast::TabulateWeights(QuarterColumnTraits::Weight);
constexpr std::array<double, kLevels> kHalfColumnWeights = [] {
  std::array<double, kLevels> t{};
  for (int v = 0; v < kLevels; ++v) t[v] = HalfColumnTraits::Weight(v);
  return t;
}();

using double_fast::Real;

struct QuarterColumnFast : double_fast::FastOf<QuarterColumnTraits> {
  static constexpr unsigned kLockstep = 2;  // four lanes ran slower (suiruiskao5/4planes)
  static Real Bias(int v) { return Real::Load(&kQuarterColumnBias[v]); }
  static Real Scale(Real e, const double_fast::Px& px) {
    return e * Real::Load(&kQuarterColumnWeights[px.x & 1][px.v]);
  }
};

struct HalfColumnFast : double_fast::FastOf<HalfColumnTraits> {
  static Real Bias(int v) { return Real::Load(&kHalfColumnBias[v]); }
  static Real Scale(Real e, const double_fast::Px& px) { return e * Real::Load(&kHalfColumnWeights[px.v]); }
};

// (e + e) / 3.0 as e / 1.5, bit for bit: e + e is exact (an error is far from overflowing) and
// both divisions round the same real number 2e/3 once; the sum leaves the pixel chain.
struct EveryColumnFast : double_fast::FastOf<EveryColumnTraits> {
  static constexpr double kHalvedThirds = EveryColumnTraits::kThirds / 2.0;
  static_assert(kHalvedThirds == 1.5 && kHalvedThirds + kHalvedThirds == EveryColumnTraits::kThirds);
  static Real Bias(int v) { return Real::Load(&kEveryColumnBias[v]); }
  static Real Scale(Real e, const double_fast::Px&) { return e; }
  static Real Finish(Real n, const double_fast::Px&) { return n / Real::Of(kHalvedThirds); }
};

struct ModulatedFast : double_fast::FastOf<ModulatedTraits> {
  const decltype(ScreeningTables::layers_double)& tiles;
  Real Sum(int v, Real c, std::size_t y, std::size_t x) const {
    return Real::Level(v) + c + Real::Load(&tiles[v][y % kLayerTile][x % kLayerTile]);
  }
  // Halving by multiplication: e / 2.0 and e * 0.5 are the same real number, so the same
  // rounded double for every e, and the multiply is several times quicker than the divide.
  static constexpr double kTimesHalf = 0.5;
  static_assert(ModulatedTraits::kHalf * kTimesHalf == 1.0);
  static Real Scale(Real e, const double_fast::Px&) { return e * Real::Of(kTimesHalf); }
};

template <class Traits, class Fast>
int RunAheadDown(Engine& engine, const Band& band, Reseed reseed, Traits traits, Fast fast) {
  return RunJobBandPlanes(engine, engine.double_rows, band, DoubleJobSpec(reseed), [&] {
    if (ForceScalar()) {
      for (unsigned p = 0; p < band.planes; ++p) DiffuseAheadDownPlane(traits, engine.double_rows, band, p);
    } else {
      double_fast::AheadDownBand(fast, engine, band);
    }
  });
}

}  // namespace

int QuarterColumnBias(Engine& engine, const Band& band) {
  return RunAheadDown(engine, band, Reseed::kEveryCall, QuarterColumnTraits{}, QuarterColumnFast{});
}

int HalfColumnBias(Engine& engine, const Band& band) {
  return RunAheadDown(engine, band, Reseed::kEveryCall, HalfColumnTraits{}, HalfColumnFast{});
}

int EveryColumnBias(Engine& engine, const Band& band) {
  return RunAheadDown(engine, band, Reseed::kStartOfJob, EveryColumnTraits{}, EveryColumnFast{});
}

int Modulated(Engine& engine, const Band& band) {
  const auto& tiles = engine.tables.layers_double;
  return RunAheadDown(engine, band, Reseed::kStartOfJob, ModulatedTraits{{}, tiles}, ModulatedFast{{}, tiles});
}

}  // namespace halftone
