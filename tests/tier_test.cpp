// Every registry method on every tier: the lockstep and vector tiers, on one thread and two, must
// give the reference tier's bytes and return codes, call after call, on the shapes where a fast
// path slips first: widths around lane and byte edges, odd and even band heights, one-row bands,
// one to four planes, later bands narrower or with fewer planes than the job, rows longer than a
// draw chunk, and pictures of extremes and of values around the decision levels. Later bands
// start from the carry and the working rows an earlier band left, so a wrong carry shows as
// wrong dots one band later. Two set-ups run on random screening tables with irregular pattern
// geometry and edge masks, and whole-job methods there on a lookup table whose sums wrap.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "exports/instance.h"
#include "frame/dispatch.h"
#include "frame/plane_threads.h"
#include "frame/table_cache.h"
#include "golden_jobs.h"
#include "test_support.h"

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"  // the counting new below is malloc-based
#endif

// Counts every allocation of this test binary (the library's included: it shares the heap
// functions of the process).
namespace {
std::atomic<long long> g_allocations{0};
}
void* operator new(std::size_t n) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using halftone::Path;

// The pictures a job is run on.
enum class Picture { kChart, kExtremes, kMidTones, kRuns, kWhite, kDarkTail, kLightTail };

std::uint8_t Sample(Picture picture, std::size_t x, std::size_t y, unsigned p, std::size_t w, std::mt19937& gen) {
  switch (picture) {
    case Picture::kChart: return golden::ChartSample(x, y, p, w);
    case Picture::kExtremes: {
      const unsigned k = gen() % 4;
      return static_cast<std::uint8_t>(k == 0 ? 0u : k == 1 ? 255u : gen() & 0xFF);
    }
    case Picture::kMidTones: return static_cast<std::uint8_t>(112 + gen() % 33);
    case Picture::kRuns: {  // runs of random length and level, so run ends fall at every offset
      static std::uint8_t level = 0;
      if (x == 0 || gen() % 5 == 0) level = static_cast<std::uint8_t>(gen() % 4 == 0 ? gen() % 3 : gen());
      return level;
    }
    case Picture::kWhite: return 255;
    // One noisy row, then flat black or white: the error drains away into tiny values.
    case Picture::kDarkTail: return static_cast<std::uint8_t>(y == 0 ? gen() & 0xFF : 0);
    default: return static_cast<std::uint8_t>(y == 0 ? gen() & 0xFF : 255);
  }
}

struct Band {
  std::size_t w, h;
  unsigned planes;
};

// One job's output: each call's return code followed by its bytes.
using Output = std::vector<std::vector<std::uint8_t>>;

// Carried values no picture leaves, near the ends of 16 bits and anywhere in them, so the next
// band's first row starts outside every window a fast path keeps tables for, and stores wrap.
void PresetCarries(std::mt19937& gen) {
  halftone::JobBuffers& rows = halftone::ProcessEngine().rows;
  if (!rows.live()) return;
  constexpr std::int16_t kNearEnds[] = {30000, -30000, 600};
  for (std::size_t i = 0; i < rows.width() * rows.planes(); ++i)
    rows.carry_all()[i] = i % 4 == 3 ? static_cast<std::int16_t>(gen()) : kNearEnds[i % 4];
}

Output RunBandJob(const halftone_method_info& m, const std::vector<Band>& bands, Picture picture, unsigned seed,
                  bool preset_carries = false) {
  std::mt19937 gen(seed);
  Output out;
  std::size_t y0 = 0;
  for (std::size_t b = 0; b < bands.size(); ++b) {
    const auto [w, h, planes] = bands[b];
    std::vector<std::uint8_t> src(golden::SrcStride(w) * planes * h, 0);
    for (std::size_t y = 0; y < h; ++y)
      for (unsigned p = 0; p < planes; ++p)
        for (std::size_t x = 0; x < w; ++x)
          src[(y * planes + p) * golden::SrcStride(w) + x] = Sample(picture, x, y0 + y, p, w, gen);
    std::vector<std::uint8_t> dst(golden::DstStride(w, static_cast<unsigned>(m.output_bits)) * planes * h + 4,
                                  halftone_test::kCanary);
    const unsigned phase = b == 0 ? HALFTONE_PHASE_START : b + 1 == bands.size() ? HALFTONE_PHASE_END : 0;
    const int rc = golden::CallBand(m, src.data(), dst.data(), w, h, HALFTONE_FLAGS(planes, phase));
    dst.push_back(static_cast<std::uint8_t>(rc));
    out.push_back(std::move(dst));
    y0 += h;
    if (preset_carries) PresetCarries(gen);
  }
  return out;
}

