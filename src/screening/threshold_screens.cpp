// Threshold-matrix screens: each sample is compared with a matrix tiled over the band. Low
// samples mean more ink, so a dot is set where the sample lies below the threshold.
#include "frame/job.h"
#include "screening/screen_tables.h"
#include "screening/screens.h"

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

}  // namespace

int ScreenWithThresholds(Engine& engine, ThresholdScreen screen, const std::uint8_t* src, std::uint8_t* dst,
                         std::size_t w, std::size_t h, HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  // required: the clustered screen counts rows per plane in 12 counters; more planes are refused.
  if (screen == ThresholdScreen::kClusteredAm && band.planes > kPlaneRowCounterCount) return kErrOutOfContract;
  band.ClearOutput();
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
  const JobSpec spec{.bits = 1, .reseed = Reseed::kStartOfJob, .needs_pixels = false,
                     .max_planes = kPlaneRowCounterCount};
  if (int rc = CheckJobBand(engine.rows, band, spec); rc != kOk) return rc;
  if (band.starts_job()) engine.rows.Start(band.w, band.planes);
  band.ClearOutput();
  for (unsigned p = 0; p < band.planes; ++p) {
    DispersedAmPlane(engine, band, p);
    CountRows(engine, p, h);
  }
  if (band.ends_job()) engine.rows.Release();
  return kOk;
}

}  // namespace halftone
