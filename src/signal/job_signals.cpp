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
  timeouts_ = 0;
  return kOk;
}

int JobSignals::Wait(std::uint32_t timeout_ms) {
  // Whether one wait on the event (looked up afresh, as it may be closed meanwhile) timed out.
  // A missing event fails at once, which ends the phase like a signal does.
  auto timed_out = [timeout_ms](const std::shared_ptr<AutoResetEvent>& event) {
    return event != nullptr && event->Wait(timeout_ms) == WaitResult::kTimedOut;
  };

  int result = kInTime;
  timeouts_ = 0;
  while (timed_out(done())) {
    if (++timeouts_ == kDoneTimeouts) {
      result = kDoneLate;
      break;
    }
  }
  timeouts_ = 0;
  while (timed_out(ready())) {
    if (++timeouts_ == kReadyTimeouts) return kReadyLate;
  }
  return result;
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
