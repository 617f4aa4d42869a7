// Planes of a band on several threads. A routine whose planes are independent within a band
// (each plane's slice of the random stream drawn ahead, its own working rows) hands the plane
// loop to ForEachPlane; with one thread, the default, the planes run in order on the caller.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "frame/random_bits.h"

namespace halftone {

class PlaneThreads {
 public:
  static constexpr int kMaxThreads = 64;

  PlaneThreads() = default;
  ~PlaneThreads() { Stop(); }
  PlaneThreads(const PlaneThreads&) = delete;
  PlaneThreads& operator=(const PlaneThreads&) = delete;

  // Threads a band may use, the caller included; clamped to 1..kMaxThreads. Starts or stops
  // the helper threads at once, so no band call makes threads.
  void SetCount(int n);
  int count() const { return static_cast<int>(helpers_.size()) + 1; }

  // Calls plane(p) once for every p in 0..planes-1, spread over the threads; returns when all
  // are done. `plane` must not throw.
  template <class Fn>
  void ForEachPlane(unsigned planes, Fn&& plane) {
    if (helpers_.empty() || planes < 2) {
      for (unsigned p = 0; p < planes; ++p) plane(p);
      return;
    }
    Run(planes, [](void* ctx, unsigned p) { (*static_cast<Fn*>(ctx))(p); }, &plane);
  }

 private:
  using Task = void (*)(void*, unsigned);
  void Run(unsigned planes, Task task, void* ctx);
  void Work(unsigned planes, Task task, void* ctx);
  void HelperLoop(std::uint64_t seen);
  void Stop();

  std::vector<std::thread> helpers_;
  std::mutex mutex_;
  std::condition_variable wake_, finished_;
  std::uint64_t generation_ = 0;
  bool stopping_ = false;
  unsigned busy_ = 0;
  Task task_ = nullptr;
  void* ctx_ = nullptr;
  unsigned planes_ = 0;
  std::atomic<unsigned> next_{0};
};

// Room for the random draws of planes scanned side by side: each plane draws from its own copy
// of the generator, started where the plane's slice of the band's stream begins, a row at a
// time into its own few words of this buffer.
class DrawBuffer {
 public:
  // Room for n words. Every room here grows only, so bands of a job's usual size never allocate.
  std::uint32_t* Reserve(std::size_t n) { return GrownTo(words_, n); }
  // Room for the starting generators of n planes.
  RandomBitSource* Starts(std::size_t n) { return GrownTo(starts_, n); }
  // Room for `bytes` bytes of a band's interleaved working rows, 16-byte aligned.
  void* Scratch(std::size_t bytes) { return GrownTo(scratch_, (bytes + sizeof(Block) - 1) / sizeof(Block)); }
  // The jump of the generator by `draws`, kept for the next band of the same size: working it
  // out takes some thousand multiply-adds a bit of the count, as much as a one-row band's scan.
  const RandomJump& Jump(std::uint64_t draws) {
    if (jump_.draws() != draws) jump_ = RandomJump(draws);
    return jump_;
  }

 private:
  // v's elements, at least n of them.
  template <class T>
  static T* GrownTo(std::vector<T>& v, std::size_t n) {
    if (v.size() < n) v.resize(n);
    return v.data();
  }

  std::vector<std::uint32_t> words_;
  std::vector<RandomBitSource> starts_;
  struct alignas(16) Block {
    unsigned char bytes[16];
  };
  std::vector<Block> scratch_;
  RandomJump jump_{0};
};

}  // namespace halftone