// The set-up's table terms (see ToneSetup): 2 gives whole-job methods a lookup that wraps.
int g_terms = 0;

Output RunWholeJob(const halftone_method_info& m, std::size_t w, std::size_t h, Picture picture, unsigned seed) {
  std::mt19937 gen(seed);
  std::vector<std::uint8_t> src(golden::SrcStride(w) * h);
  for (std::size_t y = 0; y < h; ++y)
    for (std::size_t x = 0; x < w; ++x) src[y * golden::SrcStride(w) + x] = Sample(picture, x, y, 0, w, gen);
  std::vector<int> lookup(256);
  for (int v = 0; v < 256; ++v) lookup[static_cast<std::size_t>(v)] = g_terms == 2 ? static_cast<int>(gen()) : (v * v) / 255 - 8;
  std::vector<std::uint8_t> dst(std::max(h * golden::DstStride(w, 1), w * golden::DstStride(h, 1)) + 4,
                                halftone_test::kCanary);
  const int rc = golden::CallWhole(m, src.data(), dst.data(), w, h, lookup.data());
  dst.push_back(static_cast<std::uint8_t>(rc));
  return {dst};
}

// The jobs of one method under one set-up: each a name and a run.
struct Job {
  std::string name;
  std::function<Output()> run;
};

std::vector<Job> Jobs(const halftone_method_info& m) {
  std::vector<Job> jobs;
  const std::size_t kWidths[] = {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65};
  unsigned seed = 1;
  if (!golden::IsBandMethod(m)) {
    for (std::size_t w : kWidths)
      for (std::size_t h : {1u, 2u, 5u, 8u, 17u})
        for (Picture picture : {Picture::kChart, Picture::kExtremes, Picture::kRuns}) {
          jobs.push_back({"whole " + std::to_string(w) + "x" + std::to_string(h),
                          [&m, w, h, picture, s = seed++] { return RunWholeJob(m, w, h, picture, s); }});
        }
    jobs.push_back({"whole 2500x3", [&m] { return RunWholeJob(m, 2500, 3, Picture::kChart, 99); }});
    return jobs;
  }
  auto add = [&](const std::string& name, std::vector<Band> bands, Picture picture) {
    jobs.push_back({name, [&m, bands, picture, s = seed++] { return RunBandJob(m, bands, picture, s); }});
  };
  for (std::size_t w : kWidths)
    for (unsigned planes = 1; planes <= 4; ++planes) {
      const std::string shape = "w " + std::to_string(w) + ", " + std::to_string(planes) + " planes";
      add(shape + ", heights 3 1 4 2 5", {{w, 3, planes}, {w, 1, planes}, {w, 4, planes}, {w, 2, planes}, {w, 5, planes}},
          Picture::kChart);
      add(shape + ", one-row bands", {{w, 1, planes}, {w, 1, planes}, {w, 1, planes}}, Picture::kExtremes);
      add(shape + ", a one-row job", {{w, 1, planes}}, Picture::kMidTones);
      add(shape + ", runs", {{w, 7, planes}, {w, 2, planes}}, Picture::kRuns);
    }
  for (std::size_t w : {9u, 17u, 33u}) {
    const std::size_t narrow = w / 2 + 1;
    add("w " + std::to_string(w) + ", narrower and fewer planes later",
        {{w, 2, 4}, {narrow, 3, 2}, {w, 2, 4}, {w, 4, 3}, {narrow, 1, 1}, {w, 3, 4}}, Picture::kChart);
    add("w " + std::to_string(w) + ", extremes over tall bands", {{w, 12, 3}, {w, 9, 3}}, Picture::kExtremes);
    add("w " + std::to_string(w) + ", mid-tones over tall bands", {{w, 11, 4}, {w, 6, 4}}, Picture::kMidTones);
  }
  for (std::size_t w : {5u, 16u, 33u})
    for (unsigned planes : {6u, 8u})
      add("w " + std::to_string(w) + ", " + std::to_string(planes) + " planes",
          {{w, 2, planes}, {w, 5, planes}, {w, 1, planes}, {w, 4, planes}}, Picture::kChart);
  for (std::size_t w : {1u, 2u, 3u})
    for (unsigned planes : {1u, 4u})
      for (Picture tail : {Picture::kDarkTail, Picture::kLightTail})
        add("w " + std::to_string(w) + ", " + std::to_string(planes) + " planes, a long flat tail",
            {{w, 700, planes}, {w, 64, planes}}, tail);
  // White under curves at 255 (the third set-up): every curve column adds error no dot takes out,
  // so carried values climb to the top of 16 bits and wrap.
  add("white over 24 bands", std::vector<Band>(24, Band{40, 16, 4}), Picture::kWhite);
  add("a band of no rows, then none wide, then no planes",
      {{16, 2, 2}, {16, 0, 2}, {16, 3, 2}, {0, 2, 2}, {16, 2, 0}, {16, 2, 2}}, Picture::kChart);
  for (unsigned planes : {1u, 2u, 4u})
    jobs.push_back({"carries near the 16-bit ends, " + std::to_string(planes) + " planes", [&m, planes] {
                      return RunBandJob(m, {{40, 6, planes}, {40, 6, planes}, {40, 1, planes}, {40, 3, planes}},
                                        Picture::kChart, planes, true);
                    }});
  add("rows longer than a draw chunk", {{2500, 2, 2}, {2500, 3, 2}}, Picture::kChart);
  add("wide one-plane rows", {{301, 7, 1}, {301, 6, 1}}, Picture::kExtremes);
  return jobs;
}

