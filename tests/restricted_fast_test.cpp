// The fast level-restricted and level-modulated diffusions against their readable passes: the
// branch-free splits over every error a pixel can carry, and whole multi-band jobs (dots, carry
// and shared working rows after every band, the random register) on awkward sizes, plane
// counts, narrower later bands, and random or extreme curves, level values, bias matrix and
// layer table, on one thread and two.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "frame/dispatch.h"
#include "frame/engine.h"
#include "tablediffusion/integer_diffusion.h"
#include "tablediffusion/serpentine_lockstep.h"
#include "tablediffusion/serpentine_vector.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

// A pixel's error: a 16-bit row value, plus input and a curve term, minus a level.
constexpr int kLowestError = -32768 - 255;
constexpr int kHighestError = 32767 + 255 + 255;

template <ShareChoice C>
void ExpectAheadSharesMatch(const char* name) {
  for (unsigned bit = 0; bit < 2; ++bit) {
    // A copy of the rules: clang 14 crashes indexing the template argument itself at run time.
    static constexpr std::array<ShareRule, 4> kRules = C.rules;
    const ShareRule& rule = kRules[C.by == Selector::kParity ? 0 : bit];
    for (int e = kLowestError; e <= kHighestError; ++e)
      ASSERT_EQ(serpentine_lockstep::AheadShare<C>(bit, e), Apply(rule, e).ahead) << name << " bit " << bit << " e " << e;
  }
}

// The rules these members split by: halves, thirds, two thirds, quarters, three quarters, whole
// error ahead or down, chosen by a drawn bit or fixed.
constexpr ShareRule kHalfAhead{1, 2, Rounding::kTrunc, true};
constexpr ShareRule kThirdDown{1, 3, Rounding::kTrunc, false};
constexpr ShareRule kTwoThirdsAhead{2, 3, Rounding::kTrunc, true};
constexpr ShareRule kQuarterAhead{1, 4, Rounding::kTrunc, true};
constexpr ShareRule kThreeQuartersDown{3, 4, Rounding::kTrunc, false};
constexpr ShareChoice kHalves = Always(kHalfAhead);
constexpr ShareChoice kThirdsDown = Always(kThirdDown);
constexpr ShareChoice kTwoThirds = Always(kTwoThirdsAhead);
constexpr ShareChoice kWhole{Selector::kOneBit, {kAllDown, kAllAhead, kAllDown, kAllAhead}};
constexpr ShareChoice kQuartersOrThird{Selector::kOneBit, {kThreeQuartersDown, kThirdDown, kThreeQuartersDown, kThirdDown}};
constexpr ShareChoice kQuarterOrTwoThirds{Selector::kOneBit, {kQuarterAhead, kTwoThirdsAhead, kQuarterAhead, kTwoThirdsAhead}};

TEST(RestrictedFast, BranchFreeSplitsMatchTheRulesForEveryError) {
  ExpectAheadSharesMatch<kHalves>("half");
  ExpectAheadSharesMatch<kThirdsDown>("third down");
  ExpectAheadSharesMatch<kTwoThirds>("two thirds");
  ExpectAheadSharesMatch<kWhole>("whole");
  ExpectAheadSharesMatch<kQuartersOrThird>("three quarters or third down");
  ExpectAheadSharesMatch<kQuarterOrTwoThirds>("quarter or two thirds ahead");
}

TEST(RestrictedFast, MaskedSplitsMatchTheRulesForEveryError) {
  // The rules a split picked by level band and drawn value can be.
  const ShareRule rules[] = {kAllAhead, kAllDown, {1, 2, Rounding::kTrunc, true}, {1, 2, Rounding::kTrunc, false},
                             {1, 3, Rounding::kTrunc, true}, {1, 3, Rounding::kTrunc, false}};
  for (const ShareRule& rule : rules) {
    const serpentine_lockstep::AheadMasks masks = serpentine_lockstep::MasksOf(rule);
    for (int e = kLowestError; e <= kHighestError; ++e)
      ASSERT_EQ(serpentine_lockstep::AheadByMasks(masks, e), Apply(rule, e).ahead)
          << rule.num << "/" << rule.den << (rule.to_ahead ? " ahead" : " down") << " e " << e;
  }
}

