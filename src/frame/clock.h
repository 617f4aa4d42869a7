// The seconds clock that seeds the random sources, with a fixed-time override.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

namespace halftone {

class SeedClock {
 public:
  // A negative value returns to the calendar clock.
  void SetFixed(long long seconds) { fixed_.store(seconds, std::memory_order_relaxed); }
  // Seconds as the seeding routines take them: the calendar time truncated to 32 bits.
  std::uint32_t Seconds() const {
    const long long f = fixed_.load(std::memory_order_relaxed);
    const long long s = f >= 0 ? f : static_cast<long long>(std::time(nullptr));
    return static_cast<std::uint32_t>(s);
  }

 private:
  // Atomic: the rotated routines read it on any host thread, beside the call that sets it.
  std::atomic<long long> fixed_{-1};
};

}  // namespace halftone
