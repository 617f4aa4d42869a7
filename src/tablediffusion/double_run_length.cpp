// The run-length member: each pixel's error goes whole to a single neighbour, the next pixel of
// the scan or the pixel below, and the choice switches between the two in runs of 10 or 11
// pixels. The runs continue from row to row, so their boundaries wander across the page
// instead of lining up in columns. The working rows hold the input level plus the error that
// has arrived, and three hundredths of every passed error are dropped, which keeps long runs
// from building up a surplus. Run lengths follow random picks that avoid repeating one pick
// more than twice running.
//
// The band's last row passes the full error ahead; its downward errors (less the three
// hundredths, like any other row) go to the carry row, so the next band starts from them.
// A row end whose run says ahead has no neighbour there and drops its error.
#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"

namespace halftone {
namespace {

constexpr double kKeptPercent = 97.0;
constexpr double kPercent = 100.0;
constexpr int kEvenPickRun = 11;
constexpr int kOddPickRun = 10;
constexpr int kNoPick = -1;
constexpr int kRepeatsAllowed = 2;
constexpr unsigned kHalvingModulus = 4;
constexpr unsigned kHalvingDraw = 4;
constexpr double kHalf = 2.0;

// Run state of one plane: pixels left in the run, the current pick, how often the pick came up
// again, and where the error goes.
struct Runs {
  int left = 0;
  int pick = kNoPick;
  int repeats = 0;
  bool ahead = false;

  // At a run start: a two-bit draw becomes the new pick unless it repeats the old one; the
  // second repeat forces a pick of 0 or 1, whichever differs from the draw.
  void Start(RandomBitSource& random) {
    const int d = static_cast<int>(random.NextTwoBits());
    if (d != pick) {
      pick = d;
      repeats = 0;
    } else if (++repeats == kRepeatsAllowed) {
      pick = d != 0 ? 0 : 1;
      repeats = 0;
    }
    left = (pick & 1) == 0 ? kEvenPickRun : kOddPickRun;
    ahead = !ahead;
  }
};

void DiffusePlane(DoubleJobBuffers& rows, const Band& band, unsigned p, RandomBitSource& random) {
  const std::size_t w = band.w;
  double* a = rows.a();
  double* b = rows.b();
  double* carry = rows.carry(p, w);
  LoadFirstRow(a, carry, band.In(0, p), w);
  Runs runs;
  for (std::size_t y = 0; y < band.h; ++y) {
    const bool forward = (y & 1) == 0;
    const bool last = y + 1 == band.h;
    const std::uint8_t* in = band.In(y, p);
    const std::uint8_t* below = last ? nullptr : band.In(y + 1, p);
    std::uint8_t* bits = band.Out(y, p);
    double* cur = forward ? a : b;
    double* next = forward ? b : a;
    for (std::size_t i = 0; i < w; ++i) {
      const std::size_t x = forward ? i : w - 1 - i;
      if (runs.left == 0) runs.Start(random);
      --runs.left;
      const int v = in[x];
      double e = Quantise<true>(cur[x], v, false, bits, x);
      // required: a draw whose halving branch can never be taken; the draw itself counts.
      if (random.Next() % kHalvingModulus == kHalvingDraw) e = e / kHalf;
      if (!last) next[x] = below[x];
      const double passed = (e * kKeptPercent) / kPercent;
      if (runs.ahead) {
        if (i + 1 < w) {
          const std::size_t n = forward ? x + 1 : x - 1;
          cur[n] = cur[n] + (last ? e : passed);
        }
      } else if (last) {
        carry[x] = passed;
      } else {
        next[x] = next[x] + passed;
      }
    }
  }
}

}  // namespace

int RunLength(Engine& engine, const Band& band) {
  return RunJobBandPlanes(engine, engine.double_rows, band, DoubleJobSpec(Reseed::kEveryCall), [&] {
    for (unsigned p = 0; p < band.planes; ++p) DiffusePlane(engine.double_rows, band, p, engine.random);
  });
}

}  // namespace halftone