TEST(RestrictedFast, ProductSplitsMatchEveryTruncatedRuleForEveryError) {
  // A drawn bit picks a multiplier (and a step) before the error is known: every fraction up
  // to quarters, either way, against the rule.
  for (int den = 1; den <= 4; ++den)
    for (int num = 0; num <= den; ++num)
      for (const bool to_ahead : {true, false}) {
        const ShareRule rule{num, den, Rounding::kTrunc, to_ahead};
        const random_split::ShareProduct product = serpentine_lockstep::ProductOf(rule);
        for (int e = kLowestError; e <= kHighestError; ++e)
          ASSERT_EQ(random_split::ShareByProduct(product, e), Apply(rule, e).ahead)
              << num << "/" << den << (to_ahead ? " ahead" : " down") << " e " << e;
      }
}

#if HALFTONE_VECTOR_ROWS
TEST(RestrictedFast, VectorRuleFlagsGiveEveryRulesShareForEvery16BitError) {
  // Lanes of one vector take different rules, each from its flags; every fraction is formed.
  using serpentine_lockstep::RuleFlags;
  constexpr std::uint16_t kEveryFlag = 0xFFFF;
  const ShareRule rules[] = {kAllAhead,      kAllDown,           kHalfAhead,   {1, 2, Rounding::kTrunc, false},
                             kThirdDown,     {1, 3, Rounding::kTrunc, true}, kTwoThirdsAhead, kQuarterAhead,
                             kThreeQuartersDown, {3, 4, Rounding::kTrunc, true}, {1, 2, Rounding::kFloor, true},
                             {3, 4, Rounding::kFloor, true}};
  constexpr std::size_t kRules = std::size(rules);
  // Errors below the vector rows' bound: a held value under the limit, plus a level and a term.
  constexpr int kTop = 32767 - 255;
  for (std::size_t r0 = 0; r0 < kRules; r0 += 4)
    for (int e0 = -32768; e0 <= kTop; e0 += 2) {
      alignas(16) std::int16_t in[8], flags[8] = {}, ahead[8];
      for (int k = 0; k < 8; ++k) {
        in[k] = static_cast<std::int16_t>(std::min(e0 + k % 2, kTop));
        flags[k] = static_cast<std::int16_t>(RuleFlags(rules[(r0 + static_cast<std::size_t>(k) / 2) % kRules]));
      }
      const __m128i e = _mm_load_si128(reinterpret_cast<const __m128i*>(in));
      const __m128i f = _mm_load_si128(reinterpret_cast<const __m128i*>(flags));
      _mm_store_si128(reinterpret_cast<__m128i*>(ahead), serpentine_lockstep::AheadByFlags<kEveryFlag, 0>(e, f));
      for (int k = 0; k < 8; ++k) {
        const ShareRule& rule = rules[(r0 + static_cast<std::size_t>(k) / 2) % kRules];
        ASSERT_EQ(ahead[k], Apply(rule, in[k]).ahead)
            << rule.num << "/" << rule.den << (rule.to_ahead ? " ahead" : " down") << " e " << in[k];
      }
    }
  // The same flags in ints, for the errors the vector lanes cannot hold.
  for (const ShareRule& rule : rules)
    for (int e = kLowestError; e <= kHighestError; ++e)
      ASSERT_EQ(serpentine_lockstep::AheadByFlags(e, RuleFlags(rule)), Apply(rule, e).ahead)
          << rule.num << "/" << rule.den << (rule.to_ahead ? " ahead" : " down") << " e " << e;
}
#endif

using Call = std::function<int(Engine&, std::uint8_t*, std::uint8_t*, std::size_t, std::size_t, HalftoneFlags)>;
struct Member {
  const char* name;
  unsigned bits;
  Call call;
};

