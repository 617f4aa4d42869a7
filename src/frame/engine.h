// The engine: every piece of state that outlives a call, in one object. The exported entry
// points bind one process-wide instance; tests and tools make their own.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/band.h"
#include "frame/clock.h"
#include "frame/job_buffers.h"
#include "frame/plane_threads.h"
#include "frame/random_bits.h"
#include "frame/table_cache.h"
#include "frame/zero_filled.h"
#include "screening/pattern_rows.h"
#include "screening/tables.h"
#include "tone/tone.h"

namespace halftone {

struct Engine {
  SeedClock clock;
  RandomBitSource random;
  ToneCurveSet curves;
  LevelValues levels;
  JobBuffers rows;              // 16-bit error rows of the integer families
  DoubleJobBuffers double_rows; // 64-bit floating-point rows of the double-precision family
  // Fourth row of the double-precision family: per-pixel weights of the row being diffused by
  // its tone-weighted member. Made at the start of that member's job, released at its end.
  std::vector<double> double_weight_row;
  // Matrices, pattern stacks and tables the loaders fill (about 7 MiB, zero until loaded).
  ZeroFilled<ScreeningTables> screening_storage{SetNonZeroDefaults};
  ScreeningTables& tables = *screening_storage;
  PlaneThreads threads;         // threads a band's independent planes may run on (1: the caller)
  DrawBuffer draws;             // a band's random stream drawn ahead
  TableCache fast_tables;       // the last decision table a fast scan built
  PatternRowBlocks pattern_rows;  // the pattern stacks row first, for the fast pattern screens

  // Per-plane state of the cyclic one-neighbour diffusion: counter 0..12 and scan direction,
  // reset at the start of a job. Only four planes have state.
  static constexpr unsigned kCyclePlanes = 4;
  std::array<std::int32_t, kCyclePlanes> cycle_counter{};
  std::array<std::uint32_t, kCyclePlanes> cycle_direction{};

  // Host folder override (ends in a separator); empty means the host program's folder.
  std::string host_folder_override;
  int last_load_status = kOk;

  // Folder every library file is read from, ending in a separator.
  std::string HostFolder() const;
  // Path of a file in the "Moths" folder of the host folder.
  std::string MothsPath(const std::string& name) const;

  void SeedFromClock() { random.Seed(clock.Seconds()); }
};

}  // namespace halftone
