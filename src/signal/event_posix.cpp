#include <chrono>
#include <condition_variable>
#include <mutex>

#include "signal/event.h"

namespace halftone::platform {

struct AutoResetEvent::Impl {
  std::mutex mutex;
  std::condition_variable changed;
  bool signalled = false;
};

AutoResetEvent::AutoResetEvent(bool initially_signalled) : impl_(std::make_unique<Impl>()) {
  impl_->signalled = initially_signalled;
}

AutoResetEvent::~AutoResetEvent() = default;

void AutoResetEvent::Set() {
  {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->signalled = true;
  }
  impl_->changed.notify_one();
}

WaitResult AutoResetEvent::Wait(std::uint32_t timeout_ms) {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  auto is_signalled = [this] { return impl_->signalled; };
  if (timeout_ms == kWaitForever) {
    impl_->changed.wait(lock, is_signalled);
  } else {
    // steady_clock: a wall-clock change must not stretch or cut short a host's wait.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    if (!impl_->changed.wait_until(lock, deadline, is_signalled)) return WaitResult::kTimedOut;
  }
  impl_->signalled = false;  // auto-reset: this wait takes the signal
  return WaitResult::kSignalled;
}

}  // namespace halftone::platform
