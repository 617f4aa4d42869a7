#include "frame/plane_threads.h"

#include <algorithm>

namespace halftone {

void PlaneThreads::SetCount(int n) {
  n = std::clamp(n, 1, kMaxThreads);
  if (n == count()) return;
  Stop();
  stopping_ = false;
  // Each helper starts from the current generation, so it takes part in the next band even if
  // that band begins before the helper first runs.
  for (int i = 1; i < n; ++i) helpers_.emplace_back([this, seen = generation_] { HelperLoop(seen); });
}

void PlaneThreads::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  for (auto& t : helpers_) t.join();
  helpers_.clear();
}

void PlaneThreads::Work(unsigned planes, Task task, void* ctx) {
  for (unsigned p = next_.fetch_add(1); p < planes; p = next_.fetch_add(1)) task(ctx, p);
}

void PlaneThreads::Run(unsigned planes, Task task, void* ctx) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    task_ = task;
    ctx_ = ctx;
    planes_ = planes;
    next_.store(0);
    busy_ = static_cast<unsigned>(helpers_.size());
    ++generation_;
  }
  wake_.notify_all();
  Work(planes, task, ctx);
  std::unique_lock<std::mutex> lock(mutex_);
  finished_.wait(lock, [this] { return busy_ == 0; });
}

void PlaneThreads::HelperLoop(std::uint64_t seen) {
  for (;;) {
    Task task;
    void* ctx;
    unsigned planes;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [&] { return stopping_ || generation_ != seen; });
      if (stopping_) return;
      seen = generation_;
      task = task_;
      ctx = ctx_;
      planes = planes_;
    }
    Work(planes, task, ctx);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      --busy_;
    }
    finished_.notify_one();
  }
}

}  // namespace halftone
