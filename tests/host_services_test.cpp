// The library as a host process meets it: the diagnostic log (default path, start line and line
// formats, silent failures), job signalling (the bounded wait's results, how long it waits, with
// lower bounds exact and upper bounds loose enough for a loaded machine, and the event
// underneath), and two host threads calling the exports at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "halftone/halftone.h"
#include "log/diagnostic_log.h"
#include "signal/event.h"
#include "signal/job_signals.h"
#include "test_support.h"

namespace halftone {
namespace {

using halftone_test::kCanary;

class LogTest : public ::testing::Test {
 protected:
  std::string Contents() const {
    std::ifstream f(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
  }
  halftone_test::TempFolder dir_;
  std::string path_ = (dir_.path() / "host.txt").string();
};

const std::string kStartLine = "\t\xC8\xD5\xD6\xBE\xC6\xF4\xB6\xAF\xB3\xC9\xB9\xA6\xA3\xA1\r\n\r\n";

TEST(LogPath, ExtensionReplacedByTxt) {
  EXPECT_EQ(DefaultLogPath("C:\\Print\\host.exe"), "C:\\Print\\host.txt");
  EXPECT_EQ(DefaultLogPath("/opt/print/host"), "/opt/print/hosttxt");  // no dot: appended
  EXPECT_EQ(DefaultLogPath("/opt/print.d/host"), "/opt/print.txt");     // the last dot anywhere
  EXPECT_EQ(DefaultLogPath(""), "txt");
}

TEST_F(LogTest, StartLineIsTheGbkMessageAndTruncates) {
  {
    std::ofstream old(path_, std::ios::binary);
    old << "left over from an earlier run";
  }
  DiagnosticLog log;
  EXPECT_EQ(log.Open(path_.c_str()), 1);
  EXPECT_TRUE(log.enabled());
  EXPECT_EQ(Contents(), kStartLine);
}

TEST_F(LogTest, LineFormats) {
  DiagnosticLog log;
  ASSERT_EQ(log.Open(path_.c_str()), 1);
  EXPECT_EQ(log.Text("band 3"), 1);
  EXPECT_EQ(log.Text(""), 1);
  EXPECT_EQ(Contents(), kStartLine +
                            "\tband 3\r\n"
                            "\r\n");
}

TEST_F(LogTest, LongTextIsCutButKeepsItsLineEnd) {
  DiagnosticLog log;
  ASSERT_EQ(log.Open(path_.c_str()), 1);
  ASSERT_EQ(log.Text(std::string(1000, 'x').c_str()), 1);
  const std::string line = Contents().substr(kStartLine.size());
  EXPECT_EQ(line.size(), kLogBufferSize - 1);
  EXPECT_EQ(line.substr(line.size() - 2), "\r\n");
  EXPECT_EQ(line[0], '\t');
}

TEST_F(LogTest, NeverOpenedLogWritesNothing) {
  DiagnosticLog log;
  EXPECT_TRUE(log.enabled());
  EXPECT_EQ(log.Text("lost"), 0);  // the empty path cannot be opened
}

TEST_F(LogTest, FailedOpenDisablesTheLog) {
  DiagnosticLog log;
  const std::string missing = (dir_.path() / "no such folder" / "log.txt").string();
  EXPECT_EQ(log.Open(missing.c_str()), 0);
  EXPECT_FALSE(log.enabled());
  EXPECT_EQ(log.Text("lost"), 0);
  EXPECT_FALSE(std::filesystem::exists(missing));
}

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Slack allowed above the expected wait before we call it a hang.
constexpr milliseconds kSlack{1500};

template <class F>
milliseconds Timed(F&& f) {
  const auto start = Clock::now();
  f();
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

TEST(AutoResetEvent, ASuccessfulWaitConsumesTheSignal) {
  platform::AutoResetEvent initially_set(true);
  EXPECT_EQ(initially_set.Wait(0), platform::WaitResult::kSignalled);
  EXPECT_EQ(initially_set.Wait(0), platform::WaitResult::kTimedOut);

  platform::AutoResetEvent e(false);
  e.Set();
  e.Set();  // not a counter: two sets release one wait
  EXPECT_EQ(e.Wait(0), platform::WaitResult::kSignalled);
  EXPECT_EQ(e.Wait(0), platform::WaitResult::kTimedOut);
}

TEST(AutoResetEvent, TimeoutIsNeverShortAndASetWakesAWaiter) {
  platform::AutoResetEvent e(false);
  platform::WaitResult r{};
  const auto waited = Timed([&] { r = e.Wait(30); });
  EXPECT_EQ(r, platform::WaitResult::kTimedOut);
  EXPECT_GE(waited, milliseconds(30));

  std::thread setter([&] {
    std::this_thread::sleep_for(milliseconds(20));
    e.Set();
  });
  const auto woken = Timed([&] { r = e.Wait(10000); });
  setter.join();
  EXPECT_EQ(r, platform::WaitResult::kSignalled);
  EXPECT_GE(woken, milliseconds(15));
  EXPECT_LT(woken, milliseconds(20) + kSlack);
}

TEST(JobSignals, FirstWaitFindsReadyOnlySecondFindsNeither) {
  JobSignals s;
  ASSERT_EQ(s.Create(), 0);
  int result = -1;
  // done never comes: 50 timeouts of 2 ms, then ready is found in its initial state.
  auto first = Timed([&] { result = s.Wait(2); });
  EXPECT_EQ(result, 1);
  EXPECT_GE(first, milliseconds(50 * 2));
  EXPECT_LT(first, milliseconds(50 * 2) + kSlack);
  // ready was used up: 50 then 30 timeouts.
  auto second = Timed([&] { result = s.Wait(2); });
  EXPECT_EQ(result, 2);
  EXPECT_GE(second, milliseconds(80 * 2));
  EXPECT_LT(second, milliseconds(80 * 2) + kSlack);
}

TEST(JobSignals, SignalledEventsEndTheWaitEarly) {
  JobSignals s;
  s.Create();
  // done set from another thread while waiting with a long timeout; ready is still in its
  // initial signalled state, so the result is 0 well before one timeout has passed.
  std::thread host([&] {
    std::this_thread::sleep_for(milliseconds(20));
    s.done()->Set();
  });
  int result = -1;
  const auto waited = Timed([&] { result = s.Wait(5000); });
  host.join();
  EXPECT_EQ(result, 0);
  EXPECT_LT(waited, milliseconds(5000));
  // done came, ready did not: 30 timeouts on ready give 2 regardless.
  s.done()->Set();
  EXPECT_EQ(s.Wait(1), 2);
}

TEST(JobSignals, ClosedOrNeverMadeEventsReturnAtOnce) {
  JobSignals never;
  int result = -1;
  EXPECT_LT(Timed([&] { result = never.Wait(1000); }), milliseconds(1000));
  EXPECT_EQ(result, 0);

  JobSignals s;
  s.Create();
  EXPECT_EQ(s.Close(), 1);
  EXPECT_EQ(s.Close(), 1);
  EXPECT_EQ(s.done(), nullptr);
  EXPECT_LT(Timed([&] { result = s.Wait(1000); }), milliseconds(1000));
  EXPECT_EQ(result, 0);

  // Made again after closing: a fresh pair, ready signalled once more.
  s.Create();
  EXPECT_EQ(s.Wait(1), 1);
}

TEST(JobSignals, ExportsFollowTheSameSequence) {
  EXPECT_EQ(khjhusecx(), 0);
  EXPECT_EQ(sinxcdke34i(1), 1);
  EXPECT_EQ(sinxcdke34i(1), 2);
  EXPECT_EQ(giwncwcg7w(), 1);
  EXPECT_EQ(giwncwcg7w(), 1);
  int result = -1;
  EXPECT_LT(Timed([&] { result = sinxcdke34i(2000); }), milliseconds(2000));
  EXPECT_EQ(result, 0);
}

// Two host threads calling the library at once, through the exported names. The library is one
// job on one thread at a time: a call that finds another inside is refused with 20402 and
// touches nothing, and every call let in gives exactly the dots it gives alone.

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
}  // namespace halftone