// A tone set-up: a curve file, the mode choosing its curves and the level values.
struct ToneSetup {
  std::vector<std::uint8_t> curves;
  int mode;
  std::string levels;
  // The bias matrix and layer table: 0 as loaded, 1 small random terms, 2 anywhere in 16 bits
  // (errors then wrap).
  int terms = 0;
};

// Sets the screening tables for a set-up: as loaded, or with random bias, layer, pattern and
// threshold tables and an irregular pattern geometry and edge masks.
void SetTerms(const halftone::ScreeningTables& loaded, int terms, unsigned seed) {
  halftone::ScreeningTables& tables = halftone::ProcessEngine().tables;
  const std::uint32_t generation = tables.pattern_generation;
  tables = loaded;
  tables.pattern_generation = generation + 1;  // the fast screens' copy of the stack is stale
  g_terms = terms;
  if (terms == 0) return;
  std::mt19937 gen(seed);
  auto term = [&] {
    return static_cast<std::int16_t>(terms == 1 ? static_cast<int>(gen() % 129) - 64
                                                : static_cast<int>(gen() & 0xFFFF) - 32768);
  };
  for (auto& row : tables.bias)
    for (auto& c : row) c = term();
  for (auto& tile : tables.layers)
    for (auto& row : tile)
      for (auto& c : row) c = term();
  auto fill = [&](auto& table) {
    auto* bytes = reinterpret_cast<std::uint8_t*>(&table);
    for (std::size_t i = 0; i < sizeof table; ++i) bytes[i] = static_cast<std::uint8_t>(gen());
  };
  fill(tables.mono);
  fill(tables.duo);
  fill(tables.bitmap);
  fill(tables.bayer);
  tables.geometry = terms == 1 ? halftone::PatternGeometry{24, 3, 3} : halftone::PatternGeometry{64, 5, 8};
  tables.masks = terms == 1 ? halftone::EdgeMasks{{0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE},
                                                  {0xFF, 0x7F, 0x3F, 0x1F, 0x0F, 0x07, 0x03, 0x01}}
                            : halftone::EdgeMasks{{0x00, 0xC0, 0xF0, 0xFC, 0xFF, 0xFF, 0xFF, 0xFF},
                                                  {0xFF, 0x3F, 0x0F, 0x03, 0x00, 0x00, 0x00, 0x00}};
}

