// Threshold-matrix screens: each sample is compared with a matrix tiled over the band. Low
// samples mean more ink, so a dot is set where the sample lies below the threshold.
#include <algorithm>
#include <array>
#include <cstring>

#include "frame/dispatch.h"
#include "frame/job.h"
#include "screening/screen_tables.h"
#include "screening/screens.h"
#include "screening/threshold_pack.h"

namespace halftone {

namespace {

constexpr std::size_t kBitmapMask = kMatrixSize - 1;
constexpr std::size_t kTileMask = kBayerSize - 1;
// Each plane of the bitmap screen is shifted this far down and right, so the dots of different
// inks do not sit on top of each other.
constexpr std::size_t kPlaneShift = 16;

static_assert((kMatrixSize & kBitmapMask) == 0 && (kBayerSize & kTileMask) == 0, "tiles wrap by masking");

// The amplitude screens compare with 2M - 1 so their 1..128 entries span the 0..255 input range.
inline int AmThreshold(std::uint8_t m) { return 2 * m - 1; }

struct BitmapTile {
  const ScreeningTables& tables;
  std::size_t shift;
  bool Dot(int v, std::size_t y, std::size_t x) const {
    return v <= tables.bitmap[(y + shift) & kBitmapMask][(x + shift) & kBitmapMask];
  }
};

struct BayerTile {
  const ScreeningTables& tables;
  bool Dot(int v, std::size_t y, std::size_t x) const { return v < tables.bayer[y & kTileMask][x & kTileMask]; }
};

struct ClusteredTile {
  bool Dot(int v, std::size_t y, std::size_t x) const {
    return v < AmThreshold(kClusteredAmMatrix[y & kTileMask][x & kTileMask]);
  }
};

// Rows restart at tile row 0 in every band.
template <class Tile>
void ThresholdPlane(const Band& band, unsigned p, const Tile& tile) {
  for (std::size_t y = 0; y < band.h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* out = band.Out(y, p);
    for (std::size_t x = 0; x < band.w; ++x)
      if (tile.Dot(in[x], y, x)) PutDot(out, x);
  }
}

// The fast path of ThresholdPlane: 16 pixels a step against one tile row of thresholds, the
// rest of the row pixel by pixel. `row_of(y, scratch)` gives the thresholds of row y as pixel x
// meets them at [x & period_mask], building them in `scratch` where they need arranging.
template <threshold_pack::Compare C, class Tile, class RowOf>
void ThresholdPlaneFast(const Band& band, unsigned p, const Tile& tile, RowOf row_of, std::size_t period_mask) {
  alignas(16) std::array<std::uint8_t, kMatrixSize> scratch{};
  for (std::size_t y = 0; y < band.h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* out = band.Out(y, p);
    const std::size_t done = threshold_pack::PackRow<C>(in, out, band.w, row_of(y, scratch), period_mask);
    for (std::size_t x = done; x < band.w; ++x)
      if (tile.Dot(in[x], y, x)) PutDot(out, x);
  }
}

// Tile rows arranged for the fast path.
struct FastRows {
  // The bitmap row of job row y turned so that pixel x finds its threshold at [x & 255].
  static const std::uint8_t* Bitmap(const ScreeningTables& tables, std::size_t shift, std::size_t y,
                                    std::array<std::uint8_t, kMatrixSize>& scratch) {
    const auto& row = tables.bitmap[(y + shift) & kBitmapMask];
    // The row rotated left by the shift, in two whole copies: byte by byte, the chunks that
    // read the row back wait for sixteen separate stores each.
    const std::size_t s = shift & kBitmapMask;
    std::memcpy(scratch.data(), row.data() + s, kMatrixSize - s);
    std::memcpy(scratch.data() + (kMatrixSize - s), row.data(), s);
    return scratch.data();
  }
  // 2M - 1 of an amplitude tile; its entries are 1..128, so each fits a byte.
  static std::array<std::array<std::uint8_t, kBayerSize>, kBayerSize> AmThresholds(const Matrix16& matrix) {
    std::array<std::array<std::uint8_t, kBayerSize>, kBayerSize> t{};
    for (std::size_t r = 0; r < kBayerSize; ++r)
      for (std::size_t c = 0; c < kBayerSize; ++c)
        t[r][c] = static_cast<std::uint8_t>(AmThreshold(matrix[r][c]));
    return t;
  }
};

void CountRows(Engine& engine, unsigned p, std::size_t h) {
  std::uint32_t& counter = engine.tables.plane_row_counters[p];
  counter = static_cast<std::uint32_t>(counter + h);
}

// The serpentine pass of the dispersed amplitude screen over the job rows A and B.
void DispersedAmPlane(Engine& engine, const Band& band, unsigned p) {
  const std::size_t w = band.w, h = band.h;
  if (h == 0) return;
  std::int16_t* a = engine.rows.a();
  std::int16_t* b = engine.rows.b();
  // required: every plane takes the first w carry entries, not its own; nothing ever stores a
  // carry here, so they hold what another routine of the same job left.
  LoadFirstRow(a, engine.rows.carry_all(), band.In(0, p), w);

  for (std::size_t y = 0; y < h; ++y) {
    const std::uint8_t* next = y + 1 < h ? band.In(y + 1, p) : nullptr;
    std::uint8_t* out = band.Out(y, p);
    const auto& m = kDispersedAmMatrix[y & kTileMask];
    // required: the quantisation error is measured but never passed on, so each row is a plain
    // threshold test of the value it loaded; the scan direction changes nothing in the dots.
    if ((y & 1) == 0) {
      for (std::size_t x = 0; x < w; ++x) {
        if (a[x] < AmThreshold(m[x & kTileMask])) PutDot(out, x);
        if (next) b[x] = next[x];
      }
    } else {
      for (std::size_t x = w; x-- > 0;) {
        if (b[x] < AmThreshold(m[x & kTileMask])) PutDot(out, x);
        if (next) a[x] = next[x];
      }
    }
  }
}

// The fast path of DispersedAmPlane. Every row after the first holds its plain samples, so it is
// tested 16 pixels at a time straight from the band; rows A and B end as the serpentine pass
// leaves them: B with the last odd row, A with the last even row after row 0.
void DispersedAmPlaneFast(Engine& engine, const Band& band, unsigned p,
                          const std::array<std::array<std::uint8_t, kBayerSize>, kBayerSize>& thresholds) {
  const std::size_t w = band.w, h = band.h;
  if (h == 0) return;
  std::int16_t* a = engine.rows.a();
  std::int16_t* b = engine.rows.b();
  // The first plane uses the carried entries up, so every later plane's row 0 is its plain
  // samples. (LoadFirstRow's one loop, which reads the carry back while it clears it, ran this
  // row at half the speed of the two loops here.)
  if (p == 0) {
    std::int16_t* carry = engine.rows.carry_all();
    const std::uint8_t* in = band.In(0, p);
    for (std::size_t x = 0; x < w; ++x) a[x] = static_cast<std::int16_t>(in[x] + carry[x]);
    std::fill_n(carry, w, std::int16_t{0});
  } else {
    std::copy_n(band.In(0, p), w, a);
  }
  {
    // Row 0 holds the samples with the carried entries added, any 16-bit value.
    std::uint8_t* out = band.Out(0, p);
    const std::size_t done = threshold_pack::PackRowBelowWide(a, out, w, thresholds[0].data(), kTileMask);
    const auto& m = kDispersedAmMatrix[0];
    for (std::size_t x = done; x < w; ++x)
      if (a[x] < AmThreshold(m[x & kTileMask])) PutDot(out, x);
  }
  for (std::size_t y = 1; y < h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* out = band.Out(y, p);
    const std::size_t done =
        threshold_pack::PackRow<threshold_pack::Compare::kBelow>(in, out, w, thresholds[y & kTileMask].data(), kTileMask);
    const auto& m = kDispersedAmMatrix[y & kTileMask];
    for (std::size_t x = done; x < w; ++x)
      if (in[x] < AmThreshold(m[x & kTileMask])) PutDot(out, x);
  }
  auto load = [&](std::int16_t* row, std::size_t y) { std::copy_n(band.In(y, p), w, row); };
  if (h >= 2) load(b, (h - 1) % 2 == 1 ? h - 1 : h - 2);
  if (h >= 3) load(a, (h - 1) % 2 == 0 ? h - 1 : h - 2);
}

void ThresholdScreenFast(Engine& engine, ThresholdScreen screen, const Band& band) {
  using threshold_pack::Compare;
  const ScreeningTables& tables = engine.tables;
  const auto clustered = FastRows::AmThresholds(kClusteredAmMatrix);
  for (unsigned p = 0; p < band.planes; ++p) {
    switch (screen) {
      case ThresholdScreen::kBitmap: {
        const std::size_t shift = kPlaneShift * p;
        ThresholdPlaneFast<Compare::kAtMost>(
            band, p, BitmapTile{tables, shift},
            [&](std::size_t y, auto& scratch) { return FastRows::Bitmap(tables, shift, y, scratch); }, kBitmapMask);
        break;
      }
      case ThresholdScreen::kBayer:
        ThresholdPlaneFast<Compare::kBelow>(
            band, p, BayerTile{tables}, [&](std::size_t y, auto&) { return tables.bayer[y & kTileMask].data(); },
            kTileMask);
        break;
      case ThresholdScreen::kClusteredAm:
        ThresholdPlaneFast<Compare::kBelow>(
            band, p, ClusteredTile{}, [&](std::size_t y, auto&) { return clustered[y & kTileMask].data(); },
            kTileMask);
        CountRows(engine, p, band.h);
        break;
    }
  }
}

}  // namespace

int ScreenWithThresholds(Engine& engine, ThresholdScreen screen, const std::uint8_t* src, std::uint8_t* dst,
                         std::size_t w, std::size_t h, HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  // required: the clustered screen counts rows per plane in 12 counters; more planes are refused.
  if (screen == ThresholdScreen::kClusteredAm && band.planes > kPlaneRowCounterCount) return kErrOutOfContract;
  band.ClearOutput();
  if (!ForceScalar()) {
    ThresholdScreenFast(engine, screen, band);
    return kOk;
  }
  for (unsigned p = 0; p < band.planes; ++p) {
    switch (screen) {
      case ThresholdScreen::kBitmap:
        ThresholdPlane(band, p, BitmapTile{engine.tables, kPlaneShift * p});
        break;
      case ThresholdScreen::kBayer:
        ThresholdPlane(band, p, BayerTile{engine.tables});
        break;
      case ThresholdScreen::kClusteredAm:
        ThresholdPlane(band, p, ClusteredTile{});
        CountRows(engine, p, h);
        break;
    }
  }
  return kOk;
}

int ScreenDispersedAmJob(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                         HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  // No random bits are drawn, so the source is not reseeded.
  const JobSpec spec{.reseed = Reseed::kStartOfJob, .max_planes = kPlaneRowCounterCount};
  if (int rc = CheckJobBand(engine.rows, band, spec); rc != kOk) return rc;
  if (band.starts_job()) engine.rows.Start(band.w, band.planes);
  band.ClearOutput();
  const bool fast = !ForceScalar();
  const auto thresholds = FastRows::AmThresholds(kDispersedAmMatrix);
  for (unsigned p = 0; p < band.planes; ++p) {
    if (fast)
      DispersedAmPlaneFast(engine, band, p, thresholds);
    else
      DispersedAmPlane(engine, band, p);
    CountRows(engine, p, h);
  }
  if (band.ends_job()) engine.rows.Release();
  return kOk;
}

}  // namespace halftone
