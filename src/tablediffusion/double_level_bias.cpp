// Members that bias the quantisation error by a built-in table keyed by the input level, at
// fixed column phases, and pass a level-keyed share along the row; and the sibling that adds a
// per-level modulation tile to the sum instead. The bias keeps the midtones from settling into
// regular dot rows; it is zero at pure black and pure white, so solid areas stay solid.
#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"
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

  bool BiasAt(std::size_t x, bool forward) const { return x % kPeriod == (forward ? kForwardPhase : kBackwardPhase); }
  double Bias(int v) const { return kQuarterColumnBias[v]; }
  double Ahead(double e, int v, std::size_t x, bool) const {
    const bool odd = (x & 1) != 0;
    double w;
    if (v > kShadowTop && v < kHighlightFrom)
      w = odd ? kLightOdd : kEven;
    else if (v <= kShadowTop && !odd)
      w = kEven;
    else
      w = kOdd;
    return e * w;
  }
};

// Every second column (even x left to right, odd x right to left); the share by level only.
// Every pixel, the row end included, takes the same steps.
struct HalfColumnTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = true;
  static constexpr bool kReversedEndTest = false;
  static constexpr bool kQuarterAtRowEnd = false;
  static constexpr int kLightFrom = 246, kDarkBelow = 141, kDeadBranchFrom = 206;
  static constexpr double kLight = 0.75, kDark = 0.45, kMid = 0.67, kDeadBranch = 0.5;

  bool BiasAt(std::size_t x, bool forward) const { return ((x & 1) == 0) == forward; }
  double Bias(int v) const { return kHalfColumnBias[v]; }
  double Ahead(double e, int v, std::size_t, bool) const {
    double w;
    if (v >= kLightFrom) {
      w = kLight;
    } else if (v < kDarkBelow) {
      // required: a branch for light levels inside the dark case; it can never be taken.
      w = v >= kDeadBranchFrom ? kDeadBranch : kDark;
    } else {
      w = kMid;
    }
    return e * w;
  }
};

// Bias at every pixel; two thirds ahead. No white guard: white input takes dots when enough
// dark error has gathered.
struct EveryColumnTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = false;
  static constexpr bool kReversedEndTest = true;
  static constexpr bool kQuarterAtRowEnd = true;
  static constexpr double kThirds = 3.0;

  bool BiasAt(std::size_t, bool) const { return true; }
  double Bias(int v) const { return kEveryColumnBias[v]; }
  double Ahead(double e, int, std::size_t, bool) const { return (e + e) / kThirds; }
};

// The sum takes a term from a 16 x 16 tile chosen by the input level, so the term is diffused
// with the error; halves ahead and down. No level bias, no white guard.
struct ModulatedTraits {
  static constexpr bool kWhiteGuard = false;
  static constexpr bool kReversedEndTest = true;
  static constexpr bool kQuarterAtRowEnd = true;
  static constexpr double kHalf = 2.0;
  const decltype(ScreeningTables::layers_double)& tiles;

  void StartRow(const DoubleRow&) {}
  double Sum(int v, double err, std::size_t y, std::size_t x) const {
    return v + err + tiles[v][y % kLayerTile][x % kLayerTile];
  }
  bool BiasAt(std::size_t, bool) const { return false; }
  double Bias(int) const { return 0.0; }
  double Ahead(double e, int, std::size_t, bool) const { return e / kHalf; }
};

template <class Traits>
int RunAheadDown(Engine& engine, const Band& band, Reseed reseed, Traits traits) {
  return RunJobBand(engine, engine.double_rows, band, DoubleJobSpec(reseed),
                    [&](unsigned p) { DiffuseAheadDownPlane(traits, engine.double_rows, band, p); });
}

}  // namespace

int QuarterColumnBias(Engine& engine, const Band& band) {
  return RunAheadDown(engine, band, Reseed::kEveryCall, QuarterColumnTraits{});
}

int HalfColumnBias(Engine& engine, const Band& band) {
  return RunAheadDown(engine, band, Reseed::kEveryCall, HalfColumnTraits{});
}

int EveryColumnBias(Engine& engine, const Band& band) {
  return RunAheadDown(engine, band, Reseed::kStartOfJob, EveryColumnTraits{});
}

int Modulated(Engine& engine, const Band& band) {
  return RunAheadDown(engine, band, Reseed::kStartOfJob, ModulatedTraits{engine.tables.layers_double});
}

}  // namespace halftone
