// Pixels per second of every registry method on a 4096 x 256 band of 4 planes (one plane for
// the one-plane methods), on a single-plane band and on one-row bands of 4 planes, the way a print host calls them: a job of
// one start band followed by middle bands. Every method's first band is checked against a
// second run before timing, so a benchmark never times a refusal.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <filesystem>
#include <string>
#include <vector>

#include "golden_jobs.h"

namespace {

constexpr std::size_t kWidth = 4096;
constexpr std::size_t kRows = 256;
constexpr const char* kFourLevels = "0,85,170,255,";

void RunMethod(benchmark::State& state, halftone_method_info m, unsigned planes, std::size_t rows) {
  const bool banded = m.entry_kind == HALFTONE_ENTRY_BAND || m.entry_kind == HALFTONE_ENTRY_BAND_UNSIGNED;
  if (!banded) planes = 1;
  auto src = golden::BenchPicture(kWidth, rows, planes);
  const std::size_t out_bytes = std::max(golden::DstStride(kWidth, static_cast<unsigned>(m.output_bits)) * planes * rows,
                                         kWidth * golden::DstStride(rows, 1));
  std::vector<std::uint8_t> dst(out_bytes), first(out_bytes);
  std::vector<int> lookup(256);
  for (int v = 0; v < 256; ++v) lookup[static_cast<std::size_t>(v)] = v;
  auto call = [&](unsigned phase) {
    if (banded) return golden::CallBand(m, src.data(), dst.data(), kWidth, rows, HALFTONE_FLAGS(planes, phase));
    switch (m.entry_kind) {
      case HALFTONE_ENTRY_PLANE:
        return reinterpret_cast<golden::PlaneFn>(m.entry)(src.data(), dst.data(), kWidth, rows);
      case HALFTONE_ENTRY_LOOKUP_REF: {
        unsigned char* out = dst.data();
        return reinterpret_cast<golden::LookupRefFn>(m.entry)(src.data(), out, kWidth, rows, lookup.data(), nullptr);
      }
      default:
        return reinterpret_cast<golden::LookupFn>(m.entry)(src.data(), dst.data(), kWidth, rows, lookup.data(), nullptr);
    }
  };
  // The eight-drop routines read eight level values; a host tuning them loads eight, in order.
  // (With four loaded, the rest read as zero, the levels fall out of order and the error runs
  // away: not a job anyone prints.)
  struct EightLevels {
    bool on;
    explicit EightLevels(bool o) : on(o) {
      if (on) Itsdiufiavs(8, "0,36,72,109,145,182,218,255,");
    }
    ~EightLevels() {
      if (on) Itsdiufiavs(4, kFourLevels);
    }
  } levels(m.output_bits == 4);
  // Output check: the same start band twice at a fixed time gives the same dots.
  halftone_set_fixed_time(golden::kFixedTime);
  const int rc = call(HALFTONE_PHASE_START);
  first = dst;
  call(HALFTONE_PHASE_START);
  if (rc != 0 && rc != HALFTONE_ERR_NOT_PROVIDED) {
    state.SkipWithError(("refused with code " + std::to_string(rc)).c_str());
    return;
  }
  if (first != dst && m.entry_kind != HALFTONE_ENTRY_LOOKUP_REF) {
    state.SkipWithError("output differs between two runs at a fixed time");
    return;
  }
  call(HALFTONE_PHASE_START);
  for (auto _ : state) {
    benchmark::DoNotOptimize(call(HALFTONE_PHASE_MIDDLE));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kWidth * rows * planes));
  halftone_set_fixed_time(-1);
}

// The generated tables' folder, removed at exit.
const std::filesystem::path& TablesFolder() {
  static const std::filesystem::path host =
      std::filesystem::temp_directory_path() / ("halftone-bench-tables-" + std::to_string(std::random_device{}()));
  return host;
}

void RegisterAll() {
  const char* threads_env = std::getenv("HALFTONE_BENCH_THREADS");
  const int threads = threads_env ? std::atoi(threads_env) : 1;
  halftone_set_threads(threads);
  if (golden::LoadFixedTables(TablesFolder()) != 0) std::fprintf(stderr, "warning: some tables did not load\n");
  Itsdiufiavs(4, kFourLevels);
  for (int i = 0, n = halftone_method_count(); i < n; ++i) {
    halftone_method_info m{};
    if (halftone_method_get(i, &m) != 0) continue;
    const bool banded = m.entry_kind == HALFTONE_ENTRY_BAND || m.entry_kind == HALFTONE_ENTRY_BAND_UNSIGNED;
    benchmark::RegisterBenchmark((std::string(m.name) + (banded ? "/4planes" : "/1plane")).c_str(), RunMethod, m, 4u,
                                 kRows)
        ->Unit(benchmark::kMillisecond)->UseRealTime();
    if (banded) {
      benchmark::RegisterBenchmark((std::string(m.name) + "/1plane").c_str(), RunMethod, m, 1u, kRows)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      // A host that sends a band a row: what a call costs beyond its pixels.
      benchmark::RegisterBenchmark((std::string(m.name) + "/4planes_1row").c_str(), RunMethod, m, 4u, std::size_t{1})
          ->Unit(benchmark::kMicrosecond)
          ->UseRealTime();
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  halftone_set_host_folder(nullptr);
  std::error_code ec;
  std::filesystem::remove_all(TablesFolder(), ec);
  return 0;
}
