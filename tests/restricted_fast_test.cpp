// The branch-free and vector splits of the fast level-restricted and level-modulated diffusions
// against the readable rules, over every error a pixel can carry. Whole jobs are compared with
// the reference in tier_test.
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
        const halftone::ShareProduct product = serpentine_lockstep::ProductOf(rule);
        for (int e = kLowestError; e <= kHighestError; ++e)
          ASSERT_EQ(halftone::ShareByProduct(product, e), Apply(rule, e).ahead)
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
      vec::V16 e{}, flags{};
      for (unsigned k = 0; k < 8; ++k) {
        e[k] = static_cast<std::uint16_t>(std::min(e0 + static_cast<int>(k % 2), kTop));
        flags[k] = RuleFlags(rules[(r0 + k / 2) % kRules]);
      }
      const vec::V16 ahead = serpentine_lockstep::AheadByFlags<kEveryFlag, 0>(e, flags);
      for (unsigned k = 0; k < 8; ++k) {
        const ShareRule& rule = rules[(r0 + k / 2) % kRules];
        ASSERT_EQ(vec::At(ahead, k), Apply(rule, vec::At(e, k)).ahead)
            << rule.num << "/" << rule.den << (rule.to_ahead ? " ahead" : " down") << " e " << vec::At(e, k);
      }
    }
  // The same flags in ints, for the errors the vector lanes cannot hold.
  for (const ShareRule& rule : rules)
    for (int e = kLowestError; e <= kHighestError; ++e)
      ASSERT_EQ(serpentine_lockstep::AheadByFlags(e, RuleFlags(rule)), Apply(rule, e).ahead)
          << rule.num << "/" << rule.den << (rule.to_ahead ? " ahead" : " down") << " e " << e;
}
#endif

}  // namespace
}  // namespace halftone