// The golden set-ups (gentle curves, ascending levels), then every curve at 255, curves reaching
// 255 with random level values, and curves with levels in falling order.
std::vector<ToneSetup> Setups(const std::filesystem::path& host) {
  std::vector<ToneSetup> setups;
  std::ifstream file(host / "ToneAry.ham", std::ios::binary);
  const std::vector<std::uint8_t> gentle{std::istreambuf_iterator<char>(file), {}};
  for (const auto& s : golden::kSetups) setups.push_back({gentle, s.mode, s.levels});
  std::mt19937 gen(31337);
  setups.push_back({std::vector<std::uint8_t>(gentle.size(), 255), 13, "0,85,170,255,"});
  for (int k = 0; k < 2; ++k) {
    std::vector<std::uint8_t> steep(gentle.size());
    for (auto& c : steep) c = static_cast<std::uint8_t>(gen() % (k == 0 ? 256 : 40));
    std::string levels;
    for (int i = 0; i < 9; ++i) levels += std::to_string(k == 0 ? gen() % 256 : 255 - 32 * i) + ",";
    setups.push_back({steep, k == 0 ? 13 : 2, levels, k + 1});
  }
  return setups;
}

// Runs every job under every set-up on the given tier and thread count.
void WriteCurves(const std::filesystem::path& host, const std::vector<std::uint8_t>& curves) {
  std::ofstream(host / "ToneAry.ham", std::ios::binary)
      .write(reinterpret_cast<const char*>(curves.data()), static_cast<std::streamsize>(curves.size()));
}

std::vector<Output> RunAll(const std::filesystem::path& host, const std::vector<ToneSetup>& setups, Path path, int threads,
                           const std::vector<Job>& jobs) {
  halftone::SetPath(static_cast<int>(path));
  EXPECT_EQ(halftone_set_threads(threads), threads);
  std::vector<Output> all;
  const auto loaded = std::make_unique<halftone::ScreeningTables>(halftone::ProcessEngine().tables);
  for (const auto& setup : setups) {
    WriteCurves(host, setup.curves);
    SetTerms(*loaded, setup.terms, static_cast<unsigned>(all.size()));
    halftone_set_fixed_time(golden::kFixedTime);
    Itsdiufiavs(setup.mode, setup.levels.c_str());
    for (const auto& job : jobs) all.push_back(job.run());
  }
  WriteCurves(host, setups[0].curves);
  SetTerms(*loaded, 0, 0);
  halftone_set_fixed_time(-1);
  halftone_set_threads(1);
  halftone::SetPath(-1);
  return all;
}

class Tiers : public testing::TestWithParam<halftone_method_info> {
 protected:
  static void SetUpTestSuite() {
    host_ = new halftone_test::TempFolder;
    ASSERT_EQ(golden::LoadFixedTables(host_->path()), 0);
    setups_ = new std::vector<ToneSetup>(Setups(host_->path()));
  }
  static void TearDownTestSuite() {
    halftone_set_host_folder(nullptr);
    delete host_;
    delete setups_;
    host_ = nullptr;
    setups_ = nullptr;
  }
  static halftone_test::TempFolder* host_;
  static std::vector<ToneSetup>* setups_;
};
halftone_test::TempFolder* Tiers::host_ = nullptr;
std::vector<ToneSetup>* Tiers::setups_ = nullptr;

