// Two host threads calling the library at once, through the exported names. The library is one
// job on one thread at a time: a call that finds another inside is refused with 20402 and
// touches nothing, and every call let in gives exactly the dots it gives alone.
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "halftone/halftone.h"
#include "test_support.h"

namespace {

using halftone_test::kCanary;

struct BandCall {
  int (*fn)(unsigned char*, unsigned char*, int, int, unsigned);
  int w, h, planes, bits;
  std::vector<std::uint8_t> src;

  std::size_t dst_size() const { return static_cast<std::size_t>((w * bits + 31) / 32 * 4 * planes * h); }
  // One whole job in one band: phase 1 makes and zeroes the rows, the pinned clock seeds.
  int Run(std::vector<std::uint8_t>& dst) {
    dst.assign(dst_size(), kCanary);
    return fn(src.data(), dst.data(), w, h, HALFTONE_FLAGS(planes, HALFTONE_PHASE_START));
  }
};

BandCall MakeCall(int (*fn)(unsigned char*, unsigned char*, int, int, unsigned), int w, int h, int planes, int bits) {
  BandCall c{fn, w, h, planes, bits, {}};
  const int stride = (w * 8 + 31) / 32 * 4;
  c.src.resize(static_cast<std::size_t>(stride * planes * h));
  for (std::size_t i = 0; i < c.src.size(); ++i) c.src[i] = static_cast<std::uint8_t>((i * 37 + i / 7) & 0xFF);
  return c;
}

// What a thread saw: calls let in, calls refused, and the first fault found.
struct Tally {
  int done = 0, refused = 0;
  std::string fault;
  void Check(int rc, const std::vector<std::uint8_t>& dst, const std::vector<std::uint8_t>& want) {
    if (rc == 0) {
      ++done;
      if (dst != want && fault.empty()) fault = "dots differ from the single-threaded call";
    } else if (rc == HALFTONE_ERR_BUSY) {
      ++refused;
      for (std::uint8_t b : dst)
        if (b != kCanary && fault.empty()) fault = "a refused call wrote into its band";
    } else if (fault.empty()) {
      fault = "unexpected return code " + std::to_string(rc);
    }
  }
};

class HostThreads : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(halftone_set_host_folder(folder_.with_separator().c_str()), 0);
    halftone_set_fixed_time(1700000000);
    ASSERT_EQ(Itsdiufiavs(2, "0,85,170,255,"), 0);
  }
  void TearDown() override {
    halftone_set_fixed_time(-1);
    halftone_set_threads(1);
    halftone_set_host_folder(nullptr);
  }
  halftone_test::TempFolder folder_;
};

// The case that used to crash: one thread halftones wide four-plane bands while a second
// starts small jobs of another method and changes the set-up, which would free and remake the
// error rows under the first.
TEST_F(HostThreads, EveryCallIsExactOrRefusedUntouched) {
  BandCall wide = MakeCall(&RoundFaxest, 1024, 48, 4, 2);
  BandCall small = MakeCall(&sdiufiavs, 96, 8, 1, 1);
  std::vector<std::uint8_t> want_wide, want_small;
  ASSERT_EQ(wide.Run(want_wide), 0);
  ASSERT_EQ(small.Run(want_small), 0);

  std::atomic<bool> wide_running{true};
  Tally a, b, setup;
  std::thread first([&] {
    std::vector<std::uint8_t> dst;
    // Until twenty calls got in (a bound keeps a starved thread from hanging the test).
    for (long tries = 0; a.done < 20 && tries < 10'000'000; ++tries) a.Check(wide.Run(dst), dst, want_wide);
    wide_running = false;
  });
  std::thread second([&] {
    std::vector<std::uint8_t> dst;
    const std::vector<std::uint8_t> none;
    for (int i = 0; wide_running || b.done < 3; ++i) {
      b.Check(small.Run(dst), dst, want_small);
      // Set-up calls with the values already in force: let in or refused, never in between.
      const int rc = i % 3 == 0 ? Itsdiufiavs(2, "0,85,170,255,")
                     : i % 3 == 1 ? SincesKai()
                                  : (halftone_set_threads(1 + i % 2) == HALFTONE_ERR_BUSY ? HALFTONE_ERR_BUSY : 0);
      setup.Check(rc, none, none);
    }
  });
  first.join();
  second.join();
  EXPECT_EQ(a.fault, "");
  EXPECT_EQ(b.fault, "");
  EXPECT_EQ(setup.fault, "");
  EXPECT_EQ(a.done, 20);
  EXPECT_GE(b.done, 3);
  // Once both threads have let go, the library takes calls again.
  std::vector<std::uint8_t> dst;
  EXPECT_EQ(wide.Run(dst), 0);
  EXPECT_EQ(dst, want_wide);
}

// The rotated and four-way routines keep no process-wide state: they run beside a band and
// are never refused.
TEST_F(HostThreads, LookupRoutinesRunBesideABand) {
  BandCall wide = MakeCall(&RoundFaxest, 1024, 48, 4, 2);
  std::vector<std::uint8_t> want_wide;
  ASSERT_EQ(wide.Run(want_wide), 0);
  const int w = 64, h = 32;
  std::vector<std::uint8_t> plane(static_cast<std::size_t>((w * 8 + 31) / 32 * 4 * h));
  for (std::size_t i = 0; i < plane.size(); ++i) plane[i] = static_cast<std::uint8_t>(i * 11);
  std::vector<int> lookup(256);
  for (int v = 0; v < 256; ++v) lookup[static_cast<std::size_t>(v)] = v;
  const std::size_t out_size = static_cast<std::size_t>((w + 31) / 32 * 4 * h);
  auto four_way = [&](std::vector<std::uint8_t>& out) {
    out.assign(out_size, kCanary);
    return kajdjigc23kdh(plane.data(), out.data(), w, h, lookup.data(), nullptr);
  };
  std::vector<std::uint8_t> want_four_way;
  ASSERT_EQ(four_way(want_four_way), 0);

  std::atomic<bool> wide_running{true};
  Tally a, b;
  std::thread first([&] {
    std::vector<std::uint8_t> dst;
    for (int i = 0; i < 30; ++i) a.Check(wide.Run(dst), dst, want_wide);
    wide_running = false;
  });
  std::thread second([&] {
    std::vector<std::uint8_t> out;
    while (wide_running) b.Check(four_way(out), out, want_four_way);
  });
  first.join();
  second.join();
  EXPECT_EQ(a.fault, "");
  EXPECT_EQ(b.fault, "");
  EXPECT_EQ(a.refused, 0);
  EXPECT_EQ(b.refused, 0);
}

}  // namespace
