// An auto-reset event, the one kernel object the library makes: a Win32 event on Windows, a
// mutex, condition variable and monotonic clock elsewhere. A wait that succeeds consumes the
// signal.
#pragma once

#include <cstdint>
#include <memory>

namespace halftone::platform {

enum class WaitResult { kSignalled, kTimedOut, kFailed };

// A timeout that never expires.
inline constexpr std::uint32_t kWaitForever = 0xFFFFFFFFu;

class AutoResetEvent {
 public:
  explicit AutoResetEvent(bool initially_signalled);
  ~AutoResetEvent();
  AutoResetEvent(const AutoResetEvent&) = delete;
  AutoResetEvent& operator=(const AutoResetEvent&) = delete;

  // Releases one waiter, or the next wait if none is waiting.
  void Set();
  // Waits up to `timeout_ms` milliseconds, measured on a clock that never jumps. kFailed when
  // the operating system could not make the event.
  WaitResult Wait(std::uint32_t timeout_ms);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace halftone::platform
