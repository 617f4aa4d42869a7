// The pair of job events a print host paces its threads with: "ready" starts signalled,
// "done" does not, both auto-reset. The library only creates, waits on and closes them.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "signal/event.h"

namespace halftone {

class JobSignals {
 public:
  // Timeouts a wait sits through on each event before giving up on it.
  static constexpr std::uint32_t kDoneTimeouts = 50;
  static constexpr std::uint32_t kReadyTimeouts = 30;

  // Results of Wait.
  static constexpr int kInTime = 0;     // done in time (or not waitable), ready in time
  static constexpr int kDoneLate = 1;   // done missed every timeout, ready came
  static constexpr int kReadyLate = 2;  // ready missed every timeout
  static constexpr int kClosed = 1;     // result of Close

  // Makes both events (replacing any earlier pair); returns 0.
  int Create();
  // Waits on "done" for up to kDoneTimeouts timeouts of `timeout_ms`, then on "ready" for up
  // to kReadyTimeouts. An event that was never made or is closed ends its wait at once.
  int Wait(std::uint32_t timeout_ms);
  // Closes both events; harmless when they are already closed. Returns 1.
  int Close();

  // The events, for whatever signals them on the host's side; null when not made or closed.
  std::shared_ptr<platform::AutoResetEvent> ready() const;
  std::shared_ptr<platform::AutoResetEvent> done() const;

 private:
  // Only the handles are guarded, never a wait: a waiter keeps its event alive through its
  // own reference, so closing from another thread cannot pull it away mid-wait.
  mutable std::mutex handles_;
  std::shared_ptr<platform::AutoResetEvent> ready_;
  std::shared_ptr<platform::AutoResetEvent> done_;
};

}  // namespace halftone
