#include <windows.h>

#include "signal/event.h"

namespace halftone::platform {

struct AutoResetEvent::Impl {
  HANDLE handle = nullptr;
};

AutoResetEvent::AutoResetEvent(bool initially_signalled) : impl_(std::make_unique<Impl>()) {
  // Unnamed, default security, auto-reset.
  impl_->handle = ::CreateEventA(nullptr, FALSE, initially_signalled ? TRUE : FALSE, nullptr);
}

AutoResetEvent::~AutoResetEvent() {
  if (impl_->handle != nullptr) ::CloseHandle(impl_->handle);
}

void AutoResetEvent::Set() {
  if (impl_->handle != nullptr) ::SetEvent(impl_->handle);
}

WaitResult AutoResetEvent::Wait(std::uint32_t timeout_ms) {
  if (impl_->handle == nullptr) return WaitResult::kFailed;
  switch (::WaitForSingleObject(impl_->handle, timeout_ms == kWaitForever ? INFINITE : timeout_ms)) {
    case WAIT_OBJECT_0:
      return WaitResult::kSignalled;
    case WAIT_TIMEOUT:
      return WaitResult::kTimedOut;
    default:
      return WaitResult::kFailed;
  }
}

}  // namespace halftone::platform
