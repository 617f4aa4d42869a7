#include "signal/job_signals.h"

#include "frame/band.h"

namespace halftone {

using platform::AutoResetEvent;
using platform::WaitResult;

int JobSignals::Create() {
  auto ready = std::make_shared<AutoResetEvent>(true);
  auto done = std::make_shared<AutoResetEvent>(false);
  {
    std::lock_guard<std::mutex> lock(handles_);
    // An earlier pair nobody can reach any more is released here instead of kept open.
    ready_ = std::move(ready);
    done_ = std::move(done);
  }
  return kOk;
}

int JobSignals::Wait(std::uint32_t timeout_ms) {
  // One phase: waits on the event (looked up afresh each time, as it may be closed meanwhile)
  // until it comes or `limit` waits in a row have timed out; false for the latter. A missing
  // event fails at once, which ends the phase like a signal does.
  const auto in_time = [&](auto event_of, std::uint32_t limit) {
    for (std::uint32_t timeouts = 0;;) {
      const std::shared_ptr<AutoResetEvent> event = (this->*event_of)();
      if (event == nullptr || event->Wait(timeout_ms) != WaitResult::kTimedOut) return true;
      if (++timeouts == limit) return false;
    }
  };
  const bool done_in_time = in_time(&JobSignals::done, kDoneTimeouts);
  if (!in_time(&JobSignals::ready, kReadyTimeouts)) return kReadyLate;
  return done_in_time ? kInTime : kDoneLate;
}

int JobSignals::Close() {
  std::lock_guard<std::mutex> lock(handles_);
  done_.reset();
  ready_.reset();
  return kClosed;
}

std::shared_ptr<AutoResetEvent> JobSignals::ready() const {
  std::lock_guard<std::mutex> lock(handles_);
  return ready_;
}

std::shared_ptr<AutoResetEvent> JobSignals::done() const {
  std::lock_guard<std::mutex> lock(handles_);
  return done_;
}

}  // namespace halftone
