// Two builds of the library in one process, one method's band calls alternating between them:
// on a shared machine whose speed swings within seconds, calls made side by side see the same
// spell, so their ratio holds where separate runs do not. Both builds are loaded with dlopen,
// each with its own engine and the same tables, and must write the same dots.
//
//   halftone_ab OLD.so NEW.so METHOD [PLANES=4] [ROWS=256] [CALLS=300]
//   (HALFTONE_BENCH_THREADS=n: both builds run the band's planes on n threads)
//
// OLD.so and NEW.so must be distinct files (copy one to compare a build with itself): the
// loader would hand back the same library for the same file.
// Prints each build's median and 90th-percentile rate and the median of the pairwise ratios.
// Medians, not best calls: code with data-dependent branches can have fast best calls and a
// slow median.
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "golden_jobs.h"

namespace {

// The entry points the comparison needs, looked up in one build.
struct Build {
  void* handle = nullptr;
  decltype(&halftone_method_count) method_count = nullptr;
  decltype(&halftone_method_get) method_get = nullptr;
  decltype(&halftone_set_host_folder) set_host_folder = nullptr;
  decltype(&halftone_set_fixed_time) set_fixed_time = nullptr;
  decltype(&halftone_set_threads) set_threads = nullptr;
  decltype(&halftone_last_load_status) last_load_status = nullptr;
  decltype(&PuaningFa13) load_bitmap = nullptr;
  decltype(&NingJing) load_duo = nullptr;
  decltype(&KaiDuaning) load_mono = nullptr;
  decltype(&NiceMents) load_layers = nullptr;
  decltype(&SincesKai) load_tone = nullptr;
  decltype(&Itsdiufiavs) set_levels = nullptr;
  halftone_method_info method{};

  template <class Fn>
  void Find(Fn& fn, const char* name) {
    fn = reinterpret_cast<Fn>(dlsym(handle, name));
    if (fn == nullptr) {
      std::fprintf(stderr, "%s not found\n", name);
      std::exit(2);
    }
  }
  explicit Build(const char* path) {
    handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::exit(2);
    }
    Find(method_count, "halftone_method_count");
    Find(method_get, "halftone_method_get");
    Find(set_host_folder, "halftone_set_host_folder");
    Find(set_fixed_time, "halftone_set_fixed_time");
    Find(set_threads, "halftone_set_threads");
    Find(last_load_status, "halftone_last_load_status");
    Find(load_bitmap, "PuaningFa13");
    Find(load_duo, "NingJing");
    Find(load_mono, "KaiDuaning");
    Find(load_layers, "NiceMents");
    Find(load_tone, "SincesKai");
    Find(set_levels, "Itsdiufiavs");
  }
  // The tables the golden jobs use, from files already written to `host`.
  void Load(const std::filesystem::path& host) {
    set_host_folder(host.string().c_str());
    load_bitmap("bitmap.bmp", 0, 0);
    int rc = last_load_status();
    if (rc == 0) rc = load_duo("duo.pat", 256, 256);
    if (rc == 0) rc = load_mono("mono.pat", 256, 256);
    load_layers("layers.txt", 0, 0);
    if (rc == 0) rc = last_load_status();
    if (rc == 0) rc = load_tone();
    if (rc != 0) std::fprintf(stderr, "warning: a table did not load (%d)\n", rc);
  }
  bool Pick(const char* name) {
    for (int i = 0, n = method_count(); i < n; ++i)
      if (method_get(i, &method) == 0 && std::strcmp(method.name, name) == 0) return true;
    return false;
  }
};

double Percentile(std::vector<double> v, double q) {
  std::sort(v.begin(), v.end());
  return v[static_cast<std::size_t>(q * static_cast<double>(v.size() - 1))];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s OLD.so NEW.so METHOD [PLANES=4] [ROWS=256] [CALLS=300]\n", argv[0]);
    return 2;
  }
  const unsigned planes = argc > 4 ? static_cast<unsigned>(std::atoi(argv[4])) : 4;
  const std::size_t rows = argc > 5 ? static_cast<std::size_t>(std::atoi(argv[5])) : 256;
  const int calls = argc > 6 ? std::atoi(argv[6]) : 300;
  constexpr std::size_t kWidth = 4096;
  if (planes < 1 || rows < 1 || calls < 1) return 2;

  const auto host = std::filesystem::temp_directory_path() / ("halftone-ab-" + std::to_string(std::random_device{}()));
  golden::WriteFixedTables(host);
  Build builds[2] = {Build(argv[1]), Build(argv[2])};
  const auto src = golden::BenchPicture(kWidth, rows, planes);
  std::vector<std::uint8_t> dst[2];
  for (Build& b : builds) {
    if (!b.Pick(argv[3]) || (b.method.entry_kind != HALFTONE_ENTRY_BAND &&
                             b.method.entry_kind != HALFTONE_ENTRY_BAND_UNSIGNED)) {
      std::fprintf(stderr, "%s: no banded method of that name\n", argv[3]);
      return 2;
    }
    b.Load(host);
    // The eight-drop routines read eight level values.
    b.set_levels(4, b.method.output_bits == 4 ? "0,36,72,109,145,182,218,255," : "0,85,170,255,");
    // HALFTONE_BENCH_THREADS, as for halftone_bench: the planes' threads of both builds.
    const char* threads = std::getenv("HALFTONE_BENCH_THREADS");
    b.set_threads(threads != nullptr ? std::atoi(threads) : 1);
  }
  std::filesystem::remove_all(host);

  // Same dots from both builds at a fixed time, then a started job for the timed middle bands.
  const std::size_t out_bytes = golden::DstStride(kWidth, static_cast<unsigned>(builds[0].method.output_bits)) * planes * rows;
  auto input = src;
  for (int k = 0; k < 2; ++k) {
    dst[k].assign(out_bytes, 0);
    builds[k].set_fixed_time(golden::kFixedTime);
    golden::CallBand(builds[k].method, input.data(), dst[k].data(), kWidth, rows, HALFTONE_FLAGS(planes, HALFTONE_PHASE_START));
    builds[k].set_fixed_time(-1);
  }
  const bool same = dst[0] == dst[1];

  std::vector<double> rate[2], ratio;
  const double pixels = static_cast<double>(kWidth * rows * planes);
  for (int i = 0; i < calls; ++i) {
    double mpx[2] = {};
    for (int j = 0; j < 2; ++j) {
      const int k = (i & 1) ? 1 - j : j;  // alternate which build goes first
      const auto t0 = std::chrono::steady_clock::now();
      golden::CallBand(builds[k].method, input.data(), dst[k].data(), kWidth, rows, HALFTONE_FLAGS(planes, HALFTONE_PHASE_MIDDLE));
      const std::chrono::duration<double> t = std::chrono::steady_clock::now() - t0;
      mpx[k] = pixels / t.count() / 1e6;
    }
    rate[0].push_back(mpx[0]);
    rate[1].push_back(mpx[1]);
    ratio.push_back(mpx[1] / mpx[0]);
  }
  std::printf("%s, %u plane(s), %zu rows, %d calls each%s\n", argv[3], planes, rows, calls,
              same ? "" : "  -- THE BUILDS WRITE DIFFERENT DOTS");
  for (int k = 0; k < 2; ++k)
    std::printf("  %s  median %7.0f  p90 %7.0f Mpx/s  (%s)\n", k == 0 ? "old" : "new", Percentile(rate[k], 0.5),
                Percentile(rate[k], 0.9), argv[1 + k]);
  std::printf("  new/old, median of the pairs: %.3f\n", Percentile(ratio, 0.5));
  return same ? 0 : 1;
}
