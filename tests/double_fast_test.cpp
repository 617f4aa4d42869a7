// The double-precision family's fast pass divides its two-thirds share once, by 1.5.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace halftone {
namespace {

// The two-thirds share divides once by 1.5 where the readable pass doubles and divides by 3:
// the same double for every error, from subnormal to huge, of either sign.
TEST(DoubleFast, TwoThirdsAsOneDivisionIsTheSameDouble) {
  std::mt19937_64 gen(11);
  volatile double two = 2.0, three = 3.0, one_and_a_half = 1.5;  // no folding at compile time
  for (int i = 0; i < 2000000; ++i) {
    // Random bit patterns, every exponent short of where doubling overflows, and errors of
    // the size a diffusion carries.
    double e = std::bit_cast<double>(gen());
    if (i % 3 == 0) e = static_cast<double>(static_cast<std::int64_t>(gen() % 2000001) - 1000000) / 3.0;
    if (!std::isfinite(e) || std::fabs(e) >= std::numeric_limits<double>::max() / 2) continue;
    const std::uint64_t once = std::bit_cast<std::uint64_t>(e / one_and_a_half);
    ASSERT_EQ(std::bit_cast<std::uint64_t>((e * two) / three), once) << e;
    ASSERT_EQ(std::bit_cast<std::uint64_t>((e + e) / three), once) << e;
  }
}

}  // namespace
}  // namespace halftone
