// The C runtime's rand() as print hosts on Windows know it, implemented here so that the dots
// of the lookup-table diffusion routines are the same on every platform and C library.
#pragma once

#include <cstdint>

namespace halftone {

// Linear congruential generator: state = state * 214013 + 2531011 (mod 2^32), each draw
// returns bits 16-30 of the new state (0 .. 32767). A fresh generator starts at state 1, as
// rand() does before any srand().
class CrtRand {
 public:
  static constexpr std::uint32_t kMultiplier = 214013u;
  static constexpr std::uint32_t kIncrement = 2531011u;
  static constexpr int kResultShift = 16;
  static constexpr std::uint32_t kResultMask = 0x7FFFu;
  static constexpr std::uint32_t kInitialState = 1u;

  void Seed(std::uint32_t seed) { state_ = seed; }

  unsigned Next() {
    state_ = state_ * kMultiplier + kIncrement;
    return (state_ >> kResultShift) & kResultMask;
  }

 private:
  std::uint32_t state_ = kInitialState;
};

// The generator of the calling thread: like rand(), each thread has its own state, so two
// printing threads never disturb each other's sequence.
CrtRand& ThreadCrtRand();

}  // namespace halftone
