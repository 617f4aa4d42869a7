// The seconds clock that seeds the random sources, with a fixed-time override.
#pragma once

#include <cstdint>
#include <ctime>

namespace halftone {

class SeedClock {
 public:
  // A negative value returns to the calendar clock.
  void SetFixed(long long seconds) { fixed_ = seconds; }
  bool fixed() const { return fixed_ >= 0; }
  // Seconds as the seeding routines take them: the calendar time truncated to 32 bits.
  std::uint32_t Seconds() const {
    long long s = fixed_ >= 0 ? fixed_ : static_cast<long long>(std::time(nullptr));
    return static_cast<std::uint32_t>(s);
  }

 private:
  long long fixed_ = -1;
};

}  // namespace halftone
