// The call sequence every job-based halftoning routine shares: contract check, start of job,
// clearing, seeding, the band's pass and the end of job. The pass itself is the routine's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "frame/band.h"
#include "frame/engine.h"
#include "frame/job_buffers.h"

namespace halftone {

// When a routine reseeds the random bit source from the clock.
enum class Reseed { kEveryCall, kStartOfJob };

struct JobSpec {
  Reseed reseed = Reseed::kEveryCall;
  bool needs_pixels = false;          // zero width or height is refused (unsigned bounds would wrap)
  unsigned max_planes = 255;          // planes beyond a routine's per-plane state are refused
};

// A band is inside the contract when its job was started (or this call starts it) with at
// least its width and planes, it has pixels where the routine needs them, and its plane count
// fits the routine's per-plane state.
template <class Cell>
int CheckJobBand(const ErrorRows<Cell>& rows, const Band& band, const JobSpec& spec) {
  if (spec.needs_pixels && (band.w == 0 || band.h == 0)) return kErrOutOfContract;
  if (band.planes > spec.max_planes) return kErrOutOfContract;
  if (!band.starts_job() && !rows.Admits(band.w, band.planes)) return kErrOutOfContract;
  return kOk;
}

// Runs one band: `band_pass()` halftones every plane of `band` into its cleared dot rows (in
// order, or side by side where the planes are independent). A refused band returns
// kErrOutOfContract before anything is touched.
template <class Cell, class BandPass>
int RunJobBandPlanes(Engine& engine, ErrorRows<Cell>& rows, const Band& band, const JobSpec& spec,
                     BandPass&& band_pass, Cell carry_preset = Cell{}) {
  if (int rc = CheckJobBand(rows, band, spec); rc != kOk) return rc;
  if (band.starts_job()) rows.Start(band.w, band.planes, carry_preset);
  band.ClearOutput();
  if (spec.reseed == Reseed::kEveryCall || band.starts_job()) engine.SeedFromClock();
  band_pass();
  if (band.ends_job()) rows.Release();
  return kOk;
}

// Row 0 of a plane starts from the error the previous band carried down; the carry is used up.
template <class Cell>
void LoadCarry(Cell* a, Cell* carry, std::size_t w) {
  for (std::size_t x = 0; x < w; ++x) a[x] = std::exchange(carry[x], Cell{});
}

// Row 0 of a plane enters working row A as its input levels plus the error the previous band
// carried down (a 16-bit row truncates the sum); the carry entries are used up.
template <class Cell>
void LoadFirstRow(Cell* a, Cell* carry, const std::uint8_t* row0, std::size_t w) {
  for (std::size_t x = 0; x < w; ++x) {
    a[x] = static_cast<Cell>(row0[x] + carry[x]);
    carry[x] = 0;
  }
}

}  // namespace halftone