std::vector<Member> Members() {
  std::vector<Member> m;
  const std::pair<const char*, LevelRestrictedMember> restricted[] = {
      {"matrix four-level", LevelRestrictedMember::kMatrixFourLevel},
      {"random four-level", LevelRestrictedMember::kRandomFourLevel},
      {"matrix bilevel", LevelRestrictedMember::kMatrixBilevel},
      {"random bilevel", LevelRestrictedMember::kRandomBilevel}};
  for (const auto& [name, member] : restricted) {
    const unsigned bits = member == LevelRestrictedMember::kMatrixFourLevel ||
                                  member == LevelRestrictedMember::kRandomFourLevel
                              ? 2
                              : 1;
    m.push_back({name, bits, [m_ = member](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h,
                                      HalftoneFlags f) { return LevelRestrictedDiffusion(e, m_, s, d, w, h, f); }});
  }
  for (const auto& [name, member] : {std::pair{"layer tiles", LayerModulatedMember::kLayerTiles},
                                     std::pair{"curve bias", LayerModulatedMember::kCurveBias}})
    m.push_back({name, 1, [m_ = member](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h,
                                   HalftoneFlags f) { return LayerModulatedDiffusion(e, m_, s, d, w, h, f); }});
  return m;
}

// What a job leaves behind after a band.
struct Snapshot {
  std::vector<std::uint8_t> dots;
  std::vector<std::int16_t> carry, a, b;
  std::uint32_t next_word;
  bool operator==(const Snapshot&) const = default;
};

struct BandSize {
  std::size_t w, h;
};

// Engine state drawn from `seed`: level values in order or not, curves small or full range,
// bias matrix and layer table zero, small, or anywhere in 16 bits (errors then wrap).
void LoadState(Engine& e, unsigned seed) {
  std::mt19937 gen(seed);
  for (auto& l : e.levels.L) l = static_cast<std::uint8_t>(gen());
  if (seed % 2 == 0) e.levels.L = {0, 85, 170, 255, 0, 0, 0, 0, 0};
  for (auto& slot : e.curves.slots)
    for (auto& c : slot) c = static_cast<std::uint8_t>(gen() % (seed % 3 == 0 ? 256 : 24));
  e.curves.curve_a = 3;
  e.curves.curve_b = 5;
  const unsigned tables = seed % 3;  // 0: unloaded, 1: small terms, 2: full 16-bit range
  if (tables == 0) return;
  auto term = [&] {
    return static_cast<std::int16_t>(tables == 1 ? static_cast<int>(gen() % 129) - 64 : static_cast<int>(gen() & 0xFFFF) - 32768);
  };
  for (auto& row : e.tables.bias)
    for (auto& c : row) c = term();
  for (auto& tile : e.tables.layers)
    for (auto& row : tile)
      for (auto& c : row) c = term();
}

std::vector<Snapshot> RunJob(const Member& m, bool fast, int threads, const std::vector<BandSize>& bands,
                             unsigned planes, unsigned seed) {
  SetForceScalar(fast ? 0 : 1);
  auto e = MakeEngine(1000 + seed);
  e->threads.SetCount(threads);
  LoadState(*e, seed);
  std::mt19937 gen(seed * 7 + 1);
  std::vector<Snapshot> out;
  for (std::size_t i = 0; i < bands.size(); ++i) {
    const auto [w, h] = bands[i];
    auto src = MakeBand(w, h, planes, [&](std::size_t, std::size_t, unsigned) {
      const unsigned k = gen() % 8;
      return k == 0 ? 0u : k == 1 ? 255u : gen() & 0xFF;
    });
    std::vector<std::uint8_t> dst(DotStride(w, m.bits) * planes * h + 4, kCanary);
    const unsigned phase = i == 0 ? 1 : (i + 1 == bands.size() ? 3 : 0);
    EXPECT_EQ(m.call(*e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}), 0);
    Snapshot s;
    s.dots = std::move(dst);
    if (e->rows.live()) {
      s.carry.assign(e->rows.carry_all(), e->rows.carry_all() + e->rows.width() * planes);
      s.a.assign(e->rows.a(), e->rows.a() + e->rows.width());
      s.b.assign(e->rows.b(), e->rows.b() + e->rows.width());
    }
    s.next_word = e->random.NextStateWord();
    out.push_back(s);
  }
  SetForceScalar(-1);
  return out;
}

