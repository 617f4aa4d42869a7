// Bilevel random-split diffusion: one dot size, the error of each pixel sent to the next pixel
// along the scan and to the pixel below in a proportion a fresh draw picks. The members are one
// design; the table of members below holds everything in which they differ.
#include <vector>

#include "diffusion/random_split.h"
#include "diffusion/random_split_bands.h"
#include "diffusion/random_split_decisions.h"

namespace halftone {

namespace {

using random_split::EndDraw;
using random_split::Guard;
using random_split::kTwoThirdsDownAfterIgnoredDraw;
using random_split::RowEndRule;
using random_split::ScanTraits;
using random_split::Sense;
using random_split::SplitTable;

struct BilevelMember {
  Sense sense;
  Guard guard;
  ScanTraits scan;
  Reseed reseed;
};

// ---- Split tables (next pixel : pixel below), by split code ------------------------------

// required: thirds by a two-bit code; the two inner directions swap the meaning of codes 0
// and 2, and the last row swaps codes 1 and 3 against the inner rows.
constexpr SplitTable kThirds = {
    .inner_ltr = {{fraction::kThird, fraction::kTwoThirds}, {fraction::kNone, fraction::kAll},
                  {fraction::kTwoThirds, fraction::kThird}, {fraction::kAll, fraction::kNone}},
    .inner_rtl = {{fraction::kTwoThirds, fraction::kThird}, {fraction::kNone, fraction::kAll},
                  {fraction::kThird, fraction::kTwoThirds}, {fraction::kAll, fraction::kNone}},
    .last = {{fraction::kTwoThirds, fraction::kThird}, {fraction::kAll, fraction::kNone},
             {fraction::kThird, fraction::kTwoThirds}, {fraction::kNone, fraction::kAll}},
};

// required: quarters; in left-to-right inner rows codes 0 and 2 give the same split, so a
// quarter along and three quarters down never happens there, and right-to-left rows use their
// own order.
constexpr SplitTable kQuarters = {
    .inner_ltr = {{fraction::kThreeQuarters, fraction::kQuarter}, {fraction::kAll, fraction::kNone},
                  {fraction::kThreeQuarters, fraction::kQuarter}, {fraction::kNone, fraction::kAll}},
    .inner_rtl = {{fraction::kAll, fraction::kNone}, {fraction::kQuarter, fraction::kThreeQuarters},
                  {fraction::kNone, fraction::kAll}, {fraction::kThreeQuarters, fraction::kQuarter}},
    .last = {{fraction::kThreeQuarters, fraction::kQuarter}, {fraction::kAll, fraction::kNone},
             {fraction::kQuarter, fraction::kThreeQuarters}, {fraction::kNone, fraction::kAll}},
};

// One bit: along with everything, or a third along and the rest down (e - e/3, not (2e)/3);
// the last row turns "everything along" into "everything down".
constexpr SplitTable kOneBitThirds = {
    .inner_ltr = {{fraction::kThird, fraction::kRestAfterThird}, {fraction::kAll, fraction::kNone}},
    .inner_rtl = {{fraction::kThird, fraction::kRestAfterThird}, {fraction::kAll, fraction::kNone}},
    .last = {{fraction::kThird, fraction::kRestAfterThird}, {fraction::kNone, fraction::kAll}},
};

// One bit: the whole error to one neighbour; the last row swaps the meaning of the bit.
constexpr SplitTable kWholeError = {
    .inner_ltr = {{fraction::kNone, fraction::kAll}, {fraction::kAll, fraction::kNone}},
    .inner_rtl = {{fraction::kNone, fraction::kAll}, {fraction::kAll, fraction::kNone}},
    .last = {{fraction::kAll, fraction::kNone}, {fraction::kNone, fraction::kAll}},
};

// One bit, the single-plane form: the bit means the opposite of the table above in inner rows,
// and in the last row bit 0 drops the error.
constexpr SplitTable kWholeErrorSinglePlane = {
    .inner_ltr = {{fraction::kAll, fraction::kNone}, {fraction::kNone, fraction::kAll}},
    .inner_rtl = {{fraction::kAll, fraction::kNone}, {fraction::kNone, fraction::kAll}},
    .last = {{fraction::kNone, fraction::kNone}, {fraction::kAll, fraction::kNone}},
};

// ---- The pixel ending an inner row ---------------------------------------------------------

constexpr RowEndRule kTwoThirdsDown = {EndDraw::kNone, {fraction::kTwoThirds, fraction::kTwoThirds}};
constexpr RowEndRule kTwoThirdsDownOrDropped = {EndDraw::kUsed, {fraction::kTwoThirds, fraction::kNone}};
constexpr RowEndRule kDroppedOrAllDown = {EndDraw::kUsed, {fraction::kNone, fraction::kAll}};

constexpr bool kCurves = true, kNoCurves = false;

// ---- The members ---------------------------------------------------------------------------

constexpr BilevelMember kLightnessThirdsCurves = {
    Sense::kLightness, Guard::kWhite, {2, kCurves, kThirds, kTwoThirdsDown, false}, Reseed::kEveryCall};
constexpr BilevelMember kInkThirdsFullGuard = {
    Sense::kInk, Guard::kFull, {2, kNoCurves, kThirds, kTwoThirdsDownAfterIgnoredDraw, false}, Reseed::kEveryCall};
constexpr BilevelMember kInkQuarters = {
    Sense::kInk, Guard::kNone, {2, kNoCurves, kQuarters, kTwoThirdsDownAfterIgnoredDraw, false}, Reseed::kEveryCall};
// required: seeded once per job, so its draws continue from band to band.
constexpr BilevelMember kLightnessOneBitJobSeed = {
    Sense::kLightness, Guard::kWhite, {1, kNoCurves, kOneBitThirds, kTwoThirdsDownOrDropped, false},
    Reseed::kStartOfJob};
constexpr BilevelMember kLightnessWholeError = {
    Sense::kLightness, Guard::kNone, {1, kNoCurves, kWholeError, kTwoThirdsDownAfterIgnoredDraw, false},
    Reseed::kEveryCall};
constexpr BilevelMember kInkWholeError = {
    Sense::kInk, Guard::kNone, {1, kNoCurves, kWholeError, kTwoThirdsDownAfterIgnoredDraw, false},
    Reseed::kEveryCall};
constexpr BilevelMember kSinglePlane = {
    Sense::kLightness, Guard::kNone, {1, kNoCurves, kWholeErrorSinglePlane, kDroppedOrAllDown, false},
    Reseed::kEveryCall};

template <const BilevelMember& kMember>
struct BilevelPass : random_split::OneDropDecision<kMember.sense, kMember.guard, 1> {
  static constexpr unsigned kBits = 1;
  static constexpr const ScanTraits& kScan = kMember.scan;
};

template <const BilevelMember& kMember>
int RunBilevel(Engine& engine, const Band& band) {
  return random_split::RunPassBand(engine, band, BilevelPass<kMember>{}, kMember.reseed);
}

}  // namespace

int BilevelRandomSplit(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                       HalftoneFlags flags, BilevelMethod method) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  switch (method) {
    case BilevelMethod::kLightnessThirdsCurves: return RunBilevel<kLightnessThirdsCurves>(engine, band);
    case BilevelMethod::kLightnessOneBitJobSeed: return RunBilevel<kLightnessOneBitJobSeed>(engine, band);
    case BilevelMethod::kInkThirdsFullGuard: return RunBilevel<kInkThirdsFullGuard>(engine, band);
    case BilevelMethod::kInkQuarters: return RunBilevel<kInkQuarters>(engine, band);
    case BilevelMethod::kLightnessWholeError: return RunBilevel<kLightnessWholeError>(engine, band);
    case BilevelMethod::kInkWholeError: return RunBilevel<kInkWholeError>(engine, band);
  }
  return kErrOutOfContract;
}

int BilevelSinglePlane(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h) {
  if (w == 0 || h == 0) return kErrOutOfContract;
  constexpr std::uint32_t kOnePlane = 1u << 8;
  const Band band = Band::Make(src, dst, w, h, HalftoneFlags{kOnePlane}, 1);
  // Private rows made per call, the carry row a scratch one (nothing is carried); the job
  // buffers of the other routines are left alone.
  std::vector<std::int16_t> a(w), b(w), carry(w);
  band.ClearOutput();
  engine.SeedFromClock();
  random_split::ScanSinglePlane(BilevelPass<kSinglePlane>{}, engine, band, {a.data(), b.data(), carry.data()});
  return kOk;
}

}  // namespace halftone