TEST_P(Tiers, EveryFastTierGivesTheReferenceBytes) {
  const halftone_method_info& m = GetParam();
  const auto jobs = Jobs(m);
  const auto reference = RunAll(host_->path(), *setups_, Path::kReference, 1, jobs);
  for (Path path : {Path::kLockstep, Path::kVector})
    for (int threads : {1, 2}) {
      const auto fast = RunAll(host_->path(), *setups_, path, threads, jobs);
      ASSERT_EQ(fast.size(), reference.size());
      for (std::size_t j = 0; j < fast.size(); ++j)
        for (std::size_t call = 0; call < reference[j].size(); ++call) {
          const auto& want = reference[j][call];
          const auto& got = fast[j][call];
          if (got == want) continue;
          std::size_t at = 0;
          while (at < want.size() && at < got.size() && got[at] == want[at]) ++at;
          FAIL() << m.name << " on the " << halftone::PathName(path) << " tier, " << threads << " thread(s), set-up "
                 << j / jobs.size() << ", job \"" << jobs[j % jobs.size()].name << "\": call " << call
                 << " differs from the reference at byte " << at << " of " << want.size()
                 << " (the last byte is the return code, the four before it lie past the output)";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Registry, Tiers, testing::ValuesIn(golden::Methods()), golden::MethodName);

// What the fast paths promise besides their bytes: every plane handed to a thread exactly once,
// and no allocation once a job has started.
TEST(PlaneThreads, EveryPlaneOnceWhateverTheCount) {
  halftone::PlaneThreads threads;
  for (int n : {1, 2, 3, 1, 4}) {
    threads.SetCount(n);
    EXPECT_EQ(threads.count(), n);
    for (unsigned planes : {1u, 2u, 4u, 7u}) {
      std::vector<std::atomic<int>> seen(planes);
      for (int round = 0; round < 50; ++round) threads.ForEachPlane(planes, [&](unsigned p) { seen[p].fetch_add(1); });
      for (unsigned p = 0; p < planes; ++p) EXPECT_EQ(seen[p].load(), 50) << n << " threads, plane " << p;
    }
  }
  threads.SetCount(0);
  EXPECT_EQ(threads.count(), 1) << "counts below one mean the caller alone";
}

// After the first band of a job, further bands of the same size allocate nothing, on one
// thread or two.
class NoAllocationPerBand : public testing::TestWithParam<int> {};

TEST_P(NoAllocationPerBand, AfterTheFirstBand) {
  // A folder of its own: ctest runs the two parameters at once.
  const halftone_test::TempFolder folder;
  const std::filesystem::path host = folder.path() / "host";
  ASSERT_EQ(golden::LoadFixedTables(host), 0);
  ASSERT_EQ(halftone_set_threads(GetParam()), GetParam());
  constexpr std::size_t kW = 301, kH = 8;
  constexpr unsigned kPlanes = 4;
  for (int i = 0, n = halftone_method_count(); i < n; ++i) {
    halftone_method_info m{};
    ASSERT_EQ(halftone_method_get(i, &m), 0);
    if (m.entry_kind != HALFTONE_ENTRY_BAND && m.entry_kind != HALFTONE_ENTRY_BAND_UNSIGNED) continue;
    auto src = golden::ChartBand(kW, 0, kH, kPlanes);
    std::vector<std::uint8_t> dst(golden::DstStride(kW, static_cast<unsigned>(m.output_bits)) * kPlanes * kH);
    const long long at_start = g_allocations.load();
    golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_START));
    if (std::string(m.name) == "RoundFaxest") {
      EXPECT_GT(g_allocations.load(), at_start) << "the counter must see the library make its job rows";
    }
    golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_MIDDLE));
    const long long before = g_allocations.load();
    for (int band = 0; band < 3; ++band)
      golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_MIDDLE));
    EXPECT_EQ(g_allocations.load(), before) << m.name << " allocates in a middle band";
    golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_END));
  }
  halftone_set_threads(1);
  halftone_set_host_folder(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Threads, NoAllocationPerBand, testing::Values(1, 2));