void ExpectJobsMatch(const std::vector<BandSize>& bands, unsigned planes, unsigned seed, const std::string& what) {
  const auto members = Members();
  for (std::size_t k = 0; k < members.size(); ++k) {
    const unsigned s = seed + 1000 * static_cast<unsigned>(k);
    const auto ref = RunJob(members[k], false, 1, bands, planes, s);
    for (int threads : {1, 2}) {
      const auto fast = RunJob(members[k], true, threads, bands, planes, s);
      ASSERT_EQ(ref.size(), fast.size());
      for (std::size_t i = 0; i < ref.size(); ++i) {
        ASSERT_EQ(ref[i].dots, fast[i].dots) << members[k].name << " " << what << " threads " << threads << " band " << i;
        ASSERT_TRUE(ref[i] == fast[i]) << members[k].name << " rows or draws, " << what << " threads " << threads
                                       << " band " << i;
      }
    }
  }
}

TEST(RestrictedFast, WholeJobsMatchTheReferenceOnAwkwardSizes) {
  unsigned seed = 0;
  for (const std::size_t w : {1u, 2u, 3u, 7u, 8u, 9u, 17u, 64u, 241u})
    for (const unsigned planes : {1u, 2u, 3u, 4u, 5u, 9u}) {
      ++seed;
      // Odd and even heights, a one-row band and a narrower band in the middle of the job.
      const std::vector<BandSize> bands = {{w, seed % 2 ? 3u : 4u}, {w, 1}, {w, 2}, {w > 1 ? w - 1 : 1, 5}, {w, 6}};
      ExpectJobsMatch(bands, planes, seed, "w " + std::to_string(w) + " planes " + std::to_string(planes));
    }
}

TEST(RestrictedFast, WideBandsAcrossMatrixTilesMatchTheReference) {
  // Widths and heights past the 240 and 256 periods of the bias matrix and the 16-row tiles.
  unsigned seed = 500;
  for (const std::size_t w : {255u, 257u, 481u}) {
    ++seed;
    ExpectJobsMatch({{w, 17}, {w, 260}, {w, 0}, {w, 33}}, 1, seed, "w " + std::to_string(w) + " one plane");
  }
  for (const std::size_t w : {256u, 523u}) {
    ++seed;
    ExpectJobsMatch({{w, 17}, {w, 0}, {w, 34}}, 4, seed, "w " + std::to_string(w) + " four planes");
  }
}

TEST(RestrictedFast, ColumnsAroundByteEdgesAndGroupSizesMatchTheReference) {
  // Widths on either side of whole bytes of dots and of 16-column steps, for full four-lane
  // groups, a narrower last group and (two threads) two-lane groups.
  unsigned seed = 700;
  for (const std::size_t w : {4u, 5u, 15u, 16u, 31u, 32u, 33u, 47u, 49u, 63u})
    for (const unsigned planes : {4u, 7u, 8u}) {
      ++seed;
      ExpectJobsMatch({{w, 3}, {w, 2}, {w, 5}}, planes, seed, "w " + std::to_string(w) + " planes " + std::to_string(planes));
    }
}

TEST(RestrictedFast, EveryNarrowWidthOverTallBandsMatchesTheReference) {
  // Every width up to three bytes of two-bit dots: each split of a row into a partial top byte,
  // whole bytes and the row end, in both scan directions. Bands of 7 and 8 rows keep many rows
  // whose scanned values the next row overwrites before the last two rows, which leave theirs.
  unsigned seed = 800;
  for (std::size_t w = 1; w <= 24; ++w)
    for (const unsigned planes : {1u, 2u, 4u}) {
      ++seed;
      ExpectJobsMatch({{w, 7}, {w, 8}, {w, 1}}, planes, seed, "w " + std::to_string(w) + " planes " + std::to_string(planes));
    }
}

