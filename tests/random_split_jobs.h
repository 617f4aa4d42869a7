// The random-split family as test subjects: every routine behind one call, and a job of several
// bands run through the reference passes or the fast paths, reduced after every band to what
// the job leaves behind (dots, carry entries, both shared working rows, the next random word).
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "diffusion/four_level.h"
#include "diffusion/random_split.h"
#include "frame/dispatch.h"
#include "frame/engine.h"
#include "test_support.h"

namespace halftone_test {

using DiffuseCall = std::function<int(halftone::Engine&, std::uint8_t*, std::uint8_t*, std::size_t, std::size_t,
                                      halftone::HalftoneFlags)>;
struct DiffuseRoutine {
  const char* name;
  unsigned bits;
  DiffuseCall call;
};

// The spine and every grouped, bilevel and eight-level routine.
inline std::vector<DiffuseRoutine> RandomSplitRoutines() {
  using namespace halftone;
  std::vector<DiffuseRoutine> r;
  r.push_back({"spine", 2, [](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h,
                              HalftoneFlags f) { return SerpentineFourLevel(e, s, d, w, h, f); }});
  for (GroupedMethod m : {GroupedMethod::kLevelValues, GroupedMethod::kFixedLevels, GroupedMethod::kSmallDotOnly,
                          GroupedMethod::kMediumDotOnly, GroupedMethod::kLargeDotOnly})
    r.push_back({"grouped", 2, [m](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h,
                                   HalftoneFlags f) { return GroupedFourLevel(e, s, d, w, h, f, m); }});
  for (BilevelMethod m : {BilevelMethod::kLightnessThirdsCurves, BilevelMethod::kLightnessOneBitJobSeed,
                          BilevelMethod::kInkThirdsFullGuard, BilevelMethod::kInkQuarters,
                          BilevelMethod::kLightnessWholeError, BilevelMethod::kInkWholeError})
    r.push_back({"bilevel", 1, [m](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h,
                                   HalftoneFlags f) { return BilevelRandomSplit(e, s, d, w, h, f, m); }});
  for (EightLevelMethod m : {EightLevelMethod::kLevelValues, EightLevelMethod::kFixedLevels})
    r.push_back({"eight", 4, [m](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h,
                                 HalftoneFlags f) { return EightLevel(e, s, d, w, h, f, m); }});
  return r;
}

struct BandSnapshot {
  std::vector<std::uint8_t> dots;
  std::vector<std::int16_t> carry, a, b;
  std::uint32_t next_word = 0;
  bool operator==(const BandSnapshot&) const = default;
};

// How a job's engine and samples are made: the engine's clock seed (plus the job's seed), what
// level values and curves it gets (from the job's generator and seed), and how often a sample
// is an extreme (0 or 255 each with chance 1 in `extremes_one_in`, noise otherwise).
struct JobStyle {
  unsigned clock_base;
  void (*prepare)(halftone::Engine&, std::mt19937&, unsigned seed);
  unsigned extremes_one_in;
};

// Bands of heights hs, the first starting the job and the last ending it, all w wide with
// `planes` planes, on the reference passes or the fast paths on `threads` threads.
inline std::vector<BandSnapshot> RunRandomSplitJob(const DiffuseCall& call, unsigned bits, const JobStyle& style,
                                                   bool fast, int threads, std::size_t w,
                                                   const std::vector<std::size_t>& hs, unsigned planes, unsigned seed) {
  halftone::SetForceScalar(fast ? 0 : 1);
  auto e = MakeEngine(style.clock_base + seed);
  e->threads.SetCount(threads);
  std::mt19937 gen(seed);
  style.prepare(*e, gen, seed);
  std::vector<BandSnapshot> out;
  for (std::size_t i = 0; i < hs.size(); ++i) {
    const std::size_t h = hs[i];
    auto src = MakeBand(w, h, planes, [&](std::size_t, std::size_t, unsigned) {
      const unsigned k = gen() % style.extremes_one_in;
      return k == 0 ? 0u : k == 1 ? 255u : gen() & 0xFF;
    });
    std::vector<std::uint8_t> dst(DotStride(w, bits) * planes * h + 4, kCanary);
    const unsigned phase = i == 0 ? 1 : (i + 1 == hs.size() ? 3 : 0);
    EXPECT_EQ(call(*e, src.data(), dst.data(), w, h, halftone::HalftoneFlags{Flags(planes, phase)}), 0);
    BandSnapshot s;
    s.dots = dst;
    if (e->rows.live()) {
      s.carry.assign(e->rows.carry_all(), e->rows.carry_all() + w * planes);
      s.a.assign(e->rows.a(), e->rows.a() + w);
      s.b.assign(e->rows.b(), e->rows.b() + w);
    }
    s.next_word = e->random.NextStateWord();
    out.push_back(s);
  }
  halftone::SetForceScalar(-1);
  return out;
}

}  // namespace halftone_test