// The decision-table cache: a table is made once per kind and key, remade when either changes.
// (tier_test runs set-ups with other level values one after the other on one engine, so a stale
// table shows there as wrong dots.)
struct SmallTable {
  std::array<int, 16> v;
};
struct KeyA {
  int level;
};
struct KeyB {
  int level;
};
struct NoKey {};

TEST(TableCache, MakesOncePerKindAndKey) {
  halftone::TableCache cache;
  int made = 0;
  auto make = [&](int fill) {
    return [&made, fill] {
      ++made;
      SmallTable t{};
      t.v.fill(fill);
      return t;
    };
  };
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{1}, make(10)).v[3], 10);
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{1}, make(11)).v[3], 10) << "same kind and key: the table kept";
  EXPECT_EQ(made, 1);
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{2}, make(12)).v[3], 12) << "another key";
  EXPECT_EQ(cache.Get<SmallTable>(KeyB{2}, make(13)).v[3], 13) << "same key bytes, another kind";
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{2}, make(14)).v[3], 14) << "only the last table is kept";
  EXPECT_EQ(made, 4);
  EXPECT_EQ(cache.Get<SmallTable>(NoKey{}, make(15)).v[0], 15);
  EXPECT_EQ(cache.Get<SmallTable>(NoKey{}, make(16)).v[0], 15) << "an empty key matches itself";
  cache.Clear();
  EXPECT_EQ(cache.Get<SmallTable>(NoKey{}, make(17)).v[0], 17) << "cleared";
  EXPECT_EQ(made, 6);
}

// Golden digests: every registry method on a fixed set of jobs (several widths, odd ones too,
// band heights, plane counts, multi-band jobs with a narrower middle band, two tone set-ups and
// loaded tables), every output byte and return code folded into one FNV-1a digest per method.
// Fast paths and threads must reproduce them bit for bit. When a NEW method joins the registry,
// print the table afresh with HALFTONE_GOLDEN_PRINT=1 and add its row; a changed digest of an
// existing method is a regression, never a reason to reprint.
const std::map<std::string, std::uint64_t>& Recorded() {
  static const std::map<std::string, std::uint64_t> table = {
      // GOLDEN TABLE BEGIN
      {"RoundFaxest", 0x4109f60439ef1741ull},
      {"RoundFaxest__", 0x4109f60439ef1741ull},
      {"FastGroup", 0xcc802f850402d26cull},
      {"FastGroup1", 0xa47e4225175c974eull},
      {"ArcistPump", 0x8d03776953cf327eull},
      {"Kaishanxing", 0x1e9107886f56776full},
      {"SymanOpening", 0x335a2dc3ebeb3b30ull},
      {"sdiufiavs", 0xb12f64980bc21d95ull},
      {"sdiufiavs1", 0xb01b34ce7acc619dull},
      {"mandfanes", 0x2fe35fe292e81661ull},
      {"orangecagn", 0xc8bf91544a601c71ull},
      {"jsdi6yruis", 0xb2b9a59027446365ull},
      {"irpduix7sg", 0x1fcd329599606931ull},
      {"hxkjsdi67x", 0xe83be4438e75be91ull},
      {"RoundPump", 0x5502baf4df9ec287ull},
      {"RoundPump1", 0x585a16e9bac90271ull},
      {"suiruiskao", 0x1e7089994b2724f5ull},
      {"suiruiskao2", 0x0c47d51a6e5083bdull},
      {"suiruiskao3", 0x0c47d51a6e5083bdull},
      {"suiruiskao4", 0x0c47d51a6e5083bdull},
      {"suiruiskao5", 0x9705f0bed5ee9445ull},
      {"suiruiskao6", 0xc1fdc7677f16522dull},
      {"suiruiskao7", 0x37762e0c0cb251a5ull},
      {"suiruiskao9", 0x77f9984ad441e9c1ull},
      {"suiruiskao10", 0xe843b3d0e36d80a5ull},
      {"CrisixOut_double", 0x83bb428a32b6c459ull},
      {"sdiufiavs2", 0xdb5da6e987a3e525ull},
      {"sdiufiavs3", 0xd03b74ed97a32a45ull},
      {"sdiufiavs4", 0xe137a40e3a9d6755ull},
      {"suiruiskao8", 0x6d82235b0c655319ull},
      {"suiruiskao11", 0xf1131161dfbaf325ull},
      {"highforces", 0xb9e635f5f02a0c51ull},
      {"Kaocosyx13", 0x633d05bc9ff67725ull},
      {"Kaocosyx14", 0x1947a6c7372ff170ull},
      {"Kaocosyx1", 0x61848597587c78d5ull},
      {"Kaocosyx10", 0x37c625fa8c736b79ull},
      {"CrisixOut", 0x20ec41563cef9741ull},
      {"CrisixOut31", 0x08a3a365d0201fabull},
      {"Sonicksure", 0xc32ae28fc3a3ba19ull},
      {"MutexWindow", 0xc32ae28fc3a3ba19ull},
      {"MutexWindow_Bak", 0xc32ae28fc3a3ba19ull},
      {"TextDownload", 0x4a9f77af7e0f51bdull},
      {"WindowText", 0xbcef8ff1e55016e5ull},
      {"Kaocosyx", 0x042135d2c50aad85ull},
      {"WindowTextAM1", 0xe04fc9d0120cbdb9ull},
      {"WindowTextAM", 0x7f9429dfee091ec5ull},
      {"sdicxx78xy", 0x24ff0cd2eb27b21eull},
      {"ixndiwkc76y", 0x43e8eae461c23240ull},
      {"ghskdjiekld", 0xb2e24d50cfef951full},
      {"tishduth29dmc", 0xdd5cc817a1a10ad2ull},
      {"nchsuw56xd", 0x7abd969cc5807b8cull},
      {"fdxin324c", 0xbb28ab79793d12b0ull},
      {"kajdjigc23kdh", 0x25568979388fdee4ull},
      // GOLDEN TABLE END
  };
  return table;
}

