// Random-split members: each pixel passes one third or two thirds of its error to the next
// pixel of the scan and the rest straight down, a random bit choosing which. Randomising the
// split breaks up the worms a fixed two-neighbour kernel draws in flat areas; the rows are
// doubles, so no remainder is dropped. Row ends keep a quarter downward, as in the rest of the
// family, and white input never gets a dot.
//
// Two variants format a dump of their state into a line buffer as they go (one line a row, or
// one line a pixel) for the diagnostic log; the dump is handed to the log only in builds with
// the dump switched on, so as built it costs time and nothing else.
#include <array>
#include <cstdio>

#include "frame/dispatch.h"
#include "log/diagnostic_log.h"
#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"
#include "tablediffusion/double_serpentine_fast.h"

namespace halftone {
namespace {

constexpr double kThirds = 3.0;
constexpr double kTwo = 2.0;

enum class Dump { kNone, kRow, kPixel };

template <Dump kDump>
struct RandomSplitTraits : PlainRowTraits {
  static constexpr bool kWhiteGuard = true;
  static constexpr bool kReversedEndTest = false;
  static constexpr bool kQuarterAtRowEnd = true;
  RandomBitSource& random;
  unsigned plane = 0;
  std::size_t y = 0;
  std::array<char, kLogBufferSize> line{};

  void StartRow(const DoubleRow& r) {
    y = r.y;
    // The dumps are formatted only when the log is compiled in: with it off they could never be
    // seen, and formatting a line per pixel would cost more than the halftoning itself.
    if constexpr (kDump == Dump::kRow && kDiagnosticDump) {
      double carried = 0.0;
      for (std::size_t x = 0; x < r.w; ++x) carried += r.cur[x];
      std::snprintf(line.data(), line.size(), "plane %u row %zu %s error in %.4f", plane, r.y,
                    r.forward ? "ltr" : "rtl", carried);
      ProcessLog().Text(line.data());
    }
  }
  // Bit 1: two thirds ahead, one third down; bit 0: one third ahead, two thirds down.
  double Ahead(double e, int v, std::size_t x, bool) {
    const double ahead = random.NextBit() ? (e * kTwo) / kThirds : e / kThirds;
    if constexpr (kDump == Dump::kPixel && kDiagnosticDump) {
      std::snprintf(line.data(), line.size(), "plane %u row %zu x %zu level %d error %.4f ahead %.4f", plane, y, x,
                    v, e, ahead);
      ProcessLog().Text(line.data());
    }
    return ahead;
  }
};

// The fast form (double_serpentine_fast.h): the split bits from the band's words drawn ahead,
// and the split as one division by a divisor the bit picks: (e * 2.0) / 3.0 is e / 1.5 bit for
// bit, as e * 2.0 is exact (an error is far from overflowing) and both divisions round the same
// real number 2e/3 once; the multiply leaves the pixel chain.
struct RandomSplitFast : double_fast::FastOf<RandomSplitTraits<Dump::kNone>> {
  static constexpr bool kDrawsPerPixel = true;
  static constexpr double kDivisor[2] = {kThirds, kThirds / kTwo};
  static_assert(kDivisor[1] == 1.5 && kDivisor[1] * kTwo == kThirds, "the halved divisor is exact");
  static double_fast::Real Scale(double_fast::Real e, const double_fast::Px&) { return e; }
  static double_fast::Real Finish(double_fast::Real n, const double_fast::Px& px) {
    return n / double_fast::Real::Load(&kDivisor[px.split]);
  }
};

template <Dump kDump>
int Run(Engine& engine, const Band& band) {
  RandomSplitTraits<kDump> traits{{}, engine.random};
  return RunJobBandPlanes(engine, engine.double_rows, band, DoubleJobSpec(Reseed::kEveryCall), [&] {
    // The dumps format per plane and row as the scan goes: with them compiled in, the planes
    // stay in the reference's order.
    if (ForceScalar() || kDiagnosticDump) {
      for (unsigned p = 0; p < band.planes; ++p) {
        traits.plane = p;
        DiffuseAheadDownPlane(traits, engine.double_rows, band, p);
      }
    } else {
      double_fast::AheadDownBand(RandomSplitFast{}, engine, band);
    }
  });
}

}  // namespace

int RandomSplit(Engine& engine, const Band& band, DoubleMethod dump) {
  switch (dump) {
    case DoubleMethod::kRandomSplitRowDump: return Run<Dump::kRow>(engine, band);
    case DoubleMethod::kRandomSplitPixelDump: return Run<Dump::kPixel>(engine, band);
    default: return Run<Dump::kNone>(engine, band);
  }
}

}  // namespace halftone
