// Job signalling: the results of the bounded wait, how long it waits (short timeouts, lower
// bounds exact, upper bounds loose enough for a loaded machine), and the event underneath.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "halftone/halftone.h"
#include "signal/event.h"
#include "signal/job_signals.h"

namespace halftone {
namespace {

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

}  // namespace
}  // namespace halftone