std::uint64_t Digest(const halftone_method_info& m) {
  halftone_test::TempFolder host;
  EXPECT_EQ(golden::LoadFixedTables(host.path()), 0);
  const std::uint64_t d = golden::MethodDigest(m);
  halftone_set_host_folder(nullptr);
  return d;
}

class GoldenDigest : public testing::TestWithParam<halftone_method_info> {};

TEST_P(GoldenDigest, MatchesRecordedTable) {
  const halftone_method_info& m = GetParam();
  const std::uint64_t digest = Digest(m);
  const auto it = Recorded().find(m.name);
  ASSERT_NE(it, Recorded().end()) << m.name << " has no recorded digest; its digest is 0x" << std::hex << digest;
  EXPECT_EQ(digest, it->second) << m.name << " changed its output: 0x" << std::hex << digest;
}

INSTANTIATE_TEST_SUITE_P(Registry, GoldenDigest, testing::ValuesIn(golden::Methods()),
                         golden::MethodName);

TEST(GoldenTable, EveryRecordedNameIsARegistryMethod) {
  const auto methods = golden::Methods();
  for (const auto& [name, digest] : Recorded()) {
    bool found = false;
    for (const auto& m : methods) found = found || name == m.name;
    EXPECT_TRUE(found) << name << " is recorded but no longer in the registry";
  }
}

// HALFTONE_GOLDEN_PRINT=1 prints the table rows for every method, to add a new method's row.
TEST(GoldenTable, PrintOnRequest) {
  const char* print = std::getenv("HALFTONE_GOLDEN_PRINT");
  if (print == nullptr || std::string(print) != "1") GTEST_SKIP() << "set HALFTONE_GOLDEN_PRINT=1 to print the table";
  for (const auto& m : golden::Methods())
    std::printf("      {\"%s\", 0x%016llxull},\n", m.name, static_cast<unsigned long long>(Digest(m)));
}

}  // namespace