TEST(RestrictedFast, RowsLongerThanADrawChunkMatchTheReference) {
  // A row whose draws span two chunks of the drawn stream, forward and backward.
  const std::size_t w = RandomBitSource::kFieldChunk + 37;
  ExpectJobsMatch({{w, 3}, {w, 2}}, 2, 900, "w " + std::to_string(w));
}

TEST(RestrictedFast, ErrorsDrivenToTheTopOf16BitsMatchTheReference) {
  // White input and every curve at 255: each curve column adds 255 of error that no dot takes
  // out, so the carried values climb to the top of 16 bits and wrap.
  const auto members = Members();
  for (std::size_t k = 0; k < members.size(); ++k) {
    std::vector<Snapshot> runs[2];
    int highest = 0;
    for (const bool fast : {false, true}) {
      SetForceScalar(fast ? 0 : 1);
      auto e = MakeEngine(31);
      LoadState(*e, 4);
      for (auto& slot : e->curves.slots) slot.fill(255);
      const std::size_t w = 40, h = 16;
      const unsigned planes = 4, bands = 24;
      for (unsigned i = 0; i < bands; ++i) {
        auto src = MakeBand(w, h, planes, [](std::size_t, std::size_t, unsigned) { return 255u; });
        std::vector<std::uint8_t> dst(DotStride(w, members[k].bits) * planes * h, kCanary);
        const unsigned phase = i == 0 ? 1 : (i + 1 == bands ? 3 : 0);
        ASSERT_EQ(members[k].call(*e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}), 0);
        Snapshot s{dst, {}, {}, {}, e->random.NextStateWord()};
        if (e->rows.live()) {
          s.carry.assign(e->rows.carry_all(), e->rows.carry_all() + w * planes);
          s.a.assign(e->rows.a(), e->rows.a() + w);
          s.b.assign(e->rows.b(), e->rows.b() + w);
          for (const auto* row : {&s.carry, &s.a, &s.b})
            for (const std::int16_t c : *row) highest = std::max(highest, static_cast<int>(c));
        }
        runs[fast].push_back(s);
      }
    }
    SetForceScalar(-1);
    ASSERT_EQ(runs[0].size(), runs[1].size());
    for (std::size_t i = 0; i < runs[0].size(); ++i)
      ASSERT_TRUE(runs[0][i] == runs[1][i]) << members[k].name << " band " << i;
    if (members[k].name == std::string("curve bias") || members[k].name == std::string("random bilevel")) {
      EXPECT_GT(highest, 30000) << "the errors must come near the wrap";
    }
  }
}

TEST(RestrictedFast, ExtremeInputsMatchTheReference) {
  // Flat 0 and 255 (full error, the top level's split) and alternating extremes.
  const auto members = Members();
  for (const unsigned level : {0u, 255u, 256u})
    for (std::size_t k = 0; k < members.size(); ++k) {
      std::vector<std::uint8_t> ref_dots, fast_dots;
      for (const bool fast : {false, true}) {
        SetForceScalar(fast ? 0 : 1);
        auto e = MakeEngine(77);
        LoadState(*e, 2 + static_cast<unsigned>(k));
        const std::size_t w = 77, h = 9;
        const unsigned planes = 3;
        auto src = MakeBand(w, h, planes, [&](std::size_t x, std::size_t y, unsigned) {
          return level == 256 ? ((x + y) % 2 ? 255u : 0u) : level;
        });
        std::vector<std::uint8_t> dst(DotStride(w, members[k].bits) * planes * h, kCanary);
        ASSERT_EQ(members[k].call(*e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, 1)}), 0);
        (fast ? fast_dots : ref_dots) = std::move(dst);
      }
      SetForceScalar(-1);
      EXPECT_EQ(ref_dots, fast_dots) << members[k].name << " level " << level;
    }
}

}  // namespace
}  // namespace halftone
