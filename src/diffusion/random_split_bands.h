// A band of the random-split family: the planes' slices of the random stream, the working rows
// each plane scans on, and the choice of tier (the reference scan, the row engine's lockstep
// groups, or vector groups for passes that offer a vector decision).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>

#include "diffusion/random_split_fast.h"
#include "diffusion/random_split_vector.h"
#include "frame/job.h"

namespace halftone::random_split {

#if HALFTONE_VECTOR_ROWS
// A pass's vector decision: its own (`Vector()`, engaged where its quantiser allows), or
// lookups in its scalar table where it asks for them (`kVectorTable`).
template <class Pass>
constexpr bool kTableLanes = requires { Pass::kVectorTable; };
template <class Pass>
constexpr bool kHasVectorDecision =
    (requires(const Pass& p) { p.Vector(); } || kTableLanes<Pass>) && VectorSplits<Pass>();
template <class Pass, class Decider>
auto VectorDecision(const Pass& pass, const Decider& decide) {
  if constexpr (requires { pass.Vector(); })
    return pass.Vector();
  else
    return std::optional<TableDecide<Decider>>(TableDecide<Decider>{&decide});
}
#endif

// Every plane of a band of a job. The reference runs the planes one after the other on the
// generator itself. The fast path starts a copy of the generator where each plane's slice of
// the band's stream begins (drawing a row at a time, so the stream never leaves the cache),
// gives each plane its own working rows (the last plane the shared ones, so they end the band as the
// sequential scan leaves them) and runs the planes in lockstep groups, the groups on the
// engine's threads. A one-row band of a pass that ends its left-to-right last row on row B
// reads B's stale last entry: no plane writes B in such a band, so every plane reads what the
// band found there, and each private lane is handed that entry.
template <class Pass>
void ScanBandPlanes(const Pass& pass, Engine& engine, const Band& band) {
  const unsigned planes = band.planes;
  if (ForceScalar()) {
    for (unsigned p = 0; p < planes; ++p)
      PlaneScan(pass, band, p, {engine.rows.a(), engine.rows.b(), engine.rows.carry(p, band.w)}, engine.random,
                engine.curves)
          .Run();
    return;
  }
  const std::size_t per_plane = PlaneScan<Pass>::DrawsPerPlane(band.w, band.h);
  const std::size_t row_room = band.w + 1;
  std::uint32_t* words = engine.draws.Reserve(row_room * planes);
  // Plane p's generator is the engine's jumped p slices on; the engine's is left after all
  // planes' slices, as the sequential scan leaves it (a lone lane hands its own back itself).
  RandomBitSource* starts = planes == 0 ? nullptr : SliceStarts(engine, planes, per_plane);
  if (planes > 1) {
    engine.random = starts[planes - 1];
    engine.random.Skip(engine.draws.Jump(per_plane));
  }
  if (Pass::kScan.ltr_last_end_reads_b && band.h == 1) {
    const std::size_t end = band.w - 1;
    for (unsigned p = 0; p + 1 < planes; ++p) LaneRowB(engine.rows, p, planes)[end] = engine.rows.b()[end];
  }
  const auto& decide = FastDecider(pass, engine);
  const SplitKernel<Pass, std::decay_t<decltype(decide)>> kernel(decide, engine.curves, starts, 0, words, row_room);
  const auto lanes_of = [&](unsigned first, unsigned n, row_engine::Lane* lanes) {
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      lanes[l] = {LaneRowA(engine.rows, p, planes), LaneRowB(engine.rows, p, planes), engine.rows.carry(p, band.w),
                  nullptr, p};
    }
  };
#if HALFTONE_VECTOR_ROWS
  // Vector groups take bands of two rows or more, and groups of kMinLanes planes or more. Table
  // lookups gain less as lanes (1.4 times a scalar group of four, 1.17 times one of three) than
  // planes spread over two threads do (1.7 times), so a table pass takes vector groups of four
  // planes only, and only where every thread's share of the band fills one.
  if constexpr (kHasVectorDecision<Pass>) {
    constexpr unsigned kMinLanes = kTableLanes<Pass> ? kVectorLanes : kVectorMinLanes;
    const auto vdecide = VectorDecision(pass, decide);
    if (vdecide && VectorRowsOn() && band.h >= 2 && planes >= kMinLanes &&
        (!kTableLanes<Pass> || FillsVectorGroups(engine, planes))) {
      const auto group = [&](unsigned first, unsigned n, VectorRowsMemory mem) {
        row_engine::Lane lanes[kVectorLanes];
        lanes_of(first, n, lanes);
        if (n >= kMinLanes)
          RunVectorGroup<Pass>(*vdecide, decide, band, lanes, n, engine.curves, starts + first, words + row_room * first,
                               row_room, mem);
        else
          RunSplitGroup(kernel, band, lanes, n);
      };
      ForEachVectorGroup(engine, planes, band.w, group);
      return;
    }
  }
#endif
  ForEachLockstepGroup(engine.threads, planes, LockstepWidth<Pass>(), 1, [&](unsigned first, unsigned n) {
    row_engine::Lane lanes[kMaxLockstep];
    lanes_of(first, n, lanes);
    RunSplitGroup(kernel, band, lanes, n);
    if (planes == 1) engine.random = starts[0];
  });
}

// A band of a job for a pass, `Pass::kBits` a pixel: every plane scanned by ScanBandPlanes.
template <class Pass>
int RunPassBand(Engine& engine, const Band& band, const Pass& pass, Reseed reseed = Reseed::kEveryCall) {
  const JobSpec spec{.reseed = reseed, .needs_pixels = true};
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] { ScanBandPlanes(pass, engine, band); });
}

// One plane on private rows (the single-plane form), fast unless the reference is forced.
template <class Pass>
void ScanSinglePlane(const Pass& pass, Engine& engine, const Band& band, PlaneRows rows) {
  if (ForceScalar()) {
    PlaneScan(pass, band, 0, rows, engine.random, engine.curves).Run();
    return;
  }
  std::uint32_t* words = engine.draws.Reserve(band.w + 1);
  const auto& decide = FastDecider(pass, engine);
  const SplitKernel<Pass, std::decay_t<decltype(decide)>> kernel(decide, engine.curves, &engine.random, 0, words, 0);
  const row_engine::Lane lane{rows.a, rows.b, rows.carry, nullptr, 0};
  RunSplitGroup(kernel, band, &lane, 1);
}

}  // namespace halftone::random_split
